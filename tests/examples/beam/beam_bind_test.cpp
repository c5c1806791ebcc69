// The demo study rebuilt the way a new user builds it: the input from a
// template with placeholders, the responses bound to what inspect shows of
// a sample output. Both must give the bundled study's results exactly.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "../example_support.h"

namespace {

namespace fs = std::filesystem;
using example_support::shell;
using example_support::slurp;

class BeamBind : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/beam_bind_XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        const fs::path study = fs::path(BEAM_STUDY).parent_path();
        for (const char* f : {"study.toml", "beam.inp", "M_in_beam_beam.inp", "P_out_beam_beam.sdf"})
            fs::copy_file(study / f, fs::path(dir_) / f);
    }
    void TearDown() override {
        std::error_code ec;
        fs::remove_all(dir_, ec);
    }
    // portal-run with the arguments, in the copy's folder; output in out_.
    int portalRun(const std::string& args) {
        const int rc = shell("cd '" + dir_ + "' && BEAM_SOLVER='" BEAM_SOLVER "' '" PORTAL_RUN
                             "' " + args + " >out.txt 2>&1");
        out_ = slurp(dir_ + "/out.txt");
        return rc;
    }
    std::string results(const std::string& runs) { return slurp(dir_ + "/" + runs + "/results.csv"); }

    std::string dir_, out_;
};

TEST_F(BeamBind, TemplateAndBoundResponsesReproduceTheDemoStudy) {
    ASSERT_EQ(portalRun("--quiet --runs bundled study.toml"), 0) << out_;
    const std::string bundled = results("bundled");
    ASSERT_FALSE(bundled.empty());

    // The input from a template: free tags beside "=", a fixed one by width.
    std::string tpl = slurp(dir_ + "/beam.inp");
    for (auto [from, to] : {std::pair{"length = 2.0", "length = {{length}}"},
                            std::pair{"height = 0.1", "height ={{height:%10.4f}}"},
                            std::pair{"load = 1000", "load = {{load:%g}}"}}) {
        const auto at = tpl.find(from);
        ASSERT_NE(at, std::string::npos) << from;
        tpl.replace(at, std::string(from).size(), to);
    }
    std::ofstream(dir_ + "/beam.tpl") << tpl;
    fs::remove(dir_ + "/M_in_beam_beam.inp");
    ASSERT_EQ(portalRun("bind template beam.tpl --out beam.inp --study study.toml"), 0) << out_;
    EXPECT_NE(out_.find("3 tags (2 free, 1 fixed)"), std::string::npos) << out_;
    EXPECT_NE(slurp(dir_ + "/beam.inp").find("\nheight =    0.0800\n"), std::string::npos);

    // The responses bound afresh to rows that inspect lists.
    ASSERT_EQ(portalRun("inspect bundled/design_0001/beam.sdf"), 0) << out_;
    EXPECT_NE(out_.find("  table__Col4  "), std::string::npos) << out_;
    fs::remove(dir_ + "/P_out_beam_beam.sdf");
    for (const char* bind : {"tip_deflection --variable tip_deflection",
                             "max_stress --variable max_stress", "frequency --variable frequency",
                             "mass --variable mass", "overstressed --variable overstressed",
                             "deflection_line --variable deflection",
                             "moment --variable table --column 4"})
        ASSERT_EQ(portalRun(std::string("bind study.toml beam.sdf ") + bind), 0) << out_;

    ASSERT_EQ(portalRun("check --sample-output bundled/design_0001 study.toml"), 0) << out_;
    ASSERT_EQ(portalRun("--quiet --runs rebuilt study.toml"), 0) << out_;
    EXPECT_EQ(results("rebuilt"), bundled);

    // A response bound twice is refused; a variable the solver doesn't
    // write is found in the sample output.
    ASSERT_EQ(portalRun("bind study.toml beam.sdf mass --variable weight"), 3) << out_;
    EXPECT_NE(out_.find("response 'mass' is bound twice"), std::string::npos) << out_;
    fs::remove(dir_ + "/P_out_beam_beam.sdf");
    ASSERT_EQ(portalRun("bind study.toml beam.sdf mass --variable weight"), 0) << out_;
    ASSERT_EQ(portalRun("check --sample-output bundled/design_0001 study.toml"), 3) << out_;
    EXPECT_NE(out_.find("P_out_beam_beam.sdf:4: error: 'weight' is not among the rows of the "
                        "sample output"),
              std::string::npos)
        << out_;
}

}  // namespace
