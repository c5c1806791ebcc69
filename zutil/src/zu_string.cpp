/*
 * zu_string.cpp - terminated and Fortran strings.
 *
 * Fortran texts are a pointer and a width, blank padded and unterminated;
 * the helpers here convert between the two forms. Copies come from the
 * tracked allocator, with a tag that quotes the start of the text so that a
 * failure message says what was being copied. Character tests go through
 * unsigned char, so bytes above 127 are never negative arguments.
 */
#include "zu_internal.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace {

bool isSpace(char c)
{
    return isspace(static_cast<unsigned char>(c)) != 0;
}

int lower(char c)
{
    return tolower(static_cast<unsigned char>(c));
}

char *copyTagged(const char *text, size_t length, const char *tag)
{
    auto *copy = static_cast<char *>(ZU_allocMemNoZero(length + 1, tag));
    if (copy) {
        memcpy(copy, text, length);
        copy[length] = '\0';
    }
    return copy;
}

/* Inside quotes, a backslash makes the following quote character ordinary. */
void lowerOutsideQuotes(char *text)
{
    char quote = 0;
    for (char *p = text; *p; ++p) {
        if (quote) {
            if (*p == '\\' && p[1] == quote)
                ++p;
            else if (*p == quote)
                quote = 0;
        } else if (*p == '\'' || *p == '"') {
            quote = *p;
        } else {
            *p = static_cast<char>(lower(*p));
        }
    }
}

} // namespace

extern "C" {

char *strDup(const char *text)
{
    if (!text)
        return nullptr;
    char tag[48];
    snprintf(tag, sizeof tag, "strDup: %.24s", text);
    return copyTagged(text, strlen(text), tag);
}

char *reStrDup(char *old, const char *text)
{
    if (!text)
        return nullptr;
    char tag[48];
    snprintf(tag, sizeof tag, "reStrDup: %.22s", text);
    char *copy = copyTagged(text, strlen(text), tag);
    ZU_freeMem(old);
    return copy;
}

char *strf2cDup(const char *text, int length)
{
    if (!text || length < 0)
        return nullptr;
    return copyTagged(text, static_cast<size_t>(ZU_strLenTrim(text, length)), "strf2cDup: ");
}

int ZU_strLenTrim(const char *text, int length)
{
    if (!text)
        return 0;
    while (length > 0 && isSpace(text[length - 1]))
        --length;
    return length > 0 ? length : 0;
}

void ZU_strC2F(char *dest, const char *text, int width)
{
    if (!dest || width <= 0)
        return;
    int i = 0;
    for (; text && i < width && text[i]; ++i)
        dest[i] = text[i];
    for (; i < width; ++i)
        dest[i] = ' ';
}

void ZU_strF2C(char *dest, const char *source, int width)
{
    if (!dest)
        return;
    if (!source || width <= 0) {
        dest[0] = '\0';
        return;
    }
    memcpy(dest, source, static_cast<size_t>(width));
    while (width > 0 && dest[width - 1] == ' ')
        --width;
    dest[width] = '\0';
}

void ZU_strCopyTrim(char *dest, const char *text, int limit)
{
    if (!dest)
        return;
    int n = 0;
    for (; text && n < limit && text[n]; ++n)
        dest[n] = text[n];
    while (n > 0 && dest[n - 1] == ' ')
        --n;
    dest[n] = '\0';
}

int ZU_strCaseCmp(const char *a, const char *b)
{
    if (!a || !b)
        return (a != nullptr) - (b != nullptr);
    for (;; ++a, ++b) {
        int d = lower(*a) - lower(*b);
        if (d || !*a)
            return d;
    }
}

int ZU_strNCaseCmp(const char *a, const char *b, size_t n)
{
    if (!a || !b)
        return (a != nullptr) - (b != nullptr);
    for (; n > 0; --n, ++a, ++b) {
        int d = lower(*a) - lower(*b);
        if (d || !*a)
            return d;
    }
    return 0;
}

void ZU_strLowerUnquoted(char *text)
{
    if (text)
        lowerOutsideQuotes(text);
}

int ZU_fixFileName(char *name)
{
    if (!name)
        return 0;
    int replaced = 0;
    for (char *p = name; *p; ++p) {
        if (strchr("\"%*/:<>?\\|", *p)) {
            *p = '_';
            ++replaced;
        }
    }
    return replaced;
}

} // extern "C"
