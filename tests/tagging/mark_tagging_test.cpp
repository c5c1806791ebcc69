// Tests of the mark tagging module: its tag definition files written and read
// back, input files rewritten with a design's values (and left alone when a
// step fails), and response values taken out of output files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <optional>

#include "fake_host.h"
#include "zeltra/tagging.h"

using namespace MOSAQ;
using namespace MOSAQ::Portals;
using fakehost::FakeHost;
using fakehost::readFile;
using fakehost::ScopedEnv;
using fakehost::TempDir;
using testing::Contains;
using H = HelperBase;

namespace {

String text(const char* table, const String& key) {
    return Support::StringTable::lookup(table, ".Portal" + key);
}
String line(const char* level, const char* table, const String& key, const StringList& args) {
    return H::formatList(H::normalizeLevel(text(table, key), level), args);
}
StringList lines(const String& errors) { return H::split(errors, '\n'); }

TagData markTag(const String& mode, const String& row, const String& delims, const String& col,
                const String& name, const String& type = "real", const String& format = "%g") {
    TagData t;
    t.paramName = name;
    t.paramType = type;
    t.properties = {{"mode", mode, ""}, {"row", row, ""}, {"delims", delims, ""},
                    {"col", col, ""},   {"format", format, ""}, {"filename", "deck.dat", ""}};
    return t;
}

// A tag file as the module writes it, with the given tag lines.
String markFile(const StringList& tagLines) {
    return "$ File type, version\nmarking, 1\n$ Tag definition file: deck.dat\n$ Tag type, Num tags\n"
           "MARKING, 5\n$ free\n\\s\n$ fixed\n10\n$ Mode, Row, Delims, Col, Param type, Param name, "
           "Print Fmt\n" + H::join(tagLines, "\n");
}

bool exists(const String& path) { return std::filesystem::exists(path); }

// Makes the support layer's rename fail, for one scope, when its source or
// target ends in a suffix.
String refusedSuffix;
int refusingRename(const char* from, const char* to) {
    if (String(from).ends_with(refusedSuffix) || String(to).ends_with(refusedSuffix)) {
        errno = EACCES;
        return -1;
    }
    return Support::defaultFileSystemOps().rename(from, to);
}
struct RenameGuard {
    Support::FileSystemOps saved = Support::fileSystemOps();
    explicit RenameGuard(const String& suffix) {
        refusedSuffix = suffix;
        Support::fileSystemOps().rename = refusingRename;
    }
    ~RenameGuard() { Support::fileSystemOps() = saved; }
};

class MarkRun : public testing::Test {
protected:
    ScopedEnv stages{"MQT_PRESERVE_TAGGED_FILE_STAGES", std::nullopt};
    ScopedEnv keys{"MQT_WRITE_TAGKEY", std::nullopt};
    FakeHost host;
    TempDir dir;
    const String deck = dir.file("deck.dat");
    const String tags = dir.file("M_in_A1_deck.dat");

    // Runs tagInputs on deck.dat with a fresh module (its tag cache empty).
    bool tagDeck(const String& content, const StringList& tagLines, String& errors,
                 const String& extraFile = "", const String& extraTags = "") {
        dir.write("deck.dat", content);
        dir.write("M_in_A1_deck.dat", markFile(tagLines));
        MarkTagging mark(&host);
        return mark.tagInputs({{"inputFilepaths", deck + "\n" + extraFile},
                               {"inputTagFilepaths", " " + tags + " \n" + extraTags}},
                              nullptr, errors);
    }
};

}  // namespace

