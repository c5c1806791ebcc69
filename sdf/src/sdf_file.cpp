// Creating, loading and closing one SDF file: the records of a channel
// (fcb, sdfile, sdfios, header) and the checks a file must pass at open.
//
// A file is refused with a code when anything read from it could lead the
// library astray: the magic, the guard word, the version, the chunk size, and
// every block number, count and chain of the block table. Each number is
// checked before it is used as an index or a size, so arbitrary bytes give an
// error, never an out-of-range access or a runaway allocation. The blocks of
// the chains that are read from disk (blkinf, varinf, varnam, arrdim, chrvar)
// must lie inside the file as it is; only data blocks and unused runs may
// reach past its end, up to the header's chunk count.
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "sdf_inner.h"

namespace {

constexpr char kMagic[] = "%SDF_BIN";
constexpr int kMaxChunk = 1 << 20;

char* copy_text(const std::string& t, const char* tag) {
    auto* p = static_cast<char*>(ZU_allocMem(t.size() + 1, tag));
    if (p) memcpy(p, t.c_str(), t.size() + 1);
    return p;
}

std::string absolute(const char* path) {
    if (path[0] == '/') return path;
    char cwd[4096];
    if (!getcwd(cwd, sizeof cwd)) return path;
    return std::string(cwd) + "/" + path;
}

void free_fcb(fcb* f) {
    if (!f) return;
    if (sdfile* s = f->file) {
        if (s->blks) sdf_drop_slotblocks(s);
        sdf_drop_cache(s);
        if (s->vars) sdf_free_vars(s->vars);
        sdf_free_blks(s->blks);
        ZU_freeMem(s->hdr);
        ZU_freeMem(s->name);
        ZU_freeMem(s->path);
        ZU_rwDestroy(s->rwlock);
        ZU_lockDestroy(s->slot_mutex);
        ZU_lockDestroy(s->cache_mutex);
        ZU_freeMem(s);
    }
    if (sdfios* io = f->ios) {
        if (io->fd >= 0) sdf_io.close(io->fd);
        ZU_lockDestroy(io->mutex);
        ZU_freeMem(io);
    }
    sdf_free_chan_opts(f);
    ZU_freeMem(f);
}

// The records of a channel on a file, without tables; null when out of memory.
fcb* new_fcb(const char* path, const char* routine) {
    std::string tag = std::string(routine) + ":fcb";
    auto* f = static_cast<fcb*>(ZU_allocMem(sizeof(fcb), tag.c_str()));
    if (!f) return nullptr;
    f->prefix_active = 1;
    f->prev = f->next = -1;
    auto* s = static_cast<sdfile*>(ZU_allocMem(sizeof(sdfile), "sdf_new_file:sdfile"));
    auto* io = static_cast<sdfios*>(ZU_allocMem(sizeof(sdfios), "sdf_new_file:sdfios"));
    f->file = s;
    f->ios = io;
    if (io) {
        io->fd = -1;
        io->refs = 1;
        io->mutex = ZU_lockCreate();
    }
    if (s) {
        s->hdr = static_cast<sdf_hdr*>(ZU_allocMem(sizeof(sdf_hdr), "sdf_new_file:hdr"));
        s->name = copy_text(path, "sdf_new_file:name");
        s->path = copy_text(absolute(path), "sdf_new_file:path");
        s->rwlock = ZU_rwCreate();
        s->slot_mutex = ZU_lockCreate();
        s->cache_mutex = ZU_lockCreate();
    }
    if (!s || !io || !s->hdr || !s->name || !s->path) {
        free_fcb(f);
        return nullptr;
    }
    return f;
}

// A new header for an empty file of this byte order (0 native, 1 big, 2
// little) and case rule; the channel is the file's writer.
void new_header(fcb* f, int sex, int case_insensitive) {
    sdfile* s = f->file;
    const int native = ZU_byteOrder();
    const int order = (sex == 1 || sex == 2) ? sex : native;
    sdf_hdr* h = s->hdr;
    snprintf(h->magic, sizeof h->magic, "%s:%c%c", kMagic, order == 2 ? 'L' : 'B', case_insensitive ? 'I' : 'S');
    h->major = SDF_MAJOR;
    h->minor = SDF_MINOR;
    h->chunk_size = SDF_CHUNK;
    h->file_chunks = 1;
    s->swap = order != native;
    s->case_insensitive = case_insensitive ? 1 : 0;
    s->writable = 1;
    s->first_channel = -1;
    f->writable = 1;
    s->writer = f;
}

// The record a load is building, until the load hands it over or drops it:
// the exit after an allocation failure releases its locks too.
fcb* g_in_making = nullptr;
struct InMaking {
    explicit InMaking(fcb* f) { g_in_making = f; }
    ~InMaking() { g_in_making = nullptr; }
    InMaking(const InMaking&) = delete;
    InMaking& operator=(const InMaking&) = delete;
};

// Reads up to n bytes at offset 0; the count read, or -1 with errno set.
ssize_t read_start(int fd, void* buf, size_t n) {
    size_t done = 0;
    while (done < n) {
        ssize_t got = sdf_io.pread(fd, static_cast<char*>(buf) + done, n - done, static_cast<off_t>(done));
        if (got < 0) return -1;
        if (got == 0) break;
        done += static_cast<size_t>(got);
    }
    return static_cast<ssize_t>(done);
}

}  // namespace

