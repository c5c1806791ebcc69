// A worker sends its log lines as records over a close-on-exec pipe (level,
// design and text, ended by a NUL) and leaves its outcome in the design's
// "result.toml"; the end of the pipe tells the parent the worker is done.
// SIGINT reaches the workers with the terminal's process group; SIGTERM sent
// to the parent alone is passed on to them. Either way a worker ends its
// solver's process group and leaves no record, so the design runs again.
#include "scheduler_local.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "worker.h"

namespace portalrun {

namespace {

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
};

class LocalLauncher : public Launcher {
public:
    LocalLauncher(const Study& study, const std::vector<Design>& designs, const Plugin& plugin,
                  const RunOptions& options)
        : study_(study), designs_(designs), plugin_(plugin), options_(options) {}

    bool run(const std::vector<std::size_t>& todo, LaunchEvents& events,
             const volatile std::sig_atomic_t& stop) override;

private:
    bool launch(std::size_t index, Console& console, const volatile std::sig_atomic_t& stop);
    // One read of a worker's log records; false at the end of its pipe.
    bool readSome(Worker& w, Console& console);
    TaskEnd reap(Worker& w, Console& console);

    const Study& study_;
    const std::vector<Design>& designs_;
    const Plugin& plugin_;
    const RunOptions& options_;
    std::vector<Worker> workers_;
};

bool LocalLauncher::launch(std::size_t index, Console& console,
                           const volatile std::sig_atomic_t& stop) {
    // The record of an earlier run must not pass for this one's when the
    // worker ends before it has cleared the run folder.
    std::error_code ec;
    std::filesystem::remove(designRecordPath(study_, designs_[index]), ec);
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) {
        console.logLine(2, 0, std::string("cannot make a pipe: ") + std::strerror(errno));
        return false;
    }
    std::fflush(nullptr);  // nothing buffered may be written twice
    pid_t pid = ::fork();
    if (pid < 0) {
        console.logLine(2, 0, std::string("cannot start a worker: ") + std::strerror(errno));
        ::close(fds[0]);
        ::close(fds[1]);
        return false;
    }
    if (pid == 0) {
        ::close(fds[0]);
        for (const Worker& w : workers_) ::close(w.fd);
        ::signal(SIGPIPE, SIG_IGN);
        PipeSink sink(fds[1]);
        ::_exit(runWorker(study_, designs_, index, plugin_, options_, sink, &stop));
    }
    ::close(fds[1]);
    workers_.push_back({pid, fds[0], index, {}});
    return true;
}

bool LocalLauncher::readSome(Worker& w, Console& console) {
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
        console.logLine(level, design, w.pending.substr(from, end > from ? end - from : 0));
        w.pending.erase(0, end + 1);
    }
    return true;
}

TaskEnd LocalLauncher::reap(Worker& w, Console& console) {
    while (readSome(w, console)) {
    }
    ::close(w.fd);
    int status = 0;
    while (::waitpid(w.pid, &status, 0) < 0 && errno == EINTR) {
    }
    TaskEnd end;
    if (WIFEXITED(status) && WEXITSTATUS(status) == kExitInterrupted)
        end.kind = TaskEnd::Kind::Interrupted;
    end.writeFailed = WIFEXITED(status) && WEXITSTATUS(status) == kExitWrite;
    // Used only when the worker left no record of its design.
    end.reason = WIFSIGNALED(status)
                     ? "the design's worker process died of signal " + std::to_string(WTERMSIG(status))
                     : "the design's worker process ended with code " +
                           std::to_string(WEXITSTATUS(status)) + " and no result";
    return end;
}

bool LocalLauncher::run(const std::vector<std::size_t>& todo, LaunchEvents& events,
                        const volatile std::sig_atomic_t& stop) {
    Console& console = events.console();
    std::size_t next = 0;
    bool forwarded = false, ok = true;
    for (;;) {
        while (ok && !stop && workers_.size() < static_cast<std::size_t>(options_.jobs) &&
               next < todo.size()) {
            if (!launch(todo[next], console, stop)) {
                ok = false;
                break;
            }
            events.started(todo[next]);
            ++next;
            events.running(static_cast<int>(workers_.size()));
        }
        if (workers_.empty()) break;
        if ((stop || !ok) && !forwarded) {
            for (const Worker& w : workers_) ::kill(w.pid, SIGTERM);
            forwarded = true;
        }
        std::vector<pollfd> fds;
        for (const Worker& w : workers_) fds.push_back({w.fd, POLLIN, 0});
        if (::poll(fds.data(), fds.size(), 200) < 0) continue;  // EINTR: look at stop
        for (std::size_t k = fds.size(); k-- > 0;) {
            if (!fds[k].revents) continue;
            Worker& w = workers_[k];
            if (readSome(w, console)) continue;  // the end of the pipe: the worker is done
            const std::size_t index = w.index;
            const TaskEnd end = reap(w, console);
            workers_.erase(workers_.begin() + static_cast<std::ptrdiff_t>(k));
            events.ended(index, end);
            events.running(static_cast<int>(workers_.size()));
        }
    }
    return ok;
}

}  // namespace

std::unique_ptr<Launcher> makeLocalLauncher(const Study& study, const std::vector<Design>& designs,
                                            const Plugin& plugin, const RunOptions& options) {
    return std::make_unique<LocalLauncher>(study, designs, plugin, options);
}

}  // namespace portalrun