TEST_F(MarkRun, WritesTheTagFileByteForByteWithKeyComments) {
    ScopedEnv withKeys("MQT_WRITE_TAGKEY", "");
    TagData x = markTag("free", "3", "\\,;\\\\", "2", "x"), n = markTag("fixed", "12", "8.8.*", "3", "n", "int", "%5d");
    x.path = {"deck", "x"};
    n.path = {"deck", "n"};
    TagData other = markTag("free", "1", "\\s", "1", "o");
    other.properties.back().value = "other.dat";
    StringStringMap outputs;
    String errors;
    MarkTagging mark(&host);
    ASSERT_TRUE(mark.writeInputTagging("deck.dat", {x, other, n},
                                       {{"destDir", dir.path()}, {"version", "2.1"}, {"analysisName", "A1"},
                                        {"delims", ""}, {"widths", "8.8"}},
                                       outputs, errors));
    EXPECT_EQ(readFile(tags),
              "$ File type, version\nmarking, 2.1\n$ Tag definition file: deck.dat\n$ Tag type, Num tags\n"
              "MARKING, 2\n$ Default delimited (free) parser (\\s=space \\t=tab \\,=comma \\\\=backslash)\n"
              "\\,;\"=()'\\t\\s\n$ Default fixed parser (*=remainder of line)\n8.8\n"
              "$ Mode, Row, Delims, Col, Param type, Param name, Print Fmt\n"
              "$ TAGKEY = deck.x\nfree, 3,\\,;\\\\, 2, real, x, %g\n"
              "$ TAGKEY = deck.n\nfixed, 12,8.8.*, 3, int, n, %5d");
    EXPECT_EQ(outputs, (StringStringMap{{"deck.dat_intagfile", "M_in_A1_deck.dat"}}));
    EXPECT_EQ(errors, "");

    // Read back: the key comments and the count line go, the rest comes back.
    std::list<TagData> read;
    StringStringMap defaults;
    ASSERT_EQ(mark.readInputTagging(tags, {{"inputFilename", "deck.dat"}}, read, defaults, errors), 0);
    x.path.clear();
    n.path.clear();
    EXPECT_EQ(read, (std::list<TagData>{x, n}));
    EXPECT_EQ(defaults, (StringStringMap{{"delims", "\\,;\"=()'\\t\\s"}, {"widths", "8.8"}}));
}

TEST_F(MarkRun, WritesOutputTagFileOnlyWhereAskedAndSaysSoWhenItCannot) {
    MarkTagging mark(&host);
    const std::list<TagData> one{markTag("fixed", "1", "10", "1", "r")};
    StringStringMap outputs;
    String errors;
    EXPECT_TRUE(mark.writeOutputTagging("none.dat", one, {{"destDir", dir.path()}}, outputs, errors));
    EXPECT_TRUE(outputs.empty());
    EXPECT_TRUE(mark.writeOutputTagging("deck.dat", one, {{"analysisName", "A1"}}, outputs, errors));
    EXPECT_EQ(outputs, (StringStringMap{{"deck.dat_outtagfile", "M_out_A1_deck.dat"}}));
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
    EXPECT_EQ(errors, "");
    EXPECT_FALSE(mark.writeOutputTagging("deck.dat", one, {{"destDir", dir.file("no/such")}}, outputs, errors));
    EXPECT_EQ(errors, line("ERROR", "Marking", ".err.writeMarkDefnFile", {"deck.dat"}));
}

