// The runner's host and context as the portal sees them: design values by
// tag format, analysis properties, response reports, settings and logging.
#include <gtest/gtest.h>

#include "fake_host.h"
#include "host.h"

using namespace portalrun;
using fakehost::readFile;
using fakehost::TempDir;

namespace {

class RecordingSink : public LogSink {
public:
    void logLine(int level, int design, const std::string& text) override {
        lines.push_back(std::to_string(level) + "/" + std::to_string(design) + "/" + text);
    }
    std::vector<std::string> lines;
};

class RunnerHost : public ::testing::Test {
protected:
    void SetUp() override {
        study.name = "A";
        study.dir = dir.path();
        Parameter length;
        length.name = "length";
        Parameter mat;
        mat.name = "material";
        mat.type = ParamType::Text;
        study.parameters = {length, mat};
        study.responses = {{"mass", true}, {"label", false}};
        study.properties["AnalysisProperty#install"] = {{"install", "/opt/s"}};
        design = {7, {Value::ofReal(2.5), Value::ofText("steel")}};
    }
    TempDir dir;
    Study study;
    Design design;
    RecordingSink sink;
};

TEST_F(RunnerHost, GivesDesignValuesInTheTagsFormat) {
    RunHost host(study, {}, "/plug", &sink);
    auto* context = dynamic_cast<MOSAQ::Portals::IPortalContext*>(host.findExtension("Portal"));
    ASSERT_NE(context, nullptr);
    EXPECT_EQ(context->getType(), "Portal");
    EXPECT_EQ(host.findExtension("Other"), nullptr);

    String errors;
    EXPECT_EQ(context->getDesignValue("Double", "length", "", "%g", errors), "");  // no design yet
    EXPECT_NE(errors.find("ERROR: "), String::npos);

    host.beginDesign(&design, dir.path());
    errors.clear();
    EXPECT_EQ(context->getDesignValue("Double", "length", "tags", "%6.2f", errors), "  2.50");
    EXPECT_EQ(context->getDesignValue("String", "material", "tags", "%s", errors), "steel");
    EXPECT_EQ(context->getDesignValue("internal", "Design_Num", "", "Default", errors), "7");
    EXPECT_TRUE(errors.empty()) << errors;

    // Failures are lines the portal recognises, one per failure.
    EXPECT_EQ(context->getDesignValue("Double", "height", "", "%g", errors), "");
    EXPECT_EQ(context->getDesignValue("Double", "material", "", "%g", errors), "");
    EXPECT_EQ(errors,
              "ERROR: the study has no parameter 'height'\n"
              "ERROR: parameter 'material': the text 'steel' can't be printed with the format '%g'");
}

TEST_F(RunnerHost, AnswersPropertiesFromTheStudyAndItsResponses) {
    RunHost host(study, {}, "/plug", nullptr);
    RunContext& context = host.context();
    StringStringMap values{{"stale", "x"}};
    context.getAnalysisProperties("A", "AnalysisProperty#install", values);
    EXPECT_EQ(values, (StringStringMap{{"install", "/opt/s"}}));
    context.getAnalysisProperties("A", "responseDataType#mass", values);
    EXPECT_EQ(values, (StringStringMap{{"responseDataType", "Numeric"}}));
    context.getAnalysisProperties("A", "responseDataType#label", values);
    EXPECT_EQ(values, (StringStringMap{{"responseDataType", "Text"}}));
    context.getAnalysisProperties("A", "responseDataType#other", values);
    EXPECT_TRUE(values.empty());
}

TEST_F(RunnerHost, KeepsAResponsesFirstFailure) {
    RunHost host(study, {}, "/plug", nullptr);
    host.beginDesign(&design, "");
    RunContext& context = host.context();
    context.reportResponse("mass", {{"errorInCall", "true"}, {"message", "row 9 missing"}}, {});
    context.reportResponse("mass", {}, {{1.0}, {}});
    context.reportResponse("label", {}, {{}, {"ok"}});
    ASSERT_EQ(context.responses().size(), 2u);
    EXPECT_TRUE(context.responses().at("mass").failed);
    EXPECT_EQ(context.responses().at("mass").message, "row 9 missing");
    EXPECT_EQ(context.responses().at("label").values.strings, StringList{"ok"});
    host.beginDesign(&design, "");  // the next design starts empty
    EXPECT_TRUE(context.responses().empty());
}

TEST_F(RunnerHost, LogsToTheSinkAndTheRunFolder) {
    RunHost host(study, {{"verbose", "Yes"}}, "/plug", &sink);
    EXPECT_TRUE(host.verbose());
    EXPECT_EQ(host.getSetting("verbose", "false"), "Yes");
    EXPECT_EQ(host.getSetting("scriptverbose", "dflt"), "dflt");
    EXPECT_EQ(host.getInstallFolder(), "/plug");

    host.beginDesign(&design, dir.path());
    host.logMessage("first", "A", 99, 8);  // the runner's design number wins
    host.logMessage("careful", "A", 7, 4);
    host.note(2, "broken");
    // A level word of the line's own level is said once; another one stays.
    host.logMessage("Error:  twice", "A", 7, 2);
    host.logMessage("ERROR: not mine", "A", 7, 4);
    EXPECT_EQ(sink.lines, (std::vector<std::string>{"8/7/first", "4/7/careful", "2/7/broken",
                                                    "2/7/twice", "4/7/ERROR: not mine"}));
    EXPECT_EQ(host.problems(), (std::vector<std::string>{"warning: careful", "error: broken",
                                                         "error: twice", "warning: ERROR: not mine"}));
    EXPECT_TRUE(host.hasProblem("twice"));
    EXPECT_FALSE(host.hasProblem("wice"));
    EXPECT_EQ(readFile(dir.file("portal.log")),
              "note: first\nwarning: careful\nerror: broken\nerror: twice\n"
              "warning: ERROR: not mine\n");

    String folder;
    StringList extra;
    host.resolveFolder("", extra, folder, {{"sub", "parsed"}});
    EXPECT_EQ(folder, dir.file("parsed"));
}

}  // namespace
