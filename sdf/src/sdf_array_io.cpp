// Runs of array elements between the caller and the data chain: the two base
// routines every array and slice operation rests on.
//
// The elements of an array stand back to back through the blocks of its
// chain, taken in chain order as one byte stream. On a file nothing of that
// stream is held in memory: each run walks the chain's entries and moves
// block by block through sdf_read_block / sdf_write_block. On an internal
// file all data lie in the first block's buffer, sized to the chain's total,
// whatever the chain looks like.
//
// A write that passes the end grows the array along its last dimension and
// the chain by whole blocks (merging with the last block when the new one
// touches it); the tables are committed before any data land on a file, so
// the file never holds data in space its tables don't give to the array.
// Every walk is bounded by the number of block entries, so a damaged chain
// gives a code, never a loop or a transfer outside the chain.
#include <string.h>

#include <algorithm>

#include "sdf_inner.h"

namespace {

constexpr const char* kChainEnd = "Unexpected end to block chain. Possible file corruption or bug.";

sdf_blkent* ent(sdfile* s, int b) { return s->blks->rows[b].entry; }

// A block that may stand in a data chain.
bool data_block(const sdfile* s, int b) {
    return b > 0 && s->blks && b < s->blks->count && s->blks->rows[b].entry && s->blks->rows[b].entry->type < 0;
}

int first_block(const ventry* row) { return row->record->value.i[2]; }

int64_t product(const int64_t dims[8], int from, int to) {
    int64_t p = 1;
    for (int i = from; i <= to; i++) p *= dims[i];
    return p;
}

// Offset of the element a start array names, or -1 when it overflows.
int64_t offset_of(const int64_t dims[8], const int64_t* start) {
    if (!start || start[0] <= 0) return 0;
    const int rank = static_cast<int>(dims[0]);
    int64_t off = 0, stride = 1;
    for (int i = 1; i <= rank; i++) {
        int64_t term;
        if (__builtin_mul_overflow(start[i], stride, &term) || __builtin_add_overflow(off, term, &off)) return -1;
        if (i < rank && __builtin_mul_overflow(stride, dims[i], &stride)) return -1;
    }
    return off;
}

// Start array of the position `pos` elements into the array; the last index
// runs on behind its extent.
void set_start(int64_t* start, const int64_t dims[8], int64_t pos) {
    if (!start || start[0] <= 0) return;
    const int rank = static_cast<int>(dims[0]);
    for (int i = 1; i < rank; i++) {
        start[i] = dims[i] > 0 ? pos % dims[i] : 0;
        pos = dims[i] > 0 ? pos / dims[i] : 0;
    }
    start[rank] = pos;
}

// Moves `bytes` bytes at byte `pos` of the chain from `first` between buf
// and the file.
int transfer(fcb* f, int first, int64_t pos, int64_t bytes, unsigned char* buf, bool writing,
             const char* routine) {
    sdfile* s = f->file;
    const int64_t cs = s->hdr->chunk_size;
    int64_t at = 0;  // byte where block b starts
    int b = first;
    for (int steps = 0; bytes > 0; steps++) {
        if (!data_block(s, b) || steps >= s->blks->count) return sdf_error(routine, 4001, kChainEnd);
        const int64_t size = ent(s, b)->chunks * cs;
        if (pos < at + size) {
            const int64_t in = pos - at;
            const int64_t len = std::min(bytes, size - in);
            int rc = writing ? sdf_write_block(buf, f, b, in, len) : sdf_read_block(buf, f, b, in, len);
            if (rc) return sdf_error_chain(routine, rc, writing ? "sdf_write_block" : "sdf_read_block");
            buf += len;
            pos += len;
            bytes -= len;
        }
        at += size;
        b = ent(s, b)->next;
    }
    return 0;
}

// The last block of a chain, or 0 with *rc for a broken one.
int last_block(sdfile* s, int first, int* rc) {
    int b = first;
    for (int steps = 0; steps < s->blks->count; steps++) {
        if (!data_block(s, b)) break;
        if (ent(s, b)->next == 0) return b;
        b = ent(s, b)->next;
    }
    *rc = sdf_error("sdf_array_write", 4001, kChainEnd);
    return 0;
}

// Adds `add` chunks to the array's chain: a new block joins its end, or the
// last block grows when the new one touches it.
int grow_chain(fcb* f, ventry* row, int add, int swap) {
    static const char* R = "sdf_array_write";
    sdfile* s = f->file;
    sdf_varrec* r = row->record;
    const int first = first_block(row);
    int rc = 0;
    const int last = first ? last_block(s, first, &rc) : 0;
    if (rc) return rc;
    int at_end = 0;
    const int b = sdf_alloc_block(s, add, &at_end);
    if (b < 0) return sdf_error_chain(R, -b, "sdf_alloc_block");
    if (!at_end && !s->internal && sdf_opt_int(f, SDF_OPT_ZERO_ARRAYS) == 1) {
        ent(s, b)->type = -swap;  // a block in use, for the clean
        rc = sdf_clean_block(f, b);
        if (rc) {
            sdf_free_block(s, b);
            return sdf_error_chain(R, rc, "sdf_clean_block");
        }
    }
    if (last && ent(s, last)->start + ent(s, last)->chunks == ent(s, b)->start) {
        const int old = ent(s, last)->chunks;
        ent(s, last)->chunks += add;
        sdf_mark(s, s->blks->rows[last].owner);
        sdf_free_entry(s, b, 0);
        sdf_cache_extend(s, last, old, old + add);
    } else {
        sdf_blkent* e = ent(s, b);
        e->used = 1;
        e->type = -swap;
        e->next = e->prev = 0;
        sdf_mark(s, s->blks->rows[b].owner);
        if (last) {
            ent(s, last)->next = b;
            sdf_mark(s, s->blks->rows[last].owner);
        } else {
            r->value.i[2] = b;
        }
    }
    r->value.i[3] += add;
    sdf_touch(s, r, row->block, 1);
    if (s->internal) {
        Blentry& fr = s->blks->rows[r->value.i[2]];
        const size_t bytes = static_cast<size_t>(r->value.i[3]) * static_cast<size_t>(s->hdr->chunk_size);
        void* p = ZU_reallocMem(fr.data, bytes);  // grown bytes come zeroed
        if (!p) return sdf_error(R, 3025, "sdf_array_write:data");
        fr.data = p;
        fr.flags |= SDF_BLK_OWNED;
    }
    return 0;
}

// Growth of an array whose write ends at element `end`: the last extent and
// then the chain.
int grow(fcb* f, ventry* row, int64_t dims[8], int64_t end) {
    static const char* R = "sdf_array_write";
    sdfile* s = f->file;
    sdf_varrec* r = row->record;
    const int rank = static_cast<int>(dims[0]);
    const int64_t stride = product(dims, 1, rank - 1);
    const int64_t cs = s->hdr->chunk_size;
    if (stride <= 0) return sdf_error(R, 3023, "start", row->name);  // a zero extent can't grow
    const int64_t last = end / stride + (end % stride ? 1 : 0);
    int64_t elems, bytes;
    if (__builtin_mul_overflow(last, stride, &elems) ||
        __builtin_mul_overflow(elems, static_cast<int64_t>(r->elen), &bytes) ||
        (bytes + cs - 1) / cs > INT32_MAX)
        return sdf_error(R, 3023, "start", row->name);
    const int64_t need = (bytes + cs - 1) / cs;
    if (need > r->value.i[3]) {
        const int have = r->value.i[3];
        const int missing = static_cast<int>(need - have);
        int add = sdf_chain_growth(missing, have, std::max(0, sdf_opt_int(f, SDF_OPT_MAX_EXTRA_DATA_CHUNKS)));
        if (static_cast<int64_t>(have) + add > INT32_MAX) add = missing;
        int rc = grow_chain(f, row, add, sdf_swap_width(SDF_BASE_TYPE(r->type)));
        if (rc) return rc;
    }
    if (last != dims[rank]) {
        dims[rank] = last;
        int rc = sdf_array_put_dims(f, row, dims);
        if (rc) return sdf_error_chain(R, rc, "sdf_array_put_dims");
    }
    return 0;
}

}  // namespace

