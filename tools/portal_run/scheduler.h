// The one step that differs between schedulers: starting the designs still
// to run and telling the study as each one ends. Which designs run, their
// records, the CSV and the summary belong to the study run and are the same
// whether the designs run as local worker processes or as the tasks of a
// Slurm job array. A launcher returns only when every design it started has
// ended or, after a stop, has been stopped.
#pragma once

#include <csignal>
#include <cstddef>
#include <string>
#include <vector>

#include "console.h"

namespace portalrun {

// How a design's task ended, as far as its launcher can tell.
struct TaskEnd {
    enum class Kind {
        Finished,     // it ended on its own; its record tells the rest
        Interrupted,  // stopped before it could leave a record: runs again next time
        Died,         // ended without a record for a reason the record must keep
    };
    Kind kind = Kind::Finished;
    std::string reason;        // Died: why, in words for the CSV
    bool writeFailed = false;  // the task could not write its record or run folder
};

// The study's side, called by a launcher from the study's own thread.
class LaunchEvents {
public:
    virtual ~LaunchEvents() = default;
    virtual void started(std::size_t index) = 0;  // index into the study's designs
    virtual void ended(std::size_t index, const TaskEnd& end) = 0;
    virtual void running(int count) = 0;  // designs running right now, for progress
    virtual Console& console() = 0;
};

class Launcher {
public:
    virtual ~Launcher() = default;
    // Runs the designs of todo. stop is raised by SIGINT or SIGTERM; from
    // then on nothing new starts and what runs is stopped. False when the
    // launch itself failed (a worker couldn't start, the batch system
    // refused the job or couldn't be reached); what was said is logged.
    virtual bool run(const std::vector<std::size_t>& todo, LaunchEvents& events,
                     const volatile std::sig_atomic_t& stop) = 0;
    // Asked before anything of the runs folder changes (--fresh clears it):
    // false, with the reason logged, when designs of this runs folder may
    // still be running from an earlier start.
    virtual bool canStart(Console&) { return true; }
};

// The flag SIGINT and SIGTERM raise once installStopHandlers ran.
volatile std::sig_atomic_t& stopFlag();
void installStopHandlers();

}  // namespace portalrun
