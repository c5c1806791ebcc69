// The study file: what a complete file gives, and that each kind of mistake
// is refused with a message that names the place and the key.
#include <gtest/gtest.h>

#include "designs.h"
#include "fake_host.h"
#include "study.h"

using namespace portalrun;
using fakehost::TempDir;

namespace {

class StudyFile : public ::testing::Test {
protected:
    void SetUp() override {
        dir.write("deck.inp", "x 1\n");
        dir.write("M_in_s_deck.inp", "$\nmarking, 1\n");
        dir.write("M_out_s_out.txt", "$\nmarking, 1\n");
    }
    Study parse(const std::string& text) { return parseStudy(text, dir.file("s.toml")); }
    // The message of the error a text gives, or "" when it is accepted.
    std::string error(const std::string& text) {
        try {
            parse(text);
        } catch (const StudyError& e) {
            return e.what();
        }
        return "";
    }
    TempDir dir;
};

const char* const kSolver = "[solver]\ncommand = \"true\"\n";

TEST_F(StudyFile, ReadsACompleteStudyWithPathsBesideTheFile) {
    Study s = parse(std::string(kSolver) +
                    "time_limit = 2.5\n"
                    "[study]\nruns = \"out/runs\"\n"
                    "[[parameters]]\nname = \"n\"\ntype = \"integer\"\nfrom = 1\nto = 7\nstep = 3\n"
                    "[[parameters]]\nname = \"m\"\nvalues = [\"a\", \"b\"]\n"
                    "[[inputs]]\nfile = \"deck.inp\"\ntags = \"M_in_s_deck.inp\"\n"
                    "[[outputs]]\nfile = \"sub/out.txt\"\ntags = \"M_out_s_out.txt\"\n"
                    "[[responses]]\nname = \"r\"\ntype = \"text\"\n"
                    "[settings]\nverbose = true\nlevel = 3\n"
                    "[properties.\"AnalysisProperty#install\"]\ninstall = \"/opt\"\n");
    EXPECT_EQ(s.name, "s");  // the file's name
    EXPECT_EQ(s.runs, dir.file("out/runs"));
    EXPECT_DOUBLE_EQ(s.timeLimit, 2.5);
    EXPECT_DOUBLE_EQ(s.killGrace, 2.0);
    ASSERT_EQ(s.parameters.size(), 2u);
    ASSERT_EQ(s.parameters[0].values.size(), 3u);
    EXPECT_EQ(s.parameters[0].values[2].kind, Value::Kind::Integer);
    EXPECT_EQ(s.parameters[0].values[2].integer, 7);
    EXPECT_EQ(s.parameters[1].type, ParamType::Text);  // inferred from the values
    EXPECT_EQ(s.inputs[0].file, dir.file("deck.inp"));
    EXPECT_EQ(s.inputs[0].tags, dir.file("M_in_s_deck.inp"));
    EXPECT_EQ(s.outputs[0].file, "sub/out.txt");  // stays relative to the run folder
    EXPECT_FALSE(s.responses[0].numeric);
    EXPECT_EQ(s.settings.at("verbose"), "true");
    EXPECT_EQ(s.settings.at("level"), "3");
    EXPECT_EQ(s.properties.at("AnalysisProperty#install").at("install"), "/opt");
}

TEST_F(StudyFile, RangesEndOnTheirLastValueDespiteRounding) {
    Study s = parse(std::string(kSolver) +
                    "[[parameters]]\nname = \"a\"\nfrom = 0.0\nto = 1.0\nstep = 0.1\n"
                    "[[parameters]]\nname = \"b\"\nfrom = 3.0\nto = 1.0\nstep = -1.0\n"
                    "[[parameters]]\nname = \"c\"\nfrom = 0.0\nto = 1.0\ncount = 4\n");
    ASSERT_EQ(s.parameters[0].values.size(), 11u);
    EXPECT_EQ(s.parameters[0].values.back().real, 1.0);
    ASSERT_EQ(s.parameters[1].values.size(), 3u);
    EXPECT_EQ(s.parameters[1].values.back().real, 1.0);
    ASSERT_EQ(s.parameters[2].values.size(), 4u);
    EXPECT_DOUBLE_EQ(s.parameters[2].values[1].real, 1.0 / 3.0);
}

// Each value is the decimal the user would write down, so the CSV and a
// "Default" print format show 0.3 and not 0.30000000000000004.
TEST_F(StudyFile, RangeValuesReadAsTheirDecimals) {
    const std::pair<std::string, std::vector<std::string>> cases[] = {
        {"from = 0.0\nto = 1.0\nstep = 0.1",
         {"0", "0.1", "0.2", "0.3", "0.4", "0.5", "0.6", "0.7", "0.8", "0.9", "1"}},
        {"from = 1.1\nto = 0.5\nstep = -0.2", {"1.1", "0.9", "0.7", "0.5"}},
        {"from = 0.0\nto = 1.0\ncount = 11", {"0", "0.1", "0.2", "0.3", "0.4", "0.5", "0.6",
                                                "0.7", "0.8", "0.9", "1"}},
        {"from = 1e-7\nto = 7e-7\nstep = 3e-7", {"1e-07", "4e-07", "7e-07"}},
        {"from = 0.0\nto = 1.0\ncount = 4", {"0", "0.3333333333333333", "0.6666666666666666", "1"}},
    };
    for (const auto& [range, expected] : cases) {
        Study s = parse(std::string(kSolver) + "[[parameters]]\nname = \"a\"\n" + range + "\n");
        std::vector<std::string> texts;
        for (const Value& v : s.parameters[0].values) texts.push_back(valueText(v));
        EXPECT_EQ(texts, expected) << range;
    }
}

TEST_F(StudyFile, RefusesMistakesWithTheKeyAndLine) {
    const std::pair<std::string, std::string> cases[] = {
        {"", "missing table [solver]"},
        {"[solver]\ntime_limit = 1\n", "missing key 'command'"},
        {std::string(kSolver) + "time_limit = \"10\"\n", "'time_limit' must be a number"},
        {std::string(kSolver) + "tim_limit = 10\n", "unknown key 'tim_limit'"},
        {std::string(kSolver) + "[design]\nmethod = \"random\"\n", "unknown method 'random'"},
        {std::string(kSolver) + "[design]\nmethod = \"lhs\"\n", "needs 'samples'"},
        {std::string(kSolver) + "[design]\nsamples = 3\n", "belong to method \"lhs\""},
        {std::string(kSolver) + "[[parameters]]\nname = \"a\"\nmin = 0\nmax = 1\n",
         "need method = \"lhs\""},
        {std::string(kSolver) + "[[parameters]]\nname = \"a\"\nvalue = 1\nvalues = [2]\n",
         "give exactly one of"},
        {std::string(kSolver) + "[[parameters]]\nname = \"a\"\nfrom = 0\nto = 1\nstep = -1\n",
         "'step' goes away from 'to'"},
        {std::string(kSolver) + "[[parameters]]\nname = \"a\"\ntype = \"integer\"\nvalues = [1.5]\n",
         "whole numbers"},
        {std::string(kSolver) + "[[parameters]]\nname = \"a\"\nvalue = 1\n"
                                "[[parameters]]\nname = \"a\"\nvalue = 2\n",
         "defined twice"},
        {std::string(kSolver) + "[[inputs]]\nfile = \"gone.inp\"\n", "no such file"},
        {std::string(kSolver) + "[[inputs]]\nfile = \"deck.inp\"\ntags = \"M_out_s_out.txt\"\n",
         "must be named M_in_"},
        {std::string(kSolver) + "[parameters]\nname = \"a\"\n", "write [[parameters]]"},
        {std::string(kSolver) + "[[responses]]\nname = \"r\"\ntype = \"number\"\n",
         "unknown type 'number'"},
        {std::string(kSolver) + "x = [1, 2\n", "not valid TOML"},
        // Names results.csv can't hold twice, each at its line.
        {std::string(kSolver) + "[[parameters]]\nname = \"status\"\nvalue = 1\n",
         "s.toml:3: parameter 'status': is a column of results.csv"},
        {std::string(kSolver) + "[[responses]]\nname = \"design\"\n",
         "s.toml:3: response 'design': is a column of results.csv"},
        {std::string(kSolver) + "[[parameters]]\nname = \"reason\"\nvalue = 1\n", "s.toml:3:"},
        {std::string(kSolver) + "[[parameters]]\nname = \"x\"\nvalue = 1\n"
                                "[[responses]]\nname = \"x\"\n",
         "s.toml:6: response 'x': a parameter (line 3) has the same name"},
    };
    for (const auto& [text, expected] : cases) {
        const std::string message = error(text);
        EXPECT_NE(message.find(expected), std::string::npos)
            << "study:\n" << text << "\nmessage: " << message;
    }
    // The place: file and line of the offending key.
    EXPECT_NE(error(std::string(kSolver) + "\n\ntime_limit = \"x\"\n").find("s.toml:5:"),
              std::string::npos);
}

TEST_F(StudyFile, ListsOfDifferentLengthsAreRefusedAtTheirLine) {
    Study s = parse(std::string(kSolver) + "[design]\nmethod = \"list\"\n"
                    "[[parameters]]\nname = \"a\"\nvalues = [1, 2]\n"
                    "[[parameters]]\nname = \"b\"\nvalues = [1, 2, 3]\n");
    try {
        generateDesigns(s);
        ADD_FAILURE() << "accepted";
    } catch (const StudyError& e) {
        EXPECT_NE(std::string(e.what()).find("s.toml:8: method \"list\": parameter 'b' has 3"),
                  std::string::npos)
            << e.what();
    }
}

TEST_F(StudyFile, AMissingOrUnreadableFileIsAStudyError) {
    EXPECT_THROW(loadStudy(dir.file("none.toml")), StudyError);
    dir.write("bin.toml", std::string("\0\x01\xff", 3));
    EXPECT_THROW(loadStudy(dir.file("bin.toml")), StudyError);
}

}  // namespace
