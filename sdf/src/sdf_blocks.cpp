// The block table in memory and the allocation of chunks.
//
// Invariants kept here, on the header and on `Blks`:
// - rows[n].entry points at entry n inside the buffer of the blkinf block
//   rows[n].owner; those buffers never move, the row array may.
// - Free entries (type 0) form a doubly linked list from the header's blkinf
//   free head, and the header counts them; every blkinf block's `used`
//   counts its entries that are not on that list.
// - The unused chain ascends by start chunk, and no two of its runs touch.
// - Blks.modified counts the rows whose modified flag is set.
// - Whenever a field of an entry changes (a link, a used count), the blkinf
//   block that holds the entry is marked modified: set_next and set_prev do
//   both, so a neighbour in another blkinf block can't keep a stale link on
//   disk.
// All walks are bounded by the number of entries, so a damaged table can make
// the library refuse or misplace data, but never loop or index out of range.
#include <string.h>

#include "sdf_inner.h"

namespace {

constexpr int kMinFreeEntries = 3;

sdf_chain_desc& chain(sdfile* s, int ch) { return s->hdr->chain[ch - 1]; }

bool valid(const sdfile* s, int b) { return b > 0 && b < s->blks->count && s->blks->rows[b].entry; }

sdf_blkent* ent(sdfile* s, int b) { return s->blks->rows[b].entry; }

void mark_owner(sdfile* s, int b) {
    if (b > 0 && b < s->blks->count) sdf_mark(s, s->blks->rows[b].owner);
}

// Keeps an owner's count of entries in use; a row whose owner is still being
// made (0) has none yet. The count stands in the owner's own entry, which
// may lie in another blkinf block than the entries it counts.
void owner_used(sdfile* s, int b, int delta) {
    int owner = s->blks->rows[b].owner;
    if (valid(s, owner)) {
        ent(s, owner)->used += delta;
        sdf_mark(s, owner);
        mark_owner(s, owner);
    }
}

void set_next(sdfile* s, int b, int next) {
    ent(s, b)->next = next;
    mark_owner(s, b);
}

void set_prev(sdfile* s, int b, int prev) {
    ent(s, b)->prev = prev;
    mark_owner(s, b);
}

void unmark(sdfile* s, int b) {
    Blks* k = s->blks;
    if (b < 0 || b >= k->capacity) return;
    if (k->rows[b].flags & SDF_BLK_MODIFIED) {
        k->rows[b].flags &= ~SDF_BLK_MODIFIED;
        k->modified--;
    }
}

void drop_data(sdfile* s, int b) {
    Blentry& r = s->blks->rows[b];
    if (r.flags & SDF_BLK_OWNED) ZU_freeMem(r.data);
    r.data = nullptr;
    r.flags &= ~SDF_BLK_OWNED;
}

// Takes entry n off the free list.
void unlink_free(sdfile* s, int n) {
    sdf_chain_desc& bi = chain(s, SDF_CH_BLKINF);
    sdf_blkent* e = ent(s, n);
    if (valid(s, e->prev))
        set_next(s, e->prev, e->next);
    else
        bi.free_a = e->next;
    if (valid(s, e->next)) set_prev(s, e->next, e->prev);
    bi.free_count--;
    set_next(s, n, 0);
    set_prev(s, n, 0);
}

// Drops blkinf blocks off the end of the chain while they hold no entry in
// use and enough free entries remain without them.
void shrink_table(sdfile* s) {
    sdf_chain_desc& bi = chain(s, SDF_CH_BLKINF);
    Blks* k = s->blks;
    for (;;) {
        int t = bi.tail;
        if (t <= 1 || !valid(s, t)) return;
        sdf_blkent* e = ent(s, t);
        int64_t n = static_cast<int64_t>(e->chunks) * s->hdr->chunk_size / SDF_ENTRY_BYTES;
        int first = k->count - static_cast<int>(n);
        if (e->used != 0 || n < 1 || first <= t || bi.free_count - n < kMinFreeEntries) return;
        for (int i = first; i < k->count; i++)
            if (k->rows[i].owner != t) return;
        for (int i = first; i < k->count; i++) unlink_free(s, i);
        for (int i = first; i < k->count; i++) {
            unmark(s, i);
            k->rows[i].entry = nullptr;
            k->rows[i].owner = 0;
        }
        k->count = first;
        int p = e->prev;
        if (valid(s, p)) set_next(s, p, 0);
        bi.tail = p;
        bi.chunks -= e->chunks;
        drop_data(s, t);
        sdf_free_block(s, t);
    }
}

// Puts block b into the unused chain at its place by start chunk.
void link_unused(sdfile* s, int b, int* before, int* after) {
    sdf_chain_desc& un = chain(s, SDF_CH_UNUSED);
    sdf_blkent* e = ent(s, b);
    int p = 0, q = valid(s, un.head) ? un.head : 0;
    for (int steps = 0; q && steps < s->blks->count && ent(s, q)->start < e->start; steps++) {
        p = q;
        q = valid(s, ent(s, q)->next) ? ent(s, q)->next : 0;
    }
    set_prev(s, b, p);
    set_next(s, b, q);
    if (p)
        set_next(s, p, b);
    else
        un.head = b;
    if (q) {
        set_prev(s, q, b);
    } else {
        un.tail = b;
    }
    *before = p;
    *after = q;
}

void unlink_unused(sdfile* s, int b) {
    sdf_chain_desc& un = chain(s, SDF_CH_UNUSED);
    sdf_blkent* e = ent(s, b);
    if (valid(s, e->prev))
        set_next(s, e->prev, e->next);
    else
        un.head = e->next;
    if (valid(s, e->next))
        set_prev(s, e->next, e->prev);
    else
        un.tail = e->prev;
    set_next(s, b, 0);
    set_prev(s, b, 0);
    un.chunks -= e->chunks;
}

}  // namespace

