/*
 * zu_items.cpp - the item parser for texts such as
 *     name = 1.5 [mm], other = 'it''s', 42, flag
 *
 * One pass over the text copies every name, value and bracket into the text
 * area behind the item records; empty fields point at the area's first byte,
 * which stays 0. Each piece costs at most the source bytes it consumed plus
 * a terminator, so the area never needs more than the text's length + 2.
 * Items past the caller's maximum are counted but not written.
 */
#include "zu_internal.h"

#include <cctype>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstring>

namespace {

char g_comments[64] = ";!";

bool isSpace(char c)
{
    return isspace(static_cast<unsigned char>(c)) != 0;
}

bool isComment(char c)
{
    return c != '\0' && strchr(g_comments, c) != nullptr;
}

/* Scales an integer significand by a power of ten without overflowing the
 * power itself on the way to a tiny result. */
double scaleByTen(double value, int exponent)
{
    if (exponent >= 0)
        return value * std::pow(10.0, exponent);
    if (exponent >= -308)
        return value / std::pow(10.0, -exponent);
    return value / 1e308 / std::pow(10.0, -exponent - 308);
}

struct Number {
    bool negative = false;
    bool integer = true; /* no '.' or exponent letter, and within 64 bits */
    bool dLetter = false;
    uint64_t magnitude = 0;
    double value = 0;
};

/* The digits of a mantissa, as read so far. */
struct Mantissa {
    int digits = 0, significant = 0, stored = 0, dropped = 0, decimals = 0;
    uint64_t sig = 0; /* up to 19 significant digits */
};

/* [+-]digits[.digits]: fills num's integer part and `m`; false for text. */
bool scanMantissa(const char *w, size_t n, size_t &i, Number &num, Mantissa &m)
{
    if (i < n && (w[i] == '+' || w[i] == '-'))
        num.negative = w[i++] == '-';
    const uint64_t limit = num.negative ? 9223372036854775808ull : 9223372036854775807ull;
    bool dot = false;
    for (; i < n && (isdigit(static_cast<unsigned char>(w[i])) || w[i] == '.'); ++i) {
        if (w[i] == '.') {
            if (dot)
                return false;
            dot = true;
            num.integer = false;
            continue;
        }
        unsigned d = static_cast<unsigned>(w[i] - '0');
        ++m.digits;
        m.decimals += dot;
        if (num.integer && num.magnitude > (limit - d) / 10)
            num.integer = false; /* beyond 64 bits: a real from here on */
        else if (num.integer)
            num.magnitude = num.magnitude * 10 + d;
        if (m.significant || d) {
            ++m.significant;
            if (m.stored < 19) {
                m.sig = m.sig * 10 + d;
                ++m.stored;
            } else {
                ++m.dropped;
            }
        }
    }
    return m.digits > 0;
}

/* [(e|E|d|D)[+-]digits]; false for text. */
bool scanExponent(const char *w, size_t n, size_t &i, Number &num, long &exponent)
{
    exponent = 0;
    if (i >= n || !strchr("eEdD", w[i]))
        return true;
    num.dLetter = w[i] == 'd' || w[i] == 'D';
    num.integer = false;
    ++i;
    bool negative = i < n && w[i] == '-';
    if (i < n && (w[i] == '+' || w[i] == '-'))
        ++i;
    if (i >= n || !isdigit(static_cast<unsigned char>(w[i])))
        return false;
    for (; i < n && isdigit(static_cast<unsigned char>(w[i])); ++i) {
        if (exponent > 1000)
            return false;
        exponent = exponent * 10 + (w[i] - '0');
    }
    exponent = negative ? -exponent : exponent;
    return true;
}

/* Recognises a whole word as a number; false for text. */
bool scanNumber(const char *w, size_t n, Number &num)
{
    size_t i = 0;
    Mantissa m;
    long exponent = 0;
    if (!scanMantissa(w, n, i, num, m) || !scanExponent(w, n, i, num, exponent) || i != n)
        return false;
    if (m.significant) {
        long decimalExponent = exponent - m.decimals + m.significant - 1;
        double lead = static_cast<double>(m.sig) / std::pow(10.0, m.stored - 1);
        if (decimalExponent > 308 || (decimalExponent == 308 && lead > 1.797693134862315))
            return false;
    }
    num.value = scaleByTen(static_cast<double>(m.sig), static_cast<int>(exponent - m.decimals + m.dropped));
    if (num.negative)
        num.value = -num.value;
    return true;
}

void setNumber(ZU_Item &it, const Number &num)
{
    if (num.integer) {
        int64_t v = num.negative ? static_cast<int64_t>(0 - num.magnitude)
                                 : static_cast<int64_t>(num.magnitude);
        bool small = v >= INT32_MIN && v <= INT32_MAX;
        it.type = small ? ZU_ITEM_INT : ZU_ITEM_INT64;
        it.ivalue = small ? static_cast<int32_t>(v) : 0;
        it.lvalue = v;
        it.dvalue = static_cast<double>(v);
        it.fvalue = static_cast<float>(v);
        return;
    }
    double v = num.value, mag = std::fabs(v);
    bool wide = num.dLetter || mag > FLT_MAX || (mag != 0 && mag < FLT_MIN);
    it.type = wide ? ZU_ITEM_DOUBLE : ZU_ITEM_REAL;
    double r = std::round(v);
    it.ivalue = r >= INT32_MIN && r <= INT32_MAX ? static_cast<int32_t>(r) : 0;
    it.lvalue = r >= -9223372036854775808.0 && r < 9223372036854775808.0 ? static_cast<int64_t>(r) : 0;
    it.fvalue = mag > FLT_MAX ? 0.0f : static_cast<float>(v);
    it.dvalue = v;
}

void setText(ZU_Item &it, size_t length)
{
    it.type = ZU_ITEM_TEXT;
    it.ivalue = static_cast<int32_t>(length);
    it.lvalue = 0;
    it.fvalue = 0;
    it.dvalue = 0;
}

class Parser {
public:
    Parser(const char *text, size_t length, ZU_Item *items, int maxItems)
        : p_(text), end_(text + length), items_(items), max_(maxItems)
    {
        empty_ = reinterpret_cast<char *>(items + maxItems);
        empty_[0] = '\0';
        out_ = empty_ + 1;
    }