TEST_F(MarkRun, ReadsTagFilesAndRefusesOthers) {
    const String a = "free, 1,\\s, 1, real, a, %g";
    const StringStringMap defaults{{"delims", "\\s"}, {"widths", "10"}};
    // What the file holds; the result, the tag names read, the defaults read, the message.
    const std::tuple<String, int, StringList, StringStringMap, const char*> cases[] = {
        {markFile({a, "", "$ a comment", "  fixed, 2,8.8.*, 3, real, b, %g  "}), 0, {"a", "b"}, defaults, ""},
        {"$ x\nmarking, 9\n\n\n" + a + "\r\n", 0, {"a"}, {{"delims", ""}, {"widths", ""}}, ""},
        {"$ x\n  scripting, 1\n" + a, -1, {}, {}, ""},
        {"", -1, {}, {}, ""},
        {String("\0\xff\x01\nmark\0ing\n", 13), -1, {}, {}, ""},
        {markFile({a, "free, 1,\\s,x, 1, real, b, %g"}), 1, {"a"}, defaults, ".err.invalidTagData"},
        {markFile({"free, 1,;,, 1, real, c, %g"}), 1, {}, defaults, ".err.invalidTagData"},
    };
    for (const auto& [content, result, names, read, error] : cases) {
        SCOPED_TRACE(testing::PrintToString(content));
        std::list<TagData> tagList;
        StringStringMap outputs;
        String errors;
        EXPECT_EQ(MarkTagging(&host).readInputTagging(dir.write("M_in_A1_deck.dat", content),
                                                      {{"inputFilename", "deck.dat"}}, tagList, outputs, errors),
                  result);
        StringList got;
        for (const TagData& t : tagList) got.push_back(t.paramName);
        EXPECT_EQ(got, names);
        EXPECT_EQ(outputs, read);
        EXPECT_EQ(errors, *error ? line("ERROR", "Marking", error, {tags}) : "");
    }
    std::list<TagData> tagList;
    StringStringMap outputs;
    String errors;
    EXPECT_EQ(MarkTagging(&host).readOutputTagging("", {}, tagList, outputs, errors), -1);
    EXPECT_EQ(MarkTagging(&host).readOutputTagging(dir.file("absent"), {}, tagList, outputs, errors), 1);
    EXPECT_EQ(errors, line("ERROR", "Marking", ".err.openTagDefnFile", {dir.file("absent")}));
}

TEST_F(MarkRun, RewritesFreeAndFixedTagsAndAsksForEachValue) {
    host.context.designValues = {{"nine", "N1 N2"}, {"ten", "TEN"}, {"two", "QQQ"}, {"five", "T"}, {"fx", "42"}};
    String errors;
    ASSERT_TRUE(tagDeck("title line\nt1 t2 t3 t4 t5 t6 t7 t8 t9 t10 t11\np q r s t\n0123456789ABCDEFGHIJ\n"
                        "last line stays bare",
                        {"free, 2,\\s, 10, real, ten, %g", "fixed, 4,10, 2, int, fx, %5d",
                         "free, 2,\\s, 9, real, nine, %g", "free, 3,\\s, 5, real, five, %.3f",
                         "free, 99,\\s, 1, real, gone, %g", "free, 3,\\s, 2, real, two, %g"},
                        errors))
        << errors;
    // Col 9 before col 10: the blank in "N1 N2" moves token 10 onto "N2".
    EXPECT_EQ(readFile(deck), "title line\nt1 t2 t3 t4 t5 t6 t7 t8 N1 TEN t10 t11\np QQQ r s T\n"
                              "0123456789        42\nlast line stays bare");
    EXPECT_EQ(errors, line("WARNING", "tagging", ".warn.replaceFixedTokenDiffLengthInFile", {"4", deck, "11", "20", "2"}));
    StringList asked;
    for (const auto& r : host.context.designRequests)
        asked.push_back(r.paramType + "|" + r.paramName + "|" + r.source + "|" + r.format);
    EXPECT_EQ(asked, (StringList{"real|nine|" + tags + "|%g", "real|ten|" + tags + "|%g",
                                 "real|five|" + tags + "|%.3f", "real|two|" + tags + "|%g",
                                 "int|fx|" + tags + "|%5d"}));
    EXPECT_FALSE(exists(deck + ".temp"));
    EXPECT_FALSE(exists(deck + ".orig"));
    EXPECT_FALSE(exists(deck + ".afterMarking"));
}

