// The block table in memory: allocation from the unused chain or the end of
// the file, freeing with merging, growth and shrinking of the table, trimming
// at close, and transfers that fall outside a block or the file.
#include <algorithm>
#include <random>
#include <set>
#include <tuple>

#include "sdf_test_files.h"

using sdftest::FileTest;

namespace {

sdf_blkent* ent(sdfile* s, int b) { return s->blks->rows[b].entry; }
const sdf_chain_desc& chainOf(sdfile* s, int ch) { return s->hdr->chain[ch - 1]; }

// Checks every invariant the allocator promises: free list and counts, used
// counts of the blkinf blocks, the unused chain sorted without touching runs,
// and no two blocks sharing a chunk.
void expectConsistent(sdfile* s) {
    const Blks* k = s->blks;
    const sdf_chain_desc& bi = chainOf(s, SDF_CH_BLKINF);
    int nfree = 0;
    for (int b = bi.free_a; b != 0 && nfree <= k->count; b = ent(s, b)->next, nfree++)
        EXPECT_EQ(ent(s, b)->type, SDF_CH_FREE) << "entry " << b;
    EXPECT_EQ(nfree, bi.free_count);
    int used = 0, chunks = 0;
    for (int b = bi.head; b != 0; b = ent(s, b)->next) {
        used += ent(s, b)->used;
        chunks += ent(s, b)->chunks;
    }
    EXPECT_EQ(used, k->count - bi.free_count);
    EXPECT_EQ(chunks, bi.chunks);
    const sdf_chain_desc& un = chainOf(s, SDF_CH_UNUSED);
    int total = 0, last_end = -1, last = 0;
    for (int b = un.head; b != 0; last = b, b = ent(s, b)->next) {
        EXPECT_EQ(ent(s, b)->type, SDF_CH_UNUSED);
        EXPECT_EQ(ent(s, b)->prev, last);
        EXPECT_GT(ent(s, b)->start, last_end) << "runs out of order or touching at " << b;
        last_end = ent(s, b)->start + ent(s, b)->chunks;
        total += ent(s, b)->chunks;
    }
    EXPECT_EQ(un.tail, last);
    EXPECT_EQ(total, un.chunks);
    std::set<int> taken;
    for (int b = 1; b < k->count; b++) {
        const sdf_blkent* e = ent(s, b);
        if (e->type == SDF_CH_FREE) continue;
        EXPECT_LE(e->start + e->chunks, s->hdr->file_chunks) << "block " << b;
        for (int c = e->start; c < e->start + e->chunks; c++) EXPECT_TRUE(taken.insert(c).second) << "chunk " << c;
    }
}

// Blocks of the given sizes at the end of the file, typed as data.
std::vector<int> allocRow(sdfile* s, std::initializer_list<int> sizes) {
    std::vector<int> out;
    for (int n : sizes) {
        int at_end = 0;
        int b = sdf_alloc_block(s, n, &at_end);
        EXPECT_GT(b, 0);
        EXPECT_EQ(at_end, 1);
        ent(s, b)->type = -8;
        out.push_back(b);
    }
    return out;
}

class SdfBlocks : public FileTest {
protected:
    void SetUp() override {
        FileTest::SetUp();
        ASSERT_EQ(sdf_create_file(path("b.sdf").c_str(), 0, 0, &f_), 0);
        s_ = f_->file;
    }
    void TearDown() override {
        if (f_) sdf_close_file(f_, 0);
        FileTest::TearDown();
    }
    fcb* f_ = nullptr;
    sdfile* s_ = nullptr;
};

}  // namespace

