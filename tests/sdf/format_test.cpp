// The bytes of an SDF file: the new file, every refusal at open, the checks
// of the block table on crafted files, arbitrary damage, and the commit when
// a write fails part way.
#include <functional>
#include <random>
#include <set>

#include "sdf_test_files.h"

using sdftest::errorText;
using sdftest::FileTest;
using sdftest::getLE;
using sdftest::putLE;
using sdftest::readBytes;
using sdftest::writeBytes;

namespace {

constexpr time_t kNow = 1700000000;
time_t fixedTime(time_t* t) {
    if (t) *t = kNow;
    return kNow;
}

sdf_blkent* ent(sdfile* s, int b) { return s->blks->rows[b].entry; }

class SdfFormat : public FileTest {
protected:
    void SetUp() override {
        FileTest::SetUp();
        sdf_io.time = fixedTime;
    }
    // A new little-endian file's bytes.
    std::vector<unsigned char> newFileBytes() {
        fcb* f = nullptr;
        EXPECT_EQ(sdf_create_file(path("new.sdf").c_str(), 2, 0, &f), 0);
        EXPECT_EQ(sdf_close_file(f, 1), 0);
        return readBytes(path("new.sdf"));
    }
    // Loads bytes written to a file; the code, and the file closed again.
    int load(const std::vector<unsigned char>& bytes) {
        writeBytes(path("t.sdf"), bytes);
        ZU_errClear("*", 0);
        fcb* f = nullptr;
        int rc = sdf_load_file(path("t.sdf").c_str(), 0, &f);
        if (f) {
            EXPECT_EQ(sdf_close_file(f, 0), 0);
        }
        if (rc >= 3000) {
            EXPECT_EQ(f, nullptr);
        }
        return rc;
    }
};

}  // namespace

TEST_F(SdfFormat, NewFileIsTheHeaderAloneAndOpensAgain) {
    for (int sex : {1, 2}) {
        fcb* f = nullptr;
        ASSERT_EQ(sdf_create_file(path("new.sdf").c_str(), sex, 1, &f), 0);
        ASSERT_EQ(sdf_close_file(f, 1), 0);
        std::vector<unsigned char> b = readBytes(path("new.sdf"));
        ASSERT_EQ(b.size(), 256u);
        EXPECT_EQ(std::string(reinterpret_cast<char*>(b.data()), 11), sex == 1 ? "%SDF_BIN:BI" : "%SDF_BIN:LI");
        auto word = [&](size_t at) { return sex == 2 ? getLE(b, at) : __builtin_bswap32(getLE(b, at)); };
        // Guard, version 3.0, chunk size, chunks, and the time low word first
        // in either order.
        const uint64_t stamp = static_cast<uint64_t>(kNow) * 1000000;
        const std::pair<size_t, uint32_t> words[] = {{16, SDF_GUARD_CLEAN}, {20, 3}, {24, 0}, {28, 512}, {32, 1},
                                                     {48, static_cast<uint32_t>(stamp)}, {52, static_cast<uint32_t>(stamp >> 32)}};
        for (const auto& [at, want] : words) EXPECT_EQ(word(at), want) << "offset " << at;
        for (size_t at = 64; at < 256; at += 4) EXPECT_EQ(word(at), 0u) << "offset " << at;
        ASSERT_EQ(sdf_load_file(path("new.sdf").c_str(), 1, &f), 0);
        EXPECT_EQ(f->file->case_insensitive, 1);
        EXPECT_EQ(f->file->hdr->file_chunks, 1);
        ASSERT_EQ(sdf_close_file(f, 1), 0);
        EXPECT_EQ(readBytes(path("new.sdf")), b) << "nothing changed, nothing written";
    }
}

