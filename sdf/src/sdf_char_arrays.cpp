// Character arrays as C strings or fixed-width fields.
//
// In the file each element takes exactly elen bytes, blank-padded, without a
// terminator. Going out, a string is cut after its last character that is
// neither NUL nor blank, and a field of the caller's width is blank-padded
// (NUL bytes become blanks). Coming in, a string or field gives up to elen
// characters, up to its first NUL, and is blank-padded to elen. The bytes
// pass through a temporary of elen x count bytes in both directions.
#include <stdio.h>
#include <string.h>

#include "sdf_array_forms.h"

extern "C" {

char** sdf_chars_to_strings(const char* elems, int elen, int64_t n, const char* tag) {
    const size_t ptrs = static_cast<size_t>(n) * sizeof(char*);
    const size_t each = static_cast<size_t>(elen) + 1;
    auto* block = static_cast<char*>(ZU_allocMem(ptrs + static_cast<size_t>(n) * each, tag));
    if (!block) return nullptr;
    auto** list = reinterpret_cast<char**>(block);
    for (int64_t k = 0; k < n; k++) {
        char* s = block + ptrs + static_cast<size_t>(k) * each;
        const char* e = elems + k * elen;
        int len = elen;
        while (len > 0 && (e[len - 1] == ' ' || e[len - 1] == 0)) len--;
        memcpy(s, e, static_cast<size_t>(len));
        s[len] = 0;
        list[k] = s;
    }
    return list;
}

void sdf_chars_to_fields(const char* elems, int elen, int64_t n, char* out, int width) {
    const int copy = elen < width ? elen : width;
    for (int64_t k = 0; k < n; k++) {
        char* o = out + k * width;
        const char* e = elems + k * elen;
        for (int i = 0; i < copy; i++) o[i] = e[i] ? e[i] : ' ';
        memset(o + copy, ' ', static_cast<size_t>(width - copy));
    }
}

void sdf_strings_to_chars(char* const* strings, int elen, int64_t n, char* out) {
    for (int64_t k = 0; k < n; k++) {
        const char* s = strings[k] ? strings[k] : "";
        const size_t len = strnlen(s, static_cast<size_t>(elen));
        memcpy(out + k * elen, s, len);
        memset(out + k * elen + len, ' ', static_cast<size_t>(elen) - len);
    }
}

void sdf_fields_to_chars(const char* fields, int width, int elen, int64_t n, char* out) {
    const size_t most = static_cast<size_t>(width < elen ? width : elen);
    for (int64_t k = 0; k < n; k++) {
        const size_t len = strnlen(fields + k * width, most);
        memcpy(out + k * elen, fields + k * width, len);
        memset(out + k * elen + len, ' ', static_cast<size_t>(elen) - len);
    }
}

}  // extern "C"

