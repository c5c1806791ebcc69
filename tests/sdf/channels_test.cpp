// Channels and open/close in one process: the life of a file from create to
// reopen, the keywords and the order of the refusals, scratch and internal
// files, channels sharing one file and its handles, the close statuses,
// refresh, write and flush, and the lookups by path and channel.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "sdf_channel_helpers.h"

namespace {

using sdftest::exists;
using sdftest::getVar;
using sdftest::lockLine;
using sdftest::putVar;

// The number in prefix + digits + suffix, or -1 when name has another form.
int numberIn(const std::string& name, const std::string& prefix, const std::string& suffix) {
    if (name.size() <= prefix.size() + suffix.size() || name.compare(0, prefix.size(), prefix) != 0 ||
        name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0)
        return -1;
    const std::string digits = name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
    if (digits.find_first_not_of("0123456789") != std::string::npos) return -1;
    return std::stoi(digits);
}

// Whether the file on disk (read past the channel table) holds the variable.
bool onDisk(const std::string& p, const char* name) {
    fcb* f = nullptr;
    if (sdf_load_file(p.c_str(), 0, &f) != 0) return false;
    int pos = -1;
    const bool found = sdf_find_var(f, name, &pos) != nullptr;
    sdf_close_file(f, 0);
    return found;
}

class SdfOpenClose : public sdftest::ChannelTest {};

// Byte order and case rule come from the options at the creation.
TEST_F(SdfOpenClose, CreateCloseOpenAgainAndRefresh) {
    const std::string p = path("a.sdf");
    int ch = -1;
    ASSERT_EQ(Sdf_Set_Opts("Sex=BigEndian, Case_Sensitive=No"), 0);
    const int rc = Sdf_Open(&ch, p.c_str(), "UNKNOWN", "unknown", "Write");
    Sdf_Set_Opts("Sex=Native_Sex, Case_Sensitive=Yes");
    ASSERT_EQ(rc, 0);
    EXPECT_GE(ch, 1);  // channel 0 is kept for internal files
    EXPECT_STREQ(Sdf_Filename(ch), p.c_str());
    EXPECT_NE(lockLine(p).find("WRITE=1"), std::string::npos) << lockLine(p);
    ASSERT_TRUE(putVar(ch, "x", 2.5));
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
    EXPECT_FALSE(exists(p + ".lock"));
    EXPECT_STREQ(Sdf_Filename(ch), "");

    ASSERT_EQ(Sdf_Open(&ch, p.c_str(), "binary", "old", "read"), 0);
    EXPECT_EQ(getVar(ch, "X"), 2.5);
    int32_t info[7] = {};
    ASSERT_EQ(Sdf_Fileinf(ch, info), 0);
    EXPECT_EQ(info[0], 0);
    EXPECT_EQ(info[1], SDF_MAJOR);
    EXPECT_EQ(info[3], 1);
    EXPECT_EQ(std::string(sdf_chan_get(ch)->file->hdr->magic, 11), "%SDF_BIN:BI");
    EXPECT_EQ(info[4], SDF_CHUNK);
    struct stat st;
    ASSERT_EQ(stat(p.c_str(), &st), 0);
    EXPECT_EQ(static_cast<int64_t>(info[5]) * info[4], st.st_size);
    // Nothing changed on disk: a refresh keeps the tables it has.
    vars* before = sdf_chan_get(ch)->file->vars;
    EXPECT_EQ(Sdf_Refresh(ch), 0);
    EXPECT_EQ(sdf_chan_get(ch)->file->vars, before);
    EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
}

TEST_F(SdfOpenClose, RefusalsComeInTheirOrder) {
    const std::string have = path("have.sdf"), none = path("none.sdf");
    ASSERT_TRUE(sdftest::makeFile(have));
    int ch = -1;
    struct Case {
        const char *path, *type, *status, *intent;
        int code;
        const char* text;  // part of the message, or null
    } cases[] = {
        {"x.sdf", "FOO", "NEW", "READ", 3030, "Invalid TYPE \"FOO\" for file \"x.sdf\""},
        {nullptr, nullptr, "OLD", "READ", 3030, "\"(null)\""},
        {nullptr, "BINARY", "NEW", "READ", 3033, nullptr},
        {nullptr, "BINARY", "FRESH", "READ", 3033, nullptr},
        {nullptr, "BINARY", "BAD", "BAD", 3039, nullptr},
        {"", "BINARY", "OLD", "READ", 3039, nullptr},
        {" a", "BINARY", "OLD", "READ", 3039, nullptr},
        {none.c_str(), "BINARY", "BAD", "BAD", 3031, "Invalid STATUS \"BAD\""},
        {nullptr, "INTERNAL", "BAD", nullptr, 3031, "(no path, INTERNAL)"},
        {nullptr, "SCRATCH", "KEEP", nullptr, 3031, "(no path, SCRATCH)"},
        {none.c_str(), "BINARY", "OLD", "BAD", 3032, "Invalid INTENT \"BAD\""},
        {none.c_str(), "BINARY", "OLD", nullptr, 3032, nullptr},
        {none.c_str(), "BINARY", "OLD", "READ", 3034, nullptr},
        {have.c_str(), "BINARY", "NEW", "WRITE", 3035, nullptr},
        {nullptr, "INTERNAL", "OLD", nullptr, 3034, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.path ? c.path : "(null)") + " " + (c.type ? c.type : "(null)") + " " +
                     c.status + " " + (c.intent ? c.intent : "(null)"));
        ZU_errClear("*", 0);
        ch = -7;
        EXPECT_EQ(Sdf_Open(&ch, c.path, c.type, c.status, c.intent), c.code);
        EXPECT_EQ(ch, -7);
        if (c.text) {
            EXPECT_NE(sdftest::errorText(c.code).find(c.text), std::string::npos) << sdftest::errorText(c.code);
        }
    }
    EXPECT_FALSE(exists(none));
    EXPECT_FALSE(exists(none + ".lock"));
    EXPECT_FALSE(exists(have + ".lock"));
}

