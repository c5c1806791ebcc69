// The host side of HelperBase: logging with its switches, messages that are
// always shown, response reports, and the tag cache.
//
// logState: -2 not asked yet, -1 the environment is silent (the host's
// "verbose" is asked at every call), 0 off for good, 1 on for good. Once on,
// logging stays on.
#include "zeltra/helper_base.h"

#include <cstdlib>

#include "mosaq/support.h"

namespace MOSAQ::Portals {

HelperBase::HelperBase(IPortalHost* h) : host(h), context(nullptr) {
    if (!host) return;
    IExtension* found = host->findExtension("Portal");
    // The host hands out its study context as an extension of type "Portal".
    if (found && found->getType() == "Portal") context = static_cast<IPortalContext*>(found);
}

String HelperBase::environment(const String& name) {
    const char* v = std::getenv(name.c_str());
    return v ? String(v) : String();
}

bool HelperBase::environmentSet(const String& name) { return std::getenv(name.c_str()) != nullptr; }

String HelperBase::envName(const String& suffix) {
    return toUpper("MQT_" + getHelperName() + "_" + suffix);
}

namespace {

int evalIdOf(const StringStringMap& data) {
    return static_cast<int>(HelperBase::parseNumber(HelperBase::value(data, "evalId")));
}

}  // namespace

bool HelperBase::logMessage(const String& text, const StringStringMap& data, int level) {
    if (!host) return false;
    if (logState < 0) {
        if (isTrue(host->getSetting("verbose", "false"))) {
            logState = 1;
        } else if (logState < -1) {
            String v = environment(envName("LOG"));
            if (v.empty()) v = environment("MQT_PORTAL_LOG");
            logState = v.empty() ? -1 : (isTrue(v) ? 1 : 0);
        }
    }
    if (logState < 1) return false;
    if (text.empty()) return true;
    host->logMessage(text, value(data, "analysisName"), evalIdOf(data), level);
    return true;
}

bool HelperBase::logMessage(const String& text, int level) {
    return logMessage(text, StringStringMap(), level);
}

bool HelperBase::logTail(const String& text, const StringStringMap& data, int lines) {
    if (lines < 1) lines = 1;
    std::size_t cut = String::npos;
    std::size_t from = text.size();
    for (int found = 0; found < lines; ++found) {
        if (from == 0) {
            cut = String::npos;
            break;
        }
        cut = text.rfind('\n', from - 1);
        if (cut == String::npos) break;
        from = cut;
    }
    return logMessage(cut == String::npos ? text : text.substr(cut + 1), data, kLevelNote);
}

void HelperBase::showMessage(const String& text, const StringStringMap& data, int level) {
    if (!host || text.empty()) return;
    host->logMessage(text, value(data, "analysisName"), evalIdOf(data), level);
}

bool HelperBase::testingOn() {
    static const bool testing = isTrue(environment("MQA_TESTING"));
    return testing;
}

bool HelperBase::testMessage(const String& text, const StringStringMap& data, int level) {
    const bool testing = testingOn();
    if (testing) showMessage("Testing: " + text, data, level);
    return testing;
}

namespace {

StringStringMap caseInfo(const StringStringMap& data) {
    StringStringMap info;
    for (const char* key : {"analysisName", "evalId", "caseIndex"})
        info[key] = HelperBase::value(data, key);
    return info;
}

}  // namespace

void HelperBase::reportErrorInCall(const String& name, const StringStringMap& data,
                                   const String& text) {
    if (!context) return;
    StringStringMap info = caseInfo(data);
    info["errorInCall"] = "true";
    info["message"] = text;
    context->reportResponse(name, info, ResponseValues());
}

void HelperBase::reportValues(const String& name, const StringStringMap& data,
                              const ResponseValues& values) {
    if (values.numbers.empty() && values.strings.empty()) {
        reportErrorInCall(name, data, format("No values provided for response '%1'", name));
        return;
    }
    if (!context) return;
    context->reportResponse(name, caseInfo(data), values);
}

bool HelperBase::shouldCleanup() {
    if (cleanupState < 0) cleanupState = isFalse(environment(envName("CLEANUP"))) ? 0 : 1;
    return cleanupState == 1;
}

bool HelperBase::cachedTags(const String& tagFile, const String& fileKey, const String& fileName,
                            std::list<TagData>& tags, const TagReader& read) {
    const String key = Support::File::base(tagFile, true);
    if (auto it = tagCache.find(key); it != tagCache.end()) {
        tags = it->second;
        return !tags.empty();
    }
    StringStringMap data{{fileKey, fileName}};
    StringStringMap outputs;
    String errors;
    if (read(tagFile, data, tags, outputs, errors) != 0) return false;
    tagCache[key] = tags;
    return !tags.empty();
}

}  // namespace MOSAQ::Portals