extern "C" {

int sdf_check_header(const sdf_hdr* h, const char* name) {
    static const char* R = "sdf_check_header";
    uint32_t g = h->guard;
    if (g != 0 && g != SDF_GUARD_CLEAN) {
        if (g < 256 || (g & ~0xFFu) == SDF_GUARD_CLEAN) return sdf_error(R, 3051, name, "is marked dirty");
        return sdf_error(R, 3052, name);
    }
    if (h->major > SDF_MAJOR) {
        char have[32], can[32];
        snprintf(have, sizeof have, "%d.%d", h->major, h->minor);
        snprintf(can, sizeof can, "%d.%d", SDF_MAJOR, SDF_MINOR);
        return sdf_error(R, 3054, name, have, can);
    }
    return 0;
}

int sdf_create_file(const char* path, int sex, int case_insensitive, fcb** out) {
    static const char* R = "sdf_create_file";
    *out = nullptr;
    fcb* f = new_fcb(path, R);
    if (!f) return sdf_error(R, 3025, "sdf_create_file:fcb");
    sdfile* s = f->file;
    s->blks = sdf_new_blks(128, 0);
    s->vars = sdf_new_vars(128, 0);
    if (!s->blks || !s->vars) {
        free_fcb(f);
        return sdf_error(R, 3025, "sdf_create_file:tables");
    }
    f->ios->fd = sdf_io.open(path, O_RDWR | O_CREAT | O_TRUNC, 0666);
    if (f->ios->fd < 0) {
        int rc = sdf_error(R, 3040, path, sdf_sys_error());
        free_fcb(f);
        return rc;
    }
    new_header(f, sex, case_insensitive);
    int rc = sdf_write_hdr(f, 0);
    if (rc) {
        rc = sdf_error_chain(R, rc, "sdf_write_hdr");
        free_fcb(f);
        return rc;
    }
    *out = f;
    return 0;
}

int sdf_create_internal(const char* name, int case_insensitive, fcb** out) {
    static const char* R = "sdf_create_internal";
    *out = nullptr;
    fcb* f = new_fcb(name, R);
    if (!f) return sdf_error(R, 3025, "sdf_create_internal:fcb");
    // Memory only: no handle, and the path is the name as given.
    ZU_lockDestroy(f->ios->mutex);
    ZU_freeMem(f->ios);
    f->ios = nullptr;
    sdfile* s = f->file;
    ZU_freeMem(s->path);
    s->path = copy_text(name, "sdf_new_file:path");
    s->blks = sdf_new_blks(128, 0);
    s->vars = sdf_new_vars(128, 0);
    if (!s->path || !s->blks || !s->vars) {
        free_fcb(f);
        return sdf_error(R, 3025, "sdf_create_internal:tables");
    }
    s->internal = 1;
    new_header(f, 0, case_insensitive);
    sdf_write_hdr(f, 0);  // stamps the header; nothing to write
    *out = f;
    return 0;
}

int sdf_load_file(const char* path, int writable, fcb** out) { return sdf_load_file_refusal(path, writable, out, nullptr); }

fcb* sdf_file_in_making(void) { return g_in_making; }

int sdf_load_file_refusal(const char* path, int writable, fcb** out, int* refusal) {
    static const char* R = "sdf_load_file";
    *out = nullptr;
    if (refusal) *refusal = 0;
    fcb* f = new_fcb(path, R);
    if (!f) return sdf_error(R, 3025, "sdf_load_file:fcb");
    InMaking making(f);
    sdfile* s = f->file;
    int fd = sdf_io.open(path, writable ? O_RDWR : O_RDONLY, 0);
    if (fd < 0) {
        int rc = sdf_error(R, 3040, path, sdf_sys_error());
        free_fcb(f);
        return rc;
    }
    f->ios->fd = fd;
    char magic[16];
    int rc = 0;
    const ssize_t got = read_start(fd, magic, sizeof magic);
    // A failing read says nothing about what the file is: it is reported as
    // the read error it is, like the same failure on any later block.
    if (got < 0)
        rc = sdf_error(R, 3080, 0, f->number, s->name,
                       ("FREAD nobj = " + std::to_string(sizeof magic) + "\n" + sdf_sys_error()).c_str());
    else if (got != static_cast<ssize_t>(sizeof magic))
        rc = sdf_error(R, 3050, path);
    else if (memcmp(magic, "%BIN", 4) == 0 || memcmp(magic, "%ASC", 4) == 0)
        rc = sdf_error(R, 3053, path);
    else if (memcmp(magic, kMagic, 8) != 0)
        rc = sdf_error(R, 3050, path);
    if (rc) {
        free_fcb(f);
        return rc;
    }
    s->swap = (magic[9] == 'L' ? 2 : 1) != ZU_byteOrder();
    s->case_insensitive = magic[10] == 'I';
    s->writable = writable ? 1 : 0;
    f->writable = s->writable;
    s->writer = writable ? f : nullptr;
    s->first_channel = -1;
    const char* step = "sdf_read_block";
    rc = sdf_read_block(s->hdr, f, 0, 0, SDF_HDR_BYTES);
    if (!rc) rc = sdf_check_header(s->hdr, s->name), step = "sdf_check_header";
    if (!rc) rc = sdf_read_blkinf(f), step = "sdf_read_blkinf";
    if (!rc) rc = sdf_read_varinf(f), step = "sdf_read_varinf";
    if (!rc) rc = sdf_read_arrdim(f), step = "sdf_read_arrdim";
    if (rc >= 3000) {
        if (refusal && rc >= 3050 && rc <= 3054) *refusal = rc;
        rc = sdf_error_chain(R, rc, step);
        free_fcb(f);
        return rc;
    }
    *out = f;
    return rc ? sdf_error_chain(R, rc, step) : 0;  // a warning passes up
}

int sdf_close_file(fcb* f, int commit) {
    static const char* R = "sdf_close_file";
    if (!f) return 0;
    sdfile* s = f->file;
    int rc = 0;
    if (commit && f->writable && s->writable && !s->internal) {
        if ((rc = sdf_remove_cache(f)) != 0) return sdf_error_chain(R, rc, "sdf_remove_cache");
        int trimmed = sdf_trim_unused(s);
        rc = sdf_write_modified_blocks(f);
        if (rc) return sdf_error_chain(R, rc, "sdf_write_modified_blocks");
        const int64_t length = static_cast<int64_t>(s->hdr->file_chunks) * s->hdr->chunk_size;
        if (trimmed) s->disk_bytes = std::min(s->disk_bytes, length);
        if (trimmed && sdf_io.ftruncate(f->ios->fd, length) != 0) {
            std::string why = "FTRUNCATE length = " + std::to_string(length) + "\n" + sdf_sys_error();
            rc = sdf_error(R, 3081, 0, f->number, s->name, why.c_str());
        }
    }
    free_fcb(f);
    return rc;
}

}  // extern "C"

