// The mark module's part of a design's run: tagInputs rewrites each tagged
// input file with the design's values, tagOutputs reads one value per tag out
// of each tagged output file and hands it to the host.
//
// An input file P is rewritten into P.temp, which replaces P only when every
// line was written; a file whose token step fails is given up with P as it
// was (P.temp stays behind for inspection). With MQT_PRESERVE_TAGGED_FILE_STAGES
// on, P.orig keeps the old file and P.afterMarking a copy of the new one.
#include <algorithm>

#include "zeltra/tagging.h"

namespace MOSAQ::Portals {

void MarkTagging::sortTags(std::list<TagData>& tags) {
    tags.sort([](const TagData& a, const TagData& b) {
        const String ra = property(a.properties, "row"), rb = property(b.properties, "row");
        if (ra != rb) return ra < rb;
        return property(a.properties, "col") < property(b.properties, "col");
    });
}

std::map<int, std::vector<TagData>> MarkTagging::rowMap(const std::list<TagData>& sortedTags) {
    std::map<int, std::vector<TagData>> rows;
    for (const TagData& tag : sortedTags)
        rows[wholeNumber(property(tag.properties, "row"))].push_back(tag);
    return rows;
}

bool MarkTagging::tagLine(String& line, int row, const std::vector<TagData>& rowTags,
                          const String& path, const String& tagFile, String& errors) {
    // Highest "col" text first, so earlier tokens keep their place.
    for (auto it = rowTags.rbegin(); it != rowTags.rend(); ++it) {
        const TagData& tag = *it;
        const String mode = property(tag.properties, "mode");
        const String format = property(tag.properties, "format");
        const String delims = property(tag.properties, "delims");
        const String v = context->getDesignValue(tag.paramType, tag.paramName, tagFile, format,
                                                 errors);
        const int col = wholeNumber(property(tag.properties, "col"));
        String newLine;
        bool ok = false;
        if (mode == "free") {
            String delimSet;
            parseDelimiters(delims, delimSet, errors);
            ok = updateDelimToken(col, line, row, path, delimSet, v, newLine, errors);
        } else if (mode == "fixed") {
            int start = 1, end = 0;
            locateFixedToken(line, delims, col, start, end, errors);
            ok = replaceFixedToken(start, end, line, row, path, v, newLine, errors);
        } else {
            addLevelLine(errors, "ERROR", moduleText(".err.unknownTagMode"),
                         {tag.paramName, mode, path});
        }
        if (!ok) return false;
        line = std::move(newLine);
    }
    return true;
}

bool MarkTagging::tagInputFile(const String& path, const String& tagFile,
                               const StringStringMap&, String& errors) {
    std::list<TagData> tags;
    if (!getInputTags(tagFile, Support::File::base(path, true), tags)) {
        // A tag file that could not be read is worth saying; an empty one isn't.
        if (!tagCache.count(Support::File::base(tagFile, true))) {
            StringStringMap fresh{{"inputFilename", Support::File::base(path, true)}}, outputs;
            readInputTagging(tagFile, fresh, tags, outputs, errors);
        }
        return true;
    }
    sortTags(tags);
    Support::FileReader in(path, false);
    if (!in.is_open()) {
        addError(errors, moduleText(".err.openInputFile"), path);
        return false;
    }
    const String temp = path + ".temp";
    Support::FileWriter out(temp, false);
    if (!out.is_open()) {
        addError(errors, moduleText(".err.writeTempFile"), temp, path);
        return false;
    }
    const auto rows = rowMap(tags);
    // Rows come in ascending order, as the map holds them: a cursor on the next
    // tagged row saves a tree search on every line of a large file.
    auto hit = rows.begin();
    // Lines are read raw, so a file with "\r\n" line ends keeps them: the
    // '\r' is set aside while tokens are replaced and written back after.
    String line;
    for (int row = 1; std::getline(in, line); ++row) {
        while (hit != rows.end() && hit->first < row) ++hit;
        if (hit == rows.end() || hit->first != row) {
            out << line;
            if (!in.eof()) out << '\n';
            continue;
        }
        const bool crlf = !line.empty() && line.back() == '\r';
        if (crlf) line.pop_back();
        if (!tagLine(line, row, hit->second, path, tagFile, errors)) return false;
        out << line << (crlf ? "\r\n" : "\n");
    }
    in.close();
    out.close();
    if (!out) {
        addError(errors, moduleText(".err.writeTempFile"), temp, path);
        return false;
    }

    if (preserveStages()) {
        if (!Support::File::rename(path, path + ".orig"))
            addWarning(errors, moduleText(".err.renameOrigFile"));
        copyFile(temp, path + ".afterMarking");
    }
    if (Support::File::exists(path) && !Support::File::remove(path))
        addError(errors, moduleText(".err.deleteOrigFile"), path);
    if (!Support::File::rename(temp, path))
        addError(errors, moduleText(".err.renameModFile"), temp, path);
    return true;
}

bool MarkTagging::tagInputs(const StringStringMap& data, void*, String& errors) {
    if (!context) return false;
    StringList files, tagFiles;
    splitFileLists(data, "inputFilepaths", "inputTagFilepaths", files, tagFiles);
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (tagFiles[i].empty()) continue;
        if (!tagInputFile(files[i], tagFiles[i], data, errors)) return false;
    }
    return !hasError(errors);
}

