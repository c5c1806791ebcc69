// Whole studies played by portal-run against a shell-script solver whose
// input and output are bound by mark tags. The solver's behaviour follows the
// design's "length", so one study shows good and failed designs side by side.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <cstring>
#include <sstream>

#include "fake_host.h"

using fakehost::readFile;
using fakehost::TempDir;

namespace {

const char* const kTagHead =
    "$ File type, version\nmarking, 1\n$ Tag definition file: %s\n$ Tag type, Num tags\n"
    "MARKING, 1\n$ delims\n\\s\n$ widths\n10\n$ Mode, Row, Delims, Col, Param type, Param "
    "name, Print Fmt\n";

// length 2: exit code 3; 3: an error message; 4: an unreadable response;
// 5: hangs with a helper that ignores SIGTERM; 6: takes its time unless
// "$1.go" exists; else writes area = l * w.
const char* const kSolver =
    "l=$(awk 'NR==1{print $2}' deck.inp)\n"
    "w=$(awk 'NR==2{print $2}' deck.inp)\n"
    "echo \"$l\" >> \"$1\"\n"
    "[ -z \"${SDF_NO_READ_LOCK+x}\" ] || echo leaked > env-leak.txt\n"
    "case \"$l\" in\n"
    "  2) exit 3 ;;\n"
    "  3) echo 'error: mesh broke' ;;\n"
    "  4) echo 'area abc' > results.txt; exit 0 ;;\n"
    "  5) sh -c 'trap \"\" TERM; exec sleep 30' & echo $! > helper.pid; wait; exit 0 ;;\n"
    "  6) [ -f \"$1.go\" ] || sleep 20 ;;\n"
    "esac\n"
    "awk -v l=\"$l\" -v w=\"$w\" 'BEGIN{printf \"area %g\\nhalf %g\\n\", l*w, l/2}' > results.txt\n";

std::string tagFile(const char* file, const std::string& line) {
    char head[512];
    std::snprintf(head, sizeof head, kTagHead, file);
    return head + line;
}

bool processGone(const std::string& pid) {
    const std::string stat = readFile("/proc/" + pid + "/stat");
    if (stat.empty()) return true;
    auto close = stat.rfind(')');
    return close != std::string::npos && stat.compare(close + 2, 1, "Z") == 0;
}

// A word for /bin/sh that is the text as it is.
std::string shellWord(const std::string& text) {
    std::string out = "'";
    for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

class StudyRun : public ::testing::Test {
protected:
    void SetUp() override { placeIn(""); }

    // Puts the study's files into a folder of the temporary one ("" for
    // itself); the study runs from there.
    void placeIn(const std::string& folder) {
        home = folder.empty() ? dir.path() : dir.file(folder);
        std::filesystem::create_directories(home);
        dir.write(folder + "/deck.inp", "length 0\nwidth 0\n");
        dir.write(folder + "/M_in_s_deck.inp",
                  tagFile("deck.inp", "free, 1,\\s, 2, Double, length, %g\n"
                                      "free, 2,\\s, 2, Double, width, Default\n"));
        dir.write(folder + "/M_out_s_results.txt",
                  tagFile("results.txt", "free, 1,\\s, 2, Double, area, %g\n"
                                         "free, 2,\\s, 2, Double, half, %g\n"));
        dir.write(folder + "/solve.sh", kSolver);
    }
    std::string at(const std::string& name) const { return home + "/" + name; }
    std::string study() const { return shellWord(at("s.toml")); }

    void writeStudy(const std::string& lengths, const std::string& extraSolver = "",
                    const std::string& width = "value = 0.5",
                    const std::vector<std::string>& responses = {"area"}) {
        std::string text =
            "[solver]\ncommand = \"sh ${study_dir}/solve.sh ${study_dir}/calls.log\"\n"
            "kill_grace = 0.3\n" + extraSolver +
            "[design]\nmethod = \"list\"\n"
            "[[parameters]]\nname = \"length\"\nvalues = [" + lengths + "]\n"
            "[[parameters]]\nname = \"width\"\n" + width + "\n"
            "[[inputs]]\nfile = \"deck.inp\"\ntags = \"M_in_s_deck.inp\"\n"
            "[[outputs]]\nfile = \"results.txt\"\ntags = \"M_out_s_results.txt\"\n";
        for (const std::string& r : responses) text += "[[responses]]\nname = \"" + r + "\"\n";
        std::ofstream(at("s.toml"), std::ios::trunc) << text;
    }

    // Runs portal-run with the arguments; the exit code, output in `output`.
    int run(const std::string& args) {
        const std::string cmd = std::string(PORTAL_RUN_EXE) + " --plugin " + shellWord(plugin) +
                                " " + args + " > " + dir.file("output.txt") + " 2>&1";
        int status = std::system(cmd.c_str());
        output = readFile(dir.file("output.txt"));
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string csv(const std::string& runs = "runs") { return readFile(at(runs + "/results.csv")); }
    std::size_t solverCalls() {
        const std::string log = readFile(at("calls.log"));
        return static_cast<std::size_t>(std::count(log.begin(), log.end(), '\n'));
    }
    // Lines of the output that hold text.
    std::size_t linesWith(const std::string& text) {
        std::size_t n = 0;
        std::istringstream in(output);
        for (std::string l; std::getline(in, l);) n += l.find(text) != std::string::npos;
        return n;
    }

    TempDir dir;
    std::string home;
    std::string plugin = ZELTRA_PLUGIN_PATH;
    std::string output;
};

TEST_F(StudyRun, PlaysEachDesignInItsOwnFolder) {
    writeStudy("1, 1.5");
    ASSERT_EQ(run(study()), 0) << output;
    EXPECT_EQ(csv(),
              "design,length,width,area,status,reason\n"
              "1,1,0.5,0.5,ok,\n"
              "2,1.5,0.5,0.75,ok,\n");
    EXPECT_EQ(readFile(at("runs/design_0002/deck.inp")), "length 1.5\nwidth 0.5\n");
    EXPECT_EQ(readFile(at("deck.inp")), "length 0\nwidth 0\n") << "the original changed";
    // The runner's own switch for reading outputs never reaches the solver.
    EXPECT_FALSE(std::filesystem::exists(at("runs/design_0001/env-leak.txt")));
    EXPECT_NE(readFile(at("runs/design_0001/result.toml")).find("status = 'ok'"),
              std::string::npos);
    EXPECT_NE(output.find("2 designs, 2 ok, 0 failed"), std::string::npos) << output;
}

TEST_F(StudyRun, RecordsEachFailureAndGoesOn) {
    writeStudy("2, 3, 4, 1");
    EXPECT_EQ(run(study()), 1) << output;
    const std::string table = csv();
    EXPECT_NE(table.find("1,2,0.5,,failed,the solver exited with code 3\n"), std::string::npos)
        << table;
    EXPECT_NE(table.find("2,3,0.5,,failed,the solver reported an error: mesh broke\n"),
              std::string::npos)
        << table;
    EXPECT_NE(table.find("3,4,0.5,,failed,"), std::string::npos) << table;
    EXPECT_NE(table.find("the response 'area' couldn't be read"), std::string::npos) << table;
    EXPECT_NE(table.find("4,1,0.5,0.5,ok,\n"), std::string::npos) << table;
    // The portal's own message stays in the design's record.
    EXPECT_NE(readFile(at("runs/design_0003/result.toml")).find("abc"), std::string::npos);
    // Each problem shows once, at its level, without its level word twice.
    EXPECT_EQ(linesWith("design 2: error:"), 1u) << output;
    EXPECT_EQ(linesWith("mesh broke"), 2u) << "the line and the summary's\n" << output;

    // A text where the tag prints a number would fail every design: the
    // check before the run refuses it, with the tag's place.
    writeStudy("\"thin\"");
    EXPECT_EQ(run("--fresh " + study()), 3) << output;
    EXPECT_EQ(linesWith("M_in_s_deck.inp:11: error: print format '%g' of parameter 'length': "
                        "the text 'thin'"),
              1u)
        << output;
    EXPECT_EQ(linesWith("ERROR"), 0u) << output;
}

// A "Default" print format gives the shortest text that reads back as the
// value, and the range gives the value the user means: the input and the
// CSV agree.
TEST_F(StudyRun, RangeValuesAreTheSameInTheInputAndTheCsv) {
    writeStudy("1, 1, 1, 1, 1", "", "from = 0.0\nto = 0.4\nstep = 0.1");
    ASSERT_EQ(run(study()), 0) << output;
    EXPECT_EQ(readFile(at("runs/design_0004/deck.inp")), "length 1\nwidth 0.3\n");
    EXPECT_NE(csv().find("\n4,1,0.3,0.3,ok,\n"), std::string::npos) << csv();
}

// Paths go into the solver's command quoted: a study in a folder whose name
// has a blank and a quote runs like any other.
TEST_F(StudyRun, RunsFromAFolderWithABlankAndAQuote) {
    placeIn("my study's \"beam\"");
    writeStudy("1");
    ASSERT_EQ(run(study()), 0) << output;
    EXPECT_EQ(solverCalls(), 1u);
    EXPECT_NE(csv().find("1,1,0.5,0.5,ok,"), std::string::npos) << csv();
}

TEST_F(StudyRun, TimeLimitEndsTheWholeProcessTree) {
    writeStudy("5, 1", "time_limit = 0.5\n");
    const auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(run(study()), 1) << output;
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(10));
    EXPECT_NE(csv().find("1,5,0.5,,failed,the solver ran past the time limit of 0.5 s\n"),
              std::string::npos)
        << csv();
    EXPECT_NE(csv().find("2,1,0.5,0.5,ok,"), std::string::npos) << "the study went on";
    std::string pid = readFile(at("runs/design_0001/helper.pid"));
    pid.erase(pid.find_last_not_of("\n") + 1);
    ASSERT_FALSE(pid.empty());
    EXPECT_TRUE(processGone(pid)) << "the helper that ignores SIGTERM survived";
}

TEST_F(StudyRun, ReRunSkipsDesignsAlreadyDone) {
    writeStudy("1, 2");
    EXPECT_EQ(run(study()), 1);
    const std::string first = csv();
    ASSERT_EQ(solverCalls(), 2u);

    EXPECT_EQ(run(study()), 1);
    EXPECT_EQ(solverCalls(), 2u) << "done designs ran again";
    EXPECT_EQ(csv(), first);

    EXPECT_EQ(run("--retry-failed " + study()), 1);
    EXPECT_EQ(solverCalls(), 3u) << "only the failed design runs again";
    EXPECT_NE(output.find("1 design run again: it failed before (--retry-failed)\n"),
              std::string::npos)
        << output;

    // A design without a whole record (an interrupted one) runs again, and
    // so does one whose values changed in the study.
    std::filesystem::remove(at("runs/design_0002/result.toml"));
    writeStudy("1.5, 2");
    EXPECT_EQ(run(study()), 1);
    EXPECT_EQ(solverCalls(), 5u);
    EXPECT_NE(csv().find("1,1.5,0.5,0.75,ok,"), std::string::npos) << csv();
    EXPECT_NE(output.find("1 design run again: the design's parameter values changed\n"),
              std::string::npos)
        << output;
    EXPECT_EQ(output.find("2 designs run again"), std::string::npos) << "a design never done";

    // A record that isn't whole runs its design again, and says so.
    std::ofstream(at("runs/design_0002/result.toml"), std::ios::trunc) << "design = 2\nstat";
    EXPECT_EQ(run(study()), 1);
    EXPECT_EQ(solverCalls(), 6u);
    EXPECT_NE(output.find("1 design run again: its record was damaged"), std::string::npos)
        << output;

    // --fresh removes what runs leave, not a folder of the user's.
    std::filesystem::create_directories(at("runs/design_notes"));
    EXPECT_EQ(run("--fresh " + study()), 1);
    EXPECT_EQ(solverCalls(), 8u);
    EXPECT_TRUE(std::filesystem::exists(at("runs/design_notes")));
}

// A record holds its responses by name: reordering the study's responses
// changes the columns, and each value stays in its own.
TEST_F(StudyRun, ReRunKeepsEachResponseInItsColumn) {
    writeStudy("1, 3", "", "value = 0.25", {"area", "half"});
    EXPECT_EQ(run(study()), 1) << output;
    writeStudy("1, 3", "", "value = 0.25", {"half", "area"});
    EXPECT_EQ(run(study()), 1) << output;
    EXPECT_EQ(solverCalls(), 2u) << "the same designs ran again";
    EXPECT_NE(csv().find("design,length,width,half,area,status,reason\n1,1,0.25,0.5,0.25,ok,\n"),
              std::string::npos)
        << csv();
    EXPECT_NE(output.find("(2 done before)"), std::string::npos) << output;
}

// Whatever decides a design's result runs it again when it changes, and
// the summary says why; what only changes the log doesn't.
TEST_F(StudyRun, ReRunRedoesDesignsWhoseSetupChanged) {
    plugin = dir.file("plugin.so");
    std::filesystem::copy_file(ZELTRA_PLUGIN_PATH, plugin);
    // One change after the other, each alone in what it changes: source's
    // text with `from` replaced by `to` (appended when `from` is empty) goes
    // to target; a study target is the one that runs.
    struct Case {
        const char *source, *target, *from, *to;
        const char* cause;  // nullptr: the record stands
    };
    const char* const kFilesCause = "an input, output or tag file changed";
    const Case cases[] = {
        {"deck.inp", "deck.inp", "width 0\n", "width 0\n\n", kFilesCause},
        {"M_out_s_results.txt", "M_out_s_results.txt", "area, %g", "area, %.3g", kFilesCause},
        {"s.toml", "s.toml", "[[responses]]", "[[responses]]\nname = \"half\"\n[[responses]]",
         "the study's responses changed"},
        {"s.toml", "s.toml", "[design]", "[settings]\nmodel = 2\n[design]",
         "the study's name, version, portal, settings or properties changed"},
        {"s.toml", "s.toml", "model = 2\n", "model = 2\nverbose = true\n", nullptr},
        {"plugin.so", "plugin.so", "", "x", "the plug-in changed"},
        {"s.toml", "t.toml", "solve.sh ", "solve.sh  ",  // a study beside
         "the solver command or its time limits changed"},
    };
    writeStudy("1");
    ASSERT_EQ(run(study()), 0) << output;
    for (const Case& c : cases) {
        const std::size_t before = solverCalls();
        std::string text = readFile(at(c.source));
        text.replace(*c.from ? text.find(c.from) : text.size(), std::strlen(c.from), c.to);
        std::ofstream(at(c.target), std::ios::binary | std::ios::trunc) << text;
        const std::string target = c.target;
        const bool isStudy = target.ends_with(".toml");
        ASSERT_EQ(run(shellWord(at(isStudy ? target : "s.toml"))), 0) << c.to << "\n" << output;
        EXPECT_EQ(solverCalls(), before + (c.cause ? 1 : 0)) << c.to << "\n" << output;
        const std::string said = c.cause ? std::string("1 design run again: ") + c.cause
                                         : "(1 done before)";
        EXPECT_NE(output.find(said), std::string::npos) << c.to << "\n" << output;
    }
}

TEST_F(StudyRun, AnInterruptedStudyGoesOnWhereItStopped) {
    writeStudy("1, 6, 6, 1.5");
    pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        // SIGTERM to the runner alone: it must pass it on to its workers.
        ::freopen(dir.file("output.txt").c_str(), "w", stdout);
        ::dup2(1, 2);
        ::execl(PORTAL_RUN_EXE, PORTAL_RUN_EXE, "--plugin", ZELTRA_PLUGIN_PATH, "-j", "2",
                dir.file("s.toml").c_str(), static_cast<char*>(nullptr));
        ::_exit(127);
    }
    for (int i = 0; i < 100 && solverCalls() < 3; ++i) ::usleep(50000);
    ::kill(pid, SIGTERM);
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 130) << readFile(dir.file("output.txt"));
    EXPECT_NE(csv().find("2,6,0.5,,pending,\n3,6,0.5,,pending,\n"), std::string::npos) << csv();

