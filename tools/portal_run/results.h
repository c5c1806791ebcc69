// What a design left: its record in "result.toml" in its run folder, and the
// study's results in "results.csv" and "summary.txt". A record is written to
// a temporary name and renamed into place, so a record that exists is whole:
// a design interrupted half-way has none and runs again.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "designs.h"
#include "study.h"

namespace portalrun {

struct DesignResult {
    int design = 0;
    std::string status;  // "ok" or "failed"
    std::string reason;  // why it failed; empty when ok
    std::vector<std::string> parameters;  // valueText of each, in study order
    std::vector<std::string> responses;   // text of each study response, "" if none
    std::vector<std::string> messages;    // the errors and warnings of the design
    double seconds = 0.0;
};

// "design_0007" for design 7; wider numbers as they come.
std::string runFolderName(int design);

// The parameter texts of a design, as a record holds them.
std::vector<std::string> parameterTexts(const Design& design);

bool writeResult(const std::string& path, const DesignResult& result, std::string& error);
// Nothing when the file is missing or isn't a whole record.
std::optional<DesignResult> readResult(const std::string& path);

// One row per design, in design order; a design without a record is "pending".
bool writeCsv(const std::string& path, const Study& study, const std::vector<Design>& designs,
              const std::vector<std::optional<DesignResult>>& results, std::string& error);

struct Tally {
    int ok = 0, failed = 0, pending = 0, skipped = 0;
};

std::string summaryText(const Study& study, const std::vector<std::optional<DesignResult>>& results,
                        const Tally& tally, double seconds, const std::string& csvPath);

// A CSV field, quoted when it holds a comma, a quote or a line break.
std::string csvField(const std::string& text);

}  // namespace portalrun
