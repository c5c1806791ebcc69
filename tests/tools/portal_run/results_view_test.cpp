// results.json, the time-left estimate, status and the report page, checked
// against what the runner itself keeps: the CSV for values, a study run in
// the background for status, and hostile texts for the page.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "estimate.h"
#include "fake_host.h"
#include "report_html.h"
#include "results_json.h"
#include "status.h"

using namespace portalrun;
using fakehost::readFile;
using fakehost::TempDir;

namespace {

std::vector<std::string> splitOn(const std::string& s, char sep) {
    std::vector<std::string> out(1);
    for (char c : s) {
        if (c == sep) out.emplace_back();
        else out.back() += c;
    }
    return out;
}

// CSV rows as fields; quoted fields may hold commas, quotes and line breaks.
std::vector<std::vector<std::string>> parseCsv(const std::string& text) {
    std::vector<std::vector<std::string>> rows;
    std::vector<std::string> row(1);
    bool quoted = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quoted && c == '"' && i + 1 < text.size() && text[i + 1] == '"') row.back() += '"', ++i;
        else if (c == '"') quoted = !quoted;
        else if (!quoted && c == ',') row.emplace_back();
        else if (!quoted && c == '\n') rows.push_back(row), row.assign(1, "");
        else row.back() += c;
    }
    return rows;
}

// A number as the CSV writes it, equal to the JSON's to the last bit.
void expectSameNumber(const std::string& csv, double json, const std::string& what) {
    char* end = nullptr;
    const double v = std::strtod(csv.c_str(), &end);
    EXPECT_TRUE(!csv.empty() && !*end) << what << ": '" << csv << "'";
    EXPECT_EQ(std::memcmp(&v, &json, sizeof v), 0) << what << ": " << csv << " vs " << json;
}

// A study and records made in memory, with every kind of value a record can hold.
struct Sample {
    Study study;
    std::vector<Design> designs;
    std::vector<std::optional<DesignResult>> results;

    Sample() {
        study.name = "s<&>\"";
        study.path = "/tmp/s.toml";
        study.parameters = {{"x", ParamType::Real, {}, false, 0, 0, 0},
                            {"n", ParamType::Integer, {}, false, 0, 0, 0},
                            {"mat", ParamType::Text, {}, false, 0, 0, 0}};
        study.responses = {{"y", true}, {"curve", true}, {"label", false}};
        const double third = 1.0 / 3;
        designs = {{1, {Value::ofReal(third), Value::ofInteger(-7), Value::ofText("st\"eel, \"a\"")}},
                   {2, {Value::ofReal(1e-300), Value::ofInteger(1LL << 53), Value::ofText("alu")}},
                   {3, {Value::ofReal(2.5), Value::ofInteger(0), Value::ofText("x")}},
                   {4, {Value::ofReal(-0.1), Value::ofInteger(1), Value::ofText("y")}}};
        DesignResult ok;
        ok.design = 1;
        ok.status = "ok";
        ok.seconds = 1.25;
        ok.responses = {{"y", "0.1"}, {"curve", "1;2.5e-08;-3;inf"}, {"label", "ctl\x01\ttab\n; \xff"}};
        ok.messages = {"WARNING: <b>\"quoted\"</b>"};
        DesignResult odd = ok;
        odd.design = 2;
        odd.responses = {{"y", "nan"}, {"curve", "0.30000000000000004"}, {"label", ""}};
        DesignResult bad;
        bad.design = 3;
        bad.status = "failed";
        bad.reason = "the solver exited with code 3";
        bad.seconds = 0.5;
        bad.responses = {{"y", ""}, {"curve", ""}, {"label", ""}};
        results = {ok, odd, bad, std::nullopt};
    }
    std::string json(std::optional<double> started4 = std::nullopt) const {
        JsonInput in{&study, &designs, &results, {std::nullopt, std::nullopt, std::nullopt, started4},
                     {42, "box", 2, "running"}, 1700000000.5};
        return resultsJsonText(in);
    }
};

