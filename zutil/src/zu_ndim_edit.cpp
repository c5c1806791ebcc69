/*
 * zu_ndim_edit.cpp - changing a table: storing values, inserting grid lines,
 * and writing the table out as a SPARSE map file.
 *
 * Every change keeps the keys sorted and unique. A grid line is inserted by
 * unpacking each key with the old sizes and packing it with the new ones,
 * which moves the stored points with their coordinates and keeps the order.
 * The writer formats numbers in the C locale whatever the process locale
 * is, so what it writes reads back.
 */
#include "zu_ndim.h"

#include <algorithm>
#include <clocale>
#include <cstdarg>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <locale.h>
#include <memory>
#include <new>
#include <string>

namespace {

/* Flat key of grid indices; -1 when an index is outside its axis. */
int64_t keyOf(const ZU_NdimTable *t, const int *indices)
{
    int64_t key = 0;
    for (int d = 0; d < t->dimensions; ++d) {
        if (indices[d] < 0 || indices[d] >= t->sizes[d])
            return -1;
        key = key * t->sizes[d] + indices[d];
    }
    return key;
}

bool insertAxisValue(ZU_NdimTable *t, int d, float value)
{
    int n = t->sizes[d];
    int at = 0;
    while (at < n && !(t->grid[d][at] > value))
        ++at;
    auto *axis = static_cast<float *>(ZU_reallocMem(t->grid[d], sizeof(float) * (static_cast<size_t>(n) + 1)));
    int32_t *idx = static_cast<int32_t *>(
        ZU_allocMem(sizeof(int32_t) * t->dimensions, "ZU_ndimAddGridPoint::idx"));
    int32_t *newsizes = static_cast<int32_t *>(
        ZU_allocMem(sizeof(int32_t) * t->dimensions, "ZU_ndimAddGridPoint::newsizes"));
    if (axis)
        t->grid[d] = axis;
    if (!axis || !idx || !newsizes) {
        ZU_freeMem(idx);
        ZU_freeMem(newsizes);
        zu_ndimRaise("ZU_ndimAddGridPoint", ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::NoRoom, t->file);
        return false;
    }
    memmove(axis + at + 1, axis + at, sizeof(float) * (n - at));
    axis[at] = value;
    memcpy(newsizes, t->sizes, sizeof(int32_t) * t->dimensions);
    ++newsizes[d];
    for (int32_t i = 0; i < t->count; ++i) {
        int64_t key = t->keys[i];
        for (int k = t->dimensions - 1; k >= 0; --k) {
            idx[k] = static_cast<int32_t>(key % t->sizes[k]);
            key /= t->sizes[k];
        }
        if (idx[d] >= at)
            ++idx[d];
        for (int k = 0; k < t->dimensions; ++k)
            key = key * newsizes[k] + idx[k];
        t->keys[i] = static_cast<int32_t>(key);
    }
    memcpy(t->sizes, newsizes, sizeof(int32_t) * t->dimensions);
    t->points = t->points / n * (n + 1);
    ZU_freeMem(idx);
    ZU_freeMem(newsizes);
    return true;
}

/* Writes all of `text`; false on a failing or stalled write. */
bool writeAll(int fd, const std::string &text)
{
    size_t done = 0;
    while (done < text.size()) {
        ssize_t n = zu_ndimIo.write(fd, text.data() + done, text.size() - done);
        if (n <= 0)
            return false;
        done += static_cast<size_t>(n);
    }
    return true;
}

void append(std::string &out, const char *format, ...) __attribute__((format(printf, 2, 3)));
void append(std::string &out, const char *format, ...)
{
    char buf[64];
    va_list ap;
    va_start(ap, format);
    int n = vsnprintf(buf, sizeof buf, format, ap);
    va_end(ap);
    if (n > 0)
        out.append(buf, static_cast<size_t>(n) < sizeof buf ? static_cast<size_t>(n) : sizeof buf - 1);
}

/* Numbers formatted in the C locale by this thread while it lives. */
class CNumbers {
public:
    CNumbers() : c_(newlocale(LC_NUMERIC_MASK, "C", static_cast<locale_t>(0)))
    {
        if (c_)
            previous_ = uselocale(c_);
    }
    ~CNumbers()
    {
        if (c_) {
            uselocale(previous_);
            freelocale(c_);
        }
    }
    CNumbers(const CNumbers &) = delete;
    CNumbers &operator=(const CNumbers &) = delete;

private:
    locale_t c_;
    locale_t previous_ = static_cast<locale_t>(0);
};

struct TrackedFree {
    void operator()(void *p) const { ZU_freeMem(p); }
};

/* The SPARSE text of a table; false (or std::bad_alloc) when out of memory. */
bool sparseText(const ZU_NdimTable *t, std::string &out)
{
    std::unique_ptr<int32_t, TrackedFree> held(
        static_cast<int32_t *>(ZU_allocMem(sizeof(int32_t) * t->dimensions, "ZU_ndimWrite:idx")));
    int32_t *idx = held.get();
    if (!idx)
        return false;
    CNumbers numbers;
    out = "SPARSE\n";
    append(out, "%d #\n", t->dimensions);
    out += "\n";
    for (int d = 0; d < t->dimensions; ++d) {
        for (int i = 0; i < t->sizes[d]; ++i)
            append(out, "%12.8e ", static_cast<double>(t->grid[d][i]));
        out += "#\n";
    }
    out += "\n";
    for (int32_t i = 0; i < t->count; ++i) {
        int64_t key = t->keys[i];
        for (int k = t->dimensions - 1; k >= 0; --k) {
            idx[k] = static_cast<int32_t>(key % t->sizes[k]);
            key /= t->sizes[k];
        }
        for (int k = 0; k < t->dimensions; ++k)
            append(out, "%d ", idx[k]);
        append(out, "%12.8e #\n", static_cast<double>(t->values[i]));
    }
    return true;
}

} // namespace