// ------------------------------------------------------- the block table

namespace {

const char* const kChainName[] = {"", "blkinf", "unused", "varinf", "varnam", "arrdim", "chrvar"};

struct TableCheck {
    fcb* f;
    sdfile* s;
    int64_t file_bytes;
    int64_t cs;

    int corrupt(const std::string& text) const {
        return sdf_error("sdf_read_blkinf", 3051, s->name, ("is corrupt: " + text).c_str());
    }
    static std::string at(int b) { return " at block " + std::to_string(b) + "."; }
    int wrong_type(int b, int want, int got) const {
        return corrupt("wrong block type at block " + std::to_string(b) + ". Expected " + std::to_string(want) +
                       ", got " + std::to_string(got) + ".");
    }
    // A block that is read from disk must lie inside the file as it is.
    int inside(int b, int64_t start, int64_t chunks) const {
        if (chunks < 1) return corrupt("block of no chunks" + at(b));
        if (start < 1 || (start + chunks) * cs > file_bytes) return corrupt("block lies outside the file" + at(b));
        return 0;
    }
    sdf_blkent* ent(int b) const { return s->blks->rows[b].entry; }
};

// Loads the blkinf blocks one by one from block 1, checking each new entry
// before anything follows it.
int load_blkinf(const TableCheck& t, int64_t total) {
    sdfile* s = t.s;
    sdf_hdr* h = s->hdr;
    Blks* k = s->blks;
    const sdf_chain_desc& bi = h->chain[0];
    int cur = 1;
    int64_t loaded = 0, sum = 0;
    for (;;) {
        int64_t start = cur == 1 ? h->blk1_start : t.ent(cur)->start;
        int64_t chunks = cur == 1 ? h->blk1_len : t.ent(cur)->chunks;
        if (int rc = t.inside(cur, start, chunks)) return rc;
        sum += chunks;
        if (sum > bi.chunks) return t.corrupt("blkinf chunk count exceeds total" + t.at(cur));
        auto* buf = static_cast<sdf_blkent*>(ZU_allocMem(chunks * t.cs, "sdf_read_blkinf:infoblock"));
        if (!buf) return sdf_error("sdf_read_blkinf", 3025, "sdf_read_blkinf:infoblock");
        if (int rc = sdf_read_block(buf, t.f, cur, 0, chunks * t.cs)) {
            ZU_freeMem(buf);
            return sdf_error_chain("sdf_read_blkinf", rc, "sdf_read_block");
        }
        k->rows[cur].data = buf;
        k->rows[cur].flags |= SDF_BLK_OWNED;
        const int64_t n = chunks * t.cs / SDF_ENTRY_BYTES;
        for (int64_t i = 0; i < n; i++) {
            const int b = static_cast<int>(loaded + i);
            k->rows[b].entry = &buf[i];
            k->rows[b].owner = cur;
            if (buf[i].next < 0 || buf[i].next >= total || buf[i].prev < 0 || buf[i].prev >= total)
                return t.corrupt("block reference out of range" + t.at(b));
            if (buf[i].type < -8 || buf[i].type > SDF_CH_CHRVAR)
                return t.corrupt("block type out of range" + t.at(b));
        }
        loaded += n;
        k->count = static_cast<int32_t>(loaded);
        if (cur == 1) {
            const sdf_blkent* e1 = t.ent(1);
            if (e1->type != SDF_CH_BLKINF) return t.wrong_type(1, SDF_CH_BLKINF, e1->type);
            if (e1->start != h->blk1_start || e1->chunks != h->blk1_len)
                return t.corrupt("block 1 differs from the header" + t.at(1));
        }
        const int next = t.ent(cur)->next;
        if (next == 0) break;
        if (next >= loaded) return t.corrupt("block reference out of range" + t.at(next));
        if (t.ent(next)->type != SDF_CH_BLKINF) return t.wrong_type(next, SDF_CH_BLKINF, t.ent(next)->type);
        cur = next;
    }
    if (loaded != total) return t.corrupt("blkinf chunk count short of total" + t.at(cur));
    if (bi.tail != cur) return t.corrupt("blkinf chain does not end at its tail" + t.at(cur));
    return 0;
}

// The list of free entries: in range, all free, linked both ways, counted.
int check_free_list(const TableCheck& t) {
    const sdf_chain_desc& bi = t.s->hdr->chain[0];
    const int count = t.s->blks->count;
    int n = 0, prev = 0;
    for (int b = bi.free_a; b != 0; b = t.ent(b)->next) {
        if (b < 2 || b >= count || n >= count) return t.corrupt("free entry list broken" + t.at(b));
        const sdf_blkent* e = t.ent(b);
        if (e->type != SDF_CH_FREE || e->prev != prev) return t.corrupt("free entry list broken" + t.at(b));
        prev = b;
        n++;
    }
    if (n != bi.free_count) return t.corrupt("free entry count wrong" + t.at(prev));
    return 0;
}

// Walks chain ch from its head: each block of the chain's type, the chunks
// within the chain's total, the walk ending at the tail.
int check_chain(const TableCheck& t, int ch) {
    const sdf_chain_desc& c = t.s->hdr->chain[ch - 1];
    const int count = t.s->blks->count;
    const std::string name = kChainName[ch];
    if (c.head == 0) {
        if (c.tail != 0) return t.corrupt(name + " chain does not end at its tail" + t.at(c.tail));
        if (c.chunks != 0) return t.corrupt(name + " chunk count short of total" + t.at(0));
        return 0;
    }
    if (c.head < 0 || c.head >= count || c.head == 1) return t.corrupt("block reference out of range" + t.at(c.head));
    int64_t sum = 0;
    int b = c.head;
    for (int steps = 0;; steps++) {
        const sdf_blkent* e = t.ent(b);
        if (e->type != ch) return t.wrong_type(b, ch, e->type);
        if (steps >= count) return t.corrupt(name + " chain loops" + t.at(b));
        if (ch == SDF_CH_UNUSED) {
            if (e->chunks < 1 || e->start < 1 ||
                static_cast<int64_t>(e->start) + e->chunks > t.s->hdr->file_chunks)
                return t.corrupt("block lies outside the file" + t.at(b));
        } else if (int rc = t.inside(b, e->start, e->chunks)) {
            return rc;
        }
        sum += e->chunks;
        if (sum > c.chunks) return t.corrupt(name + " chunk count exceeds total" + t.at(b));
        if (e->next == 0) break;
        b = e->next;
    }
    if (b != c.tail) return t.corrupt(name + " chain does not end at its tail" + t.at(b));
    // Totals size the tables built at load; one that the blocks don't back
    // would make the loader allocate for chunks that aren't there.
    if (sum != c.chunks) return t.corrupt(name + " chunk count short of total" + t.at(b));
    return 0;
}

}  // namespace

