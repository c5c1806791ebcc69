// The owner tests mirror the sorting a run does before it hands tag files to
// the modules: a file that fails them is never read during a run, so the
// survey reports it instead of reading it. Line numbers are found by walking
// each file the way its reader does; they only serve messages.
#include "tag_survey.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <pugixml.hpp>

namespace portalrun {

namespace fs = std::filesystem;

namespace {

bool startsWith(const std::string& s, const std::string& prefix) {
    return s.compare(0, prefix.size(), prefix) == 0;
}

std::string trimmed(const std::string& s) {
    const auto b = s.find_first_not_of(" \t\r\n");
    if (b == std::string::npos) return {};
    return s.substr(b, s.find_last_not_of(" \t\r\n") - b + 1);
}

std::vector<std::string> fileLines(const std::string& path, bool& opened) {
    std::vector<std::string> out;
    std::ifstream in(path, std::ios::binary);
    opened = static_cast<bool>(in);
    for (std::string l; std::getline(in, l);) {
        if (!l.empty() && l.back() == '\r') l.pop_back();
        out.push_back(l);
    }
    return out;
}

// The test a run makes of a tag file's first two lines; empty when it passes.
std::string contentProblem(TagOwner owner, const std::string& first, const std::string& second,
                           int& line) {
    line = 2;
    switch (owner) {
        case TagOwner::Mark:
            if (startsWith(second, "marking")) return {};
            return "its second line must begin with \"marking\"";
        case TagOwner::Script:
            if (startsWith(second, "scripting")) return {};
            return "its second line must begin with \"scripting\"";
        case TagOwner::Xml:
            if (first.find("xml") != std::string::npos ||
                second.find("TagDefinition") != std::string::npos)
                return {};
            line = 1;
            return "its first line must hold \"xml\" (or its second \"TagDefinition\")";
        case TagOwner::Portal:
            if (startsWith(second, "portal") || (second.find("Portal") != std::string::npos &&
                                                 first.find("xml") != std::string::npos))
                return {};
            return "its first line must hold \"xml\" and its second \"Portal\"";
        case TagOwner::None: break;
    }
    return {};
}

// The lines of a mark file's tag lines, found as the reader finds them.
std::vector<int> markTagLines(const std::vector<std::string>& lines) {
    std::vector<int> out;
    int defaults = 0;
    for (std::size_t i = 2; i < lines.size(); ++i) {
        const std::string l = trimmed(lines[i]);
        if (startsWith(l, "$") || startsWith(l, "MARKING,")) continue;
        if (defaults < 2) {
            ++defaults;
            continue;
        }
        if (!l.empty()) out.push_back(static_cast<int>(i + 1));
    }
    return out;
}

std::vector<int> scriptTagLines(const std::vector<std::string>& lines) {
    std::vector<int> out;
    int start = 0;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (startsWith(lines[i], "$! Start tag script")) start = static_cast<int>(i + 1);
        if (startsWith(lines[i], "$! End tag script")) {
            out.push_back(start ? start : static_cast<int>(i + 1));
            start = 0;
        }
    }
    return out;
}

// Lines of the "tag" elements: children of the root for XML tag files, at
// any depth for the portal's.
std::vector<int> xmlTagLines(const std::string& path, bool anyDepth) {
    std::vector<int> out;
    std::ifstream in(path, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    pugi::xml_document doc;
    if (!doc.load_buffer(text.data(), text.size())) return out;
    auto lineOf = [&](const pugi::xml_node& n) {
        const std::ptrdiff_t off = n.offset_debug();
        if (off < 0 || static_cast<std::size_t>(off) > text.size()) return 0;
        return 1 + static_cast<int>(std::count(text.begin(), text.begin() + off, '\n'));
    };
    if (!anyDepth) {
        for (pugi::xml_node n : doc.document_element().children("tag")) out.push_back(lineOf(n));
        return out;
    }
    struct Walker : pugi::xml_tree_walker {
        std::vector<pugi::xml_node> nodes;
        bool for_each(pugi::xml_node& n) override {
            if (std::string(n.name()) == "tag") nodes.push_back(n);
            return true;
        }
    } walker;
    doc.document_element().traverse(walker);
    for (const pugi::xml_node& n : walker.nodes) out.push_back(lineOf(n));
    return out;
}

}  // namespace

const char* ownerName(TagOwner owner) {
    switch (owner) {
        case TagOwner::Mark: return "mark";
        case TagOwner::Xml: return "XML";
        case TagOwner::Script: return "script";
        case TagOwner::Portal: return "portal";
        case TagOwner::None: break;
    }
    return "no";
}

TagOwner ownerByName(const std::string& baseName, bool input) {
    const std::string d = input ? "in_" : "out_";
    if (startsWith(baseName, "M_" + d)) return TagOwner::Mark;
    if (startsWith(baseName, "X_" + d)) return TagOwner::Xml;
    if (startsWith(baseName, "S_" + d)) return TagOwner::Script;
    if (startsWith(baseName, "P_" + d)) return TagOwner::Portal;
    return TagOwner::None;
}

TagOwner ownerOfMode(const std::string& mode) {
    if (mode == "free" || mode == "fixed") return TagOwner::Mark;
    if (mode == "xml") return TagOwner::Xml;
    if (mode == "script") return TagOwner::Script;
    if (mode == "portal") return TagOwner::Portal;
    return TagOwner::None;
}

std::string tagProperty(const TagData& tag, const std::string& name) {
    for (const auto& p : tag.properties)
        if (p.name == name) return p.value;
    return {};
}

SurveyedTagFile surveyTagFile(MOSAQ::Portals::IPortal& portal, const Study& study,
                              const std::string& tagFile, const std::string& taggedFile,
                              bool input) {
    SurveyedTagFile s;
    s.path = tagFile;
    s.taggedFile = taggedFile;
    s.input = input;
    s.owner = ownerByName(fs::path(tagFile).filename().string(), input);
    bool opened = false;
    const std::vector<std::string> lines = fileLines(tagFile, opened);
    if (!opened) {
        s.filteredOut = "it can't be read";
        return s;
    }
    if (s.owner == TagOwner::None) return s;
    s.filteredOut = contentProblem(s.owner, lines.size() > 0 ? lines[0] : "",
                                   lines.size() > 1 ? lines[1] : "", s.contentLine);
    if (!s.filteredOut.empty()) return s;

    const std::string name = fs::path(taggedFile).filename().string();
    StringStringMap data{{input ? "inputFilename" : "outputFilename", name},
                         {"analysisName", study.name},
                         {"version", study.version}};
    MOSAQ::String errors;
    s.readResult = input ? portal.readInputTags(tagFile, data, s.tags, s.readOutputs, errors)
                         : portal.readOutputTags(tagFile, data, s.tags, s.readOutputs, errors);
    // A portal that reads no input tag files itself (it answers 1 and reads
    // nothing) leaves them to its modules during a run; their readers don't
    // depend on the direction, and the other direction's read reaches them.
    if (input && s.readResult > 0 && s.tags.empty() && errors.empty() &&
        s.owner != TagOwner::Portal) {
        data["outputFilename"] = name;
        s.readOutputs.clear();
        s.readResult = portal.readOutputTags(tagFile, data, s.tags, s.readOutputs, errors);
    }
    s.readErrors = errors;
    switch (s.owner) {
        case TagOwner::Mark: s.lines = markTagLines(lines); break;
        case TagOwner::Script: s.lines = scriptTagLines(lines); break;
        case TagOwner::Xml: s.lines = xmlTagLines(tagFile, false); break;
        case TagOwner::Portal: s.lines = xmlTagLines(tagFile, true); break;
        case TagOwner::None: break;
    }
    s.lines.resize(s.tags.size(), 0);
    return s;
}

std::vector<SurveyedTagFile> surveyStudy(MOSAQ::Portals::IPortal& portal, const Study& study) {
    std::vector<SurveyedTagFile> out;
    for (const FileSpec& f : study.inputs)
        if (!f.tags.empty()) out.push_back(surveyTagFile(portal, study, f.tags, f.file, true));
    for (const FileSpec& f : study.outputs)
        if (!f.tags.empty()) out.push_back(surveyTagFile(portal, study, f.tags, f.file, false));
    return out;
}

}  // namespace portalrun
