// The solver's process and its group. The runner waits on a pidfd where the
// kernel has one (no busy polling, no SIGCHLD handler that would clash with a
// caller's) and falls back to short sleeps otherwise. Every descriptor the
// runner opens is close-on-exec, so a solver never holds a pipe of the
// runner's open and delays the end of a design.
#include "process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <thread>
#include <vector>

namespace portalrun {

namespace {

using Clock = std::chrono::steady_clock;

double since(Clock::time_point t0) {
    return std::chrono::duration<double>(Clock::now() - t0).count();
}

int openPidfd(pid_t pid) {
#ifdef SYS_pidfd_open
    return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
#else
    (void)pid;
    return -1;
#endif
}

// Filled before any fork; the child only reads it.
std::vector<std::string>& hiddenVariables() {
    static std::vector<std::string> names;
    return names;
}

[[noreturn]] void execShell(const CommandSpec& s, int in, int out, int err) {
    ::setpgid(0, 0);
    for (int sig : {SIGINT, SIGTERM, SIGPIPE, SIGCHLD, SIGQUIT, SIGHUP}) ::signal(sig, SIG_DFL);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    if (::dup2(in, 0) < 0 || ::dup2(out, 1) < 0 || ::dup2(err, 2) < 0) ::_exit(127);
    if (::chdir(s.dir.c_str()) != 0) {
        const char* msg = "portal-run: cannot enter the run folder\n";
        [[maybe_unused]] auto n = ::write(2, msg, std::strlen(msg));
        ::_exit(127);
    }
    for (const std::string& name : hiddenVariables()) ::unsetenv(name.c_str());
    ::execl("/bin/sh", "sh", "-c", s.command.c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
}

class Child {
public:
    explicit Child(pid_t pid) : pid_(pid), pidfd_(openPidfd(pid)) {}
    ~Child() {
        if (pidfd_ >= 0) ::close(pidfd_);
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    // Waits until the shell ended or `seconds` passed or, when watched, stop
    // was raised. True once the shell is reaped.
    bool wait(double seconds, const volatile std::sig_atomic_t* stop) {
        const auto t0 = Clock::now();
        for (;;) {
            reapGroup();
            if (reaped_) return true;
            double left = seconds - since(t0);
            if (left <= 0 || (stop && *stop)) return false;
            int ms = static_cast<int>(std::min(left * 1000.0 + 1, 50.0));
            if (pidfd_ >= 0) {
                pollfd p{pidfd_, POLLIN, 0};
                ::poll(&p, 1, ms);
            } else {
                std::this_thread::sleep_for(std::chrono::milliseconds(std::min(ms, 2)));
            }
        }
    }

    // Ends the group: SIGTERM, the grace period for the group to go, SIGKILL
    // to whatever is left, and everything of it reaped.
    void end(double grace) {
        ::kill(-pid_, SIGTERM);
        if (!reaped_) ::kill(pid_, SIGTERM);  // also when it left its group
        const auto t0 = Clock::now();
        wait(grace, nullptr);
        while (groupAlive() && since(t0) < grace)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        sweep();
    }

    // Whatever the shell left running in its group is killed and reaped.
    void sweep() {
        if (!reaped_) ::kill(pid_, SIGKILL);
        if (!groupAlive() && reaped_) return;
        ::kill(-pid_, SIGKILL);
        const auto t0 = Clock::now();
        while ((!reaped_ || groupAlive()) && since(t0) < 2.0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (!reaped_ && ::waitpid(pid_, &status_, 0) == pid_) reaped_ = true;
    }

    int status() const { return status_; }

private:
    // Reaps the shell and, since this process is their subreaper, the
    // members of its group whose parents are gone, so they don't linger as
    // zombies that keep the group alive.
    void reapGroup() {
        int st = 0;
        // The shell by its pid first: a solver it exec'd may have left the
        // group, and must still be seen to end.
        if (!reaped_ && ::waitpid(pid_, &st, WNOHANG) == pid_) {
            status_ = st;
            reaped_ = true;
        }
        for (pid_t r; (r = ::waitpid(-pid_, &st, WNOHANG)) > 0;) {
            if (r == pid_) {
                status_ = st;
                reaped_ = true;
            }
        }
    }

    bool groupAlive() {
        reapGroup();
        return ::kill(-pid_, 0) == 0 || errno == EPERM;
    }

    pid_t pid_;
    int pidfd_;
    int status_ = 0;
    bool reaped_ = false;
};

int openOut(const std::string& path) {
    return ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
}

}  // namespace

CommandOutcome runCommand(const CommandSpec& s) {
    CommandOutcome o;
    // Orphans of the solver come to this process, which reaps them; the
    // caller becomes their subreaper for good.
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    const auto t0 = Clock::now();
    int in = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    int out = openOut(s.stdoutPath);
    int err = openOut(s.stderrPath);
    pid_t pid = -1;
    if (in < 0 || out < 0 || err < 0) {
        o.error = std::string("cannot create the solver's output files: ") + std::strerror(errno);
    } else if ((pid = ::fork()) < 0) {
        o.error = std::string("cannot start the solver: ") + std::strerror(errno);
    } else if (pid == 0) {
        execShell(s, in, out, err);
    }
    for (int fd : {in, out, err})
        if (fd >= 0) ::close(fd);
    if (pid <= 0) return o;

    ::setpgid(pid, pid);  // also here, so no signal can miss the group
    o.started = true;
    Child child(pid);
    const double limit = s.timeLimit > 0 ? s.timeLimit : std::numeric_limits<double>::infinity();
    if (!child.wait(limit, s.stop)) {
        o.interrupted = s.stop && *s.stop;
        o.timedOut = !o.interrupted;
        child.end(s.killGrace);
    } else {
        // Helpers the solver left behind in its group end with it.
        child.sweep();
    }
    if (WIFEXITED(child.status())) o.exitCode = WEXITSTATUS(child.status());
    if (WIFSIGNALED(child.status())) o.signal = WTERMSIG(child.status());
    o.seconds = since(t0);
    return o;
}

namespace {

// The value quoted for the shell where it stands: unquoted it becomes one
// single-quoted word; inside single quotes each quote of its own closes,
// escapes and reopens; inside double quotes the four characters that keep a
// meaning there are escaped. So the shell always sees the value as written.
std::string quoteFor(char state, const std::string& value) {
    std::string out;
    if (state == '"') {
        for (char c : value) {
            if (c == '\\' || c == '"' || c == '$' || c == '`') out += '\\';
            out += c;
        }
        return out;
    }
    for (char c : value) out += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return state == '\'' ? out : "'" + out + "'";
}

}  // namespace

std::string expandCommand(const std::string& command, const std::string& studyDir,
                          const std::string& runDir, int design) {
    const std::pair<std::string, std::string> vars[] = {
        {"${study_dir}", studyDir}, {"${run_dir}", runDir}, {"${design}", std::to_string(design)}};
    std::string out;
    char state = 0;  // 0 outside quotes, else the quote we are in
    for (std::size_t i = 0; i < command.size();) {
        bool hit = false;
        for (const auto& [name, value] : vars) {
            if (command.compare(i, name.size(), name) == 0) {
                out += quoteFor(state, value);
                i += name.size();
                hit = true;
                break;
            }
        }
        if (hit) continue;
        const char c = command[i++];
        out += c;
        if (c == '\\' && state != '\'' && i < command.size()) {
            out += command[i++];  // escaped: no quote begins or ends here
        } else if ((c == '\'' || c == '"') && (state == 0 || state == c)) {
            state = state ? 0 : c;
        }
    }
    return out;
}

void keepFromSolvers(const std::string& name) { hiddenVariables().push_back(name); }

}  // namespace portalrun
