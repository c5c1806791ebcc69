// One design through the portal. The portal tells its failures in an errors
// text whose lines carry level words; those lines are logged at their level
// so they reach the terminal, "portal.log" and the design's record, and the
// first "ERROR" line becomes the reason when the step failed.
#include "design_run.h"

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "process.h"

namespace portalrun {

namespace fs = std::filesystem;

namespace {

std::string join(const std::vector<std::string>& parts, const char* sep) {
    std::string out;
    for (std::size_t i = 0; i < parts.size(); ++i) out += (i ? sep : "") + parts[i];
    return out;
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);) {
        if (!l.empty() && l.back() == '\r') l.pop_back();
        if (l.find_first_not_of(" \t") != std::string::npos) out.push_back(l);
    }
    return out;
}

bool startsWithWord(const std::string& line, const char* word) {
    return ::strncasecmp(line.c_str(), word, std::strlen(word)) == 0;
}

// The line that says best what went wrong, without its level word.
std::string firstError(const String& errors) {
    const auto all = lines(errors);
    for (const std::string& l : all) {
        if (l.find("ERROR") == std::string::npos && l.find("Error") == std::string::npos) continue;
        return withoutLevelWord(l, 2);
    }
    return all.empty() ? "the portal gave no reason" : all.front();
}

std::string responseText(const ResponseValues& v) {
    std::vector<std::string> parts;
    for (double d : v.numbers) parts.push_back(valueText(Value::ofReal(d)));
    for (const std::string& s : v.strings) parts.push_back(s);
    return join(parts, ";");
}

const char* signalName(int sig) {
    const char* name = ::sigabbrev_np(sig);
    return name ? name : "?";
}

}  // namespace

bool appendMessages(const std::string& outputPath, const std::string& messagesPath) {
    std::ifstream in(outputPath, std::ios::binary);
    std::ofstream out(messagesPath, std::ios::app | std::ios::binary);
    if (!out) return false;
    for (std::string l; std::getline(in, l);) {
        if (!l.empty() && l.back() == '\r') l.pop_back();
        for (const char* word : {"ERROR:", "WARNING:", "WARN:", "NOTE:", "OUTPUT:"}) {
            if (startsWithWord(l, word)) {
                out << l << "\n";
                break;
            }
        }
    }
    return static_cast<bool>(out.flush());
}

DesignRun::DesignRun(MOSAQ::Portals::IPortal& portal, RunHost& host, const Study& study,
                     const Design& design, std::string runDir)
    : portal_(portal), host_(host), study_(study), design_(design), runDir_(std::move(runDir)) {
    std::vector<std::string> inputs, inputTags, outputs, outputTags;
    for (const FileSpec& f : study.inputs) {
        inputs.push_back((fs::path(runDir_) / fs::path(f.file).filename()).string());
        inputTags.push_back(f.tags);
    }
    for (const FileSpec& f : study.outputs) {
        outputs.push_back((fs::path(runDir_) / f.file).lexically_normal().string());
        outputTags.push_back(f.tags);
    }
    data_ = {{"analysisName", study.name},
             {"analysisDir", study.name},
             {"evalId", std::to_string(design.number)},
             {"caseIndex", "0"},
             {"destDir", runDir_},
             {"version", study.version},
             {"solverName", study.portal},
             {"inputFilepaths", join(inputs, "\n")},
             {"inputTagFilepaths", join(inputTags, "\n")},
             {"outputFilepaths", join(outputs, "\n")},
             {"outputTagFilepaths", join(outputTags, "\n")}};
}

void DesignRun::fail(const std::string& reason, bool shown) {
    if (!shown) host_.note(2, reason);
    if (reason_.empty()) reason_ = reason;
}

void DesignRun::logErrors(const String& errors) {
    for (const std::string& l : lines(errors)) {
        int level = l.find("ERROR") != std::string::npos || l.find("Exception caught") != std::string::npos
                        ? 2
                        : l.find("WARNING") != std::string::npos ? 4 : 8;
        // Plain lines narrate the steps: shown like the portal's own log.
        if (level != 8 || host_.verbose()) host_.note(level, l);
    }
}

bool DesignRun::prepare() {
    return makeFolder() && tagInputs();
}

bool DesignRun::makeFolder() {
    std::error_code ec;
    fs::remove_all(runDir_, ec);  // what an unfinished attempt left
    fs::create_directories(runDir_, ec);
    if (ec) {
        host_.beginDesign(&design_, "");
        fail("cannot create the run folder " + runDir_ + ": " + ec.message());
        return false;
    }
    host_.beginDesign(&design_, runDir_);
    for (const FileSpec& f : study_.inputs) {
        fs::copy_file(f.file, fs::path(runDir_) / fs::path(f.file).filename(),
                      fs::copy_options::overwrite_existing, ec);
        if (ec) {
            fail("cannot copy the input " + f.file + ": " + ec.message());
            return false;
        }
    }
    return true;
}

