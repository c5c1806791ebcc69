// Crash consistency: a writer process runs a long random script of
// operations (crash_model.h) and is killed with SIGKILL before a chosen call
// of the table of file calls, or after a random time. Whatever it leaves must
// be either refused as dirty (3051, with the dirty flag in the guard word on
// disk) or equal to a state the writer had committed: a state after a flush,
// a close, or an array write (which commits the tables before its data land;
// its data may then be cut off half way), no older than the writer's last
// completed flush and no newer than the step it was in. Never a clean file
// that differs.
//
// The writer keeps a journal beside the file with plain write(2) calls:
// "C" once the file exists, "S k" before step k, "D k" once step k (a flush
// or a close) has returned, "E ..." with the library's messages when a step
// failed, "T n" with its count of file calls at a clean end. Seeds are fixed,
// so a failure repeats.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <sstream>

#include "crash_model.h"
#include "sdf_test_files.h"

namespace {

using namespace crashtest;

#if defined(__SANITIZE_ADDRESS__)
constexpr int kSparse = 4;  // the sanitizer tree tries every fourth kill point
#else
constexpr int kSparse = 1;
#endif

// ------------------------------------------------------------ the writer

int64_t g_killAt = 0;  // 0: never
int64_t g_calls = 0;

void beforeCall() {
    if (++g_calls == g_killAt) kill(getpid(), SIGKILL);
}
int cOpen(const char* p, int f, mode_t m) { return beforeCall(), sdf_io_default.open(p, f, m); }
int cClose(int fd) { return beforeCall(), sdf_io_default.close(fd); }
ssize_t cRead(int fd, void* b, size_t n, off_t o) { return beforeCall(), sdf_io_default.pread(fd, b, n, o); }
ssize_t cWrite(int fd, const void* b, size_t n, off_t o) { return beforeCall(), sdf_io_default.pwrite(fd, b, n, o); }
// A killed process loses nothing the kernel already holds, so the system's
// flush adds nothing to what is tested here but time: it is only counted.
int cSync(int) { return beforeCall(), 0; }
int cTruncate(int fd, off_t n) { return beforeCall(), sdf_io_default.ftruncate(fd, n); }
int cUnlink(const char* p) { return beforeCall(), sdf_io_default.unlink(p); }
int cStat(int fd, struct stat* st) { return beforeCall(), sdf_io_default.fstat(fd, st); }
// The lock step's waits cost time and prove nothing here: one writer only.
int noSleep(const struct timespec*, struct timespec*) { return 0; }

// Every message in the error set, on one line.
std::string messages() {
    std::string all;
    int index = -1;
    while (ZU_ErrRec* r = ZU_errNext("*", &index)) {
        all += std::string(all.empty() ? "" : " | ") + (r->message ? r->message : "");
        if (index == 0) break;
    }
    for (char& c : all)
        if (c == '\n') c = ' ';
    return all;
}

void jot(int fd, const std::string& line) {
    const std::string l = line + "\n";
    if (write(fd, l.data(), l.size()) != static_cast<ssize_t>(l.size())) _exit(4);
}

[[noreturn]] void writer(const Script& sc, const std::string& file, const std::string& journal, const char* opts,
                         int64_t killAt) {
    alarm(60);
    const int j = open(journal.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0644);
    if (j < 0) _exit(5);
    sdf_io = sdf_io_ops{cOpen, cClose, cRead, cWrite, cSync, cTruncate, cUnlink, sdf_io_default.time,
                        cStat, sdf_io_default.kill, sdf_io_default.clock_gettime, noSleep};
    g_killAt = killAt;
    g_calls = 0;
    Sdf_Push(-1);  // the built-in defaults, whatever tests before set
    Sdf_Set_Opts(opts);
    ZU_errClear("*", 0);
    int ch = -1;
    if (Sdf_Open(&ch, file.c_str(), "BINARY", "NEW", "WRITE")) jot(j, "E 0 " + messages()), _exit(3);
    jot(j, "C");
    for (size_t k = 1; k <= sc.ops.size(); k++) {
        const Op& op = sc.ops[k - 1];
        jot(j, "S " + std::to_string(k));
        if (perform(op, &ch, file.c_str()) >= 3000)
            jot(j, "E " + std::to_string(k) + " " + op.text_of() + ": " + messages()), _exit(3);
        if (op.kind == Kind::Flush || op.kind == Kind::Reopen) jot(j, "D " + std::to_string(k));
    }
    if (Sdf_Close(ch, "KEEP")) jot(j, "E close: " + messages()), _exit(3);
    jot(j, "T " + std::to_string(g_calls));
    _exit(0);
}

// ----------------------------------------------------------- the checker

struct Journal {
    bool created = false;
    int started = 0, durable = 0;
    int64_t calls = 0;
    std::string error;
};

Journal readJournal(const std::string& path) {
    Journal j;
    std::istringstream in(sdftest::readText(path));
    std::string line;
    while (std::getline(in, line)) {
        if (line == "C") j.created = true;
        else if (line.rfind("S ", 0) == 0) j.started = std::stoi(line.substr(2));
        else if (line.rfind("D ", 0) == 0) j.durable = std::stoi(line.substr(2));
        else if (line.rfind("T ", 0) == 0) j.calls = std::stoll(line.substr(2));
        else if (line.rfind("E ", 0) == 0) j.error = line.substr(2);
    }
    return j;
}

// Whether the guard word on disk carries the dirty flag.
bool dirtyOnDisk(const std::vector<unsigned char>& b) {
    if (b.size() < 20) return false;
    const bool little = b[9] == 'L';
    uint32_t g = 0;
    for (int i = 0; i < 4; i++) g |= uint32_t{b[16 + (little ? i : 3 - i)]} << (8 * i);
    return g != 0 && g != SDF_GUARD_CLEAN && (g < 256 || (g & ~0xFFu) == SDF_GUARD_CLEAN);
}

// Empty when the file is one the writer may leave at this point of its
// journal; otherwise what was seen.
std::string judge(const Script& sc, const std::string& file, const Journal& j) {
    if (!j.error.empty()) return "the writer's step failed: " + j.error;
    const auto raw = sdftest::readBytes(file);
    if (!j.created && raw.size() < SDF_HDR_BYTES) return "";  // killed while creating it
    ZU_errClear("*", 0);
    int ch = -1;
    const int rc = Sdf_Open(&ch, file.c_str(), "BINARY", "OLD", "READ");
    if (dirtyOnDisk(raw)) {
        if (rc == 0) Sdf_Close(ch, "KEEP");
        if (rc == 3051 && sdftest::errorText(3051).find("is marked dirty") != std::string::npos) return "";
        return "a file marked dirty on disk was not refused as dirty (" + std::to_string(rc) + "): " + messages();
    }
    if (rc >= 3000) return "a cleanly committed file is refused (" + std::to_string(rc) + "): " + messages();
    State got;
    std::string why;
    const bool read = readState(ch, got, &why);
    Sdf_Close(ch, "KEEP");
    if (!read) return "a variable of a clean file can't be read: " + why + ": " + messages();
    const int lo = j.durable, hi = j.started;
    for (int k = lo; k <= hi; k++) {
        if (k > lo && !sc.ops[k - 1].commits()) continue;
        const Op* op = k > 0 ? &sc.ops[k - 1] : nullptr;
        const bool cut = k > lo && op && (op->kind == Kind::WriteArray || op->kind == Kind::Append);
        Relax relax{cut ? op->name : "", cut ? op->first : 0, cut ? op->count : 0, k > 0 ? &sc.states[k - 1] : nullptr};
        if (matches(got, sc.states[k], cut ? &relax : nullptr, &why)) return "";
    }
    std::string vsLo, vsHi;
    matches(got, sc.states[lo], nullptr, &vsLo);
    matches(got, sc.states[hi], nullptr, &vsHi);
    return "the clean file matches no committed state between steps " + std::to_string(lo) + " and " +
           std::to_string(hi) + " (against step " + std::to_string(lo) + ": " + vsLo + "; against step " +
           std::to_string(hi) + ": " + vsHi + ")";
}

class SdfCrash : public sdftest::FileTest {
protected:
    void TearDown() override {
        Sdf_Pop();
        FileTest::TearDown();
    }
    void SetUp() override {
        FileTest::SetUp();
        Sdf_Push(-1);
        Sdf_Set_Opts("No_Read_Lock=Yes");  // the checker leaves no lock files behind
    }

