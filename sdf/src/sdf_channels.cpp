// The table of channels and the lookups around it.
//
// chlist is one tracked array of fcb pointers indexed by channel number:
// 256 rows at first, growing by 256; a null row is a free number. Channel 0
// is kept for internal files, files get numbers from 1 up, and the lowest
// free number is always the one handed out. The channels on one file form a
// chain through fcb.prev/next (channel numbers, -1 at the ends) starting at
// sdfile.first_channel. An sdfios is counted by the channels that share it
// and closed with the last of them.
//
// Everything that reads or changes the table runs under the global mutex;
// the public lookups take it only for the moment of the lookup.
#include <fcntl.h>
#include <string.h>

#include <string>

#include "sdf_inner.h"

namespace {

constexpr int kStep = 256;

fcb** g_chlist = nullptr;
int g_capacity = 0;

bool grow() {
    const int want = g_capacity + kStep;
    void* p = ZU_reallocMem(g_chlist, sizeof(fcb*) * static_cast<size_t>(want));
    if (!p) return false;
    g_chlist = static_cast<fcb**>(p);
    g_capacity = want;
    return true;
}

// Last path component, either separator.
const char* last_component(const char* path) {
    const char* base = path;
    for (const char* p = path; *p; p++)
        if (*p == '/' || *p == '\\') base = p + 1;
    return base;
}

// The first channel of its chain for every open file, once each.
template <typename Pred>
fcb* find_file(Pred pred) {
    for (int c = 0; c < g_capacity; c++) {
        fcb* f = g_chlist[c];
        if (f && f->file && f->file->first_channel == c && pred(f->file)) return f;
    }
    return nullptr;
}

bool tables_lost(const fcb* f) { return !f->file->blks || !f->file->vars; }

}  // namespace

extern "C" {

int sdf_chan_init(void) {
    if (g_chlist) return 0;
    g_chlist = static_cast<fcb**>(ZU_allocMem(sizeof(fcb*) * kStep, "sdf_init:chlist"));
    if (!g_chlist) return sdf_error("sdf_init", 3025, "sdf_init:chlist");
    g_capacity = kStep;
    return 0;
}

void sdf_chan_shutdown(void) {
    ZU_freeMem(g_chlist);
    g_chlist = nullptr;
    g_capacity = 0;
}

int sdf_chan_capacity(void) { return g_capacity; }

fcb* sdf_chan_get(int channel) {
    if (channel < 0 || channel >= g_capacity) return nullptr;
    return g_chlist[channel];
}

int sdf_chan_take(fcb* f, int from) {
    if (!g_chlist || from < 0) return -1;
    int c = from;
    while (c < g_capacity && g_chlist[c]) c++;
    if (c >= g_capacity && !grow()) return -1;
    g_chlist[c] = f;
    f->number = c;
    return c;
}

void sdf_chan_release(int channel) {
    if (channel >= 0 && channel < g_capacity) g_chlist[channel] = nullptr;
}

fcb* sdf_chan_find_path(const char* path) {
    return find_file([path](const sdfile* s) { return !s->internal && s->path && strcmp(s->path, path) == 0; });
}

fcb* sdf_chan_find_fid(int64_t fid, const char* path) {
    if (fid == 0) return nullptr;
    const char* base = last_component(path);
    return find_file([fid, base](const sdfile* s) {
        return !s->internal && s->lock_fid == fid && s->path && strcmp(last_component(s->path), base) == 0;
    });
}

fcb* sdf_chan_find_internal(const char* name) {
    return find_file([name](const sdfile* s) { return s->internal && s->name && strcmp(s->name, name) == 0; });
}

void sdf_chain_append(sdfile* s, fcb* f) {
    f->next = -1;
    f->prev = -1;
    fcb* last = sdf_chan_get(s->first_channel);
    if (!last || last->file != s || last == f) {
        s->first_channel = f->number;
        return;
    }
    while (last->next >= 0) last = sdf_chan_get(last->next);
    last->next = f->number;
    f->prev = last->number;
}

void sdf_chain_remove(sdfile* s, fcb* f) {
    fcb* prev = sdf_chan_get(f->prev);
    fcb* next = sdf_chan_get(f->next);
    if (prev) prev->next = f->next;
    if (next) next->prev = f->prev;
    if (s->first_channel == f->number) s->first_channel = next ? next->number : -1;
    if (s->writer == f) s->writer = nullptr;
    f->prev = f->next = -1;
}

fcb* sdf_chan_new_fcb(sdfile* s, const char* routine) {
    std::string tag = std::string(routine) + ":fcb";
    auto* f = static_cast<fcb*>(ZU_allocMem(sizeof(fcb), tag.c_str()));
    if (!f) return nullptr;
    f->file = s;
    f->prefix_active = 1;
    f->number = -1;
    f->prev = f->next = -1;
    return f;
}

void sdf_chan_free_fcb(fcb* f) {
    if (!f) return;
    sdf_ios_drop(f->ios);
    f->ios = nullptr;
    sdf_free_chan_opts(f);
    ZU_freeMem(f);
}

int sdf_ios_open(const char* path, int write, const char* routine, sdfios** out) {
    *out = nullptr;
    std::string tag = std::string(routine) + ":sdfios";
    auto* io = static_cast<sdfios*>(ZU_allocMem(sizeof(sdfios), tag.c_str()));
    if (!io) return sdf_error(routine, 3025, tag.c_str());
    io->fd = sdf_io.open(path, write ? O_RDWR : O_RDONLY, 0);
    if (io->fd < 0) {
        int rc = sdf_error(routine, 3040, path, sdf_sys_error());
        ZU_freeMem(io);
        return rc;
    }
    io->refs = 1;
    io->mutex = ZU_lockCreate();
    *out = io;
    return 0;
}

void sdf_ios_drop(sdfios* io) {
    if (!io || --io->refs > 0) return;
    if (io->fd >= 0) sdf_io.close(io->fd);
    ZU_lockDestroy(io->mutex);
    ZU_freeMem(io);
}

int sdf_chan_lookup(int channel, int writing, const char* routine, fcb** out) {
    sdf_global_lock();
    fcb* f = sdf_chan_get(channel);
    sdf_global_unlock();
    *out = f;
    if (!f) return sdf_error(routine, 3001, channel);
    if (writing && !f->writable) return sdf_error(routine, 3002, channel);
    if (tables_lost(f))
        return sdf_error(routine, 3051, f->file->name, "could not be read again after a change; close and open it again.");
    return 0;
}

int sdf_chan_read_begin(int channel, const char* routine, fcb** out, int* taken) {
    *taken = 0;
    int rc = sdf_chan_lookup(channel, 0, routine, out);
    if (rc) return rc;
    fcb* f = *out;
    if (sdf_thread_safe() && f->read_locks == 0 && f->write_locks == 0) {
        ZU_rwLock(f->file->rwlock, 1);
        *taken = 1;
    }
    return 0;
}

void sdf_chan_read_end(fcb* f, int taken) {
    if (f && taken) ZU_rwUnlock(f->file->rwlock);
}

int sdf_chan_write_begin(int channel, const char* routine, fcb** out, int* taken) {
    *taken = 0;
    int rc = sdf_chan_lookup(channel, 1, routine, out);
    if (rc) return rc;
    fcb* f = *out;
    if (sdf_thread_safe() && f->write_locks == 0) {
        ZU_rwLock(f->file->rwlock, ZU_RW_WRITE);
        *taken = 1;
    }
    return 0;
}

void sdf_chan_write_end(fcb* f, int taken) {
    if (f && taken) ZU_rwUnlock(f->file->rwlock);
}

}  // extern "C"

