// Speed of the SDF variable table: 100,000 variables inserted, looked up and
// deleted in a file, beside the same work on a std::map of the same names in
// the same run. Prints operations per second and the ratio to the map.
//
// usage: sdf_vartable_bench [count]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <unistd.h>

#include "sdf_inner.h"

namespace {

using Clock = std::chrono::steady_clock;

double seconds(Clock::time_point a, Clock::time_point b) {
    return std::chrono::duration<double>(b - a).count();
}

void report(const char* what, int n, double sdf, double map) {
    std::printf("%-8s sdf %12.0f /s   std::map %12.0f /s   ratio %.2f\n", what, n / sdf, n / map,
                map / sdf);
}

}  // namespace

int main(int argc, char** argv) {
    const int n = argc > 1 ? std::atoi(argv[1]) : 100000;
    if (n < 1) {
        std::fprintf(stderr, "usage: sdf_vartable_bench [count]\n");
        return 2;
    }
    std::vector<std::string> names;
    names.reserve(static_cast<std::size_t>(n));
    for (int i = 0; i < n; ++i) names.push_back("var_" + std::to_string(i * 7919 % n) + "_x");
    std::vector<std::string> shuffled = names;
    std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(42));

    char path[] = "/tmp/sdf-bench-XXXXXX";
    int fd = ::mkstemp(path);
    if (fd < 0) return 1;
    ::close(fd);

    fcb* f = nullptr;
    if (sdf_create_file(path, 0, 0, &f) != 0) return 1;

    auto t0 = Clock::now();
    for (const auto& name : names) {
        int pos = 0, err = 0;
        if (sdf_find_var(f, name.c_str(), &pos)) return 1;
        ventry* row = sdf_insert_var(f, name.c_str(), pos, &err);
        if (!row) return 1;
        row->record->type = SDF_DBLE_T;
        row->record->elen = 8;
    }
    auto t1 = Clock::now();
    long found = 0;
    for (const auto& name : shuffled) {
        int pos = 0;
        found += sdf_find_var(f, name.c_str(), &pos) != nullptr;
    }
    auto t2 = Clock::now();
    for (const auto& name : shuffled) {
        int pos = 0;
        ventry* row = sdf_find_var(f, name.c_str(), &pos);
        if (!row || sdf_delete_var(f, row, pos) != 0) return 1;
    }
    auto t3 = Clock::now();
    sdf_close_file(f, 1);
    ::unlink(path);

    std::map<std::string, int> m;
    auto m0 = Clock::now();
    for (const auto& name : names) m.emplace(name, 22);
    auto m1 = Clock::now();
    long mfound = 0;
    for (const auto& name : shuffled) mfound += m.count(name);
    auto m2 = Clock::now();
    for (const auto& name : shuffled) m.erase(name);
    auto m3 = Clock::now();

    if (found != n || mfound != n) {
        std::fprintf(stderr, "lookups found %ld of %d\n", found, n);
        return 1;
    }
    std::printf("%d variables\n", n);
    report("insert", n, seconds(t0, t1), seconds(m0, m1));
    report("lookup", n, seconds(t1, t2), seconds(m1, m2));
    report("delete", n, seconds(t2, t3), seconds(m2, m3));
    return 0;
}
