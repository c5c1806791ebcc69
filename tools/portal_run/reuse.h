// When a design's record from an earlier run still stands for the current
// study. A record is reused only when everything that decides the design's
// result is what it was: the study's identity (a hash per part: the solver,
// the files and their tag files by content, the responses, the portal's
// setup, the plug-in by content), the design's parameter values by name and
// the study's responses by name. Any difference runs the design again, and
// the cause is kept so the summary can say why.
#pragma once

#include <map>
#include <optional>
#include <string>

#include "designs.h"
#include "results.h"
#include "study.h"

namespace portalrun {

// Part name -> hash in hex, as a record keeps it under [identity].
using StudyIdentity = std::map<std::string, std::string>;

// The hash of a file's content in hex; false when it can't be read.
bool fileHash(const std::string& path, std::string& hex);

// The identity of a study as it runs now. settings: the host settings in
// effect (the study's with the command line's over them); pluginHash: the
// fileHash of the plug-in. False with a reason when an input or tag file
// can't be read.
bool studyIdentity(const Study& study, const std::map<std::string, std::string>& settings,
                   const std::string& pluginHash, StudyIdentity& out, std::string& error);

// The file the dynamic loader took for a library opened by this path (it
// may have searched for it); the path itself when that can't be told.
std::string loadedLibraryFile(const std::string& path);

struct ReuseVerdict {
    bool reuse = false;
    std::string cause;  // why it runs again; empty when there was no record at all
};

// Whether the record at recordPath stands for this design of this study.
// record is what readResult gave for that path.
ReuseVerdict judgeRecord(const std::optional<DesignResult>& record, const std::string& recordPath,
                         const Study& study, const Design& design, const StudyIdentity& identity,
                         bool retryFailed);

}  // namespace portalrun
