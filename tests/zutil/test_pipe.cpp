// Named pipes: two processes exchanging messages in both waiting modes, long
// messages in parts, a client that vanishes, the full table, names, peers of
// another user, wrong ends and failing closes.
#include "zu_pipe.h"
#include "zu_test_support.h"

#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <set>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Every test is bounded: a read that waits forever ends the test by SIGALRM.
class ZuPipes : public ZuFreshState {
protected:
    void SetUp() override
    {
        ZuFreshState::SetUp();
        alarm(30);
    }
    void TearDown() override
    {
        zu_pipeIo = zu_pipeIoDefault;
        zu_pipeReset();
        alarm(0);
        ZuFreshState::TearDown();
    }
};

std::string newestError(const char *routine)
{
    int index = -1;
    ZU_ErrRec *rec = ZU_errNext(routine, &index);
    return rec ? std::to_string(rec->number) + ": " + rec->message : "<none>";
}

// Runs `body` in a child process that ends with its result as exit code;
// the child has a deadline of its own (alarms don't pass through fork).
pid_t spawn(const std::function<int()> &body)
{
    pid_t pid = fork();
    if (pid == 0) {
        alarm(20);
        _exit(body());
    }
    return pid;
}

int exitCode(pid_t pid)
{
    int status = 0;
    if (waitpid(pid, &status, 0) != pid)
        return -1000;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

// One read, asking again while it is pending (no-wait mode).
int readOnce(int handle, std::string &text, int size)
{
    std::string buffer(static_cast<size_t>(size), '\0');
    int count = -1, rc;
    while ((rc = ZU_pipeRead(handle, buffer.data(), size, &count)) == ZU_PIPE_PENDING) {
        EXPECT_EQ(count, 0);
        usleep(1000);
    }
    text.assign(buffer.data(), rc == 0 ? static_cast<size_t>(count) : 0);
    return rc;
}

int send(int handle, const std::string &text)
{
    return ZU_pipeWrite(handle, text.c_str(), static_cast<int>(text.size() + 1));
}

class ZuPipeModes : public ZuPipes, public testing::WithParamInterface<int> {};

TEST_P(ZuPipeModes, ClientMessagesArriveWholeUntilItVanishesThenANewClientIsServed)
{
    const int mode = GetParam();
    int server = 0;
    char name[ZU_PIPE_NAME_MAX];
    ASSERT_EQ(ZU_pipeCreate("zutest*", &server, name, mode), 0) << newestError("pipeCreate");
    EXPECT_EQ(zu_pipeState(server), ZU_PIPE_SERVER);
    std::string text;
    if (mode & ZU_PIPE_NOWAIT) {
        char buffer[8];
        int count = 5;
        EXPECT_EQ(ZU_pipeRead(server, buffer, sizeof buffer, &count), ZU_PIPE_PENDING);
        EXPECT_EQ(count, 0);
        EXPECT_EQ(zu_pipeState(server), ZU_PIPE_SERVER | ZU_PIPE_PENDING_BIT);
    }
    const std::string longText(3000, 'L'); // 3001 bytes with the terminator
    pid_t writer = spawn([&] {
        int client = 0;
        if (ZU_pipeOpen(&client, name, ZU_PIPE_WRITE) != 0)
            return 10;
        if (send(client, "first") || send(client, longText) || send(client, "last"))
            return 11;
        raise(SIGKILL); // gone without a close, in the middle of the stream
        return 12;
    });

    ASSERT_EQ(readOnce(server, text, 1000), 0) << newestError("pipeRead");
    EXPECT_EQ(text, std::string("first", 6));
    EXPECT_EQ(zu_pipeState(server), ZU_PIPE_SERVER | ZU_PIPE_CONNECTED);
    std::string whole;
    for (int part = 0; part < 4; ++part) {
        ASSERT_EQ(readOnce(server, text, 1000), 0) << part;
        EXPECT_EQ(text.size(), part < 3 ? 1000u : 1u) << part;
        whole += text;
    }
    EXPECT_EQ(whole, longText + '\0');
    ASSERT_EQ(readOnce(server, text, 1000), 0);
    EXPECT_EQ(text, std::string("last", 5));
    EXPECT_EQ(readOnce(server, text, 1000), ZU_PIPE_GONE);
    EXPECT_EQ(exitCode(writer), -SIGKILL);
    EXPECT_EQ(zu_pipeState(server), ZU_PIPE_SERVER);

    pid_t next = spawn([&] {
        int client = 0;
        return ZU_pipeOpen(&client, name, ZU_PIPE_WRITE) == 0 && send(client, "again") == 0 &&
                       ZU_pipeClose(client) == 0
                   ? 0
                   : 20;
    });
    ASSERT_EQ(readOnce(server, text, 1000), 0) << newestError("pipeRead");
    EXPECT_EQ(text, std::string("again", 6));
    EXPECT_EQ(readOnce(server, text, 1000), ZU_PIPE_GONE);
    EXPECT_EQ(exitCode(next), 0);
    EXPECT_EQ(ZU_pipeClose(server), 0);
    EXPECT_EQ(zu_pipeState(server), -1);
}

INSTANTIATE_TEST_SUITE_P(WaitingAndNot, ZuPipeModes, testing::Values(0, ZU_PIPE_NOWAIT));

TEST_F(ZuPipes, ServerWritesToAClientThatReadsAndNoticesWhenItHasGone)
{
    signal(SIGPIPE, SIG_DFL); // as in a host that never asked to ignore it
    int server = 0;
    char name[ZU_PIPE_NAME_MAX];
    ASSERT_EQ(ZU_pipeCreate("zutest*", &server, name, ZU_PIPE_WRITE), 0);
    EXPECT_EQ(send(server, "nobody"), ZU_PIPE_SYSTEM_ERROR);
    EXPECT_NE(newestError("pipeWrite").find("no process has opened the other end"), std::string::npos);

    pid_t reader = spawn([&] {
        int client = 0;
        std::string a, b;
        if (ZU_pipeOpen(&client, name, ZU_PIPE_NOWAIT) != 0)
            return 30;
        if (readOnce(client, a, 64) != 0 || readOnce(client, b, 64) != 0)
            return 31;
        return a == std::string("one", 4) && b == std::string("two", 4) ? 0 : 32;
    });
    int rc;
    while ((rc = send(server, "one")) == ZU_PIPE_SYSTEM_ERROR)
        usleep(1000); // until the child has connected
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(send(server, "two"), 0);
    EXPECT_EQ(exitCode(reader), 0);
    // The reader has gone: an error, no SIGPIPE, and the server is free again.
    ZU_errClear("*", 0);
    EXPECT_EQ(send(server, "late"), ZU_PIPE_SYSTEM_ERROR);
    EXPECT_NE(newestError("pipeWrite").find("System error: "), std::string::npos);
    EXPECT_EQ(zu_pipeState(server), ZU_PIPE_SERVER);
}

TEST_F(ZuPipes, TableHolds256PipesAndReusesTheLowestFreedHandle)
{
    for (int i = 1; i <= ZU_PIPE_MAX; ++i) {
        int handle = 0;
        ASSERT_EQ(ZU_pipeCreate("zutest*", &handle, nullptr, 0), 0) << i;
        ASSERT_EQ(handle, i);
    }
    int handle = -1;
    EXPECT_EQ(ZU_pipeCreate("zutest*", &handle, nullptr, 0), ZU_PIPE_NO_FREE);
    EXPECT_EQ(handle, 0);
    EXPECT_EQ(newestError("pipeCreate"), "3: No free pipes.");
    EXPECT_EQ(ZU_pipeOpen(&handle, "\\\\.\\pipe\\whatever", 0), ZU_PIPE_NO_FREE);
    EXPECT_EQ(newestError("pipeOpen"), "3: No free pipes.");

    EXPECT_EQ(ZU_pipeClose(200), 0);
    EXPECT_EQ(ZU_pipeClose(17), 0);
    ASSERT_EQ(ZU_pipeCreate("zutest*", &handle, nullptr, 0), 0);
    EXPECT_EQ(handle, 17);
    ASSERT_EQ(ZU_pipeCreate("zutest*", &handle, nullptr, 0), 0);
    EXPECT_EQ(handle, 200);

    char buffer[4];
    int count;
    for (int bad : {0, -1, ZU_PIPE_MAX + 1}) {
        EXPECT_EQ(ZU_pipeClose(bad), ZU_PIPE_BAD_HANDLE);
        EXPECT_EQ(ZU_pipeRead(bad, buffer, 4, &count), ZU_PIPE_BAD_HANDLE);
        EXPECT_EQ(ZU_pipeWrite(bad, buffer, 4), ZU_PIPE_BAD_HANDLE);
        EXPECT_EQ(newestError("pipeWrite"), "1: Invalid pipe handle: " + std::to_string(bad));
    }
    EXPECT_EQ(ZU_pipeClose(17), 0);
    EXPECT_EQ(ZU_pipeClose(17), ZU_PIPE_BAD_HANDLE);
}

TEST_F(ZuPipes, NamesFollowTheTemplateAndMayBeAtMost107Bytes)
{
    const std::string pid = std::to_string(getpid());
    const std::string prefix = "\\\\.\\pipe\\";
    char name[ZU_PIPE_NAME_MAX];
    int handle = 0;
    ASSERT_EQ(ZU_pipeCreate(("zuplain" + pid).c_str(), &handle, name, 0), 0);
    EXPECT_EQ(name, prefix + "zuplain" + pid);
    int again = 0;
    EXPECT_EQ(ZU_pipeCreate(("zuplain" + pid).c_str(), &again, name, 0), ZU_PIPE_SYSTEM_ERROR);
    EXPECT_EQ(again, 0);
    EXPECT_EQ(newestError("pipeCreate").rfind("2: System error: ", 0), 0u) << newestError("pipeCreate");

    // The failed create gave its slot back.
    ASSERT_EQ(ZU_pipeCreate("zudata*tail", &handle, name, 0), 0);
    EXPECT_EQ(handle, 2);
    EXPECT_EQ(name, prefix + "zudata" + pid + "_2");

    const std::string longest(ZU_PIPE_NAME_MAX - 1 - prefix.size() - pid.size(), 'n');
    ASSERT_EQ(ZU_pipeCreate((longest + pid).c_str(), &handle, name, 0), 0) << newestError("pipeCreate");
    EXPECT_EQ(std::string(name).size(), 107u);
    EXPECT_EQ(ZU_pipeCreate(("n" + longest + pid).c_str(), &again, name, 0), ZU_PIPE_SYSTEM_ERROR);
    EXPECT_EQ(again, 0);
    EXPECT_EQ(name[0], '\0');
    EXPECT_NE(newestError("pipeCreate").find("longer than 107 bytes"), std::string::npos);
    EXPECT_EQ(ZU_pipeOpen(&again, (prefix + "n" + longest + pid).c_str(), 0), ZU_PIPE_SYSTEM_ERROR);

    EXPECT_EQ(ZU_pipeOpen(&again, (prefix + "zunobody" + pid).c_str(), ZU_PIPE_WRITE), ZU_PIPE_SYSTEM_ERROR);
    EXPECT_EQ(again, 0);
    EXPECT_EQ(newestError("pipeOpen").rfind("2: System error: ", 0), 0u);
    ASSERT_EQ(ZU_pipeCreate("zunext*", &handle, nullptr, 0), 0);
    EXPECT_EQ(handle, 4) << "failed opens must give their slots back";
}

// The test runs as root and switches a child to an unprivileged user; abstract
// sockets carry no permissions, so only the credential check can refuse it.
TEST_F(ZuPipes, RefusesAPeerOfAnotherUserInBothDirections)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root to run a child as another user";
    int server = 0;
    char name[ZU_PIPE_NAME_MAX];
    ASSERT_EQ(ZU_pipeCreate("zutest*", &server, name, ZU_PIPE_NOWAIT), 0);
    pid_t intruder = spawn([&] {
        if (setgid(65534) != 0 || setuid(65534) != 0)
            return 40;
        int client = 0;
        int rc = ZU_pipeOpen(&client, name, ZU_PIPE_WRITE);
        return rc == ZU_PIPE_REFUSED && client == 0 && newestError("pipeOpen").rfind("4: ", 0) == 0 ? 0 : 41;
    });
    ASSERT_EQ(exitCode(intruder), 0) << "the client must refuse a server of another user";
    char buffer[16];
    int count = 0;
    EXPECT_EQ(ZU_pipeRead(server, buffer, sizeof buffer, &count), ZU_PIPE_REFUSED);
    EXPECT_NE(newestError("pipeRead").find("runs as user 65534"), std::string::npos) << newestError("pipeRead");
    EXPECT_EQ(ZU_pipeRead(server, buffer, sizeof buffer, &count), ZU_PIPE_PENDING);
    EXPECT_EQ(zu_pipeState(server) & ZU_PIPE_CONNECTED, 0);
}