TEST_F(SdfBlocks, FirstTableHasSixteenEntriesOfWhichTwoAreUsed) {
    ASSERT_EQ(sdf_extend_blkinf_chain(s_, 1), 0);
    const sdf_chain_desc& bi = chainOf(s_, SDF_CH_BLKINF);
    EXPECT_EQ(s_->blks->count, 16);
    EXPECT_EQ(bi.head, 1);
    EXPECT_EQ(bi.tail, 1);
    EXPECT_EQ(bi.chunks, 1);
    EXPECT_EQ(bi.free_count, 14);
    EXPECT_EQ(bi.free_a, 2);
    EXPECT_EQ(ent(s_, 1)->start, 1);
    EXPECT_EQ(ent(s_, 1)->used, 2);
    EXPECT_EQ(s_->hdr->blk1_len, 1);
    EXPECT_EQ(s_->hdr->file_chunks, 2);
    // The first block then comes from the head of the free list.
    int at_end = 0;
    EXPECT_EQ(sdf_alloc_block(s_, 1, &at_end), 2);
    EXPECT_EQ(ent(s_, 2)->start, 2);
    expectConsistent(s_);
}

TEST_F(SdfBlocks, AddsBlkinfBlockWhenFreeEntriesFallToTwo) {
    allocRow(s_, {1});  // creates the table: 14 free, then 13
    const sdf_chain_desc& bi = chainOf(s_, SDF_CH_BLKINF);
    while (bi.free_count > 2) allocRow(s_, {1});
    EXPECT_EQ(bi.tail, 1);
    int b = allocRow(s_, {1})[0];
    EXPECT_NE(bi.tail, 1);
    EXPECT_EQ(ent(s_, bi.tail)->type, SDF_CH_BLKINF);
    EXPECT_EQ(s_->blks->count, 32);
    EXPECT_EQ(bi.chunks, 2);
    EXPECT_LT(b, 16);  // the old free entries go first
    expectConsistent(s_);
}

TEST_F(SdfBlocks, TakesAnExactRunElseSplitsTheFirstLongerOne) {
    struct Case {
        std::vector<int> runs;  // freed, in file order, with a used chunk between
        int want;
        int taken_run;  // index into runs
        int rest;       // chunks left of it in the chain, 0 if none
    };
    const Case cases[] = {{{5, 4, 3}, 3, 2, 0}, {{5, 4}, 3, 0, 2}, {{2, 6, 7}, 4, 1, 2}, {{4}, 4, 0, 0}};
    for (const Case& c : cases) {
        TearDown();
        SetUp();
        std::vector<int> runs;
        for (int n : c.runs) {
            runs.push_back(allocRow(s_, {n})[0]);
            allocRow(s_, {1});
        }
        for (int b : runs) ASSERT_EQ(sdf_free_block(s_, b), 0);
        const int start = ent(s_, runs[c.taken_run])->start;
        const int file_chunks = s_->hdr->file_chunks;
        int at_end = 1;
        int b = sdf_alloc_block(s_, c.want, &at_end);
        ASSERT_GT(b, 0);
        EXPECT_EQ(at_end, 0);
        EXPECT_EQ(ent(s_, b)->start, start);
        EXPECT_EQ(ent(s_, b)->chunks, c.want);
        EXPECT_EQ(s_->hdr->file_chunks, file_chunks);
        bool rest_found = c.rest == 0;
        for (int u = chainOf(s_, SDF_CH_UNUSED).head; u != 0; u = ent(s_, u)->next)
            if (ent(s_, u)->start == start + c.want) rest_found = ent(s_, u)->chunks == c.rest;
        EXPECT_TRUE(rest_found);
        expectConsistent(s_);
    }
}

TEST_F(SdfBlocks, MergesNeighbouringFreeRuns) {
    const std::vector<std::vector<int>> orders = {{0, 1, 2}, {2, 1, 0}, {0, 2, 1}, {1, 0, 2}};
    for (const auto& order : orders) {
        TearDown();
        SetUp();
        std::vector<int> row = allocRow(s_, {2, 3, 4, 1});
        const int start = ent(s_, row[0])->start;
        const int free_before = chainOf(s_, SDF_CH_BLKINF).free_count;
        for (int i : order) ASSERT_EQ(sdf_free_block(s_, row[i]), 0);
        const sdf_chain_desc& un = chainOf(s_, SDF_CH_UNUSED);
        ASSERT_NE(un.head, 0);
        EXPECT_EQ(un.head, un.tail) << "one run left";
        EXPECT_EQ(ent(s_, un.head)->start, start);
        EXPECT_EQ(ent(s_, un.head)->chunks, 9);
        EXPECT_EQ(un.chunks, 9);
        EXPECT_EQ(chainOf(s_, SDF_CH_BLKINF).free_count, free_before + 2);
        expectConsistent(s_);
    }
}