bool DesignRun::tagInputs() {
    String errors;
    bool ok = portal_.processInputs(data_, nullptr, errors);
    logErrors(errors);
    if (!ok || errors.find("ERROR") != String::npos)
        fail("preparing the inputs failed: " + firstError(errors),
             host_.hasProblem(firstError(errors)));
    return !failed();
}

bool DesignRun::solve(const volatile std::sig_atomic_t* stop) {
    CommandSpec spec;
    spec.command = expandCommand(study_.command, study_.dir, runDir_, design_.number);
    spec.dir = runDir_;
    spec.stdoutPath = runDir_ + "/solver.out";
    spec.stderrPath = runDir_ + "/solver.err";
    spec.timeLimit = study_.timeLimit;
    spec.killGrace = study_.killGrace;
    spec.stop = stop;
    const CommandOutcome o = runCommand(spec);
    solverSeconds_ = o.seconds;
    if (!o.started) {
        fail(o.error);
        return false;
    }
    const std::string messages = runDir_ + "/" + kMessagesFile;
    if (!appendMessages(spec.stdoutPath, messages) || !appendMessages(spec.stderrPath, messages))
        fail("cannot write " + messages);
    char limit[32];
    std::snprintf(limit, sizeof limit, "%g", study_.timeLimit);
    if (o.interrupted) interrupted_ = true;
    else if (o.timedOut) fail(std::string("the solver ran past the time limit of ") + limit + " s");
    else if (o.signal) fail("the solver was killed by signal " + std::to_string(o.signal) + " (SIG" +
                            signalName(o.signal) + ")");
    else if (o.exitCode != 0) fail("the solver exited with code " + std::to_string(o.exitCode));
    return !failed() && !interrupted_;
}

bool DesignRun::check() {
    bool success = false;
    StringStringMap outputs;
    portal_.runCheck("checkFinish", data_, success, outputs);  // the host's to judge: no verdict
    success = true;
    outputs.clear();
    if (portal_.runCheck("checkSuccess", data_, success, outputs) && !success) {
        std::string first = "see " + std::string(kMessagesFile);
        std::ifstream in(runDir_ + "/" + kMessagesFile, std::ios::binary);
        for (std::string l; std::getline(in, l);) {
            if (startsWithWord(l, "ERROR:")) {
                first = withoutLevelWord(l, 2);
                break;
            }
        }
        // The portal has shown the solver's messages at their levels.
        fail("the solver reported an error: " + first, host_.hasProblem(first));
    }
    return !failed();
}

bool DesignRun::collect() {
    String errors;
    bool ok = portal_.processOutputs(data_, nullptr, errors);
    logErrors(errors);
    const auto& got = host_.context().responses();
    for (const Response& r : study_.responses) {
        std::string& text = responses_[r.name];
        auto it = got.find(r.name);
        if (it == got.end()) fail("the response '" + r.name + "' was not reported");
        else if (it->second.failed) fail("the response '" + r.name + "' couldn't be read: " + it->second.message);
        else text = responseText(it->second.values);
    }
    if (!ok || errors.find("ERROR") != String::npos)
        fail("reading the outputs failed: " + firstError(errors),
             host_.hasProblem(firstError(errors)));
    return !failed();
}

void DesignRun::finish() {
    portal_.finishRun(nullptr, nullptr);
}

DesignResult DesignRun::result() const {
    DesignResult r;
    r.design = design_.number;
    r.status = failed() ? "failed" : "ok";
    r.reason = reason_;
    r.parameters = parameterValues(study_, design_);
    for (const Response& resp : study_.responses) {
        auto it = responses_.find(resp.name);
        r.responses[resp.name] = it == responses_.end() ? "" : it->second;
    }
    r.messages = host_.problems();
    r.seconds = solverSeconds_;
    return r;
}

std::optional<DesignResult> runDesign(MOSAQ::Portals::IPortal& portal, RunHost& host,
                                      const Study& study, const Design& design,
                                      const std::string& runDir,
                                      const volatile std::sig_atomic_t* stop) {
    const auto t0 = std::chrono::steady_clock::now();
    DesignRun run(portal, host, study, design, runDir);
    if (run.prepare()) {
        run.solve(stop);
        if (!run.interrupted()) {
            // The check shows the solver's messages even after a failed run.
            run.check();
            if (!run.failed()) run.collect();
        }
    }
    run.finish();
    DesignResult r = run.result();
    host.beginDesign(nullptr, "");
    if (run.interrupted()) return std::nullopt;
    r.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    return r;
}

}  // namespace portalrun
