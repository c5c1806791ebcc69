// Evaluation against a channel: type promotion over the eight types,
// broadcasting, subscripts on both sides, units, the range check, options
// for unknown names, table assignment, user functions, and what stays in a
// file when an item fails.
#include <unistd.h>

#include <string>

#include "calc_test_support.h"
#include "zcalc.h"

using calctest::CalcTest;

namespace {

// One variable of each of the eight types: c t i l r d x z.
void defineAll(int ch)
{
    const int32_t i = 3, t = 1;
    const int64_t l = 4;
    const float r = 2.5f, x[2] = {1.5f, 2};
    const double d = 0.25, z[2] = {2, -1};
    ASSERT_EQ(Sdf_Write_Char(ch, "c", "abc", nullptr), 0);
    ASSERT_EQ(Sdf_Write_Var(ch, "t", SDF_LOG_T, &t, nullptr, nullptr), 0);
    ASSERT_EQ(Sdf_Write_Var(ch, "i", SDF_INT_T, &i, nullptr, nullptr), 0);
    ASSERT_EQ(Sdf_Write_Var(ch, "l", SDF_INT64_T, &l, nullptr, nullptr), 0);
    ASSERT_EQ(Sdf_Write_Var(ch, "r", SDF_REAL_T, &r, nullptr, nullptr), 0);
    ASSERT_EQ(Sdf_Write_Var(ch, "d", SDF_DBLE_T, &d, nullptr, nullptr), 0);
    ASSERT_EQ(Sdf_Write_Var(ch, "x", SDF_CMPX_T, x, nullptr, nullptr), 0);
    ASSERT_EQ(Sdf_Write_Var(ch, "z", SDF_DCMPX_T, z, nullptr, nullptr), 0);
}

TEST_F(CalcTest, PromotionFollowsTheTypeRank)
{
    defineAll(ch);
    const char *names = "tilrdxz";
    const int types[] = {SDF_INT_T, SDF_INT_T, SDF_INT64_T, SDF_REAL_T, SDF_DBLE_T, SDF_CMPX_T, SDF_DCMPX_T};
    for (int a = 0; a < 7; ++a)
        for (int b = 0; b < 7; ++b) {
            const std::string e = std::string(1, names[a]) + " * " + names[b] + ", " + names[a] + " / " + names[b];
            ASSERT_EQ(calc(e), 0) << e;
            const int want = types[a > b ? a : b];
            EXPECT_EQ(type("_$1"), want) << e;
            EXPECT_EQ(type("_$2"), want < SDF_REAL_T || want == SDF_INT64_T ? SDF_REAL_T : want) << e;
        }
    ASSERT_EQ(calc("i * r + l, z * z, x + 1"), 0);
    EXPECT_DOUBLE_EQ(value("_$1"), 11.5);
    EXPECT_DOUBLE_EQ(value("_$2"), 3) << "(2-i)^2 = 3-4i";
    EXPECT_DOUBLE_EQ(value("_$3"), 2.5);
    for (const char *e : {"c + 1", "-c", "c < 1", "c // 1"}) EXPECT_EQ(calc(e), 3103) << e;
    ASSERT_EQ(calc("c // 'd', c < 'abd', c == 'abc'"), 0);
    EXPECT_EQ(text("_$1"), "abcd");
    EXPECT_EQ(value("_$2"), 1);
    EXPECT_EQ(value("_$3"), 1);
}

TEST_F(CalcTest, ArraysBroadcastWithWrapAround)
{
    ASSERT_EQ(calc("{1,2,3} + {10,20}, {{1,2},{3,4}}, {1, 2.5}, 2 * {1,2,3}, -{1,2}"), 0);
    EXPECT_EQ(values("_$1"), (std::vector<double>{11, 22, 13}));
    EXPECT_EQ(dims("_$2"), (std::vector<int64_t>{2, 2, 2}));
    EXPECT_EQ(values("_$2"), (std::vector<double>{1, 2, 3, 4}));
    EXPECT_EQ(type("_$3"), SDF_DBLE_T + 100);
    EXPECT_EQ(values("_$4"), (std::vector<double>{2, 4, 6}));
    EXPECT_EQ(values("_$5"), (std::vector<double>{-1, -2}));
    ASSERT_EQ(calc("a = {1,2,3}, a * a + a / {1,2,4}"), 0);
    EXPECT_EQ(values("_$1"), (std::vector<double>{2, 5, 9.75}));
    ASSERT_EQ(calc("{'x','yy'} // '!', {1,2} == {1,2}, {1,2} != {1,3}, {1,2} < {2,3}, {1,5} < {2,3}"), 0);
    EXPECT_EQ(type("_$1"), SDF_CHAR_T + 100);
    EXPECT_EQ(value("_$2"), 1);
    EXPECT_EQ(value("_$3"), 1);
    EXPECT_EQ(value("_$4"), 1);
    EXPECT_EQ(value("_$5"), 0) << "an ordering holds only when it holds for every pair";
}

TEST_F(CalcTest, ANameReadTwiceSeesTheChannelEachTime)
{
    ASSERT_EQ(calc("v = {1,2,3}"), 0);
    ASSERT_EQ(calc("-v + v, v * v, v [km] + 0 [m]"), 0);
    EXPECT_EQ(values("_$1"), (std::vector<double>{0, 0, 0})) << "a changed copy never reaches a later read";
    EXPECT_EQ(values("_$2"), (std::vector<double>{1, 4, 9}));
    EXPECT_EQ(values("_$3"), (std::vector<double>{1000, 2000, 3000}));
    ASSERT_EQ(calc("v + 0, v = {5,5,5}, v + 0"), 0);
    EXPECT_EQ(values("_$1"), (std::vector<double>{1, 2, 3}));
    EXPECT_EQ(values("_$2"), (std::vector<double>{5, 5, 5})) << "a read after an assignment";
}

TEST_F(CalcTest, SubscriptsReadAndWriteElements)
{
    ASSERT_EQ(calc("m = {{1,2},{3,4}}, v = {1,2,3,4}, v(3) = 30, m(2,1) + m(1,2), v(3)"), 0);
    EXPECT_EQ(value("_$1"), 5);
    EXPECT_EQ(value("_$2"), 30);
    EXPECT_EQ(values("v"), (std::vector<double>{1, 2, 30, 4}));
    ASSERT_EQ(calc("v(2..3), m(1..2, 2), v(1..2) = {7, 8}, v(3..4) = 0"), 0);
    EXPECT_EQ(values("_$1"), (std::vector<double>{2, 30}));
    EXPECT_EQ(values("_$2"), (std::vector<double>{3, 4}));
    EXPECT_EQ(values("v"), (std::vector<double>{7, 8, 0, 0}));
    EXPECT_EQ(calc("v(1..3) = {1, 2}"), 3114);
    EXPECT_EQ(calc("v(3..2)"), 3111);
    EXPECT_EQ(calc("v(3..5)"), 3111);
    ASSERT_EQ(calc("_$INDEX = {2, 1, 2}, m = 9, m(1,2), _$INDEX = {1, 4}, v = 5"), 0);
    EXPECT_EQ(value("_$1"), 9) << "a scalar into a plain array name goes where _$INDEX points";
    EXPECT_EQ(values("v"), (std::vector<double>{7, 8, 0, 5}));
    ASSERT_EQ(Sdf_Delete(ch, "_$INDEX"), 0);
    ASSERT_EQ(calc("v = {1,2,30,4}"), 0);
    ASSERT_EQ(calc("g(2,3) = {1,2,3,4,5,6}"), 0);
    EXPECT_EQ(dims("g"), (std::vector<int64_t>{2, 2, 3}));
    Sdf_Set_Opts("Overwrite=No");
    ASSERT_EQ(calc("v(2) = {7, 8}, v = 9.9"), 0);
    EXPECT_EQ(values("v"), (std::vector<double>{9, 7, 8, 4})) << "kept type and shape";
    const struct {
        const char *expr;
        int code;
    } bad[] = {{"v(5)", 3111}, {"v(0)", 3111}, {"v(1,1)", 3022}, {"v(1.5)", 3103}, {"w(1) = 2", 3012},
               {"v() = 1", 3111}, {"s = 1, s = {1,2}", 3115}, {"(SDF_REAL_T) v = 1", 3112},
               {"v [m] = 1", 3113}, {"v(1) = 'a'", 3103}};
    for (const auto &c : bad) EXPECT_EQ(calc(c.expr), c.code) << c.expr;
}

TEST_F(CalcTest, UnitsConvertToBaseAndMustAgree)
{
    ASSERT_EQ(calc("5 [km] + 1 [m], 1 [m] + 1, 2 [m] * 3 [s], 6 [m] / 2 [m], x [km] = 3 [m]"), 0);
    EXPECT_DOUBLE_EQ(value("_$1"), 5001);
    EXPECT_EQ(units("_$1"), "m");
    EXPECT_EQ(value("_$2"), 2);
    EXPECT_EQ(units("_$2"), "m");
    char dims[ZU_UNIT_DIMS_SIZE];
    ASSERT_EQ(ZU_unitParse("m.s", dims, nullptr, nullptr), 0);
    EXPECT_EQ(units("_$3"), dims);
    EXPECT_EQ(units("_$4"), "");
    EXPECT_FLOAT_EQ(value("x"), 0.003f);
    EXPECT_EQ(type("x"), SDF_REAL_T);
    EXPECT_EQ(units("x"), "km");
    ASSERT_EQ(calc("x + 0"), 0);
    EXPECT_DOUBLE_EQ(value("_$1"), 3) << "a stored unit is read into base units";
    const struct {
        const char *expr;
        int code;
    } bad[] = {{"1 [m] + 1 [s]", 3108}, {"1 [m] [s]", 3106}, {"50 [percent] + 1 [m]", 3108},
               {"1 [nosuchunit]", 3107}, {"2 ^ 1 [m]", 3105}, {"1 [m] < 1 [s]", 3108},
               {"{1 [m], 1 [s]}", 3108}, {"'a' [m]", 3103}};
    for (const auto &c : bad) EXPECT_EQ(calc(c.expr), c.code) << c.expr;
}

TEST_F(CalcTest, RangeCheckErrorWarningIgnore)
{
    EXPECT_EQ(calc("1/0"), 3104);
    EXPECT_EQ(calc("5 % 0"), 3104);
    EXPECT_EQ(calc("0 ** -1"), 3104);
    EXPECT_EQ(calc("(-8.0) ** 0.5"), 3104);
    Sdf_Set_Opts("Calc_Range_Check=Warning");
    EXPECT_EQ(calc("1/0"), 2104);
    EXPECT_EQ(value("_$1"), 1);
    Sdf_Set_Opts("Calc_Range_Check=Ignore,Calc_Range_Subst=7");
    EXPECT_EQ(calc("{4, 5} / {2, 0}"), 0);
    EXPECT_EQ(values("_$1"), (std::vector<double>{2, 7}));
}

TEST_F(CalcTest, UnknownNamesFollowTheOptions)
{
    EXPECT_EQ(calc("foo"), 3010);
    Sdf_Set_Opts("Calc_BadVar_is_Char=Yes");
    ASSERT_EQ(calc("foo"), 0);
    EXPECT_EQ(text("_$1"), "foo");
    EXPECT_EQ(calc("foo(1)"), 3102);
    Sdf_Set_Opts("Calc_BadVar_is_Char=No,Calc_Default_1_Prefix=p_");
    ASSERT_EQ(calc("p_x + 1"), 0);
    EXPECT_EQ(value("_$1"), 2);
    EXPECT_EQ(value("p_x"), 1);
}

TEST_F(CalcTest, TableAssignmentFillsRowsAndCountsThem)
{
    ASSERT_EQ(calc("n = 1, c1 = {0,0,0}, c2 = {0,0,0}"), 0);
    ASSERT_EQ(calc("{% n, c1, c2 %} = {% 1, 2, 3, 4 %}"), 0);
    EXPECT_EQ(values("c1"), (std::vector<double>{1, 3, 0}));
    EXPECT_EQ(values("c2"), (std::vector<double>{2, 4, 0}));
    EXPECT_EQ(value("n"), 3);
    ASSERT_EQ(calc("{% n, c1, c2 %} = {% 5, 6 %}"), 0);
    EXPECT_EQ(values("c1"), (std::vector<double>{1, 3, 5}));
    const struct {
        const char *expr;
        int code;
    } bad[] = {{"{% n %} = {% 1 %}", 3102}, {"{% n, q %} = {% 1 %}", 3131}, {"{% n, c1 %} = 1", 3103},
               {"{% n, c1 %} = {% {1,2} %}", 3135}, {"{% n, c1 [m] %} = {% 1 %}", 3133},
               {"{% 1, 2 %}", 3132}, {"m2 = {{1}}, {% n, m2 %} = {% 1 %}", 3134}};
    for (const auto &c : bad) EXPECT_EQ(calc(c.expr), c.code) << c.expr;
}

void twice(int *ch)
{
    double v = 0;
    Sdf_Get_Val(*ch, "_$ARG1", &v);
    v *= 2;
    Sdf_Write_Var(*ch, "_$RES", SDF_DBLE_T, &v, "m", nullptr);
}
void fails(int *ch)
{
    const int32_t e = 5;
    Sdf_Write_Var(*ch, "_$ERR", SDF_INT_T, &e, nullptr, nullptr);
}
void silent(int *) {}
void badError(int *ch)
{
    const double e = 1;
    Sdf_Write_Var(*ch, "_$ERR", SDF_DBLE_T, &e, nullptr, nullptr);
}

TEST_F(CalcTest, UserFunctionsTakeArgumentsAndGiveResults)
{
    ASSERT_EQ(Sdf_Calc_Func("Twice", twice), 0);
    EXPECT_EQ(Sdf_Calc_Func("twice", twice), 0) << "the same pair again";
    EXPECT_EQ(Sdf_Calc_Func("TWICE", silent), 3122);
    EXPECT_EQ(Sdf_Calc_Func("9lives", silent), 3121);
    EXPECT_EQ(Sdf_Calc_Func(std::string(64, 'a').c_str(), silent), 3121);
    ASSERT_EQ(Sdf_Calc_Func("ufails", fails), 0);
    ASSERT_EQ(Sdf_Calc_Func("usilent", silent), 0);
    ASSERT_EQ(Sdf_Calc_Func("ubaderr", badError), 0);
    ASSERT_EQ(calc("twice(21.0) + 1 [m]"), 0);
    EXPECT_EQ(value("_$1"), 43);
    EXPECT_EQ(units("_$1"), "m");
    EXPECT_FALSE(has("_$ARG1"));
    EXPECT_FALSE(has("_$RES"));
    EXPECT_EQ(calc("ufails(1)"), 3000);
    EXPECT_FALSE(has("_$ERR"));
    EXPECT_EQ(calc("usilent(1)"), 3124);
    EXPECT_EQ(calc("ubaderr(1)"), 3123);
}

TEST_F(CalcTest, RefFormsPassTextWithLength)
{
    const char text[] = "q = 6 * 7   ";
    int rc = -1;
    EXPECT_EQ(Sdf_Calc_Chan_ref(&ch, text, &rc, sizeof text - 1), 0);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(value("q"), 42);
    EXPECT_EQ(Sdf_Calc_Chan(ch + 40, "1"), 3001);
}

TEST(CalcFile, FailedItemLeavesEarlierOnesAndAConsistentFile)
{
    Sdf_Set_Opts("Error_Out=None");
    char path[] = "/tmp/calc_fileXXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    unlink(path);
    int ch = 0;
    ASSERT_EQ(Sdf_Open(&ch, path, "BINARY", "NEW", "WRITE"), 0);
    const double a = 2;
    ASSERT_EQ(Sdf_Write_Var(ch, "a", SDF_DBLE_T, &a, nullptr, nullptr), 0);
    EXPECT_EQ(Sdf_Calc_Chan(ch, "p = a * 2, q = a / 0, r = 1"), 3104);
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
    ASSERT_EQ(Sdf_Open(&ch, path, "BINARY", "OLD", "READ"), 0);
    double p = 0;
    EXPECT_EQ(Sdf_Get_Val(ch, "p", &p), 0);
    EXPECT_EQ(p, 4);
    EXPECT_EQ(Sdf_Exists(ch, "q"), 0);
    EXPECT_EQ(Sdf_Exists(ch, "r"), 0);
    EXPECT_EQ(Sdf_Calc_Chan(ch, "1"), 3002) << "a read-only channel is refused";
    Sdf_Close(ch, "DELETE");
}

} // namespace

