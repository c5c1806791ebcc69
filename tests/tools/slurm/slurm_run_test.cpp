// portal-run against a private single-node Slurm cluster that ctest starts
// before these cases and stops after them (slurm_cluster.sh). The cases run
// in one process, in the order written: the study whose design passes its
// one-minute Slurm time limit starts first, in the background, and is
// judged last, so the minute passes while the other cases run.
#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "fake_host.h"

namespace {

namespace fs = std::filesystem;
using fakehost::readFile;
using fakehost::TempDir;

const char* const kOutTags =
    "$ File type, version\nmarking, 1\n$ Tag definition file: results.txt\n$ Tag type, Num "
    "tags\nMARKING, 1\n$ delims\n\\s\n$ widths\n10\n$ Mode, Row, Delims, Col, Param type, Param "
    "name, Print Fmt\nfree, 1,\\s, 2, Double, twice, %g\n";

// $1: the design, $2: the calls log. By the study's folder: in "study" and
// "busy" designs 2 and 3 wait until "$2.go" exists (at most 150 s); in
// "slow" design 3 outlasts any one-minute limit. Else: twice = 2 * design.
const char* const kSolver =
    "echo \"$1\" >> \"$2\"\n"
    "case \"$1:$PWD\" in\n"
    "  [23]:*/study/*|[23]:*/busy/*)\n"
    "    i=0; while [ ! -f \"$2.go\" ] && [ $i -lt 1500 ]; do sleep 0.1; i=$((i+1)); done ;;\n"
    "  3:*/slow/*) sleep 150 ;;\n"
    "esac\n"
    "echo \"twice $(($1 * 2))\" > results.txt\n";

// A word for /bin/sh that is the text as it is.
std::string shellWord(const std::string& text) {
    std::string out = "'";
    for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

int shell(const std::string& command) {
    const int status = std::system(command.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// What squeue still shows of the job of a run whose output is `out`
// ("Slurm job N: ..."); empty when the job is over.
std::string liveJob(const std::string& out) {
    const auto at = out.find("Slurm job ");
    if (at == std::string::npos) return "no job in: " + out;
    const std::string id = out.substr(at + 10, out.find(':', at) - at - 10);
    std::string live;
    FILE* p = ::popen(("squeue -h -o %i -j " + id + " 2>/dev/null").c_str(), "r");
    if (!p) return "popen failed";
    char buf[256];
    while (std::fgets(buf, sizeof buf, p)) live += buf;
    ::pclose(p);
    return live;
}

// A small study in its own folder: designs 1 to `designs`, the solver above.
struct SmallStudy {
    explicit SmallStudy(const std::string& folder, int designs, const std::string& scheduler) {
        home = dir.file(folder);
        fs::create_directories(home);
        dir.write(folder + "/M_out_s_results.txt", kOutTags);
        dir.write(folder + "/solve.sh", kSolver);
        std::string values;
        for (int i = 1; i <= designs; ++i) values += (i > 1 ? ", " : "") + std::to_string(i);
        dir.write(folder + "/s.toml",
                  "[solver]\ncommand = \"sh ${study_dir}/solve.sh ${design} ${study_dir}/calls.log\"\n"
                  "[scheduler]\n" + scheduler +
                  "[design]\nmethod = \"list\"\n"
                  "[[parameters]]\nname = \"x\"\nvalues = [" + values + "]\n"
                  "[[outputs]]\nfile = \"results.txt\"\ntags = \"M_out_s_results.txt\"\n"
                  "[[responses]]\nname = \"twice\"\n");
    }
    std::string at(const std::string& name) const { return home + "/" + name; }
    std::string portalRun(const std::string& args) const {
        return std::string(PORTAL_RUN_EXE) + " --plugin " + shellWord(ZELTRA_PLUGIN_PATH) + " " +
               args + " " + shellWord(at("s.toml"));
    }
    pid_t start(const std::string& args) const {
        pid_t pid = ::fork();
        if (pid == 0) {
            const std::string cmd = "exec " + portalRun(args) + " > " + shellWord(at("out.txt")) + " 2>&1";
            ::execl("/bin/sh", "sh", "-c", cmd.c_str(), static_cast<char*>(nullptr));
            ::_exit(127);
        }
        return pid;
    }
    int calls() const {
        const std::string log = readFile(at("calls.log"));
        return static_cast<int>(std::count(log.begin(), log.end(), '\n'));
    }

    TempDir dir;
    std::string home;
};

// Exit code of a child, waiting at most `seconds`; -1 when it didn't end.
int waitFor(pid_t pid, int seconds) {
    for (int i = 0; i < seconds * 10; ++i) {
        int status = 0;
        if (::waitpid(pid, &status, WNOHANG) == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : -2;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
    return -1;
}

class Cluster : public ::testing::Environment {
public:
    void SetUp() override {
        ::setenv("SLURM_CONF", SLURM_TEST_CLUSTER "/slurm.conf", 1);
        slow = std::make_unique<SmallStudy>("slow", 3, "type = \"slurm\"\ntime = 1\n");
        slowPid = slow->start("");
    }
    void TearDown() override {
        // Left running when its case was filtered out: stopped as a user
        // would, so that its array goes too.
        if (slowPid > 0 && ::kill(slowPid, SIGINT) == 0) waitFor(slowPid, 90);
    }
    static inline std::unique_ptr<SmallStudy> slow;
    static inline pid_t slowPid = -1;
};

// The demo beam study gives the same CSV through Slurm as on this machine.
TEST(SlurmRun, BeamStudyGivesTheLocalCsv) {
    TempDir dir;
    const std::string env = "BEAM_SOLVER=" + shellWord(BEAM_SOLVER) + " ";
    const std::string run = env + PORTAL_RUN_EXE " --quiet --runs ";
    ASSERT_EQ(shell(run + dir.file("local") + " " BEAM_STUDY " > " + dir.file("l.txt") + " 2>&1"), 0)
        << readFile(dir.file("l.txt"));
    ASSERT_EQ(shell(run + dir.file("slurm") + " --scheduler slurm -j 3 " BEAM_STUDY " > " +
                    dir.file("s.txt") + " 2>&1"),
              0)
        << readFile(dir.file("s.txt"));
    const std::string local = readFile(dir.file("local/results.csv"));
    EXPECT_NE(local.find("\n6,"), std::string::npos) << local;
    EXPECT_EQ(readFile(dir.file("slurm/results.csv")), local);
    EXPECT_EQ(readFile(dir.file("slurm/summary.txt")).find("6 designs, 6 ok"), 12u);
    EXPECT_FALSE(fs::exists(dir.file("slurm/slurm/job"))) << "the job is over";
}

// Ctrl-C cancels the array; the next run does only what was left.
TEST(SlurmRun, InterruptedRunCancelsTheArrayAndResumes) {
    SmallStudy s("study", 3, "type = \"slurm\"\n");
    const pid_t pid = s.start("-j 3");
    for (int i = 0; i < 300 && !(s.calls() >= 3 && fs::exists(s.at("runs/design_0001/result.toml"))); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    ASSERT_GE(s.calls(), 3) << readFile(s.at("out.txt"));
    ::kill(pid, SIGINT);
    EXPECT_EQ(waitFor(pid, 90), 130) << readFile(s.at("out.txt"));
    const std::string csv = readFile(s.at("runs/results.csv"));
    EXPECT_NE(csv.find("1,1,2,ok,\n2,2,,pending,\n3,3,,pending,\n"), std::string::npos) << csv;
    const std::string out = readFile(s.at("out.txt"));
    EXPECT_NE(out.find("cancelled Slurm job"), std::string::npos) << out;
    EXPECT_EQ(liveJob(out), "") << "the array outlived portal-run";

    const int before = s.calls();
    s.dir.write("study/calls.log.go", "");
    ASSERT_EQ(shell(s.portalRun("") + " > " + shellWord(s.at("out.txt")) + " 2>&1"), 0)
        << readFile(s.at("out.txt"));
    EXPECT_EQ(readFile(s.at("runs/results.csv")),
              "design,x,twice,status,reason\n1,1,2,ok,\n2,2,4,ok,\n3,3,6,ok,\n");
    EXPECT_EQ(s.calls() - before, 2) << "design 1 ran again";
    EXPECT_NE(readFile(s.at("out.txt")).find("(1 done before)"), std::string::npos)
        << readFile(s.at("out.txt"));
}

// A second run on the same runs folder refuses to start beside a live
// array, and sbatch's refusal is told, not hidden.
TEST(SlurmRun, RefusesWhatSlurmCannotRun) {
    SmallStudy s("study", 1, "type = \"slurm\"\npartition = \"nosuchpartition\"\n");
    EXPECT_EQ(shell(s.portalRun("") + " > " + shellWord(s.at("out.txt")) + " 2>&1"), 6);
    EXPECT_NE(readFile(s.at("out.txt")).find("sbatch refused the job: sbatch: error:"), std::string::npos)
        << readFile(s.at("out.txt"));
    EXPECT_NE(readFile(s.at("runs/results.csv")).find("1,1,,pending,"), std::string::npos);

    SmallStudy busy("busy", 2, "type = \"slurm\"\n");
    const pid_t pid = busy.start("");
    for (int i = 0; i < 300 && busy.calls() < 2; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    ::kill(pid, SIGKILL);  // gone without cancelling its array
    ::waitpid(pid, nullptr, 0);
    const std::string job = readFile(busy.at("runs/slurm/job"));
    ASSERT_FALSE(job.empty());
    EXPECT_EQ(shell(busy.portalRun("") + " > " + shellWord(busy.at("out2.txt")) + " 2>&1"), 6);
    EXPECT_NE(readFile(busy.at("out2.txt")).find("is still in the queue"), std::string::npos)
        << readFile(busy.at("out2.txt"));
    EXPECT_EQ(shell("scancel " + job), 0);
}

// Slurm ends the slow design at its one-minute limit; the study records it
// as failed with Slurm's reason and goes on.
TEST(SlurmRun, DesignPastItsTimeLimitFailsWithSlurmsReason) {
    ASSERT_GT(Cluster::slowPid, 0);
    const SmallStudy& s = *Cluster::slow;
    EXPECT_EQ(waitFor(Cluster::slowPid, 240), 1) << readFile(s.at("out.txt"));
    Cluster::slowPid = -1;
    EXPECT_EQ(readFile(s.at("runs/results.csv")),
              "design,x,twice,status,reason\n1,1,2,ok,\n2,2,4,ok,\n"
              "3,3,,failed,Slurm stopped the design's task at its time limit of 1 min (TIMEOUT)\n");
    EXPECT_EQ(liveJob(readFile(s.at("out.txt"))), "");
}

const auto* const kCluster = ::testing::AddGlobalTestEnvironment(new Cluster);

}  // namespace
