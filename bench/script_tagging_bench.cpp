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
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <string>
#include <unistd.h>
#include <vector>

#include "zeltra/tagging.h"

#include "bench_util.h"

using zeltra_bench::ScratchFolder;
using zeltra_bench::seconds;
using zeltra_bench::timeLineCopy;

namespace {

namespace fs = std::filesystem;
using MOSAQ::IExtension;
using MOSAQ::IProperties;
using MOSAQ::String;
using MOSAQ::StringList;
using MOSAQ::StringStringMap;
using MOSAQ::Portals::IPortalContext;
using MOSAQ::Portals::IPortalHost;
using MOSAQ::Portals::ResponseValues;
using MOSAQ::Portals::ScriptTagging;

constexpr int kRuns = 3;
constexpr int kColumnRows = 500;
constexpr int kLoopRows = 500;

// Table row n (from 1) holds these two values.
double firstValue(int n) { return n * 0.25; }
double secondValue(int n) { return -1000.0 + n; }

// Answers every response as numeric and keeps what the module reports.
class BenchContext : public IPortalContext {
public:
    std::map<String, ResponseValues> reported;
    int failures = 0;

    String getType() override { return "Portal"; }
    String getName() override { return "ScriptBench"; }
    IProperties& getProperties() override { return properties_; }
    void* getInterface(int) override { return nullptr; }
    String getDesignValue(const String&, const String&, const String&, const String&,
                          String&) override {
        return {};
    }
    void getAnalysisProperties(const String&, const String&, StringStringMap& values) override {
        values["responseDataType"] = "Numeric";
    }
    void reportResponse(const String& name, const StringStringMap& info,
                        const ResponseValues& values) override {
        if (info.count("errorInCall")) ++failures;
        reported[name] = values;
    }

private:
    IProperties properties_;
};

class BenchHost : public IPortalHost {
public:
    explicit BenchHost(BenchContext& context) : context_(context) {}
    void logMessage(const String&, const String&, int, int) override {}
    void reportProgress(int, int, const String&, int) override {}
    void resolveFolder(const String&, StringList&, String&, const StringStringMap&) override {}
    String getInstallFolder() override { return {}; }
    String getSetting(const String&, const String& defaultValue) override { return defaultValue; }
    IExtension* findExtension(const String& type) override {
        return type == "Portal" ? &context_ : nullptr;
    }

private:
    BenchContext& context_;
};

// An iteration history of about `bytes` bytes, then the labelled table and a
// short tail. Answers the number of lines.
long writeLog(const fs::path& path, std::uint64_t bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    String chunk;
    chunk.reserve(1 << 20);
    std::uint64_t written = 0;
    long lines = 0;
    char text[160];
    auto flush = [&] {
        out.write(chunk.data(), static_cast<std::streamsize>(chunk.size()));
        written += chunk.size();
        chunk.clear();
    };
    for (long it = 1; written + chunk.size() < bytes; ++it, ++lines) {
        const int n = std::snprintf(text, sizeof text,
                                    "  iter %9ld  residual %.6e  dt %.4e  cfl %.3f  flux %.5e\n",
                                    it, std::exp(-1e-6 * double(it)), 1e-3 / double(1 + it % 7),
                                    0.5 + double(it % 100) / 200, double(it % 977) * 1.5e-3);
        chunk.append(text, static_cast<std::size_t>(n));
        if (chunk.size() > (1u << 20) - 200) flush();
    }
    chunk += "Final results\n";
    ++lines;
    for (int n = 1; n <= kColumnRows + kLoopRows; ++n, ++lines) {
        const int k = std::snprintf(text, sizeof text, "  node %6d  %.4f  %.4f\n", n,
                                    firstValue(n), secondValue(n));
        chunk.append(text, static_cast<std::size_t>(k));
    }
    chunk += "End of results\nrun time 12.5 s\n";
    lines += 2;
    flush();
    out.close();
    if (!out) {
        std::cerr << "cannot write " << path << "\n";
        std::exit(1);
    }
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

bool checkValues(const BenchContext& context) {
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

}  // namespace

int main(int argc, char** argv) {
    double megabytes = 100;
    if (argc > 1) {
        char* end = nullptr;
        megabytes = std::strtod(argv[1], &end);
        if (end == argv[1] || *end || !(megabytes > 0)) {
            std::cerr << "usage: " << argv[0] << " [size in MB, default 100]\n";
            return 1;
        }
    }
    ScratchFolder scratch{fs::temp_directory_path() /
                          ("zeltra_script_bench_" + std::to_string(::getpid()))};
    fs::create_directories(scratch.path);
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
    double bestCopy = 1e300, bestScript = 1e300;
    bool good = true;
    for (int run = 0; run < kRuns; ++run) {
        bestCopy = std::min(bestCopy, timeLineCopy(log, copy));
        BenchContext context;
        BenchHost host(context);
        String errors;
        const auto begin = std::chrono::steady_clock::now();
        ScriptTagging module(&host);
        const bool ok = module.tagOutputs(data, nullptr, errors);
        bestScript = std::min(bestScript, seconds(std::chrono::steady_clock::now() - begin));
        if (!ok) {
            std::cerr << "the script failed:\n" << errors << "\n";
            return 1;
        }
        good = good && checkValues(context);
    }
    const double scriptRate = bytes / 1e6 / bestScript;
    const double copyRate = bytes / 1e6 / bestCopy;
    std::printf("script: %.1f MB/s  copy: %.1f MB/s  ratio: %.2f (target >= 0.3)\n", scriptRate,
                copyRate, scriptRate / copyRate);
    if (!good) {
        std::cerr << "the values read don't match the log\n";
        return 2;
    }
    return 0;
}
