// Binding a parameter or a response to a place in a file: one tag is added
// to the study's tag definition file for that file. The file is written by
// the plug-in's own writer with the data map a host builds, into a private
// folder, read back through the plug-in, and only then moved over the old
// one; so a bind either leaves a complete, readable tag file or none changed.
#pragma once

#include <string>
#include <vector>

#include "check.h"
#include "study.h"
#include "zeltra/interfaces.h"

namespace portalrun {

enum class BindKind { Free, Fixed, Xml, Script, Portal };

struct BindRequest {
    BindKind kind = BindKind::Free;
    std::string file;    // the tagged file, as the study names it or by its base name
    std::string name;    // parameter or response; a script names its own
    std::string type;    // paramType; empty: from the study
    std::string format;  // print format; empty: "Default" for inputs
    int row = 0;
    int token = 0;
    std::string delims;  // free: delimiter specification; fixed: width specification
    int firstColumn = 0, lastColumn = 0;  // fixed by columns, when given
    std::string xpath, xid;
    std::string script;  // the script's text
    std::string group = "Variables";
    std::string variable;
    int column = 0;  // of a table variable; 0 for a whole variable
};

// The written form of the default delimiter set of mark tags.
extern const char* const kDefaultDelimiters;

// Adds the tag. On success `done` says what was bound where; on failure
// `error` says why and nothing changed. findings holds what the check of the
// new tag found (its errors refuse the bind; warnings are passed on).
bool bindTag(MOSAQ::Portals::IPortal& portal, const Study& study, const BindRequest& request,
             std::string& done, std::string& error, std::vector<Finding>& findings);

// The tag file a study names for a file, or the default name beside the
// study ("M_in_" + analysis + "_" + base name, by kind) when it names none.
std::string tagFileFor(const Study& study, const FileSpec& spec, BindKind kind, bool input);

// Writes a complete list of tags as the tag file tagFile for the file named
// taggedName, through the plug-in's writer, and reads it back. extra goes
// into the data map (a mark file's default delimiters and widths).
bool writeTagFile(MOSAQ::Portals::IPortal& portal, const Study& study, const std::string& tagFile,
                  const std::string& taggedName, bool input, const std::string& mode,
                  const std::list<TagData>& tags, const StringStringMap& extra,
                  std::string& error);

}  // namespace portalrun
