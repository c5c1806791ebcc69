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
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <list>
#include <map>
#include <string>
#include <system_error>
#include <vector>

#include "tagging_bench_util.h"

namespace {

namespace fs = std::filesystem;
using MOSAQ::Portals::MarkTagging;
using MOSAQ::Portals::TagData;
using namespace zeltra_bench;

constexpr int kTagCount = 10000;
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
class DeckContext : public BenchContext {
public:
    explicit DeckContext(int count) : BenchContext("TaggingBench") {
        values_.reserve(static_cast<std::size_t>(count));
        for (int i = 0; i < count; ++i) values_.push_back(designValue(i));
    }
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

private:
    StringList values_;
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
void appendLine(TextWriter& out, long row, Rng& rng) {
    if (fixedRow(row)) {
        out.appendf("%-8s%8u%8u%8.4f%8.3f%8.3f%8u%8.2f%8u\n", kFixedCards[rng.next() % 4],
                    rng.next() % 900000 + 100000, rng.next() % 9000 + 1, rng.unit(),
                    100.0 * rng.unit() - 50.0, 100.0 * rng.unit() - 50.0, rng.next() % 7,
                    10.0 * rng.unit(), rng.next() % 100);
    } else if (row % 97 == 1) {
        out.appendf("$ ---- load set %u, subcase %u, block %ld ----\n", rng.next() % 100,
                    rng.next() % 20, row / 97);
    } else {
        out.appendf("  %s  %u  %.4f %.3f %.3f  %u  %.4f %.4f\n", kFreeCards[rng.next() % 6],
                    rng.next() % 900000 + 100000, rng.unit(), 100.0 * rng.unit() - 50.0,
                    100.0 * rng.unit() - 50.0, rng.next() % 7, rng.unit(), 10.0 * rng.unit());
    }
}

// Writes a deck of about `bytes` bytes; answers its number of lines.
long writeDeck(const fs::path& path, std::uint64_t bytes) {
    TextWriter out(path);
    Rng rng;
    long row = 0;
    while (out.size() < bytes) appendLine(out, ++row, rng);
    out.finish();
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

std::list<TagData> tagsOf(const String& fileName, const std::vector<PlannedTag>& plan) {
    std::list<TagData> tags;
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
    return tags;
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

int run(int argc, char** argv) {
    const double megabytes = sizeArgument(argc, argv, "size in MB", 100);
    const ScratchFolder scratch = makeScratch("zeltra_tagging_bench");
    const fs::path deck = scratch.path / "deck.dat";
    const fs::path pristine = scratch.path / "deck.pristine";
    const fs::path copy = scratch.path / "deck.copy";

    const long lines = writeDeck(pristine, static_cast<std::uint64_t>(megabytes * 1e6));
    const double bytes = static_cast<double>(fs::file_size(pristine));
    const std::vector<PlannedTag> plan = planTags(lines);

    DeckContext context(kTagCount);
    BenchHost host(context);
    const fs::path tagFile = writeInputTagFile<MarkTagging>(
        host, deck.string(), tagsOf(deck.string(), plan), scratch.path);
    std::printf("deck: %.1f MB, %ld lines, %zu tags\n", bytes / 1e6, lines, plan.size());

    const BestTimes best = bestOf(
        [&] { return timeLineCopy(pristine, copy); },
        [&] { return timeInputTagging<MarkTagging>(host, pristine, deck, tagFile); });
    const bool good = checkTagged(deck, lines, plan);
    printRates("tagging", bytes, best, 0.5);
    if (!good) fail("the tagged deck doesn't hold the expected values", 2);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return guardedMain([&] { return run(argc, argv); });
}
