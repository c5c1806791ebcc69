// The slot allocator of the varnam, arrdim and chrvar chains, and the 64
// buffers in which chrvar blocks of a file come and go.
//
// Invariants kept in every slot block: the slots tile the block from word 0,
// each size word at least 2; the free slots are linked in ascending order of
// index from the entry's first free, touching free slots are merged, and
// largest free is the largest size on that list, 0 when first free is 0 (a
// brand-new block, one free slot of the whole block, is the one exception).
// varnam and arrdim blocks, and every block of an internal file, own a
// buffer for as long as the file is open; a chrvar block of a file is in
// memory only with a row of the LRU table, and a modified one is committed
// before its buffer goes. Slot contents come from files, so every index and
// size word is checked against its block before it is used.
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "sdf_inner.h"

namespace {

constexpr int kMaxRequestWords = 1 << 28;

int chain_of(int chain_type) { return chain_type == SDF_CH_ARRDIM32 ? SDF_CH_ARRDIM : chain_type; }

sdf_chain_desc& desc(sdfile* s, int chain) { return s->hdr->chain[chain - 1]; }

bool in_table(const sdfile* s, int b) {
    return s->blks && b > 0 && b < s->blks->count && s->blks->rows[b].entry;
}

sdf_blkent* ent(sdfile* s, int b) { return s->blks->rows[b].entry; }

void mark_owner(sdfile* s, int b) { sdf_mark(s, s->blks->rows[b].owner); }

// Words of a block, or 0 when its size can't be a slot block.
int block_words(const sdfile* s, const sdf_blkent* e) {
    int64_t w = static_cast<int64_t>(e->chunks) * s->hdr->chunk_size / SDF_WORD;
    return (w < 2 || w > INT32_MAX / 2) ? 0 : static_cast<int>(w);
}

bool uses_lru(const sdfile* s, int chain) { return chain == SDF_CH_CHRVAR && !s->internal; }

int no_memory(const char* routine) {
    return sdf_error(routine, 4001, "Out of memory for a slot block.");
}

// ------------------------------------------------------------ LRU rows

void lru_init(sdf_slot_lru* l) {
    if (l->initialised) return;
    memset(l, 0, sizeof *l);
    for (int r = 1; r <= SDF_LRU_ROWS; r++) l->rows[r].next = r < SDF_LRU_ROWS ? r + 1 : 0;
    l->free_row = 1;
    l->initialised = 1;
}

void lru_unlink(sdf_slot_lru* l, int r) {
    sdf_lru_row& row = l->rows[r];
    if (row.prev) l->rows[row.prev].next = row.next; else l->head = row.next;
    if (row.next) l->rows[row.next].prev = row.prev; else l->tail = row.prev;
    row.next = row.prev = 0;
}

void lru_push_tail(sdf_slot_lru* l, int r) {
    l->rows[r].prev = l->tail;
    l->rows[r].next = 0;
    if (l->tail) l->rows[l->tail].next = r; else l->head = r;
    l->tail = r;
}

// A chrvar block that is looked up becomes the most recently used.
void lru_touch(sdfile* s, int b) {
    int r = s->blks->rows[b].slot_row;
    if (r < 1 || r > SDF_LRU_ROWS || s->lru.tail == r) return;
    lru_unlink(&s->lru, r);
    lru_push_tail(&s->lru, r);
}

// Frees the buffer of LRU row r and puts the row back on the free list.
void lru_release(sdfile* s, int r) {
    sdf_slot_lru* l = &s->lru;
    int b = l->rows[r].block;
    if (in_table(s, b) && s->blks->rows[b].slot_row == r) {
        Blentry& row = s->blks->rows[b];
        ZU_freeMem(row.data);
        row.data = nullptr;
        row.flags &= ~SDF_BLK_OWNED;
        row.slot_row = 0;
    }
    lru_unlink(l, r);
    l->rows[r] = sdf_lru_row{l->free_row, 0, 0, 0};
    l->free_row = r;
}

// The channel through which a forced commit runs: the caller's when it may
// write, else the file's writer.
fcb* commit_channel(sdfile* s, fcb* via) {
    if (via && via->writable && via->file == s) return via;
    return s->writer;
}

int evict(sdfile* s, fcb* via) {
    static const char* R = "sdf_free_lru_slotblock";
    lru_init(&s->lru);
    int r = s->lru.head;
    if (!r) return 0;
    int b = s->lru.rows[r].block;
    if (in_table(s, b) && (s->blks->rows[b].flags & SDF_BLK_MODIFIED)) {
        if (fcb* w = commit_channel(s, via)) {
            int rc = sdf_write_modified_blocks(w);
            if (rc) return sdf_error_chain(R, rc, "sdf_write_modified_blocks");
        } else {
            sdf_touch(s, nullptr, b, 0);  // nobody can write it: nothing to keep
        }
    }
    lru_release(s, r);
    return 0;
}

int alloc_slotblock(sdfile* s, int b, fcb* via) {
    static const char* R = "sdf_alloc_slotblock";
    if (!in_table(s, b)) return sdf_error(R, 4001, "Slot block out of range.");
    lru_init(&s->lru);
    sdf_slot_lru* l = &s->lru;
    if (s->blks->rows[b].data) {
        lru_touch(s, b);
        return 0;
    }
    while (!l->free_row && l->head) {
        int rc = evict(s, via);
        if (rc) return sdf_error_chain(R, rc, "sdf_free_lru_slotblock");
    }
    int64_t bytes = static_cast<int64_t>(ent(s, b)->chunks) * s->hdr->chunk_size;
    if (bytes <= 0 || bytes > INT32_MAX) return sdf_corrupt(R, s, "bad size of block %d.", b);
    void* buf = ZU_allocMem(static_cast<size_t>(bytes), "sdf_alloc_slotblock:block");
    if (!buf) return no_memory(R);
    int r = l->free_row;
    l->free_row = l->rows[r].next;
    lru_push_tail(l, r);
    l->rows[r].block = b;
    l->rows[r].chunks = ent(s, b)->chunks;
    Blentry& row = s->blks->rows[b];
    row.data = buf;
    row.flags |= SDF_BLK_OWNED;
    row.slot_row = r;
    return 0;
}

int read_slotblock(fcb* f, int b) {
    static const char* R = "sdf_read_slotblock";
    sdfile* s = f->file;
    if (!in_table(s, b) || ent(s, b)->type != SDF_CH_CHRVAR)
        return sdf_corrupt(R, s, "character slot block %d out of range.", b);
    if (s->blks->rows[b].data) {
        lru_touch(s, b);
        return 0;
    }
    int rc = alloc_slotblock(s, b, f);
    if (rc) return sdf_error_chain(R, rc, "sdf_alloc_slotblock");
    rc = sdf_read_block(s->blks->rows[b].data, f, b, 0, 0);
    if (rc) {
        lru_release(s, s->blks->rows[b].slot_row);
        return sdf_error_chain(R, rc, "sdf_read_block");
    }
    return 0;
}

// Makes block b of a chain addressable: loads a chrvar block of a file or
// moves it to the tail of the LRU list; other blocks must be in memory.
int ensure_loaded(fcb* f, int chain, int b, const char* routine) {
    sdfile* s = f->file;
    if (uses_lru(s, chain)) {
        int rc = read_slotblock(f, b);
        return rc ? sdf_error_chain(routine, rc, "sdf_read_slotblock") : 0;
    }
    if (!s->blks->rows[b].data) return sdf_corrupt(routine, s, "slot block %d not in memory.", b);
    return 0;
}

// Largest size on the free list; 0 when first free is 0. A link that leaves
// the block or goes backwards ends the walk.
int largest_free(const int32_t* w, int words, int first) {
    int best = 0;
    for (int i = first, steps = 0; i > 0 && i <= words - 2 && steps < words; steps++) {
        int sz = w[i];
        if (sz < 2 || sz > words - i) break;
        if (sz > best) best = sz;
        int next = w[i + 1];
        if (next <= i) break;
        i = next;
    }
    return best;
}

// The first block of the chain whose largest free holds `need`: 0 when none,
// a negative code when the chain is broken.
int find_room(sdfile* s, int chain, int need, const char* routine) {
    sdf_chain_desc& d = desc(s, chain);
    for (int b = d.head, steps = 0; b; steps++) {
        if (!in_table(s, b) || ent(s, b)->type != chain || steps >= s->blks->count)
            return -sdf_corrupt(routine, s, "slot chain %d broken at block %d.", chain, b);
        if (ent(s, b)->largest_free >= need) return b;
        if (b == d.tail) break;
        b = ent(s, b)->next;
    }
    return 0;
}

// Adds a block big enough for `need` words at the end of the chain, holding
// one free slot; returns it or a negative code.
int add_block(fcb* f, int chain, int need) {
    static const char* R = "sdf_get_slot";
    sdfile* s = f->file;
    int cw = s->hdr->chunk_size / SDF_WORD;
    if (cw < 2) return -sdf_corrupt(R, s, "bad chunk size %d.", s->hdr->chunk_size);
    sdf_chain_desc& d = desc(s, chain);
    int c = sdf_chain_growth(need / cw + 1, d.chunks, sdf_opt_int(f, SDF_OPT_MAX_EXTRA_SLOT_CHUNKS));
    bool lru = uses_lru(s, chain);
    if (lru) {  // room for the buffer first, so no commit sees a half-made block
        lru_init(&s->lru);
        if (!s->lru.free_row) {
            int rc = evict(s, f);
            if (rc) return -sdf_error_chain(R, rc, "sdf_free_lru_slotblock");
        }
    }
    void* buf = nullptr;
    if (!lru) {
        buf = ZU_allocMem(static_cast<size_t>(c) * s->hdr->chunk_size, "sdf_get_slot:slotblock");
        if (!buf) return -no_memory(R);
    }
    int at_end = 0;
    int b = sdf_alloc_block(s, c, &at_end);
    if (b < 0) {
        ZU_freeMem(buf);
        return -sdf_error_chain(R, -b, "sdf_alloc_block");
    }
    if (lru) {
        int rc = alloc_slotblock(s, b, f);
        if (rc) {
            sdf_free_block(s, b);
            return -sdf_error_chain(R, rc, "sdf_alloc_slotblock");
        }
    } else {
        s->blks->rows[b].data = buf;
        s->blks->rows[b].flags |= SDF_BLK_OWNED;
    }
    int tail = d.tail;
    if (in_table(s, tail)) {
        ent(s, tail)->next = b;
        mark_owner(s, tail);
    } else {
        tail = 0;
        d.head = b;
    }
    sdf_blkent* e = ent(s, b);
    e->prev = tail;
    e->next = 0;
    e->type = chain;
    e->used = 0;
    e->largest_free = c * cw;
    e->first_free = 0;
    d.tail = b;
    d.chunks += c;
    int32_t* w = static_cast<int32_t*>(s->blks->rows[b].data);
    w[0] = c * cw;
    w[1] = 0;
    sdf_mark(s, b);
    mark_owner(s, b);
    return b;
}

// First fit in block b: takes a slot of at least `need` words, splitting
// off the rest when more than 2 words would be left over.
void* take_slot(sdfile* s, int b, int need, sdf_slotref* ref, int* err) {
    static const char* R = "sdf_get_slot";
    sdf_blkent* e = ent(s, b);
    int32_t* w = static_cast<int32_t*>(s->blks->rows[b].data);
    int words = block_words(s, e);
    int prev = -1, idx = e->first_free;
    for (int steps = 0;; steps++) {
        if (idx < 0 || idx > words - 2 || w[idx] < 2 || w[idx] > words - idx || idx <= prev ||
            steps > words) {
            *err = sdf_corrupt(R, s, "bad free slot list in block %d.", b);
            return nullptr;
        }
        if (w[idx] >= need) break;
        if (w[idx + 1] == 0) {
            *err = sdf_bug(R, "sdf_get_slot: - expected slot not found in block %d\n", b);
            return nullptr;
        }
        prev = idx;
        idx = w[idx + 1];
    }
    int size = w[idx], link = w[idx + 1];
    if (size > need + 2) {
        int rest = idx + need;
        w[rest] = size - need;
        w[rest + 1] = link;
        w[idx] = need;
        link = rest;
    }
    if (prev < 0) e->first_free = link; else w[prev + 1] = link;
    // Only the taking of the largest slot can lower the largest free.
    if (e->first_free == 0)
        e->largest_free = 0;
    else if (size >= e->largest_free)
        e->largest_free = largest_free(w, words, e->first_free);
    e->used++;
    sdf_mark(s, b);
    mark_owner(s, b);
    ref->block = b;
    ref->index = idx;
    return w + idx + 1;
}

void* alloc_slot(fcb* f, int chain_type, int n, sdf_slotref* ref, int* err) {
    static const char* R = "sdf_get_slot";
    sdfile* s = f->file;
    int64_t payload = chain_type == SDF_CH_ARRDIM ? 2 * static_cast<int64_t>(n)
                      : chain_type == SDF_CH_ARRDIM32 ? n
                      : (static_cast<int64_t>(n) + 4) / 4;
    if (payload >= kMaxRequestWords) {
        *err = sdf_error(R, 4001, "Slot request too large.");
        return nullptr;
    }
    int need = payload + 1 < 2 ? 2 : static_cast<int>(payload + 1);
    int chain = chain_of(chain_type);
    int b = find_room(s, chain, need, R);
    if (b > 0) {
        int rc = ensure_loaded(f, chain, b, R);
        if (rc) b = -rc;
    } else if (b == 0) {
        b = add_block(f, chain, need);
    }
    if (b < 0) {
        *err = -b;
        return nullptr;
    }
    if (block_words(s, ent(s, b)) == 0) {
        *err = sdf_corrupt(R, s, "bad size of block %d.", b);
        return nullptr;
    }
    return take_slot(s, b, need, ref, err);
}

// The payload of a slot as it stands, checked against its block.
void* slot_payload(fcb* f, int chain_type, sdf_slotref* ref, int* err) {
    static const char* R = "sdf_get_slot";
    sdfile* s = f->file;
    int b = ref->block, chain = chain_of(chain_type);
    if (b == 0) return nullptr;
    if (!in_table(s, b) || ent(s, b)->type != chain) {
        *err = sdf_corrupt(R, s, "slot reference %d,%d out of range.", b, ref->index);
        return nullptr;
    }
    int rc = ensure_loaded(f, chain, b, R);
    if (rc) {
        *err = rc;
        return nullptr;
    }
    int words = block_words(s, ent(s, b));
    const int32_t* w = static_cast<const int32_t*>(s->blks->rows[b].data);
    int i = ref->index;
    bool ok = words > 0 && i >= 0 && i <= words - 2 && w[i] >= 2 && w[i] <= words - i;
    if (ok && (chain == SDF_CH_VARNAM || chain == SDF_CH_CHRVAR))
        ok = memchr(w + i + 1, 0, static_cast<size_t>(w[i] - 1) * SDF_WORD) != nullptr;
    if (!ok) {
        *err = sdf_corrupt(R, s, "bad slot %d,%d.", b, i);
        return nullptr;
    }
    return s->blks->rows[b].data ? static_cast<int32_t*>(s->blks->rows[b].data) + i + 1 : nullptr;
}

// The block has no slot left: out of the chain and back to the unused runs.
int release_block(sdfile* s, int chain, int b, int prev) {
    Blentry& row = s->blks->rows[b];
    if (row.slot_row) lru_release(s, row.slot_row);
    return sdf_chain_release(s, chain, b, prev, "sdf_free_slot");
}

// Puts slot idx of `size` words on the free list of block b, merging it
// with touching neighbours.
int link_free(sdfile* s, int b, int idx, int size) {
    static const char* R = "sdf_free_slot";
    sdf_blkent* e = ent(s, b);
    int32_t* w = static_cast<int32_t*>(s->blks->rows[b].data);
    int words = block_words(s, e);
    int pred = -1, succ = 0;
    if (e->largest_free != 0) {
        for (int cur = e->first_free, steps = 0;; steps++) {
            if (cur < 0 || cur > words - 2 || w[cur] < 2 || w[cur] > words - cur || cur <= pred ||
                steps > words || cur == idx)
                return sdf_corrupt(R, s, "bad free slot list in block %d.", b);
            if (cur > idx) {
                succ = cur;
                break;
            }
            pred = cur;
            if (w[cur + 1] == 0) break;
            cur = w[cur + 1];
        }
    }
    if ((pred >= 0 && pred + w[pred] > idx) || (succ && idx + size > succ))
        return sdf_corrupt(R, s, "slot %d,%d overlaps a free slot.", b, idx);
    int cur = idx;
    if (pred >= 0 && pred + w[pred] == idx) {
        w[pred] += size;
        cur = pred;
    } else if (pred >= 0) {
        w[idx + 1] = w[pred + 1];
        w[pred + 1] = idx;
    } else {
        w[idx + 1] = succ;
        e->first_free = idx;
    }
    int next = w[cur + 1];
    if (next && cur + w[cur] == next) {
        w[cur] += w[next];
        w[cur + 1] = w[next + 1];
    }
    // A free only merges, so the new largest is the old one or the slot
    // just made; a first free of 0 reads as an empty list.
    if (e->first_free == 0)
        e->largest_free = 0;
    else if (w[cur] > e->largest_free)
        e->largest_free = w[cur];
    return 0;
}

}  // namespace