namespace {

int elen_of(const ventry* row) { return row->record->elen; }

// Elements a run read of n from start gives.
int64_t run_length(fcb* f, ventry* row, const int64_t* st, int64_t n, int* rc) {
    int64_t dims[8];
    if ((*rc = sdf_array_dims(f, row, dims))) return 0;
    const int64_t left = sdf_array_left(dims, st);
    return n <= 0 || n > left ? left : n;
}

// Hands out elements as strings: into the caller's strings (elen + 1 bytes
// each) or a new registered block.
int give_strings(const char* core, const char* raw, int elen, int64_t n, char*** strings) {
    if (n <= 0) return 0;
    if (*strings) {
        for (int64_t k = 0; k < n; k++) {
            char** one = sdf_chars_to_strings(raw + k * elen, elen, 1, "sdf_read_carray:one");
            if (!one) return sdf_error(core, 3025, "sdf_read_carray:one");
            memcpy((*strings)[k], one[0], strlen(one[0]) + 1);
            ZU_freeMem(one);
        }
        return 0;
    }
    char** list = sdf_chars_to_strings(raw, elen, n, "sdf_read_carray:strings");
    if (!list || !sdf_register(list)) return sdf_error(core, 3025, "sdf_read_carray:strings");
    *strings = list;
    return 0;
}

// Hands out elements as fields of width characters.
int give_fields(const char* core, const char* raw, int elen, int64_t n, int width, char** buffer) {
    if (n <= 0) return 0;
    char* out = *buffer;
    if (!out && !(out = static_cast<char*>(ZU_allocMemNoZero(static_cast<size_t>(n * width), "sdf_read_carrayf:buffer"))))
        return sdf_error(core, 3025, "sdf_read_carrayf:buffer");
    sdf_chars_to_fields(raw, elen, n, out, width);
    if (!*buffer) {
        if (!sdf_register(out)) return sdf_error(core, 3025, "sdf_read_carrayf:buffer");
        *buffer = out;
    }
    return 0;
}

// A run of elements into a temporary.
template <class Give>
int read_chars(const char* core, fcb* f, ventry* row, int64_t* st, int64_t n, int64_t* got, Give give) {
    int rc = 0;
    const int64_t m = run_length(f, row, st, n, &rc);
    if (rc) return sdf_error_chain(core, rc, "sdf_array_dims");
    sdf_temp raw;
    void* p = m > 0 ? raw.take(static_cast<size_t>(m * elen_of(row)), "sdf_read_carray:buffer") : nullptr;
    if (m > 0 && !p) return sdf_error(core, 3025, "sdf_read_carray:buffer");
    if (m > 0 && (rc = sdf_array_read(f, row, st, m, &p, got))) return sdf_error_chain(core, rc, "sdf_array_read");
    return give(raw.chars(), *got);
}

template <class Give>
int read_slice_chars(const char* core, fcb* f, ventry* row, const sdf_slice* sl, Give give) {
    sdf_temp raw;
    void* p = raw.take(static_cast<size_t>(sl->count * elen_of(row)), "sdf_read_cslice:buffer");
    if (!p) return sdf_error(core, 3025, "sdf_read_cslice:buffer");
    int rc = sdf_slice_read(f, row, sl, &p, nullptr);
    if (rc) return sdf_error_chain(core, rc, "sdf_slice_read");
    return give(raw.chars(), sl->count);
}

// Builds n fixed elements with make(out) and writes them with put(raw).
template <class Make, class Put>
int write_chars(const char* core, ventry* row, int64_t n, Make make, Put put) {
    sdf_temp raw;
    if (!raw.take(static_cast<size_t>(n * elen_of(row)), "sdf_write_carray:buffer")) return sdf_error(core, 3025, "sdf_write_carray:buffer");
    make(raw.chars());
    return put(raw.chars());
}

int bad_width(const char* R, int width) {
    char text[64];
    snprintf(text, sizeof text, "Field width %d is below 1.", width);
    return sdf_error(R, 4001, text);
}

// ----------------------------------------------------------- templates

template <class I>
int read_carray(const char* R, int ch, const char* name, char*** strings, I* start, I count, I* nread) {
    static const char* C = "sdf_read_carray";
    if (!strings) return sdf_error(R, 4001, "No string list pointer given.");
    return sdfforms::read_run(R, C, ch, name, true, start, count, nread,
                              [strings](fcb* f, ventry* row, int64_t* st, int64_t n, int64_t* got) {
                                  return read_chars(C, f, row, st, n, got, [&](const char* raw, int64_t m) {
                                      return give_strings(C, raw, elen_of(row), m, strings);
                                  });
                              });
}

template <class I>
int read_carrayf(const char* R, int ch, const char* name, char** buffer, int width, I* start, I count, I* nread) {
    static const char* C = "sdf_read_carrayf";
    if (!buffer) return sdf_error(R, 4001, "No buffer pointer given.");
    if (width < 1) return bad_width(R, width);
    return sdfforms::read_run(R, C, ch, name, true, start, count, nread,
                              [buffer, width](fcb* f, ventry* row, int64_t* st, int64_t n, int64_t* got) {
                                  return read_chars(C, f, row, st, n, got, [&](const char* raw, int64_t m) {
                                      return give_fields(C, raw, elen_of(row), m, width, buffer);
                                  });
                              });
}

template <class I>
int write_carray(const char* R, int ch, const char* name, char* const* strings, I* start, I count) {
    static const char* C = "sdf_write_carray";
    if (!strings && count > 0) return sdf_error(R, 4001, "No strings given.");
    return sdfforms::write_run(R, C, ch, name, true, start, count, [strings](fcb* f, ventry* row, int64_t* st, int64_t n) {
        return write_chars(
            C, row, n, [&](char* out) { sdf_strings_to_chars(strings, elen_of(row), n, out); },
            [&](const char* raw) {
                int rc = sdf_array_write(f, row, st, n, raw);
                return rc ? sdf_error_chain(C, rc, "sdf_array_write") : 0;
            });
    });
}

template <class I>
int write_carrayf(const char* R, int ch, const char* name, const char* buffer, int width, I* start, I count) {
    static const char* C = "sdf_write_carrayf";
    if (!buffer && count > 0) return sdf_error(R, 4001, "No buffer given.");
    if (width < 1) return bad_width(R, width);
    return sdfforms::write_run(R, C, ch, name, true, start, count,
                               [buffer, width](fcb* f, ventry* row, int64_t* st, int64_t n) {
                                   return write_chars(
                                       C, row, n,
                                       [&](char* out) { sdf_fields_to_chars(buffer, width, elen_of(row), n, out); },
                                       [&](const char* raw) {
                                           int rc = sdf_array_write(f, row, st, n, raw);
                                           return rc ? sdf_error_chain(C, rc, "sdf_array_write") : 0;
                                       });
                               });
}

template <class I>
int read_cslice(const char* R, int ch, const char* name, char*** strings, const I* b, const I* e, const I* s,
                const int32_t* tr, I* count, I* dims) {
    static const char* C = "sdf_read_cslice";
    if (!strings) return sdf_error(R, 4001, "No string list pointer given.");
    return sdfforms::read_slice(R, C, ch, name, true, b, e, s, tr, count, dims,
                                [strings](fcb* f, ventry* row, const sdf_slice* sl) {
                                    return read_slice_chars(C, f, row, sl, [&](const char* raw, int64_t m) {
                                        return give_strings(C, raw, elen_of(row), m, strings);
                                    });
                                });
}

template <class I>
int read_cslicef(const char* R, int ch, const char* name, char** buffer, int width, const I* b, const I* e,
                 const I* s, const int32_t* tr, I* count, I* dims) {
    static const char* C = "sdf_read_cslicef";
    if (!buffer) return sdf_error(R, 4001, "No buffer pointer given.");
    if (width < 1) return bad_width(R, width);
    return sdfforms::read_slice(R, C, ch, name, true, b, e, s, tr, count, dims,
                                [buffer, width](fcb* f, ventry* row, const sdf_slice* sl) {
                                    return read_slice_chars(C, f, row, sl, [&](const char* raw, int64_t m) {
                                        return give_fields(C, raw, elen_of(row), m, width, buffer);
                                    });
                                });
}

template <class I>
int write_cslice(const char* R, int ch, const char* name, char* const* strings, const I* b, const I* e,
                 const I* s, const int32_t* tr, I* count) {
    static const char* C = "sdf_write_cslice";
    if (!strings) return sdf_error(R, 4001, "No strings given.");
    return sdfforms::write_slice(R, C, ch, name, true, b, e, s, tr, count,
                                 [strings](fcb* f, ventry* row, const sdf_slice* sl) {
                                     return write_chars(
                                         C, row, sl->count,
                                         [&](char* out) { sdf_strings_to_chars(strings, elen_of(row), sl->count, out); },
                                         [&](const char* raw) {
                                             int rc = sdf_slice_write(f, row, sl, raw);
                                             return rc ? sdf_error_chain(C, rc, "sdf_slice_write") : 0;
                                         });
                                 });
}

template <class I>
int write_cslicef(const char* R, int ch, const char* name, const char* buffer, int width, const I* b,
                  const I* e, const I* s, const int32_t* tr, I* count) {
    static const char* C = "sdf_write_cslicef";
    if (!buffer) return sdf_error(R, 4001, "No buffer given.");
    if (width < 1) return bad_width(R, width);
    return sdfforms::write_slice(
        R, C, ch, name, true, b, e, s, tr, count, [buffer, width](fcb* f, ventry* row, const sdf_slice* sl) {
            return write_chars(
                C, row, sl->count,
                [&](char* out) { sdf_fields_to_chars(buffer, width, elen_of(row), sl->count, out); },
                [&](const char* raw) {
                    int rc = sdf_slice_write(f, row, sl, raw);
                    return rc ? sdf_error_chain(C, rc, "sdf_slice_write") : 0;
                });
        });
}

}  // namespace