TEST_F(SdfFormat, RefusesForeignOldDirtyDamagedAndNewerFiles) {
    const std::vector<unsigned char> good = newFileBytes();
    auto patched = [&](size_t at, uint32_t v) {
        std::vector<unsigned char> b = good;
        putLE(b, at, v);
        return b;
    };
    auto text = [](const char* t) { return std::vector<unsigned char>(t, t + strlen(t)); };
    std::vector<unsigned char> foreign(256, 0), old_bin = good, old_asc = good, cut = good;
    memcpy(foreign.data(), "GIF89a", 6);
    memcpy(old_bin.data(), "%BIN", 4);
    memcpy(old_asc.data(), "%ASC", 4);
    cut.resize(100);
    std::vector<unsigned char> ftp = good;  // LF CR LF turned into LF LF by a text transfer
    ftp[17] = 0x0A;
    ftp[18] = 0x0A;
    ftp[19] = 0x00;
    struct Case {
        const char* what;
        std::vector<unsigned char> bytes;
        int code;
        std::vector<std::string> texts;
    };
    const std::string name = "File \"" + path("t.sdf") + "\"";
    const Case cases[] = {
        {"empty", {}, 3050, {name + " is not an SDF."}},
        {"15 bytes", text("%SDF_BIN:LS\0\0\0\0"), 3050, {"is not an SDF"}},
        {"foreign magic", foreign, 3050, {"is not an SDF"}},
        {"old binary", old_bin, 3053, {name + " is an old SDF."}},
        {"old text", old_asc, 3053, {"is an old SDF"}},
        {"dirty flag alone", patched(16, 1), 3051, {name + " is marked dirty"}},
        {"dirty guard", patched(16, SDF_GUARD_DIRTY), 3051, {"is marked dirty"}},
        {"text transfer", ftp, 3052, {name + " appears corrupted by ASCII ftp transfer."}},
        {"version 4.0", patched(20, 4), 3054, {"is version 4.0.", "up to version 3.0."}},
        {"header cut short", cut, 3080, {"FREAD"}},
        {"guard 0", patched(16, 0), 0, {}},
        {"version 3.1", patched(24, 1), 0, {}},
    };
    for (const Case& c : cases) {
        int rc = load(c.bytes);
        if (c.code == 0) {
            EXPECT_EQ(rc, 0) << c.what;
            continue;
        }
        EXPECT_TRUE(rc == c.code || rc == 3000) << c.what << ": " << rc;
        for (const std::string& t : c.texts)
            EXPECT_NE(errorText(c.code).find(t), std::string::npos) << c.what << ": " << errorText(c.code);
    }
}

// A read that fails is a read error wherever it happens: the first bytes
// (the magic) get the same 3080 with the system's text as the header after
// them, never "not an SDF".
TEST_F(SdfFormat, ReadErrorOnAnyReadOfTheOpenIsReportedAsSuch) {
    static int fail_at, calls;
    for (int call : {1, 2}) {
        writeBytes(path("t.sdf"), newFileBytes());
        ZU_errClear("*", 0);
        fail_at = call;
        calls = 0;
        sdf_io.pread = [](int fd, void* buf, size_t n, off_t at) -> ssize_t {
            if (++calls == fail_at) return errno = EIO, -1;
            return sdf_io_default.pread(fd, buf, n, at);
        };
        fcb* f = nullptr;
        const int rc = sdf_load_file(path("t.sdf").c_str(), 0, &f);
        sdf_io.pread = sdf_io_default.pread;
        EXPECT_EQ(f, nullptr);
        EXPECT_TRUE(rc == 3080 || rc == 3000) << "read " << call << ": " << rc;
        EXPECT_FALSE(sdftest::reported(3050)) << "read " << call;
        EXPECT_NE(errorText(3080).find("FREAD"), std::string::npos) << errorText(3080);
        EXPECT_NE(errorText(3080).find(strerror(EIO)), std::string::npos) << errorText(3080);
    }
}

namespace {

// A file with a block table of two blkinf blocks, three data blocks A, B, C
// and an unused run where B was, for the corruption cases.
struct Crafted {
    std::vector<unsigned char> bytes;
    int x = 0, a = 0, b = 0, c = 0;  // x: the second blkinf block
    int x_start = 0;

    size_t entryAt(int n) const {
        return n < 16 ? SDF_CHUNK + 32 * n : static_cast<size_t>(x_start) * SDF_CHUNK + 32 * (n - 16);
    }
    void setEntry(int n, int field, uint32_t v) { putLE(bytes, entryAt(n) + 4 * field, v); }
    void setHeader(size_t at, uint32_t v) { putLE(bytes, at, v); }
};

enum { START, CHUNKS, NEXT, PREV, USED, TYPE };
size_t chainAt(int ch) { return 64 + 32 * (ch - 1); }

}  // namespace

