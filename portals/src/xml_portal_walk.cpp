// xmlPortal's view of an XML file: the walk that turns a document into groups
// of rows, the values of single elements, and the test whether a stored parse
// of a file may stand in for a new one.
//
// The document element itself never becomes a group, and a group without rows
// or sub-groups is dropped, so the tree holds only what a user can bind.
#include <cstdlib>

#include "xml_portal_files.h"
#include "zeltra/portal.h"

using MOSAQ::String;
using MOSAQ::StringList;
using MOSAQ::StringStringMap;
using MOSAQ::Portals::ItemGroup;
using MOSAQ::Portals::PropertyItem;
using MOSAQ::Support::File;
namespace xmlfiles = MOSAQ::Portals::xmlfiles;

namespace {

String slashes(String path) { return MOSAQ::Portals::HelperBase::replaceAll(path, "\\", "/"); }

// One routine for both directions: the walk doesn't depend on it.
bool parseXmlFile(xmlPortal& portal, MOSAQ::Portals::IPortalHost* host, const String& path,
                  std::list<ItemGroup>& groups, String& errors) {
    pugi::xml_document document;
    const pugi::xml_parse_result loaded = xmlfiles::load(document, path);
    if (!loaded) {
        errors = String(loaded.description()) + " " + path;
        return false;
    }
    const pugi::xml_node root = document.document_element();
    if (!portal.acceptDocument(root, 0)) return false;
    const bool result = portal.parseNode(root.first_child(), groups, errors, true);
    if (portal.showsProgress() && host) host->reportProgress(-1, -1, "", 0);
    return result;
}

}  // namespace

bool xmlPortal::parseInputFile(const String& path, void*, std::list<ItemGroup>& groups,
                               String& errors) {
    return parseXmlFile(*this, host, path, groups, errors);
}

bool xmlPortal::parseOutputFile(const String& path, void*, std::list<ItemGroup>& groups,
                                String& errors) {
    return parseXmlFile(*this, host, path, groups, errors);
}

bool xmlPortal::parseNode(pugi::xml_node node, std::list<ItemGroup>& groups, String& errors,
                          bool withSiblings) {
    if (!node || node.type() != pugi::node_element) return true;
    if (!isNamespaced(node) && !isLeaf(node)) {
        ItemGroup group;
        group.name = nodeLabel(node);
        const pugi::xml_node first = node.first_child();
        if (isLeaf(first)) {
            if (!collectLeaves(first, group, errors)) return false;
            if (!group.items.empty()) {
                group.itemKind = "Properties";
                groupCreated(group, node.name());
                groups.push_back(std::move(group));
            }
        } else {
            if (!parseNode(first, group.children, errors, true)) return false;
            if (!group.children.empty()) {
                group.itemKind = itemKindFor(group, first.name());
                groupCreated(group, node.name());
                groups.push_back(std::move(group));
            }
        }
    }
    if (withSiblings) {
        for (pugi::xml_node next = node.next_sibling(); next; next = next.next_sibling())
            if (!parseNode(next, groups, errors, false)) return false;
    }
    if (showsProgress() && host) host->reportProgress(0, 0, "*Parsing xml data...", 0);
    return true;
}

bool xmlPortal::collectLeaves(pugi::xml_node node, ItemGroup& group, String& errors) {
    if (!node || node.type() != pugi::node_element) return true;
    for (; node; node = node.next_sibling()) {
        if (node.type() != pugi::node_element) continue;
        if (isLeaf(node))
            group.items.push_back(makeItem(node));
        else if (!collectLeaves(node.first_child(), group, errors))
            return false;
    }
    return true;
}

bool xmlPortal::isLeaf(pugi::xml_node node) {
    return node.first_child().type() == pugi::node_pcdata;
}

bool xmlPortal::isNamespaced(pugi::xml_node node) {
    return String(node.name()).find(':') != String::npos;
}

void xmlPortal::groupCreated(ItemGroup&, const String&) {}

PropertyItem xmlPortal::makeItem(pugi::xml_node node) {
    return {nodeLabel(node), trimmed(node.first_child().value()), ""};
}

String xmlPortal::itemKindFor(const ItemGroup&, const String& childName) { return childName; }

String xmlPortal::nodeLabel(pugi::xml_node node) {
    const String label = node.attribute("name").value();
    return label.empty() ? String(node.name()) : label;
}

bool xmlPortal::acceptDocument(pugi::xml_node, int) { return true; }

bool xmlPortal::setNodeValue(const StringList& path, pugi::xml_document& document,
                             const String& value) {
    pugi::xml_node element =
        document.document_element().first_element_by_path(join(path, ".").c_str(), '.');
    if (!element) return false;
    if (!element.first_child()) element.append_child(pugi::node_pcdata);
    // An element whose first child is another element can't take a text.
    return element.first_child().set_value(value.c_str());
}

bool xmlPortal::getNodeValues(const String& path, pugi::xml_document& document,
                              std::vector<double>& values, const char& separator) {
    const pugi::xml_node element =
        document.document_element().first_element_by_path(path.c_str(), separator);
    if (!element) return false;
    const String text = element.first_child().value();
    if (text.empty()) return false;
    if (text.find('\n') == String::npos) {
        values.push_back(std::atof(text.c_str()));
        return true;
    }
    // A blank line, such as the one behind a final line feed, holds no value.
    for (const String& piece : split(text, '\n', true))
        if (!piece.empty()) values.push_back(std::atof(piece.c_str()));
    return true;
}

bool xmlPortal::getNodeValuesAt(const StringList& path, pugi::xml_document& document,
                                std::vector<double>& values) {
    return getNodeValues(join(path, "."), document, values, '.');
}

bool xmlPortal::needsParse(const String& file, String& parsedPath, const StringStringMap& data,
                           bool input, String& errors, bool checkContents) {
    if (!File::exists(file)) {
        errors = "Unable to open the parsing file: " + File::base(file, true);
        return false;
    }
    const String forced = environment(envName(input ? "PARSE_INPUT" : "PARSE_OUTPUT"));
    if (!forced.empty()) {
        parsedPath = forced;
        return false;
    }
    String folder;
    if (host) {
        StringList extra;
        const String sub = getName() + "/" + File::base(file, false) + "_" + File::extension(file);
        host->resolveFolder("", extra, folder, {{"sub", sub}});
    }
    parsedPath = (folder.empty() ? String() : folder + "/") + File::base(file, true) +
                 ".parsedData.xml";

    if (value(data, "ForceReparse") == "true") return true;
    if (!File::exists(parsedPath)) return true;
    if (File::modifiedTime(parsedPath) < File::modifiedTime(file)) return true;
    if (!checkContents) return false;

    pugi::xml_document stored;
    const pugi::xml_parse_result loaded = xmlfiles::load(stored, parsedPath);
    if (!loaded) {
        errors = loaded.description();
        return true;
    }
    const pugi::xml_node root = stored.document_element();
    const bool sameVersion = String(root.attribute("version").value()) == value(data, "version");
    const bool sameFile = slashes(root.attribute("filepath").value()) == slashes(file);
    return !(sameVersion && sameFile);
}
