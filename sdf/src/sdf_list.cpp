// Listing by template, the tag filter and decoder, and the public test for
// and deletion of variables by name or template.
//
// A list handed to the caller is one allocation entered in the memory
// register: count + 1 pointers, the last null, then the strings they point
// to. Its size is computed from the strings actually written, so no input
// (a tag named twice, say) can make it overflow. Names are listed in table
// order, with the channel's prefix, as they stand in the file.
#include <string.h>

#include <string>
#include <vector>

#include "sdf_inner.h"

namespace {

constexpr int kMaxTags = 128;

ventry* row_at(const vars* v, int p) { return &v->rows[v->key[p]]; }

// One allocation of pointers and strings, registered; null when out of memory.
char** pack(const std::vector<const char*>& texts, const char* tag) {
    std::vector<size_t> lengths(texts.size());
    size_t bytes = (texts.size() + 1) * sizeof(char*);
    for (size_t i = 0; i < texts.size(); i++) bytes += (lengths[i] = strlen(texts[i]) + 1);
    auto** list = static_cast<char**>(sdf_register(ZU_allocMem(bytes, tag)));
    if (!list) return nullptr;
    char* at = reinterpret_cast<char*>(list + texts.size() + 1);
    for (size_t i = 0; i < texts.size(); i++) {
        const size_t n = lengths[i];
        memcpy(at, texts[i], n);
        list[i] = at;
        at += n;
    }
    list[texts.size()] = nullptr;
    return list;
}

// Whether a template, once prefixed, is the bare "*": it becomes "^.*$",
// which every text matches, so the matcher need not run over the table.
bool matches_all(const fcb* f, const char* templ) {
    char full[SDF_MAX_NAME + 2];
    sdf_apply_prefix(f, templ, full);
    return full[0] == '*' && full[1] == '\0';
}

// The names that match a template, in table order.
int matches(fcb* f, const char* routine, const char* templ, std::vector<ventry*>* out) {
    unsigned char buf[ZU_PAT_BUFSIZE];
    if (int rc = sdf_compile_template(f, routine, templ, buf)) return rc;
    const vars* v = f->file->vars;
    const bool all = matches_all(f, templ);
    if (all) out->reserve(static_cast<size_t>(v->count));
    for (int p = 0; p < v->count; p++)
        if (all || sdf_match_name(f, row_at(v, p)->name, buf)) out->push_back(row_at(v, p));
    return 0;
}

// The tag filter: "+one_of" or "+all_of" as first item, else none.
enum Filter { kNone, kOneOf, kAllOf };

struct Tags {
    Filter filter = kNone;
    std::vector<std::string> tags;
};

Tags parse_tags(const char* text) {
    Tags t;
    ZU_Item* items = nullptr;
    int n = text ? ZU_parseItems(text, &items, kMaxTags, 0) : 0;
    if (n > kMaxTags) n = kMaxTags;
    for (int i = 0; i < n; i++) t.tags.emplace_back(items[i].text ? items[i].text : "");
    if (items) ZU_freeMem(items);
    if (!t.tags.empty() && (t.tags[0] == "+one_of" || t.tags[0] == "+all_of")) {
        t.filter = t.tags[0] == "+one_of" ? kOneOf : kAllOf;
        t.tags.erase(t.tags.begin());
    }
    return t;
}

bool selected(const Tags& t, const char* name) {
    if (t.filter == kNone) return true;
    for (const std::string& tag : t.tags) {
        const bool in = strstr(name, tag.c_str()) != nullptr;
        if (t.filter == kOneOf && in) return true;
        if (t.filter == kAllOf && !in) return false;
    }
    return t.filter == kAllOf;
}

// "tag=value" for each tag found as ":tag_" in the name, comma separated:
// the text behind the colon up to the next colon, its first "_" made "=".
std::string values_of(const Tags& t, const char* name) {
    std::string out;
    for (const std::string& tag : t.tags) {
        const std::string key = ":" + tag + "_";
        const char* hit = strstr(name, key.c_str());
        if (!hit) continue;
        const char* from = hit + 1;
        const char* end = strchr(from, ':');
        std::string piece = end ? std::string(from, end) : std::string(from);
        const size_t u = piece.find('_');
        if (u != std::string::npos) piece[u] = '=';
        if (!out.empty()) out += ",";
        out += piece;
    }
    return out;
}

int list_core(fcb* f, const char* templ, char*** list, int* count) {
    static const char* R = "sdf_list";
    std::vector<ventry*> rows;
    if (int rc = matches(f, R, templ, &rows)) return rc;
    std::vector<const char*> names;
    names.reserve(rows.size());
    for (ventry* row : rows) names.push_back(row->name);
    *list = pack(names, "sdf_list:list");
    if (!*list) return sdf_error(R, 3025, "list");
    *count = static_cast<int>(names.size());
    return 0;
}

int tag_list_core(fcb* f, const char* templ, const char* tag_text, char*** names, char*** values, int* count) {
    static const char* R = "sdf_tag_list";
    const Tags tags = parse_tags(tag_text);
    std::vector<ventry*> rows;
    if (int rc = matches(f, R, templ, &rows)) return rc;
    std::vector<const char*> picked;
    std::vector<std::string> decoded;
    for (ventry* row : rows) {
        if (!selected(tags, row->name)) continue;
        picked.push_back(row->name);
        decoded.push_back(values_of(tags, row->name));
    }
    std::vector<const char*> texts;
    for (const std::string& s : decoded) texts.push_back(s.c_str());
    *names = pack(picked, "sdf_tag_list:names");
    *values = *names ? pack(texts, "sdf_tag_list:values") : nullptr;
    if (!*values) {
        Sdf_Free(*names);
        *names = nullptr;
        return sdf_error(R, 3025, "tag list");
    }
    *count = static_cast<int>(picked.size());
    return 0;
}

int exists_core(fcb* f, const char* text) {
    char full[SDF_MAX_NAME + 2];
    sdf_apply_prefix(f, text, full);
    if (Sdf_Valid_Name(full)) {
        int pos = 0;
        return sdf_find_var(f, full, &pos) ? 1 : 0;
    }
    std::vector<ventry*> rows;
    if (matches(f, "sdf_exists", text, &rows)) return 0;
    return rows.empty() ? 0 : 1;
}

int delete_core(fcb* f, const char* text) {
    static const char* R = "sdf_delete";
    char full[SDF_MAX_NAME + 2];
    sdf_apply_prefix(f, text, full);
    if (Sdf_Valid_Name(full)) {
        int pos = 0;
        ventry* row = sdf_find_var(f, full, &pos);
        if (!row)
            return sdf_opt_int(f, SDF_OPT_DELETE_WARN) == 1
                       ? sdf_error("Sdf_Delete", 2013, full, f->number, f->file->name)
                       : 0;
        if (int rc = sdf_delete_var(f, row, pos)) return sdf_error_chain(R, rc, "sdf_delete_var");
    } else {
        unsigned char buf[ZU_PAT_BUFSIZE];
        if (int rc = sdf_compile_template(f, R, text, buf)) return rc;
        const vars* v = f->file->vars;
        // A delete moves the rows behind it down by one: stay in place then.
        for (int p = 0; p < v->count;) {
            ventry* row = row_at(v, p);
            if (!sdf_match_name(f, row->name, buf)) {
                p++;
                continue;
            }
            if (int rc = sdf_delete_var(f, row, p)) return sdf_error_chain(R, rc, "sdf_delete_var");
        }
    }
    return sdf_commit_if_always(f, R);
}

}  // namespace

