// Open time for the variable table: the varnam, varinf and arrdim chains
// come into memory, every record and slot they reach is checked, and a file
// of an older version gets its dimensions upgraded in memory; the opposite
// step for a close with "DOWNGRADE".
//
// Everything here comes from a file, so nothing read is used before it was
// checked: slot blocks must tile from word 0, a name or dimension reference
// must name the start of a used slot of a block of its chain, no slot may be
// claimed twice, and no block may hold more live slots or records than its
// used count says (else a later delete would free a block still in use).
// A failed check is 3051 "is corrupt: ...", and the open fails.
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <unordered_map>
#include <vector>

#include "sdf_inner.h"

namespace {

// Per slot block: state of each word (0 inside a slot, 1 used slot start,
// 2 free slot start, 3 a used slot claimed by a record) and the claims.
struct SlotMap {
    std::vector<uint8_t> word;
    int claims = 0;
};
using SlotMaps = std::unordered_map<int, SlotMap>;

enum { kInside = 0, kUsed = 1, kFree = 2, kClaimed = 3 };

bool in_table(const sdfile* s, int b) {
    return s->blks && b > 0 && b < s->blks->count && s->blks->rows[b].entry;
}

sdf_blkent* ent(sdfile* s, int b) { return s->blks->rows[b].entry; }

const char* chain_name(int chain) {
    static const char* const names[] = {"", "blkinf", "unused", "varinf", "varnam", "arrdim", "chrvar"};
    return chain >= 0 && chain <= SDF_CH_CHRVAR ? names[chain] : "";
}

// Walks the size words and the free list of a slot block into a map; false
// when they don't fit the block.
bool map_slots(const int32_t* w, int64_t words, const sdf_blkent* e, SlotMap* m) {
    m->word.assign(static_cast<size_t>(words), kInside);
    for (int64_t i = 0; i < words;) {
        if (w[i] < 2 || w[i] > words - i) return false;
        m->word[i] = kUsed;
        i += w[i];
    }
    if (e->largest_free == 0) return true;  // the list counts as empty
    int64_t prev = -1;
    for (int64_t i = e->first_free, steps = 0;; steps++) {
        if (i < 0 || i >= words || i <= prev || m->word[i] != kUsed || steps > words) return false;
        m->word[i] = kFree;
        if (w[i + 1] == 0) return true;
        prev = i;
        i = w[i + 1];
    }
}

// Loads every block of a chain that isn't in memory into a buffer of its
// own; with maps, checks each as a slot block.
int load_chain(fcb* f, int chain, const char* tag, const char* routine, SlotMaps* maps) {
    sdfile* s = f->file;
    sdf_chain_desc& d = s->hdr->chain[chain - 1];
    for (int b = d.head, steps = 0; b; steps++) {
        if (!in_table(s, b) || ent(s, b)->type != chain || steps >= s->blks->count)
            return sdf_corrupt(routine, s, "%s chain broken at block %d.", chain_name(chain), b);
        Blentry& row = s->blks->rows[b];
        int64_t bytes = static_cast<int64_t>(row.entry->chunks) * s->hdr->chunk_size;
        if (bytes < SDF_RECORD_BYTES || bytes > INT32_MAX)
            return sdf_corrupt(routine, s, "bad size of block %d.", b);
        if (!row.data) {
            void* buf = ZU_allocMem(static_cast<size_t>(bytes), tag);
            if (!buf) return sdf_error(routine, 4001, "Out of memory for the variable table.");
            int rc = sdf_read_block(buf, f, b, 0, 0);
            if (rc) {
                ZU_freeMem(buf);
                return sdf_error_chain(routine, rc, "sdf_read_block");
            }
            row.data = buf;
            row.flags |= SDF_BLK_OWNED;
        }
        if (maps && !map_slots(static_cast<const int32_t*>(s->blks->rows[b].data), bytes / SDF_WORD,
                               ent(s, b), &(*maps)[b]))
            return sdf_corrupt(routine, s, "bad slots in block %d.", b);
        if (b == d.tail) break;
        b = ent(s, b)->next;
    }
    return 0;
}

// The used slot that ref names, claimed for one record: its payload and
// payload words, or null when the reference doesn't name such a slot.
const int32_t* claim(sdfile* s, SlotMaps& maps, sdf_slotref ref, int* payload) {
    auto it = maps.find(ref.block);
    if (it == maps.end()) return nullptr;
    SlotMap& m = it->second;
    int64_t i = ref.index;
    if (i < 0 || i >= static_cast<int64_t>(m.word.size()) || m.word[i] != kUsed ||
        m.claims >= ent(s, ref.block)->used)
        return nullptr;
    m.word[i] = kClaimed;
    m.claims++;
    const int32_t* w = static_cast<const int32_t*>(s->blks->rows[ref.block].data) + i;
    *payload = w[0] - 1;
    return w + 1;
}

bool valid_type(int type) { return type > 0 && type < 200 && sdf_valid_base(type % 100); }

// The three checks of a record, in their order, then its name slot.
int check_record(sdfile* s, SlotMaps& maps, const sdf_varrec* r, int varno) {
    static const char* R = "sdf_read_varinf";
    if (!valid_type(r->type))
        return sdf_corrupt(R, s, "illegal type %d for variable %d.", r->type, varno);
    if (r->name.block < 2 || r->name.block >= s->blks->count)
        return sdf_corrupt(R, s, "name block out of range at variable %d.", varno);
    int64_t m = r->modified;
    if (m != 0 && (m < SDF_MIN_STAMP || m - SDF_STAMP_SLACK > s->hdr->modified))
        return sdf_corrupt(R, s, " timestamp out of range at variable %d.", varno);
    int words = 0;
    const int32_t* p = claim(s, maps, r->name, &words);
    if (!p || !memchr(p, 0, static_cast<size_t>(words) * SDF_WORD))
        return sdf_corrupt(R, s, "bad name slot at variable %d.", varno);
    return 0;
}

int add_records(fcb* f, SlotMaps& maps) {
    static const char* R = "sdf_read_varinf";
    sdfile* s = f->file;
    vars* v = s->vars;
    sdf_chain_desc& d = s->hdr->chain[SDF_CH_VARINF - 1];
    for (int b = d.head, steps = 0; b; steps++) {
        sdf_blkent* e = ent(s, b);  // the chain was walked and checked by load_chain
        int n = static_cast<int>(static_cast<int64_t>(e->chunks) * s->hdr->chunk_size / SDF_RECORD_BYTES);
        auto* r = static_cast<sdf_varrec*>(s->blks->rows[b].data);
        int live = 0;
        for (int k = 0; k < n; k++) {
            if (r[k].type == 0) continue;
            int rc = check_record(s, maps, &r[k], v->count);
            if (rc) return rc;
            if (v->count == v->capacity || ++live > e->used)
                return sdf_corrupt(R, s, "more records in use than counted in block %d.", b);
            int id = v->key[v->count++];
            v->rows[id] = ventry{reinterpret_cast<char*>(
                                     static_cast<int32_t*>(s->blks->rows[r[k].name.block].data) +
                                     r[k].name.index + 1),
                                 &r[k], b};
        }
        if (b == d.tail || steps >= s->blks->count) break;
        b = e->next;
    }
    return 0;
}

// Rank and extents of a dimension slot of either width; false when the
// payload can't hold them or they are out of range.
bool read_dims(const int32_t* p, int words, bool wide, int64_t dims[SDF_MAX_RANK + 1]) {
    int per = wide ? 2 : 1;
    if (words < per) return false;
    int64_t rank = wide ? (static_cast<int64_t>(static_cast<uint32_t>(p[0])) |
                           (static_cast<int64_t>(p[1]) * (INT64_C(1) << 32)))
                        : p[0];
    if (rank < 1 || rank > SDF_MAX_RANK || words < per * (rank + 1)) return false;
    for (int k = 0; k <= rank; k++) {
        dims[k] = wide ? (static_cast<int64_t>(static_cast<uint32_t>(p[2 * k])) |
                          (static_cast<int64_t>(p[2 * k + 1]) * (INT64_C(1) << 32)))
                       : p[k];
        if (dims[k] < 0) return false;
    }
    return true;
}

sdf_slotref dims_ref(const sdf_varrec* r) { return sdf_slotref{r->value.i[0], r->value.i[1]}; }

// Replaces the dimension slot of a record by one of the other width.
int rewrite_dims(fcb* f, ventry* row, const int64_t* dims, bool wide, const char* routine) {
    sdf_varrec* r = row->record;
    sdf_slotref ref = dims_ref(r);
    int rc = sdf_free_slot(f, SDF_CH_ARRDIM, &ref);
    if (rc) return sdf_error_chain(routine, rc, "sdf_free_slot");
    r->value.i[0] = r->value.i[1] = 0;
    int n = static_cast<int>(dims[0]) + 1;
    auto* p = static_cast<int32_t*>(sdf_get_slot(f, wide ? SDF_CH_ARRDIM : SDF_CH_ARRDIM32, n, &ref, &rc));
    if (!p) return sdf_error_chain(routine, rc, "sdf_get_slot");
    for (int k = 0; k < n; k++) {
        if (wide) {  // low word first, in any host order
            p[2 * k] = static_cast<int32_t>(static_cast<uint32_t>(dims[k] & 0xffffffff));
            p[2 * k + 1] = static_cast<int32_t>(dims[k] >> 32);
        } else {
            p[k] = static_cast<int32_t>(dims[k]);
        }
    }
    r->value.i[0] = ref.block;
    r->value.i[1] = ref.index;
    sdf_touch(f->file, r, row->block, 1);
    return 0;
}

}  // namespace

