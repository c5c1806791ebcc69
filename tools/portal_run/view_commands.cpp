// Command lines of status and report: the study file names the runs folder
// (or --runs does), whose results.json both read. Neither writes anything
// but the report's own file, so both are safe beside a running study.
#include "view_commands.h"

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>

#include "designs.h"
#include "report_html.h"
#include "results.h"
#include "results_json.h"
#include "status.h"
#include "study.h"
#include "study_run.h"

namespace portalrun {

namespace {

namespace fs = std::filesystem;

struct ViewOptions {
    std::string study;
    std::string runs;
    std::string output;  // report only
};

const char* const kStatusUsage =
    "usage: portal-run status [--runs DIR] STUDY.toml\n"
    "\n"
    "Shows where a study stands, also while it runs in another shell: designs\n"
    "done and failed (with reasons), running and pending, whether the run goes\n"
    "on, and an estimate of the time left. Reads RUNS/results.json.\n";

const char* const kReportUsage =
    "usage: portal-run report [--runs DIR] [-o FILE] STUDY.toml\n"
    "\n"
    "Writes one self-contained HTML page of the study's results (default\n"
    "RUNS/report.html): summary, results table, scatter plots of each scalar\n"
    "response against each parameter, line plots of array responses, and the\n"
    "failed designs with their reasons and messages. Reads RUNS/results.json.\n";

// 0 to go on, -1 after help, else the exit code.
int parse(int argc, char** argv, const char* usage, bool takesOutput, ViewOptions& o) {
    for (int i = 0; i < argc; ++i) {
        std::string a = argv[i];
        std::string value;
        const bool valued = a == "--runs" || (takesOutput && (a == "-o" || a == "--output"));
        if (auto eq = a.find('='); a.rfind("--", 0) == 0 && eq != std::string::npos) {
            value = a.substr(eq + 1);
            a = a.substr(0, eq);
        } else if (valued) {
            if (i + 1 >= argc) return std::fprintf(stderr, "portal-run: %s needs a value\n", a.c_str()), kExitUsage;
            value = argv[++i];
        }
        if (a == "-h" || a == "--help") {
            std::fputs(usage, stdout);
            return -1;
        }
        if (a == "--runs") o.runs = value;
        else if (takesOutput && (a == "-o" || a == "--output")) o.output = value;
        else if (a.size() > 1 && a[0] == '-')
            return std::fprintf(stderr, "portal-run: unknown option '%s'\n%s", a.c_str(), usage), kExitUsage;
        else if (!o.study.empty())
            return std::fprintf(stderr, "portal-run: one study at a time\n%s", usage), kExitUsage;
        else o.study = a;
    }
    if (o.study.empty()) return std::fprintf(stderr, "portal-run: no study file given\n%s", usage), kExitUsage;
    return 0;
}

// The study, for its runs folder; 0 or the exit code.
int loadFor(const ViewOptions& o, Study& study) {
    try {
        study = loadStudy(o.study);
    } catch (const StudyError& e) {
        std::fprintf(stderr, "portal-run: %s\n", e.what());
        return kExitStudy;
    }
    if (!o.runs.empty()) study.runs = fs::absolute(o.runs).lexically_normal().string();
    return 0;
}

double epochNow() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace

int statusCommand(int argc, char** argv) {
    ViewOptions o;
    if (int rc = parse(argc, argv, kStatusUsage, false, o)) return rc < 0 ? kExitOk : rc;
    Study study;
    if (int rc = loadFor(o, study)) return rc;
    const std::string path = (fs::path(study.runs) / "results.json").string();
    std::error_code ec;
    if (!fs::exists(path, ec)) {
        std::string count;
        try {
            count = countOf(generateDesigns(study).size(), "design");
        } catch (const StudyError& e) {
            std::fprintf(stderr, "portal-run: %s\n", e.what());
            return kExitStudy;
        }
        std::printf("study %s: not run yet (no %s); %s pending\n", study.name.c_str(), path.c_str(),
                    count.c_str());
        return kExitOk;
    }
    ResultsFile results;
    std::string error;
    if (!readResultsJson(path, results, error)) {
        std::fprintf(stderr, "portal-run: %s\n", error.c_str());
        return kExitResults;
    }
    std::fputs(statusText(results, runnerLiveness(results.runner), epochNow()).c_str(), stdout);
    return kExitOk;
}

int reportCommand(int argc, char** argv) {
    ViewOptions o;
    if (int rc = parse(argc, argv, kReportUsage, true, o)) return rc < 0 ? kExitOk : rc;
    Study study;
    if (int rc = loadFor(o, study)) return rc;
    ResultsFile results;
    std::string error;
    if (!readResultsJson((fs::path(study.runs) / "results.json").string(), results, error)) {
        std::fprintf(stderr, "portal-run: %s\n", error.c_str());
        return kExitResults;
    }
    const std::string out = o.output.empty() ? (fs::path(study.runs) / "report.html").string() : o.output;
    if (!writeFileDurably(out, reportHtml(results), error)) {
        std::fprintf(stderr, "portal-run: %s\n", error.c_str());
        return kExitWrite;
    }
    std::printf("report: %s\n", out.c_str());
    return kExitOk;
}

}  // namespace portalrun
