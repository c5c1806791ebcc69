// One design in a worker: a portal object of its own, the design run in its
// run folder, and its record written there. The local scheduler's worker
// processes and "portal-run --worker N" (a Slurm task, or a user by hand)
// both come here, so a design runs the same wherever it runs.
#pragma once

#include <csignal>
#include <string>
#include <vector>

#include "designs.h"
#include "host.h"
#include "plugin.h"
#include "study.h"
#include "study_run.h"

namespace portalrun {

// The run folder of a design and its record in it.
std::string designRunDir(const Study& study, const Design& design);
std::string designRecordPath(const Study& study, const Design& design);

// Runs designs[index] and writes its record. Returns kExitOk or
// kExitDesignsFailed after a record was written, kExitInterrupted when stop
// was raised (no record: the design runs again), kExitPlugin or kExitWrite
// when it couldn't run or record.
int runWorker(const Study& study, const std::vector<Design>& designs, std::size_t index,
              const Plugin& plugin, const RunOptions& options, LogSink& sink,
              const volatile std::sig_atomic_t* stop);

}  // namespace portalrun
