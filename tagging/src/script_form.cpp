// The written form of script tags: the tag definition file ("S_in_" and
// "S_out_" + analysis + "_" + the tagged file's base name), a script as the
// CDATA child of a tag node, and the two text steps every statement goes
// through before it runs: argument splitting and %name% expansion.
//
// A script's parameter list lives in the tag's paramName; in the code, the
// statement SET_PARAMETER_LIST keeps only its place, as "%names%".
#include "zeltra/tagging.h"

namespace MOSAQ::Portals {

namespace {

const char* const kStartLine = "$! Start tag script";
const char* const kEndLine = "$! End tag script";

bool startsWith(const String& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

// A tag from one script's gathered code, its parameter list moved out of it.
TagData tagFromCode(String code, const String& fileName) {
    TagData tag;
    const String declaration = "SET_PARAMETER_LIST(";
    if (const std::size_t at = code.find(declaration); at != String::npos) {
        const std::size_t open = at + declaration.size() - 1;
        const std::size_t close = code.find(')', open);
        if (close != String::npos) {
            tag.paramName = code.substr(open + 1, close - open - 1);
            code.replace(open + 1, close - open - 1, "%names%");
        }
    }
    if (!code.empty() && code.back() == '\n') code.pop_back();
    tag.properties.push_back({"mode", "script", ""});
    tag.properties.push_back({"code", code, ""});
    tag.properties.push_back({"filename", fileName, ""});
    return tag;
}

}  // namespace

bool ScriptTagging::writeInputTagging(const String& fileName, const std::list<TagData>& tags,
                                      const StringStringMap& data, StringStringMap& outputs,
                                      String& errors) {
    return writeScriptFile(fileName, tags, data, outputs, errors, true);
}

bool ScriptTagging::writeOutputTagging(const String& fileName, const std::list<TagData>& tags,
                                       const StringStringMap& data, StringStringMap& outputs,
                                       String& errors) {
    return writeScriptFile(fileName, tags, data, outputs, errors, false);
}

int ScriptTagging::readInputTagging(const String& tagFile, const StringStringMap& data,
                                    std::list<TagData>& tags, StringStringMap&, String& errors) {
    return readScriptFile(tagFile, data, tags, errors, true);
}

int ScriptTagging::readOutputTagging(const String& tagFile, const StringStringMap& data,
                                     std::list<TagData>& tags, StringStringMap&, String& errors) {
    return readScriptFile(tagFile, data, tags, errors, false);
}

bool ScriptTagging::writeScriptFile(const String& fileName, const std::list<TagData>& tags,
                                    const StringStringMap& data, StringStringMap& outputs,
                                    String& errors, bool input) {
    // Every tag of the list is written, whatever file it names: the host hands
    // this module one file's scripts at a time.
    String body;
    int count = 0;
    for (const TagData& tag : tags) {
        body += String(kStartLine) + "\n" + property(tag.properties, "code") + "\n" + kEndLine +
                "\n\n";
        ++count;
    }
    if (count == 0) return true;

    const String baseName = Support::File::base(fileName, true);
    const String tagName =
        String(input ? "S_in_" : "S_out_") + value(data, "analysisName") + "_" + baseName;
    const String destDir = value(data, "destDir");
    if (!destDir.empty()) {
        Support::FileWriter out(destDir + "/" + tagName, false);
        if (out.is_open()) {
            out << "$ File type, version\n"
                << "scripting, " << value(data, "version") << "\n"
                << "$ Tag definition file: " << baseName << "\n"
                << "SCRIPTING\n"
                << "$! Number of tags: " << count << "\n"
                << body;
            out.close();
        }
        if (!out) {
            addLine(errors, "Unable to write S_ file for " + fileName);
            return false;
        }
    }
    outputs[fileName + (input ? "_intagfile" : "_outtagfile")] = tagName;
    return true;
}

int ScriptTagging::readScriptFile(const String& tagFile, const StringStringMap& data,
                                  std::list<TagData>& tags, String& errors, bool input) {
    if (tagFile.empty()) return -1;
    Support::FileReader in(tagFile, false);
    if (!in.is_open()) {
        addLine(errors, moduleText(".err.openTagDefnFile"), tagFile);
        return 1;
    }
    String line;
    in.getLine(line, '\n');
    in.getLine(line, '\n');
    if (!startsWith(trim(line), "scripting")) return -1;

    const String fileName = value(data, input ? "inputFilename" : "outputFilename");
    String code;
    bool open = false;
    while (in.getLine(line, '\n')) {
        if (startsWith(line, kEndLine)) {
            // A stray end line makes a tag too, with empty code: the count of
            // tags follows the end lines, as the file was written.
            tags.push_back(tagFromCode(code, fileName));
            code.clear();
            open = false;
        } else if (startsWith(line, kStartLine)) {
            open = true;
        } else if (open) {
            code += line + "\n";
        }
    }
    return 0;
}

void ScriptTagging::writeTagAttributes(pugi::xml_node& node, const TagData& tag) {
    node.append_child(pugi::node_cdata).set_value(property(tag.properties, "code").c_str());
}

void ScriptTagging::readTagAttributes(pugi::xml_node& node, TagData& tag) {
    const pugi::xml_node first = node.first_child();
    if (first.type() == pugi::node_cdata) tag.properties.push_back({"code", first.value(), ""});
}

bool ScriptTagging::parseArguments(const String& statement, StringList& args, String& errors) {
    args.clear();
    const std::size_t open = statement.find('(');
    if (open == String::npos) {
        addError(errors, moduleText(".err.cmdArgsNoOpenParens"), statement);
        return false;
    }
    const std::size_t close = statement.rfind(')');
    if (close == String::npos || close < open) {
        addError(errors, moduleText(".err.cmdArgsNoCloseParens"), statement);
        return false;
    }
    String text = statement.substr(open + 1, close - open - 1);
    if (text.empty()) {
        addError(errors, moduleText(".err.cmdArgsNoParams"), statement);
        return false;
    }
    replaceAll(text, "\\,", "*COMMA*");
    args = split(text, ',', false);
    for (String& a : args) replaceAll(a, "*COMMA*", "\\,");
    return true;
}

void ScriptTagging::expandVariables(String& line, int lineNumber, const ScriptContext& state,
                                   String& errors) {
    std::size_t end = line.rfind('%');
    while (end != String::npos && end > 0) {
        const std::size_t start = line.rfind('%', end - 1);
        if (start == String::npos) return;
        const String name = line.substr(start + 1, end - start - 1);
        String value;
        if (name == "Param_Name") {
            const auto& params = state.parameters;
            const auto at = static_cast<std::size_t>(state.currentParameter);
            if (at < params.size()) value = params[at].name;
        } else if (name != "names") {
            String dropped;
            if (context) value = context->getDesignValue("", name, "", "Default", dropped);
            if (value.empty())
                addLevelLine(errors, "WARNING", moduleText(".warn.noVarValue"),
                             {name, numberText(lineNumber), state.tagFilePath});
        }
        std::size_t next = start;
        if (!value.empty()) {
            // Every occurrence is replaced; the scan goes on left of this one,
            // so a value that holds "%" is never expanded again.
            const String reference = "%" + name + "%";
            String head = line.substr(0, start), tail = line.substr(start);
            replaceAll(head, reference, value);
            replaceAll(tail, reference, value);
            next = head.size();
            line = head + tail;
        }
        end = next == 0 ? String::npos : line.rfind('%', next - 1);
    }
}

}  // namespace MOSAQ::Portals
