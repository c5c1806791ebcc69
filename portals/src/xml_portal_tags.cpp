// xmlPortal's own tag definition file: one XML file per tagged file and
// direction, "P_in_" or "P_out_" + analysis + "_" + file name, in the run
// folder. A tag's path lives in the "name" attributes of nested "Key"
// elements and of the "tag" itself; files of a version below 7.2 are read by
// element names instead. "filename" and "mode" are never written: a read
// brings them back from where the file is used and from its kind.
#include <cstdlib>
#include <vector>

#include "xml_portal_files.h"
#include "zeltra/portal.h"

using MOSAQ::String;
using MOSAQ::StringList;
using MOSAQ::StringStringMap;
using MOSAQ::Portals::PropertyItem;
using MOSAQ::Portals::TagData;
using MOSAQ::Support::File;
namespace xmlfiles = MOSAQ::Portals::xmlfiles;

namespace {

// The version from which a path is read from "name" attributes.
constexpr double kNamedPathVersion = 7.2;

bool isNameStart(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':' ||
           static_cast<unsigned char>(c) >= 0x80;
}

// An attribute of any other name would make a file that can't be read back.
bool isXmlName(const String& name) {
    if (name.empty() || !isNameStart(name[0])) return false;
    for (char c : name)
        if (!isNameStart(c) && !(c >= '0' && c <= '9') && c != '-' && c != '.') return false;
    return true;
}

void setIfPresent(pugi::xml_node node, const char* attribute, const String& value) {
    if (!value.empty()) node.append_attribute(attribute).set_value(value.c_str());
}

StringList pathOf(pugi::xml_node tag, double version) {
    StringList path;
    if (version < kNamedPathVersion) {
        path = MOSAQ::Portals::HelperBase::split(tag.path('.'), '.');
    } else {
        for (pugi::xml_node n = tag; n; n = n.parent())
            path.insert(path.begin(), n.attribute("name").value());
    }
    if (!path.empty() && path.front().empty()) path.erase(path.begin());
    if (!path.empty()) path.erase(path.begin());  // the document element
    if (!path.empty() && tag.attribute("name") && path.back() == "tag")
        path.back() = tag.attribute("name").value();
    return path;
}

TagData tagOf(pugi::xml_node node, StringList path, const String& fileName) {
    TagData tag;
    tag.path = std::move(path);
    tag.paramName = node.attribute("paramName").value();
    tag.paramType = node.attribute("paramType").value();
    for (pugi::xml_attribute a : node.attributes()) {
        const String name = a.name();
        if (name != "paramName" && name != "paramType" && name != "name")
            tag.properties.push_back({name, a.value(), ""});
    }
    for (pugi::xml_node child : node.children()) {
        const pugi::xml_attribute name = child.attribute("name");
        if (child.type() == pugi::node_element && name)
            tag.properties.push_back({name.value(), child.child_value(), child.name()});
    }
    tag.properties.push_back({"filename", fileName, ""});
    tag.properties.push_back({"mode", "portal", ""});
    return tag;
}

}  // namespace

String xmlPortal::tagFileName(const String& fileName, const StringStringMap& data, bool input) {
    return String("P_") + (input ? "in_" : "out_") + value(data, "analysisName") + "_" + fileName;
}

bool xmlPortal::writeTagDefinition(const String& fileName, const std::list<TagData>& tags,
                                   const StringStringMap& data, StringStringMap& outputs,
                                   bool input, String& errors) {
    const std::size_t errorsBefore = errors.size();
    pugi::xml_document document;
    pugi::xml_node declaration = document.append_child(pugi::node_declaration);
    declaration.append_attribute("version").set_value("1.0");
    declaration.append_attribute("encoding").set_value("UTF-8");
    pugi::xml_node root = document.append_child("Portal");
    root.append_attribute("name").set_value(getName().c_str());
    root.append_attribute("version").set_value(value(data, "version").c_str());
    setIfPresent(root, "solverVersion", value(data, "solverVersion"));
    setIfPresent(root, "solverName", value(data, "solverName"));
    root.append_attribute("fileType").set_value("Tag Definition");
    writeTagNodes(tags, root);

    const int check = checkTagDocument(document, data, outputs);
    const bool write = check == -1 || (check == 0 && root.first_child());
    if (!write) return errors.size() == errorsBefore;

    const String destDir = value(data, "destDir");
    const String name = tagFileName(fileName, data, input);
    bool saved = true;
    if (!destDir.empty()) {
        const String path = destDir + "/" + name;
        saved = xmlfiles::save(document, path);
        if (!saved) addLine(errors, "Unable to write to " + path);
    }
    if (saved) outputs[fileName + (input ? "_in" : "_out") + "tagfile"] = name;
    return errors.size() == errorsBefore;
}

