// PortalImpl: construction of the module set, the dispatch of tag definition
// writes and reads to the modules, the portal's tag cache and the end of a run.
#include "zeltra/portal.h"

namespace MOSAQ::Portals {

PortalImpl::PortalImpl(IPortalHost* h)
    : HelperBase(h), marking(h), xml(h), scripting(h) {
    if (environmentSet("MQA_TESTING_ALL_PORTAL_MESSAGES")) dumpStringTable();
}

PortalImpl::~PortalImpl() = default;

void* PortalImpl::getInterface(int kind) {
    return kind == kPortalInterfaceKind ? static_cast<IPortal*>(this) : nullptr;
}

TaggingImpl* PortalImpl::writerFor(const StringStringMap& data) {
    const String mode = value(data, "mode");
    if (mode == "fixed" || mode == "free") return &marking;
    if (mode == "xml") return &xml;
    if (mode == "script") return &scripting;
    return nullptr;
}

bool PortalImpl::writeInputTagFile(const String& fileName, const std::list<TagData>& tags,
                                   const StringStringMap& data, StringStringMap& outputs,
                                   String& errors) {
    TaggingImpl* module = writerFor(data);
    return module && module->writeInputTagging(fileName, tags, data, outputs, errors);
}

bool PortalImpl::writeOutputTagFile(const String& fileName, const std::list<TagData>& tags,
                                    const StringStringMap& data, StringStringMap& outputs,
                                    String& errors) {
    TaggingImpl* module = writerFor(data);
    return module && module->writeOutputTagging(fileName, tags, data, outputs, errors);
}

int PortalImpl::readInputTags(const String& tagFile, const StringStringMap& data,
                              std::list<TagData>& tags, StringStringMap& outputs,
                              String& errors) {
    int result = -1;
    for (TaggingImpl* module : modules()) {
        result = module->readInputTagging(tagFile, data, tags, outputs, errors);
        if (result >= 0) break;
    }
    return result;
}

int PortalImpl::readOutputTags(const String& tagFile, const StringStringMap& data,
                               std::list<TagData>& tags, StringStringMap& outputs,
                               String& errors) {
    int result = -1;
    for (TaggingImpl* module : modules()) {
        result = module->readOutputTagging(tagFile, data, tags, outputs, errors);
        if (result >= 0) break;
    }
    return result;
}

void PortalImpl::finishRun(void* opaque1, void* opaque2) {
    for (TaggingImpl* module : modules()) module->finishTagging(opaque1, opaque2);
}

bool PortalImpl::extractResponses(const String&, const StringStringMap&,
                                  const std::list<TagData>&, String&) {
    return false;
}

bool PortalImpl::checkFinish(const StringStringMap&, bool&, StringStringMap&) { return false; }

bool PortalImpl::getInputTags(const String& tagFile, const String& fileName,
                              std::list<TagData>& tags) {
    return cachedTags(tagFile, "inputFilename", fileName, tags,
                      [this](const String& f, const StringStringMap& d, std::list<TagData>& t,
                             StringStringMap& o, String& e) { return readInputTags(f, d, t, o, e); });
}

bool PortalImpl::getOutputTags(const String& tagFile, const String& fileName,
                               std::list<TagData>& tags) {
    return cachedTags(tagFile, "outputFilename", fileName, tags,
                      [this](const String& f, const StringStringMap& d, std::list<TagData>& t,
                             StringStringMap& o, String& e) { return readOutputTags(f, d, t, o, e); });
}

bool PortalImpl::getSaveFlag(String flag, bool defaultValue) {
    const String name = envName("SAVE");
    if (environmentSet(name)) flag = environment(name);
    if (flag.empty()) return defaultValue;
    if (defaultValue) return !isFalse(flag);
    return isTrue(flag);
}

String PortalImpl::tableText(const String& id) {
    return Support::StringTable::lookup(getName(), ".Portal" + id);
}

}  // namespace MOSAQ::Portals
