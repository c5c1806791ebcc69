// The salvage reader: everything that can still be read from an SDF file
// that the library refuses, without trusting the file at any step.
//
// Invariants:
// - The file is opened read-only through sdf_io and only ever read.
// - Nothing read from the file is used as an index, a length, a link or an
//   allocation size before it was checked: block numbers against the table
//   as far as it could be read, blocks against the size of the file, slots
//   against the tiling of their block, chains against loops, products of
//   extents against overflow. The block table is read up to kMaxTable
//   bytes, slot blocks whole only up to kMaxSlotBlock bytes and kept only up
//   to kSlotBudget bytes in all; array data are never held whole, only read
//   on demand in the caller's pieces.
// - The guard word is ignored; the header's other fields are checked like
//   everything else. A file without a usable header or block table gives no
//   variables rather than an error, with a note saying why.
// - The varinf blocks are found by their type in the block table rather than
//   by the chain in the header, so a chain cut by an interrupted commit still
//   gives every record whose block can be read.
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "sdf_inner.h"
#include "sdf_salvage.h"

namespace {

constexpr int64_t kMaxSlotBlock = int64_t{64} << 20;  // bytes of one slot or varinf block
constexpr int64_t kSlotBudget = int64_t{256} << 20;   // slot blocks kept in memory at once
constexpr int64_t kMaxTable = int64_t{256} << 20;     // bytes of block-table entries
constexpr int64_t kMaxCharElen = int64_t{16} << 20;   // element length of a character array
constexpr int kMaxNotes = 50;

// A resource a record claims: a slot (block, word index) or a data block
// (block, -1). Two records can't own one.
using Claim = std::pair<int32_t, int64_t>;

struct Candidate {
    sdf_salvage_var v{};
    std::string name, units, desc, text, lost;
    bool has_name = false;
    std::vector<Claim> essential;          // name, dimensions, string, data blocks
    Claim units_claim{0, 0}, desc_claim{0, 0};
    std::vector<std::pair<int64_t, int64_t>> pieces;  // data: file byte position, bytes
    std::vector<int64_t> piece_end;        // running sum of piece bytes
    std::vector<int32_t> piece_block;
    int64_t data_bytes = 0;
};

struct SlotBlock {
    std::vector<int32_t> w;      // native order
    std::vector<uint8_t> start;  // 1 at the size word of a used slot, 2 of a free one
    std::string why;             // not empty: the block is unusable
};

std::string at_block(int b) { return " at block " + std::to_string(b); }

}  // namespace

struct sdf_salvage {
    int fd = -1;
    std::string path;
    int64_t size = 0;
    bool swap = false;
    sdf_hdr hdr{};
    sdf_salvage_facts facts{};
    int64_t cs = SDF_CHUNK;
    int64_t chunk_limit = 0;  // data blocks may reach up to here (in chunks)
    std::vector<sdf_blkent> ents;
    std::vector<std::string> notes;
    std::vector<Candidate> vars;
    std::map<int, SlotBlock> slots;
    int64_t slot_bytes = 0;

    void note(const std::string& text) {
        if (notes.size() < kMaxNotes) notes.push_back(text);
        else if (notes.size() == kMaxNotes) notes.push_back("further notes left out");
    }

    // Exactly n bytes at pos; bytes behind the end of the file read as zeros.
    bool read(int64_t pos, void* buf, int64_t n) {
        auto* p = static_cast<unsigned char*>(buf);
        int64_t done = 0;
        while (done < n) {
            errno = 0;
            ssize_t got = sdf_io.pread(fd, p + done, static_cast<size_t>(n - done), pos + done);
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) return false;
            if (got == 0) {
                memset(p + done, 0, static_cast<size_t>(n - done));
                break;
            }
            done += got;
        }
        return true;
    }

    // Block b as a table block of `type` that lies wholly inside the file;
    // false with why set otherwise.
    bool table_block(int b, int type, int64_t* pos, int64_t* bytes, std::string* why) const {
        if (b < 2 || b >= static_cast<int64_t>(ents.size())) {
            *why = "block " + std::to_string(b) + " is not in the block table";
            return false;
        }
        const sdf_blkent& e = ents[b];
        if (e.type != type) {
            *why = "block " + std::to_string(b) + " has type " + std::to_string(e.type) + ", not " +
                   std::to_string(type);
            return false;
        }
        if (e.start < 1 || e.chunks < 1 || (int64_t{e.start} + e.chunks) * cs > size) {
            *why = "block " + std::to_string(b) + " lies outside the file";
            return false;
        }
        *pos = int64_t{e.start} * cs;
        *bytes = int64_t{e.chunks} * cs;
        if (*bytes > kMaxSlotBlock) {
            *why = "block " + std::to_string(b) + " is too large for a table block";
            return false;
        }
        return true;
    }

    const SlotBlock& slot_block(int b, int type);
    bool slot_payload(int type, sdf_slotref ref, const int32_t** payload, int64_t* words, std::string* why);
    bool slot_text(int type, sdf_slotref ref, std::string* out, std::string* why);
    bool slot_dims(sdf_slotref ref, int64_t dims[8], std::string* why);
    void load_table();
    void load_records();
    void check_record(const sdf_varrec& r, Candidate& c);
    void check_array(const sdf_varrec& r, Candidate& c);
    void resolve_claims();
};

