/*
 * zu_patcompile.cpp - templates ('*' any text, '?' one character, '#' a
 * number) translated into anchored regular expressions, and expressions
 * compiled into the caller's buffer.
 *
 * Nothing is allocated: the expression text lives on the stack and the
 * operations go straight into the buffer. Every write is checked against the
 * buffer's end before it happens, and after each operation at least one
 * byte is left for END. On any failure the buffer's first byte is 0.
 */
#include "zu_internal.h"
#include "zu_pattern.h"

#include <cstring>

using namespace zu_pat;

namespace {

constexpr size_t kExprSize = ZU_PAT_BUFSIZE;

class Compiler {
public:
    Compiler(const unsigned char *expr, unsigned char *buf, const unsigned char *end, int term)
        : p_(expr), buf_(buf), w_(buf), end_(end), term_(term)
    {
    }

    int run();

private:
    bool atEnd(unsigned c) const { return c == static_cast<unsigned>(term_) || c == '\n' || c == 0; }
    bool room(long bytes) const { return end_ - w_ >= bytes; }
    int emit(int code, int operand = -1);
    int star();
    int escape();
    int count();
    int readNumber(int *value);
    int set();
    int setMembers(unsigned char *op);
    int addRange(unsigned char *op, unsigned prev, unsigned hi);
    int addToSet(unsigned char *op, unsigned c);

