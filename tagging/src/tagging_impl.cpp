// The base behaviour of a tagging module: a module that doesn't know a kind
// of tag definition writes nothing, claims no tag file and, having no tag
// files of its own in a run, has nothing to do.
#include "zeltra/tagging.h"

#include <cstdint>

namespace MOSAQ::Portals {

bool TaggingImpl::writeInputTagging(const String&, const std::list<TagData>&,
                                    const StringStringMap&, StringStringMap&, String&) {
    return false;
}

bool TaggingImpl::writeOutputTagging(const String&, const std::list<TagData>&,
                                     const StringStringMap&, StringStringMap&, String&) {
    return false;
}

int TaggingImpl::readInputTagging(const String&, const StringStringMap&, std::list<TagData>&,
                                  StringStringMap&, String&) {
    return -1;
}

int TaggingImpl::readOutputTagging(const String&, const StringStringMap&, std::list<TagData>&,
                                   StringStringMap&, String&) {
    return -1;
}

bool TaggingImpl::tagInputs(const StringStringMap&, void*, String&) { return true; }

bool TaggingImpl::tagOutputs(const StringStringMap&, void*, String&) { return true; }

void TaggingImpl::finishTagging(void*, void*) {}

bool TaggingImpl::getInputTags(const String& tagFile, const String& fileName,
                               std::list<TagData>& tags) {
    return cachedTags(tagFile, "inputFilename", fileName, tags,
                      [this](const String& f, const StringStringMap& d, std::list<TagData>& t,
                             StringStringMap& o, String& e) { return readInputTagging(f, d, t, o, e); });
}

bool TaggingImpl::getOutputTags(const String& tagFile, const String& fileName,
                                std::list<TagData>& tags) {
    return cachedTags(tagFile, "outputFilename", fileName, tags,
                      [this](const String& f, const StringStringMap& d, std::list<TagData>& t,
                             StringStringMap& o, String& e) { return readOutputTagging(f, d, t, o, e); });
}

}  // namespace MOSAQ::Portals

namespace MOSAQ::Portals {

void TaggingImpl::writeTagFileAttributes(pugi::xml_document&, const StringStringMap&) {}

String TaggingImpl::taggingText(const String& id) {
    return Support::StringTable::lookup("tagging", ".Portal" + id);
}

String TaggingImpl::moduleText(const String& id) {
    return Support::StringTable::lookup(getHelperName(), ".Portal" + id);
}

void TaggingImpl::addLevelLine(String& errors, const String& level, const String& pattern,
                               const StringList& args) {
    addLine(errors, formatList(normalizeLevel(pattern, level), args));
}

int TaggingImpl::wholeNumber(const String& text) {
    const double v = parseNumber(text);
    // Out-of-range texts must not overflow the conversion; they clamp and
    // then fail the range checks of the token steps.
    if (!(v > -2147483648.0)) return v != v ? 0 : INT32_MIN;
    if (!(v < 2147483647.0)) return INT32_MAX;
    return static_cast<int>(v);
}

bool TaggingImpl::preserveStages() {
    const char* v = std::getenv("MQT_PRESERVE_TAGGED_FILE_STAGES");
    return v && *v && HelperBase::isTrue(v);
}

bool TaggingImpl::copyFile(const String& from, const String& to) {
    Support::FileReader in(from, false);
    Support::FileWriter out(to, false);
    if (!in.is_open() || !out.is_open()) return false;
    if (in.peek() != std::char_traits<char>::eof()) out << in.rdbuf();
    out.close();
    return static_cast<bool>(out);
}

}  // namespace MOSAQ::Portals
