// The script-tag example: portal-run plays the bundled study, whose solver log
// moves its summary and node table with every design, and the responses the
// scripts read must match the iteration worked out here on its own. A copy of
// the study with "scriptverbose" on leaves a trace beside each tag file.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "../example_support.h"

namespace {

namespace fs = std::filesystem;
using example_support::slurp;
using example_support::split;

// The solver's iteration: the residual falls by (1 - relaxation) a step.
struct Iteration {
    int steps = 0;
    double residual = 1;
    Iteration(double relaxation, double tolerance) {
        while (residual >= tolerance) {
            residual *= 1 - relaxation;
            ++steps;
        }
    }
};

class ScriptLogExample : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/script_log_example_XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        fs::copy(LOG_STUDY_DIR, dir_ + "/study", fs::copy_options::recursive);
        fs::remove_all(dir_ + "/study/runs");
    }
    void TearDown() override {
        std::error_code ec;
        fs::remove_all(dir_, ec);
    }
    std::string dir_;
};

TEST_F(ScriptLogExample, StudyReadsTheMovingLogAndTracesItsScripts) {
    std::ofstream(dir_ + "/study/study.toml", std::ios::app) << "\n[settings]\nscriptverbose = true\n";
    const std::string cmd = "LOG_SOLVER='" LOG_SOLVER "' '" PORTAL_RUN "' --quiet --fresh '" + dir_ +
                            "/study/study.toml' >'" + dir_ + "/out.txt' 2>&1";
    const int status = std::system(cmd.c_str());
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << slurp(dir_ + "/out.txt");

    std::istringstream csv(slurp(dir_ + "/study/runs/results.csv"));
    std::string line;
    ASSERT_TRUE(std::getline(csv, line));
    std::map<std::string, size_t> col;
    for (const std::string& name : split(line, ',')) col.emplace(name, col.size());
    int rows = 0;
    std::map<int, int> iterationCounts;
    while (std::getline(csv, line)) {
        const std::vector<std::string> f = split(line, ',');
        ASSERT_EQ(f.size(), col.size()) << line;
        ASSERT_EQ(f[col.at("status")], "ok") << line;
        const double r = std::stod(f[col.at("relaxation")]);
        const Iteration it(r, std::stod(f[col.at("tolerance")]));
        EXPECT_EQ(std::stoi(f[col.at("iterations")]), it.steps) << line;
        EXPECT_NEAR(std::stod(f[col.at("final_residual")]), it.residual, 1e-6 * it.residual) << line;
        const std::vector<std::string> d = split(f[col.at("displacement")], ';');
        ASSERT_EQ(d.size(), 4u) << line;
        for (size_t n = 0; n < d.size(); ++n)
            EXPECT_NEAR(std::stod(d[n]), 0.001 * double(n + 1) / r, 1e-6) << line;
        EXPECT_EQ(f[col.at("wall_time")], "0.01");
        ++iterationCounts[it.steps];
        ++rows;
    }
    EXPECT_EQ(rows, 6);
    EXPECT_EQ(iterationCounts.size(), 6u) << "every design's log has another layout";

    // The last design's traces: the input script wrote next to the labels.
    const std::string inTrace = slurp(dir_ + "/study/S_in_relax_solver.script.out");
    EXPECT_NE(inTrace.find("SET_RELATIVE_VALUE_FREE(relaxation =, 1, 1, \\s, Default)"),
              std::string::npos)
        << inTrace;
    EXPECT_NE(inTrace.find("        Modified line:\n          relaxation = 0.8\n"), std::string::npos);
    const std::string outTrace = slurp(dir_ + "/study/S_out_relax_solver.script.out");
    EXPECT_NE(outTrace.find("GET_COLUMN_FREE(2, EOC, \\s,End of node results)"), std::string::npos);
}

}  // namespace