    dir.write("calls.log.go", "");
    EXPECT_EQ(run(study()), 0) << output;
    EXPECT_NE(csv().find("2,6,0.5,3,ok,\n3,6,0.5,3,ok,\n4,1.5,0.5,0.75,ok,\n"), std::string::npos)
        << csv();
    EXPECT_NE(output.find("(1 done before)"), std::string::npos) << output;
}

TEST_F(StudyRun, ParallelWorkersGiveTheSameResults) {
    writeStudy("1, 1.5, 2, 3, 4, 1.25, 0.5");
    EXPECT_EQ(run("--runs " + dir.file("one") + " " + study()), 1) << output;
    EXPECT_EQ(run("-j 3 --runs " + dir.file("three") + " " + study()), 1) << output;
    EXPECT_FALSE(csv("one").empty());
    EXPECT_EQ(csv("one"), csv("three"));
}

TEST_F(StudyRun, ExitCodesTellWhatWentWrong) {
    writeStudy("1");
    EXPECT_EQ(run("--help"), 0);
    EXPECT_NE(output.find("exit codes"), std::string::npos);
    EXPECT_EQ(run("--jobs 0 " + study()), 2) << output;
    EXPECT_EQ(run(""), 2) << output;
    dir.write("bad.toml", "[solver]\ncommand = 3\n");
    EXPECT_EQ(run(dir.file("bad.toml")), 3) << output;
    EXPECT_NE(output.find("'command' must be a string"), std::string::npos) << output;
    EXPECT_EQ(run("--plugin " + at("deck.inp") + " " + study()), 4) << output;
    EXPECT_FALSE(std::filesystem::exists(dir.file("runs"))) << "a failed start made run folders";
    EXPECT_EQ(run("--runs /dev/null/runs " + study()), 5) << output;
    EXPECT_EQ(output.rfind("portal-run: error: cannot create the runs folder /dev/null/runs", 0), 0u)
        << output;
}

}  // namespace
