// Slot allocator and the chrvar buffers: sizes, first fit with split or
// whole use, merging on free, growth of the chains, return of empty blocks,
// LRU eviction with its commit, and refusal of bad references.
#include <gtest/gtest.h>

#include <string>

#include "sdf_inner.h"
#include "sdf_test_files.h"

namespace {

time_t g_fake_now = 1700000000;
time_t fakeTime(time_t* t) {
    if (t) *t = g_fake_now;
    return g_fake_now;
}

class SdfSlots : public sdftest::FileTest {
protected:
    void SetUp() override {
        FileTest::SetUp();
        ASSERT_EQ(sdf_create_file(path("s.sdf").c_str(), 2, 0, &f_), 0);
        s_ = f_->file;
    }
    void TearDown() override {
        if (f_) sdf_close_file(f_, 0);
        FileTest::TearDown();
    }
    sdf_blkent* entry(int b) { return s_->blks->rows[b].entry; }
    int32_t* words(int b) { return static_cast<int32_t*>(s_->blks->rows[b].data); }
    sdf_chain_desc& chain(int c) { return s_->hdr->chain[c - 1]; }
    sdf_slotref slot(int ct, int n, const char* text = nullptr) {
        sdf_slotref r{0, 0};
        int err = -1;
        void* p = sdf_get_slot(f_, ct, n, &r, &err);
        EXPECT_NE(p, nullptr);
        EXPECT_EQ(err, 0);
        if (p && text) memcpy(p, text, strlen(text) + 1);
        return r;
    }
    int sizeOf(sdf_slotref r) { return words(r.block)[r.index]; }
    void release(int ct, sdf_slotref r) { ASSERT_EQ(sdf_free_slot(f_, ct, &r), 0); }

    fcb* f_ = nullptr;
    sdfile* s_ = nullptr;
};

TEST_F(SdfSlots, SlotSizeFollowsTheUnitOfEachChain) {
    struct {
        int chain_type, n, size;
    } cases[] = {
        {SDF_CH_VARNAM, 3, 2}, {SDF_CH_VARNAM, 4, 3}, {SDF_CH_VARNAM, 1, 2},  {SDF_CH_CHRVAR, 3, 2},
        {SDF_CH_CHRVAR, 4, 3}, {SDF_CH_ARRDIM, 1, 3}, {SDF_CH_ARRDIM, 8, 17}, {SDF_CH_ARRDIM32, 3, 4},
    };
    for (const auto& c : cases) {
        sdf_slotref r = slot(c.chain_type, c.n);
        EXPECT_EQ(sizeOf(r), c.size) << "chain " << c.chain_type << " n " << c.n;
        EXPECT_EQ(entry(r.block)->type, c.chain_type == SDF_CH_ARRDIM32 ? SDF_CH_ARRDIM : c.chain_type);
    }
    EXPECT_EQ(sdf_get_slot(f_, SDF_CH_VARNAM, 0, nullptr, nullptr), nullptr);
    sdf_slotref none{0, 0};
    int err = -1;
    EXPECT_EQ(sdf_get_slot(f_, SDF_CH_CHRVAR, 0, &none, &err), nullptr);
    EXPECT_EQ(err, 0);
}

TEST_F(SdfSlots, FreeSlotIsUsedWholeUpToTwoSpareWordsAndSplitBeyond) {
    sdf_slotref a = slot(SDF_CH_VARNAM, 3);
    sdf_slotref b = slot(SDF_CH_VARNAM, 16);  // 5 payload words: a slot of 6
    slot(SDF_CH_VARNAM, 3);
    ASSERT_EQ(b.index, 2);
    ASSERT_EQ(sizeOf(b), 6);
    release(SDF_CH_VARNAM, b);
    sdf_blkent* e = entry(a.block);
    EXPECT_EQ(e->first_free, 2);
    EXPECT_EQ(words(a.block)[3], 10);

    sdf_slotref whole = slot(SDF_CH_VARNAM, 8);  // need 4: 6 is need + 2
    EXPECT_EQ(whole.index, 2);
    EXPECT_EQ(sizeOf(whole), 6);
    EXPECT_EQ(e->first_free, 10);

    release(SDF_CH_VARNAM, whole);
    sdf_slotref split = slot(SDF_CH_VARNAM, 4);  // need 3: 6 is need + 3
    EXPECT_EQ(split.index, 2);
    EXPECT_EQ(sizeOf(split), 3);
    EXPECT_EQ(e->first_free, 5);
    EXPECT_EQ(words(a.block)[5], 3);
    EXPECT_EQ(words(a.block)[6], 10);
    EXPECT_EQ(e->used, 3);
}

TEST_F(SdfSlots, FreeingThreeNeighboursLeavesOneFreeSlot) {
    slot(SDF_CH_VARNAM, 3);  // keeps word 0 in use
    sdf_slotref a = slot(SDF_CH_VARNAM, 3), b = slot(SDF_CH_VARNAM, 3), c = slot(SDF_CH_VARNAM, 3);
    slot(SDF_CH_VARNAM, 3);  // keeps them apart from the free tail
    int blk = a.block;
    int tail = words(blk)[0] + 4 * 2;
    release(SDF_CH_VARNAM, a);
    release(SDF_CH_VARNAM, c);
    EXPECT_EQ(entry(blk)->first_free, 2);
    EXPECT_EQ(words(blk)[3], 6);
    release(SDF_CH_VARNAM, b);
    EXPECT_EQ(entry(blk)->first_free, 2);
    EXPECT_EQ(words(blk)[2], 6);
    EXPECT_EQ(words(blk)[3], tail);
    EXPECT_EQ(entry(blk)->used, 2);
    EXPECT_EQ(entry(blk)->largest_free, SDF_CHUNK / 4 - tail);
    // The merged slot serves a request of its whole size.
    EXPECT_EQ(slot(SDF_CH_VARNAM, 17).index, 2);
}

TEST_F(SdfSlots, RequestLargerThanAChunkGetsABlockOfEnoughChunks) {
    sdf_slotref r = slot(SDF_CH_VARNAM, 600);  // need 152 words, a chunk holds 128
    EXPECT_EQ(entry(r.block)->chunks, 2);
    EXPECT_EQ(sizeOf(r), 152);
    EXPECT_EQ(entry(r.block)->largest_free, 256 - 152);
    EXPECT_EQ(chain(SDF_CH_VARNAM).chunks, 2);
}

TEST_F(SdfSlots, NewBlockGrowsWithTheChainUpToTheCap) {
    struct {
        int first_need;  // fills a block of `total` chunks but for 80 or 100 words
        int total;
        const char* opts;
        int expect;
    } cases[] = {
        {1200, 10, nullptr, 10},
        {127900, 1000, nullptr, 128},
        {1200, 10, "Max_Extra_Slot_Chunks=4", 4},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.total);
        if (c.opts) {
            ASSERT_EQ(sdf_set_opts(f_, c.opts), 0);
        }
        std::string text(static_cast<size_t>(c.first_need - 1) * 4 - 4, 'x');
        sdf_slotref big = slot(SDF_CH_CHRVAR, static_cast<int>(text.size()), text.c_str());
        ASSERT_EQ(entry(big.block)->chunks, c.total);
        ASSERT_EQ(chain(SDF_CH_CHRVAR).chunks, c.total);
        sdf_slotref more = slot(SDF_CH_CHRVAR, 400);  // need 101: no room left
        EXPECT_NE(more.block, big.block);
        EXPECT_EQ(entry(more.block)->chunks, c.expect);
        EXPECT_EQ(chain(SDF_CH_CHRVAR).chunks, c.total + c.expect);
        release(SDF_CH_CHRVAR, more);
        release(SDF_CH_CHRVAR, big);
        EXPECT_EQ(chain(SDF_CH_CHRVAR).chunks, 0);
    }
}

