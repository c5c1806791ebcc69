// The main process never runs a portal itself: a launcher starts the
// designs (worker processes here, or the tasks of a Slurm job array) and
// tells as each ends; everything else is this file's and the same for every
// scheduler. A design that ended without a record is recorded here as
// failed with the launcher's reason, unless it was stopped: then it has no
// record and runs again next time.
#include "study_run.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <optional>

#include <unistd.h>

#include "estimate.h"
#include "results.h"
#include "results_json.h"
#include "scheduler.h"
#include "scheduler_local.h"
#include "slurm.h"
#include "worker.h"

namespace portalrun {

namespace fs = std::filesystem;

namespace {

double epochNow() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

class Scheduler : public LaunchEvents {
public:
    Scheduler(const Study& study, const std::vector<Design>& designs, const Plugin& plugin,
              const RunOptions& options, Console& console)
        : study_(study), designs_(designs), plugin_(plugin), options_(options),
          console_(console), results_(designs.size()), causes_(designs.size()),
          started_(designs.size()), startedAt_(designs.size()) {}

    int run();

    void started(std::size_t index) override {
        // Counted when it starts: a design an interruption kept from
        // running again still has its old record.
        if (!causes_[index].empty()) tally_.countRerun(causes_[index]);
        started_[index] = epochNow();
        startedAt_[index] = std::chrono::steady_clock::now();
        changed_ = true;
    }
    void ended(std::size_t index, const TaskEnd& end) override;
    void running(int count) override {
        running_ = count;
        // Once per turn of the launcher, however many designs started or
        // ended in it.
        if (changed_) writeJson("running");
        changed_ = false;
        showProgress();
    }
    Console& console() override { return console_; }

private:
    std::string runDir(std::size_t i) const {
        return (fs::path(study_.runs) / runFolderName(designs_[i].number)).string();
    }
    std::string recordPath(std::size_t i) const { return runDir(i) + "/result.toml"; }

    bool prepareRuns();
    std::vector<std::size_t> designsToRun();
    void tallyResult(const DesignResult& r) { r.status == "ok" ? ++tally_.ok : ++tally_.failed; }
    void showProgress();
    // results.json as things stand; state is the runner's.
    void writeJson(const char* state);
    int finish(double seconds);

