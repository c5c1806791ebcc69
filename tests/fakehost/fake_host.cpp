// The fake host's answers and records. It answers only from what the test put
// in its tables, so a test states exactly what the portal may get.
#include "fake_host.h"

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace fakehost {

bool ResponseReport::failed() const {
    auto it = caseInfo.find("errorInCall");
    return it != caseInfo.end() && it->second == "true";
}

String FakeContext::getDesignValue(const String& paramType, const String& paramName,
                                   const String& source, const String& format, String& errors) {
    designRequests.push_back({paramType, paramName, source, format});
    auto it = designValues.find(paramName);
    if (it != designValues.end()) return it->second;
    if (!errors.empty()) errors += '\n';
    errors += "ERROR: the fake host has no value for parameter '" + paramName + "'";
    return String();
}

void FakeContext::getAnalysisProperties(const String& analysisName, const String& key,
                                        StringStringMap& values) {
    propertyRequests.push_back({analysisName, key});
    auto it = analysisProperties.find({analysisName, key});
    if (it != analysisProperties.end()) values = it->second;
}

void FakeContext::reportResponse(const String& name, const StringStringMap& caseInfo,
                                 const ResponseValues& values) {
    responses.push_back({name, caseInfo, values});
}

const ResponseReport* FakeContext::response(const String& name) const {
    for (const auto& r : responses)
        if (r.name == name) return &r;
    return nullptr;
}

void FakeHost::logMessage(const String& text, const String& analysisName, int evalId, int level) {
    log.push_back({text, analysisName, evalId, level});
}

void FakeHost::reportProgress(int current, int total, const String& text, int flag) {
    progress.push_back({current, total, text, flag});
}

void FakeHost::resolveFolder(const String&, StringList&, String& folder,
                             const StringStringMap& substitutions) {
    foldersResolved.push_back(substitutions);
    auto it = substitutions.find("sub");
    folder = baseFolder + "/" + (it == substitutions.end() ? String() : it->second);
}

String FakeHost::getSetting(const String& key, const String& defaultValue) {
    settingsAsked.push_back(key);
    auto it = settings.find(key);
    return it == settings.end() ? defaultValue : it->second;
}

MOSAQ::IExtension* FakeHost::findExtension(const String& type) {
    extensionsAsked.push_back(type);
    return (offerContext && type == "Portal") ? &context : nullptr;
}

std::vector<LogLine> FakeHost::linesAt(int level) const {
    std::vector<LogLine> out;
    for (const auto& l : log)
        if (l.level == level) out.push_back(l);
    return out;
}

bool FakeHost::logged(const String& needle) const {
    for (const auto& l : log)
        if (l.text.find(needle) != String::npos) return true;
    return false;
}

bool FakeHost::logged(const String& needle, int level) const {
    for (const auto& l : log)
        if (l.level == level && l.text.find(needle) != String::npos) return true;
    return false;
}

String FakeHost::transcript() const {
    std::ostringstream out;
    for (const auto& l : log) out << '[' << l.level << "] " << l.text << '\n';
    return out.str();
}

ScopedEnv::ScopedEnv(const char* name, std::optional<String> value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    if (value) ::setenv(name, value->c_str(), 1);
    else ::unsetenv(name);
}

ScopedEnv::~ScopedEnv() {
    if (old_) ::setenv(name_.c_str(), old_->c_str(), 1);
    else ::unsetenv(name_.c_str());
}

TempDir::TempDir() {
    std::string templ = (std::filesystem::temp_directory_path() / "zeltra-test-XXXXXX").string();
    if (!::mkdtemp(templ.data())) throw std::runtime_error("mkdtemp failed");
    path_ = templ;
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

String TempDir::write(const String& name, const String& content) const {
    const String p = file(name);
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out << content;
    return p;
}

String readFile(const String& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

}  // namespace fakehost
