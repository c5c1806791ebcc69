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
// Every field of a record that a later step trusts is checked against its
// type and the file: the element length, and an array's data chain, whose
// chunks must hold all elements its dimensions give.
// A failed check is 3051 "is corrupt: ...", and the open fails.
#include <errno.h>
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

// A stretch of the file read in one request, from which the blocks of a
// chain that lie back to back are served: a table of many small blocks then
// loads with a few reads instead of one per block. A block the stretch
// doesn't hold goes through sdf_read_block, which reports any failure, so
// the outcome of a load never depends on the stretch.
struct Window {
    std::vector<unsigned char> bytes;
    int64_t pos = 0, len = 0;
    bool holds(int64_t p, int64_t n) const { return len > 0 && p >= pos && n <= len && p - pos <= len - n; }
};

constexpr int64_t kWindowBytes = int64_t{1} << 20;

// The bytes from block b on of the blocks of the chain that follow it back
// to back in the file and still need loading, up to kWindowBytes.
int64_t run_bytes(const sdfile* s, int chain, int b, int64_t chunk) {
    const sdf_chain_desc& d = s->hdr->chain[chain - 1];
    const sdf_blkent* e = s->blks->rows[b].entry;
    int64_t end = static_cast<int64_t>(e->start) + e->chunks, total = static_cast<int64_t>(e->chunks) * chunk;
    for (int k = b, steps = 0; k != d.tail && steps < s->blks->count; steps++) {
        const int next = s->blks->rows[k].entry->next;
        if (!in_table(s, next) || next == 1 || s->blks->rows[next].data) break;
        const sdf_blkent* n = s->blks->rows[next].entry;
        const int64_t bytes = static_cast<int64_t>(n->chunks) * chunk;
        if (n->type != chain || n->start != end || n->chunks < 1 || total + bytes > kWindowBytes) break;
        end += n->chunks;
        total += bytes;
        k = next;
    }
    return total;
}

// Fills the window from block b's place with the run that starts there;
// leaves it empty when the run is b alone or the read comes up short.
void fill_window(fcb* f, int chain, int b, Window* w) {
    sdfile* s = f->file;
    const int64_t chunk = s->hdr->chunk_size;
    const int64_t pos = static_cast<int64_t>(s->blks->rows[b].entry->start) * chunk;
    const int64_t n = run_bytes(s, chain, b, chunk);
    w->len = 0;
    if (pos < 0 || n <= static_cast<int64_t>(s->blks->rows[b].entry->chunks) * chunk) return;
    w->bytes.resize(static_cast<size_t>(n));
    int64_t done = 0;
    ZU_lock(f->ios->mutex);
    while (done < n) {
        errno = 0;
        ssize_t got = sdf_io.pread(f->ios->fd, w->bytes.data() + done, static_cast<size_t>(n - done), pos + done);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        done += got;
    }
    ZU_unlock(f->ios->mutex);
    if (done == n) {
        w->pos = pos;
        w->len = n;
    }
}

// Reads the whole of table block b into buf, from the window when it can.
int read_table_block(fcb* f, int chain, int b, void* buf, int64_t bytes, Window* w) {
    sdfile* s = f->file;
    const sdf_blkent* e = s->blks->rows[b].entry;
    const int64_t pos = static_cast<int64_t>(e->start) * s->hdr->chunk_size;
    // Block 1 is placed by the header on reads, and has its own path.
    if (s->internal || !f->ios || b == 1) return sdf_read_block(buf, f, b, 0, 0);
    if (!w->holds(pos, bytes)) fill_window(f, chain, b, w);
    if (!w->holds(pos, bytes)) return sdf_read_block(buf, f, b, 0, 0);
    memcpy(buf, w->bytes.data() + (pos - w->pos), static_cast<size_t>(bytes));
    if (s->swap) sdf_swap_block(buf, e->type, bytes, e, 0, 1);
    return 0;
}

