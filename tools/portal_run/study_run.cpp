// The main process forks one worker per design and never runs a portal
// itself. A worker sends its log lines as records over a close-on-exec pipe
// (level, design and text, ended by a NUL) and leaves its outcome in the
// design's "result.toml"; the end of the pipe tells the parent the worker is
// done. SIGINT reaches the workers with the terminal's process group; SIGTERM
// sent to the parent alone is passed on to them. Either way a worker ends
// its solver's process group and leaves no record, so the design runs again.
#include "study_run.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "design_run.h"
#include "estimate.h"
#include "results.h"
#include "results_json.h"

namespace portalrun {

namespace fs = std::filesystem;

namespace {

volatile std::sig_atomic_t gStop = 0;

void onStop(int) { gStop = 1; }

void installStopHandlers() {
    struct sigaction sa {};
    sa.sa_handler = onStop;
    sigemptyset(&sa.sa_mask);
    ::sigaction(SIGINT, &sa, nullptr);
    ::sigaction(SIGTERM, &sa, nullptr);
}

// The worker's end of the log pipe.
class PipeSink : public LogSink {
public:
    explicit PipeSink(int fd) : fd_(fd) {}
    void logLine(int level, int design, const std::string& text) override {
        std::string record = std::to_string(level) + " " + std::to_string(design) + " ";
        for (char c : text) record += c ? c : ' ';
        record += '\0';
        for (std::size_t off = 0; off < record.size();) {
            ssize_t n = ::write(fd_, record.data() + off, record.size() - off);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) return;  // the parent is gone; the log file still has it
            off += static_cast<std::size_t>(n);
        }
    }

private:
    int fd_;
};

struct Worker {
    pid_t pid = -1;
    int fd = -1;
    std::size_t index = 0;
    std::string pending;  // bytes of a record not complete yet
    std::chrono::steady_clock::time_point start;
};

double epochNow() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

class Scheduler {
public:
    Scheduler(const Study& study, const std::vector<Design>& designs, const Plugin& plugin,
              const RunOptions& options, Console& console)
        : study_(study), designs_(designs), plugin_(plugin), options_(options),
          console_(console), results_(designs.size()), causes_(designs.size()) {}

    int run();

private:
    std::string runDir(std::size_t i) const {
        return (fs::path(study_.runs) / runFolderName(designs_[i].number)).string();
    }
    std::string recordPath(std::size_t i) const { return runDir(i) + "/result.toml"; }

