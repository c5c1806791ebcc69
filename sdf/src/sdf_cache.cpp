// The user cache: a few write-back buffers in front of the data blocks of a
// file, which turn many small array transfers into fewer, whole-buffer file
// transfers.
//
// Invariants, all kept under the file's cache mutex:
// - a filled buffer holds a stretch of one data block that starts at a
//   multiple of chunks_per_buffer from the block's start and never passes
//   the block's end; filled buffers never overlap;
// - key[1..filled] lists the filled rows by first chunk, so a bisection
//   finds the buffer that holds a chunk;
// - buffers hold bytes in the file's order, exactly what the file would
//   hold; `modified` counts the filled rows that differ from the file;
// - a transfer above max_transfer bytes goes straight to the file unless it
//   lies inside one buffer; before it does, every buffer it overlaps is
//   emptied (written back first where the file would otherwise lose data).
#include <errno.h>
#include <string.h>

#include <algorithm>
#include <string>

#include "sdf_inner.h"

namespace {

constexpr int kMinBuffers = 10;
constexpr int kDefaultChunksPerBuffer = 8;
constexpr int64_t kMaxRows = 1 << 20;  // a table beyond this is refused as out of memory

struct CacheLock {
    ZU_Lock lock;
    explicit CacheLock(const sdfile* s) : lock(s->cache_mutex) { ZU_lock(lock); }
    ~CacheLock() { ZU_unlock(lock); }
    CacheLock(const CacheLock&) = delete;
    CacheLock& operator=(const CacheLock&) = delete;
};

struct IosLock {
    ZU_Lock lock;
    explicit IosLock(const sdfios* io) : lock(io ? io->mutex : nullptr) { ZU_lock(lock); }
    ~IosLock() { ZU_unlock(lock); }
    IosLock(const IosLock&) = delete;
    IosLock& operator=(const IosLock&) = delete;
};

int64_t chunk_bytes(const sdf_cache* c) { return c->owner->hdr->chunk_size; }
int64_t buffer_bytes(const sdf_cache* c) { return c->chunks_per_buffer * chunk_bytes(c); }

// ---- the LRU ring; row 0 is its head

void ring_unlink(sdf_cache* c, int r) {
    sdf_cache_row* b = c->buffer;
    b[b[r].prev].next = b[r].next;
    b[b[r].next].prev = b[r].prev;
}

void to_mru(sdf_cache* c, int r) {
    sdf_cache_row* b = c->buffer;
    ring_unlink(c, r);
    b[r].prev = b[0].prev;
    b[r].next = 0;
    b[b[0].prev].next = r;
    b[0].prev = r;
}

void to_lru(sdf_cache* c, int r) {
    sdf_cache_row* b = c->buffer;
    ring_unlink(c, r);
    b[r].next = b[0].next;
    b[r].prev = 0;
    b[b[0].next].prev = r;
    b[0].next = r;
}

// ---- the key

// The first position whose buffer ends at or after chunk; filled + 1 if none.
int key_lower(const sdf_cache* c, int chunk) {
    int lo = 1, hi = c->filled + 1;
    while (lo < hi) {
        int mid = lo + (hi - lo) / 2;
        if (c->buffer[c->key[mid]].last < chunk)
            lo = mid + 1;
        else
            hi = mid;
    }
    return lo;
}

// The row holding chunk, or 0.
int find_holding(const sdf_cache* c, int chunk) {
    int p = key_lower(c, chunk);
    if (p > c->filled) return 0;
    int r = c->key[p];
    return c->buffer[r].first <= chunk ? r : 0;
}

void key_insert(sdf_cache* c, int r) {
    int p = key_lower(c, c->buffer[r].first);
    memmove(c->key + p + 1, c->key + p, sizeof(int32_t) * static_cast<size_t>(c->filled + 1 - p));
    c->key[p] = r;
    c->filled++;
}

void key_remove(sdf_cache* c, int r) {
    int p = key_lower(c, c->buffer[r].first);
    if (p > c->filled || c->key[p] != r) return;  // not filled
    memmove(c->key + p, c->key + p + 1, sizeof(int32_t) * static_cast<size_t>(c->filled - p));
    c->filled--;
}

// Empties a buffer without writing it and makes it the first to be reused.
void empty_row(sdf_cache* c, int r) {
    sdf_cache_row& b = c->buffer[r];
    if (b.chunks == 0) return;
    key_remove(c, r);
    if (b.modified) c->modified--;
    b.modified = 0;
    b.chunks = b.first = b.last = 0;
    to_lru(c, r);
}

void free_cache(sdf_cache* c) {
    if (!c) return;
    for (int r = 0; c->buffer && r < c->rows; r++) ZU_freeMem(c->buffer[r].data);
    ZU_freeMem(c->buffer);
    ZU_freeMem(c->key);
    ZU_freeMem(c);
}

// The channel whose handle writes: the file's writer when there is one, as
// a reader's own handle can't.
const fcb* write_channel(const fcb* f) { return f->file->writer ? f->file->writer : f; }

// Writes back every modified buffer in chunk order; cache mutex held.
int write_modified(fcb* f, sdf_cache* c, const char* routine) {
    for (int p = 1; p <= c->filled && c->modified > 0; p++) {
        if (!c->buffer[c->key[p]].modified) continue;
        if (int rc = sdf_write_cache(f, c, c->key[p])) return sdf_error_chain(routine, rc, "sdf_write_cache");
    }
    return 0;
}

// Empties the buffers that overlap chunks first..last, writing back the
// modified ones unless the range [keep_from, keep_to] of the transfer covers
// them whole (their content is about to be replaced). Cache mutex held.
int clear_overlap(fcb* f, sdf_cache* c, int first, int last, const char* routine, int64_t keep_from = -1,
                  int64_t keep_to = -1) {
    const int64_t cs = chunk_bytes(c);
    for (int p = key_lower(c, first); p <= c->filled && c->buffer[c->key[p]].first <= last;) {
        int r = c->key[p];
        sdf_cache_row& b = c->buffer[r];
        const bool covered = keep_from >= 0 && b.first * cs >= keep_from && (b.last + 1) * cs <= keep_to;
        if (b.modified && !covered) {
            if (int rc = sdf_write_cache(f, c, r)) return sdf_error_chain(routine, rc, "sdf_write_cache");
        }
        empty_row(c, r);  // the next overlapping row moves up to position p
    }
    return 0;
}

// Copies between the caller's bytes [pos, pos + n) and the cache, getting
// buffers as the walk needs them; cache mutex held.
int copy_through(fcb* f, sdf_cache* c, int block, int64_t pos, int64_t n, unsigned char* rbuf,
                 const unsigned char* wbuf, const char* routine) {
    const int64_t cs = chunk_bytes(c);
    for (int64_t at = pos; at < pos + n;) {
        const int chunk = static_cast<int>(at / cs);
        int r = find_holding(c, chunk);
        if (!r) {
            if (int rc = sdf_get_cache(f, block, chunk, &r)) return sdf_error_chain(routine, rc, "sdf_get_cache");
        }
        sdf_cache_row& b = c->buffer[r];
        const int64_t from = b.first * cs;
        const int64_t len = std::min(pos + n, (b.last + 1) * cs) - at;
        if (len <= 0) return sdf_error(routine, 4001, "A cache buffer does not hold the chunk it was filled for.");
        if (wbuf) {
            memcpy(b.data + (at - from), wbuf + (at - pos), static_cast<size_t>(len));
            if (!b.modified) c->modified++;
            b.modified = 1;
        } else {
            memcpy(rbuf + (at - pos), b.data + (at - from), static_cast<size_t>(len));
        }
        to_mru(c, r);
        at += len;
    }
    return 0;
}

// The common path of reads and writes through the cache.
int transfer(fcb* f, int block, int64_t pos, int64_t n, unsigned char* rbuf, const unsigned char* wbuf,
             int* done, const char* routine) {
    *done = 0;
    sdfile* s = f->file;
    CacheLock lock(s);
    sdf_cache* c = s->cache;
    if (!c || n <= 0) return 0;
    const int64_t cs = chunk_bytes(c);
    const int fch = static_cast<int>(pos / cs);
    const int lch = static_cast<int>((pos + n - 1) / cs);
    const int rf = find_holding(c, fch);
    if (n > c->max_transfer && !(rf && rf == find_holding(c, lch))) {
        int rc = wbuf ? clear_overlap(f, c, fch, lch, routine, pos, pos + n) : clear_overlap(f, c, fch, lch, routine);
        return rc;  // the caller goes to the file
    }
    int rc = copy_through(f, c, block, pos, n, rbuf, wbuf, routine);
    if (rc == 0) *done = 1;
    return rc;
}

// Reads chunks first..last into a buffer's memory; 0 or 3083.
int fill_row(fcb* f, sdf_cache* c, sdf_cache_row& b) {
    const int64_t cs = chunk_bytes(c);
    const int64_t pos = b.first * cs, n = b.chunks * cs;
    if (!f->ios || pos < 0) {
        std::string why = "FSEEK offset = " + std::to_string(pos) + "\n" + strerror(EINVAL);
        return sdf_error("sdf_get_cache", 3083, f->number, f->file->name, why.c_str());
    }
    IosLock io(f->ios);
    for (int64_t done = 0; done < n;) {
        errno = 0;
        ssize_t got = sdf_io.pread(f->ios->fd, b.data + done, static_cast<size_t>(n - done), pos + done);
        if (got < 0 && errno == EINTR) continue;
        // Behind the length the file had, chunks never written read as
        // zeros; an end before it means the file was cut under the reader.
        if (got == 0 && pos + done >= f->file->disk_bytes) {
            memset(b.data + done, 0, static_cast<size_t>(n - done));
            return 0;
        }
        if (got <= 0) {
            std::string why = "FREAD nobj = " + std::to_string(n) + "\n" + (got < 0 ? sdf_sys_error() : "end of file");
            return sdf_error("sdf_get_cache", 3083, f->number, f->file->name, why.c_str());
        }
        done += got;
    }
    return 0;
}

// A new, empty cache by the arguments of Sdf_Cache; null when out of memory.
sdf_cache* new_cache(sdfile* s, int buffers, int bytes, int max_transfer, const char** tag) {
    const int64_t cs = s->hdr->chunk_size;
    const int64_t rows = std::max<int64_t>(buffers, kMinBuffers) + 1;
    *tag = "sdf_get_cache:cache";
    if (rows > kMaxRows) return nullptr;
    auto* c = static_cast<sdf_cache*>(ZU_allocMem(sizeof(sdf_cache), *tag));
    if (!c) return nullptr;
    c->owner = s;
    c->rows = static_cast<int32_t>(rows);
    *tag = "sdf_get_cache:rows";
    c->buffer = static_cast<sdf_cache_row*>(ZU_allocMem(sizeof(sdf_cache_row) * static_cast<size_t>(rows), *tag));
    c->key = c->buffer ? static_cast<int32_t*>(ZU_allocMem(sizeof(int32_t) * static_cast<size_t>(rows + 1), "sdf_get_cache:key")) : nullptr;
    if (!c->key) {
        if (c->buffer) *tag = "sdf_get_cache:key";
        free_cache(c);
        return nullptr;
    }
    const int64_t cpb = bytes > 0 ? (bytes + cs - 1) / cs : kDefaultChunksPerBuffer;
    c->chunks_per_buffer = static_cast<int32_t>(cpb);
    const int64_t limit = max_transfer > 0 ? max_transfer : cs;
    c->max_transfer = static_cast<int32_t>(std::min(limit, cpb * cs / 2));
    for (int r = 0; r < c->rows; r++) {
        c->buffer[r].next = (r + 1) % c->rows;
        c->buffer[r].prev = (r + c->rows - 1) % c->rows;
    }
    return c;
}

}  // namespace

