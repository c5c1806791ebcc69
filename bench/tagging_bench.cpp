// Throughput of the mark module's input rewrite (MarkTagging::tagInputs)
// against a plain line-by-line copy of the same file, measured in the same
// run so the ratio says how much the tagging costs over the bare I/O, whatever
// the machine and its disk.
//
//   tagging_bench [size in MB, default 100]
//
// The input is a generated solver deck of free-format and fixed-format cards
// with 10,000 tags spread evenly over it (a few lines carry two). Each side
// runs three times, interleaved, and the best time counts. Tagging rewrites
// the deck in place, so the deck is restored from a pristine copy (untimed)
// before every tagging run. MB are 10^6 bytes of the input file.
//
// Exit status: 0 when the tagging ran clean, 1 when it reported an error,
// 2 when the rewritten deck doesn't hold the values it should.
#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <system_error>
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
using MOSAQ::Portals::MarkTagging;
using MOSAQ::Portals::PropertyItem;
using MOSAQ::Portals::ResponseValues;
using MOSAQ::Portals::TagData;

constexpr int kTagCount = 10000;
constexpr int kRuns = 3;
// Every fixed-format card has 8-column fields; the design values are 8
// characters long so a fixed tag fills its field exactly, without the
// fitting warning that a deck built for the study wouldn't trigger either.
constexpr int kFieldWidth = 8;

// Parameter p<i> has a value of its own, so the check after the run can tell
// one tag's value from another's.
String designValue(int index) {
    char text[32];
    std::snprintf(text, sizeof text, "%.6f", 1.0 + index * 1e-4);
    return text;
}

// The study context: answers every design value from a table built up front,
// so the host's share of the measured time is a lookup.
class BenchContext : public IPortalContext {
public:
    explicit BenchContext(int count) {
        values_.reserve(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i) values_.push_back(designValue(i));
    }
    String getType() override { return "Portal"; }
    String getName() override { return "TaggingBench"; }
    IProperties& getProperties() override { return properties_; }
    void* getInterface(int) override { return nullptr; }

