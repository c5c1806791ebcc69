/*
 * zu_report.cpp - the process report: what is known about the running
 * program and its machine, printed as labelled lines (labels padded to 13
 * columns) between rules, then the environment in its own order.
 *
 * Whatever the system can't tell is printed as "(unknown)", and command-line
 * facts nobody stored (ZU_setArgs) as "(not known)", so the report always
 * has every line. It reads the system only; it keeps no state.
 */
#include "zu_internal.h"

#include <cstdlib>
#include <ctime>
#include <string>
#include <sys/utsname.h>
#include <unistd.h>

extern char **environ;

namespace {

void rule(FILE *out, char ch)
{
    fprintf(out, "%s\n", std::string(80, ch).c_str());
}

void line(FILE *out, const char *label, const std::string &value)
{
    fprintf(out, "%-13s%s\n", label, value.c_str());
}

std::string hostName()
{
    char name[257];
    if (gethostname(name, 256) != 0)
        return "(unknown)";
    name[256] = '\0';
    return name;
}

std::string systemName()
{
    struct utsname u;
    if (uname(&u) != 0)
        return "(unknown)";
    return std::string(u.sysname) + " " + u.release + " " + u.version + " " + u.machine;
}

std::string memoryText()
{
    int total = 0, available = 0;
    ZU_memStatus(&total, &available);
    return "Total: " + std::to_string(total) + "MB Available: " + std::to_string(available) + "MB";
}

std::string localTime()
{
    time_t now = time(nullptr);
    struct tm local;
    char text[128];
    if (!localtime_r(&now, &local) || strftime(text, sizeof text, "%d-%b-%Y %X %Z", &local) == 0)
        return "(unknown)";
    return text;
}

void commandLine(FILE *out)
{
    int argc = 0;
    char **argv = nullptr;
    ZU_getArgs(&argc, &argv, nullptr);
    if (argc < 1 || !argv) {
        line(out, "Executable:", "(not known)");
        line(out, "Arguments:", "(not known)");
        return;
    }
    line(out, "Executable:", argv[0] ? argv[0] : "");
    if (argc == 1) {
        fprintf(out, "Arguments:\n");
        return;
    }
    std::string args;
    for (int i = 1; i < argc; ++i)
        args += std::string(i > 1 ? " " : "") + (argv[i] ? argv[i] : "");
    line(out, "Arguments:", args);
}

} // namespace

extern "C" {

int ZU_processReport(FILE *stream, const char *program, const char *version)
{
    if (!stream) {
        ZU_Err("ZU_processReport", 1, ZU_SEV_ERROR, "No output stream");
        return 1;
    }
    rule(stream, '=');
    line(stream, "Program:", program ? program : "");
    line(stream, "Version:", version ? version : "");
    commandLine(stream);
    line(stream, "Hostname:", hostName());
    line(stream, "Opsys:", systemName());
    const char *hardware = getenv("PROCESSOR_IDENTIFIER");
    line(stream, "Hardware:", hardware ? hardware : "(unknown)");
    line(stream, "Memory:", memoryText());
    line(stream, "Date/Time:", localTime());
    rule(stream, '-');
    fprintf(stream, "Environment:\n------------\n");
    for (char **entry = environ; entry && *entry; ++entry)
        fprintf(stream, "%s\n", *entry);
    rule(stream, '=');
    fprintf(stream, "\n");
    if (fflush(stream) != 0 || ferror(stream)) {
        ZU_Err("ZU_processReport", 2, ZU_SEV_ERROR, "The report could not be written");
        return 2;
    }
    return 0;
}

} // extern "C"