    // One run of the writer, killed before file call killAt, or after
    // delayUs microseconds (when not negative), or not at all.
    Journal run(const Script& sc, const char* opts, int64_t killAt, int64_t delayUs) {
        for (const char* s : {"", ".lock", ".lock.lock", ".journal"}) unlink((file() + s).c_str());
        pid_t pid = fork();
        if (pid == 0) writer(sc, file(), file() + ".journal", opts, killAt);
        if (delayUs >= 0) {
            struct timespec t{static_cast<time_t>(delayUs / 1000000), static_cast<long>(delayUs % 1000000) * 1000};
            nanosleep(&t, nullptr);
            kill(pid, SIGKILL);
        }
        int status = 0;
        waitpid(pid, &status, 0);
        return readJournal(file() + ".journal");
    }

    // The script once to its end, then killed before about `points` of its
    // file calls spread evenly (every call when 0; a quarter of them in the
    // sanitizer tree), from a seeded offset, and after `timed` random times.
    void campaign(uint64_t seed, int ops, const char* opts, int64_t points, int timed) {
        const Script sc = makeScript(seed, ops);
        const auto t0 = std::chrono::steady_clock::now();
        const Journal full = run(sc, opts, 0, -1);
        const int64_t us =
            std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - t0).count();
        ASSERT_TRUE(full.error.empty()) << "seed " << seed << ": unkilled writer failed: " << full.error;
        ASSERT_GT(full.calls, 0) << "seed " << seed << ": the writer did not finish";
        check(sc, seed, "unkilled", full);
        Rng r(seed);
        const int64_t step = (points > 0 ? std::max<int64_t>(1, full.calls / points) : 1) * kSparse;
        for (int64_t at = 1 + r.below(step); at <= full.calls; at += step)
            check(sc, seed, "killed before file call " + std::to_string(at), run(sc, opts, at, -1));
        for (int i = 0; i < timed; i++) {
            const int64_t delay = r.below(us);
            check(sc, seed, "killed after " + std::to_string(delay) + " us", run(sc, opts, 0, delay));
        }
    }

