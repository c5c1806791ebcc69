// Templates and the expressions behind them: matching and compile errors.
#include "zu_internal.h"
#include "zu_test_support.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct MatchCase {
    const char *tmpl;
    const char *text;
    int expected;
};

const MatchCase kCases[] = {
    {"A*", "A", 1},          {"A*", "AB", 1},         {"A*", "BA", 0},
    {"*", "", 1},            {"*", "anything", 1},    {"", "", 1},
    {"", "x", 0},            {"?", "", 0},            {"?", "a", 1},
    {"?", "ab", 0},          {"A#", "A1", 1},         {"A#", "A123", 1},
    {"A#", "A", 0},          {"A#", "A1B", 0},        {"#.#", "12.25", 1},
    {"#.#", "1x5", 0},       {"A.B", "A.B", 1},       {"A.B", "AxB", 0},
    {"A\\.B", "A.B", 1},     {"A\\.B", "AxB", 0},     {"A\\#", "A#", 1},
    {"A\\#", "A1", 0},       {"A\\*", "A*", 1},       {"A\\*", "AB", 0},
    {"A\\?", "A?", 1},       {"A\\?", "Ab", 0},       {"a\\\\b", "a\\b", 1},
    {"\\a*", "", 1},         {"\\a*", "aaa", 1},      {"\\a*", "b", 0},
    {"abc$", "abc", 1},      {"abc$", "abcd", 0},     {"^abc", "abc", 1},
    {"T*_#", "Temp_12", 1},  {"T*_#", "Temp_", 0},    {"*x*", "abxcd", 1},
    {"case", "CASE", 0},
    // Sets
    {"[]a]", "]", 1},        {"[]a]", "a", 1},        {"[]a]", "b", 0},
    {"[a-]", "-", 1},        {"[a-]", "a", 1},        {"[a-]", "b", 0},
    {"[-a]", "-", 1},        {"[z-a]", "a", 1},       {"[z-a]", "z", 0},
    {"[z-a]", "m", 0},       {"[a-c-e]x", "dx", 1},   {"[a-c-e]x", "fx", 0},
    {"[^a]", "b", 1},        {"[^a]", "a", 0},        {"[^a]", "", 0},
    // Characters above 127: a 7-bit set never holds them, its complement
    // always does, and a set naming one decides by its own bit.
    {"[a-z]*", "\xC3\xA9", 0},           {"[^a]*", "\xC3\xA9", 1},
    {"[\xC3\xA9]*", "\xC3\xA9\xC3", 1},  {"[\xC3\xA9]", "e", 0},
    {"[^\xC3]", "\xA9", 1},              {"[^\xC3]", "\xC3", 0},
    {"[^\xC3]", "", 0},
    {"[\xE0-\xEF]?", "\xE4x", 1},        {"[\xE0-\xEF]?", "\xDFx", 0},
    {"\xC3\x9C*", "\xC3\x9C", 1},        {"\xC3\x9C*", "U", 0},
    // Groups, back-references and counts pass through a template.
    {"\\(ab\\)\\1", "abab", 1},          {"\\(ab\\)\\1", "abac", 0},
    {"\\(a\\)\\1*b", "ab", 1},           {"\\(a\\)\\1*b", "aaab", 1},
    {"\\(a\\)\\1*b", "aacb", 0},         {"\\(\\)\\1*x", "x", 1},
    {"a\\{2,3\\}", "a", 0},              {"a\\{2,3\\}", "aa", 1},
    {"a\\{2,3\\}", "aaa", 1},            {"a\\{2,3\\}", "aaaa", 0},
    {"a\\{2,\\}", "aaaaaaa", 1},         {"a\\{2,\\}", "a", 0},
    {"a\\{2\\}b", "aab", 1},             {"a\\{2\\}b", "aaab", 0},
    {"[0-9]\\{1,2\\}9", "19", 1},        {"[0-9]\\{1,2\\}9", "9", 0},
    {"\\(x\\)\\{2\\}", "x{2}", 1},
    // A newline stays an ordinary character of the text.
    {"a\nb", "a\nb", 1},     {"a\nb", "a", 0},
};

TEST(ZuPattern, MatchesTemplatesAgainstTexts)
{
    unsigned char buf[ZU_PAT_BUFSIZE];
    for (const MatchCase &c : kCases) {
        ASSERT_EQ(ZU_patCompile(c.tmpl, buf, -ZU_PAT_BUFSIZE), 0) << c.tmpl;
        EXPECT_EQ(ZU_patMatch(c.text, buf), c.expected) << '"' << c.tmpl << "\" vs \"" << c.text << '"';
        EXPECT_EQ(ZU_patMatchText(c.text, c.tmpl), c.expected) << c.tmpl;
    }
}

TEST(ZuPattern, UnanchoredExpressionsSearchTheText)
{
    // A lone '$' is tried at the end of the text as well; a star with nothing
    // to act on and a '$' inside are ordinary characters.
    const MatchCase cases[] = {
        {"b*c", "xabbc", 1}, {"b*c", "xyz", 0}, {".c", "zzac", 1},        {".c", "c", 0},
        {"$", "abc", 1},     {"*a", "x*a", 1},  {"*a", "xa", 0},          {"\\(*\\)", "*", 1},
        {"\\(*\\)", "", 0},  {"a$b", "a$b", 1},
    };
    unsigned char buf[ZU_PAT_BUFSIZE] = {};
    for (const MatchCase &c : cases) {
        buf[0] = 0;
        ASSERT_EQ(setPat(c.tmpl, buf, buf + sizeof buf, 0, 0), 0) << c.tmpl;
        EXPECT_EQ(ZU_patMatch(c.text, buf), c.expected) << '"' << c.tmpl << "\" vs \"" << c.text << '"';
    }
}

