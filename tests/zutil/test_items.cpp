// The item parser: names, quoted texts, brackets, comments, number typing.
#include "zu_internal.h"
#include "zu_test_support.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace {

// Parses into a fresh array and keeps it for the test's checks.
class Parsed {
public:
    explicit Parsed(const char *text, int max = 16) { count = ZU_parseItems(text, &items_, max, 0); }
    ~Parsed() { ZU_freeMem(items_); }
    Parsed(const Parsed &) = delete;
    Parsed &operator=(const Parsed &) = delete;
    const ZU_Item &operator[](int i) const { return items_[i]; }
    int count;

private:
    ZU_Item *items_ = nullptr;
};

TEST(ZuItems, SplitsNamedValuesTextsAndBrackets)
{
    Parsed p("a=1, b='it''s', c=2.5 [mm], d");
    ASSERT_EQ(p.count, 4);
    EXPECT_STREQ(p[0].name, "a");
    EXPECT_EQ(p[0].type, ZU_ITEM_INT);
    EXPECT_EQ(p[0].ivalue, 1);
    EXPECT_STREQ(p[1].name, "b");
    EXPECT_EQ(p[1].type, ZU_ITEM_TEXT);
    EXPECT_STREQ(p[1].text, "it's");
    EXPECT_EQ(p[1].ivalue, 4);
    EXPECT_STREQ(p[2].name, "c");
    EXPECT_EQ(p[2].type, ZU_ITEM_REAL);
    EXPECT_DOUBLE_EQ(p[2].dvalue, 2.5);
    EXPECT_STREQ(p[2].bracket, "mm");
    EXPECT_STREQ(p[3].name, "");
    EXPECT_EQ(p[3].type, ZU_ITEM_TEXT);
    EXPECT_STREQ(p[3].text, "d");
    EXPECT_STREQ(p[3].bracket, "");
}

TEST(ZuItems, EqualsNamesTheValueWhereverTheBlanksAre)
{
    for (const char *text : {"a=1", "a = 1", "a =1", "a= 1"}) {
        Parsed p(text);
        ASSERT_EQ(p.count, 1) << text;
        EXPECT_STREQ(p[0].name, "a") << text;
        EXPECT_STREQ(p[0].text, "1") << text;
    }
    Parsed waiting("x = ");
    ASSERT_EQ(waiting.count, 1);
    EXPECT_STREQ(waiting[0].name, "x");
    EXPECT_EQ(waiting[0].type, ZU_ITEM_EMPTY);
}

TEST(ZuItems, CommasMakeEmptyItems)
{
    Parsed p("1,,3");
    ASSERT_EQ(p.count, 3);
    EXPECT_EQ(p[1].type, ZU_ITEM_EMPTY);
    EXPECT_EQ(p[2].ivalue, 3);
    const std::pair<const char *, int> counts[] = {{",", 1}, {"1,", 2}, {"   \t", 0}, {"", 0}};
    for (const auto &[text, count] : counts)
        EXPECT_EQ(Parsed(text).count, count) << '"' << text << '"';
}

TEST(ZuItems, CommentsEndTheTextOutsideQuotesAndBrackets)
{
    Parsed p("x = 1 ; comment, y = 2");
    ASSERT_EQ(p.count, 1);
    Parsed q("x = 'a;b' [c!d], y=2");
    ASSERT_EQ(q.count, 2);
    EXPECT_STREQ(q[0].text, "a;b");
    EXPECT_STREQ(q[0].bracket, "c!d");
    Parsed r("x=1!rest");
    EXPECT_EQ(r.count, 1);
    ZU_setCommentChars("#");
    Parsed s("a;b # c");
    ZU_setCommentChars(";!");
    ASSERT_EQ(s.count, 1);
    EXPECT_STREQ(s[0].text, "a;b");
}

TEST(ZuItems, BracketAfterCommaStartsItsOwnItem)
{
    Parsed p("5 [m], [s] [kg]");
    ASSERT_EQ(p.count, 3);
    EXPECT_STREQ(p[0].bracket, "m");
    EXPECT_EQ(p[1].type, ZU_ITEM_EMPTY);
    EXPECT_STREQ(p[1].bracket, "s");
    EXPECT_STREQ(p[2].bracket, "kg");
    Parsed q("len[mm]");
    ASSERT_EQ(q.count, 1);
    EXPECT_STREQ(q[0].text, "len");
    EXPECT_STREQ(q[0].bracket, "mm");
    Parsed open("'unclosed [x");
    ASSERT_EQ(open.count, 1);
    EXPECT_STREQ(open[0].text, "unclosed [x");
}

TEST(ZuItems, TypesNumbersByRangeAndExponentLetter)
{
    struct {
        const char *text;
        int type;
        int32_t ivalue;
        int64_t lvalue;
    } cases[] = {
        {"2147483647", 1, 2147483647, 2147483647},
        {"2147483648", 2, 0, 2147483648LL},
        {"-2147483648", 1, INT32_MIN, INT32_MIN},
        {"-9223372036854775808", 2, 0, INT64_MIN},
        {"9223372036854775808", 3, 0, 0},
        {"2.5", 3, 3, 3},
        {"-2.5", 3, -3, -3},
        {"1.0d0", 4, 1, 1},
        {"1e39", 4, 0, 0},
        {"1e-39", 4, 0, 0},
        {"3e9", 3, 0, 3000000000LL},
        {"0.0", 3, 0, 0},
        {"1e400", -1, 5, 0},
        {"1.8e308", -1, 7, 0},
        {"1.7e308", 4, 0, 0},
        {"1e1001", -1, 6, 0},
        {"1.2.3", -1, 5, 0},
        {"12abc", -1, 5, 0},
        {"e5", -1, 2, 0},
        {"+", -1, 1, 0},
        {"1e+", -1, 3, 0},
    };
    for (const auto &c : cases) {
        Parsed p(c.text);
        ASSERT_EQ(p.count, 1) << c.text;
        EXPECT_EQ(p[0].type, c.type) << c.text;
        EXPECT_EQ(p[0].ivalue, c.ivalue) << c.text;
        EXPECT_EQ(p[0].lvalue, c.lvalue) << c.text;
    }
    Parsed small("0.1, 12.5e-3, 1.5D2, 1e39");
    EXPECT_DOUBLE_EQ(small[0].dvalue, 0.1);
    EXPECT_DOUBLE_EQ(small[1].dvalue, 0.0125);
    EXPECT_FLOAT_EQ(small[1].fvalue, 0.0125f);
    EXPECT_DOUBLE_EQ(small[2].dvalue, 150.0);
    EXPECT_EQ(small[3].fvalue, 0.0f); // beyond single precision
    EXPECT_DOUBLE_EQ(small[3].dvalue, 1e39);
}

TEST(ZuItems, CountsItemsBeyondTheMaximumWithoutWritingThem)
{
    Parsed p("a, b, c, d, e", 2);
    EXPECT_EQ(p.count, 5);
    EXPECT_STREQ(p[1].text, "b");
}

TEST(ZuItems, ReusesAGivenArray)
{
    ZU_Item *items = nullptr;
    ASSERT_EQ(ZU_parseItems("short", &items, 4, 64), 1);
    ZU_Item *first = items;
    std::string longer(60, 'x');
    ASSERT_EQ(ZU_parseItems(("n=" + longer).c_str(), &items, 4, 0), 1);
    EXPECT_EQ(items, first);
    EXPECT_EQ(std::string(items[0].text), longer);
    ZU_freeMem(items);
    EXPECT_EQ(ZU_parseItems("x", nullptr, 1, 0), -1);
}

} // namespace
