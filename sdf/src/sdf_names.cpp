// Variable names: which texts are names, how a text is made into one, and
// how two names compare on a file.
//
// Names are ASCII: any byte outside the classes below, bytes above 127
// included, makes a name invalid. The classes are tests on ranges, never a
// lookup indexed by the byte, so no byte value can reach outside a table.
// The comparison of a case-insensitive file folds ASCII letters to upper
// case and nothing else, so the order never depends on the locale.
#include <string.h>

#include "sdf_inner.h"

namespace {

bool is_letter(unsigned char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
bool is_digit(unsigned char c) { return c >= '0' && c <= '9'; }

bool ok_first(unsigned char c) { return is_letter(c) || c == '_'; }
bool ok_last(unsigned char c) {
    return is_letter(c) || is_digit(c) || c == '_' || c == ':' || c == '@' || c == '~';
}
// "$" may stand inside a name but not at its end.
bool ok_middle(unsigned char c) { return ok_last(c) || c == '$'; }

// Whether byte i of a name of length n fits its position; a name of one
// character meets the rules of first and last at once.
bool ok_at(unsigned char c, size_t i, size_t n) {
    bool ok = i == 0 ? ok_first(c) : ok_middle(c);
    if (i + 1 == n) ok = ok && ok_last(c);
    return ok;
}

unsigned char upper(unsigned char c) { return (c >= 'a' && c <= 'z') ? c - ('a' - 'A') : c; }

}  // namespace

extern "C" {

int Sdf_Valid_Name(const char* name) {
    if (!name) return 0;
    size_t n = strnlen(name, SDF_MAX_NAME + 1);
    if (n < 1 || n > SDF_MAX_NAME) return 0;
    for (size_t i = 0; i < n; i++)
        if (!ok_at(static_cast<unsigned char>(name[i]), i, n)) return 0;
    return 1;
}

int Sdf_Fix_Name(const char* name, char* buf) {
    int valid = Sdf_Valid_Name(name);
    if (!buf) return valid;
    size_t n = name ? strnlen(name, SDF_MAX_NAME) : 0;
    if (n == 0) {
        strcpy(buf, "_");
        return valid;
    }
    for (size_t i = 0; i < n; i++) {
        unsigned char c = static_cast<unsigned char>(name[i]);
        buf[i] = ok_at(c, i, n) ? static_cast<char>(c) : '_';
    }
    buf[n] = '\0';
    return valid;
}

int sdf_name_cmp(const sdfile* s, const char* a, const char* b) {
    if (!s || !s->case_insensitive) return strcmp(a, b);
    const unsigned char* p = reinterpret_cast<const unsigned char*>(a);
    const unsigned char* q = reinterpret_cast<const unsigned char*>(b);
    for (;; p++, q++) {
        unsigned char x = upper(*p), y = upper(*q);
        if (x != y) return x < y ? -1 : 1;
        if (!x) return 0;
    }
}

}  // extern "C"
