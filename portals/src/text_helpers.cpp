// The text side of HelperBase: placeholder filling, level words, the errors
// string and the string helpers. Placeholders are filled in the order of
// their numbers, not by number: the first argument goes to the lowest %d the
// pattern holds, so a pattern may skip numbers.
#include "zeltra/helper_base.h"

#include <cctype>
#include <clocale>
#include <cstdio>
#include <langinfo.h>
#include <locale>
#include <sstream>

namespace MOSAQ::Portals {

namespace {

StringList nonEmpty(std::initializer_list<const String*> args) {
    StringList out;
    for (const String* a : args)
        if (!a->empty()) out.push_back(*a);
    return out;
}

void appendLine(String& errors, const String& line) {
    if (!errors.empty()) errors += '\n';
    errors += line;
}

}  // namespace

String HelperBase::formatList(const String& pattern, const StringList& args) {
    String text = pattern;
    std::size_t next = 0;
    for (char d = '1'; d <= '9' && next < args.size(); ++d) {
        const String placeholder{'%', d};
        std::size_t pos = text.find(placeholder);
        if (pos == String::npos) continue;
        const String& arg = args[next++];
        while (pos != String::npos) {
            text.replace(pos, placeholder.size(), arg);
            pos = text.find(placeholder, pos + arg.size());
        }
    }
    return text;
}

String HelperBase::numberText(double value) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%g", value);
    return buf;
}

String HelperBase::format(const String& p, const String& a1) { return formatList(p, {a1}); }
String HelperBase::format(const String& p, const String& a1, const String& a2) {
    return formatList(p, nonEmpty({&a1, &a2}));
}
String HelperBase::format(const String& p, const String& a1, const String& a2, const String& a3) {
    return formatList(p, nonEmpty({&a1, &a2, &a3}));
}
String HelperBase::format(const String& p, const String& a1, const String& a2, const String& a3,
                          const String& a4, const String& a5, const String& a6, const String& a7,
                          const String& a8, const String& a9) {
    return formatList(p, {a1, a2, a3, a4, a5, a6, a7, a8, a9});
}
String HelperBase::format(const String& p, int a1) { return format(p, double(a1)); }
String HelperBase::format(const String& p, int a1, int a2) {
    return format(p, double(a1), double(a2));
}
String HelperBase::format(const String& p, int a1, int a2, int a3) {
    return format(p, double(a1), double(a2), double(a3));
}
String HelperBase::format(const String& p, double a1) { return formatList(p, {numberText(a1)}); }
String HelperBase::format(const String& p, double a1, double a2) {
    return formatList(p, {numberText(a1), numberText(a2)});
}
String HelperBase::format(const String& p, double a1, double a2, double a3) {
    return formatList(p, {numberText(a1), numberText(a2), numberText(a3)});
}

String HelperBase::normalizeLevel(const String& text, const String& level) {
    const String prefix = level + ": ";
    String out = text;
    for (const char* word : {"ERROR", "WARNING", "NOTE"}) {
        if (level != word) replaceAll(out, String(word) + ": ", prefix);
    }
    if (out.compare(0, prefix.size(), prefix) != 0) out.insert(0, prefix);
    return out;
}

void HelperBase::addError(String& e, const String& p, const String& a1, const String& a2,
                          const String& a3) {
    appendLine(e, format(normalizeLevel(p, "ERROR"), a1, a2, a3));
}
void HelperBase::addWarning(String& e, const String& p, const String& a1, const String& a2,
                            const String& a3) {
    appendLine(e, format(normalizeLevel(p, "WARNING"), a1, a2, a3));
}
void HelperBase::addNote(String& e, const String& p, const String& a1, const String& a2,
                         const String& a3) {
    appendLine(e, format(normalizeLevel(p, "NOTE"), a1, a2, a3));
}
void HelperBase::addLine(String& e, const String& text) { appendLine(e, text); }
void HelperBase::addLine(String& e, const String& p, const String& a1) {
    appendLine(e, format(p, a1));
}
void HelperBase::addLine(String& e, const String& p, const String& a1, const String& a2) {
    appendLine(e, format(p, a1, a2));
}
void HelperBase::addLine(String& e, const String& p, const String& a1, const String& a2,
                         const String& a3) {
    appendLine(e, format(p, a1, a2, a3));
}
void HelperBase::addLine(String& e, const String& p, int a1) { appendLine(e, format(p, a1)); }
void HelperBase::addLine(String& e, const String& p, int a1, int a2) {
    appendLine(e, format(p, a1, a2));
}
void HelperBase::addLine(String& e, const String& p, int a1, int a2, int a3) {
    appendLine(e, format(p, a1, a2, a3));
}
void HelperBase::addLine(String& e, const String& p, double a1) { appendLine(e, format(p, a1)); }
void HelperBase::addLine(String& e, const String& p, double a1, double a2) {
    appendLine(e, format(p, a1, a2));
}
void HelperBase::addLine(String& e, const String& p, double a1, double a2, double a3) {
    appendLine(e, format(p, a1, a2, a3));
}

bool HelperBase::hasError(const String& text) {
    return text.find("ERROR") != String::npos || text.find("Exception caught") != String::npos;
}