TEST_F(ZuPipes, WrongEndsBadBuffersAndEmptyMessagesAreRefusedOrSkipped)
{
    int server = 0, client = 0;
    char name[ZU_PIPE_NAME_MAX];
    ASSERT_EQ(ZU_pipeCreate("zutest*", &server, name, ZU_PIPE_NOWAIT), 0);
    ASSERT_EQ(ZU_pipeOpen(&client, name, ZU_PIPE_WRITE), 0);
    char buffer[8];
    int count = 0;
    EXPECT_EQ(ZU_pipeRead(client, buffer, sizeof buffer, &count), ZU_PIPE_SYSTEM_ERROR);
    EXPECT_NE(newestError("pipeRead").find("is the writing end"), std::string::npos);
    EXPECT_EQ(ZU_pipeWrite(server, "x", 2), ZU_PIPE_SYSTEM_ERROR);
    EXPECT_EQ(ZU_pipeRead(server, nullptr, 8, &count), ZU_PIPE_SYSTEM_ERROR);
    EXPECT_EQ(ZU_pipeRead(server, buffer, 0, &count), ZU_PIPE_SYSTEM_ERROR);
    EXPECT_EQ(ZU_pipeRead(server, buffer, 8, nullptr), ZU_PIPE_SYSTEM_ERROR);
    EXPECT_EQ(ZU_pipeWrite(client, nullptr, 3), ZU_PIPE_SYSTEM_ERROR);
    EXPECT_EQ(ZU_pipeWrite(client, buffer, -1), ZU_PIPE_SYSTEM_ERROR);
    // An empty message is not sent: the reader must not take it for "gone".
    EXPECT_EQ(ZU_pipeWrite(client, "", 0), 0);
    EXPECT_EQ(ZU_pipeRead(server, buffer, sizeof buffer, &count), ZU_PIPE_PENDING);
    EXPECT_EQ(send(client, "ok"), 0);
    std::string text;
    EXPECT_EQ(readOnce(server, text, 8), 0);
    EXPECT_EQ(text, std::string("ok", 3));
}