void xmlPortal::writeTagNodes(const std::list<TagData>& tags, pugi::xml_node parent) {
    for (const TagData& tag : tags) {
        if (property(tag.properties, "mode") != "portal" || tag.path.empty()) continue;
        pugi::xml_node at = parent;
        for (std::size_t i = 0; i + 1 < tag.path.size(); ++i) {
            pugi::xml_node key = at.find_child_by_attribute("Key", "name", tag.path[i].c_str());
            if (!key) {
                key = at.append_child("Key");
                key.append_attribute("name").set_value(tag.path[i].c_str());
            }
            at = key;
        }
        pugi::xml_node node = at.append_child("tag");
        node.append_attribute("name").set_value(tag.path.back().c_str());
        writeTagNodeAttributes(node, tag);
    }
}

void xmlPortal::writeTagNodeAttributes(pugi::xml_node tagNode, const TagData& tag) {
    tagNode.append_attribute("paramName").set_value(tag.paramName.c_str());
    tagNode.append_attribute("paramType").set_value(tag.paramType.c_str());
    for (const PropertyItem& p : tag.properties) {
        if (p.name == "filename" || p.name == "mode") continue;
        if (p.kind.empty()) {
            // The first property of a name wins, as in a lookup; a second
            // attribute of the same name would make the file unreadable.
            if (isXmlName(p.name) && !tagNode.attribute(p.name.c_str()))
                tagNode.append_attribute(p.name.c_str()).set_value(p.value.c_str());
        } else if ((p.kind == "Prop" && acceptProp(p.name)) ||
                   (p.kind == "PortalData" && acceptPortalData(p.name))) {
            pugi::xml_node child = tagNode.append_child(p.kind.c_str());
            child.append_attribute("name").set_value(p.name.c_str());
            child.append_child(pugi::node_pcdata).set_value(p.value.c_str());
        }
    }
}

bool xmlPortal::acceptProp(const String&) { return true; }
bool xmlPortal::acceptPortalData(const String&) { return true; }

int xmlPortal::checkTagDocument(pugi::xml_document&, const StringStringMap&, StringStringMap&) {
    return 0;
}

void xmlPortal::tagDataRead(pugi::xml_document&, const StringStringMap&, std::list<TagData>&,
                            StringStringMap&) {}

int xmlPortal::readTagData(const String& tagFile, const StringStringMap& data,
                           std::list<TagData>& tags, StringStringMap& outputs, bool input,
                           String& errors) {
    // Gathers the "tag" elements at any depth, in document order.
    struct TagExtractor : pugi::xml_tree_walker {
        std::vector<pugi::xml_node> nodes;
        bool for_each(pugi::xml_node& node) override {
            if (String(node.name()) == "tag") nodes.push_back(node);
            return true;
        }
    };

    if (tagFile.empty()) return -1;
    if (File::base(tagFile, true).rfind(input ? "P_in_" : "P_out_", 0) != 0) return -1;
    pugi::xml_document document;
    const pugi::xml_parse_result loaded = xmlfiles::load(document, tagFile);
    if (!loaded) {
        // Appended, not replacing: a run passes one errors string through
        // all of its files, and earlier failures must survive.
        addLine(errors, String(loaded.description()) + "\nUnable to read tag file " + tagFile);
        return -1;
    }
    pugi::xml_node root = document.document_element();
    if (String(root.name()) != "Portal") return -1;
    const String fileName = value(data, input ? "inputFilename" : "outputFilename");
    TagExtractor extractor;
    root.traverse(extractor);
    if (extractor.nodes.empty()) return -1;

    const String versionText = root.attribute("version").value();
    const double version =
        versionText == "test" ? kNamedPathVersion : std::atof(versionText.c_str());
    for (pugi::xml_node node : extractor.nodes) {
        StringList path = pathOf(node, version);
        if (!path.empty()) tags.push_back(tagOf(node, std::move(path), fileName));
    }
    tagDataRead(document, data, tags, outputs);
    return 0;
}
