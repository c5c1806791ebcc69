// The value statements through the loaded plug-in: SET writes the current
// parameter's value (one of several lines, relative to a label, fitted into
// columns), GET reads tokens and columns into responses, and every argument
// check and token failure reports its message.
#include "script_fixture.h"
#include "zeltra/helper_base.h"

using namespace MOSAQ;
using scripttest::failed;
using scripttest::message;
using scripttest::ScriptRun;
using scripttest::StatementError;
using H = MOSAQ::Portals::HelperBase;

namespace {

bool holds(const String& errors, const StringList& lines) {
    return errors.find(H::join(lines, "\n")) != String::npos;
}

using ScriptSet = ScriptRun;
using ScriptGet = ScriptRun;

TEST_F(ScriptSet, WritesValuesWhereTheStatementsSay) {
    struct Case {
        const char* deck;
        const char* value;
        const char* script;
        const char* expected;
    } const cases[] = {
        // A value of several lines: NEXT_VALUE steps through them and wraps.
        {"x\nx\nx\n", "a\nb\nc",
         "SET_VALUE_FREE(1,\\s,%g)\nMOVE_DOWN(1)\nNEXT_VALUE\nSET_VALUE_FREE(1,\\s,%g)\n"
         "MOVE_DOWN(1)\nNEXT_VALUE\nNEXT_VALUE\nSET_VALUE_FREE(1,\\s,%g)",
         "a\nb\na\n"},
        {"load= 3 4\n", "V", "SET_RELATIVE_VALUE_FREE(load=, 1, 1, \\s, F)", "load= V 4\n"},
        {"a;x=abcdef\n", "VVV", "SET_RELATIVE_VALUE_FIXED(x=, 1, 1, 3, F)", "a;x=VVVdef\n"},
        {"a b c\n", "", "SET_VALUE_FREE(2, \\s, F)", "a  c\n"},
        // The delimiters pass to the inner statement as written: no blank
        // joins the set, so "q=1 2" is one token here.
        {"k;q=1 2;z\n", "9", "SET_RELATIVE_VALUE_FREE(k,1,1,;,F)", "k;9;z\n"},
        // A failing inner SET puts the whole line back, and the loop ends.
        {"k= 1\nk=\nend\n", "V",
         "LOOP(EOL)\nSET_RELATIVE_VALUE_FREE(k=, 1, 1, \\s, F)\nMOVE_DOWN(1)\nEND_LOOP",
         "k= V\nk=\nend\n"},
    };
    for (const Case& c : cases) {
        host.context.designValues = {{"p", c.value}};
        const auto o = runInput(c.deck, {"SET_PARAMETER_LIST(p)\n" + String(c.script)});
        EXPECT_TRUE(o.ok) << c.script << "\n" << o.errors;
        EXPECT_EQ(o.file, c.expected) << c.script;
    }
}

TEST_F(ScriptSet, FixedColumnWarningsReachTheCallerAndTheStatementSucceeds) {
    host.context.designValues = {{"p", "XY"}};
    const auto o = runInput("abcdefghi\n", {"SET_PARAMETER_LIST(p)\nSET_VALUE_FIXED(5, 12, F)"});
    ASSERT_TRUE(o.ok) << o.errors;
    EXPECT_EQ(o.file, "abcd   XY\n");
    EXPECT_TRUE(holds(o.errors,
                      {message("WARNING", ".warn.replaceFixedTokenBigEndPos", {"1", "9"}, "tagging"),
                       message("WARNING", ".warn.replaceFixedTokenDiffLength", {"1", "5", "9", "2"},
                               "tagging")}))
        << o.errors;
}

TEST_F(ScriptSet, ArgumentAndTokenErrorsLeaveTheFileAlone) {
    const StatementError cases[] = {
        {"SET_VALUE_FREE(1, \\s)", ".err.setValueFreeNumOptions", {"2"}},
        {"SET_VALUE_FREE(0, \\s, F)", ".err.setValueFreeSmallPos", {"0"}},
        {"SET_VALUE_FREE(1, \\q, F)", ".err.invalidDelimBackslash", {}, "tagging"},
        {"SET_VALUE_FREE(5, \\s, F)", ".err.updateDelimToken", {"5", "1", "2", "  "}, "tagging"},
        {"SET_VALUE_FIXED(1, 2)", ".err.setValueFixedNumOptions", {"2"}},
        {"SET_VALUE_FIXED(0, 2, F)", ".err.setValueFixedSmallStartPos", {"0, 2, F", "0"}},
        {"SET_VALUE_FIXED(3, 2, F)", ".err.setValueFixedSmallEndPos", {"3, 2, F", "3", "2"}},
        {"SET_VALUE_FIXED(9, 9, F)", ".err.replaceFixedTokenBigStartPos", {"1", "9", "3"},
         "tagging"},
        {"SET_RELATIVE_VALUE_FREE(a, 1, 1, \\s)", ".err.setRelativeValueFreeNumOptions", {"4"}},
        {"SET_RELATIVE_VALUE_FREE(a, 1, 0, \\s, F)", ".err.setRelativeValueFreeSmallPos", {"0"}},
        {"SET_RELATIVE_VALUE_FIXED(a, 1, 1, F)", ".err.setRelativeValueFixedNumOptions", {"4"}},
        {"SET_RELATIVE_VALUE_FIXED(a, 1, 0, 2, F)", ".err.setRelativeValueFixedSmallStartPos",
         {"0"}},
        {"SET_RELATIVE_VALUE_FIXED(a, 1, 3, 2, F)", ".err.setRelativeValueFixedBigStartPos",
         {"2", "3"}},
        {"SET_RELATIVE_VALUE_FREE(zz, 1, 1, \\s, F)", ".err.gotoStringNotFoundDown", {"zz", "0"}},
    };
    host.context.designValues = {{"p", "V"}};
    for (const StatementError& c : cases) {
        SCOPED_TRACE(c.statement);
        const auto o = runInput("a b\n", {"SET_PARAMETER_LIST(p)\n" + String(c.statement)});
        EXPECT_FALSE(o.ok);
        EXPECT_EQ(o.file, "a b\n");
        EXPECT_TRUE(holds(o.errors, {failed(2, c.statement)})) << o.errors;
        EXPECT_NE(o.errors.find(c.expected()), String::npos) << o.errors;
    }
    // A parameter the host has no value for is not written as empty.
    const auto o = runInput("a b\n", {"SET_PARAMETER_LIST(gone)\nSET_VALUE_FREE(1, \\s, F)"});
    EXPECT_FALSE(o.ok);
    EXPECT_EQ(o.file, "a b\n");
    EXPECT_NE(o.errors.find("no value for parameter 'gone'"), String::npos) << o.errors;
}

TEST_F(ScriptGet, ReadsTokensIntoResponses) {
    numeric({"r", "s"});
    const auto o = runOutput("tip deflection 0.0123 m\nit 5 res= 1e-3 ok\nax12\nstatus   ok  \n",
                             {"SET_PARAMETER_LIST(r, s, t)\n"
                              "GET_VALUE_FREE(3, \\s)\n"
                              "GET_RELATIVE_VALUE_FREE(res=, 1, 1, \\s)\n"
                              "NEXT_PARAMETER\n"
                              "GET_RELATIVE_VALUE_FIXED(x, 1, 1, 2)\n"
                              "NEXT_PARAMETER\n"
                              "GOTO_END\n"
                              "GET_VALUE_FIXED(7, 12)"});
    ASSERT_TRUE(o.ok) << o.errors;
    EXPECT_EQ(numbers("r"), (std::vector<double>{0.0123, 0.001}));
    EXPECT_EQ(numbers("s"), std::vector<double>{12});
    EXPECT_EQ(texts("t"), StringList{"   ok "});
    EXPECT_EQ(host.context.response("t")->caseInfo.at("evalId"), "3");
}

TEST_F(ScriptGet, ReadsColumnsToTheirEnd) {
    numeric({"c"});
    // EOC: a token that can't be read ends the column, and the cursor stays
    // on that line.
    auto o = runOutput("a 1\nb 2\nc 3\nd\n",
                       {"SET_PARAMETER_LIST(c, last)\nGET_COLUMN_FREE(2, EOC, \\s)\nNEXT_PARAMETER\n"
                        "GET_VALUE_FREE(1, \\s)"});
    ASSERT_TRUE(o.ok) << o.errors;
    EXPECT_EQ(numbers("c"), (std::vector<double>{1, 2, 3}));
    EXPECT_EQ(texts("last"), StringList{"d"});
    EXPECT_NE(o.errors.find(message("NOTE", ".msg.getColumnFoundEndFromError", {"4"})),
              String::npos);

    // An end text stops before the first line that holds it, taken as
    // written: the blank behind the comma is part of it.
    const String table = "a\nEND b\nc\n END\n";
    o = runOutput(table, {"SET_PARAMETER_LIST(t)\nGET_COLUMN_FIXED(1, 8, EOC, END)"});
    ASSERT_TRUE(o.ok) << o.errors;
    EXPECT_EQ(texts("t"), (StringList{"a", "END b", "c"}));
    EXPECT_NE(o.errors.find(message("NOTE", ".msg.getColumnFoundEndFromString", {"4"})),
              String::npos);
    host.context.responses.clear();
    o = runOutput(table, {"SET_PARAMETER_LIST(t)\nGET_COLUMN_FIXED(1, 8, EOC,END)"});
    EXPECT_EQ(texts("t"), StringList{"a"});

    // A count of lines, and a text response gathers a column as text.
    host.context.responses.clear();
    o = runOutput("x 1\ny 2\nz 3\n", {"SET_PARAMETER_LIST(names)\nGET_COLUMN_FREE(1, 2, \\s)"});
    ASSERT_TRUE(o.ok) << o.errors;
    EXPECT_EQ(texts("names"), (StringList{"x", "y"}));
}

TEST_F(ScriptGet, FailuresReportTheResponseAndKeepTheOthers) {
    numeric({"r", "c"});
    struct Case {
        const char* deck;
        const char* statement;
        StringList lines;  // after "couldNotExecuteLine"
    } const cases[] = {
        {"abc\n", "GET_VALUE_FREE(1, \\s)", {message("ERROR", ".err.responseNotANumber", {"r", "abc"})}},
        {"a\nb 2\n", "GET_COLUMN_FREE(2, EOC, \\s)",
         {message("ERROR", ".err.extractDelimToken", {"2", "1", "1", "  "}, "tagging")}},
        {"1\n2\n3\n4\n", "GET_COLUMN_FREE(1, 5, \\s)",
         {message("ERROR", ".err.getColumnFoundEnd", {"FREE"})}},
        {"1\nx\n3\n", "GET_COLUMN_FREE(1, 3, \\s)",
         {H::normalizeLevel(message(nullptr, ".err.responseNotANumber", {"c", "x"}) + " " +
                                message(nullptr, ".err.getColumnProblemItem", {"2"}),
                            "ERROR")}},
        {"1\n", "GET_VALUE_FREE(1)", {message("ERROR", ".err.getValueFreeNumOptions", {"1"})}},
        {"1\n", "GET_VALUE_FREE(0, \\s)", {message("ERROR", ".err.getValueFreeSmallPos", {"0"})}},
        {"1\n", "GET_VALUE_FIXED(1)", {message("ERROR", ".err.getValueFixedNumOptions", {"1"})}},
        {"1\n", "GET_VALUE_FIXED(0, 2)",
         {message("ERROR", ".err.getValueFixedSmallStartPos", {"0, 2", "0"})}},
        {"1\n", "GET_VALUE_FIXED(3, 2)",
         {message("ERROR", ".err.getValueFixedBigStartPos", {"3, 2", "3", "2"})}},
        {"1\n", "GET_RELATIVE_VALUE_FREE(a, 1, 1)",
         {message("ERROR", ".err.getRelValueFreeNumOptions", {"3"})}},
        {"1\n", "GET_RELATIVE_VALUE_FREE(a, 1, 0, \\s)",
         {message("ERROR", ".err.getRelValueFreeSmallPos", {"0"})}},
        {"1\n", "GET_RELATIVE_VALUE_FIXED(a, 1, 1)",
         {message("ERROR", ".err.getRelValueFixedNumOptions", {"3"})}},
        {"1\n", "GET_RELATIVE_VALUE_FIXED(a, 1, 0, 2)",
         {message("ERROR", ".err.getRelValueFixedSmallStartPos", {"0"})}},
        {"1\n", "GET_RELATIVE_VALUE_FIXED(a, 1, 3, 2)",
         {message("ERROR", ".err.getRelValueFixedBigStartPos", {"2", "3"})}},
        {"1\n", "GET_COLUMN_FREE(1, EOC)", {message("ERROR", ".err.getColumnFreeNumOptions", {"2"})}},
        {"1\n", "GET_COLUMN_FREE(0, EOC, \\s)",
         {message("ERROR", ".err.getColumnFreeSmallPos", {"0"})}},
        {"1\n", "GET_COLUMN_FIXED(1, 2)", {message("ERROR", ".err.getColumnFixedNumOptions", {"2"})}},
        {"1\n", "GET_COLUMN_FIXED(1, 2, 3, x, y)",
         {message("ERROR", ".err.getColumnFixedNumOptions", {"5"})}},
        {"1\n", "GET_COLUMN_FIXED(3, 2, EOC)",
         {message("ERROR", ".err.getColumnFixedSmallEndCol", {"2", "3"})}},
        {"1\n", "GET_COLUMN_FIXED(1, 2, 0)",
         {message("ERROR", ".err.getColumnSmallNumLines", {"FIXED", "0"})}},
        {"1\n", "SET_VALUE_FREE(1, \\s, F)",
         {}},  // an input keyword; reported as unknown, see below
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.statement);
        host.context.responses.clear();
        const String rc = c.statement[0] == 'G' && String(c.statement).find("COLUMN") != String::npos
                              ? "c" : "r";
        const auto o = runOutput(c.deck, {"SET_PARAMETER_LIST(" + rc + ")\n" + c.statement,
                                          "SET_PARAMETER_LIST(ok)\nGET_VALUE_FREE(1, \\s)"});
        EXPECT_FALSE(o.ok);
        StringList expected{c.lines.empty()
                                ? message("ERROR", ".err.unrecognizedKeyword", {c.statement, "2"})
                                : failed(2, c.statement)};
        expected.insert(expected.end(), c.lines.begin(), c.lines.end());
        EXPECT_TRUE(holds(o.errors, expected)) << o.errors;
        const auto* failedResponse = host.context.response(rc);
        ASSERT_NE(failedResponse, nullptr);
        EXPECT_TRUE(failedResponse->failed());
        EXPECT_EQ(failedResponse->caseInfo.at("message"),
                  message(nullptr, ".err.processResponses", {rc}));
        EXPECT_EQ(failedResponse->values.numbers.size(), 0u);
        EXPECT_EQ(texts("ok").size(), 1u) << "the next script still reports";
    }
}

TEST_F(ScriptGet, ManyWarningsInAColumnAreCutShort) {
    const auto o = runOutput("ab\nab\nab\nab\nab\nab\nab\n",
                             {"SET_PARAMETER_LIST(t)\nGET_COLUMN_FIXED(1, 3, 7)"});
    ASSERT_TRUE(o.ok) << o.errors;
    EXPECT_EQ(texts("t").size(), 7u);
    const String warning = message("WARNING", ".warn.extractFixedTokenBigEndPos", {"1", "3", "2"},
                                   "tagging");
    std::size_t shown = 0;
    for (const String& l : H::split(o.errors, '\n'))
        if (l.rfind("WARNING: ", 0) == 0) ++shown;
    EXPECT_EQ(shown, 6u) << o.errors;  // five of the engine's, then the one of the column
    EXPECT_NE(o.errors.find(warning), String::npos);
    EXPECT_NE(o.errors.find(message("WARNING", ".warn.getColumnFoundEndEarly", {})), String::npos);
}

}  // namespace
