// The base behaviour of a tagging module: a module that doesn't know a kind
// of tag definition writes nothing, claims no tag file and, having no tag
// files of its own in a run, has nothing to do.
#include "zeltra/tagging.h"

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