// ------------------------------------------- per-channel options and locks

namespace {

// The channel for an option call: 3001 when it isn't open.
fcb* option_channel(int channel, const char* routine, int* rc) {
    sdf_global_lock();
    fcb* f = sdf_chan_get(channel);
    sdf_global_unlock();
    *rc = f ? 0 : sdf_error(routine, 3001, channel);
    return f;
}

}  // namespace

extern "C" {

int Sdf_Set_Opts_Chan(int channel, const char* text) {
    int rc;
    fcb* f = option_channel(channel, "Sdf_Set_Opts_Chan", &rc);
    return f ? sdf_set_opts(f, text) : rc;
}

int Sdf_Get_Opt_Chan(int channel, const char* name, char* value) {
    int rc;
    fcb* f = option_channel(channel, "Sdf_Get_Opt_Chan", &rc);
    if (!f && value) value[0] = 0;
    return f ? sdf_get_opt(f, name, value) : rc;
}

int Sdf_Push_Chan(int channel, int mode) {
    int rc;
    fcb* f = option_channel(channel, "Sdf_Push_Chan", &rc);
    return f ? sdf_push(f, mode) : rc;
}

int Sdf_Pop_Chan(int channel) {
    int rc;
    fcb* f = option_channel(channel, "Sdf_Pop_Chan", &rc);
    return f ? sdf_pop(f) : rc;
}

int Sdf_Opt_Depth_Chan(int channel) {
    int rc;
    fcb* f = option_channel(channel, "Sdf_Opt_Depth_Chan", &rc);
    return f ? sdf_opt_depth(f) : rc;
}

int Sdf_Mutex_Lock(int channel, int mode) {
    if (!sdf_thread_safe()) return 0;
    int rc;
    fcb* f = option_channel(channel, "Sdf_Mutex_Lock", &rc);
    return f ? sdf_mutex_lock(f, mode) : rc;
}

int Sdf_Mutex_Unlock(int channel) {
    if (!sdf_thread_safe()) return 0;
    int rc;
    fcb* f = option_channel(channel, "Sdf_Mutex_Unlock", &rc);
    return f ? sdf_mutex_unlock(f) : rc;
}

}  // extern "C"
