// One design of a study tagged by scripts on both sides, through the loaded
// plug-in and the fake host: the output tag file written through the portal,
// the input rewritten next to its labels, the responses read out of a log
// whose table moved, and exactly the host requests a script makes.
#include <gtest/gtest.h>

#include <filesystem>

#include "fake_host.h"
#include "loaded_portal.h"

using namespace MOSAQ;
using namespace MOSAQ::Portals;
using fakehost::readFile;

namespace {

using ScriptStudy = LoadedPortal;

TEST_F(ScriptStudy, PlaysOneDesignWithScriptsOnBothSides) {
    const String inTag = study.write("S_in_A1_deck.inp",
                                     "$ File type, version\nscripting, 2\n$ Tag definition file: "
                                     "deck.inp\nSCRIPTING\n$! Number of tags: 1\n"
                                     "$! Start tag script\n"
                                     "SET_PARAMETER_LIST(load, span)\n"
                                     "SET_RELATIVE_VALUE_FREE(load, 1, 1, \\s=, %g)\n"
                                     "NEXT_PARAMETER\n"
                                     "GOTO_TOP\n"
                                     "SET_RELATIVE_VALUE_FIXED(span:, 1, 1, 8, %g)\n"
                                     "$! End tag script\n\n");
    TagData outScript{{}, "", "", {{"mode", "script", ""},
                                   {"code", "SET_PARAMETER_LIST(steps, forces)\n"
                                            "GOTO_END\nGOTO_STRING(step, -1)\n"
                                            "GET_VALUE_FREE(2, \\s)\nNEXT_PARAMETER\n"
                                            "GOTO_STRING(forces, 1)\nMOVE_DOWN(1)\n"
                                            "GET_COLUMN_FIXED(3, 8, EOC)", ""},
                                   {"filename", "log.txt", ""}}};
    StringStringMap outputs;
    String errors;
    ASSERT_TRUE(portal->writeOutputTagFile(
        "log.txt", {outScript}, {{"mode", "script"}, {"destDir", study.path()}, {"analysisName", "A1"}},
        outputs, errors));
    const String outTag = study.file(outputs.at("log.txt_outtagfile"));

    const String deck = run.write("deck.inp", "* deck\nload = 1\nspan:  2.0000 m\n");
    const String log = run.write("log.txt", "step 1\nstep 2\nstep 3\nforces\n  10.5\n  -2.25\n");
    host.context.designValues = {{"load", "750"}, {"span", "3.5"}};
    for (const char* r : {"steps", "forces"})
        host.context.analysisProperties[{"A1", String("responseDataType#") + r}] = {
            {"responseDataType", "Numeric"}};
    const StringStringMap design{{"analysisName", "A1"},      {"evalId", "9"},
                                 {"inputFilepaths", deck},     {"inputTagFilepaths", inTag},
                                 {"outputFilepaths", log},     {"outputTagFilepaths", outTag},
                                 {"destDir", run.path()}};
    ASSERT_TRUE(portal->processInputs(design, nullptr, errors)) << errors;
    EXPECT_EQ(readFile(deck), "* deck\nload = 750\nspan:     3.5 m\n");
    EXPECT_FALSE(std::filesystem::exists(deck + ".temp"));
    // First each parameter's "Default" text (its count of values), then each
    // SET's own format.
    const std::vector<std::pair<String, String>> asked = {
        {"load", "Default"}, {"span", "Default"}, {"load", "%g"}, {"span", "%g"}};
    ASSERT_EQ(host.context.designRequests.size(), asked.size());
    for (std::size_t i = 0; i < asked.size(); ++i) {
        EXPECT_EQ(host.context.designRequests[i].paramName, asked[i].first);
        EXPECT_EQ(host.context.designRequests[i].format, asked[i].second);
        EXPECT_EQ(host.context.designRequests[i].paramType, "");
    }

    errors.clear();
    ASSERT_TRUE(portal->processOutputs(design, nullptr, errors)) << errors;
    ASSERT_EQ(host.context.responses.size(), 2u);
    const auto* forces = host.context.response("forces");
    ASSERT_NE(forces, nullptr);
    EXPECT_EQ(forces->values.numbers, (std::vector<double>{10.5, -2.25}));
    EXPECT_EQ(forces->caseInfo.at("evalId"), "9");
    EXPECT_EQ(host.context.response("steps")->values.numbers, std::vector<double>{3});
    portal->finishRun(nullptr, nullptr);
}

}  // namespace