int zu_ndimStore(const char *routine, ZU_NdimTable *t, int64_t key, float value)
{
    int32_t *end = t->keys + t->count;
    int32_t *at = t->keys ? std::lower_bound(t->keys, end, static_cast<int32_t>(key)) : end;
    size_t pos = static_cast<size_t>(at - t->keys);
    if (at != end && *at == key) {
        t->values[pos] = value;
        return 0;
    }
    if (t->count == t->capacity) {
        int64_t room = static_cast<int64_t>(t->capacity) + kNdimGrowth;
        if (room > INT32_MAX)
            room = INT32_MAX;
        auto *values = room > t->capacity
                           ? static_cast<float *>(ZU_reallocMem(t->values, sizeof(float) * room))
                           : nullptr;
        if (values)
            t->values = values;
        auto *keys = values ? static_cast<int32_t *>(ZU_reallocMem(t->keys, sizeof(int32_t) * room)) : nullptr;
        if (!keys) {
            zu_ndimRaise(routine, ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::NoRoom, t->file);
            return ZU_NDIM_FAILED;
        }
        t->keys = keys;
        t->capacity = static_cast<int32_t>(room);
    }
    memmove(t->keys + pos + 1, t->keys + pos, sizeof(int32_t) * (t->count - pos));
    memmove(t->values + pos + 1, t->values + pos, sizeof(float) * (t->count - pos));
    t->keys[pos] = static_cast<int32_t>(key);
    t->values[pos] = value;
    ++t->count;
    return 0;
}

extern "C" {

int ZU_ndimSetValue(int handle, const int *indices, float value)
{
    const char *routine = "ZU_ndimSetValue";
    ZU_NdimTable *t = zu_ndimLookup(routine, handle);
    if (!t)
        return ZU_NDIM_FAILED;
    if (!indices) {
        zu_ndimRaise(routine, ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::BadPointer);
        return ZU_NDIM_FAILED;
    }
    int64_t key = keyOf(t, indices);
    if (key < 0) {
        zu_ndimRaise(routine, ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::IndexBounds);
        return ZU_NDIM_FAILED;
    }
    return zu_ndimStore(routine, t, key, value);
}

int ZU_ndimAddGridPoint(int handle, int dimension, float value, float tolerance, int *added)
{
    const char *routine = "ZU_ndimAddGridPoint";
    ZU_NdimTable *t = zu_ndimLookup(routine, handle);
    if (!t)
        return ZU_NDIM_FAILED;
    if (!added) {
        zu_ndimRaise(routine, ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::BadPointer);
        return ZU_NDIM_FAILED;
    }
    *added = 0;
    if (dimension < 1 || dimension > t->dimensions || std::isnan(value))
        return 0;
    const int d = dimension - 1;
    const int n = t->sizes[d];
    for (int i = 0; i < n; ++i) {
        /* An equal value would break the strictly increasing axis, so it is
         * refused even on an axis of one value. */
        if (value == t->grid[d][i] || (n > 1 && std::fabs(value - t->grid[d][i]) < tolerance))
            return 0;
    }
    double grown = static_cast<double>(t->points) / n * (n + 1);
    if (grown > kNdimMaxPoints) {
        zu_ndimRaise(routine, ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::TooManyPoints, grown, kNdimMaxPoints);
        return ZU_NDIM_FAILED;
    }
    if (!insertAxisValue(t, d, value))
        return ZU_NDIM_FAILED;
    *added = 1;
    return 0;
}

int ZU_ndimWrite(int handle, const char *path)
{
    const char *routine = "ZU_ndimWrite";
    ZU_NdimTable *t = zu_ndimLookup(routine, handle);
    if (!t)
        return ZU_NDIM_FAILED;
    if (!path) {
        zu_ndimRaise(routine, ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::BadPointer);
        return ZU_NDIM_FAILED;
    }
    std::string text;
    bool built;
    try {
        built = sparseText(t, text);
    } catch (const std::bad_alloc &) {
        built = false;
    }
    if (!built) {
        zu_ndimRaise(routine, ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::NoRoom, t->file);
        return ZU_NDIM_NOT_WRITTEN;
    }
    int fd = zu_ndimIo.open(path, O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (fd < 0) {
        zu_ndimRaise(routine, ZU_NDIM_FAILED, ZU_SEV_MESSAGE, NdimMsg::CantWrite, path);
        return ZU_NDIM_NOT_WRITTEN;
    }
    bool written = writeAll(fd, text);
    if (zu_ndimIo.close(fd) != 0)
        written = false;
    if (!written) {
        zu_ndimRaise(routine, ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::WriteFailed, path);
        return ZU_NDIM_NOT_WRITTEN;
    }
    return 0;
}

} // extern "C"