TEST_F(SdfOpenClose, FilesThatAreNoSdfAreRefusedWithoutTrace) {
    ASSERT_TRUE(sdftest::makeFile(path("good.sdf")));
    int ch = -1;
    std::vector<unsigned char> good = sdftest::readBytes(path("good.sdf"));
    std::vector<unsigned char> dirty = good;
    sdftest::putLE(dirty, 16, SDF_GUARD_DIRTY);
    std::vector<unsigned char> newer = good;
    sdftest::putLE(newer, 20, SDF_MAJOR + 1);
    struct Case {
        const char* name;
        std::vector<unsigned char> bytes;
        int code;
    } cases[] = {
        {"short", {'%', 'S', 'D', 'F'}, 3050},
        {"text", std::vector<unsigned char>(100, 'a'), 3050},
        {"old", {'%', 'B', 'I', 'N', 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 3053},
        {"dirty", dirty, 3051},
        {"newer", newer, 3054},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        sdftest::writeBytes(path(c.name), c.bytes);
        EXPECT_EQ(Sdf_Open(&ch, path(c.name).c_str(), "BINARY", "OLD", "WRITE"), c.code);
        EXPECT_FALSE(exists(path(c.name) + ".lock"));
        EXPECT_EQ(Sdf_Is_Sdf(path(c.name).c_str()), c.code == 3050 || c.code == 3053 ? 0 : 1);
    }
}

TEST_F(SdfOpenClose, PermissionRefusals) {
    if (geteuid() == 0) GTEST_SKIP() << "root passes every access test";
    const std::string p = path("ro.sdf");
    ASSERT_TRUE(sdftest::makeFile(p));
    int ch = -1;
    chmod(p.c_str(), 0444);
    EXPECT_EQ(Sdf_Open(&ch, p.c_str(), "BINARY", "OLD", "WRITE"), 3042);
    ASSERT_EQ(Sdf_Open(&ch, p.c_str(), "BINARY", "OLD", "READ"), 0);
    EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
    chmod(p.c_str(), 0);
    EXPECT_EQ(Sdf_Open(&ch, p.c_str(), "BINARY", "OLD", "READ"), 3041);
    const std::string sub = path("sub");
    ASSERT_EQ(mkdir(sub.c_str(), 0555), 0);
    EXPECT_EQ(Sdf_Open(&ch, (sub + "/n.sdf").c_str(), "BINARY", "NEW", "WRITE"), 3043);
    EXPECT_NE(sdftest::errorText(3043).find("no write access to directory"), std::string::npos);
    chmod(sub.c_str(), 0755);
}

TEST_F(SdfOpenClose, ScratchFilesGetTheirNamesAndVanish) {
    sdftest::InDir in(dir_);
    int a = -1, b = -1;
    ASSERT_EQ(Sdf_Open(&a, nullptr, "SCRATCH", "NEW", nullptr), 0);
    ASSERT_EQ(Sdf_Open(&b, "", "Scratch", "Unknown", ""), 0);
    const std::string n1 = Sdf_Filename(a), n2 = Sdf_Filename(b);
    const std::string form = "PID" + std::to_string(getpid()) + ".scratch_";
    const int k1 = numberIn(n1, form, ".SDF"), k2 = numberIn(n2, form, ".SDF");
    ASSERT_GE(k1, 1) << n1;
    EXPECT_EQ(k2, k1 + 1) << n2;
    EXPECT_TRUE(exists(path(n1.c_str())));
    EXPECT_EQ(sdf_chan_get(a)->file->path, dir_ + "/" + n1);
    EXPECT_EQ(Sdf_Close(a, "DELETE"), 0);
    EXPECT_FALSE(exists(path(n1.c_str())));
    EXPECT_FALSE(exists(path(n1.c_str()) + ".lock"));
    EXPECT_EQ(Sdf_Close(b, "DELETE"), 0);

    // STATUS SCRATCH makes a binary file at a path a scratch file, replaced.
    sdftest::writeBytes(path("s.sdf"), std::vector<unsigned char>(40, 'z'));
    ASSERT_EQ(Sdf_Open(&a, "s.sdf", "BINARY", "SCRATCH", nullptr), 0);
    EXPECT_TRUE(sdf_chan_get(a)->file->scratch);
    EXPECT_EQ(Sdf_Is_Sdf(path("s.sdf").c_str()), 1);
    EXPECT_EQ(Sdf_Close(a, "DELETE"), 0);
    EXPECT_FALSE(exists(path("s.sdf")));
}

TEST_F(SdfOpenClose, ExitHandlerDeletesScratchAndKeepsTheRest) {
    sdftest::InDir in(dir_);
    const std::string keep = path("keep.sdf");
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(10);
        int a = -1, b = -1;
        if (Sdf_Open(&a, nullptr, "SCRATCH", "NEW", nullptr) != 0) _exit(2);
        if (Sdf_Open(&b, keep.c_str(), "BINARY", "NEW", "WRITE") != 0) _exit(3);
        if (!putVar(b, "kept", 7)) _exit(4);
        exit(0);  // the handler closes both channels
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    const std::string scratch = "PID" + std::to_string(child) + ".scratch_";
    for (const auto& e : std::filesystem::directory_iterator(dir_))
        EXPECT_EQ(e.path().filename().string().find(scratch), std::string::npos) << e.path();
    EXPECT_FALSE(exists(keep + ".lock"));
    int ch = -1;
    ASSERT_EQ(Sdf_Open(&ch, keep.c_str(), "BINARY", "OLD", "READ"), 0);
    EXPECT_EQ(getVar(ch, "kept"), 7);
    EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
}

class SdfInternal : public sdftest::ChannelTest {};

TEST_F(SdfInternal, LivesInMemoryAndIsGoneAfterTheLastClose) {
    sdftest::InDir in(dir_);
    int a = -1, b = -1;
    ASSERT_EQ(Sdf_Open(&a, "mem.sdf", "INTERNAL", "NEW", nullptr), 0);
    EXPECT_EQ(a, 0);  // the internal channel
    EXPECT_EQ(sdf_chan_get(a)->ios, nullptr);
    ASSERT_TRUE(putVar(a, "v", 3));
    EXPECT_EQ(Sdf_Write(a), 0);
    EXPECT_EQ(Sdf_Flush(a), 0);
    // A second channel reads it; writing twice is refused.
    EXPECT_EQ(Sdf_Open(&b, "mem.sdf", "INTERNAL", "OLD", "WRITE"), 3042);
    ASSERT_EQ(Sdf_Open(&b, "mem.sdf", "INTERNAL", "OLD", "READ"), 0);
    EXPECT_EQ(getVar(b, "v"), 3);
    EXPECT_TRUE(sdf_chan_get(b)->writable);
    int found = -1;
    EXPECT_EQ(Sdf_Is_Open("mem.sdf", &found), 1);
    EXPECT_EQ(found, a);
    EXPECT_EQ(Sdf_Close(a, "anything at all"), 0);
    EXPECT_EQ(getVar(b, "v"), 3);
    EXPECT_EQ(Sdf_Close(b, nullptr), 0);
    EXPECT_FALSE(exists(path("mem.sdf")));
    EXPECT_TRUE(std::filesystem::is_empty(dir_));
    EXPECT_EQ(Sdf_Is_Open("mem.sdf", &found), 0);
    EXPECT_EQ(found, -1);
    ASSERT_EQ(Sdf_Open(&a, "mem.sdf", "INTERNAL", "UNKNOWN", nullptr), 0);
    EXPECT_EQ(getVar(a, "v"), -1e300);
    EXPECT_EQ(Sdf_Close(a, "KEEP"), 0);
}

TEST_F(SdfInternal, UnnamedOnesCountUpAndTheTableGrows) {
    int a = -1;
    ASSERT_EQ(Sdf_Open(&a, nullptr, "INTERNAL", "NEW", nullptr), 0);
    const std::string n = Sdf_Filename(a);
    const int k = numberIn(n, "internal_sdf_", "");
    ASSERT_GE(k, 0) << n;
    std::vector<int> chans;
    for (int i = 0; i < 300; i++) {
        int c = -1;
        ASSERT_EQ(Sdf_Open(&c, n.c_str(), "INTERNAL", "OLD", "READ"), 0) << i;
        chans.push_back(c);
    }
    EXPECT_GE(sdf_chan_capacity(), 512);
    EXPECT_EQ(chans.back(), 300);
    int b = -1;
    ASSERT_EQ(Sdf_Open(&b, nullptr, "INTERNAL", "NEW", nullptr), 0);
    EXPECT_EQ(numberIn(Sdf_Filename(b), "internal_sdf_", ""), k + 1);
    // The lowest free number is handed out again.
    EXPECT_EQ(Sdf_Close(chans[10], "KEEP"), 0);
    int c = -1;
    ASSERT_EQ(Sdf_Open(&c, n.c_str(), "INTERNAL", "OLD", "READ"), 0);
    EXPECT_EQ(c, chans[10]);
}

class SdfChannels : public sdftest::ChannelTest {};

TEST_F(SdfChannels, ReadersHaveHandlesOfTheirOwnAndAWriterSharesOne) {
    const std::string p = path("s.sdf");
    ASSERT_TRUE(sdftest::makeFile(p, "a", 1));
    int w = -1, r1 = -1, r2 = -1;

    ASSERT_EQ(Sdf_Open(&r1, p.c_str(), "BINARY", "OLD", "READ"), 0);
    ASSERT_EQ(Sdf_Open(&r2, p.c_str(), "BINARY", "OLD", "READ"), 0);
    fcb *f1 = sdf_chan_get(r1), *f2 = sdf_chan_get(r2);
    EXPECT_EQ(f1->file, f2->file);
    EXPECT_NE(f1->ios, f2->ios);
    EXPECT_NE(lockLine(p).find("WRITE=0"), std::string::npos);

    ASSERT_EQ(Sdf_Open(&w, p.c_str(), "BINARY", "OLD", "WRITE"), 0);
    fcb* fw = sdf_chan_get(w);
    EXPECT_EQ(f1->ios, fw->ios);
    EXPECT_EQ(f2->ios, fw->ios);
    EXPECT_EQ(fw->ios->refs, 3);
    EXPECT_FALSE(f1->writable);
    EXPECT_TRUE(fw->writable);
    const std::string fid = lockLine(p).substr(0, lockLine(p).find(",WRITE"));
    EXPECT_NE(lockLine(p).find("WRITE=1"), std::string::npos);
    ASSERT_TRUE(putVar(w, "b", 2));

    ASSERT_EQ(Sdf_Close(w, "KEEP"), 0);
    EXPECT_NE(f1->ios, f2->ios);
    EXPECT_EQ(f1->ios->refs, 1);
    EXPECT_EQ(f2->ios->refs, 1);
    EXPECT_EQ(lockLine(p), fid + ",WRITE=0");
    EXPECT_EQ(getVar(r1, "b"), 2);
    EXPECT_EQ(Sdf_Write(r1), 3002);
    EXPECT_TRUE(onDisk(p, "b"));

    EXPECT_EQ(Sdf_Close(r1, "DELETE"), 0);  // not the last: the file stays
    EXPECT_TRUE(exists(p));
    EXPECT_EQ(Sdf_Close(r2, "KEEP"), 0);
    EXPECT_FALSE(exists(p + ".lock"));
}

TEST_F(SdfChannels, FreshOnAnOpenFileIsRefusedAndTheChannelStays) {
    const std::string p = path("f.sdf");
    int w = -1, x = -1;
    ASSERT_EQ(Sdf_Open(&w, p.c_str(), "BINARY", "NEW", "WRITE"), 0);
    ASSERT_TRUE(putVar(w, "a", 4));
    x = -5;
    EXPECT_EQ(Sdf_Open(&x, p.c_str(), "BINARY", "FRESH", "WRITE"), 3036);
    EXPECT_EQ(x, -5);
    EXPECT_EQ(getVar(w, "a"), 4);
    EXPECT_TRUE(exists(p + ".lock"));
    // A second writer in the same process shares the channel's handle.
    ASSERT_EQ(Sdf_Open(&x, p.c_str(), "BINARY", "OLD", "WRITE"), 0);
    EXPECT_EQ(sdf_chan_get(x)->ios, sdf_chan_get(w)->ios);
    EXPECT_EQ(Sdf_Close(w, "KEEP"), 0);
    EXPECT_NE(lockLine(p).find("WRITE=1"), std::string::npos);
    EXPECT_EQ(getVar(x, "a"), 4);
    EXPECT_EQ(Sdf_Close(x, "KEEP"), 0);
    EXPECT_FALSE(exists(p + ".lock"));
}

TEST_F(SdfChannels, WriteFlushAndCloseFollowTheChannelsIntent) {
    const std::string p = path("c.sdf");
    int w = -1, r = -1;
    EXPECT_EQ(Sdf_Write(12345), 3001);
    EXPECT_EQ(Sdf_Flush(-1), 3001);
    ASSERT_EQ(Sdf_Open(&w, p.c_str(), "BINARY", "NEW", "WRITE"), 0);
    for (const char* bad : {"PURGE", "", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(Sdf_Close(w, bad), 3031);
        EXPECT_NE(sdf_chan_get(w), nullptr);
    }
    ASSERT_TRUE(putVar(w, "a", 1));
    EXPECT_EQ(Sdf_Write(w), 0);
    EXPECT_TRUE(onDisk(p, "a")) << "committed before the close";
    EXPECT_EQ(Sdf_Flush(w), 0);
    EXPECT_EQ(Sdf_Close(w, "keep"), 0);
    EXPECT_EQ(Sdf_Close(w, "KEEP"), 3001);
    ASSERT_EQ(Sdf_Open(&r, p.c_str(), "BINARY", "OLD", "READ"), 0);
    EXPECT_EQ(Sdf_Write(r), 3002);
    EXPECT_EQ(Sdf_Flush(r), 0);
    EXPECT_EQ(Sdf_Close(r, "KEEP"), 0);
}

TEST_F(SdfChannels, DowngradeRefusesInt64AndTheChannelStaysUsable) {
    const std::string p = path("d.sdf");
    int w = -1;
    ASSERT_EQ(Sdf_Open(&w, p.c_str(), "BINARY", "NEW", "WRITE"), 0);
    ASSERT_TRUE(putVar(w, "big", 5, SDF_INT64_T));
    ASSERT_TRUE(putVar(w, "d", 6));
    EXPECT_EQ(Sdf_Close(w, "DOWNGRADE"), 3020);
    EXPECT_NE(sdftest::errorText(3020).find("(12) for \"big\""), std::string::npos);
    ASSERT_NE(sdf_chan_get(w), nullptr);
    EXPECT_EQ(Sdf_Flush(w), 0);
    fcb* f = sdf_chan_get(w);
    int pos = -1;
    ventry* row = sdf_find_var(f, "big", &pos);
    ASSERT_NE(row, nullptr);
    ASSERT_EQ(sdf_delete_var(f, row, pos), 0);
    EXPECT_EQ(Sdf_Close(w, "DOWNGRADE"), 0);
    EXPECT_EQ(sdftest::getLE(sdftest::readBytes(p), 20), 1u);  // major version on disk
    ASSERT_EQ(Sdf_Open(&w, p.c_str(), "BINARY", "OLD", "READ"), 0);
    EXPECT_EQ(getVar(w, "d"), 6);
    EXPECT_EQ(Sdf_Close(w, "KEEP"), 0);
}

// The header's time has whole seconds: the clock is moved on for the writer.
time_t later(time_t* t) {
    time_t now = ::time(nullptr) + 5;
    if (t) *t = now;
    return now;
}

TEST_F(SdfChannels, RefreshSeesAnotherWritersCommitAndRefusesADirtyFile) {
    const std::string p = path("r.sdf");
    ASSERT_TRUE(sdftest::makeFile(p, "a", 1));
    int r = -1;
    ASSERT_EQ(Sdf_Set_Opts("No_Read_Lock=Yes"), 0);
    int rc = Sdf_Open(&r, p.c_str(), "BINARY", "OLD", "READ");
    Sdf_Set_Opts("No_Read_Lock=No");
    ASSERT_EQ(rc, 0);
    EXPECT_FALSE(exists(p + ".lock"));

    // Another writer, outside the channel table.
    fcb* other = nullptr;
    ASSERT_EQ(sdf_load_file(p.c_str(), 1, &other), 0);
    ASSERT_TRUE(putVar(other, "b", 9));
    sdf_io.time = later;
    ASSERT_EQ(sdf_write_modified_blocks(other), 0);
    sdf_io.time = sdf_io_default.time;

    EXPECT_EQ(getVar(r, "b"), -1e300);
    EXPECT_EQ(Sdf_Refresh(r), 0);
    EXPECT_EQ(getVar(r, "b"), 9);
    EXPECT_EQ(getVar(r, "a"), 1);

    // Caught in the middle of a commit: refused, and the tables stay.
    sdf_io.time = [](time_t* t) { return later(t) + 5; };
    ASSERT_EQ(sdf_write_hdr(other, 1), 0);
    sdf_io.time = sdf_io_default.time;
    ZU_errClear("*", 0);
    EXPECT_EQ(Sdf_Refresh(r), 3000);
    EXPECT_NE(sdftest::errorText(3051), "<none>");
    EXPECT_EQ(getVar(r, "b"), 9);
    sdf_close_file(other, 0);
    EXPECT_EQ(Sdf_Close(r, "KEEP"), 0);
}

TEST_F(SdfChannels, LookupsByPathAndName) {
    sdftest::InDir in(dir_);
    int w = -1, found = 77;
    EXPECT_EQ(Sdf_Is_Open(nullptr, &found), 0);
    EXPECT_EQ(Sdf_Is_Open(" x", &found), 0);
    EXPECT_EQ(found, 77);  // untouched for a blank path
    EXPECT_EQ(Sdf_Is_Open("l.sdf", &found), 0);
    EXPECT_EQ(found, -1);
    EXPECT_EQ(Sdf_Is_Sdf("l.sdf"), 0);
    ASSERT_EQ(Sdf_Open(&w, "l.sdf", "BINARY", "NEW", "WRITE"), 0);
    EXPECT_STREQ(Sdf_Filename(w), "l.sdf");  // the name as given
    EXPECT_EQ(Sdf_Is_Open(path("l.sdf").c_str(), &found), 1);  // found by its absolute path
    EXPECT_EQ(found, w);
    EXPECT_EQ(Sdf_Is_Open("l.sdf", &found), 1);
    EXPECT_EQ(Sdf_Is_Sdf("l.sdf"), 1);

    char small[4];
    EXPECT_STREQ(Sdf_FilenameTS(w, small, sizeof small), "l.s");
    char* mine = Sdf_FilenameTS(w, nullptr, 0);
    ASSERT_NE(mine, nullptr);
    EXPECT_STREQ(mine, "l.sdf");
    EXPECT_EQ(Sdf_Free(mine), 1);
    EXPECT_EQ(Sdf_Close(w, "KEEP"), 0);
    EXPECT_EQ(Sdf_Is_Sdf("l.sdf"), 1);
    EXPECT_STREQ(Sdf_FilenameTS(w, small, sizeof small), "");
}

TEST_F(SdfChannels, ChannelOptionsNeedAnOpenChannel) {
    int w = -1;
    char value[128];
    EXPECT_EQ(Sdf_Set_Opts_Chan(999, "Prefix=a"), 3001);
    EXPECT_EQ(Sdf_Get_Opt_Chan(999, "Prefix", value), 3001);
    EXPECT_EQ(Sdf_Push_Chan(999, -1), 3001);
    EXPECT_EQ(Sdf_Pop_Chan(999), 3001);
    EXPECT_EQ(Sdf_Opt_Depth_Chan(999), 3001);
    ASSERT_EQ(Sdf_Open(&w, nullptr, "INTERNAL", "NEW", nullptr), 0);
    EXPECT_EQ(Sdf_Set_Opts_Chan(w, "Sex=BigEndian"), 3063);
    EXPECT_EQ(Sdf_Set_Opts_Chan(w, "Prefix=pre_"), 0);
    ASSERT_EQ(Sdf_Get_Opt_Chan(w, "Prefix", value), 0);
    EXPECT_STREQ(value, "pre_");
    ASSERT_EQ(Sdf_Get_Opt("Prefix", value), 0);
    EXPECT_STREQ(value, "");
    EXPECT_EQ(Sdf_Push_Chan(w, -2), 0);
    EXPECT_EQ(Sdf_Opt_Depth_Chan(w), 1);
    EXPECT_EQ(Sdf_Pop_Chan(w), 0);
    EXPECT_EQ(Sdf_Opt_Depth_Chan(w), 0);
    // Locking is off: the mutex calls do nothing, open channel or not.
    EXPECT_EQ(Sdf_Mutex_Lock(999, 2), 0);
    EXPECT_EQ(Sdf_Mutex_Unlock(999), 0);
    EXPECT_EQ(Sdf_Close(w, "KEEP"), 0);
}

}  // namespace

namespace {

// Locking can't be turned off again, so this runs in a child process.
TEST(SdfChannelLocks, ThreadsOpenAndCloseWhileAChannelHoldsTheFileLock) {
    char tmpl[] = "/tmp/sdf_lock_XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    const std::string p = std::string(tmpl) + "/t.sdf";
    EXPECT_EXIT(
        {
            alarm(20);
            bool ok = Sdf_Set_Opts("Thread_Safe=Yes") == 0;
            int w = -1;
            ok = ok && Sdf_Open(&w, p.c_str(), "BINARY", "NEW", "WRITE") == 0;
            ok = ok && Sdf_Mutex_Lock(w, 2) == 0 && Sdf_Mutex_Lock(w, 1) == 0;
            ok = ok && putVar(w, "a", 1) && Sdf_Write(w) == 0;  // the channel's own hold covers it
            ok = ok && Sdf_Mutex_Unlock(w) == 0 && Sdf_Mutex_Unlock(w) == 0;
            ok = ok && Sdf_Mutex_Lock(12345, 1) == 3001;
            std::vector<std::thread> threads;
            std::atomic<int> bad{0};
            for (int t = 0; t < 4; t++)
                threads.emplace_back([&] {
                    for (int i = 0; i < 20; i++) {
                        int r = -1;
                        if (Sdf_Open(&r, p.c_str(), "BINARY", "OLD", "READ") != 0 || Sdf_Flush(r) != 0 ||
                            Sdf_Close(r, "KEEP") != 0)
                            bad++;
                    }
                });
            for (int i = 0; i < 20; i++) ok = ok && Sdf_Write(w) == 0;
            for (auto& t : threads) t.join();
            ok = ok && bad == 0 && Sdf_Mutex_Lock(w, 2) == 0;
            ok = ok && Sdf_Close(w, "KEEP") == 0;  // gives up the hold itself
            ok = ok && !sdftest::exists(p + ".lock");
            exit(ok ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    std::error_code ec;
    std::filesystem::remove_all(tmpl, ec);
}

}  // namespace