// ---------------------------------------------------------------- slots

const SlotBlock& sdf_salvage::slot_block(int b, int type) {
    auto it = slots.find(b);
    if (it != slots.end()) return it->second;
    SlotBlock sb;
    int64_t pos = 0, bytes = 0;
    if (table_block(b, type, &pos, &bytes, &sb.why)) {
        if (slot_bytes + bytes > kSlotBudget) {  // the blocks are read again when needed
            slots.clear();
            slot_bytes = 0;
        }
        const int64_t words = bytes / SDF_WORD;
        sb.w.resize(static_cast<size_t>(words));
        if (!read(pos, sb.w.data(), bytes)) {
            sb.why = "block " + std::to_string(b) + " could not be read";
            sb.w.clear();
        } else {
            sdf_blkent e = ents[b];
            if (swap) sdf_swap_block(sb.w.data(), type, bytes, &e, 0, 1);
            sb.start.assign(static_cast<size_t>(words), 0);
            for (int64_t i = 0; i < words;) {
                const int32_t size = sb.w[i];
                if (size < 2 || size > words - i) {
                    sb.why = "slots of block " + std::to_string(b) + " don't tile it";
                    break;
                }
                sb.start[i] = 1;
                i += size;
            }
            // Free slots by the list; a list that doesn't fit the tiling is
            // ignored (the slots it would name stay usable).
            if (sb.why.empty() && e.largest_free != 0) {
                std::vector<int64_t> freed;
                int64_t prev = -1;
                for (int64_t i = e.first_free;; prev = i, i = sb.w[i + 1]) {
                    if (i <= prev || i >= words || sb.start[i] != 1 ||
                        static_cast<int64_t>(freed.size()) > words) {
                        freed.clear();
                        break;
                    }
                    freed.push_back(i);
                    if (sb.w[i + 1] == 0) break;
                }
                for (int64_t i : freed) sb.start[i] = 2;
            }
            slot_bytes += bytes;
        }
    }
    return slots.emplace(b, std::move(sb)).first->second;
}

bool sdf_salvage::slot_payload(int type, sdf_slotref ref, const int32_t** payload, int64_t* words,
                               std::string* why) {
    const SlotBlock& sb = slot_block(ref.block, type);
    if (!sb.why.empty()) {
        *why = sb.why;
        return false;
    }
    const int64_t i = ref.index;
    if (i < 0 || i >= static_cast<int64_t>(sb.w.size()) || sb.start[i] == 0) {
        *why = "slot " + std::to_string(i) + " of block " + std::to_string(ref.block) + " is not a slot";
        return false;
    }
    if (sb.start[i] == 2) {
        *why = "slot " + std::to_string(i) + " of block " + std::to_string(ref.block) + " is free";
        return false;
    }
    *payload = sb.w.data() + i + 1;
    *words = sb.w[i] - 1;
    return true;
}

bool sdf_salvage::slot_text(int type, sdf_slotref ref, std::string* out, std::string* why) {
    const int32_t* p = nullptr;
    int64_t words = 0;
    if (!slot_payload(type, ref, &p, &words, why)) return false;
    const char* text = reinterpret_cast<const char*>(p);
    const void* nul = memchr(text, 0, static_cast<size_t>(words) * SDF_WORD);
    if (!nul) {
        *why = "text in block " + std::to_string(ref.block) + " has no end";
        return false;
    }
    out->assign(text, static_cast<const char*>(nul));
    return true;
}

