// beam-solver: the example solver's program. Reads the input, solves, writes
// the SDF results and leaves its messages for the portal.
//
// The messages file is written on every run, also a failed one, and holds
// only this run's messages. On bad input no results file is left behind, not
// even one of an earlier run, so that nobody reads stale results.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "beam.h"

namespace {

const char* const kUsage =
    "usage: beam-solver [--messages FILE] INPUT OUTPUT.sdf\n"
    "\n"
    "Solves a tip-loaded cantilever beam (Euler-Bernoulli) described by INPUT\n"
    "and writes the results to OUTPUT.sdf. Messages for the user (NOTE:,\n"
    "WARNING:, ERROR: lines) go to FILE, by default analysis_execution.messages\n"
    "in the working folder.\n"
    "\n"
    "INPUT holds \"key = value\" lines (\"#\" starts a comment), SI units:\n"
    "  length, width, height [m], youngs_modulus [Pa], load [N]   (required)\n"
    "  density [kg/m^3] (7850), yield_stress [Pa] (250e6), stations (21)\n"
    "\n"
    "Exit codes: 0 solved; 1 bad input (see the ERROR: messages);\n"
    "2 wrong command line; 3 the results or messages could not be written.\n";

std::string fmt(const char* f, double v) {
    char buf[64];
    std::snprintf(buf, sizeof buf, f, v);
    return buf;
}

void judge(const beam::BeamInput& in, const beam::BeamResult& r, beam::Messages& msgs) {
    if (in.length / in.height < 10)
        msgs.warning("short beam (length/height = " + fmt("%.3g", in.length / in.height) +
                     "): bending theory underestimates the deflection");
    if (in.load == 0) msgs.warning("no load: every result but mass and frequency is zero");
    if (r.overstressed > 0)
        msgs.warning("stress passes the yield stress at " + std::to_string(r.overstressed) + " of " +
                     std::to_string(in.stations) + " stations (safety factor " + fmt("%.3g", r.safetyFactor) + ")");
    msgs.note("tip deflection " + fmt("%.6g", r.tipDeflection) + " m, max stress " + fmt("%.6g", r.maxStress) +
              " Pa, first frequency " + fmt("%.6g", r.frequency) + " Hz");
}

}  // namespace

int main(int argc, char** argv) {
    std::string messagesPath = "analysis_execution.messages";
    std::vector<std::string> args;
    for (int i = 1; i < argc; i++) {
        if (!std::strcmp(argv[i], "--help") || !std::strcmp(argv[i], "-h")) {
            std::fputs(kUsage, stdout);
            return 0;
        }
        if (!std::strcmp(argv[i], "--messages") && i + 1 < argc) messagesPath = argv[++i];
        else args.push_back(argv[i]);
    }
    if (args.size() != 2) {
        std::fputs(kUsage, stderr);
        return 2;
    }
    const std::string& inputPath = args[0];
    const std::string& outputPath = args[1];

    beam::Messages msgs;
    beam::BeamInput in;
    beam::readInput(inputPath, in, msgs);
    int code = 0;
    if (msgs.hasErrors()) {
        std::error_code ec;
        std::filesystem::remove(outputPath, ec);
        code = 1;
    } else {
        beam::BeamResult r = beam::solveBeam(in);
        judge(in, r, msgs);
        if (int rc = beam::writeResults(outputPath, in, r)) {
            msgs.error("cannot write the results to " + outputPath + " (SDF code " + std::to_string(rc) + ")");
            code = 3;
        }
    }
    // Led by the program's name, these lines don't count as messages a
    // second time for whoever collects the solver's output.
    for (const std::string& l : msgs.lines()) std::printf("beam-solver: %s\n", l.c_str());
    if (!msgs.save(messagesPath)) {
        std::fprintf(stderr, "beam-solver: cannot write the messages to %s\n", messagesPath.c_str());
        return 3;
    }
    return code;
}
