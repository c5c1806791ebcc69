// The user cache: its sizes, the choice between cache and file by transfer
// size, write-back at eviction, Sdf_Write and close, and what freeing and
// growing a data block do to its buffers. Most cases work on data blocks
// taken straight from the block layer of a file opened with Sdf_Open, and
// count the file transfers through the table of file calls.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "sdf_channel_helpers.h"
#include "sdf_inner.h"

namespace {

using sdftest::ChannelTest;

// File transfers seen since the last reset.
struct Counts {
    static inline int reads = 0;
    static inline int writes = 0;
    static inline bool fail_writes = false;
    static inline bool fail_reads = false;
    static ssize_t pread(int fd, void* buf, size_t n, off_t at) {
        reads++;
        if (fail_reads) {
            errno = EIO;
            return -1;
        }
        return sdf_io_default.pread(fd, buf, n, at);
    }
    static ssize_t pwrite(int fd, const void* buf, size_t n, off_t at) {
        writes++;
        if (fail_writes) {
            errno = ENOSPC;
            return -1;
        }
        return sdf_io_default.pwrite(fd, buf, n, at);
    }
    static void reset() { reads = writes = 0; }
};

class SdfCacheTest : public ChannelTest {
protected:
    void SetUp() override {
        ChannelTest::SetUp();
        Counts::fail_reads = Counts::fail_writes = false;
    }
    void TearDown() override {
        Counts::fail_reads = Counts::fail_writes = false;
        sdf_io = sdf_io_default;
        Sdf_Set_Opts("Sex=Native_Sex");
        ChannelTest::TearDown();
    }

    void open(const char* name = "c.sdf") {
        file_ = path(name);
        ASSERT_EQ(Sdf_Open(&ch_, file_.c_str(), "BINARY", "NEW", "WRITE"), 0);
        f_ = sdf_chan_get(ch_);
        ASSERT_NE(f_, nullptr);
    }
    // A data block of doubles, `chunks` long, at the end of the file.
    int dataBlock(int chunks) {
        int at_end = 0;
        int b = sdf_alloc_block(f_->file, chunks, &at_end);
        EXPECT_GT(b, 1);
        if (b > 1) f_->file->blks->rows[b].entry->type = -8;
        return b;
    }
    int64_t blockPos(int b) const { return int64_t{f_->file->blks->rows[b].entry->start} * SDF_CHUNK; }
    void count() {
        sdf_io.pread = Counts::pread;
        sdf_io.pwrite = Counts::pwrite;
        Counts::reset();
    }
    sdf_cache* cache() const { return f_->file->cache; }

    std::string file_;
    int ch_ = -1;
    fcb* f_ = nullptr;
};

std::vector<unsigned char> pattern(size_t n, unsigned seed) {
    std::vector<unsigned char> v(n);
    for (size_t i = 0; i < n; i++) v[i] = static_cast<unsigned char>(seed * 31 + i * 7 + 1);
    return v;
}

TEST_F(SdfCacheTest, SizesFollowTheArgumentsAndInternalFilesGetNone) {
    open();
    struct Case {
        int buffers, bytes, max;
        int rows, chunks_per_buffer, max_transfer;
    } cases[] = {
        {3, 0, 0, 11, 8, 512},         // at least 10 buffers; defaults
        {12, 1000, 1000, 13, 2, 512},  // rounded up to chunks; half a buffer at most
        {10, 4096, 100, 11, 8, 100},
        {10, 512, 0, 11, 1, 256},      // one chunk's default cut to half the buffer
        {20, 8192, 5000, 21, 16, 4096},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.buffers * 1000000 + c.bytes);
        ASSERT_EQ(Sdf_Cache(ch_, c.buffers, c.bytes, c.max), 0);
        ASSERT_NE(cache(), nullptr);
        EXPECT_EQ(cache()->rows, c.rows);
        EXPECT_EQ(cache()->chunks_per_buffer, c.chunks_per_buffer);
        EXPECT_EQ(cache()->max_transfer, c.max_transfer);
        EXPECT_EQ(cache()->filled, 0);
    }
    EXPECT_EQ(Sdf_Cache(ch_, 0, 0, 0), 0);
    EXPECT_EQ(cache(), nullptr);
    EXPECT_EQ(Sdf_Cache(ch_, -5, 0, 0), 0);
    EXPECT_EQ(cache(), nullptr);
    EXPECT_EQ(Sdf_Cache(ch_, 2000000000, 0, 0), 3025);
    EXPECT_EQ(cache(), nullptr);
    EXPECT_EQ(Sdf_Cache(ch_ + 50, 10, 0, 0), 3001);
    int in = -1;  // an internal file gets none
    ASSERT_EQ(Sdf_Open(&in, "cache_scratch", "INTERNAL", "NEW", "WRITE"), 0);
    EXPECT_EQ(Sdf_Cache(in, 10, 0, 0), 0);
    EXPECT_EQ(sdf_chan_get(in)->file->cache, nullptr);
}

