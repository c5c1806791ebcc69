/*
 * zu_units_lookup.cpp - searching the tables in force, dimension vectors and
 * their text, and the raising of unit failures.
 *
 * Every table is sorted with strcmp, and a string_view compares as strcmp
 * does (bytes as unsigned char, a prefix before its extensions), so halving
 * with string_view keys finds exactly what strcmp would.
 */
#include "zu_units_inner.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace zu_units {

namespace {

/* strcmp of a terminated text against a view, without measuring the text. */
int compareName(const char *a, std::string_view b)
{
    for (size_t i = 0; i < b.size(); ++i) {
        unsigned char x = static_cast<unsigned char>(a[i]), y = static_cast<unsigned char>(b[i]);
        if (x != y)
            return x < y ? -1 : 1; /* a terminator is below any byte */
    }
    return a[b.size()] ? 1 : 0;
}

template <class Row, class Key>
const Row *halve(const Row *rows, int count, std::string_view name, Key key)
{
    int lo = 0, hi = count - 1;
    while (lo <= hi) {
        int mid = lo + (hi - lo) / 2;
        int c = compareName(key(rows[mid]), name);
        if (c == 0)
            return &rows[mid];
        if (c < 0)
            lo = mid + 1;
        else
            hi = mid - 1;
    }
    return nullptr;
}

thread_local std::string t_lastMessage;

} // namespace

const char *findDefinition(const Tables &t, std::string_view name)
{
    const ZU_UnitDef *row = halve(t.units, t.unitCount, name, [](const ZU_UnitDef &r) { return r.name; });
    return row ? row->definition : nullptr;
}

const Prefix *findPrefix(std::string_view name)
{
    return halve(kPrefixes, kPrefixCount, name, [](const Prefix &p) { return p.name; });
}

const char *findPretty(const Tables &t, std::string_view name)
{
    const ZU_UnitDef *row = halve(t.pairs, t.pairCount, name, [](const ZU_UnitDef &r) { return r.name; });
    return row ? row->definition : nullptr;
}

const char *findDerived(std::string_view dims)
{
    const ZU_UnitDef *row = halve(kDerived, kDerivedCount, dims, [](const ZU_UnitDef &r) { return r.name; });
    return row ? row->definition : nullptr;
}

int baseIndex(const Tables &t, std::string_view name)
{
    for (int i = 0; i < t.baseCount; ++i)
        if (name == t.bases[i])
            return i;
    return -1;
}

void printExponent(double e, std::string &out)
{
    char buf[32];
    if (e == std::rint(e) && std::fabs(e) < 1000) {
        auto [end, ec] = std::to_chars(buf, buf + sizeof buf, static_cast<int>(e));
        out.append(buf, static_cast<size_t>(end - buf));
        return;
    }
    snprintf(buf, sizeof buf, "%.3g", e);
    out += buf;
}

double normExponentSlow(double e)
{
    if (std::fabs(e) < 0.001)
        return 0;
    char buf[32];
    snprintf(buf, sizeof buf, "%.3g", e);
    return strtod(buf, nullptr);
}

void printDims(const Tables &t, const Dims &d, std::string &out)
{
    bool first = true;
    for (int i = 0; i < t.baseCount; ++i) {
        if (d.e[i] == 0)
            continue;
        if (!first)
            out += '.';
        first = false;
        out += t.bases[i];
        if (d.e[i] != 1)
            printExponent(d.e[i], out);
    }
}

std::string formatMessage(const char *tmpl, std::initializer_list<std::string> args)
{
    std::string out;
    auto next = args.begin();
    for (const char *p = tmpl; *p; ++p) {
        if (p[0] == '%' && (p[1] == 's' || p[1] == 'd') && next != args.end()) {
            out += *next++;
            ++p;
        } else {
            out += *p;
        }
    }
    return out;
}

void raise(int code, const std::string &message)
{
    t_lastMessage = message;
    ZU_Err("cvtUnit", code, ZU_unitErrSeverity(code), message.c_str());
}

const std::string &lastMessage()
{
    return t_lastMessage;
}

} // namespace zu_units

extern "C" {

const char *ZU_unitErrText(int code)
{
    switch (code) {
#define ZU_CASE_(c, name, severity, text) \
    case c:                               \
        return text;
        ZU_UNIT_CODES(ZU_CASE_)
#undef ZU_CASE_
    default:
        return "";
    }
}

int ZU_unitErrSeverity(int code)
{
    switch (code) {
#define ZU_CASE_(c, name, severity, text) \
    case c:                               \
        return severity;
        ZU_UNIT_CODES(ZU_CASE_)
#undef ZU_CASE_
    default:
        return 0;
    }
}

} // extern "C"