    const Study& study_;
    const std::vector<Design>& designs_;
    const Plugin& plugin_;
    const RunOptions& options_;
    Console& console_;
    std::vector<std::optional<DesignResult>> results_;
    std::vector<std::string> causes_;  // why a design with a record runs again
    int running_ = 0;
    Tally tally_;
    bool writeFailed_ = false;
    bool launchFailed_ = false;
    bool changed_ = false;  // a design started or ended since results.json was written
    std::vector<std::optional<double>> started_;  // by design: when it started, while it runs
    std::vector<std::chrono::steady_clock::time_point> startedAt_;
};

void Scheduler::showProgress() {
    Workload w;
    w.jobs = options_.jobs;
    for (const auto& r : results_)
        if (r) w.doneSeconds.push_back(r->seconds);
    const auto now = std::chrono::steady_clock::now();
    long long running = 0;
    for (std::size_t i = 0; i < designs_.size(); ++i)
        if (started_[i]) {
            w.runningSeconds.push_back(std::chrono::duration<double>(now - startedAt_[i]).count());
            ++running;
        }
    w.pending = static_cast<long long>(designs_.size() - w.doneSeconds.size()) - running;
    const auto left = secondsLeft(w);
    console_.progress(tally_.ok + tally_.failed, static_cast<int>(designs_.size()), tally_.failed,
                      running_, left && *left > 0 ? "about " + durationText(*left) + " left" : "");
}

void Scheduler::writeJson(const char* state) {
    JsonInput in;
    in.study = &study_;
    in.designs = &designs_;
    in.results = &results_;
    in.started = started_;
    char host[256] = {};
    ::gethostname(host, sizeof host - 1);
    in.runner = {static_cast<long long>(::getpid()), host, options_.jobs, state};
    in.now = epochNow();
    std::string error;
    if (!writeFileDurably((fs::path(study_.runs) / "results.json").string(), resultsJsonText(in), error)) {
        // Said once: the run goes on, and the end of the study says it again.
        if (!writeFailed_) console_.logLine(2, 0, error);
        writeFailed_ = true;
    }
}

bool Scheduler::prepareRuns() {
    std::error_code ec;
    if (options_.fresh && fs::is_directory(study_.runs, ec)) {
        // Only what a run leaves: the folder may hold the user's own files.
        for (const auto& e : fs::directory_iterator(study_.runs, ec)) {
            const std::string name = e.path().filename().string();
            if ((isRunFolderName(name) && e.is_directory()) || name == "results.csv" ||
                name == "summary.txt" || name == "results.json" || name == "report.html")
                fs::remove_all(e.path(), ec);
        }
    }
    fs::create_directories(study_.runs, ec);
    if (ec || !fs::is_directory(study_.runs)) {
        console_.logLine(2, 0, "cannot create the runs folder " + study_.runs +
                                   (ec ? ": " + ec.message() : ""));
        return false;
    }
    return true;
}

std::vector<std::size_t> Scheduler::designsToRun() {
    std::vector<std::size_t> todo;
    for (std::size_t i = 0; i < designs_.size(); ++i) {
        auto r = readResult(recordPath(i));
        ReuseVerdict v = judgeRecord(r, recordPath(i), study_, designs_[i], options_.identity,
                                     options_.retryFailed);
        if (v.reuse) {
            results_[i] = std::move(r);
            tallyResult(*results_[i]);
            ++tally_.skipped;
        } else {
            causes_[i] = std::move(v.cause);
            todo.push_back(i);
        }
    }
    return todo;
}

void Scheduler::ended(std::size_t i, const TaskEnd& end) {
    if (end.writeFailed) writeFailed_ = true;
    const bool wasStarted = started_[i].has_value();
    started_[i].reset();
    changed_ = true;
    if (end.kind == TaskEnd::Kind::Interrupted) return;  // runs again
    auto r = readResult(recordPath(i));
    if (!r || r->design != designs_[i].number) {
        // The task ended before it could leave a record: record it here.
        DesignResult dead;
        dead.design = designs_[i].number;
        dead.status = "failed";
        dead.parameters = parameterValues(study_, designs_[i]);
        for (const Response& resp : study_.responses) dead.responses[resp.name] = "";
        dead.identity = options_.identity;
        if (wasStarted)
            dead.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - startedAt_[i]).count();
        dead.reason = end.reason.empty() ? "the design's task ended without a result" : end.reason;
        console_.logLine(2, dead.design, dead.reason);
        std::string error;
        if (!writeResult(recordPath(i), dead, error)) {
            console_.logLine(2, dead.design, error);
            writeFailed_ = true;
        }
        r = dead;
    }
    results_[i] = std::move(r);
    tallyResult(*results_[i]);
    showProgress();
}

int Scheduler::finish(double seconds) {
    for (const auto& r : results_) tally_.pending += r ? 0 : 1;
    const std::string csv = (fs::path(study_.runs) / "results.csv").string();
    std::string error;
    if (!writeCsv(csv, study_, designs_, results_, error)) {
        console_.logLine(2, 0, error);
        writeFailed_ = true;
    }
    writeJson(stopFlag() ? "interrupted" : "finished");
    const std::string summary = summaryText(study_, results_, tally_, seconds, csv);
    console_.stopBar();
    console_.say(summary);
    const std::string summaryPath = (fs::path(study_.runs) / "summary.txt").string();
    std::ofstream out(summaryPath, std::ios::binary | std::ios::trunc);
    if (!(out << summary).flush()) {
        console_.logLine(2, 0, "cannot write " + summaryPath);
        writeFailed_ = true;
    }
    if (launchFailed_) return kExitLaunch;
    if (stopFlag()) return kExitInterrupted;
    if (writeFailed_) return kExitWrite;
    return tally_.failed ? kExitDesignsFailed : kExitOk;
}

int Scheduler::run() {
    const auto t0 = std::chrono::steady_clock::now();
    installStopHandlers();
    std::unique_ptr<Launcher> launcher =
        study_.scheduler == SchedulerKind::Slurm
            ? makeSlurmLauncher(study_, designs_, options_)
            : makeLocalLauncher(study_, designs_, plugin_, options_);
    if (!launcher->canStart(console_)) return kExitLaunch;
    if (!prepareRuns()) return kExitWrite;
    const std::vector<std::size_t> todo = designsToRun();
    showProgress();
    if (!todo.empty() && !launcher->run(todo, *this, stopFlag())) launchFailed_ = true;
    running_ = 0;
    return finish(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
}

}  // namespace

int runStudy(const Study& study, const std::vector<Design>& designs, const Plugin& plugin,
             const RunOptions& options, Console& console) {
    Scheduler s(study, designs, plugin, options, console);
    return s.run();
}

}  // namespace portalrun
