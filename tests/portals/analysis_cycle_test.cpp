// The portal's side of a design's run, through a portal built in: tag files
// sorted among their owners, the solver's messages judged, the responses of
// the portal's own output files collected, and the helpers around a run.
#include <gtest/gtest.h>

#include "fake_host.h"
#include "zeltra/portal.h"

using namespace MOSAQ;
using namespace MOSAQ::Portals;
using fakehost::FakeHost;
using fakehost::TempDir;

namespace {

// A portal whose batch mode and SDF extraction a test can steer and watch.
class ProbePortal : public zeltrasdfPortal {
public:
    using zeltrasdfPortal::zeltrasdfPortal;
    int batchMode = 0;
    std::vector<String> extracted;
    String failFile;  // extraction of this file fails

    int getBatchMode(const StringStringMap&) override { return batchMode; }
    int readOutputTags(const String&, const StringStringMap&, std::list<TagData>& tags,
                       StringStringMap&, String&) override {
        tags.push_back({{"g", "v"}, "r", "Double", {}});
        return 0;
    }
    bool extractResponses(const String& file, const StringStringMap&,
                          const std::list<TagData>& tags, String& errors) override {
        extracted.push_back(file);
        EXPECT_EQ(tags.size(), 1u);
        if (file != failFile) return true;
        addLine(errors, "ERROR: cannot read " + file);
        return false;
    }
};

struct FilterCase {
    const char* tagName;
    const char* content;
    bool input;
    int owner;  // 0 mark, 1 xml, 2 script, 3 portal, -1 none
    const char* logged;
};

TEST(PortalFilterTagFiles, KeepsEachFileInItsOwnersListOnly) {
    const FilterCase cases[] = {
        {"M_in_a.txt", "$ File type, version\nmarking, 1\n", true, 0, nullptr},
        {"M_in_b.txt", "$ File type, version\n$ marking, 1\n", true, -1,
         "Marking module is filtering out tag definition file due to unrecognized contents: \n"},
        {"M_out_a.txt", "$ x\nmarking, 1\n", true, -1,
         "The following tag definition file is being ignored: \n"},
        {"X_in_a.xml", "<?xml version=\"1.0\"?>\n<anything/>\n", true, 1, nullptr},
        {"X_in_b.xml", "<root>\n<TagDefinition>\n", true, 1, nullptr},
        {"S_out_r.txt", "$ x\nscripting, 2\n", false, 2, nullptr},
        {"P_out_study_a.sdf", "<?xml version=\"1.0\"?>\n<Portal name=\"ZeltraSDF\">\n", false, 3,
         nullptr},
        {"P_in_study_a.txt", "x\nportal 1\n", true, 3, nullptr},
        {"m_in_a.txt", "$ x\nmarking, 1\n", true, -1,
         "The following tag definition file is being ignored: \n"},
    };
    for (const auto& c : cases) {
        FakeHost host;
        host.settings["verbose"] = "true";
        zeltrasdfPortal portal(&host);
        TempDir dir;
        const String tag = dir.write(c.tagName, c.content);
        StringList lists[4];
        portal.filterTagFiles({"file"}, {tag}, lists[0], lists[1], lists[2], lists[3], c.input);
        for (int k = 0; k < 4; ++k)
            EXPECT_EQ(lists[k], StringList{k == c.owner ? tag : String()})
                << c.tagName << " list " << k;
        if (c.logged) {
            ASSERT_EQ(host.log.size(), 1u) << c.tagName;
            EXPECT_EQ(host.log[0].text, String(c.logged) + tag);
            EXPECT_EQ(host.log[0].level, 8);
        } else {
            EXPECT_TRUE(host.log.empty()) << c.tagName << ": " << host.transcript();
        }
    }
}

TEST(PortalFilterTagFiles, LooksOnlyAtIndicesOfFiles) {
    FakeHost host;
    zeltrasdfPortal portal(&host);
    StringList m, x, s, p;
    // An empty entry opens nothing; an entry behind the files stays everywhere;
    // a missing file fails its owner's check.
    portal.filterTagFiles({"a", "b"}, {"", "/nonexistent/M_in_b.txt", "extra"}, m, x, s, p, true);
    for (const StringList* l : {&m, &x, &s, &p})
        EXPECT_EQ(*l, (StringList{"", "", "extra"}));
}

class MessagesCheck : public ::testing::Test {
protected:
    FakeHost host;
    TempDir dir;
    StringStringMap data{{"analysisName", "A1"}, {"evalId", "7"}, {"destDir", ""}};
    void SetUp() override { data["destDir"] = dir.path(); }
    bool run(const String& messages, bool& result) {
        if (!messages.empty()) dir.write("analysis_execution.messages", messages);
        zeltrasdfPortal portal(&host);
        StringStringMap outputs;
        return portal.runCheck("checkSuccess", data, result, outputs);
    }
};

TEST_F(MessagesCheck, ShowsEachMessageAtItsLevelAndFailsOnErrors) {
    bool result = true;
    ASSERT_TRUE(run("solver started\r\n\n   \nerror: disk full\nWARNING:x\nWarn: low memory\n"
                    "OUTPUT: step 3\nNOTE: converged\nNote that ERROR: is quoted\n",
                    result));
    EXPECT_FALSE(result);
    const std::vector<std::pair<String, int>> expected = {
        {"solver started", 8}, {"disk full", 2}, {"x", 4}, {"low memory", 4},
        {"step 3", 16},        {"converged", 8}, {"Note that ERROR: is quoted", 8}};
    ASSERT_EQ(host.log.size(), expected.size() + 1) << host.transcript();
    EXPECT_NE(host.log[0].text.find("7"), String::npos) << "the count heads the messages";
    EXPECT_NE(host.log[0].text.find("ZeltraSDF"), String::npos);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(host.log[i + 1].text, expected[i].first);
        EXPECT_EQ(host.log[i + 1].level, expected[i].second) << expected[i].first;
        EXPECT_EQ(host.log[i + 1].analysisName, "A1");
        EXPECT_EQ(host.log[i + 1].evalId, 7);
    }
}

