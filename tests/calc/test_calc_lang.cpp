// The expression language: number and text forms, operator priorities and
// associativity, items and their result variables, and every lexing error,
// which stops the text before any item runs.
#include <math.h>

#include "calc_test_support.h"

using calctest::CalcTest;

namespace {

struct Literal {
    const char *expr;
    int type;
    double value;
};

class CalcLiteral : public CalcTest, public ::testing::WithParamInterface<Literal> {};

TEST_P(CalcLiteral, GivesTypeAndValue)
{
    const Literal &c = GetParam();
    ASSERT_EQ(calc(c.expr), 0) << c.expr;
    EXPECT_EQ(type("_$1"), c.type) << c.expr;
    EXPECT_DOUBLE_EQ(value("_$1"), c.value) << c.expr;
}

INSTANTIATE_TEST_SUITE_P(
    Forms, CalcLiteral,
    ::testing::Values(Literal{"1e5", SDF_DBLE_T, 1e5}, Literal{"100000", SDF_INT_T, 100000},
                      Literal{"10000000000", SDF_INT64_T, 1e10}, Literal{"1.0d0", SDF_DBLE_T, 1},
                      Literal{"1.5E-1", SDF_DBLE_T, 0.15}, Literal{"1 000", SDF_INT_T, 1000},
                      Literal{"2^3^2", SDF_INT_T, 512}, Literal{"-2^2", SDF_INT_T, 4},
                      Literal{"2*3^2", SDF_INT_T, 18}, Literal{"2**-1", SDF_INT_T, 0},
                      Literal{"1/2", SDF_REAL_T, 0.5}, Literal{"7 % 2", SDF_INT_T, 1},
                      Literal{"10-4-3", SDF_INT_T, 3}, Literal{"1e-5+1", SDF_DBLE_T, 1.00001},
                      Literal{"1 < 2 && 2 <= 2", SDF_INT_T, 1}, Literal{"0 || !0", SDF_INT_T, 1},
                      Literal{"0 ? 5 | 6", SDF_INT_T, 6}, Literal{"1 ? 2 | (0 ? 3 | 4)", SDF_INT_T, 2},
                      Literal{"M_PI", SDF_DBLE_T, M_PI}, Literal{"(SDF_REAL_T) 3", SDF_REAL_T, 3},
                      Literal{"(SDF_INT64_T) 2.9", SDF_INT64_T, 2}, Literal{"2147483647 + 1", SDF_INT_T, -2147483648.0}));

TEST_F(CalcTest, TextsKeepDoubledQuotesAndConcatenate)
{
    ASSERT_EQ(calc("'it''s' // \"!\""), 0);
    EXPECT_EQ(text("_$1"), "it's!");
}

TEST_F(CalcTest, EmptyItemsAreEmptyTexts)
{
    ASSERT_EQ(calc("'a' , , 'b'"), 0);
    EXPECT_EQ(text("_$1"), "a");
    EXPECT_EQ(text("_$2"), "");
    EXPECT_EQ(text("_$3"), "b");
}

TEST_F(CalcTest, AssignmentsYieldNoResult)
{
    ASSERT_EQ(calc("x = 1, y = 2, x + y"), 0);
    EXPECT_EQ(value("_$1"), 3);
    EXPECT_FALSE(has("_$2"));
    ASSERT_EQ(calc("a = b = 3"), 0);
    EXPECT_EQ(value("a"), 3);
    EXPECT_EQ(value("b"), 3);
    EXPECT_FALSE(has("_$1")) << "a run replaces the results of the one before";
}

TEST_F(CalcTest, ResultNamesArePaddedToTheItemCount)
{
    ASSERT_EQ(calc("1,2,3,4,5,6,7,8,9"), 0);
    EXPECT_EQ(value("_$9"), 9);
    ASSERT_EQ(calc("1,2,3,4,5,6,7,8,9,10,11,12"), 0);
    EXPECT_EQ(value("_$01"), 1);
    EXPECT_EQ(value("_$12"), 12);
    EXPECT_FALSE(has("_$1"));
    EXPECT_FALSE(has("_$9"));
    ASSERT_EQ(calc(""), 0);
    EXPECT_FALSE(has("_$01"));
}

TEST_F(CalcTest, ConstantsKeepTheirCaseAndVariablesWin)
{
    EXPECT_EQ(calc("m_pi"), 3010);
    ASSERT_EQ(calc("M_E = 2, M_E + 1"), 0);
    EXPECT_EQ(value("_$1"), 3);
}

struct Bad {
    const char *expr;
    int code;
};

class CalcLexError : public CalcTest, public ::testing::WithParamInterface<Bad> {};

TEST_P(CalcLexError, StopsBeforeAnyItemRuns)
{
    const Bad &c = GetParam();
    EXPECT_EQ(calc(std::string("before = 1, ") + c.expr), c.code) << c.expr;
    EXPECT_FALSE(has("before")) << c.expr;
}

INSTANTIATE_TEST_SUITE_P(Codes, CalcLexError,
                         ::testing::Values(Bad{"(x", 3100}, Bad{"x)", 3100}, Bad{"x[m", 3100},
                                           Bad{"'abc", 3100}, Bad{"\"abc", 3100}, Bad{"{1, 2)", 3100},
                                           Bad{"f(1}", 3100}, Bad{"{% a, b", 3100}, Bad{"{}", 3102},
                                           Bad{"{% n, {% a %} %} = {% 1 %}", 3130},
                                           Bad{"1 'a'", 3109}));

TEST_F(CalcTest, EvaluationErrorsHaveTheirCodes)
{
    const Bad cases[] = {{"1e400", 3005},          {"nothing_here", 3010}, {"a ? b | c ? d | e", 3101},
                         {"1 = 2", 3110},          {"x + y = 1", 3110},    {"'a' + 1", 3103},
                         {"1 .. 3", 3103},         {"{1, 'a'}", 3103},     {"{{1,2},{3}}", 3103},
                         {"(FOO_T) 1", 3104},      {"(SDF_CHAR_T) 1", 3103}, {"(1) 2", 3103}, {"(a) 1", 3104},
                         {"5 % 2.0", 3103},        {"sin(1, 2)", 3102}};
    for (const Bad &c : cases) EXPECT_EQ(calc(c.expr), c.code) << c.expr;
}

} // namespace
