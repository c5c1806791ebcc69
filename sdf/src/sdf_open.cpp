// Sdf_Open: the decision tree from the three keywords to a channel.
//
// The steps run in a fixed order, so that a call with several faults always
// gets the same code: classify the keywords, refuse bad combinations, build
// name and path, test existence and access, take and judge the lock file,
// find the file among the open ones, refuse a clash with this or another
// process, and only then touch the file. The global mutex is held throughout.
//
// Invariants: the channel is stored only for a result below 3000; a lock
// file that this call wrote is removed again when the open fails, unless
// the file was open here already (its lock then belongs to those channels);
// all channels with write intent on one file share one handle, and while
// there is none each reader has a handle of its own.
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "sdf_inner.h"

namespace {

const char* const R = "Sdf_Open";
constexpr size_t kMaxName = 2048;

enum Kind { K_NONE, K_BINARY, K_SCRATCH, K_INTERNAL };
enum Status { S_BAD, S_OLD, S_NEW, S_FRESH, S_UNKNOWN };
enum Intent { I_NONE, I_READ, I_WRITE };

int g_internal_count = 0;  // "internal_sdf_%d", from 0
int g_scratch_count = 0;   // "PID%d.scratch_%d.SDF", from 1

bool is(const char* word, const char* key) { return word && strcasecmp(word, key) == 0; }
bool blank(const char* p) { return !p || !p[0] || p[0] == ' '; }
const char* shown(const char* p) { return p ? p : "(null)"; }

struct Request {
    Kind kind = K_NONE;
    Status status = S_BAD;
    Intent intent = I_NONE;
    bool has_path = false;
    std::string name, path, dir;
    bool exists = false;
    bool can_write = false;

