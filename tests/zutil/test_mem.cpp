// The tracked allocator and the pools: accounting, zeroing, failure actions.
#include "zu_test_support.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

// Huge requests must come back as null under the address sanitizer too. The
// sanitizer's runtime looks this hook up dynamically, so it must be exported.
extern "C" __attribute__((visibility("default"))) const char *__asan_default_options()
{
    return "allocator_may_return_null=1";
}

namespace {

constexpr size_t kHuge = size_t{1} << 60;

bool allBytes(const void *p, size_t n, unsigned char value)
{
    const auto *b = static_cast<const unsigned char *>(p);
    for (size_t i = 0; i < n; ++i)
        if (b[i] != value)
            return false;
    return true;
}

TEST(ZuMem, CountsEachBlockWithItsHeader)
{
    double before = ZU_memTotal();
    void *p = ZU_allocMem(100, "test:p");
    ASSERT_NE(p, nullptr);
    EXPECT_TRUE(allBytes(p, 100, 0));
    EXPECT_EQ(ZU_memTotal(), before + 132);
    ZU_freeMem(p);
    EXPECT_EQ(ZU_memTotal(), before);
    ZU_freeMem(nullptr);
    EXPECT_EQ(ZU_memTotal(), before);
}

TEST(ZuMem, ReallocZeroesGrowthAndKeepsBytesOnShrink)
{
    double before = ZU_memTotal();
    auto *p = static_cast<unsigned char *>(ZU_reallocMem(nullptr, 16));
    ASSERT_NE(p, nullptr);
    EXPECT_TRUE(allBytes(p, 16, 0));
    EXPECT_EQ(ZU_memTotal(), before + 48);
    memset(p, 0xAB, 16);
    p = static_cast<unsigned char *>(ZU_reallocMem(p, 64));
    EXPECT_TRUE(allBytes(p, 16, 0xAB));
    EXPECT_TRUE(allBytes(p + 16, 48, 0));
    p = static_cast<unsigned char *>(ZU_reallocMem(p, 8));
    EXPECT_TRUE(allBytes(p, 8, 0xAB));
    EXPECT_EQ(ZU_memTotal(), before + 40);
    ZU_freeMem(p);
    EXPECT_EQ(ZU_memTotal(), before);
}

TEST(ZuMem, PeakResetReturnsTheOldPeak)
{
    ZU_memPeak(1);
    double base = ZU_memTotal();
    void *p = ZU_allocMem(10000, "test:peak");
    ZU_freeMem(p);
    EXPECT_GE(ZU_memPeak(1), base + 10032);
    EXPECT_EQ(ZU_memPeak(0), ZU_memTotal());
}

TEST(ZuMem, TrashFillMarksOnlyUnsetBytes)
{
    EXPECT_EXIT(
        {
            // The variable is read when the allocator starts, so start anew.
            setenv("ZU_TRASHNOZERO", "", 1);
            ZU_memFreeAll();
            auto *p = static_cast<unsigned char *>(ZU_allocMemNoZero(32, "test:trash"));
            bool ok = allBytes(p, 32, 0x55);
            memset(p, 1, 32);
            p = static_cast<unsigned char *>(ZU_reallocMemNoZero(p, 64));
            ok = ok && allBytes(p, 32, 1) && allBytes(p + 32, 32, 0x55);
            void *z = ZU_allocMem(32, "test:zero");
            ok = ok && allBytes(z, 32, 0);
            exit(ok ? 0 : 2);
        },
        testing::ExitedWithCode(0), "");
}

TEST(ZuMem, FailureFollowsMemErrorOption)
{
    ASSERT_EQ(ZU_push(1), 0);
    double before = ZU_memTotal();

    ZU_setOpts("Mem_Error=NULL");
    testing::internal::CaptureStderr();
    EXPECT_EQ(ZU_allocMem(kHuge, "test:huge"), nullptr);
    EXPECT_EQ(ZU_allocMem(SIZE_MAX, "test:wrap"), nullptr);
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(err.find("ERROR: ZU_allocMem() failed! (test:huge requires"), std::string::npos);
    EXPECT_NE(err.find("(test:wrap requires"), std::string::npos);

    ZU_setOpts("Mem_Error=NULL_NoMessage");
    testing::internal::CaptureStderr();
    void *p = ZU_allocMem(16, "test:keep");
    memset(p, 7, 16);
    EXPECT_EQ(ZU_reallocMem(p, kHuge), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr().find("ZU_reallocMem"), std::string::npos);
    // The old block is still valid and still tracked.
    EXPECT_TRUE(allBytes(p, 16, 7));
    ZU_freeMem(p);
    EXPECT_EQ(ZU_memTotal(), before);
    ZU_pop();

    EXPECT_EXIT(ZU_allocMemNoZero(kHuge, "test:exit"), testing::ExitedWithCode(1),
                "ZU_allocMemNoZero\\(\\) failed! \\(test:exit requires");
}

TEST(ZuMem, FreeAllDropsEveryModulesHoldings)
{
    EXPECT_EXIT(
        {
            ZU_push(0);
            ZU_setOpts("Error_Out=None");
            ZU_ErrQuiet("R", 5, 2, "held");
            ZU_allocMem(64, "test:left");
            ZU_memFreeAll();
            // Nothing may point at freed memory now.
            bool ok = ZU_errWorst("*", nullptr) == 0 && ZU_optValue(ZU_OPT_ERROR_OUT) == 1;
            ZU_pop();
            ZU_ErrQuiet("R", 6, 1, "again");
            int count = 0;
            ok = ok && ZU_errWorst("R", &count) == 1 && count == 1;
            exit(ok ? 0 : 2);
        },
        testing::ExitedWithCode(0), "");
}

TEST(ZuMem, StatusReportsMachineMemory)
{
    int total = 0, avail = 0;
    ASSERT_EQ(ZU_memStatus(&total, &avail), 0);
    EXPECT_GT(total, 0);
    EXPECT_GT(avail, 0);
    EXPECT_LE(avail, total);
    EXPECT_EQ(ZU_memStatus(nullptr, &avail), 1);
}

TEST(ZuPool, SmallRequestsShareOneZeroedChunk)
{
    double before = ZU_memTotal();
    ZU_MemLink pool;
    ASSERT_EQ(ZU_memlinkInit(&pool, 100), 0);
    EXPECT_EQ(pool.chunkSize, 8192u);
    auto *a = static_cast<char *>(ZU_memlinkAlloc(&pool, 3));
    auto *b = static_cast<char *>(ZU_memlinkAlloc(&pool, 5));
    auto *c = static_cast<char *>(ZU_memlinkAlloc(&pool, 0));
    EXPECT_EQ(b - a, 8);
    EXPECT_EQ(c - b, 8);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(a) % 8, 0u);
    EXPECT_TRUE(allBytes(a, 24, 0));
    EXPECT_EQ(ZU_listCount(&pool.chunks), 1);
    EXPECT_EQ(ZU_memTotal(), before + 8192 + 64);
    ZU_memlinkFree(&pool);
    EXPECT_EQ(ZU_memTotal(), before);
}