bool sdf_salvage::slot_dims(sdf_slotref ref, int64_t dims[8], std::string* why) {
    const int32_t* p = nullptr;
    int64_t words = 0;
    if (!slot_payload(SDF_CH_ARRDIM, ref, &p, &words, why)) return false;
    const bool wide = hdr.major >= SDF_MAJOR;
    const int per = wide ? 2 : 1;
    auto value = [&](int k) {
        return wide ? static_cast<int64_t>(static_cast<uint64_t>(static_cast<uint32_t>(p[2 * k])) |
                                           static_cast<uint64_t>(static_cast<uint32_t>(p[2 * k + 1])) << 32)
                    : int64_t{p[k]};
    };
    if (words < per || value(0) < 1 || value(0) > SDF_MAX_RANK || words < per * (value(0) + 1)) {
        *why = "bad rank in dimension slot of block " + std::to_string(ref.block);
        return false;
    }
    for (int k = 0; k <= value(0); k++) {
        dims[k] = value(k);
        if (dims[k] < 0) {
            *why = "negative extent in dimension slot of block " + std::to_string(ref.block);
            return false;
        }
    }
    return true;
}

// ----------------------------------------------------------- block table

void sdf_salvage::load_table() {
    const sdf_chain_desc& bi = hdr.chain[0];
    if (bi.head == 0) return;  // a file without variables
    std::set<int> visited;
    int cur = 1;
    int64_t start = hdr.blk1_start, chunks = hdr.blk1_len;
    for (;;) {
        if (start < 1 || chunks < 1 || (start + chunks) * cs > size) {
            note("block table ends" + at_block(cur) + ", which lies outside the file; later entries are unknown");
            break;
        }
        const int64_t bytes = chunks * cs;
        if ((static_cast<int64_t>(ents.size()) * SDF_ENTRY_BYTES + bytes) > kMaxTable) {
            note("block table ends" + at_block(cur) + ": it would pass " + std::to_string(kMaxTable >> 20) +
                 " MiB; later entries are unknown");
            break;
        }
        std::vector<sdf_blkent> buf(static_cast<size_t>(bytes / SDF_ENTRY_BYTES));
        if (!read(start * cs, buf.data(), bytes)) {
            note("block table ends" + at_block(cur) + ", which could not be read");
            break;
        }
        if (swap) sdf_swap_block(buf.data(), SDF_CH_BLKINF, bytes, nullptr, 0, 1);
        ents.insert(ents.end(), buf.begin(), buf.end());
        visited.insert(cur);
        if (cur == 1 && (ents.size() < 2 || ents[1].type != SDF_CH_BLKINF)) {
            note("block 1 is not described as the block table's first block");
        }
        const int next = ents[cur].next;
        if (next == 0) break;
        if (next < 2 || next >= static_cast<int64_t>(ents.size()) || ents[next].type != SDF_CH_BLKINF ||
            visited.count(next)) {
            note("block table chain broken after block " + std::to_string(cur) + "; later entries are unknown");
            break;
        }
        cur = next;
        start = ents[cur].start;
        chunks = ents[cur].chunks;
    }
}

// ------------------------------------------------------------- records

void sdf_salvage::check_array(const sdf_varrec& r, Candidate& c) {
    const int base = SDF_BASE_TYPE(r.type);
    if (r.value.i[0] == 0) {
        c.lost = "no dimensions";
        return;
    }
    const sdf_slotref dref{r.value.i[0], r.value.i[1]};
    std::string why;
    if (!slot_dims(dref, c.v.dims, &why)) {
        c.lost = "dimensions unreadable: " + why;
        return;
    }
    c.essential.push_back({dref.block, dref.index});
    int64_t n = 1;
    for (int k = 1; k <= c.v.dims[0]; k++) {
        const int64_t d = c.v.dims[k];
        if (d != 0 && n > INT64_MAX / 4 / d) {
            c.lost = "extents too large";
            return;
        }
        n *= d;
    }
    if (n != 0 && r.elen > INT64_MAX / 4 / n) {
        c.lost = "extents too large";
        return;
    }
    c.data_bytes = n * r.elen;
    const int width = sdf_swap_width(base);
    int64_t have = 0;
    std::set<int> seen;
    for (int b = r.value.i[2]; have < c.data_bytes; b = ents[b].next) {
        if (b == 0) {
            c.lost = "data chain ends early";
            return;
        }
        if (b < 2 || b >= static_cast<int64_t>(ents.size()) || !seen.insert(b).second) {
            c.lost = "data chain broken" + at_block(b);
            return;
        }
        const sdf_blkent& e = ents[b];
        if (e.type != -width) {
            c.lost = "data chain broken" + at_block(b) + ": block type " + std::to_string(e.type);
            return;
        }
        if (e.start < 1 || e.chunks < 1 || int64_t{e.start} + e.chunks > chunk_limit) {
            c.lost = "data chain broken" + at_block(b) + ": block lies outside the file";
            return;
        }
        const int64_t bytes = std::min<int64_t>(int64_t{e.chunks} * cs, c.data_bytes - have);
        c.pieces.push_back({int64_t{e.start} * cs, bytes});
        c.piece_block.push_back(b);
        have += bytes;
        c.piece_end.push_back(have);
        c.essential.push_back({b, -1});
    }
    // A clean file covers every chunk its header counts, so element bytes
    // behind the end were written once and cut off.
    for (const auto& piece : c.pieces)
        c.v.missing += std::max<int64_t>(0, piece.first + piece.second - std::max(piece.first, size));
}

