// Salvage: files left dirty by writers killed in the middle of a commit, and
// files damaged on purpose (flipped bytes, cut short), go through the
// library's salvage reader and copy and through the `sdf salvage` command.
// The input must never change, the output must always be a clean file, and a
// recovered variable must be one the writer had written.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "crash_model.h"
#include "sdf_inner.h"
#include "sdf_salvage.h"
#include "tool_run.h"

namespace {

using namespace crashtest;

#if defined(__SANITIZE_ADDRESS__)
constexpr int kVariants = 100;   // damaged files
constexpr int kDirtyFiles = 6;   // files of killed writers
#else
constexpr int kVariants = 200;
constexpr int kDirtyFiles = 12;
#endif

std::vector<unsigned char> bytesOf(const std::string& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeFile(const std::string& p, const std::vector<unsigned char>& b) {
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size()));
}

bool exists(const std::string& p) { return access(p.c_str(), F_OK) == 0; }

class SdfSalvage : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/sdf_salvage_XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        Sdf_Push(-1);
        Sdf_Set_Opts("No_Read_Lock=Yes,Error_Out=ErrSet");
        // The lock step's 10 ms wait before each output is opened, times
        // hundreds of outputs, is time that proves nothing here.
        sdf_io.nanosleep = [](const struct timespec*, struct timespec*) { return 0; };
    }
    void TearDown() override {
        sdf_io = sdf_io_default;
        Sdf_Pop();
        std::error_code ec;
        std::filesystem::remove_all(dir_, ec);
    }
    std::string path(const std::string& name) const { return dir_ + "/" + name; }

    // Salvages in into out in this process; the outcome of each variable.
    std::vector<int32_t> salvage(const std::string& in, const std::string& out, sdf_salvage** keep = nullptr) {
        sdf_salvage* s = nullptr;
        EXPECT_EQ(sdf_salvage_open(in.c_str(), &s), 0);
        if (!s) return {};
        std::vector<int32_t> outcome(static_cast<size_t>(sdf_salvage_count(s)) + 1);
        EXPECT_EQ(sdf_salvage_copy(s, out.c_str(), 1, outcome.data()), 0) << errorMessages();
        outcome.pop_back();
        if (keep) *keep = s;
        else sdf_salvage_close(s);
        return outcome;
    }

    // The state of a file the library opens cleanly.
    State openState(const std::string& p) {
        State st;
        int ch = -1;
        EXPECT_EQ(Sdf_Open(&ch, p.c_str(), "BINARY", "OLD", "READ"), 0) << errorMessages();
        if (ch < 0) return st;
        std::string why;
        EXPECT_TRUE(readState(ch, st, &why)) << why;
        Sdf_Close(ch, "KEEP");
        return st;
    }

    using Outcome = sdftooltest::Outcome;
    Outcome tool(const std::string& args) { return sdftooltest::runTool(args); }

    std::string dir_;
};

// Whether step k of the script changed variable `name`.
bool touches(const Script& sc, int k, const std::string& name) {
    const Op& op = sc.ops[k - 1];
    return op.name == name && op.kind != Kind::Flush && op.kind != Kind::Reopen;
}

