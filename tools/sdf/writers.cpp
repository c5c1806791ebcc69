// CSV and JSON text for the export command.
//
// CSV fields follow the usual rule: a field holding a comma, a quote, a line
// feed or a carriage return (or starting or ending in a blank) is quoted, and
// quotes inside are doubled. JSON strings are valid UTF-8 whatever the file
// holds: well-formed UTF-8 passes through, control characters are escaped,
// and a byte that isn't part of a well-formed sequence is written as the
// code point of the same number (as if the text were Latin-1). Numbers that
// JSON can't carry (NaN, infinities) become null.
#include <cmath>

#include "sdf_tool.h"

namespace sdftool {

namespace {

// Length of the well-formed UTF-8 sequence at s[i], or 0.
size_t utf8Length(std::string_view s, size_t i) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    size_t n;
    uint32_t cp;
    if (c < 0x80) return 1;
    if (c >= 0xc2 && c <= 0xdf) { n = 2; cp = c & 0x1f; }
    else if (c >= 0xe0 && c <= 0xef) { n = 3; cp = c & 0x0f; }
    else if (c >= 0xf0 && c <= 0xf4) { n = 4; cp = c & 0x07; }
    else return 0;
    if (i + n > s.size()) return 0;
    for (size_t k = 1; k < n; k++) {
        unsigned char t = static_cast<unsigned char>(s[i + k]);
        if ((t & 0xc0) != 0x80) return 0;
        cp = (cp << 6) | (t & 0x3f);
    }
    // Overlong forms, surrogates and values above the Unicode range.
    if ((n == 3 && cp < 0x800) || (n == 4 && (cp < 0x10000 || cp > 0x10ffff)) ||
        (cp >= 0xd800 && cp <= 0xdfff))
        return 0;
    return n;
}

std::string jsonNumber(double v, bool single) {
    return std::isfinite(v) ? numberText(v, single) : "null";
}

}  // namespace

std::string csvField(std::string_view s) {
    bool quote = !s.empty() && (s.front() == ' ' || s.back() == ' ');
    for (char c : s)
        if (c == ',' || c == '"' || c == '\n' || c == '\r') quote = true;
    if (!quote) return std::string(s);
    std::string out = "\"";
    for (char c : s) {
        if (c == '"') out += '"';
        out += c;
    }
    return out + "\"";
}

std::string csvValue(const Element& e) {
    if (e.kind == Element::Text) return csvField(e.text);
    if (e.kind == Element::Complex)
        return csvField(numberText(e.re, e.single) + "," + numberText(e.im, e.single));
    return csvField(elementText(e));
}

std::string jsonString(std::string_view s) {
    std::string out = "\"";
    for (size_t i = 0; i < s.size();) {
        unsigned char c = static_cast<unsigned char>(s[i]);
        size_t n = utf8Length(s, i);
        if (n > 1) {
            out.append(s.substr(i, n));
            i += n;
            continue;
        }
        i++;
        switch (c) {
            case '"': out += "\\\""; continue;
            case '\\': out += "\\\\"; continue;
            case '\n': out += "\\n"; continue;
            case '\r': out += "\\r"; continue;
            case '\t': out += "\\t"; continue;
            case '\b': out += "\\b"; continue;
            case '\f': out += "\\f"; continue;
            default: break;
        }
        if (n == 1 && c >= 0x20) {
            out += static_cast<char>(c);
        } else {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", c);
            out += buf;
        }
    }
    return out + "\"";
}

std::string jsonValue(const Element& e) {
    switch (e.kind) {
        case Element::Integer: return std::to_string(e.i);
        case Element::Logical: return e.i ? "true" : "false";
        case Element::Real: return jsonNumber(e.re, e.single);
        case Element::Complex:
            return concat({"[", jsonNumber(e.re, e.single), ", ", jsonNumber(e.im, e.single), "]"});
        case Element::Text: return jsonString(e.text);
    }
    return "null";
}

namespace {

void nest(const VarInfo& info, const Values& values, size_t dim, size_t offset, size_t stride,
          std::string& out) {
    // Walking the first dimension outermost: its stride is 1, the next
    // dimension's stride is the first extent, and so on.
    out += '[';
    size_t extent = static_cast<size_t>(info.dims[dim]);
    for (size_t i = 0; i < extent; i++) {
        if (i) out += ", ";
        size_t at = offset + i * stride;
        if (dim + 1 == info.dims.size()) out += jsonValue(values.at(at));
        else nest(info, values, dim + 1, at, stride * extent, out);
    }
    out += ']';
}

}  // namespace

std::string jsonNested(const VarInfo& info, const Values& values) {
    if (!info.array) return values.size() ? jsonValue(values.at(0)) : "null";
    if (info.dims.empty() || values.size() != info.count()) return "[]";
    std::string out;
    nest(info, values, 0, 0, 1, out);
    return out;
}

}  // namespace sdftool