extern "C" {

int sdf_corrupt(const char* routine, const sdfile* s, const char* fmt, ...) {
    char text[256];
    int n = snprintf(text, sizeof text, "is corrupt: ");
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(text + n, sizeof text - n, fmt, ap);
    va_end(ap);
    return sdf_error(routine, 3051, s && s->name ? s->name : "", text);
}

int sdf_read_varinf(fcb* f) {
    static const char* R = "sdf_read_varinf";
    if (!f || !f->file || !f->file->hdr || !f->file->blks) return sdf_error(R, 4001, "No file to read.");
    sdfile* s = f->file;
    sdf_hdr* h = s->hdr;
    int chunk = h->chunk_size;
    sdf_chain_desc& d = h->chain[SDF_CH_VARINF - 1];
    if ((d.head || h->chain[SDF_CH_VARNAM - 1].head) && (chunk < SDF_RECORD_BYTES || chunk % SDF_RECORD_BYTES))
        return sdf_corrupt(R, s, "bad chunk size %d.", chunk);
    int64_t nrec = d.head ? static_cast<int64_t>(d.chunks) * chunk / SDF_RECORD_BYTES : 0;
    if (nrec < 0 || nrec > INT32_MAX / 4) return sdf_corrupt(R, s, "varinf chunk count %d.", d.chunks);
    vars* v = sdf_new_vars(static_cast<int>(nrec), s->writable ? static_cast<int>(nrec / 5) : 0);
    if (!v) return sdf_error(R, 4001, "Out of memory for the variable table.");
    sdf_free_vars(s->vars);
    s->vars = v;
    SlotMaps names;
    int rc = load_chain(f, SDF_CH_VARNAM, "sdf_read_varinf:varnam", R, &names);
    if (!rc) rc = load_chain(f, SDF_CH_VARINF, "sdf_read_varinf:varinf", R, nullptr);
    if (!rc) rc = add_records(f, names);
    if (rc) return rc;
    auto before = [s, v](int32_t a, int32_t b) { return sdf_name_cmp(s, v->rows[a].name, v->rows[b].name) < 0; };
    std::make_heap(v->key, v->key + v->count, before);
    std::sort_heap(v->key, v->key + v->count, before);
    return sdf_index_free_records(f);
}

int sdf_read_arrdim(fcb* f) {
    static const char* R = "sdf_read_arrdim";
    if (!f || !f->file || !f->file->vars) return sdf_error(R, 4001, "No variable table to complete.");
    sdfile* s = f->file;
    vars* v = s->vars;
    SlotMaps maps;
    int rc = load_chain(f, SDF_CH_ARRDIM, "sdf_read_arrdim:arrdim", R, &maps);
    if (rc) return rc;
    bool wide = s->hdr->major >= SDF_MAJOR;
    for (int id = 0; id < v->count; id++) {
        const sdf_varrec* r = v->rows[id].record;
        if (!SDF_IS_ARRAY(r->type) || r->value.i[0] == 0) continue;
        int words = 0;
        int64_t dims[SDF_MAX_RANK + 1];
        const int32_t* p = claim(s, maps, dims_ref(r), &words);
        if (!p || !read_dims(p, words, wide, dims))
            return sdf_corrupt(R, s, "bad dimensions at variable %d.", id);
    }
    if (wide) return 0;
    for (int id = 0; id < v->count; id++) {
        ventry* row = &v->rows[id];
        if (!SDF_IS_ARRAY(row->record->type) || row->record->value.i[0] == 0) continue;
        sdf_slotref ref = dims_ref(row->record);
        int words = 0;
        auto* p = static_cast<const int32_t*>(sdf_get_slot(f, SDF_CH_ARRDIM, 0, &ref, &rc));
        if (!p) return sdf_error_chain(R, rc, "sdf_get_slot");
        words = p[-1] - 1;
        int64_t dims[SDF_MAX_RANK + 1];
        if (!read_dims(p, words, false, dims)) return sdf_corrupt(R, s, "bad dimensions at variable %d.", id);
        rc = rewrite_dims(f, row, dims, true, R);
        if (rc) return rc;
    }
    s->hdr->major = SDF_MAJOR;
    s->hdr->minor = SDF_MINOR;
    char text[160];
    snprintf(text, sizeof text,
             "Updating SDF version to (%d.%d).\nIf saved to file, it will not open in older versions "
             "unless converted with sdf3to2.",
             SDF_MAJOR, SDF_MINOR);
    ZU_Err(R, 1, ZU_SEV_WARNING, text);
    return 0;
}

int sdf_downgrade_arrdim(fcb* f) {
    static const char* R = "sdf_downgrade_arrdim";
    if (!f || !f->file || !f->file->vars) return sdf_error(R, 4001, "No variable table to convert.");
    sdfile* s = f->file;
    vars* v = s->vars;
    if (s->hdr->major < SDF_MAJOR) return 0;
    // Every extent is checked before the first slot changes, so a refusal
    // leaves the dimensions as they were.
    for (int pass = 0; pass < 2; pass++) {
        for (int id = 0; id < v->count; id++) {
            ventry* row = &v->rows[id];
            if (!row->record || !SDF_IS_ARRAY(row->record->type) || row->record->value.i[0] == 0) continue;
            sdf_slotref ref = dims_ref(row->record);
            int rc = 0;
            auto* p = static_cast<const int32_t*>(sdf_get_slot(f, SDF_CH_ARRDIM, 0, &ref, &rc));
            if (!p) return sdf_error_chain(R, rc, "sdf_get_slot");
            int64_t dims[SDF_MAX_RANK + 1];
            if (!read_dims(p, p[-1] - 1, true, dims))
                return sdf_corrupt(R, s, "bad dimensions at variable %d.", id);
            if (pass == 0) {
                for (int k = 1; k <= dims[0]; k++)
                    if (dims[k] > INT32_MAX) return sdf_error(R, 3024, " ", row->name);
            } else if ((rc = rewrite_dims(f, row, dims, false, R))) {
                return rc;
            }
        }
    }
    if (v->count == 0) sdf_mark(s, 0);  // the header alone changes
    s->hdr->major = 1;
    s->hdr->minor = 0;
    return 0;
}

}  // extern "C"
