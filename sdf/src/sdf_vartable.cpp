// The variable table of a file: the list of rows sorted through `key`, the
// records in varinf blocks, and the free list of records.
//
// Invariants kept:
// - key[0..count) are the rows of the variables in name order by the file's
//   case rule; key[count..capacity) are the free rows. Rows never move.
// - A row's name points into its varnam slot and its record into the buffer
//   of its varinf block; both stay in memory while the file is open.
// - The free records form a list in ascending order of (block, index), linked
//   through the record's first four words (next block, index, prev block,
//   index) from the header's free block and index; the header counts them.
//   `free_index` holds the same set in memory, so that a delete finds its
//   place in the list without walking it; every change goes to both.
// - A varinf block's `used` counts its records that are off the free list;
//   a block that reaches 0 leaves the chain.
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <iterator>
#include <new>
#include <set>

#include "sdf_inner.h"

namespace {

using FreeSet = std::set<int64_t>;

constexpr int kMinCapacity = 128;

sdf_chain_desc& varinf(sdfile* s) { return s->hdr->chain[SDF_CH_VARINF - 1]; }

bool in_table(const sdfile* s, int b) {
    return s->blks && b > 0 && b < s->blks->count && s->blks->rows[b].entry;
}

sdf_blkent* ent(sdfile* s, int b) { return s->blks->rows[b].entry; }

void mark_owner(sdfile* s, int b) { sdf_mark(s, s->blks->rows[b].owner); }

int64_t rkey(int b, int i) { return (static_cast<int64_t>(b) << 32) | static_cast<uint32_t>(i); }
int key_block(int64_t k) { return static_cast<int>(k >> 32); }
int key_index(int64_t k) { return static_cast<int>(k & 0xffffffff); }

FreeSet* free_set(vars* v) {
    if (!v->free_index) v->free_index = new (std::nothrow) FreeSet;
    return static_cast<FreeSet*>(v->free_index);
}

int records_in(const sdfile* s, const sdf_blkent* e) {
    int64_t n = static_cast<int64_t>(e->chunks) * s->hdr->chunk_size / SDF_RECORD_BYTES;
    return (n < 1 || n > INT32_MAX) ? 0 : static_cast<int>(n);
}

// Record i of varinf block b, or null when b is no varinf block in memory or
// i lies outside it.
sdf_varrec* rec_at(sdfile* s, int b, int i) {
    if (!in_table(s, b) || ent(s, b)->type != SDF_CH_VARINF || !s->blks->rows[b].data) return nullptr;
    if (i < 0 || i >= records_in(s, ent(s, b))) return nullptr;
    return static_cast<sdf_varrec*>(s->blks->rows[b].data) + i;
}

sdf_varrec* rec_at(sdfile* s, int64_t k) { return rec_at(s, key_block(k), key_index(k)); }

// A free record's links: `name` holds the next free record, `units` the
// previous one.
void set_next(sdfile* s, int64_t k, int64_t next) {
    sdf_varrec* r = rec_at(s, k);
    if (!r) return;
    r->name = next ? sdf_slotref{key_block(next), key_index(next)} : sdf_slotref{0, 0};
    sdf_mark(s, key_block(k));
}

void set_prev(sdfile* s, int64_t k, int64_t prev) {
    sdf_varrec* r = rec_at(s, k);
    if (!r) return;
    r->units = prev ? sdf_slotref{key_block(prev), key_index(prev)} : sdf_slotref{0, 0};
    sdf_mark(s, key_block(k));
}

void set_head(sdfile* s, int64_t k) {
    varinf(s).free_a = k ? key_block(k) : 0;
    varinf(s).free_b = k ? key_index(k) : 0;
}

// The free records just before `lo` and just after `hi` in list order (0
// when none).
void neighbours(const FreeSet& fs, int64_t lo, int64_t hi, int64_t* pred, int64_t* succ) {
    auto it = fs.lower_bound(lo);
    *pred = it == fs.begin() ? 0 : *std::prev(it);
    auto jt = fs.upper_bound(hi);
    *succ = jt == fs.end() ? 0 : *jt;
}

// Links the run of free records [lo, hi], already linked among themselves,
// into the list between its neighbours.
void splice_run(sdfile* s, const FreeSet& fs, int64_t lo, int64_t hi) {
    int64_t pred, succ;
    neighbours(fs, lo, hi, &pred, &succ);
    set_prev(s, lo, pred);
    set_next(s, hi, succ);
    if (pred) set_next(s, pred, lo); else set_head(s, lo);
    if (succ) set_prev(s, succ, hi);
}

int grow(vars* v) {
    int cap = v->capacity * 2;
    if (cap <= v->capacity) return 1;
    auto* rows = static_cast<ventry*>(ZU_reallocMem(v->rows, sizeof(ventry) * cap));
    if (!rows) return 1;
    v->rows = rows;
    auto* key = static_cast<int32_t*>(ZU_reallocMem(v->key, sizeof(int32_t) * cap));
    if (!key) return 1;
    v->key = key;
    for (int p = v->capacity; p < cap; p++) key[p] = p;
    v->capacity = cap;
    return 0;
}

// Takes the record at the head of the free list for a new variable.
int take_record(sdfile* s, int* block, int* index) {
    static const char* R = "sdf_insert_var";
    sdf_chain_desc& d = varinf(s);
    FreeSet* fs = free_set(s->vars);
    if (!fs) return sdf_bug(R, "Out of memory for the variable table.");
    int b = d.free_a, i = d.free_b;
    sdf_varrec* r = rec_at(s, b, i);
    if (!r) return sdf_bug(R, "sdf_get_free_var: varinf block %d not in memory.\n", b);
    int64_t next = r->name.block ? rkey(r->name.block, r->name.index) : 0;
    if ((next && !rec_at(s, next)) || fs->empty() || *fs->begin() != rkey(b, i) ||
        (next && (fs->size() < 2 || *std::next(fs->begin()) != next)))
        return sdf_corrupt(R, s, "broken list of free records at block %d.", b);
    fs->erase(fs->begin());
    set_head(s, next);
    d.free_count--;
    memset(r, 0, sizeof *r);
    sdf_mark(s, b);
    ent(s, b)->used++;
    mark_owner(s, b);
    if (next) set_prev(s, next, 0);
    *block = b;
    *index = i;
    return 0;
}

// Varinf block b holds no variable any more: its records, a run of the free
// list, leave the list, and the block leaves the chain.
int release_varinf(sdfile* s, int b) {
    static const char* R = "sdf_delete_var";
    FreeSet* fs = free_set(s->vars);
    if (!fs) return sdf_bug(R, "Out of memory for the variable table.");
    sdf_blkent* e = ent(s, b);
    int n = records_in(s, e);
    int64_t lo = rkey(b, 0), hi = rkey(b, n - 1);
    auto first = fs->lower_bound(lo), last = fs->upper_bound(hi);
    if (std::distance(first, last) != n)
        return sdf_bug(R, "Used count of varinf block %d disagrees with its free records.", b);
    int prev = sdf_chain_prev(s, SDF_CH_VARINF, b);
    if (prev < 0) return sdf_bug(R, "Varinf block %d is not in chain.", b);
    fs->erase(first, last);
    int64_t pred, succ;
    neighbours(*fs, lo, hi, &pred, &succ);
    if (pred) set_next(s, pred, succ); else set_head(s, succ);
    if (succ) set_prev(s, succ, pred);
    varinf(s).free_count -= n;
    return sdf_chain_release(s, SDF_CH_VARINF, b, prev, R);
}

// Puts record (b, i) on the free list at its place.
int free_record(sdfile* s, int b, int i) {
    static const char* R = "sdf_delete_var";
    FreeSet* fs = free_set(s->vars);
    if (!fs) return sdf_bug(R, "Out of memory for the variable table.");
    int64_t k = rkey(b, i);
    if (!fs->insert(k).second) return sdf_corrupt(R, s, "record %d of block %d freed twice.", i, b);
    fs->erase(k);
    splice_run(s, *fs, k, k);
    fs->insert(k);
    varinf(s).free_count++;
    sdf_blkent* e = ent(s, b);
    if (e->used > 0) e->used--;
    if (e->used > 0) {
        sdf_mark(s, b);
        mark_owner(s, b);
        return 0;
    }
    return release_varinf(s, b);
}

// Moves key[from, from + n) one place up or down.
void shift_up(int32_t* key, int from, int n) { memmove(key + from + 1, key + from, sizeof(int32_t) * n); }
void shift_down(int32_t* key, int from, int n) { memmove(key + from, key + from + 1, sizeof(int32_t) * n); }

bool valid_row(const vars* v, const ventry* row, int pos) {
    return row && row >= v->rows && row < v->rows + v->capacity && pos >= 0 && pos < v->count &&
           v->key[pos] == static_cast<int32_t>(row - v->rows);
}

}  // namespace

