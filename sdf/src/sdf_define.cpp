// Definition of an array: its record, dimension slot and first data block.
//
// The checks (name, type, dimensions) all run before anything changes, so a
// refused define leaves the file as it was. A new array gets one block that
// holds all of its elements, or no chain at all when an extent is 0; the
// first write then makes one. On an internal file the block's buffer is
// allocated with it and owned by the block table, or is a block the caller
// hands over, already holding the elements (the calculator's results): the
// buffer then never has to be filled by a copy.
#include <string.h>

#include "sdf_inner.h"

namespace {

constexpr const char* R = "sdf_define_array";

// Bytes of an array of these extents, or -1 when they break the rules of a
// dimension array or don't fit the format.
int64_t array_bytes(const int64_t* dims, int64_t elen) {
    if (!dims || dims[0] < 1 || dims[0] > SDF_MAX_RANK) return -1;
    int64_t total = elen;
    for (int i = 1; i <= dims[0]; i++)
        if (dims[i] < 0 || __builtin_mul_overflow(total, dims[i], &total)) return -1;
    return total;
}

void store_dims(int32_t* p, const int64_t* dims) {
    for (int k = 0; k <= dims[0]; k++) {  // low word first, in any host order
        p[2 * k] = static_cast<int32_t>(static_cast<uint32_t>(dims[k] & 0xffffffff));
        p[2 * k + 1] = static_cast<int32_t>(dims[k] >> 32);
    }
}

// A caller's block for an internal file's buffer: its elements first.
struct Adopt {
    void** block;  // null: allocate
    size_t size;   // bytes of *block
    size_t filled; // bytes the elements take; the rest is cleared
};

// The dimension slot, the first block and, on an internal file, its buffer.
int fill(fcb* f, ventry* row, const int64_t* dims, int64_t chunks, int swap, const Adopt& adopt) {
    sdfile* s = f->file;
    sdf_varrec* r = row->record;
    sdf_slotref ref{0, 0};
    int rc = 0;
    auto* p = static_cast<int32_t*>(sdf_get_slot(f, SDF_CH_ARRDIM, static_cast<int>(dims[0]) + 1, &ref, &rc));
    if (!p) return sdf_error_chain(R, rc, "sdf_get_slot");
    store_dims(p, dims);
    r->value.i[0] = ref.block;
    r->value.i[1] = ref.index;
    if (chunks == 0) return 0;
    int at_end = 0;
    const int b = sdf_alloc_block(s, static_cast<int>(chunks), &at_end);
    if (b < 0) return sdf_error_chain(R, -b, "sdf_alloc_block");
    sdf_blkent* e = s->blks->rows[b].entry;
    e->used = 1;
    e->type = -swap;
    sdf_mark(s, s->blks->rows[b].owner);
    r->value.i[2] = b;
    r->value.i[3] = static_cast<int32_t>(chunks);
    if (s->internal) {
        const size_t bytes = static_cast<size_t>(chunks) * static_cast<size_t>(s->hdr->chunk_size);
        void* data = nullptr;
        if (adopt.block) {
            data = *adopt.block;
            *adopt.block = nullptr;
            // A later grow takes the bytes behind the elements as zeros.
            memset(static_cast<char*>(data) + adopt.filled, 0, bytes - adopt.filled);
        } else if (!(data = ZU_allocMem(bytes, "sdf_def_arr:data"))) {
            return sdf_error(R, 3025, "sdf_def_arr:data");
        }
        s->blks->rows[b].data = data;
        s->blks->rows[b].flags |= SDF_BLK_OWNED;
    } else if (!at_end && sdf_opt_int(f, SDF_OPT_ZERO_ARRAYS) == 1) {
        rc = sdf_clean_block(f, b);
        if (rc) return sdf_error_chain(R, rc, "sdf_clean_block");
    }
    return 0;
}

// Takes a half-made variable out again.
void undo(fcb* f, const char* full) {
    int pos = -1;
    ventry* row = sdf_find_var(f, full, &pos);
    if (row) sdf_delete_var(f, row, pos);
}

}  // namespace

static int define(fcb* f, const char* name, int type, int clen, const int64_t* dims, const char* units,
                  const char* desc, Adopt adopt) {
    char full[514];
    sdf_apply_prefix(f, name, full);
    if (!Sdf_Valid_Name(full)) return sdf_error(R, 3005, full);
    if (type < 0 || type >= 100 || !sdf_valid_base(type)) return sdf_error(R, 3020, type, full);
    const int64_t elen = type == SDF_CHAR_T ? (clen > 1 ? clen : 1) : sdf_type_elen(type);
    const int64_t bytes = array_bytes(dims, elen);
    const int64_t cs = f->file->hdr->chunk_size;
    if (bytes < 0 || (bytes + cs - 1) / cs > INT32_MAX) return sdf_error(R, 3021, full);
    if (adopt.block) {
        const int64_t chunks = (bytes + cs - 1) / cs;
        if (!f->file->internal || !*adopt.block || static_cast<uint64_t>(chunks * cs) > adopt.size)
            adopt.block = nullptr;  // not usable: the define allocates as usual
        else
            adopt.filled = static_cast<size_t>(bytes);
    }

    int warn = 0;
    ventry* row = sdf_value_row(f, R, name, &warn);
    if (!row) return warn;  // 2011, or nothing to do under Overwrite "No", or a failure
    const char* callee = "sdf_units_put";
    int rc = sdf_units_put(f, row, units);
    if (!rc) {
        callee = "sdf_desc_put";
        rc = sdf_desc_put(f, row, desc);
    }
    if (rc) {
        undo(f, full);
        return sdf_error_chain(R, rc, callee);
    }
    row->record->type = type + 100;
    row->record->elen = static_cast<int32_t>(elen);
    rc = fill(f, row, dims, (bytes + cs - 1) / cs, sdf_swap_width(type), adopt);
    if (rc) {
        undo(f, full);
        return rc;
    }
    sdf_touch(f->file, row->record, row->block, 1);
    rc = sdf_commit_if_always(f, R);
    return rc ? rc : warn;
}

extern "C" int sdf_define_array(fcb* f, const char* name, int type, int clen, const int64_t* dims,
                                const char* units, const char* desc) {
    return define(f, name, type, clen, dims, units, desc, Adopt{nullptr, 0, 0});
}

extern "C" int sdf_define_array_adopt(fcb* f, const char* name, int type, const int64_t* dims, const char* units,
                                      void** block, size_t size) {
    if (type == SDF_CHAR_T) return sdf_define_array(f, name, type, 1, dims, units, nullptr);
    return define(f, name, type, 0, dims, units, nullptr, Adopt{block, size, 0});
}
