// The script interpreter through the loaded plug-in: where the cursor
// statements leave the cursor (seen by the line a SET writes), their argument
// checks and messages, loops of each kind with their line numbers, variable
// expansion, the refused keywords, and an input file left untouched whenever
// a script fails.
#include <filesystem>

#include "script_fixture.h"
#include "zeltra/helper_base.h"

using namespace MOSAQ;
using fakehost::ScopedEnv;
using scripttest::failed;
using scripttest::message;
using scripttest::ScriptRun;
using scripttest::StatementError;
using H = MOSAQ::Portals::HelperBase;

namespace {

const char* const kDeck = "L1 a\nL2 b\nL3 c\nL4 d\nL5 e\nL6 f\n";
const char* const kMark = "SET_VALUE_FREE(2, \\s, %g)";

// The deck with token 2 of one line (1-based) set to "X".
String markedDeck(int line) {
    StringList lines = H::split(String(kDeck), '\n');
    lines.pop_back();
    String out;
    for (std::size_t i = 0; i < lines.size(); ++i)
        out += (int(i) + 1 == line ? lines[i].substr(0, 3) + "X" : lines[i]) + "\n";
    return out;
}

class ScriptInterp : public ScriptRun {
protected:
    void SetUp() override {
        ScriptRun::SetUp();
        host.context.designValues = {{"p", "X"}, {"q", "Y"}};
    }
    // Runs "SET_PARAMETER_LIST(p)" + body on the deck.
    scripttest::Outcome body(const String& text) {
        return runInput(kDeck, {"SET_PARAMETER_LIST(p)\n" + text});
    }
    // The script failed with exactly these lines in a row, and the deck and
    // its folder are as they were.
    void expectFailure(const scripttest::Outcome& o, const StringList& lines) {
        EXPECT_FALSE(o.ok);
        EXPECT_NE(o.errors.find(H::join(lines, "\n")), String::npos)
            << o.errors;
        EXPECT_EQ(o.file, kDeck);
        EXPECT_FALSE(std::filesystem::exists(run.file("deck.inp.temp")));
    }
};

TEST_F(ScriptInterp, CursorStatementsLandWhereTheySay) {
    struct Case {
        const char* script;
        int line;
    } const cases[] = {
        {"MOVE_DOWN(2)", 3},
        {"GOTO_LINE(2.5)", 3},
        {"GOTO_LINE(6)\nMOVE_UP(4)", 2},
        {"GOTO_LINE(4)\nGOTO_TOP", 1},
        {"GOTO_END", 6},
        {"GOTO_STRING(c, 1)", 3},
        {"GOTO_STRING(L, 3)", 3},
        {"GOTO_END\nGOTO_STRING(L, -2)", 5},
        {"GOTO_LINE(3)\nGOTO_STRING(L3, -1)", 3},  // the current line first
        {"LOOP(2)\nMOVE_DOWN(1)\nEND_LOOP", 3},
        {"LOOP(N)\nMOVE_DOWN(1)\nEND_LOOP", 4},  // N = 3.4
        {"GOTO_LINE(%row%)", 5},
        {"$ %secret% in a comment\n\nCLOSE_FILE\nGOTO_LINE(2)", 2},
    };
    for (const Case& c : cases) {
        host.context.designValues = {{"p", "X"}, {"N", "3.4"}, {"row", "5"}};
        const auto o = body(String(c.script) + "\n" + kMark);
        EXPECT_TRUE(o.ok) << c.script << "\n" << o.errors;
        EXPECT_EQ(o.file, markedDeck(c.line)) << c.script;
    }
    for (const auto& r : host.context.designRequests) EXPECT_NE(r.paramName, "secret");
    EXPECT_TRUE(host.context.designRequests.size() > 0);
}

TEST_F(ScriptInterp, GotoStringCountsEveryOccurrenceAndDecodesItsText) {
    const auto o = runInput("abc abc 1\nx,y 2\n",
                            {"SET_PARAMETER_LIST(p)\nGOTO_STRING(abc, 2)\n" + String(kMark) +
                             "\nGOTO_STRING(x\\,y, 1)\nSET_VALUE_FREE(2, \\s, %g)"});
    ASSERT_TRUE(o.ok) << o.errors;
    EXPECT_EQ(o.file, "abc X 1\nx,y X\n");
    // A leading blank is part of the text searched for.
    const auto blank = runInput("abc\n", {"SET_PARAMETER_LIST(p)\nGOTO_STRING( abc, 1)"});
    EXPECT_FALSE(blank.ok);
    EXPECT_NE(blank.errors.find(message("ERROR", ".err.gotoStringNotFoundDown", {" abc", "0"})),
              String::npos)
        << blank.errors;
}

TEST_F(ScriptInterp, ArgumentErrorsNameTheLineAndTheReason) {
    const StatementError cases[] = {
        {"MOVE_DOWN(6)", ".err.moveDownLinesBig", {"6"}},
        {"MOVE_DOWN(0)", ".err.moveDownLinesSmall", {"0"}},
        {"MOVE_DOWN(1, 2)", ".err.moveDownNumOptions", {"2"}},
        {"MOVE_UP()", ".err.cmdArgsNoParams", {"MOVE_UP()"}},
        {"MOVE_UP", ".err.cmdArgsNoOpenParens", {"MOVE_UP"}},
        {"MOVE_UP(1", ".err.cmdArgsNoCloseParens", {"MOVE_UP(1"}},
        {"MOVE_UP(-1)", ".err.moveUpNumLinesSmall", {"-1"}},
        {"MOVE_UP(1,1)", ".err.moveUpNumOptions", {"2"}},
        {"MOVE_UP(1)", ".err.moveUpNumLinesBig", {"1", "1"}},
        {"GOTO_LINE(7)", ".err.gotoLineInvalidLine", {"7", "6"}},
        {"GOTO_LINE(0.4)", ".err.gotoLineInvalidLine", {"0.4", "6"}},
        {"GOTO_LINE(1,2)", ".err.gotoLineNumOptions", {"2"}},
        {"GOTO_STRING(c)", ".err.gotoStringNumOptions", {"1"}},
        {"GOTO_STRING(c, 0.2)", ".err.gotoStringInstanceZero", {}},
        {"GOTO_STRING(zz, 1)", ".err.gotoStringNotFoundDown", {"zz", "0"}},
        {"GOTO_STRING(L, -2)", ".err.gotoStringNotFoundUp", {"L", "1"}},
        {"GOTO_STRING(L, -1e12)", ".err.gotoStringNotFoundUp", {"L", "1"}},
        {"GOTO_STRING(a\\x, 1)", ".err.invalidDelimBackslash", {}, "tagging"},
        {"LOOP(0)\nEND_LOOP", ".err.loopNumItersSmall", {"0"}},
        {"LOOP(1, 2)\nEND_LOOP", ".err.loopNumOptions", {"2"}},
        {"LOOP(count)\nEND_LOOP", ".err.loopNumItersMissing", {"count"}},
    };
    for (const StatementError& c : cases) {
        SCOPED_TRACE(c.statement);
        const String first = H::split(c.statement, '\n')[0];
        expectFailure(body(c.statement), {failed(2, first), c.expected()});
    }
}

TEST_F(ScriptInterp, RefusedKeywordsGiveTheirOwnResults) {
    expectFailure(body("OPEN_FILE(other.txt)"), {message("ERROR", ".err.noOpenFileSupport", {})});
    expectFailure(body("MOVE_DOWN(1)\nEND_LOOP"),
                  {message("ERROR", ".err.noLoop", {"3", "END_LOOP"})});
    expectFailure(body("LOOP(2)\nMOVE_DOWN(1)"), {message("ERROR", ".err.noEndLoop", {})});
    for (const char* other : {"GET_VALUE_FREE(1, \\s)", "FROBNICATE(1)"})
        expectFailure(body(other), {message("ERROR", ".err.unrecognizedKeyword", {other, "2"})});
    // END stops the script as failed, with a warning and no error.
    const auto end = body("END\n" + String(kMark));
    EXPECT_FALSE(end.ok);
    EXPECT_NE(end.errors.find(message("WARNING", ".warn.noEndSupport", {})), String::npos);
    EXPECT_EQ(end.errors.find("ERROR"), String::npos) << end.errors;
    EXPECT_EQ(end.file, kDeck);
    // Without a parameter list no statement can run.
    expectFailure(runInput(kDeck, {"GOTO_TOP\nGOTO_END"}), {failed(1, "GOTO_TOP")});
}

TEST_F(ScriptInterp, LoopLineNumbersCountTheScriptsLines) {
    // After a loop: the real line number.
    expectFailure(body("LOOP(1)\n\nMOVE_DOWN(1)\nEND_LOOP\nMOVE_DOWN(9)"),
                  {failed(6, "MOVE_DOWN(9)")});
    // Inside a loop the body is numbered without its empty lines; a counted
    // loop passes its failure on as an error, nested ones too.
    expectFailure(body("LOOP(2)\n\nLOOP(1)\nMOVE_DOWN(9)\nEND_LOOP\nEND_LOOP"),
                  {failed(4, "MOVE_DOWN(9)")});
    // A loop's first line is expanded before it runs.
    host.context.designValues["n"] = "2";
    const auto o = body("LOOP(%n%)\nLOOP(2)\nMOVE_DOWN(1)\nEND_LOOP\nEND_LOOP\n" + String(kMark));
    ASSERT_TRUE(o.ok) << o.errors;
    EXPECT_EQ(o.file, markedDeck(5));
}

TEST_F(ScriptInterp, LoopUntilEndOfFileEndsAtTheEndOrRefusesToSpin) {
    const auto all = body("LOOP(EOL)\n" + String(kMark) + "\nMOVE_DOWN(1)\nEND_LOOP");
    ASSERT_TRUE(all.ok) << all.errors;
    EXPECT_EQ(all.file, "L1 X\nL2 X\nL3 X\nL4 X\nL5 X\nL6 X\n");
    EXPECT_EQ(all.errors.find("ERROR"), String::npos) << all.errors;
    EXPECT_NE(all.errors.find(message("NOTE", ".msg.loopNoMoreDataReplaced", {})), String::npos);

    expectFailure(body("LOOP(EOL)\nGOTO_STRING(zz, 1)\nEND_LOOP"),
                  {failed(2, "LOOP(EOL)"), failed(3, "GOTO_STRING(zz, 1)")});
    expectFailure(body("LOOP(EOL)\nGOTO_STRING(zz, 1)\nEND_LOOP"),
                  {message("ERROR", ".err.loopNoDataReplaced", {})});
    // Bodies that can't fail would run for ever: a round that stays put, and
    // rounds that come back to a line an earlier round ended on.
    expectFailure(body("LOOP(EOL)\nNEXT_PARAMETER\nEND_LOOP"),
                  {failed(2, "LOOP(EOL)"), message("ERROR", ".err.loopNoProgress", {"1", "1"})});
    expectFailure(body("LOOP(EOL)\nGOTO_LINE(3)\nEND_LOOP"),
                  {failed(2, "LOOP(EOL)"), message("ERROR", ".err.loopNoProgress", {"2", "3"})});
}

TEST_F(ScriptInterp, VariablesExpandFromTheEndOfTheLine) {
    // b comes first: its value holds a reference to a, which a's own
    // replacement then takes along ("L%a%" if a had come first).
    host.context.designValues = {{"p", "X"}, {"a", "L"}, {"b", "%a%"}, {"q", "Y"}};
    expectFailure(body("GOTO_STRING(%a%%b%, 1)"),
                  {message("ERROR", ".err.gotoStringNotFoundDown", {"LL", "0"})});
    ASSERT_GE(host.context.designRequests.size(), 3u);
    const auto& asked = host.context.designRequests;
    EXPECT_EQ(asked[asked.size() - 2].paramName, "b");
    EXPECT_EQ(asked.back().paramName, "a");
    EXPECT_EQ(asked.back().format, "Default");

    // A name without a value warns and stays; a lone "%" is text.
    const auto o = runInput("50% done\n", {"SET_PARAMETER_LIST(p)\nGOTO_STRING(50%, 1)\n"
                                           "GOTO_STRING(%none%, 1)"});
    EXPECT_NE(o.errors.find(message("WARNING", ".warn.noVarValue", {"none", "3", inputTag()})),
              String::npos)
        << o.errors;
    EXPECT_NE(o.errors.find(message("ERROR", ".err.gotoStringNotFoundDown", {"%none%", "0"})),
              String::npos);

    // %Param_Name% follows NEXT_PARAMETER inside a loop.
    const auto names = runInput("p 0\nq 0\n",
                                {"SET_PARAMETER_LIST(p, q)\nLOOP(2)\nGOTO_STRING(%Param_Name%, 1)\n" +
                                 String(kMark) + "\nNEXT_PARAMETER\nEND_LOOP\n"
                                 "NEXT_PARAMETER\nNEXT_PARAMETER\nGOTO_TOP\nSET_VALUE_FREE(1, \\s, %g)"});
    ASSERT_TRUE(names.ok) << names.errors;
    EXPECT_EQ(names.file, "X X\nq Y\n");
}

TEST_F(ScriptInterp, ScriptsOfOneFileShareChangesAndFailTogether) {
    const auto o = runInput(kDeck, {"SET_PARAMETER_LIST(p)\nGOTO_LINE(2)\n" + String(kMark),
                                    "SET_PARAMETER_LIST(q)\nGOTO_STRING(L2 X, 1)\nSET_VALUE_FREE(1, \\s, %g)"});
    ASSERT_TRUE(o.ok) << o.errors;
    EXPECT_EQ(o.file, "L1 a\nY X\nL3 c\nL4 d\nL5 e\nL6 f\n");
    // The second script fails: the first one's change never reaches the file.
    expectFailure(runInput(kDeck, {"SET_PARAMETER_LIST(p)\n" + String(kMark),
                                   "SET_PARAMETER_LIST(q)\nMOVE_DOWN(99)"}),
                  {failed(2, "MOVE_DOWN(99)")});
    // A script of comments rewrites the file byte for byte, line ends kept.
    const auto same = runInput("a\r\nb\r\n\r\n", {"SET_PARAMETER_LIST(p)\n$ nothing"});
    ASSERT_TRUE(same.ok) << same.errors;
    EXPECT_EQ(same.file, "a\r\nb\r\n\r\n");
    EXPECT_EQ(runInput("a\nb", {"SET_PARAMETER_LIST(p)"}).file, "a\nb");
}

TEST_F(ScriptInterp, StagesKeepTheFirstOriginal) {
    ScopedEnv stages("MQT_PRESERVE_TAGGED_FILE_STAGES", "1");
    const String script = "SET_PARAMETER_LIST(p)\n" + String(kMark);
    ASSERT_TRUE(runInput(kDeck, {script}).ok);
    EXPECT_EQ(fakehost::readFile(run.file("deck.inp.orig")), kDeck);
    EXPECT_EQ(fakehost::readFile(run.file("deck.inp.afterScripting")), markedDeck(1));
    host.context.designValues["p"] = "Z";
    ASSERT_TRUE(runInput("L1 a\n", {script}).ok);
    EXPECT_EQ(fakehost::readFile(run.file("deck.inp.orig")), kDeck);
    EXPECT_EQ(fakehost::readFile(run.file("deck.inp.afterScripting")), "L1 Z\n");
    EXPECT_EQ(fakehost::readFile(run.file("deck.inp")), "L1 Z\n");
}

}  // namespace