extern "C" {

int sdf_array_dims(fcb* f, const ventry* row, int64_t dims[8]) {
    static const char* R = "sdf_array_dims";
    const sdf_varrec* r = row->record;
    sdf_slotref ref{r->value.i[0], r->value.i[1]};
    int err = 0;
    auto* p = static_cast<const int32_t*>(sdf_get_slot(f, SDF_CH_ARRDIM, 0, &ref, &err));
    if (!p) return err ? sdf_error_chain(R, err, "sdf_get_slot") : sdf_corrupt(R, f->file, "array \"%s\" has no dimensions.", row->name);
    auto word = [p](int k) {
        return static_cast<int64_t>(static_cast<uint32_t>(p[2 * k])) | (static_cast<int64_t>(p[2 * k + 1]) * (INT64_C(1) << 32));
    };
    // The slot's size word tells how many words its payload may hold.
    const int32_t words = p[-1] - 1;
    const int64_t rank = words >= 2 ? word(0) : 0;
    if (rank < 1 || rank > SDF_MAX_RANK || words < 2 * (rank + 1))
        return sdf_corrupt(R, f->file, "bad dimensions of array \"%s\".", row->name);
    memset(dims, 0, 8 * sizeof(int64_t));
    int64_t total = r->elen > 0 ? r->elen : 1;
    for (int k = 0; k <= rank; k++) {
        dims[k] = word(k);
        if (dims[k] < 0 || (k > 0 && __builtin_mul_overflow(total, dims[k], &total)))
            return sdf_corrupt(R, f->file, "bad dimensions of array \"%s\".", row->name);
    }
    return 0;
}

int sdf_array_put_dims(fcb* f, const ventry* row, const int64_t dims[8]) {
    static const char* R = "sdf_array_put_dims";
    sdf_slotref ref{row->record->value.i[0], row->record->value.i[1]};
    int err = 0;
    auto* p = static_cast<int32_t*>(sdf_get_slot(f, SDF_CH_ARRDIM, 0, &ref, &err));
    if (!p) return err ? sdf_error_chain(R, err, "sdf_get_slot") : sdf_error(R, 4001, "An array without dimensions.");
    for (int k = 0; k <= dims[0]; k++) {  // low word first, in any host order
        p[2 * k] = static_cast<int32_t>(static_cast<uint32_t>(dims[k] & 0xffffffff));
        p[2 * k + 1] = static_cast<int32_t>(dims[k] >> 32);
    }
    sdf_mark(f->file, ref.block);
    return 0;
}

int sdf_check_index_array(const char* routine, const char* what, const char* name, const int64_t* a,
                          const int64_t dims[8]) {
    if (!a || a[0] <= 0) return 0;
    if (a[0] > SDF_MAX_RANK) return sdf_error(routine, 3023, what, name);
    if (a[0] != dims[0]) return sdf_error(routine, 3022, what, name);
    for (int i = 1; i <= a[0]; i++)
        if (a[i] < 0) return sdf_error(routine, 3023, what, name);
    return 0;
}

int64_t sdf_array_left(const int64_t dims[8], const int64_t* start) {
    const int64_t off = offset_of(dims, start);
    const int64_t total = product(dims, 1, static_cast<int>(dims[0]));
    return off < 0 || off >= total ? 0 : total - off;
}

int sdf_array_read(fcb* f, ventry* row, int64_t* start, int64_t n, void** data, int64_t* nread) {
    static const char* R = "sdf_array_read";
    sdfile* s = f->file;
    sdf_varrec* r = row->record;
    *nread = 0;
    int64_t dims[8];
    int rc = sdf_array_dims(f, row, dims);
    if (rc) return sdf_error_chain(R, rc, "sdf_array_dims");
    const int64_t off = offset_of(dims, start);
    const int64_t left = sdf_array_left(dims, start);
    if (n <= 0 || n > left) n = left;
    if (n <= 0) return 0;
    const int64_t elen = r->elen;
    if (s->internal) {
        auto* buf = static_cast<unsigned char*>(first_block(row) ? s->blks->rows[first_block(row)].data : nullptr);
        if (!buf) return sdf_error(R, 4001, kChainEnd);
        if (*data)
            memmove(*data, buf + off * elen, static_cast<size_t>(n * elen));
        else
            *data = buf + off * elen;
    } else {
        void* mine = *data ? nullptr : ZU_allocMemNoZero(static_cast<size_t>(n * elen), "sdf_array_read:data");
        if (!*data && !mine) return sdf_error(R, 3025, "sdf_array_read:data");
        auto* out = static_cast<unsigned char*>(mine ? mine : *data);
        rc = transfer(f, first_block(row), off * elen, n * elen, out, false, R);
        if (rc) {
            ZU_freeMem(mine);
            return rc;
        }
        if (mine) {
            if (!sdf_register(mine)) return sdf_error(R, 3025, "sdf_array_read:data");
            *data = mine;
        }
    }
    *nread = n;
    set_start(start, dims, off + n);
    return 0;
}

int sdf_array_write(fcb* f, ventry* row, int64_t* start, int64_t n, const void* data) {
    static const char* R = "sdf_array_write";
    sdfile* s = f->file;
    sdf_varrec* r = row->record;
    int64_t dims[8];
    int rc = sdf_array_dims(f, row, dims);
    if (rc) return sdf_error_chain(R, rc, "sdf_array_dims");
    const int rank = static_cast<int>(dims[0]);
    int64_t behind[8] = {rank, 0, 0, 0, 0, 0, 0, 0};
    behind[rank] = dims[rank];
    int64_t* st = start && start[0] > 0 ? start : behind;
    const int64_t off = offset_of(dims, st);
    if (n < 0) n = 0;
    int64_t end;
    if (off < 0 || __builtin_add_overflow(off, n, &end)) return sdf_error(R, 3023, "start", row->name);
    if (end > product(dims, 1, rank) && (rc = grow(f, row, dims, end)) != 0) return rc;
    sdf_touch(s, r, row->block, 1);
    if (n == 0) return 0;
    const int64_t elen = r->elen;
    if (s->internal) {
        auto* buf = static_cast<unsigned char*>(s->blks->rows[first_block(row)].data);
        if (!buf) return sdf_error(R, 4001, kChainEnd);
        memmove(buf + off * elen, data, static_cast<size_t>(n * elen));
    } else {
        rc = sdf_write_modified_blocks(f);
        if (rc) return sdf_error_chain(R, rc, "sdf_write_modified_blocks");
        auto* in = const_cast<unsigned char*>(static_cast<const unsigned char*>(data));
        rc = transfer(f, first_block(row), off * elen, n * elen, in, true, R);
        if (rc) return rc;
    }
    set_start(st == behind ? nullptr : start, dims, end);
    return 0;
}

}  // extern "C"