void sdf_salvage::check_record(const sdf_varrec& r, Candidate& c) {
    c.v.type = r.type;
    c.v.elen = r.elen;
    c.v.modified = r.modified;
    const int base = SDF_BASE_TYPE(r.type);
    std::string why;
    if (r.type <= 0 || r.type >= 200 || !sdf_valid_base(base)) {
        c.lost = "illegal type " + std::to_string(r.type);
        return;
    }
    if (r.name.block < 2 || !slot_text(SDF_CH_VARNAM, r.name, &c.name, &why)) {
        c.lost = "name unreadable: " + (why.empty() ? "no name slot" : why);
        return;
    }
    c.has_name = true;
    if (!Sdf_Valid_Name(c.name.c_str())) {
        c.lost = "invalid name";
        return;
    }
    c.essential.push_back({r.name.block, r.name.index});
    // Units and description are worth less than the value: a bad slot drops
    // the text, not the variable.
    auto text = [&](sdf_slotref ref, std::string* out, int32_t* lost, Claim* claim) {
        if (ref.block == 0) return;
        std::string w;
        if (slot_text(SDF_CH_CHRVAR, ref, out, &w)) *claim = {ref.block, ref.index};
        else *lost = 1, out->clear();
    };
    text(r.units, &c.units, &c.v.units_lost, &c.units_claim);
    text(r.desc, &c.desc, &c.v.desc_lost, &c.desc_claim);
    const bool array = SDF_IS_ARRAY(r.type);
    if (base == SDF_CHAR_T) {
        if (array ? r.elen < 1 || r.elen > kMaxCharElen : r.elen < 0) {
            c.lost = "element length " + std::to_string(r.elen) + " out of range";
            return;
        }
    } else if (r.elen != sdf_type_elen(base)) {
        c.lost = "element length " + std::to_string(r.elen) + " doesn't fit the type";
        return;
    }
    if (array) return check_array(r, c);
    if (base != SDF_CHAR_T) {
        memcpy(c.v.value, &r.value, sizeof c.v.value);
        return;
    }
    const sdf_slotref sref{r.value.i[2], r.value.i[3]};
    if (sref.block == 0) {
        if (r.elen != 0) c.lost = "string slot missing";
        return;
    }
    if (!slot_text(SDF_CH_CHRVAR, sref, &c.text, &why)) {
        c.lost = "string unreadable: " + why;
        return;
    }
    if (static_cast<int64_t>(c.text.size()) != r.elen) {
        c.lost = "string length differs from the record's";
        return;
    }
    c.essential.push_back({sref.block, sref.index});
}

void sdf_salvage::load_records() {
    for (int b = 2; b < static_cast<int64_t>(ents.size()); b++) {
        if (ents[b].type != SDF_CH_VARINF) continue;
        int64_t pos = 0, bytes = 0;
        std::string why;
        if (!table_block(b, SDF_CH_VARINF, &pos, &bytes, &why)) {
            note("variable records lost: " + why);
            continue;
        }
        std::vector<sdf_varrec> recs(static_cast<size_t>(bytes / SDF_RECORD_BYTES));
        if (!read(pos, recs.data(), bytes)) {
            note("variable records lost: block " + std::to_string(b) + " could not be read");
            continue;
        }
        if (swap) sdf_swap_block(recs.data(), SDF_CH_VARINF, bytes, nullptr, 0, 1);
        for (size_t k = 0; k < recs.size(); k++) {
            if (recs[k].type == 0) continue;
            Candidate c;
            c.v.block = b;
            c.v.index = static_cast<int32_t>(k);
            check_record(recs[k], c);
            vars.push_back(std::move(c));
        }
    }
}

