/*
 * zu_errslot.cpp - the single error slot of the unit code: one number with
 * its text, integer argument and extra value, kept apart from the error set.
 * Reading the slot clears it. The message templates come from the code list
 * in zutil.h; each takes at most the slot's text and integer argument.
 */
#include "zu_internal.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

int g_number = 0;
std::string g_text;
int g_iarg = 0;
int g_extra = 0;

/* Fills the template's %s, %c and %d (each at most once) by hand, so that
 * no format text is ever taken from data. */
std::string formatSlot(int number, const std::string &text, int iarg)
{
    const char *tmpl = ZU_slotErrText(number);
    std::string out;
    for (const char *p = tmpl; *p; ++p) {
        if (p[0] == '%' && (p[1] == 's' || p[1] == 'c' || p[1] == 'd')) {
            if (p[1] == 's')
                out += text;
            else if (p[1] == 'c')
                out += static_cast<char>(iarg);
            else
                out += std::to_string(number == ZU_SLOT_ALLOC ? iarg : number);
            ++p;
        } else {
            out += *p;
        }
    }
    return out;
}

} // namespace

extern "C" {

void ZU_setError(int number, const char *text, int iarg, int extra)
{
    g_number = number;
    g_text = text ? text : "";
    g_iarg = iarg;
    g_extra = extra;
}

int ZU_getError(char *text, int size, int *extra)
{
    if (text && size > 0) {
        std::string message = formatSlot(g_number, g_text, g_iarg);
        size_t n = std::min(message.size(), static_cast<size_t>(size - 1));
        memcpy(text, message.data(), n);
        text[n] = '\0';
    }
    if (extra)
        *extra = g_extra;
    int number = g_number;
    g_number = 0;
    g_text.clear();
    g_iarg = 0;
    g_extra = 0;
    return number;
}

int ZU_errNumber(void)
{
    int number = g_number;
    g_number = 0;
    return number;
}

} // extern "C"