TEST_F(SdfSlots, LastSlotFreedReturnsTheBlockToTheUnusedChain) {
    sdf_slotref keep = slot(SDF_CH_VARNAM, 3);
    sdf_slotref r = slot(SDF_CH_CHRVAR, 10, "0123456789");
    int blk = r.block;
    int unused_before = chain(SDF_CH_UNUSED).chunks;
    ASSERT_EQ(sdf_free_slot(f_, SDF_CH_CHRVAR, &r), 0);
    EXPECT_EQ(chain(SDF_CH_CHRVAR).head, 0);
    EXPECT_EQ(chain(SDF_CH_CHRVAR).tail, 0);
    EXPECT_EQ(chain(SDF_CH_CHRVAR).chunks, 0);
    EXPECT_EQ(chain(SDF_CH_UNUSED).chunks, unused_before + 1);
    EXPECT_EQ(s_->blks->rows[blk].data, nullptr);
    EXPECT_EQ(s_->blks->rows[blk].slot_row, 0);
    EXPECT_EQ(s_->lru.head, 0);
    EXPECT_NE(entry(blk)->type, SDF_CH_CHRVAR);
    // The other chain is untouched, and a freed reference is a no-op.
    EXPECT_EQ(chain(SDF_CH_VARNAM).head, keep.block);
    EXPECT_EQ(r.block, 0);
    EXPECT_EQ(sdf_free_slot(f_, SDF_CH_CHRVAR, &r), 0);
}