TEST_F(ZuPipes, ACloseTheSystemRefusesKeepsTheEntryForASecondClose)
{
    int server = 0;
    ASSERT_EQ(ZU_pipeCreate("zutest*", &server, nullptr, 0), 0);
    zu_pipeIo.close = [](int fd) {
        ::close(fd); // the descriptor is gone on Linux even when close fails
        errno = EIO;
        return -1;
    };
    EXPECT_EQ(ZU_pipeClose(server), ZU_PIPE_SYSTEM_ERROR);
    EXPECT_NE(newestError("pipeClose").find("System error: "), std::string::npos);
    EXPECT_NE(zu_pipeState(server), -1);
    zu_pipeIo = zu_pipeIoDefault;
    EXPECT_EQ(ZU_pipeClose(server), 0);
    EXPECT_EQ(zu_pipeState(server), -1);
}

TEST(ZuPipeCodes, EveryPipeAndWriterCodeHasItsOwnText)
{
    std::set<std::string> texts;
#define ZU_CHECK_(code, name, text)                     \
    EXPECT_STREQ(ZU_pipeCodeText(code), text) << #name; \
    EXPECT_TRUE(texts.insert(text).second) << #name;
    ZU_PIPE_CODES(ZU_CHECK_)
#undef ZU_CHECK_
#define ZU_CHECK_(code, name, text)                      \
    EXPECT_STREQ(ZU_wrMesCodeText(code), text) << #name; \
    EXPECT_TRUE(texts.insert(text).second) << #name;
    ZU_WRMES_CODES(ZU_CHECK_)
#undef ZU_CHECK_
    for (int unknown : {5, -3})
        EXPECT_STREQ(ZU_pipeCodeText(unknown), "");
    EXPECT_STREQ(ZU_wrMesCodeText(0), "");
}

} // namespace