extern "C" {

Blks* sdf_new_blks(int size, int extra) {
    int64_t cap = 128;
    if (extra > 0) {
        while (cap < static_cast<int64_t>(size) + extra) cap *= 2;
    } else if (size >= 1) {
        cap = size;
    }
    if (cap > INT32_MAX) return nullptr;
    auto* b = static_cast<Blks*>(ZU_allocMem(sizeof(Blks), "sdf_new_blks:Blks"));
    if (!b) return nullptr;
    b->rows = static_cast<Blentry*>(ZU_allocMem(cap * sizeof(Blentry), "sdf_new_blks:Blentry"));
    if (!b->rows) {
        ZU_freeMem(b);
        return nullptr;
    }
    b->capacity = static_cast<int32_t>(cap);
    return b;
}

int sdf_grow_blks(Blks* b, int rows) {
    if (rows <= b->capacity) return 0;
    int64_t cap = b->capacity > 0 ? b->capacity : 128;
    while (cap < rows) cap *= 2;
    if (cap > INT32_MAX) cap = INT32_MAX;
    void* p = ZU_reallocMem(b->rows, cap * sizeof(Blentry));
    if (!p) return sdf_error("sdf_grow_blks", 3025, "sdf_grow_blks:Blentry");
    b->rows = static_cast<Blentry*>(p);
    b->capacity = static_cast<int32_t>(cap);
    return 0;
}

void sdf_free_blks(Blks* b) {
    if (!b) return;
    for (int i = 0; i < b->capacity; i++)
        if (b->rows[i].flags & SDF_BLK_OWNED) ZU_freeMem(b->rows[i].data);
    ZU_freeMem(b->rows);
    ZU_freeMem(b);
}

void sdf_mark(sdfile* s, int block) {
    Blks* k = s->blks;
    if (block < 0 || block >= k->capacity) return;
    if (!(k->rows[block].flags & SDF_BLK_MODIFIED)) {
        k->rows[block].flags |= SDF_BLK_MODIFIED;
        k->modified++;
    }
}

void sdf_touch(sdfile* s, sdf_varrec* record, int block, int on) {
    if (record) record->modified = sdf_now_stamp();
    if (on)
        sdf_mark(s, block);
    else
        unmark(s, block);
}

int sdf_chain_growth(int need, int total, int cap) {
    int extra = total < cap ? total : cap;
    return need > extra ? need : extra;
}

int sdf_new_entry(sdfile* s) {
    sdf_chain_desc& bi = chain(s, SDF_CH_BLKINF);
    if (bi.free_count < kMinFreeEntries) {
        int rc = sdf_extend_blkinf_chain(s, 1);
        if (rc) return -sdf_error_chain("sdf_new_entry", rc, "sdf_extend_blkinf_chain");
    }
    int n = bi.free_a;
    if (!valid(s, n) || ent(s, n)->type != SDF_CH_FREE)
        return -sdf_error("sdf_new_entry", 4001, "The list of free block entries is broken.");
    unlink_free(s, n);
    owner_used(s, n, +1);
    return n;
}

void sdf_free_entry(sdfile* s, int block, int shrink) {
    if (!valid(s, block)) return;
    sdf_chain_desc& bi = chain(s, SDF_CH_BLKINF);
    sdf_blkent* e = ent(s, block);
    memset(e, 0, sizeof *e);
    e->next = valid(s, bi.free_a) ? bi.free_a : 0;
    if (e->next) set_prev(s, e->next, block);
    bi.free_a = block;
    bi.free_count++;
    unmark(s, block);
    owner_used(s, block, -1);
    if (shrink) shrink_table(s);
}

int sdf_extend_blkinf_chain(sdfile* s, int entries) {
    static const char* R = "sdf_extend_blkinf_chain";
    sdf_hdr* h = s->hdr;
    Blks* k = s->blks;
    sdf_chain_desc& bi = chain(s, SDF_CH_BLKINF);
    const int cs = h->chunk_size;
    int64_t chunks = bi.chunks < 1 ? 1 : bi.chunks > 4 ? 4 : bi.chunks;
    int64_t need = (static_cast<int64_t>(entries) * SDF_ENTRY_BYTES + cs - 1) / cs;
    if (chunks < need) chunks = need;
    const int64_t n = chunks * cs / SDF_ENTRY_BYTES;
    const int first = k->count;
    if (first + n > INT32_MAX / 2 || h->file_chunks + chunks > INT32_MAX)
        return sdf_error(R, 4001, "The block table cannot grow any further.");
    int rc = sdf_grow_blks(k, static_cast<int>(first + n));
    if (rc) return rc;
    auto* ents = static_cast<sdf_blkent*>(ZU_allocMem(chunks * cs, "sdf_extend_blkinf_chain:infoblock"));
    if (!ents) return sdf_error(R, 3025, "sdf_extend_blkinf_chain:infoblock");
    for (int64_t i = 0; i < n; i++) {
        k->rows[first + i].entry = &ents[i];
        k->rows[first + i].owner = 0;
    }
    k->count = static_cast<int32_t>(first + n);

    if (bi.head == 0) {  // the first table: entry 0 is the header, 1 is this block
        for (int64_t i = 2; i < n; i++) {
            ents[i].prev = i > 2 ? static_cast<int32_t>(i - 1) : 0;
            ents[i].next = i + 1 < n ? static_cast<int32_t>(i + 1) : 0;
        }
        bi.free_a = n > 2 ? 2 : 0;
        bi.free_count = static_cast<int32_t>(n - 2);
        h->blk1_start = 1;
        ents[1].start = 1;
        ents[1].chunks = static_cast<int32_t>(chunks);
        ents[1].type = SDF_CH_BLKINF;
        ents[1].used = 2;
        h->file_chunks += static_cast<int32_t>(chunks);
        h->blk1_len = static_cast<int32_t>(chunks);
        bi.head = bi.tail = 1;
        bi.chunks = static_cast<int32_t>(chunks);
        for (int64_t i = 0; i < n; i++) k->rows[i].owner = 1;
        k->rows[1].data = ents;
        k->rows[1].flags |= SDF_BLK_OWNED;
        sdf_mark(s, 1);
        return 0;
    }

    // The new entries join the end of the free list in a row; the block's
    // own chunks then come from the allocator, which may use one of them.
    for (int64_t i = 0; i < n; i++) {
        ents[i].prev = i > 0 ? static_cast<int32_t>(first + i - 1) : 0;
        ents[i].next = i + 1 < n ? static_cast<int32_t>(first + i + 1) : 0;
    }
    int last = valid(s, bi.free_a) ? bi.free_a : 0;
    for (int steps = 0; last && valid(s, ent(s, last)->next) && steps < first; steps++) last = ent(s, last)->next;
    if (last) {
        set_next(s, last, first);
        ents[0].prev = last;  // the new block is marked once it has its chunks
    } else {
        bi.free_a = first;
    }
    bi.free_count += static_cast<int32_t>(n);

    int at_end = 0;
    int b = sdf_alloc_block(s, static_cast<int>(chunks), &at_end);
    if (b < 0) return sdf_error_chain(R, -b, "sdf_alloc_block");
    int still_free = 0;
    for (int q = bi.free_a, steps = 0; valid(s, q) && steps < k->count; q = ent(s, q)->next, steps++)
        if (q >= first) still_free++;
    for (int64_t i = 0; i < n; i++) k->rows[first + i].owner = b;
    sdf_blkent* e = ent(s, b);
    e->type = SDF_CH_BLKINF;
    e->used = static_cast<int32_t>(n - still_free);
    e->prev = bi.tail;
    e->next = 0;
    if (valid(s, bi.tail)) set_next(s, bi.tail, b);
    bi.tail = b;
    bi.chunks += static_cast<int32_t>(chunks);
    k->rows[b].data = ents;
    k->rows[b].flags |= SDF_BLK_OWNED;
    sdf_mark(s, b);
    mark_owner(s, b);
    return 0;
}

int sdf_alloc_block(sdfile* s, int chunks, int* at_end) {
    static const char* R = "sdf_alloc_block";
    if (chunks < 1) return -sdf_error(R, 4001, "A block of no chunks was asked for.");
    sdf_chain_desc& un = chain(s, SDF_CH_UNUSED);
    int exact = 0, longer = 0;
    for (int b = un.head, steps = 0; valid(s, b) && steps < s->blks->count; b = ent(s, b)->next, steps++) {
        int c = ent(s, b)->chunks;
        if (c == chunks) {
            exact = b;
            break;
        }
        if (c > chunks && !longer) longer = b;
    }
    int found = exact ? exact : longer;
    sdf_blkent* e;
    if (found) {
        unlink_unused(s, found);
        e = ent(s, found);
        if (e->chunks > chunks) {
            int rest = sdf_new_entry(s);
            if (rest < 0) {
                int before, after;
                link_unused(s, found, &before, &after);
                un.chunks += e->chunks;
                return -sdf_error_chain(R, -rest, "sdf_new_entry");
            }
            sdf_blkent* r = ent(s, rest);
            r->start = e->start + chunks;
            r->chunks = e->chunks - chunks;
            r->type = -1;  // a block in use until it is handed back
            e->chunks = chunks;
            sdf_free_block(s, rest);
        }
        if (at_end) *at_end = 0;
    } else {
        if (static_cast<int64_t>(s->hdr->file_chunks) + chunks > INT32_MAX)
            return -sdf_error(R, 4001, "The file cannot grow beyond 2^31 chunks.");
        found = sdf_new_entry(s);
        if (found < 0) return -sdf_error_chain(R, -found, "sdf_new_entry");
        e = ent(s, found);
        e->start = s->hdr->file_chunks;
        e->chunks = chunks;
        s->hdr->file_chunks += chunks;
        if (at_end) *at_end = 1;
    }
    e->type = e->next = e->prev = e->used = 0;
    e->largest_free = e->first_free = 0;
    mark_owner(s, found);
    return found;
}

int sdf_free_block(sdfile* s, int block) {
    static const char* R = "sdf_free_block";
    if (!valid(s, block) || block == 1 || ent(s, block)->type == SDF_CH_UNUSED ||
        ent(s, block)->type == SDF_CH_FREE)
        return sdf_error(R, 4001, "Block to free is not in use.");
    sdf_chain_desc& un = chain(s, SDF_CH_UNUSED);
    drop_data(s, block);
    sdf_blkent* e = ent(s, block);
    // Cached bytes of a freed data block are stale: dropped unwritten.
    if (e->type < 0) sdf_cache_empty_range(s, e->start, e->start + e->chunks - 1);
    e->next = e->prev = e->used = e->largest_free = e->first_free = 0;
    e->type = SDF_CH_UNUSED;
    un.chunks += e->chunks;
    int p, q;
    link_unused(s, block, &p, &q);
    int cur = block;
    if (p && ent(s, p)->start + ent(s, p)->chunks == e->start) {
        sdf_blkent* pe = ent(s, p);
        pe->chunks += e->chunks;
        set_next(s, p, q);
        if (q)
            set_prev(s, q, p);
        else
            un.tail = p;
        sdf_free_entry(s, block, 0);
        cur = p;
    }
    sdf_blkent* c = ent(s, cur);
    q = c->next;
    if (valid(s, q) && c->start + c->chunks == ent(s, q)->start) {
        c->chunks += ent(s, q)->chunks;
        set_next(s, cur, ent(s, q)->next);
        if (valid(s, c->next))
            set_prev(s, c->next, cur);
        else
            un.tail = cur;
        sdf_free_entry(s, q, 0);
    }
    unmark(s, cur);  // its content no longer matters
    mark_owner(s, cur);
    return 0;
}

int sdf_free_chain(sdfile* s, int first) {
    for (int b = first, steps = 0; b != 0; steps++) {
        if (!valid(s, b) || ent(s, b)->type >= 0 || steps >= s->blks->count)
            return sdf_error("sdf_free_chain", 3051, s->name, "is corrupt: broken data chain.");
        int next = ent(s, b)->next;
        int rc = sdf_free_block(s, b);
        if (rc) return sdf_error_chain("sdf_free_chain", rc, "sdf_free_block");
        b = next;
    }
    return 0;
}

int sdf_trim_unused(sdfile* s) {
    sdf_chain_desc& un = chain(s, SDF_CH_UNUSED);
    int did = 0;
    for (int steps = 0; valid(s, un.tail) && steps < s->blks->count; steps++) {
        int t = un.tail;
        sdf_blkent* e = ent(s, t);
        if (e->start + e->chunks != s->hdr->file_chunks) break;
        unlink_unused(s, t);
        s->hdr->file_chunks -= e->chunks;
        sdf_free_entry(s, t, 1);
        did = 1;
    }
    return did;
}

}  // extern "C"