class SdfFormatTable : public SdfFormat {
protected:
    Crafted craft() {
        Crafted k;
        fcb* f = nullptr;
        EXPECT_EQ(sdf_create_file(path("craft.sdf").c_str(), 2, 0, &f), 0);
        sdfile* s = f->file;
        EXPECT_EQ(sdf_extend_blkinf_chain(s, 1), 0);
        EXPECT_EQ(sdf_extend_blkinf_chain(s, 1), 0);
        k.x = s->hdr->chain[0].tail;
        k.x_start = ent(s, k.x)->start;
        int blocks[3], sizes[3] = {1, 2, 1};
        std::vector<unsigned char> zeros(2 * SDF_CHUNK);
        for (int i = 0; i < 3; i++) {
            blocks[i] = sdf_alloc_block(s, sizes[i], nullptr);
            ent(s, blocks[i])->type = -8;
            EXPECT_EQ(sdf_write_block(zeros.data(), f, blocks[i], 0, 0), 0);
        }
        k.a = blocks[0], k.b = blocks[1], k.c = blocks[2];
        EXPECT_EQ(sdf_free_block(s, k.b), 0);
        EXPECT_EQ(sdf_close_file(f, 1), 0);
        k.bytes = readBytes(path("craft.sdf"));
        return k;
    }
};

TEST_F(SdfFormatTable, RefusesEachKindOfDamageToTheBlockTable) {
    const Crafted base = craft();
    ASSERT_EQ(load(base.bytes), 0) << errorText(3051);
    const char* names[] = {"", "", "unused", "varinf", "varnam", "arrdim", "chrvar"};
    struct Case {
        std::string what;
        std::function<void(Crafted&)> damage;
        std::string text;
    };
    auto at = [](int b) { return " at block " + std::to_string(b) + "."; };
    std::vector<Case> cases = {
        {"next out of range", [](Crafted& k) { k.setEntry(k.a, NEXT, 9999); }, "block reference out of range" + at(base.a)},
        {"prev negative", [](Crafted& k) { k.setEntry(k.a, PREV, uint32_t(-1)); }, "block reference out of range" + at(base.a)},
        {"type 7", [](Crafted& k) { k.setEntry(k.a, TYPE, 7); }, "block type out of range" + at(base.a)},
        {"type -9", [](Crafted& k) { k.setEntry(k.a, TYPE, uint32_t(-9)); }, "block type out of range" + at(base.a)},
        {"second blkinf block of type 3", [](Crafted& k) { k.setEntry(k.x, TYPE, 3); },
         "wrong block type at block " + std::to_string(base.x) + ". Expected 1, got 3."},
        {"blkinf longer than its total",
         [](Crafted& k) {
             k.setHeader(40, 2);
             k.setEntry(1, CHUNKS, 2);
         },
         "blkinf chunk count exceeds total" + at(base.x)},
        {"varinf chain on a data block",
         [](Crafted& k) {
             k.setHeader(chainAt(3), k.a);
             k.setHeader(chainAt(3) + 4, k.a);
             k.setHeader(chainAt(3) + 8, 1);
         },
         "wrong block type at block " + std::to_string(base.a) + ". Expected 3, got -8."},
        {"unused total too small", [](Crafted& k) { k.setHeader(chainAt(2) + 8, 1); },
         "unused chunk count exceeds total" + at(base.b)},
        {"unused chain ends elsewhere", [](Crafted& k) { k.setHeader(chainAt(2) + 4, 0); },
         "unused chain does not end at its tail"},
        {"varnam block outside the file",
         [](Crafted& k) {
             k.setEntry(k.a, TYPE, 4);
             k.setEntry(k.a, START, 100000);
             k.setHeader(chainAt(4), k.a);
             k.setHeader(chainAt(4) + 4, k.a);
             k.setHeader(chainAt(4) + 8, 1);
         },
         "block lies outside the file" + at(base.a)},
        {"free count off by one", [](Crafted& k) { k.setHeader(76, getLE(k.bytes, 76) + 1); }, "free entry count wrong"},
        {"chunk size 100", [](Crafted& k) { k.setHeader(28, 100); }, "chunk size 100 out of range."},
    };
    for (int ch = 3; ch <= 6; ch++)
        cases.push_back({std::string(names[ch]) + " total too small",
                         [ch](Crafted& k) {
                             k.setEntry(k.a, TYPE, ch);
                             k.setHeader(chainAt(ch), k.a);
                             k.setHeader(chainAt(ch) + 4, k.a);
                         },
                         std::string(names[ch]) + " chunk count exceeds total" + at(base.a)});
    const std::string prefix = "File \"" + path("t.sdf") + "\" is corrupt: ";
    for (const Case& c : cases) {
        Crafted k = base;
        c.damage(k);
        EXPECT_EQ(load(k.bytes), 3000) << c.what;
        EXPECT_EQ(errorText(3051).rfind(prefix, 0), 0u) << c.what << ": " << errorText(3051);
        EXPECT_NE(errorText(3051).find(c.text), std::string::npos) << c.what << ": " << errorText(3051);
    }
}

