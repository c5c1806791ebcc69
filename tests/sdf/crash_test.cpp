// Crash consistency: a writer process runs a long random script of
// operations (crash_model.h) and is killed with SIGKILL before a chosen call
// of the table of file calls, or after a random time. Whatever it leaves must
// be either refused as dirty (3051, with the dirty flag in the guard word on
// disk) or equal to a state the writer had committed: a state after a flush,
// a close, or an array write (which commits the tables before its data land;
// its data may then be cut off half way), no older than the writer's last
// completed flush and no newer than the step it was in. Never a clean file
// that differs. The writer's journal (crash_model.h) tells the checker how
// far it got. Seeds are fixed, so a failure repeats.
#include <algorithm>
#include <chrono>

#include "crash_model.h"
#include "sdf_test_files.h"

namespace {

using namespace crashtest;

#if defined(__SANITIZE_ADDRESS__)
constexpr int kSparse = 4;  // the sanitizer tree tries every fourth kill point
#else
constexpr int kSparse = 1;
#endif

// ----------------------------------------------------------- the checker

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
        return "a file marked dirty on disk was not refused as dirty (" + std::to_string(rc) + "): " + errorMessages();
    }
    if (rc >= 3000) return "a cleanly committed file is refused (" + std::to_string(rc) + "): " + errorMessages();
    State got;
    std::string why;
    const bool read = readState(ch, got, &why);
    Sdf_Close(ch, "KEEP");
    if (!read) return "a variable of a clean file can't be read: " + why + ": " + errorMessages();
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

    Journal run(const Script& sc, const char* opts, int64_t killAt, int64_t delayUs) {
        return runWriter(sc, file(), opts, killAt, delayUs);
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
