// Running a whole study: which designs are already done, a worker process
// per design (at most `jobs` at a time, each with a portal object of its
// own) started by the study's scheduler, results.json rewritten as designs
// start and end, and the CSV and summary at the end. Designs never share a
// process, so a portal that crashes takes one design with it and the study
// goes on.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "console.h"
#include "designs.h"
#include "plugin.h"
#include "reuse.h"
#include "study.h"

namespace portalrun {

// Exit codes of portal-run.
enum ExitCode {
    kExitOk = 0,
    kExitDesignsFailed = 1,
    kExitUsage = 2,
    kExitStudy = 3,
    kExitPlugin = 4,
    kExitWrite = 5,
    kExitLaunch = 6,
    kExitResults = 7,  // status or report: the results can't be read
    kExitInterrupted = 130,
};

struct RunOptions {
    int jobs = 1;
    bool jobsGiven = false;  // --jobs was given: under Slurm it limits the running tasks
    bool retryFailed = false;
    bool fresh = false;
    std::map<std::string, std::string> settings;  // the study's with the command line's over them
    StudyIdentity identity;  // kept in each record; a record of another identity is redone
    // How a worker of this run is started by hand: portal-run's own path and
    // the options that give it this run's plug-in, runs folder and settings.
    std::string program;
    std::vector<std::string> workerOptions;
};

int runStudy(const Study& study, const std::vector<Design>& designs, const Plugin& plugin,
             const RunOptions& options, Console& console);

}  // namespace portalrun
