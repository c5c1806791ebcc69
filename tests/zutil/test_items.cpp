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

// Each item as "name|type|text|bracket".
std::vector<std::string> shown(const Parsed &p)
{
    std::vector<std::string> out;
    for (int i = 0; i < p.count; ++i)
        out.push_back(std::string(p[i].name) + "|" + std::to_string(p[i].type) + "|" + p[i].text + "|" + p[i].bracket);
    return out;
}

TEST(ZuItems, SplitsNamesValuesTextsBracketsAndComments)
{
    const std::pair<const char *, std::vector<std::string>> cases[] = {
        {"a=1, b='it''s', c=2.5 [mm], d", {"a|1|1|", "b|-1|it's|", "c|3|2.5|mm", "|-1|d|"}},
        // "=" names the value wherever the blanks are.
        {"a = 1", {"a|1|1|"}},
        {"a =1", {"a|1|1|"}},
        {"a= 1", {"a|1|1|"}},
        {"x = ", {"x|0||"}},
        // Commas make empty items.
        {"1,,3", {"|1|1|", "|0||", "|1|3|"}},
        {",", {"|0||"}},
        {"1,", {"|1|1|", "|0||"}},
        {"   \t", {}},
        // Comments end the text outside quotes and brackets.
        {"x = 1 ; comment, y = 2", {"x|1|1|"}},
        {"x = 'a;b' [c!d], y=2", {"x|-1|a;b|c!d", "y|1|2|"}},
        {"x=1!rest", {"x|1|1|"}},
        // A bracket after a comma starts its own item.
        {"5 [m], [s] [kg]", {"|1|5|m", "|0||s", "|0||kg"}},
        {"len[mm]", {"|-1|len|mm"}},
        {"'unclosed [x", {"|-1|unclosed [x|"}},
    };
    for (const auto &[text, items] : cases)
        EXPECT_EQ(shown(Parsed(text)), items) << text;
    Parsed p("b='it''s', c=2.5");
    EXPECT_EQ(p[0].ivalue, 4);
    EXPECT_DOUBLE_EQ(p[1].dvalue, 2.5);
    EXPECT_EQ(Parsed("").count, 0);
    ZU_setCommentChars("#");
    Parsed other("a;b # c");
    ZU_setCommentChars(";!");
    EXPECT_EQ(shown(other), std::vector<std::string>{"|-1|a;b|"});
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
