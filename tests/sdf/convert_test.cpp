// Conversion between the eight element types: numbers to text by the
// channel's format options (and the fallback for formats that don't print
// the value's type), text to numbers and logicals, the integer and real
// rules at the edges of their ranges, complex parts; the width of a text
// target; and the base routines run through a conversion.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "sdf_array_helpers.h"

namespace {

using sdftest::Bytes;

template <class T>
Bytes B(T v) {
    Bytes b(sizeof v);
    std::memcpy(b.data(), &v, sizeof v);
    return b;
}
template <class T>
Bytes B2(T re, T im) {
    Bytes b = B(re), i = B(im);
    b.insert(b.end(), i.begin(), i.end());
    return b;
}
Bytes S(const std::string& s, size_t elen) {
    Bytes b(s.begin(), s.end());
    b.resize(elen, 0);
    return b;
}
Bytes I(int32_t v) { return B(v); }
Bytes L(int64_t v) { return B(v); }
Bytes F(float v) { return B(v); }
Bytes D(double v) { return B(v); }

std::string fmt(const char* f, double a, double b = 0) {
    char buf[128];
    snprintf(buf, sizeof buf, f, a, b);
    return buf;
}

class SdfConvert : public sdftest::ChannelTest {
protected:
    void SetUp() override {
        ChannelTest::SetUp();
        ch = sdftest::openInternal("conv");
        f = sdf_chan_get(ch);
    }
    Bytes run(int from, const Bytes& in, int to, int to_elen) {
        Bytes out(static_cast<size_t>(to == SDF_CHAR_T ? to_elen : sdf_type_elen(to)), 0xAA);
        const int from_elen = from == SDF_CHAR_T ? static_cast<int>(in.size()) : 0;
        EXPECT_EQ(sdf_convert(from, from_elen, in.data(), to, to_elen, out.data(), 1, f), 0);
        return out;
    }
    int ch = -1;
    fcb* f = nullptr;
};

struct Case {
    const char* what;
    int from;
    Bytes in;
    int to;
    int to_elen;  // CHAR targets
    Bytes out;
};

TEST_F(SdfConvert, NumbersAndLogicalsToTextByTheDefaultFormats) {
    const Case cases[] = {
        {"INT", SDF_INT_T, I(42), SDF_CHAR_T, 12, S("         42", 12)},
        {"INT64", SDF_INT64_T, L(-5), SDF_CHAR_T, 20, S(std::string(18, ' ') + "-5", 20)},
        {"REAL", SDF_REAL_T, F(1.5f), SDF_CHAR_T, 16, S(" 1.5000000e+00", 16)},
        {"DBLE", SDF_DBLE_T, D(0.1), SDF_CHAR_T, 30, S(fmt("%# 24.16e", 0.1), 30)},
        {"CMPX", SDF_CMPX_T, B2(1.0f, -2.0f), SDF_CHAR_T, 40, S(" 1.0000000e+00,-2.0000000e+00", 40)},
        {"DCMPX", SDF_DCMPX_T, B2(0.5, 3.0), SDF_CHAR_T, 60, S(fmt("%# 24.16e,%# 24.16e", 0.5, 3.0), 60)},
        {"LOG true", SDF_LOG_T, I(5), SDF_CHAR_T, 3, S("T", 3)},
        {"LOG false", SDF_LOG_T, I(0), SDF_CHAR_T, 3, S("F", 3)},
        {"cut to the element", SDF_INT_T, I(123456), SDF_CHAR_T, 8, S("     123", 8)},
        {"text to shorter text", SDF_CHAR_T, S("abcde", 5), SDF_CHAR_T, 2, S("ab", 2)},
        {"text to longer text", SDF_CHAR_T, S("abc", 3), SDF_CHAR_T, 5, S("abc", 5)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(run(c.from, c.in, c.to, c.to_elen), c.out);
    }
}

TEST_F(SdfConvert, ChannelFormatsAreCheckedBeforeUse) {
    struct Fmt {
        const char* option;
        int from;
        Bytes in;
        std::string out;
    };
    const Fmt cases[] = {
        {"SDF_INT_format=%05d", SDF_INT_T, I(42), "00042"},
        {"SDF_INT_format=<%ld>", SDF_INT_T, I(-7), "<-7>"},
        {"SDF_INT_format=%s", SDF_INT_T, I(42), "         42"},
        {"SDF_INT_format=%d%d", SDF_INT_T, I(42), "         42"},
        {"SDF_INT_format=%n", SDF_INT_T, I(42), "         42"},
        {"SDF_INT_format=%*d", SDF_INT_T, I(42), "         42"},
        {"SDF_INT_format=%f", SDF_INT_T, I(42), "         42"},
        {"SDF_INT64_format=%d", SDF_INT64_T, L(INT64_C(1) << 40), "1099511627776"},
        {"SDF_REAL_format=%.2f%%", SDF_REAL_T, F(1.5f), "1.50%"},
        {"SDF_CMPX_format=(%g)", SDF_CMPX_T, B2(1.0f, 2.0f), " 1.0000000e+00, 2.0000000e+00"},
        {"SDF_DCMPX_format=%g+%gi", SDF_DCMPX_T, B2(1.0, 2.0), "1+2i"},
        {"SDF_LOG_True_format='%d yes'", SDF_LOG_T, I(1), "%d yes"},
    };
    for (const Fmt& c : cases) {
        SCOPED_TRACE(c.option);
        ASSERT_EQ(Sdf_Push_Chan(ch, -1), 0);
        ASSERT_EQ(Sdf_Set_Opts_Chan(ch, c.option), 0);
        EXPECT_EQ(run(c.from, c.in, SDF_CHAR_T, 40), S(c.out, 40));
        Sdf_Pop_Chan(ch);
    }
}

TEST_F(SdfConvert, TextToNumbersAndLogicals) {
    const Case cases[] = {
        {"an integer among blanks", SDF_CHAR_T, S("  12 ", 5), SDF_INT_T, 0, I(12)},
        {"a real to INT truncates", SDF_CHAR_T, S("3.75", 4), SDF_INT_T, 0, I(3)},
        {"a negative real to INT", SDF_CHAR_T, S("-3.75", 5), SDF_INT_T, 0, I(-3)},
        {"no number", SDF_CHAR_T, S("abc", 3), SDF_DBLE_T, 0, D(0)},
        {"the first item with a number", SDF_CHAR_T, S("abc, 4", 6), SDF_INT_T, 0, I(4)},
        {"an exponent", SDF_CHAR_T, S("1e3", 3), SDF_DBLE_T, 0, D(1000)},
        {"a long integer", SDF_CHAR_T, S("12345678901", 11), SDF_INT64_T, 0, L(INT64_C(12345678901))},
        {"up to the NUL", SDF_CHAR_T, S("25", 8), SDF_REAL_T, 0, F(25)},
        {"two parts", SDF_CHAR_T, S("1.5, -2", 7), SDF_CMPX_T, 0, B2(1.5f, -2.0f)},
        {"one part", SDF_CHAR_T, S("7", 1), SDF_DCMPX_T, 0, B2(7.0, 0.0)},
        {"empty is false", SDF_CHAR_T, S("", 4), SDF_LOG_T, 0, I(0)},
        {"blank is false", SDF_CHAR_T, S("   ", 3), SDF_LOG_T, 0, I(0)},
        {"F", SDF_CHAR_T, S("F", 1), SDF_LOG_T, 0, I(0)},
        {"false in any case", SDF_CHAR_T, S("fAlSe", 5), SDF_LOG_T, 0, I(0)},
        {".FALSE.", SDF_CHAR_T, S(".false.", 7), SDF_LOG_T, 0, I(0)},
        {"F padded by its element", SDF_CHAR_T, S("F   ", 4), SDF_LOG_T, 0, I(0)},
        {"a blank before F", SDF_CHAR_T, S(" F", 2), SDF_LOG_T, 0, I(1)},
        {"zero", SDF_CHAR_T, S("0.0", 3), SDF_LOG_T, 0, I(0)},
        {"a number", SDF_CHAR_T, S("2", 1), SDF_LOG_T, 0, I(1)},
        {"T", SDF_CHAR_T, S("T", 1), SDF_LOG_T, 0, I(1)},
        {"a word", SDF_CHAR_T, S("maybe", 5), SDF_LOG_T, 0, I(1)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(run(c.from, c.in, c.to, c.to_elen), c.out);
    }
}

TEST_F(SdfConvert, NumericRulesAtTheEdges) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const Case cases[] = {
        {"INT64 to INT keeps the low 32 bits", SDF_INT64_T, L(INT64_C(0x100000005)), SDF_INT_T, 0, I(5)},
        {"INT64 -1 to INT", SDF_INT64_T, L(-1), SDF_INT_T, 0, I(-1)},
        {"INT64 2^31 to INT", SDF_INT64_T, L(INT64_C(0x80000000)), SDF_INT_T, 0, I(INT32_MIN)},
        {"INT to INT64 extends the sign", SDF_INT_T, I(-5), SDF_INT64_T, 0, L(-5)},
        {"REAL to INT truncates", SDF_REAL_T, F(2.9f), SDF_INT_T, 0, I(2)},
        {"DBLE to INT truncates towards 0", SDF_DBLE_T, D(-2.9), SDF_INT_T, 0, I(-2)},
        {"DBLE beyond INT is held", SDF_DBLE_T, D(1e20), SDF_INT_T, 0, I(INT32_MAX)},
        {"DBLE beyond INT64 is held", SDF_DBLE_T, D(-1e30), SDF_INT64_T, 0, L(INT64_MIN)},
        {"NaN to INT", SDF_DBLE_T, D(nan), SDF_INT_T, 0, I(0)},
        {"INT to REAL, nearest", SDF_INT_T, I(16777217), SDF_REAL_T, 0, F(16777216.0f)},
        {"INT64 to DBLE, nearest", SDF_INT64_T, L((INT64_C(1) << 53) + 1), SDF_DBLE_T, 0, D(9007199254740992.0)},
        {"DBLE to REAL narrows", SDF_DBLE_T, D(0.1), SDF_REAL_T, 0, F(0.1f)},
        {"DBLE beyond REAL", SDF_DBLE_T, D(-1e300), SDF_REAL_T, 0, F(-inf)},
        {"REAL to DBLE widens", SDF_REAL_T, F(0.1f), SDF_DBLE_T, 0, D(static_cast<double>(0.1f))},
        {"0 to LOG", SDF_INT_T, I(0), SDF_LOG_T, 0, I(0)},
        {"INT64 to LOG", SDF_INT64_T, L(INT64_C(1) << 40), SDF_LOG_T, 0, I(1)},
        {"a fraction to LOG", SDF_DBLE_T, D(0.5), SDF_LOG_T, 0, I(1)},
        {"NaN to LOG is true", SDF_DBLE_T, D(nan), SDF_LOG_T, 0, I(1)},
        {"complex to LOG tests the real part", SDF_CMPX_T, B2(0.0f, 1.0f), SDF_LOG_T, 0, I(0)},
        {"LOG to DBLE", SDF_LOG_T, I(7), SDF_DBLE_T, 0, D(1)},
        {"LOG to CMPX", SDF_LOG_T, I(-3), SDF_CMPX_T, 0, B2(1.0f, 0.0f)},
        {"LOG to LOG is a copy", SDF_LOG_T, I(7), SDF_LOG_T, 0, I(7)},
        {"DBLE to CMPX", SDF_DBLE_T, D(2.5), SDF_CMPX_T, 0, B2(2.5f, 0.0f)},
        {"INT to DCMPX", SDF_INT_T, I(3), SDF_DCMPX_T, 0, B2(3.0, 0.0)},
        {"CMPX to REAL", SDF_CMPX_T, B2(1.5f, -2.0f), SDF_REAL_T, 0, F(1.5f)},
        {"DCMPX to INT", SDF_DCMPX_T, B2(-2.7, 9.0), SDF_INT_T, 0, I(-2)},
        {"CMPX to DCMPX", SDF_CMPX_T, B2(0.5f, -0.25f), SDF_DCMPX_T, 0, B2(0.5, -0.25)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(run(c.from, c.in, c.to, c.to_elen), c.out);
    }
    Bytes out(4);
    EXPECT_EQ(sdf_convert(13, 4, out.data(), SDF_INT_T, 4, out.data(), 1, f), 3020);
}

TEST_F(SdfConvert, WidthOfATextTarget) {
    struct Width {
        const char* option;  // null: defaults
        int from;
        int width;
    };
    const Width cases[] = {
        {nullptr, SDF_INT_T, 11},   {nullptr, SDF_INT64_T, 20}, {nullptr, SDF_REAL_T, 14},
        {nullptr, SDF_DBLE_T, 24},  {nullptr, SDF_CMPX_T, 29},  {nullptr, SDF_LOG_T, 1},
        {"SDF_LOG_False_format=false", SDF_LOG_T, 5}, {"SDF_INT_format=%3d", SDF_INT_T, 11},
        {"SDF_REAL_format=%.1f", SDF_REAL_T, 42},
    };
    for (const Width& c : cases) {
        SCOPED_TRACE(c.from);
        ASSERT_EQ(Sdf_Push_Chan(ch, -1), 0);
        if (c.option) {
            ASSERT_EQ(Sdf_Set_Opts_Chan(ch, c.option), 0);
        }
        EXPECT_EQ(sdf_convert_width(f, c.from, SDF_CHAR_T), c.width);
        Sdf_Pop_Chan(ch);
    }
    EXPECT_EQ(sdf_convert_width(f, SDF_CHAR_T, SDF_DCMPX_T), 16);
}

TEST_F(SdfConvert, BaseRoutinesThroughAConversion) {
    const double v[5] = {1.5, -2.5, 3.9, 0, 1e10};
    ASSERT_EQ(sdftest::defineFilled(ch, "d", SDF_DBLE_T, {5}, v), 0);
    ventry* row = sdftest::rowOf(ch, "d");

    void* out = nullptr;
    int64_t got = 0;
    ASSERT_EQ(sdf_array_read_as(f, row, nullptr, 0, SDF_INT_T, 0, &out, &got), 0);
    ASSERT_EQ(got, 5);
    EXPECT_EQ(std::vector<int32_t>(static_cast<int32_t*>(out), static_cast<int32_t*>(out) + 5),
              (std::vector<int32_t>{1, -2, 3, 0, INT32_MAX}));
    EXPECT_EQ(Sdf_Free(out), 1);

    out = nullptr;
    int64_t start[2] = {1, 1};
    ASSERT_EQ(sdf_array_read_as(f, row, start, 2, SDF_CHAR_T, 0, &out, &got), 0);
    ASSERT_EQ(got, 2);
    EXPECT_EQ(std::string(static_cast<char*>(out) + 24, 24), fmt("%# 24.16e", 3.9)) << "24 wide, as the format";
    EXPECT_EQ(start[1], 3);
    EXPECT_EQ(Sdf_Free(out), 1);

    const int32_t in[2] = {-7, 8};
    int64_t at[2] = {1, 3};
    ASSERT_EQ(sdf_array_write_from(f, row, at, 2, SDF_INT_T, 0, in), 0);
    sdf_slice sl;
    const int64_t b[2] = {1, 4}, e[2] = {1, 0}, s[2] = {1, 2};
    ASSERT_EQ(sdf_slice_args(f, row, b, e, s, nullptr, &sl), 0);
    float three[3];
    out = three;
    int64_t d[8] = {0};
    ASSERT_EQ(sdf_slice_read_as(f, row, &sl, SDF_REAL_T, 0, &out, d), 0);
    EXPECT_EQ((std::vector<float>(three, three + 3)), (std::vector<float>{8, 3.9f, 1.5f}));
    EXPECT_EQ(d[1], 3);

    const char texts[] = "9    2.25 x    ";
    ASSERT_EQ(sdf_slice_write_from(f, row, &sl, SDF_CHAR_T, 5, texts), 0);
    const double* now = static_cast<const double*>(f->file->blks->rows[row->record->value.i[2]].data);
    EXPECT_EQ((std::vector<double>(now, now + 5)), (std::vector<double>{0, -2.5, 2.25, -7, 9}));
    EXPECT_EQ(sdf_array_read_as(f, row, nullptr, 0, 13, 0, &out, &got), 3020);
}

}  // namespace
