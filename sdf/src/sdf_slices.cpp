// Slices: a box of indices with steps in each dimension and an optional
// transposition, read and written as runs along the first dimension.
//
// sdf_slice_args puts the caller's begin/end/step/tr_vec into a normal form
// that the two transfer routines trust: every index lies inside the array,
// steps carry the direction and are never 0, ends lie on the step's grid,
// and the transposition is a true permutation of the slice's dimensions
// with more than one element. A run goes straight between the caller and
// the file when the first step is 1 and there is no transposition; other
// cases pass through one temporary buffer each, freed on every path.
#include <stdlib.h>
#include <string.h>

#include "sdf_inner.h"

namespace {

int64_t extent(const sdf_slice* sl, int i) { return llabs(sl->end[i] - sl->begin[i]) / llabs(sl->step[i]) + 1; }

// Copies a box from src to dst in dst's element order: dimension k of dst
// (extent D[k]) is dimension tr[k] of src.
void permute(const unsigned char* src, unsigned char* dst, const int64_t* D, const int32_t* tr, int n,
             size_t elen) {
    int64_t E[8] = {0}, S[8] = {0}, idx[8] = {0};
    for (int k = 1; k <= n; k++) E[tr[k]] = D[k];
    S[1] = 1;
    for (int j = 1; j < n; j++) S[j + 1] = S[j] * E[j];
    int64_t total = 1;
    for (int k = 1; k <= n; k++) total *= D[k];
    for (int64_t o = 0; o < total; o++) {
        int64_t off = 0;
        for (int k = 1; k <= n; k++) off += idx[k] * S[tr[k]];
        memcpy(dst + o * elen, src + off * elen, elen);
        for (int k = 1; k <= n && ++idx[k] == D[k]; k++) idx[k] = 0;
    }
}

// Tests a begin or end array against the extents.
int check_bounds(const char* what, const char* name, const int64_t* a, const int64_t dims[8]) {
    static const char* R = "sdf_slice_args";
    int rc = sdf_check_index_array(R, what, name, a, dims);
    if (rc || !a || a[0] <= 0) return rc;
    for (int i = 1; i <= dims[0]; i++)
        if (a[i] >= dims[i]) return sdf_error(R, 3023, what, name);
    return 0;
}

int check_tr(const char* name, const int32_t* tr, int n, sdf_slice* sl) {
    static const char* R = "sdf_slice_args";
    sl->tr[0] = 0;
    if (!tr || tr[0] == 0) return 0;
    if (tr[0] != n) return sdf_error(R, 3022, "tr_vec", name);
    bool seen[8] = {false}, ascending = true;
    for (int k = 1; k <= n; k++) {
        if (tr[k] < 1 || tr[k] > n || seen[tr[k]]) return sdf_error(R, 3023, "tr_vec", name);
        seen[tr[k]] = true;
        ascending = ascending && tr[k] == k;
        sl->tr[k] = tr[k];
    }
    sl->tr[0] = ascending ? 0 : n;
    return 0;
}

// Walks the runs of a slice: fn(start array of the run, elements before it
// in slice order) for each combination of the indices above the first.
template <class Fn>
int each_run(const sdf_slice* sl, Fn fn) {
    const int rank = static_cast<int>(sl->dims[0]);
    int64_t st[8] = {rank, 0, 0, 0, 0, 0, 0, 0}, cnt[8] = {0};
    st[1] = sl->begin[1] < sl->end[1] ? sl->begin[1] : sl->end[1];
    for (int k = 2; k <= rank; k++) st[k] = sl->begin[k];
    const int64_t m1 = extent(sl, 1);
    for (int64_t done = 0;; done += m1) {
        int64_t start[8];
        memcpy(start, st, sizeof start);
        int rc = fn(start, done);
        if (rc) return rc;
        int k = 2;
        for (; k <= rank; k++) {
            if (++cnt[k] < extent(sl, k)) {
                st[k] += sl->step[k];
                break;
            }
            cnt[k] = 0;
            st[k] = sl->begin[k];
        }
        if (k > rank) return 0;
    }
}

// Index in a run of len elements of the k-th element the step reaches.
int64_t picked(int64_t k, int64_t step, int64_t len) { return step > 0 ? k * step : len - 1 + k * step; }

}  // namespace

