// The shape every public array and slice form shares, written once: look up
// the channel and take the file's lock, find the array, widen the caller's
// index arrays to i64, call one core routine, narrow what comes back, and
// pass a failure up naming the form. The 32-bit and 64-bit forms are the
// same templates over the caller's integer type; a 32-bit form refuses a
// count (2030) or an extent (3024) that it can't hand back, before any data
// move.
#pragma once

#include <stdint.h>
#include <string.h>

#include <type_traits>

#include "sdf_inner.h"

namespace sdfforms {

// The caller's array (rank in element 0) as i64[8]; null is rank 0. At most
// seven elements after the rank are read.
template <class I>
void widen(const I* in, int64_t out[8]) {
    memset(out, 0, 8 * sizeof(int64_t));
    if (!in) return;
    out[0] = in[0];
    const int64_t n = in[0] < 0 ? 0 : in[0] > I(SDF_MAX_RANK) ? int64_t(SDF_MAX_RANK) : int64_t(in[0]);
    for (int64_t i = 1; i <= n; i++) out[i] = in[i];
}

template <class I>
bool fits(int64_t v) {
    return std::is_same<I, int64_t>::value || (v >= INT32_MIN && v <= INT32_MAX);
}

// Copies a dimension array back; false when an extent doesn't fit I.
template <class I>
bool narrow(const int64_t in[8], I* out) {
    for (int i = 0; i <= in[0] && i < 8; i++)
        if (!fits<I>(in[i])) return false;
    for (int i = 0; i <= in[0] && i < 8; i++) out[i] = static_cast<I>(in[i]);
    return true;
}

// The channel with the file's lock for one operation.
class Call {
public:
    Call(int channel, const char* routine, bool writing) : writing_(writing) {
        rc = writing ? sdf_chan_write_begin(channel, routine, &f, &taken_)
                     : sdf_chan_read_begin(channel, routine, &f, &taken_);
    }
    ~Call() {  // the ends do nothing when nothing was taken
        if (writing_)
            sdf_chan_write_end(f, taken_);
        else
            sdf_chan_read_end(f, taken_);
    }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    fcb* f = nullptr;
    int rc = 0;

private:
    bool writing_;
    int taken_ = 0;
};

// The array a form works on: 3005, 3010, 3012, and 3015 for a form of
// character arrays on another type, reported from core.
inline ventry* find_array(fcb* f, const char* core, const char* name, bool chars, int* rc) {
    ventry* row = sdf_lookup(f, core, name, SDF_WANT_ARRAY, rc);
    if (row && chars && SDF_BASE_TYPE(row->record->type) != SDF_CHAR_T) {
        *rc = sdf_error(core, 3015, row->name, f->number, f->file->name);
        return nullptr;
    }
    return row;
}

// The array, its extents and the caller's start widened to i64 and checked
// against them; 0, or the failure passed up naming the form.
template <class I>
int find_run(fcb* f, const char* R, const char* core, const char* name, bool chars, const I* start,
             int64_t st[8], int64_t dims[8], ventry** row) {
    int rc = 0;
    widen(start, st);
    *row = find_array(f, core, name, chars, &rc);
    if (*row && !(rc = sdf_array_dims(f, *row, dims)))
        rc = sdf_check_index_array(core, "start", (*row)->name, st, dims);
    return rc ? sdf_error_chain(R, rc, core) : 0;
}

// A run read: fn(f, row, start, count, &got) moves the data.
template <class I, class Fn>
int read_run(const char* R, const char* core, int channel, const char* name, bool chars, I* start, I count,
             I* nread, Fn fn) {
    if (nread) *nread = 0;
    Call c(channel, R, false);
    if (c.rc) return c.rc;
    int64_t st[8], dims[8];
    ventry* row = nullptr;
    int rc = find_run(c.f, R, core, name, chars, start, st, dims, &row);
    if (rc) return rc;
    const int64_t left = sdf_array_left(dims, st);
    if (!fits<I>(count <= 0 || count > left ? left : count)) return sdf_error(R, 2030, " ", row->name);
    int64_t got = 0;
    rc = fn(c.f, row, st, static_cast<int64_t>(count), &got);
    if (rc) return sdf_error_chain(R, rc, core);
    if (nread) *nread = static_cast<I>(got);
    bool moved = false;
    for (int i = 1; i <= st[0]; i++) moved = moved || st[i] != 0;
    if (start && start[0] > 0 && !narrow(st, start)) return sdf_error(R, 3024, " ", row->name);
    if (got == 0 && moved) return sdf_error(R, 3023, "start", row->name);
    if (count > 0 && got < count) return sdf_error(R, 2020, row->name);
    return 0;
}

// A run write: fn(f, row, start, count) moves the data.
template <class I, class Fn>
int write_run(const char* R, const char* core, int channel, const char* name, bool chars, I* start, I count, Fn fn) {
    Call c(channel, R, true);
    if (c.rc) return c.rc;
    int64_t st[8], dims[8];
    ventry* row = nullptr;
    int rc = find_run(c.f, R, core, name, chars, start, st, dims, &row);
    if (rc) return rc;
    if (count <= 0) return 0;
    rc = fn(c.f, row, st, static_cast<int64_t>(count));
    if (rc) return sdf_error_chain(R, rc, core);
    if (start && start[0] > 0 && !narrow(st, start)) return sdf_error(R, 3024, " ", row->name);
    return sdf_commit_if_always(c.f, R);
}

// The array and the slice of it that the caller's bounds select, with the
// bounds widened to i64; 0, or the failure passed up naming the form.
template <class I>
int find_slice(fcb* f, const char* R, const char* core, const char* name, bool chars, const I* begin,
               const I* end, const I* step, const int32_t* tr_vec, ventry** row, sdf_slice* sl) {
    int rc = 0;
    int64_t b[8], e[8], s[8];
    widen(begin, b);
    widen(end, e);
    widen(step, s);
    *row = find_array(f, core, name, chars, &rc);
    if (*row) rc = sdf_slice_args(f, *row, b, e, s, tr_vec, sl);
    return rc ? sdf_error_chain(R, rc, core) : 0;
}

// A slice read: fn(f, row, slice) moves the data.
template <class I, class Fn>
int read_slice(const char* R, const char* core, int channel, const char* name, bool chars, const I* begin,
               const I* end, const I* step, const int32_t* tr_vec, I* count, I* dims, Fn fn) {
    if (count) *count = 0;
    if (dims) dims[0] = 0;
    Call c(channel, R, false);
    if (c.rc) return c.rc;
    sdf_slice sl;
    ventry* row = nullptr;
    int rc = find_slice(c.f, R, core, name, chars, begin, end, step, tr_vec, &row, &sl);
    if (rc) return rc;
    if (!fits<I>(sl.count)) return sdf_error(R, 2030, " slice from ", row->name);
    I out[8];
    if (!narrow(sl.odims, out)) return sdf_error(R, 3024, " slice from ", row->name);
    rc = fn(c.f, row, &sl);
    if (rc) return sdf_error_chain(R, rc, core);
    if (count) *count = static_cast<I>(sl.count);
    if (dims) memcpy(dims, out, sizeof out);
    return 0;
}

// A slice write: fn(f, row, slice) moves the data.
template <class I, class Fn>
int write_slice(const char* R, const char* core, int channel, const char* name, bool chars, const I* begin,
                const I* end, const I* step, const int32_t* tr_vec, I* count, Fn fn) {
    if (count) *count = 0;
    Call c(channel, R, true);
    if (c.rc) return c.rc;
    sdf_slice sl;
    ventry* row = nullptr;
    int rc = find_slice(c.f, R, core, name, chars, begin, end, step, tr_vec, &row, &sl);
    if (rc) return rc;
    if (!fits<I>(sl.count)) return sdf_error(R, 2030, " slice written to ", row->name);
    rc = fn(c.f, row, &sl);
    if (rc) return sdf_error_chain(R, rc, core);
    if (count) *count = static_cast<I>(sl.count);
    return sdf_commit_if_always(c.f, R);
}

}  // namespace sdfforms
