// Text at the border of the by-reference forms: the caller's fields have a
// length and no terminator, are padded with blanks, and may hold a NUL when
// a C caller passes a longer length than its string.
//
// Invariants: a name copy never passes 512 characters plus the NUL; a text
// copy is tracked memory freed by its slot; an output field is always
// written to its full length.
#include "sdf_ref_forms.h"

namespace sdfref {

size_t text_length(const char* p, size_t len) {
    if (!p) return 0;
    const void* nul = memchr(p, 0, len);
    size_t n = nul ? static_cast<size_t>(static_cast<const char*>(nul) - p) : len;
    while (n > 0 && p[n - 1] == ' ') n--;
    return n;
}

void put_field(char* field, size_t len, const char* text) {
    if (!field) return;
    const size_t n = text ? strnlen(text, len) : 0;
    memcpy(field, text ? text : "", n);
    memset(field + n, ' ', len - n);
}

Name::Slot::Slot(Raw<Param> r) {
    const size_t n = text_length(r.p, r.len);
    if (n > SDF_MAX_NAME) {
        memcpy(buf, r.p, SDF_MAX_NAME - 1);
        buf[SDF_MAX_NAME - 1] = '&';
        buf[SDF_MAX_NAME] = 0;
    } else {
        memcpy(buf, n ? r.p : "", n);
        buf[n] = 0;
    }
}

Text::Slot::Slot(Raw<Param> r) {
    const size_t n = text_length(r.p, r.len);
    s = static_cast<char*>(ZU_allocMemNoZero(n + 1, "sdf_ref:text"));
    if (!s) {
        refuse(3025, "sdf_ref:text");
        return;
    }
    memcpy(s, n ? r.p : "", n);
    s[n] = 0;
}

Text::Slot::~Slot() { ZU_freeMem(s); }

}  // namespace sdfref
