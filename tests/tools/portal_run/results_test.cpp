// Design records and the results table: a record reads back as written, a
// damaged one counts as none (so the design runs again), and the CSV keeps
// every design in order with its fields quoted where needed.
#include <gtest/gtest.h>

#include "fake_host.h"
#include "results.h"

using namespace portalrun;
using fakehost::readFile;
using fakehost::TempDir;

namespace {

DesignResult sample() {
    DesignResult r;
    r.design = 12;
    r.status = "failed";
    r.reason = "the solver exited with code 3";
    r.parameters = {{"length", "1.5"}, {"material name", "steel, \"hard\""}};
    r.responses = {{"stress", ""}, {"deflection", "1;2;3"}};
    r.identity = {{"solver", "00ff"}, {"plugin", "abcd"}};
    r.messages = {"error: line one\nline two", "warning: 'quoted'"};
    r.seconds = 0.25;
    return r;
}

TEST(DesignRecord, ReadsBackAsWritten) {
    TempDir dir;
    std::string error;
    ASSERT_TRUE(writeResult(dir.file("result.toml"), sample(), error)) << error;
    auto r = readResult(dir.file("result.toml"));
    ASSERT_TRUE(r.has_value());
    EXPECT_EQ(r->design, 12);
    EXPECT_EQ(r->status, "failed");
    EXPECT_EQ(r->reason, sample().reason);
    EXPECT_EQ(r->parameters, sample().parameters);
    EXPECT_EQ(r->responses, sample().responses);
    EXPECT_EQ(r->messages, sample().messages);
    EXPECT_EQ(r->identity, sample().identity);
    EXPECT_FALSE(std::filesystem::exists(dir.file("result.toml.tmp")));
    EXPECT_FALSE(writeResult(dir.file("no/such/result.toml"), sample(), error));
    EXPECT_FALSE(error.empty());
}

TEST(DesignRecord, ADamagedRecordIsNoRecord) {
    TempDir dir;
    std::string error;
    ASSERT_TRUE(writeResult(dir.file("whole.toml"), sample(), error));
    const std::string whole = readFile(dir.file("whole.toml"));
    const std::string broken[] = {
        whole.substr(0, whole.size() / 2),                 // cut short
        "design = 1\nstatus = 'done'\nreason = ''\n",      // unknown status
        "design = 1\nstatus = 'ok'\nreason = ''\nparameters = [1]\nresponses = []\nmessages = []\n",
        // responses by position, as older records had them
        "design = 1\nstatus = 'ok'\nreason = ''\nparameters = {}\nresponses = ['1']\n"
        "messages = []\nidentity = {}\n",
        "status = 'ok'\n",                                 // keys missing
        std::string("\xff\xfe garbage", 10),
    };
    for (const std::string& text : broken)
        EXPECT_FALSE(readResult(dir.write("r.toml", text)).has_value()) << text;
    EXPECT_FALSE(readResult(dir.file("absent.toml")).has_value());
}

TEST(ResultsTable, ListsEveryDesignInOrder) {
    TempDir dir;
    Study study;
    Parameter a, b;
    a.name = "a";
    b.name = "b, c";
    study.parameters = {a, b};
    study.responses = {{"r", true}, {"q", true}};
    std::vector<Design> designs = {{1, {Value::ofReal(0.5), Value::ofText("x")}},
                                   {2, {Value::ofReal(1), Value::ofText("say \"hi\"")}}};
    DesignResult first;
    first.design = 1;
    first.status = "ok";
    first.responses = {{"q", "5"}, {"r", "4"}};  // by name, whatever the study's order
    std::vector<std::optional<DesignResult>> results = {first, std::nullopt};
    std::string error;
    ASSERT_TRUE(writeCsv(dir.file("results.csv"), study, designs, results, error)) << error;
    EXPECT_EQ(readFile(dir.file("results.csv")),
              "design,a,\"b, c\",r,q,status,reason\n"
              "1,0.5,x,4,5,ok,\n"
              "2,1,\"say \"\"hi\"\"\",,,pending,\n");
    EXPECT_EQ(csvField("line\nbreak"), "\"line\nbreak\"");
    EXPECT_EQ(runFolderName(7), "design_0007");
    EXPECT_EQ(runFolderName(123456), "design_123456");
    for (const char* ours : {"design_0007", "design_123456"}) EXPECT_TRUE(isRunFolderName(ours));
    for (const char* theirs : {"design_notes", "design_12", "design_0007b", "design_"})
        EXPECT_FALSE(isRunFolderName(theirs)) << theirs;
}

}  // namespace
