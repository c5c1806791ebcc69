// Files cut short (a full disk, a copy that stopped): whatever the cut, an
// open either refuses the file or every variable reads back exactly as
// written; element data never turns into zeros. Also a read that comes back
// short in the middle of the file, and salvage of a cut file.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <set>

#include "sdf_array_helpers.h"
#include "sdf_salvage.h"

using namespace sdftest;

namespace {

struct Written {
    const char* name;
    int type;
    int64_t count;
};
// The last one is defined and never written: it must read back as zeros.
const Written kArrays[] = {{"ints", SDF_INT_T, 300}, {"dbles", SDF_DBLE_T, 1000}, {"reals", SDF_REAL_T, 100},
                           {"never", SDF_DBLE_T, 50}};

class SdfTruncated : public ChannelTest {
protected:
    // Writes the file and notes where its element data and its tables end.
    void SetUp() override {
        ChannelTest::SetUp();
        file_ = path("cut.sdf");
        int ch = createFile(file_);
        ASSERT_GE(ch, 0);
        for (const auto& a : kArrays) {
            const int32_t n = static_cast<int32_t>(a.count);
            const int32_t dims[8] = {1, n};
            ASSERT_EQ(Sdf_Define_Array(ch, a.name, a.type, 0, dims, "m", "d"), 0);
            if (std::string(a.name) == "never") continue;
            const Bytes v = values(a.type, a.count, 1);
            int32_t start[8] = {1, 0};
            ASSERT_EQ(Sdf_Write_Array(ch, a.name, v.data(), start, n), 0);
        }
        ASSERT_EQ(Sdf_Write_Var(ch, "s", SDF_DBLE_T, &kScalar, "kg", "scalar"), 0);
        ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
        ch = openFile(file_, "READ");
        fcb* f = sdf_chan_get(ch);
        ASSERT_NE(f, nullptr);
        const Blks* k = f->file->blks;
        for (int b = 1; b < k->count; b++) {  // tables are always written whole
            const sdf_blkent* e = k->rows[b].entry;
            if (e->type > 0 && e->type != SDF_CH_UNUSED)
                table_end_ = std::max<int64_t>(table_end_, int64_t{e->start + e->chunks} * 512);
        }
        for (const auto& a : kArrays) {
            const sdf_blkent* e = k->rows[rowOf(ch, a.name)->record->value.i[2]].entry;
            ASSERT_EQ(e->next, 0) << "one block per chain in this layout";
            data_.push_back({int64_t{e->start} * 512, int64_t{e->start} * 512 + a.count * testElen(a.type)});
        }
        ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
        full_ = readBytes(file_);
    }

    // Whether the open refused the file; when it didn't, every value must be
    // the one written.
    bool refusedOrExact(int64_t cut) {
        writeBytes(file_, Bytes(full_.begin(), full_.begin() + cut));
        ZU_errClear("*", 0);
        int ch = -1;
        if (Sdf_Open(&ch, file_.c_str(), "BINARY", "OLD", "READ") != 0) {
            EXPECT_EQ(ch, -1);
            return true;
        }
        for (const auto& a : kArrays) {
            void* p = nullptr;
            int32_t nread = 0;
            EXPECT_EQ(Sdf_Read_Array(ch, a.name, &p, nullptr, 0, &nread), 0) << a.name << " cut at " << cut;
            const Bytes want = std::string(a.name) == "never" ? Bytes(static_cast<size_t>(a.count * 8), 0)
                                                             : values(a.type, a.count, 1);
            EXPECT_TRUE(p && nread == a.count && memcmp(p, want.data(), want.size()) == 0)
                << a.name << " reads back wrong from a file cut at " << cut;
            Sdf_Free(p);
        }
        double s = 0;
        EXPECT_EQ(Sdf_Get_Val(ch, "s", &s), 0);
        EXPECT_EQ(s, kScalar);
        EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
        return false;
    }

    static constexpr double kScalar = 2.5;
    std::string file_;
    Bytes full_;
    int64_t table_end_ = 0;
    std::vector<std::pair<int64_t, int64_t>> data_;  // element bytes of each array
};

}  // namespace

