// Running a solver command. The command runs under /bin/sh -c in a process
// group of its own, so that a time limit or an interruption ends the whole
// tree it started: SIGTERM to the group, SIGKILL after a grace period. When
// runCommand returns, no process of the group is left running.
#pragma once

#include <csignal>
#include <string>

namespace portalrun {

struct CommandSpec {
    std::string command;
    std::string dir;         // working folder
    std::string stdoutPath;  // created or truncated
    std::string stderrPath;
    double timeLimit = 0.0;  // seconds; 0 means none
    double killGrace = 2.0;  // seconds from SIGTERM to SIGKILL
    // Polled while the command runs: once non-zero the group is ended as on
    // a timeout and the outcome says interrupted.
    const volatile std::sig_atomic_t* stop = nullptr;
};

struct CommandOutcome {
    bool started = false;
    std::string error;  // why it couldn't start
    int exitCode = -1;  // when it exited
    int signal = 0;     // when a signal ended it
    bool timedOut = false;
    bool interrupted = false;
    double seconds = 0.0;
};

CommandOutcome runCommand(const CommandSpec& spec);

// An environment variable the runner sets for its own use that a solver
// started later must not inherit. Called before any command runs.
void keepFromSolvers(const std::string& name);

// "${study_dir}", "${run_dir}" and "${design}" replaced; every other text
// stays as it is.
std::string expandCommand(const std::string& command, const std::string& studyDir,
                          const std::string& runDir, int design);

}  // namespace portalrun