    String getDesignValue(const String&, const String& paramName, const String&, const String&,
                          String& errors) override {
        std::size_t index = 0;
        const char* first = paramName.data() + (paramName.empty() ? 0 : 1);
        const char* last = paramName.data() + paramName.size();
        const auto [end, ec] = std::from_chars(first, last, index);
        if (ec != std::errc() || end != last || index >= values_.size()) {
            errors += "ERROR: no design value for " + paramName + "\n";
            return "0";
        }
        return values_[index];
    }
    void getAnalysisProperties(const String&, const String&, StringStringMap&) override {}
    void reportResponse(const String&, const StringStringMap&, const ResponseValues&) override {}

private:
    IProperties properties_;
    StringList values_;
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

// A small, fast generator: the deck only has to look varied, not be random.
class Rng {
public:
    std::uint32_t next() {
        state_ ^= state_ << 13;
        state_ ^= state_ >> 7;
        state_ ^= state_ << 17;
        return static_cast<std::uint32_t>(state_ >> 11);
    }
    double unit() { return (next() % 1000000) / 1000000.0; }

private:
    std::uint64_t state_ = 0x9e3779b97f4a7c15ULL;
};

// Rows whose number is a multiple of 4 hold fixed-format cards, the others
// free-format ones, so a tag's mode follows from its row.
bool fixedRow(long row) { return row % 4 == 0; }

constexpr const char* kFreeCards[] = {"GRID", "CQUAD4", "CTRIA3", "CBAR", "FORCE", "PSHELL"};
constexpr const char* kFixedCards[] = {"GRID", "CQUAD4", "CBEAM", "MOMENT"};

// Free cards: "  CQUAD4  104233  0.4121 12.507 -3.886  2  0.0412 7.2155" and
// the like, blank-separated, tokens 3..5 numbers. Fixed cards: nine 8-column
// fields, fields 4..6 numbers.
void appendLine(String& out, long row, Rng& rng) {
    char text[160];
    int n = 0;
    if (fixedRow(row)) {
        n = std::snprintf(text, sizeof text, "%-8s%8u%8u%8.4f%8.3f%8.3f%8u%8.2f%8u\n",
                          kFixedCards[rng.next() % 4], rng.next() % 900000 + 100000,
                          rng.next() % 9000 + 1, rng.unit(), 100.0 * rng.unit() - 50.0,
                          100.0 * rng.unit() - 50.0, rng.next() % 7, 10.0 * rng.unit(),
                          rng.next() % 100);
    } else if (row % 97 == 1) {
        n = std::snprintf(text, sizeof text, "$ ---- load set %u, subcase %u, block %ld ----\n",
                          rng.next() % 100, rng.next() % 20, row / 97);
    } else {
        n = std::snprintf(text, sizeof text, "  %s  %u  %.4f %.3f %.3f  %u  %.4f %.4f\n",
                          kFreeCards[rng.next() % 6], rng.next() % 900000 + 100000, rng.unit(),
                          100.0 * rng.unit() - 50.0, 100.0 * rng.unit() - 50.0,
                          rng.next() % 7, rng.unit(), 10.0 * rng.unit());
    }
    out.append(text, static_cast<std::size_t>(n));
}

// Writes a deck of about `bytes` bytes; answers its number of lines.
long writeDeck(const fs::path& path, std::uint64_t bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    Rng rng;
    String chunk;
    chunk.reserve(1 << 20);
    std::uint64_t written = 0;
    long row = 0;
    while (written < bytes) {
        appendLine(chunk, ++row, rng);
        if (chunk.size() >= (1u << 20) - 200 || written + chunk.size() >= bytes) {
            out.write(chunk.data(), static_cast<std::streamsize>(chunk.size()));
            written += chunk.size();
            chunk.clear();
        }
    }
    out.close();
    if (!out) {
        std::cerr << "cannot write " << path << "\n";
        std::exit(1);
    }
    return row;
}

struct PlannedTag {
    long row;
    bool fixed;
    int col;
    int index;  // parameter p<index>
};

// kTagCount tags over `lines` rows, evenly spaced; every 50th tagged row that
// holds a free card gets a second tag. Comment rows are stepped over.
std::vector<PlannedTag> planTags(long lines) {
    const long stride = std::max(1L, lines / (kTagCount - kTagCount / 50));
    std::vector<PlannedTag> plan;
    int index = 0;
    for (long row = 1, k = 0; row <= lines && index < kTagCount; row += stride, ++k) {
        long r = row;
        if (!fixedRow(r) && r % 97 == 1) ++r;
        if (r > lines) break;
        if (fixedRow(r)) {
            plan.push_back({r, true, 4 + static_cast<int>(k % 3), index++});
        } else {
            plan.push_back({r, false, 3 + static_cast<int>(k % 3), index++});
            if (k % 50 == 0 && index < kTagCount) plan.push_back({r, false, 7, index++});
        }
    }
    return plan;
}

// The tag file, written by the module's own writer, as the framework would.
bool writeTagFile(MarkTagging& module, const fs::path& deck, const fs::path& folder,
                  const std::vector<PlannedTag>& plan, fs::path& tagFile) {
    std::list<TagData> tags;
    const String fileName = deck.string();
    for (const PlannedTag& p : plan) {
        TagData tag;
        tag.paramName = "p" + std::to_string(p.index);
        tag.paramType = "Double";
        tag.path = {"deck", std::to_string(p.row), std::to_string(p.col)};
        tag.properties = {{"filename", fileName, ""},
                          {"mode", p.fixed ? "fixed" : "free", ""},
                          {"row", std::to_string(p.row), ""},
                          {"delims", p.fixed ? std::to_string(kFieldWidth) : "\\s", ""},
                          {"col", std::to_string(p.col), ""},
                          {"format", "%g", ""}};
        tags.push_back(std::move(tag));
    }
    const StringStringMap data{{"analysisName", "bench"},
                               {"destDir", folder.string()},
                               {"version", "1"}};
    StringStringMap outputs;
    String errors;
    if (!module.writeInputTagging(fileName, tags, data, outputs, errors)) {
        std::cerr << "cannot write the tag file:\n" << errors;
        return false;
    }
    tagFile = folder / outputs[fileName + "_intagfile"];
    return true;
}

// One tagging run on a freshly restored deck, through a module of its own so
// the tag file is read each time too. False when the module reported an error.
bool timeTagging(IPortalHost& host, const fs::path& pristine, const fs::path& deck,
                 const fs::path& tagFile, double& elapsed, String& errors) {
    fs::copy_file(pristine, deck, fs::copy_options::overwrite_existing);
    const StringStringMap data{{"inputFilepaths", deck.string()},
                               {"inputTagFilepaths", tagFile.string()}};
    errors.clear();
    const auto begin = std::chrono::steady_clock::now();
    MarkTagging module(&host);
    const bool ok = module.tagInputs(data, nullptr, errors);
    elapsed = seconds(std::chrono::steady_clock::now() - begin);
    return ok && !MarkTagging::hasError(errors);
}

// Reads the rewritten deck once and checks every 500th tag (and the last):
// the token must hold the parameter's value; the deck keeps its line count.
bool checkTagged(const fs::path& deck, long lines, const std::vector<PlannedTag>& plan) {
    std::multimap<long, PlannedTag> wanted;
    for (std::size_t i = 0; i < plan.size(); ++i)
        if (i % 500 == 0 || i + 1 == plan.size()) wanted.insert({plan[i].row, plan[i]});
    std::ifstream in(deck, std::ios::binary);
    String line;
    long row = 0;
    int checked = 0;
    bool good = true;
    while (std::getline(in, line)) {
        ++row;
        auto [first, last] = wanted.equal_range(row);
        for (auto it = first; it != last; ++it) {
            const PlannedTag& p = it->second;
            String token;
            if (p.fixed) {
                const std::size_t start = static_cast<std::size_t>((p.col - 1) * kFieldWidth);
                if (start < line.size()) token = line.substr(start, kFieldWidth);
            } else {
                const StringList tokens = MarkTagging::splitTokens(line, " ");
                if (p.col <= static_cast<int>(tokens.size()))
                    token = tokens[static_cast<std::size_t>(p.col - 1)];
            }
            const String expected = designValue(p.index);
            if (token != expected) {
                std::cerr << "row " << row << " col " << p.col << ": found \"" << token
                          << "\", expected \"" << expected << "\"\n";
                good = false;
            }
            ++checked;
        }
    }
    if (row != lines) {
        std::cerr << "the tagged deck has " << row << " lines, the original " << lines << "\n";
        good = false;
    }
    if (checked != static_cast<int>(wanted.size())) {
        std::cerr << "only " << checked << " of " << wanted.size() << " checked rows found\n";
        good = false;
    }
    return good;
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
                          ("zeltra_tagging_bench_" + std::to_string(::getpid()))};
    fs::create_directories(scratch.path);
    const fs::path deck = scratch.path / "deck.dat";
    const fs::path pristine = scratch.path / "deck.pristine";
    const fs::path copy = scratch.path / "deck.copy";

