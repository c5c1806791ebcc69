// Arithmetic over whole double arrays in one pass: the same results as the
// operator-by-operator walk (forced here by reading the arrays through
// dble(), which the pass doesn't take), the range check on the way, one
// block of memory for the result, and results that become variables
// without a copy while later items of the same text still use them.
#include <cstring>
#include <string>
#include <vector>

#include "calc_test_support.h"
#include "zutil.h"

using calctest::CalcTest;

namespace {

// More than two chunks of the pass, the last one partial.
constexpr int64_t kN = 5000;

class CalcFused : public CalcTest {
protected:
    void SetUp() override
    {
        CalcTest::SetUp();
        std::vector<double> a(kN), b(kN), k(kN), z(kN), t(kN);
        for (int64_t i = 0; i < kN; ++i) {
            a[i] = 1.0 + (double)(i % 97) * 0.37;
            b[i] = -3.5 + (double)(i % 41) * 0.29;
            k[i] = 0.001 * (double)(i % 13) + 1e-7;
            z[i] = i == 2500 || i == 4100 ? 0.0 : b[i] + 20;
            t[i] = -40.0 + (double)(i % 23) * 3.1;
        }
        define("a", a, "m");
        define("b", b, "m");
        define("k", k, "km");
        define("z", z, "m");
        define("t", t, "degC");
    }
    void define(const char *name, const std::vector<double> &v, const char *units)
    {
        int64_t dims[2] = {1, (int64_t)v.size()}, start[2] = {1, 0};
        ASSERT_EQ(Sdf_Define_Array64(ch, name, SDF_DBLE_T, 0, dims, units, nullptr), 0);
        ASSERT_EQ(Sdf_Write_Array64(ch, name, v.data(), start, (int64_t)v.size()), 0);
    }
    // Bit-for-bit comparison of two variables: elements, type, shape, units.
    void expectSame(const char *x, const char *y, const std::string &what)
    {
        const std::vector<double> vx = values(x), vy = values(y);
        ASSERT_EQ(vx.size(), vy.size()) << what;
        EXPECT_EQ(0, memcmp(vx.data(), vy.data(), vx.size() * sizeof(double))) << what;
        EXPECT_EQ(type(x), type(y)) << what;
        EXPECT_EQ(dims(x), dims(y)) << what;
        EXPECT_EQ(units(x), units(y)) << what;
    }
};

TEST_F(CalcFused, GivesTheWalksResultBitForBit)
{
    struct Row {
        const char *fused, *walk;
    };
    const Row rows[] = {
        {"a*b + a/b", "dble(a)*b + dble(a)/b"},
        {"-(a - k) * 2 + 1/3", "-(dble(a) - dble(k)) * 2 + 1/3"},
        {"(a + k) / (z + 2 [km])", "(dble(a) + dble(k)) / (dble(z) + 2 [km])"},
        {"a * 3000000000 - +b", "dble(a) * 3000000000 - +dble(b)"},
        {"a*b*a*b*a - b/a + (k*k)/(a*a)", "dble(a)*b*dble(a)*b*dble(a) - b/dble(a) + (dble(k)*k)/(dble(a)*a)"},
        {"2.5 - a / 7", "2.5 - dble(a) / 7"},
        {"t * 2 + k/a", "dble(t) * 2 + dble(k)/a"},
        {"k", "dble(k)"},
        {"b", "dble(b)"},
    };
    for (const Row &r : rows) {
        Sdf_Delete(ch, "f");
        Sdf_Delete(ch, "w");
        ASSERT_EQ(calc(std::string("f = ") + r.fused), 0) << r.fused;
        ASSERT_EQ(calc(std::string("w = ") + r.walk), 0) << r.walk;
        ASSERT_EQ(values("f").size(), (size_t)kN) << r.fused;
        expectSame("f", "w", r.fused);
    }
    ASSERT_EQ(calc("f2 [km] = a, w2 [km] = dble(a)"), 0);
    expectSame("f2", "w2", "a name alone into other units");
    // Operands the pass doesn't take (units that don't add up, shapes that
    // differ) get the walk's answer, errors included.
    EXPECT_EQ(calc("a + a*a"), 3108);
    ASSERT_EQ(calc("short = {1.5, 2.5}, a * short"), 0);
    EXPECT_DOUBLE_EQ(values("_$1")[1], values("a")[1] * 2.5);
}

TEST_F(CalcFused, DivisorsOfZeroFollowTheRangeCheck)
{
    EXPECT_EQ(calc("f = a / z"), 3104);
    EXPECT_FALSE(has("f")) << "a failed item creates nothing";
    for (const char *mode : {"Warning", "Ignore"}) {
        Sdf_Set_Opts((std::string("Calc_Range_Check=") + mode + ",Calc_Range_Subst=-7").c_str());
        const int want = mode[0] == 'W' ? 2104 : 0;
        EXPECT_EQ(calc("f = a / z + 1"), want) << mode;
        EXPECT_EQ(calc("w = dble(a) / z + 1"), want) << mode;
        expectSame("f", "w", mode);
        EXPECT_EQ(values("f")[2500], -6) << mode;
        EXPECT_EQ(values("f")[4100], -6) << mode;
    }
}

TEST_F(CalcFused, ArraysSplitAcrossThreadsGiveTheSameResultAndReportZerosInOrder)
{
    // Enough elements for two threads where there are two cores; a zero
    // divisor in the last stretch sends the pass back to one thread.
    const int64_t n = 600000;
    std::vector<double> p(n), q(n);
    for (int64_t i = 0; i < n; ++i) {
        p[i] = 0.5 + (double)(i % 89) * 1.3;
        q[i] = 1.0 + (double)(i % 61) * 0.7;
    }
    define("p", p, "m");
    define("q", q, "m");
    ASSERT_EQ(calc("f = p*q + p/q - q*q"), 0);
    ASSERT_EQ(calc("w = dble(p)*q + dble(p)/q - dble(q)*q"), 0);
    expectSame("f", "w", "no zero divisor");
    // A conversion of many elements, shared out to threads, misses none.
    ASSERT_EQ(calc("g [km] = p"), 0);
    const std::vector<double> g = values("g");
    ASSERT_EQ(g.size(), (size_t)n);
    int64_t wrong = 0;
    for (int64_t i = 0; i < n; ++i) wrong += g[i] != p[i] * (1.0 / 1000) + -0.0;
    EXPECT_EQ(wrong, 0);
    q[n - 10] = 0;
    q[n - 3] = 0;
    define("q", q, "m");
    Sdf_Set_Opts("Calc_Range_Check=Warning,Calc_Range_Subst=5");
    Sdf_Delete(ch, "f");
    Sdf_Delete(ch, "w");
    ASSERT_EQ(calc("f = p*q + p/q - q*q"), 2104);
    ASSERT_EQ(calc("w = dble(p)*q + dble(p)/q - dble(q)*q"), 2104);
    expectSame("f", "w", "two zero divisors");
    EXPECT_EQ(values("f")[n - 3], 5);
}

TEST_F(CalcFused, HoldsOneBlockForTheResult)
{
    const double block = (double)kN * sizeof(double);
    const double before = ZU_memTotal();
    ZU_memPeak(1);
    ASSERT_EQ(calc("c = a*b + a/b - a*z"), 0);
    EXPECT_LT(ZU_memPeak(0) - before, 1.5 * block) << "operators share chunks, not array-sized blocks";
    EXPECT_LT(ZU_memTotal() - before, 1.5 * block) << "the result became the variable's buffer, not a copy";
}

TEST_F(CalcFused, ResultsHandedToTheChannelStayRightWhileLaterItemsChangeThem)
{
    // Each item reads what the one before wrote; the nested assignment's
    // value is still read after it is stored, and _$1, _$2 take theirs last.
    ASSERT_EQ(calc("c = a + b, c = c*2 + a, a = a*b/c + c, x = (d = c - a) + 1, c*3 - d, a*2 - b"), 0);
    const std::vector<double> a1 = values("a"), b = values("b"), c = values("c"), d = values("d"),
                              x = values("x"), r1 = values("_$1"), r2 = values("_$2");
    for (const std::vector<double> *v : {&a1, &c, &d, &x, &r1, &r2}) ASSERT_EQ(v->size(), (size_t)kN);
    for (int64_t i = 0; i < kN; i += 499) {
        const double a0 = 1.0 + (double)(i % 97) * 0.37;
        EXPECT_EQ(c[i], (a0 + b[i]) * 2 + a0) << i;
        EXPECT_EQ(a1[i], a0 * b[i] / c[i] + c[i]) << i;
        EXPECT_EQ(d[i], c[i] - a1[i]) << i;
        EXPECT_EQ(x[i], d[i] + 1) << i;
        EXPECT_EQ(r1[i], c[i] * 3 - d[i]) << i;
        EXPECT_EQ(r2[i], a1[i] * 2 - b[i]) << i;
    }
    // A variable built on a handed-over buffer grows like any other: the
    // elements skipped over read as zeros.
    int64_t start[2] = {1, kN + 3};
    const double more = 42;
    ASSERT_EQ(Sdf_Write_Array64(ch, "c", &more, start, 1), 0);
    const std::vector<double> grown = values("c");
    ASSERT_EQ(grown.size(), (size_t)kN + 4);
    EXPECT_EQ(grown[kN - 1], c[kN - 1]);
    EXPECT_EQ(std::vector<double>(grown.begin() + kN, grown.end()), (std::vector<double>{0, 0, 0, 42}));
}

} // namespace
