// Helpers the example-study tests share: a file read whole, a line split on
// one separator (empty fields kept, so CSV columns stay in place), and a
// shell command's exit code (-1 when it died of a signal).
#pragma once

#include <stdlib.h>
#include <sys/wait.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace example_support {

inline std::string slurp(const std::string& p) {
    std::ifstream in(p, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

inline std::vector<std::string> split(const std::string& s, char sep) {
    std::vector<std::string> out(1);
    for (char c : s) {
        if (c == sep) out.emplace_back();
        else out.back() += c;
    }
    return out;
}

inline int shell(const std::string& cmd) {
    int status = std::system(cmd.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace example_support