// Newer records first: each takes its name and the resources it claims, and
// an older record that wants one already taken is lost.
void sdf_salvage::resolve_claims() {
    std::vector<size_t> order(vars.size());
    for (size_t i = 0; i < order.size(); i++) order[i] = i;
    std::stable_sort(order.begin(), order.end(),
                     [this](size_t a, size_t b) { return vars[a].v.modified > vars[b].v.modified; });
    std::map<Claim, size_t> owner;
    std::map<std::string, size_t> names;
    auto folded = [this](std::string n) {
        if (facts.case_insensitive)
            for (char& ch : n)
                if (ch >= 'a' && ch <= 'z') ch = static_cast<char>(ch - 'a' + 'A');
        return n;
    };
    for (size_t i : order) {
        Candidate& c = vars[i];
        if (!c.lost.empty()) continue;
        auto same = names.find(folded(c.name));
        if (same != names.end()) {
            c.lost = "a newer record has the same name";
            continue;
        }
        for (const Claim& k : c.essential) {
            auto o = owner.find(k);
            if (o != owner.end()) {
                c.lost = std::string(k.second < 0 ? "data block " : "a slot of block ") + std::to_string(k.first) +
                         " also belongs to the newer \"" + vars[o->second].name + "\"";
                break;
            }
        }
        if (!c.lost.empty()) continue;
        names[folded(c.name)] = i;
        for (const Claim& k : c.essential) owner[k] = i;
        for (auto [claim, lost, text] : {std::tuple{c.units_claim, &c.v.units_lost, &c.units},
                                         std::tuple{c.desc_claim, &c.v.desc_lost, &c.desc}}) {
            if (claim.first == 0) continue;
            if (owner.count(claim)) *lost = 1, text->clear();
            else owner[claim] = i;
        }
    }
}

// -------------------------------------------------------------- entries

