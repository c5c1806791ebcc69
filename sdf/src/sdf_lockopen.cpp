/* Lock files at open and close: judging the lock that stands beside a file
 * (stale by age, dead by process, garbage), writing this process's own,
 * reconciling it with a file already open here, and giving it up or down at
 * close; plus the public query and removal of a file's locks.
 *
 * Invariants:
 * - P".lock" is only judged, replaced or removed while this process holds
 *   P".lock.lock"; the only exception is reading it where no second-level
 *   lock can be made at all (a directory without write access), where no
 *   lock file can be changed either.
 * - A failed open leaves nothing behind: the routines release the
 *   second-level lock on every error return.
 * - This process removes or rewrites only a lock that names it. */
#include <errno.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "sdf_inner.h"

namespace {

constexpr int k_lock_wait_s = 5;
const char *const k_no_dir_access = "no write access to directory";
std::string g_pending; /* see sdf_lock_pending; changed under the global mutex */

std::string lock_of(const char *path)
{
    return std::string(path) + ".lock";
}

std::string lock2_of(const char *path)
{
    return std::string(path) + ".lock.lock";
}

bool exists(const std::string &p)
{
    return access(p.c_str(), F_OK) == 0;
}

/* The oldest FID that is not stale: now less Lock_Life_Hrs hours when that
 * is above 0; otherwise the option itself (0 or below: nothing is stale by
 * age, and 0 lets a writer take over any lock). */
int64_t age_limit(int life)
{
    if (life > 0)
        return sdf_lock_now_us() - static_cast<int64_t>(life) * 3600 * 1000000;
    return life;
}

bool is_dead(const sdf_lockinfo &info)
{
    return strcmp(info.host, sdf_lock_host()) == 0 && !sdf_process_running(info.sys_pid);
}

void note_own(sdf_lockinfo *info, int64_t fid, int write)
{
    info->pid = sdf_lock_self_pid();
    info->fid = fid;
    info->write = write;
    info->sys_pid = static_cast<int32_t>(getpid());
    snprintf(info->host, sizeof info->host, "%s", sdf_lock_host());
    snprintf(info->line2, sizeof info->line2, "%s", sdf_lock_line2());
}

/* Replaces the lock file by this process's with the given FID and flag. */
int rewrite_own(const std::string &lock, int64_t fid, int write, sdf_lockinfo *info,
                const char *routine)
{
    if (sdf_io.unlink(lock.c_str()) != 0 && errno != ENOENT)
        return sdf_error(routine, 3044, lock.c_str(), sdf_sys_error());
    int rc = sdf_write_lockfile(lock.c_str(), &fid, write);
    if (rc != 0)
        return sdf_error(routine, 3045, lock.c_str(), sdf_sys_error());
    note_own(info, fid, write);
    return 0;
}

/* Takes the second-level lock for close-time work. *held tells whether it
 * was taken; a directory where it can't be made gives 0 with nothing held. */
int take_second(const char *path, const char *routine, int *held)
{
    *held = 0;
    std::string lock2 = lock2_of(path);
    int rc = sdf_get_lockfile_lock(lock2.c_str());
    if (rc == 3045) {
        char why[64];
        snprintf(why, sizeof why, "after %d seconds", k_lock_wait_s);
        return sdf_error(routine, 3045, lock2.c_str(), why);
    }
    *held = rc == 0;
    return 0;
}

void give_second(const char *path, int held)
{
    if (held)
        sdf_lock_release_second(path);
}

/* Steps 2 to 9 of the open-time judgement, with the second-level lock held. */
int judge_lock(const char *path, int write_intent, sdf_lockinfo *info, int *wrote)
{
    const char *R = "sdf_lock_open";
    std::string lock = lock_of(path);
    int warn = 0;
    if (exists(lock) && !exists(path) && sdf_io.unlink(lock.c_str()) != 0)
        warn = sdf_error(R, 2002, lock.c_str(), sdf_sys_error());
    int life = sdf_opt_int(nullptr, SDF_OPT_LOCK_LIFE_HRS);
    int64_t limit = age_limit(life);
    bool fresh = !exists(lock);
    if (!fresh) {
        if (access(lock.c_str(), R_OK) != 0)
            return sdf_error(R, 3041, lock.c_str());
        int rc = sdf_read_lockfile(lock.c_str(), info, 1);
        if (rc == 3040)
            return sdf_error_chain(R, rc, "sdf_read_lockfile");
        if (rc == 1) {
            if (sdf_io.unlink(lock.c_str()) != 0) {
                const char *why = sdf_sys_error();
                sdf_error(R, 3046, lock.c_str());
                return sdf_error(R, 3044, lock.c_str(), why);
            }
            fresh = true;
        } else if (rc == 0 && ((limit >= 1 && info->fid < limit) || is_dead(*info))) {
            if (sdf_io.unlink(lock.c_str()) != 0)
                return sdf_error(R, 3044, lock.c_str(), sdf_sys_error());
            fresh = true;
        } else if (rc == -1) {
            fresh = true; /* went between the test and the read */
        }
    }
    if (fresh) {
        memset(info, 0, sizeof *info);
        info->sys_pid = -1;
        int64_t fid = 0;
        if (sdf_write_lockfile(lock.c_str(), &fid, write_intent) == 0) {
            note_own(info, fid, write_intent);
            *wrote = 1;
        } else if (write_intent) {
            return sdf_error(R, 3045, lock.c_str(), sdf_sys_error());
        }
        return warn;
    }
    /* The lock stands. A writer replaces a reader's lock, and any lock when
     * Lock_Life_Hrs is 0; another writer's lock keeps it out later. */
    if (write_intent && (info->write == 0 || limit == 0)) {
        int rc = rewrite_own(lock, info->fid, 1, info, R);
        if (rc != 0)
            return rc;
        *wrote = 1;
    }
    return warn;
}

} // namespace

