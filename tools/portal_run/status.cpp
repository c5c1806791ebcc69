// The status report. Designs that a live runner has running count as
// running; those of a runner that is gone count as pending again, since the
// next run redoes them. The time left is only shown while a run goes on and
// comes from estimate.h, the same as the progress bar's.
#include "status.h"

#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <sstream>

#include "estimate.h"
#include "results.h"

namespace portalrun {

RunnerLiveness runnerLiveness(const RunnerInfo& runner) {
    char host[256] = {};
    ::gethostname(host, sizeof host - 1);
    if (runner.host != host || runner.pid <= 0) return RunnerLiveness::Unknown;
    if (::kill(static_cast<pid_t>(runner.pid), 0) == 0 || errno == EPERM) return RunnerLiveness::Alive;
    return RunnerLiveness::Gone;
}

namespace {

constexpr std::size_t kFailuresShown = 20;

std::string utcText(double epoch) {
    const std::time_t t = static_cast<std::time_t>(epoch);
    std::tm tm{};
    ::gmtime_r(&t, &tm);
    char buf[64];
    std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S UTC", &tm);
    return buf;
}

}  // namespace

std::string statusText(const ResultsFile& f, RunnerLiveness liveness, double now) {
    const bool going = f.runner.state == "running" && liveness != RunnerLiveness::Gone;
    int ok = 0, failed = 0, pending = 0;
    std::vector<const DesignEntry*> running, failures;
    Workload w;
    w.jobs = f.runner.jobs;
    for (const DesignEntry& d : f.designs) {
        if (d.status == "ok" || d.status == "failed") {
            (d.status == "ok" ? ok : failed)++;
            if (d.status == "failed") failures.push_back(&d);
            if (d.seconds) w.doneSeconds.push_back(*d.seconds);
        } else if (d.status == "running" && going) {
            running.push_back(&d);
            w.runningSeconds.push_back(d.started ? now - *d.started : 0.0);
        } else {
            ++pending;
        }
    }
    w.pending = pending;
    std::ostringstream s;
    s << "study " << f.study << ": " << countOf(f.designs.size(), "design") << ": " << ok << " ok, "
      << failed << " failed, " << running.size() << " running, " << pending << " pending\n";
    const std::string who = "portal-run pid " + std::to_string(f.runner.pid) + " on " + f.runner.host;
    s << "run: ";
    if (f.runner.state == "finished") s << "finished";
    else if (f.runner.state == "interrupted") s << "interrupted; a re-run goes on from there";
    else if (liveness == RunnerLiveness::Gone)
        s << "ended without finishing (" << who << " is gone); a re-run goes on from there";
    else if (liveness == RunnerLiveness::Alive) s << "going on (" << who << ")";
    else s << "going on, as far as can be told here (" << who << ")";
    s << "; results of " << utcText(f.updated) << "\n";
    for (std::size_t i = 0; i < running.size(); ++i) {
        s << (i ? ", " : "running: ") << "design " << running[i]->design;
        if (running[i]->started) s << " (" << durationText(now - *running[i]->started) << ")";
        if (i + 1 == running.size()) s << "\n";
    }
    if (!failures.empty()) s << "failed:\n";
    for (std::size_t i = 0; i < failures.size(); ++i) {
        if (i == kFailuresShown) {
            s << "  ... and " << failures.size() - i << " more (see results.json)\n";
            break;
        }
        s << "  design " << failures[i]->design << ": " << failures[i]->reason << "\n";
    }
    if (going && (pending || !running.empty())) {
        const auto left = secondsLeft(w);
        if (left)
            s << "time left: about " << durationText(*left) << " (from the mean of "
              << countOf(w.doneSeconds.size(), "finished design") << ", " << w.jobs << " at a time)\n";
        else
            s << "time left: not known until a design has finished\n";
    }
    return s.str();
}

}  // namespace portalrun