TEST_F(SdfSalvage, RecoversFromFilesLeftDirtyByKilledWriters) {
    const Script sc = makeScript(31, 120);
    const std::string file = path("w.sdf"), out = path("out.sdf");
    const Journal full = runWriter(sc, file, "", 0, -1);
    ASSERT_GT(full.calls, 0) << full.error;
    int dirty = 0;
    for (int64_t at = 7; at <= full.calls && dirty < kDirtyFiles; at += 13) {
        const Journal j = runWriter(sc, file, at % 2 ? "" : "Sex=BigEndian", at, -1);
        const auto before = bytesOf(file);
        if (!dirtyOnDisk(before)) continue;
        dirty++;
        if (dirty == 1) {  // the command says what it found, and leaves the killed writer's lock alone
            const auto lock = bytesOf(file + ".lock");
            const Outcome t = tool("salvage --force " + file + " " + out);
            EXPECT_EQ(t.code, 3) << t.out;
            EXPECT_NE(t.out.find("marked dirty (a write was cut short)"), std::string::npos) << t.out;
            EXPECT_NE(t.out.find("a commit was cut short"), std::string::npos) << t.out;
            EXPECT_EQ(bytesOf(file + ".lock"), lock);
            EXPECT_FALSE(exists(file + ".lock.lock"));
        }
        const auto outcome = salvage(file, out);
        EXPECT_EQ(bytesOf(file), before) << "the input changed";
        const State got = openState(out);
        EXPECT_EQ(got.size(), static_cast<size_t>(std::count(outcome.begin(), outcome.end(), SDF_SALVAGE_COPIED)));
        // What the last completed flush held and no step since touched comes
        // back as it was; what the cut commit was writing may mix its old and
        // new versions (the report says so), but no other name may appear.
        const State& flushed = sc.states[j.durable];
        auto touched = [&](const std::string& name) {
            for (int k = j.durable + 1; k <= j.started; k++)
                if (touches(sc, k, name)) return true;
            return false;
        };
        for (const auto& [name, v] : flushed) {
            if (touched(name)) continue;
            auto it = got.find(name);
            std::string why;
            if (it == got.end()) ADD_FAILURE() << "\"" << name << "\" lost, killed at call " << at;
            else EXPECT_TRUE(matches({*it}, {{name, v}}, nullptr, &why)) << why << ", killed at call " << at;
        }
        for (const auto& [name, v] : got)
            EXPECT_TRUE(flushed.count(name) || touched(name)) << "\"" << name << "\" invented, killed at call " << at;
    }
    EXPECT_GE(dirty, kDirtyFiles / 2);
}

TEST_F(SdfSalvage, CleanFileComesOutEqual) {
    const Script sc = makeScript(32, 80);
    const std::string file = path("c.sdf"), out = path("out.sdf");
    ASSERT_GT(runWriter(sc, file, "Case_Sensitive=No,Sex=BigEndian", 0, -1).calls, 0);
    sdf_salvage* s = nullptr;
    const auto outcome = salvage(file, out, &s);
    ASSERT_NE(s, nullptr);
    sdf_salvage_facts f;
    sdf_salvage_get_facts(s, &f);
    EXPECT_EQ(f.guard_state, 0);
    EXPECT_EQ(f.case_insensitive, 1);
    EXPECT_EQ(f.little_endian, 0);
    EXPECT_EQ(sdf_salvage_note(s, 0), nullptr);
    sdf_salvage_close(s);
    for (int32_t o : outcome) EXPECT_EQ(o, SDF_SALVAGE_COPIED);
    std::string why;
    EXPECT_TRUE(matches(openState(out), sc.states.back(), nullptr, &why)) << why;
    // The output keeps the input's byte order and name case.
    const auto head = bytesOf(out);
    ASSERT_GE(head.size(), 16u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(head.data()), 11), "%SDF_BIN:BI");
}

// A table the variables don't need (here the count of free block-table
// entries) makes the library refuse the file; salvage gets all of it back.
TEST_F(SdfSalvage, RecoversAllOfAFileRefusedForAWrongFreeCount) {
    const Script sc = makeScript(35, 60);
    const std::string file = path("f.sdf"), out = path("out.sdf");
    ASSERT_GT(runWriter(sc, file, "", 0, -1).calls, 0);
    auto b = bytesOf(file);
    int32_t freeCount;  // header offset 76, in this machine's order
    memcpy(&freeCount, &b[76], 4);
    freeCount++;
    memcpy(&b[76], &freeCount, 4);
    writeFile(file, b);
    int ch = -1;
    ZU_errClear("*", 0);
    EXPECT_EQ(Sdf_Open(&ch, file.c_str(), "BINARY", "OLD", "READ"), 3051);
    EXPECT_NE(errorMessages().find("free entry count wrong"), std::string::npos) << errorMessages();
    for (int32_t o : salvage(file, out)) EXPECT_EQ(o, SDF_SALVAGE_COPIED);
    std::string why;
    EXPECT_TRUE(matches(openState(out), sc.states.back(), nullptr, &why)) << why;
}

