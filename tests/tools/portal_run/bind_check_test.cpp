// portal-run check, bind and inspect played as a user plays them, against a
// shell-script solver whose input and output are bound by mark tags. Each
// binding mistake that a run once took silently must now stop the run
// before any design, with the tag file and line.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "fake_host.h"

using fakehost::readFile;
using fakehost::TempDir;

namespace {

std::string markFile(const std::string& tagLines, const std::string& second = "marking, 1") {
    return "$ File type, version\n" + second +
           "\n$ Tag definition file: deck.inp\n$ Tag type, Num tags\nMARKING, 1\n$ delims\n\\s\n"
           "$ widths\n10\n$ Mode, Row, Delims, Col, Param type, Param name, Print Fmt\n" +
           tagLines;
}

const char* const kPortalTags =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<Portal name=\"ZeltraSDF\" version=\"7.2\" fileType=\"Tag Definition\">\n"
    "  <Key name=\"Variables\">\n"
    "    <tag name=\"area\" %s=\"area\" paramType=\"Response\" />\n"
    "  </Key>\n</Portal>\n";

std::string portalTags(const char* attribute) {
    char text[512];
    std::snprintf(text, sizeof text, kPortalTags, attribute);
    return text;
}

class Bindings : public ::testing::Test {
protected:
    void SetUp() override {
        dir.write("deck.inp", "length 0\nwidth    0.0\n");
        dir.write("solve.sh",
                  "l=$(awk 'NR==1{print $2}' deck.inp); w=$(awk 'NR==2{print $2}' deck.inp)\n"
                  "awk -v l=\"$l\" -v w=\"$w\" 'BEGIN{printf \"area %g\\n\", l*w}' > results.txt\n");
        dir.write("M_out_s_results.txt", markFile("free, 1,\\s, 2, Real, area, %g\n"));
    }
    void writeStudy(const std::string& inputTags = "M_in_s_deck.inp", const std::string& extra = "") {
        dir.write("s.toml", "[study]\nname = \"s\"\n[solver]\ncommand = \"sh ${study_dir}/solve.sh\"\n"
                            "[design]\nmethod = \"list\"\n"
                            "[[parameters]]\nname = \"length\"\nvalues = [1, 2]\n"
                            "[[parameters]]\nname = \"width\"\nvalue = 0.5\n"
                            + (inputTags.empty() ? std::string()
                                                 : "[[inputs]]\nfile = \"deck.inp\"\ntags = \"" +
                                                       inputTags + "\"\n") +
                            "[[outputs]]\nfile = \"results.txt\"\ntags = \"M_out_s_results.txt\"\n"
                            "[[responses]]\nname = \"area\"\n" + extra);
    }
    int run(const std::string& args) {
        const std::string cmd = std::string(PORTAL_RUN_EXE) + " " + args + " --plugin '" +
                                ZELTRA_PLUGIN_PATH + "' > '" + dir.file("out.txt") + "' 2>&1";
        const int status = std::system(cmd.c_str());
        output = readFile(dir.file("out.txt"));
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string quoted(const std::string& path) { return std::string("'").append(path).append("'"); }
    std::string study() { return quoted(dir.file("s.toml")); }
    bool has(const std::string& text) const { return output.find(text) != std::string::npos; }

    TempDir dir;
    std::string output;
};

struct SilentCase {
    const char* what;
    const char* tagName;  // the input's tag file
    std::string tagText;
    const char* extra;  // more of the study file
    const char* expect;
};

TEST_F(Bindings, EachSilentMistakeStopsTheRunWithItsPlace) {
    const std::string good = "free, 1,\\s, 2, Real, length, %g\nfree, 2,\\s, 2, Real, width, %g\n";
    const SilentCase cases[] = {
        {"row past the end", "M_in_s_deck.inp", markFile("free, 3,\\s, 2, Real, length, %g\n"), "",
         "M_in_s_deck.inp:11: error: row 3 is past the end of the input"},
        {"second line in capitals", "M_in_s_deck.inp", markFile(good, "Marking, 1"), "",
         "M_in_s_deck.inp:2: error: the mark module leaves this tag file out: its second line "
         "must begin with \"marking\""},
        {"portal tags on an input", "P_in_s_deck.inp", portalTags("paramName"), "",
         "P_in_s_deck.inp: error: the portal ZeltraSDF tags no inputs"},
        {"misspelt attribute", "M_in_s_deck.inp", markFile(good),
         "[[outputs]]\nfile = \"r.sdf\"\ntags = \"P_out_s_r.sdf\"\n",
         "P_out_s_r.sdf:4: error: unknown attribute 'paramNme' on a tag (did you mean "
         "'paramName'?)"},
        {"parameter not in the study", "M_in_s_deck.inp",
         markFile("free, 1,\\s, 2, Real, lenght, %g\nfree, 2,\\s, 2, Real, width, %g\n"), "",
         "M_in_s_deck.inp:11: error: parameter 'lenght' is not in the study"},
        {"token past the row", "M_in_s_deck.inp", markFile("free, 1,\\s, 3, Real, length, %g\n"),
         "", "error: token 3 of row 1: the row has 2 tokens"},
        {"fixed field past the row", "M_in_s_deck.inp",
         markFile("fixed, 1,10, 2, Real, length, %g\n"), "",
         "error: columns 11-20 start past the end of row 1 (8 characters)"},
        {"two parameters in one place", "M_in_s_deck.inp",
         markFile("free, 1,\\s, 2, Real, length, %g\nfixed, 1,7.2, 2, Real, width, %g\n"), "",
         "M_in_s_deck.inp:12: error: 'width' and 'length'"},
        {"response bound nowhere", "M_in_s_deck.inp", markFile(good),
         "[[responses]]\nname = \"volume\"\n", "error: response 'volume' is bound nowhere"},
    };
    for (const SilentCase& c : cases) {
        SCOPED_TRACE(c.what);
        dir.write(c.tagName, c.tagText);
        dir.write("P_out_s_r.sdf", portalTags("paramNme"));
        writeStudy(c.tagName, c.extra);
        EXPECT_EQ(run(study()), 3) << output;
        EXPECT_TRUE(has(c.expect)) << output;
        EXPECT_TRUE(has("nothing was run")) << output;
        EXPECT_FALSE(std::filesystem::exists(dir.file("runs"))) << "a design ran";
        EXPECT_EQ(run("check " + study()), 3) << output;
        EXPECT_TRUE(has(c.expect)) << output;
        std::filesystem::remove(dir.file(c.tagName));
    }
}

TEST_F(Bindings, WarningsAreShownAndOutputTagsResolveInASample) {
    dir.write("M_in_s_deck.inp", markFile("free, 1,\\s, 2, Real, length, %g\n"));
    writeStudy();
    EXPECT_EQ(run("check " + study()), 0) << output;
    EXPECT_TRUE(has("s.toml:10: warning: parameter 'width' is bound nowhere")) << output;
    EXPECT_EQ(run(study()), 0) << output;
    EXPECT_LT(output.find("warning: parameter 'width'"), output.find("2 designs, 2 ok")) << output;

    const std::string sample = " --sample-output '" + dir.file("runs/design_0001") + "' ";
    EXPECT_EQ(run("check" + sample + study()), 0) << output;
    dir.write("M_out_s_results.txt", markFile("free, 2,\\s, 2, Real, area, %g\n"));
    EXPECT_EQ(run("check" + sample + study()), 3) << output;
    EXPECT_TRUE(has("M_out_s_results.txt:11: error: row 2 is past the end of the sample output"))
        << output;
    EXPECT_EQ(run("--dry-run" + sample + study()), 3) << output;

    // Token 9 is written before token 10: the text "9" is the higher one.
    dir.write("deck.inp", "length 0 c d e f g h 0 0\nwidth    0.0\n");
    dir.write("M_in_s_deck.inp", markFile("free, 1,\\s, 10, Real, length, %g\nfree, 1,\\s, 9, Real, width, %g\n"));
    EXPECT_EQ(run("check " + study()), 0) << output;
    EXPECT_TRUE(has("M_in_s_deck.inp:12: warning: tokens 9 and 10 of row 1 are written 9 first")) << output;
}

TEST_F(Bindings, BindWritesTagsReadOffInspectAndTheStudyRunsOnThem) {
    writeStudy();
    ASSERT_EQ(run("inspect '" + dir.file("deck.inp") + "'"), 0) << output;
    EXPECT_TRUE(has("    1 | length 0\n      | 1      2\n")) << output;
    EXPECT_TRUE(has("    2 | width    0.0\n      | 1        2\n")) << output;
    EXPECT_TRUE(has("  row |          1\n      | 123456789012\n")) << output;

    const std::string s = study() + " ";
    ASSERT_EQ(run("bind " + s + "deck.inp length --row 1 --token 2 --format %g"), 0) << output;
    ASSERT_EQ(run("bind " + s + "deck.inp width --row 2 --columns 10-12 --format %3.1f"), 0)
        << output;
    EXPECT_TRUE(has("(2 tags)")) << output;
    const std::string tags = readFile(dir.file("M_in_s_deck.inp"));
    EXPECT_NE(tags.find("\nmarking, 1\n"), std::string::npos) << tags;
    EXPECT_NE(tags.find("fixed, 2,9.3, 2, Real, width, %3.1f"), std::string::npos) << tags;

    // Refused binds leave the tag file as it was.
    EXPECT_EQ(run("bind " + s + "deck.inp length --row 7 --token 1"), 3);
    EXPECT_TRUE(has("row 7 is past the end of the input")) << output;
    EXPECT_EQ(run("bind " + s + "deck.inp width --row 1 --token 2"), 3);
    EXPECT_TRUE(has("'width' and 'length'")) << output;
    EXPECT_EQ(run("bind " + s + "deck.inp depth --row 1 --token 1"), 3);
    EXPECT_TRUE(has("parameter 'depth' is not in the study")) << output;
    EXPECT_EQ(run("bind " + s + "deck.inp length --row 1 --token 2 --delims 'a,b'"), 3);
    EXPECT_TRUE(has("write a comma as \\,")) << output;
    EXPECT_EQ(run("bind " + s + "nosuch.inp length --row 1 --token 1"), 3);
    EXPECT_TRUE(has("'nosuch.inp' is neither an input nor an output")) << output;
    EXPECT_EQ(readFile(dir.file("M_in_s_deck.inp")), tags);

    ASSERT_EQ(run("check " + study()), 0) << output;
    ASSERT_EQ(run(study()), 0) << output;
    EXPECT_EQ(readFile(dir.file("runs/design_0002/deck.inp")), "length 2\nwidth    0.5\n");
    EXPECT_NE(readFile(dir.file("runs/results.csv")).find("2,2,0.5,1,ok"), std::string::npos)
        << readFile(dir.file("runs/results.csv"));
}

TEST_F(Bindings, BindsXmlScriptAndPortalTagsThroughThePlugin) {
    dir.write("plate.xml", "<plate><dim>1</dim><dim>2</dim><mat E=\"7\"/></plate>\n");
    dir.write("solver.inp", "side = 0\n");
    dir.write("one.txt", "SET_PARAMETER_LIST(length)\nGOTO_TOP\nSET_VALUE_FREE(1, 3, \\s, %g)\n");
    dir.write("two.txt", "SET_PARAMETER_LIST(width)\nGOTO_TOP\nSET_VALUE_FREE(1, 3, \\s, %g)\n");
    writeStudy("",
               "[[inputs]]\nfile = \"plate.xml\"\ntags = \"X_in_s_plate.xml\"\n"
               "[[inputs]]\nfile = \"solver.inp\"\ntags = \"S_in_s_solver.inp\"\n"
               "[[outputs]]\nfile = \"r.sdf\"\ntags = \"P_out_s_r.sdf\"\n"
               "[[responses]]\nname = \"peak\"\n");
    ASSERT_EQ(run("inspect '" + dir.file("plate.xml") + "'"), 0) << output;
    EXPECT_TRUE(has("/plate/dim[1]\n    [#text]  2\n/plate/mat\n    [@E]  7\n")) << output;

    const std::string s = "bind " + study() + " ";
    EXPECT_EQ(run(s + "plate.xml length --xpath /plate/dim[1] --xid [#text]"), 0) << output;
    EXPECT_EQ(run(s + "plate.xml width --xpath /plate/mat --xid [@E]"), 0) << output;
    EXPECT_EQ(run(s + "plate.xml width --xpath /plate/nothing --xid [#text]"), 3) << output;
    EXPECT_TRUE(has("xpath '/plate/nothing' finds no element")) << output;
    EXPECT_EQ(run(s + "solver.inp --script '" + dir.file("one.txt") + "'"), 0) << output;
    EXPECT_EQ(run(s + "solver.inp --script '" + dir.file("two.txt") + "'"), 0) << output;
    EXPECT_EQ(run(s + "r.sdf peak --variable table --column 2"), 0) << output;
    EXPECT_EQ(run(s + "plate.xml length --variable x"), 3) << output;
    EXPECT_TRUE(has("the portal ZeltraSDF tags no inputs")) << output;

    // Scripts read back keep their names when the file is written again.
    const std::string scripts = readFile(dir.file("S_in_s_solver.inp"));
    EXPECT_NE(scripts.find("SET_PARAMETER_LIST(length)"), std::string::npos) << scripts;
    EXPECT_NE(scripts.find("SET_PARAMETER_LIST(width)"), std::string::npos) << scripts;
    const std::string portal = readFile(dir.file("P_out_s_r.sdf"));
    EXPECT_NE(portal.find("<tag name=\"table__Col2\" paramName=\"peak\""), std::string::npos)
        << portal;
    EXPECT_EQ(run("check " + study()), 0) << output;
    EXPECT_TRUE(has("0 errors")) << output;
}

TEST_F(Bindings, TemplatePlaceholdersThatCannotBeTagsAreRefused) {
    writeStudy();
    const std::pair<const char*, const char*> cases[] = {
        {"x{{length}}\n", "must stand between delimiters"},
        {"{{length}} {{width:%5.2f}}\n", "has a width but follows a placeholder without one"},
        {"ab{{width:%4.1f}} {{length}}\n", "follows a placeholder with a width that touches"},
        {"{{width:%2.1f}}\n", "the value 0.5 of 'width' is wider than the placeholder's 2"},
        {"a = {{depth}}\n", ":1: the study has no parameter 'depth'"},
        {"a\nb = {{length\n", ":2: '{{' without '}}'"},
        {"nothing here\n", "holds no placeholder"},
    };
    for (const auto& [text, expect] : cases) {
        SCOPED_TRACE(text);
        dir.write("t.tpl", text);
        EXPECT_EQ(run("bind template '" + dir.file("t.tpl") + "' --out '" + dir.file("new.inp") +
                      "' --study " + study()),
                  3);
        EXPECT_TRUE(has(expect)) << output;
        EXPECT_FALSE(std::filesystem::exists(dir.file("new.inp")));
    }
    // Without a study the analysis names the tag file and the values are 0.
    dir.write("t.tpl", "a ={{width:%7.2f}}, {{length}}\n");
    ASSERT_EQ(run("bind template '" + dir.file("t.tpl") + "' --out '" + dir.file("new.inp") +
                  "' --analysis a"),
              0)
        << output;
    EXPECT_EQ(readFile(dir.file("new.inp")), "a =   0.00, 0\n");
    const std::string tags = readFile(dir.file("M_in_a_new.inp"));
    EXPECT_NE(tags.find("fixed, 1,3.7, 2, Real, width, %7.2f\n"
                        "free, 1,\\,;\"=()'\\t\\s, 3, Real, length, Default"),
              std::string::npos)
        << tags;
}

}  // namespace