extern "C" {

int sdf_slice_args(fcb* f, ventry* row, const int64_t* begin, const int64_t* end, const int64_t* step,
                   const int32_t* tr_vec, sdf_slice* sl) {
    static const char* R = "sdf_slice_args";
    memset(sl, 0, sizeof *sl);
    int rc = sdf_array_dims(f, row, sl->dims);
    if (rc) return sdf_error_chain(R, rc, "sdf_array_dims");
    const int64_t* d = sl->dims;
    const int rank = static_cast<int>(d[0]);
    if (d[rank] == 0) return sdf_error(R, 2020, row->name);
    if ((rc = check_bounds("begin", row->name, begin, d)) || (rc = check_bounds("end", row->name, end, d)))
        return rc;
    if (step && step[0] > 0) {
        if (step[0] > SDF_MAX_RANK) return sdf_error(R, 3023, "step", row->name);
        if (step[0] != rank) return sdf_error(R, 3022, "step", row->name);
        for (int i = 1; i <= rank; i++)
            if (step[i] == 0) return sdf_error(R, 3023, "step", row->name);
    }
    sl->begin[0] = sl->end[0] = sl->step[0] = rank;
    sl->shape[0] = 0;
    sl->count = 1;
    for (int i = 1; i <= rank; i++) {
        // Other extents may be 0 too, which leaves no element to take.
        if (d[i] == 0) return sdf_error(R, 2020, row->name);
        sl->begin[i] = begin && begin[0] > 0 ? begin[i] : 0;
        sl->end[i] = end && end[0] > 0 ? end[i] : d[i] - 1;
        const int64_t given = step && step[0] > 0 ? step[i] : 1;
        const int64_t s = given < -INT64_MAX ? INT64_MAX : llabs(given);
        sl->step[i] = sl->begin[i] > sl->end[i] ? -s : s;
        sl->end[i] -= (sl->end[i] - sl->begin[i]) % sl->step[i];
        const int64_t m = extent(sl, i);
        sl->count *= m;
        if (m > 1) sl->shape[++sl->shape[0]] = m;
    }
    sl->nout = static_cast<int32_t>(sl->shape[0]);
    if ((rc = check_tr(row->name, tr_vec, sl->nout, sl))) return rc;
    if (sl->nout == 0) {
        sl->odims[0] = sl->odims[1] = 1;
    } else {
        sl->odims[0] = sl->nout;
        for (int k = 1; k <= sl->nout; k++) sl->odims[k] = sl->shape[sl->tr[0] ? sl->tr[k] : k];
    }
    return 0;
}

int sdf_slice_read(fcb* f, ventry* row, const sdf_slice* sl, void** data, int64_t dims[8]) {
    static const char* R = "sdf_slice_read";
    const size_t elen = static_cast<size_t>(row->record->elen);
    if (dims) memcpy(dims, sl->odims, 8 * sizeof(int64_t));
    if (sl->count <= 0) return 0;
    void* mine = *data ? nullptr : ZU_allocMemNoZero(sl->count * elen, "sdf_slice_read:data");
    if (!*data && !mine) return sdf_error(R, 3025, "sdf_slice_read:data");
    auto* out = static_cast<unsigned char*>(mine ? mine : *data);
    sdf_temp slicebuf, buffer;
    unsigned char* target = out;
    const int64_t step = sl->step[1], m1 = extent(sl, 1), len = llabs(sl->end[1] - sl->begin[1]) + 1;
    if ((sl->tr[0] && !(target = slicebuf.take(sl->count * elen, "sdf_slice_read:slicebuf"))) ||
        (step != 1 && !buffer.take(len * elen, "sdf_slice_read:buffer"))) {
        ZU_freeMem(mine);
        return sdf_error(R, 3025, sl->tr[0] && !target ? "sdf_slice_read:slicebuf" : "sdf_slice_read:buffer");
    }
    int rc = each_run(sl, [&](int64_t* start, int64_t done) {
        void* p = step == 1 ? target + done * elen : buffer.data();
        int64_t got = 0;
        int e = sdf_array_read(f, row, start, len, &p, &got);
        if (e) return sdf_error_chain(R, e, "sdf_array_read");
        if (got != len) return sdf_error(R, 4001, "A slice run lies outside its array.");
        if (step != 1)
            for (int64_t k = 0; k < m1; k++)
                memcpy(target + (done + k) * elen, buffer.data() + picked(k, step, len) * elen, elen);
        return 0;
    });
    if (rc) {
        ZU_freeMem(mine);
        return rc;
    }
    if (sl->tr[0]) permute(target, out, sl->odims, sl->tr, sl->nout, elen);
    if (mine) {
        if (!sdf_register(mine)) return sdf_error(R, 3025, "sdf_slice_read:data");
        *data = mine;
    }
    return 0;
}

int sdf_slice_write(fcb* f, ventry* row, const sdf_slice* sl, const void* data) {
    static const char* R = "sdf_slice_write";
    const size_t elen = static_cast<size_t>(row->record->elen);
    if (sl->count <= 0) return 0;
    auto* src = static_cast<const unsigned char*>(data);
    sdf_temp slicebuf, buffer;
    if (sl->tr[0]) {
        if (!slicebuf.take(sl->count * elen, "sdf_slice_write:slicebuf"))
            return sdf_error(R, 3025, "sdf_slice_write:slicebuf");
        permute(src, slicebuf.data(), sl->shape, sl->tr, sl->nout, elen);
        src = slicebuf.data();
    }
    const int64_t step = sl->step[1], m1 = extent(sl, 1), len = llabs(sl->end[1] - sl->begin[1]) + 1;
    if (step != 1 && !buffer.take(len * elen, "sdf_slice_write:buffer"))
        return sdf_error(R, 3025, "sdf_slice_write:buffer");
    return each_run(sl, [&](int64_t* start, int64_t done) {
        const unsigned char* run = src + done * elen;
        if (step == -1) {
            for (int64_t k = 0; k < m1; k++) memcpy(buffer.data() + (len - 1 - k) * elen, run + k * elen, elen);
            run = buffer.data();
        } else if (step != 1) {
            int64_t pos[8], got = 0;
            memcpy(pos, start, sizeof pos);
            void* p = buffer.data();
            int e = sdf_array_read(f, row, pos, len, &p, &got);
            if (e) return sdf_error_chain(R, e, "sdf_array_read");
            if (got != len) return sdf_error(R, 4001, "A slice run lies outside its array.");
            for (int64_t k = 0; k < m1; k++)
                memcpy(buffer.data() + picked(k, step, len) * elen, run + k * elen, elen);
            run = buffer.data();
        }
        int e = sdf_array_write(f, row, start, len, run);
        return e ? sdf_error_chain(R, e, "sdf_array_write") : 0;
    });
}

}  // extern "C"
