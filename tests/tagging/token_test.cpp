// Tests of the token engine the line-oriented tagging modules share: counting
// and splitting delimited tokens, reading delimiter lists and width lists,
// reading and replacing tokens, and the messages of each failure.
#include <gtest/gtest.h>

#include <climits>

#include "zeltra/tagging.h"

using namespace MOSAQ;
using namespace MOSAQ::Portals;
using T = TaggingImpl;

namespace {

// A message of the shared tagging table as the engine adds it to a buffer.
String msg(const char* level, const String& key, const StringList& args) {
    const String text = Support::StringTable::lookup("tagging", ".Portal" + key);
    return HelperBase::formatList(HelperBase::normalizeLevel(text, level), args);
}

const String kFile = "/runs/a1/deck.dat";

}  // namespace

TEST(TokenSplit, TokensAreMaximalRunsOfNonDelimiters) {
    const String defaults = ",;\"=()'\t ";
    const std::tuple<String, String, StringList> cases[] = {
        {"  a  b c", " ", {"a", "b", "c"}},
        {"", " ", {}},
        {",;,;", ",;", {}},
        {"a b", "", {"a b"}},
        {"x=1, y=(2);", defaults, {"x", "1", "y", "2"}},
        {"'two words'", defaults, {"two", "words"}},
        {"\tlast\t", defaults, {"last"}},
    };
    for (const auto& [line, set, tokens] : cases) {
        SCOPED_TRACE(testing::PrintToString(line));
        EXPECT_EQ(T::splitTokens(line, set), tokens);
        EXPECT_EQ(T::countTokens(line, set), static_cast<int>(tokens.size()));
    }
}

TEST(TokenDelimiters, ParsesEscapesAndAppendsToTheSet) {
    const std::tuple<String, String, bool> cases[] = {
        {"\\,;\"=()'\\t\\s", ",;\"=()'\t ", true},
        {"", "", true},
        {"\\\\", "\\\\", true},
        {":\\s", ": ", true},
        {"ab\\x", "ab", false},
        {"a\\", "a", false},
        {"\\", "", false},
    };
    for (const auto& [written, set, ok] : cases) {
        SCOPED_TRACE(written);
        String got = "#", errors;
        EXPECT_EQ(T::parseDelimiters(written, got, errors), ok);
        EXPECT_EQ(got, "#" + set);
        EXPECT_EQ(errors, ok ? "" : msg("ERROR", ".err.invalidDelimBackslash", {}));
    }
}

TEST(TokenFixed, LocatesColumnsFromWidthLists) {
    const String line20(20, 'x'), line35(35, 'x');
    const std::tuple<String, String, int, int, int> cases[] = {
        {line20, "8.8.*", 1, 1, 8},     {line20, "8.8.*", 2, 9, 16},
        {line20, "8.8.*", 3, 17, 20},   {line20, "8.8.*", 7, 17, 20},
        {line35, "10", 4, 31, 40},      {line20, "3.5", 4, 14, 18},
        {line20, " 4 . 4 ", 2, 5, 8},   {line20, "*", 3, 1, 20},
        {line20, "8..8", 1, 1, 8},      {line20, "2.1e1", 2, 3, 12},
    };
    for (const auto& [line, widths, col, start, end] : cases) {
        SCOPED_TRACE(widths + " col " + std::to_string(col));
        int s = 1, e = 0;
        String errors;
        EXPECT_TRUE(T::locateFixedToken(line, widths, col, s, e, errors)) << errors;
        EXPECT_EQ(s, start);
        EXPECT_EQ(e, end);
        EXPECT_EQ(errors, "");
    }
}

TEST(TokenFixed, RefusesBadOrdinalsAndWidths) {
    const std::tuple<String, int, String, String> cases[] = {
        {"10", 0, ".err.fixedStringSmallStartPos", "0"},
        {"10", -5, ".err.fixedStringSmallStartPos", "-5"},
        {"0", 1, ".err.fixedStringSmallColWidth", "0"},
        {"", 1, ".err.fixedStringSmallColWidth", ""},
        {"8..8", 3, ".err.fixedStringSmallColWidth", ""},
        {"8.-2", 2, ".err.fixedStringSmallColWidth", "-2"},
        {"x.8", 2, ".err.fixedStringSmallColWidth", "x"},
        {"8.x", 2, ".err.fixedStringDelimsUnknownChar", "x"},
        {"abc", 1, ".err.fixedStringDelimsUnknownChar", "abc"},
        {"8.", 2, ".err.fixedStringDelimsUnknownChar", ""},
    };
    for (const auto& [widths, col, key, arg] : cases) {
        SCOPED_TRACE(widths + " col " + std::to_string(col));
        int s = 1, e = 0;
        String errors;
        EXPECT_FALSE(T::locateFixedToken("0123456789", widths, col, s, e, errors));
        EXPECT_EQ(errors, msg("ERROR", key, {arg}));
    }
}

