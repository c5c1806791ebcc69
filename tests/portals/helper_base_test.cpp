// Tests of HelperBase: placeholder filling and level words, the errors string,
// the logging switches, messages and reports to the host, the cleanup switch,
// the tag cache and the string helpers.
#include <gtest/gtest.h>

#include <optional>

#include "fake_host.h"
#include "zeltra/helper_base.h"

using namespace MOSAQ;
using namespace MOSAQ::Portals;
using fakehost::FakeHost;
using fakehost::ScopedEnv;
using H = HelperBase;

namespace {

struct Probe : HelperBase {
    using HelperBase::HelperBase;
    String getHelperName() override { return "Probe"; }
    using HelperBase::cachedTags;
    using HelperBase::context;
};

std::tuple<String, String, int, int> fields(const fakehost::LogLine& l) {
    return {l.text, l.analysisName, l.evalId, l.level};
}

}  // namespace

TEST(HelperFormat, FillsPlaceholdersInNumberOrder) {
    EXPECT_EQ(H::format("a %2 b", "x"), "a x b");
    EXPECT_EQ(H::format("%2 then %1", "x", "y"), "y then x");
    EXPECT_EQ(H::format("%1 %3", "x", "y"), "x y");
    EXPECT_EQ(H::format("%1 %1", "x", "y"), "x x");
    EXPECT_EQ(H::format("%10 %0", "x"), "x0 %0");
    EXPECT_EQ(H::format("<%1>", "%1%1"), "<%1%1>");
    EXPECT_EQ(H::format("%1%2%3%4%5%6%7%8%9", "a", "b", "c", "d", "e", "f", "g", "h", "i"),
              "abcdefghi");
}

TEST(HelperFormat, TwoAndThreeArgumentFormsDropEmptyArguments) {
    EXPECT_EQ(H::format("%1 and %2", "", "y"), "y and %2");
    EXPECT_EQ(H::format("%1|%2", "a", ""), "a|%2");
    EXPECT_EQ(H::format("%1|%2|%3", "", "b", ""), "b|%2|%3");
    EXPECT_EQ(H::format("%1", "", ""), "%1");
    EXPECT_EQ(H::format("[%1]", ""), "[]");
    EXPECT_EQ(H::format("%1|%2|%3|%4|%5|%6|%7|%8|%9", "a", "", "c", "", "", "", "", "", "i"),
              "a||c||||||i");
}

TEST(HelperFormat, NumbersGoThroughPercentG) {
    EXPECT_EQ(H::format("%1", 1234567), "1.23457e+06");
    EXPECT_EQ(H::format("%1/%2/%3", 3, 0, -4), "3/0/-4");
    EXPECT_EQ(H::format("%2 %1", 0.5, 1e-7), "1e-07 0.5");
    EXPECT_EQ(H::format("%1%2%3", 1.0, 2.5, 100000.0), "12.5100000");
}

TEST(HelperLevels, NormalizeSetsOnePrefixAndHasErrorLooksAnywhere) {
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"WARNING: disk", "ERROR", "ERROR: disk"},
        {"x", "NOTE", "NOTE: x"},
        {"ERROR: a", "ERROR", "ERROR: a"},
        {"ERROR: a\nWARNING: b\nNOTE: c", "NOTE", "NOTE: a\nNOTE: b\nNOTE: c"},
        {"see ERROR: b", "WARNING", "WARNING: see WARNING: b"},
        {"NOTE: a ERROR: b", "ERROR", "ERROR: a ERROR: b"},
        {"ERROR:tight", "NOTE", "NOTE: ERROR:tight"},
    };
    for (const auto& [text, level, want] : cases) EXPECT_EQ(H::normalizeLevel(text, level), want) << text;
    for (const char* t : {"ERROR: x", "NOTE: ERROR in file", "a\nb ERROR", "Exception caught: y"})
        EXPECT_TRUE(H::hasError(t)) << t;
    for (const char* t : {"", "error: x", "WARNING: Err", "Exception: y"}) EXPECT_FALSE(H::hasError(t)) << t;
}

TEST(HelperErrors, AppendsLinesJoinedByNewlines) {
    String e;
    H::addLine(e, "");
    EXPECT_EQ(e, "");
    H::addError(e, "bad %1", "x");
    H::addWarning(e, "ERROR: careful %1 %2", "", "y");
    H::addNote(e, "WARNING: fyi");
    H::addLine(e, "plain");
    H::addLine(e, "%1+%2", 1, 2);
    H::addLine(e, "%1", 0.25);
    H::addLine(e, "%2-%1", "a", "b");
    EXPECT_EQ(e, "ERROR: bad x\nWARNING: careful y %2\nNOTE: fyi\nplain\n1+2\n0.25\nb-a");
    EXPECT_TRUE(H::hasError(e));
}

