// The solver's process: outcome, output capture, stop requests, the command
// expansion, and the solver's messages as the portal will read them.
#include <gtest/gtest.h>

#include <chrono>

#include "design_run.h"
#include "fake_host.h"
#include "process.h"

using namespace portalrun;
using fakehost::readFile;
using fakehost::TempDir;

namespace {

CommandOutcome run(const TempDir& dir, const std::string& command, double limit = 0,
                   const volatile std::sig_atomic_t* stop = nullptr) {
    CommandSpec spec;
    spec.command = command;
    spec.dir = dir.path();
    spec.stdoutPath = dir.file("out");
    spec.stderrPath = dir.file("err");
    spec.timeLimit = limit;
    spec.killGrace = 0.2;
    spec.stop = stop;
    return runCommand(spec);
}

TEST(SolverProcess, ReportsHowTheCommandEnded) {
    TempDir dir;
    CommandOutcome ok = run(dir, "pwd; echo oops >&2; read x; echo \"[$x]\"");
    EXPECT_TRUE(ok.started);
    EXPECT_EQ(ok.exitCode, 0);
    EXPECT_EQ(readFile(dir.file("out")), dir.path() + "\n[]\n");  // run folder, empty stdin
    EXPECT_EQ(readFile(dir.file("err")), "oops\n");

    EXPECT_EQ(run(dir, "exit 7").exitCode, 7);
    CommandOutcome killed = run(dir, "kill -SEGV $$");
    EXPECT_EQ(killed.signal, SIGSEGV);
    EXPECT_FALSE(killed.timedOut);

    CommandSpec nowhere;
    nowhere.command = "true";
    nowhere.dir = dir.path();
    nowhere.stdoutPath = dir.file("no/such/folder/out");
    nowhere.stderrPath = dir.file("err");
    CommandOutcome refused = runCommand(nowhere);
    EXPECT_FALSE(refused.started);
    EXPECT_NE(refused.error.find("cannot create"), std::string::npos) << refused.error;
}

TEST(SolverProcess, AStopRequestEndsTheRunAtOnce) {
    TempDir dir;
    volatile std::sig_atomic_t stop = 1;
    const auto t0 = std::chrono::steady_clock::now();
    CommandOutcome o = run(dir, "sleep 20", 0, &stop);
    EXPECT_TRUE(o.interrupted);
    EXPECT_FALSE(o.timedOut);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::seconds(5));

    CommandOutcome late = run(dir, "sleep 20", 0.2);
    EXPECT_TRUE(late.timedOut);
    EXPECT_GE(late.seconds, 0.2);
    EXPECT_LT(late.seconds, 5.0);
}

TEST(SolverProcess, ExpandsOnlyItsOwnNames) {
    EXPECT_EQ(expandCommand("${study_dir}/s ${run_dir} ${design} ${HOME} $x ${study_dir \\${design}",
                            "/st", "/run", 12),
              "'/st'/s '/run' '12' ${HOME} $x ${study_dir \\${design}");
}

// Whatever quotes the command puts around a name, the shell gets the value
// as it is, also one with blanks, quotes and the shell's special characters.
TEST(SolverProcess, ExpandedValuesReachTheSolverUnchanged) {
    TempDir dir;
    const std::string value = "/a b'c\"d $HOME `x` \\e";
    const std::pair<std::string, std::string> cases[] = {
        {"printf '%s|' ${study_dir}/f", value + "/f|"},
        {"printf '%s|' \"x ${study_dir}\"", "x " + value + "|"},
        {"printf '%s|' 'x ${study_dir}'", "x " + value + "|"},
        {"printf '%s|' \"it's\" ${study_dir} 'a\"b'", "it's|" + value + "|a\"b|"},
        {"printf '%s|' \\' ${study_dir}", "'|" + value + "|"},
        {"printf '%s|' \"${UNSET_HERE:-${study_dir}}\"", value + "|"},
    };
    for (const auto& [command, expected] : cases) {
        const std::string expanded = expandCommand(command, value, "/run", 1);
        ASSERT_EQ(run(dir, expanded).exitCode, 0) << expanded;
        EXPECT_EQ(readFile(dir.file("out")), expected) << command << "\n -> " << expanded;
    }
}

TEST(SolverMessages, OnlyLinesWithALevelWordGoToThePortal) {
    TempDir dir;
    const std::string out = dir.write("out",
                                      "iteration 1\nerror: mesh broke\n  ERROR: indented\n"
                                      "Warn: slow\r\nNOTE:x\noutput: 42\nNotes: none\n");
    const std::string messages = dir.write("messages", "ERROR: from the solver itself\n");
    ASSERT_TRUE(appendMessages(out, messages));
    EXPECT_EQ(readFile(messages),
              "ERROR: from the solver itself\nerror: mesh broke\nWarn: slow\nNOTE:x\noutput: 42\n");
    EXPECT_TRUE(appendMessages(dir.file("missing"), messages));  // no output: nothing to add
    EXPECT_FALSE(appendMessages(out, dir.file("no/folder/messages")));
}

}  // namespace