// A transfer of exactly max transfer bytes goes through the cache; one byte
// more goes to the file (reads and writes alike).
TEST_F(SdfCacheTest, MaxTransferDecidesBetweenCacheAndFile) {
    open();
    const int b = dataBlock(64);
    ASSERT_EQ(Sdf_Cache(ch_, 10, 4096, 1000), 0);
    struct Case {
        bool write;
        int64_t offset, n;
        int reads, writes, filled;
    } cases[] = {
        {true, 100, 1000, 1, 0, 1},         // buffer filled from the file, no write
        {false, 200, 1000, 0, 0, 1},        // same buffer: no file access
        {true, 8192, 1001, 0, 1, 1},        // straight to the file
        {false, 12288, 1001, 1, 0, 1},      // straight from the file
        {false, 4096 - 500, 1000, 1, 0, 2}, // spans into a second buffer, filled once
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.offset);
        std::vector<unsigned char> buf = pattern(static_cast<size_t>(c.n), 3);
        count();
        int rc = c.write ? sdf_write_block(buf.data(), f_, b, c.offset, c.n) : sdf_read_block(buf.data(), f_, b, c.offset, c.n);
        ASSERT_EQ(rc, 0);
        EXPECT_EQ(Counts::reads, c.reads);
        EXPECT_EQ(Counts::writes, c.writes);
        EXPECT_EQ(cache()->filled, c.filled);
    }
    EXPECT_EQ(cache()->modified, 1);
}

TEST_F(SdfCacheTest, WriteAndFlushWriteModifiedBuffersBack) {
    for (bool flush : {false, true}) {
        SCOPED_TRACE(flush);
        open(flush ? "f.sdf" : "w.sdf");
        const int b = dataBlock(16);
        ASSERT_EQ(Sdf_Cache(ch_, 10, 0, 0), 0);
        std::vector<unsigned char> data = pattern(512, 4);
        ASSERT_EQ(sdf_write_block(data.data(), f_, b, 4096, 512), 0);
        EXPECT_EQ(cache()->modified, 1);
        ASSERT_EQ(flush ? Sdf_Flush(ch_) : Sdf_Write(ch_), 0);
        EXPECT_EQ(cache()->modified, 0);
        EXPECT_EQ(cache()->filled, 1);  // written, not dropped
        std::vector<unsigned char> raw = sdftest::readBytes(file_);
        ASSERT_GE(raw.size(), static_cast<size_t>(blockPos(b) + 4608));
        EXPECT_TRUE(std::equal(data.begin(), data.end(), raw.begin() + blockPos(b) + 4096));
        ASSERT_EQ(Sdf_Close(ch_, "DELETE"), 0);
    }
}

// Random transfers against a copy in memory, with eviction: what is read
// always matches, and after Sdf_Write so does the file, in either byte order.
// Transfers above the cut go past the cache over modified buffers, so a
// read that misses their bytes or a write that leaves a stale buffer shows.
TEST_F(SdfCacheTest, RandomTransfersMatchAShadowCopy) {
    for (const char* sex : {"Sex=Native_Sex", "Sex=BigEndian", "Sex=LittleEndian"}) {
        SCOPED_TRACE(sex);
        ASSERT_EQ(Sdf_Set_Opts(sex), 0);
        open("r.sdf");
        const int chunks = 61;  // the last buffer is cut short by the block's end
        const int b = dataBlock(chunks);
        ASSERT_EQ(Sdf_Cache(ch_, 10, 1024, 512), 0);
        std::vector<double> shadow(chunks * 64, 0.0);
        std::mt19937 rng(7);
        for (int i = 0; i < 3000; i++) {
            const int n = 1 + static_cast<int>(rng() % (rng() % 4 == 0 ? 300 : 80));
            const int at = static_cast<int>(rng() % (shadow.size() - n));
            if (rng() % 2) {
                std::vector<double> d(n);
                for (auto& x : d) x = static_cast<double>(rng());
                ASSERT_EQ(sdf_write_block(d.data(), f_, b, int64_t{at} * 8, int64_t{n} * 8), 0);
                std::copy(d.begin(), d.end(), shadow.begin() + at);
            } else {
                std::vector<double> d(n);
                ASSERT_EQ(sdf_read_block(d.data(), f_, b, int64_t{at} * 8, int64_t{n} * 8), 0);
                ASSERT_TRUE(std::equal(d.begin(), d.end(), shadow.begin() + at)) << "step " << i;
            }
            ASSERT_LE(cache()->filled, 10);
        }
        ASSERT_EQ(Sdf_Write(ch_), 0);
        ASSERT_EQ(Sdf_Cache(ch_, 0, 0, 0), 0);
        std::vector<double> all(shadow.size());
        ASSERT_EQ(sdf_read_block(all.data(), f_, b, 0, 0), 0);
        EXPECT_EQ(all, shadow);
        ASSERT_EQ(Sdf_Close(ch_, "DELETE"), 0);
    }
}