TEST_F(SdfFormatTable, ArbitraryDamageIsRefusedWithACodeOrLoads) {
    const Crafted base = craft();
    std::mt19937 rng(20240611);
    int refused = 0;
    for (int round = 0; round < 400; round++) {
        std::vector<unsigned char> b = base.bytes;
        const int flips = 1 + static_cast<int>(rng() % 4);
        for (int i = 0; i < flips; i++) {
            // Mostly the header's counts and the table, where damage matters.
            size_t at = (rng() % 3 == 0) ? 16 + rng() % 240 : SDF_CHUNK + rng() % (b.size() - SDF_CHUNK);
            b[at] = static_cast<unsigned char>(rng());
        }
        int rc = load(b);
        EXPECT_TRUE(rc == 0 || (rc >= 3000 && rc < 4000)) << "round " << round << ": " << rc;
        refused += rc != 0;
    }
    EXPECT_GT(refused, 100);
}

// ----------------------------------------------------------- the commit

namespace {

struct WriteFault {
    static inline int calls = 0;
    static inline int fail_at = 0;
    static inline bool short_first = false;
    static ssize_t pwrite(int fd, const void* buf, size_t count, off_t offset) {
        ++calls;
        if (calls == fail_at && short_first && count > 1) return sdf_io_default.pwrite(fd, buf, count / 2, offset);
        if (calls >= fail_at) {
            errno = ENOSPC;
            return -1;
        }
        return sdf_io_default.pwrite(fd, buf, count, offset);
    }
};

}  // namespace

class SdfCommit : public SdfFormat {
protected:
    // An open file with the table and three resident blocks modified.
    fcb* modifiedFile() {
        fcb* f = nullptr;
        EXPECT_EQ(sdf_create_file(path("c.sdf").c_str(), 0, 0, &f), 0);
        sdfile* s = f->file;
        for (int i = 0; i < 3; i++) {
            int b = sdf_alloc_block(s, 1, nullptr);
            ent(s, b)->type = SDF_CH_ARRDIM;
            s->blks->rows[b].data = ZU_allocMem(SDF_CHUNK, "test:block");
            memset(s->blks->rows[b].data, 'a' + i, SDF_CHUNK);
            s->blks->rows[b].flags |= SDF_BLK_OWNED;
            sdf_mark(s, b);
        }
        return f;
    }
};

TEST_F(SdfCommit, FailedWriteLeavesTheFileDirtyAndRefusesLaterCommits) {
    // Writes of a commit here: dirty header, blocks 1 to 4, clean header.
    for (bool short_first : {false, true}) {
        for (int n = 1; n <= 6; n++) {
            SCOPED_TRACE("write " + std::to_string(n) + (short_first ? " short" : ""));
            fcb* f = modifiedFile();
            WriteFault::calls = 0;
            WriteFault::fail_at = n;
            WriteFault::short_first = short_first;
            sdf_io.pwrite = WriteFault::pwrite;
            ZU_errClear("*", 0);
            EXPECT_EQ(sdf_write_modified_blocks(f), 3000);
            EXPECT_NE(errorText(3081).find("FWRITE"), std::string::npos) << errorText(3081);
            sdf_io.pwrite = sdf_io_default.pwrite;
            ZU_errClear("*", 0);
            EXPECT_EQ(sdf_write_modified_blocks(f), 3051);
            EXPECT_EQ(errorText(3051), "File \"" + path("c.sdf") + "\" is marked corrupt.");
            EXPECT_EQ(sdf_close_file(f, 1), 3000) << "the close must not lose the failure";
            EXPECT_EQ(sdf_close_file(f, 0), 0);
            fcb* g = nullptr;
            ZU_errClear("*", 0);
            int rc = sdf_load_file(path("c.sdf").c_str(), 0, &g);
            // A first write that fails whole leaves the file as it was; a last
            // one cut after its first half has put the clean guard down after
            // every block.
            if ((n == 1 && !short_first) || (n == 6 && short_first)) {
                EXPECT_EQ(rc, 0);
            } else {
                EXPECT_EQ(rc, 3000);
                EXPECT_NE(errorText(3051).find("is marked dirty"), std::string::npos) << errorText(3051);
            }
            if (g) sdf_close_file(g, 0);
        }
    }
}

