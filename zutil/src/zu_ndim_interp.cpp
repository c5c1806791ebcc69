/*
 * zu_ndim_interp.cpp - reading a table: its shape, and the multi-linear
 * value at a coordinate with the out-of-range rules.
 *
 * Interpolation first places the coordinate in each axis (lower index and
 * fraction, kept in the table as the "current grid point"), warning when a
 * coordinate lies outside its axis, and then combines the 2^n corners of the
 * cell from the last dimension down to the first, in single precision. A
 * table that holds every point reads a corner by its key directly; others
 * search the sorted keys. A coordinate that is NaN yields NaN.
 */
#include "zu_ndim.h"

#include <algorithm>

namespace {

const char *const kInterp = "ZU_ndimInterp";

/* The six lines of one warning, then the closing line after the fifth. */
void warn(ZU_NdimTable *t, NdimMsg first, int dim, float given, float used)
{
    if (t->warnings >= 5)
        return;
    const float *a = t->grid[dim];
    zu_ndimRaise(kInterp, ZU_NDIM_OUT_OF_RANGE, ZU_SEV_WARNING, first);
    zu_ndimRaise(kInterp, ZU_NDIM_OUT_OF_RANGE, ZU_SEV_WARNING, NdimMsg::RangeFile, t->file);
    zu_ndimRaise(kInterp, ZU_NDIM_OUT_OF_RANGE, ZU_SEV_WARNING, NdimMsg::RangeDim, dim + 1);
    zu_ndimRaise(kInterp, ZU_NDIM_OUT_OF_RANGE, ZU_SEV_WARNING, NdimMsg::RangeSpan,
                 static_cast<double>(a[0]), static_cast<double>(a[t->sizes[dim] - 1]));
    zu_ndimRaise(kInterp, ZU_NDIM_OUT_OF_RANGE, ZU_SEV_WARNING, NdimMsg::RangeGiven, static_cast<double>(given));
    zu_ndimRaise(kInterp, ZU_NDIM_OUT_OF_RANGE, ZU_SEV_WARNING, NdimMsg::RangeUsed, static_cast<double>(used));
    if (++t->warnings == 5)
        zu_ndimRaise(kInterp, ZU_NDIM_OUT_OF_RANGE, ZU_SEV_WARNING, NdimMsg::NoMoreWarnings);
}

/* Places v in axis d; true when this call warned. */
bool place(ZU_NdimTable *t, int d, float v)
{
    const float *a = t->grid[d];
    const int n = t->sizes[d];
    int before = t->warnings;
    float fraction = 0;
    int lo = 0;
    if (n == 1) {
        if (v != a[0])
            warn(t, NdimMsg::OutOfRange, d, v, a[0]);
    } else {
        int hi = n - 1;
        while (hi - lo > 1) {
            int mid = (lo + hi) / 2;
            if (v >= a[mid])
                lo = mid;
            else
                hi = mid;
        }
        if (lo == hi) {
            warn(t, NdimMsg::Corrupted, d, v, a[lo]);
        } else {
            fraction = (v - a[lo]) / (a[hi] - a[lo]);
            if (fraction < 0) {
                warn(t, NdimMsg::OutOfRange, d, v, a[lo]);
                fraction = 0;
            } else if (fraction > 1) {
                warn(t, NdimMsg::OutOfRange, d, v, a[hi]);
                fraction = 1;
            }
        }
    }
    t->idx[d] = lo;
    t->x[d] = fraction;
    return t->warnings != before;
}

/* The value of the point with flat key `key`; false when it is missing. */
bool pointValue(const ZU_NdimTable *t, int64_t key, float *out)
{
    if (t->count == t->points) {
        *out = t->values[key];
        return true;
    }
    const int32_t *end = t->keys + t->count;
    const int32_t *at = std::lower_bound(static_cast<const int32_t *>(t->keys), end, static_cast<int32_t>(key));
    if (at != end && *at == key) {
        *out = t->values[at - t->keys];
        return true;
    }
    if (!t->hasDefault)
        return false;
    *out = t->defaultValue;
    return true;
}

/* The dimensions with more than one axis value, last first, with their key
 * steps. A dimension of one value always sits at index 0 and adds nothing
 * to a key or a value, so only these dimensions branch; a grid of at most
 * 2^31 points has at most 31 of them. */
struct Cell {
    int count = 0;
    int dim[32];
    int64_t stride[32];
};

void spanning(const ZU_NdimTable *t, Cell *cell)
{
    int64_t stride = 1;
    for (int d = t->dimensions - 1; d >= 0; --d) {
        if (t->sizes[d] > 1) {
            cell->dim[cell->count] = d;
            cell->stride[cell->count++] = stride;
        }
        stride *= t->sizes[d];
    }
}

/* The value over the branching dimensions from `level` down to the first,
 * with `base` the key part of those above. */
bool combine(const ZU_NdimTable *t, const Cell &cell, int level, int64_t base, float *out)
{
    const int d = cell.dim[level];
    const int64_t stride = cell.stride[level];
    const int64_t at = base + t->idx[d] * stride;
    float w0, w1;
    if (level == cell.count - 1) {
        if (!pointValue(t, at, &w0) || !pointValue(t, at + stride, &w1))
            return false;
    } else if (!combine(t, cell, level + 1, at, &w0) || !combine(t, cell, level + 1, at + stride, &w1)) {
        return false;
    }
    *out = (1 - t->x[d]) * w0 + t->x[d] * w1;
    return true;
}

float cellValue(const ZU_NdimTable *t, bool *found)
{
    Cell cell;
    spanning(t, &cell);
    float result = 0;
    *found = cell.count == 0 ? pointValue(t, 0, &result) : combine(t, cell, 0, 0, &result);
    return result;
}

/* Looks up the table of a handle and checks an out pointer. */
ZU_NdimTable *tableFor(const char *routine, int handle, const void *pointer)
{
    ZU_NdimTable *t = zu_ndimLookup(routine, handle);
    if (t && !pointer) {
        zu_ndimRaise(routine, ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::BadPointer);
        return nullptr;
    }
    return t;
}

int gridEnd(const char *routine, int handle, int dimension, float *value, bool last)
{
    ZU_NdimTable *t = tableFor(routine, handle, value);
    if (!t)
        return ZU_NDIM_FAILED;
    if (dimension < 1 || dimension > t->dimensions) {
        *value = 0.0f;
        return 0;
    }
    const int d = dimension - 1;
    *value = t->grid[d][last ? t->sizes[d] - 1 : 0];
    return 0;
}

} // namespace