// The open refuses exactly the cuts that take away tables or element data;
// cutting only slack behind the last element (never written) costs nothing.
TEST_F(SdfTruncated, OpenRefusesEveryCutThatLosesWrittenBytes) {
    int64_t needed = table_end_;
    for (const auto& d : data_) needed = std::max(needed, d.second);
    std::set<int64_t> cuts = {0, 100, 255, 256, 512 + 40, table_end_ - 1, needed - 1, needed, needed + 3,
                              static_cast<int64_t>(full_.size()) - 1};
    for (const auto& d : data_) cuts.insert({d.first, d.first + 1, (d.first + d.second) / 2, d.second - 1, d.second});
    for (int64_t cut : cuts) {
        if (cut < 0 || cut > static_cast<int64_t>(full_.size())) continue;
        const bool refused = refusedOrExact(cut);
        EXPECT_EQ(refused, cut < needed) << "file cut at " << cut << " of " << full_.size();
        if (!refused || cut < 256) continue;
        EXPECT_TRUE(reported(3051)) << "cut at " << cut;
        if (cut >= table_end_) {
            EXPECT_NE(errorText(3051).find("behind the end of the file"), std::string::npos) << errorText(3051);
        }
    }
}

// A read that comes back empty before the end the file had at open means the
// file was cut under the reader: an error, not zeros, with and without the
// user cache.
namespace {
int64_t g_cut = -1;
ssize_t cutPread(int fd, void* buf, size_t n, off_t at) {
    if (g_cut >= 0 && at >= g_cut) return 0;
    if (g_cut >= 0) n = std::min<size_t>(n, static_cast<size_t>(g_cut - at));
    return sdf_io_default.pread(fd, buf, n, at);
}
}  // namespace

TEST_F(SdfTruncated, ShortReadInsideTheFileIsAnError) {
    for (bool cached : {false, true}) {
        int ch = openFile(file_, "READ");
        if (cached) {
            ASSERT_EQ(Sdf_Cache(ch, 4, 4096, 0), 0);
        }
        g_cut = data_[1].first + 100;
        sdf_io.pread = cutPread;
        void* p = nullptr;
        int32_t nread = 0;
        int32_t start[8] = {1, 20};  // 80 bytes from byte 160: small enough for the cache
        const int rc = Sdf_Read_Array(ch, "dbles", &p, start, 10, &nread);
        sdf_io.pread = sdf_io_default.pread;
        g_cut = -1;
        EXPECT_EQ(rc, 3000) << (cached ? "cached" : "direct") << " read gave zeros for lost data";
        EXPECT_TRUE(reported(cached ? 3083 : 3080));
        Sdf_Free(p);
        ZU_errClear("*", 0);
        EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
    }
}

// Salvage still recovers what the cut left and says how much data is gone.
TEST_F(SdfTruncated, SalvageCountsTheBytesBehindTheEnd) {
    const int64_t cut = (data_[1].first + data_[1].second) / 2;
    writeBytes(file_, Bytes(full_.begin(), full_.begin() + cut));
    sdf_salvage* s = nullptr;
    ASSERT_EQ(sdf_salvage_open(file_.c_str(), &s), 0);
    std::map<std::string, int> at;
    for (int i = 0; i < sdf_salvage_count(s); i++) at[sdf_salvage_get(s, i)->name] = i;
    EXPECT_EQ(sdf_salvage_get(s, at["dbles"])->missing, data_[1].second - cut);
    EXPECT_EQ(sdf_salvage_get(s, at["ints"])->missing, 0);
    Bytes half(static_cast<size_t>(cut - data_[1].first));
    ASSERT_EQ(sdf_salvage_read(s, at["dbles"], 0, static_cast<int64_t>(half.size()) / 8, half.data()), 0);
    EXPECT_EQ(memcmp(half.data(), values(SDF_DBLE_T, 1000, 1).data(), half.size()), 0);
    sdf_salvage_close(s);
}

// The commit extends the file to its length before it clears the dirty flag;
// when that fails, the file stays marked dirty rather than clean and short.
TEST_F(SdfTruncated, FailedExtensionLeavesTheFileDirty) {
    int ch = openFile(file_, "WRITE");
    const int32_t dims[8] = {1, 5000};
    ASSERT_EQ(Sdf_Define_Array(ch, "more", SDF_DBLE_T, 0, dims, nullptr, nullptr), 0);
    sdf_io.ftruncate = [](int, off_t) {
        errno = ENOSPC;
        return -1;
    };
    EXPECT_EQ(Sdf_Flush(ch), 3000);
    EXPECT_TRUE(reported(3081));
    sdf_io.ftruncate = sdf_io_default.ftruncate;
    EXPECT_EQ(getLE(readBytes(file_), 16), SDF_GUARD_DIRTY) << "the file on disk must stay marked dirty";
    EXPECT_EQ(Sdf_Flush(ch), 3000) << "no later commit on this channel";
}
