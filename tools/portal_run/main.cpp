// portal-run: plays the host for the portal plug-in. Reads a study file,
// makes its designs and runs each through the portal and the solver; see
// docs/study-format.md. This file is the command line only: options, the
// help text and the exit codes.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "commands.h"
#include "console.h"
#include "designs.h"
#include "host.h"
#include "plugin.h"
#include "process.h"
#include "results.h"
#include "reuse.h"
#include "scheduler.h"
#include "study.h"
#include "study_run.h"
#include "worker.h"
#include "view_commands.h"

// Where the plug-in lies relative to portal-run's own folder: the same in the
// build tree and in an installed tree, so no build path is compiled in.
#ifndef ZELTRA_PLUGIN_FROM_BIN
#define ZELTRA_PLUGIN_FROM_BIN "../lib/zeltrasdf/libzeltrasdf.so"
#endif

namespace {

using namespace portalrun;

constexpr const char* kNoReadLockVar = "SDF_NO_READ_LOCK";

const char* const kUsage =
    "usage: portal-run [options] STUDY.toml\n"
    "       portal-run status [--runs DIR] STUDY.toml\n"
    "       portal-run report [--runs DIR] [-o FILE] STUDY.toml\n"
    "       portal-run inspect FILE | bind ... | check STUDY.toml  (each with --help)\n"
    "\n"
    "Runs a study: every design of the study file goes through the portal\n"
    "plug-in and the solver in a run folder of its own, and the results end up\n"
    "in RUNS/results.csv and RUNS/results.json with a summary. A re-run goes\n"
    "on where the last one stopped: a design done before is kept when its\n"
    "values, the solver command, the input and tag files, the responses, the\n"
    "settings and the plug-in are all unchanged; any other runs again, and the\n"
    "summary says why. status shows how far a study is, also while it runs;\n"
    "report writes RUNS/report.html (see 'portal-run status --help').\n"
    "\n"
    "options:\n"
    "  -j, --jobs N      run N designs at a time (default 1; under Slurm: no limit\n"
    "                    of portal-run's), each in a process of its own with its\n"
    "                    own portal\n"
    "  --scheduler KIND  local (default) or slurm: hand the designs to Slurm as\n"
    "                    one job array, over the study's [scheduler] type\n"
    "  --worker N        run design N alone in its run folder and record it, as\n"
    "                    each Slurm task does; the CSV is left to the study's run\n"
    "  --plugin PATH     the portal plug-in to load (default: the one that\n"
    "                    comes with portal-run, " ZELTRA_PLUGIN_FROM_BIN "\n"
    "                    from the folder portal-run lies in)\n"
    "  --runs DIR        folder for the run folders and results, instead of the\n"
    "                    study's [study] runs (default \"runs\" beside the study)\n"
    "  --verbose         the host setting verbose = true: the portal logs its steps\n"
    "  --set KEY=VALUE   a host setting, over the study's [settings]\n"
    "  --retry-failed    run designs that failed in an earlier run again\n"
    "  --fresh           remove earlier run folders (design_NNNN) and results first\n"
    "  --dry-run         list the designs, check the study's bindings as\n"
    "                    'portal-run check' does, and stop; exit 3 on errors\n"
    "  --sample-output DIR  with --dry-run: resolve output tags in DIR's outputs\n"
    "  --read-locks      let the portal take SDF read locks on the outputs (off:\n"
    "                    the solver has ended before they are read)\n"
    "  -q, --quiet       show only errors and warnings\n"
    "  -h, --help        this text\n"
    "\n"
    "A small study file:\n"
    "\n"
    "  [solver]\n"
    "  command = \"${study_dir}/solve.sh deck.inp\"   # /bin/sh in the run folder; the\n"
    "                                               # ${...} values are quoted for it\n"
    "  time_limit = 60                              # seconds per design\n"
    "\n"
    "  [[parameters]]\n"
    "  name = \"length\"\n"
    "  from = 1.0\n"
    "  to = 2.0\n"
    "  step = 0.5\n"
    "\n"
    "  [[inputs]]\n"
    "  file = \"deck.inp\"\n"
    "  tags = \"M_in_beam_deck.inp\"\n"
    "\n"
    "  [[outputs]]\n"
    "  file = \"results.txt\"\n"
    "  tags = \"M_out_beam_results.txt\"\n"
    "\n"
    "  [[responses]]\n"
    "  name = \"deflection\"\n"
    "\n"
    "[design] method = \"grid\" (default), \"list\" or \"lhs\" (with samples and\n"
    "seed). All keys: docs/study-format.md; Slurm: docs/slurm.md.\n"
    "\n"
    "A design fails, and the study goes on, when the solver exits with a code\n"
    "other than 0, passes the time limit, prints an \"ERROR:\" message, or a\n"
    "response can't be read. Each run folder keeps the solver's output, the\n"
    "portal's log and result.toml with the reason. Before any design runs, the\n"
    "tag files are checked (see 'portal-run check --help'): errors refuse the\n"
    "run, warnings are printed at its start.\n"
    "\n"
    "exit codes:\n"
    "  0    every design finished ok\n"
    "  1    the study ran, and at least one design failed\n"
    "  2    bad command line\n"
    "  3    the study file can't be read or is invalid\n"
    "  4    the plug-in can't be loaded or has no such portal\n"
    "  5    a run folder or the results can't be written\n"
    "  6    the designs couldn't be started or followed (Slurm refused the\n"
    "       job or couldn't be reached)\n"
    "  7    status, report: the study's results.json can't be read\n"
    "  130  interrupted; a re-run goes on from there\n";

struct Options {
    std::string study;
    std::string plugin;  // empty: the one beside portal-run
    std::string runs;
    std::string sampleOutput;
    std::map<std::string, std::string> settings;
    RunOptions run;
    std::string scheduler;  // empty: the study's
    int worker = 0;         // a design number: run that one alone
    bool dryRun = false;
    bool quiet = false;
    bool readLocks = false;
};

int usageError(const std::string& what) {
    std::fprintf(stderr, "portal-run: %s\nTry 'portal-run --help'.\n", what.c_str());
    return kExitUsage;
}

// 0 to go on, else the exit code; -1 for --help.
int parseArgs(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        std::string value;
        const bool takesValue = a == "-j" || a == "--jobs" || a == "--plugin" || a == "--runs" ||
                                a == "--set" || a == "--scheduler" || a == "--worker" ||
                                a == "--sample-output";
        if (auto eq = a.find('='); a.rfind("--", 0) == 0 && eq != std::string::npos) {
            value = a.substr(eq + 1);
            a = a.substr(0, eq);
        } else if (takesValue) {
            if (i + 1 >= argc) return usageError(a + " needs a value");
            value = argv[++i];
        }
        if (a == "-h" || a == "--help") return -1;
        if (a == "-j" || a == "--jobs") {
            char* end = nullptr;
            long n = std::strtol(value.c_str(), &end, 10);
            if (value.empty() || *end || n < 1 || n > 256)
                return usageError("--jobs needs a number from 1 to 256, not '" + value + "'");
            o.run.jobs = static_cast<int>(n);
            o.run.jobsGiven = true;
        } else if (a == "--scheduler") {
            if (value != "local" && value != "slurm")
                return usageError("--scheduler is local or slurm, not '" + value + "'");
            o.scheduler = value;
        } else if (a == "--worker") {
            char* end = nullptr;
            long n = std::strtol(value.c_str(), &end, 10);
            if (value.empty() || *end || n < 1 || n > 100000000)
                return usageError("--worker needs a design number, not '" + value + "'");
            o.worker = static_cast<int>(n);
        } else if (a == "--plugin") {
            o.plugin = value;
        } else if (a == "--runs") {
            o.runs = value;
        } else if (a == "--sample-output") {
            o.sampleOutput = value;
        } else if (a == "--set") {
            auto eq = value.find('=');
            if (eq == 0 || eq == std::string::npos) return usageError("--set needs KEY=VALUE");
            o.settings[value.substr(0, eq)] = value.substr(eq + 1);
        } else if (a == "--verbose") {
            o.settings["verbose"] = "true";
        } else if (a == "--retry-failed") {
            o.run.retryFailed = true;
        } else if (a == "--fresh") {
            o.run.fresh = true;
        } else if (a == "--dry-run") {
            o.dryRun = true;
        } else if (a == "--read-locks") {
            o.readLocks = true;
        } else if (a == "-q" || a == "--quiet") {
            o.quiet = true;
        } else if (a.size() > 1 && a[0] == '-') {
            return usageError("unknown option '" + a + "'");
        } else if (!o.study.empty()) {
            return usageError("one study at a time: '" + o.study + "' and '" + a + "'");
        } else {
            o.study = a;
        }
    }
    if (o.study.empty()) return usageError("no study file given");
    if (o.worker && (o.run.fresh || o.dryRun || !o.scheduler.empty()))
        return usageError("--worker runs one design: not with --fresh, --dry-run or --scheduler");
    return 0;
}