extern "C" {

int sdf_salvage_open(const char* path, sdf_salvage** out) {
    static const char* R = "sdf_salvage_open";
    *out = nullptr;
    auto s = std::make_unique<sdf_salvage>();
    s->path = path ? path : "";
    // Without blocking, so that a FIFO by that name can't hold the open up.
    s->fd = sdf_io.open(s->path.c_str(), O_RDONLY | O_NONBLOCK, 0);
    if (s->fd < 0) return sdf_error(R, 3040, s->path.c_str(), sdf_sys_error());
    struct stat st {};
    if (sdf_io.fstat(s->fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        int rc = sdf_error(R, 3040, s->path.c_str(), S_ISREG(st.st_mode) ? sdf_sys_error() : "not a regular file");
        sdf_salvage_close(s.release());
        return rc;
    }
    s->size = st.st_size;
    unsigned char raw[SDF_HDR_BYTES] = {};
    if (s->size < 16 || !s->read(0, raw, SDF_HDR_BYTES)) {
        sdf_salvage_close(s.release());
        return sdf_error(R, 3050, path);
    }
    if (memcmp(raw, "%BIN", 4) == 0 || memcmp(raw, "%ASC", 4) == 0) {
        sdf_salvage_close(s.release());
        return sdf_error(R, 3053, path);
    }
    if (memcmp(raw, "%SDF_BIN", 8) != 0) {
        sdf_salvage_close(s.release());
        return sdf_error(R, 3050, path);
    }
    sdf_salvage_facts& f = s->facts;
    f.little_endian = raw[9] == 'L';
    f.case_insensitive = raw[10] == 'I';
    s->swap = (f.little_endian ? 2 : 1) != ZU_byteOrder();
    memcpy(&s->hdr, raw, sizeof s->hdr);
    if (s->swap) sdf_swap_header(&s->hdr);
    const sdf_hdr& h = s->hdr;
    f.major = h.major;
    f.minor = h.minor;
    f.guard_state = h.guard == 0 || h.guard == SDF_GUARD_CLEAN                        ? 0
                    : (h.guard < 256 || (h.guard & ~0xFFu) == SDF_GUARD_CLEAN) ? 1
                                                                                  : 2;
    if (s->size < SDF_HDR_BYTES) s->note("the header is cut short");
    if (h.major < 1 || h.major > SDF_MAJOR)
        s->note("version " + std::to_string(h.major) + "." + std::to_string(h.minor) +
                " is not one this library writes; read as " + (h.major < 1 ? "1.0" : "3.0"));
    if (h.chunk_size < SDF_RECORD_BYTES || h.chunk_size > (1 << 20) || h.chunk_size % SDF_RECORD_BYTES != 0)
        s->note("chunk size " + std::to_string(h.chunk_size) + " is unusable; 512 assumed");
    else
        s->cs = h.chunk_size;
    f.chunk_size = static_cast<int32_t>(s->cs);
    const int64_t on_disk = (s->size + s->cs - 1) / s->cs;
    s->chunk_limit = std::min<int64_t>(std::max<int64_t>(h.file_chunks, on_disk), INT32_MAX);
    s->load_table();
    f.entries = static_cast<int32_t>(s->ents.size());
    s->load_records();
    s->resolve_claims();
    s->slots.clear();
    for (Candidate& c : s->vars) {
        c.v.name = c.has_name ? c.name.c_str() : nullptr;
        c.v.units = c.units.empty() ? nullptr : c.units.c_str();
        c.v.desc = c.desc.empty() ? nullptr : c.desc.c_str();
        c.v.text = c.text.c_str();
        c.v.lost = c.lost.empty() ? nullptr : c.lost.c_str();
    }
    f.records = static_cast<int32_t>(s->vars.size());
    *out = s.release();
    return 0;
}

void sdf_salvage_get_facts(const sdf_salvage* s, sdf_salvage_facts* facts) { *facts = s->facts; }

const char* sdf_salvage_note(const sdf_salvage* s, int i) {
    return i >= 0 && i < static_cast<int>(s->notes.size()) ? s->notes[i].c_str() : nullptr;
}

int sdf_salvage_count(const sdf_salvage* s) { return static_cast<int>(s->vars.size()); }

const sdf_salvage_var* sdf_salvage_get(const sdf_salvage* s, int i) {
    return i >= 0 && i < static_cast<int>(s->vars.size()) ? &s->vars[i].v : nullptr;
}

int sdf_salvage_read(sdf_salvage* s, int i, int64_t first, int64_t n, void* buf) {
    static const char* R = "sdf_salvage_read";
    if (i < 0 || i >= static_cast<int>(s->vars.size())) return sdf_bug(R, "No variable %d.", i);
    const Candidate& c = s->vars[i];
    const int64_t elen = c.v.elen;
    if (c.v.lost || !SDF_IS_ARRAY(c.v.type) || first < 0 || n < 0 || elen < 1 || first > c.data_bytes / elen ||
        n > c.data_bytes / elen - first)
        return sdf_bug(R, "Range %lld+%lld outside variable %d.", static_cast<long long>(first),
                       static_cast<long long>(n), i);
    auto* out = static_cast<unsigned char*>(buf);
    int64_t pos = first * elen;
    const int64_t end = pos + n * elen;
    size_t p = std::upper_bound(c.piece_end.begin(), c.piece_end.end(), pos) - c.piece_end.begin();
    while (pos < end && p < c.pieces.size()) {
        const int64_t piece_start = c.piece_end[p] - c.pieces[p].second;
        const int64_t take = std::min(end, c.piece_end[p]) - pos;
        if (!s->read(c.pieces[p].first + (pos - piece_start), out, take))
            return sdf_error(R, 3080, c.piece_block[p], -1, s->path.c_str(), sdf_sys_error());
        out += take;
        pos += take;
        p++;
    }
    const int width = sdf_swap_width(SDF_BASE_TYPE(c.v.type));
    if (s->swap && width > 1) sdf_swap_block(buf, -width, n * elen, nullptr, 0, 1);
    return 0;
}

int64_t sdf_salvage_stored(const sdf_salvage* s, int i, int64_t first) {
    if (i < 0 || i >= static_cast<int>(s->vars.size())) return 0;
    const Candidate& c = s->vars[i];
    const int64_t elen = c.v.elen;
    if (elen < 1) return 0;
    const int64_t total = c.data_bytes / elen;
    int64_t pos = std::max<int64_t>(first, 0) * elen;
    for (size_t p = std::upper_bound(c.piece_end.begin(), c.piece_end.end(), pos) - c.piece_end.begin();
         p < c.pieces.size(); p++) {
        const int64_t piece_start = c.piece_end[p] - c.pieces[p].second;
        const int64_t at = std::max(pos, piece_start);
        if (c.pieces[p].first + (at - piece_start) < s->size) return std::min(total, at / elen);
    }
    return total;
}

void sdf_salvage_close(sdf_salvage* s) {
    if (!s) return;
    if (s->fd >= 0) sdf_io.close(s->fd);
    delete s;
}

}  // extern "C"
