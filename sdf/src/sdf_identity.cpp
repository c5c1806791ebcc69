/* The identity a process shows in the lock files it writes: its stamp (the
 * microsecond time at which it took the identity, which stands in for a
 * process id that is unique across hosts), its OS process id, host, user
 * and program, and line 2 of its lock files.
 *
 * Invariants:
 * - Line 2 ("Created <start> by <creator>") never passes 255 characters, so
 *   a reader that reads lines with a 256-byte limit gets it whole.
 * - The identity belongs to the process that took it: a reader in a process
 *   whose OS pid differs (a child made by fork) takes a fresh one first. */
#include <errno.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "sdf_inner.h"

namespace {

constexpr int k_name_max = 256;
constexpr int k_creator_budget = 210;

struct identity {
    int64_t pid = 0;
    pid_t sys_pid = 0;
    char host[k_name_max + 1] = "";
    char line2[k_name_max + 1] = "";
};

identity g_id;
std::mutex g_id_mutex;

void copy_name(char *dst, const char *src)
{
    snprintf(dst, k_name_max + 1, "%s", src && *src ? src : "unknown");
}

void user_name(char *out)
{
    long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buf(size > 0 ? static_cast<size_t>(size) : 16384);
    struct passwd pw, *found = nullptr;
    if (getpwuid_r(geteuid(), &pw, buf.data(), buf.size(), &found) == 0 && found)
        copy_name(out, found->pw_name);
    else
        copy_name(out, nullptr);
}

/* Takes the identity; the caller holds g_id_mutex. */
void take_identity()
{
    identity id;
    id.pid = sdf_lock_now_us();
    id.sys_pid = getpid();
    char host[k_name_max + 1];
    if (gethostname(host, sizeof host) != 0)
        host[0] = '\0';
    host[k_name_max] = '\0';
    copy_name(id.host, host);
    char user[k_name_max + 1], program[k_name_max + 1];
    user_name(user);
    copy_name(program, program_invocation_short_name);

    char creator[k_name_max + 1];
    sdf_lock_creator_text(creator, sizeof creator, program, static_cast<int>(id.sys_pid), id.host,
                          user);
    char start[64] = "";
    time_t secs = static_cast<time_t>(id.pid / 1000000);
    struct tm tm;
    if (localtime_r(&secs, &tm))
        strftime(start, sizeof start, "%d-%b-%Y %H:%M:%S", &tm);
    /* A locale with long month names could push the line past the limit;
     * the cut keeps it readable in one piece. */
    std::string line = std::string("Created ") + start + creator;
    line.resize(std::min(line.size(), sizeof id.line2 - 2));
    memcpy(id.line2, line.c_str(), line.size() + 1);
    g_id = id;
}

const identity &current()
{
    std::lock_guard<std::mutex> hold(g_id_mutex);
    if (g_id.sys_pid != getpid())
        take_identity();
    return g_id;
}

} // namespace

extern "C" {

void sdf_lock_identity_init(void)
{
    (void)current();
}

int64_t sdf_lock_self_pid(void)
{
    return current().pid;
}

const char *sdf_lock_host(void)
{
    return current().host;
}

const char *sdf_lock_line2(void)
{
    return current().line2;
}

int64_t sdf_lock_now_us(void)
{
    struct timespec ts = {0, 0};
    sdf_io.clock_gettime(CLOCK_REALTIME, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

/* Program, host and user share what the line leaves them: when together
 * with the "(PID n)" text they pass the budget, the shortest keeps its
 * length up to a third of it, the next up to half of what remains, and the
 * longest takes the rest. */
void sdf_lock_creator_text(char *out, size_t size, const char *program, int sys_pid,
                           const char *host, const char *user)
{
    char pid_text[32];
    int pid_len = snprintf(pid_text, sizeof pid_text, "(PID %d)", sys_pid);
    std::string part[3] = {program ? program : "", host ? host : "", user ? user : ""};
    for (std::string &p : part)
        if (p.size() > static_cast<size_t>(k_name_max))
            p.resize(k_name_max);
    int budget = k_creator_budget - pid_len;
    size_t total = part[0].size() + part[1].size() + part[2].size();
    if (static_cast<int>(total) + pid_len > budget) {
        int order[3] = {0, 1, 2};
        std::stable_sort(order, order + 3,
                         [&](int a, int b) { return part[a].size() < part[b].size(); });
        int left = budget;
        for (int k = 0; k < 3; ++k) {
            std::string &p = part[order[k]];
            int share = k == 0 ? budget / 3 : k == 1 ? left / 2 : left;
            int len = static_cast<int>(p.size());
            int keep = len < share ? len : std::max(share, 0);
            p.resize(static_cast<size_t>(keep));
            left -= keep;
        }
    }
    snprintf(out, size, " by %s %s on %s. User: %s", part[0].c_str(), pid_text, part[1].c_str(),
             part[2].c_str());
}

} // extern "C"
