// Lock files beside SDF files: the format, parsing of what others wrote,
// the judgement at open (garbage, stray, stale, dead, standing locks), the
// second-level lock, reconciliation with a file open in this process, the
// close-time routines, and the public query and removal.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cctype>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>

#include "sdf_test_files.h"

namespace {

using sdftest::exists;
using sdftest::lockText;
using sdftest::readText;
using sdftest::writeText;

constexpr int64_t kHourUs = INT64_C(3600000000);

// The OS pid of a process that has finished (reaped, so not running).
int deadPid() {
    pid_t child = fork();
    if (child == 0) _exit(0);
    int status = 0;
    waitpid(child, &status, 0);
    return child;
}

class SdfLock : public sdftest::FileTest {
protected:
    void SetUp() override {
        FileTest::SetUp();
        depth_ = Sdf_Opt_Depth();
        ASSERT_EQ(Sdf_Push(-2), 0);  // option changes are taken back at the end
        file_ = path("data.sdf");
        lock_ = file_ + ".lock";
        lock2_ = file_ + ".lock.lock";
        writeText(file_, "%SDF_BIN");
    }
    void TearDown() override {
        while (Sdf_Opt_Depth() > depth_) Sdf_Pop();
        chmod(dir_.c_str(), 0700);
        FileTest::TearDown();
    }
    void opts(const std::string& text) { ASSERT_EQ(Sdf_Set_Opts(text.c_str()), 0); }
    // The judgement at open of file_ (or a new file), as the caller sees it.
    struct Opened {
        int rc;
        sdf_lockinfo info;
        int wrote = -1, held = -1;
    };
    Opened lockOpen(int write, int is_new = 0, const std::string& file = "") {
        Opened o{};
        o.wrote = o.held = -1;
        o.rc = sdf_lock_open((file.empty() ? file_ : file).c_str(), is_new, write, &o.info, &o.wrote, &o.held);
        return o;
    }
    int64_t self() const { return sdf_lock_self_pid(); }
    std::string host() const { return sdf_lock_host(); }

