// Slurm's client commands run through runCommand like a solver: in a process
// group of their own, so a Ctrl-C meant for portal-run doesn't end a squeue
// half-way, and with a time limit, so a controller that never answers can't
// hang the runner. squeue is asked about every task of the array, finished
// ones included ("-t all"), which the controller keeps for MinJobAge
// seconds: that is where a task's end state (TIMEOUT, NODE_FAIL,
// OUT_OF_MEMORY, ...) is read, without needing Slurm's accounting database.
#include "slurm.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <thread>

#include "process.h"
#include "results.h"
#include "worker.h"

namespace portalrun {

namespace fs = std::filesystem;

namespace {

using Clock = std::chrono::steady_clock;

// How long Slurm may go unanswered, and how long a cancelled array may take
// to end, before the runner gives up waiting and says so.
constexpr double kUnreachableSeconds = 60.0;
constexpr double kCancelSeconds = 60.0;
// Polls a task may be seen ended (or gone) without its record before it
// counts as having left none: a shared file system may show the record late.
constexpr int kRecordGracePolls = 5;
constexpr double kToolTimeLimit = 120.0;

double since(Clock::time_point t0) {
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::string firstLine(const std::string& text) {
    std::string l = text.substr(0, text.find('\n'));
    return l.empty() ? "(no message)" : l;
}

std::string commandLine(const std::string& program, const std::vector<std::string>& args) {
    std::string line = program;
    for (const std::string& a : args) {
        line += ' ';
        line += shellWord(a);
    }
    return line;
}

// Slurm's file name pattern treats '%' as the start of a replacement.
std::string patternSafe(const std::string& path) {
    std::string out;
    for (char c : path) out += c == '%' ? std::string("%%") : std::string(1, c);
    return out;
}

struct ToolResult {
    bool ok = false;
    std::string out, err;
};

class SlurmLauncher : public Launcher {
public:
    SlurmLauncher(const Study& study, const std::vector<Design>& designs, const RunOptions& options)
        : study_(study), designs_(designs), options_(options),
          dir_((fs::path(study.runs) / "slurm").string()), jobFile_(dir_ + "/job") {}

    bool run(const std::vector<std::size_t>& todo, LaunchEvents& events,
             const volatile std::sig_atomic_t& stop) override;
    bool canStart(Console& console) override { return noEarlierJob(console); }
    ~SlurmLauncher() override {
        std::error_code ec;
        fs::remove(dir_ + "/.command.out", ec);
        fs::remove(dir_ + "/.command.err", ec);
    }

private:
    ToolResult tool(const std::string& program, const std::vector<std::string>& args) const;
    bool noEarlierJob(Console& console) const;
    bool submit(const std::vector<std::size_t>& todo, Console& console);
    std::string outputFile(int design) const {
        char name[64];
        std::snprintf(name, sizeof name, "/design_%04d.out", design);
        return dir_ + name;
    }
    bool hasRecord(std::size_t index) const {
        auto r = readResult(designRecordPath(study_, designs_[index]));
        return r && r->design == designs_[index].number;
    }
    // Slurm signals every process of a task it ends, the solver too, so a
    // worker may record a failure ("killed by signal 15") before it learns
    // that it is being stopped itself. Such a record tells Slurm's doing as
    // the solver's: it is dropped, and Slurm's reason (or, after a cancel,
    // no record at all) stands instead. A design that finished ok stays.
    bool killedBySlurm(std::size_t index, const std::string& state) const {
        static const std::set<std::string> killing = {"CANCELLED", "TIMEOUT",   "NODE_FAIL",
                                                      "OUT_OF_MEMORY", "PREEMPTED", "DEADLINE"};
        if (!killing.count(state)) return false;
        const std::string path = designRecordPath(study_, designs_[index]);
        auto r = readResult(path);
        if (!r || r->status == "ok") return false;
        std::error_code ec;
        fs::remove(path, ec);
        return true;
    }
    // The record's errors and warnings on the terminal, as a local worker
    // would have shown them while it ran.
    void showMessages(std::size_t index, Console& console) const;

    const Study& study_;
    const std::vector<Design>& designs_;
    const RunOptions& options_;
    std::string dir_;
    std::string jobFile_;
    std::string jobId_;
};

ToolResult SlurmLauncher::tool(const std::string& program, const std::vector<std::string>& args) const {
    CommandSpec spec;
    spec.command = commandLine(program, args);
    spec.dir = dir_;
    spec.stdoutPath = dir_ + "/.command.out";
    spec.stderrPath = dir_ + "/.command.err";
    spec.timeLimit = kToolTimeLimit;
    spec.killGrace = 2.0;
    const CommandOutcome o = runCommand(spec);
    ToolResult r;
    r.out = readAll(spec.stdoutPath);
    r.err = o.started ? readAll(spec.stderrPath) : o.error;
    if (o.timedOut) r.err = program + " gave no answer within " + std::to_string(int(kToolTimeLimit)) + " s";
    else if (o.exitCode == 127) r.err = program + " not found (is Slurm's client installed?): " + r.err;
    r.ok = o.started && !o.timedOut && o.exitCode == 0;
    return r;
}

bool SlurmLauncher::noEarlierJob(Console& console) const {
    std::string id = readAll(jobFile_);
    id.erase(id.find_last_not_of(" \n") + 1);
    if (id.empty()) return true;
    if (id.find_first_not_of("0123456789") != std::string::npos) {
        console.logLine(2, 0, jobFile_ + " holds no job id; remove it once no Slurm job of this "
                                         "runs folder runs");
        return false;
    }
    const ToolResult q = tool("squeue", {"-h", "-j", id, "-o", "%i"});
    if (q.ok && q.out.find_first_not_of(" \n") != std::string::npos) {
        console.logLine(2, 0, "Slurm job " + id + " of this runs folder is still in the queue; "
                              "wait for it to end or cancel it with: scancel " + id);
        return false;
    }
    if (!q.ok && q.err.find("Invalid job id") == std::string::npos) {
        console.logLine(2, 0, "cannot ask Slurm about the earlier job " + id + ": " + firstLine(q.err));
        return false;
    }
    return true;
}

bool SlurmLauncher::submit(const std::vector<std::size_t>& todo, Console& console) {
    std::vector<int> numbers;
    std::error_code ec;
    for (std::size_t i : todo) {
        numbers.push_back(designs_[i].number);
        // A task that never starts must not leave an earlier record looking
        // like its result.
        fs::remove(designRecordPath(study_, designs_[i]), ec);
        fs::remove(outputFile(designs_[i].number), ec);
    }
    const std::string script = dir_ + "/run_design.sh";
    {
        std::ofstream out(script, std::ios::binary | std::ios::trunc);
        if (!(out << batchScript(study_, options_)).flush()) {
            console.logLine(2, 0, "cannot write " + script);
            return false;
        }
    }
    const std::string spec = arraySpec(numbers, options_.jobsGiven ? options_.jobs : 0);
    const ToolResult r = tool("sbatch", sbatchArguments(study_, spec, script));
    std::string id = r.out.substr(0, r.out.find_first_of(";\n"));
    if (!r.ok || id.empty() || id.find_first_not_of("0123456789") != std::string::npos) {
        console.logLine(2, 0, "sbatch refused the job: " + firstLine(r.ok ? r.out : r.err));
        return false;
    }
    jobId_ = id;
    std::ofstream(jobFile_, std::ios::trunc) << jobId_ << "\n";
    std::string what = "Slurm job " + jobId_ + ": " + countOf(todo.size(), "design");
    if (options_.jobsGiven) what += ", at most " + std::to_string(options_.jobs) + " at a time";
    console.logLine(8, 0, what + "; the tasks' output goes to " + dir_);
    return true;
}

void SlurmLauncher::showMessages(std::size_t index, Console& console) const {
    auto r = readResult(designRecordPath(study_, designs_[index]));
    if (!r) return;
    for (const std::string& m : r->messages) {
        for (int level : {2, 4}) {
            const std::string word = std::string(levelName(level)) + ": ";
            if (m.rfind(word, 0) == 0) console.logLine(level, r->design, m.substr(word.size()));
        }
    }
}

bool SlurmLauncher::run(const std::vector<std::size_t>& todo, LaunchEvents& events,
                        const volatile std::sig_atomic_t& stop) {
    Console& console = events.console();
    std::error_code ec;
    fs::create_directories(dir_, ec);
    if (ec) {
        console.logLine(2, 0, "cannot create " + dir_ + ": " + ec.message());
        return false;
    }
    if (stop || !submit(todo, console)) return false;
    // A design counts as started when Slurm runs its task, not when it is
    // queued, so status and results.json show queued designs as pending.
    std::set<std::size_t> begun;
    auto begin = [&](std::size_t i) {
        if (begun.insert(i).second) events.started(i);
    };

    std::vector<std::size_t> left = todo;
    std::map<std::size_t, int> unrecorded;  // polls a task was seen over without a record
    bool cancelled = false;
    Clock::time_point cancelledAt{}, failingSince{};
    bool failing = false;
    for (;;) {
        if (stop && !cancelled) {
            const ToolResult c = tool("scancel", {jobId_});
            if (!c.ok) console.logLine(4, 0, "scancel " + jobId_ + " failed: " + firstLine(c.err));
            else console.logLine(8, 0, "cancelled Slurm job " + jobId_);
            cancelled = true;
            cancelledAt = Clock::now();
        }
        const ToolResult q = tool("squeue", {"-h", "-r", "-t", "all", "-j", jobId_, "-o", "%K|%T|%r"});
        // After MinJobAge the controller forgets the job: none of it is left.
        const bool forgotten = !q.ok && q.err.find("Invalid job id") != std::string::npos;
        if (!q.ok && !forgotten) {
            if (!failing) failingSince = Clock::now();
            failing = true;
            if (since(failingSince) > kUnreachableSeconds) {
                console.logLine(2, 0, "Slurm gave no answer for " + std::to_string(int(kUnreachableSeconds)) +
                                          " s (" + firstLine(q.err) + "); job " + jobId_ +
                                          " may still run: see squeue before running the study again");
                return false;
            }
        } else {
            failing = false;
            const std::map<int, TaskState> tasks = forgotten ? std::map<int, TaskState>{} : parseQueue(q.out);
            int running = 0;
            for (const auto& [n, t] : tasks) running += t.state == "RUNNING" || t.state == "COMPLETING";
            for (std::size_t i : left) {
                auto it = tasks.find(designs_[i].number);
                if (it != tasks.end() && it->second.state != "PENDING") begin(i);
            }
            for (std::size_t k = left.size(); k-- > 0;) {
                const std::size_t i = left[k];
                const int number = designs_[i].number;
                auto it = tasks.find(number);
                if (it != tasks.end() && !taskEnded(it->second.state)) continue;
                TaskEnd end;
                const std::string state = it == tasks.end() ? "" : it->second.state;
                if (hasRecord(i) && !killedBySlurm(i, state)) {
                    showMessages(i, console);
                } else if (cancelled || state == "CANCELLED") {
                    if (!cancelled)
                        console.logLine(4, number, "its Slurm task was cancelled; it runs again next time");
                    end.kind = TaskEnd::Kind::Interrupted;
                } else if (++unrecorded[i] < kRecordGracePolls &&
                           (it == tasks.end() || it->second.state == "COMPLETED" ||
                            it->second.state == "FAILED")) {
                    continue;
                } else {
                    end.kind = TaskEnd::Kind::Died;
                    end.reason = it == tasks.end()
                                     ? "Slurm no longer knows the design's task, and it left no result; see " +
                                           outputFile(number)
                                     : slurmEndReason(study_, it->second, outputFile(number));
                }
                left.erase(left.begin() + static_cast<std::ptrdiff_t>(k));
                if (end.kind != TaskEnd::Kind::Interrupted) begin(i);
                events.ended(i, end);
            }
            events.running(running);
        }
        if (left.empty()) break;
        if (cancelled && since(cancelledAt) > kCancelSeconds) {
            console.logLine(2, 0, "Slurm job " + jobId_ + " did not end within " +
                                      std::to_string(int(kCancelSeconds)) + " s of scancel; see squeue");
            for (std::size_t i : left) events.ended(i, {TaskEnd::Kind::Interrupted, "", false});
            return true;
        }
        for (int t = 0; t < 10 && (cancelled || !stop); ++t)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    fs::remove(jobFile_, ec);
    return true;
}

}  // namespace

std::string shellWord(const std::string& text) {
    std::string out = "'";
    for (char c : text) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return out + "'";
}

std::string arraySpec(std::vector<int> numbers, int limit) {
    std::sort(numbers.begin(), numbers.end());
    numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
    std::string spec;
    for (std::size_t i = 0; i < numbers.size();) {
        std::size_t j = i;
        while (j + 1 < numbers.size() && numbers[j + 1] == numbers[j] + 1) ++j;
        if (!spec.empty()) spec += ',';
        spec += std::to_string(numbers[i]);
        if (j > i) {
            spec += '-';
            spec += std::to_string(numbers[j]);
        }
        i = j + 1;
    }
    if (limit > 0) {
        spec += '%';
        spec += std::to_string(limit);
    }
    return spec;
}

std::vector<std::string> sbatchArguments(const Study& study, const std::string& spec,
                                         const std::string& scriptPath) {
    const std::string dir = (fs::path(study.runs) / "slurm").string();
    std::vector<std::string> args = {"--parsable",
                                     "--array=" + spec,
                                     "--job-name=" + study.name,
                                     "--output=" + patternSafe(dir) + "/design_%4a.out",
                                     "--chdir=" + study.dir,
                                     // A requeued task would hide a node failure.
                                     "--no-requeue"};
    const SlurmSettings& s = study.slurm;
    if (!s.partition.empty()) args.push_back("--partition=" + s.partition);
    if (!s.time.empty()) args.push_back("--time=" + s.time);
    if (s.cpus > 0) args.push_back("--cpus-per-task=" + std::to_string(s.cpus));
    if (!s.memory.empty()) args.push_back("--mem=" + s.memory);
    args.insert(args.end(), s.options.begin(), s.options.end());
    args.push_back(scriptPath);
    return args;
}

std::string batchScript(const Study& study, const RunOptions& options) {
    std::string script =
        "#!/bin/sh\n"
        "# Written by portal-run for the study " + study.name + ": each task of the job\n"
        "# array runs the design whose number is the task's index.\n"
        "exec " + shellWord(options.program) + " --worker \"$SLURM_ARRAY_TASK_ID\"";
    for (const std::string& o : options.workerOptions) {
        script += ' ';
        script += shellWord(o);
    }
    script += ' ';
    script += shellWord(study.path);
    script += '\n';
    return script;
}

std::map<int, TaskState> parseQueue(const std::string& text) {
    std::map<int, TaskState> tasks;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
        const auto a = line.find('|');
        const auto b = a == std::string::npos ? a : line.find('|', a + 1);
        if (b == std::string::npos || a == 0) continue;
        const std::string index = line.substr(0, a);
        if (index.find_first_not_of("0123456789") != std::string::npos || index.size() > 9) continue;
        tasks[std::stoi(index)] = {line.substr(a + 1, b - a - 1), line.substr(b + 1)};
    }
    return tasks;
}

bool taskEnded(const std::string& state) {
    static const std::set<std::string> ended = {
        "BOOT_FAIL", "CANCELLED", "COMPLETED", "DEADLINE",  "FAILED",      "NODE_FAIL",
        "OUT_OF_MEMORY", "PREEMPTED", "REVOKED", "SPECIAL_EXIT", "TIMEOUT"};
    return ended.count(state) > 0;
}

std::string slurmEndReason(const Study& study, const TaskState& task, const std::string& outputFile) {
    const std::string& s = task.state;
    if (s == "TIMEOUT") {
        std::string limit = study.slurm.time;
        // sbatch reads a bare number as minutes.
        if (!limit.empty() && limit.find_first_not_of("0123456789") == std::string::npos)
            limit += " min";
        return "Slurm stopped the design's task at its time limit" +
               (limit.empty() ? std::string() : " of " + limit) + " (TIMEOUT)";
    }
    if (s == "NODE_FAIL") return "the node that ran the design's task failed (NODE_FAIL)";
    if (s == "OUT_OF_MEMORY")
        return "the design's task ran out of memory" +
               (study.slurm.memory.empty() ? std::string() : " (--mem=" + study.slurm.memory + ")") +
               " (OUT_OF_MEMORY)";
    if (s == "PREEMPTED") return "Slurm preempted the design's task (PREEMPTED)";
    if (s == "BOOT_FAIL") return "the node for the design's task failed to boot (BOOT_FAIL)";
    if (s == "DEADLINE") return "the design's task passed its deadline (DEADLINE)";
    std::string why = "the design's Slurm task ended as " + s;
    if (!task.reason.empty() && task.reason != "None") why += " (" + task.reason + ")";
    return why + " without a result; see " + outputFile;
}

std::unique_ptr<Launcher> makeSlurmLauncher(const Study& study, const std::vector<Design>& designs,
                                            const RunOptions& options) {
    return std::make_unique<SlurmLauncher>(study, designs, options);
}

}  // namespace portalrun
