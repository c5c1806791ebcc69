// Conversion of elements between the eight types, and the base routines of
// arrays and slices run through it.
//
// Every element passes through one neutral value (an integer, a real pair,
// or a logical), so each of the 64 pairs of types follows one of a few
// rules. Nothing here can overflow or invoke undefined behaviour: reals go
// to integers by truncation held to the target's range (not-a-number gives
// 0), doubles to floats through an explicit range test, and the channel's
// format options are checked (one or two conversions of the right kind, no
// '*', no '%n') and given the length modifier of the value before printf
// sees them; a format that fails the check falls back to the built-in one.
#include <ctype.h>
#include <float.h>
#include <math.h>
#include <stdio.h>
#include <string.h>
#include <strings.h>

#include <string>

#include "sdf_inner.h"

namespace {

enum Kind { kInt, kReal, kLog };

struct Val {
    Kind kind = kInt;
    int64_t i = 0;
    double re = 0, im = 0;
};

bool is_int(int t) { return t == SDF_INT_T || t == SDF_INT64_T; }
bool is_cmpx(int t) { return t == SDF_CMPX_T || t == SDF_DCMPX_T; }

template <class T>
T load(const unsigned char* p) {
    T v;
    memcpy(&v, p, sizeof v);
    return v;
}

template <class T>
void store(unsigned char* p, T v) {
    memcpy(p, &v, sizeof v);
}

// Truncation towards 0, held to [lo, hi]; not-a-number gives 0.
int64_t trunc_to(double d, double lo, double hi, int64_t ilo, int64_t ihi) {
    if (isnan(d)) return 0;
    if (d <= lo) return ilo;
    if (d >= hi) return ihi;
    return static_cast<int64_t>(d);
}
int32_t to_int32(double d) {
    return static_cast<int32_t>(trunc_to(d, -2147483648.0, 2147483647.0, INT32_MIN, INT32_MAX));
}
int64_t to_int64(double d) { return trunc_to(d, -9223372036854775808.0, 9223372036854775807.0, INT64_MIN, INT64_MAX); }
float to_float(double d) {
    if (isfinite(d) && fabs(d) > FLT_MAX) return d > 0 ? HUGE_VALF : -HUGE_VALF;
    return static_cast<float>(d);
}

Val decode(int type, const unsigned char* p) {
    Val v;
    switch (type) {
        case SDF_INT_T: v.i = load<int32_t>(p); break;
        case SDF_INT64_T: v.i = load<int64_t>(p); break;
        case SDF_LOG_T: v.kind = kLog; v.i = load<int32_t>(p) != 0; break;
        case SDF_REAL_T: v.kind = kReal; v.re = load<float>(p); break;
        case SDF_DBLE_T: v.kind = kReal; v.re = load<double>(p); break;
        case SDF_CMPX_T: v.kind = kReal; v.re = load<float>(p); v.im = load<float>(p + 4); break;
        case SDF_DCMPX_T: v.kind = kReal; v.re = load<double>(p); v.im = load<double>(p + 8); break;
        default: break;
    }
    return v;
}

double as_real(const Val& v) { return v.kind == kReal ? v.re : static_cast<double>(v.i); }

void encode(int type, const Val& v, unsigned char* p) {
    switch (type) {
        case SDF_INT_T:  // an integer keeps its low 32 bits
            store(p, v.kind == kReal ? to_int32(v.re) : static_cast<int32_t>(static_cast<uint32_t>(v.i)));
            break;
        case SDF_INT64_T: store(p, v.kind == kReal ? to_int64(v.re) : v.i); break;
        case SDF_LOG_T:
            store(p, static_cast<int32_t>(v.kind == kReal ? (v.re != 0 || isnan(v.re)) : v.i != 0));
            break;
        case SDF_REAL_T: store(p, v.kind == kReal ? to_float(v.re) : static_cast<float>(v.i)); break;
        case SDF_DBLE_T: store(p, as_real(v)); break;
        case SDF_CMPX_T:
            store(p, v.kind == kReal ? to_float(v.re) : static_cast<float>(v.i));
            store(p + 4, to_float(v.im));
            break;
        case SDF_DCMPX_T:
            store(p, as_real(v));
            store(p + 8, v.im);
            break;
        default: break;
    }
}

// ------------------------------------------------------------- to text

const char* default_format(int type) {
    switch (type) {
        case SDF_INT_T: return "%11d";
        case SDF_INT64_T: return "%20lld";
        case SDF_REAL_T: return "%# 13.7e";
        case SDF_DBLE_T: return "%# 24.16e";
        case SDF_CMPX_T: return "%# 13.7e,%# 13.7e";
        default: return "%# 24.16e,%# 24.16e";
    }
}

int format_option(int type) {
    switch (type) {
        case SDF_INT_T: return SDF_OPT_INT_FORMAT;
        case SDF_INT64_T: return SDF_OPT_INT64_FORMAT;
        case SDF_REAL_T: return SDF_OPT_REAL_FORMAT;
        case SDF_DBLE_T: return SDF_OPT_DBLE_FORMAT;
        case SDF_CMPX_T: return SDF_OPT_CMPX_FORMAT;
        default: return SDF_OPT_DCMPX_FORMAT;
    }
}

// Rewrites fmt for printf with `want` values of type's kind; false when it
// doesn't print exactly that.
bool checked_format(const char* fmt, int type, std::string* out) {
    const int want = is_cmpx(type) ? 2 : 1;
    const bool integer = is_int(type);
    const char* length = type == SDF_INT64_T ? "ll" : "";
    int found = 0;
    out->clear();
    for (const char* c = fmt; *c; c++) {
        if (*c != '%') {
            out->push_back(*c);
            continue;
        }
        if (c[1] == '%') {
            out->append("%%");
            c++;
            continue;
        }
        std::string conv = "%";
        for (c++; *c && strchr("-+ #0", *c); c++) conv.push_back(*c);
        for (; isdigit(static_cast<unsigned char>(*c)); c++) conv.push_back(*c);
        if (*c == '.')
            for (conv.push_back(*c++); isdigit(static_cast<unsigned char>(*c)); c++) conv.push_back(*c);
        while (*c && strchr("hlLqjzt", *c)) c++;  // the value's own length goes in below
        if (!*c || !strchr(integer ? "diouxX" : "eEfFgGaA", *c) || ++found > want) return false;
        out->append(conv).append(length).push_back(*c);
    }
    return found == want;
}

std::string format_of(const fcb* f, int type) {
    char text[128];
    snprintf(text, sizeof text, "%s", sdf_opt_text(f, format_option(type)));
    std::string fmt;
    if (!checked_format(text, type, &fmt)) checked_format(default_format(type), type, &fmt);
    return fmt;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
// Prints one value with a checked format; the length the full text takes.
int print(char* buf, size_t size, const std::string& fmt, int type, const unsigned char* p) {
    switch (type) {
        case SDF_INT_T: return snprintf(buf, size, fmt.c_str(), load<int32_t>(p));
        case SDF_INT64_T: return snprintf(buf, size, fmt.c_str(), static_cast<long long>(load<int64_t>(p)));
        case SDF_REAL_T: return snprintf(buf, size, fmt.c_str(), static_cast<double>(load<float>(p)));
        case SDF_DBLE_T: return snprintf(buf, size, fmt.c_str(), load<double>(p));
        case SDF_CMPX_T:
            return snprintf(buf, size, fmt.c_str(), static_cast<double>(load<float>(p)),
                            static_cast<double>(load<float>(p + 4)));
        default: return snprintf(buf, size, fmt.c_str(), load<double>(p), load<double>(p + 8));
    }
}
#pragma GCC diagnostic pop

// Copies text into an element of elen bytes, padded with NUL bytes.
void put_text(unsigned char* to, int elen, const char* text) {
    const size_t n = strnlen(text, static_cast<size_t>(elen));
    memcpy(to, text, n);
    memset(to + n, 0, static_cast<size_t>(elen) - n);
}

// ----------------------------------------------------------- from text

// Up to two numbers from the text of an element.
struct Numbers {
    int count = 0;
    Val v[2];
};

class TextReader {
public:
    TextReader() = default;
    TextReader(const TextReader&) = delete;
    TextReader& operator=(const TextReader&) = delete;
    ~TextReader() { ZU_freeMem(items_); }

    // The element's text: up to its first NUL, at most 1023 bytes, and
    // without the blanks that pad it.
    const char* text(const unsigned char* p, int elen) {
        size_t n = strnlen(reinterpret_cast<const char*>(p), static_cast<size_t>(elen < 1023 ? elen : 1023));
        while (n > 0 && p[n - 1] == ' ') n--;
        memcpy(buf_, p, n);
        buf_[n] = 0;
        return buf_;
    }

    Numbers numbers(const char* text) {
        Numbers out;
        int found = ZU_parseItems(text, &items_, kMaxItems, 1024);
        if (found > kMaxItems) found = kMaxItems;
        for (int k = 0; k < found && out.count < 2; k++) {
            const ZU_Item& it = items_[k];
            Val& v = out.v[out.count];
            if (it.type == ZU_ITEM_INT || it.type == ZU_ITEM_INT64) {
                v.i = it.type == ZU_ITEM_INT ? it.ivalue : it.lvalue;
            } else if (it.type == ZU_ITEM_REAL || it.type == ZU_ITEM_DOUBLE) {
                v.kind = kReal;
                v.re = it.dvalue;
            } else {
                continue;
            }
            out.count++;
        }
        return out;
    }

private:
    static constexpr int kMaxItems = 20;
    ZU_Item* items_ = nullptr;
    char buf_[1024] = {0};
};

// The value of a text for a target type (see the table of rules).
Val from_text(TextReader& rd, const unsigned char* p, int elen, int to) {
    const char* t = rd.text(p, elen);
    Val v;
    if (to == SDF_LOG_T) {
        v.kind = kLog;
        if (!*t || !strcasecmp(t, "F") || !strcasecmp(t, "FALSE") || !strcasecmp(t, ".FALSE.")) return v;
        Numbers n = rd.numbers(t);
        v.i = n.count == 0 || as_real(n.v[0]) != 0 || isnan(as_real(n.v[0]));  // words count as true
        return v;
    }
    Numbers n = rd.numbers(t);
    if (n.count == 0) return v;
    v = n.v[0];
    if (is_cmpx(to)) {
        v.re = as_real(n.v[0]);
        v.im = n.count > 1 ? as_real(n.v[1]) : 0;
        v.kind = kReal;
    }
    return v;
}

}  // namespace

extern "C" {

int sdf_convert(int from_type, int from_elen, const void* from, int to_type, int to_elen, void* to, int64_t n,
                const fcb* f) {
    static const char* R = "sdf_convert";
    if (!sdf_valid_base(from_type)) return sdf_error(R, 3020, from_type, "sdf_convert");
    if (!sdf_valid_base(to_type)) return sdf_error(R, 3020, to_type, "sdf_convert");
    const int fe = from_type == SDF_CHAR_T ? from_elen : sdf_type_elen(from_type);
    const int te = to_type == SDF_CHAR_T ? to_elen : sdf_type_elen(to_type);
    if (fe < 1 || te < 1 || n <= 0) return 0;
    auto* in = static_cast<const unsigned char*>(from);
    auto* out = static_cast<unsigned char*>(to);
    if (from_type == to_type && fe == te) {
        memmove(out, in, static_cast<size_t>(n) * static_cast<size_t>(fe));
        return 0;
    }
    if (from_type == SDF_CHAR_T && to_type == SDF_CHAR_T) {
        for (int64_t k = 0; k < n; k++) {
            const size_t len = strnlen(reinterpret_cast<const char*>(in + k * fe), static_cast<size_t>(fe < te ? fe : te));
            memmove(out + k * te, in + k * fe, len);
            memset(out + k * te + len, 0, static_cast<size_t>(te) - len);
        }
        return 0;
    }
    if (to_type == SDF_CHAR_T) {
        char yes[128], no[128], text[256];
        snprintf(yes, sizeof yes, "%s", sdf_opt_text(f, SDF_OPT_LOG_TRUE_FORMAT));
        snprintf(no, sizeof no, "%s", sdf_opt_text(f, SDF_OPT_LOG_FALSE_FORMAT));
        const std::string fmt = from_type == SDF_LOG_T ? "" : format_of(f, from_type);
        for (int64_t k = 0; k < n; k++) {
            const unsigned char* p = in + k * fe;
            if (from_type == SDF_LOG_T)
                put_text(out + k * te, te, load<int32_t>(p) ? yes : no);
            else if (print(text, sizeof text, fmt, from_type, p) >= 0)
                put_text(out + k * te, te, text);
            else
                put_text(out + k * te, te, "");
        }
        return 0;
    }
    TextReader reader;
    for (int64_t k = 0; k < n; k++) {
        const unsigned char* p = in + k * fe;
        encode(to_type, from_type == SDF_CHAR_T ? from_text(reader, p, fe, to_type) : decode(from_type, p),
               out + k * te);
    }
    return 0;
}

int sdf_convert_width(const fcb* f, int from, int to) {
    if (to != SDF_CHAR_T) return sdf_type_elen(to);
    if (from == SDF_LOG_T) {
        const size_t yes = strlen(sdf_opt_text(f, SDF_OPT_LOG_TRUE_FORMAT));
        const size_t no = strlen(sdf_opt_text(f, SDF_OPT_LOG_FALSE_FORMAT));
        return static_cast<int>(yes > no ? yes : no) > 0 ? static_cast<int>(yes > no ? yes : no) : 1;
    }
    // A wide value of each type: the most digits, a sign and a long exponent.
    unsigned char wide[16];
    switch (from) {
        case SDF_CHAR_T: return 1;
        case SDF_INT_T: store<int32_t>(wide, INT32_MIN); break;
        case SDF_INT64_T: store<int64_t>(wide, INT64_MIN); break;
        case SDF_REAL_T: case SDF_CMPX_T:
            store<float>(wide, -FLT_MAX);
            store<float>(wide + 4, -FLT_MAX);
            break;
        default:
            store<double>(wide, -DBL_MAX);
            store<double>(wide + 8, -DBL_MAX);
            break;
    }
    if (!sdf_valid_base(from)) return 1;
    const int len = print(nullptr, 0, format_of(f, from), from, wide);
    return len > 0 ? len : 1;
}

// ------------------------------------ base routines through a conversion

namespace {

int base_of(const ventry* row) { return SDF_BASE_TYPE(row->record->type); }

// The caller's element size for type/elen; 0 for a type that isn't one.
int caller_elen(const fcb* f, const ventry* row, int type, int elen) {
    if (type < 0 || type >= 100 || !sdf_valid_base(type)) return 0;
    if (type != SDF_CHAR_T) return sdf_type_elen(type);
    return elen > 0 ? elen : sdf_convert_width(f, base_of(row), SDF_CHAR_T);
}

bool same(const ventry* row, int type, int elen) { return type == base_of(row) && elen == row->record->elen; }

// Converts n stored elements in `stored` into *data (registered memory when
// null).
int hand_out(fcb* f, const ventry* row, const unsigned char* stored, int64_t n, int type, int te, void** data,
             const char* routine, const char* tag) {
    void* mine = *data ? nullptr : ZU_allocMemNoZero(static_cast<size_t>(n * te), tag);
    if (!*data && !mine) return sdf_error(routine, 3025, tag);
    sdf_convert(base_of(row), row->record->elen, stored, type, te, mine ? mine : *data, n, f);
    if (mine) {
        if (!sdf_register(mine)) return sdf_error(routine, 3025, tag);
        *data = mine;
    }
    return 0;
}

}  // namespace

int sdf_array_read_as(fcb* f, ventry* row, int64_t* start, int64_t n, int type, int elen, void** data,
                      int64_t* nread) {
    static const char* R = "sdf_array_read_as";
    *nread = 0;
    const int te = caller_elen(f, row, type, elen);
    if (!te) return sdf_error(R, 3020, type, row->name);
    if (same(row, type, te)) {
        int rc = sdf_array_read(f, row, start, n, data, nread);
        return rc ? sdf_error_chain(R, rc, "sdf_array_read") : 0;
    }
    int64_t dims[8];
    int rc = sdf_array_dims(f, row, dims);
    if (rc) return sdf_error_chain(R, rc, "sdf_array_dims");
    const int64_t left = sdf_array_left(dims, start);
    if (n <= 0 || n > left) n = left;
    if (n <= 0) return 0;
    sdf_temp tmp;
    void* p = tmp.take(static_cast<size_t>(n * row->record->elen), "sdf_array_read_as:buffer");
    if (!p) return sdf_error(R, 3025, "sdf_array_read_as:buffer");
    int64_t got = 0;
    if ((rc = sdf_array_read(f, row, start, n, &p, &got))) return sdf_error_chain(R, rc, "sdf_array_read");
    if ((rc = hand_out(f, row, static_cast<unsigned char*>(p), got, type, te, data, R, "sdf_array_read_as:data")))
        return rc;
    *nread = got;
    return 0;
}

int sdf_slice_read_as(fcb* f, ventry* row, const sdf_slice* sl, int type, int elen, void** data, int64_t dims[8]) {
    static const char* R = "sdf_slice_read_as";
    const int te = caller_elen(f, row, type, elen);
    if (!te) return sdf_error(R, 3020, type, row->name);
    int rc;
    if (same(row, type, te)) {
        rc = sdf_slice_read(f, row, sl, data, dims);
        return rc ? sdf_error_chain(R, rc, "sdf_slice_read") : 0;
    }
    if (dims) memcpy(dims, sl->odims, 8 * sizeof(int64_t));
    if (sl->count <= 0) return 0;
    sdf_temp tmp;
    void* p = tmp.take(static_cast<size_t>(sl->count * row->record->elen), "sdf_slice_read_as:buffer");
    if (!p) return sdf_error(R, 3025, "sdf_slice_read_as:buffer");
    if ((rc = sdf_slice_read(f, row, sl, &p, nullptr))) return sdf_error_chain(R, rc, "sdf_slice_read");
    return hand_out(f, row, static_cast<unsigned char*>(p), sl->count, type, te, data, R, "sdf_slice_read_as:data");
}

int sdf_array_write_from(fcb* f, ventry* row, int64_t* start, int64_t n, int type, int elen, const void* data) {
    static const char* R = "sdf_array_write_from";
    const int te = caller_elen(f, row, type, elen);
    if (!te) return sdf_error(R, 3020, type, row->name);
    int rc;
    if (same(row, type, te) || n <= 0) {
        rc = sdf_array_write(f, row, start, n, data);
        return rc ? sdf_error_chain(R, rc, "sdf_array_write") : 0;
    }
    sdf_temp tmp;
    void* p = tmp.take(static_cast<size_t>(n * row->record->elen), "sdf_array_write_from:buffer");
    if (!p) return sdf_error(R, 3025, "sdf_array_write_from:buffer");
    sdf_convert(type, te, data, base_of(row), row->record->elen, p, n, f);
    rc = sdf_array_write(f, row, start, n, p);
    return rc ? sdf_error_chain(R, rc, "sdf_array_write") : 0;
}

int sdf_slice_write_from(fcb* f, ventry* row, const sdf_slice* sl, int type, int elen, const void* data) {
    static const char* R = "sdf_slice_write_from";
    const int te = caller_elen(f, row, type, elen);
    if (!te) return sdf_error(R, 3020, type, row->name);
    int rc;
    if (same(row, type, te) || sl->count <= 0) {
        rc = sdf_slice_write(f, row, sl, data);
        return rc ? sdf_error_chain(R, rc, "sdf_slice_write") : 0;
    }
    sdf_temp tmp;
    void* p = tmp.take(static_cast<size_t>(sl->count * row->record->elen), "sdf_slice_write_from:buffer");
    if (!p) return sdf_error(R, 3025, "sdf_slice_write_from:buffer");
    sdf_convert(type, te, data, base_of(row), row->record->elen, p, sl->count, f);
    rc = sdf_slice_write(f, row, sl, p);
    return rc ? sdf_error_chain(R, rc, "sdf_slice_write") : 0;
}

}  // extern "C"