extern "C" {

int sdf_write_cache(fcb* f, sdf_cache* c, int row) {
    static const char* R = "sdf_write_cache";
    sdf_cache_row& b = c->buffer[row];
    const fcb* w = write_channel(f);
    const int64_t cs = chunk_bytes(c);
    const int64_t pos = b.first * cs, n = b.chunks * cs;
    if (!w->ios || pos < 0) {
        std::string why = "FSEEK offset = " + std::to_string(pos) + "\n" + strerror(EINVAL);
        return sdf_error(R, 3084, f->number, f->file->name, why.c_str());
    }
    {
        IosLock io(w->ios);
        for (int64_t done = 0; done < n;) {
            errno = 0;
            ssize_t got = sdf_io.pwrite(w->ios->fd, b.data + done, static_cast<size_t>(n - done), pos + done);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) {
                std::string why = "FWRITE nobj = " + std::to_string(n) + "\n" +
                                  (got < 0 ? sdf_sys_error() : "nothing was written");
                return sdf_error(R, 3084, f->number, f->file->name, why.c_str());
            }
            done += got;
        }
    }
    if (b.modified) c->modified--;
    b.modified = 0;
    return 0;
}

int sdf_get_cache(fcb* f, int block, int chunk, int* row) {
    static const char* R = "sdf_get_cache";
    sdfile* s = f->file;
    sdf_cache* c = s->cache;
    const Blks* k = s->blks;
    if (!c || !k || block < 1 || block >= k->count || !k->rows[block].entry)
        return sdf_error(R, 4001, "sdf_get_cache: no cache or no such block.");
    const sdf_blkent* e = k->rows[block].entry;
    if (chunk < e->start || chunk - e->start >= e->chunks)
        return sdf_error(R, 4001, "sdf_get_cache: the chunk lies outside its block.");
    const int first = chunk - (chunk - e->start) % c->chunks_per_buffer;
    const int last = static_cast<int>(std::min<int64_t>(static_cast<int64_t>(first) + c->chunks_per_buffer,
                                                        static_cast<int64_t>(e->start) + e->chunks) - 1);
    // A buffer cut short when its block was smaller may lie in this stretch.
    if (int rc = clear_overlap(f, c, first, last, R)) return rc;
    const int r = c->buffer[0].next;
    sdf_cache_row& b = c->buffer[r];
    if (b.chunks && b.modified) {
        if (int rc = sdf_write_cache(f, c, r)) return sdf_error_chain(R, rc, "sdf_write_cache");
    }
    empty_row(c, r);
    if (!b.data) {
        b.data = static_cast<unsigned char*>(ZU_allocMemNoZero(static_cast<size_t>(buffer_bytes(c)), "sdf_get_cache:buffer"));
        if (!b.data) return sdf_error(R, 3025, "sdf_get_cache:buffer");
    }
    b.first = first;
    b.last = last;
    b.chunks = last - first + 1;
    if (int rc = fill_row(f, c, b)) {
        b.chunks = b.first = b.last = 0;
        return rc;
    }
    key_insert(c, r);
    to_mru(c, r);
    *row = r;
    return 0;
}

