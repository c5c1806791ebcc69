// One study played end to end through the loaded plug-in and the fake host:
// tag files written and read back, a design's values brought into a real
// solver input, the solver's messages judged, and responses taken out of a
// text output. The host must see exactly the expected requests and reports.
#include <dlfcn.h>

#include <gtest/gtest.h>

#include <memory>

#include "fake_host.h"
#include "loaded_portal.h"
#include "zeltra/interfaces.h"

using namespace MOSAQ;
using namespace MOSAQ::Portals;
using fakehost::FakeHost;
using fakehost::readFile;
using fakehost::TempDir;

namespace {

TagData markTag(const String& mode, const String& row, const String& delims, const String& col,
                const String& type, const String& name, const String& file) {
    return {{"deck", name},
            name,
            type,
            {{"mode", mode, ""},
             {"row", row, ""},
             {"delims", delims, ""},
             {"col", col, ""},
             {"format", "%g", ""},
             {"filename", file, ""}}};
}

const char* const kDeck =
    "* beam deck\n"
    "LENGTH = 1.0 ; WIDTH = 0.1\n"
    "MATERIAL steel\n"
    "LOAD    100.0   200.0   300.0\n"
    "END";  // no final line feed

const char* const kResults =
    "tip deflection 0.0123 m\n"
    "max stress     1.5e3  MPa\n"
    "status         ok\n"
    "mass           abc\n";

using MarkStudy = LoadedPortal;

TEST_F(MarkStudy, PlaysOneDesignEndToEnd) {
    // --- setting the study up ---------------------------------------------------
    // The SDF portal keeps no input tag definitions of its own: the host's
    // request is refused, and any input tag file counts as read.
    const StringStringMap setup{{"mode", "free"},      {"destDir", study.path()},
                                {"analysisName", "A1"}, {"version", "3"}};
    StringStringMap outputs;
    String errors;
    EXPECT_FALSE(portal->writeInputTagFile(
        "deck.inp", {markTag("free", "2", "\\s", "2", "Double", "length", "deck.inp")}, setup,
        outputs, errors));
    EXPECT_TRUE(errors.empty() && outputs.empty());
    // So the input's mark tags come as the study saved them, several on a line.
    // The output tags written through the portal are read back by the
    // responses below: five, as "elsewhere" names another file.
    const String inTag = study.write("M_in_A1_deck.inp",
                                     "$ File type, version\n"
                                     "marking, 3\n"
                                     "$ Tag definition file: deck.inp\n"
                                     "$ Tag type, Num tags\n"
                                     "MARKING, 5\n"
                                     "$ Default delimited (free) parser\n"
                                     "\\,;\"=()'\\t\\s\n"
                                     "$ Default fixed parser (*=remainder of line)\n"
                                     "10\n"
                                     "$ Mode, Row, Delims, Col, Param type, Param name, Print Fmt\n"
                                     "free, 2,\\s=;, 2, Double, length, %g\n"
                                     "free, 2,\\s=;, 4, Double, width, %g\n"
                                     "fixed, 4,8.8, 2, Double, load1, %g\n"
                                     "fixed, 4,8.8, 3, Double, load2, %g\n"
                                     "free, 3,\\s, 2, String, material, %s");

    // Output tags are written through the portal and read back.
    const std::list<TagData> outputTags = {
        markTag("free", "1", "\\s", "3", "Double", "deflection", "results.txt"),
        markTag("free", "2", "\\s", "3", "Double", "stress", "results.txt"),
        markTag("fixed", "3", "15.*", "2", "String", "status", "results.txt"),
        markTag("free", "4", "\\s", "2", "Double", "mass", "results.txt"),
        markTag("free", "9", "\\s", "1", "Double", "beyond", "results.txt"),
        markTag("free", "1", "\\s", "1", "Double", "elsewhere", "other.txt"),
    };
    ASSERT_TRUE(portal->writeOutputTagFile("results.txt", outputTags, setup, outputs, errors))
        << errors;
    EXPECT_EQ(outputs.at("results.txt_outtagfile"), "M_out_A1_results.txt");
    const String outTag = study.file("M_out_A1_results.txt");


    // --- one design ---------------------------------------------------------------
    const String deck = run.write("deck.inp", kDeck);
    const String results = run.write("results.txt", kResults);
    host.context.designValues = {{"length", "2.5"}, {"width", "0.25"}, {"load1", "1234.5"},
                                 {"load2", "-7"},   {"material", "aluminium"}};
    for (const char* r : {"deflection", "stress", "mass", "beyond"})
        host.context.analysisProperties[{"A1dir", String("responseDataType#") + r}] = {
            {"responseDataType", "Numeric"}};
    const StringStringMap design{{"analysisName", "A1"},
                                 {"analysisDir", "A1dir"},
                                 {"evalId", "5"},
                                 {"caseIndex", "0"},
                                 {"destDir", run.path()},
                                 {"inputFilepaths", deck},
                                 {"inputTagFilepaths", inTag},
                                 {"outputFilepaths", results},
                                 {"outputTagFilepaths", outTag}};
    errors.clear();
    ASSERT_TRUE(portal->processInputs(design, nullptr, errors)) << errors;
    EXPECT_FALSE(errors.find("ERROR") != String::npos) << errors;
    EXPECT_EQ(readFile(deck),
              "* beam deck\n"
              "LENGTH = 2.5 ; WIDTH = 0.25\n"
              "MATERIAL aluminium\n"
              "LOAD      1234.5      -7300.0\n"  // fields of 8, right-justified
              "END");
    // Within a line, the higher column first; the source is the tag file.
    const std::vector<std::pair<String, String>> asked = {
        {"width", "Double"}, {"length", "Double"}, {"material", "String"},
        {"load2", "Double"}, {"load1", "Double"}};
    ASSERT_EQ(host.context.designRequests.size(), asked.size());
    for (std::size_t i = 0; i < asked.size(); ++i) {
        const auto& r = host.context.designRequests[i];
        EXPECT_EQ(r.paramName, asked[i].first);
        EXPECT_EQ(r.paramType, asked[i].second);
        EXPECT_EQ(r.source, inTag);
        EXPECT_EQ(r.format, r.paramName == "material" ? "%s" : "%g");
    }
    // Fixed fields of width 8 got values of other widths: warnings, no errors.
    EXPECT_NE(errors.find("WARNING: "), String::npos);

    // --- the responses (their failures are the mark module's own tests) ----------
    errors.clear();
    EXPECT_TRUE(portal->processOutputs(design, nullptr, errors)) << errors;
    ASSERT_EQ(host.context.responses.size(), 5u);
    for (const auto& [name, value] : {std::pair<String, double>{"deflection", 0.0123}, {"stress", 1500.0}}) {
        ASSERT_NE(host.context.response(name), nullptr) << name;
        EXPECT_EQ(host.context.response(name)->values.numbers, std::vector<double>{value}) << name;
    }
    const auto* status = host.context.response("status");
    ASSERT_NE(status, nullptr);
    EXPECT_EQ(status->values.strings, StringList{"ok"});
    EXPECT_EQ(status->caseInfo.at("evalId"), "5");
    for (const char* name : {"mass", "beyond"}) EXPECT_TRUE(host.context.response(name)->failed()) << name;

    portal->finishRun(nullptr, nullptr);
}

TEST_F(MarkStudy, AFailedDesignLosesNothing) {
    const String inTag = study.write("M_in_A1_deck.inp",
                                     "$ x\nmarking, 1\n\\s\n10\n"
                                     "free, 1,\\s, 1, Double, a, %g\n"
                                     "free, 2,\\s, 9, Double, b, %g\n");  // past the line's end
    String errors;
    const String deck = run.write("deck.inp", "1 2 3\n4 5 6\n");
    host.context.designValues = {{"a", "10"}, {"b", "20"}};
    const StringStringMap design{{"inputFilepaths", deck},
                                 {"inputTagFilepaths", inTag}};
    EXPECT_FALSE(portal->processInputs(design, nullptr, errors));
    EXPECT_EQ(readFile(deck), "1 2 3\n4 5 6\n");
    EXPECT_NE(errors.find("ERROR: "), String::npos);
    EXPECT_NE(errors.find(deck), String::npos) << "the message names the file: " << errors;

    // A missing input file is reported by name.
    errors.clear();
    const StringStringMap missingIn{{"inputFilepaths", run.file("gone.inp")},
                                    {"inputTagFilepaths", inTag}};
    EXPECT_FALSE(portal->processInputs(missingIn, nullptr, errors));
    EXPECT_NE(errors.find(run.file("gone.inp")), String::npos) << errors;

}

TEST_F(MarkStudy, AMalformedTagFileIsReportedAndTheInputKept) {
    const String tag = study.write("M_in_A1_deck.inp",
                                   "$ File type, version\nmarking, 1\n\\s\n10\nfree, 1, 2\n");
    const String deck = run.write("deck.inp", "1 2 3\n");
    String errors;
    EXPECT_FALSE(portal->processInputs({{"inputFilepaths", deck}, {"inputTagFilepaths", tag}},
                                       nullptr, errors));
    EXPECT_NE(errors.find(tag), String::npos) << errors;
    EXPECT_EQ(readFile(deck), "1 2 3\n");
    EXPECT_TRUE(host.context.designRequests.empty());
}

}  // namespace