extern "C" {

void* sdf_get_slot(fcb* f, int chain_type, int n, sdf_slotref* ref, int* err) {
    static const char* R = "sdf_get_slot";
    int dummy;
    if (!err) err = &dummy;
    *err = 0;
    if (chain_type < SDF_CH_VARNAM || chain_type > SDF_CH_ARRDIM32) {
        *err = sdf_error(R, 4001, "Invalid value for chain_type.");
        return nullptr;
    }
    if (!f || !f->file || !f->file->hdr || !f->file->blks || !ref || n < 0) {
        *err = sdf_error(R, 4001, "Invalid slot request.");
        return nullptr;
    }
    return n == 0 ? slot_payload(f, chain_type, ref, err) : alloc_slot(f, chain_type, n, ref, err);
}

int sdf_free_slot(fcb* f, int chain_type, sdf_slotref* ref) {
    static const char* R = "sdf_free_slot";
    if (chain_type < SDF_CH_VARNAM || chain_type > SDF_CH_CHRVAR)
        return sdf_error(R, 4001, "Invalid value for chain_type.");
    if (!ref || ref->block == 0) return 0;
    if (!f || !f->file || !f->file->blks) return sdf_error(R, 4001, "Invalid slot request.");
    sdfile* s = f->file;
    int b = ref->block;
    int prev = sdf_chain_prev(s, chain_type, b);
    if (prev < 0) return sdf_bug(R, "sdf_free_slot: block %d is not in chain.\n", b);
    int rc = ensure_loaded(f, chain_type, b, R);
    if (rc) return rc;
    sdf_blkent* e = ent(s, b);
    const int32_t* w = static_cast<const int32_t*>(s->blks->rows[b].data);
    int words = block_words(s, e), i = ref->index;
    if (words == 0 || i < 0 || i > words - 2 || w[i] < 2 || w[i] > words - i || e->used < 1)
        return sdf_corrupt(R, s, "bad slot %d,%d.", b, i);
    rc = link_free(s, b, i, w[i]);
    if (rc) return rc;
    ref->block = ref->index = 0;
    if (--e->used > 0) {
        sdf_mark(s, b);
        mark_owner(s, b);
        return 0;
    }
    return release_block(s, chain_type, b, prev);
}

int sdf_read_slotblock(fcb* f, int block) { return read_slotblock(f, block); }

int sdf_alloc_slotblock(sdfile* s, int block) { return alloc_slotblock(s, block, nullptr); }

int sdf_free_lru_slotblock(sdfile* s) { return evict(s, nullptr); }

void sdf_drop_slotblocks(sdfile* s) {
    if (!s) return;
    sdf_slot_lru* l = &s->lru;
    if (l->initialised && s->blks) {
        for (int r = l->head, steps = 0; r && steps < SDF_LRU_ROWS; steps++) {
            int next = l->rows[r].next;
            int b = l->rows[r].block;
            if (in_table(s, b) && s->blks->rows[b].slot_row == r) sdf_touch(s, nullptr, b, 0);
            lru_release(s, r);
            r = next;
        }
    }
    memset(l, 0, sizeof *l);
}

}  // extern "C"