TEST_F(SdfCommit, NothingModifiedWritesNothing) {
    fcb* f = modifiedFile();
    ASSERT_EQ(sdf_write_modified_blocks(f), 0);
    const std::vector<unsigned char> before = readBytes(path("c.sdf"));
    EXPECT_EQ(f->file->blks->modified, 0);
    WriteFault::calls = 0;
    WriteFault::fail_at = 1;
    WriteFault::short_first = false;
    sdf_io.pwrite = WriteFault::pwrite;
    sdf_io.time = [](time_t*) -> time_t { return kNow + 100; };
    EXPECT_EQ(sdf_write_modified_blocks(f), 0);
    EXPECT_EQ(WriteFault::calls, 0);
    sdf_io = sdf_io_default;
    EXPECT_EQ(sdf_close_file(f, 1), 0);
    EXPECT_EQ(readBytes(path("c.sdf")), before);
}

TEST_F(SdfCommit, FlushAlwaysSyncsBothHeaderWritesAndAFailedSyncIsReported) {
    static int syncs;
    syncs = 0;
    fcb* f = modifiedFile();
    ASSERT_EQ(sdf_set_opts(nullptr, "Flush=Always"), 0);
    sdf_io.fsync = [](int) { return ++syncs, 0; };
    EXPECT_EQ(sdf_write_modified_blocks(f), 0);
    EXPECT_EQ(syncs, 2);
    EXPECT_EQ(sdf_write_modified_blocks(f), 0) << "nothing modified: just the flush";
    EXPECT_EQ(syncs, 3);
    sdf_io.fsync = [](int) {
        errno = EIO;
        return -1;
    };
    sdf_mark(f->file, 1);
    EXPECT_EQ(sdf_write_modified_blocks(f), 3000);
    EXPECT_NE(errorText(3082).find("Could not flush channel"), std::string::npos) << errorText(3082);
    ASSERT_EQ(sdf_set_opts(nullptr, "Flush=On_Command"), 0);
    sdf_io = sdf_io_default;
    EXPECT_EQ(sdf_close_file(f, 0), 0);
}

// ----------------------------------------------------------- byte order

namespace {

// Resident blocks of every kind and data blocks of every width, the same in
// whichever order the file is written.
struct Content {
    int varinf = 0, varnam = 0, arrdim = 0, d8 = 0, d4 = 0, d1 = 0;
    std::vector<unsigned char> rec, nam, dim, data8, data4, data1;