// Logging switches. Each case is one object: two log calls, the host's
// "verbose" given for each, the environment as set before the first. The
// variables are turned the other way before the second call, which must not
// matter: they are read once. "verbose" is asked at each call only while
// logging is undecided.
TEST(HelperLogging, SwitchMatrix) {
    using Env = std::optional<String>;
    struct Case { const char* what; Env own, portal; const char *verbose1, *verbose2; bool on1, on2; size_t asked; };
    const Case cases[] = {
        {"own variable on", "1", std::nullopt, "false", "false", true, true, 1},
        {"own in any case", "Yes", "no", "false", "false", true, true, 1},
        {"own no beats portal yes and later verbose", "no", "1", "false", "true", false, false, 1},
        {"portal used when own is empty", "", "TRUE", "false", "false", true, true, 1},
        {"portal maybe is off for good", "", "maybe", "false", "true", false, false, 1},
        {"verbose at first call wins over no", "no", "no", "true", "false", true, true, 1},
        {"silent environment asks the host again", std::nullopt, std::nullopt, "false", "yes", false, true, 2},
        {"silent environment, verbose stays off", std::nullopt, "", "0", "false", false, false, 2},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        std::optional<ScopedEnv> own, portal;
        own.emplace("MQT_PROBE_LOG", c.own);
        portal.emplace("MQT_PORTAL_LOG", c.portal);
        FakeHost host;
        Probe p(&host);
        host.settings["verbose"] = c.verbose1;
        EXPECT_EQ(p.logMessage("one", kLevelNote), c.on1);
        own.reset();
        portal.reset();
        own.emplace("MQT_PROBE_LOG", c.on1 ? "no" : "1");
        portal.emplace("MQT_PORTAL_LOG", c.on1 ? "no" : "1");
        host.settings["verbose"] = c.verbose2;
        EXPECT_EQ(p.logMessage("two", kLevelNote), c.on2);
        EXPECT_EQ(host.log.size(), size_t(c.on1) + size_t(c.on2)) << host.transcript();
        EXPECT_EQ(host.settingsAsked.size(), c.asked);
    }
}

TEST(HelperLogging, SendsTextNameIdAndLevel) {
    FakeHost host;
    host.settings["verbose"] = "true";
    Probe p(&host);
    EXPECT_TRUE(p.logMessage("", {{"analysisName", "A1"}}, kLevelNote));
    EXPECT_TRUE(host.log.empty());
    EXPECT_TRUE(p.logMessage("hello", {{"analysisName", "A1"}, {"evalId", "12.9"}}, kLevelWarning));
    EXPECT_TRUE(p.logMessage("neg", {{"evalId", "-3.7"}}, kLevelError));
    EXPECT_TRUE(p.logMessage("bare", kLevelOutput));
    ASSERT_EQ(host.log.size(), 3u);
    EXPECT_EQ(fields(host.log[0]), std::make_tuple("hello", "A1", 12, int(kLevelWarning)));
    EXPECT_EQ(fields(host.log[1]), std::make_tuple("neg", "", -3, int(kLevelError)));
    EXPECT_EQ(fields(host.log[2]), std::make_tuple("bare", "", 0, int(kLevelOutput)));
}

TEST(HelperLogging, TailLogsTheLastLinesAtNoteLevel) {
    const std::tuple<const char*, int, std::optional<String>> cases[] = {
        {"a\nb\nc", 1, "c"},       {"a\nb\nc", 2, "b\nc"},   {"a\nb\nc\n", 2, "c\n"},
        {"a\nb", 5, "a\nb"},       {"a\nb", 0, "b"},         {"\nx", 2, "\nx"},
        {"a\nb\n", 1, std::nullopt},
    };
    for (const auto& [text, lines, want] : cases) {
        SCOPED_TRACE(testing::PrintToString(String(text)) + " " + std::to_string(lines));
        FakeHost host;
        host.settings["verbose"] = "true";
        Probe p(&host);
        EXPECT_TRUE(p.logTail(text, {}, lines));
        ASSERT_EQ(host.log.size(), want ? 1u : 0u);
        if (want) {
            EXPECT_EQ(fields(host.log[0]), std::make_tuple(*want, "", 0, int(kLevelNote)));
        }
    }
}