TEST(ResultsJson, RoundTripsWithTheCsv) {
    Sample s;
    TempDir dir;
    std::string error;
    ASSERT_TRUE(writeCsv(dir.file("r.csv"), s.study, s.designs, s.results, error)) << error;
    ASSERT_TRUE(writeFileDurably(dir.file("r.json"), s.json(1700000000.0), error)) << error;
    EXPECT_FALSE(std::filesystem::exists(dir.file("r.json.tmp")));
    ResultsFile f;
    ASSERT_TRUE(readResultsJson(dir.file("r.json"), f, error)) << error;
    const auto rows = parseCsv(readFile(dir.file("r.csv")));
    ASSERT_EQ(rows.size(), 5u);
    ASSERT_EQ(f.designs.size(), 4u);
    EXPECT_EQ(f.study, s.study.name);
    EXPECT_EQ(f.runner.pid, 42);
    for (std::size_t i = 0; i < 4; ++i) {
        const auto& row = rows[i + 1];
        DesignEntry& d = f.designs[i];
        const std::string at = "design " + row[0];
        EXPECT_EQ(std::to_string(d.design), row[0]);
        expectSameNumber(row[1], d.parameters[0].number, at + " x");
        expectSameNumber(row[2], d.parameters[1].number, at + " n");
        EXPECT_EQ(d.parameters[2].text, row[3]) << at;
        for (std::size_t r = 0; r < 3; ++r) {
            const Cell& c = d.responses[r];
            const std::string& csv = row[4 + r];
            const std::string name = f.responses[r].name;
            if (c.kind == Cell::Kind::Number) {
                expectSameNumber(csv, c.number, at + " " + name);
            } else if (c.kind == Cell::Kind::Array) {
                const auto parts = splitOn(csv, ';');
                ASSERT_EQ(parts.size(), c.array.size()) << at << " " << name;
                for (std::size_t k = 0; k < parts.size(); ++k) {
                    if (c.array[k]) expectSameNumber(parts[k], *c.array[k], at + " " + name);
                    else EXPECT_NE(d.nonfinite[name].find("[" + std::to_string(k) + "] " + parts[k]),
                                   std::string::npos);
                }
            } else if (c.kind == Cell::Kind::Text) {
                // Bytes that aren't UTF-8 are the one thing JSON can't carry.
                EXPECT_EQ(c.text, csv.substr(0, csv.size() - 1) + "\xef\xbf\xbd") << at;
            } else {
                EXPECT_EQ(d.nonfinite.count(name) ? d.nonfinite.at(name) : "", csv) << at << " " << name;
            }
        }
        EXPECT_EQ(d.status == "running" ? "pending" : d.status, row[7]) << at;
        EXPECT_EQ(d.reason, row[8]) << at;
    }
    EXPECT_EQ(f.designs[3].status, "running");
    EXPECT_EQ(f.designs[3].started, 1700000000.0);
    EXPECT_EQ(f.designs[0].messages, s.results[0]->messages);
    EXPECT_EQ(f.designs[1].nonfinite.at("y"), "nan");
}

TEST(ResultsJson, RefusesMalformedFiles) {
    const std::string good = Sample().json();
    ResultsFile f;
    std::string error;
    ASSERT_TRUE(parseResultsJson(good, "r.json", f, error)) << error;
    auto swap = [&](const std::string& from, const std::string& to) {
        std::string t = good;
        const auto at = t.find(from);
        EXPECT_NE(at, std::string::npos) << from;
        return at == std::string::npos ? t : t.replace(at, from.size(), to);
    };
    const struct {
        std::string text, says;
    } cases[] = {
        {good.substr(0, good.size() / 2), "not whole JSON"},
        {"[]", "must be an object"},
        {swap("portal-run results 1", "portal-run results 9"), "results.format"},
        {swap("\"status\": \"ok\"", "\"status\": \"done\""), "results.designs[0].status"},
        {swap("\"design\": 2", "\"design\": 0"), "results.designs[1].design"},
        {swap("\"design\": 2", "\"design\": 1e300"), "results.designs[1].design"},
        {swap("\"pid\": 42", "\"pid\": -1"), "results.runner.pid"},
        {swap("\"jobs\": 2", "\"jobs\": \"2\""), "results.runner.jobs"},
        {swap("\"state\": \"running\"", "\"state\": \"paused\""), "results.runner.state"},
        {swap("\"messages\": []", "\"messages\": [1]"), "messages must hold texts"},
        {swap("\"y\": 0.1", "\"y\": {}"), "results.designs[0].responses.y"},
        {swap("\"y\": 0.1", "\"y\": [true]"), "results.designs[0].responses.y"},
    };
    for (const auto& c : cases) {
        error.clear();
        EXPECT_FALSE(parseResultsJson(c.text, "r.json", f, error)) << c.says;
        EXPECT_NE(error.find("r.json"), std::string::npos) << error;
        EXPECT_NE(error.find(c.says), std::string::npos) << error;
    }
    EXPECT_FALSE(readResultsJson("/nonexistent/results.json", f, error));
    EXPECT_NE(error.find("run the study first"), std::string::npos) << error;
}

