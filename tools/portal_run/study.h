// The study as portal-run reads it from a TOML file: the parameters and how
// designs are made from them, the files of a design, the solver command, the
// responses, and the settings and properties the portal may ask the host for.
// loadStudy either gives a complete, checked study or throws StudyError with a
// message that names the file, the line and the key; nothing half-read leaks.
#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace portalrun {

class StudyError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// One value of a parameter. Which member counts follows from the kind.
struct Value {
    enum class Kind { Real, Integer, Text };
    Kind kind = Kind::Real;
    double real = 0.0;
    long long integer = 0;
    std::string text;

    static Value ofReal(double v) { return {Kind::Real, v, 0, {}}; }
    static Value ofInteger(long long v) { return {Kind::Integer, 0.0, v, {}}; }
    static Value ofText(std::string v) { return {Kind::Text, 0.0, 0, std::move(v)}; }
};

enum class ParamType { Real, Integer, Text };

struct Parameter {
    std::string name;
    ParamType type = ParamType::Real;
    // Given values: one ("value"), a list ("values") or a range ("from"/"to").
    std::vector<Value> values;
    // Bounds of a parameter that a Latin hypercube samples ("min"/"max");
    // values is empty then.
    bool bounded = false;
    double min = 0.0;
    double max = 0.0;
    int line = 0;  // where its table begins in the study file; 0 when not from a file
};

// An input or output file of a design with its tag definition file. file is
// absolute for inputs; for outputs it is as written (relative to the run
// folder unless absolute). tags is absolute or empty.
struct FileSpec {
    std::string file;
    std::string tags;
};

struct Response {
    std::string name;
    bool numeric = true;
};

enum class Method { Grid, List, Lhs };

// Where the designs run: worker processes on this machine, or the tasks of a
// Slurm job array. The Slurm settings are what each task asks for; empty
// texts and 0 leave Slurm's defaults.
enum class SchedulerKind { Local, Slurm };

struct SlurmSettings {
    std::string partition;
    std::string time;    // per design, in sbatch's --time form
    int cpus = 0;        // per design
    std::string memory;  // per design, in sbatch's --mem form
    std::vector<std::string> options;  // further sbatch options, each one word
};

struct Study {
    std::string path;  // the study file, absolute
    std::string file;  // the study file as it was named: messages use it
    std::string dir;   // its folder, absolute
    std::string name;  // the analysis name
    std::string runs;  // folder of the run folders, absolute
    std::string portal = "ZeltraSDF";
    std::string version = "1";

    std::string command;
    double timeLimit = 0.0;  // seconds; 0 means none
    double killGrace = 2.0;  // seconds from SIGTERM to SIGKILL

    Method method = Method::Grid;
    long long samples = 0;
    std::uint64_t seed = 1;

    SchedulerKind scheduler = SchedulerKind::Local;
    SlurmSettings slurm;

    std::vector<Parameter> parameters;
    std::vector<FileSpec> inputs;
    std::vector<FileSpec> outputs;
    std::vector<Response> responses;
    std::map<std::string, std::string> settings;
    std::map<std::string, std::map<std::string, std::string>> properties;
};

// Reads and checks a study file. Throws StudyError. tagsMayBeMissing lets
// a named tag file be absent (bind creates it).
Study loadStudy(const std::string& path, bool tagsMayBeMissing = false);

// The same from a text; path names the file in messages and anchors relative
// paths. Throws StudyError.
Study parseStudy(std::string_view text, const std::string& path);

}  // namespace portalrun