// Loads every block of a chain that isn't in memory into a buffer of its
// own; with maps, checks each as a slot block.
int load_chain(fcb* f, int chain, const char* tag, const char* routine, SlotMaps* maps) {
    sdfile* s = f->file;
    sdf_chain_desc& d = s->hdr->chain[chain - 1];
    Window window;
    for (int b = d.head, steps = 0; b; steps++) {
        if (!in_table(s, b) || ent(s, b)->type != chain || steps >= s->blks->count)
            return sdf_corrupt(routine, s, "%s chain broken at block %d.", chain_name(chain), b);
        Blentry& row = s->blks->rows[b];
        int64_t bytes = static_cast<int64_t>(row.entry->chunks) * s->hdr->chunk_size;
        if (bytes < SDF_RECORD_BYTES || bytes > INT32_MAX)
            return sdf_corrupt(routine, s, "bad size of block %d.", b);
        if (!row.data) {
            // The read fills the whole buffer or fails, so it needs no zeroing.
            void* buf = ZU_allocMemNoZero(static_cast<size_t>(bytes), tag);
            if (!buf) return sdf_error(routine, 4001, "Out of memory for the variable table.");
            int rc = read_table_block(f, chain, b, buf, bytes, &window);
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

// The element length later steps trust: the type's size for numbers (the
// scalar and array paths copy that many bytes per element), at least 1 for
// a character array, and for a character scalar its string length, 0
// exactly when it has no slot.
bool valid_elen(const sdf_varrec* r) {
    const int base = SDF_BASE_TYPE(r->type);
    if (base != SDF_CHAR_T) return r->elen == sdf_type_elen(base);
    if (SDF_IS_ARRAY(r->type)) return r->elen >= 1;
    return r->elen >= 0 && (r->value.i[2] == 0) == (r->elen == 0);
}

// The three checks of a record, in their order, then its element length
// and its name slot.
int check_record(sdfile* s, SlotMaps& maps, const sdf_varrec* r, int varno) {
    static const char* R = "sdf_read_varinf";
    if (!valid_type(r->type))
        return sdf_corrupt(R, s, "illegal type %d for variable %d.", r->type, varno);
    if (!valid_elen(r))
        return sdf_corrupt(R, s, "element length %d wrong for type %d at variable %d.", r->elen, r->type, varno);
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

// The data chain of an array against its record and the file: a chain
// exactly when the record counts chunks, each block a data block of the
// element's swap width inside the header's file length and claimed by no
// other array, chunks adding up to the record's total, and room in them for
// every element the dimensions (rank 0: none known) give. `claimed` marks
// the data blocks of the arrays checked so far.
//
// The elements must also lie inside the file as it is on disk. A commit
// extends the file to the header's length, so chunks allocated and never
// written lie inside it; element bytes behind the end were written and cut
// off. Only bytes behind the last element (a chain's reserve, the rest of
// its last chunk) may be missing, for nothing ever writes them.
int check_data_chain(sdfile* s, const sdf_varrec* r, const int64_t* dims, int varno, std::vector<bool>& claimed) {
    static const char* R = "sdf_read_arrdim";
    const int first = r->value.i[2], total = r->value.i[3];
    if (total < 0 || (first == 0) != (total == 0))
        return sdf_corrupt(R, s, "bad data chain at variable %d.", varno);
    int64_t bytes = r->elen;
    for (int k = 1; k <= dims[0]; k++)
        if (__builtin_mul_overflow(bytes, dims[k], &bytes))
            return sdf_corrupt(R, s, "bad dimensions at variable %d.", varno);
    if (dims[0] == 0) bytes = 0;  // no extents known: no element to find
    const int64_t cs = s->hdr->chunk_size;
    const int type = -sdf_swap_width(SDF_BASE_TYPE(r->type));
    int64_t sum = 0, missing = 0;
    for (int b = first, steps = 0; b != 0; b = ent(s, b)->next, steps++) {
        if (!in_table(s, b) || steps >= s->blks->count || claimed[b])
            return sdf_corrupt(R, s, "bad data chain at variable %d.", varno);
        const sdf_blkent* e = ent(s, b);
        if (e->type != type || e->chunks < 1 || e->start < 1 ||
            static_cast<int64_t>(e->start) + e->chunks > s->hdr->file_chunks)
            return sdf_corrupt(R, s, "bad data block %d at variable %d.", b, varno);
        claimed[b] = true;
        // Element bytes of this block: those of the stream sum*cs.. that
        // fall before `bytes`.
        const int64_t held = std::min<int64_t>(std::max<int64_t>(bytes - sum * cs, 0), e->chunks * cs);
        const int64_t at = e->start * cs;
        missing += std::max<int64_t>(0, at + held - std::max(at, s->disk_bytes));
        sum += e->chunks;
    }
    if (sum != total) return sdf_corrupt(R, s, "data chain of variable %d is not %d chunks.", varno, total);
    if (bytes > static_cast<int64_t>(total) * cs)
        return sdf_corrupt(R, s, "data chain too short at variable %d.", varno);
    if (missing > 0)
        return sdf_corrupt(R, s, "%lld data bytes of variable %d lie behind the end of the file.",
                           static_cast<long long>(missing), varno);
    return 0;
}

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

// The first 16 bytes of a name, folded by the file's case rule, packed
// into two numbers that compare as the bytes do (bytes behind the end are 0).
struct NameHead {
    uint64_t hi = 0, lo = 0;
    int32_t row = 0;
    bool ends = false;  // the name ends inside the 16 bytes
};

NameHead name_head(const sdfile* s, const char* name, int32_t row) {
    NameHead h;
    h.row = row;
    size_t i = 0;
    for (; i < 16 && name[i]; i++) {
        unsigned char c = static_cast<unsigned char>(name[i]);
        if (s->case_insensitive && c >= 'a' && c <= 'z') c = static_cast<unsigned char>(c - ('a' - 'A'));
        (i < 8 ? h.hi : h.lo) |= uint64_t{c} << (8 * (7 - i % 8));
    }
    h.ends = i < 16;
    return h;
}

// Sorts key by name with the comparison of sdf_name_cmp. Most compares are
// settled by the packed heads, held in one array, instead of by a walk to
// two names scattered over the slot blocks; equal heads of names that go
// on compare the rest. Names in a sound file are unique under its case
// rule, so the order is the one that any correct sort gives.
void sort_key(const sdfile* s, vars* v) {
    std::vector<NameHead> heads(static_cast<size_t>(v->count));
    for (int p = 0; p < v->count; p++) heads[p] = name_head(s, v->rows[v->key[p]].name, v->key[p]);
    std::sort(heads.begin(), heads.end(), [s, v](const NameHead& a, const NameHead& b) {
        if (a.hi != b.hi) return a.hi < b.hi;
        if (a.lo != b.lo) return a.lo < b.lo;
        return !a.ends && sdf_name_cmp(s, v->rows[a.row].name + 16, v->rows[b.row].name + 16) < 0;
    });
    for (int p = 0; p < v->count; p++) v->key[p] = heads[p].row;
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
    sort_key(s, v);
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
    std::vector<bool> claimed(static_cast<size_t>(s->blks->count), false);
    for (int id = 0; id < v->count; id++) {
        const sdf_varrec* r = v->rows[id].record;
        if (!SDF_IS_ARRAY(r->type)) continue;
        int64_t dims[SDF_MAX_RANK + 1] = {0};
        if (r->value.i[0] != 0) {
            int words = 0;
            const int32_t* p = claim(s, maps, dims_ref(r), &words);
            if (!p || !read_dims(p, words, wide, dims))
                return sdf_corrupt(R, s, "bad dimensions at variable %d.", id);
        }
        if (!s->internal && (rc = check_data_chain(s, r, dims, id, claimed))) return rc;
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