TEST(TimeLeft, HandsPendingDesignsToFreeSlotsInTurn) {
    const struct {
        Workload w;
        std::optional<double> left;
    } cases[] = {
        {{{}, {3.0}, 5, 2}, std::nullopt},            // nothing finished: no basis
        {{{10}, {}, 0, 4}, 0.0},                      // nothing left
        {{{8, 12}, {4}, 3, 2}, 20.0},                 // slots free at 0 and 6: 0+10+10, 6+10
        {{{10}, {25}, 1, 1}, 10.0},                   // overdue counts as ending now
        {{{10}, {}, 7, 3}, 30.0},                     // ceil(7 / 3) rounds
        {{{-1, NAN, 6}, {2, 2, 2}, 0, 1}, 4.0},       // more running than jobs; bad times ignored
    };
    for (const auto& c : cases) {
        const auto got = secondsLeft(c.w);
        ASSERT_EQ(got.has_value(), c.left.has_value());
        if (got) {
            EXPECT_DOUBLE_EQ(*got, *c.left);
        }
    }
    EXPECT_EQ(durationText(44.6), "45 s");
    EXPECT_EQ(durationText(200), "3 min 20 s");
    EXPECT_EQ(durationText(7500), "2 h 05 min");
    EXPECT_EQ(durationText(NAN), "0 s");
}

TEST(StatusText, TellsARunThatDiedFromOneThatGoesOn) {
    ResultsFile f;
    std::string error;
    ASSERT_TRUE(parseResultsJson(Sample().json(1699999990.5), "r.json", f, error)) << error;
    const std::string alive = statusText(f, RunnerLiveness::Alive, 1700000000.5);
    EXPECT_NE(alive.find("4 designs: 2 ok, 1 failed, 1 running, 0 pending"), std::string::npos) << alive;
    EXPECT_NE(alive.find("running: design 4 (10 s)"), std::string::npos) << alive;
    EXPECT_NE(alive.find("  design 3: the solver exited with code 3\n"), std::string::npos) << alive;
    // Mean 1 s over three designs, the running one due at once.
    EXPECT_NE(alive.find("time left: about 0 s"), std::string::npos) << alive;
    const std::string gone = statusText(f, RunnerLiveness::Gone, 1700000000.5);
    EXPECT_NE(gone.find("1 failed, 0 running, 1 pending"), std::string::npos) << gone;
    EXPECT_NE(gone.find("ended without finishing (portal-run pid 42 on box is gone)"), std::string::npos) << gone;
    EXPECT_EQ(gone.find("time left"), std::string::npos) << gone;
}

TEST(ReportPage, EscapesEveryTextAndListsFailures) {
    Sample s;
    s.study.name = "<script>alert('name')</script>";
    s.study.parameters[2].name = "m\"a<t";
    s.designs[2].values[2] = Value::ofText("<img src=x onerror=alert(1)>");
    s.results[2]->reason = "broke: <b>&</b>";
    s.results[2]->messages = {"ERROR: 'a' < \"b\""};
    ResultsFile f;
    std::string error;
    ASSERT_TRUE(parseResultsJson(s.json(), "r.json", f, error)) << error;
    const std::string page = reportHtml(f);
    for (const char* raw : {"<script>alert", "<img", "<b>", "m\"a<t", "'a' < \"b\""})
        EXPECT_EQ(page.find(raw), std::string::npos) << raw;
    for (const char* escaped : {"&lt;script&gt;alert(&#39;name&#39;)", "&lt;img src=x onerror=alert(1)&gt;",
                                "broke: &lt;b&gt;&amp;&lt;/b&gt;", "ERROR: &#39;a&#39; &lt; &quot;b&quot;",
                                "data-parameter=\"m&quot;a&lt;t\""})
        EXPECT_NE(page.find(escaped), std::string::npos) << escaped;
    EXPECT_NE(page.find("<div class=\"failure\" data-design=\"3\">"), std::string::npos);
    // Nothing from outside the page.
    for (const char* outside : {"src=\"http", "href=\"http", "<link", "@import", "url("})
        EXPECT_EQ(page.find(outside), std::string::npos) << outside;
    // x against y: designs 1 and 2 have a finite y... only design 1 does.
    EXPECT_NE(page.find("data-design=\"1\" data-x=\"0.3333333333333333\" data-y=\"0.1\""), std::string::npos);
    EXPECT_EQ(page.find("class=\"point ok\" data-design=\"2\""), std::string::npos);
}

