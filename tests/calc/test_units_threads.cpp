// Parsing from several threads at once: each keeps its own definition cache,
// and every thread gets the single-threaded answers. Locking is switched on
// for good here, so this runs in an executable of its own.
#include "zcalc.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

TEST(UnitThreads, ConcurrentParsesAgreeWithSerialOnes)
{
    ZU_setOpts("Thread_Safe=Yes");
    const char *const units[] = {"kg.m/s^2", "Btu/h", "degF", "psi", "kWh", "mmHg", "rpm", "gal"};
    std::vector<std::string> expected;
    for (const char *u : units) {
        char dims[ZU_UNIT_DIMS_SIZE];
        double scale = 0, offset = 0;
        int rc = ZU_unitParse(u, dims, &scale, &offset);
        expected.push_back(std::to_string(rc) + dims + std::to_string(scale) + std::to_string(offset));
    }
    std::vector<int> mismatches(4, 0);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (int round = 0; round < 300; ++round)
                for (size_t i = 0; i < expected.size(); ++i) {
                    char dims[ZU_UNIT_DIMS_SIZE];
                    double scale = 0, offset = 0;
                    int rc = ZU_unitParse(units[i], dims, &scale, &offset);
                    std::string got = std::to_string(rc) + dims + std::to_string(scale) + std::to_string(offset);
                    mismatches[static_cast<size_t>(t)] += got != expected[i];
                }
        });
    for (std::thread &th : threads)
        th.join();
    for (int m : mismatches)
        EXPECT_EQ(m, 0);
}
