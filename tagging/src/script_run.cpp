// The script module's part of a design's run. tagInputs runs every script of
// an input file against the file held in memory, changed lines waiting in a
// map, and writes the file anew only when all of them succeeded: P.temp first,
// then renamed over P. A failing script leaves P byte for byte as it was and
// no P.temp behind. tagOutputs runs each output script and hands the values it
// gathered to the host; a failing script fails its current response only.
//
// With MQT_PRESERVE_TAGGED_FILE_STAGES on, P.orig keeps the file as it was
// before the first run and P.afterScripting a copy of the new one.
#include <cstdio>

#include "zeltra/tagging.h"

namespace MOSAQ::Portals {

namespace {

using Reader = Support::FileBufferedReader;

// How the file ends its lines: "\r\n" when its first line does (the reader
// drops the '\r'), and whether its last line has a line end. The rewritten
// file keeps both, so a script that changes nothing changes no byte.
struct LineEnds {
    const char* eol = "\n";
    bool final = false;
};

LineEnds lineEndsOf(const String& path) {
    LineEnds ends;
    Support::FileReader in(path, false);
    String line;
    if (std::getline(in, line) && !in.eof() && !line.empty() && line.back() == '\r')
        ends.eol = "\r\n";
    in.clear();
    in.seekg(-1, std::ios_base::end);
    char last = 0;
    ends.final = in.get(last) && last == '\n';
    return ends;
}

StringList scriptLines(const TagData& tag) {
    return HelperBase::split(HelperBase::property(tag.properties, "code"), '\n', true);
}

// The names of a script's parameter list; none when it is blank.
StringList parameterNames(const TagData& tag) {
    if (HelperBase::trimmed(tag.paramName).empty()) return {};
    return HelperBase::split(tag.paramName, ',', true);
}

}  // namespace

bool ScriptTagging::tagInputs(const StringStringMap& data, void*, String& errors) {
    if (!context) return false;
    StringList files, tagFiles;
    splitFileLists(data, "inputFilepaths", "inputTagFilepaths", files, tagFiles);
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (tagFiles[i].empty()) continue;
        if (!tagInputFile(files[i], tagFiles[i], errors)) return false;
    }
    return !hasError(errors);
}

bool ScriptTagging::tagInputFile(const String& path, const String& tagFile, String& errors) {
    const String baseName = Support::File::base(path, true);
    std::list<TagData> tags;
    StringStringMap fileData{{"inputFilename", baseName}}, outputs;
    readInputTagging(tagFile, fileData, tags, outputs, errors);

    Reader reader(path);
    if (!reader.is_open()) {
        addError(errors, moduleText(".err.openInputFile"), path);
        return false;
    }
    openTrace(tagFile);
    ScriptContext state;
    state.isInput = true;
    state.tagFilePath = tagFile;
    for (const TagData& tag : tags) {
        state.lines = scriptLines(tag);
        state.parameters.clear();
        for (const String& name : parameterNames(tag)) {
            String dropped;
            const String v = context->getDesignValue("", name, "", "Default", dropped);
            ScriptParameter p;
            p.name = name;
            p.valueCount = static_cast<int>(split(v, '\n', false).size());
            state.parameters.push_back(p);
        }
        addLine(errors, formatList(moduleText(".msg.processInputTags"), {tag.paramName, baseName}));
        reader.gotoLine(0);
        traceScriptHeader(tag.paramName, currentLine(reader, state));
        state.firstLineNumber = 1;
        state.currentParameter = 0;
        bool ok;
        if (state.parameters.empty()) {
            // Every statement works on a current parameter: without any, the
            // script can't run at all.
            failLine(errors, 1, state.lines.empty() ? String() : state.lines[0], String(), {});
            ok = false;
        } else {
            ok = executeLines(reader, state, errors);
        }
        if (!ok) {
            closeTrace(false, errors);
            return false;
        }
    }

    const String temp = path + ".temp";
    {
        Support::FileWriter out(temp, false);
        const LineEnds ends = lineEndsOf(path);
        const int rows = reader.numLines();
        for (int row = 0; row < rows && out; ++row) {
            reader.gotoLine(row);
            out << currentLine(reader, state);
            if (row + 1 < rows || ends.final) out << ends.eol;
        }
        out.close();
        reader.close();
        if (!out) {
            std::remove(temp.c_str());
            addError(errors, moduleText(".err.writeTempFile"), temp, path);
            closeTrace(false, errors);
            return false;
        }
    }
    closeTrace(true, errors);

    if (preserveStages()) {
        if (!Support::File::exists(path + ".orig") &&
            !Support::File::rename(path, path + ".orig"))
            addLine(errors, "Warning: could not rename original input file");
        copyFile(temp, path + ".afterScripting");
    }
    if (Support::File::exists(path) && !Support::File::remove(path))
        addError(errors, moduleText(".err.deleteOrigFile"), path);
    if (!Support::File::rename(temp, path))
        addError(errors, moduleText(".err.renameModFile"), temp, path);
    return true;
}

