// Loading and saving whole XML documents for the XML tagging module, through
// XmlTagging::fileOps() so tests can make either fail.
//
// A document is parsed in place from the bytes of its file, so the bytes must
// live as long as the document: XmlFile keeps both. Saving streams the text
// to the file in large pieces; a failure on the way is reported, never
// passed over.
#pragma once

#include "zeltra/tagging.h"

namespace MOSAQ::Portals::xmlfile {

struct XmlFile {
    String bytes;
    pugi::xml_document document;
    pugi::xml_parse_result result;
    bool byteOrderMark = false;
};

// Loads with the parse flags given and the encoding detected; a file that
// can't be read gives the parser's "file not found" or "I/O error" status.
void load(XmlFile& file, const String& path, unsigned flags);

// Saves indented by two blanks, in the given encoding; false on failure.
bool save(const pugi::xml_document& document, const String& path, pugi::xml_encoding encoding,
          bool byteOrderMark);

}  // namespace MOSAQ::Portals::xmlfile