TEST_F(MarkRun, KeepsTheFormOfLinesNoTagTouches) {
    host.context.designValues = {{"x", "X"}};
    const std::tuple<const char*, String, String> cases[] = {
        {"free, 2,\\s, 2, real, x, %g", "a b\nc d", "a b\nc X\n"},
        {"free, 7,\\s, 1, real, x, %g", "a b\nc d", "a b\nc d"},
        {"free, -1e12,\\s, 1, real, x, %g", "a b\nc d\n", "a b\nc d\n"},
        {"free, 1,\\s, -2, real, x, %g", "a b\n\nc", "a b\n\nc"},
        {"fixed, 1,*, 1, real, x, %g", "a\n", "X\n"},
        // "\r\n" line ends stay, on touched and untouched lines alike.
        {"free, 2,\\s, 2, real, x, %g", "a b\r\nc d\r\ne f\r\n", "a b\r\nc X\r\ne f\r\n"},
        {"fixed, 1,*, 1, real, x, %g", "abc\r\n", "  X\r\n"},
    };
    for (const auto& [tag, before, after] : cases) {
        SCOPED_TRACE(tag);
        String errors;
        EXPECT_TRUE(tagDeck(before, {tag}, errors)) << errors;
        EXPECT_EQ(readFile(deck), after);
    }
}

TEST_F(MarkRun, FailedStepLeavesEveryInputAsItWasAndStops) {
    host.context.designValues = {{"x", "v"}};
    const String content = "a b c\n0123456789";
    const std::pair<const char*, String> cases[] = {
        {"free, 1,\\s, 9, real, x, %g", line("ERROR", "tagging", ".err.updateDelimTokenInFile", {"9", "1", deck, "3", " "})},
        {"fixed, 2,10, 5, real, x, %g",
         line("ERROR", "tagging", ".err.replaceFixedTokenBigStartPosInFile", {"2", deck, "41", "10"})},
        {"fixed, 2,10, 1e12, real, x, %g",
         line("ERROR", "tagging", ".err.replaceFixedTokenBigStartPosInFile", {"2", deck, "2.14748e+09", "10"})},
        {"fixed, 2,0, 1, real, x, %g", line("ERROR", "tagging", ".err.fixedStringSmallColWidth", {"0"})},
        {"fixed, 2,8..8, 3, real, x, %g", line("ERROR", "tagging", ".err.fixedStringSmallColWidth", {""})},
        {"bogus, 1,\\s, 1, real, x, %g", line("ERROR", "Marking", ".err.unknownTagMode", {"x", "bogus", deck})},
    };
    const String later = dir.write("later.dat", "untouched\n");
    const String laterTags = dir.write("M_in_A1_later.dat", markFile({"free, 1,\\s, 1, real, x, %g"}));
    for (const auto& [tag, want] : cases) {
        SCOPED_TRACE(tag);
        String errors;
        EXPECT_FALSE(tagDeck(content, {"free, 1,\\s, 1, real, x, %g", tag}, errors, later, laterTags));
        EXPECT_THAT(lines(errors), Contains(want));
        EXPECT_EQ(readFile(deck), content);
        EXPECT_EQ(readFile(later), "untouched\n");
    }
}

TEST_F(MarkRun, UnreadableTagFileOrInputIsReportedAndTheInputKept) {
    const String content = "a b\n";
    String errors;
    dir.write("deck.dat", content);
    MarkTagging mark(&host);
    const String absent = dir.file("M_in_A1_absent.dat");
    EXPECT_FALSE(mark.tagInputs({{"inputFilepaths", deck}, {"inputTagFilepaths", absent}}, nullptr, errors));
    EXPECT_THAT(lines(errors), Contains(line("ERROR", "Marking", ".err.openTagDefnFile", {absent})));

    errors.clear();
    EXPECT_FALSE(tagDeck(content, {"free, 1,\\s,;, 1, real, x, %g"}, errors));
    EXPECT_THAT(lines(errors), Contains(line("ERROR", "Marking", ".err.invalidTagData", {tags})));
    EXPECT_EQ(readFile(deck), content);

    errors.clear();
    dir.write("M_in_A1_deck.dat", "");
    EXPECT_TRUE(MarkTagging(&host).tagInputs({{"inputFilepaths", deck}, {"inputTagFilepaths", tags}}, nullptr, errors));
    EXPECT_EQ(readFile(deck), content);

    errors.clear();
    std::filesystem::create_directory(deck + ".temp");
    host.context.designValues = {{"x", "X"}};
    EXPECT_FALSE(tagDeck(content, {"free, 1,\\s, 1, real, x, %g"}, errors));
    EXPECT_EQ(errors, line("ERROR", "Marking", ".err.writeTempFile", {deck + ".temp", deck}));
    EXPECT_EQ(readFile(deck), content);

    errors.clear();
    std::filesystem::remove(deck);
    dir.write("M_in_A1_deck.dat", markFile({"free, 1,\\s, 1, real, x, %g"}));
    EXPECT_FALSE(MarkTagging(&host).tagInputs({{"inputFilepaths", deck}, {"inputTagFilepaths", tags}}, nullptr, errors));
    EXPECT_EQ(errors, line("ERROR", "Marking", ".err.openInputFile", {deck}));
}

