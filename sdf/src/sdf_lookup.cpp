// From a caller's text to a variable: the channel's name prefix, the name
// check, the lookup with the test of the kind of variable, the row a write
// stores into (with the overwrite rules), templates, and the commit that
// option Write "Always" asks for.
//
// Every routine here reports its own failures once, under the routine name
// it is given, so the public operation that called it can pass them up with
// the chain rule. Names handed in are never changed in place: the prefixed
// form goes to a buffer of 514 bytes, the longest name plus one character
// (which makes it invalid) plus the terminator.
#include <string.h>

#include "sdf_inner.h"

namespace {

unsigned char upper(unsigned char c) { return (c >= 'a' && c <= 'z') ? c - ('a' - 'A') : c; }

// Whether name starts with prefix, by the file's case rule.
bool starts_with(const sdfile* s, const char* name, const char* prefix, size_t n) {
    if (!s->case_insensitive) return strncmp(name, prefix, n) == 0;
    for (size_t i = 0; i < n; i++) {
        if (!name[i] || upper(static_cast<unsigned char>(name[i])) != upper(static_cast<unsigned char>(prefix[i])))
            return false;
    }
    return true;
}

// The kind test of a lookup: 0, or the code of the mismatch.
int kind_code(int type, int want) {
    const bool array = SDF_IS_ARRAY(type);
    const bool chr = !array && SDF_BASE_TYPE(type) == SDF_CHAR_T;
    switch (want) {
    case SDF_WANT_ARRAY: return array ? 0 : 3012;
    case SDF_WANT_SCALAR: return array ? 3013 : 0;
    case SDF_WANT_CHAR: return array ? 3013 : chr ? 0 : 3015;
    case SDF_WANT_NUMBER: return array ? 3013 : chr ? 3014 : 0;
    default: return 0;
    }
}

// Copies text into out (ZU_PAT_BUFSIZE bytes at most, terminated), upper
// case when asked.
void copy_text(const char* text, char* out, size_t size, bool fold) {
    size_t i = 0;
    for (; text[i] && i + 1 < size; i++)
        out[i] = fold ? static_cast<char>(upper(static_cast<unsigned char>(text[i]))) : text[i];
    out[i] = '\0';
}

}  // namespace

extern "C" {

int sdf_apply_prefix(const fcb* f, const char* name, char out[514]) {
    const size_t room = SDF_MAX_NAME + 1;  // characters kept
    if (!name) name = "";
    const char* prefix = f ? sdf_opt_text(f, SDF_OPT_PREFIX) : "";
    size_t np = prefix ? strlen(prefix) : 0;
    bool apply = f && f->prefix_active && np > 0 && !starts_with(f->file, name, prefix, np);
    size_t at = 0;
    if (apply) {
        at = np < room ? np : room;
        memcpy(out, prefix, at);
    }
    size_t n = strnlen(name, room - at);
    memcpy(out + at, name, n);
    out[at + n] = '\0';
    return apply ? 1 : 0;
}

ventry* sdf_lookup_pos(fcb* f, const char* routine, const char* name, int want, char* full, int* pos,
                       int* rc) {
    char local[SDF_MAX_NAME + 2];
    char* text = full ? full : local;
    int where = 0;
    sdf_apply_prefix(f, name, text);
    if (pos) *pos = 0;
    if (!Sdf_Valid_Name(text)) {
        *rc = sdf_error(routine, 3005, text);
        return nullptr;
    }
    ventry* row = sdf_find_var(f, text, &where);
    if (pos) *pos = where;
    if (!row) {
        *rc = sdf_error(routine, 3010, text, f->number, f->file->name);
        return nullptr;
    }
    if (int code = kind_code(row->record->type, want)) {
        *rc = sdf_error(routine, code, text, f->number, f->file->name);
        return nullptr;
    }
    *rc = 0;
    return row;
}

ventry* sdf_lookup(fcb* f, const char* routine, const char* name, int want, int* rc) {
    return sdf_lookup_pos(f, routine, name, want, nullptr, nullptr, rc);
}

ventry* sdf_value_row(fcb* f, const char* routine, const char* name, int* rc) {
    char full[SDF_MAX_NAME + 2];
    sdf_apply_prefix(f, name, full);
    if (!Sdf_Valid_Name(full)) {
        *rc = sdf_error(routine, 3005, full);
        return nullptr;
    }
    int pos = 0;
    ventry* row = sdf_find_var(f, full, &pos);
    if (!row) {
        int err = 0;
        row = sdf_insert_var(f, full, pos, &err);
        *rc = row ? 0 : sdf_error_chain(routine, err, "sdf_insert_var");
        return row;
    }
    const bool warn = sdf_opt_int(f, SDF_OPT_OVERWRITE_WARN) == 1;
    if (sdf_opt_int(f, SDF_OPT_OVERWRITE) != 1) {
        *rc = warn ? sdf_error(routine, 2011, full, f->number, f->file->name) : 0;
        return nullptr;
    }
    const int warned = warn ? sdf_error(routine, 2010, full, f->number, f->file->name) : 0;
    if (int code = sdf_clear_val(f, row)) {
        *rc = sdf_error_chain(routine, code, "sdf_clear_val");
        return nullptr;
    }
    *rc = warned;
    return row;
}

int sdf_commit_if_always(fcb* f, const char* routine) {
    if (f->file->internal || sdf_opt_int(f, SDF_OPT_WRITE) != 1) return 0;
    int rc = sdf_write_modified_blocks(f);
    return rc ? sdf_error_chain(routine, rc, "sdf_write_modified_blocks") : 0;
}

int sdf_compile_template(const fcb* f, const char* routine, const char* templ, unsigned char* buf) {
    char full[SDF_MAX_NAME + 2];
    sdf_apply_prefix(f, templ, full);
    char text[ZU_PAT_BUFSIZE];
    copy_text(full, text, sizeof text, f->file->case_insensitive != 0);
    // The compile reports through the error set only when errors go there.
    const int size = (sdf_opt_int(nullptr, SDF_OPT_ERROR_OUT) & 1) ? ZU_PAT_BUFSIZE : -ZU_PAT_BUFSIZE;
    if (ZU_patCompile(text, buf, size) != 0) return sdf_error(routine, 3006, full);
    return 0;
}

int sdf_match_name(const fcb* f, const char* name, const unsigned char* buf) {
    if (!f->file->case_insensitive) return ZU_patMatch(name, buf);
    char text[SDF_MAX_NAME + 2];
    copy_text(name, text, sizeof text, true);
    return ZU_patMatch(text, buf);
}

}  // extern "C"