extern "C" {

int Sdf_Read_Carray(int ch, const char* name, char*** strings, int32_t* start, int32_t count, int32_t* nread) {
    return read_carray("Sdf_Read_Carray", ch, name, strings, start, count, nread);
}
int Sdf_Read_Carray64(int ch, const char* name, char*** strings, int64_t* start, int64_t count, int64_t* nread) {
    return read_carray("Sdf_Read_Carray64", ch, name, strings, start, count, nread);
}
int Sdf_Write_Carray(int ch, const char* name, char* const* strings, int32_t* start, int32_t count) {
    return write_carray("Sdf_Write_Carray", ch, name, strings, start, count);
}
int Sdf_Write_Carray64(int ch, const char* name, char* const* strings, int64_t* start, int64_t count) {
    return write_carray("Sdf_Write_Carray64", ch, name, strings, start, count);
}
int Sdf_Read_CarrayF(int ch, const char* name, char** buffer, int width, int32_t* start, int32_t count,
                     int32_t* nread) {
    return read_carrayf("Sdf_Read_CarrayF", ch, name, buffer, width, start, count, nread);
}
int Sdf_Read_CarrayF64(int ch, const char* name, char** buffer, int width, int64_t* start, int64_t count,
                       int64_t* nread) {
    return read_carrayf("Sdf_Read_CarrayF64", ch, name, buffer, width, start, count, nread);
}
int Sdf_Write_CarrayF(int ch, const char* name, const char* buffer, int width, int32_t* start, int32_t count) {
    return write_carrayf("Sdf_Write_CarrayF", ch, name, buffer, width, start, count);
}
int Sdf_Write_CarrayF64(int ch, const char* name, const char* buffer, int width, int64_t* start, int64_t count) {
    return write_carrayf("Sdf_Write_CarrayF64", ch, name, buffer, width, start, count);
}

int Sdf_Read_Cslice(int ch, const char* name, char*** strings, const int32_t* begin, const int32_t* end,
                    const int32_t* step, const int32_t* tr_vec, int32_t* count, int32_t dims[8]) {
    return read_cslice("Sdf_Read_Cslice", ch, name, strings, begin, end, step, tr_vec, count, dims);
}
int Sdf_Read_Cslice64(int ch, const char* name, char*** strings, const int64_t* begin, const int64_t* end,
                      const int64_t* step, const int32_t* tr_vec, int64_t* count, int64_t dims[8]) {
    return read_cslice("Sdf_Read_Cslice64", ch, name, strings, begin, end, step, tr_vec, count, dims);
}
int Sdf_Write_Cslice(int ch, const char* name, char* const* strings, const int32_t* begin, const int32_t* end,
                     const int32_t* step, const int32_t* tr_vec, int32_t* count) {
    return write_cslice("Sdf_Write_Cslice", ch, name, strings, begin, end, step, tr_vec, count);
}
int Sdf_Write_Cslice64(int ch, const char* name, char* const* strings, const int64_t* begin, const int64_t* end,
                       const int64_t* step, const int32_t* tr_vec, int64_t* count) {
    return write_cslice("Sdf_Write_Cslice64", ch, name, strings, begin, end, step, tr_vec, count);
}
int Sdf_Read_CsliceF(int ch, const char* name, char** buffer, int width, const int32_t* begin, const int32_t* end,
                     const int32_t* step, const int32_t* tr_vec, int32_t* count, int32_t dims[8]) {
    return read_cslicef("Sdf_Read_CsliceF", ch, name, buffer, width, begin, end, step, tr_vec, count, dims);
}
int Sdf_Read_CsliceF64(int ch, const char* name, char** buffer, int width, const int64_t* begin,
                       const int64_t* end, const int64_t* step, const int32_t* tr_vec, int64_t* count,
                       int64_t dims[8]) {
    return read_cslicef("Sdf_Read_CsliceF64", ch, name, buffer, width, begin, end, step, tr_vec, count, dims);
}
int Sdf_Write_CsliceF(int ch, const char* name, const char* buffer, int width, const int32_t* begin,
                      const int32_t* end, const int32_t* step, const int32_t* tr_vec, int32_t* count) {
    return write_cslicef("Sdf_Write_CsliceF", ch, name, buffer, width, begin, end, step, tr_vec, count);
}
int Sdf_Write_CsliceF64(int ch, const char* name, const char* buffer, int width, const int64_t* begin,
                        const int64_t* end, const int64_t* step, const int32_t* tr_vec, int64_t* count) {
    return write_cslicef("Sdf_Write_CsliceF64", ch, name, buffer, width, begin, end, step, tr_vec, count);
}

}  // extern "C"
