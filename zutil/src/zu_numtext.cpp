/*
 * zu_numtext.cpp - numbers written as text: recognising integers and reals
 * (with the Fortran exponent letters d and D), reading a real clamped to
 * single precision, and reading a message level.
 *
 * Reading never depends on the process locale: the host owns the locale and
 * may have a decimal comma, while these texts always use '.'.
 */
#include "zu_internal.h"

#include <cctype>
#include <cfloat>
#include <clocale>
#include <cstdlib>
#include <locale.h>
#include <string>

namespace {

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

/* [+-]digits; returns the position behind it, or null. */
const char *skipInteger(const char *p)
{
    if (*p == '+' || *p == '-')
        ++p;
    if (!isDigit(*p))
        return nullptr;
    while (isDigit(*p))
        ++p;
    return p;
}

double readCLocale(const std::string &text)
{
    static locale_t cLocale = newlocale(LC_NUMERIC_MASK, "C", static_cast<locale_t>(0));
    if (!cLocale)
        return atof(text.c_str());
    return strtod_l(text.c_str(), nullptr, cLocale);
}

} // namespace

extern "C" {

int ZU_isInteger(const char *text)
{
    if (!text || !*text)
        return 0;
    const char *end = skipInteger(text);
    return end && !*end ? 1 : 0;
}

int ZU_isReal(const char *text)
{
    if (!text || !*text)
        return 0;
    const char *p = text;
    if (*p == '+' || *p == '-')
        ++p;
    int digits = 0;
    bool dot = false;
    for (; isDigit(*p) || (*p == '.' && !dot); ++p) {
        if (*p == '.')
            dot = true;
        else
            ++digits;
    }
    if (digits == 0)
        return 0;
    if (*p == 'e' || *p == 'E' || *p == 'd' || *p == 'D')
        return ZU_isInteger(p + 1);
    return *p ? 0 : 1;
}

float ZU_atofFloat(const char *text)
{
    if (!text)
        return 0.0f;
    std::string copy(text);
    size_t d = copy.find_first_of("dD");
    if (d != std::string::npos)
        copy[d] = 'e';
    double value = readCLocale(copy);
    if (value > FLT_MAX)
        return FLT_MAX;
    if (value < -FLT_MAX)
        return -FLT_MAX;
    if (value != 0 && value > -FLT_MIN && value < FLT_MIN)
        return value > 0 ? FLT_MIN : -FLT_MIN;
    return static_cast<float>(value);
}

int ZU_parseLevel(const char *text, int current)
{
    if (!ZU_isInteger(text))
        return current;
    long value = strtol(text, nullptr, 10);
    if (value > 1000000 || value < -1000000)
        value = value > 0 ? 1000000 : -1000000;
    if (*text != '+' && *text != '-')
        return static_cast<int>(value);
    long level = current + value;
    return static_cast<int>(level < 1 ? 1 : level > 9 ? 9 : level);
}

} // extern "C"