TEST(ZuPool, LargeRequestTakesAFullChunkOfItsOwn)
{
    double before = ZU_memTotal();
    ZU_MemLink pool;
    ZU_memlinkInit(&pool, 8192);
    ZU_memlinkAlloc(&pool, 10);
    auto *big = static_cast<char *>(ZU_memlinkAlloc(&pool, 10001));
    ASSERT_NE(big, nullptr);
    EXPECT_TRUE(allBytes(big, 10001, 0));
    EXPECT_EQ(ZU_listCount(&pool.chunks), 2);
    EXPECT_EQ(pool.free, 0u);
    ZU_memlinkAlloc(&pool, 8); // the big chunk is full: a third chunk opens
    EXPECT_EQ(ZU_listCount(&pool.chunks), 3);
    EXPECT_EQ(ZU_memTotal(), before + 3 * 64 + 8192 * 2 + 10008);
    ZU_memlinkFree(&pool);
    EXPECT_TRUE(ZU_listIsEmpty(&pool.chunks));
    EXPECT_EQ(ZU_memTotal(), before);
}

TEST(ZuPool, StrDupCopiesIntoThePool)
{
    ZU_MemLink pool;
    ZU_memlinkInit(&pool, 0);
    char *copy = ZU_memlinkStrDup(&pool, "hello");
    EXPECT_STREQ(copy, "hello");
    EXPECT_EQ(ZU_memlinkStrDup(&pool, nullptr), nullptr);
    EXPECT_EQ(ZU_memlinkAlloc(nullptr, 8), nullptr);
    ZU_memlinkFree(&pool);
}

} // namespace