TEST_F(MarkRun, StageVariableKeepsOldAndNewText) {
    host.context.designValues = {{"x", "X"}};
    const std::pair<std::optional<String>, bool> cases[] = {
        {std::nullopt, false}, {"", false}, {"no", false}, {"TRUE", true}, {"1", true}};
    for (const auto& [value, kept] : cases) {
        SCOPED_TRACE(value.value_or("(unset)"));
        ScopedEnv env("MQT_PRESERVE_TAGGED_FILE_STAGES", value);
        std::filesystem::remove(deck + ".orig");
        std::filesystem::remove(deck + ".afterMarking");
        String errors;
        ASSERT_TRUE(tagDeck("a b\n", {"free, 1,\\s, 2, real, x, %g"}, errors)) << errors;
        EXPECT_EQ(readFile(deck), "a X\n");
        EXPECT_EQ(exists(deck + ".orig"), kept);
        EXPECT_EQ(exists(deck + ".afterMarking"), kept);
        if (kept) {
            EXPECT_EQ(readFile(deck + ".orig"), "a b\n");
            EXPECT_EQ(readFile(deck + ".afterMarking"), "a X\n");
        }
        EXPECT_FALSE(exists(deck + ".temp"));
    }
}

TEST_F(MarkRun, FailedRenamesAreReportedWithTheNewTextKept) {
    host.context.designValues = {{"x", "X"}};
    String errors;
    {
        ScopedEnv env("MQT_PRESERVE_TAGGED_FILE_STAGES", "true");
        RenameGuard guard(".orig");
        EXPECT_TRUE(tagDeck("a b\n", {"free, 1,\\s, 2, real, x, %g"}, errors));
    }
    EXPECT_EQ(errors, line("WARNING", "Marking", ".err.renameOrigFile", {}));
    EXPECT_EQ(readFile(deck), "a X\n");
    EXPECT_EQ(readFile(deck + ".afterMarking"), "a X\n");
    EXPECT_FALSE(exists(deck + ".orig"));

    errors.clear();
    {
        RenameGuard guard(".temp");
        EXPECT_FALSE(tagDeck("a b\n", {"free, 1,\\s, 2, real, x, %g"}, errors));
    }
    EXPECT_EQ(errors, line("ERROR", "Marking", ".err.renameModFile", {deck + ".temp", deck}));
    EXPECT_EQ(readFile(deck + ".temp"), "a X\n");
}

TEST_F(MarkRun, WithoutContextNothingIsTagged) {
    host.offerContext = false;
    MarkTagging mark(&host);
    String errors;
    EXPECT_FALSE(mark.tagInputs({}, nullptr, errors));
    EXPECT_FALSE(mark.tagOutputs({}, nullptr, errors));
}

class MarkOutputs : public MarkRun {
protected:
    const String out = dir.file("out.txt");
    const String outTags = dir.file("M_out_A1_out.txt");

    bool tagOut(const StringList& tagLines, String& errors) {
        dir.write("M_out_A1_out.txt", markFile(tagLines));
        for (const char* name : {"r1", "r2", "r3", "r4", "r5", "r6"})
            host.context.analysisProperties[{"/runs/a1", String("responseDataType#") + name}] = {
                {"responseDataType", "Numeric"}};
        MarkTagging mark(&host);
        return mark.tagOutputs({{"outputFilepaths", "\n" + out}, {"outputTagFilepaths", "\n" + outTags},
                                {"analysisDir", "/runs/a1"}, {"analysisName", "A1"}, {"evalId", "3"}},
                               nullptr, errors);
    }
};