bool HelperBase::isTrue(const String& text) {
    const String t = toLower(text);
    return t == "true" || t == "yes" || t == "1";
}

bool HelperBase::isFalse(const String& text) {
    const String t = toLower(text);
    return t == "false" || t == "no" || t == "0";
}

char HelperBase::localeDecimalSign() {
    // Read once: the plug-in shares the host's process and must never change
    // its locale, so the user's locale is opened on the side.
    static const char sign = [] {
        locale_t loc = ::newlocale(LC_NUMERIC_MASK, "", locale_t(0));
        if (loc == locale_t(0)) return '.';
        const char* radix = ::nl_langinfo_l(RADIXCHAR, loc);
        char c = (radix && radix[0] && !radix[1]) ? radix[0] : '.';
        ::freelocale(loc);
        return c;
    }();
    return sign;
}

namespace {

// Brings a number text into the "C" form and reads it; `rest` gets whatever
// stands behind the number. False when no number could be read.
bool readNumber(const String& text, char separator, double& value, String& rest) {
    const char sign = separator ? separator : HelperBase::localeDecimalSign();
    String c = text;
    if (sign == '.') {
        HelperBase::replaceAll(c, ",", "");
    } else {
        if (separator) HelperBase::replaceAll(c, ".", "");
        HelperBase::replaceAll(c, String(1, sign), ".");
    }
    std::istringstream in(c);
    in.imbue(std::locale::classic());
    value = 0;
    if (!(in >> value)) {
        value = 0;
        return false;
    }
    std::getline(in, rest, '\0');
    return true;
}

}  // namespace

double HelperBase::parseNumber(const String& text, char separator) {
    double value;
    String rest;
    readNumber(text, separator, value, rest);
    return value;
}

bool HelperBase::isNumber(const String& text, char separator) {
    double value;
    String rest;
    if (!readNumber(text, separator, value, rest)) return false;
    return rest.find_first_not_of(" \t\r\n\f\v") == String::npos;
}

String& HelperBase::trim(String& text) {
    const char* blanks = " \t\r\n";
    std::size_t end = text.find_last_not_of(blanks);
    if (end == String::npos) {
        text.clear();
        return text;
    }
    text.erase(end + 1);
    text.erase(0, text.find_first_not_of(blanks));
    return text;
}

String HelperBase::trimmed(String text) { return trim(text); }

StringList HelperBase::split(const String& text, char separator, bool trimEach) {
    StringList pieces;
    if (text.empty()) return pieces;
    std::size_t start = 0;
    while (true) {
        std::size_t pos = text.find(separator, start);
        String piece = text.substr(start, pos == String::npos ? String::npos : pos - start);
        if (trimEach) trim(piece);
        pieces.push_back(std::move(piece));
        if (pos == String::npos) break;
        start = pos + 1;
    }
    return pieces;
}

String HelperBase::join(const StringList& list, const String& separator) {
    String out;
    for (std::size_t i = 0; i < list.size(); ++i) {
        if (i) out += separator;
        out += list[i];
    }
    return out;
}

String& HelperBase::replaceAll(String& text, const String& from, const String& to) {
    if (from.empty()) return text;
    std::size_t pos = text.find(from);
    while (pos != String::npos) {
        text.replace(pos, from.size(), to);
        pos = text.find(from, pos + to.size());
    }
    return text;
}

String HelperBase::section(const String& text, const String& separator, int first, int count) {
    if (separator.empty() || text.find(separator) == String::npos) return String();
    // Start offsets of each section.
    std::vector<std::size_t> starts{0};
    for (std::size_t pos = text.find(separator); pos != String::npos;
         pos = text.find(separator, pos + separator.size()))
        starts.push_back(pos + separator.size());
    const int sections = static_cast<int>(starts.size());
    if (first < 0) first += sections;
    if (first < 0 || first >= sections) return String();
    const std::size_t begin = starts[static_cast<std::size_t>(first)];
    if (count <= 0 || first + count >= sections) return text.substr(begin);
    const std::size_t end = starts[static_cast<std::size_t>(first + count)] - separator.size();
    return text.substr(begin, end - begin);
}

String HelperBase::toUpper(String text) {
    for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return text;
}

String HelperBase::toLower(String text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

void HelperBase::splitFileLists(const StringStringMap& data, const String& filesKey,
                                const String& tagsKey, StringList& files, StringList& tagFiles) {
    files = split(value(data, filesKey), '\n', true);
    tagFiles = split(value(data, tagsKey), '\n', true);
    if (tagFiles.size() < files.size()) tagFiles.resize(files.size());
}

String HelperBase::value(const StringStringMap& data, const String& key) {
    auto it = data.find(key);
    return it == data.end() ? String() : it->second;
}

String HelperBase::property(const std::list<PropertyItem>& properties, const String& name) {
    for (const auto& p : properties)
        if (p.name == name) return p.value;
    return String();
}

String HelperBase::property(const std::list<PropertyItem>& properties, const String& name,
                            const String& kind) {
    for (const auto& p : properties)
        if (p.name == name && p.kind == kind) return p.value;
    return String();
}

}  // namespace MOSAQ::Portals