namespace {

TEST_F(CalcTest, ComplexLogicAndShortCircuits)
{
    defineAll(ch);
    // z = 2 - i, x = 1.5 + 2i
    ASSERT_EQ(calc("z / z, z ** 2, 0 && nowhere, 1 || nowhere, !{0, 3}, z == z, x < z, {1,2} ? 'y' | 'n'"), 0);
    EXPECT_DOUBLE_EQ(value("_$1"), 1);
    EXPECT_NEAR(value("_$2"), 3, 1e-12);
    EXPECT_EQ(value("_$3"), 0) << "the right side of && is not needed";
    EXPECT_EQ(value("_$4"), 1);
    EXPECT_EQ(values("_$5"), (std::vector<double>{1, 0}));
    EXPECT_EQ(value("_$6"), 1);
    EXPECT_EQ(value("_$7"), 0) << "complex values order by squared modulus: 6.25 > 5";
    EXPECT_EQ(text("_$8"), "y");
    EXPECT_EQ(calc("z / (z - z)"), 3104);
    EXPECT_EQ(calc("{{{{{{{{1}}}}}}}}"), 3021);
    EXPECT_EQ(calc("1, nowhere"), 3010);
    EXPECT_EQ(text("_$8"), "y") << "a failed run leaves the results of the last good one";
}

TEST(CalcDefault, OpensAnInternalChannelAndRefusesAFileChannel)
{
    Sdf_Set_Opts("Error_Out=None,Default_Internal_Channel=0");
    ASSERT_EQ(Sdf_Calc("k = 40 + 2"), 0);
    int ch = -1;
    char opt[128];
    ASSERT_EQ(Sdf_Get_Opt("Default_Internal_Channel", opt), 0);
    ch = atoi(opt);
    int32_t k = 0;
    EXPECT_EQ(Sdf_Get_Val(ch, "k", &k), 0);
    EXPECT_EQ(k, 42);
    EXPECT_EQ(Sdf_Calc("k + 1"), 0) << "the same channel again";
    EXPECT_EQ(Sdf_Exists(ch, "_$1"), 1);
    char path[] = "/tmp/calc_defXXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    unlink(path);
    int fch = 0;
    ASSERT_EQ(Sdf_Open(&fch, path, "BINARY", "NEW", "WRITE"), 0);
    snprintf(opt, sizeof opt, "Default_Internal_Channel=%d", fch);
    Sdf_Set_Opts(opt);
    EXPECT_EQ(Sdf_Calc("1"), 3004);
    Sdf_Close(fch, "DELETE");
    Sdf_Close(ch, "DELETE");
    Sdf_Set_Opts("Default_Internal_Channel=0");
}

} // namespace