extern "C" int sdf_chain_prev(sdfile* s, int chain, int b) {
    const sdf_chain_desc& d = s->hdr->chain[chain - 1];
    const int count = s->blks ? s->blks->count : 0;
    int prev = 0;
    for (int c = d.head, steps = 0; c > 0 && c < count && s->blks->rows[c].entry && steps < count;
         steps++) {
        if (c == b) return prev;
        if (c == d.tail) break;
        prev = c;
        c = s->blks->rows[c].entry->next;
    }
    return -1;
}

extern "C" int sdf_chain_release(sdfile* s, int chain, int b, int prev, const char* routine) {
    sdf_chain_desc& d = s->hdr->chain[chain - 1];
    Blentry* rows = s->blks->rows;
    sdf_blkent* e = rows[b].entry;
    const int next = (e->next > 0 && e->next < s->blks->count && rows[e->next].entry) ? e->next : 0;
    d.chunks -= e->chunks;
    if (prev) {
        rows[prev].entry->next = next;
        sdf_mark(s, rows[prev].owner);
    } else {
        d.head = next;
    }
    if (next) {
        rows[next].entry->prev = prev;
        sdf_mark(s, rows[next].owner);
    } else {
        d.tail = prev;
    }
    Blentry& row = rows[b];
    if (row.flags & SDF_BLK_OWNED) ZU_freeMem(row.data);
    row.data = nullptr;
    row.flags &= ~SDF_BLK_OWNED;
    sdf_touch(s, nullptr, b, 0);
    sdf_mark(s, row.owner);
    const int rc = sdf_free_block(s, b);
    return rc ? sdf_error_chain(routine, rc, "sdf_free_block") : 0;
}
