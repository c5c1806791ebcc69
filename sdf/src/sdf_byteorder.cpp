// Byte-order conversion of blocks between a file's order and the machine's.
//
// The conversion is part of the format: it works in 4-byte words, by block
// type, and can be applied to a block in pieces. A piece is named by the
// index of its first word in the block (`word0`); pieces of a varinf block
// start on a record boundary (64 bytes), pieces of a data block on an element
// boundary. Reversal is its own inverse, so one routine serves both ways; the
// direction matters only where a word decides what comes next (a record's
// type, a slot's size, a free slot's link), which must be read in native order.
// Buffers may be unaligned: every word goes through memcpy.
#include <string.h>

#include "sdf_inner.h"

namespace {

uint32_t load32(const unsigned char* p) {
    uint32_t v;
    memcpy(&v, p, 4);
    return v;
}

void store32(unsigned char* p, uint32_t v) { memcpy(p, &v, 4); }

// Reverses word i of buf and returns its native value.
uint32_t swap_word(unsigned char* buf, int64_t i, bool to_native) {
    uint32_t raw = load32(buf + 4 * i);
    uint32_t rev = __builtin_bswap32(raw);
    store32(buf + 4 * i, rev);
    return to_native ? rev : raw;
}

void swap_words(unsigned char* buf, int64_t words) {
    for (int64_t i = 0; i < words; i++) swap_word(buf, i, true);
}

void swap_pair(unsigned char* buf, int64_t i) {
    uint32_t a = load32(buf + 4 * i);
    store32(buf + 4 * i, load32(buf + 4 * (i + 1)));
    store32(buf + 4 * (i + 1), a);
}

// Variable records: every word, then the two halves of each 8-byte DBLE
// value (and both of a DCMPX) change places so they come out as whole
// 8-byte reversals. An INT64 value and the time stay low word first.
void swap_records(unsigned char* buf, int64_t words, int64_t word0, bool to_native) {
    constexpr int kRecWords = SDF_RECORD_BYTES / SDF_WORD;
    int64_t i = 0;
    // A piece that starts inside a record (callers avoid it) gets plain words.
    int64_t lead = (kRecWords - word0 % kRecWords) % kRecWords;
    for (; i < lead && i < words; i++) swap_word(buf, i, to_native);
    for (; i + kRecWords <= words; i += kRecWords) {
        unsigned char* rec = buf + 4 * i;
        int32_t type = static_cast<int32_t>(swap_word(rec, 6, to_native));
        for (int k = 0; k < kRecWords; k++)
            if (k != 6) swap_word(rec, k, to_native);
        if (type == SDF_DBLE_T || type == SDF_DCMPX_T) swap_pair(rec, 8);
        if (type == SDF_DCMPX_T) swap_pair(rec, 10);
    }
    for (; i < words; i++) swap_word(buf, i, to_native);
}

void swap_elements(unsigned char* buf, int64_t bytes, int width) {
    if (width == 4) {
        for (int64_t i = 0; i + 4 <= bytes; i += 4) store32(buf + i, __builtin_bswap32(load32(buf + i)));
    } else if (width == 8) {
        for (int64_t i = 0; i + 8 <= bytes; i += 8) {
            uint64_t v;
            memcpy(&v, buf + i, 8);
            v = __builtin_bswap64(v);
            memcpy(buf + i, &v, 8);
        }
    }
}

}  // namespace

extern "C" {

void sdf_slot_walk_start(sdf_slot_walk* w, const sdf_blkent* entry) {
    w->next_slot = 0;
    w->link = -1;
    // A first free of 0 means "a free slot at word 0" only while the block
    // has a largest free slot at all; 0 also ends the list.
    if (entry && (entry->first_free != 0 || entry->largest_free != 0))
        w->next_free = entry->first_free;
    else
        w->next_free = -1;
}

void sdf_swap_slots(void* vbuf, int64_t bytes, int64_t word0, sdf_slot_walk* w, int to_native) {
    auto* buf = static_cast<unsigned char*>(vbuf);
    const int64_t end = word0 + bytes / SDF_WORD;
    for (;;) {
        if (w->link >= 0) {
            if (w->link >= end) return;
            if (w->link >= word0) {
                int32_t next = static_cast<int32_t>(swap_word(buf, w->link - word0, to_native));
                // The list ascends; a link that doesn't is damage, and ends it.
                w->next_free = (next > w->link) ? next : -1;
            }
            w->link = -1;
        }
        if (w->next_slot >= end) return;
        if (w->next_slot < word0) {  // pieces handed out of order: stop the walk
            w->next_slot = INT64_MAX;
            return;
        }
        int64_t at = w->next_slot;
        int32_t size = static_cast<int32_t>(swap_word(buf, at - word0, to_native));
        if (size < 2) {  // a damaged block: convert no further
            w->next_slot = INT64_MAX;
            return;
        }
        if (at == w->next_free) w->link = at + 1;
        w->next_slot = at + size;
    }
}

void sdf_swap_block(void* vbuf, int type, int64_t bytes, const sdf_blkent* entry, int64_t word0,
                    int to_native) {
    auto* buf = static_cast<unsigned char*>(vbuf);
    if (bytes <= 0) return;
    int64_t words = bytes / SDF_WORD;
    switch (type) {
    case 0: {  // header: the 16-byte magic stays as it is
        int64_t skip = word0 < 4 ? 4 - word0 : 0;
        if (skip < words) swap_words(buf + 4 * skip, words - skip);
        break;
    }
    case SDF_CH_BLKINF:
    case SDF_CH_ARRDIM:
        swap_words(buf, words);
        break;
    case SDF_CH_VARINF:
        swap_records(buf, words, word0, to_native != 0);
        break;
    case SDF_CH_VARNAM:
    case SDF_CH_CHRVAR: {
        if (word0 != 0) return;  // later pieces need the walk: sdf_swap_slots
        sdf_slot_walk w;
        sdf_slot_walk_start(&w, entry);
        sdf_swap_slots(buf, bytes, 0, &w, to_native);
        break;
    }
    case -4:
    case -8:
        swap_elements(buf, bytes, -type);
        break;
    default:  // unused chunks, width-1 data, free entries: nothing
        break;
    }
}

void sdf_swap_header(sdf_hdr* h) { sdf_swap_block(h, 0, SDF_HDR_BYTES, nullptr, 0, 1); }

}  // extern "C"
