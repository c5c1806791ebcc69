// The run of one design through the portal: the inputs brought in by the
// modules, the solver's messages judged, the responses taken out by the
// modules and by the portal's own reader. Nothing of a run stays behind.
//
// File lists travel as one value with a path a line; a tag file list is
// parallel to its file list and is padded with empty entries to match, and a
// module sees blank lines where another owner has the file.
#include "zeltra/portal.h"

namespace MOSAQ::Portals {

namespace {

struct ToolWord {
    const char* word;
    int level;
    bool error;
};

// Tested in this order against the start of the line, folded to upper case.
constexpr ToolWord kToolWords[] = {
    {"ERROR:", kLevelError, true},     {"WARNING:", kLevelWarning, false},
    {"WARN:", kLevelWarning, false},   {"OUTPUT:", kLevelOutput, false},
    {"NOTE:", kLevelNote, false},
};

}  // namespace

bool PortalImpl::processInputs(const StringStringMap& data, void* opaque, String& errors) {
    StringList files, tagFiles;
    splitFileLists(data, "inputFilepaths", "inputTagFilepaths", files, tagFiles);
    StringList lists[4];
    filterTagFiles(files, tagFiles, lists[0], lists[1], lists[2], lists[3], true);
    StringStringMap copy = data;
    copy["inputFilepaths"] = join(files, "\n");
    for (std::size_t m = 0; m < 3; ++m) {
        copy["inputTagFilepaths"] = join(lists[m], "\n");
        if (!modules()[m]->tagInputs(copy, opaque, errors)) return false;
    }
    return true;
}

bool PortalImpl::processOutputs(const StringStringMap& data, void* opaque, String& errors) {
    const String analysisName = value(data, "analysisName");
    const String destDir = value(data, "destDir");
    const String version = value(data, "version");
    StringList files, tagFiles;
    splitFileLists(data, "outputFilepaths", "outputTagFilepaths", files, tagFiles);
    StringList lists[4];
    filterTagFiles(files, tagFiles, lists[0], lists[1], lists[2], lists[3], false);
    StringList names;
    for (const String& f : files) names.push_back(Support::File::base(f, true));

    if (getBatchMode(data) == 1 && split(value(data, "BatchInfo"), ':').size() != 2) {
        errors = "SID_BatchInfo is not available or invalid.";
        return false;
    }
    StringStringMap copy = data;
    copy["outputFilepaths"] = join(files, "\n");
    for (std::size_t m = 0; m < 3; ++m) {
        copy["outputTagFilepaths"] = join(lists[m], "\n");
        if (!modules()[m]->tagOutputs(copy, opaque, errors)) return false;
    }
    const StringList& portalList = lists[3];
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (i >= portalList.size() || portalList[i].empty()) continue;
        StringStringMap fileData{{"analysisName", analysisName},
                                 {"destDir", destDir},
                                 {"version", version},
                                 {"filepath", files[i]},
                                 {"solverName", getName()},
                                 {"outputFilename", names[i]},
                                 {"outputFilenames", join(names, "\n")}};
        std::list<TagData> tags;
        StringStringMap outputs;
        readOutputTags(portalList[i], fileData, tags, outputs, errors);
        if (!extractResponses(files[i], data, tags, errors))
            addError(errors, "Error getting data from output file:\n%1", files[i]);
    }
    return !hasError(errors);
}

bool PortalImpl::runCheck(const String& name, const StringStringMap& data, bool& result,
                          StringStringMap& outputs) {
    if (name == "checkSuccess") return checkSuccess(data, result, outputs);
    if (name == "checkFinish") return checkFinish(data, result, outputs);
    return false;
}

bool PortalImpl::checkSuccess(const StringStringMap& data, bool& success,
                              StringStringMap& outputs) {
    success = checkToolMessages("analysis_execution", data, outputs);
    return true;
}