extern "C" {

int sdf_lock_open(const char *path, int is_new, int write_intent, sdf_lockinfo *info,
                  int *wrote, int *held)
{
    const char *R = "sdf_lock_open";
    memset(info, 0, sizeof *info);
    info->sys_pid = -1;
    *wrote = 0;
    *held = 0;
    if (!write_intent && sdf_opt_int(nullptr, SDF_OPT_NO_READ_LOCK) == 1)
        return 0;
    /* A short pause spreads out processes that start together. */
    struct timespec pause = {0, 10 * 1000000};
    sdf_io.nanosleep(&pause, nullptr);
    std::string lock2 = lock2_of(path);
    int rc = sdf_get_lockfile_lock(lock2.c_str());
    if (rc == 3045) {
        char why[64];
        snprintf(why, sizeof why, "after %d seconds", k_lock_wait_s);
        return sdf_error(R, 3045, lock2.c_str(), why);
    }
    if (rc == 3042) {
        if (is_new)
            return sdf_error(R, 3043, path, k_no_dir_access);
        if (write_intent)
            return sdf_error(R, 3045, lock_of(path).c_str(), k_no_dir_access);
        return 0;
    }
    rc = judge_lock(path, write_intent, info, wrote);
    if (rc >= 3000) {
        sdf_lock_release_second(path);
        memset(info, 0, sizeof *info);
        info->sys_pid = -1;
        *wrote = 0;
        return rc;
    }
    *held = 1;
    return rc;
}

int sdf_lock_reconcile(sdfile *s, sdf_lockinfo *info, int write_intent, int wrote,
                       const char *path)
{
    const char *R = "sdf_lock_reconcile";
    std::string lock = lock_of(path);
    if (wrote) {
        s->lock_pid = info->pid;
        s->lock_fid = info->fid;
        s->lock_write = info->write;
    }
    const int64_t L = info->pid, S = s->lock_pid, M = sdf_lock_self_pid();
    char text[300];
    if (L == 0)
        return 0;
    if (L == S && S == M) {
        if (info->fid != s->lock_fid) {
            snprintf(text, sizeof text, "Unexpected FID in lockfile \"%s\"", lock.c_str());
            return sdf_error(R, 3046, text);
        }
        if (write_intent && info->write == 0) {
            int rc = rewrite_own(lock, info->fid, 1, info, R);
            if (rc != 0)
                return rc;
            s->lock_write = 1;
        }
        return 0;
    }
    if (L == S) {
        if (write_intent && info->write == 0) {
            int rc = rewrite_own(lock, info->fid, 1, info, R);
            if (rc != 0)
                return rc;
            s->lock_pid = info->pid;
            s->lock_fid = info->fid;
            s->lock_write = 1;
        } else if (info->fid != s->lock_fid) {
            s->lock_fid = info->fid;
            s->lock_write = info->write;
        }
        return 0;
    }
    if (S == M && s->lock_write == 1) {
        snprintf(text, sizeof text,
                 "Expected own PID but found another in lockfile (hijacked)\"%s\"", lock.c_str());
        return sdf_error(R, 3046, text);
    }
    if (S != M && L == M && !wrote) {
        snprintf(text, sizeof text, "Expected another PID but found own in lockfile \"%s\"",
                 lock.c_str());
        return sdf_error(R, 4001, text);
    }
    s->lock_pid = info->pid;
    s->lock_fid = info->fid;
    s->lock_write = info->write;
    return 0;
}

int sdf_lock_release_second(const char *path)
{
    std::string lock2 = lock2_of(path);
    if (sdf_io.unlink(lock2.c_str()) != 0 && errno != ENOENT)
        return sdf_error("sdf_lock_release_second", 2002, lock2.c_str(), sdf_sys_error());
    return 0;
}

void sdf_lock_pending(const char *path)
{
    if (path)
        g_pending = path;
    else
        g_pending.clear();
}

const char *sdf_lock_pending_path(void)
{
    return g_pending.empty() ? nullptr : g_pending.c_str();
}

void sdf_lock_undo(const char *path)
{
    int held = 0;
    if (take_second(path, "sdf_lock_undo", &held) != 0 || !held)
        return;
    std::string lock = lock_of(path);
    sdf_lockinfo info;
    if (sdf_read_lockfile(lock.c_str(), &info, 0) == 0 && info.pid == sdf_lock_self_pid() &&
        sdf_io.unlink(lock.c_str()) != 0)
        sdf_error("sdf_lock_undo", 2002, lock.c_str(), sdf_sys_error());
    give_second(path, held);
}

int sdf_lock_peek(const char *path, int *exists_out, int *ours)
{
    *exists_out = 0;
    *ours = 0;
    int held = 0;
    int rc = take_second(path, "sdf_lock_peek", &held);
    if (rc != 0)
        return rc;
    sdf_lockinfo info;
    rc = sdf_read_lockfile(lock_of(path).c_str(), &info, 0);
    *exists_out = rc != -1;
    *ours = rc == 0 && info.pid == sdf_lock_self_pid();
    give_second(path, held);
    return 0;
}

int sdf_lock_close(sdfile *s, const char *path, int was_writable)
{
    const char *R = "sdf_lock_close";
    int held = 0;
    int rc = take_second(path, R, &held);
    if (rc != 0)
        return rc;
    std::string lock = lock_of(path);
    sdf_lockinfo info;
    bool ours = sdf_read_lockfile(lock.c_str(), &info, 0) == 0 && info.pid == sdf_lock_self_pid();
    if (ours) {
        if (sdf_io.unlink(lock.c_str()) != 0)
            rc = sdf_error(R, 2002, lock.c_str(), sdf_sys_error());
        else
            s->lock_pid = 0;
    } else if (was_writable) {
        rc = sdf_error(R, 2001, lock.c_str());
    }
    give_second(path, held);
    return rc;
}

int sdf_lock_downgrade(sdfile *s, const char *path)
{
    const char *R = "sdf_lock_downgrade";
    int held = 0;
    int rc = take_second(path, R, &held);
    if (rc != 0)
        return rc;
    std::string lock = lock_of(path);
    sdf_lockinfo info;
    if (sdf_read_lockfile(lock.c_str(), &info, 0) == 0 && info.pid == sdf_lock_self_pid()) {
        rc = rewrite_own(lock, info.fid, 0, &info, R);
        if (rc == 0) {
            s->lock_fid = info.fid;
            s->lock_write = 0;
        }
    }
    give_second(path, held);
    return rc;
}

int Sdf_Lockfile_Info(const char *path, char *text)
{
    if (text)
        text[0] = '\0';
    if (!path || path[0] == '\0' || path[0] == ' ' || !exists(path))
        return 0;
    sdf_lockinfo info;
    if (sdf_read_lockfile(lock_of(path).c_str(), &info, 0) != 0)
        return 0;
    int life = sdf_opt_int(nullptr, SDF_OPT_LOCK_LIFE_HRS);
    if (life == 0 || (life > 0 && info.fid < age_limit(life)) || is_dead(info))
        return 0;
    if (text)
        snprintf(text, sizeof info.line2, "%s", info.line2);
    return info.write ? -1 : 1;
}

int Sdf_Delete_Lockfile(const char *path)
{
    if (!path || path[0] == '\0' || path[0] == ' ')
        return 0;
    int rc = 0;
    for (const std::string &p : {lock_of(path), lock2_of(path)})
        if (sdf_io.unlink(p.c_str()) != 0 && errno != ENOENT)
            rc = sdf_error("Sdf_Delete_Lockfile", 3044, p.c_str(), sdf_sys_error());
    return rc;
}

} // extern "C"