extern "C" {

int ZU_ndimGetDimensions(int handle, int *count)
{
    ZU_NdimTable *t = tableFor("ZU_ndimGetDimensions", handle, count);
    if (!t)
        return ZU_NDIM_FAILED;
    *count = t->dimensions;
    return 0;
}

int ZU_ndimGetGridMin(int handle, int dimension, float *value)
{
    return gridEnd("ZU_ndimGetGridMin", handle, dimension, value, false);
}

int ZU_ndimGetGridMax(int handle, int dimension, float *value)
{
    return gridEnd("ZU_ndimGetGridMax", handle, dimension, value, true);
}

int ZU_ndimGetCurrentGridPoint(int handle, int *indices, float *axisValues)
{
    const char *routine = "ZU_ndimGetCurrentGridPoint";
    ZU_NdimTable *t = tableFor(routine, handle, indices);
    if (t && !axisValues) {
        zu_ndimRaise(routine, ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::BadPointer);
        t = nullptr;
    }
    if (!t)
        return ZU_NDIM_FAILED;
    for (int d = 0; d < t->dimensions; ++d) {
        indices[d] = t->idx[d];
        axisValues[d] = t->grid[d][t->idx[d]];
    }
    return 0;
}

int ZU_ndimInterp(int handle, const float *coords, float *value)
{
    ZU_NdimTable *t = tableFor(kInterp, handle, coords);
    if (t && !value) {
        zu_ndimRaise(kInterp, ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::BadPointer);
        t = nullptr;
    }
    if (!t)
        return ZU_NDIM_FAILED;
    bool warned = false;
    for (int d = 0; d < t->dimensions; ++d)
        warned |= place(t, d, coords[d]);
    bool found = false;
    float result = cellValue(t, &found);
    if (!found) {
        zu_ndimRaise(kInterp, ZU_NDIM_MISSING_POINT, ZU_SEV_WARNING, NdimMsg::Missing, t->file);
        return ZU_NDIM_MISSING_POINT;
    }
    *value = result;
    return warned ? ZU_NDIM_OUT_OF_RANGE : 0;
}

} // extern "C"
