// What a host shows a user of a file so that parameters and responses can be
// bound to places in it: the portal's own listing of an SDF file, the
// elements of an XML document with the paths XML tags use, or the numbered
// lines of a text file with its free tokens numbered and a column ruler.
#pragma once

#include <iosfwd>
#include <string>

#include "zeltra/interfaces.h"

namespace portalrun {

enum class FileKind { Sdf, Xml, Text };

// By the file's first bytes: the SDF magic, a "<" that starts a readable XML
// document, else text. False with a reason when the file can't be read.
bool fileKind(const std::string& path, FileKind& kind, std::string& error);

// The portal's parseOutputFile, printed as groups and rows. False with the
// portal's errors when it can't list the file.
bool inspectSdf(MOSAQ::Portals::IPortal& portal, const std::string& path, std::ostream& out,
                std::string& error);

// Each element with the xpath that finds it, its attributes as xid "[@a]"
// and its text as "[#text]".
bool inspectXml(const std::string& path, std::ostream& out, std::string& error);

// Numbered lines, each followed by the ordinals of its free tokens under
// delims (a written delimiter specification) placed under the token's first
// column; a ruler of columns heads the listing.
bool inspectText(const std::string& path, const std::string& delims, std::ostream& out,
                 std::string& error);

}  // namespace portalrun