    const unsigned char *p_;
    unsigned char *buf_;
    unsigned char *w_;
    const unsigned char *end_;
    int term_;
    unsigned char *last_ = nullptr; /* the operation written last */
    int stack_[MAX_GROUPS] = {};
    int depth_ = 0;
    int opened_ = 0;
    bool closed_[MAX_GROUPS] = {};
};

int Compiler::emit(int code, int operand)
{
    if (!room(operand < 0 ? 1 : 2))
        return ZU_PAT_OVERFLOW;
    last_ = w_;
    *w_++ = static_cast<unsigned char>(code);
    if (operand >= 0)
        *w_++ = static_cast<unsigned char>(operand);
    return 0;
}

int Compiler::star()
{
    if (!last_ || *last_ == OPEN || *last_ == CLOSE)
        return emit(CHAR, '*');
    int modifier = 0;
    int base = baseOf(*last_, &modifier);
    if (modifier == 0)
        *last_ = static_cast<unsigned char>(base + STAR);
    return 0;
}

int Compiler::readNumber(int *value)
{
    if (*p_ < '0' || *p_ > '9')
        return ZU_PAT_BAD_NUMBER;
    int v = 0;
    for (; *p_ >= '0' && *p_ <= '9'; ++p_)
        v = v < 1000 ? v * 10 + (*p_ - '0') : v;
    if (*p_ != '\\' && *p_ != ',')
        return ZU_PAT_BAD_NUMBER;
    if (v >= UNLIMITED)
        return ZU_PAT_RANGE_TOO_LARGE;
    *value = v;
    return 0;
}

/* After "\{": turns the last operation into its counted form. */
int Compiler::count()
{
    int m = 0, n = 0, rc = readNumber(&m);
    if (rc)
        return rc;
    bool two = false;
    if (*p_ == ',') {
        ++p_;
        if (*p_ == '\\') {
            n = UNLIMITED;
        } else {
            if ((rc = readNumber(&n)) != 0)
                return rc;
            if (*p_ == ',')
                return ZU_PAT_TOO_MANY_NUMBERS;
            two = true;
        }
    } else {
        n = m;
    }
    if (p_[0] != '\\' || p_[1] != '}')
        return ZU_PAT_BRACE_EXPECTED;
    p_ += 2;
    if (two && n < m)
        return ZU_PAT_FIRST_EXCEEDS;
    int modifier = 0;
    int base = baseOf(*last_, &modifier);
    if (modifier != COUNT) {
        if (!room(2))
            return ZU_PAT_OVERFLOW;
        w_ += 2;
    }
    *last_ = static_cast<unsigned char>(base + COUNT);
    w_[-2] = static_cast<unsigned char>(m);
    w_[-1] = static_cast<unsigned char>(n);
    return 0;
}

int Compiler::escape()
{
    unsigned c = *p_;
    if (c == '\n' || c == 0 || c == static_cast<unsigned>(term_))
        return ZU_PAT_DELIMITER;
    ++p_;
    if (c == '(') {
        if (opened_ == MAX_GROUPS)
            return ZU_PAT_TOO_MANY_GROUPS;
        stack_[depth_++] = opened_;
        return emit(OPEN, opened_++);
    }
    if (c == ')') {
        if (depth_ == 0)
            return ZU_PAT_IMBALANCE;
        int group = stack_[--depth_];
        closed_[group] = true;
        return emit(CLOSE, group);
    }
    if (c == 'n')
        return emit(CHAR, '\n');
    if (c == '{') {
        /* Only an operation that matches characters has a counted form:
         * behind nothing, a group mark or a back-reference "{" is literal. */
        int modifier = 0;
        int base = last_ ? baseOf(*last_, &modifier) : 0;
        if (!repeatable(base) || base == BACKREF)
            return emit(CHAR, '{');
        return count();
    }
    if (c >= '1' && c <= '9') {
        int group = static_cast<int>(c - '1');
        if (!closed_[group])
            return ZU_PAT_DIGIT_RANGE;
        return emit(BACKREF, group);
    }
    return emit(CHAR, static_cast<int>(c));
}

int Compiler::addToSet(unsigned char *op, unsigned c)
{
    if (c >= 128 && *op == SET7) {
        if (end_ - op < sizeOf(SET8))
            return ZU_PAT_OVERFLOW;
        *op = SET8;
        memset(op + sizeOf(SET7), 0, 16);
        w_ = op + sizeOf(SET8);
    }
    op[1 + c / 8] = static_cast<unsigned char>(op[1 + c / 8] | (1u << (c % 8)));
    return 0;
}

/* "-hi" after `prev`: the range prev..hi; a descending one holds hi alone. */
int Compiler::addRange(unsigned char *op, unsigned prev, unsigned hi)
{
    if (hi < prev) {
        op[1 + prev / 8] = static_cast<unsigned char>(op[1 + prev / 8] & ~(1u << (prev % 8)));
        return addToSet(op, hi);
    }
    int rc = 0;
    for (unsigned x = prev; rc == 0 && x <= hi; ++x)
        rc = addToSet(op, x);
    return rc;
}

/* Members up to the closing ']'; the first character always is one. */
int Compiler::setMembers(unsigned char *op)
{
    unsigned prev = *p_++;
    if (atEnd(prev))
        return ZU_PAT_SET_IMBALANCE;
    int rc = addToSet(op, prev);
    while (rc == 0) {
        unsigned c = *p_++;
        if (c == 0 || c == '\n')
            return ZU_PAT_SET_IMBALANCE;
        if (c == ']')
            break;
        if (c == '-' && *p_ == ']') {
            ++p_;
            return addToSet(op, '-');
        }
        if (c == '-') {
            unsigned hi = *p_++;
            if (hi == 0 || hi == '\n')
                return ZU_PAT_SET_IMBALANCE;
            rc = addRange(op, prev, hi);
            prev = hi;
            continue;
        }
        rc = addToSet(op, c);
        prev = c;
    }
    return rc;
}

int Compiler::set()
{
    if (!room(sizeOf(SET7)))
        return ZU_PAT_OVERFLOW;
    unsigned char *op = w_;
    last_ = op;
    *op = SET7;
    memset(op + 1, 0, 16);
    w_ = op + sizeOf(SET7);
    bool negate = *p_ == '^';
    if (negate)
        ++p_;
    int rc = setMembers(op);
    if (rc || !negate)
        return rc;
    if (*op == SET7) {
        *op = NOTSET7;
        op[1] |= 1; /* the end of the text never matches */
    } else {
        for (int i = 1; i <= 32; ++i)
            op[i] = static_cast<unsigned char>(~op[i]);
        op[1] &= static_cast<unsigned char>(~1u);
    }
    return 0;
}

int Compiler::run()
{
    if (atEnd(*p_))
        return buf_[0] != 0 ? 0 : ZU_PAT_NO_REMEMBERED;
    if (*p_ == '^') {
        *w_++ = ANCHOR;
        ++p_;
    }
    for (;;) {
        unsigned c = *p_++;
        int rc = 0;
        if (atEnd(c)) {
            if (!room(1))
                return ZU_PAT_OVERFLOW;
            *w_++ = END;
            return depth_ ? ZU_PAT_IMBALANCE : 0;
        }
        switch (c) {
        case '.': rc = emit(ANY); break;
        case '$': rc = atEnd(*p_) ? emit(EOL) : emit(CHAR, '$'); break;
        case '*': rc = star(); break;
        case '[': rc = set(); break;
        case '\\': rc = escape(); break;
        default: rc = emit(CHAR, static_cast<int>(c)); break;
        }
        if (rc == 0 && w_ >= end_)
            rc = ZU_PAT_OVERFLOW;
        if (rc)
            return rc;
    }
}

/* Appends the translation of one template character; false on overflow. */
bool translate(char *out, size_t &n, unsigned char c, bool &escaped)
{
    char one[2] = {static_cast<char>(c), 0};
    const char *piece = one;
    switch (c) {
    case '#': piece = escaped ? "#" : "[0-9][0-9]*"; break;
    case '*': piece = escaped ? "*" : ".*"; escaped = false; break;
    case '?': piece = escaped ? "?" : "."; escaped = false; break;
    case '.': piece = escaped ? "." : "\\."; escaped = false; break;
    case '\\': escaped = !escaped; break;
    case '\n': piece = "\\n"; break; /* a newline would end the expression */
    default: break;
    }
    size_t len = strlen(piece);
    if (n + len + 1 >= kExprSize)
        return false;
    memcpy(out + n, piece, len);
    n += len;
    return true;
}

int fail(unsigned char *buf, int code, bool report)
{
    buf[0] = 0;
    if (report)
        ZU_Err("setPat", code, ZU_SEV_ERROR, ZU_patErrText(code));
    return code;
}

} // namespace

