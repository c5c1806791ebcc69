// What a caller can ask about files and channels, and the operations that
// bring a channel and its file in step: Sdf_Refresh (the tables from the
// file), Sdf_Write and Sdf_Flush (the file from the tables).
//
// A refresh replaces the tables only when the header's time moved; the new
// header is checked before the old tables go, so a file caught in the middle
// of another process's commit is refused and the old tables stay. When the
// new tables can't be loaded the file is left without any (both null), which
// every lookup refuses and a close accepts.
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "sdf_inner.h"

namespace {

constexpr int kNameMax = 2048;

bool blank(const char* p) { return !p || !p[0] || p[0] == ' '; }

// The absolute form of a path, as Sdf_Open builds it.
std::string absolute_path(const char* path) {
    if (path[0] == '/' || path[0] == '\\' ||
        (path[1] == ':' && ((path[0] | 0x20) >= 'a' && (path[0] | 0x20) <= 'z')))
        return path;
    char cwd[4096];
    std::string p = std::string(getcwd(cwd, sizeof cwd) ? cwd : ".") + "/" + path;
    if (p.size() > kNameMax) p.resize(kNameMax);
    return p;
}

// The first channel of the open file that `path` names, or null.
fcb* find_open(const char* path) {
    if (fcb* f = sdf_chan_find_internal(path)) return f;
    return sdf_chan_find_path(absolute_path(path).c_str());
}

void free_tables(sdfile* s) {
    if (s->blks) sdf_drop_slotblocks(s);
    sdf_free_vars(s->vars);
    sdf_free_blks(s->blks);
    s->vars = nullptr;
    s->blks = nullptr;
}

struct FileLock {
    ZU_RWLock lock = nullptr;
    FileLock(fcb* f, int mode) {
        if (sdf_thread_safe() && f->write_locks == 0 && (mode != 1 || f->read_locks == 0)) {
            lock = f->file->rwlock;
            ZU_rwLock(lock, mode);
        }
    }
    ~FileLock() {
        if (lock) ZU_rwUnlock(lock);
    }
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;
};

fcb* writable_channel(const sdfile* s) {
    for (fcb* c = sdf_chan_get(s->first_channel); c; c = sdf_chan_get(c->next))
        if (c->writable) return c;
    return nullptr;
}

// The lookup of Sdf_Refresh, Sdf_Write and Sdf_Flush: only the 3001 test,
// since a close must stay possible when the tables were lost.
int find_channel(int channel, const char* routine, fcb** out) {
    sdf_global_lock();
    *out = sdf_chan_get(channel);
    sdf_global_unlock();
    return *out ? 0 : sdf_error(routine, 3001, channel);
}

int write_out(fcb* f, const char* routine) {
    if (!f->file->blks) return 0;  // nothing in memory to write
    if (int rc = sdf_write_modified_caches(f)) return sdf_error_chain(routine, rc, "sdf_write_modified_caches");
    int rc = sdf_write_modified_blocks(f);
    return rc ? sdf_error_chain(routine, rc, "sdf_write_modified_blocks") : 0;
}

}  // namespace