    void check(const Script& sc, uint64_t seed, const std::string& how, const Journal& j) {
        const std::string bad = judge(sc, file(), j);
        if (dirtyOnDisk(sdftest::readBytes(file()))) dirty_++;
        else if (bad.empty()) clean_++;
        if (bad.empty() || ++failures_ > 5) return;
        const std::string step = j.started > 0 ? sc.ops[j.started - 1].text_of() : "create";
        ADD_FAILURE() << "seed " << seed << ", " << how << " (in step " << j.started << ", " << step
                      << "; last flush or close done at step " << j.durable << "): " << bad;
    }

    std::string file() const { return path("crash.sdf"); }
    int dirty_ = 0, clean_ = 0, failures_ = 0;
};

// Unkilled, every script must leave exactly its final state; many seeds,
// since a fault of the commit may need a rare layout of the block table.
TEST_F(SdfCrash, ScriptsRunToTheirEndReopenAsWritten) {
    for (uint64_t seed = 100; seed < 116; seed++) {
        const Script sc = makeScript(seed, 160);
        check(sc, seed, "unkilled", run(sc, seed % 2 ? "" : "Sex=BigEndian", 0, -1));
    }
    EXPECT_EQ(clean_, 16);
}

TEST_F(SdfCrash, EveryKillPointOfAShortScriptLeavesACommittedStateOrADirtyFile) {
    campaign(11, 40, "", 0, 0);
    // The campaign reached into commits and past them.
    EXPECT_GT(dirty_, 0);
    EXPECT_GT(clean_, 0);
}

TEST_F(SdfCrash, KillsAcrossLongScriptsLeaveCommittedStatesOrDirtyFiles) {
    struct Case {
        uint64_t seed;
        const char* opts;
    };
    for (const Case& c : {Case{21, ""}, Case{22, "Sex=BigEndian,Case_Sensitive=No"}, Case{23, ""}})
        campaign(c.seed, 160, c.opts, 60, 15 / kSparse);
    EXPECT_GT(dirty_, 0);
    EXPECT_GT(clean_, 0);
}

}  // namespace