extern "C" {

vars* sdf_new_vars(int size, int extra) {
    int cap = size < 1 ? kMinCapacity : size;
    if (extra > 0) {
        int64_t want = static_cast<int64_t>(size > 0 ? size : 0) + extra;
        int64_t c = kMinCapacity;
        while (c < want && c < INT32_MAX / 2) c *= 2;
        cap = static_cast<int>(c);
    }
    auto* v = static_cast<vars*>(ZU_allocMem(sizeof(vars), "sdf_new_vars:vars"));
    if (!v) return nullptr;
    v->rows = static_cast<ventry*>(ZU_allocMem(sizeof(ventry) * cap, "sdf_new_vars:ventry"));
    v->key = static_cast<int32_t*>(ZU_allocMem(sizeof(int32_t) * cap, "sdf_new_vars:key"));
    if (!v->rows || !v->key) {
        sdf_free_vars(v);
        return nullptr;
    }
    for (int p = 0; p < cap; p++) v->key[p] = p;
    v->capacity = cap;
    return v;
}

void sdf_free_vars(vars* v) {
    if (!v) return;
    delete static_cast<FreeSet*>(v->free_index);
    ZU_freeMem(v->rows);
    ZU_freeMem(v->key);
    ZU_freeMem(v);
}

ventry* sdf_find_var(fcb* f, const char* name, int* pos) {
    int dummy;
    if (!pos) pos = &dummy;
    *pos = 0;
    if (!f || !f->file || !f->file->vars || !name) return nullptr;
    const sdfile* s = f->file;
    vars* v = s->vars;
    int low = -1, high = v->count;
    while (high - low > 1) {
        int mid = (high + low) / 2;
        int c = sdf_name_cmp(s, name, v->rows[v->key[mid]].name);
        if (c <= 0) high = mid;
        if (c >= 0) low = mid;
    }
    *pos = high;
    return low == high ? &v->rows[v->key[high]] : nullptr;
}

ventry* sdf_insert_var(fcb* f, const char* name, int pos, int* err) {
    static const char* R = "sdf_insert_var";
    int dummy;
    if (!err) err = &dummy;
    *err = 0;
    if (!f || !f->file || !f->file->vars || !name) {
        *err = sdf_bug(R, "Invalid variable request.");
        return nullptr;
    }
    sdfile* s = f->file;
    vars* v = s->vars;
    size_t len = strnlen(name, SDF_MAX_NAME + 1);
    if (len < 1 || len > SDF_MAX_NAME) {
        *err = sdf_error(R, 3005, name);
        return nullptr;
    }
    if (pos < 0 || pos > v->count) {
        *err = sdf_bug(R, "Insert position %d out of range.", pos);
        return nullptr;
    }
    sdf_slotref ref{0, 0};
    int rc = 0;
    auto* slot = static_cast<char*>(sdf_get_slot(f, SDF_CH_VARNAM, static_cast<int>(len), &ref, &rc));
    if (!slot) {
        *err = sdf_error_chain(R, rc, "sdf_get_slot");
        return nullptr;
    }
    memcpy(slot, name, len + 1);
    if (v->count == v->capacity && grow(v)) rc = sdf_bug(R, "Out of memory for the variable table.");
    if (!rc && varinf(s).free_a == 0) {
        rc = sdf_extend_varinf_chain(s, 1);
        if (rc) rc = sdf_error_chain(R, rc, "sdf_extend_varinf_chain");
    }
    int b = 0, i = 0;
    if (!rc) rc = take_record(s, &b, &i);
    if (rc) {
        sdf_free_slot(f, SDF_CH_VARNAM, &ref);
        *err = rc;
        return nullptr;
    }
    int row = v->key[v->count];
    shift_up(v->key, pos, v->count - pos);
    v->key[pos] = row;
    v->count++;
    sdf_varrec* r = rec_at(s, b, i);
    r->name = ref;
    v->rows[row] = ventry{slot, r, b};
    return &v->rows[row];
}

int sdf_delete_var(fcb* f, ventry* row, int pos) {
    static const char* R = "sdf_delete_var";
    if (!f || !f->file || !f->file->vars || !valid_row(f->file->vars, row, pos))
        return sdf_bug(R, "Row and position of a variable disagree.");
    sdfile* s = f->file;
    vars* v = s->vars;
    sdf_varrec* r = row->record;
    int b = row->block;
    sdf_varrec* base = rec_at(s, b, 0);
    int i = base && r >= base ? static_cast<int>(r - base) : -1;
    if (!base || rec_at(s, b, i) != r) return sdf_bug(R, "Record of a variable not in its block.");
    int rc = sdf_free_slot(f, SDF_CH_VARNAM, &r->name);
    if (rc) return sdf_error_chain(R, rc, "sdf_free_slot");
    // Past the name the variable goes in any case; a part that can't be
    // freed is reported and left behind.
    int first = sdf_free_slot(f, SDF_CH_CHRVAR, &r->desc);
    const char* callee = "sdf_free_slot";
    if ((rc = sdf_free_slot(f, SDF_CH_CHRVAR, &r->units)) && !first) first = rc;
    if ((rc = sdf_clear_val(f, row)) && !first) {
        first = rc;
        callee = "sdf_clear_val";
    }
    memset(r, 0, sizeof *r);
    rc = free_record(s, b, i);
    v->count--;
    int id = v->key[pos];
    shift_down(v->key, pos, v->count - pos);
    v->key[v->count] = id;
    v->rows[id] = ventry{nullptr, nullptr, 0};
    if (rc) return rc;
    return first ? sdf_error_chain(R, first, callee) : 0;
}

int sdf_rename_var(fcb* f, const char* name, int oldpos, int newpos) {
    static const char* R = "sdf_rename_var";
    if (!f || !f->file || !f->file->vars || !name) return sdf_bug(R, "Invalid variable request.");
    sdfile* s = f->file;
    vars* v = s->vars;
    if (oldpos < 0 || oldpos >= v->count || newpos < 0 || newpos > v->count)
        return sdf_bug(R, "Rename positions %d, %d out of range.", oldpos, newpos);
    size_t len = strnlen(name, SDF_MAX_NAME + 1);
    if (len < 1 || len > SDF_MAX_NAME) return sdf_error(R, 3005, name);
    char copy[SDF_MAX_NAME + 1];  // the name may live in the slot freed below
    memcpy(copy, name, len + 1);
    int id = v->key[oldpos];
    ventry* row = &v->rows[id];
    int rc = sdf_free_slot(f, SDF_CH_VARNAM, &row->record->name);
    if (rc) return sdf_error_chain(R, rc, "sdf_free_slot");
    row->name = nullptr;
    auto* slot = static_cast<char*>(
        sdf_get_slot(f, SDF_CH_VARNAM, static_cast<int>(len), &row->record->name, &rc));
    if (!slot) return sdf_error_chain(R, rc, "sdf_get_slot");
    memcpy(slot, copy, len + 1);
    row->name = slot;
    sdf_touch(s, row->record, row->block, 1);
    if (newpos > oldpos + 1) {
        shift_down(v->key, oldpos, newpos - 1 - oldpos);
        v->key[newpos - 1] = id;
    } else if (newpos < oldpos) {
        shift_up(v->key, newpos, oldpos - newpos);
        v->key[newpos] = id;
    }
    return 0;
}

int sdf_clear_val(fcb* f, ventry* row) {
    static const char* R = "sdf_clear_val";
    if (!f || !f->file || !row || !row->record) return sdf_bug(R, "Invalid variable request.");
    sdfile* s = f->file;
    sdf_varrec* r = row->record;
    int rc = 0;
    const char* callee = "sdf_free_slot";
    if (SDF_IS_ARRAY(r->type)) {
        sdf_slotref dims{r->value.i[0], r->value.i[1]};
        rc = sdf_free_slot(f, SDF_CH_ARRDIM, &dims);
        int first = r->value.i[2];
        if (!rc && first) {
            rc = sdf_free_chain(s, first);
            callee = "sdf_free_chain";
        }
    } else if (r->type == SDF_CHAR_T) {
        sdf_slotref val{r->value.i[2], r->value.i[3]};
        rc = sdf_free_slot(f, SDF_CH_CHRVAR, &val);
    }
    memset(&r->value, 0, sizeof r->value);
    r->type = 0;
    r->elen = 0;
    sdf_touch(s, r, row->block, 1);
    return rc ? sdf_error_chain(R, rc, callee) : 0;
}

int sdf_extend_varinf_chain(sdfile* s, int records) {
    static const char* R = "sdf_extend_varinf_chain";
    if (!s || !s->vars || !s->blks) return sdf_bug(R, "Invalid variable request.");
    FreeSet* fs = free_set(s->vars);
    if (!fs) return sdf_bug(R, "Out of memory for the variable table.");
    int chunk = s->hdr->chunk_size;
    if (chunk < SDF_RECORD_BYTES) return sdf_corrupt(R, s, "bad chunk size %d.", chunk);
    sdf_chain_desc& d = varinf(s);
    int64_t c = d.chunks < 1 ? 1 : d.chunks > 4 ? 4 : d.chunks;
    int64_t need = (static_cast<int64_t>(records) * SDF_RECORD_BYTES + chunk - 1) / chunk;
    if (need > c) c = need;
    if (c * chunk > INT32_MAX) return sdf_bug(R, "Too many records requested.");
    void* buf = ZU_allocMem(static_cast<size_t>(c * chunk), "sdf_extend_varinf_chain:varblock");
    if (!buf) return sdf_bug(R, "Out of memory for a varinf block.");
    int at_end = 0;
    int b = sdf_alloc_block(s, static_cast<int>(c), &at_end);
    if (b < 0) {
        ZU_freeMem(buf);
        return sdf_error_chain(R, -b, "sdf_alloc_block");
    }
    int tail = in_table(s, d.tail) ? d.tail : 0;
    if (tail) {
        ent(s, tail)->next = b;
        mark_owner(s, tail);
    } else {
        d.head = b;
    }
    sdf_blkent* e = ent(s, b);
    e->prev = tail;
    e->next = 0;
    e->type = SDF_CH_VARINF;
    e->used = 0;
    d.tail = b;
    d.chunks += static_cast<int>(c);
    s->blks->rows[b].data = buf;
    s->blks->rows[b].flags |= SDF_BLK_OWNED;
    int n = records_in(s, e);
    auto* r = static_cast<sdf_varrec*>(buf);
    for (int k = 0; k < n; k++) {
        r[k].name = k + 1 < n ? sdf_slotref{b, k + 1} : sdf_slotref{0, 0};
        r[k].units = k > 0 ? sdf_slotref{b, k - 1} : sdf_slotref{0, 0};
    }
    d.free_count += n;
    sdf_mark(s, b);
    mark_owner(s, b);
    splice_run(s, *fs, rkey(b, 0), rkey(b, n - 1));
    for (int k = 0; k < n; k++) fs->insert(fs->end(), rkey(b, k));
    return 0;
}

int sdf_index_free_records(fcb* f) {
    static const char* R = "sdf_read_varinf";
    sdfile* s = f->file;
    FreeSet* fs = free_set(s->vars);
    if (!fs) return sdf_bug(R, "Out of memory for the variable table.");
    fs->clear();
    sdf_chain_desc& d = varinf(s);
    int64_t prev = 0;
    for (int64_t k = d.free_a ? rkey(d.free_a, d.free_b) : 0; k;) {
        sdf_varrec* r = rec_at(s, k);
        if (!r || k <= prev || r->type != 0)
            return sdf_corrupt(R, s, "free record list broken at block %d.", key_block(k));
        fs->insert(fs->end(), k);
        prev = k;
        k = r->name.block ? rkey(r->name.block, r->name.index) : 0;
    }
    return 0;
}

}  // extern "C"
