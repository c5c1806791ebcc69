// The integer and rounding kernels of the calculator functions at the edges
// of the integer types, where a wrong bound wraps or traps silently.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>

#include "calc_fn_math.h"

namespace {

using namespace calc_fn;

TEST(CalcFnKernels, ConversionsToIntegersStopExactlyAtTheTypesBounds)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const struct {
        double x;
        int bits;
        bool round;
        bool ok;
        int64_t want;
    } cases[] = {
        {2147483647.9, 32, false, true, INT32_MAX},
        {2147483647.5, 32, true, false, 0},
        {-2147483648.9, 32, false, true, INT32_MIN},
        {-2147483648.5, 32, true, false, 0},
        {2147483648.0, 32, false, false, 0},
        {-9223372036854775808.0, 64, false, true, INT64_MIN},
        {9223372036854775808.0, 64, false, false, 0},
        {-2.5, 64, true, true, -3},
        {nan, 32, false, false, 0},
        {INFINITY, 64, true, false, 0},
    };
    for (const auto &c : cases) {
        int64_t v = 0;
        bool ok = c.round ? real_to_nint(c.x, c.bits, &v) : real_to_int(c.x, c.bits, &v);
        EXPECT_EQ(ok, c.ok) << c.x << " bits " << c.bits;
        if (ok) {
            EXPECT_EQ(v, c.want) << c.x;
        }
    }
}

TEST(CalcFnKernels, IntegerPairsReportWhatTheTypeCannotHold)
{
    int64_t v = 0;
    EXPECT_FALSE(int_abs(INT64_MIN, 64, &v));
    EXPECT_FALSE(int_abs(INT32_MIN, 32, &v));
    ASSERT_TRUE(int_abs(INT32_MIN, 64, &v));
    EXPECT_EQ(v, -static_cast<int64_t>(INT32_MIN));
    ASSERT_TRUE(int_sign(INT32_MIN, -1, 32, &v)); // stays negative: fits
    EXPECT_EQ(v, INT32_MIN);
    EXPECT_FALSE(int_sign(INT32_MIN, 0, 32, &v));
    ASSERT_TRUE(int_sign(INT64_MIN, -5, 64, &v));
    EXPECT_EQ(v, INT64_MIN);
    EXPECT_FALSE(int_dim(INT32_MAX, -1, 32, &v));
    EXPECT_FALSE(int_dim(INT64_MAX, INT64_MIN, 64, &v));
    ASSERT_TRUE(int_dim(-1, INT32_MIN, 32, &v));
    EXPECT_EQ(v, INT32_MAX);
    EXPECT_EQ(int_mod(INT64_MIN, -1), 0);
    EXPECT_EQ(int_mod(INT64_MIN, 0), INT64_MIN);
    EXPECT_EQ(int_mod(INT64_MAX, INT64_MIN), INT64_MAX);
}

TEST(CalcFnKernels, WholeFloatsAreExactBeyondThirtyTwoBits)
{
    double r = 0;
    const struct {
        RealKernel k;
        double x, want;
    } cases[] = {
        {real_aint, 4503599627370497.0, 4503599627370497.0}, // 2^52 + 1: already whole
        {real_anint, 4503599627370497.0, 4503599627370497.0}, // x + 0.5 would round to even
        {real_anint, 0.49999999999999994, 0.0},               // x + 0.5 would give 1
        {real_aint, -1e300, -1e300},
    };
    for (const auto &c : cases) {
        ASSERT_TRUE(c.k(c.x, &r));
        EXPECT_EQ(r, c.want) << c.x;
    }
}

} // namespace
