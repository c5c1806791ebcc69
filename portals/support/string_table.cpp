// The compiled-in message table. Rows are kept in the order of the data file
// and indexed once, on first use, by (table, id); a lookup that finds nothing
// gives the id back so a missing text is visible and never read as an error.
#include "mosaq/support.h"

#include <algorithm>
#include <utility>

namespace MOSAQ::Support {

namespace {

#define ZS_MESSAGE(table, id, text) StringTable::Row{table, id, text},
const std::vector<StringTable::Row> kRows = {
#include "string_table_data.inc"
};
#undef ZS_MESSAGE

using Key = std::pair<String, String>;

const std::map<Key, const char*>& index() {
    static const std::map<Key, const char*> byKey = [] {
        std::map<Key, const char*> m;
        for (const auto& row : kRows) m.emplace(Key(row.table, row.id), row.text);
        return m;
    }();
    return byKey;
}

String escapeNewlines(const char* text) {
    String out;
    for (const char* p = text; *p; ++p) {
        if (*p == '\n') out += "\\n";
        else out += *p;
    }
    return out;
}

}  // namespace

const std::vector<StringTable::Row>& StringTable::rows() { return kRows; }

String StringTable::lookup(const String& table, const String& id) {
    const auto& m = index();
    auto it = m.find(Key(table, id));
    return it == m.end() ? id : String(it->second);
}

String StringTable::dumpStringTableIdsAndMessages() {
    String out;
    for (const auto& [key, text] : index()) {
        out += key.first;
        out += '\t';
        out += key.second;
        out += '\t';
        out += escapeNewlines(text);
        out += '\n';
    }
    return out;
}

}  // namespace MOSAQ::Support
