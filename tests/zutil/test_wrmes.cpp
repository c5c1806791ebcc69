// The message writer with every output at once, its log file, its length
// forms and by-reference forms, and the process report's sections.
#include "zu_pipe.h"
#include "zu_test_support.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

std::vector<std::string> g_printed, g_echoed;

void printer(const char *text) { g_printed.push_back(text); }
void echo(const char *text) { g_echoed.push_back(text); }
void printerLen(const char *text, size_t length) { g_printed.push_back(std::string(text, length) + "#len"); }
void echoLen(const char *text, size_t length) { g_echoed.push_back(std::string(text, length) + "#len"); }

std::string readFile(const std::string &path)
{
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::string newestError(const char *routine)
{
    int index = -1;
    ZU_ErrRec *rec = ZU_errNext(routine, &index);
    return rec ? std::to_string(rec->number) + "/" + std::to_string(rec->severity) + ": " + rec->message : "<none>";
}

class ZuWrMes : public ZuFreshState {
protected:
    void SetUp() override
    {
        ZuFreshState::SetUp();
        g_printed.clear();
        g_echoed.clear();
        char pattern[] = "/tmp/zu_wrmes_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
        ZU_wrMesPrinter(printer);
        ZU_wrMesEcho(nullptr);
    }
    void TearDown() override
    {
        ZU_wrMesLog(nullptr, nullptr);
        ZU_wrMesPipe(0);
        ZU_wrMesPrinter(ZU_wrMesStdout);
        ZU_wrMesEcho(nullptr);
        zu_pipeReset();
        std::string cmd = "rm -rf '" + dir + "'";
        EXPECT_EQ(system(cmd.c_str()), 0);
        ZuFreshState::TearDown();
    }
    std::string dir;
};

std::string takeMessage(int server)
{
    char buffer[256];
    int count = 0;
    int rc = ZU_pipeRead(server, buffer, sizeof buffer, &count);
    return rc == 0 ? std::string(buffer, static_cast<size_t>(count)) : "rc " + std::to_string(rc);
}

TEST_F(ZuWrMes, ReachesPipeEchoAndLogAtOnceAndFallsBackToThePrinterWhenThePipeFails)
{
    int server = 0, client = 0;
    char name[ZU_PIPE_NAME_MAX];
    ASSERT_EQ(ZU_pipeCreate("zuwrmes*", &server, name, ZU_PIPE_NOWAIT), 0);
    ASSERT_EQ(ZU_pipeOpen(&client, name, ZU_PIPE_WRITE), 0);
    const std::string log = dir + "/run.log";
    ASSERT_EQ(ZU_wrMesLog(log.c_str(), "write"), 0);
    ZU_wrMesPipe(client);
    ZU_wrMesEcho(echo);

    ZU_wrMes("hello");
    ZU_wrMes("%control");
    EXPECT_EQ(takeMessage(server), std::string("hello", 6));
    EXPECT_EQ(takeMessage(server), std::string("%control", 9));
    EXPECT_EQ(takeMessage(server), "rc -1");

    ASSERT_EQ(ZU_pipeClose(server), 0);
    ZU_wrMes("lost");  // the pipe write fails: not sent again, pipe switched off
    EXPECT_EQ(newestError("pipeWrite").rfind("2/3: System error: ", 0), 0u) << newestError("pipeWrite");
    ZU_wrMesF("next %d", 2);
    ZU_wrMes("%dropped");  // a control line without a pipe goes nowhere

    EXPECT_EQ(g_printed, (std::vector<std::string>{"next 2"}));
    EXPECT_EQ(g_echoed, (std::vector<std::string>{"hello", "lost", "next 2"}));
    ZU_wrMesLog(nullptr, nullptr);
    EXPECT_EQ(readFile(log), "hello\nlost\nnext 2\n");
}

TEST_F(ZuWrMes, LengthFormsReplaceTheirTwinsAndLongFormattedTextsArriveWhole)
{
    ZU_wrMesPrinterLen(printerLen);
    ZU_wrMesEchoLen(echoLen);
    ZU_wrMes("a");
    ZU_wrMesEcho(echo);  // clears echoLen
    const std::string big(3000, 'b');
    ZU_wrMesF("%s!", big.c_str());
    ZU_wrMesPrinter(printer);  // clears printerLen
    ZU_wrMes("c");
    EXPECT_EQ(g_printed, (std::vector<std::string>{"a#len", big + "!#len", "c"}));
    EXPECT_EQ(g_echoed, (std::vector<std::string>{"a#len", big + "!", "c"}));
}

TEST_F(ZuWrMes, LogAppendsOnlyForAppendInAnyCaseAndAFailedOpenIsRecordedQuietly)
{
    const std::string log = dir + "/a.log";
    ASSERT_EQ(ZU_wrMesLog(log.c_str(), "w"), 0);
    ZU_wrMes("one");
    ASSERT_EQ(ZU_wrMesLog(log.c_str(), "APPEND"), 0);
    ZU_wrMes("two");
    EXPECT_EQ(ZU_wrMesLog("", "append"), 0);
    ZU_wrMes("not logged");
    EXPECT_EQ(readFile(log), "one\ntwo\n");
    ASSERT_EQ(ZU_wrMesLog(log.c_str(), "appendix"), 0);
    ZU_wrMes("three");
    ZU_wrMesLog(nullptr, nullptr);
    EXPECT_EQ(readFile(log), "three\n");

    ZU_setOpts("Error_Out=StdErr");
    testing::internal::CaptureStderr();
    const std::string bad = dir + "/no/such/dir.log";
    EXPECT_EQ(ZU_wrMesLog(bad.c_str(), "w"), 1);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(newestError("wrmes").rfind("1/2: Could not open logfile \"" + bad + "\". ", 0), 0u)
        << newestError("wrmes");
    ZU_wrMes("after");
    EXPECT_EQ(g_printed.back(), "after");
}

// An output that calls the writer again would wait on the writer's own lock.
void nested(const char *text)
{
    g_echoed.push_back(text);
    ZU_wrMes("inner");
    ZU_wrMesEcho(nullptr);  // setters still work from inside an output
}

TEST_F(ZuWrMes, AnOutputCallingTheWriterIsRefusedInsteadOfHanging)
{
    ASSERT_EQ(ZU_setOpts("Thread_Safe=Yes"), 0);
    alarm(10);
    ZU_wrMesEcho(nested);
    ZU_wrMes("outer");
    ZU_wrMes("plain");
    alarm(0);
    EXPECT_EQ(g_printed, (std::vector<std::string>{"outer", "plain"}));
    EXPECT_EQ(g_echoed, (std::vector<std::string>{"outer"}));
    EXPECT_NE(newestError("wrmes").find("message not written: inner"), std::string::npos);
}

// The lower-case forms are exercised from Fortran by the install test.
TEST_F(ZuWrMes, UpperCaseByReferenceFormsTrimTextsAndRefuseNulls)
{
    const std::string path = dir + "/f.log", field = path + "      ";
    int rc = -1;
    EXPECT_EQ(ZU_WRMESLOG_REF(field.data(), "append  ", &rc, field.size(), 8), 0);
    EXPECT_EQ(rc, 0);
    ZU_WRMES_REF("upper   ", 8);
    ZU_WRMES_REF(nullptr, 3);
    EXPECT_EQ(newestError("ZU_wrMes_ref"), "1/3: Invalid pointer");
    EXPECT_EQ(ZU_WRMESLOG_REF(" ", "w", &rc, 1, 1), 0);
    EXPECT_EQ(readFile(path), "upper\n");
    EXPECT_EQ(g_printed, (std::vector<std::string>{"upper"}));
}

// The report: every label in order, with the command line as stored.
std::vector<std::string> reportLines(int argc, char **argv)
{
    ZU_setArgs(argc, argv, nullptr);
    FILE *out = tmpfile();
    EXPECT_NE(out, nullptr);
    EXPECT_EQ(ZU_processReport(out, "prog", "1.2"), 0);
    rewind(out);
    std::vector<std::string> lines;
    char buffer[8192];
    while (fgets(buffer, sizeof buffer, out)) {
        std::string line = buffer;
        lines.push_back(line.substr(0, line.size() - 1));
    }
    fclose(out);
    ZU_setArgs(0, nullptr, nullptr);
    return lines;
}

TEST(ZuProcessReport, PrintsEverySectionInOrderForEachKindOfCommandLine)
{
    setenv("ZU_REPORT_PROBE", "seen", 1);
    unsetenv("PROCESSOR_IDENTIFIER");
    char exe[] = "/bin/prog", a1[] = "-x", a2[] = "file";
    char *argv[] = {exe, a1, a2, nullptr};
    struct Case {
        int argc;
        std::string executable, arguments;
    };
    for (const Case &c : {Case{0, "Executable:  (not known)", "Arguments:   (not known)"},
                          Case{1, "Executable:  /bin/prog", "Arguments:"},
                          Case{3, "Executable:  /bin/prog", "Arguments:   -x file"}}) {
        std::vector<std::string> lines = reportLines(c.argc, argv);
        ASSERT_GT(lines.size(), 16u);
        const std::string rule(80, '=');
        EXPECT_EQ(lines[0], rule);
        EXPECT_EQ(lines[1], "Program:     prog");
        EXPECT_EQ(lines[2], "Version:     1.2");
        EXPECT_EQ(lines[3], c.executable);
        EXPECT_EQ(lines[4], c.arguments);
        const char *labels[] = {"Hostname:    ", "Opsys:       ", "Hardware:    (unknown)", "Memory:      Total: ",
                                "Date/Time:   "};
        for (size_t i = 0; i < 5; ++i)
            EXPECT_EQ(lines[5 + i].rfind(labels[i], 0), 0u) << lines[5 + i];
        EXPECT_NE(lines[9].size(), std::string("Date/Time:   ").size());
        EXPECT_EQ(lines[10], std::string(80, '-'));
        EXPECT_EQ(lines[11], "Environment:");
        EXPECT_EQ(lines[12], "------------");
        EXPECT_NE(std::find(lines.begin() + 13, lines.end(), "ZU_REPORT_PROBE=seen"), lines.end());
        EXPECT_EQ(lines[lines.size() - 2], rule);
        EXPECT_EQ(lines.back(), "");
    }
    setenv("PROCESSOR_IDENTIFIER", "test cpu", 1);
    EXPECT_EQ(reportLines(0, argv)[7], "Hardware:    test cpu");
    EXPECT_EQ(ZU_processReport(nullptr, "p", "v"), 1);
}

} // namespace