TEST(TokenFixed, HugeOrdinalsAndWidthsClampInsteadOfOverflowing) {
    for (const String widths : {"10", "8.8", "1e12", "2147483647.2147483647"}) {
        SCOPED_TRACE(widths);
        int s = 1, e = 0;
        String errors, value = "kept";
        ASSERT_TRUE(T::locateFixedToken("short", widths, T::wholeNumber("1e12"), s, e, errors));
        EXPECT_EQ(s, INT_MAX);
        EXPECT_EQ(e, INT_MAX);
        EXPECT_FALSE(T::extractFixedToken(s, e, "short", 4, kFile, value, errors));
        EXPECT_EQ(value, "kept");
        EXPECT_EQ(errors, msg("ERROR", ".err.extractFixedTokenBigStartPosInFile",
                              {"4", kFile, "2.14748e+09", "5"}));
    }
}

TEST(TokenWholeNumber, TruncatesTowardsZeroAndClamps) {
    const std::pair<String, int> cases[] = {
        {"3.7", 3}, {"-3.7", -3}, {"abc", 0}, {"", 0}, {"1e12", INT_MAX}, {"-1e12", INT_MIN}};
    for (const auto& [text, n] : cases) EXPECT_EQ(T::wholeNumber(text), n) << text;
}

TEST(TokenDelimited, ReadsTokenUpToTheCountAndNamesTheCountPastIt) {
    String value, errors;
    ASSERT_TRUE(T::extractDelimToken(3, "a b c", 7, "", " ", value, errors));
    EXPECT_EQ(value, "c");
    EXPECT_EQ(errors, "");

    const std::tuple<int, String, String> failures[] = {
        {4, "", msg("ERROR", ".err.extractDelimToken", {"4", "7", "3", " "})},
        {4, kFile, msg("ERROR", ".err.extractDelimTokenInFile", {"4", "7", kFile, "3", " "})},
        {0, kFile, msg("ERROR", ".err.extractDelimTokenInFile", {"0", "7", kFile, "3", " "})},
        {INT_MAX, "", msg("ERROR", ".err.extractDelimToken", {"2.14748e+09", "7", "3", " "})},
    };
    for (const auto& [col, file, want] : failures) {
        SCOPED_TRACE(col);
        value = "kept";
        errors.clear();
        EXPECT_FALSE(T::extractDelimToken(col, "a b c", 7, file, " ", value, errors));
        EXPECT_EQ(value, "kept");
        EXPECT_EQ(errors, want);
    }
}

TEST(TokenDelimited, ReplacementKeepsEveryDelimiterInPlace) {
    const std::tuple<String, String, int, String, String> cases[] = {
        {"  a  b c", " ", 2, "xyz", "  a  xyz c"},
        {"a b c", " ", 2, "", "a  c"},
        {"x,y", ",", 1, "1,2", "1,2,y"},
        {"a b  ", " ", 2, "zz", "a zz  "},
        {",,first;;second", ",;", 2, "2", ",,first;;2"},
        {"a b c", " ", 0, "q", "a b c"},
        {"a b c", " ", -3, "q", "a b c"},
    };
    for (const auto& [line, set, col, v, want] : cases) {
        SCOPED_TRACE(line + " col " + std::to_string(col));
        String newLine, errors;
        EXPECT_TRUE(T::updateDelimToken(col, line, 1, kFile, set, v, newLine, errors));
        EXPECT_EQ(newLine, want);
        EXPECT_EQ(errors, "");
    }
}

TEST(TokenDelimited, ReplacingTokenPastTheLineEndFailsWithTheCount) {
    String newLine, errors;
    EXPECT_FALSE(T::updateDelimToken(4, "a;b c", 2, kFile, "; ", "v", newLine, errors));
    EXPECT_EQ(errors, msg("ERROR", ".err.updateDelimTokenInFile", {"4", "2", kFile, "3", "; "}));
    errors.clear();
    EXPECT_FALSE(T::updateDelimToken(1, "", 2, "", " ", "v", newLine, errors));
    EXPECT_EQ(errors, msg("ERROR", ".err.updateDelimToken", {"1", "2", "0", " "}));
}