int sdf_write_modified_caches(fcb* f) {
    sdfile* s = f->file;
    CacheLock lock(s);
    return s->cache ? write_modified(f, s->cache, "sdf_write_modified_caches") : 0;
}

int sdf_remove_cache(fcb* f) {
    sdfile* s = f->file;
    CacheLock lock(s);
    if (!s->cache) return 0;
    if (int rc = write_modified(f, s->cache, "sdf_remove_cache")) return rc;
    free_cache(s->cache);
    s->cache = nullptr;
    return 0;
}

void sdf_drop_cache(sdfile* s) {
    free_cache(s->cache);
    s->cache = nullptr;
}

void sdf_cache_empty_all(sdfile* s) {
    CacheLock lock(s);
    sdf_cache* c = s->cache;
    while (c && c->filled > 0) empty_row(c, c->key[c->filled]);
}

void sdf_cache_empty_range(sdfile* s, int first, int last) {
    CacheLock lock(s);
    sdf_cache* c = s->cache;
    if (!c) return;
    for (int p = key_lower(c, first); p <= c->filled && c->buffer[c->key[p]].first <= last;)
        empty_row(c, c->key[p]);
}

void sdf_cache_extend(sdfile* s, int block, int old_chunks, int new_chunks) {
    CacheLock lock(s);
    sdf_cache* c = s->cache;
    const Blks* k = s->blks;
    if (!c || !k || block < 1 || block >= k->count || !k->rows[block].entry || new_chunks <= old_chunks) return;
    const int start = k->rows[block].entry->start;
    const int old_last = start + old_chunks - 1;
    const int r = find_holding(c, old_last);
    if (!r || c->buffer[r].last != old_last) return;
    sdf_cache_row& b = c->buffer[r];
    int64_t new_last = std::min<int64_t>(static_cast<int64_t>(b.first) + c->chunks_per_buffer,
                                         static_cast<int64_t>(start) + new_chunks) - 1;
    const int p = key_lower(c, old_last);  // never run into the next buffer
    if (p < c->filled) new_last = std::min<int64_t>(new_last, c->buffer[c->key[p + 1]].first - 1);
    if (new_last <= old_last) return;
    const int64_t cs = chunk_bytes(c);
    memset(b.data + (old_last + 1 - b.first) * cs, 0, static_cast<size_t>((new_last - old_last) * cs));
    b.last = static_cast<int32_t>(new_last);
    b.chunks = b.last - b.first + 1;
    // The new chunks may hold old bytes in the file; writing the zeros keeps
    // what later reads see the same whether or not the buffer stays.
    if (!b.modified) c->modified++;
    b.modified = 1;
}

