// xmlPortal: the display name, the portal's own tag definition mode "portal"
// ahead of the modules, and the input side: after the modules, the design's
// values go into the XML inputs that have a tag file of the portal's own.
//
// Reads ask the portal's own tag file reader first; only a negative result
// passes a tag file on to the modules.
#include "xml_portal_files.h"
#include "zeltra/portal.h"

using MOSAQ::String;
using MOSAQ::StringList;
using MOSAQ::StringStringMap;
using MOSAQ::Portals::TagData;
using MOSAQ::Support::File;
namespace xmlfiles = MOSAQ::Portals::xmlfiles;

xmlPortal::xmlPortal(MOSAQ::Portals::IPortalHost* host, const String& displayName)
    : PortalImpl(host), name(displayName) {}

bool xmlPortal::writeInputTagFile(const String& fileName, const std::list<TagData>& tags,
                                  const StringStringMap& data, StringStringMap& outputs,
                                  String& errors) {
    if (value(data, "mode") == "portal")
        return writeTagDefinition(fileName, tags, data, outputs, true, errors);
    return PortalImpl::writeInputTagFile(fileName, tags, data, outputs, errors);
}

bool xmlPortal::writeOutputTagFile(const String& fileName, const std::list<TagData>& tags,
                                   const StringStringMap& data, StringStringMap& outputs,
                                   String& errors) {
    if (value(data, "mode") == "portal")
        return writeTagDefinition(fileName, tags, data, outputs, false, errors);
    return PortalImpl::writeOutputTagFile(fileName, tags, data, outputs, errors);
}

int xmlPortal::readInputTags(const String& tagFile, const StringStringMap& data,
                             std::list<TagData>& tags, StringStringMap& outputs,
                             String& errors) {
    const int result = readTagData(tagFile, data, tags, outputs, true, errors);
    if (result >= 0) return result;
    return PortalImpl::readInputTags(tagFile, data, tags, outputs, errors);
}

int xmlPortal::readOutputTags(const String& tagFile, const StringStringMap& data,
                              std::list<TagData>& tags, StringStringMap& outputs,
                              String& errors) {
    const int result = readTagData(tagFile, data, tags, outputs, false, errors);
    if (result >= 0) return result;
    return PortalImpl::readOutputTags(tagFile, data, tags, outputs, errors);
}

bool xmlPortal::processInputs(const StringStringMap& data, void* opaque, String& errors) {
    if (!PortalImpl::processInputs(data, opaque, errors)) return false;
    StringList files, tagFiles;
    splitFileLists(data, "inputFilepaths", "inputTagFilepaths", files, tagFiles);
    portalTagFiles(files, tagFiles, true);
    for (std::size_t i = 0; i < files.size() && i < tagFiles.size(); ++i) {
        if (tagFiles[i].empty()) continue;
        std::list<TagData> tags;
        if (!getInputTags(tagFiles[i], File::base(files[i], true), tags)) continue;
        pugi::xml_document document;
        const pugi::xml_parse_result loaded = xmlfiles::load(document, files[i]);
        if (!loaded) {
            addLine(errors, loaded.description());
            continue;
        }
        for (const TagData& tag : tags) {
            const String designValue = context
                ? context->getDesignValue(tag.paramType, tag.paramName, tagFiles[i],
                                          property(tag.properties, "format"), errors)
                : String();
            if (!setNodeValue(tag.path, document, designValue))
                errors += "\nFailed to write the value for " + tag.paramName;
        }
        if (!xmlfiles::save(document, files[i])) {
            errors += "\nUnable to write the modified file to " + files[i];
            return false;
        }
    }
    return !hasError(errors);
}
