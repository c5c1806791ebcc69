// RunHost and RunContext. Design values come from the current design and are
// formatted by the tag's print format; a value that can't be given is an
// "ERROR: " line in the caller's errors, the way the portal reports its own
// failures, so the design fails with the reason in its record.
#include "host.h"

#include <strings.h>

#include <cctype>
#include <cstring>
#include <filesystem>

namespace portalrun {

namespace {

void appendError(String& errors, const std::string& text) {
    if (!errors.empty()) errors += "\n";
    errors += "ERROR: " + text;
}

// Keeps a design's record readable when a portal floods it.
constexpr std::size_t kMaxProblems = 200;

}  // namespace

std::string withoutLevelWord(const std::string& text, int level) {
    static const std::pair<int, const char*> kWords[] = {
        {2, "ERROR:"}, {4, "WARNING:"}, {4, "WARN:"}, {8, "NOTE:"}, {16, "OUTPUT:"}};
    for (const auto& [wordLevel, word] : kWords) {
        const std::size_t n = std::strlen(word);
        if (wordLevel != level || ::strncasecmp(text.c_str(), word, n) != 0) continue;
        const std::size_t rest = text.find_first_not_of(' ', n);
        return rest == std::string::npos ? std::string() : text.substr(rest);
    }
    return text;
}

const char* levelName(int level) {
    switch (level) {
        case 2: return "error";
        case 4: return "warning";
        case 16: return "solver";
        default: return "note";
    }
}

void RunContext::beginDesign(const Design* design) {
    design_ = design;
    responses_.clear();
}

String RunContext::getDesignValue(const String& paramType, const String& paramName,
                                  const String&, const String& format, String& errors) {
    if (!design_) {
        appendError(errors, "no design is being run");
        return {};
    }
    Value value;
    bool found = false;
    if (paramType == "internal" && paramName == "Design_Num") {
        value = Value::ofInteger(design_->number);
        found = true;
    }
    for (std::size_t i = 0; !found && i < study_.parameters.size(); ++i) {
        if (study_.parameters[i].name == paramName) {
            value = design_->values[i];
            found = true;
        }
    }
    if (!found) {
        appendError(errors, "the study has no parameter '" + paramName + "'");
        return {};
    }
    std::string out, why;
    if (!formatValue(value, format, out, why)) {
        appendError(errors, "parameter '" + paramName + "': " + why);
        return {};
    }
    return out;
}

void RunContext::getAnalysisProperties(const String&, const String& key,
                                       StringStringMap& values) {
    values.clear();
    if (auto it = study_.properties.find(key); it != study_.properties.end()) {
        values.insert(it->second.begin(), it->second.end());
        return;
    }
    const std::string prefix = "responseDataType#";
    if (key.rfind(prefix, 0) != 0) return;
    for (const Response& r : study_.responses)
        if (r.name == key.substr(prefix.size()))
            values["responseDataType"] = r.numeric ? "Numeric" : "Text";
}

void RunContext::reportResponse(const String& name, const StringStringMap& caseInfo,
                                const ResponseValues& values) {
    ReportedResponse r;
    auto failed = caseInfo.find("errorInCall");
    r.failed = failed != caseInfo.end() && failed->second == "true";
    if (auto m = caseInfo.find("message"); m != caseInfo.end()) r.message = m->second;
    r.values = values;
    // A response reported twice keeps its first failure: a later value must
    // not hide that the read went wrong once.
    auto [it, fresh] = responses_.emplace(name, r);
    if (!fresh && !it->second.failed) it->second = r;
}

RunHost::RunHost(const Study& study, std::map<std::string, std::string> settings,
                 std::string installFolder, LogSink* sink)
    : study_(study),
      context_(study),
      settings_(std::move(settings)),
      installFolder_(std::move(installFolder)),
      sink_(sink) {}

void RunHost::beginDesign(const Design* design, const std::string& runDir) {
    context_.beginDesign(design);
    design_ = design ? design->number : 0;
    runDir_ = runDir;
    problems_.clear();
    if (log_.is_open()) log_.close();
    if (!runDir.empty()) log_.open(runDir + "/portal.log", std::ios::app | std::ios::binary);
}

void RunHost::note(int level, const std::string& text) {
    logMessage(text, study_.name, design_, level);
}

bool RunHost::hasProblem(const std::string& text) const {
    for (const std::string& p : problems_)
        if (p == std::string(levelName(2)) + ": " + text || p == std::string(levelName(4)) + ": " + text)
            return true;
    return false;
}

void RunHost::logMessage(const String& rawText, const String&, int, int level) {
    // Every line is shown with its level's name in front; a level word the
    // text carries itself would only say it twice.
    const std::string text = withoutLevelWord(rawText, level);
    // The portal's evalId is the one the runner gave it; the runner's own
    // count is used so that lines of a portal without data still land right.
    if (log_.is_open()) log_ << levelName(level) << ": " << text << "\n" << std::flush;
    if ((level == 2 || level == 4) && problems_.size() < kMaxProblems)
        problems_.push_back(std::string(levelName(level)) + ": " + text);
    if (sink_) sink_->logLine(level, design_, text);
}

void RunHost::resolveFolder(const String&, StringList&, String& folder,
                            const StringStringMap& substitutions) {
    std::filesystem::path base(runDir_.empty() ? study_.dir : runDir_);
    auto sub = substitutions.find("sub");
    if (sub != substitutions.end() && !sub->second.empty()) base /= sub->second;
    folder = base.lexically_normal().string();
}

String RunHost::getSetting(const String& key, const String& defaultValue) {
    auto it = settings_.find(key);
    return it == settings_.end() ? defaultValue : it->second;
}

bool RunHost::verbose() const {
    auto it = settings_.find("verbose");
    if (it == settings_.end()) return false;
    std::string v;
    for (char c : it->second) v += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return v == "true" || v == "yes" || v == "1";
}

MOSAQ::IExtension* RunHost::findExtension(const String& type) {
    return type == "Portal" ? &context_ : nullptr;
}

}  // namespace portalrun
