// `portal-run status`: where a study stands, from its results.json, while it
// runs in another shell or after it ended. The runner keeps that file up to
// date with each design that starts or ends, and names itself in it, so a
// run that died is told from one that goes on.
#pragma once

#include <string>

#include "results_json.h"

namespace portalrun {

enum class RunnerLiveness { Alive, Gone, Unknown };

// Whether the runner that wrote the file still runs: only to be told on the
// host it ran on.
RunnerLiveness runnerLiveness(const RunnerInfo& runner);

// The status report; now in seconds since the epoch.
std::string statusText(const ResultsFile& results, RunnerLiveness liveness, double now);

}  // namespace portalrun