// Random damage: flipped bytes anywhere, or in the header and first table
// block, and cuts. The reader must survive every variant, the input must
// stay as it was, and the output must open cleanly and read whole.
TEST_F(SdfSalvage, SurvivesDamagedFiles) {
    const Script sc = makeScript(33, 100);
    const std::string file = path("d.sdf"), bad = path("bad.sdf"), out = path("out.sdf");
    ASSERT_GT(runWriter(sc, file, "", 0, -1).calls, 0);
    const auto sound = bytesOf(file);
    const size_t names = sc.states.back().size();
    Rng r(33);
    int lostSome = 0;
    for (int v = 0; v < kVariants; v++) {
        auto b = sound;
        if (v % 5 == 4) {
            b.resize(static_cast<size_t>(r.below(static_cast<int64_t>(b.size()))));
        } else {
            // Every fifth variant aims at the header and the first table block.
            const int64_t span = v % 5 == 1 ? std::min<int64_t>(1024, static_cast<int64_t>(b.size()))
                                            : static_cast<int64_t>(b.size());
            for (int64_t k = 0, n = 1 + r.below(8); k < n; k++) {
                const size_t at = static_cast<size_t>(r.below(span));
                b[at] ^= static_cast<unsigned char>(1 + r.below(255));
            }
        }
        writeFile(bad, b);
        sdf_salvage* s = nullptr;
        if (sdf_salvage_open(bad.c_str(), &s) != 0) {
            const bool magicGone = b.size() < 16 || memcmp(b.data(), "%SDF_BIN", 8) != 0;
            EXPECT_TRUE(magicGone) << "variant " << v << " refused whole";
            continue;
        }
        std::vector<int32_t> outcome(static_cast<size_t>(sdf_salvage_count(s)) + 1);
        const int rc = sdf_salvage_copy(s, out.c_str(), 1, outcome.data());
        size_t copied = 0;
        for (int i = 0; i < sdf_salvage_count(s); i++) {
            copied += outcome[i] == SDF_SALVAGE_COPIED;
            lostSome += outcome[i] != SDF_SALVAGE_COPIED;
        }
        sdf_salvage_close(s);
        EXPECT_EQ(bytesOf(bad), b) << "variant " << v << ": the input changed";
        ASSERT_EQ(rc, 0) << "variant " << v << ": " << errorMessages();
        const State got = openState(out);
        EXPECT_EQ(got.size(), copied) << "variant " << v;
        EXPECT_LE(copied, names) << "variant " << v;
    }
    EXPECT_GT(lostSome, 0);  // the damage did reach the tables
}

// A damaged record loses its variable with a reason; its neighbours stay.
TEST_F(SdfSalvage, NamesWhatItLost) {
    const std::string file = path("n.sdf"), out = path("out.sdf");
    int ch = -1;
    ASSERT_EQ(Sdf_Open(&ch, file.c_str(), "BINARY", "NEW", "WRITE"), 0);
    const double x = 1.5;
    const int64_t dims[8] = {1, 300};
    std::vector<double> data(300, 2.5);
    ASSERT_EQ(Sdf_Write_Var(ch, "x", SDF_DBLE_T, &x, "m", "kept"), 0);
    ASSERT_EQ(Sdf_Define_Array64(ch, "arr", SDF_DBLE_T, 0, dims, "", ""), 0);
    int64_t start[8] = {1, 0};
    ASSERT_EQ(Sdf_Write_Array64(ch, "arr", data.data(), start, 300), 0);
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
    auto b = bytesOf(file);
    sdf_salvage* s = nullptr;
    ASSERT_EQ(sdf_salvage_open(file.c_str(), &s), 0);
    int arr = -1;
    for (int i = 0; i < sdf_salvage_count(s); i++)
        if (std::string(sdf_salvage_get(s, i)->name) == "arr") arr = i;
    ASSERT_GE(arr, 0);
    sdf_salvage_close(s);
    // The type of the entry of the array's first data block (word 5 of its
    // 32-byte entry in block 1, at chunk 1) becomes 3: a varinf block. The
    // file is in this machine's byte order.
    int32_t first = 0;
    {
        int rch = -1;
        ASSERT_EQ(Sdf_Open(&rch, file.c_str(), "BINARY", "OLD", "READ"), 0);
        fcb* f = sdf_chan_get(rch);
        ventry* row = sdf_find_var(f, "arr", nullptr);
        ASSERT_NE(row, nullptr);
        first = row->record->value.i[2];
        Sdf_Close(rch, "KEEP");
    }
    ASSERT_GT(first, 1);
    const size_t at = SDF_CHUNK + static_cast<size_t>(first) * SDF_ENTRY_BYTES + 20;
    const int32_t wrong = 3;
    memcpy(&b[at], &wrong, 4);
    writeFile(file, b);
    const Outcome t = tool("salvage " + file + " " + out);
    EXPECT_EQ(t.code, 3) << t.out;
    EXPECT_NE(t.out.find("recovered  x: double [m]"), std::string::npos) << t.out;
    EXPECT_NE(t.out.find("lost       arr: data chain broken"), std::string::npos) << t.out;
    EXPECT_NE(t.out.find("1 of 2 variables recovered"), std::string::npos) << t.out;
    const State got = openState(out);
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got.at("x").desc, "kept");
}