bool ScriptTagging::tagOutputs(const StringStringMap& data, void*, String& errors) {
    if (!context) return false;
    StringList files, tagFiles;
    splitFileLists(data, "outputFilepaths", "outputTagFilepaths", files, tagFiles);
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (tagFiles[i].empty()) continue;
        if (!tagOutputFile(files[i], tagFiles[i], data, errors)) return false;
    }
    return !hasError(errors);
}

bool ScriptTagging::tagOutputFile(const String& path, const String& tagFile,
                                  const StringStringMap& data, String& errors) {
    const String baseName = Support::File::base(path, true);
    const String analysisName = value(data, "analysisName");
    std::list<TagData> tags;
    StringStringMap fileData{{"outputFilename", baseName}}, outputs;
    readOutputTagging(tagFile, fileData, tags, outputs, errors);

    Reader reader(path);
    if (!reader.is_open()) {
        addError(errors, moduleText(".err.openOutputFile"), path);
        return false;
    }
    openTrace(tagFile);
    for (const TagData& tag : tags) {
        ScriptContext state;
        state.isInput = false;
        state.tagFilePath = tagFile;
        state.lines = scriptLines(tag);
        for (const String& name : parameterNames(tag)) {
            StringStringMap props;
            context->getAnalysisProperties(analysisName, "responseDataType#" + name, props);
            ScriptParameter p;
            p.name = name;
            p.isNumeric = value(props, "responseDataType") == "Numeric";
            state.parameters.push_back(p);
        }
        addLine(errors,
                formatList(moduleText(".msg.processOutputTags"), {tag.paramName, baseName}));
        reader.gotoLine(0);
        traceScriptHeader(tag.paramName, currentLine(reader, state));
        if (state.parameters.empty()) {
            failLine(errors, 1, state.lines.empty() ? String() : state.lines[0], String(), {});
            continue;
        }
        if (executeLines(reader, state, errors)) {
            reportResults(data);
            continue;
        }
        const String& name =
            state.parameters[static_cast<std::size_t>(state.currentParameter)].name;
        reportErrorInCall(name, data, format(moduleText(".err.processResponses"), name));
        // What the failed script gathered is dropped, so the next script
        // reports only its own values.
        numericResults.clear();
        textResults.clear();
    }
    reader.close();
    closeTrace(true, errors);
    return true;
}

void ScriptTagging::reportResults(const StringStringMap& data) {
    StringList keys;
    for (const auto& entry : numericResults) keys.push_back(entry.first);
    for (const auto& entry : textResults)
        if (!numericResults.count(entry.first)) keys.push_back(entry.first);
    for (const String& key : keys) {
        ResponseValues values;
        if (auto it = numericResults.find(key); it != numericResults.end())
            values.numbers = it->second;
        if (auto it = textResults.find(key); it != textResults.end()) values.strings = it->second;
        reportValues(key, data, values);
    }
    numericResults.clear();
    textResults.clear();
}

}  // namespace MOSAQ::Portals