    Content() : rec(SDF_CHUNK), nam(SDF_CHUNK), dim(SDF_CHUNK), data8(2 * SDF_CHUNK), data4(SDF_CHUNK), data1(SDF_CHUNK) {
        auto* r = reinterpret_cast<sdf_varrec*>(rec.data());
        r[0] = sdf_varrec{{2, 0}, {0, 0}, {0, 0}, SDF_DBLE_T, 8, {}, INT64_C(0x0102030405060708), {0, 0}};
        r[0].value.d[0] = 1.5;
        r[1] = sdf_varrec{{2, 2}, {0, 0}, {0, 0}, SDF_DCMPX_T, 16, {}, 0, {0, 0}};
        r[1].value.d[0] = 2.5;
        r[1].value.d[1] = -3.25;
        r[2] = sdf_varrec{{2, 9}, {0, 0}, {0, 0}, SDF_INT64_T, 8, {}, 0, {0, 0}};
        r[2].value.l[0] = INT64_C(0x1122334455667788);
        r[3] = sdf_varrec{{2, 9}, {0, 0}, {0, 0}, SDF_INT_T, 4, {}, 0, {0, 0}};
        r[3].value.i[0] = 0x01020304;
        r[4] = sdf_varrec{{2, 9}, {0, 0}, {0, 0}, SDF_DBLE_T + 100, 8, {}, 0, {0, 0}};
        r[4].value.i[0] = 5;
        r[4].value.i[2] = 7;
        // Slots: used 2 "x", used 3 "abcdefg", free 4 -> 20, used 11, free 108 to the end.
        const int32_t words[][2] = {{0, 2}, {2, 3}, {5, 4}, {6, 20}, {9, 11}, {20, 108}, {21, 0}};
        for (const auto& w : words) memcpy(&nam[4 * w[0]], &w[1], 4);
        memcpy(&nam[4], "x\0\0\0", 4);
        memcpy(&nam[12], "abcdefg", 8);
        memcpy(&nam[40], "hello world, in slot nine", 26);
        for (int i = 0; i < 20; i++) {
            int64_t v = INT64_C(0x0000000100000000) * i + 3;
            memcpy(&dim[8 * i], &v, 8);
        }
        for (int i = 0; i < 128; i++) {
            double d = i * 0.75 - 1;
            memcpy(&data8[8 * i], &d, 8);
            int32_t v = i * 0x01010101;
            memcpy(&data4[4 * i], &v, 4);
        }
        for (int i = 0; i < SDF_CHUNK; i++) data1[i] = static_cast<unsigned char>(i * 7);
    }

    static int resident(sdfile* s, int type, const std::vector<unsigned char>& bytes) {
        int b = sdf_alloc_block(s, static_cast<int>(bytes.size() / SDF_CHUNK), nullptr);
        s->blks->rows[b].entry->type = type;
        void* p = ZU_allocMem(bytes.size(), "test:resident");
        memcpy(p, bytes.data(), bytes.size());
        s->blks->rows[b].data = p;
        s->blks->rows[b].flags |= SDF_BLK_OWNED;
        sdf_mark(s, b);
        return b;
    }
    int data(fcb* f, int type, const std::vector<unsigned char>& bytes) {
        int b = sdf_alloc_block(f->file, static_cast<int>(bytes.size() / SDF_CHUNK), nullptr);
        f->file->blks->rows[b].entry->type = type;
        EXPECT_EQ(sdf_write_block(bytes.data(), f, b, 0, 0), 0);
        return b;
    }
    void write(fcb* f) {
        sdfile* s = f->file;
        varinf = resident(s, SDF_CH_VARINF, rec);
        varnam = resident(s, SDF_CH_VARNAM, nam);
        s->blks->rows[varnam].entry->first_free = 5;
        s->blks->rows[varnam].entry->largest_free = 108;
        arrdim = resident(s, SDF_CH_ARRDIM, dim);
        d8 = data(f, -8, data8);
        d4 = data(f, -4, data4);
        d1 = data(f, -1, data1);
        EXPECT_EQ(sdf_write_modified_blocks(f), 0);
    }
};

uint32_t w(const std::vector<unsigned char>& b, size_t at) { return getLE(b, at); }
bool reversed(const std::vector<unsigned char>& le, const std::vector<unsigned char>& be, size_t at, int n) {
    for (int i = 0; i < n; i++)
        if (be[at + i] != le[at + n - 1 - i]) return false;
    return true;
}

}  // namespace

