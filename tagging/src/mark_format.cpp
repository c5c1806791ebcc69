// The mark module's tag definition file: written from the framework's tag
// list, read back into tags. One file per tagged file, named "M_in_" or
// "M_out_" + analysis + "_" + the tagged file's base name. Line two begins
// "marking"; that word, not the name, is what the reader checks.
//
// A tag line is "Mode, Row,Delims, Col, Param type, Param name, Print Fmt".
// The Delims field may hold an escaped comma "\," and an escaped backslash
// "\\", which survive the split on commas.
#include <cstdlib>

#include "zeltra/tagging.h"

namespace MOSAQ::Portals {

const char* const MarkTagging::kDefaultDelims = "\\,;\"=()'\\t\\s";
const char* const MarkTagging::kDefaultWidths = "10";

namespace {

String orDefault(const StringStringMap& data, const char* key, const char* fallback) {
    String v = HelperBase::value(data, key);
    return v.empty() ? String(fallback) : v;
}

// Joined by hand, not through the placeholder filler: a field may hold "%7".
String tagLineText(const TagData& tag) {
    const auto& p = tag.properties;
    return HelperBase::property(p, "mode") + ", " + HelperBase::property(p, "row") + "," +
           HelperBase::property(p, "delims") + ", " + HelperBase::property(p, "col") + ", " +
           tag.paramType + ", " + tag.paramName + ", " + HelperBase::property(p, "format");
}

}  // namespace

bool MarkTagging::writeInputTagging(const String& fileName, const std::list<TagData>& tags,
                                    const StringStringMap& data, StringStringMap& outputs,
                                    String& errors) {
    return writeTagFile(fileName, tags, data, outputs, errors, true);
}

bool MarkTagging::writeOutputTagging(const String& fileName, const std::list<TagData>& tags,
                                     const StringStringMap& data, StringStringMap& outputs,
                                     String& errors) {
    return writeTagFile(fileName, tags, data, outputs, errors, false);
}

int MarkTagging::readInputTagging(const String& tagFile, const StringStringMap& data,
                                  std::list<TagData>& tags, StringStringMap& outputs,
                                  String& errors) {
    return readTagFile(tagFile, data, tags, outputs, errors, true);
}

int MarkTagging::readOutputTagging(const String& tagFile, const StringStringMap& data,
                                   std::list<TagData>& tags, StringStringMap& outputs,
                                   String& errors) {
    return readTagFile(tagFile, data, tags, outputs, errors, false);
}

bool MarkTagging::writeTagFile(const String& fileName, const std::list<TagData>& tags,
                               const StringStringMap& data, StringStringMap& outputs,
                               String& errors, bool input) {
    const bool withKeys = environmentSet("MQT_WRITE_TAGKEY");
    String body;
    int count = 0;
    for (const TagData& tag : tags) {
        if (property(tag.properties, "filename") != fileName) continue;
        if (!body.empty()) body += '\n';
        if (withKeys) body += "$ TAGKEY = " + join(tag.path, ".") + "\n";
        body += tagLineText(tag);
        ++count;
    }
    if (count == 0) return true;

    const String baseName = Support::File::base(fileName, true);
    const String tagName =
        String(input ? "M_in_" : "M_out_") + value(data, "analysisName") + "_" + baseName;
    const String destDir = value(data, "destDir");
    if (!destDir.empty()) {
        Support::FileWriter out(destDir + "/" + tagName, false);
        if (out.is_open()) {
            out << "$ File type, version\n"
                << "marking, " << value(data, "version") << "\n"
                << "$ Tag definition file: " << baseName << "\n"
                << "$ Tag type, Num tags\n"
                << "MARKING, " << count << "\n"
                << "$ Default delimited (free) parser (\\s=space \\t=tab \\,=comma \\\\=backslash)\n"
                << orDefault(data, "delims", kDefaultDelims) << "\n"
                << "$ Default fixed parser (*=remainder of line)\n"
                << orDefault(data, "widths", kDefaultWidths) << "\n"
                << "$ Mode, Row, Delims, Col, Param type, Param name, Print Fmt\n"
                << body;
            out.close();
        }
        if (!out) {
            addError(errors, moduleText(".err.writeMarkDefnFile"), fileName);
            return false;
        }
    }
    outputs[fileName + (input ? "_intagfile" : "_outtagfile")] = tagName;
    return true;
}

bool MarkTagging::parseTagLine(const String& line, TagData& tag) {
    String text = line;
    replaceAll(text, "\\\\", "*SLASH*");
    replaceAll(text, "\\,", "*COMMA*");
    StringList f = split(text, ',', true);
    if (f.size() != 7) return false;
    replaceAll(f[2], "*SLASH*", "\\\\");
    replaceAll(f[2], "*COMMA*", "\\,");
    tag.properties.push_back({"mode", f[0], ""});
    tag.properties.push_back({"row", f[1], ""});
    tag.properties.push_back({"delims", f[2], ""});
    tag.properties.push_back({"col", f[3], ""});
    tag.paramType = f[4];
    tag.paramName = f[5];
    tag.properties.push_back({"format", f[6], ""});
    return true;
}

int MarkTagging::readTagFile(const String& tagFile, const StringStringMap& data,
                             std::list<TagData>& tags, StringStringMap& outputs, String& errors,
                             bool input) {
    if (tagFile.empty()) return -1;
    Support::FileReader in(tagFile, false);
    if (!in.is_open()) {
        addError(errors, moduleText(".err.openTagDefnFile"), tagFile);
        return 1;
    }
    String line;
    in.getLine(line, '\n');
    in.getLine(line, '\n');
    if (trim(line).rfind("marking", 0) != 0) return -1;

    const String fileName = value(data, input ? "inputFilename" : "outputFilename");
    while (in.getLine(line, '\n')) {
        trim(line);
        if (line.rfind("$", 0) == 0 || line.rfind("MARKING,", 0) == 0) continue;
        // The two default specifications come first; empty lines count there.
        if (!outputs.count("delims")) {
            outputs["delims"] = line;
            continue;
        }
        if (!outputs.count("widths")) {
            outputs["widths"] = line;
            continue;
        }
        if (line.empty()) continue;
        TagData tag;
        if (!parseTagLine(line, tag)) {
            addError(errors, moduleText(".err.invalidTagData"), tagFile);
            return 1;
        }
        tag.properties.push_back({"filename", fileName, ""});
        tags.push_back(std::move(tag));
    }
    return 0;
}

void MarkTagging::writeTagFileAttributes(pugi::xml_document& document,
                                         const StringStringMap& data) {
    pugi::xml_node root = document.document_element();
    const String delims = orDefault(data, "delims", kDefaultDelims);
    const String widths = orDefault(data, "widths", kDefaultWidths);
    for (auto [name, v] : {std::pair{"delims", &delims}, std::pair{"widths", &widths}}) {
        pugi::xml_attribute a = root.attribute(name);
        if (!a) a = root.append_attribute(name);
        a.set_value(v->c_str());
    }
}

void MarkTagging::writeTagAttributes(pugi::xml_node& node, const TagData& tag) {
    for (const char* name : {"row", "col", "delims"}) {
        pugi::xml_attribute a = node.attribute(name);
        if (!a) a = node.append_attribute(name);
        a.set_value(property(tag.properties, name).c_str());
    }
}

void MarkTagging::readTagAttributes(pugi::xml_node& node, TagData& tag) {
    for (const char* name : {"row", "col", "delims"})
        tag.properties.push_back({name, node.attribute(name).value(), ""});
}

}  // namespace MOSAQ::Portals
