/*
 * zu_sys.cpp - file tests, the local clock and the process-wide argument
 * triple. Everything here reads the system and keeps no state but the
 * triple, which only a caller stores.
 */
#include "zu_internal.h"

#include <cstdio>
#include <ctime>
#include <sys/stat.h>

namespace {

int g_argc = 0;
char **g_argv = nullptr;
char **g_envp = nullptr;

const char *const kMonths[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                 "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

bool statPath(const char *path, struct stat *st)
{
    return path && stat(path, st) == 0;
}

} // namespace

extern "C" {

int64_t ZU_fileTime(const char *path)
{
    struct stat st;
    return statPath(path, &st) ? static_cast<int64_t>(st.st_mtime) : 0;
}

int ZU_isDir(const char *path)
{
    struct stat st;
    return statPath(path, &st) && S_ISDIR(st.st_mode) ? 1 : 0;
}

int ZU_isFile(const char *path)
{
    struct stat st;
    return statPath(path, &st) && S_ISREG(st.st_mode) ? 1 : 0;
}

void ZU_timeDate(char *timeText, char *dateText)
{
    time_t now = time(nullptr);
    struct tm local;
    if (!localtime_r(&now, &local)) {
        if (timeText)
            timeText[0] = '\0';
        if (dateText)
            dateText[0] = '\0';
        return;
    }
    if (timeText)
        snprintf(timeText, 9, "%02u:%02u:%02u", static_cast<unsigned>(local.tm_hour) % 24u,
                 static_cast<unsigned>(local.tm_min) % 60u, static_cast<unsigned>(local.tm_sec) % 61u);
    if (dateText)
        snprintf(dateText, 16, "%u-%s-%u", static_cast<unsigned>(local.tm_mday) % 32u,
                 kMonths[static_cast<unsigned>(local.tm_mon) % 12u],
                 static_cast<unsigned>(local.tm_year + 1900) % 100000u);
}

void ZU_setArgs(int argc, char **argv, char **envp)
{
    g_argc = argc;
    g_argv = argv;
    g_envp = envp;
}

void ZU_getArgs(int *argc, char ***argv, char ***envp)
{
    if (argc)
        *argc = g_argc;
    if (argv)
        *argv = g_argv;
    if (envp)
        *envp = g_envp;
}

} // extern "C"