TEST_F(SdfBlocks, TrimsFreeRunsAtTheEndOfTheFileOnClose) {
    std::vector<int> row = allocRow(s_, {2, 3, 4});
    std::vector<unsigned char> zeros(4 * SDF_CHUNK);
    for (int b : row) ASSERT_EQ(sdf_write_block(zeros.data(), f_, b, 0, 0), 0);
    ASSERT_EQ(sdf_free_block(s_, row[0]), 0);  // in the middle: stays
    ASSERT_EQ(sdf_free_block(s_, row[2]), 0);  // at the end: goes
    const int start_last = ent(s_, row[2])->start;
    ASSERT_EQ(sdf_close_file(f_, 1), 0);
    f_ = nullptr;
    EXPECT_EQ(sdftest::readBytes(path("b.sdf")).size(), static_cast<size_t>(start_last) * SDF_CHUNK);
    ASSERT_EQ(sdf_load_file(path("b.sdf").c_str(), 1, &f_), 0);
    s_ = f_->file;
    EXPECT_EQ(s_->hdr->file_chunks, start_last);
    EXPECT_EQ(chainOf(s_, SDF_CH_UNUSED).chunks, 2);
    expectConsistent(s_);
}

TEST_F(SdfBlocks, EmptiedBlkinfBlockLeavesTheTableWhenTrimmed) {
    allocRow(s_, {1});
    const sdf_chain_desc& bi = chainOf(s_, SDF_CH_BLKINF);
    std::vector<int> row;
    while (bi.tail == 1) row.push_back(allocRow(s_, {1})[0]);
    // Fill the second table block too, so all of its entries are in use.
    while (s_->blks->count == 32 && bi.free_count > 3) row.push_back(allocRow(s_, {1})[0]);
    for (auto it = row.rbegin(); it != row.rend(); ++it) ASSERT_EQ(sdf_free_block(s_, *it), 0);
    EXPECT_EQ(sdf_trim_unused(s_), 1);
    EXPECT_EQ(bi.tail, 1);
    EXPECT_EQ(bi.chunks, 1);
    EXPECT_EQ(s_->blks->count, 16);
    EXPECT_EQ(chainOf(s_, SDF_CH_UNUSED).head, 0);
    EXPECT_EQ(s_->hdr->file_chunks, 3);  // header, block 1, the first data block
    expectConsistent(s_);
}

TEST_F(SdfBlocks, ReadBehindTheEndGivesZerosOnlyForData) {
    std::vector<int> row = allocRow(s_, {2, 1});
    ASSERT_EQ(sdf_write_modified_blocks(f_), 0);
    // A commit covers the file's length; a file from elsewhere may not.
    const int64_t end = static_cast<int64_t>(ent(s_, row[0])->start) * SDF_CHUNK;
    ASSERT_EQ(ftruncate(f_->ios->fd, end), 0);
    s_->disk_bytes = end;
    std::vector<unsigned char> buf(2 * SDF_CHUNK, 0xAB);
    ASSERT_EQ(sdf_read_block(buf.data(), f_, row[0], 0, 0), 0);
    EXPECT_EQ(std::count(buf.begin(), buf.end(), 0), static_cast<long>(buf.size()));
    ent(s_, row[1])->type = SDF_CH_VARINF;
    EXPECT_EQ(sdf_read_block(buf.data(), f_, row[1], 0, 0), 3080);
    EXPECT_NE(sdftest::errorText(3080).find("FREAD"), std::string::npos) << sdftest::errorText(3080);
}

