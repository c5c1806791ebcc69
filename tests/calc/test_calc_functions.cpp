// The calculator's intrinsic functions through Sdf_Calc_Chan: values against
// the standard library and std::complex computed here, exact results of the
// rounding, conversion, pair and text functions, units, and every refusal.
#include "calc_fn_test_support.h"

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <functional>

#include "zcalc.h"

namespace calcfn {
namespace {

using Cd = std::complex<double>;

void expectNear(Cd got, Cd want, double rel, const std::string &what)
{
    double scale = std::max(1.0, std::abs(want));
    EXPECT_NEAR(got.real(), want.real(), rel * scale) << what;
    EXPECT_NEAR(got.imag(), want.imag(), rel * scale) << what;
}

std::string dimsOf(const char *unit)
{
    char dims[ZU_UNIT_DIMS_SIZE] = "";
    EXPECT_EQ(ZU_unitParse(unit, dims, nullptr, nullptr), 0) << unit;
    return dims;
}

using CalcFunctions = CalcFnTest;

struct RealCase {
    const char *name;
    std::function<double(double)> f;
    std::vector<const char *> args; // all inside the domain
};

// Every floating function on double scalars, on one array of the same
// values, on an integer (giving a double) and in single precision.
TEST_F(CalcFunctions, FloatingFunctionsMatchTheStandardLibrary)
{
    const std::vector<RealCase> cases = {
        {"acos", [](double x) { return std::acos(x); }, {"-1", "-0.3", "0", "0.7", "1"}},
        {"asin", [](double x) { return std::asin(x); }, {"-1", "-0.3", "0.7", "1"}},
        {"atan", [](double x) { return std::atan(x); }, {"-5", "0", "0.5", "1e3"}},
        {"cos", [](double x) { return std::cos(x); }, {"-3", "0", "1.5"}},
        {"cosh", [](double x) { return std::cosh(x); }, {"-2", "0", "3"}},
        {"exp", [](double x) { return std::exp(x); }, {"-1", "0", "2.5"}},
        {"log", [](double x) { return std::log(x); }, {"1e-3", "1", "20"}},
        {"log10", [](double x) { return std::log10(x); }, {"1e-3", "1", "1000"}},
        {"sin", [](double x) { return std::sin(x); }, {"-3", "0", "1.5"}},
        {"sinh", [](double x) { return std::sinh(x); }, {"-2", "0", "3"}},
        {"sqrt", [](double x) { return std::sqrt(x); }, {"0", "2", "1e10"}},
        {"tan", [](double x) { return std::tan(x); }, {"-1", "0", "1.2"}},
        {"tanh", [](double x) { return std::tanh(x); }, {"-2", "0", "0.5"}},
    };
    for (const RealCase &c : cases) {
        std::string list;
        for (const char *a : c.args) {
            double x = std::strtod(a, nullptr);
            std::string expr = std::string(c.name) + "(" + a + ")";
            Result r = eval(expr);
            EXPECT_EQ(r.type, SDF_DBLE_T) << expr;
            ASSERT_EQ(r.values.size(), 1u) << expr;
            expectNear(r.values[0], c.f(x), 1e-15, expr);
            Result single = eval(std::string(c.name) + "((SDF_REAL_T) (" + a + "))");
            EXPECT_EQ(single.type, SDF_REAL_T) << expr;
            expectNear(single.values.at(0), c.f(static_cast<float>(x)), 1e-6, expr + " single");
            list += (list.empty() ? "" : ", ") + std::string(a);
        }
        std::string expr = std::string(c.name) + "({" + list + "})";
        Result arr = eval(expr);
        EXPECT_TRUE(arr.isArray) << expr;
        ASSERT_EQ(arr.values.size(), c.args.size()) << expr;
        for (size_t i = 0; i < c.args.size(); ++i)
            expectNear(arr.values[i], c.f(std::strtod(c.args[i], nullptr)), 1e-15, expr);
        Result fromInt = eval(std::string(c.name) + "(1)");
        EXPECT_EQ(fromInt.type, SDF_DBLE_T) << c.name;
        expectNear(fromInt.values.at(0), c.f(1), 1e-15, std::string(c.name) + "(1)");
    }
}

// Complex arguments follow the formulas: the inverse functions through the
// principal logarithm and square root, the others as std::complex has them.
TEST_F(CalcFunctions, ComplexFunctionsMatchTheirFormulas)
{
    const Cd I(0, 1);
    const std::vector<std::pair<const char *, std::function<Cd(Cd)>>> fns = {
        {"acos", [&](Cd z) { return -I * std::log(z + std::sqrt(z * z - 1.0)); }},
        {"asin", [&](Cd z) { return -I * std::log(I * z + std::sqrt(1.0 - z * z)); }},
        {"atan", [&](Cd z) { return std::log((1.0 + I * z) / (1.0 - I * z)) / (2.0 * I); }},
        {"cos", [](Cd z) { return std::cos(z); }},   {"cosh", [](Cd z) { return std::cosh(z); }},
        {"exp", [](Cd z) { return std::exp(z); }},   {"log", [](Cd z) { return std::log(z); }},
        {"log10", [](Cd z) { return std::log10(z); }}, {"sin", [](Cd z) { return std::sin(z); }},
        {"sinh", [](Cd z) { return std::sinh(z); }}, {"sqrt", [](Cd z) { return std::sqrt(z); }},
        {"tan", [](Cd z) { return std::tan(z); }},   {"tanh", [](Cd z) { return std::tanh(z); }},
    };
    const std::vector<std::pair<const char *, Cd>> points = {
        {"0.5, 0.3", {0.5, 0.3}}, {"-1.2, 0.7", {-1.2, 0.7}}, {"2, -1", {2, -1}}, {"-0.4, -2.5", {-0.4, -2.5}}};
    for (const auto &[name, f] : fns) {
        for (const auto &[text, z] : points) {
            std::string expr = std::string(name) + "(dcmplx(" + text + "))";
            Result r = eval(expr);
            EXPECT_EQ(r.type, SDF_DCMPX_T) << expr;
            expectNear(r.values.at(0), f(z), 1e-13, expr);
        }
        std::string expr = std::string(name) + "({cmplx(0.5, 0.3), cmplx(2, -1)})";
        Result single = eval(expr);
        EXPECT_EQ(single.type, SDF_CMPX_T) << expr;
        ASSERT_EQ(single.values.size(), 2u) << expr;
        expectNear(single.values[0], f({0.5f, 0.3f}), 1e-5, expr);
        expectNear(single.values[1], f({2, -1}), 1e-5, expr);
    }
}

struct Exact {
    const char *expr;
    int type;
    bool isArray;
    std::vector<Cd> values;
};

TEST_F(CalcFunctions, RoundingConversionPairAndTextFunctionsGiveExactResults)
{
    const Exact cases[] = {
        {"abs({-1, 2})", SDF_INT_T, true, {1, 2}},
        {"abs((SDF_REAL_T) (-2.5))", SDF_REAL_T, false, {2.5}},
        {"abs(cmplx(3, 4))", SDF_REAL_T, false, {5}},
        {"abs(dcmplx(-3, 4))", SDF_DBLE_T, false, {5}},
        {"aint({-2.7, 7})", SDF_DBLE_T, true, {-2, 7}},
        {"aint(3000000000.5)", SDF_DBLE_T, false, {3e9}},
        {"anint({2.5, -2.5, 0.49})", SDF_DBLE_T, true, {3, -3, 0}},
        {"anint(-1000000000000000.5)", SDF_DBLE_T, false, {-1000000000000001.0}},
        // x + 0.5 would round to even past 2^52, and to 1 just below 0.5
        {"anint({4503599627370497.0, 0.49999999999999994})", SDF_DBLE_T, true, {4503599627370497.0, 0}},
        {"ceil(-2.5)", SDF_DBLE_T, false, {-2}},
        {"floor(-2.5)", SDF_DBLE_T, false, {-3}},
        {"floor((SDF_REAL_T) 2.5)", SDF_REAL_T, false, {2}},
        {"int({-2.5, 2.9, 2147483647.9, -2147483648.9})", SDF_INT_T, true, {-2, 2, INT32_MAX, INT32_MIN}},
        {"INT(cmplx(3.7, 9))", SDF_INT_T, false, {3}},
        {"nint({2.5, -2.5, 0.4})", SDF_INT_T, true, {3, -3, 0}},
        {"int64(1e12)", SDF_INT64_T, false, {1e12}},
        {"nint64(-1000000000000.5)", SDF_INT64_T, false, {-1000000000001.0}},
        {"dble(cmplx(1, 2))", SDF_DBLE_T, false, {1}},
        {"real(0.1)", SDF_REAL_T, false, {static_cast<double>(0.1f)}},
        {"Real(dcmplx(1, 2))", SDF_REAL_T, false, {1}},
        {"cmplx(3, 4)", SDF_CMPX_T, false, {{3, 4}}},
        {"cmplx(dcmplx(1.5, -2))", SDF_CMPX_T, false, {{1.5, -2}}},
        {"dcmplx(1, {2, 3})", SDF_DCMPX_T, true, {{1, 2}, {1, 3}}},
        {"dim({5, 3}, 3)", SDF_INT_T, true, {2, 0}},
        {"dim(5.5, {1, 6})", SDF_DBLE_T, true, {4.5, 0}},
        {"mod({7, -7, 7}, {0, 3, -3})", SDF_INT_T, true, {7, -1, 1}},
        {"mod({7, 8, 9, 10}, {4, 5})", SDF_INT_T, true, {3, 3, 1, 0}},
        {"mod(-7.5, 2)", SDF_DBLE_T, false, {-1.5}},
        {"sign({3, -3}, {-1, 0})", SDF_INT_T, true, {-3, 3}},
        {"sign(4, -0.5)", SDF_INT_T, false, {-4}},
        {"sign(-2147483647 - 1, -1)", SDF_INT_T, false, {INT32_MIN}},
        {"sign((SDF_REAL_T) (-1.5), 2)", SDF_REAL_T, false, {1.5}},
        {"max(1, 2.5, {3, 0})", SDF_DBLE_T, false, {3}},
        {"min(1, 2.5, {3, 0})", SDF_DBLE_T, false, {0}},
        {"MAX({4, -2})", SDF_INT_T, false, {4}},
        {"atan2(1, -1)", SDF_REAL_T, false, {static_cast<double>(static_cast<float>(std::atan2(1.0, -1.0)))}},
        {"atan2({1, -1}, 2.0)", SDF_DBLE_T, true, {std::atan2(1.0, 2.0), std::atan2(-1.0, 2.0)}},
        {"index('abcabc', 'ca')", SDF_INT_T, false, {3}},
        {"index({'abc', 'xbx', 'q'}, 'b')", SDF_INT_T, true, {2, 2, 0}},
        {"ichar({'A', ''})", SDF_INT_T, true, {65, 0}},
    };
    for (const Exact &c : cases) {
        Result r = eval(c.expr);
        EXPECT_EQ(r.type, c.type) << c.expr;
        EXPECT_EQ(r.isArray, c.isArray) << c.expr;
        EXPECT_EQ(r.values, c.values) << c.expr;
    }
    // 64-bit integers never pass through a double.
    EXPECT_EQ(eval("mod(9223372036854775807, 10)").ints, std::vector<int64_t>{7});
    EXPECT_EQ(eval("max(9223372036854775806, 9223372036854775807)").ints,
              std::vector<int64_t>{INT64_MAX});
    EXPECT_EQ(eval("dim(9223372036854775807, 9223372036854775806)").ints, std::vector<int64_t>{1});
    EXPECT_EQ(eval("mod(-9223372036854775807 - 1, {-1, 0})").ints, (std::vector<int64_t>{0, INT64_MIN}));
    EXPECT_EQ(eval("char(65)").texts, std::vector<std::string>{"A"});
    EXPECT_EQ(eval("char({72, 105})").texts, (std::vector<std::string>{"H", "i"}));
}

TEST_F(CalcFunctions, ResultUnitsFollowEachFunctionsRule)
{
    const struct {
        const char *expr;
        double value;
        const char *units; // a unit text parsed here; null: no units
    } cases[] = {
        {"sqrt(4 [m2])", 2, "m"},
        {"acos(0)", M_PI / 2, "rad"},
        {"atan2(1 [m], 1 [km])", std::atan2(1.0, 1000.0), "rad"},
        {"abs(-2 [km])", 2000, "m"},
        {"sin(90 [deg])", 1, nullptr},
        {"exp(1 [rad])", std::exp(1.0), nullptr},
        {"max(1 [m], 2)", 2, "m"},
        {"min(3, 2 [s], 1 [s])", 1, "s"},
        {"sign(3 [m], -1 [s])", -3, "m"},
        {"mod(7, 2 [m])", 1, "m"},
        {"floor(2.5 [m])", 2, "m"},
        {"int(2.5 [s])", 2, "s"},
        {"real(dcmplx(1, 2) [N])", 1, "N"},
        {"index('a', 'a')", 1, nullptr},
    };
    for (const auto &c : cases) {
        Result r = eval(c.expr);
        expectNear(r.values.at(0), c.value, 1e-15, c.expr);
        EXPECT_EQ(r.units, c.units ? dimsOf(c.units) : std::string()) << c.expr;
    }
}

TEST_F(CalcFunctions, WrongArgumentsAreRefusedWithTheirCodes)
{
    const struct {
        const char *expr;
        int code;
        const char *message; // a part of the message, null: not checked
    } cases[] = {
        {"sin(1, 2)", 3102, "Wrong number of arguments for \"sin\""},
        {"mod(1)", 3102, nullptr},
        {"cmplx(1, 2, 3)", 3102, nullptr},
        {"sin('a')", 3103, "Wrong argument type for \"sin\""},
        {"mod(1, 'a')", 3103, "Wrong argument 2 type for \"mod\""},
        {"max(1, 2, cmplx(1, 1))", 3103, "Wrong argument 3 type"},
        {"floor(cmplx(1, 1))", 3103, nullptr},
        {"atan2(dcmplx(1, 1), 1)", 3103, "argument 1"},
        {"char(1.5)", 3103, nullptr},
        {"ichar(1)", 3103, nullptr},
        {"index('a', 1)", 3103, "argument 2"},
        {"sin(1 [m])", 3105, "Argument 1 of \"sin\" is not non-dimensional"},
        {"sin(50 [percent])", 3105, nullptr},
        {"log({1, 2} [s])", 3105, nullptr},
        {"mod(1 [m], 1 [s])", 3108, "[m] and [s] are incompatible for \"mod\""},
        {"max(1 [m], 2, 2 [s])", 3108, nullptr},
        {"cmplx(1 [m], 2 [s])", 3108, nullptr},
        {"asin(2)", 3104, "Argument out of range for \"asin\""},
        {"acos({0.5, -1.5})", 3104, nullptr},
        {"log(0)", 3104, nullptr},
        {"log10(-1)", 3104, nullptr},
        {"sqrt(-1)", 3104, nullptr},
        {"atan2(0, 0)", 3104, "Arguments out of range for \"atan2\""},
        {"atan(dcmplx(0, 1))", 3104, nullptr},
        {"exp(1000)", 3104, nullptr},
        {"sinh((SDF_REAL_T) 100)", 3104, nullptr},
        {"tan(dcmplx(1, 1000))", 3104, nullptr},
        {"char(300)", 3104, nullptr},
        {"char(-1)", 3104, nullptr},
        {"ichar('AB')", 3104, nullptr},
        {"int(3e9)", 3104, nullptr},
        {"int(4294967296)", 3104, nullptr},
        {"abs(-2147483647 - 1)", 3104, nullptr},
        {"abs(-9223372036854775807 - 1)", 3104, nullptr},
        {"sign(-2147483647 - 1, 0)", 3104, nullptr},
        {"dim(2147483647, -1)", 3104, nullptr},
        {"nint(2147483647.5)", 3104, nullptr},
        {"int64(9223372036854775808.0)", 3104, nullptr},
        {"dim(9223372036854775807, -1)", 3104, nullptr},
        {"real(1e300)", 3104, nullptr},
        {"x = 1, sin(x) = 2", 3110, "\"sin\" is not allowed on the LHS"},
    };
    for (const auto &c : cases) {
        ZU_errClear("*", 0);
        EXPECT_EQ(run(c.expr), c.code) << c.expr;
        if (c.message) {
            std::string message = lastMessage();
            EXPECT_NE(message.find(c.message), std::string::npos) << c.expr << ": " << message;
        }
    }
}

TEST_F(CalcFunctions, RangeCheckOptionDecidesOutOfDomainElements)
{
    ASSERT_EQ(Sdf_Set_Opts("Calc_Range_Check=Warning,Calc_Range_Subst=7"), 0);
    EXPECT_EQ(run("asin({0.5, 2})"), 2104);
    EXPECT_EQ(read("_$1").values, (std::vector<Cd>{std::asin(0.5), 7}));
    EXPECT_NE(lastMessage().find("index=2"), std::string::npos) << lastMessage();
    EXPECT_EQ(run("int({3e9, 2})"), 2104);
    EXPECT_EQ(read("_$1").ints, (std::vector<int64_t>{7, 2}));

    ASSERT_EQ(Sdf_Set_Opts("Calc_Range_Check=Ignore"), 0);
    EXPECT_EQ(run("log(dcmplx(0, 0))"), 0);
    EXPECT_EQ(read("_$1").values, std::vector<Cd>{7});
    EXPECT_EQ(run("sqrt(-4) + log(-1)"), 0);
    EXPECT_EQ(read("_$1").values, std::vector<Cd>{14});
    // char and ichar have no substitute.
    EXPECT_EQ(run("char(256)"), 3104);
    EXPECT_EQ(run("ichar('no')"), 3104);
}

int userCalls = 0;
void userAbs(int *) { ++userCalls; }

TEST_F(CalcFunctions, IntrinsicNamesWinOverUserFunctionsWhateverTheCase)
{
    ASSERT_EQ(Sdf_Calc_Func("abs", userAbs), 0);
    Result r = eval("ABS(-4) + Abs(1)");
    EXPECT_EQ(r.ints, std::vector<int64_t>{5});
    EXPECT_EQ(userCalls, 0);
}

} // namespace
} // namespace calcfn