// A study run in the background whose second design waits for a file (at
// most 20 s): status must answer, from another process, while it runs.
class SlowStudy : public ::testing::Test {
protected:
    void SetUp() override {
        dir.write("deck.inp", "length 0\n");
        const char* head =
            "$ File type, version\nmarking, 1\n$ Tag definition file: %s\n$ Tag type, Num tags\n"
            "MARKING, 1\n$ delims\n\\s\n$ widths\n10\n$ Mode, Row, Delims, Col, Param type, Param "
            "name, Print Fmt\nfree, 1,\\s, 2, Double, %s, %%g\n";
        char tags[512];
        std::snprintf(tags, sizeof tags, head, "deck.inp", "length");
        dir.write("M_in_s_deck.inp", tags);
        std::snprintf(tags, sizeof tags, head, "out.txt", "area");
        dir.write("M_out_s_out.txt", tags);
        // Design 2 waits for "go"; design 3 fails.
        dir.write("solve.sh",
                  "l=$(awk 'NR==1{print $2}' deck.inp)\n"
                  "if [ \"$l\" = 2 ]; then i=0; while [ ! -f \"$1/go\" ] && [ $i -lt 200 ]; do sleep 0.1; i=$((i+1)); done; fi\n"
                  "[ \"$l\" = 3 ] && exit 3\n"
                  "echo \"area $l\" > out.txt\n");
        dir.write("s.toml",
                  "[study]\nname = \"slow\"\n[solver]\ncommand = \"sh ${study_dir}/solve.sh ${study_dir}\"\n"
                  "[design]\nmethod = \"list\"\n[[parameters]]\nname = \"length\"\nvalues = [1, 2, 3, 4]\n"
                  "[[inputs]]\nfile = \"deck.inp\"\ntags = \"M_in_s_deck.inp\"\n"
                  "[[outputs]]\nfile = \"out.txt\"\ntags = \"M_out_s_out.txt\"\n[[responses]]\nname = \"area\"\n");
    }
    void TearDown() override {
        dir.write("go", "");
        if (runner > 0) ::waitpid(runner, nullptr, 0);
    }
    std::string status(int expectRc = 0) {
        const std::string cmd = std::string(PORTAL_RUN_EXE) + " status '" + study + "' > '" +
                                dir.file("status.txt") + "' 2>&1";
        const int rc = std::system(cmd.c_str());
        EXPECT_EQ(WIFEXITED(rc) ? WEXITSTATUS(rc) : -1, expectRc) << readFile(dir.file("status.txt"));
        return readFile(dir.file("status.txt"));
    }
    // Starts the study with two jobs; status until design 2 alone runs.
    std::string startAndWait() {
        runner = ::fork();
        if (runner == 0) {
            ::freopen(dir.file("run.txt").c_str(), "w", stdout);
            ::dup2(1, 2);
            ::execl(PORTAL_RUN_EXE, PORTAL_RUN_EXE, "--plugin", ZELTRA_PLUGIN_PATH, "-j", "2",
                    study.c_str(), static_cast<char*>(nullptr));
            ::_exit(127);
        }
        std::string seen;
        for (int i = 0; i < 150 && runner > 0; ++i) {
            seen = status();
            if (seen.find("2 ok, 1 failed, 1 running") != std::string::npos) break;
            ::usleep(100000);
        }
        return seen;
    }
    int finish() {
        int rc = 0;
        EXPECT_EQ(::waitpid(runner, &rc, 0), runner);
        runner = -1;
        return WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
    }

    TempDir dir;
    const std::string study = dir.file("s.toml");
    pid_t runner = -1;
};

TEST_F(SlowStudy, StatusAnswersWhileTheStudyRuns) {
    EXPECT_NE(status().find("study slow: not run yet"), std::string::npos);
    const std::string seen = startAndWait();
    dir.write("go", "");
    EXPECT_EQ(finish(), 1);
    EXPECT_NE(seen.find("4 designs: 2 ok, 1 failed, 1 running, 0 pending"), std::string::npos) << seen;
    EXPECT_NE(seen.find("run: going on (portal-run pid "), std::string::npos) << seen;
    EXPECT_NE(seen.find("running: design 2"), std::string::npos) << seen;
    EXPECT_NE(seen.find("  design 3: the solver exited with code 3"), std::string::npos) << seen;
    EXPECT_NE(seen.find("time left: about"), std::string::npos) << seen;

    const std::string after = status();
    EXPECT_NE(after.find("4 designs: 3 ok, 1 failed, 0 running, 0 pending"), std::string::npos) << after;
    EXPECT_NE(after.find("run: finished"), std::string::npos) << after;
    dir.write("runs/results.json", "{\"format\": ");
    EXPECT_NE(status(7).find("not whole JSON"), std::string::npos);
}

TEST_F(SlowStudy, InterruptedRunLeavesNoDesignMarkedRunning) {
    ASSERT_NE(startAndWait().find("1 running"), std::string::npos);
    ::kill(runner, SIGTERM);
    EXPECT_EQ(finish(), 130);
    ResultsFile f;
    std::string error;
    ASSERT_TRUE(readResultsJson(dir.file("runs/results.json"), f, error)) << error;
    EXPECT_EQ(f.runner.state, "interrupted");
    ASSERT_EQ(f.designs.size(), 4u);
    EXPECT_EQ(f.designs[1].status, "pending");
    EXPECT_FALSE(f.designs[1].started.has_value());
    EXPECT_NE(status().find("2 ok, 1 failed, 0 running, 1 pending\nrun: interrupted"), std::string::npos);
}

}  // namespace