int setPat(const char *regex, unsigned char *buf, const unsigned char *end, int terminator, int report)
{
    if (!buf || end <= buf)
        return ZU_PAT_OVERFLOW;
    static const unsigned char empty[1] = {0};
    const unsigned char *expr = regex ? reinterpret_cast<const unsigned char *>(regex) : empty;
    Compiler compiler(expr, buf, end, terminator);
    int rc = compiler.run();
    return rc ? fail(buf, rc, report != 0) : 0;
}

int zu_patCompileQuiet(const char *pattern, unsigned char *buffer, int *all)
{
    *all = !pattern || strcmp(pattern, "*") == 0;
    if (*all)
        return 1;
    return ZU_patCompile(pattern, buffer, -ZU_PAT_BUFSIZE) == 0;
}

extern "C" {

int ZU_patCompile(const char *template_, unsigned char *buffer, int size)
{
    bool report = size >= 0;
    long length = size < 0 ? -static_cast<long>(size) : size;
    if (!buffer || length <= 0) {
        if (report)
            ZU_Err("setPat", ZU_PAT_OVERFLOW, ZU_SEV_ERROR, ZU_patErrText(ZU_PAT_OVERFLOW));
        return ZU_PAT_OVERFLOW;
    }
    const char *t = template_ ? template_ : "";
    char expr[kExprSize];
    size_t n = 0;
    bool escaped = false, ok = true;
    if (t[0] != '^')
        expr[n++] = '^';
    for (const char *p = t; *p && ok; ++p)
        ok = translate(expr, n, static_cast<unsigned char>(*p), escaped);
    if (ok && expr[n - 1] != '$') {
        ok = n + 1 < kExprSize;
        if (ok)
            expr[n++] = '$';
    }
    if (!ok)
        return fail(buffer, ZU_PAT_OVERFLOW, report);
    expr[n] = '\0';
    buffer[0] = 0; /* a template always brings an expression of its own */
    return setPat(expr, buffer, buffer + length, 0, report ? 1 : 0);
}

} // extern "C"
