// Speed of n-dimensional table interpolation: a full 4-D table of 40^4
// points read from a map file, interpolated at a million random positions,
// beside a plain dense-array multi-linear interpolation of the same grid in
// the same run. Prints interpolations per second and the ratio to the plain
// loop (the table's rate divided by the plain rate); the target is 0.25.
//
// usage: ndim_bench [positions]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

#include <unistd.h>

#include "zutil.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kDims = 4, kN = 40;

double seconds(Clock::time_point a, Clock::time_point b)
{
    return std::chrono::duration<double>(b - a).count();
}

// Uneven axes, so neither side can take a shortcut for even spacing.
float axisValue(int d, int i)
{
    return static_cast<float>(i + 0.1 * d * (i % 3));
}

float pointValue(const int *i)
{
    return static_cast<float>(i[0] * 0.5 + i[1] * 1.25 - i[2] * 0.75 + i[3] * 2 + (i[0] * i[3]) % 7);
}

// The plain loop: bisection per axis and the 16 corners of the cell.
struct Dense {
    std::vector<float> axis[kDims];
    std::vector<float> values;

    float at(const float *v) const
    {
        int lo[kDims];
        float x[kDims];
        for (int d = 0; d < kDims; ++d) {
            const std::vector<float> &a = axis[d];
            int l = 0, h = kN - 1;
            while (h - l > 1) {
                int m = (l + h) / 2;
                (v[d] >= a[m] ? l : h) = m;
            }
            lo[d] = l;
            x[d] = (v[d] - a[l]) / (a[l + 1] - a[l]);
        }
        float sum = 0;
        for (int c = 0; c < 16; ++c) {
            float w = 1;
            long key = 0;
            for (int d = 0; d < kDims; ++d) {
                int up = (c >> d) & 1;
                w *= up ? x[d] : 1 - x[d];
                key = key * kN + lo[d] + up;
            }
            sum += w * values[key];
        }
        return sum;
    }
};

std::string writeMap(Dense &dense)
{
    char path[] = "/tmp/ndim-bench-XXXXXX";
    int fd = mkstemp(path);
    if (fd < 0)
        return "";
    close(fd);
    FILE *f = fopen(path, "w");
    fprintf(f, "full\n%d #\n", kDims);
    for (int d = 0; d < kDims; ++d) {
        for (int i = 0; i < kN; ++i) {
            dense.axis[d].push_back(axisValue(d, i));
            fprintf(f, "%.9g ", static_cast<double>(axisValue(d, i)));
        }
        fprintf(f, "#\n");
    }
    int i[kDims];
    for (i[0] = 0; i[0] < kN; ++i[0])
        for (i[1] = 0; i[1] < kN; ++i[1])
            for (i[2] = 0; i[2] < kN; ++i[2])
                for (i[3] = 0; i[3] < kN; ++i[3]) {
                    dense.values.push_back(pointValue(i));
                    fprintf(f, "%.9g\n", static_cast<double>(pointValue(i)));
                }
    fprintf(f, "#\n");
    fclose(f);
    return path;
}

} // namespace

int main(int argc, char **argv)
{
    const int n = argc > 1 ? std::atoi(argv[1]) : 1000000;
    if (n < 1) {
        std::fprintf(stderr, "usage: ndim_bench [positions]\n");
        return 2;
    }
    ZU_init(1);
    Dense dense;
    std::string path = writeMap(dense);
    int h = -1;
    auto t0 = Clock::now();
    int rc = path.empty() ? -1 : ZU_ndimCreate(&h, path.c_str());
    auto t1 = Clock::now();
    unlink(path.c_str());
    if (rc != 0) {
        std::fprintf(stderr, "could not create the table (%d)\n", rc);
        return 1;
    }
    std::printf("read %d^%d-point map file in %.2f s\n", kN, kDims, seconds(t0, t1));

    std::mt19937 gen(42);
    std::vector<float> pos(static_cast<size_t>(n) * kDims);
    for (size_t k = 0; k < pos.size(); ++k) {
        const std::vector<float> &a = dense.axis[k % kDims];
        pos[k] = std::uniform_real_distribution<float>(a.front(), a.back())(gen);
    }

    // Three alternating rounds, the best of each side counts (the machine
    // may be shared).
    double sumTable = 0, sumDense = 0, bestTable = 1e300, bestDense = 1e300;
    int failures = 0;
    for (int round = 0; round < 3; ++round) {
        sumTable = sumDense = 0;
        failures = 0;
        t0 = Clock::now();
        for (int k = 0; k < n; ++k) {
            float v = 0;
            failures += ZU_ndimInterp(h, &pos[static_cast<size_t>(k) * kDims], &v) != 0;
            sumTable += v;
        }
        t1 = Clock::now();
        for (int k = 0; k < n; ++k)
            sumDense += dense.at(&pos[static_cast<size_t>(k) * kDims]);
        auto t2 = Clock::now();
        bestTable = std::min(bestTable, seconds(t0, t1));
        bestDense = std::min(bestDense, seconds(t1, t2));
    }
    const double table = n / bestTable, plain = n / bestDense;
    std::printf("%d interpolations: table %.0f /s   plain %.0f /s   ratio %.2f (target 0.25)\n", n, table,
                plain, table / plain);
    if (failures || std::abs(sumTable - sumDense) > 1e-4 * std::abs(sumDense) + 1) {
        std::fprintf(stderr, "results differ: %d failures, sums %.6g and %.6g\n", failures, sumTable, sumDense);
        return 1;
    }
    ZU_ndimDelete(h);
    return 0;
}
