// xmlPortal: the display name, and the portal's own tag definition mode
// "portal" ahead of the modules. The XML walk and the portal's tag definition
// file are not built yet: the walk reports that it can't parse, and the
// portal claims no tag file, so every tag file goes on to the modules.
#include "zeltra/portal.h"

using MOSAQ::String;
using MOSAQ::StringStringMap;
using MOSAQ::Portals::ItemGroup;
using MOSAQ::Portals::TagData;

xmlPortal::xmlPortal(MOSAQ::Portals::IPortalHost* host, const String& displayName)
    : PortalImpl(host), name(displayName) {}

bool xmlPortal::parseInputFile(const String& path, void*, std::list<ItemGroup>&,
                               String& errors) {
    addError(errors, tableText(".err.parse"), path, "XML parsing is not available");
    return false;
}

bool xmlPortal::parseOutputFile(const String& path, void*, std::list<ItemGroup>&,
                                String& errors) {
    addError(errors, tableText(".err.parse"), path, "XML parsing is not available");
    return false;
}

bool xmlPortal::writeInputTagFile(const String& fileName, const std::list<TagData>& tags,
                                  const StringStringMap& data, StringStringMap& outputs,
                                  String& errors) {
    if (value(data, "mode") == "portal")
        return writeTagDefinition(fileName, tags, data, outputs, errors, true);
    return PortalImpl::writeInputTagFile(fileName, tags, data, outputs, errors);
}

bool xmlPortal::writeOutputTagFile(const String& fileName, const std::list<TagData>& tags,
                                   const StringStringMap& data, StringStringMap& outputs,
                                   String& errors) {
    if (value(data, "mode") == "portal")
        return writeTagDefinition(fileName, tags, data, outputs, errors, false);
    return PortalImpl::writeOutputTagFile(fileName, tags, data, outputs, errors);
}

int xmlPortal::readInputTags(const String& tagFile, const StringStringMap& data,
                             std::list<TagData>& tags, StringStringMap& outputs,
                             String& errors) {
    int result = readTagData(tagFile, data, tags, outputs, errors, true);
    if (result >= 0) return result;
    return PortalImpl::readInputTags(tagFile, data, tags, outputs, errors);
}

int xmlPortal::readOutputTags(const String& tagFile, const StringStringMap& data,
                              std::list<TagData>& tags, StringStringMap& outputs,
                              String& errors) {
    int result = readTagData(tagFile, data, tags, outputs, errors, false);
    if (result >= 0) return result;
    return PortalImpl::readOutputTags(tagFile, data, tags, outputs, errors);
}

bool xmlPortal::writeTagDefinition(const String& fileName, const std::list<TagData>&,
                                   const StringStringMap&, StringStringMap&, String& errors,
                                   bool) {
    addError(errors, tableText(".err.writeXmlDefnFile"), fileName);
    return false;
}

int xmlPortal::readTagData(const String&, const StringStringMap&, std::list<TagData>&,
                           StringStringMap&, String&, bool) {
    return -1;
}