    int depth_ = 0;
    std::string file_, lock_, lock2_;
};

TEST_F(SdfLock, WritesFourLinesWithZeroFilledNumbers) {
    int64_t fid = 0;
    int64_t before = sdf_lock_now_us();
    ASSERT_EQ(sdf_write_lockfile(lock_.c_str(), &fid, 1), 0);
    EXPECT_GE(fid, before);
    EXPECT_LE(fid, sdf_lock_now_us());

    char line1[128];
    snprintf(line1, sizeof line1, "PID=%020lld,FID=%020lld,WRITE=1\n", static_cast<long long>(self()),
             static_cast<long long>(fid));
    std::string text = readText(lock_);
    std::string line2 = std::string(sdf_lock_line2()) + "\n";
    EXPECT_EQ(text, line1 + line2 +
                        "This file is used for identification by the SDF system.\n"
                        "It can be deleted if the process that created it has finished.\n");
    // "Created dd-Mon-yyyy hh:mm:ss by PROGRAM (PID n) on HOST. User: USER"
    // (matched by hand: the standard regex trips a false warning under the
    // sanitizer build's -Werror).
    const std::string shape = "Created 99-___-9999 99:99:99 by ";
    bool shaped = line2.size() > shape.size();
    for (size_t i = 0; shaped && i < shape.size(); i++)
        shaped = shape[i] == '9' ? isdigit(static_cast<unsigned char>(line2[i])) != 0
                                 : shape[i] == '_' || shape[i] == line2[i];
    const std::string tail = " (PID " + std::to_string(getpid()) + ") on " + host() + ". User: ";
    EXPECT_TRUE(shaped && line2.find(tail, shape.size()) != std::string::npos && line2.back() == '\n') << line2;

    int64_t given = 42;
    ASSERT_EQ(sdf_write_lockfile(lock2_.c_str(), &given, 0), 0);
    EXPECT_EQ(given, 42);
    EXPECT_EQ(readText(lock2_).substr(0, 58),
              "PID=" + std::string(line1).substr(4, 20) + ",FID=00000000000000000042,WRITE=0\n");
}

TEST_F(SdfLock, CreateIsExclusiveAndMapsRefusals) {
    int64_t fid = 0;
    ASSERT_EQ(sdf_write_lockfile(lock_.c_str(), &fid, 1), 0);
    std::string first = readText(lock_);
    int64_t again = 0;
    EXPECT_EQ(sdf_write_lockfile(lock_.c_str(), &again, 0), 3000);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(readText(lock_), first);
    int64_t none = 0;
    EXPECT_EQ(sdf_write_lockfile(path("missing/x.lock").c_str(), &none, 1), 3042);
}

TEST_F(SdfLock, FailedWriteLeavesNoPartialLock) {
    sdf_io.pwrite = [](int, const void*, size_t, off_t) -> ssize_t {
        errno = ENOSPC;
        return -1;
    };
    int64_t fid = 0;
    EXPECT_EQ(sdf_write_lockfile(lock_.c_str(), &fid, 1), 3000);
    EXPECT_FALSE(exists(lock_));
}

TEST(SdfLockIdentity, CreatorTextSharesTheBudget) {
    const std::string p10(10, 'p'), h300(300, 'h'), u300(300, 'u'), x100(100, 'x'), y100(100, 'y'),
        z100(100, 'z');
    struct row {
        std::string program, host, user;
        size_t keep_program, keep_host, keep_user;
    };
    // "(PID 123)" is 9 characters: a budget of 201.
    const row rows[] = {
        {"prog", "box", "me", 4, 3, 2},         // fits: nothing cut
        {p10, h300, u300, 10, 95, 96},          // short one kept, the rest split
        {x100, y100, z100, 67, 67, 67},         // three equal: a third each
        {p10, "box", u300, 10, 3, 188},         // only the longest is cut
        {std::string(256, 'a'), "", "", 201, 0, 0},
    };
    for (const row& r : rows) {
        char out[512];
        sdf_lock_creator_text(out, sizeof out, r.program.c_str(), 123, r.host.c_str(), r.user.c_str());
        std::string want = " by " + r.program.substr(0, r.keep_program) + " (PID 123) on " +
                           r.host.substr(0, r.keep_host) + ". User: " + r.user.substr(0, r.keep_user);
        EXPECT_EQ(out, want) << r.program.size() << "/" << r.host.size() << "/" << r.user.size();
    }
    // Whatever the names, line 2 fits the 255 characters a reader takes.
    char out[512];
    std::string big(256, 'n');
    sdf_lock_creator_text(out, sizeof out, big.c_str(), 2147483647, big.c_str(), big.c_str());
    EXPECT_LE(strlen("Created 01-Jan-2024 10:00:00") + strlen(out), 255u);
    EXPECT_LE(strlen(sdf_lock_line2()), 255u);
}

TEST(SdfLockIdentity, ForkedChildIsAProcessOfItsOwn) {
    int64_t parent = sdf_lock_self_pid();
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    pid_t child = fork();
    if (child == 0) {
        int64_t mine = sdf_lock_self_pid();
        bool own_line = strstr(sdf_lock_line2(), ("(PID " + std::to_string(getpid()) + ")").c_str());
        char ok = mine != parent && own_line ? 'y' : 'n';
        (void)!write(fds[1], &ok, 1);
        _exit(0);
    }
    char got = 0;
    EXPECT_EQ(read(fds[0], &got, 1), 1);
    waitpid(child, nullptr, 0);
    close(fds[0]);
    close(fds[1]);
    EXPECT_EQ(got, 'y');
    EXPECT_EQ(sdf_lock_self_pid(), parent);
}

TEST(SdfLockIdentity, RunningTestFollowsTheProcess) {
    EXPECT_EQ(sdf_process_running(0), 0);   // kill(0) would address a group
    EXPECT_EQ(sdf_process_running(-1), 0);  // and -1 every process
    EXPECT_EQ(sdf_process_running(getpid()), 1);
    EXPECT_EQ(sdf_process_running(deadPid()), 0);
    sdf_io.kill = [](pid_t, int) {
        errno = EPERM;  // another user's live process
        return -1;
    };
    EXPECT_EQ(sdf_process_running(12345), 1);
    sdf_io = sdf_io_default;
}

TEST_F(SdfLock, ParsesWhatOthersWrote) {
    struct row {
        const char* label;
        std::string text;
        int rc;
        int64_t pid, fid;
        int write, sys_pid;
        std::string host;
    };
    const std::string ok1 = "PID=00000000000000000007,FID=00000000000000000009,WRITE=1";
    const row rows[] = {
        {"LF", lockText(7, 9, 1, "far", 55), 0, 7, 9, 1, 55, "far"},
        {"CRLF", lockText(7, 9, 0, "far", 55, "\r\n"), 0, 7, 9, 0, 55, "far"},
        {"no (PID in line 2", ok1 + "\nwritten by hand\n", 0, 7, 9, 1, -1, ""},
        {"unpadded numbers", "PID=7,FID=9,WRITE=1\nx (PID 3) on h.\n", 0, 7, 9, 1, 3, "h"},
        {"line 1 alone", ok1 + "\n", 1, 0, 0, 0, -1, ""},
        {"two items", "PID=7,FID=9\nline\n", 1, 0, 0, 0, -1, ""},
        {"21 digits", "PID=000000000000000000007,FID=9,WRITE=1\nline\n", 1, 0, 0, 0, -1, ""},
        {"write flag missing", "PID=7,FID=9,WRITE=\nline\n", 1, 0, 0, 0, -1, ""},
        {"garbage", "\x01\x02 not a lock\n\xff\n", 1, 0, 0, 0, -1, ""},
        {"empty", "", 1, 0, 0, 0, -1, ""},
    };
    for (const row& r : rows) {
        writeText(lock_, r.text);
        sdf_lockinfo info;
        ASSERT_EQ(sdf_read_lockfile(lock_.c_str(), &info, 0), r.rc) << r.label;
        if (r.rc != 0) continue;
        EXPECT_EQ(info.pid, r.pid) << r.label;
        EXPECT_EQ(info.fid, r.fid) << r.label;
        EXPECT_EQ(info.write, r.write) << r.label;
        EXPECT_EQ(info.sys_pid, r.sys_pid) << r.label;
        EXPECT_EQ(std::string(info.host), r.host) << r.label;
        EXPECT_EQ(std::string(info.line2).find('\r'), std::string::npos) << r.label;
        EXPECT_EQ(std::string(info.line2).find('\n'), std::string::npos) << r.label;
    }
    sdf_lockinfo info;
    EXPECT_EQ(sdf_read_lockfile(path("none.lock").c_str(), &info, 0), -1);
}

// One row: the lock found beside the file, the options and the caller, and
// whether the caller's own lock replaces it.
struct judgement {
    const char* label;
    const char* life;     // Lock_Life_Hrs
    int64_t age_hours;    // of the FID
    int lock_write;       // WRITE= of the lock found
    bool same_host;
    bool process_alive;
    int caller_write;
    bool taken;           // the lock now names this process
    bool same_fid;        // ... with the FID of the lock found
};

TEST_F(SdfLock, JudgesTheLockAtOpen) {
    const judgement rows[] = {
        {"fresh writer elsewhere keeps", "24", 0, 1, false, true, 1, false, false},
        {"reader leaves a writer's lock", "24", 0, 1, false, true, 0, false, false},
        {"reader leaves a reader's lock", "24", 0, 0, false, true, 0, false, false},
        {"writer replaces a reader", "24", 0, 0, false, true, 1, true, true},
        {"older than the life is stale", "24", 25, 1, false, true, 1, true, false},
        {"stale for a reader too", "1", 2, 1, false, true, 0, true, false},
        {"life 0: writer takes over", "0", 0, 1, false, true, 1, true, true},
        {"life 0: reader leaves it", "0", 0, 1, false, true, 0, false, false},
        {"life -1: never stale by age", "-1", 24 * 365 * 10, 1, false, true, 1, false, false},
        {"dead process on this host", "24", 0, 1, true, false, 1, true, false},
        {"dead process elsewhere stands", "24", 0, 1, false, false, 1, false, false},
        {"live process on this host", "24", 0, 1, true, true, 1, false, false},
    };
    const int dead = deadPid();
    for (const judgement& r : rows) {
        SCOPED_TRACE(r.label);
        opts(std::string("Lock_Life_Hrs=") + r.life);
        int64_t fid = sdf_lock_now_us() - r.age_hours * kHourUs - 1000;
        int64_t other = self() + 17;
        writeText(lock_, lockText(other, fid, r.lock_write, r.same_host ? host() : "elsewhere",
                            r.process_alive ? getpid() : dead));
        const Opened o = lockOpen(r.caller_write);
        ASSERT_EQ(o.rc, 0);
        EXPECT_EQ(o.held, 1);
        EXPECT_TRUE(exists(lock2_));
        EXPECT_EQ(o.wrote, r.taken ? 1 : 0);
        EXPECT_EQ(o.info.pid, r.taken ? self() : other);
        if (r.taken) {
            EXPECT_EQ(o.info.fid == fid, r.same_fid);
            EXPECT_EQ(o.info.write, r.caller_write);
        }
        sdf_lockinfo disk;
        ASSERT_EQ(sdf_read_lockfile(lock_.c_str(), &disk, 0), 0);
        EXPECT_EQ(disk.pid, o.info.pid);
        EXPECT_EQ(disk.fid, o.info.fid);
        EXPECT_EQ(disk.write, o.info.write);
        EXPECT_EQ(std::string(disk.line2), std::string(o.info.line2));
        EXPECT_EQ(sdf_lock_release_second(file_.c_str()), 0);
        EXPECT_FALSE(exists(lock2_));
        unlink(lock_.c_str());
    }
    EXPECT_EQ(sdftest::errorText(3044), "<none>");
}

TEST_F(SdfLock, NoLockGetsOneOfTheCallersKind) {
    for (int write : {0, 1}) {
        const Opened o = lockOpen(write);
        ASSERT_EQ(o.rc, 0);
        EXPECT_EQ(o.wrote, 1);
        EXPECT_EQ(o.info.pid, self());
        EXPECT_EQ(o.info.write, write);
        EXPECT_GT(o.info.fid, 0);
        EXPECT_EQ(sdf_lock_release_second(file_.c_str()), 0);
        // A second look by this process finds its own lock and leaves it.
        const Opened again = lockOpen(write);
        ASSERT_EQ(again.rc, 0);
        EXPECT_EQ(again.wrote, 0);
        EXPECT_EQ(again.info.fid, o.info.fid);
        sdf_lock_release_second(file_.c_str());
        unlink(lock_.c_str());
    }
}

// A garbage lock, or any lock beside a file that isn't there, names no
// holder worth judging: it is replaced without a message.
TEST_F(SdfLock, GarbageOrStrayLockIsReplacedSilently) {
    for (bool stray : {false, true}) {
        SCOPED_TRACE(stray ? "stray" : "garbage");
        ZU_errClear("*", 0);
        if (stray) unlink(file_.c_str());
        writeText(lock_, stray ? lockText(self() + 5, sdf_lock_now_us(), 1, "elsewhere", 77) : "not a lock\n");
        const Opened o = lockOpen(1, stray ? 1 : 0);
        ASSERT_EQ(o.rc, 0);
        EXPECT_EQ(o.wrote, 1);
        EXPECT_EQ(o.info.pid, self());
        int index = 1;
        EXPECT_EQ(ZU_errNext("*", &index), nullptr) << "no message";
        sdf_lock_release_second(file_.c_str());
    }
}

TEST_F(SdfLock, NoReadLockKeepsReadersAwayFromLockFiles) {
    opts("No_Read_Lock=Yes");
    Opened o = lockOpen(0);
    ASSERT_EQ(o.rc, 0);
    EXPECT_EQ(o.wrote, 0);
    EXPECT_EQ(o.held, 0);
    EXPECT_EQ(o.info.pid, 0);
    EXPECT_FALSE(exists(lock_));
    EXPECT_FALSE(exists(lock2_));
    o = lockOpen(1);
    ASSERT_EQ(o.rc, 0);
    EXPECT_EQ(o.wrote, 1);
    EXPECT_TRUE(exists(lock_));
    sdf_lock_release_second(file_.c_str());
}

TEST_F(SdfLock, DirectoryWithoutWriteAccess) {
    if (geteuid() == 0) GTEST_SKIP() << "root ignores permission bits";
    ASSERT_EQ(chmod(dir_.c_str(), 0500), 0);
    const Opened reader = lockOpen(0);
    EXPECT_EQ(reader.rc, 0);
    EXPECT_EQ(reader.held, 0);
    EXPECT_EQ(reader.info.pid, 0);
    EXPECT_EQ(lockOpen(1).rc, 3045);
    EXPECT_NE(sdftest::errorText(3045).find("no write access to directory"), std::string::npos);
    EXPECT_EQ(lockOpen(1, 1, path("new.sdf")).rc, 3043);
    EXPECT_NE(sdftest::errorText(3043).find("no write access to directory"), std::string::npos);
    EXPECT_FALSE(exists(lock_));
}

TEST_F(SdfLock, UnreadableLockIsRefusedAndReleased) {
    if (geteuid() == 0) GTEST_SKIP() << "root ignores permission bits";
    writeText(lock_, lockText(self() + 1, sdf_lock_now_us(), 1, "elsewhere", 9));
    ASSERT_EQ(chmod(lock_.c_str(), 0), 0);
    const Opened o = lockOpen(1);
    EXPECT_EQ(o.rc, 3041);
    EXPECT_EQ(o.held, 0);
    EXPECT_FALSE(exists(lock2_)) << "a failed open must leave no second-level lock";
}

TEST_F(SdfLock, SecondLevelLockOfADeadHolderIsBrokenAtOnce) {
    // The holder is a real process that took the lock and died holding it.
    pid_t child = fork();
    if (child == 0) _exit(sdf_get_lockfile_lock(lock2_.c_str()) == 0 ? 0 : 1);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    sdf_lockinfo theirs;
    ASSERT_EQ(sdf_read_lockfile(lock2_.c_str(), &theirs, 0), 0);
    EXPECT_EQ(theirs.sys_pid, child);
    EXPECT_NE(theirs.pid, self());

    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(sdf_get_lockfile_lock(lock2_.c_str()), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
    sdf_lockinfo mine;
    ASSERT_EQ(sdf_read_lockfile(lock2_.c_str(), &mine, 0), 0);
    EXPECT_EQ(mine.pid, self());
    EXPECT_EQ(mine.write, 1);
}

TEST_F(SdfLock, SecondLevelLockOfALiveHolderTimesOut) {
    opts("Lock_Life_Hrs=-1");  // no 5-second rule: only the deadline ends the wait
    writeText(lock2_, lockText(self() + 3, sdf_lock_now_us(), 1, host(), getpid()));
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(sdf_get_lockfile_lock(lock2_.c_str()), 3045);
    auto took = std::chrono::steady_clock::now() - start;
    EXPECT_GE(took, std::chrono::milliseconds(5000));
    EXPECT_LT(took, std::chrono::milliseconds(6500));
    sdf_lockinfo still;
    EXPECT_EQ(sdf_read_lockfile(lock2_.c_str(), &still, 0), 0) << "a live holder's lock stays";
    EXPECT_EQ(still.sys_pid, getpid());
}

// A clock that only moves when the library sleeps, so the 5-second rules run
// in no time.
int64_t g_fake_us = 0;
int g_sleeps = 0;
int fakeClock(clockid_t, struct timespec* ts) {
    ts->tv_sec = static_cast<time_t>(g_fake_us / 1000000);
    ts->tv_nsec = static_cast<long>(g_fake_us % 1000000) * 1000;
    return 0;
}
int fakeSleep(const struct timespec* req, struct timespec*) {
    g_fake_us += static_cast<int64_t>(req->tv_sec) * 1000000 + req->tv_nsec / 1000;
    ++g_sleeps;
    return 0;
}
// Puts the library on the fake clock; returns its start.
int64_t useFakeClock() {
    g_fake_us = INT64_C(1700000000000000);
    g_sleeps = 0;
    sdf_io.clock_gettime = fakeClock;
    sdf_io.nanosleep = fakeSleep;
    return g_fake_us;
}

TEST_F(SdfLock, SecondLevelLockHeldFromElsewhereBreaksAfterFiveSeconds) {
    struct row {
        const char* life;
        int rc;
    };
    for (const row& r : {row{"24", 0}, row{"0", 3045}}) {
        opts(std::string("Lock_Life_Hrs=") + r.life);
        const int64_t start = useFakeClock();
        writeText(lock2_, lockText(self() + 3, 123456, 1, "elsewhere", 4242));
        EXPECT_EQ(sdf_get_lockfile_lock(lock2_.c_str()), r.rc) << r.life;
        int64_t took = g_fake_us - start;
        EXPECT_GT(took, INT64_C(5000000)) << r.life;
        EXPECT_LT(took, INT64_C(5100000)) << r.life;
        EXPECT_GE(g_sleeps, 4) << "waits grow instead of spinning";
        sdf_io = sdf_io_default;
        unlink(lock2_.c_str());
    }
    EXPECT_EQ(sdf_get_lockfile_lock(path("missing/x.lock.lock").c_str()), 3042);
}

// A second-level lock that can't be parsed (its maker died between the
// create and the write of its lines, or it holds garbage) is stale once it
// stood unchanged for 5 seconds, whatever Lock_Life_Hrs says: nobody can be
// asked whether it still holds it, and otherwise every open waits and fails.
TEST_F(SdfLock, UnparsableSecondLevelLockBreaksAfterFiveSeconds) {
    for (const char* life : {"Lock_Life_Hrs=24", "Lock_Life_Hrs=-1"}) {
        for (const char* text : {"", "PID=garbage\n"}) {
            SCOPED_TRACE(std::string(life) + " [" + text + "]");
            opts(life);
            const int64_t start = useFakeClock();
            writeText(lock2_, text);
            EXPECT_EQ(sdf_get_lockfile_lock(lock2_.c_str()), 0);
            EXPECT_GT(g_fake_us - start, INT64_C(5000000));
            EXPECT_LT(g_fake_us - start, INT64_C(5100000));
            sdf_io = sdf_io_default;
            sdf_lockinfo mine;
            ASSERT_EQ(sdf_read_lockfile(lock2_.c_str(), &mine, 0), 0);
            EXPECT_EQ(mine.pid, self());
            unlink(lock2_.c_str());
            EXPECT_EQ(sdftest::dirEntries(dir_), std::vector<std::string>{"data.sdf"}) << "nothing left aside";
        }
    }
}

// Two processes that judge the same stale second-level lock: the one that
// breaks it first takes the lock; the other must not remove that fresh lock
// in its turn. The fresh lock is put in place while this process judges
// (before it moves anything) or just as it moves the judged file aside.
std::string g_lock2, g_fresh;
bool g_swapped = false;
void swapInFreshLock() {
    if (g_swapped) return;
    g_swapped = true;
    unlink(g_lock2.c_str());  // a new file, as a process that broke it would make
    writeText(g_lock2, g_fresh);
}

TEST_F(SdfLock, BreakingRemovesOnlyTheLockThatWasJudged) {
    opts("Lock_Life_Hrs=-1");  // only the dead holder's lock is stale
    struct row {
        const char* when;
        std::function<void()> hook;
    };
    const row rows[] = {
        {"while judging",
         [] {
             sdf_io.kill = [](pid_t pid, int sig) {
                 swapInFreshLock();
                 return sdf_io_default.kill(pid, sig);
             };
         }},
        {"at the move",
         [] {
             sdf_io.rename = [](const char* from, const char* to) {
                 swapInFreshLock();
                 return sdf_io_default.rename(from, to);
             };
         }},
    };
    for (const row& r : rows) {
        SCOPED_TRACE(r.when);
        useFakeClock();
        writeText(lock2_, lockText(self() + 3, 111, 1, host(), deadPid()));
        g_lock2 = lock2_;
        g_fresh = lockText(self() + 4, 222, 1, host(), getpid());  // a live holder
        g_swapped = false;
        r.hook();
        EXPECT_EQ(sdf_get_lockfile_lock(lock2_.c_str()), 3045);
        sdf_io = sdf_io_default;
        EXPECT_TRUE(g_swapped);
        EXPECT_EQ(readText(lock2_), g_fresh) << "the fresh lock stays in place";
        unlink(lock2_.c_str());
        EXPECT_EQ(sdftest::dirEntries(dir_), std::vector<std::string>{"data.sdf"}) << "nothing left aside";
    }
}

TEST_F(SdfLock, ReconcilesWithTheFileOpenHere) {
    const int64_t M = self(), A = M + 100, B = M + 200;
    struct row {
        const char* label;
        int64_t L, S;      // PID in the lock, PID noted by the file in memory
        int64_t lfid, sfid;
        int lwrite, swrite, caller_write, wrote;
        int rc;
        int64_t want_pid, want_fid;
        int want_write;    // what the file in memory notes afterwards
        int64_t disk_pid;  // the lock file's PID afterwards
        int disk_write;
        const char* text = nullptr;  // part of the failure's message
    };
    const row rows[] = {
        {"no lock", 0, A, 0, 5, 0, 1, 1, 0, 0, A, 5, 1, -1, -1},
        {"own, FID moved", M, M, 6, 5, 1, 1, 1, 0, 3046, M, 5, 1, M, 1, "Unexpected FID in lockfile \""},
        {"own reader lock, now writing", M, M, 5, 5, 0, 0, 1, 0, 0, M, 5, 1, M, 1},
        {"own, reading on", M, M, 5, 5, 0, 0, 0, 0, 0, M, 5, 0, M, 0},
        {"other's reader lock taken over", A, A, 5, 5, 0, 0, 1, 0, 0, M, 5, 1, M, 1},
        {"other's new period noted", A, A, 6, 5, 1, 0, 0, 0, 0, A, 6, 1, A, 1},
        {"ours, hijacked", A, M, 6, 5, 1, 1, 0, 0, 3046, M, 5, 1, A, 1, "(hijacked)\""},
        {"our reader lock replaced", A, M, 6, 5, 1, 0, 0, 0, 0, A, 6, 1, A, 1},
        {"own PID without cause", M, A, 5, 5, 1, 1, 0, 0, 4001, A, 5, 1, M, 1, "found own in lockfile \""},
        {"written by this call", M, A, 7, 5, 1, 0, 1, 1, 0, M, 7, 1, M, 1},
        {"another process", B, A, 7, 5, 1, 0, 0, 0, 0, B, 7, 1, B, 1},
    };
    for (const row& r : rows) {
        ZU_errClear("*", 0);
        unlink(lock_.c_str());
        sdf_lockinfo info{};
        info.pid = r.L;
        info.fid = r.lfid;
        info.write = r.lwrite;
        info.sys_pid = -1;
        if (r.L != 0) {
            int64_t fid = r.lfid;
            if (r.L == M) {
                ASSERT_EQ(sdf_write_lockfile(lock_.c_str(), &fid, r.lwrite), 0);
            } else {
                writeText(lock_, lockText(r.L, r.lfid, r.lwrite, "elsewhere", 1));
            }
        }
        sdfile s{};
        s.lock_pid = r.S;
        s.lock_fid = r.sfid;
        s.lock_write = r.swrite;
        EXPECT_EQ(sdf_lock_reconcile(&s, &info, r.caller_write, r.wrote, file_.c_str()), r.rc)
            << r.label;
        if (r.text) {
            EXPECT_NE(sdftest::errorText(r.rc).find(r.text + lock_ + "\""), std::string::npos)
                << r.label << ": " << sdftest::errorText(r.rc);
        }
        EXPECT_EQ(s.lock_pid, r.want_pid) << r.label;
        EXPECT_EQ(s.lock_fid, r.want_fid) << r.label;
        EXPECT_EQ(s.lock_write, r.want_write) << r.label;
        sdf_lockinfo disk;
        if (r.disk_pid < 0) {
            EXPECT_FALSE(exists(lock_)) << r.label;
            continue;
        }
        ASSERT_EQ(sdf_read_lockfile(lock_.c_str(), &disk, 0), 0) << r.label;
        EXPECT_EQ(disk.pid, r.disk_pid) << r.label;
        EXPECT_EQ(disk.write, r.disk_write) << r.label;
        EXPECT_EQ(disk.fid, r.lfid) << r.label << ": a rewrite keeps the FID";
        if (r.rc == 0) {
            EXPECT_EQ(info.pid, r.disk_pid) << r.label << ": info follows the rewrite";
        }
    }
}

TEST_F(SdfLock, CloseRemovesOnlyItsOwnLock) {
    struct row {
        const char* label;
        int owner;  // 0 none, 1 this process, 2 another
        int was_writable;
        int rc;
        bool lock_stays;
    };
    const row rows[] = {
        {"own lock of a writer", 1, 1, 0, false},
        {"own lock of a reader", 1, 0, 0, false},
        {"writer finds another's lock", 2, 1, 2001, true},
        {"reader finds another's lock", 2, 0, 0, true},
        {"writer finds none", 0, 1, 2001, false},
        {"reader finds none", 0, 0, 0, false},
    };
    for (const row& r : rows) {
        unlink(lock_.c_str());
        int64_t fid = 0;
        if (r.owner == 1) {
            ASSERT_EQ(sdf_write_lockfile(lock_.c_str(), &fid, r.was_writable), 0);
        }
        if (r.owner == 2) writeText(lock_, lockText(self() + 9, sdf_lock_now_us(), 0, "elsewhere", 3));
        int found = -1, ours = -1;
        ASSERT_EQ(sdf_lock_peek(file_.c_str(), &found, &ours), 0) << r.label;
        EXPECT_EQ(found, r.owner != 0) << r.label;
        EXPECT_EQ(ours, r.owner == 1) << r.label;
        sdfile s{};
        EXPECT_EQ(sdf_lock_close(&s, file_.c_str(), r.was_writable), r.rc) << r.label;
        EXPECT_EQ(exists(lock_), r.lock_stays) << r.label;
        EXPECT_FALSE(exists(lock2_)) << r.label;
    }
}

// The last writer's close leaves a reader's lock with the same FID; a failed
// open undoes its lock. Neither touches another process's lock.
TEST_F(SdfLock, DowngradeAndUndoTouchOnlyThisProcesssLock) {
    int64_t fid = 0;
    ASSERT_EQ(sdf_write_lockfile(lock_.c_str(), &fid, 1), 0);
    sdfile s{};
    s.lock_pid = self();
    s.lock_fid = fid;
    s.lock_write = 1;
    ASSERT_EQ(sdf_lock_downgrade(&s, file_.c_str()), 0);
    sdf_lockinfo disk;
    ASSERT_EQ(sdf_read_lockfile(lock_.c_str(), &disk, 0), 0);
    EXPECT_EQ(disk.pid, self());
    EXPECT_EQ(disk.fid, fid);
    EXPECT_EQ(disk.write, 0);
    EXPECT_EQ(s.lock_write, 0);
    EXPECT_FALSE(exists(lock2_));
    sdf_lock_undo(file_.c_str());
    EXPECT_FALSE(exists(lock_));
    EXPECT_FALSE(exists(lock2_));

    const std::string theirs = lockText(self() + 1, 77, 1, "elsewhere", 3);
    writeText(lock_, theirs);
    s.lock_write = 1;
    EXPECT_EQ(sdf_lock_downgrade(&s, file_.c_str()), 0);
    sdf_lock_undo(file_.c_str());
    EXPECT_EQ(readText(lock_), theirs);
}

TEST_F(SdfLock, LockfileInfoTellsWhoHoldsTheFile) {
    const int dead = deadPid();
    const std::string fresh_writer = lockText(self() + 1, sdf_lock_now_us(), 1, "elsewhere", 3);
    struct row {
        const char* label;
        const char* life;
        std::string lock;  // empty: none
        bool file;
        int rc;
    };
    const row rows[] = {
        {"writer", "24", fresh_writer, true, -1},
        {"reader", "24", lockText(self() + 1, sdf_lock_now_us(), 0, "elsewhere", 3), true, 1},
        {"no lock", "24", "", true, 0},
        {"no file", "24", fresh_writer, false, 0},
        {"garbage", "24", "junk\n", true, 0},
        {"life 0", "0", fresh_writer, true, 0},
        {"too old", "1", lockText(self() + 1, sdf_lock_now_us() - 2 * kHourUs, 1, "x", 3), true, 0},
        {"old, life -1", "-1", lockText(self() + 1, 1, 1, "x", 3), true, -1},
        {"dead here", "24", lockText(self() + 1, sdf_lock_now_us(), 1, host(), dead), true, 0},
    };
    for (const row& r : rows) {
        opts(std::string("Lock_Life_Hrs=") + r.life);
        unlink(lock_.c_str());
        unlink(file_.c_str());
        if (r.file) writeText(file_, "%SDF_BIN");
        if (!r.lock.empty()) writeText(lock_, r.lock);
        char text[300] = "untouched";
        EXPECT_EQ(Sdf_Lockfile_Info(file_.c_str(), text), r.rc) << r.label;
        if (r.rc != 0)
            EXPECT_EQ(std::string(text) + "\n", r.lock.substr(r.lock.find('\n') + 1,
                                                             r.lock.find("This file") -
                                                                 r.lock.find('\n') - 1))
                << r.label;
        else
            EXPECT_STREQ(text, "") << r.label;
    }
    EXPECT_EQ(Sdf_Lockfile_Info(nullptr, nullptr), 0);
    EXPECT_EQ(Sdf_Lockfile_Info(" data.sdf", nullptr), 0);
}

TEST_F(SdfLock, DeleteLockfileRemovesBothAndTriesBoth) {
    EXPECT_EQ(Sdf_Delete_Lockfile(file_.c_str()), 0);
    EXPECT_EQ(Sdf_Delete_Lockfile(""), 0);
    writeText(lock_, "x");
    writeText(lock2_, "y");
    EXPECT_EQ(Sdf_Delete_Lockfile(file_.c_str()), 0);
    EXPECT_FALSE(exists(lock_));
    EXPECT_FALSE(exists(lock2_));
    EXPECT_TRUE(exists(file_));

    if (geteuid() == 0) GTEST_SKIP() << "root ignores permission bits";
    writeText(lock_, "x");
    writeText(lock2_, "y");
    ASSERT_EQ(chmod(dir_.c_str(), 0500), 0);
    EXPECT_EQ(Sdf_Delete_Lockfile(file_.c_str()), 3044);
    int index = 1, reports = 0;
    while (ZU_ErrRec* rec = ZU_errNext("*", &index)) reports += rec->number == 3044;
    EXPECT_EQ(reports, 2) << "both deletions are tried";
}

}  // namespace
