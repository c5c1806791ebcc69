/*
 * zu_units_api.cpp - the public parse and conversion operations.
 *
 * A text is prepared (leading blanks and tabs skipped, "**" read as "^"),
 * evaluated, and its dimensions printed. Conversions parse both sides and
 * compare dimension texts; ZU_cvtUnit moves any failure from the error set
 * to the single error slot (extra value 3) and clears the stack of routine
 * "cvtUnit", ZU_cvtValue leaves the error set as it is.
 */
#include "zu_units_inner.h"

#include <algorithm>
#include <cstring>

namespace zu_units {

namespace {

} // namespace

std::string prepareUnitText(const char *unit)
{
    const char *p = unit ? unit : "";
    while (*p == ' ' || *p == '\t')
        ++p;
    std::string s;
    s.reserve(strlen(p));
    for (; *p; ++p) {
        if (p[0] == '*' && p[1] == '*') {
            s += '^';
            ++p;
        } else {
            s += *p;
        }
    }
    return s;
}

namespace {

/* Parses one side: 0 or a code, with the dimension text in `dims`. */
int parse(const char *unit, std::string &dims, double &scale, double &offset)
{
    const Tables &t = tables();
    std::string text = prepareUnitText(unit);
    Result r;
    if (int rc = evaluate(t, text, r, nullptr, false))
        return rc;
    dims.clear();
    printDims(t, r.dims, dims);
    if (dims.size() >= ZU_UNIT_DIMS_SIZE) {
        raise(ZU_UNIT_TOO_LONG, formatMessage(ZU_unitErrText(ZU_UNIT_TOO_LONG),
                                              {text, std::to_string(ZU_UNIT_DIMS_SIZE)}));
        return ZU_UNIT_TOO_LONG;
    }
    scale = r.scale;
    offset = r.offset;
    return 0;
}

void copyOut(const std::string &text, char *out, int size)
{
    if (!out || size < 1)
        return;
    size_t n = std::min(text.size(), static_cast<size_t>(size - 1));
    memcpy(out, text.data(), n);
    out[n] = '\0';
}

/* Both sides parsed and compared; 0 or the unit code. */
int convert(const char *from, const char *to, double &scale, double &offset)
{
    std::string dFrom, dTo;
    double sFrom = 1, oFrom = 0, sTo = 1, oTo = 0;
    scale = 1;
    offset = 0;
    if (int rc = parse(from, dFrom, sFrom, oFrom))
        return rc;
    if (int rc = parse(to, dTo, sTo, oTo))
        return rc;
    if (dFrom != dTo) {
        raise(ZU_UNIT_INCOMPATIBLE, formatMessage(ZU_unitErrText(ZU_UNIT_INCOMPATIBLE),
                                                  {from ? from : "", dFrom, to ? to : "", dTo}));
        return ZU_UNIT_INCOMPATIBLE;
    }
    scale = sFrom / sTo;
    offset = (oFrom - oTo) / sTo;
    return 0;
}

} // namespace

} // namespace zu_units

using namespace zu_units;

extern "C" {

int ZU_unitParse(const char *unit, char *dims, double *scale, double *offset)
{
    std::string d;
    double s = 1, o = 0;
    int rc = parse(unit, d, s, o);
    if (dims)
        copyOut(rc ? std::string() : d, dims, ZU_UNIT_DIMS_SIZE);
    if (scale)
        *scale = rc ? 1 : s;
    if (offset)
        *offset = rc ? 0 : o;
    return rc;
}

int ZU_cvtUnit(const char *from, const char *to, double *scale, double *offset)
{
    double s = 1, o = 0;
    int rc = convert(from, to, s, o);
    if (scale)
        *scale = s;
    if (offset)
        *offset = o;
    if (rc == 0)
        return 0;
    if (rc == ZU_UNIT_UNDEFINED) {
        ZU_setError(ZU_SLOT_TEXT, lastMessage().c_str(), 0, 3);
    } else {
        std::string pair = from ? from : "";
        pair.append("\" to \"").append(to ? to : "");
        ZU_setError(ZU_SLOT_CONVERSION, pair.c_str(), 0, 3);
    }
    ZU_errClear("cvtUnit", 0);
    return rc == ZU_UNIT_UNDEFINED ? ZU_SLOT_TEXT : ZU_SLOT_CONVERSION;
}

int ZU_cvtValue(const char *from, const char *to, double *value, double *scale, double *offset)
{
    double s = 1, o = 0;
    int rc = convert(from, to, s, o);
    if (scale)
        *scale = s;
    if (offset)
        *offset = o;
    if (rc == 0 && value)
        *value = *value * s + o;
    return rc;
}

int ZU_unitPretty(const char *unit, char *out, int size)
{
    const Tables &t = tables();
    std::string display;
    Result r;
    int rc = evaluate(t, prepareUnitText(unit), r, &display, true);
    copyOut(rc ? std::string() : display, out, size);
    return rc;
}

} // extern "C"