bool PortalImpl::checkToolMessages(const String& toolName, const StringStringMap& data,
                                   StringStringMap& outputs) {
    StringStringMap subs = data;
    const String in = getPrimaryFile(data, true);
    const String out = getPrimaryFile(data, false);
    subs["primaryInputFile"] = in;
    subs["primaryOutputFile"] = out;
    subs["primaryInputFilename"] = Support::File::base(in, false);
    subs["primaryOutputFilename"] = Support::File::base(out, false);

    const StringList lines =
        Support::FileParser::getToolMessagesUsingConfigFile(getName(), toolName, subs, outputs);
    if (lines.size() == 1) {
        showMessage(format(tableText(".err.portalAppMessage1"), getName()), data, kLevelNote);
    } else if (lines.size() > 1) {
        showMessage(formatList(tableText(".err.portalAppMessageN"),
                               {numberText(double(lines.size())), getName()}),
                    data, kLevelNote);
    }
    int errorCount = 0;
    for (const String& line : lines) {
        const String upper = toUpper(line);
        int level = kLevelNote;
        std::size_t cut = 0;
        for (const ToolWord& w : kToolWords) {
            if (upper.rfind(w.word, 0) == 0) {
                level = w.level;
                cut = std::char_traits<char>::length(w.word);
                if (w.error) ++errorCount;
                break;
            }
        }
        if (cut && cut < line.size() && line[cut] == ' ') ++cut;
        showMessage(line.substr(cut), data, level);
    }
    return errorCount == 0;
}

String PortalImpl::getPrimaryFile(const StringStringMap& data, bool input) {
    if (!context) return String();
    StringStringMap group;
    context->getAnalysisProperties(value(data, "analysisName"), "analysisPortalData", group);
    const String key = input ? "primaryInput" : "primaryOutput";
    for (const String& line : split(value(group, "Lines"), '\n', true)) {
        const StringList pieces = split(line, ':', true);
        if (pieces.size() >= 2 && pieces[0] == key) return pieces[1];
    }
    return String();
}

StringStringMap PortalImpl::getAnalysisPortalData(const String& analysisName) {
    StringStringMap group;
    if (!context) return group;
    context->getAnalysisProperties(analysisName, "analysisPortalData", group);
    if (!group.count("Lines")) return group;
    const String lines = group["Lines"];
    group.clear();
    for (const String& line : split(lines, '\n', true)) {
        const std::size_t sep = line.find(": ");
        if (sep == String::npos) continue;
        const String key = line.substr(0, sep);
        const String v = line.substr(sep + 2);
        auto [it, fresh] = group.emplace(key, v);
        if (!fresh) it->second += "\n" + v;
    }
    return group;
}

String PortalImpl::getInstallPath(const String& analysisName, bool preferLocal) {
    if (!context) return String();
    StringStringMap group;
    if (preferLocal) {
        context->getAnalysisProperties(analysisName, "AnalysisProperty#installLocal", group);
        const String local = value(group, "installLocal");
        if (!local.empty()) return local;
        group.clear();
    }
    context->getAnalysisProperties(analysisName, "AnalysisProperty#install", group);
    return value(group, "install");
}

int PortalImpl::getDesignNumber() {
    if (!context) return 0;
    String errors;
    const String n = context->getDesignValue("internal", "Design_Num", "", "Default", errors);
    return static_cast<int>(parseNumber(n));
}

bool PortalImpl::logPreparing(const StringStringMap& data) {
    return logMessage(formatList("Preparing analysis: %1 for design: %2.",
                                 {value(data, "analysisName"), value(data, "evalId")}),
                      data, kLevelNote);
}

bool PortalImpl::logRunning(const StringStringMap& data) {
    return logMessage(formatList("Running analysis: %1 for design: %2.",
                                 {value(data, "analysisName"), value(data, "evalId")}),
                      data, kLevelNote);
}

void PortalImpl::splitCommand(const String& command, String& program, String& arguments) {
    if (!command.empty() && command[0] == '"') {
        const std::size_t close = command.find('"', 1);
        if (close == String::npos) return;
        program = command.substr(0, close + 1);
        arguments = close + 2 <= command.size() ? command.substr(close + 2) : String();
        return;
    }
    const String upper = toUpper(command);
    if (upper.rfind("START ", 0) != 0) {
        const std::size_t blank = command.find(' ');
        if (blank == String::npos) return;
        program = command.substr(0, blank);
        arguments = command.substr(blank + 1);
        return;
    }
    std::size_t pos = upper.find("WAIT ");
    if (pos == String::npos) return;
    pos += 5;
    while (pos < command.size() && command[pos] == ' ') ++pos;
    std::size_t splitAt;
    if (pos < command.size() && command[pos] == '"') {
        const std::size_t close = command.find('"', pos + 1);
        if (close == String::npos) return;
        splitAt = close + 1;
    } else {
        splitAt = command.find(' ', pos);
        if (splitAt == String::npos) return;
    }
    program = command.substr(0, splitAt);
    arguments = splitAt + 1 <= command.size() ? command.substr(splitAt + 1) : String();
}

}  // namespace MOSAQ::Portals