TEST_F(MarkOutputs, ReportsOneValueOrOneFailurePerResponse) {
    dir.write("out.txt", "header\r\nresult = 1.5e3 ; label = abc\r\n12345678abcdefgh rest of it\r\n");
    String errors;
    EXPECT_TRUE(tagOut({"free, 2,\\s=;, 2, real, r1, %g", "free, 2,\\s=;, 4, real, r2, %g",
                        "fixed, 3,8.8.*, 3, string, s1, %s", "free, 9,\\s, 1, real, r4, %g",
                        "fixed, 3,8.8.*, 1, real, r3, %g", "free, -4,\\s, 1, real, r6, %g"},
                       errors));
    EXPECT_EQ(errors, H::format(text("Marking", ".msg.processOutputTags"), out));
    const auto& ctx = host.context;
    ASSERT_EQ(ctx.responses.size(), 6u);
    const auto* r1 = ctx.response("r1");
    ASSERT_TRUE(r1);
    EXPECT_FALSE(r1->failed());
    EXPECT_EQ(r1->values.numbers, std::vector<double>{1500});
    EXPECT_EQ(H::value(r1->caseInfo, "evalId"), "3");
    EXPECT_EQ(ctx.response("r3")->values.numbers, std::vector<double>{12345678});
    EXPECT_EQ(ctx.response("s1")->values.strings, StringList{" rest of it"});
    EXPECT_TRUE(ctx.response("s1")->values.numbers.empty());
    const std::pair<const char*, String> failures[] = {
        {"r2", H::formatList(text("Marking", ".err.convertStringToNum"), {"r2", "abc"})},
        {"r4", H::formatList(text("Marking", ".err.storeRespValue"), {"r4", "9", "out.txt"})},
        {"r6", H::formatList(text("Marking", ".err.storeRespValue"), {"r6", "-4", "out.txt"})},
    };
    for (const auto& [name, message] : failures) {
        const auto* r = ctx.response(name);
        ASSERT_TRUE(r) << name;
        EXPECT_TRUE(r->failed()) << name;
        EXPECT_EQ(H::value(r->caseInfo, "message"), message);
    }
    for (const auto& p : ctx.propertyRequests) EXPECT_EQ(p.analysisName, "/runs/a1");
}

TEST_F(MarkOutputs, TokenPastTheLineEndFailsThatResponseAndTheRun) {
    dir.write("out.txt", "x 1 2");
    String errors;
    EXPECT_FALSE(tagOut({"free, 1,\\s, 9, real, r5, %g", "fixed, 1,2, 1e12, real, r1, %g",
                         "free, 1,\\s, 3, real, r2, %g"},
                        errors));
    EXPECT_THAT(lines(errors), Contains(line("ERROR", "tagging", ".err.extractDelimTokenInFile", {"9", "1", out, "3", " "})));
    EXPECT_THAT(lines(errors),
                Contains(line("ERROR", "tagging", ".err.extractFixedTokenBigStartPosInFile", {"1", out, "2.14748e+09", "5"})));
    for (const char* name : {"r5", "r1"}) {
        ASSERT_TRUE(host.context.response(name)) << name;
        EXPECT_EQ(H::value(host.context.response(name)->caseInfo, "message"),
                  H::format(text("Marking", ".err.extractRespValue"), name));
    }
    EXPECT_EQ(host.context.response("r2")->values.numbers, std::vector<double>{2});
}

TEST_F(MarkOutputs, MissingOutputFileEndsTheRun) {
    String errors;
    EXPECT_FALSE(tagOut({"free, 1,\\s, 1, real, r1, %g"}, errors));
    EXPECT_THAT(lines(errors), Contains(line("ERROR", "Marking", ".err.openOutputFile", {out})));
    EXPECT_TRUE(host.context.responses.empty());
}
