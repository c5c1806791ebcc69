// The example solver and the demo study, checked against the textbook
// results for a tip-loaded cantilever, worked out here on their own.
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

#include "sdf.h"

#include "../example_support.h"

namespace {

namespace fs = std::filesystem;
using example_support::slurp;
using example_support::split;
using example_support::shell;

// Textbook cantilever with a tip force P: tip deflection P L^3 / 3EI, root
// stress 6 P L / (b h^2), first mode (1.8751^2 / 2 pi L^2) sqrt(EI / rho A).
struct Cantilever {
    double L, b = 0.05, h, E = 2.1e11, P = 1000, rho = 7850;
    double I() const { return b * h * h * h / 12; }
    double tip() const { return P * L * L * L / (3 * E * I()); }
    double stress() const { return 6 * P * L / (b * h * h); }
    double mass() const { return rho * b * h * L; }
    double frequency() const {
        const double beta = 1.87510407;
        return beta * beta / (2 * M_PI * L * L) * std::sqrt(E * I() / (rho * b * h));
    }
    double w(double x) const { return P * x * x * (3 * L - x) / (6 * E * I()); }
    double moment(double x) const { return P * (L - x); }
};

void expectNear(double got, double want, const std::string& what) {
    EXPECT_NEAR(got, want, 1e-5 * std::fabs(want) + 1e-12) << what;
}

class BeamExample : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/beam_example_XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
    }
    void TearDown() override {
        std::error_code ec;
        fs::remove_all(dir_, ec);
    }
    int solve(const std::string& input) {
        std::ofstream(dir_ + "/beam.inp") << input;
        return shell("cd '" + dir_ + "' && '" BEAM_SOLVER "' beam.inp beam.sdf >/dev/null");
    }
    std::string dir_;
};

TEST_F(BeamExample, SolverResultsMatchClosedForm) {
    const Cantilever c{.L = 0.9, .h = 0.1};
    ASSERT_EQ(solve("length = 0.9\nwidth = 0.05\nheight = 0.1\nyoungs_modulus = 2.1e11\n"
                    "load = 1000  # N\nstations = 5\n"),
              0);
    int ch = -1;
    ASSERT_EQ(Sdf_Open(&ch, (dir_ + "/beam.sdf").c_str(), "BINARY", "OLD", "READ"), 0);
    auto scalar = [&](const char* name) {
        double v = NAN;
        EXPECT_EQ(Sdf_Get_Val(ch, name, &v), 0) << name;
        return v;
    };
    expectNear(scalar("tip_deflection"), c.tip(), "tip deflection");
    expectNear(scalar("max_stress"), c.stress(), "max stress");
    expectNear(scalar("mass"), c.mass(), "mass");
    expectNear(scalar("frequency"), c.frequency(), "frequency");

    int32_t dims[8] = {};
    ASSERT_EQ(Sdf_Get_Dims(ch, "table", dims), 0);
    ASSERT_EQ(dims[0], 2);
    ASSERT_EQ(dims[1], 5);
    ASSERT_EQ(dims[2], 5);
    std::vector<double> t(25);
    void* p = t.data();
    int32_t start[8] = {}, got = 0;
    ASSERT_EQ(Sdf_Read_Array(ch, "table", &p, start, 25, &got), 0);
    for (int i = 0; i < 5; i++) {
        const double x = c.L * i / 4;
        expectNear(t[i], x, "x");
        expectNear(t[5 + i], c.w(x), "deflection column");
        expectNear(t[15 + i], c.moment(x), "moment column");
    }
    Sdf_Close(ch, "KEEP");
    // A beam nine heights long is short for bending theory: warned, not refused.
    std::string msgs = slurp(dir_ + "/analysis_execution.messages");
    EXPECT_NE(msgs.find("WARNING: short beam"), std::string::npos) << msgs;
    EXPECT_NE(msgs.find("NOTE: tip deflection"), std::string::npos) << msgs;
}

TEST_F(BeamExample, BadInputGivesErrorsAndNoResults) {
    std::ofstream(dir_ + "/beam.sdf") << "left from an earlier run";
    EXPECT_EQ(solve("length = 2\nwidth = 0.05\nheight = -0.1\nyoungs_modulus = 2.1e11\nload = x\n"), 1);
    std::string msgs = slurp(dir_ + "/analysis_execution.messages");
    EXPECT_NE(msgs.find("ERROR: height must be positive, got -0.1"), std::string::npos) << msgs;
    EXPECT_NE(msgs.find("ERROR: beam.inp line 5: load needs a number"), std::string::npos) << msgs;
    EXPECT_FALSE(fs::exists(dir_ + "/beam.sdf"));

    EXPECT_EQ(solve("length = 2\n"), 1);
    EXPECT_NE(slurp(dir_ + "/analysis_execution.messages").find("ERROR: beam.inp: youngs_modulus is missing"),
              std::string::npos);
}

TEST_F(BeamExample, DemoStudyGivesClosedFormResults) {
    const std::string runs = dir_ + "/runs";
    int rc = shell("BEAM_SOLVER='" BEAM_SOLVER "' '" PORTAL_RUN "' --quiet --fresh --runs '" + runs +
                   "' '" BEAM_STUDY "' >'" + dir_ + "/out.txt' 2>&1");
    ASSERT_EQ(rc, 0) << slurp(dir_ + "/out.txt");

    std::istringstream csv(slurp(runs + "/results.csv"));
    std::string line;
    ASSERT_TRUE(std::getline(csv, line));
    std::map<std::string, size_t> col;
    for (const std::string& name : split(line, ',')) col.emplace(name, col.size());
    for (const char* name : {"length", "height", "tip_deflection", "max_stress", "frequency", "mass",
                             "overstressed", "deflection_line", "moment", "status"})
        ASSERT_TRUE(col.count(name)) << name << " missing in " << line;

    int rows = 0;
    while (std::getline(csv, line)) {
        // No field of this study holds a comma, so a plain split reads it.
        std::vector<std::string> f = split(line, ',');
        ASSERT_EQ(f.size(), col.size()) << line;
        ASSERT_EQ(f[col["status"]], "ok") << line;
        const Cantilever c{.L = std::stod(f[col["length"]]), .h = std::stod(f[col["height"]])};
        expectNear(std::stod(f[col["tip_deflection"]]), c.tip(), line);
        expectNear(std::stod(f[col["max_stress"]]), c.stress(), line);
        expectNear(std::stod(f[col["frequency"]]), c.frequency(), line);
        expectNear(std::stod(f[col["mass"]]), c.mass(), line);
        EXPECT_EQ(std::stod(f[col["overstressed"]]), c.stress() > 250e6 ? 21 : 0);
        std::vector<std::string> w = split(f[col["deflection_line"]], ';');
        std::vector<std::string> m = split(f[col["moment"]], ';');
        ASSERT_EQ(w.size(), 21u);
        ASSERT_EQ(m.size(), 21u);
        for (size_t i = 0; i < 21; i++) {
            const double x = c.L * static_cast<double>(i) / 20;
            expectNear(std::stod(w[i]), c.w(x), "deflection line");
            expectNear(std::stod(m[i]), c.moment(x), "moment column");
        }
        rows++;
    }
    EXPECT_EQ(rows, 3 * 2);
}

}  // namespace
