// Tables and surfaces created and deleted from several threads at once: the
// handle arrays grow and shrink under their locks while other threads look
// their own handles up. Locking is switched on for good, so this runs in an
// executable of its own.
#include "zutil.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

TEST(NdimThreads, CreateUseAndDeleteRaceFreely)
{
    ASSERT_EQ(ZU_setOpts("Thread_Safe=Yes"), 0);
    char dir[] = "/tmp/zu-ndim-threads-XXXXXX";
    ASSERT_NE(mkdtemp(dir), nullptr);
    const std::string path = std::string(dir) + "/map.txt";
    std::ofstream(path) << "full 2 # 0 1 2 # 10 20 # 1 2 3 4 5 6 #";
    std::atomic<int> failures{0};
    auto work = [&](int seed) {
        for (int round = 0; round < 40; ++round) {
            int table = -1, surface = -1;
            const double g = 1, p = seed, v = seed;
            const float coords[2] = {0.5f, 15};
            float value = 0;
            double out = 0;
            failures += ZU_ndimCreate(&table, path.c_str()) != 0;
            failures += ZU_respCreate(&surface, 1, 1, &g, 1, 2) != 0;
            failures += ZU_respAddPoint(surface, &p, &v) != 0;
            failures += ZU_ndimInterp(table, coords, &value) != 0 || value != 2.5f;
            failures += ZU_respSurf(surface, &p, &out) != 0 || out != v;
            failures += ZU_ndimDelete(table) != 0;
            failures += ZU_respDelete(surface) != 0;
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(work, i);
    for (std::thread &t : threads)
        t.join();
    EXPECT_EQ(failures.load(), 0);
    unlink(path.c_str());
    rmdir(dir);
}