TEST_F(SdfCacheTest, FreedBlockLosesItsBuffersUnwritten) {
    open();
    const int keep = dataBlock(16), gone = dataBlock(16);
    ASSERT_EQ(Sdf_Cache(ch_, 10, 0, 0), 0);
    std::vector<unsigned char> d = pattern(200, 5);
    ASSERT_EQ(sdf_write_block(d.data(), f_, keep, 0, 200), 0);
    ASSERT_EQ(sdf_write_block(d.data(), f_, gone, 0, 200), 0);
    ASSERT_EQ(sdf_write_block(d.data(), f_, gone, 5000, 200), 0);
    ASSERT_EQ(cache()->filled, 3);
    count();
    ASSERT_EQ(sdf_free_block(f_->file, gone), 0);
    EXPECT_EQ(Counts::writes, 0);
    EXPECT_EQ(cache()->filled, 1);
    EXPECT_EQ(cache()->modified, 1);
    // The emptied rows are the next to be reused: the kept buffer stays.
    const int fresh = dataBlock(16);
    for (int i = 0; i < 2; i++) ASSERT_EQ(sdf_read_block(d.data(), f_, fresh, 4096 * i, 8), 0);
    EXPECT_EQ(Counts::writes, 0);
    EXPECT_EQ(cache()->filled, 3);
}

TEST_F(SdfCacheTest, RefreshEmptiesAllBuffers) {
    open();
    const int b = dataBlock(16);
    ASSERT_EQ(Sdf_Write(ch_), 0);
    ASSERT_EQ(Sdf_Cache(ch_, 10, 0, 0), 0);
    std::vector<unsigned char> d(64);
    ASSERT_EQ(sdf_read_block(d.data(), f_, b, 0, 64), 0);
    ASSERT_EQ(sdf_read_block(d.data(), f_, b, 5000, 64), 0);
    ASSERT_EQ(cache()->filled, 2);
    f_->file->hdr->modified -= 1000000;  // as if another process had written
    ASSERT_EQ(sdf_refresh_fcb(f_), 0);
    EXPECT_EQ(cache()->filled, 0);
    EXPECT_EQ(cache()->rows, 11);  // the cache itself stays
}

TEST_F(SdfCacheTest, GrowthInPlaceExtendsTheLastBuffer) {
    open();
    const int b = dataBlock(3);
    sdf_blkent* e = f_->file->blks->rows[b].entry;
    ASSERT_EQ(Sdf_Cache(ch_, 10, 4096, 512), 0);
    std::vector<unsigned char> d = pattern(512, 6);
    ASSERT_EQ(sdf_write_block(d.data(), f_, b, 1024, 512), 0);  // buffer of chunks 0..2
    // Grown in place over chunks whose old bytes are still in the file.
    std::vector<unsigned char> junk(9 * 512, 0xEE);
    ASSERT_EQ(sdf_io_default.pwrite(f_->ios->fd, junk.data(), junk.size(), blockPos(b) + 3 * 512), 9 * 512);
    e->chunks = 12;
    f_->file->hdr->file_chunks = e->start + 12;
    sdf_cache_extend(f_->file, b, 3, 12);
    sdf_cache_row& row = cache()->buffer[cache()->key[1]];
    EXPECT_EQ(row.last - row.first + 1, 8);  // up to the buffer's capacity
    count();
    std::vector<unsigned char> more = pattern(512, 7);
    ASSERT_EQ(sdf_write_block(more.data(), f_, b, 3 * 512, 512), 0);
    EXPECT_EQ(Counts::reads + Counts::writes, 0);
    std::vector<unsigned char> back(12 * 512);
    ASSERT_EQ(Sdf_Cache(ch_, 0, 0, 0), 0);  // reads now come from the file
    ASSERT_EQ(sdf_read_block(back.data(), f_, b, 0, 0), 0);
    EXPECT_TRUE(std::equal(d.begin(), d.end(), back.begin() + 1024));
    EXPECT_TRUE(std::equal(more.begin(), more.end(), back.begin() + 1536));
    EXPECT_EQ(back[4 * 512 + 10], 0);    // taken in as zeros, and written so
    EXPECT_EQ(back[9 * 512 + 10], 0xEE); // beyond the buffer: untouched
}