    int run()
    {
        while (p_ < end_) {
            char c = *p_;
            if (isSpace(c))
                ++p_;
            else if (isComment(c))
                break;
            else if (c == ',')
                comma();
            else if (c == '\'' || c == '"')
                quoted(c);
            else if (c == '[')
                bracket();
            else if (c == '=')
                equals();
            else
                word();
        }
        if (lastWasComma_ && closedHadValue_)
            newItem();
        return count_;
    }

private:
    enum class Fill { None, Value, Awaiting };

    ZU_Item &item(int i) { return i < max_ ? items_[i] : scratch_; }

    void newItem()
    {
        cur_ = count_++;
        ZU_Item &it = item(cur_);
        it = ZU_Item{};
        it.name = it.text = it.bracket = empty_;
        fill_ = Fill::None;
    }

    /* The item that a new value lands in. */
    ZU_Item &valueItem()
    {
        if (cur_ < 0 || fill_ == Fill::Value)
            newItem();
        fill_ = Fill::Value;
        lastWasComma_ = false;
        return item(cur_);
    }

    char *startPiece() { return out_; }
    void endPiece() { *out_++ = '\0'; }

    void comma()
    {
        if (cur_ < 0)
            newItem();
        closedHadValue_ = fill_ == Fill::Value;
        cur_ = -1;
        lastWasComma_ = true;
        lastWasWord_ = false;
        lastDelim_ = ',';
        ++p_;
    }

    void equals()
    {
        if (cur_ >= 0 && fill_ == Fill::Value && lastWasWord_) {
            ZU_Item &it = item(cur_);
            char *name = it.text;
            newFields(it);
            it.name = name;
            fill_ = Fill::Awaiting;
        }
        lastWasWord_ = false;
        lastWasComma_ = false;
        ++p_;
    }

    void newFields(ZU_Item &it)
    {
        char *bracketText = it.bracket;
        it = ZU_Item{};
        it.name = it.text = empty_;
        it.bracket = bracketText;
    }

    void word()
    {
        ZU_Item &it = valueItem();
        char *start = startPiece();
        while (p_ < end_ && !isSpace(*p_) && *p_ != ',' && *p_ != '=' && *p_ != '[' &&
               !isComment(*p_))
            *out_++ = *p_++;
        size_t length = static_cast<size_t>(out_ - start);
        endPiece();
        it.text = start;
        Number num;
        if (scanNumber(start, length, num))
            setNumber(it, num);
        else
            setText(it, length);
        lastWasWord_ = true;
        lastDelim_ = p_ < end_ ? *p_ : '\0';
    }

    void quoted(char quote)
    {
        ZU_Item &it = valueItem();
        char *start = startPiece();
        for (++p_; p_ < end_; ++p_) {
            if (*p_ == quote) {
                if (p_ + 1 < end_ && p_[1] == quote)
                    ++p_;
                else
                    break;
            }
            *out_++ = *p_;
        }
        if (p_ < end_)
            ++p_; /* the closing quote */
        size_t length = static_cast<size_t>(out_ - start);
        endPiece();
        it.text = start;
        setText(it, length);
        lastWasWord_ = false;
        lastDelim_ = quote;
    }

    void bracket()
    {
        if (lastDelim_ == ',' || lastDelim_ == ']' || cur_ < 0)
            newItem();
        char *start = startPiece();
        for (++p_; p_ < end_ && *p_ != ']'; ++p_)
            *out_++ = *p_;
        if (p_ < end_)
            ++p_;
        endPiece();
        item(cur_).bracket = start;
        lastWasWord_ = false;
        lastWasComma_ = false;
        lastDelim_ = ']';
    }

    const char *p_;
    const char *end_;
    ZU_Item *items_;
    int max_;
    char *empty_;
    char *out_;
    ZU_Item scratch_{};
    int count_ = 0;
    int cur_ = -1;
    Fill fill_ = Fill::None;
    bool lastWasWord_ = false;
    bool lastWasComma_ = false;
    bool closedHadValue_ = false;
    char lastDelim_ = ',';
};

} // namespace

extern "C" {

int ZU_parseItems(const char *text, ZU_Item **items, int maxItems, int extra)
{
    if (!items)
        return -1;
    size_t length = text ? strlen(text) : 0;
    while (length > 0 && isSpace(text[length - 1]))
        --length;
    if (length == 0)
        return 0;
    if (maxItems < 0)
        maxItems = 0;
    if (!*items) {
        size_t area = 2 + (extra > 0 && static_cast<size_t>(extra) > length ? static_cast<size_t>(extra) : length);
        *items = static_cast<ZU_Item *>(ZU_allocMem(static_cast<size_t>(maxItems) * sizeof(ZU_Item) + area, "items"));
        if (!*items)
            return -1;
    }
    Parser parser(text, length, *items, maxItems);
    return parser.run();
}

void ZU_setCommentChars(const char *chars)
{
    size_t n = chars ? strlen(chars) : 0;
    if (n > sizeof g_comments - 1)
        n = sizeof g_comments - 1;
    memcpy(g_comments, chars ? chars : "", n);
    g_comments[n] = '\0';
}

} // extern "C"
