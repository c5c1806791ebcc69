/* Reporting of the SDF library's codes.
 *
 * sdf_error looks a code up in the message table, fills the pattern with the
 * caller's arguments and posts the text where option Error_Out says: bit 0
 * to the utility library's error set, bit 1 to standard error; a fault
 * (family 4 and above) always reaches standard error. sdf_error_chain adds
 * the one line per level on the way up and turns any code into its family.
 *
 * Invariants: the table is sorted and unique (checked at compile time), and
 * a message is filled by walking its own pattern, so only %d and %s ever
 * take an argument and the text never passes 255 characters. */
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "sdf_error_table.h"
#include "sdf_inner.h"

namespace {

struct sdf_msg {
    int code;
    const char *text;
};

#define SDF_ERR_ROW(code, text) {code, text},
constexpr sdf_msg k_messages[] = {SDF_ERROR_TABLE(SDF_ERR_ROW)};
#undef SDF_ERR_ROW

constexpr bool table_sorted()
{
    for (size_t i = 1; i < std::size(k_messages); ++i)
        if (k_messages[i - 1].code >= k_messages[i].code)
            return false;
    return true;
}
static_assert(table_sorted(), "message table must be sorted and unique for the bisection");

constexpr int k_msg_bytes = 256;
constexpr int k_unknown_code = 3090;

const char *severity_name(int family)
{
    static const char *const names[] = {"", "Message", "Warning", "Error", "Bug"};
    if (family < 0)
        family = 0;
    return names[family > 4 ? 4 : family];
}

/* Appends to a bounded text; whatever does not fit is dropped. */
struct text_out {
    char *buf;
    size_t used;

    void put(const char *s, size_t n)
    {
        size_t room = k_msg_bytes - 1 - used;
        if (n > room)
            n = room;
        memcpy(buf + used, s, n);
        used += n;
        buf[used] = 0;
    }
};

/* Fills pattern from args: %d takes an int, %s a text (null shows as
 * "(null)"), %% is a percent sign; anything else after % is copied as it
 * stands and takes no argument. */
void fill(char *buf, const char *pattern, va_list args)
{
    text_out out{buf, 0};
    buf[0] = 0;
    for (const char *p = pattern; *p;) {
        const char *pct = strchr(p, '%');
        if (!pct) {
            out.put(p, strlen(p));
            break;
        }
        out.put(p, static_cast<size_t>(pct - p));
        char num[16];
        switch (pct[1]) {
        case 'd': {
            int n = snprintf(num, sizeof num, "%d", va_arg(args, int));
            out.put(num, static_cast<size_t>(n));
            p = pct + 2;
            break;
        }
        case 's': {
            const char *s = va_arg(args, const char *);
            if (!s)
                s = "(null)";
            out.put(s, strlen(s));
            p = pct + 2;
            break;
        }
        case '%':
            out.put("%", 1);
            p = pct + 2;
            break;
        default:
            out.put("%", 1);
            p = pct + 1;
            break;
        }
    }
}

/* fill() with its own argument list. */
void fill_args(char *buf, const char *pattern, ...)
{
    va_list args;
    va_start(args, pattern);
    fill(buf, pattern, args);
    va_end(args);
}

void post(const char *routine, int code, const char *text, bool force_stderr)
{
    int family = code / 1000;
    int where = sdf_opt_int(nullptr, SDF_OPT_ERROR_OUT);
    /* The quiet form: where to print is decided here, by the SDF option,
     * not by the utility library's own Error_Out. */
    if (where & 1)
        ZU_ErrQuiet(routine, code, family, text);
    if ((where & 2) || family >= 4 || force_stderr)
        fprintf(stderr, "%s %d from %s: %s\n", severity_name(family), code, routine, text);
}

} // namespace

extern "C" {

const char *sdf_error_text(int code)
{
    size_t lo = 0, hi = std::size(k_messages);
    while (lo < hi) {
        size_t mid = lo + (hi - lo) / 2;
        if (k_messages[mid].code < code)
            lo = mid + 1;
        else
            hi = mid;
    }
    return lo < std::size(k_messages) && k_messages[lo].code == code ? k_messages[lo].text
                                                                      : nullptr;
}

int sdf_error(const char *routine, int code, ...)
{
    if (!routine)
        routine = "";
    char text[k_msg_bytes];
    const char *pattern = sdf_error_text(code);
    if (!pattern) {
        /* The caller's arguments belong to a pattern we don't have, so none
         * of them is read. */
        fill_args(text, sdf_error_text(k_unknown_code), code, routine);
        post("sdf_error", k_unknown_code, text, true);
        return k_unknown_code;
    }
    va_list args;
    va_start(args, code);
    fill(text, pattern, args);
    va_end(args);
    post(routine, code, text, false);
    return code;
}

int sdf_error_chain(const char *routine, int code, const char *callee)
{
    if (code == 0)
        return 0;
    int family = code >= 4000 ? 4000 : code >= 3000 ? 3000 : 2000;
    sdf_error(routine, family, code, callee ? callee : "");
    return family;
}

const char *sdf_sys_error(void)
{
    static thread_local char buf[256];
    int saved = errno;
    const char *text = strerror_r(saved, buf, sizeof buf);
    if (text != buf) {
        snprintf(buf, sizeof buf, "%s", text ? text : "");
    }
    errno = saved;
    return buf;
}

} // extern "C"

extern "C" int sdf_bug(const char* routine, const char* fmt, ...) {
    char text[256];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(text, sizeof text, fmt, ap);
    va_end(ap);
    return sdf_error(routine, 4001, text);
}