void MarkTagging::reportOutputTag(const TagData& tag, const String& line, int row,
                                  const String& path, const StringStringMap& data,
                                  String& errors) {
    const String& name = tag.paramName;
    const String mode = property(tag.properties, "mode");
    const String delims = property(tag.properties, "delims");
    const int col = wholeNumber(property(tag.properties, "col"));
    String text;
    bool ok = true;
    if (mode == "free") {
        String delimSet;
        parseDelimiters(delims, delimSet, errors);
        ok = extractDelimToken(col, line, row, path, delimSet, text, errors);
    } else if (mode == "fixed") {
        int start = 1, end = 0;
        locateFixedToken(line, delims, col, start, end, errors);
        ok = extractFixedToken(start, end, line, row, path, text, errors);
    }
    if (!ok) {
        reportErrorInCall(name, data, format(moduleText(".err.extractRespValue"), name));
        return;
    }
    StringStringMap props;
    context->getAnalysisProperties(value(data, "analysisDir"), "responseDataType#" + name, props);
    ResponseValues values;
    if (value(props, "responseDataType") != "Numeric") {
        values.strings.push_back(text);
    } else if (isNumber(text)) {
        values.numbers.push_back(parseNumber(text));
    } else {
        reportErrorInCall(name, data,
                          formatList(moduleText(".err.convertStringToNum"), {name, text}));
        return;
    }
    reportValues(name, data, values);
}

bool MarkTagging::tagOutputs(const StringStringMap& data, void*, String& errors) {
    if (!context) return false;
    StringList files, tagFiles;
    splitFileLists(data, "outputFilepaths", "outputTagFilepaths", files, tagFiles);
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (tagFiles[i].empty()) continue;
        const String& path = files[i];
        const String baseName = Support::File::base(path, true);
        addLine(errors, moduleText(".msg.processOutputTags"), path);
        std::list<TagData> tags;
        StringStringMap fresh{{"outputFilename", baseName}}, outputs;
        readOutputTagging(tagFiles[i], fresh, tags, outputs, errors);
        sortTags(tags);
        Support::FileBufferedReader reader(path);
        if (!reader.is_open()) {
            addError(errors, moduleText(".err.openOutputFile"), path);
            return false;
        }
        for (const auto& [row, rowTags] : rowMap(tags)) {
            if (row < 1 || !reader.gotoLine(row - 1)) {
                for (const TagData& tag : rowTags)
                    reportErrorInCall(tag.paramName, data,
                                      format(moduleText(".err.storeRespValue"), tag.paramName,
                                             numberText(row), baseName));
                continue;
            }
            const String line = reader.getCurrentLine();
            for (const TagData& tag : rowTags) reportOutputTag(tag, line, row, path, data, errors);
        }
    }
    return !hasError(errors);
}

}  // namespace MOSAQ::Portals
