// How long the rest of a study will take, shared by the live progress bar and
// `portal-run status` so that both show the same figure. The estimate takes
// the mean run time of the finished designs as every design's time, lets each
// running design finish after that mean (at once when it is already past it),
// and hands the pending designs out to the `jobs` slots in turn, the way the
// runner does. It is nothing until a design has finished.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace portalrun {

struct Workload {
    std::vector<double> doneSeconds;     // run times of the finished designs
    std::vector<double> runningSeconds;  // how long each running design has run
    long long pending = 0;               // designs not started yet
    int jobs = 1;                        // designs run at a time
};

// Seconds until the last design ends; nothing when no design has finished
// (or none has a usable time), 0 when nothing is left.
std::optional<double> secondsLeft(const Workload& w);

// "45 s", "3 min 20 s", "2 h 05 min": rounded to what a person reads.
std::string durationText(double seconds);

}  // namespace portalrun
