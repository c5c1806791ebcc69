// The path language of XML tags: splitting a path into segments, reading a
// segment's brackets, following segments down a document, and conditions.
//
// Invariants: resolution never changes the document; a path that finds
// nothing gives an empty target, never a wrong node; conditions of the form
// "./path" nest at most kMaxNesting deep, so a hostile path can't exhaust the
// stack (deeper conditions are false).
#include "xml_path.h"

#include <algorithm>

namespace MOSAQ::Portals {

namespace xmlpath {

namespace {

constexpr int kMaxNesting = 64;

bool startsWith(const String& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

// "@x" or "#x" with no "=" behind the first character: a selection, not a test.
bool bareSelector(const String& spec, char first) {
    return !spec.empty() && spec[0] == first && spec.find('=', 1) == String::npos;
}

// A condition "@a=v" or "a=v": what the attribute index answers.
bool attributeCondition(const String& c, String& attribute, String& value) {
    if (c.empty() || startsWith(c, "./")) return false;
    const std::size_t eq = c.find('=');
    if (eq == String::npos || c[0] == '#') return false;
    attribute = c.substr(c[0] == '@' ? 1 : 0, eq - (c[0] == '@' ? 1 : 0));
    value = c.substr(eq + 1);
    return true;
}

// A condition that can hold at all: the others are false on every node.
bool canHold(const String& c) {
    return !c.empty() && (startsWith(c, "./") || c.find('=') != String::npos);
}

char closerOf(char open) {
    switch (open) {
        case '(': return ')';
        case '<': return '>';
        case '[': return ']';
        case '{': return '}';
        default: return 0;
    }
}

// Bracket content from `open`; `end` is set behind the closing bracket.
String bracketAt(const String& text, std::size_t open, std::size_t& end) {
    const std::size_t close = closingBracket(text, open);
    if (close == String::npos) {
        end = text.size();
        return text.substr(open + 1);
    }
    end = close + 1;
    return text.substr(open + 1, close - open - 1);
}

}  // namespace

std::size_t closingBracket(const String& text, std::size_t open) {
    const char opener = text[open], closer = closerOf(opener);
    int depth = 1;
    for (std::size_t i = open + 1; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '\\') {
            // The escaped character is stepped over; in "\\" that is the
            // second backslash, so the character behind the pair counts.
            ++i;
            continue;
        }
        if (c == opener) ++depth;
        else if (c == closer && --depth == 0) return i;
    }
    return String::npos;
}

StringList splitPath(const String& path) {
    StringList segments;
    if (path.empty()) return segments;
    String current;
    for (std::size_t i = 0; i < path.size(); ++i) {
        const char c = path[i];
        if (c == '/') {
            segments.push_back(std::move(current));
            current.clear();
        } else if (c == '[') {
            // The bracket's content goes in whole, so a "/" in it doesn't
            // split; its closing bracket comes round as a plain character.
            const std::size_t close = closingBracket(path, i);
            const std::size_t stop = close == String::npos ? path.size() : close;
            current.append(path, i, stop - i);
            i = stop - 1;
        } else {
            current += c;
        }
    }
    segments.push_back(std::move(current));
    if (segments.front().empty()) segments.erase(segments.begin());
    return segments;
}

Segment parseSegment(const String& text) {
    Segment s;
    const std::size_t open = text.find('[');
    if (open == String::npos || text.find(']') == String::npos) {
        s.name = text;
        return s;
    }
    s.index = -1;
    std::size_t end = 0;
    const String first = bracketAt(text, open, end);
    if (startsWith(first, "@") || startsWith(first, "./") ||
        (startsWith(first, "#") && first.find('=', 1) != String::npos)) {
        s.cond1 = first;
    } else if (HelperBase::isNumber(first)) {
        s.index = TaggingImpl::wholeNumber(first);
    } else {
        s.cond2 = first;
    }
    if (end < text.size() && text[end] == '[') {
        const String second = bracketAt(text, end, end);
        if (s.cond1.empty()) s.cond1 = s.cond2;
        s.cond2 = second;
    }
    s.name = text.substr(0, open) + text.substr(end);
    return s;
}

XmlTarget Resolver::resolve(pugi::xml_node node, const StringList& segments) {
    owner_ = pugi::xml_node();
    return resolve(node, segments, 0);
}

bool Resolver::test(pugi::xml_node node, const String& condition) {
    return test(node, condition, 0);
}

XmlTarget Resolver::resolve(pugi::xml_node node, const StringList& segments, int depth) {
    for (std::size_t i = 0; i < segments.size(); ++i) {
        const bool last = i + 1 == segments.size();
        const Segment s = parseSegment(segments[i]);
        if (s.name == ".") continue;
        if (s.name.empty()) {
            // A bracket alone selects on the node itself.
            XmlTarget t = !s.cond1.empty()   ? select(node, s.cond1)
                          : !s.cond2.empty() ? select(node, s.cond2)
                                             : XmlTarget{node, {}};
            if (last) return t;
            // More segments go on from a selected node; from an attribute
            // there is nowhere to go.
            if (t.attribute || !t.node) return {};
            node = t.node;
            continue;
        }
        const Found f = indexed_ ? indexedWalk(node, s, last, depth) : walk(node, s, last, depth);
        if (f.selected) return f.selection;
        if (!f.child) return {};
        if (!last) {
            node = f.child;
            continue;
        }
        return s.cond2.empty() ? XmlTarget{f.child, {}} : select(f.child, s.cond2);
    }
    return {node, {}};
}

XmlTarget Resolver::select(pugi::xml_node node, const String& spec) {
    if (spec.empty() || !node) return {};
    const String what = spec.substr(0, spec.find('='));
    if (startsWith(what, "@")) {
        pugi::xml_attribute a = node.attribute(what.c_str() + 1);
        if (a) owner_ = node;
        return {pugi::xml_node(), a};
    }
    if (startsWith(what, "#")) {
        if (what != "#text") return {};
        for (pugi::xml_node c = node.first_child(); c; c = c.next_sibling())
            if (c.type() == pugi::node_pcdata || c.type() == pugi::node_cdata) return {c, {}};
        return {};
    }
    for (pugi::xml_node c = node.first_child(); c; c = c.next_sibling())
        if (c.type() == pugi::node_element && what == c.name()) return {c, {}};
    return {};
}

bool Resolver::test(pugi::xml_node node, const String& condition, int depth) {
    if (condition.empty()) return false;
    if (startsWith(condition, "./")) {
        if (depth >= kMaxNesting) return false;
        const pugi::xml_node owner = owner_;
        const bool found = !resolve(node, splitPath(condition), depth + 1).empty();
        owner_ = owner;
        return found;
    }
    const std::size_t eq = condition.find('=');
    if (eq == String::npos) return false;
    String left = condition.substr(0, eq);
    const String right = condition.substr(eq + 1);
    if (startsWith(left, "#")) return left == "#text" && right == node.child_value();
    if (startsWith(left, "@")) left.erase(0, 1);
    const pugi::xml_attribute a = node.attribute(left.c_str());
    return a && right == a.value();
}

// The walk as written: children of the name, counted from the first.
Resolver::Found Resolver::walk(pugi::xml_node parent, const Segment& s, bool last, int depth) {
    int counter = 0;
    for (pugi::xml_node c = parent.first_child(); c; c = c.next_sibling()) {
        if (s.name != c.name()) continue;
        if (s.index >= 0 && s.index == counter) return Found::of(c);
        if (test(c, s.cond1, depth) &&
            (s.cond2.find('=') == String::npos || test(c, s.cond2, depth)))
            return Found::of(c);
        if (last && s.index < 0) {
            if (bareSelector(s.cond1, '@')) return Found::selecting(select(c, s.cond1));
            if (s.cond1.empty() && bareSelector(s.cond2, '#'))
                return Found::selecting(select(c, s.cond2));
        }
        ++counter;
    }
    return {};
}

// The same answers from the index: the first position that the index or a
// condition picks, or the selection that the walk makes on the first child.
Resolver::Found Resolver::indexedWalk(pugi::xml_node parent, const Segment& s, bool last,
                                      int depth) {
    if (!parent) return {};
    Group* found = group(parent, s.name);
    if (!found) return {};
    Group& g = *found;
    const int n = static_cast<int>(g.nodes.size());
    int pick = s.index >= 0 && s.index < n ? s.index : n;
    if (!canHold(s.cond1)) {
        // The condition test never succeeds: the index decides, or the
        // first child's selection.
        if (pick < n) return Found::of(g.nodes[pick]);
        if (last && s.index < 0) {
            if (bareSelector(s.cond1, '@')) return Found::selecting(select(g.nodes[0], s.cond1));
            if (s.cond1.empty() && bareSelector(s.cond2, '#'))
                return Found::selecting(select(g.nodes[0], s.cond2));
        }
        return {};
    }
    const bool second = s.cond2.find('=') != String::npos;
    String attribute, value;
    if (attributeCondition(s.cond1, attribute, value)) {
        const int first = firstWith(g, attribute, value);
        const AttributeIndex& index = g.byAttribute.at(attribute);
        for (int p = first; p >= 0 && p < pick; p = index.next[p]) {
            if (!second || test(g.nodes[p], s.cond2, depth)) {
                pick = p;
                break;
            }
        }
    } else {
        for (int p = 0; p < pick; ++p) {
            if (test(g.nodes[p], s.cond1, depth) && (!second || test(g.nodes[p], s.cond2, depth))) {
                pick = p;
                break;
            }
        }
    }
    return pick < n ? Found::of(g.nodes[pick]) : Found{};
}

Resolver::Group* Resolver::group(pugi::xml_node parent, const String& name) {
    auto [it, fresh] = groups_.try_emplace(parent.internal_object());
    if (fresh) {
        for (pugi::xml_node c = parent.first_child(); c; c = c.next_sibling())
            if (*c.name()) it->second[std::string_view(c.name())].nodes.push_back(c);
    }
    // A name no child has gets no entry: the key would view the caller's text.
    const auto found = it->second.find(std::string_view(name));
    return found == it->second.end() ? nullptr : &found->second;
}

int Resolver::firstWith(Group& g, const String& attribute, const String& value) {
    auto [it, fresh] = g.byAttribute.try_emplace(attribute);
    AttributeIndex& index = it->second;
    if (fresh) {
        const int n = static_cast<int>(g.nodes.size());
        index.next.assign(static_cast<std::size_t>(n), -1);
        // Built from the back, so each value's first position ends up in front.
        for (int p = n - 1; p >= 0; --p) {
            // The first attribute of the name, as the condition test reads it.
            const pugi::xml_attribute a = g.nodes[p].attribute(attribute.c_str());
            if (!a) continue;
            auto [slot, added] = index.first.try_emplace(std::string_view(a.value()), p);
            if (!added) {
                index.next[p] = slot->second;
                slot->second = p;
            }
        }
    }
    const auto found = index.first.find(std::string_view(value));
    return found == index.first.end() ? -1 : found->second;
}

void Resolver::attributeWritten(pugi::xml_node owner, const String& name) {
    const auto parent = groups_.find(owner.parent().internal_object());
    if (parent == groups_.end()) return;
    const auto g = parent->second.find(std::string_view(owner.name()));
    if (g != parent->second.end()) g->second.byAttribute.erase(name);
}

}  // namespace xmlpath

StringList XmlTagging::splitPath(const String& path) { return xmlpath::splitPath(path); }

XmlTarget XmlTagging::resolvePath(pugi::xml_node node, const StringList& segments) {
    return xmlpath::Resolver(false).resolve(node, segments);
}

bool XmlTagging::testCondition(pugi::xml_node node, const String& condition) {
    return xmlpath::Resolver(false).test(node, condition);
}

}  // namespace MOSAQ::Portals