    bool write() const { return intent == I_WRITE; }
    bool creates() const { return status == S_NEW || status == S_FRESH; }
    // The file's name in a refusal before the names are built.
    std::string label(const char* given) const {
        if (has_path) return given;
        return kind == K_INTERNAL ? "(no path, INTERNAL)" : "(no path, SCRATCH)";
    }
};

void classify(Request& q, const char* path, const char* type, const char* status, const char* intent) {
    q.has_path = !blank(path);
    if (is(type, "BINARY") || is(type, "UNKNOWN")) q.kind = K_BINARY;
    else if (is(type, "SCRATCH")) q.kind = K_SCRATCH;
    else if (is(type, "INTERNAL")) q.kind = K_INTERNAL;
    if (is(status, "OLD")) q.status = S_OLD;
    else if (is(status, "NEW")) q.status = S_NEW;
    else if (is(status, "FRESH")) q.status = S_FRESH;
    else if (is(status, "UNKNOWN")) q.status = S_UNKNOWN;
    else if (is(status, "SCRATCH")) q.kind = K_SCRATCH, q.status = S_FRESH;
    if (is(intent, "READ")) q.intent = I_READ;
    else if (is(intent, "WRITE")) q.intent = I_WRITE;
    else if (q.kind == K_SCRATCH || q.kind == K_INTERNAL) q.intent = I_WRITE;
}

int refuse(const Request& q, const char* path, const char* type, const char* status, const char* intent) {
    if (q.kind == K_NONE) return sdf_error(R, 3030, shown(type), shown(path));
    if (q.creates() && q.intent == I_READ) return sdf_error(R, 3033, shown(path));
    if (q.kind == K_BINARY && !q.has_path) return sdf_error(R, 3039);
    if (q.status == S_BAD) return sdf_error(R, 3031, shown(status), q.label(shown(path)).c_str());
    if (q.intent == I_NONE) return sdf_error(R, 3032, shown(intent), q.label(shown(path)).c_str());
    return 0;
}

std::string cut(std::string s) {
    if (s.size() > kMaxName) s.resize(kMaxName);
    return s;
}

std::string cwd() {
    char buf[4096];
    return getcwd(buf, sizeof buf) ? buf : ".";
}

bool absolute(const std::string& p) {
    return !p.empty() && (p[0] == '/' || p[0] == '\\' ||
                          (p.size() > 1 && p[1] == ':' && ((p[0] | 0x20) >= 'a' && (p[0] | 0x20) <= 'z')));
}

std::string dir_of(const std::string& p) {
    size_t at = p.find_last_of("/\\");
    if (at == std::string::npos) return ".";
    return at == 0 ? p.substr(0, 1) : p.substr(0, at);
}

void build_names(Request& q, const char* path) {
    if (q.kind == K_INTERNAL) {
        q.name = q.has_path ? cut(path) : "internal_sdf_" + std::to_string(g_internal_count++);
        q.path = q.name;
        return;
    }
    if (q.kind == K_SCRATCH && !q.has_path) {
        q.name = cut("PID" + std::to_string(getpid()) + ".scratch_" + std::to_string(++g_scratch_count) + ".SDF");
        q.dir = cwd();
        q.path = cut(q.dir + "/" + q.name);
        return;
    }
    q.name = cut(path);
    if (absolute(q.name)) {
        q.path = q.name;
        q.dir = dir_of(q.name);
    } else {
        q.dir = cwd();
        q.path = cut(q.dir + "/" + q.name);
    }
}

// Existence and access, steps 4 to 6.
int check_access(Request& q) {
    if (q.kind == K_INTERNAL) {
        q.exists = q.has_path && sdf_chan_find_internal(q.name.c_str()) != nullptr;
    } else if (q.has_path) {
        struct stat st;
        q.exists = stat(q.path.c_str(), &st) == 0;
    }
    if (q.status == S_UNKNOWN) q.status = q.exists ? S_OLD : S_NEW;
    if (q.kind != K_INTERNAL) {
        if (q.exists && access(q.path.c_str(), R_OK) != 0) return sdf_error(R, 3041, q.path.c_str());
        q.can_write = q.exists && access(q.path.c_str(), W_OK) == 0;
        if (!q.exists && q.status == S_NEW && access(q.dir.c_str(), W_OK) != 0)
            return sdf_error(R, 3043, q.path.c_str(), "no write access to directory");
    }
    if (q.status == S_OLD && !q.exists) return sdf_error(R, 3034, q.path.c_str());
    if (q.status == S_NEW && q.exists) return sdf_error(R, 3035, q.path.c_str());
    if (q.write() && q.exists && !q.can_write) return sdf_error(R, 3042, q.path.c_str());
    return 0;
}

char* copy_text(const std::string& t, const char* tag) {
    auto* p = static_cast<char*>(ZU_allocMem(t.size() + 1, tag));
    if (p) memcpy(p, t.c_str(), t.size() + 1);
    return p;
}

// Gives a new sdfile the name as given and the path as built.
int set_names(sdfile* s, const Request& q) {
    char* name = copy_text(q.name, "Sdf_Open:name");
    char* path = copy_text(q.path, "Sdf_Open:path");
    if (!name || !path) {
        ZU_freeMem(name);
        ZU_freeMem(path);
        return sdf_error(R, 3025, "Sdf_Open:name");
    }
    ZU_freeMem(s->name);
    ZU_freeMem(s->path);
    s->name = name;
    s->path = path;
    return 0;
}

// Registers a new file's first channel: number from `from` up, names, chain.
int register_new(fcb* f, const Request& q, int from) {
    if (int rc = set_names(f->file, q)) return rc;
    if (sdf_chan_take(f, from) < 0) return sdf_error(R, 3038, q.name.c_str());
    f->file->first_channel = -1;
    sdf_chain_append(f->file, f);
    return 0;
}

void note_lock(sdfile* s, const sdf_lockinfo& info) {
    if (info.pid == 0) return;
    s->locked = 1;
    s->lock_pid = info.pid;
    s->lock_fid = info.fid;
    s->lock_write = info.write;
}

fcb* writable_channel(const sdfile* s) {
    for (fcb* c = sdf_chan_get(s->first_channel); c; c = sdf_chan_get(c->next))
        if (c->writable) return c;
    return nullptr;
}

struct FileWriteLock {
    sdfile* s;
    bool on;
    explicit FileWriteLock(sdfile* file) : s(file), on(sdf_thread_safe() != 0) {
        if (on) ZU_rwLock(s->rwlock, ZU_RW_WRITE);
    }
    ~FileWriteLock() {
        if (on) ZU_rwUnlock(s->rwlock);
    }
    FileWriteLock(const FileWriteLock&) = delete;
    FileWriteLock& operator=(const FileWriteLock&) = delete;
};

// 11a: one more channel on a file open in this process.
int add_channel(sdfile* s, const Request& q, fcb** out) {
    FileWriteLock lock(s);
    fcb* nf = sdf_chan_new_fcb(s, R);
    if (!nf) return sdf_error(R, 3025, "Sdf_Open:fcb");
    if (sdf_chan_take(nf, 1) < 0) {
        sdf_chan_free_fcb(nf);
        return sdf_error(R, 3038, q.name.c_str());
    }
    fcb* writer = writable_channel(s);
    int rc = 0;
    if (writer) {
        nf->ios = writer->ios;
        nf->ios->refs++;
        nf->writable = q.write();
    } else if (q.write()) {
        sdfios* io = nullptr;
        rc = sdf_ios_open(s->path, 1, R, &io);
        if (!rc) {
            // One handle for reading and writing replaces the private ones.
            for (fcb* c = sdf_chan_get(s->first_channel); c; c = sdf_chan_get(c->next)) {
                sdf_ios_drop(c->ios);
                c->ios = io;
                io->refs++;
            }
            nf->ios = io;  // holds the first reference
            rc = sdf_refresh_fcb(nf);
            if (!rc) {
                nf->writable = 1;
                s->writable = 1;
                s->writer = nf;
            }
        }
    } else {
        rc = sdf_ios_open(s->path, 0, R, &nf->ios);
        if (!rc) rc = sdf_refresh_fcb(nf);
    }
    if (rc >= 3000) {
        sdf_chan_release(nf->number);
        sdf_chan_free_fcb(nf);
        return rc == 3040 || rc == 3025 ? rc : sdf_error_chain(R, rc, "sdf_refresh_fcb");
    }
    sdf_chain_append(s, nf);
    *out = nf;
    return rc ? sdf_error_chain(R, rc, "sdf_refresh_fcb") : 0;
}

// 11b: a file to create or truncate.
int create_file(const Request& q, fcb** out) {
    const int sex = sdf_opt_int(nullptr, SDF_OPT_SEX);
    const int ci = sdf_opt_int(nullptr, SDF_OPT_CASE_SENSITIVE) != 1;
    fcb* f = nullptr;
    int rc = sdf_create_file(q.path.c_str(), sex, ci, &f);
    if (rc) return rc == 3040 ? rc : sdf_error_chain(R, rc, "sdf_create_file");
    f->file->scratch = q.kind == K_SCRATCH;
    if ((rc = register_new(f, q, 1)) != 0) {
        sdf_chan_release(f->number);
        sdf_close_file(f, 0);
        return rc;
    }
    *out = f;
    return 0;
}

// 11c: a file that exists.
int load_file(const Request& q, fcb** out) {
    fcb* f = nullptr;
    int refusal = 0;
    int rc = sdf_load_file_refusal(q.path.c_str(), q.write(), &f, &refusal);
    if (rc >= 3000) return refusal ? refusal : rc;
    f->file->scratch = q.kind == K_SCRATCH;
    if (int rc2 = register_new(f, q, 1)) {
        sdf_chan_release(f->number);
        sdf_close_file(f, 0);
        return rc2;
    }
    *out = f;
    return rc ? sdf_error_chain(R, rc, "sdf_load_file") : 0;
}

// 11d: an internal file, new or another channel on one.
int open_internal(const Request& q, fcb* existing, fcb** out) {
    if (existing) {
        if (q.status == S_FRESH) return sdf_error(R, 3036, q.name.c_str());
        sdfile* s = existing->file;
        FileWriteLock lock(s);
        fcb* nf = sdf_chan_new_fcb(s, R);
        if (!nf) return sdf_error(R, 3025, "Sdf_Open:fcb");
        if (sdf_chan_take(nf, 0) < 0) {
            sdf_chan_free_fcb(nf);
            return sdf_error(R, 3038, q.name.c_str());
        }
        nf->writable = 1;
        sdf_chain_append(s, nf);
        *out = nf;
        return 0;
    }
    fcb* f = nullptr;
    int rc = sdf_create_internal(q.name.c_str(), sdf_opt_int(nullptr, SDF_OPT_CASE_SENSITIVE) != 1, &f);
    if (rc) return sdf_error_chain(R, rc, "sdf_create_internal");
    if ((rc = register_new(f, q, 0)) != 0) {
        sdf_chan_release(f->number);
        sdf_close_file(f, 0);
        return rc;
    }
    *out = f;
    return 0;
}

struct GlobalLock {
    GlobalLock() { sdf_global_lock(); }
    ~GlobalLock() { sdf_global_unlock(); }
    GlobalLock(const GlobalLock&) = delete;
    GlobalLock& operator=(const GlobalLock&) = delete;
};

// A lock this open wrote, noted until the open ends: by then it belongs to
// a channel, or the open took it back.
struct PendingLock {
    PendingLock(bool wrote, const char* path) {
        if (wrote) sdf_lock_pending(path);
    }
    ~PendingLock() { sdf_lock_pending(nullptr); }
    PendingLock(const PendingLock&) = delete;
    PendingLock& operator=(const PendingLock&) = delete;
};

// Steps 7 to 12 for a file on disk, with the global mutex held.
int open_on_disk(const Request& q, fcb** out) {
    sdf_lockinfo info{};
    int wrote = 0, held = 0, warn = 0;
    const bool locking = !(q.intent == I_READ && sdf_opt_int(nullptr, SDF_OPT_NO_READ_LOCK) == 1);
    if (locking) {  // a failed lock step holds and leaves nothing
        int rc = sdf_lock_open(q.path.c_str(), q.creates(), q.write(), &info, &wrote, &held);
        if (rc >= 3000) return rc;
        warn = rc;
    }
    PendingLock pending(wrote != 0, q.path.c_str());
    fcb* existing = sdf_chan_find_path(q.path.c_str());
    if (!existing && info.pid != 0) existing = sdf_chan_find_fid(info.fid, q.path.c_str());
    int rc = 0;
    if (existing && locking) rc = sdf_lock_reconcile(existing->file, &info, q.write(), wrote, q.path.c_str());
    if (held) {
        int r2 = sdf_lock_release_second(q.path.c_str());
        if (!warn) warn = r2;
    }
    const bool other = info.pid != 0 && info.pid != sdf_lock_self_pid();
    if (rc) {
        rc = sdf_error_chain(R, rc, "sdf_lock_reconcile");
    } else if (q.status == S_FRESH && existing) {
        rc = sdf_error(R, 3036, q.path.c_str());
    } else if (other && q.write()) {
        rc = sdf_error(R, 3037, q.path.c_str(), info.line2);
    } else if (other && q.status == S_FRESH) {
        rc = sdf_error(R, 3036, q.path.c_str());
    } else if (existing) {
        rc = add_channel(existing->file, q, out);  // the reconciliation noted the lock
    } else {
        rc = q.creates() ? create_file(q, out) : load_file(q, out);
        if (rc < 3000) note_lock((*out)->file, info);
    }
    if (rc >= 3000) {
        if (wrote && !existing) sdf_lock_undo(q.path.c_str());
        return rc;
    }
    if (existing && (*out)->file->lock_pid) (*out)->file->locked = 1;
    return rc ? rc : warn ? sdf_error_chain(R, warn, "sdf_lock_open") : 0;
}

}  // namespace

extern "C" {

int Sdf_Open(int* channel, const char* path, const char* type, const char* status, const char* intent) {
    int rc = sdf_lib_start();
    if (rc) return sdf_error_chain(R, rc, "sdf_init");
    if (!channel) return sdf_error(R, 4001, "Sdf_Open: no place for the channel number.");
    GlobalLock global;
    Request q;
    classify(q, path, type, status, intent);
    if ((rc = refuse(q, path, type, status, intent)) != 0) return rc;
    build_names(q, path);
    if ((rc = check_access(q)) != 0) return rc;
    fcb* f = nullptr;
    if (q.kind == K_INTERNAL)
        rc = open_internal(q, q.exists ? sdf_chan_find_internal(q.name.c_str()) : nullptr, &f);
    else
        rc = open_on_disk(q, &f);
    if (rc < 3000 && f) *channel = f->number;
    return rc;
}

}  // extern "C"