TEST(TokenFixed, ReadAndReplaceRefuseColumnsOffTheLineInTheSameOrder) {
    const String line = "0123456789";
    // line, start, end, file; the key after ".err.<op>FixedToken" and its arguments.
    const std::tuple<String, int, int, String, String, StringList> cases[] = {
        {line, 11, 12, "", "BigStartPos", {"9", "11", "10"}},
        {"", 1, 0, kFile, "BigStartPosInFile", {"9", kFile, "1", "0"}},
        {line, 0, 3, "", "SmallStartPos", {"9", "0"}},
        {line, INT_MIN, 3, kFile, "SmallStartPosInFile", {"9", kFile, "-2.14748e+09"}},
        {line, 5, 4, "", "SmallEndPos", {"9", "4", "5"}},
        {line, 1, 0, kFile, "SmallEndPosInFile", {"9", kFile, "0", "1"}},
    };
    for (const auto& [text, start, end, file, key, args] : cases) {
        for (const String op : {"extract", "replace"}) {
            SCOPED_TRACE(op + key);
            int e = end;
            String value = "kept", errors;
            EXPECT_FALSE(op == "extract" ? T::extractFixedToken(start, end, text, 9, file, value, errors)
                                         : T::replaceFixedToken(start, e, text, 9, file, "v", value, errors));
            EXPECT_EQ(errors, msg("ERROR", ".err." + op + "FixedToken" + key, args));
        }
    }
}

TEST(TokenFixed, ReadClipsTheEndAndKeepsBlanks) {
    const String line35 = "0123456789012345678901234567890ABCD";
    const std::tuple<String, int, int, String, String, String> cases[] = {
        {line35, 31, 40, "", "0ABCD", msg("WARNING", ".warn.extractFixedTokenBigEndPos", {"9", "40", "35"})},
        {line35, 31, 40, kFile, "0ABCD",
         msg("WARNING", ".warn.extractFixedTokenBigEndPosInFile", {"9", kFile, "40", "35"})},
        {"ab  cd  ", 3, 6, kFile, "  cd", ""},
    };
    for (const auto& [text, start, end, file, want, warning] : cases) {
        String value, errors;
        EXPECT_TRUE(T::extractFixedToken(start, end, text, 9, file, value, errors));
        EXPECT_EQ(value, want);
        EXPECT_EQ(errors, warning);
    }
}

TEST(TokenFixed, ReplacementFitsTheValueAndKeepsTheLineLength) {
    const String line = "0123456789ABCDEFGHIJ";
    const auto diff = [](const char* start, const char* end, const char* size) {
        return msg("WARNING", ".warn.replaceFixedTokenDiffLength", {"3", start, end, size});
    };
    const String clipped = msg("WARNING", ".warn.replaceFixedTokenBigEndPos", {"3", "20"});
    const std::tuple<int, int, String, String, int, String> cases[] = {
        {11, 15, "12345", "012345678912345FGHIJ", 15, ""},
        {11, 15, "123456", "012345678912345FGHIJ", 15, diff("11", "15", "6")},
        {11, 15, "42", "0123456789   42FGHIJ", 15, diff("11", "15", "2")},
        {11, 15, "", "0123456789     FGHIJ", 15, diff("11", "15", "0")},
        {18, 25, "xyz", "0123456789ABCDEFGxyz", 20, clipped},
        {19, INT_MAX, "xyz", "0123456789ABCDEFGHxy", 20, clipped + "\n" + diff("19", "20", "3")},
    };
    for (const auto& [start, endIn, value, want, endOut, warnings] : cases) {
        SCOPED_TRACE(std::to_string(start) + ".." + std::to_string(endIn) + " " + value);
        int end = endIn;
        String newLine, errors;
        EXPECT_TRUE(T::replaceFixedToken(start, end, line, 3, "", value, newLine, errors));
        EXPECT_EQ(newLine, want);
        EXPECT_EQ(newLine.size(), line.size());
        EXPECT_EQ(end, endOut);
        EXPECT_EQ(errors, warnings);
    }
    int end = 15;
    String newLine, errors;
    ASSERT_TRUE(T::replaceFixedToken(11, end, line, 3, kFile, "1", newLine, errors));
    EXPECT_EQ(errors, msg("WARNING", ".warn.replaceFixedTokenDiffLengthInFile", {"3", kFile, "11", "15", "1"}));
}
