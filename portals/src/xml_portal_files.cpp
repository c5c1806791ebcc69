// Loading and saving XML documents by UTF-8 path (see xml_portal_files.h).
#include "xml_portal_files.h"

#include <cstdio>
#include <exception>
#include <iterator>

#include <utf8.h>

namespace MOSAQ::Portals::xmlfiles {

std::wstring widen(const String& text) {
    static_assert(sizeof(wchar_t) == 4, "wide paths hold code points");
    std::wstring wide;
    try {
        utf8::utf8to32(text.begin(), text.end(), std::back_inserter(wide));
        return wide;
    } catch (const std::exception& e) {
        const char* reason = e.what();
        if (!reason || !*reason) reason = "Unknown exception";
        std::printf("Text conversion error: %s\n", reason);
    } catch (...) {
        std::printf("Text conversion error: Unknown exception\n");
    }
    return std::wstring();
}

pugi::xml_parse_result load(pugi::xml_document& document, const String& path) {
    return document.load_file(widen(path).c_str(), pugi::parse_default, pugi::encoding_auto);
}

bool save(const pugi::xml_document& document, const String& path) {
    return document.save_file(widen(path).c_str(), "  ", pugi::format_indent,
                              pugi::encoding_auto);
}

}  // namespace MOSAQ::Portals::xmlfiles
