// The expression calculator on large arrays in an SDF file, against a
// hand-written loop that reads the arrays with the library, computes and
// writes the result, and (when the library is installed, a benchmark-only
// dependency: ZELTRA_BENCH_DEPS=1 scripts/setup.sh) muparser evaluating the
// same expression in its bulk mode over the same arrays. Every contestant
// opens the file for writing, reads a and b, stores its result and closes
// the file, all in the same run; the best of three runs counts. The
// calculator runs on internal channels only, so its contestant also puts a
// and b into a new internal channel and takes the result out of it; the
// phases of its best run are printed, to show where the time goes.
//
// Every contestant's result buffer comes from the library's allocator, as
// the arrays the library reads do: large blocks there get huge pages, and a
// result buffer from plain new would make the others pay a page fault per
// 4 KiB that the calculator doesn't. The expression alone is also set
// against muparser's bulk evaluation alone.
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
#include "zutil.h"

#ifdef ZELTRA_BENCH_MUPARSER
#include <muParser.h>
#endif

namespace {

using zeltra_bench::seconds;
using Clock = std::chrono::steady_clock;

struct Case {
    const char *name;
    const char *calc;     // for Sdf_Calc_Chan
    const char *result;   // the variable calc assigns
    const char *muparser; // the same in muparser's syntax, over a and b
    int inputs;           // 1: a only; 2: a and b
    double (*hand)(double a, double b);
};

const Case kCases[] = {
    {"c = a*b + a/b", "c = a*b + a/b", "c", "a*b + a/b", 2, [](double a, double b) { return a * b + a / b; }},
    {"units: e [km] = a (a in m)", "e [km] = a", "e", "a*0.001", 1, [](double a, double) { return a * 0.001; }},
};

// A result buffer of n doubles from the library's allocator.
struct Buffer {
    double *p;
    explicit Buffer(int64_t n) : p(static_cast<double *>(ZU_allocMemNoZero((size_t)n * sizeof(double), "bench"))) {}
    ~Buffer() { ZU_freeMem(p); }
    Buffer(const Buffer &) = delete;
    Buffer &operator=(const Buffer &) = delete;
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
        Buffer out(n);
        const bool ok = a && (b || c.inputs == 1) && out.p;
        if (ok)
            for (int64_t i = 0; i < n; ++i) out.p[i] = c.hand(a[i], b ? b[i] : 0);
        const bool written = ok && writeAll(ch, "hand", out.p, n, "m");
        Sdf_Free(a);
        if (b) Sdf_Free(b);
        return written;
    });
}

// Seconds of the calculator contestant's phases in one run.
struct Phases {
    double in = 0, calc = 0;
};

double since(Clock::time_point &t)
{
    const auto now = Clock::now();
    const double s = seconds(now - t);
    t = now;
    return s;
}

// Reads array name of the file straight into the buffer that defining it
// on the internal channel allocated: one pass, no copy in between.
bool readInto(int file, int in, const char *name, int64_t n)
{
    int64_t dims[2] = {1, n}, start[8] = {0}, nread = 0;
    void *p = nullptr;
    return check(Sdf_Define_Array64(in, name, SDF_DBLE_T, 0, dims, "m", nullptr), "define") &&
           check(Sdf_Where_Chan(in, name, &p), "where") && p &&
           check(Sdf_Read_Array64(file, name, &p, start, n, &nread), "read") && nread == n;
}

double calcRun(const std::string &path, const Case &c, int64_t n, Phases &ph)
{
    return timed(path, [&](int ch) {
        auto t = Clock::now();
        int in = 0;
        if (!check(Sdf_Open(&in, "", "INTERNAL", "UNKNOWN", "WRITE"), "internal")) return false;
        bool ok = readInto(ch, in, "a", n) && (c.inputs == 1 || readInto(ch, in, "b", n));
        ph.in = since(t);
        ok = ok && check(Sdf_Calc_Chan(in, c.calc), c.calc);
        ph.calc = since(t);
        // On an internal channel the read hands out the array's own buffer.
        void *res = nullptr;
        int64_t start[8] = {0}, nread = 0;
        char *units = nullptr;
        ok = ok && check(Sdf_Read_Array64(in, c.result, &res, start, n, &nread), "result") && nread == n &&
             check(Sdf_Get_Units(in, c.result, &units), "units") &&
             writeAll(ch, c.result, static_cast<double *>(res), n, units);
        Sdf_Free(units);
        Sdf_Close(in, "DELETE");
        return ok;
    });
}

#ifdef ZELTRA_BENCH_MUPARSER
double muparserRun(const std::string &path, const Case &c, int64_t n, double &eval)
{
    return timed(path, [&](int ch) {
        double *a = readAll(ch, "a", n);
        double *b = c.inputs > 1 ? readAll(ch, "b", n) : nullptr;
        Buffer out(n);
        bool ok = a && (b || c.inputs == 1) && out.p;
        if (ok) {
            try {
                auto t = Clock::now();
                mu::Parser p;
                p.DefineVar("a", a);
                if (b) p.DefineVar("b", b);
                p.SetExpr(c.muparser);
                p.Eval(out.p, (int)n);
                eval = since(t);
            } catch (mu::Parser::exception_type &e) {
                std::fprintf(stderr, "calc_bench: muparser: %s\n", e.GetMsg().c_str());
                ok = false;
            }
        }
        ok = ok && writeAll(ch, "mup", out.p, n, "m");
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
        std::vector<double> th, tc, tm, te, tme;
        Phases bestPhases;
        for (int r = 0; r < 3; ++r) {
            th.push_back(handLoop(path, c, n));
            Phases ph;
            tc.push_back(calcRun(path, c, n, ph));
            if (tc.back() >= 0 && tc.back() <= *std::min_element(tc.begin(), tc.end())) bestPhases = ph;
            te.push_back(ph.calc);
#ifdef ZELTRA_BENCH_MUPARSER
            double eval = -1;
            tm.push_back(muparserRun(path, c, n, eval));
            tme.push_back(eval);
#endif
        }
        const double h = best(th), k = best(tc);
        if (h < 0 || k < 0) return 1;
        std::printf("%-28s hand loop %.3f s, Sdf_Calc %.3f s: speed %.2fx the hand loop (target >= 0.5x)\n", c.name,
                    h, k, h / k);
        std::printf("%-28s Sdf_Calc phases: open and file read into the internal channel %.3f s, expression "
                    "%.3f s, result to the file and close %.3f s\n",
                    "", bestPhases.in, bestPhases.calc, k - bestPhases.in - bestPhases.calc);
#ifdef ZELTRA_BENCH_MUPARSER
        const double m = best(tm);
        if (m < 0) return 1;
        const double e = best(te), me = best(tme);
        if (e < 0 || me < 0) return 1;
        std::printf("%-28s muparser  %.3f s: Sdf_Calc speed %.2fx muparser's (target >= 2x)\n", "", m, m / k);
        std::printf("%-28s expression alone: Sdf_Calc_Chan %.3f s, muparser's bulk Eval %.3f s: %.2fx\n", "", e,
                    me, me / e);
#else
        std::printf("%-28s muparser: skipped (libmuparser-dev not installed)\n", "");
#endif
    }
    return 0;
}
