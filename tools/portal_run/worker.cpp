// One design in a worker process. The record is written only once the
// design has run to its end, and the earlier one is removed first, so a
// record that exists always belongs to the latest whole run of its design.
#include "worker.h"

#include <filesystem>

#include "design_run.h"
#include "results.h"

namespace portalrun {

namespace fs = std::filesystem;

std::string designRunDir(const Study& study, const Design& design) {
    return (fs::path(study.runs) / runFolderName(design.number)).string();
}

std::string designRecordPath(const Study& study, const Design& design) {
    return designRunDir(study, design) + "/result.toml";
}

int runWorker(const Study& study, const std::vector<Design>& designs, std::size_t index,
              const Plugin& plugin, const RunOptions& options, LogSink& sink,
              const volatile std::sig_atomic_t* stop) {
    const Design& design = designs[index];
    std::error_code ec;
    fs::remove(designRecordPath(study, design), ec);
    RunHost host(study, options.settings, plugin.folder(), &sink);
    auto portal = plugin.create(host, study.portal);
    if (!portal) {
        sink.logLine(2, design.number, "the plug-in has no portal '" + study.portal + "'");
        return kExitPlugin;
    }
    auto r = runDesign(*portal, host, study, design, designRunDir(study, design), stop);
    portal.reset();
    if (!r) return kExitInterrupted;
    r->identity = options.identity;
    std::string error;
    if (!writeResult(designRecordPath(study, design), *r, error)) {
        sink.logLine(2, design.number, error);
        return kExitWrite;
    }
    return r->status == "ok" ? kExitOk : kExitDesignsFailed;
}

}  // namespace portalrun