TEST_F(SdfCacheTest, BuffersAlignToTheBlockStartAndStopAtItsEnd) {
    open();
    dataBlock(5);  // so the block doesn't start at an aligned chunk by chance
    const int b = dataBlock(20);
    const int start = f_->file->blks->rows[b].entry->start;
    ASSERT_EQ(Sdf_Cache(ch_, 10, 4096, 512), 0);
    struct Case {
        int64_t offset;
        int first, last;
    } cases[] = {{19 * 512 + 8, 16, 19}, {9 * 512, 8, 15}, {7 * 512 + 500, 0, 7}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.offset);
        std::vector<unsigned char> d(8);
        ASSERT_EQ(sdf_read_block(d.data(), f_, b, c.offset, 8), 0);
        const sdf_cache_row& row = cache()->buffer[cache()->buffer[0].prev];  // most recently used
        EXPECT_EQ(row.first, start + c.first);
        EXPECT_EQ(row.last, start + c.last);
        EXPECT_EQ(row.chunks, c.last - c.first + 1);
    }
    EXPECT_EQ(cache()->filled, 3);
}

TEST_F(SdfCacheTest, FailedTransfersReportTheirCodes) {
    open();
    const int b = dataBlock(16);
    ASSERT_EQ(Sdf_Cache(ch_, 10, 0, 0), 0);
    std::vector<unsigned char> d = pattern(100, 8);
    count();
    Counts::fail_reads = true;  // the buffer can't be filled
    EXPECT_EQ(sdf_write_block(d.data(), f_, b, 0, 100), 3000);
    EXPECT_NE(sdftest::errorText(3083).find("FREAD nobj = 4096"), std::string::npos);
    EXPECT_EQ(cache()->filled, 0);
    Counts::fail_reads = false;
    ASSERT_EQ(sdf_write_block(d.data(), f_, b, 0, 100), 0);
    Counts::fail_writes = true;  // write-back fails: the data stay in the cache
    EXPECT_EQ(Sdf_Write(ch_), 3000);
    EXPECT_NE(sdftest::errorText(3084).find("FWRITE nobj = 4096"), std::string::npos);
    EXPECT_EQ(cache()->modified, 1);
    EXPECT_EQ(Sdf_Cache(ch_, 0, 0, 0), 3000);
    EXPECT_NE(cache(), nullptr);
    Counts::fail_writes = false;
    EXPECT_EQ(Sdf_Cache(ch_, 0, 0, 0), 0);
    std::vector<unsigned char> back(100);
    ASSERT_EQ(sdf_read_block(back.data(), f_, b, 0, 100), 0);
    EXPECT_EQ(back, d);
}

}  // namespace

namespace {

// Small appends to an array go through the cache while the data chain
// grows in place; what is read back, before and after close, is what was
// written.
TEST_F(SdfCacheTest, ArrayAppendsThroughTheCacheSurviveClose) {
    open();
    ASSERT_EQ(Sdf_Cache(ch_, 10, 2048, 512), 0);
    const int32_t dims[2] = {1, 0};
    ASSERT_EQ(Sdf_Define_Array(ch_, "grow", SDF_DBLE_T, 0, dims, nullptr, nullptr), 0);
    std::vector<double> all;
    for (int k = 0; k < 200; k++) {
        std::vector<double> run(37);
        for (int i = 0; i < 37; i++) run[i] = k * 100.0 + i;
        ASSERT_EQ(Sdf_Write_Array(ch_, "grow", run.data(), nullptr, 37), 0);
        all.insert(all.end(), run.begin(), run.end());
    }
    EXPECT_GT(cache()->modified, 0);
    std::vector<double> back(all.size());
    void* p = back.data();
    int32_t got = 0;
    ASSERT_EQ(Sdf_Read_Array(ch_, "grow", &p, nullptr, 0, &got), 0);
    EXPECT_EQ(got, static_cast<int32_t>(all.size()));
    EXPECT_EQ(back, all);
    ASSERT_EQ(Sdf_Close(ch_, "KEEP"), 0);
    ASSERT_EQ(Sdf_Open(&ch_, file_.c_str(), "BINARY", "OLD", "READ"), 0);
    std::fill(back.begin(), back.end(), 0.0);
    ASSERT_EQ(Sdf_Read_Array(ch_, "grow", &p, nullptr, 0, &got), 0);
    EXPECT_EQ(back, all);
}

}  // namespace
