// Sdf_Close: the end of a channel, and of the file when it is the last one.
//
// A close that fails before the channel is removed leaves everything as it
// was, so the caller can retry or close otherwise: an invalid status, an
// INT64 variable at DOWNGRADE, a failed downgrade or commit. Once the
// channel is removed the close carries on to the end and reports what went
// wrong on the way (a failed truncate, delete or lock step).
//
// The inner routine tells its caller whether the file object outlived the
// call: 0 or above, it is still there and the file's write lock is to be
// released; below 0 it is gone with its lock, -1 is success and any other
// value minus the code.
#include <errno.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>

#include <string>

#include "sdf_inner.h"

namespace {

const char* const R = "Sdf_Close";

bool is(const char* word, const char* key) { return word && strcasecmp(word, key) == 0; }

fcb* writable_channel(const sdfile* s) {
    for (fcb* c = sdf_chan_get(s->first_channel); c; c = sdf_chan_get(c->next))
        if (c->writable) return c;
    return nullptr;
}

void unlink_channel(sdfile* s, fcb* f) {
    sdf_chain_remove(s, f);
    sdf_chan_release(f->number);
    if (!s->writer) s->writer = writable_channel(s);
}

// An INT64 variable can't be written in the old format.
int refuse_int64(const sdfile* s) {
    const vars* v = s->vars;
    for (int p = 0; v && p < v->count; p++) {
        const ventry& e = v->rows[v->key[p]];
        if (SDF_BASE_TYPE(e.record->type) == SDF_INT64_T) return sdf_error(R, 3020, SDF_INT64_T, e.name);
    }
    return 0;
}

// The last writer leaves while readers stay: commit, then every reader gets
// a read handle of its own and the lock says that nobody writes.
int leave_readers(fcb* f) {
    sdfile* s = f->file;
    int rc = sdf_write_modified_caches(f);  // the readers' handles can't write them later
    if (rc) return sdf_error_chain(R, rc, "sdf_write_modified_caches");
    rc = sdf_write_modified_blocks(f);
    if (rc) return sdf_error_chain(R, rc, "sdf_write_modified_blocks");
    unlink_channel(s, f);
    sdf_chan_free_fcb(f);
    s->writable = 0;
    s->writer = nullptr;
    for (fcb* c = sdf_chan_get(s->first_channel); c; c = sdf_chan_get(c->next)) {
        sdfios* io = nullptr;
        int r2 = sdf_ios_open(s->path, 0, R, &io);
        if (r2) {
            rc = r2;  // this channel keeps the shared handle, which still reads
            continue;
        }
        sdf_ios_drop(c->ios);
        c->ios = io;
    }
    if (s->locked) {
        int r2 = sdf_lock_downgrade(s, s->path);
        if (r2 && !rc) rc = sdf_error_chain(R, r2, "sdf_lock_downgrade");
    }
    return rc;
}

// Commit of the last writable channel; nothing is removed when it fails.
int commit_last(fcb* f, bool downgrade) {
    sdfile* s = f->file;
    if (downgrade) {
        if (int rc = refuse_int64(s)) return rc;
        if (int rc = sdf_downgrade_arrdim(f)) return sdf_error_chain(R, rc, "sdf_downgrade_arrdim");
    }
    if (int rc = sdf_remove_cache(f)) return sdf_error_chain(R, rc, "sdf_remove_cache");
    sdf_trim_unused(s);
    if (int rc = sdf_write_modified_blocks(f)) return sdf_error_chain(R, rc, "sdf_write_modified_blocks");
    return 0;
}

// Cuts the file to its chunk count when it is longer; 0 or 3081.
int truncate_tail(fcb* f) {
    sdfile* s = f->file;
    const int64_t length = static_cast<int64_t>(s->hdr->file_chunks) * s->hdr->chunk_size;
    struct stat st;
    if (sdf_io.fstat(f->ios->fd, &st) != 0 || st.st_size <= length) return 0;
    if (sdf_io.ftruncate(f->ios->fd, length) == 0) return 0;
    std::string why = "FTRUNCATE length = " + std::to_string(length) + "\n" + sdf_sys_error();
    return sdf_error(R, 3081, 0, f->number, s->name, why.c_str());
}

// The last channel of a file on disk; returns the code, and *gone tells
// whether the file is out of memory (else the commit refused the close).
int close_last(fcb* f, bool del, bool downgrade, bool* gone) {
    *gone = false;
    sdfile* s = f->file;
    const bool was_writable = f->writable != 0;
    int rc = 0;
    int others = 0;  // the lock file names another process
    if (del && s->locked) {
        int exists = 0, ours = 0;
        if ((rc = sdf_lock_peek(s->path, &exists, &ours)) != 0) return sdf_error_chain(R, rc, "sdf_lock_peek");
        others = exists && !ours;
    }
    if (was_writable && !del) {
        if ((rc = commit_last(f, downgrade)) != 0) return rc;  // still open
        rc = truncate_tail(f);
    }
    *gone = true;
    unlink_channel(s, f);
    if (del) {
        if (others) {
            rc = sdf_error(R, 2002, s->path, "open by another process");
        } else if (sdf_io.unlink(s->path) != 0) {
            rc = sdf_error(R, 2002, s->path, sdf_sys_error());
        }
    }
    if (s->locked) {
        int r2 = sdf_lock_close(s, s->path, was_writable);
        if (r2 && !rc) rc = sdf_error_chain(R, r2, "sdf_lock_close");
    }
    sdf_close_file(f, 0);
    return rc;
}

struct GlobalLock {
    GlobalLock() { sdf_global_lock(); }
    ~GlobalLock() { sdf_global_unlock(); }
    GlobalLock(const GlobalLock&) = delete;
    GlobalLock& operator=(const GlobalLock&) = delete;
};

}  // namespace

