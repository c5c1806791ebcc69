// Loading and saving XML documents by UTF-8 path for xmlPortal. The path is
// widened before it reaches the XML library; a path that isn't valid UTF-8
// becomes empty, which the library then fails to open, so a bad path is
// reported like a missing file.
#pragma once

#include <string>

#include <pugixml.hpp>

#include "mosaq/support.h"

namespace MOSAQ::Portals::xmlfiles {

// The wide form of a UTF-8 text; empty (with one line on standard output) when
// the text isn't valid UTF-8.
std::wstring widen(const String& text);

// Loads with the default parse flags and automatic encoding.
pugi::xml_parse_result load(pugi::xml_document& document, const String& path);

// Saves indented by two blanks; false when the file couldn't be written.
bool save(const pugi::xml_document& document, const String& path);

}  // namespace MOSAQ::Portals::xmlfiles
