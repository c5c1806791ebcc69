// The Slurm scheduler's pieces that need no cluster: the [scheduler] table,
// the job array and sbatch words made from a study, squeue's answers read
// back into reasons, and a worker run by hand. The runs through a real
// cluster are in tests/tools/slurm.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>

#include "fake_host.h"
#include "slurm.h"
#include "study.h"

using namespace portalrun;
using fakehost::readFile;
using fakehost::TempDir;

namespace {

const char* const kSolver = "[solver]\ncommand = \"true\"\n";

std::string schedulerError(const TempDir& dir, const std::string& table) {
    try {
        parseStudy(std::string(kSolver) + "[scheduler]\n" + table, dir.file("s.toml"));
    } catch (const StudyError& e) {
        return e.what();
    }
    return "";
}

TEST(SlurmStudy, SchedulerTableGivesWhatEachTaskAsksFor) {
    TempDir dir;
    Study s = parseStudy(std::string(kSolver) +
                             "[scheduler]\ntype = \"slurm\"\npartition = \"short\"\ntime = \"1-02:30\"\n"
                             "cpus = 4\nmemory = 2048\nsbatch_options = [\"--account=beams\", \"--qos=low\"]\n",
                         dir.file("s.toml"));
    EXPECT_EQ(s.scheduler, SchedulerKind::Slurm);
    EXPECT_EQ(s.slurm.time, "1-02:30");
    EXPECT_EQ(s.slurm.memory, "2048");
    const auto args = sbatchArguments(s, "1-3%2", "/r/run_design.sh");
    const std::vector<std::string> want = {
        "--parsable", "--array=1-3%2", "--job-name=s", "--output=" + dir.file("runs/slurm/design_%4a.out"),
        "--chdir=" + dir.path(), "--no-requeue", "--partition=short", "--time=1-02:30",
        "--cpus-per-task=4", "--mem=2048", "--account=beams", "--qos=low", "/r/run_design.sh"};
    EXPECT_EQ(args, want);
    EXPECT_EQ(parseStudy(kSolver, dir.file("t.toml")).scheduler, SchedulerKind::Local);

    // A '%' of the runs folder must not read as one of Slurm's patterns.
    s.runs = "/data/100%/runs";
    EXPECT_EQ(sbatchArguments(s, "1", "x")[3], "--output=/data/100%%/runs/slurm/design_%4a.out");
}

TEST(SlurmStudy, RefusesSchedulerSettingsSlurmWouldMisread) {
    TempDir dir;
    struct Case {
        const char *table, *message;
    };
    const Case cases[] = {
        {"type = \"pbs\"\n", "unknown type 'pbs' (local or slurm)"},
        {"time = \"90 min\"\n", "'time' = \"90 min\" is not a Slurm time"},
        {"time = 0\n", "'time' must be at least 1"},
        {"time = \"1:2:3:4\"\n", "is not a Slurm time"},
        {"time = \"-3:00\"\n", "is not a Slurm time"},
        {"time = \"2-\"\n", "is not a Slurm time"},
        {"time = \"10:\"\n", "is not a Slurm time"},
        {"memory = \"G\"\n", "is not a size"},
        {"memory = \"2GB\"\n", "'memory' = \"2GB\" is not a size"},
        {"cpus = 0\n", "'cpus' must be from 1 to 100000"},
        {"partition = \"a b\"\n", "'partition' must be one name"},
        {"sbatch_options = \"--qos=low\"\n", "'sbatch_options' must be an array of strings"},
        {"sbatch_options = [\"qos=low\"]\n", "must begin with '-'"},
        {"sbatch_options = [\"--array=1-9\"]\n", "'--array=1-9' is set by portal-run itself"},
        {"sbatch_options = [\"-ofile\"]\n", "'-ofile' is set by portal-run itself"},
        {"queue = \"x\"\n", "unknown key 'queue'"},
    };
    for (const Case& c : cases) {
        const std::string e = schedulerError(dir, c.table);
        EXPECT_NE(e.find(c.message), std::string::npos) << c.table << " gave: " << e;
        EXPECT_NE(e.find("[scheduler]"), std::string::npos) << e;
    }
    EXPECT_EQ(schedulerError(dir, "time = \"UNLIMITED\"\nmemory = \"16g\"\nsbatch_options = [\"--export=ALL\"]\n"), "");
    for (const char* time : {"45", "30:00", "1:30:00", "2-12", "2-12:30", "2-12:30:15"})
        EXPECT_EQ(schedulerError(dir, std::string("time = \"") + time + "\"\n"), "") << time;
}

TEST(SlurmArray, JoinsConsecutiveDesignsIntoRanges) {
    EXPECT_EQ(arraySpec({1, 2, 3, 5}, 2), "1-3,5%2");
    EXPECT_EQ(arraySpec({9, 7, 8, 8, 12, 14, 13}, 0), "7-9,12-14");
    EXPECT_EQ(arraySpec({4}, 0), "4");
}

TEST(SlurmQueue, ReadsTaskStatesAndTellsSlurmsReason) {
    const auto tasks = parseQueue(
        "1|COMPLETED|None\n2|RUNNING|None\n3|TIMEOUT|TimeLimit\n12|PENDING|JobArrayTaskLimit\n"
        "squeue: error: x\n|FAILED|y\n4|OUT_OF_MEMORY|OutOfMemory\n");
    ASSERT_EQ(tasks.size(), 5u);
    EXPECT_EQ(tasks.at(12).reason, "JobArrayTaskLimit");
    EXPECT_TRUE(taskEnded(tasks.at(1).state));
    EXPECT_FALSE(taskEnded(tasks.at(2).state));
    EXPECT_FALSE(taskEnded("COMPLETING")) << "its record may not be written yet";

    Study s;
    s.slurm.time = "30";
    s.slurm.memory = "1G";
    EXPECT_EQ(slurmEndReason(s, tasks.at(3), "o"),
              "Slurm stopped the design's task at its time limit of 30 min (TIMEOUT)");
    EXPECT_EQ(slurmEndReason(s, tasks.at(4), "o"),
              "the design's task ran out of memory (--mem=1G) (OUT_OF_MEMORY)");
    EXPECT_EQ(slurmEndReason(s, {"NODE_FAIL", "None"}, "o"),
              "the node that ran the design's task failed (NODE_FAIL)");
    EXPECT_EQ(slurmEndReason(s, {"FAILED", "NonZeroExitCode"}, "/r/design_0002.out"),
              "the design's Slurm task ended as FAILED (NonZeroExitCode) without a result; see "
              "/r/design_0002.out");
}

// What each task runs can be run by hand: one design, its record, no CSV;
// a whole run afterwards keeps that design's result.
TEST(SlurmWorker, RunsOneDesignByHandAndTheStudyKeepsIt) {
    TempDir dir;
    dir.write("M_out_s_r.txt",
              "$ File type, version\nmarking, 1\n$ Tag definition file: r.txt\n$ Tag type, Num "
              "tags\nMARKING, 1\n$ delims\n\\s\n$ widths\n10\n$ Mode, Row, Delims, Col, Param type, "
              "Param name, Print Fmt\nfree, 1,\\s, 2, Double, twice, %g\n");
    dir.write("s.toml",
              "[solver]\ncommand = \"echo twice $(expr ${design} '*' 2) > r.txt; echo x >> ../calls\"\n"
              "[design]\nmethod = \"list\"\n[[parameters]]\nname = \"x\"\nvalues = [1, 2]\n"
              "[[outputs]]\nfile = \"r.txt\"\ntags = \"M_out_s_r.txt\"\n[[responses]]\nname = \"twice\"\n");
    auto run = [&](const std::string& args) {
        const std::string cmd = std::string(PORTAL_RUN_EXE) + " --plugin '" ZELTRA_PLUGIN_PATH "' " + args +
                                " '" + dir.file("s.toml") + "' > '" + dir.file("out.txt") + "' 2>&1";
        const int status = std::system(cmd.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    };
    ASSERT_EQ(run("--worker 2"), 0) << readFile(dir.file("out.txt"));
    EXPECT_NE(readFile(dir.file("runs/design_0002/result.toml")).find("twice = '4'"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(dir.file("runs/design_0001")));
    EXPECT_FALSE(std::filesystem::exists(dir.file("runs/results.csv")));

    EXPECT_EQ(run("--worker 3"), 2);
    EXPECT_NE(readFile(dir.file("out.txt")).find("the study has no design 3 (it has 2 designs)"),
              std::string::npos);
    EXPECT_EQ(run("--worker 1 --fresh"), 2);

    ASSERT_EQ(run(""), 0) << readFile(dir.file("out.txt"));
    EXPECT_EQ(readFile(dir.file("runs/results.csv")), "design,x,twice,status,reason\n1,1,2,ok,\n2,2,4,ok,\n");
    EXPECT_EQ(readFile(dir.file("runs/calls")), "x\nx\n") << "design 2 ran twice";
}

}  // namespace