TEST_F(SdfFormat, BigAndLittleEndianFilesDifferExactlyByTheSwappingRules) {
    Content c;
    fcb* fl = nullptr;
    fcb* fb = nullptr;
    ASSERT_EQ(sdf_create_file(path("le.sdf").c_str(), 2, 0, &fl), 0);
    ASSERT_EQ(sdf_create_file(path("be.sdf").c_str(), 1, 0, &fb), 0);
    c.write(fl);
    Content cb;
    cb.write(fb);
    ASSERT_EQ(c.varnam, cb.varnam);
    const std::vector<unsigned char> le = readBytes(path("le.sdf")), be = readBytes(path("be.sdf"));
    ASSERT_EQ(le.size(), be.size());
    ASSERT_EQ(static_cast<int>(le.size() / SDF_CHUNK), fl->file->hdr->file_chunks);
    auto start = [&](int b) { return static_cast<size_t>(fl->file->blks->rows[b].entry->start) * SDF_CHUNK; };

    // Header: the magic differs only in its order letter; words 4 to 63 reversed.
    EXPECT_EQ(memcmp(le.data(), be.data(), 9), 0);
    EXPECT_EQ(le[9], 'L');
    EXPECT_EQ(be[9], 'B');
    for (size_t at = 16; at < 256; at += 4) EXPECT_TRUE(reversed(le, be, at, 4)) << "header " << at;
    EXPECT_EQ(w(be, 48), __builtin_bswap32(static_cast<uint32_t>(kNow * INT64_C(1000000)))) << "low word first";
    for (size_t at = 256; at < 512; at++) ASSERT_EQ(le[at] | be[at], 0);
    // Block table and dimensions: every word.
    for (int b : {1, c.arrdim})
        for (size_t at = start(b); at < start(b) + SDF_CHUNK; at += 4) EXPECT_TRUE(reversed(le, be, at, 4)) << b;
    // Records: every word, but DBLE and DCMPX values as whole 8-byte values.
    for (int r = 0; r < 8; r++) {
        const size_t base = start(c.varinf) + 64 * r;
        const int32_t type = static_cast<int32_t>(w(le, base + 24));
        for (size_t k = 0; k < 16; k++) {
            const size_t at = base + 4 * k;
            const bool dble = (type == SDF_DBLE_T && (k == 8 || k == 9)) || (type == SDF_DCMPX_T && k >= 8 && k < 12);
            if (!dble || k % 2 == 0) {
                EXPECT_TRUE(reversed(le, be, at, dble ? 8 : 4)) << "record " << r << " word " << k;
            }
        }
    }
    // INT64 scalar: two reversed words, low word first.
    EXPECT_EQ(w(be, start(c.varinf) + 128 + 32), __builtin_bswap32(0x55667788u));
    EXPECT_EQ(w(be, start(c.varinf) + 128 + 36), __builtin_bswap32(0x11223344u));
    // Slots: size and link words only; the text stays.
    const std::set<size_t> swapped = {0, 2, 5, 6, 9, 20, 21};
    for (size_t k = 0; k < 128; k++) {
        const size_t at = start(c.varnam) + 4 * k;
        if (swapped.count(k))
            EXPECT_TRUE(reversed(le, be, at, 4)) << "slot word " << k;
        else
            EXPECT_EQ(w(le, at), w(be, at)) << "slot word " << k;
    }
    // Data: by element width.
    for (size_t at = start(c.d8); at < start(c.d8) + 2 * SDF_CHUNK; at += 8) EXPECT_TRUE(reversed(le, be, at, 8));
    for (size_t at = start(c.d4); at < start(c.d4) + SDF_CHUNK; at += 4) EXPECT_TRUE(reversed(le, be, at, 4));
    EXPECT_EQ(memcmp(&le[start(c.d1)], &be[start(c.d1)], SDF_CHUNK), 0);

    // Read back through the conversion, both files give the native content.
    for (fcb* f : {fl, fb}) {
        const std::pair<int, const std::vector<unsigned char>*> blocks[] = {
            {c.varinf, &c.rec}, {c.varnam, &c.nam}, {c.arrdim, &c.dim}, {c.d8, &c.data8}, {c.d4, &c.data4}, {c.d1, &c.data1}};
        for (const auto& [b, want] : blocks) {
            std::vector<unsigned char> got(want->size());
            ASSERT_EQ(sdf_read_block(got.data(), f, b, 0, 0), 0);
            EXPECT_EQ(got, *want) << "block " << b << (f == fb ? " big-endian" : " little-endian");
        }
        ASSERT_EQ(sdf_close_file(f, 0), 0);
    }
}