extern "C" {

int sdf_close_chan(fcb* f, const char* status) {
    sdfile* s = f->file;
    const bool keep = is(status, "KEEP"), del = is(status, "DELETE"), down = is(status, "DOWNGRADE");
    if (!s->internal && !keep && !del && !down) return sdf_error(R, 3031, status ? status : "(null)", s->name);
    const bool last = f->prev < 0 && f->next < 0;
    if (!last) {
        int writers = 0;
        for (fcb* c = sdf_chan_get(s->first_channel); c; c = sdf_chan_get(c->next)) writers += c->writable != 0;
        if (s->internal || !f->writable || writers > 1) {
            unlink_channel(s, f);
            sdf_chan_free_fcb(f);
            return 0;
        }
        return leave_readers(f);
    }
    if (s->internal) {
        unlink_channel(s, f);
        sdf_close_file(f, 0);
        return -1;
    }
    if (!s->blks || !s->vars) {  // tables lost by a failed refresh: nothing to commit
        unlink_channel(s, f);
        if (s->locked) sdf_lock_close(s, s->path, f->writable);
        sdf_close_file(f, 0);
        return -1;
    }
    bool gone = false;
    int rc = close_last(f, del, down, &gone);
    if (!gone) return rc;
    return rc ? -rc : -1;
}

int Sdf_Close(int channel, const char* status) {
    GlobalLock global;
    fcb* f = sdf_chan_get(channel);
    if (!f) return sdf_error(R, 3001, channel);
    sdfile* s = f->file;
    // A channel gives up what it holds by Sdf_Mutex_Lock: the close needs
    // the file's write lock itself.
    const bool locking = sdf_thread_safe() != 0;
    if (locking)
        while (f->write_locks > 0 || f->read_locks > 0) sdf_mutex_unlock(f);
    if (locking) ZU_rwLock(s->rwlock, ZU_RW_WRITE);
    int rc = sdf_close_chan(f, status);
    if (rc >= 0) {
        if (locking) ZU_rwUnlock(s->rwlock);
        return rc;
    }
    return rc == -1 ? 0 : -rc;
}

}  // extern "C"