extern "C" {

int sdf_refresh_fcb(fcb* f) {
    static const char* R = "sdf_refresh_fcb";
    sdfile* s = f->file;
    if (s->internal) return 0;
    auto* h = static_cast<sdf_hdr*>(ZU_allocMem(sizeof(sdf_hdr), "sdf_refresh_fcb:hdr"));
    if (!h) return sdf_error(R, 3025, "sdf_refresh_fcb:hdr");
    int rc = sdf_read_block(h, f, 0, 0, SDF_HDR_BYTES);
    if (rc) {
        ZU_freeMem(h);
        return sdf_error_chain(R, rc, "sdf_read_block");
    }
    if (h->modified == s->hdr->modified && s->blks && s->vars) {
        ZU_freeMem(h);
        return 0;
    }
    if (s->handles) sdf_error(R, 2003, s->name);
    if ((rc = sdf_check_header(h, s->name)) != 0) {
        ZU_freeMem(h);
        return sdf_error_chain(R, rc, "sdf_check_header");
    }
    // Another process changed the file; no writer is open here, so no
    // buffer is modified and all of them may hold stale bytes.
    sdf_cache_empty_all(s);
    free_tables(s);
    ZU_freeMem(s->hdr);
    s->hdr = h;
    const char* step = "sdf_read_blkinf";
    rc = sdf_read_blkinf(f);
    if (rc < 3000) rc = sdf_read_varinf(f), step = "sdf_read_varinf";
    if (rc < 3000) rc = sdf_read_arrdim(f), step = "sdf_read_arrdim";
    if (rc >= 3000) free_tables(s);
    return rc ? sdf_error_chain(R, rc, step) : 0;
}

int Sdf_Refresh(int channel) {
    static const char* R = "Sdf_Refresh";
    fcb* f = nullptr;
    if (int rc = find_channel(channel, R, &f)) return rc;
    FileLock lock(f, ZU_RW_WRITE);
    if (f->file->internal || writable_channel(f->file)) return 0;
    int rc = sdf_refresh_fcb(f);
    return rc ? sdf_error_chain(R, rc, "sdf_refresh_fcb") : 0;
}

int Sdf_Write(int channel) {
    static const char* R = "Sdf_Write";
    fcb* f = nullptr;
    if (int rc = find_channel(channel, R, &f)) return rc;
    if (!f->writable) return sdf_error(R, 3002, channel);
    if (f->file->internal) return 0;
    FileLock lock(f, ZU_RW_WRITE);
    return write_out(f, R);
}

int Sdf_Flush(int channel) {
    static const char* R = "Sdf_Flush";
    fcb* f = nullptr;
    if (int rc = find_channel(channel, R, &f)) return rc;
    if (!f->writable || f->file->internal) return 0;
    FileLock lock(f, ZU_RW_WRITE);
    if (int rc = write_out(f, R)) return rc;
    if (sdf_io.fsync(f->ios->fd) != 0) return sdf_error(R, 3082, channel, f->file->name, sdf_sys_error());
    return 0;
}

int Sdf_Fileinf(int channel, int32_t* info) {
    static const char* R = "Sdf_Fileinf";
    fcb* f = nullptr;
    int taken = 0;
    if (!info) return sdf_error(R, 4001, "Sdf_Fileinf: no array for the result.");
    if (int rc = sdf_chan_read_begin(channel, R, &f, &taken)) return rc;
    const sdf_hdr* h = f->file->hdr;
    info[0] = memcmp(h->magic, "%SDF_BIN", 8) == 0 ? 0 : 1;
    info[1] = h->major;
    info[2] = h->minor;
    info[3] = h->magic[9] == 'L' ? 2 : 1;
    info[4] = h->chunk_size;
    info[5] = h->file_chunks;
    info[6] = h->chain[SDF_CH_UNUSED - 1].chunks;
    sdf_chan_read_end(f, taken);
    return 0;
}

char* Sdf_FilenameTS(int channel, char* buffer, int size) {
    if (size < 1) size = kNameMax + 1;
    if (!buffer) {
        buffer = static_cast<char*>(sdf_register(ZU_allocMem(static_cast<size_t>(size), "Sdf_FilenameTS:buffer")));
        if (!buffer) return nullptr;
    }
    buffer[0] = 0;
    sdf_global_lock();
    if (fcb* f = sdf_chan_get(channel)) {
        size_t n = strlen(f->file->name);
        size_t room = static_cast<size_t>(size - 1 < kNameMax ? size - 1 : kNameMax);
        if (n > room) n = room;
        memcpy(buffer, f->file->name, n);
        buffer[n] = 0;
    }
    sdf_global_unlock();
    return buffer;
}

const char* Sdf_Filename(int channel) {
    static char name[kNameMax + 1];
    return Sdf_FilenameTS(channel, name, sizeof name);
}

int Sdf_Is_Open(const char* path, int* channel) {
    if (blank(path)) return 0;
    sdf_global_lock();
    fcb* f = find_open(path);
    const int number = f ? f->number : -1;
    sdf_global_unlock();
    if (channel) *channel = number;
    return f ? 1 : 0;
}

int Sdf_Is_Sdf(const char* path) {
    if (blank(path)) return 0;
    sdf_global_lock();
    const bool open = find_open(path) != nullptr;
    sdf_global_unlock();
    if (open) return 1;
    FILE* in = fopen(path, "rbe");
    if (!in) return 0;
    char magic[8];
    const bool sdf = fread(magic, 1, sizeof magic, in) == sizeof magic && memcmp(magic, "%SDF_BIN", 8) == 0;
    fclose(in);
    return sdf ? 1 : 0;
}

}  // extern "C"
