// Text forms of SDF values for people: type names, shapes, numbers and
// strings as the tool prints them in listings and dumps.
//
// Numbers are printed in the shortest form that reads back to the same value
// (with float precision for REAL and CMPX), so a dump loses nothing.
#include <charconv>
#include <cmath>
#include <cstdarg>

#include "sdf.h"
#include "sdf_tool.h"

namespace sdftool {

void complain(const char* fmt, ...) {
    std::fputs("sdf: ", stderr);
    va_list ap;
    va_start(ap, fmt);
    std::vfprintf(stderr, fmt, ap);
    va_end(ap);
    std::fputc('\n', stderr);
}

const char* typeName(int base) {
    switch (base) {
        case SDF_CHAR_T: return "char";
        case SDF_INT_T: return "int";
        case SDF_INT64_T: return "int64";
        case SDF_LOG_T: return "logical";
        case SDF_REAL_T: return "real";
        case SDF_DBLE_T: return "double";
        case SDF_CMPX_T: return "complex";
        case SDF_DCMPX_T: return "dcomplex";
        default: return "unknown";
    }
}

std::string concat(std::initializer_list<std::string_view> parts) {
    size_t n = 0;
    for (std::string_view p : parts) n += p.size();
    std::string s;
    s.reserve(n);
    for (std::string_view p : parts) s += p;
    return s;
}

std::string shapeText(const VarInfo& v) {
    if (!v.array) return "scalar";
    if (v.dims.empty()) return "none";
    std::string s;
    for (size_t i = 0; i < v.dims.size(); i++) {
        if (i) s += 'x';
        s += std::to_string(v.dims[i]);
    }
    return s;
}

std::string typeText(const VarInfo& v) {
    std::string s = typeName(v.base);
    if (v.base == SDF_CHAR_T && v.array) s += concat({"*", std::to_string(v.elen)});
    if (v.array) s += concat({"[", shapeText(v), "]"});
    return s;
}

std::string numberText(double v, bool single) {
    if (std::isnan(v)) return "nan";
    if (std::isinf(v)) return v < 0 ? "-inf" : "inf";
    char buf[64];
    auto r = single ? std::to_chars(buf, buf + sizeof buf, static_cast<float>(v))
                    : std::to_chars(buf, buf + sizeof buf, v);
    return std::string(buf, r.ptr);
}

std::string printable(std::string_view s) {
    std::string out;
    for (unsigned char c : s) {
        switch (c) {
            case '\n': out += "\\n"; break;
            case '\r': out += "\\r"; break;
            case '\t': out += "\\t"; break;
            case '\\': out += "\\\\"; break;
            default:
                if (c < 0x20 || c == 0x7f) {
                    char buf[8];
                    std::snprintf(buf, sizeof buf, "\\x%02x", c);
                    out += buf;
                } else {
                    out += static_cast<char>(c);
                }
        }
    }
    return out;
}

std::string elementText(const Element& e) {
    switch (e.kind) {
        case Element::Integer: return std::to_string(e.i);
        case Element::Logical: return e.i ? "true" : "false";
        case Element::Real: return numberText(e.re, e.single);
        case Element::Complex:
            return concat({"(", numberText(e.re, e.single), ", ", numberText(e.im, e.single), ")"});
        case Element::Text: {
            std::string q = "\"";
            for (char c : printable(e.text)) {
                if (c == '"') q += '\\';
                q += c;
            }
            return q + "\"";
        }
    }
    return {};
}

std::string indexText(const std::vector<int64_t>& dims, size_t k, const char* sep) {
    std::string s;
    for (size_t i = 0; i < dims.size(); i++) {
        if (i) s += sep;
        uint64_t d = static_cast<uint64_t>(dims[i]);
        s += std::to_string(d ? k % d : 0);
        k = d ? k / d : 0;
    }
    return s;
}

}  // namespace sdftool
