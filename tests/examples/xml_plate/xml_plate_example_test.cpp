// The XML example study through portal-run: XML tags put each design's side,
// thickness, pressure and modulus into the plate model and read deflection,
// stress, mass and state out of the solver's XML results. The numbers are
// checked against the textbook coefficients of a simply supported square
// plate (centre deflection 0.00406 q a^4 / D, centre moment 0.0479 q a^2),
// worked out here on their own.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

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

class XmlPlateExample : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/xml_plate_example_XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
    }
    void TearDown() override {
        std::error_code ec;
        fs::remove_all(dir_, ec);
    }
    int runStudy(const std::string& solver) {
        const std::string cmd = "PLATE_SOLVER='" + solver + "' '" PORTAL_RUN "' --quiet --fresh --runs '" + dir_ +
                                "/runs' '" PLATE_STUDY "' >'" + dir_ + "/out.txt' 2>&1";
        const int status = std::system(cmd.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string dir_;
};

TEST_F(XmlPlateExample, StudyGivesTheTextbookPlateResults) {
    ASSERT_EQ(runStudy(PLATE_SOLVER), 0) << slurp(dir_ + "/out.txt");
    std::istringstream csv(slurp(dir_ + "/runs/results.csv"));
    std::string line;
    ASSERT_TRUE(std::getline(csv, line));
    std::map<std::string, size_t> col;
    for (const std::string& name : split(line, ',')) col.emplace(name, col.size());
    int rows = 0;
    while (std::getline(csv, line)) {
        const std::vector<std::string> f = split(line, ',');
        ASSERT_EQ(f.size(), col.size()) << line;
        ASSERT_EQ(f[col["status"]], "ok") << line;
        const double a = std::stod(f[col["side"]]), t = std::stod(f[col["thickness"]]), q = 5000, E = 2.1e11;
        const double D = E * t * t * t / (12 * (1 - 0.3 * 0.3));
        EXPECT_NEAR(std::stod(f[col["deflection"]]) / (0.00406 * q * a * a * a * a / D), 1, 2e-3) << line;
        EXPECT_NEAR(std::stod(f[col["stress"]]) / (6 * 0.0479 * q * a * a / (t * t)), 1, 2e-3) << line;
        EXPECT_NEAR(std::stod(f[col["mass"]]), 7850 * a * a * t, 1e-9) << line;
        EXPECT_EQ(f[col["state"]], "elastic") << line;
        ++rows;
    }
    EXPECT_EQ(rows, 3 * 2);
}

TEST_F(XmlPlateExample, ADesignWhoseResultsLackATaggedElementFails) {
    // A stand-in solver that leaves results without the stress element.
    const std::string fake = dir_ + "/fake-solver.sh";
    std::ofstream(fake) << "#!/bin/sh\nprintf '<results status=\"elastic\"><response name=\"deflection\">1</response>"
                           "<response name=\"x\">2</response><response name=\"mass\">3</response></results>' > \"$2\"\n";
    fs::permissions(fake, fs::perms::owner_all);
    ASSERT_EQ(runStudy(fake), 1) << slurp(dir_ + "/out.txt");
    const std::string result = slurp(dir_ + "/runs/design_0001/result.toml");
    EXPECT_NE(result.find("response[@name=stress]"), std::string::npos) << result;
}

}  // namespace