TEST_F(MessagesCheck, PassesWithoutErrorsOrWithoutAnyMessages) {
    bool result = false;
    ASSERT_TRUE(run("", result));
    EXPECT_TRUE(result);
    EXPECT_TRUE(host.log.empty());

    result = false;
    ASSERT_TRUE(run("WARNING: mesh is coarse\n", result));
    EXPECT_TRUE(result);
    ASSERT_EQ(host.log.size(), 2u);
    EXPECT_EQ(host.log[1].text, "mesh is coarse");
}

TEST_F(MessagesCheck, OtherChecksGiveFalseAndLeaveTheResult) {
    zeltrasdfPortal portal(&host);
    StringStringMap outputs;
    bool result = true;
    EXPECT_FALSE(portal.runCheck("checkFinish", data, result, outputs));
    EXPECT_FALSE(portal.runCheck("other", data, result, outputs));
    EXPECT_TRUE(result);
}

TEST(PortalOutputs, ReadsEveryPortalFileEvenAfterAFailure) {
    FakeHost host;
    ProbePortal portal(&host);
    TempDir dir;
    const String portalTag = "<?xml version=\"1.0\"?>\n<Portal name=\"ZeltraSDF\">\n";
    const String t1 = dir.write("P_out_A1_r1.sdf", portalTag);
    const String t2 = dir.write("P_out_A1_r2.sdf", portalTag);
    portal.failFile = dir.file("r1.sdf");
    const StringStringMap data{
        {"analysisName", "A1"},
        {"outputFilepaths", dir.file("r1.sdf") + "\n" + dir.file("plain.txt") + "\n" + dir.file("r2.sdf")},
        {"outputTagFilepaths", t1 + "\n\n" + t2}};
    String errors;
    EXPECT_FALSE(portal.processOutputs(data, nullptr, errors));
    EXPECT_EQ(portal.extracted, (std::vector<String>{dir.file("r1.sdf"), dir.file("r2.sdf")}));
    EXPECT_NE(errors.find("ERROR: Error getting data from output file:\n" + dir.file("r1.sdf")),
              String::npos)
        << errors;
}

TEST(PortalOutputs, RefusesABadBatchInfoInBatchMode) {
    FakeHost host;
    ProbePortal portal(&host);
    portal.batchMode = 1;
    String errors = "earlier text";
    EXPECT_FALSE(portal.processOutputs({{"BatchInfo", "a:b:c"}}, nullptr, errors));
    EXPECT_EQ(errors, "SID_BatchInfo is not available or invalid.");
    errors.clear();
    EXPECT_TRUE(portal.processOutputs({{"BatchInfo", "a:b"}}, nullptr, errors)) << errors;
}

TEST(PortalRunHelpers, ReadsThePortalDataLinesOfTheAnalysis) {
    FakeHost host;
    host.context.analysisProperties[{"A1", "analysisPortalData"}] = {
        {"Lines", "primaryInput: C:\\data\\in.txt\nx: 1\nno separator\nx: 2\nprimaryOutput: out.sdf"}};
    zeltrasdfPortal portal(&host);
    const StringStringMap data{{"analysisName", "A1"}};
    EXPECT_EQ(portal.getPrimaryFile(data, true), "C");
    EXPECT_EQ(portal.getPrimaryFile(data, false), "out.sdf");
    const StringStringMap all = portal.getAnalysisPortalData("A1");
    EXPECT_EQ(all.at("primaryInput"), "C:\\data\\in.txt");
    EXPECT_EQ(all.at("x"), "1\n2");
    EXPECT_EQ(all.count("no separator"), 0u);

    zeltrasdfPortal orphan(nullptr);
    EXPECT_TRUE(orphan.getAnalysisPortalData("A1").empty());
    EXPECT_EQ(orphan.getDesignNumber(), 0);
}

