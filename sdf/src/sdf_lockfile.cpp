/* Lock files on disk: their four-line format, the exclusive create, the
 * reading and parsing of lines 1 and 2, the process test, and the
 * second-level lock P".lock.lock" that makes judging and replacing P".lock"
 * a step no two processes take at once.
 *
 * Invariants:
 * - A lock file is only ever created exclusively and whole; a write that
 *   fails half-way removes what it made, so no partial lock is left behind.
 * - Taking the second-level lock is bounded: about 5 seconds (and at least 5
 *   attempts), unless a stale holder was just removed and the create is
 *   retried at once.
 * - Parsing never trusts the file: numbers are read within their widths and
 *   range, lines within 256 bytes, and one CR before a line feed is dropped.
 * - A stale second-level lock is broken only as the very file that was
 *   judged: moved aside, checked, and put back when it turns out to be
 *   another (see break_second). A lock that can't be parsed is stale after
 *   5 seconds unchanged, so a holder killed before it wrote its lines
 *   doesn't block the file for good. */
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "sdf_inner.h"

namespace {

constexpr int64_t k_deadline_us = 5000000;
constexpr int k_min_attempts = 5;
constexpr int k_line_limit = 256; /* a line is read as by fgets(buf, 256) */

int64_t mono_us()
{
    struct timespec ts = {0, 0};
    sdf_io.clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

void sleep_us(int64_t us)
{
    if (us < 1000)
        return;
    struct timespec req = {static_cast<time_t>(us / 1000000), static_cast<long>(us % 1000000) * 1000};
    struct timespec rem = {0, 0};
    while (sdf_io.nanosleep(&req, &rem) != 0 && errno == EINTR)
        req = rem;
}

int create_code(int err)
{
    switch (err) {
    case ENOENT:
    case ENOTDIR:
    case EACCES:
    case EPERM:
    case EROFS:
        return 3042;
    default:
        return 3000;
    }
}

/* The next line of buf from *at, as fgets with a 256-byte buffer gives it,
 * without its line feed and one CR before it. False at the end. */
bool next_line(const std::string &buf, size_t *at, std::string *line)
{
    if (*at >= buf.size())
        return false;
    size_t end = *at;
    size_t limit = *at + (k_line_limit - 1);
    while (end < buf.size() && end < limit && buf[end] != '\n')
        ++end;
    bool feed = end < buf.size() && end < limit && buf[end] == '\n';
    *line = buf.substr(*at, end - *at);
    *at = feed ? end + 1 : end;
    if (feed && !line->empty() && line->back() == '\r')
        line->pop_back();
    return true;
}

/* A signed decimal as "%<width>lld" takes it: leading blanks, then at most
 * width characters of sign and digits; clamped to the i64 range. */
bool scan_int(const char **p, int width, int64_t *out)
{
    const char *s = *p;
    while (*s == ' ' || *s == '\t')
        ++s;
    char digits[32];
    int n = 0;
    if ((*s == '-' || *s == '+') && n < width)
        digits[n++] = *s++;
    int first = n;
    while (n < width && isdigit(static_cast<unsigned char>(*s)))
        digits[n++] = *s++;
    if (n == first)
        return false;
    digits[n] = '\0';
    *out = strtoll(digits, nullptr, 10);
    *p = s;
    return true;
}

bool scan_literal(const char **p, const char *lit)
{
    size_t n = strlen(lit);
    if (strncmp(*p, lit, n) != 0)
        return false;
    *p += n;
    return true;
}

/* Line 1: "PID=%20lld,FID=%20lld,WRITE=%1d", all three items. */
bool parse_line1(const std::string &line, sdf_lockinfo *info)
{
    const char *p = line.c_str();
    int64_t write = 0;
    return scan_literal(&p, "PID=") && scan_int(&p, 20, &info->pid) && scan_literal(&p, ",FID=") &&
           scan_int(&p, 20, &info->fid) && scan_literal(&p, ",WRITE=") && scan_int(&p, 1, &write) &&
           ((info->write = static_cast<int32_t>(write)), true);
}

/* Line 2: "(PID n) on host." after the first "(PID" gives the OS pid and
 * the host without its final full stop. */
void parse_line2(const std::string &line, sdf_lockinfo *info)
{
    snprintf(info->line2, sizeof info->line2, "%s", line.c_str());
    info->sys_pid = -1;
    info->host[0] = '\0';
    const char *p = strstr(info->line2, "(PID");
    if (!p)
        return;
    p += 4;
    int64_t pid = 0;
    if (!scan_int(&p, 20, &pid))
        return;
    info->sys_pid = pid < INT32_MIN || pid > INT32_MAX ? -1 : static_cast<int32_t>(pid);
    if (!scan_literal(&p, ") on "))
        return;
    while (*p == ' ' || *p == '\t')
        ++p;
    size_t n = strcspn(p, " \t\r\n");
    if (n >= sizeof info->host)
        n = sizeof info->host - 1;
    memcpy(info->host, p, n);
    info->host[n] = '\0';
    if (n > 0 && info->host[n - 1] == '.')
        info->host[n - 1] = '\0';
}

/* Lines 1 and 2 of a lock file's bytes into info: 0 parsed, 1 not. */
int parse_lock(const std::string &buf, sdf_lockinfo *info)
{
    size_t at = 0;
    std::string line1, line2;
    if (!next_line(buf, &at, &line1) || !next_line(buf, &at, &line2) || !parse_line1(line1, info))
        return 1;
    parse_line2(line2, info);
    return 0;
}

/* One second-level lock file as it was read: which file (device, inode,
 * change time) and what it held. */
struct snapshot {
    bool present = false;
    dev_t dev = 0;
    ino_t ino = 0;
    int64_t ctime_ns = 0;
    std::string bytes;

    /* The same file holding the same bytes. The change time is left out,
     * since moving a file changes it. */
    bool same(const snapshot &o) const
    {
        return present && o.present && dev == o.dev && ino == o.ino && bytes == o.bytes;
    }
};

int64_t ctime_ns(const struct stat &st)
{
    return static_cast<int64_t>(st.st_ctim.tv_sec) * 1000000000 + st.st_ctim.tv_nsec;
}

/* Reads the file at path into a snapshot (what a reader takes: 512 bytes at
 * most); not present when it can't be opened or read. */
snapshot take_snapshot(const char *path)
{
    snapshot snap;
    int fd = sdf_io.open(path, O_RDONLY, 0);
    if (fd < 0)
        return snap;
    struct stat st;
    char chunk[2 * k_line_limit];
    size_t got = 0;
    bool ok = sdf_io.fstat(fd, &st) == 0;
    while (ok && got < sizeof chunk) {
        ssize_t n = sdf_io.pread(fd, chunk + got, sizeof chunk - got, static_cast<off_t>(got));
        if (n < 0)
            ok = false;
        if (n <= 0)
            break;
        got += static_cast<size_t>(n);
    }
    sdf_io.close(fd);
    if (!ok)
        return snap;
    snap.present = true;
    snap.dev = st.st_dev;
    snap.ino = st.st_ino;
    snap.ctime_ns = ctime_ns(st);
    snap.bytes.assign(chunk, got);
    return snap;
}

/* The result of one try at the second-level lock after a failed create. */
enum class judged { gone, stands, broken };

/* Breaks a second-level lock judged stale, atomically with respect to other
 * breakers: the file is moved aside under a name of this process's own, and
 * removed only when what moved is the file that was judged. Anything else
 * (a fresh lock of a process that broke the judged one first) is put back
 * at once, where its holder expects it. */
judged break_second(const char *lock2, const snapshot &judged_snap)
{
    /* The change time tells a new file on a reused inode from the judged. */
    struct stat st;
    if (stat(lock2, &st) != 0)
        return judged::gone;
    if (st.st_dev != judged_snap.dev || st.st_ino != judged_snap.ino || ctime_ns(st) != judged_snap.ctime_ns)
        return judged::stands; /* replaced since it was read: judge again */
    static std::atomic<unsigned> counter{0};
    char aside[4096 + 64];
    snprintf(aside, sizeof aside, "%s.broken.%d.%u", lock2, static_cast<int>(getpid()), ++counter);
    if (sdf_io.rename(lock2, aside) != 0)
        return errno == ENOENT ? judged::gone : judged::stands;
    snapshot moved = take_snapshot(aside);
    if (moved.same(judged_snap)) {
        sdf_io.unlink(aside);
        return judged::broken;
    }
    /* Back without replacing anything; where links aren't supported, by a
     * rename, which could replace a lock made in this instant. */
    if (sdf_io.link(aside, lock2) == 0 || errno == EEXIST)
        sdf_io.unlink(aside);
    else
        sdf_io.rename(aside, lock2);
    return judged::stands;
}

/* What the loop of sdf_get_lockfile_lock remembers between tries: the FID
 * last seen and since when, and the same for a lock that can't be parsed. */
struct second_watch {
    int64_t held = -1;
    int64_t seen_at = 0;
    snapshot garbage;
    int64_t garbage_since = 0;
};

judged judge_second(const char *lock2, second_watch *w, int life)
{
    snapshot snap = take_snapshot(lock2);
    if (!snap.present)
        return judged::gone;
    int64_t now = mono_us();
    sdf_lockinfo info;
    memset(&info, 0, sizeof info);
    info.sys_pid = -1;
    if (parse_lock(snap.bytes, &info) != 0) {
        /* Empty (its maker died between the create and the write) or
         * garbage: nobody can be asked whether it still holds it, so it is
         * stale once it has stood unchanged for 5 seconds, whatever
         * Lock_Life_Hrs says. */
        if (!snap.same(w->garbage)) {
            w->garbage = snap;
            w->garbage_since = now;
            return judged::stands;
        }
        if (now - w->garbage_since <= k_deadline_us)
            return judged::stands;
    } else {
        if (info.fid != w->held) {
            w->held = info.fid;
            w->seen_at = now;
        }
        bool stuck = life > 0 && now - w->seen_at > k_deadline_us;
        bool dead = strcmp(info.host, sdf_lock_host()) == 0 && !sdf_process_running(info.sys_pid);
        if (!stuck && !dead)
            return judged::stands;
    }
    judged j = break_second(lock2, snap);
    if (j == judged::broken)
        w->held = 0;
    return j;
}

} // namespace

extern "C" {

int sdf_process_running(int sys_pid)
{
    if (sys_pid <= 0)
        return 0;
    if (sdf_io.kill(static_cast<pid_t>(sys_pid), 0) == 0)
        return 1;
    return errno == EPERM;
}

int sdf_write_lockfile(const char *lock, int64_t *fid, int write)
{
    if (*fid == 0)
        *fid = sdf_lock_now_us();
    char text[4 * k_line_limit];
    int len = snprintf(text, sizeof text,
                       "PID=%.20lld,FID=%.20lld,WRITE=%d\n%s\n"
                       "This file is used for identification by the SDF system.\n"
                       "It can be deleted if the process that created it has finished.\n",
                       static_cast<long long>(sdf_lock_self_pid()), static_cast<long long>(*fid),
                       write ? 1 : 0, sdf_lock_line2());
    int fd = sdf_io.open(lock, O_RDWR | O_CREAT | O_EXCL, 0666);
    if (fd < 0)
        return create_code(errno);
    size_t done = 0;
    while (done < static_cast<size_t>(len)) {
        ssize_t n = sdf_io.pwrite(fd, text + done, static_cast<size_t>(len) - done,
                                  static_cast<off_t>(done));
        if (n <= 0) {
            int saved = n < 0 ? errno : ENOSPC;
            sdf_io.close(fd);
            sdf_io.unlink(lock);
            errno = saved;
            return 3000;
        }
        done += static_cast<size_t>(n);
    }
    if (sdf_io.close(fd) != 0) {
        int saved = errno;
        sdf_io.unlink(lock);
        errno = saved;
        return 3000;
    }
    return 0;
}

int sdf_read_lockfile(const char *lock, sdf_lockinfo *info, int report)
{
    memset(info, 0, sizeof *info);
    info->sys_pid = -1;
    int fd = sdf_io.open(lock, O_RDONLY, 0);
    if (fd < 0 && (errno == ENOENT || errno == ENOTDIR))
        return -1;
    std::string buf;
    if (fd >= 0) {
        /* Two lines of at most 255 characters each are all that is read. */
        char chunk[2 * k_line_limit];
        while (buf.size() < sizeof chunk) {
            ssize_t n = sdf_io.pread(fd, chunk, sizeof chunk - buf.size(),
                                     static_cast<off_t>(buf.size()));
            if (n < 0) {
                int saved = errno;
                sdf_io.close(fd);
                errno = saved;
                fd = -1;
                break;
            }
            if (n == 0)
                break;
            buf.append(chunk, static_cast<size_t>(n));
        }
        if (fd >= 0)
            sdf_io.close(fd);
    }
    if (fd < 0) {
        if (report)
            sdf_error("sdf_read_lockfile", 3040, lock, sdf_sys_error());
        return 3040;
    }
    return parse_lock(buf, info);
}

/* Breaks a holder that is dead (same host, process gone) at once, and, when
 * Lock_Life_Hrs is above 0, one whose lock stayed the same for 5 seconds,
 * which covers holders on other hosts; a lock that can't be parsed (empty,
 * garbage) goes once it stood unchanged for 5 seconds. The last wait ends just past the
 * deadline, and one more try follows it, so that a lock seen unchanged for
 * the whole time is judged before giving up. */
int sdf_get_lockfile_lock(const char *lock2)
{
    static thread_local int32_t seed = 0;
    int life = sdf_opt_int(nullptr, SDF_OPT_LOCK_LIFE_HRS);
    int64_t deadline = mono_us() + k_deadline_us;
    second_watch watch;
    int attempts = 0;
    double factor = 1;
    for (;;) {
        /* A FID of -1 would not fit the 20 characters a reader takes. */
        int64_t fid = watch.held > 0 ? watch.held : 0;
        int rc = sdf_write_lockfile(lock2, &fid, 1);
        if (rc == 0 || rc == 3042)
            return rc;
        bool raced = errno == EEXIST;
        judged j = judge_second(lock2, &watch, life);
        ++attempts;
        if (j == judged::broken)
            continue;
        if (mono_us() >= deadline && attempts >= k_min_attempts)
            return 3045;
        if (j == judged::gone && raced)
            continue; /* released between our create and our read */
        int64_t wait = static_cast<int64_t>(ZU_rand(&seed) * factor * 100000);
        factor *= 2;
        int64_t left = deadline - mono_us();
        if (wait > left)
            wait = (left > 0 ? left : 0) + 10000;
        sleep_us(wait);
    }
}

} // extern "C"
