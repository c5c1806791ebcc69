// The host as the portal sees it, played for real: IPortalHost for log lines,
// settings and folders, IPortalContext for design values, analysis
// properties and the responses of the current design. One RunHost serves one
// portal object and one design at a time; beginDesign resets everything that
// belongs to a design, so nothing of one design leaks into the next.
#pragma once

#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "designs.h"
#include "study.h"
#include "zeltra/interfaces.h"

namespace portalrun {

using MOSAQ::String;
using MOSAQ::StringList;
using MOSAQ::StringStringMap;
using MOSAQ::Portals::ResponseValues;

// Where the lines the portal logs end up on the terminal: printed directly or
// passed to the process that owns the terminal.
class LogSink {
public:
    virtual ~LogSink() = default;
    virtual void logLine(int level, int design, const std::string& text) = 0;
};

// A response as the portal reported it.
struct ReportedResponse {
    bool failed = false;
    std::string message;  // the portal's reason when failed
    ResponseValues values;
};

class RunContext : public MOSAQ::Portals::IPortalContext {
public:
    explicit RunContext(const Study& study) : study_(study) {}

    void beginDesign(const Design* design);
    const std::map<std::string, ReportedResponse>& responses() const { return responses_; }

    String getType() override { return "Portal"; }
    String getName() override { return "portal-run"; }
    MOSAQ::IProperties& getProperties() override { return properties_; }
    void* getInterface(int) override { return nullptr; }
    String getDesignValue(const String& paramType, const String& paramName, const String& source,
                          const String& format, String& errors) override;
    void getAnalysisProperties(const String& analysisName, const String& key,
                               StringStringMap& values) override;
    void reportResponse(const String& name, const StringStringMap& caseInfo,
                        const ResponseValues& values) override;

private:
    const Study& study_;
    const Design* design_ = nullptr;
    std::map<std::string, ReportedResponse> responses_;
    MOSAQ::IProperties properties_;
};

class RunHost : public MOSAQ::Portals::IPortalHost {
public:
    // settings: the study's, with the command line's laid over them.
    // installFolder: the plug-in's folder. sink may be null (log file only).
    RunHost(const Study& study, std::map<std::string, std::string> settings,
            std::string installFolder, LogSink* sink);

    RunContext& context() { return context_; }

    // Starts a design: its values, its run folder and its log file
    // "portal.log" there (appended to). An empty runDir means no design.
    void beginDesign(const Design* design, const std::string& runDir);
    // A line of the runner's own about the current design, logged like the
    // portal's.
    void note(int level, const std::string& text);
    // The error and warning lines of the current design, oldest first.
    const std::vector<std::string>& problems() const { return problems_; }
    // Whether an error or warning line of the current design said text.
    bool hasProblem(const std::string& text) const;
    // Whether the setting "verbose" is on, as the portal reads it.
    bool verbose() const;

    void logMessage(const String& text, const String& analysisName, int evalId,
                    int level) override;
    void reportProgress(int, int, const String&, int) override {}
    void resolveFolder(const String& name, StringList& extra, String& folder,
                       const StringStringMap& substitutions) override;
    String getInstallFolder() override { return installFolder_; }
    String getSetting(const String& key, const String& defaultValue) override;
    MOSAQ::IExtension* findExtension(const String& type) override;

private:
    const Study& study_;
    RunContext context_;
    std::map<std::string, std::string> settings_;
    std::string installFolder_;
    LogSink* sink_;
    int design_ = 0;
    std::string runDir_;
    std::ofstream log_;
    std::vector<std::string> problems_;
};

// The word a level is shown with: "error", "warning", "note", "solver".
const char* levelName(int level);

// The text without a leading level word ("ERROR:", "Warning:", ...; any
// case) that names the level it is logged at: every line is shown with its
// level in front, and a word of its own would only say it twice.
std::string withoutLevelWord(const std::string& text, int level);

}  // namespace portalrun
