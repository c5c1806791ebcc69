// Transfer of blocks between memory and the file, and the commit.
//
// A block is placed by its entry (blocks 0 and 1 by the header when the table
// isn't there yet); a transfer is checked to lie inside its block before any
// byte moves, so a damaged entry can only produce an error code. Memory holds
// native order; a file of the other order is converted on the way, on writes
// through a staging buffer so the caller's buffer stays native.
//
// The commit brackets the block writes with the header's dirty flag: set
// before the first block, cleared after the last. Before the flag is cleared
// the file is extended (without writing, so it stays sparse) to the length
// its header counts: a clean file this library leaves is never shorter than
// its header says, so chunks allocated but never written lie inside it, and
// a file found shorter at open or at a read was cut, not left unwritten. When any step fails the
// flag stays set in memory too, and every later commit on this open file is
// refused, since the file can no longer be trusted to match memory.
#include <errno.h>
#include <inttypes.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>
#include <string>
#include <vector>

#include "sdf_inner.h"

namespace {

constexpr int64_t kMaxPiece = 0x1000000;  // one system request
constexpr int64_t kStage = 0x40000;       // staging buffer; a multiple of 64

struct Place {
    int64_t pos = 0;
    int64_t size = 0;
    int type = 0;
    const sdf_blkent* entry = nullptr;
};

// Where a block lies. Block 1 comes from the header on reads, because the
// table is being loaded when it is first read.
bool place(const sdfile* s, int block, bool reading, Place* p) {
    const int64_t cs = s->hdr->chunk_size;
    const Blks* k = s->blks;
    if (block == 0) {
        p->size = SDF_HDR_BYTES;
        return true;
    }
    if (block == 1 && reading) {
        p->pos = s->hdr->blk1_start * cs;
        p->size = s->hdr->blk1_len * cs;
        p->type = SDF_CH_BLKINF;
        p->entry = k && k->count > 1 ? k->rows[1].entry : nullptr;
        return true;
    }
    if (!k || block < 1 || block >= k->count || !k->rows[block].entry) return false;
    const sdf_blkent* e = k->rows[block].entry;
    p->pos = e->start * cs;
    p->size = e->chunks * cs;
    p->type = e->type;
    p->entry = e;
    return true;
}

bool is_slot_type(int type) { return type == SDF_CH_VARNAM || type == SDF_CH_CHRVAR; }

std::string num(int64_t v) { return std::to_string(v); }

struct IosGuard {
    ZU_Lock lock;
    explicit IosGuard(const fcb* f) : lock(f->ios ? f->ios->mutex : nullptr) { ZU_lock(lock); }
    ~IosGuard() { ZU_unlock(lock); }
    IosGuard(const IosGuard&) = delete;
    IosGuard& operator=(const IosGuard&) = delete;
};

// Writes n bytes at pos, looping over short transfers; on failure *why holds
// "<label> nobj = n\n<system text>".
bool write_all(const fcb* f, const unsigned char* p, int64_t n, int64_t pos, const char* label,
               std::string* why) {
    int64_t done = 0;
    while (done < n) {
        int64_t want = std::min(n - done, kMaxPiece);
        errno = 0;
        ssize_t got = sdf_io.pwrite(f->ios->fd, p + done, static_cast<size_t>(want), pos + done);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) {
            const char* sys = got < 0 ? sdf_sys_error() : "nothing was written";
            *why = std::string(label) + " nobj = " + num(n) + "\n" + sys;
            return false;
        }
        done += got;
    }
    return true;
}

int fail_write(const fcb* f, int block, const std::string& why) {
    return sdf_error("sdf_write_block", 3081, block, f->number, f->file->name, why.c_str());
}

int fail_read(const fcb* f, int block, const std::string& why) {
    return sdf_error("sdf_read_block", 3080, block, f->number, f->file->name, why.c_str());
}

std::string range_text(int64_t offset, int64_t count, int64_t size) {
    return "byte range " + num(offset) + "+" + num(count) + " lies outside the block of " + num(size) +
           " bytes";
}

int flush_file(const fcb* f, const char* routine) {
    if (f->file->internal || !f->ios) return 0;
    if (sdf_io.fsync(f->ios->fd) != 0)
        return sdf_error(routine, 3082, f->number, f->file->name, sdf_sys_error());
    return 0;
}

bool flush_always(const fcb* f) { return sdf_opt_int(f, SDF_OPT_FLUSH) == 1; }

