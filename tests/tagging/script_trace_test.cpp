// The script trace through the loaded plug-in: its exact text for a small
// input script (a RELATIVE statement shows its two inner steps), the header of
// a long parameter list, what a failing script leaves, and no file at all
// while the host's "scriptverbose" setting is off.
#include <filesystem>

#include "script_fixture.h"

using namespace MOSAQ;
using fakehost::readFile;
using scripttest::message;
using scripttest::ScriptRun;

namespace {

class ScriptTrace : public ScriptRun {
protected:
    void SetUp() override {
        ScriptRun::SetUp();
        host.settings["scriptverbose"] = "true";
        host.context.designValues = {{"p", "X"}};
    }
    String inputTrace() const { return study.file("S_in_A1_deck.script.out"); }
};

// "**", (59 - length) / 2 blanks, the names, as many blanks, "**".
String centred(const String& names) {
    const String pad((59 - names.size()) / 2, ' ');
    return "**" + pad + names + pad + "**\n";
}

const String kStars = "***************************************************************\n";
const String kHeaderP = kStars + "**            Executing script for parameter(s):             **\n" +
                        centred("p") + kStars +
                        "******* Read line number 1 (after opening the file) as: *******\n";

TEST_F(ScriptTrace, ShowsEveryStepOfAnInputScript) {
    const auto o = runInput("a 1\nb 2\n", {"SET_PARAMETER_LIST(p)\n$ find b\nGOTO_STRING(b, 1)\n"
                                           "SET_RELATIVE_VALUE_FREE(b, 1, 1, \\s, %g)\nNEXT_VALUE"});
    ASSERT_TRUE(o.ok) << o.errors;
    EXPECT_EQ(readFile(inputTrace()),
              kHeaderP +
                  "          a 1\n"
                  "******* Executing -> GOTO_STRING(b, 1) *******\n"
                  "        From script line # = 3\n"
                  "        Initial line # = 1\n"
                  "        Initial line read as:\n"
                  "          a 1\n"
                  "        Final line # = 2\n"
                  "        Final line read as:\n"
                  "          b 2\n"
                  "******* Executing -> SET_RELATIVE_VALUE_FREE(b, 1, 1, \\s, %g) *******\n"
                  "        From script line # = 4\n"
                  "        Initial line # = 2\n"
                  "        Initial line read as:\n"
                  "          b 2\n"
                  "******* Executing -> internal_goto_string (b, 1) *******\n"
                  "        From script line # = 4\n"
                  "        Initial line # = 2\n"
                  "        Initial line read as:\n"
                  "          b 2\n"
                  "        Final line # = 2\n"
                  "        Final line read as:\n"
                  "          b 2\n"
                  "******* Executing -> internal_set_value_free( 1, \\s, %g) *******\n"
                  "        From script line # = 4\n"
                  "        Initial line # = 2\n"
                  "        Initial line read as:\n"
                  "           2\n"
                  "        Modified line:\n"
                  "           X\n"
                  "        Modified line:\n"
                  "          b X\n");
    EXPECT_NE(o.errors.find(message(nullptr, ".msg.processInfo", {inputTrace()})), String::npos);
    EXPECT_EQ(o.file, "a 1\nb X\n");
}

TEST_F(ScriptTrace, OutputScriptsShareOneTraceAndLongListsAreNotCentred) {
    const String names(60, 'n');
    const auto o = runOutput("v 1\n", {"SET_PARAMETER_LIST(" + names + ")\nGET_VALUE_FREE(9, \\s)",
                                       "SET_PARAMETER_LIST(r)\nGOTO_TOP\nGET_VALUE_FREE(2, \\s)"});
    EXPECT_FALSE(o.ok);
    const String trace = readFile(study.file("S_out_A1_out.script.out"));
    EXPECT_NE(trace.find("\n**    " + names + "\n"), String::npos) << trace;
    EXPECT_NE(trace.find(centred("r")), String::npos);
    EXPECT_NE(trace.find("******* Executing -> GOTO_TOP *******\n"), String::npos);
    EXPECT_EQ(trace.find("Modified line"), String::npos);
    EXPECT_TRUE(trace.ends_with("******* Executing -> GET_VALUE_FREE(2, \\s) *******\n"
                                "        From script line # = 3\n"
                                "        Initial line # = 1\n"
                                "        Initial line read as:\n"
                                "          v 1\n"))
        << trace;
}

TEST_F(ScriptTrace, AFailedInputScriptLeavesItsTraceUpToTheFailure) {
    const auto o = runInput("a 1\n", {"SET_PARAMETER_LIST(p)\nMOVE_DOWN(5)\nGOTO_TOP"});
    EXPECT_FALSE(o.ok);
    const String trace = readFile(inputTrace());
    EXPECT_TRUE(trace.ends_with("******* Executing -> MOVE_DOWN(5) *******\n"
                                "        From script line # = 2\n"
                                "        Initial line # = 1\n"
                                "        Initial line read as:\n"
                                "          a 1\n"))
        << trace;
    EXPECT_EQ(o.errors.find(message(nullptr, ".msg.processInfo", {inputTrace()})), String::npos);
}

TEST_F(ScriptTrace, StaysAwayWhileTheSettingIsOff) {
    host.settings["scriptverbose"] = "no";
    study.write("S_in_A1_deck.script.out", "an old trace");
    ASSERT_TRUE(runInput("a 1\n", {"SET_PARAMETER_LIST(p)\nGOTO_TOP"}).ok);
    EXPECT_EQ(readFile(inputTrace()), "an old trace");
    host.settings.erase("scriptverbose");
    ASSERT_TRUE(runOutput("a 1\n", {"SET_PARAMETER_LIST(r)\nGET_VALUE_FREE(1, \\s)"}).ok);
    EXPECT_FALSE(std::filesystem::exists(study.file("S_out_A1_out.script.out")));
}

}  // namespace
