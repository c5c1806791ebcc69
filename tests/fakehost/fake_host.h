// A fake host for portal and tagging tests: an IPortalHost and an
// IPortalContext that record every call made on them and answer from tables
// the test fills. Also small test aids: a scoped environment variable and a
// scratch folder removed at the end of the test.
#pragma once

#include <filesystem>
#include <optional>
#include <utility>
#include <vector>

#include "zeltra/interfaces.h"

namespace fakehost {

using MOSAQ::String;
using MOSAQ::StringList;
using MOSAQ::StringStringMap;
using MOSAQ::Portals::ResponseValues;

struct LogLine {
    String text;
    String analysisName;
    int evalId;
    int level;
};

struct ProgressCall {
    int current;
    int total;
    String text;
    int flag;
};

struct DesignValueRequest {
    String paramType;
    String paramName;
    String source;
    String format;
};

struct PropertiesRequest {
    String analysisName;
    String key;
};

struct ResponseReport {
    String name;
    StringStringMap caseInfo;
    ResponseValues values;
    bool failed() const;  // reported as "errorInCall"
};

class FakeContext : public MOSAQ::Portals::IPortalContext {
public:
    // Answers: design values by parameter name; an unknown name gives an empty
    // value and an error line. Analysis property groups by (analysis, key).
    std::map<String, String> designValues;
    std::map<std::pair<String, String>, StringStringMap> analysisProperties;
    String type = "Portal";

    // Records.
    std::vector<DesignValueRequest> designRequests;
    std::vector<PropertiesRequest> propertyRequests;
    std::vector<ResponseReport> responses;

    String getType() override { return type; }
    String getName() override { return "FakeContext"; }
    MOSAQ::IProperties& getProperties() override { return properties_; }
    void* getInterface(int) override { return nullptr; }
    String getDesignValue(const String& paramType, const String& paramName, const String& source,
                          const String& format, String& errors) override;
    void getAnalysisProperties(const String& analysisName, const String& key,
                               StringStringMap& values) override;
    void reportResponse(const String& name, const StringStringMap& caseInfo,
                        const ResponseValues& values) override;

    const ResponseReport* response(const String& name) const;

private:
    MOSAQ::IProperties properties_;
};

class FakeHost : public MOSAQ::Portals::IPortalHost {
public:
    FakeContext context;
    bool offerContext = true;  // findExtension("Portal") gives the context

    // Answers.
    std::map<String, String> settings;
    String baseFolder = "/tmp";
    String installFolder = "/opt/host";

    // Records.
    std::vector<LogLine> log;
    std::vector<ProgressCall> progress;
    std::vector<String> settingsAsked;
    std::vector<String> extensionsAsked;
    std::vector<StringStringMap> foldersResolved;

    void logMessage(const String& text, const String& analysisName, int evalId,
                    int level) override;
    void reportProgress(int current, int total, const String& text, int flag) override;
    void resolveFolder(const String& name, StringList& extra, String& folder,
                       const StringStringMap& substitutions) override;
    String getInstallFolder() override { return installFolder; }
    String getSetting(const String& key, const String& defaultValue) override;
    MOSAQ::IExtension* findExtension(const String& type) override;

    // Log lines at one level, and whether any line holds a text.
    std::vector<LogLine> linesAt(int level) const;
    bool logged(const String& needle) const;
    bool logged(const String& needle, int level) const;
    // Every log text, one a line, for failure messages.
    String transcript() const;
};

// Sets (or unsets, with nullopt) an environment variable for one scope.
class ScopedEnv {
public:
    ScopedEnv(const char* name, std::optional<String> value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    String name_;
    std::optional<String> old_;
};

// A fresh folder under the system's temporary folder, removed with its
// contents at the end of the scope.
class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const String& path() const { return path_; }
    String file(const String& name) const { return path_ + "/" + name; }
    // Writes a file in the folder and gives its path.
    String write(const String& name, const String& content) const;

private:
    String path_;
};

// The whole content of a file; empty when it can't be read.
String readFile(const String& path);

}  // namespace fakehost