int read_file(void* buf, const fcb* f, int block, const Place& p, int64_t offset, int64_t count) {
    const int64_t pos = p.pos + offset;
    if (pos < 0) return fail_read(f, block, "FSEEK offset = " + num(pos) + "\n" + strerror(EINVAL));
    auto* out = static_cast<unsigned char*>(buf);
    IosGuard guard(f);
    int64_t done = 0;
    while (done < count) {
        int64_t want = std::min(count - done, kMaxPiece);
        errno = 0;
        ssize_t got = sdf_io.pread(f->ios->fd, out + done, static_cast<size_t>(want), pos + done);
        if (got < 0 && errno == EINTR) continue;
        // Only data behind the length the file had reads as zeros: an end
        // of file before it means the file was cut under this reader.
        if (got == 0 && p.type < 0 && pos + done >= f->file->disk_bytes) {
            memset(out + done, 0, static_cast<size_t>(count - done));
            return 0;
        }
        if (got <= 0) {
            const char* sys = got < 0 ? sdf_sys_error() : "end of file";
            return fail_read(f, block, "FREAD nobj = " + num(count) + "\n" + sys);
        }
        done += got;
    }
    return 0;
}

// Extends the file to the header's length when it is shorter; 0 or 3081.
int cover_length(fcb* f) {
    sdfile* s = f->file;
    const int64_t length = static_cast<int64_t>(s->hdr->file_chunks) * s->hdr->chunk_size;
    if (length <= s->disk_bytes) return 0;
    struct stat st {};
    std::string why;
    if (sdf_io.fstat(f->ios->fd, &st) != 0)
        why = "FSTAT\n" + std::string(sdf_sys_error());
    else if (st.st_size < length && sdf_io.ftruncate(f->ios->fd, length) != 0)
        why = "FTRUNCATE length = " + num(length) + "\n" + sdf_sys_error();
    if (!why.empty()) return sdf_error("sdf_write_modified_blocks", 3081, 0, f->number, s->name, why.c_str());
    s->disk_bytes = std::max<int64_t>(length, st.st_size);
    return 0;
}

}  // namespace