extern "C" int sdf_read_blkinf(fcb* f) {
    static const char* R = "sdf_read_blkinf";
    sdfile* s = f->file;
    sdf_hdr* h = s->hdr;
    TableCheck t{f, s, 0, h->chunk_size};
    struct stat st;
    if (sdf_io.fstat(f->ios->fd, &st) != 0)
        return sdf_error(R, 3080, 0, f->number, s->name, sdf_sys_error());
    t.file_bytes = st.st_size;
    s->disk_bytes = st.st_size;
    if (t.cs < SDF_RECORD_BYTES || t.cs > kMaxChunk || t.cs % SDF_RECORD_BYTES != 0)
        return t.corrupt("chunk size " + std::to_string(t.cs) + " out of range.");
    if (h->file_chunks < 1) return t.corrupt("file chunk count out of range" + t.at(0));
    const sdf_chain_desc& bi = h->chain[0];
    if (bi.chunks < 0 || bi.chunks * t.cs > t.file_bytes)
        return t.corrupt("blkinf chunk count exceeds total" + t.at(1));
    const int64_t total = bi.chunks * t.cs / SDF_ENTRY_BYTES;
    if (total > INT32_MAX / 4) return t.corrupt("blkinf chunk count exceeds total" + t.at(1));
    sdf_free_blks(s->blks);
    s->blks = sdf_new_blks(static_cast<int>(total), s->writable ? static_cast<int>(total / 5) : 0);
    if (!s->blks) return sdf_error(R, 3025, "sdf_new_blks:Blentry");
    if (bi.chunks == 0) {
        if (bi.head != 0 || bi.tail != 0) return t.corrupt("block reference out of range" + t.at(bi.head));
    } else {
        if (bi.head != 1) return t.corrupt("block reference out of range" + t.at(bi.head));
        if (int rc = load_blkinf(t, total)) return rc;
        if (int rc = check_free_list(t)) return rc;
    }
    for (int ch = SDF_CH_UNUSED; ch <= SDF_CH_CHRVAR; ch++)
        if (int rc = check_chain(t, ch)) return rc;
    return 0;
}
