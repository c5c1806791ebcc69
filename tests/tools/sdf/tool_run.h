// Runs the sdf tool as a user does, for the tool's tests: one command line,
// its exit code and what it printed on its standard output. Where standard
// error goes is the caller's redirection ("2>&1" by default, so messages and
// output come back together in the order they were printed).
#pragma once

#include <sys/wait.h>

#include <cstdio>
#include <string>

namespace sdftooltest {

struct Outcome {
    int code = -1;  // -1: the tool could not be started or did not exit
    std::string out;
    std::string err;  // filled by callers that redirect standard error to a file
};

inline Outcome runTool(const std::string& args, const std::string& redirect = "2>&1") {
    Outcome r;
    const std::string cmd = std::string(SDF_TOOL) + " " + args + " " + redirect;
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return r;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
    const int status = pclose(p);
    r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

}  // namespace sdftooltest