extern "C" {

int Sdf_List(int channel, const char* templ, char*** list, int* count) {
    static const char* R = "Sdf_List";
    if (!list || !count) return sdf_error(R, 4001, "A required argument is null.");
    *list = nullptr;
    *count = 0;
    fcb* f = nullptr;
    int taken = 0;
    if (int rc = sdf_chan_read_begin(channel, R, &f, &taken)) return rc;
    const int rc = list_core(f, templ, list, count);
    sdf_chan_read_end(f, taken);
    return rc ? sdf_error_chain(R, rc, "sdf_list") : 0;
}

int Sdf_Tag_List(int channel, const char* templ, const char* tags, char*** names, char*** values, int* count) {
    static const char* R = "Sdf_Tag_List";
    if (!names || !values || !count) return sdf_error(R, 4001, "A required argument is null.");
    *names = *values = nullptr;
    *count = 0;
    fcb* f = nullptr;
    int taken = 0;
    if (int rc = sdf_chan_read_begin(channel, R, &f, &taken)) return rc;
    const int rc = tag_list_core(f, templ, tags, names, values, count);
    sdf_chan_read_end(f, taken);
    return rc ? sdf_error_chain(R, rc, "sdf_tag_list") : 0;
}

int Sdf_Exists(int channel, const char* name_or_template) {
    fcb* f = nullptr;
    int taken = 0;
    if (sdf_chan_read_begin(channel, "Sdf_Exists", &f, &taken)) return 0;
    const int found = exists_core(f, name_or_template);
    sdf_chan_read_end(f, taken);
    return found;
}

int Sdf_Delete(int channel, const char* name_or_template) {
    static const char* R = "Sdf_Delete";
    fcb* f = nullptr;
    int taken = 0;
    if (int rc = sdf_chan_write_begin(channel, R, &f, &taken)) return rc;
    const int rc = delete_core(f, name_or_template);
    sdf_chan_write_end(f, taken);
    if (rc == 0 || rc == 2013) return rc;  // the warning is the public form's own
    return sdf_error_chain(R, rc, "sdf_delete");
}

}  // extern "C"