TEST_F(SdfBlocks, RefusesTransfersOutsideABlock) {
    int b = allocRow(s_, {1})[0];
    std::vector<unsigned char> buf(2 * SDF_CHUNK);
    const std::tuple<int, int64_t, int64_t> bad[] = {
        {b, 0, SDF_CHUNK + 1}, {b, 500, 20}, {b, -4, 8}, {b, SDF_CHUNK + 8, 0}, {999, 0, 0}, {-1, 0, 0}};
    for (const auto& [block, offset, count] : bad) {
        EXPECT_EQ(sdf_read_block(buf.data(), f_, block, offset, count), 3080) << block << " " << offset;
        EXPECT_EQ(sdf_write_block(buf.data(), f_, block, offset, count), 3081) << block << " " << offset;
    }
    EXPECT_EQ(sdf_free_block(s_, 999), 4001);
}

TEST_F(SdfBlocks, FreeingADataChainReturnsEveryBlock) {
    std::vector<int> row = allocRow(s_, {1, 2, 3});
    ent(s_, row[0])->next = row[1];
    ent(s_, row[1])->next = row[2];
    ASSERT_EQ(sdf_free_chain(s_, row[0]), 0);
    EXPECT_EQ(chainOf(s_, SDF_CH_UNUSED).chunks, 6);
    expectConsistent(s_);
    // A chain that runs into a block of another kind is refused.
    std::vector<int> again = allocRow(s_, {7});
    ent(s_, again[0])->next = 1;
    EXPECT_EQ(sdf_free_chain(s_, again[0]), 3051);
    EXPECT_NE(sdftest::errorText(3051).find("is corrupt"), std::string::npos);
}

// After each commit the block table in the file must equal the one in
// memory: a link changed in an entry whose blkinf block isn't marked stays
// stale on disk, and the next open refuses the file ("free entry list
// broken"). Random allocations and frees over a table of several blkinf
// blocks make neighbours in the free list and the unused chain lie in other
// blkinf blocks than the entries that change them.
TEST_F(SdfBlocks, CommitLeavesTheTableOnDiskAsInMemory) {
    std::mt19937 rng(27);
    std::vector<int> live;
    std::vector<unsigned char> disk;
    for (int step = 0; step < 600; step++) {
        if (live.empty() || rng() % 5 < 3) {
            int at_end = 0;
            const int b = sdf_alloc_block(s_, 1 + static_cast<int>(rng() % 4), &at_end);
            ASSERT_GT(b, 0);
            ent(s_, b)->type = -8;
            live.push_back(b);
        } else {
            const size_t i = rng() % live.size();
            ASSERT_EQ(sdf_free_block(s_, live[i]), 0);
            live.erase(live.begin() + static_cast<long>(i));
        }
        if (step % 50 == 49) sdf_trim_unused(s_);  // frees entries with shrink
        ASSERT_EQ(sdf_write_modified_blocks(f_), 0);
        for (int b = chainOf(s_, SDF_CH_BLKINF).head; b != 0; b = ent(s_, b)->next) {
            const size_t bytes = static_cast<size_t>(ent(s_, b)->chunks) * SDF_CHUNK;
            disk.assign(bytes, 0);
            ASSERT_EQ(sdf_read_block(disk.data(), f_, b, 0, 0), 0);
            ASSERT_EQ(memcmp(disk.data(), s_->blks->rows[b].data, bytes), 0)
                << "blkinf block " << b << " differs from the file after step " << step;
        }
    }
    expectConsistent(s_);
}

TEST(SdfBlocksGrowth, DoublesWhileSmallAndAddsTheCapOnceLarge) {
    const int cases[][4] = {{1, 0, 128, 1}, {1, 8, 128, 8}, {1, 500, 128, 128}, {300, 500, 128, 300}, {5, 5, 0, 5}};
    for (const auto& c : cases) EXPECT_EQ(sdf_chain_growth(c[0], c[1], c[2]), c[3]);
}