// "MQA_TESTING" is read once per process, so only its "on" side is tried.
TEST(HelperMessages, ShowIgnoresTheLogSwitchAndTestMessageAddsAPrefix) {
    ScopedEnv own("MQT_PROBE_LOG", "no"), testing("MQA_TESTING", "Yes");
    FakeHost host;
    Probe p(&host);
    p.showMessage("", {}, kLevelNote);
    p.showMessage("shown", {{"analysisName", "A"}, {"evalId", "4"}}, kLevelWarning);
    EXPECT_FALSE(p.logMessage("hidden", kLevelNote));
    EXPECT_TRUE(p.testMessage("probe", {}, kLevelNote));
    ASSERT_EQ(host.log.size(), 2u);
    EXPECT_EQ(fields(host.log[0]), std::make_tuple("shown", "A", 4, int(kLevelWarning)));
    EXPECT_EQ(fields(host.log[1]), std::make_tuple("Testing: probe", "", 0, int(kLevelNote)));
}

TEST(HelperContext, KeptOnlyWhenFoundWithTheExactTypeWordAndReportsNeedIt) {
    FakeHost found, noneOffered, wrongType;
    noneOffered.offerContext = false;
    wrongType.context.type = "portal";
    EXPECT_EQ(Probe(&found).context, &found.context);
    EXPECT_EQ(found.extensionsAsked, std::vector<String>{"Portal"});
    for (FakeHost* host : {&noneOffered, &wrongType}) {
        Probe p(host);
        EXPECT_EQ(p.context, nullptr);
        p.reportValues("R", {}, {{1.0}, {}});
        p.reportValues("P", {}, {});
        p.reportErrorInCall("Q", {}, "bad");
        EXPECT_TRUE(host->context.responses.empty());
    }
    Probe none(nullptr);
    EXPECT_EQ(none.context, nullptr);
    EXPECT_FALSE(none.logMessage("", kLevelNote));
    none.showMessage("x", {}, kLevelNote);
    none.reportValues("P", {}, {});
}

TEST(HelperReports, ValuesAndFailuresCarryOnlyTheCaseKeys) {
    FakeHost host;
    Probe p(&host);
    const StringStringMap keys{{"analysisName", "A"}, {"evalId", "7"}, {"caseIndex", "2"}};
    StringStringMap data = keys, failed = keys;
    data["destDir"] = "/x";
    failed["errorInCall"] = "true";
    p.reportValues("R", data, {{1.5, 2.0}, {}});
    p.reportValues("S", data, {{}, {"text"}});
    p.reportValues("P", data, {});
    p.reportErrorInCall("Q", data, "it broke");
    const auto& r = host.context.responses;
    ASSERT_EQ(r.size(), 4u);
    EXPECT_EQ(r[0].caseInfo, keys);
    EXPECT_EQ(r[0].values.numbers, (std::vector<double>{1.5, 2.0}));
    EXPECT_EQ(r[1].caseInfo, keys);
    EXPECT_EQ(r[1].values.strings, StringList{"text"});
    failed["message"] = "No values provided for response 'P'";
    EXPECT_EQ(std::tie(r[2].name, r[2].caseInfo), std::make_tuple("P", failed));
    EXPECT_TRUE(r[2].values.numbers.empty() && r[2].values.strings.empty());
    failed["message"] = "it broke";
    EXPECT_EQ(std::tie(r[3].name, r[3].caseInfo), std::make_tuple("Q", failed));
}

TEST(HelperSwitches, CleanupUnlessTheVariableSaysNoAskedOnce) {
    const std::pair<std::optional<String>, bool> cases[] = {
        {std::nullopt, true}, {"", true}, {"no", false}, {"FALSE", false},
        {"0", false},         {"keep", true}, {"yes", true},
    };
    for (const auto& [value, want] : cases) {
        std::optional<ScopedEnv> env;
        env.emplace("MQT_PROBE_CLEANUP", value);
        Probe p(nullptr);
        EXPECT_EQ(p.shouldCleanup(), want) << value.value_or("<unset>");
        env.reset();
        env.emplace("MQT_PROBE_CLEANUP", want ? "no" : "yes");
        EXPECT_EQ(p.shouldCleanup(), want) << "read again";
    }
}

