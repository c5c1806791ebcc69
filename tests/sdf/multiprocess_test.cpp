// Several real processes on one file, with real lock files: one writer at a
// time, readers never kept out, stale locks of dead or old holders taken
// over, nothing left behind by a failed open, many writers taking turns,
// and a writer killed in the middle of its work.
//
// Every child runs under alarm() and ends with _exit; every wait has a
// deadline, after which the child is killed and the test fails.
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "sdf_channel_helpers.h"

namespace {

using sdftest::exists;
using sdftest::getVar;
using sdftest::lockLine;
using sdftest::putVar;

void sleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

// Runs body in a child process bounded by `limit` seconds; its result is the
// exit status.
pid_t spawn(const std::function<int()>& body, unsigned limit = 20) {
    pid_t pid = fork();
    if (pid == 0) {
        alarm(limit);
        _exit(body());
    }
    return pid;
}

// The child's exit status, or -1 (after killing it) when it outlives the
// deadline or dies by a signal.
int reap(pid_t pid, int seconds = 30) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    int status = 0;
    for (;;) {
        pid_t got = waitpid(pid, &status, WNOHANG);
        if (got == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        if (got < 0) return -1;
        if (std::chrono::steady_clock::now() > end) {
            kill(pid, SIGKILL);
            waitpid(pid, &status, 0);
            return -1;
        }
        sleepMs(5);
    }
}

// A one-byte signal between parent and child.
struct Pipe {
    int fd[2] = {-1, -1};
    Pipe() { EXPECT_EQ(pipe(fd), 0); }
    ~Pipe() {
        close(fd[0]);
        close(fd[1]);
    }
    void send() const { EXPECT_EQ(write(fd[1], "x", 1), 1); }
    // Waits up to `seconds` for a byte.
    bool wait(int seconds = 10) const {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
        int flags = fcntl(fd[0], F_GETFL);
        fcntl(fd[0], F_SETFL, flags | O_NONBLOCK);
        char c;
        while (std::chrono::steady_clock::now() < end) {
            if (read(fd[0], &c, 1) == 1) return true;
            sleepMs(2);
        }
        return false;
    }
};

class SdfProcesses : public sdftest::ChannelTest {
protected:
    void SetUp() override {
        ChannelTest::SetUp();
        file_ = path("m.sdf");
        ASSERT_TRUE(sdftest::makeFile(file_, "n", 0));
    }
    std::string pidText(pid_t pid) const { return "(PID " + std::to_string(pid) + ")"; }
    std::string file_;
};

TEST_F(SdfProcesses, ASecondWriterIsRefusedWithTheFirstOnesLine) {
    int ch = -1;
    ASSERT_EQ(Sdf_Open(&ch, file_.c_str(), "BINARY", "OLD", "WRITE"), 0);
    const std::string line2 = lockLine(file_, 2);
    ASSERT_NE(line2.find(pidText(getpid())), std::string::npos) << line2;
    pid_t child = spawn([&] {
        int c = -1;
        if (Sdf_Open(&c, file_.c_str(), "BINARY", "OLD", "WRITE") != 3037) return 1;
        const std::string msg = sdftest::errorText(3037);
        if (msg.find(line2) == std::string::npos || msg.find(file_) == std::string::npos) return 2;
        // FRESH always writes, so it meets the same refusal, and nothing is cut.
        if (Sdf_Open(&c, file_.c_str(), "BINARY", "FRESH", "WRITE") != 3037) return 3;
        if (!Sdf_Is_Sdf(file_.c_str())) return 6;
        // A reader is never kept out.
        if (Sdf_Open(&c, file_.c_str(), "BINARY", "OLD", "READ") != 0) return 4;
        return Sdf_Close(c, "KEEP") == 0 ? 0 : 5;
    });
    EXPECT_EQ(reap(child), 0);
    // The refused writer and the reader left the lock as it was.
    EXPECT_EQ(lockLine(file_, 2), line2);
    EXPECT_NE(lockLine(file_).find("WRITE=1"), std::string::npos);
    EXPECT_FALSE(exists(file_ + ".lock.lock"));
    EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
    EXPECT_FALSE(exists(file_ + ".lock"));
}

TEST_F(SdfProcesses, AWriterReplacesAReadersLock) {
    Pipe ready, go;
    pid_t reader = spawn([&] {
        int c = -1;
        if (Sdf_Open(&c, file_.c_str(), "BINARY", "OLD", "READ") != 0) return 1;
        ready.send();
        if (!go.wait()) return 2;
        return Sdf_Close(c, "KEEP") == 0 ? 0 : 3;  // the lock isn't its own any more
    });
    ASSERT_TRUE(ready.wait());
    EXPECT_NE(lockLine(file_).find("WRITE=0"), std::string::npos);
    EXPECT_NE(lockLine(file_, 2).find(pidText(reader)), std::string::npos);
    int w = -1;
    ASSERT_EQ(Sdf_Open(&w, file_.c_str(), "BINARY", "OLD", "WRITE"), 0);
    EXPECT_NE(lockLine(file_).find("WRITE=1"), std::string::npos);
    EXPECT_NE(lockLine(file_, 2).find(pidText(getpid())), std::string::npos);
    pid_t writer = spawn([&] {
        int c = -1;
        return Sdf_Open(&c, file_.c_str(), "BINARY", "OLD", "WRITE") == 3037 ? 0 : 1;
    });
    EXPECT_EQ(reap(writer), 0);
    go.send();
    EXPECT_EQ(reap(reader), 0);
    EXPECT_NE(lockLine(file_, 2).find(pidText(getpid())), std::string::npos);
    EXPECT_EQ(Sdf_Close(w, "KEEP"), 0);
    EXPECT_FALSE(exists(file_ + ".lock"));
}

// A lock of a live-looking writer on another host, `age_hours` old. How
// locks are judged by age is up to the lock file tests; here a failed open
// leaves no lock behind.
void writeForeignLock(const std::string& file, double age_hours) {
    const int64_t fid = sdf_lock_now_us() - static_cast<int64_t>(age_hours * 3600e6);
    sdftest::writeText(file + ".lock", sdftest::lockText(fid, fid, 1, "far-away-host", 1));
}

TEST_F(SdfProcesses, NoReadLockReadersLeaveNoTraceButWritersStillLock) {
    ASSERT_EQ(Sdf_Set_Opts("No_Read_Lock=Yes"), 0);
    int r = -1;
    int rc = Sdf_Open(&r, file_.c_str(), "BINARY", "OLD", "READ");
    EXPECT_EQ(rc, 0);
    EXPECT_FALSE(exists(file_ + ".lock"));
    Pipe locked, go;
    pid_t writer = spawn([&] {
        int c = -1;
        if (Sdf_Open(&c, file_.c_str(), "BINARY", "OLD", "WRITE") != 0) return 1;
        locked.send();
        if (!go.wait()) return 2;
        return Sdf_Close(c, "KEEP") == 0 ? 0 : 3;
    });
    EXPECT_TRUE(locked.wait());
    EXPECT_NE(lockLine(file_, 2).find(pidText(writer)), std::string::npos);
    go.send();
    EXPECT_EQ(reap(writer), 0);
    Sdf_Set_Opts("No_Read_Lock=No");
    EXPECT_FALSE(exists(file_ + ".lock"));
    EXPECT_EQ(Sdf_Close(r, "KEEP"), 0);
}

TEST_F(SdfProcesses, AFailedOpenLeavesNoLockBehind) {
    const std::string junk = path("junk.sdf");
    sdftest::writeBytes(junk, std::vector<unsigned char>(64, 'j'));
    int c = -1;
    for (const char* intent : {"READ", "WRITE"}) {
        EXPECT_EQ(Sdf_Open(&c, junk.c_str(), "BINARY", "OLD", intent), 3050) << intent;
        EXPECT_FALSE(exists(junk + ".lock"));
        EXPECT_FALSE(exists(junk + ".lock.lock"));
    }
    // A stale lock that the failed open replaced goes too: nothing names the
    // failed process.
    writeForeignLock(junk, 48);
    EXPECT_EQ(Sdf_Open(&c, junk.c_str(), "BINARY", "OLD", "WRITE"), 3050);
    EXPECT_FALSE(exists(junk + ".lock"));
}

// Four processes take turns writing one file. Each holds the file between
// its open and its close; the log records both ends with O_APPEND, so any
// overlap shows as two "begin" lines in a row.
TEST_F(SdfProcesses, ManyWritersTakeTurns) {
    const std::string log = path("events.log");
    constexpr int kProcs = 4, kRounds = 50;
    const auto start = std::chrono::steady_clock::now();
    std::vector<pid_t> kids;
    for (int k = 0; k < kProcs; k++) {
        kids.push_back(spawn(
            [&] {
                int fd = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
                if (fd < 0) return 10;
                const std::string me = std::to_string(getpid());
                for (int round = 0; round < kRounds; round++) {
                    int c = -1, rc;
                    while ((rc = Sdf_Open(&c, file_.c_str(), "BINARY", "OLD", "WRITE")) == 3037) sleepMs(1);
                    if (rc != 0) {  // leaves the code in the log for the parent to name
                        const std::string f = "F " + std::to_string(rc) + "\n";
                        [[maybe_unused]] auto n = write(fd, f.data(), f.size());
                        return 11;
                    }
                    std::string b = "B " + me + "\n", e = "E " + me + "\n";
                    if (write(fd, b.data(), b.size()) != static_cast<ssize_t>(b.size())) return 12;
                    const double n = getVar(c, "n");
                    if (!putVar(c, "n", n + 1) || !putVar(c, "p" + me, round)) return 13;
                    if (write(fd, e.data(), e.size()) != static_cast<ssize_t>(e.size())) return 12;
                    if (Sdf_Close(c, "KEEP") != 0) return 14;
                }
                close(fd);
                return 0;
            },
            40));
    }
    for (pid_t k : kids) EXPECT_EQ(reap(k, 60), 0) << k;
    const double secs = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_LT(secs, 45.0);
    RecordProperty("seconds", std::to_string(secs));

    std::ifstream in(log);
    std::string kind, who, holder;
    int begins = 0;
    while (in >> kind >> who) {
        if (kind == "F") {
            ADD_FAILURE() << "a writer's open failed with code " << who;
        } else if (kind == "B") {
            ASSERT_EQ(holder, "") << "overlap: " << who << " began while " << holder << " held the file";
            holder = who;
            begins++;
        } else {
            ASSERT_EQ(holder, who);
            holder.clear();
        }
    }
    EXPECT_EQ(begins, kProcs * kRounds);
    EXPECT_FALSE(exists(file_ + ".lock"));
    EXPECT_FALSE(exists(file_ + ".lock.lock"));
    int c = -1;
    ASSERT_EQ(Sdf_Open(&c, file_.c_str(), "BINARY", "OLD", "READ"), 0);
    EXPECT_EQ(getVar(c, "n"), kProcs * kRounds);  // no update was lost
    EXPECT_EQ(Sdf_Close(c, "KEEP"), 0);
}

// A writer killed mid-way: the next open finds a consistent file or refuses
// it as caught in a commit, and the dead writer's lock doesn't keep it out.
TEST_F(SdfProcesses, AWriterKilledMidWay) {
    for (int attempt = 0; attempt < 3; attempt++) {
        SCOPED_TRACE(attempt);
        Pipe started;
        pid_t child = spawn([&] {
            int c = -1;
            if (Sdf_Open(&c, file_.c_str(), "BINARY", "OLD", "WRITE") != 0) return 1;
            started.send();
            for (int i = 0;; i++) {
                putVar(c, std::string("v").append(std::to_string(i % 500)), i);
                putVar(c, "n", i);
                if (Sdf_Write(c) != 0) return 2;
            }
        });
        ASSERT_TRUE(started.wait());
        sleepMs(50 + 40 * attempt);
        kill(child, SIGKILL);
        EXPECT_EQ(reap(child), -1);
        ASSERT_NE(lockLine(file_, 2).find(pidText(child)), std::string::npos);

        int c = -1;
        int rc = Sdf_Open(&c, file_.c_str(), "BINARY", "OLD", "WRITE");
        ASSERT_TRUE(rc == 0 || rc == 3051) << rc;
        if (rc == 0) {
            EXPECT_NE(lockLine(file_, 2).find(pidText(getpid())), std::string::npos);
            const double n = getVar(c, "n");
            EXPECT_GE(n, 0);
            EXPECT_EQ(Sdf_Close(c, "KEEP"), 0);
        } else {
            EXPECT_FALSE(exists(file_ + ".lock"));  // taken over, then undone
            // Start the next round from a sound file.
            ASSERT_EQ(Sdf_Open(&c, file_.c_str(), "BINARY", "FRESH", "WRITE"), 0);
            ASSERT_TRUE(putVar(c, "n", 0));
            ASSERT_EQ(Sdf_Close(c, "KEEP"), 0);
        }
        EXPECT_FALSE(exists(file_ + ".lock"));
    }
}

}  // namespace