    bool prepareRuns();
    std::vector<std::size_t> designsToRun();
    bool launch(std::size_t index);
    int workerMain(std::size_t index, int fd);
    // One read of a worker's log records; false at the end of its pipe.
    bool readSome(Worker& w);
    void reap(Worker& w);
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
    std::vector<Worker> workers_;
    Tally tally_;
    bool writeFailed_ = false;
    std::vector<std::optional<double>> started_;  // by design: when it started, while it runs
};

void Scheduler::showProgress() {
    Workload w;
    w.jobs = options_.jobs;
    for (const auto& r : results_)
        if (r) w.doneSeconds.push_back(r->seconds);
    const auto now = std::chrono::steady_clock::now();
    for (const Worker& wk : workers_)
        w.runningSeconds.push_back(std::chrono::duration<double>(now - wk.start).count());
    w.pending = static_cast<long long>(designs_.size() - w.doneSeconds.size() - workers_.size());
    const auto left = secondsLeft(w);
    console_.progress(tally_.ok + tally_.failed, static_cast<int>(designs_.size()), tally_.failed,
                      static_cast<int>(workers_.size()),
                      left && *left > 0 ? "about " + durationText(*left) + " left" : "");
}

void Scheduler::writeJson(const char* state) {
    JsonInput in;
    in.study = &study_;
    in.designs = &designs_;
    in.results = &results_;
    in.started = started_;
    in.started.resize(designs_.size());
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

int Scheduler::workerMain(std::size_t index, int fd) {
    ::signal(SIGPIPE, SIG_IGN);
    PipeSink sink(fd);
    RunHost host(study_, options_.settings, plugin_.folder(), &sink);
    auto portal = plugin_.create(host, study_.portal);
    if (!portal) {
        sink.logLine(2, designs_[index].number, "the plug-in has no portal '" + study_.portal + "'");
        return kExitPlugin;
    }
    auto r = runDesign(*portal, host, study_, designs_[index], runDir(index), &gStop);
    portal.reset();
    if (!r) return kExitInterrupted;
    r->identity = options_.identity;
    std::string error;
    if (!writeResult(recordPath(index), *r, error)) {
        sink.logLine(2, designs_[index].number, error);
        return kExitWrite;
    }
    return kExitOk;
}

bool Scheduler::launch(std::size_t index) {
    // The record of an earlier run must not pass for this one's when the
    // worker ends before it has cleared the run folder.
    std::error_code ec;
    fs::remove(recordPath(index), ec);
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        console_.logLine(2, 0, std::string("cannot make a pipe: ") + std::strerror(errno));
        return false;
    }
    std::fflush(nullptr);  // nothing buffered may be written twice
    pid_t pid = ::fork();
    if (pid < 0) {
        console_.logLine(2, 0, std::string("cannot start a worker: ") + std::strerror(errno));
        ::close(fds[0]);
        ::close(fds[1]);
        return false;
    }
    if (pid == 0) {
        ::close(fds[0]);
        for (const Worker& w : workers_) ::close(w.fd);
        ::_exit(workerMain(index, fds[1]));
    }
    ::close(fds[1]);
    workers_.push_back({pid, fds[0], index, {}, std::chrono::steady_clock::now()});
    started_.resize(designs_.size());
    started_[index] = epochNow();
    return true;
}

bool Scheduler::readSome(Worker& w) {
    char buf[4096];
    ssize_t n;
    while ((n = ::read(w.fd, buf, sizeof buf)) < 0 && errno == EINTR) {
    }
    if (n <= 0) return false;
    w.pending.append(buf, static_cast<std::size_t>(n));
    for (std::size_t end; (end = w.pending.find('\0')) != std::string::npos;) {
        int level = 8, design = 0, used = 0;
        std::sscanf(w.pending.c_str(), "%d %d %n", &level, &design, &used);
        const auto from = static_cast<std::size_t>(used);
        console_.logLine(level, design, w.pending.substr(from, end > from ? end - from : 0));
        w.pending.erase(0, end + 1);
    }
    return true;
}

void Scheduler::reap(Worker& w) {
    while (readSome(w)) {
    }
    ::close(w.fd);
    int status = 0;
    while (::waitpid(w.pid, &status, 0) < 0 && errno == EINTR) {
    }
    const std::size_t i = w.index;
    started_[i].reset();
    if (WIFEXITED(status) && WEXITSTATUS(status) == kExitInterrupted) return;  // runs again
    if (WIFEXITED(status) && WEXITSTATUS(status) == kExitWrite) writeFailed_ = true;
    auto r = readResult(recordPath(i));
    if (!r || r->design != designs_[i].number) {
        // The worker died before it could leave a record: record it here.
        DesignResult dead;
        dead.design = designs_[i].number;
        dead.status = "failed";
        dead.parameters = parameterValues(study_, designs_[i]);
        for (const Response& resp : study_.responses) dead.responses[resp.name] = "";
        dead.identity = options_.identity;
        dead.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - w.start).count();
        dead.reason = WIFSIGNALED(status)
                          ? "the design's worker process died of signal " + std::to_string(WTERMSIG(status))
                          : "the design's worker process ended with code " +
                                std::to_string(WEXITSTATUS(status)) + " and no result";
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
}

int Scheduler::finish(double seconds) {
    for (const auto& r : results_) tally_.pending += r ? 0 : 1;
    const std::string csv = (fs::path(study_.runs) / "results.csv").string();
    std::string error;
    if (!writeCsv(csv, study_, designs_, results_, error)) {
        console_.logLine(2, 0, error);
        writeFailed_ = true;
    }
    writeJson(gStop ? "interrupted" : "finished");
    const std::string summary = summaryText(study_, results_, tally_, seconds, csv);
    console_.stopBar();
    console_.say(summary);
    const std::string summaryPath = (fs::path(study_.runs) / "summary.txt").string();
    std::ofstream out(summaryPath, std::ios::binary | std::ios::trunc);
    if (!(out << summary).flush()) {
        console_.logLine(2, 0, "cannot write " + summaryPath);
        writeFailed_ = true;
    }
    if (gStop) return kExitInterrupted;
    if (writeFailed_) return kExitWrite;
    return tally_.failed ? kExitDesignsFailed : kExitOk;
}

int Scheduler::run() {
    const auto t0 = std::chrono::steady_clock::now();
    gStop = 0;
    installStopHandlers();
    if (!prepareRuns()) return kExitWrite;
    const std::vector<std::size_t> todo = designsToRun();
    std::size_t next = 0;
    bool forwarded = false;
    showProgress();
    bool changed = false;
    for (;;) {
        while (!gStop && workers_.size() < static_cast<std::size_t>(options_.jobs) &&
               next < todo.size()) {
            if (!launch(todo[next])) {
                gStop = 1;
                writeFailed_ = true;
                break;
            }
            // Counted when it starts: a design an interruption kept from
            // running again still has its old record.
            if (!causes_[todo[next]].empty()) tally_.countRerun(causes_[todo[next]]);
            ++next;
            changed = true;
            showProgress();
        }
        if (workers_.empty()) break;
        // Once per turn, however many designs started or ended in it.
        if (changed) writeJson("running");
        changed = false;
        if (gStop && !forwarded) {
            for (const Worker& w : workers_) ::kill(w.pid, SIGTERM);
            forwarded = true;
        }
        std::vector<pollfd> fds;
        for (const Worker& w : workers_) fds.push_back({w.fd, POLLIN, 0});
        if (::poll(fds.data(), fds.size(), 200) < 0) continue;  // EINTR: look at gStop
        for (std::size_t k = fds.size(); k-- > 0;) {
            if (!fds[k].revents) continue;
            Worker& w = workers_[k];
            if (readSome(w)) continue;  // the end of the pipe: the worker is done
            reap(w);
            workers_.erase(workers_.begin() + static_cast<std::ptrdiff_t>(k));
            changed = true;
        }
        showProgress();
    }
    return finish(std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count());
}

}  // namespace

int runStudy(const Study& study, const std::vector<Design>& designs, const Plugin& plugin,
             const RunOptions& options, Console& console) {
    Scheduler s(study, designs, plugin, options, console);
    return s.run();
}

}  // namespace portalrun
