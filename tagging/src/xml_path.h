// The path language of XML tags, inside the module: segments, their brackets,
// and a resolver that follows segments down a document.
//
// A resolver that indexes keeps, per parent node, its children grouped by
// name and, on demand, the positions of those children by the value of an
// attribute. The answers are exactly those of the plain walk (children of a
// name counted from the first); only the cost no longer grows with how far
// down a long sibling list a path points. The document's structure must not
// change while a resolver is in use; an attribute value written through it
// must be announced with attributeWritten so no stale position is used.
#pragma once

#include <cstddef>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "zeltra/tagging.h"

namespace MOSAQ::Portals::xmlpath {

// One segment: name, then at most two brackets. index is 0 for a bare name,
// -1 when a bracket gave none; cond1 and cond2 are the two condition slots.
struct Segment {
    String name;
    int index = 0;
    String cond1;
    String cond2;
};

// Position of the bracket that closes the one at `open` (round, angle,
// square or curly; same-kind brackets nest; a character behind a single
// backslash doesn't count, one behind two does); npos when none closes it.
std::size_t closingBracket(const String& text, std::size_t open);

// Segments of a path split on "/" outside brackets (see XmlTagging::splitPath).
StringList splitPath(const String& path);
Segment parseSegment(const String& text);

class Resolver {
public:
    explicit Resolver(bool indexed) : indexed_(indexed) {}

    XmlTarget resolve(pugi::xml_node node, const StringList& segments);
    bool test(pugi::xml_node node, const String& condition);
    // The element whose attribute the last resolve gave, if it gave one.
    pugi::xml_node attributeOwner() const { return owner_; }
    // The value of attribute `name` of `owner` changed.
    void attributeWritten(pugi::xml_node owner, const String& name);

private:
    // Positions among a group's children by the value of one attribute:
    // the first position of each value, and from each position the next one
    // with the same value (-1 at the end). Values are viewed in place in the
    // document, which is why a write of the attribute drops the index.
    struct AttributeIndex {
        std::unordered_map<std::string_view, int> first;
        std::vector<int> next;
    };
    // Children of one name under one parent, in document order.
    struct Group {
        std::vector<pugi::xml_node> nodes;
        std::unordered_map<String, AttributeIndex> byAttribute;
    };
    struct Found {
        pugi::xml_node child;
        bool selected = false;  // the walk ended in a selection on a child
        XmlTarget selection;
        static Found of(pugi::xml_node c) { return {c, false, {}}; }
        static Found selecting(XmlTarget t) { return {{}, true, t}; }
    };

    XmlTarget resolve(pugi::xml_node node, const StringList& segments, int depth);
    bool test(pugi::xml_node node, const String& condition, int depth);
    XmlTarget select(pugi::xml_node node, const String& spec);
    Found walk(pugi::xml_node parent, const Segment& s, bool last, int depth);
    Found indexedWalk(pugi::xml_node parent, const Segment& s, bool last, int depth);
    // The children of a name under a parent; null when it has none.
    Group* group(pugi::xml_node parent, const String& name);
    // The first position whose attribute has the value, or -1; next() goes on.
    int firstWith(Group& g, const String& attribute, const String& value);

    bool indexed_;
    pugi::xml_node owner_;
    // Names are viewed in place: a run never renames an element.
    std::unordered_map<pugi::xml_node_struct*, std::unordered_map<std::string_view, Group>> groups_;
};

}  // namespace MOSAQ::Portals::xmlpath
