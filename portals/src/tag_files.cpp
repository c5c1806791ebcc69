// Which owner handles a tag definition file follows from its name ("M_",
// "X_", "S_", "P_" and the direction) and is confirmed by its first two
// lines; a file that fails the check is left out and only the log says so.
// Also the services around templates and copied inputs that portals running
// a solver themselves use.
#include "zeltra/portal.h"

namespace MOSAQ::Portals {

namespace {

bool startsWith(const String& text, const String& prefix) { return text.rfind(prefix, 0) == 0; }
bool holds(const String& text, const String& part) { return text.find(part) != String::npos; }

String slashes(String path) {
    for (char& c : path)
        if (c == '\\') c = '/';
    return path;
}

struct Owner {
    const char* letter;
    bool (*check)(const String& first, const String& second);
    const char* failure;
};

const Owner kOwners[] = {
    {"M_", [](const String&, const String& l2) { return startsWith(l2, "marking"); },
     "Marking module is filtering out tag definition file due to unrecognized contents: \n"},
    {"X_", [](const String& l1, const String& l2) { return holds(l1, "xml") || holds(l2, "TagDefinition"); },
     "Xml module is filtering out tag definition file due to unrecognized contents: \n"},
    {"S_", [](const String&, const String& l2) { return startsWith(l2, "scripting"); },
     "Scripting module is filtering out tag definition file due to unrecognized contents: \n"},
    {"P_",
     [](const String& l1, const String& l2) {
         return startsWith(l2, "portal") || (holds(l2, "Portal") && holds(l1, "xml"));
     },
     "Portal is filtering out tag definition file due to unrecognized contents: \n"},
};

}  // namespace

void PortalImpl::filterTagFiles(const StringList& files, const StringList& tagFiles,
                                StringList& mark, StringList& xmlList, StringList& script,
                                StringList& portal, bool input) {
    StringList* lists[4] = {&mark, &xmlList, &script, &portal};
    for (StringList* l : lists) *l = tagFiles;
    const String direction = input ? "in_" : "out_";
    for (std::size_t i = 0; i < files.size() && i < tagFiles.size(); ++i) {
        const String& tagFile = tagFiles[i];
        if (tagFile.empty()) continue;
        String first, second;
        Support::FileReader reader(tagFile, false);
        if (reader.is_open()) {
            reader.getLine(first, '\n');
            reader.getLine(second, '\n');
        }
        const String base = Support::File::base(tagFile, true);
        int owner = -1;
        for (int k = 0; k < 4 && owner < 0; ++k)
            if (startsWith(base, kOwners[k].letter + direction)) owner = k;
        for (int k = 0; k < 4; ++k)
            if (k != owner) (*lists[k])[i].clear();
        if (owner < 0) {
            logMessage("The following tag definition file is being ignored: \n" + tagFile,
                       kLevelNote);
        } else if (!kOwners[owner].check(first, second)) {
            (*lists[owner])[i].clear();
            logMessage(kOwners[owner].failure + tagFile, kLevelNote);
        }
    }
}

void PortalImpl::portalTagFiles(const StringList& files, StringList& tagFiles, bool input) {
    StringList mark, xmlList, script, portal;
    filterTagFiles(files, tagFiles, mark, xmlList, script, portal, input);
    tagFiles = portal;
}

StringList PortalImpl::keepCopiedInputs(const String& analysisName, const StringList& names) {
    if (!context) return names;
    StringList kept;
    for (const String& name : names) {
        StringStringMap target, source;
        context->getAnalysisProperties(analysisName, "InputTarget#" + name, target);
        if (value(target, "InputTarget") != "dontCopy") {
            kept.push_back(name);
            continue;
        }
        context->getAnalysisProperties(analysisName, "InputSource#" + name, source);
        auto it = source.find("InputSource");
        if (it == source.end()) {
            kept.push_back(name);
            continue;
        }
        const String& where = it->second;
        if (where == "projectFolder" || where == "studyFolder" ||
            Support::File::isAbsolutePath(where)) {
            logMessage("skipping close of " + name, kLevelNote);
        } else {
            kept.push_back(name);
        }
    }
    return kept;
}

String PortalImpl::getResourceFolder(const String& subFolder) {
    String folder = slashes(host ? host->getInstallFolder() : String()) + "/../res/portals";
    if (!subFolder.empty()) folder += "/" + subFolder;
    return folder;
}

String PortalImpl::findTemplate(const String& templateName, const StringStringMap& data) {
    const String inRunFolder = slashes(value(data, "destDir") + "/" + templateName);
    if (Support::File::exists(inRunFolder)) {
        logMessage("A user-customized template will be used: " + templateName, data, kLevelNote);
        return inRunFolder;
    }
    const StringList inputs = split(value(data, "inputFilepaths"), '\n', true);
    const StringList tags = split(value(data, "inputTagFilepaths"), '\n', true);
    String candidate;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        if (Support::File::base(inputs[i], true) != templateName) continue;
        const String tag = i < tags.size() ? tags[i] : String();
        if (holds(Support::File::base(tag, true), templateName)) {
            candidate = inputs[i];
        } else if (context) {
            StringStringMap group;
            context->getAnalysisProperties(value(data, "analysisName"),
                                           "InputSourcePath#" + templateName, group);
            candidate = value(group, "InputSourcePath");
        } else {
            candidate.clear();
        }
    }
    if (!candidate.empty()) {
        const String beside = slashes(candidate + "/" + templateName);
        if (Support::File::exists(beside)) {
            logMessage("A user-customized template will be used: " + beside, data, kLevelNote);
            return beside;
        }
    }
    const String installed = slashes(getResourceFolder(String()) + "/" + templateName);
    if (Support::File::exists(installed))
        logMessage("The template from portal install directory will be used: " + installed, data,
                   kLevelNote);
    return installed;
}

}  // namespace MOSAQ::Portals
