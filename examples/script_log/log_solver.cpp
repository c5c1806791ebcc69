// log-solver: the script-tag example's solver. A relaxation iteration whose
// residual falls by the factor (1 - relaxation) each step until it is below
// the tolerance; its log therefore has as many iteration lines as the design
// needs, and everything behind the iteration table moves from design to
// design. That moving layout is what script tags are for.
//
// The messages file is written on every run and holds only this run's
// messages; on bad input or no convergence no log is left behind, so nobody
// reads a stale one.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

namespace {

const char* const kUsage =
    "usage: log-solver INPUT LOG\n"
    "\n"
    "Runs a relaxation iteration described by INPUT and writes its log to LOG.\n"
    "INPUT holds \"key = value\" lines (\"#\" starts a comment):\n"
    "  relaxation (0 < r < 1), tolerance (> 0), max_iterations (500), nodes (5)\n"
    "Messages (NOTE:, ERROR: lines) go to analysis_execution.messages.\n"
    "Exit codes: 0 converged; 1 bad input or no convergence; 2 wrong command line.\n";

struct Input {
    double relaxation = -1, tolerance = -1, maxIterations = 500, nodes = 5;
};

std::string text(const char* f, double v) {
    char buf[64];
    std::snprintf(buf, sizeof buf, f, v);
    return buf;
}

// Reads the input; the first problem found goes to `why`.
bool readInput(const std::string& path, Input& in, std::string& why) {
    std::ifstream file(path);
    if (!file) {
        why = "cannot read " + path;
        return false;
    }
    const std::map<std::string, double*> keys = {{"relaxation", &in.relaxation},
                                                 {"tolerance", &in.tolerance},
                                                 {"max_iterations", &in.maxIterations},
                                                 {"nodes", &in.nodes}};
    std::string line;
    for (int n = 1; std::getline(file, line); ++n) {
        line = line.substr(0, line.find('#'));
        const std::size_t eq = line.find('=');
        if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
        std::istringstream key(line.substr(0, eq)), value(eq == std::string::npos ? "" : line.substr(eq + 1));
        std::string name;
        key >> name;
        double v;
        auto it = keys.find(name);
        if (eq == std::string::npos || it == keys.end() || !(value >> v)) {
            why = path + " line " + std::to_string(n) + ": expected \"key = number\"";
            return false;
        }
        *it->second = v;
    }
    if (!(in.relaxation > 0 && in.relaxation < 1)) why = "relaxation must lie between 0 and 1";
    else if (!(in.tolerance > 0)) why = "tolerance must be positive";
    else if (!(in.maxIterations >= 1 && in.nodes >= 1 && in.nodes <= 1000))
        why = "max_iterations and nodes must be at least 1";
    return why.empty();
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 2 && (!std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h"))) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (argc != 3) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    std::ofstream messages("analysis_execution.messages", std::ios::trunc);
    std::remove(argv[2]);
    Input in;
    std::string why;
    if (!readInput(argv[1], in, why)) {
        messages << "ERROR: " << why << "\n";
        return 1;
    }
    std::ostringstream log;
    log << "log-solver 1.0\n"
        << "Reading " << argv[1] << "\n"
        << "  relaxation = " << text("%g", in.relaxation) << "\n"
        << "  tolerance  = " << text("%g", in.tolerance) << "\n"
        << "\nIteration history\n"
        << "  iter   residual\n";
    double residual = 1;
    int iterations = 0;
    while (residual >= in.tolerance && iterations < in.maxIterations) {
        residual *= 1 - in.relaxation;
        ++iterations;
        log << text("%6g", iterations) << "   " << text("%.6e", residual) << "\n";
    }
    if (residual >= in.tolerance) {
        messages << "ERROR: no convergence after " << iterations << " iterations\n";
        return 1;
    }
    log << "Converged after " << iterations << " iterations\n"
        << "\nNode results\n"
        << "  node   displacement\n";
    for (int n = 1; n <= in.nodes; ++n)
        log << text("%6g", n) << "   " << text("%.6e", 0.001 * n / in.relaxation) << "\n";
    log << "End of node results\n"
        << "Wall time 0.01 s\n";
    std::ofstream(argv[2]) << log.str();
    messages << "NOTE: converged after " << iterations << " iterations, residual "
             << text("%.3e", residual) << "\n";
    return 0;
}
