// Listings are for reading by eye and are built so that what a user reads
// off them is exactly what a tag takes: rows and columns count from 1 in
// bytes, token ordinals follow the token engine of the mark module, and XML
// paths are given in the path language of the XML module.
#include "inspect.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <list>
#include <map>
#include <ostream>
#include <pugixml.hpp>
#include <vector>

#include "zeltra/tagging.h"

namespace portalrun {

using MOSAQ::Portals::ItemGroup;
using MOSAQ::Portals::TaggingImpl;

namespace {

constexpr std::size_t kRulerMax = 200;  // columns; longer lines aren't ruled further

std::string shownLine(const std::string& line) {
    std::string out = line;
    for (char& c : out)
        if (c == '\t' || static_cast<unsigned char>(c) < 0x20) c = ' ';
    return out;
}

// Token ordinals under each token's first column, or empty when two
// ordinals would run into each other.
std::string tokenMarks(const std::string& line, const std::string& set) {
    std::string marks;
    int n = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const bool delim = set.find(line[i]) != std::string::npos;
        if (delim || (i > 0 && set.find(line[i - 1]) == std::string::npos)) continue;
        const std::string number = std::to_string(++n);
        if (marks.size() > i) return {};
        marks.append(i - marks.size(), ' ');
        marks += number + ' ';  // a blank keeps two ordinals apart
    }
    while (!marks.empty() && marks.back() == ' ') marks.pop_back();
    return marks;
}

void printGroup(const ItemGroup& g, int depth, std::ostream& out) {
    const std::string indent(static_cast<std::size_t>(depth) * 2, ' ');
    out << indent << "group " << g.name << " (" << g.items.size() << " "
        << (g.itemKind.empty() ? "rows" : g.itemKind + " rows") << ")\n";
    std::size_t width = 0;
    for (const auto& item : g.items) width = std::max(width, item.name.size());
    for (const auto& item : g.items)
        out << indent << "  " << std::left << std::setw(static_cast<int>(width)) << item.name
            << "  " << item.value << "\n";
    for (const ItemGroup& c : g.children) printGroup(c, depth + 1, out);
}

void printElement(const pugi::xml_node& node, const std::string& path, std::ostream& out) {
    out << path << "\n";
    for (const pugi::xml_attribute& a : node.attributes())
        out << "    [@" << a.name() << "]  " << a.value() << "\n";
    for (const pugi::xml_node& c : node.children()) {
        if (c.type() != pugi::node_pcdata && c.type() != pugi::node_cdata) continue;
        std::string text = c.value();
        if (text.find_first_not_of(" \t\r\n") == std::string::npos) continue;
        out << "    [#text]  " << shownLine(text) << "\n";
        break;  // the first text part is the one a tag reads
    }
    std::map<std::string, int> count, seen;
    for (const pugi::xml_node& c : node.children())
        if (c.type() == pugi::node_element) ++count[c.name()];
    for (const pugi::xml_node& c : node.children()) {
        if (c.type() != pugi::node_element) continue;
        std::string segment = c.name();
        if (count[segment] > 1) segment.append("[").append(std::to_string(seen[c.name()]++)).append("]");
        printElement(c, path + "/" + segment, out);
    }
}

}  // namespace

bool fileKind(const std::string& path, FileKind& kind, std::string& error) {
    std::error_code ec;
    std::ifstream in(path, std::ios::binary);
    if (!std::filesystem::is_regular_file(path, ec) || !in) {
        std::error_code missing;
        error = "cannot read " + path + (std::filesystem::exists(path, missing)
                                             ? std::string(": not a file")
                                             : std::string(": no such file"));
        return false;
    }
    char head[16] = {};
    in.read(head, sizeof head);
    const std::string start(head, static_cast<std::size_t>(in.gcount()));
    if (start.rfind("%SDF_BIN:", 0) == 0) {
        kind = FileKind::Sdf;
        return true;
    }
    const std::size_t first = start.find_first_not_of(" \t\r\n\xEF\xBB\xBF");
    kind = FileKind::Text;
    if (first != std::string::npos && start[first] == '<') {
        pugi::xml_document doc;
        if (doc.load_file(path.c_str())) kind = FileKind::Xml;
    }
    return true;
}

bool inspectSdf(MOSAQ::Portals::IPortal& portal, const std::string& path, std::ostream& out,
                std::string& error) {
    std::list<ItemGroup> groups;
    MOSAQ::String errors;
    if (!portal.parseOutputFile(path, nullptr, groups, errors)) {
        error = errors.empty() ? "the portal cannot list " + path : errors;
        while (!error.empty() && error.back() == '\n') error.pop_back();
        return false;
    }
    out << path << ": SDF file, as the portal lists it; a response is bound to a group and a "
                   "row name\n";
    for (const ItemGroup& g : groups) printGroup(g, 0, out);
    if (!errors.empty()) out << "the portal said: " << errors;
    return true;
}

bool inspectXml(const std::string& path, std::ostream& out, std::string& error) {
    pugi::xml_document doc;
    const pugi::xml_parse_result r = doc.load_file(path.c_str());
    if (!r) {
        error = path + ": " + r.description();
        return false;
    }
    out << path << ": XML document; each element with its xpath, then the xid of its "
                   "attributes and text\n";
    printElement(doc.document_element(), std::string("/") + doc.document_element().name(), out);
    return true;
}

bool inspectText(const std::string& path, const std::string& delims, std::ostream& out,
                 std::string& error) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = "cannot read " + path;
        return false;
    }
    MOSAQ::String set, why;
    if (!TaggingImpl::parseDelimiters(delims, set, why)) {
        error = "delimiters '" + delims + "': a backslash may only be followed by s, t, comma "
                "or backslash";
        return false;
    }
    std::vector<std::string> lines;
    std::size_t longest = 0;
    for (std::string l; std::getline(in, l);) {
        if (!l.empty() && l.back() == '\r') l.pop_back();
        longest = std::max(longest, l.size());
        lines.push_back(l);
    }
    longest = std::min(longest, kRulerMax);
    out << path << ": " << lines.size() << " lines; under each row the numbers of its free "
        << "tokens (delimiters " << delims << ")\n";
    std::string tens, ones;
    for (std::size_t c = 1; c <= longest; ++c) {
        tens += c % 10 == 0 ? static_cast<char>('0' + (c / 10) % 10) : ' ';
        ones += static_cast<char>('0' + c % 10);
    }
    while (!tens.empty() && tens.back() == ' ') tens.pop_back();
    out << "  row | " << tens << "\n      | " << ones << "\n";
    int row = 0;
    for (const std::string& l : lines) {
        out << std::right << std::setw(5) << ++row << " | " << shownLine(l) << "\n";
        const std::string marks = tokenMarks(l, set);
        if (!marks.empty()) {
            out << "      | " << marks << "\n";
            continue;
        }
        const MOSAQ::StringList tokens = TaggingImpl::splitTokens(l, set);
        if (tokens.empty()) continue;
        out << "      | tokens:";
        for (std::size_t i = 0; i < tokens.size(); ++i) out << " " << i + 1 << "=" << tokens[i];
        out << "\n";
    }
    return true;
}

}  // namespace portalrun
