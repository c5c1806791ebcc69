// The local scheduler: one forked worker process per design, at most `jobs`
// at a time, each with a portal object of its own, its log lines brought to
// the terminal over a pipe.
#pragma once

#include <memory>
#include <vector>

#include "plugin.h"
#include "scheduler.h"
#include "study.h"
#include "study_run.h"

namespace portalrun {

std::unique_ptr<Launcher> makeLocalLauncher(const Study& study, const std::vector<Design>& designs,
                                            const Plugin& plugin, const RunOptions& options);

}  // namespace portalrun
