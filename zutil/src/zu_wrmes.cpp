/*
 * zu_wrmes.cpp - the message writer: one line of text to the caller's
 * outputs (outgoing pipe or printer, echo, log file) under one lock.
 *
 * Invariants: of each pair printer/printerLen and echo/echoLen at most one
 * is set; the state changes only under the lock. The lock is held over the
 * outputs, so an output that calls the writer again is refused rather than
 * left to wait on itself (a thread-local flag notices it, whether or not
 * Thread_Safe is set); the setters, called from an output, work under the
 * lock that thread already holds.
 */
#include "zu_internal.h"

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct Writer {
    ZU_MesFn printer = ZU_wrMesStdout;
    ZU_MesLenFn printerLen = nullptr;
    ZU_MesFn echo = nullptr;
    ZU_MesLenFn echoLen = nullptr;
    int outPipe = 0;
    FILE *logFile = nullptr;
    std::string logPath;
};

Writer g_writer; /* guarded by g_lock */
ZU_LockRec g_lock;
thread_local bool t_writing = false;

const char *kRoutine = "wrmes";

/* Holds the writer's lock and marks this thread as inside the writer. A
 * thread already inside (a setter called from an output) holds it already. */
class Hold {
public:
    Hold() : outer(!t_writing)
    {
        if (outer) {
            ZU_lock(&g_lock);
            t_writing = true;
        }
    }
    ~Hold()
    {
        if (outer) {
            t_writing = false;
            ZU_unlock(&g_lock);
        }
    }
    Hold(const Hold &) = delete;
    Hold &operator=(const Hold &) = delete;

private:
    bool outer;
};

/* The template of `number` filled with one or two texts. */
std::string message(int number, const std::string &a, const char *b = "")
{
    const char *pattern = ZU_wrMesCodeText(number);
    int needed = snprintf(nullptr, 0, pattern, a.c_str(), b);
    std::vector<char> text(needed > 0 ? static_cast<size_t>(needed) + 1 : 1, '\0');
    snprintf(text.data(), text.size(), pattern, a.c_str(), b);
    return text.data();
}

std::string logFailure(int number, const std::string &path, int err)
{
    char reason[256];
    return message(number, path, strerror_r(err, reason, sizeof reason));
}

/* Under the lock: closes the log; the failure text, or "" when it closed. */
std::string closeLog()
{
    std::string failure;
    if (g_writer.logFile && fclose(g_writer.logFile) != 0)
        failure = logFailure(ZU_WRMES_LOG_WRITE, g_writer.logPath, errno);
    g_writer.logFile = nullptr;
    g_writer.logPath.clear();
    return failure;
}

/* Under the lock: the text to every output; false when the pipe failed. */
bool deliver(const char *text)
{
    size_t length = strlen(text);
    bool pipeOk = true;
    if (text[0] == '%') {
        if (g_writer.outPipe && length < INT_MAX &&
            ZU_pipeWrite(g_writer.outPipe, text, static_cast<int>(length + 1)) != 0)
            pipeOk = false;
        return pipeOk;
    }
    if (g_writer.outPipe) {
        pipeOk = length < INT_MAX && ZU_pipeWrite(g_writer.outPipe, text, static_cast<int>(length + 1)) == 0;
    } else if (g_writer.printer) {
        g_writer.printer(text);
    } else if (g_writer.printerLen) {
        g_writer.printerLen(text, length);
    }
    if (g_writer.echo)
        g_writer.echo(text);
    else if (g_writer.echoLen)
        g_writer.echoLen(text, length);
    if (g_writer.logFile)
        fprintf(g_writer.logFile, "%s\n", text);
    return pipeOk;
}

} // namespace

extern "C" {

void ZU_wrMes(const char *text)
{
    if (!text)
        return;
    if (t_writing) {
        ZU_Err(kRoutine, ZU_WRMES_NESTED, ZU_SEV_ERROR, message(ZU_WRMES_NESTED, text).c_str());
        return;
    }
    Hold hold;
    if (!deliver(text))
        g_writer.outPipe = 0; /* later messages take the printer's road */
}

void ZU_wrMesF(const char *format, ...)
{
    if (!format)
        return;
    char buffer[1024];
    va_list args;
    va_start(args, format);
    int needed = vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    if (needed < 0) {
        ZU_Err(kRoutine, ZU_WRMES_FORMAT, ZU_SEV_ERROR, message(ZU_WRMES_FORMAT, format).c_str());
        return;
    }
    if (static_cast<size_t>(needed) < sizeof buffer) {
        ZU_wrMes(buffer);
        return;
    }
    std::vector<char> whole(static_cast<size_t>(needed) + 1);
    va_start(args, format);
    vsnprintf(whole.data(), whole.size(), format, args);
    va_end(args);
    ZU_wrMes(whole.data());
}

int ZU_wrMesLog(const char *path, const char *mode)
{
    std::string closeFailure, openFailure;
    {
        Hold hold;
        closeFailure = closeLog();
        if (path && *path) {
            const bool append = mode && ZU_strCaseCmp(mode, "append") == 0;
            g_writer.logFile = fopen(path, append ? "ae" : "we");
            if (g_writer.logFile)
                g_writer.logPath = path;
            else
                openFailure = logFailure(ZU_WRMES_LOG_OPEN, path, errno);
        }
    }
    if (!closeFailure.empty())
        ZU_ErrQuiet(kRoutine, ZU_WRMES_LOG_WRITE, ZU_SEV_WARNING, closeFailure.c_str());
    if (openFailure.empty())
        return 0;
    ZU_ErrQuiet(kRoutine, ZU_WRMES_LOG_OPEN, ZU_SEV_WARNING, openFailure.c_str());
    return 1;
}

void ZU_wrMesStdout(const char *text)
{
    printf("%s\n", text ? text : "");
}

void ZU_wrMesPrinter(ZU_MesFn printer)
{
    Hold hold;
    g_writer.printer = printer;
    g_writer.printerLen = nullptr;
}

void ZU_wrMesPrinterLen(ZU_MesLenFn printer)
{
    Hold hold;
    g_writer.printerLen = printer;
    g_writer.printer = nullptr;
}

void ZU_wrMesEcho(ZU_MesFn echo)
{
    Hold hold;
    g_writer.echo = echo;
    g_writer.echoLen = nullptr;
}

void ZU_wrMesEchoLen(ZU_MesLenFn echo)
{
    Hold hold;
    g_writer.echoLen = echo;
    g_writer.echo = nullptr;
}

void ZU_wrMesPipe(int handle)
{
    Hold hold;
    g_writer.outPipe = handle;
}

/* The lock is a static object and the state starts with its defaults, so
 * there is nothing left to create before threads start. */
void ZU_wrMesInit(void) {}

} // extern "C"