TEST(PortalRunHelpers, FindsTheInstallPathAndTheDesignNumber) {
    FakeHost host;
    host.context.analysisProperties[{"A1", "AnalysisProperty#install"}] = {{"install", "/opt/s"}};
    host.context.designValues["Design_Num"] = "42.9";
    zeltrasdfPortal portal(&host);
    EXPECT_EQ(portal.getInstallPath("A1", true), "/opt/s");
    host.context.analysisProperties[{"A1", "AnalysisProperty#installLocal"}] = {
        {"installLocal", "/home/u/s"}};
    EXPECT_EQ(portal.getInstallPath("A1", true), "/home/u/s");
    EXPECT_EQ(portal.getInstallPath("A1", false), "/opt/s");
    EXPECT_EQ(portal.getDesignNumber(), 42);
    ASSERT_FALSE(host.context.designRequests.empty());
    const auto& r = host.context.designRequests.back();
    EXPECT_EQ(r.paramType, "internal");
    EXPECT_EQ(r.format, "Default");
}

TEST(PortalRunHelpers, SplitsSolverCommands) {
    struct Case {
        const char* command;
        const char* program;
        const char* arguments;
    } cases[] = {
        {"\"C:\\a b\\solver.exe\" -i in", "\"C:\\a b\\solver.exe\"", "-i in"},
        {"start /wait solver.exe -i in", "start /wait solver.exe", "-i in"},
        {"START /WAIT \"C:\\x y\\s.exe\" -q", "START /WAIT \"C:\\x y\\s.exe\"", "-q"},
        {"solver -i in.txt", "solver", "-i in.txt"},
        {"solver", "<p>", "<a>"},
        {"\"unclosed -i", "<p>", "<a>"},
        {"start solver.exe", "<p>", "<a>"},
    };
    for (const auto& c : cases) {
        String program = "<p>", arguments = "<a>";
        PortalImpl::splitCommand(c.command, program, arguments);
        EXPECT_EQ(program, c.program) << c.command;
        EXPECT_EQ(arguments, c.arguments) << c.command;
    }
}

TEST(PortalRunHelpers, LogsPreparingAndRunningWhenLoggingIsOn) {
    FakeHost host;
    host.settings["verbose"] = "yes";
    zeltrasdfPortal portal(&host);
    const StringStringMap data{{"analysisName", "A1"}, {"evalId", "3"}};
    EXPECT_TRUE(portal.logPreparing(data));
    EXPECT_TRUE(portal.logRunning(data));
    ASSERT_EQ(host.log.size(), 2u);
    EXPECT_EQ(host.log[0].text, "Preparing analysis: A1 for design: 3.");
    EXPECT_EQ(host.log[1].text, "Running analysis: A1 for design: 3.");
}

TEST(PortalTemplates, PrefersTheRunFolderThenTheUsersCopyThenTheInstall) {
    FakeHost host;
    TempDir dir;
    host.installFolder = dir.path() + "\\bin";
    zeltrasdfPortal portal(&host);
    const String res = dir.path() + "/bin/../res/portals";
    EXPECT_EQ(portal.getResourceFolder(""), res);
    EXPECT_EQ(portal.getResourceFolder("sdf"), res + "/sdf");

    // Nothing exists: the install path comes back without a log line.
    host.settings["verbose"] = "true";
    StringStringMap data{{"destDir", dir.path() + "\\run"}, {"analysisName", "A1"}};
    EXPECT_EQ(portal.findTemplate("t.tpl", data), res + "/t.tpl");
    EXPECT_TRUE(host.log.empty());

    // A copy beside the user's input, found through the analysis's source path.
    std::filesystem::create_directories(dir.file("user"));
    dir.write("user/t.tpl", "user");
    host.context.analysisProperties[{"A1", "InputSourcePath#t.tpl"}] = {
        {"InputSourcePath", dir.file("user")}};
    data["inputFilepaths"] = "/elsewhere/t.tpl";
    data["inputTagFilepaths"] = "M_in_A1_other.txt";
    EXPECT_EQ(portal.findTemplate("t.tpl", data), dir.file("user") + "/t.tpl");

    // The run folder wins, with slashes even if destDir had backslashes.
    std::filesystem::create_directories(dir.file("run"));
    dir.write("run/t.tpl", "run");
    EXPECT_EQ(portal.findTemplate("t.tpl", data), dir.path() + "/run/t.tpl");
}

TEST(PortalCopiedInputs, LeavesOutInputsThatStayWhereTheyAre) {
    FakeHost host;
    auto& props = host.context.analysisProperties;
    for (const char* n : {"a", "b", "c", "d"}) props[{"A1", String("InputTarget#") + n}] = {{"InputTarget", "dontCopy"}};
    props[{"A1", "InputSource#a"}] = {{"InputSource", "projectFolder"}};
    props[{"A1", "InputSource#b"}] = {{"InputSource", "/abs/path"}};
    props[{"A1", "InputSource#c"}] = {{"InputSource", "relative"}};
    zeltrasdfPortal portal(&host);
    EXPECT_EQ(portal.keepCopiedInputs("A1", {"a", "b", "c", "d", "e"}),
              (StringList{"c", "d", "e"}));
}

}  // namespace