TEST_F(SdfFormat, SlotWalkCarriesAcrossStagingPieces) {
    // A varnam block longer than the 256 KiB staging buffer, with a free slot
    // whose link word is the first word of the second piece.
    const int chunks = 520, words = chunks * SDF_CHUNK / 4, edge = 0x40000 / 4;
    std::vector<int32_t> native(words, 0x11223344);
    native[0] = edge - 1;
    native[edge - 1] = 2;
    native[edge] = edge + 1;
    native[edge + 1] = words - (edge + 1);
    native[edge + 2] = 0;
    fcb* f = nullptr;
    ASSERT_EQ(sdf_create_file(path("big.sdf").c_str(), ZU_otherByteOrder(ZU_byteOrder()), 0, &f), 0);
    ASSERT_TRUE(f->file->swap);
    std::vector<unsigned char> bytes(words * 4);
    memcpy(bytes.data(), native.data(), bytes.size());
    int b = Content::resident(f->file, SDF_CH_VARNAM, bytes);
    f->file->blks->rows[b].entry->first_free = edge - 1;
    f->file->blks->rows[b].entry->largest_free = words - (edge + 1);
    ASSERT_EQ(sdf_write_modified_blocks(f), 0);
    const std::vector<unsigned char> raw = readBytes(path("big.sdf"));
    const size_t base = static_cast<size_t>(f->file->blks->rows[b].entry->start) * SDF_CHUNK;
    for (int k = 0; k < words; k++) {
        const bool swapped = k == 0 || k == edge - 1 || k == edge || k == edge + 1 || k == edge + 2;
        uint32_t want = static_cast<uint32_t>(native[k]);
        ASSERT_EQ(w(raw, base + 4 * k), swapped ? __builtin_bswap32(want) : want) << "word " << k;
    }
    std::vector<unsigned char> back(bytes.size());
    ASSERT_EQ(sdf_read_block(back.data(), f, b, 0, 0), 0);
    EXPECT_EQ(back, bytes);
    ASSERT_EQ(sdf_close_file(f, 0), 0);
}

TEST_F(SdfFormat, OneDoubleScalarFileHoldsToTheByte) {
    fcb* f = nullptr;
    ASSERT_EQ(sdf_create_file(path("x.sdf").c_str(), 2, 0, &f), 0);
    int pos = -1, err = 0;
    ASSERT_EQ(sdf_find_var(f, "x", &pos), nullptr);
    ventry* row = sdf_insert_var(f, "x", pos, &err);
    ASSERT_NE(row, nullptr) << err;
    row->record->type = SDF_DBLE_T;
    row->record->elen = 8;
    row->record->value.d[0] = 2.0;
    sdf_touch(f->file, row->record, row->block, 1);
    ASSERT_EQ(sdf_close_file(f, 1), 0);

    const std::vector<unsigned char> b = readBytes(path("x.sdf"));
    ASSERT_EQ(b.size(), 2048u);
    // Header: file chunks, block 1 at chunk 1, blkinf free and first free
    // entry, varinf head, free count and first free record (block 3 index 1),
    // varnam head. Entries 1 to 3 (start, type, used; largest and first free
    // slot of the varnam block), then the record: name at block 2 word 0.
    auto e = [](int n, int field) { return size_t{SDF_CHUNK} + 32 * n + 4 * field; };
    const size_t rec = 3 * SDF_CHUNK;
    const std::pair<size_t, int32_t> words[] = {
        {32, 4}, {36, 1}, {76, 12}, {80, 4}, {128, 3}, {140, 7}, {144, 3}, {148, 1}, {160, 2},
        {e(1, START), 1}, {e(1, TYPE), SDF_CH_BLKINF}, {e(1, USED), 4},
        {e(2, START), 2}, {e(2, TYPE), SDF_CH_VARNAM}, {e(2, USED), 1}, {e(2, 6), 126}, {e(2, 7), 2},
        {e(3, START), 3}, {e(3, TYPE), SDF_CH_VARINF}, {e(3, USED), 1},
        {rec, 2}, {rec + 4, 0}, {rec + 24, SDF_DBLE_T}, {rec + 28, 8}, {2 * SDF_CHUNK, 2}};
    for (const auto& [at, want] : words) EXPECT_EQ(static_cast<int32_t>(getLE(b, at)), want) << "offset " << at;
    double d;
    memcpy(&d, &b[rec + 32], 8);
    EXPECT_EQ(d, 2.0);
    EXPECT_EQ(b[2 * SDF_CHUNK + 4], 'x');  // the name's slot
    EXPECT_EQ(b[2 * SDF_CHUNK + 5], 0);

    ASSERT_EQ(sdf_load_file(path("x.sdf").c_str(), 0, &f), 0);
    row = sdf_find_var(f, "x", &pos);
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->record->value.d[0], 2.0);
    ASSERT_EQ(sdf_close_file(f, 0), 0);
}