TEST(HelperTagCache, KeyIsTheBaseNameWithExtensionAndOnlySuccessfulReadsAreStored) {
    Probe p(nullptr);
    int reads = 0, result = 0;
    StringStringMap seen;
    auto reader = [&](const String& file, const StringStringMap& data, std::list<TagData>& tags,
                      StringStringMap& outputs, String& errors) {
        ++reads;
        seen = data;
        EXPECT_TRUE(outputs.empty() && errors.empty());
        outputs["x"] = "y";
        errors = "ERROR: dropped";
        if (file.find("empty") == String::npos) tags = {TagData{{"row1"}, "p1", "in", {}}};
        return result;
    };
    std::list<TagData> a, b, c;
    EXPECT_TRUE(p.cachedTags("/one/P_in_A.tag", "inputFilename", "deck.dat", a, reader));
    EXPECT_EQ(seen, (StringStringMap{{"inputFilename", "deck.dat"}}));
    EXPECT_TRUE(p.cachedTags("C:\\two\\P_in_A.tag", "outputFilename", "other.dat", b, reader));
    EXPECT_EQ(reads, 1);
    EXPECT_EQ(b, a);
    EXPECT_TRUE(p.cachedTags("/one/P_in_A.xml", "inputFilename", "deck.dat", c, reader));
    EXPECT_EQ(reads, 2);
    // A read that gives no tags is stored; a failed read is not.
    EXPECT_FALSE(p.cachedTags("empty.tag", "k", "n", c = {}, reader));
    EXPECT_FALSE(p.cachedTags("empty.tag", "k", "n", c = a, reader));
    EXPECT_TRUE(c.empty());
    EXPECT_EQ(reads, 3);
    result = 1;
    EXPECT_FALSE(p.cachedTags("failed.tag", "k", "n", c, reader));
    EXPECT_FALSE(p.cachedTags("failed.tag", "k", "n", c, reader));
    EXPECT_EQ(reads, 5);
}

TEST(HelperText, ParseNumberAndIsNumberWithAGivenSeparator) {
    const std::tuple<const char*, char, double, bool> cases[] = {
        {"1.234,5", ',', 1234.5, true}, {"3,5", ',', 3.5, true},          {"1,234.5", '.', 1234.5, true},
        {" -2.5e3 \t\n", '.', -2500, true}, {"42abc", '.', 42, false},   {"1 2", '.', 1, false},
        {"abc", '.', 0, false},         {"", ',', 0, false},
    };
    for (const auto& [text, sep, value, whole] : cases) {
        EXPECT_DOUBLE_EQ(H::parseNumber(text, sep), value) << text;
        EXPECT_EQ(H::isNumber(text, sep), whole) << text;
    }
}

TEST(HelperText, ParseNumberWithTheUsersDecimalPoint) {
    if (H::localeDecimalSign() != '.') GTEST_SKIP() << "the user's decimal sign is not '.'";
    EXPECT_DOUBLE_EQ(H::parseNumber("1,234.5"), 1234.5);
    EXPECT_TRUE(H::isNumber("12.9"));
}

TEST(HelperText, SplitKeepsEmptyPiecesAndJoinUndoesIt) {
    const std::tuple<const char*, bool, StringList> cases[] = {
        {"a,b,,c", false, {"a", "b", "", "c"}}, {"", false, {}},
        {"a,", false, {"a", ""}},               {",", false, {"", ""}},
        {" a , b\t", true, {"a", "b"}},         {" a ", false, {" a "}},
    };
    for (const auto& [text, trimEach, want] : cases) {
        EXPECT_EQ(H::split(text, ',', trimEach), want) << text;
        if (!trimEach) {
            EXPECT_EQ(H::join(want, ","), text);
        }
    }
    EXPECT_EQ(H::join({"a", "", "b"}, "--"), "a----b");
}

TEST(HelperText, SectionCountsFromEitherEnd) {
    const std::tuple<const char*, const char*, int, int, const char*> cases[] = {
        {"a/b/c/d", "/", 0, 1, "a"},    {"a/b/c/d", "/", 1, 2, "b/c"},  {"a/b/c/d", "/", -1, 1, "d"},
        {"a/b/c/d", "/", -2, 1, "c"},   {"a/b/c/d", "/", 2, 0, "c/d"},  {"a/b/c/d", "/", 1, -3, "b/c/d"},
        {"a/b/c/d", "/", 2, 10, "c/d"}, {"a/b/c/d", "/", 4, 1, ""},     {"a/b/c/d", "/", -5, 1, ""},
        {"abc", "/", 0, 1, ""},         {"a::b::c", "::", 1, 1, "b"},   {"a//b", "/", 1, 1, ""},
    };
    for (const auto& [text, sep, first, count, want] : cases)
        EXPECT_EQ(H::section(text, sep, first, count), want) << text << " " << first << " " << count;
}

TEST(HelperText, TrimAndReplaceAllWorkInPlace) {
    String t = "\t a b \r\n", blank = " \t\r\n";
    EXPECT_EQ(&H::trim(t), &t);
    EXPECT_EQ(t, "a b");
    EXPECT_EQ(H::trim(blank), "");
    const std::tuple<const char*, const char*, const char*, const char*> cases[] = {
        {"aaa", "a", "aa", "aaaaaa"}, {"x.y.z", ".", "", "xyz"}, {"abab", "ab", "b", "bb"},
        {"abc", "", "x", "abc"},     {"%1%1", "%1", "%1x", "%1x%1x"},
    };
    for (const auto& [text, from, to, want] : cases) {
        String s = text;
        EXPECT_EQ(H::replaceAll(s, from, to), want) << text;
    }
}