    const long lines = writeDeck(pristine, static_cast<std::uint64_t>(megabytes * 1e6));
    const double bytes = static_cast<double>(fs::file_size(pristine));
    const std::vector<PlannedTag> plan = planTags(lines);

    BenchContext context(kTagCount);
    BenchHost host(context);
    fs::path tagFile;
    {
        MarkTagging writer(&host);
        if (!writeTagFile(writer, deck, scratch.path, plan, tagFile)) return 1;
    }
    std::printf("deck: %.1f MB, %ld lines, %zu tags\n", bytes / 1e6, lines, plan.size());

    double bestCopy = 1e300, bestTagging = 1e300;
    String errors;
    for (int run = 0; run < kRuns; ++run) {
        bestCopy = std::min(bestCopy, timeLineCopy(pristine, copy));
        double elapsed = 0;
        if (!timeTagging(host, pristine, deck, tagFile, elapsed, errors)) {
            std::cerr << "tagging failed:\n" << errors;
            return 1;
        }
        bestTagging = std::min(bestTagging, elapsed);
    }

    const bool good = checkTagged(deck, lines, plan);

    const double taggingRate = bytes / 1e6 / bestTagging;
    const double copyRate = bytes / 1e6 / bestCopy;
    std::printf("tagging: %.1f MB/s  copy: %.1f MB/s  ratio: %.2f (target >= 0.5)\n", taggingRate,
                copyRate, taggingRate / copyRate);
    if (!good) {
        std::cerr << "the tagged deck doesn't hold the expected values\n";
        return 2;
    }
    return 0;
}
