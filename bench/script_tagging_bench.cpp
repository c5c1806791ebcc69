// Throughput of the script module's output side (ScriptTagging::tagOutputs)
// on a large solver log against a plain line-by-line copy of the same file,
// measured in the same run so the ratio says what the scripts cost over the
// bare I/O, whatever the machine and its disk.
//
//   script_tagging_bench [size in MB, default 100]
//
// The log is a long iteration history with a result table near its end. The
// script finds the table's label with GOTO_STRING, searching down from the
// first line through the whole history, then reads 500 values by
// GET_COLUMN_FREE and 500 more by GET_VALUE_FREE in a LOOP. Each side runs
// three times, interleaved, and the best time counts. MB are 10^6 bytes.
//
// Exit status: 0 when the script ran clean and every value came back right,
// 1 when it reported an error, 2 when the values are wrong.
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

#include "tagging_bench_util.h"

namespace {

namespace fs = std::filesystem;
using MOSAQ::Portals::ResponseValues;
using MOSAQ::Portals::ScriptTagging;
using namespace zeltra_bench;

constexpr int kColumnRows = 500;
constexpr int kLoopRows = 500;

// Table row n (from 1) holds these two values.
double firstValue(int n) { return n * 0.25; }
double secondValue(int n) { return -1000.0 + n; }

// Answers every response as numeric and keeps what the module reports.
class LogContext : public BenchContext {
public:
    std::map<String, ResponseValues> reported;
    int failures = 0;

    LogContext() : BenchContext("ScriptBench") {}
    void getAnalysisProperties(const String&, const String&, StringStringMap& values) override {
        values["responseDataType"] = "Numeric";
    }
    void reportResponse(const String& name, const StringStringMap& info,
                        const ResponseValues& values) override {
        if (info.count("errorInCall")) ++failures;
        reported[name] = values;
    }
};

// An iteration history of about `bytes` bytes, then the labelled table and a
// short tail. Answers the number of lines.
long writeLog(const fs::path& path, std::uint64_t bytes) {
    TextWriter out(path);
    long lines = 0;
    for (long it = 1; out.size() < bytes; ++it, ++lines)
        out.appendf("  iter %9ld  residual %.6e  dt %.4e  cfl %.3f  flux %.5e\n", it,
                    std::exp(-1e-6 * double(it)), 1e-3 / double(1 + it % 7),
                    0.5 + double(it % 100) / 200, double(it % 977) * 1.5e-3);
    out.append("Final results\n");
    ++lines;
    for (int n = 1; n <= kColumnRows + kLoopRows; ++n, ++lines)
        out.appendf("  node %6d  %.4f  %.4f\n", n, firstValue(n), secondValue(n));
    out.append("End of results\nrun time 12.5 s\n");
    lines += 2;
    out.finish();
    return lines;
}

const char* const kTagFile =
    "$ File type, version\nscripting, 1\n$ Tag definition file: solver.log\nSCRIPTING\n"
    "$! Number of tags: 1\n"
    "$! Start tag script\n"
    "SET_PARAMETER_LIST(column, values)\n"
    "GOTO_STRING(Final results, 1)\n"
    "MOVE_DOWN(1)\n"
    "GET_COLUMN_FREE(3, 500, \\s)\n"
    "NEXT_PARAMETER\n"
    "LOOP(500)\n"
    "MOVE_DOWN(1)\n"
    "GET_VALUE_FREE(4, \\s)\n"
    "END_LOOP\n"
    "$! End tag script\n\n";

bool checkValues(const LogContext& context) {
    auto column = context.reported.find("column");
    auto values = context.reported.find("values");
    if (context.failures || column == context.reported.end() || values == context.reported.end() ||
        column->second.numbers.size() != kColumnRows || values->second.numbers.size() != kLoopRows)
        return false;
    for (int n = 1; n <= kColumnRows; ++n)
        if (column->second.numbers[std::size_t(n - 1)] != firstValue(n)) return false;
    for (int n = 1; n <= kLoopRows; ++n)
        if (values->second.numbers[std::size_t(n - 1)] != secondValue(kColumnRows + n))
            return false;
    return true;
}

int run(int argc, char** argv) {
    const double megabytes = sizeArgument(argc, argv, "size in MB", 100);
    const ScratchFolder scratch = makeScratch("zeltra_script_bench");
    const fs::path log = scratch.path / "solver.log";
    const fs::path copy = scratch.path / "solver.copy";
    const fs::path tagFile = scratch.path / "S_out_bench_solver.log";
    const long lines = writeLog(log, static_cast<std::uint64_t>(megabytes * 1e6));
    std::ofstream(tagFile) << kTagFile;
    const double bytes = static_cast<double>(fs::file_size(log));
    std::printf("log: %.1f MB, %ld lines, %d values read\n", bytes / 1e6, lines,
                kColumnRows + kLoopRows);

    const StringStringMap data{{"analysisName", "bench"},
                               {"outputFilepaths", log.string()},
                               {"outputTagFilepaths", tagFile.string()}};
    bool good = true;
    const BestTimes best = bestOf(
        [&] { return timeLineCopy(log, copy); },
        [&] {
            LogContext context;
            BenchHost host(context);
            String errors;
            bool ok = false;
            const double elapsed = timeFreshModule<ScriptTagging>(host, [&](ScriptTagging& m) {
                ok = m.tagOutputs(data, nullptr, errors);
            });
            if (!ok) fail("the script failed:\n" + errors);
            good = good && checkValues(context);
            return elapsed;
        });
    printRates("script", bytes, best, 0.3);
    if (!good) fail("the values read don't match the log", 2);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return guardedMain([&] { return run(argc, argv); });
}
