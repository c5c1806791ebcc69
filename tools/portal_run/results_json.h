// "results.json": the study's results as a queryable record, written beside
// results.csv after every change in the run (a design started or finished)
// and read back by `portal-run status` and `portal-run report`. The file is
// replaced by rename after an fsync, so a reader in another process sees the
// last whole file or the one before, never half of one. JSON has no NaN or
// infinity: such a value is written as null and named, with its text, in the
// design's "nonfinite" list. The fields are described in docs/results.md.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "designs.h"
#include "results.h"
#include "study.h"

namespace portalrun {

inline constexpr const char* kResultsJsonFormat = "portal-run results 1";

// The runner that writes the file, so that status can tell a run that goes
// on from one that died.
struct RunnerInfo {
    long long pid = 0;
    std::string host;
    int jobs = 1;
    std::string state;  // "running", "finished" or "interrupted"
};

// What the runner knows about each design: its record once it has one, and
// when it started (seconds since the epoch) while it runs.
struct JsonInput {
    const Study* study = nullptr;
    const std::vector<Design>* designs = nullptr;
    const std::vector<std::optional<DesignResult>>* results = nullptr;
    std::vector<std::optional<double>> started;  // by design index; set while running
    RunnerInfo runner;
    double now = 0.0;  // seconds since the epoch
};

std::string resultsJsonText(const JsonInput& in);

// Writes text to path whole or not at all: a temporary file in the same
// folder, fsync, rename, fsync of the folder.
bool writeFileDurably(const std::string& path, const std::string& text, std::string& error);

// One value as results.json holds it.
struct Cell {
    enum class Kind { Missing, Number, Array, Text };
    Kind kind = Kind::Missing;
    double number = 0.0;
    std::vector<std::optional<double>> array;  // nothing where the value was not finite
    std::string text;
};

struct DesignEntry {
    int design = 0;
    std::string status;  // "ok", "failed", "running" or "pending"
    std::string reason;
    std::optional<double> seconds;
    std::optional<double> started;
    std::vector<Cell> parameters;  // in the order of ResultsFile::parameters
    std::vector<Cell> responses;   // in the order of ResultsFile::responses
    std::vector<std::string> messages;
    std::map<std::string, std::string> nonfinite;  // name -> "inf", or "[3] nan, [4] -inf"
};

struct Column {
    std::string name;
    std::string type;  // parameters: "real", "integer", "text"; responses: "numeric", "text"
};

struct ResultsFile {
    std::string study;
    std::string studyFile;
    RunnerInfo runner;
    double updated = 0.0;
    std::vector<Column> parameters;
    std::vector<Column> responses;
    std::vector<DesignEntry> designs;
};

// Reads and checks a results.json text; false with a reason that names the
// offending field. name is the file's name for the messages.
bool parseResultsJson(const std::string& text, const std::string& name, ResultsFile& out,
                      std::string& error);

// The file at path; false with a reason when it is missing or not whole.
bool readResultsJson(const std::string& path, ResultsFile& out, std::string& error);

// Splits a record's response text (values joined by ';') into numbers; false
// when a part is not a number, which leaves the text as it is.
bool responseNumbers(const std::string& text, std::vector<double>& out);

}  // namespace portalrun