extern "C" {

int sdf_read_block(void* buf, fcb* f, int block, int64_t offset, int64_t count) {
    sdfile* s = f->file;
    Place p;
    if (!place(s, block, true, &p)) return fail_read(f, block, "no such block in the table");
    if (count == 0) count = p.size - offset;
    if (offset < 0 || count < 0 || offset > p.size || count > p.size - offset)
        return fail_read(f, block, range_text(offset, count, p.size));
    if (s->internal) {
        const void* src = block == 0 ? static_cast<const void*>(s->hdr) : s->blks->rows[block].data;
        if (!src)
            memset(buf, 0, static_cast<size_t>(count));
        else if (static_cast<const char*>(src) + offset != buf)
            memmove(buf, static_cast<const char*>(src) + offset, static_cast<size_t>(count));
        return 0;
    }
    if (s->swap && is_slot_type(p.type) && offset != 0)
        return sdf_error("sdf_read_block", 4001, "A slot block can only be read from its start.");
    int done = 0;  // data blocks may be served by the user cache
    int rc = p.type < 0 ? sdf_cache_read(f, block, p.pos + offset, count, buf, &done) : 0;
    if (rc) return sdf_error_chain("sdf_read_block", rc, "sdf_cache_read");
    if (!done) rc = read_file(buf, f, block, p, offset, count);
    if (rc) return rc;
    if (s->swap) sdf_swap_block(buf, p.type, count, p.entry, offset / SDF_WORD, 1);
    return 0;
}

int sdf_write_block(const void* buf, fcb* f, int block, int64_t offset, int64_t count) {
    sdfile* s = f->file;
    Place p;
    if (!place(s, block, false, &p)) return fail_write(f, block, "no such block in the table");
    if (count == 0) count = p.size - offset;
    if (offset < 0 || count < 0 || offset > p.size || count > p.size - offset)
        return fail_write(f, block, range_text(offset, count, p.size));
    auto* in = static_cast<const unsigned char*>(buf);
    if (s->internal) {
        void* dst = s->hdr;
        if (block != 0) {
            Blentry& r = s->blks->rows[block];
            if (!r.data) {
                r.data = ZU_allocMem(static_cast<size_t>(p.size), "sdf_write_block:data");
                if (!r.data) return sdf_error("sdf_write_block", 3025, "sdf_write_block:data");
                r.flags |= SDF_BLK_OWNED;
            }
            dst = r.data;
        }
        if (static_cast<unsigned char*>(dst) + offset != in)
            memmove(static_cast<unsigned char*>(dst) + offset, in, static_cast<size_t>(count));
        return 0;
    }
    const int64_t pos = p.pos + offset;
    std::string why;
    int done = 0;
    if (!s->swap) {
        if (pos < 0) return fail_write(f, block, "FSEEK (2) offset = " + num(pos) + "\n" + strerror(EINVAL));
        int rc = p.type < 0 ? sdf_cache_write(f, block, pos, count, in, &done) : 0;
        if (rc) return sdf_error_chain("sdf_write_block", rc, "sdf_cache_write");
        if (done) return 0;
        IosGuard guard(f);
        if (!write_all(f, in, count, pos, "FWRITE (2)", &why)) return fail_write(f, block, why);
        return 0;
    }
    if (pos < 0) return fail_write(f, block, "FSEEK (1) offset = " + num(pos) + "\n" + strerror(EINVAL));
    const bool slots = is_slot_type(p.type);
    if (slots && offset != 0)
        return sdf_error("sdf_write_block", 4001, "A slot block can only be written from its start.");
    sdf_slot_walk walk;
    sdf_slot_walk_start(&walk, p.entry);
    std::vector<unsigned char> stage(static_cast<size_t>(std::min(count, kStage)));
    for (int64_t at = 0; at < count;) {
        int64_t len = std::min(count - at, kStage);
        memcpy(stage.data(), in + at, static_cast<size_t>(len));
        int64_t word0 = (offset + at) / SDF_WORD;
        if (slots)
            sdf_swap_slots(stage.data(), len, word0, &walk, 0);
        else
            sdf_swap_block(stage.data(), p.type, len, p.entry, word0, 0);
        // Each converted piece goes to the user cache when it takes it.
        int rc = p.type < 0 ? sdf_cache_write(f, block, pos + at, len, stage.data(), &done) : 0;
        if (rc) return sdf_error_chain("sdf_write_block", rc, "sdf_cache_write");
        if (!done) {
            IosGuard guard(f);
            if (!write_all(f, stage.data(), len, pos + at, "FWRITE (1)", &why)) return fail_write(f, block, why);
        }
        at += len;
    }
    return 0;
}

int sdf_write_hdr(fcb* f, int dirty) {
    sdf_hdr* h = f->file->hdr;
    h->guard = dirty ? SDF_GUARD_DIRTY : SDF_GUARD_CLEAN;
    h->modified = sdf_now_stamp();
    if (h->major >= SDF_MAJOR) {
        h->major = SDF_MAJOR;
        h->minor = SDF_MINOR;
    }
    if (f->file->internal) return 0;
    int rc = sdf_write_block(h, f, 0, 0, SDF_HDR_BYTES);
    if (rc == 0 && flush_always(f)) rc = flush_file(f, "sdf_write_hdr");
    if (rc) {
        h->guard = SDF_GUARD_DIRTY;  // the file's state is unknown now
        return sdf_error_chain("sdf_write_hdr", rc, "sdf_write_block");
    }
    return 0;
}

int sdf_write_modified_blocks(fcb* f) {
    static const char* R = "sdf_write_modified_blocks";
    sdfile* s = f->file;
    if (s->hdr->guard & 0xFFu) return sdf_error(R, 3051, s->name, "is marked corrupt.");
    if (s->internal) return 0;
    Blks* k = s->blks;
    if (k->modified == 0) return flush_always(f) ? flush_file(f, R) : 0;
    int rc = sdf_write_hdr(f, 1);
    if (rc) return sdf_error_chain(R, rc, "sdf_write_hdr");
    for (int b = 1; b < k->count; b++) {
        if (!(k->rows[b].flags & SDF_BLK_MODIFIED)) continue;
        if (k->rows[b].data) {
            rc = sdf_write_block(k->rows[b].data, f, b, 0, 0);
            if (rc) {
                s->hdr->guard = SDF_GUARD_DIRTY;
                return sdf_error_chain(R, rc, "sdf_write_block");
            }
        }
        sdf_touch(s, nullptr, b, 0);
    }
    // Marks without a buffer to write (the header's own row, or rows left
    // behind the table's end) are settled by the header write below.
    for (int b = 0; b < k->capacity && k->modified > 0; b++) sdf_touch(s, nullptr, b, 0);
    if ((rc = cover_length(f)) != 0) {
        s->hdr->guard = SDF_GUARD_DIRTY;
        return sdf_error_chain(R, rc, "cover_length");
    }
    rc = sdf_write_hdr(f, 0);
    if (rc) return sdf_error_chain(R, rc, "sdf_write_hdr");
    return 0;
}

int sdf_clean_block(fcb* f, int block) {
    sdfile* s = f->file;
    if (s->internal) return 0;
    Place p;
    if (!place(s, block, false, &p) || block == 0 || p.pos < 0)
        return sdf_error("sdf_clean_block", 3081, block, f->number, s->name, "no such block in the table");
    const int64_t piece = std::min(p.size, kStage);
    if (piece <= 0) return 0;
    if (p.type < 0) sdf_cache_empty_range(s, p.entry->start, p.entry->start + p.entry->chunks - 1);
    auto* zeros = static_cast<unsigned char*>(ZU_allocMem(static_cast<size_t>(piece), "sdf_clean_block:cbuf"));
    if (!zeros) return sdf_error("sdf_clean_block", 3025, "sdf_clean_block:cbuf");
    std::string why;
    int rc = 0;
    {
        IosGuard guard(f);
        for (int64_t done = 0; done < p.size && rc == 0; done += piece) {
            int64_t len = std::min(p.size - done, piece);
            if (!write_all(f, zeros, len, p.pos + done, "FWRITE", &why))
                rc = sdf_error("sdf_clean_block", 3081, block, f->number, s->name, why.c_str());
        }
    }
    ZU_freeMem(zeros);
    return rc;
}

}  // extern "C"
