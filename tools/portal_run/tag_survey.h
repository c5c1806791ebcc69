// A study's tag definition files as the host sees them before a run: which
// owner each one goes to by its name, whether its first lines pass that
// owner's test, and the tags the plug-in reads from it, each with the line of
// the tag file it stands on. Reading goes through the portal alone, so what
// is surveyed is what a run would apply; nothing here writes a file.
#pragma once

#include <list>
#include <string>
#include <vector>

#include "study.h"
#include "zeltra/interfaces.h"

namespace portalrun {

using MOSAQ::StringStringMap;
using MOSAQ::Portals::TagData;

// Who reads a tag file, by the beginning of its name.
enum class TagOwner { None, Mark, Xml, Script, Portal };

const char* ownerName(TagOwner owner);

// The owner a tag file's base name gives for a direction; None for a name of
// the other direction or of no owner.
TagOwner ownerByName(const std::string& baseName, bool input);

// The owner that a tag's property "mode" belongs to.
TagOwner ownerOfMode(const std::string& mode);

// The value of a tag's property of that name (any kind); empty when absent.
std::string tagProperty(const TagData& tag, const std::string& name);

struct SurveyedTagFile {
    std::string path;        // the tag file
    std::string taggedFile;  // the file it tags, as the study names it
    bool input = true;
    TagOwner owner = TagOwner::None;  // by name
    // Why the run would leave the file out before reading it (the owner's
    // test of its first lines); empty when it passes. contentLine is the
    // line that failed the test.
    std::string filteredOut;
    int contentLine = 0;
    int readResult = -1;  // of readInputTags / readOutputTags
    std::string readErrors;
    StringStringMap readOutputs;  // what the read gave back (a mark file's defaults)
    std::list<TagData> tags;
    std::vector<int> lines;  // the tag file's line of each tag; 0 when unknown
};

// Reads one tag file through the portal the way a run does.
SurveyedTagFile surveyTagFile(MOSAQ::Portals::IPortal& portal, const Study& study,
                              const std::string& tagFile, const std::string& taggedFile,
                              bool input);

// Every tag file of the study, inputs first, in study order.
std::vector<SurveyedTagFile> surveyStudy(MOSAQ::Portals::IPortal& portal, const Study& study);

}  // namespace portalrun
