// The run of one design, the way the host drives a portal: a fresh run
// folder with copies of the inputs, processInputs, the solver, runCheck,
// processOutputs, finishRun. The first failure of a step is the design's
// reason; later steps that make no sense after it are left out, and
// finishRun always runs. The steps are separate so that a benchmark can time
// the portal's part without a solver.
#pragma once

#include <csignal>
#include <map>
#include <optional>
#include <string>

#include "designs.h"
#include "host.h"
#include "results.h"
#include "study.h"
#include "zeltra/interfaces.h"

namespace portalrun {

// The file the portal reads a run's messages from, in the run folder.
inline constexpr const char* kMessagesFile = "analysis_execution.messages";

class DesignRun {
public:
    DesignRun(MOSAQ::Portals::IPortal& portal, RunHost& host, const Study& study,
              const Design& design, std::string runDir);

    bool prepare();     // makeFolder, then tagInputs
    bool makeFolder();  // a fresh run folder with copies of the inputs
    bool tagInputs();   // processInputs
    bool solve(const volatile std::sig_atomic_t* stop);  // the solver and its messages
    bool check();    // runCheck
    bool collect();  // processOutputs and the study's responses
    void finish();   // finishRun

    bool failed() const { return !reason_.empty(); }
    bool interrupted() const { return interrupted_; }
    const StringStringMap& data() const { return data_; }
    DesignResult result() const;

private:
    // Records the first reason; shown says whether the portal's log already
    // showed it, so that it isn't printed twice.
    void fail(const std::string& reason, bool shown = false);
    void logErrors(const String& errors);

    MOSAQ::Portals::IPortal& portal_;
    RunHost& host_;
    const Study& study_;
    const Design& design_;
    std::string runDir_;
    StringStringMap data_;
    std::string reason_;
    bool interrupted_ = false;
    std::map<std::string, std::string> responses_;
    double solverSeconds_ = 0.0;
};

// All steps in order. Nothing when the run was interrupted: such a design
// has no result and runs again next time.
std::optional<DesignResult> runDesign(MOSAQ::Portals::IPortal& portal, RunHost& host,
                                      const Study& study, const Design& design,
                                      const std::string& runDir,
                                      const volatile std::sig_atomic_t* stop);

// Copies the lines of a solver's output that begin with a level word
// ("ERROR:", "WARNING:", "WARN:", "NOTE:", "OUTPUT:", in any case) to the end
// of the messages file. False when that file can't be written.
bool appendMessages(const std::string& outputPath, const std::string& messagesPath);

}  // namespace portalrun
