/*
 * zu_path.cpp - file paths as pure text; nothing here touches the disk.
 *
 * '/' and '\' both separate. A path is absolute when it starts with a
 * separator or with a drive ("C:"). Segments are the non-empty runs between
 * separators, so repeated separators vanish inside a path while leading
 * ones (a UNC name has two) are counted and kept. Normalising never removes
 * or cancels the first segment, which protects a drive name.
 *
 * Results of the absolute, relative and reduced forms use '/' for paths that
 * start with '/', and '\' after a drive or a leading backslash.
 */
#include "zu_internal.h"

#include <cctype>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Segments = std::vector<std::string>;

char g_reference[1024];
char g_referenceCopy[1024];
char g_emptyText[1];

bool isSep(char c)
{
    return c == '/' || c == '\\';
}

bool hasDrive(const char *p)
{
    return isalpha(static_cast<unsigned char>(p[0])) && p[1] == ':';
}

int leadingSeparators(const char *p)
{
    int n = 0;
    while (isSep(p[n]))
        ++n;
    return n;
}

Segments split(const char *p)
{
    Segments out;
    while (*p) {
        while (isSep(*p))
            ++p;
        const char *start = p;
        while (*p && !isSep(*p))
            ++p;
        if (p > start)
            out.emplace_back(start, p);
    }
    return out;
}

/* Drops "." and cancels "x/.." pairs, never touching the first segment. */
void normalise(Segments &segs)
{
    Segments kept;
    for (const std::string &s : segs)
        if (s != ".")
            kept.push_back(s);
    segs.swap(kept);
    for (bool removed = true; removed;) {
        removed = false;
        for (size_t i = 1; i + 1 < segs.size(); ++i) {
            if (segs[i] != ".." && segs[i + 1] == "..") {
                auto at = segs.begin() + static_cast<long>(i);
                segs.erase(at, at + 2);
                removed = true;
                break;
            }
        }
    }
}

std::string join(const Segments &segs, size_t from, const char *sep)
{
    std::string out;
    for (size_t i = from; i < segs.size(); ++i) {
        if (i > from)
            out += sep;
        out += segs[i];
    }
    return out;
}

/* '/' for a path that starts with '/', else '\' (drive or backslash). */
void useNativeSlashes(std::string &s, const char *absolute)
{
    if (absolute[0] == '/')
        return;
    for (char &c : s)
        if (isSep(c))
            c = '\\';
}

char *tracked(const std::string &s, const char *tag)
{
    auto *out = static_cast<char *>(ZU_allocMemNoZero(s.size() + 1, tag));
    if (out)
        memcpy(out, s.c_str(), s.size() + 1);
    return out;
}

const char *effectiveReference(const char *reference)
{
    return reference && *reference ? reference : g_reference;
}

bool sameText(const std::string &a, const std::string &b)
{
    return ZU_strCaseCmp(a.c_str(), b.c_str()) == 0;
}

/* A path reduced for comparison: segments, and the longest run of ".."
 * that had nothing left to cancel. */
struct Reduced {
    Segments segs;
    int up = 0;
};

Reduced reduceForRelative(const char *p)
{
    Reduced r;
    Segments all = split(p);
    int run = 0;
    for (size_t i = 0; i < all.size(); ++i) {
        const std::string &s = all[i];
        if (s == "." && i > 0)
            continue;
        if (s == ".." && i > 0) {
            if (!r.segs.empty()) {
                r.segs.pop_back();
            } else if (++run > r.up) {
                r.up = run;
            }
            continue;
        }
        r.segs.push_back(s);
        run = 0;
    }
    return r;
}

std::string relative(const char *ref, const char *path)
{
    Segments refSegs = split(ref), pathSegs = split(path);
    if (leadingSeparators(ref) != leadingSeparators(path) || refSegs.empty() || pathSegs.empty() ||
        !sameText(refSegs[0], pathSegs[0]))
        return path;
    Reduced r = reduceForRelative(ref), f = reduceForRelative(path);
    if (ZU_isAbsolute(path) && (r.up > 0 || f.up > 0))
        return path;
    if (r.up > f.up)
        return path;
    size_t common = 0;
    while (common < r.segs.size() && common < f.segs.size() && sameText(r.segs[common], f.segs[common]))
        ++common;
    if (r.segs.size() == f.segs.size() && common == r.segs.size())
        return "";
    std::string out;
    for (size_t i = common; i < r.segs.size(); ++i)
        out += "../";
    for (int i = 0; i < f.up - r.up; ++i)
        out += "../";
    out += join(f.segs, common, "/");
    while (!out.empty() && out.back() == '/')
        out.pop_back();
    return out;
}

/* The fallback of the reduced form: the last segment alone, cut to fit. */
std::string lastSegmentFitted(const Segments &segs, const char *path, size_t max)
{
    if (segs.empty())
        return std::string(path).substr(0, max);
    const std::string &last = segs.back();
    if (last.size() <= max)
        return last;
    return last.substr(0, max - 3) + "...";
}

