// The expression calculator on large arrays in an SDF file, against a
// hand-written loop that reads the arrays with the library, computes and
// writes the result, and (when the library is installed, a benchmark-only
// dependency: ZELTRA_BENCH_DEPS=1 scripts/setup.sh) muparser evaluating the
// same expression in its bulk mode over the same arrays. Every contestant
// opens the file for writing, reads a and b, stores its result and closes
// the file, all in the same run; the best of three runs counts.
//
// Usage: calc_bench [elements]   (default 10,000,000)
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <unistd.h>
#include <string>
#include <vector>

#include "bench_util.h"
#include "sdf.h"

#ifdef ZELTRA_BENCH_MUPARSER
#include <muParser.h>
#endif

namespace {

using zeltra_bench::seconds;
using Clock = std::chrono::steady_clock;

struct Case {
    const char *name;
    const char *calc;     // for Sdf_Calc_Chan
    const char *muparser; // the same in muparser's syntax, over a and b
    int inputs;           // 1: a only; 2: a and b
    double (*hand)(double a, double b);
};

const Case kCases[] = {
    {"c = a*b + a/b", "c = a*b + a/b", "a*b + a/b", 2, [](double a, double b) { return a * b + a / b; }},
    {"units: e [km] = a (a in m)", "e [km] = a", "a*0.001", 1, [](double a, double) { return a * 0.001; }},
};

bool check(int rc, const char *what)
{
    if (rc >= 3000) std::fprintf(stderr, "calc_bench: %s failed with code %d\n", what, rc);
    return rc < 3000;
}

// Reads one whole array of doubles; the library allocates it.
double *readAll(int ch, const char *name, int64_t n)
{
    void *data = nullptr;
    int64_t start[8] = {0}, nread = 0;
    if (!check(Sdf_Read_Array64(ch, name, &data, start, n, &nread), "read")) return nullptr;
    return static_cast<double *>(data);
}

bool writeAll(int ch, const char *name, const double *data, int64_t n, const char *units)
{
    int64_t dims[2] = {1, n}, start[2] = {1, 0};
    return check(Sdf_Define_Array64(ch, name, SDF_DBLE_T, 0, dims, units, nullptr), "define") &&
           check(Sdf_Write_Array64(ch, name, data, start, n), "write");
}

// One contestant's run: open, body, close.
template <class F>
double timed(const std::string &path, F &&body)
{
    const auto t0 = Clock::now();
    int ch = 0;
    if (!check(Sdf_Open(&ch, path.c_str(), "BINARY", "OLD", "WRITE"), "open")) return -1;
    const bool ok = body(ch);
    if (!check(Sdf_Close(ch, "KEEP"), "close") || !ok) return -1;
    return seconds(Clock::now() - t0);
}

double handLoop(const std::string &path, const Case &c, int64_t n)
{
    return timed(path, [&](int ch) {
        double *a = readAll(ch, "a", n);
        double *b = c.inputs > 1 ? readAll(ch, "b", n) : nullptr;
        std::vector<double> out((size_t)n);
        for (int64_t i = 0; i < n; ++i) out[(size_t)i] = c.hand(a[i], b ? b[i] : 0);
        const bool ok = a && (b || c.inputs == 1) && writeAll(ch, "hand", out.data(), n, "m");
        Sdf_Free(a);
        if (b) Sdf_Free(b);
        return ok;
    });
}

double calcRun(const std::string &path, const Case &c)
{
    return timed(path, [&](int ch) { return check(Sdf_Calc_Chan(ch, c.calc), c.calc); });
}

#ifdef ZELTRA_BENCH_MUPARSER
double muparserRun(const std::string &path, const Case &c, int64_t n)
{
    return timed(path, [&](int ch) {
        double *a = readAll(ch, "a", n);
        double *b = c.inputs > 1 ? readAll(ch, "b", n) : nullptr;
        std::vector<double> out((size_t)n);
        bool ok = a && (b || c.inputs == 1);
        if (ok) {
            try {
                mu::Parser p;
                p.DefineVar("a", a);
                if (b) p.DefineVar("b", b);
                p.SetExpr(c.muparser);
                p.Eval(out.data(), (int)n);
            } catch (mu::Parser::exception_type &e) {
                std::fprintf(stderr, "calc_bench: muparser: %s\n", e.GetMsg().c_str());
                ok = false;
            }
        }
        ok = ok && writeAll(ch, "mup", out.data(), n, "m");
        Sdf_Free(a);
        if (b) Sdf_Free(b);
        return ok;
    });
}
#endif

double best(std::vector<double> t)
{
    for (double v : t)
        if (v < 0) return -1;
    return *std::min_element(t.begin(), t.end());
}

} // namespace

int main(int argc, char **argv)
{
    const int64_t n = argc > 1 ? std::atoll(argv[1]) : 10000000;
    if (n < 1) {
        std::fprintf(stderr, "usage: calc_bench [elements]\n");
        return 2;
    }
    zeltra_bench::ScratchFolder dir{std::filesystem::temp_directory_path() /
                                    ("zeltra_calc_bench_" + std::to_string(::getpid()))};
    std::filesystem::create_directories(dir.path);
    const std::string path = (dir.path / "bench.sdf").string();
    {
        int ch = 0;
        if (!check(Sdf_Open(&ch, path.c_str(), "BINARY", "NEW", "WRITE"), "create")) return 1;
        std::vector<double> a((size_t)n), b((size_t)n);
        for (int64_t i = 0; i < n; ++i) {
            a[(size_t)i] = 1.0 + (double)(i % 1000) * 0.5;
            b[(size_t)i] = 2.0 + (double)(i % 777) * 0.25;
        }
        if (!writeAll(ch, "a", a.data(), n, "m") || !writeAll(ch, "b", b.data(), n, "m") ||
            !check(Sdf_Close(ch, "KEEP"), "close"))
            return 1;
    }
    std::printf("calc_bench: %lld doubles per array, best of 3 runs, file %s\n", (long long)n, path.c_str());
    for (const Case &c : kCases) {
        std::vector<double> th, tc, tm;
        for (int r = 0; r < 3; ++r) {
            th.push_back(handLoop(path, c, n));
            tc.push_back(calcRun(path, c));
#ifdef ZELTRA_BENCH_MUPARSER
            tm.push_back(muparserRun(path, c, n));
#endif
        }
        const double h = best(th), k = best(tc);
        if (h < 0 || k < 0) return 1;
        std::printf("%-28s hand loop %.3f s, Sdf_Calc %.3f s: speed %.2fx the hand loop (target >= 0.5x)\n", c.name,
                    h, k, h / k);
#ifdef ZELTRA_BENCH_MUPARSER
        const double m = best(tm);
        if (m < 0) return 1;
        std::printf("%-28s muparser  %.3f s: Sdf_Calc speed %.2fx muparser's (target >= 2x)\n", "", m, m / k);
#else
        std::printf("%-28s muparser: skipped (libmuparser-dev not installed)\n", "");
#endif
    }
    return 0;
}