TEST_F(SdfSalvage, ToolNeverOverwritesWithoutForceAndNeverItsInput) {
    const Script sc = makeScript(34, 30);
    const std::string in = path("in.sdf"), out = path("out.sdf"), link = path("link.sdf");
    ASSERT_GT(runWriter(sc, in, "", 0, -1).calls, 0);
    const auto original = bytesOf(in);
    writeFile(out, {'k', 'e', 'e', 'p'});
    Outcome t = tool("salvage " + in + " " + out);
    EXPECT_EQ(t.code, 2) << t.out;
    EXPECT_NE(t.out.find("already exists; add --force"), std::string::npos) << t.out;
    EXPECT_EQ(bytesOf(out), (std::vector<unsigned char>{'k', 'e', 'e', 'p'}));
    t = tool("salvage --force " + in + " " + out);
    EXPECT_EQ(t.code, 0) << t.out;
    std::string why;
    EXPECT_TRUE(matches(openState(out), sc.states.back(), nullptr, &why)) << why;
    // The input by another name, even with --force.
    ASSERT_EQ(symlink(in.c_str(), link.c_str()), 0);
    for (const std::string& same : {in, link, dir_ + "/./in.sdf"}) {
        t = tool("salvage --force " + in + " " + same);
        EXPECT_EQ(t.code, 2) << same << ": " << t.out;
        EXPECT_NE(t.out.find("is the input file"), std::string::npos) << t.out;
    }
    EXPECT_EQ(bytesOf(in), original);
    EXPECT_FALSE(exists(in + ".lock"));
}

TEST_F(SdfSalvage, ToolExitCodes) {
    const std::string text = path("text.sdf"), out = path("out.sdf");
    writeFile(text, {'h', 'e', 'l', 'l', 'o', ' ', 'w', 'o', 'r', 'l', 'd', ' ', 't', 'e', 'x', 't', '\n'});
    Outcome t = tool("salvage " + text + " " + out);
    EXPECT_EQ(t.code, 1) << t.out;
    EXPECT_NE(t.out.find("is not an SDF"), std::string::npos) << t.out;
    EXPECT_FALSE(exists(out));
    t = tool("salvage " + path("missing.sdf") + " " + out);
    EXPECT_EQ(t.code, 1) << t.out;
    EXPECT_EQ(tool("salvage " + text).code, 2);
    // A directory, or a FIFO that no one writes to, is refused at once.
    ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
    for (const std::string& odd : {dir_, path("fifo")}) {
        t = tool("salvage " + odd + " " + out);
        EXPECT_EQ(t.code, 1) << t.out;
        EXPECT_NE(t.out.find("not a regular file"), std::string::npos) << t.out;
    }
    t = tool("salvage --help");
    EXPECT_EQ(t.code, 0);
    EXPECT_NE(t.out.find("usage: sdf salvage [--force] IN OUT"), std::string::npos) << t.out;
    EXPECT_NE(t.out.find("  3  salvage:"), std::string::npos) << t.out;
}

}  // namespace