TEST(ZuPattern, CompileErrorsCarryTheirCodes)
{
    struct {
        const char *tmpl;
        int code;
    } cases[] = {
        {"\\(a", 42},        {"a\\)", 42},         {"\\1\\(a\\)", 25},
        {"\\(a\\1\\)", 25},  {"[abc", 49},         {"a\\{255\\}", 11},
        {"a\\{1,256\\}", 11}, {"a\\{1,2,3\\}", 44}, {"a\\{3,1\\}", 46},
        {"a\\{x\\}", 16},     {"a\\{2x", 16},       {"a\\{2\\x", 45},
    };
    unsigned char buf[ZU_PAT_BUFSIZE];
    for (const auto &c : cases) {
        EXPECT_EQ(ZU_patCompile(c.tmpl, buf, -ZU_PAT_BUFSIZE), c.code) << c.tmpl;
        EXPECT_EQ(buf[0], 0) << c.tmpl;
        EXPECT_EQ(ZU_patMatch("a", buf), 0);
    }
    EXPECT_EQ(ZU_patCompile("a\\{254\\}", buf, -ZU_PAT_BUFSIZE), 0);
    std::string nine, ten;
    for (int i = 0; i < 9; ++i)
        nine += "\\(a\\)";
    EXPECT_EQ(ZU_patCompile(nine.c_str(), buf, -ZU_PAT_BUFSIZE), 0);
    EXPECT_EQ(ZU_patCompile((nine + "\\(a\\)").c_str(), buf, -ZU_PAT_BUFSIZE), 43);
    EXPECT_EQ(ZU_patMatchText("a", "\\(a"), 0);
}

TEST(ZuPattern, OverflowIsRefusedNotWritten)
{
    unsigned char buf[ZU_PAT_BUFSIZE + 8];
    buf[16] = 0xEE;
    EXPECT_EQ(ZU_patCompile("abcdefgh", buf, -16), 50);
    EXPECT_EQ(buf[16], 0xEE); // nothing written past the given size
    EXPECT_EQ(ZU_patCompile("[a-z]", buf, -18), 50);
    EXPECT_EQ(ZU_patCompile("[a-z]", buf, -20), 0);
    EXPECT_EQ(ZU_patCompile("[a\xC3]", buf, -20), 50);
    std::string hashes(200, '#'); // each grows to eleven characters
    EXPECT_EQ(ZU_patCompile(hashes.c_str(), buf, -ZU_PAT_BUFSIZE), 50);
    EXPECT_EQ(ZU_patCompile("a", buf, 0), 50);
    EXPECT_EQ(ZU_patCompile("a", nullptr, ZU_PAT_BUFSIZE), 50);
}

TEST(ZuPattern, ExpressionLevelErrors)
{
    unsigned char buf[64] = {};
    EXPECT_EQ(setPat("", buf, buf + sizeof buf, 0, 0), 41);
    EXPECT_EQ(setPat("a\\", buf, buf + sizeof buf, 0, 0), 36);
    EXPECT_EQ(setPat("a\\\n", buf, buf + sizeof buf, 0, 0), 36);
    // An empty expression keeps what the buffer already holds.
    ASSERT_EQ(setPat("^ab", buf, buf + sizeof buf, 0, 0), 0);
    EXPECT_EQ(setPat("\n", buf, buf + sizeof buf, 0, 0), 0);
    EXPECT_EQ(ZU_patMatch("abc", buf), 1);
}

TEST(ZuPattern, ReportsThroughTheErrorSetOnlyWhenAsked)
{
    ZU_errClear("setPat", 0);
    unsigned char buf[ZU_PAT_BUFSIZE];
    EXPECT_EQ(ZU_patCompile("[x", buf, -ZU_PAT_BUFSIZE), 49);
    EXPECT_EQ(ZU_errWorst("setPat", nullptr), 0);
    EXPECT_EQ(ZU_patCompile("[x", buf, ZU_PAT_BUFSIZE), 49);
    int index = 1;
    ZU_ErrRec *rec = ZU_errNext("setPat", &index);
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(rec->number, 49);
    EXPECT_EQ(rec->severity, ZU_SEV_ERROR);
    EXPECT_STREQ(rec->message, "[ ] imbalance.");
    ZU_errClear("setPat", 0);
}

TEST(ZuCodes, EveryCodeHasItsText)
{
#define ZU_CHECK_(code, name, text)                                  \
    EXPECT_STREQ(ZU_patErrText(code), text);                         \
    EXPECT_STRNE(ZU_patErrText(code), ZU_patErrText(-1)) << #name;
    ZU_PATTERN_CODES(ZU_CHECK_)
#undef ZU_CHECK_
#define ZU_CHECK_(code, name, text)                                  \
    EXPECT_STREQ(ZU_slotErrText(code), text);                        \
    EXPECT_STRNE(ZU_slotErrText(code), ZU_slotErrText(-1)) << #name;
    ZU_SLOT_CODES(ZU_CHECK_)
#undef ZU_CHECK_
#define ZU_CHECK_(code, name, text)      \
    EXPECT_STREQ(ZU_optErrText(code), text); \
    EXPECT_STRNE(ZU_optErrText(code), "") << #name;
    ZU_OPTION_CODES(ZU_CHECK_)
#undef ZU_CHECK_
    EXPECT_STREQ(ZU_patErrText(12), "Unknown error code.");
}

} // namespace
