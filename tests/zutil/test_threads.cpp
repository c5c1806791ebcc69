// Locks under threads. Locking is switched on for good by Thread_Safe=Yes,
// so these tests live in a process of their own, and the one that shows the
// "off" state does so before switching it on.
#include "zutil.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;

// Waits (yielding) until `done` holds, at most ten seconds; false on timeout.
template <class Pred>
bool waitFor(Pred done)
{
    auto deadline = Clock::now() + std::chrono::seconds(10);
    while (!done()) {
        if (Clock::now() > deadline)
            return false;
        std::this_thread::yield();
    }
    return true;
}

void runThreads(int n, const std::function<void()> &body)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < n; ++i)
        threads.emplace_back(body);
    for (std::thread &t : threads)
        t.join();
}

TEST(ZuLock, InactiveUntilThreadSafeThenExclusive)
{
    ASSERT_FALSE(ZU_isThreadSafe());
    ZU_Lock lock = ZU_lockCreate();
    ASSERT_NE(lock, nullptr);

    // Off: both threads must be inside at once. Each waits inside for the
    // other, so the overlap is certain, not a matter of timing.
    std::atomic<int> inside{0};
    std::atomic<int> sawBoth{0};
    runThreads(2, [&] {
        ZU_lock(lock);
        ++inside;
        if (waitFor([&] { return inside.load() == 2 || sawBoth.load() > 0; }))
            ++sawBoth;
        ZU_unlock(lock);
    });
    EXPECT_EQ(sawBoth.load(), 2);

    ASSERT_EQ(ZU_setOpts("Thread_Safe=Yes"), 0);
    ASSERT_TRUE(ZU_isThreadSafe());

    // On: never two inside; the plain counter is safe only because of that.
    std::atomic<bool> overlap{false};
    inside = 0;
    long counter = 0;
    const int threads = 4, rounds = 2000;
    runThreads(threads, [&] {
        for (int i = 0; i < rounds; ++i) {
            ZU_lock(lock);
            if (++inside > 1)
                overlap = true;
            ++counter;
            if (i % 64 == 0)
                std::this_thread::yield();
            --inside;
            ZU_unlock(lock);
        }
    });
    EXPECT_FALSE(overlap.load());
    EXPECT_EQ(counter, static_cast<long>(threads) * rounds);

    // The flag can't be taken back.
    ZU_setOpts("Thread_Safe=No");
    EXPECT_TRUE(ZU_isThreadSafe());
    char value[128];
    ZU_getOpt("Thread_Safe", value);
    EXPECT_STREQ(value, "Yes");
    ZU_lockDestroy(lock);
}

TEST(ZuLock, AnyThreadMayReleaseAndReleaseDoesNotCount)
{
    ZU_Lock lock = ZU_lockCreate();
    ZU_lockAlways(lock);
    EXPECT_EQ(ZU_lockTry(lock), 0);
    std::thread([&] { ZU_unlockAlways(lock); }).join();
    ZU_unlockAlways(lock); // a second release leaves it simply free
    EXPECT_EQ(ZU_lockTry(lock), 1);
    EXPECT_EQ(ZU_lockTry(lock), 0);
    ZU_unlockAlways(lock);
    ZU_lockDestroy(lock);
    EXPECT_EQ(ZU_lockTry(nullptr), 0);
}

TEST(ZuRWLock, ReadersShareAndWritersExclude)
{
    ZU_RWLock rw = ZU_rwCreate();
    ZU_rwLock(rw, 1);
    EXPECT_EQ(ZU_rwState(rw), 1);
    std::thread([&] {
        EXPECT_EQ(ZU_rwTryLock(rw, 1), 1);
        EXPECT_EQ(ZU_rwTryLock(rw, ZU_RW_WRITE), 0);
        ZU_rwUnlock(rw);
    }).join();
    ZU_rwUnlock(rw);
    EXPECT_EQ(ZU_rwState(rw), 0);

    ZU_rwLock(rw, ZU_RW_WRITE);
    EXPECT_EQ(ZU_rwState(rw), -1);
    std::thread([&] {
        EXPECT_EQ(ZU_rwTryLock(rw, 1), 0);
        EXPECT_EQ(ZU_rwTryLock(rw, ZU_RW_WRITE), 0);
    }).join();
    ZU_rwUnlock(rw);
    EXPECT_EQ(ZU_rwTryLock(rw, ZU_RW_WRITE), 1);
    ZU_rwUnlock(rw);
    ZU_rwUnlock(rw); // unlocking a free lock does nothing
    EXPECT_EQ(ZU_rwState(rw), 0);
    ZU_rwDestroy(rw);
}

TEST(ZuRWLock, WaitingWriterKeepsNewReadersOut)
{
    ZU_RWLock rw = ZU_rwCreate();
    ZU_rwLock(rw, 1);
    std::atomic<bool> writerIn{false};
    std::thread writer([&] {
        ZU_rwLock(rw, ZU_RW_WRITE);
        writerIn = true;
        ZU_rwUnlock(rw);
    });
    // Once the writer waits, a new reader is refused.
    bool refused = waitFor([&] {
        if (ZU_rwTryLock(rw, 1) == 0)
            return true;
        ZU_rwUnlock(rw);
        return false;
    });
    EXPECT_TRUE(refused);
    EXPECT_FALSE(writerIn.load());
    ZU_rwUnlock(rw);
    writer.join();
    EXPECT_TRUE(writerIn.load());
    EXPECT_EQ(ZU_rwState(rw), 0);
    ZU_rwDestroy(rw);
}

TEST(ZuThreads, AllocatorErrorsAndPatternsServeManyThreads)
{
    ZU_setOpts("Thread_Safe=Yes");
    ZU_ErrQuiet("worker", 1, 1, "first"); // its routine record stays after clearing
    ZU_errClear("*", 0);
    double before = ZU_memTotal();
    unsigned char pattern[ZU_PAT_BUFSIZE];
    ASSERT_EQ(ZU_patCompile("item_#", pattern, ZU_PAT_BUFSIZE), 0);
    std::atomic<int> matches{0};
    runThreads(4, [&] {
        ZU_MemLink pool;
        ZU_memlinkInit(&pool, 0);
        for (int i = 0; i < 500; ++i) {
            void *p = ZU_allocMem(static_cast<size_t>(i % 97 + 1), "thread:p");
            p = ZU_reallocMem(p, static_cast<size_t>(i % 13 + 200));
            ZU_memlinkAlloc(&pool, static_cast<uint64_t>(i % 50));
            ZU_freeMem(p);
            if (i % 50 == 0)
                ZU_ErrQuiet("worker", 1, 1, "tick");
            matches += ZU_patMatch(i % 2 ? "item_42" : "item_x", pattern);
        }
        ZU_memlinkFree(&pool);
    });
    int count = 0;
    ZU_errWorst("worker", &count);
    EXPECT_EQ(count, 40);
    EXPECT_EQ(matches.load(), 1000);
    ZU_errClear("*", 0);
    EXPECT_EQ(ZU_memTotal(), before);
}

} // namespace
