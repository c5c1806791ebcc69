// The Slurm scheduler: the designs still to run go to Slurm as one job array
// whose task index is the design number, each task running
// "portal-run --worker N" for its design. The runner then follows the queue
// (squeue) and the run folders until every task has ended, and turns a task
// that Slurm ended without a record (time limit, node failure, out of
// memory) into a failed design with Slurm's reason. A stop cancels the array
// (scancel); the designs it kept from ending have no record and run again.
//
// The job's id is kept in RUNS/slurm/job while it runs, so that a second
// portal-run on the same runs folder refuses to start beside it. The tasks'
// own output goes to RUNS/slurm/design_NNNN.out.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "scheduler.h"
#include "study.h"
#include "study_run.h"

namespace portalrun {

std::unique_ptr<Launcher> makeSlurmLauncher(const Study& study, const std::vector<Design>& designs,
                                            const RunOptions& options);

// The --array value for these design numbers: runs of consecutive numbers as
// "a-b", joined by commas, and "%limit" when limit > 0 ("1-3,5%2").
std::string arraySpec(std::vector<int> numbers, int limit);

// The words after "sbatch" that submit the batch script at scriptPath for
// the designs of spec.
std::vector<std::string> sbatchArguments(const Study& study, const std::string& spec,
                                         const std::string& scriptPath);

// The batch script each task runs: portal-run as a worker for the design
// numbered by the task's index, with this run's options.
std::string batchScript(const Study& study, const RunOptions& options);

// A task as squeue shows it.
struct TaskState {
    std::string state;   // PENDING, RUNNING, COMPLETED, TIMEOUT, ...
    std::string reason;  // Slurm's reason text, "None" when it has none
};

// squeue's lines "INDEX|STATE|REASON" (format "%K|%T|%r") by task index;
// lines of another shape are left out.
std::map<int, TaskState> parseQueue(const std::string& text);

// Whether a task in this state will not run (any more).
bool taskEnded(const std::string& state);

// Why Slurm ended a task that left no record, in words for the design's
// reason; outputFile is where the task's output went.
std::string slurmEndReason(const Study& study, const TaskState& task, const std::string& outputFile);

// A word for /bin/sh that is the text as it is.
std::string shellWord(const std::string& text);

}  // namespace portalrun