std::string reduce(const char *path, size_t max)
{
    int leads = leadingSeparators(path);
    Segments segs = split(path);
    normalise(segs);
    std::vector<bool> present(segs.size(), true);
    size_t left = segs.size(), sum = 0;
    for (const std::string &s : segs)
        sum += s.size();
    while (left + 3 + sum + static_cast<size_t>(leads) > max) {
        if (left == 0)
            return lastSegmentFitted(segs, path, max);
        size_t n = --left;
        size_t place = n / 2 + 1; /* 1-based among those still present */
        for (size_t i = 0, seen = 0; i < segs.size(); ++i) {
            if (present[i] && ++seen == place) {
                present[i] = false;
                sum -= segs[i].size();
                break;
            }
        }
        if (n < 2)
            leads = 0;
        if (left == 0)
            return lastSegmentFitted(segs, path, max);
    }
    std::string out(static_cast<size_t>(leads), '/');
    bool marked = false;
    for (size_t i = 0; i < segs.size(); ++i) {
        if (present[i]) {
            out += segs[i] + "/";
        } else if (!marked) {
            out += ".../";
            marked = true;
        }
    }
    if (!out.empty() && out.back() == '/' && out.size() > static_cast<size_t>(leads))
        out.pop_back();
    return out;
}

} // namespace

extern "C" {

int ZU_isAbsolute(const char *path)
{
    return path && (isSep(path[0]) || hasDrive(path)) ? 1 : 0;
}

void ZU_setReferencePath(const char *path)
{
    strncpy(g_reference, path ? path : "", sizeof g_reference - 1);
    g_reference[sizeof g_reference - 1] = '\0';
}

const char *ZU_getReferencePath(void)
{
    memcpy(g_referenceCopy, g_reference, sizeof g_reference);
    return g_referenceCopy;
}

char *ZU_getReferencePathTS(char *buffer, int size)
{
    if (size < 1)
        size = 1024;
    if (!buffer)
        buffer = static_cast<char *>(ZU_allocMem(static_cast<size_t>(size), "ZU_getReferencePathTS:buf"));
    if (buffer) {
        strncpy(buffer, g_reference, static_cast<size_t>(size));
        buffer[size - 1] = '\0';
    }
    return buffer;
}

char *ZU_absolutePath(const char *reference, const char *path)
{
    if (!path)
        return nullptr;
    if (ZU_isAbsolute(path))
        return tracked(path, "ZU_absolutePath:abspath");
    const char *ref = effectiveReference(reference);
    if (!*ref)
        return tracked(path, "ZU_absolutePath:abspath");
    std::string joined = std::string(ref) + "/" + path;
    int leads = leadingSeparators(joined.c_str());
    Segments segs = split(joined.c_str());
    normalise(segs);
    std::string out = std::string(static_cast<size_t>(leads), '/') + join(segs, 0, "/");
    if (ZU_isAbsolute(ref))
        useNativeSlashes(out, ref);
    return tracked(out, "ZU_absolutePath:abspath");
}

char *ZU_relativePath(const char *reference, const char *path)
{
    if (!path)
        return nullptr;
    const char *ref = effectiveReference(reference);
    if (!*ref)
        return tracked(path, "ZU_relativePath:relpath");
    return tracked(relative(ref, path), "ZU_relativePath:relpath");
}

char *ZU_reducePath(const char *path, int maxLength)
{
    if (!path)
        return nullptr;
    size_t max = maxLength < 4 ? 4 : static_cast<size_t>(maxLength);
    if (strlen(path) <= max)
        return tracked(path, "ZU_reducePath:rpath");
    std::string out = reduce(path, max);
    if (ZU_isAbsolute(path))
        useNativeSlashes(out, path);
    return tracked(out, "ZU_reducePath:rpath");
}

char *ZU_baseName(char *path)
{
    if (!path || !*path)
        return path ? path : g_emptyText;
    size_t n = strlen(path);
    while (n > 1 && isSep(path[n - 1]))
        path[--n] = '\0';
    if (n == 1 && isSep(path[0]))
        return path;
    char *base = path;
    for (char *p = path; *p; ++p)
        if (isSep(*p))
            base = p + 1;
    return base;
}

char *ZU_dirName(char *path)
{
    if (!path || !*path)
        return path ? path : g_emptyText;
    char drive[4] = "";
    if (hasDrive(path)) {
        size_t len = isSep(path[2]) ? 3 : 2;
        memcpy(drive, path, len);
        drive[len] = '\0';
    }
    size_t n = strlen(path);
    while (n > 1 && isSep(path[n - 1]))
        path[--n] = '\0';
    if (n == 1 && isSep(path[0]))
        return path;
    char *last = nullptr;
    for (char *p = path; *p; ++p)
        if (isSep(*p))
            last = p;
    if (!last) {
        strcpy(path, drive[0] ? drive : ".");
    } else if (last == path) {
        path[1] = '\0';
    } else {
        while (last > path + 1 && isSep(last[-1]))
            --last;
        *last = '\0';
        if (strlen(path) < strlen(drive))
            strcpy(path, drive);
    }
    return path;
}

char *ZU_baseNameDup(const char *path)
{
    std::string copy = path ? path : "";
    return tracked(ZU_baseName(copy.data()), "ZU_baseNameDup:base");
}

char *ZU_dirNameDup(const char *path)
{
    std::string copy = path ? path : "";
    return tracked(ZU_dirName(copy.data()), "ZU_dirNameDup:dir");
}

void ZU_setSlashes(char *path, int mode)
{
    for (char *p = path; p && *p; ++p)
        if (isSep(*p))
            *p = mode > 0 ? '/' : '\\';
}

} // extern "C"