TEST_F(SdfSlots, SixtyFifthChrvarBlockEvictsTheLeastRecentlyUsedAfterACommit) {
    ASSERT_EQ(sdf_set_opts(f_, "Max_Extra_Slot_Chunks=1"), 0);
    sdf_io.time = fakeTime;
    g_fake_now = 1700000000;
    auto text = [](int k) {  // 500 characters fill a one-chunk block exactly
        std::string t = std::to_string(k) + std::string(500, static_cast<char>('A' + k % 26));
        t.resize(500);
        return t;
    };
    std::vector<sdf_slotref> refs;
    for (int k = 0; k < SDF_LRU_ROWS; k++) refs.push_back(slot(SDF_CH_CHRVAR, 500, text(k).c_str()));
    for (int k = 1; k < SDF_LRU_ROWS; k++) ASSERT_NE(refs[k].block, refs[k - 1].block);
    for (auto r : refs) ASSERT_NE(s_->blks->rows[r.block].data, nullptr);
    ASSERT_EQ(sdf_write_modified_blocks(f_), 0);
    int64_t before = s_->hdr->modified;

    // A lookup makes block 0 the most recently used; block 1, now the least
    // recently used, is changed behind the LRU's back.
    int err = 0;
    ASSERT_NE(sdf_get_slot(f_, SDF_CH_CHRVAR, 0, &refs[0], &err), nullptr);
    reinterpret_cast<char*>(words(refs[1].block) + refs[1].index + 1)[0] = 'y';
    sdf_mark(s_, refs[1].block);

    g_fake_now += 100;
    sdf_slotref last = slot(SDF_CH_CHRVAR, 500, text(64).c_str());
    EXPECT_EQ(s_->blks->rows[refs[1].block].data, nullptr) << "least recently used evicted";
    EXPECT_EQ(s_->blks->rows[refs[1].block].slot_row, 0);
    EXPECT_NE(s_->blks->rows[refs[0].block].data, nullptr);
    EXPECT_NE(s_->blks->rows[refs[2].block].data, nullptr);
    EXPECT_NE(s_->blks->rows[last.block].data, nullptr);
    EXPECT_EQ(s_->hdr->modified, before + INT64_C(100000000)) << "eviction committed";
    auto bytes = sdftest::readBytes(path("s.sdf"));
    size_t at = static_cast<size_t>(entry(refs[1].block)->start) * SDF_CHUNK + 4 * (refs[1].index + 1);
    ASSERT_LT(at, bytes.size());
    EXPECT_EQ(bytes[at], 'y');

    // Loading block 1 again evicts the next in line and gives the text as
    // it was committed.
    auto* back = static_cast<char*>(sdf_get_slot(f_, SDF_CH_CHRVAR, 0, &refs[1], &err));
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(std::string(back), "y" + text(1).substr(1));
    EXPECT_EQ(s_->blks->rows[refs[2].block].data, nullptr);
    int in_memory = 0;
    for (int b = 1; b < s_->blks->count; b++) in_memory += s_->blks->rows[b].slot_row != 0;
    EXPECT_EQ(in_memory, SDF_LRU_ROWS);
}

TEST_F(SdfSlots, BadRequestsAndReferencesAreRefusedWithCodes) {
    sdf_slotref r{0, 0};
    int err = 0;
    EXPECT_EQ(sdf_get_slot(f_, 3, 1, &r, &err), nullptr);
    EXPECT_EQ(err, 4001);
    EXPECT_EQ(sdftest::errorText(4001).find("Invalid value for chain_type."), 0u);
    EXPECT_EQ(sdf_get_slot(f_, 8, 1, &r, &err), nullptr);
    EXPECT_EQ(err, 4001);
    EXPECT_EQ(sdf_free_slot(f_, SDF_CH_ARRDIM32, &r), 4001);

    slot(SDF_CH_VARNAM, 3, "pad");
    sdf_slotref a = slot(SDF_CH_VARNAM, 3, "abc");
    sdf_slotref b = slot(SDF_CH_VARNAM, 3, "def");
    sdf_slotref wrong = a;
    EXPECT_EQ(sdf_free_slot(f_, SDF_CH_ARRDIM, &wrong), 4001);
    EXPECT_NE(sdftest::errorText(4001).find("is not in chain."), std::string::npos);

    sdf_slotref outside{a.block, 100000};
    EXPECT_EQ(sdf_get_slot(f_, SDF_CH_VARNAM, 0, &outside, &err), nullptr);
    EXPECT_EQ(err, 3051);
    EXPECT_EQ(sdf_free_slot(f_, SDF_CH_VARNAM, &outside), 3051);
    sdf_slotref stale{9999, 0};
    EXPECT_EQ(sdf_get_slot(f_, SDF_CH_VARNAM, 0, &stale, &err), nullptr);
    EXPECT_EQ(err, 3051);

    sdf_slotref twice = a;
    release(SDF_CH_VARNAM, a);
    EXPECT_EQ(sdf_free_slot(f_, SDF_CH_VARNAM, &twice), 3051) << "double free";

    // A name slot whose NUL was overwritten is not handed out.
    memset(words(b.block) + b.index + 1, 'x', 4);
    EXPECT_EQ(sdf_get_slot(f_, SDF_CH_VARNAM, 0, &b, &err), nullptr);
    EXPECT_EQ(err, 3051);

    // A largest free that the list doesn't hold is the "can't happen" state.
    entry(b.block)->largest_free = 4000;
    EXPECT_EQ(sdf_get_slot(f_, SDF_CH_VARNAM, 3000, &r, &err), nullptr);
    EXPECT_EQ(err, 4001);
    EXPECT_NE(sdftest::errorText(4001).find("expected slot not found in block"), std::string::npos);
}

}  // namespace