int sdf_cache_read(fcb* f, int block, int64_t pos, int64_t n, void* buf, int* done) {
    return transfer(f, block, pos, n, static_cast<unsigned char*>(buf), nullptr, done, "sdf_cache_read");
}

int sdf_cache_write(fcb* f, int block, int64_t pos, int64_t n, const void* buf, int* done) {
    return transfer(f, block, pos, n, nullptr, static_cast<const unsigned char*>(buf), done, "sdf_cache_write");
}

int Sdf_Cache(int channel, int buffers, int buffer_bytes, int max_transfer) {
    static const char* R = "Sdf_Cache";
    fcb* f = nullptr;
    int taken = 0;
    if (int rc = sdf_chan_read_begin(channel, R, &f, &taken)) return rc;
    sdfile* s = f->file;
    int rc = 0;
    if (!s->internal) {
        CacheLock lock(s);
        if (s->cache) {
            rc = write_modified(f, s->cache, R);
            if (rc == 0) sdf_drop_cache(s);
        }
        if (rc == 0 && buffers > 0) {
            const char* tag = nullptr;
            s->cache = new_cache(s, buffers, buffer_bytes, max_transfer, &tag);
            if (!s->cache) rc = sdf_error(R, 3025, tag);
        }
    }
    sdf_chan_read_end(f, taken);
    return rc;
}

}  // extern "C"
