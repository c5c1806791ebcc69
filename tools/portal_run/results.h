// What a design left: its record in "result.toml" in its run folder, and the
// study's results in "results.csv" and "summary.txt". A record is written to
// a temporary name and renamed into place, so a record that exists is whole:
// a design interrupted half-way has none and runs again.
#pragma once

#include <map>
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
    // By name, so that a study whose parameters or responses were
    // reordered still finds each value under its own column.
    std::map<std::string, std::string> parameters;  // valueText of each
    std::map<std::string, std::string> responses;   // text of each study response, "" if none
    std::vector<std::string> messages;              // the errors and warnings of the design
    double seconds = 0.0;
    // The identity of the study that made the record: part name -> hash.
    std::map<std::string, std::string> identity;
};

// "design_0007" for design 7; wider numbers as they come.
std::string runFolderName(int design);
// Whether a name is one runFolderName gives: a user's "design_notes" is not.
bool isRunFolderName(const std::string& name);

// The parameter texts of a design in study order, as the CSV shows them.
std::vector<std::string> parameterTexts(const Design& design);

// The same by parameter name, as a record keeps them.
std::map<std::string, std::string> parameterValues(const Study& study, const Design& design);

// "1 design", "3 designs".
std::string countOf(std::size_t n, const char* noun);

bool writeResult(const std::string& path, const DesignResult& result, std::string& error);
// Nothing when the file is missing or isn't a whole record.
std::optional<DesignResult> readResult(const std::string& path);

// One row per design, in design order; a design without a record is "pending".
bool writeCsv(const std::string& path, const Study& study, const std::vector<Design>& designs,
              const std::vector<std::optional<DesignResult>>& results, std::string& error);

struct Tally {
    int ok = 0, failed = 0, pending = 0, skipped = 0;
    // Designs that had a record and ran again, by cause, in order of first use.
    std::vector<std::pair<std::string, int>> rerun;
    void countRerun(const std::string& cause);
};

std::string summaryText(const Study& study, const std::vector<std::optional<DesignResult>>& results,
                        const Tally& tally, double seconds, const std::string& csvPath);

// A CSV field, quoted when it holds a comma, a quote or a line break.
std::string csvField(const std::string& text);

}  // namespace portalrun
