// The library's one-time start (sdf_init) and its end at process exit.
//
// The start runs once per process, on the first Sdf_Open or Sdf_Set_Opts:
// the channel table, the options taken from the environment, the identity
// of the process for lock files, the utility library (which loads the unit
// tables), and an exit handler. The handler is registered after the utility
// library's own clean-ups, so it runs before them: it closes every channel
// ("DELETE" for scratch files, "KEEP" for the rest) while the allocator still
// stands, then takes the options and the locks down. When a failed
// allocation ends the process, the allocator frees everything first: the
// library then only removes its lock files, from a hook the allocator runs
// before that, and the exit handler touches nothing.
//
// A child made by fork is another process: it takes an identity of its own
// at its next call into the library, and forgets the channels it inherited
// without closing them, since those belong to the parent; closing one would
// commit into the parent's file or delete the parent's lock.
#include <ctype.h>
#include <pthread.h>
#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <string>

#include "sdf_inner.h"
#include "zcalc.h"

namespace {

std::once_flag g_once;
int g_start_rc = 0;
std::atomic<int> g_forked{0};
std::atomic<bool> g_memory_gone{false};
pid_t g_owner = 0;  // the process whose channels the table holds

void note_fork() { g_forked.store(1, std::memory_order_relaxed); }

bool whole_number(const char* text) {
    if (!text) return false;
    const char* p = text;
    if (*p == '-' || *p == '+') p++;
    if (!*p) return false;
    for (; *p; p++)
        if (!isdigit(static_cast<unsigned char>(*p))) return false;
    return true;
}

void read_environment() {
    const char* hrs = getenv("SDF_LOCK_LIFE_HRS");
    if (whole_number(hrs)) sdf_set_opts(nullptr, ("Lock_Life_Hrs=" + std::string(hrs)).c_str());
    if (getenv("SDF_NO_READ_LOCK")) sdf_set_opts(nullptr, "No_Read_Lock=Yes");
}

// In a forked child: drop the parent's channels from the table and close the
// child's copies of their handles. Their memory stays with the allocator,
// which frees it at exit.
void forget_inherited() {
    if (!g_forked.exchange(0) || getpid() == g_owner) return;
    sdf_global_lock();
    for (int c = 0; c < sdf_chan_capacity(); c++) {
        fcb* f = sdf_chan_get(c);
        if (!f) continue;
        if (f->ios && f->ios->fd >= 0) {
            sdf_io.close(f->ios->fd);
            f->ios->fd = -1;
        }
        sdf_chan_release(c);
    }
    g_owner = getpid();
    sdf_lock_identity_init();
    sdf_global_unlock();
}


void release_locks(fcb* f, bool file_seen, bool ios_seen) {
    if (f->ios && !ios_seen) {
        if (f->ios->fd >= 0) sdf_io.close(f->ios->fd);
        f->ios->fd = -1;
        ZU_lockDestroy(f->ios->mutex);
        f->ios->mutex = nullptr;
    }
    if (sdfile* s = f->file; s && !file_seen) {
        ZU_rwDestroy(s->rwlock);
        ZU_lockDestroy(s->slot_mutex);
        ZU_lockDestroy(s->cache_mutex);
        s->rwlock = nullptr;
        s->slot_mutex = s->cache_mutex = nullptr;
        sdf_free_vars(s->vars);  // its index of free records is no tracked block
        s->vars = nullptr;
    }
}

// The locks, handles and variable indexes of the open files aren't the
// allocator's, so its free-all leaves them: they go here, since nothing runs
// on the files after an allocation failure.
void release_untracked() {
    const int n = sdf_chan_capacity();
    for (int c = 0; c < n; c++) {
        fcb* f = sdf_chan_get(c);
        if (!f) continue;
        bool file_seen = false, ios_seen = false;
        for (int d = 0; d < c; d++) {
            const fcb* g = sdf_chan_get(d);
            if (!g) continue;
            file_seen = file_seen || g->file == f->file;
            ios_seen = ios_seen || (f->ios && g->ios == f->ios);
        }
        release_locks(f, file_seen, ios_seen);
    }
    if (fcb* f = sdf_file_in_making()) release_locks(f, false, false);
    sdf_threads_shutdown();
}

// Run by the allocator when a failed allocation ends the process, before it
// frees every tracked block. The lock files of this process's files go, or
// they would keep writers out until judged stale; no file is committed: the
// process ends as if killed, each file as its last commit left it. The exit
// handler is told that everything the channel table reaches is being freed.
void allocation_failed() {
    g_memory_gone.store(true);
    try {
        const int n = sdf_chan_capacity();
        for (int c = 0; c < n; c++) {
            fcb* f = sdf_chan_get(c);
            if (!f || !f->file || !f->file->locked || f->file->internal) continue;
            bool seen = false;  // channels on one file share its lock
            for (int d = 0; d < c && !seen; d++) seen = sdf_chan_get(d) && sdf_chan_get(d)->file == f->file;
            if (!seen) sdf_lock_undo(f->file->path);
        }
        if (const char* path = sdf_lock_pending_path()) sdf_lock_undo(path);
    } catch (...) {
        // Out of memory for the paths as well: the process ends all the same.
    }
    release_untracked();
}

void exit_handler() {
    if (g_memory_gone.load()) return;  // the allocator freed what the tables held
    forget_inherited();
    for (int c = 0; c < sdf_chan_capacity(); c++) {
        fcb* f = sdf_chan_get(c);
        if (!f) continue;
        if (Sdf_Close(c, f->file->scratch ? "DELETE" : "KEEP") >= 3000 && sdf_chan_get(c) == f) {
            // The commit failed: the file stays as the last commit left it.
            sdf_chain_remove(f->file, f);
            sdf_chan_release(c);
        }
    }
    sdf_chan_shutdown();
    sdf_opts_shutdown();
}

int sdf_init() {
    if (int rc = sdf_chan_init()) return rc;
    read_environment();
    sdf_lock_identity_init();
    g_owner = getpid();
    ZU_unitsRegister();  // so that ZU_init loads the unit tables
    ZU_init(1);
    ZU_memSetFailHook(allocation_failed);
    pthread_atfork(nullptr, nullptr, note_fork);
    atexit(exit_handler);
    return 0;
}

}  // namespace

extern "C" int sdf_lib_start(void) {
    std::call_once(g_once, [] { g_start_rc = sdf_init(); });
    if (g_forked.load(std::memory_order_relaxed)) forget_inherited();
    return g_start_rc;
}
