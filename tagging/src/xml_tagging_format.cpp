// The XML module's tag definition file: one XML document per tagged file and
// direction, "X_in_" or "X_out_" + analysis + "_" + the tagged file's base
// name, in the run folder, indented by two blanks:
//
//   <?xml version="1.0" encoding="UTF-8"?>
//   <TagDefinition version="3" solverName="plate" filename="plate.xml">
//     <tag mode="xml" paramName="t" paramType="Real" format="%g" xpath="/plate/thickness" xid="[#text]" />
//   </TagDefinition>
//
// The root's attributes come in the order version, solverVersion, solverName
// (these two only when given), filename; a tag's in the order mode,
// paramName, paramType, format, xpath, xid. A read brings back no
// "filename": where the file is used says which file it tags.
#include <exception>

#include "xml_tagging_files.h"

namespace MOSAQ::Portals {

bool XmlTagging::writeInputTagging(const String& fileName, const std::list<TagData>& tags,
                                   const StringStringMap& data, StringStringMap& outputs,
                                   String& errors) {
    return writeXmlTagFile(fileName, tags, data, outputs, errors, true);
}

bool XmlTagging::writeOutputTagging(const String& fileName, const std::list<TagData>& tags,
                                    const StringStringMap& data, StringStringMap& outputs,
                                    String& errors) {
    return writeXmlTagFile(fileName, tags, data, outputs, errors, false);
}

int XmlTagging::readInputTagging(const String& tagFile, const StringStringMap&,
                                 std::list<TagData>& tags, StringStringMap&, String& errors) {
    return readXmlTagFile(tagFile, tags, errors);
}

int XmlTagging::readOutputTagging(const String& tagFile, const StringStringMap&,
                                  std::list<TagData>& tags, StringStringMap&, String& errors) {
    return readXmlTagFile(tagFile, tags, errors);
}

void XmlTagging::writeTagAttributes(pugi::xml_node& node, const TagData& tag) {
    for (const char* name : {"xpath", "xid"}) {
        pugi::xml_attribute a = node.attribute(name);
        if (!a) a = node.append_attribute(name);
        a.set_value(property(tag.properties, name).c_str());
    }
}

void XmlTagging::readTagAttributes(pugi::xml_node& node, TagData& tag) {
    for (const char* name : {"xpath", "xid"})
        tag.properties.push_back({name, node.attribute(name).value(), ""});
}

bool XmlTagging::writeXmlTagFile(const String& fileName, const std::list<TagData>& tags,
                                 const StringStringMap& data, StringStringMap& outputs,
                                 String& errors, bool input) {
    std::list<const TagData*> mine;
    for (const TagData& tag : tags)
        if (property(tag.properties, "filename") == fileName) mine.push_back(&tag);
    if (mine.empty()) return true;
    try {
        const String baseName = Support::File::base(fileName, true);
        pugi::xml_document document;
        pugi::xml_node declaration = document.append_child(pugi::node_declaration);
        declaration.append_attribute("version").set_value("1.0");
        declaration.append_attribute("encoding").set_value("UTF-8");
        pugi::xml_node root = document.append_child("TagDefinition");
        root.append_attribute("version").set_value(value(data, "version").c_str());
        for (const char* key : {"solverVersion", "solverName"})
            if (!value(data, key).empty())
                root.append_attribute(key).set_value(value(data, key).c_str());
        root.append_attribute("filename").set_value(baseName.c_str());
        for (const TagData* tag : mine) {
            pugi::xml_node node = root.append_child("tag");
            node.append_attribute("mode").set_value(property(tag->properties, "mode").c_str());
            node.append_attribute("paramName").set_value(tag->paramName.c_str());
            node.append_attribute("paramType").set_value(tag->paramType.c_str());
            node.append_attribute("format").set_value(property(tag->properties, "format").c_str());
            writeTagAttributes(node, *tag);
        }
        writeTagFileAttributes(document, data);

        const String destDir = value(data, "destDir");
        if (destDir.empty()) return true;
        const String tagName =
            String(input ? "X_in_" : "X_out_") + value(data, "analysisName") + "_" + baseName;
        const String path = destDir + "/" + tagName;
        if (xmlfile::save(document, path, pugi::encoding_utf8, false))
            outputs[fileName + (input ? "_intagfile" : "_outtagfile")] = tagName;
        else
            addError(errors, moduleText(".err.writeToFile"), path);
        return true;
    } catch (const std::exception&) {
        addError(errors, moduleText(".err.writeXmlDefnFile"), fileName);
        return false;
    }
}

int XmlTagging::readXmlTagFile(const String& tagFile, std::list<TagData>& tags, String& errors) {
    if (tagFile.empty()) return -1;
    xmlfile::XmlFile file;
    xmlfile::load(file, tagFile, pugi::parse_default);
    if (!file.result) {
        // The reader's own text stands alone: it replaces what was there.
        errors = file.result.description();
        addLine(errors, moduleText(".err.readTagDefnFile"), tagFile);
        return -1;
    }
    const pugi::xml_node root = file.document.document_element();
    if (String(root.name()) != "TagDefinition") return -1;
    for (pugi::xml_node node : root.children("tag")) {
        if (node.type() != pugi::node_element) continue;
        TagData tag;
        tag.paramName = node.attribute("paramName").value();
        tag.paramType = node.attribute("paramType").value();
        tag.properties.push_back({"mode", node.attribute("mode").value(), ""});
        if (node.attribute("format"))
            tag.properties.push_back({"format", node.attribute("format").value(), ""});
        readTagAttributes(node, tag);
        tags.push_back(std::move(tag));
    }
    return 0;
}

}  // namespace MOSAQ::Portals
