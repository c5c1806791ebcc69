// Speed of response surfaces: 100,000 samples in 6 dimensions, 1,000
// queries, beside a plain loop over contiguous arrays that computes the same
// weights and weighted mean in the same run. Prints queries per second and
// the ratio to the plain loop (surface rate divided by plain rate); the
// target is 0.8. Run once with nu = 2 (the squared path) and once with 1.5;
// each side's best of three alternating rounds counts.
//
// usage: resp_bench [samples] [queries]
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "zutil.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kDims = 6;

double seconds(Clock::time_point a, Clock::time_point b)
{
    return std::chrono::duration<double>(b - a).count();
}

double plainQuery(const std::vector<double> &pos, const std::vector<double> &val, const double *g, double alpha,
                  double nu, const double *x)
{
    double sum = 0, total = 0;
    const size_t n = val.size();
    for (size_t i = 0; i < n; ++i) {
        double s = 0;
        for (int k = 0; k < kDims; ++k) {
            double q = (x[k] - pos[i * kDims + k]) / g[k];
            s += q * q;
        }
        double w = nu == 2.0 ? std::exp(-alpha * s) : std::exp(-alpha * std::pow(std::sqrt(s), nu));
        sum += w * val[i];
        total += w;
    }
    return total > 0 ? sum / total : 0;
}

} // namespace

int main(int argc, char **argv)
{
    const int n = argc > 1 ? std::atoi(argv[1]) : 100000;
    const int queries = argc > 2 ? std::atoi(argv[2]) : 1000;
    if (n < 1 || queries < 1) {
        std::fprintf(stderr, "usage: resp_bench [samples] [queries]\n");
        return 2;
    }
    ZU_init(1);
    const double g[kDims] = {1, 2, 0.5, 1, 3, 1}, alpha = 0.5;
    std::mt19937 gen(7);
    std::uniform_real_distribution<double> u(0, 4);
    std::vector<double> pos(static_cast<size_t>(n) * kDims), val(n), at(static_cast<size_t>(queries) * kDims);
    for (double &p : pos)
        p = u(gen);
    for (double &v : val)
        v = u(gen);
    for (double &p : at)
        p = u(gen);

    for (double nu : {2.0, 1.5}) {
        int h = -1;
        if (ZU_respCreate(&h, kDims, 1, g, alpha, nu) != 0)
            return 1;
        for (int i = 0; i < n; ++i)
            ZU_respAddPoint(h, &pos[static_cast<size_t>(i) * kDims], &val[i]);
        // Three alternating rounds, the best of each side: the machine may be
        // shared, and a busy moment should not decide the ratio.
        double sumSurf = 0, sumPlain = 0, bestSurf = 1e300, bestPlain = 1e300;
        for (int round = 0; round < 3; ++round) {
            sumSurf = sumPlain = 0;
            auto t0 = Clock::now();
            for (int q = 0; q < queries; ++q) {
                double out = 0;
                ZU_respSurf(h, &at[static_cast<size_t>(q) * kDims], &out);
                sumSurf += out;
            }
            auto t1 = Clock::now();
            for (int q = 0; q < queries; ++q)
                sumPlain += plainQuery(pos, val, g, alpha, nu, &at[static_cast<size_t>(q) * kDims]);
            auto t2 = Clock::now();
            bestSurf = std::min(bestSurf, seconds(t0, t1));
            bestPlain = std::min(bestPlain, seconds(t1, t2));
        }
        const double surf = queries / bestSurf, plain = queries / bestPlain;
        std::printf("nu %.1f: %d samples, %d queries: surface %.1f /s   plain %.1f /s   ratio %.2f (target 0.8)\n",
                    nu, n, queries, surf, plain, surf / plain);
        if (std::abs(sumSurf - sumPlain) > 1e-9 * std::abs(sumPlain)) {
            std::fprintf(stderr, "results differ: %.12g and %.12g\n", sumSurf, sumPlain);
            return 1;
        }
        ZU_respDelete(h);
    }
    return 0;
}