void listDesigns(const Study& study, const std::vector<Design>& designs) {
    std::printf("design");
    for (const Parameter& p : study.parameters) std::printf(",%s", csvField(p.name).c_str());
    std::printf("\n");
    for (const Design& d : designs) {
        std::printf("%d", d.number);
        for (const std::string& v : parameterTexts(d)) std::printf(",%s", csvField(v).c_str());
        std::printf("\n");
    }
}

// portal-run's own file, for the Slurm tasks that run it as a worker.
std::string ownProgram() {
    std::error_code ec;
    auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? std::string("portal-run") : self.string();
}

// The options that make a worker run its design the way this run would:
// the same plug-in, runs folder and settings.
std::vector<std::string> workerOptions(const Options& o, const Study& study) {
    std::vector<std::string> out = {"--plugin", std::filesystem::absolute(o.plugin).string(),
                                    "--runs", study.runs};
    for (const auto& [k, v] : o.settings) out.push_back("--set=" + k + "=" + v);
    if (o.readLocks) out.push_back("--read-locks");
    if (o.quiet) out.push_back("--quiet");
    return out;
}

int runOneDesign(const Options& o, const Study& study, const std::vector<Design>& designs,
                 const Plugin& plugin) {
    std::size_t index = designs.size();
    for (std::size_t i = 0; i < designs.size(); ++i)
        if (designs[i].number == o.worker) index = i;
    if (index == designs.size())
        return usageError("the study has no design " + std::to_string(o.worker) + " (it has " +
                          countOf(designs.size(), "design") + ")");
    std::error_code ec;
    std::filesystem::create_directories(study.runs, ec);
    installStopHandlers();
    Console console(o.quiet, false);
    return runWorker(study, designs, index, plugin, o.run, console, &stopFlag());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && isSubcommand(argv[1]))
        return subcommandMain(argc - 1, argv + 1, pluginBesideProgram(ZELTRA_PLUGIN_FROM_BIN));
    // A study file named "status" or "report" is still run as ./status.
    if (argc > 1 && std::strcmp(argv[1], "status") == 0) return statusCommand(argc - 2, argv + 2);
    if (argc > 1 && std::strcmp(argv[1], "report") == 0) return reportCommand(argc - 2, argv + 2);
    Options o;
    if (int rc = parseArgs(argc, argv, o); rc != 0) {
        if (rc > 0) return rc;
        std::fputs(kUsage, stdout);
        return kExitOk;
    }
    Study study;
    std::vector<Design> designs;
    try {
        study = loadStudy(o.study);
        if (!o.runs.empty()) study.runs = std::filesystem::absolute(o.runs).lexically_normal().string();
        designs = generateDesigns(study);
        if (o.scheduler == "slurm") study.scheduler = SchedulerKind::Slurm;
        if (o.scheduler == "local") study.scheduler = SchedulerKind::Local;
    } catch (const StudyError& e) {
        std::fprintf(stderr, "portal-run: %s\n", e.what());
        return kExitStudy;
    }
    if (o.dryRun) listDesigns(study, designs);
    o.run.settings = study.settings;
    for (const auto& [k, v] : o.settings) o.run.settings[k] = v;

    // A design's outputs are read only after its solver's whole process group
    // has ended, so a read lock guards nothing there; it would cost each
    // design the SDF library's 10 ms wait before every lock step. The solver
    // itself never sees the switch (runCommand drops it).
    if (!o.readLocks && !std::getenv(kNoReadLockVar)) {
        ::setenv(kNoReadLockVar, "1", 1);
        keepFromSolvers(kNoReadLockVar);
    }

    if (o.plugin.empty()) o.plugin = pluginBesideProgram(ZELTRA_PLUGIN_FROM_BIN);
    Plugin plugin;
    std::string error;
    if (!plugin.open(o.plugin, error)) {
        std::fprintf(stderr, "portal-run: %s\n", error.c_str());
        return kExitPlugin;
    }
    {
        // Asked once here so a wrong name fails before any run folder exists.
        RunHost probe(study, o.run.settings, plugin.folder(), nullptr);
        if (!plugin.create(probe, study.portal)) {
            std::fprintf(stderr, "portal-run: the plug-in %s has no portal named '%s'\n",
                         o.plugin.c_str(), study.portal.c_str());
            return kExitPlugin;
        }
    }
    // The bindings are checked before any run folder exists; a tag that
    // would silently write nowhere refuses the run.
    if (int rc = checkBeforeRun(o.plugin, study, o.sampleOutput); rc != kExitOk || o.dryRun)
        return rc;
    // What decides a design's result besides its values: a record made
    // under another identity is not this study's result.
    const std::string pluginFile = loadedLibraryFile(o.plugin);
    std::string pluginHash;
    if (!fileHash(pluginFile, pluginHash)) {
        std::fprintf(stderr, "portal-run: cannot read the plug-in %s\n", pluginFile.c_str());
        return kExitPlugin;
    }
    if (!studyIdentity(study, o.run.settings, pluginHash, o.run.identity, error)) {
        std::fprintf(stderr, "portal-run: %s\n", error.c_str());
        return kExitStudy;
    }
    if (o.worker) return runOneDesign(o, study, designs, plugin);
    o.run.program = ownProgram();
    o.run.workerOptions = workerOptions(o, study);
    Console console(o.quiet, ::isatty(2) == 1);
    return runStudy(study, designs, plugin, o.run, console);
}
