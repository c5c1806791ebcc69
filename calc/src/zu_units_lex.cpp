/*
 * zu_units_lex.cpp - tokenising a unit expression into a chain of items and
 * folding the chain into a tree by priority.
 *
 * Rules in brief: white space separates tokens, and two operands that stand
 * next to each other get a '.' between them ("N m" is "N.m"). "(" outside a
 * word starts a group, kept whole up to its matching ")" (or the end of the
 * text); inside a word it is an ordinary character ("B(A)"), except after
 * "exp" or "log", which become functions. A word that can no longer be a
 * number splits into word ^ number where a letter meets a power ("m2",
 * "s-2"; not "H2O"). Numbers follow the item parser's recogniser.
 */
#include "zu_units_expr.h"

#include <cctype>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>

namespace zu_units {

namespace {

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

bool isLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isSpace(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

/* Operators that end a word, and those of them that start a token. */
bool endsWord(char c)
{
    return c == ',' || c == '*' || c == '/' || c == '^' || c == '~';
}

bool isOperatorChar(char c)
{
    return c == '*' || c == '+' || c == '-' || c == '/' || c == '^' || c == '~';
}

bool powerFollows(char c)
{
    return c == '\0' || isDigit(c) || isSpace(c) || c == '*' || c == '+' || c == ',' || c == '-' ||
           c == '.' || c == '/' || c == '^';
}

/* The number recogniser, fed one character at a time. */
struct NumScan {
    enum State { Start, Sign, Int, Dot, Frac, ExpLetter, ExpSign, ExpDigits, Fail };
    State s = Start;
    bool digits = false;
    long exponent = 0;

    void feed(char c)
    {
        bool d = isDigit(c), e = c == 'e' || c == 'E' || c == 'd' || c == 'D';
        bool sign = c == '+' || c == '-';
        switch (s) {
        case Start:
            s = sign ? Sign : d ? Int : c == '.' ? Dot : Fail;
            break;
        case Sign:
            s = d ? Int : c == '.' ? Dot : Fail;
            break;
        case Int:
            s = d ? Int : c == '.' ? Dot : e ? ExpLetter : Fail;
            break;
        case Dot:
        case Frac:
            s = d ? Frac : (e && (digits || s == Frac)) ? ExpLetter : Fail;
            break;
        case ExpLetter:
            s = sign ? ExpSign : d ? ExpDigits : Fail;
            break;
        case ExpSign:
            s = d ? ExpDigits : Fail;
            break;
        case ExpDigits:
            s = d && exponent <= 1000 ? ExpDigits : Fail;
            break;
        case Fail:
            break;
        }
        if (d && s == ExpDigits)
            exponent = exponent * 10 + (c - '0');
        else if (d && s != Fail)
            digits = true;
    }
    bool possible() const { return s != Fail; }
    bool complete() const { return s == Int || (s == Dot && digits) || s == Frac || s == ExpDigits; }
};

/* The value of a complete number; false when it is too large for a double
 * (it then stays a word). */
bool numberValue(std::string_view text, double &value)
{
    char buf[512];
    if (text.size() >= sizeof buf)
        return false;
    size_t n = 0;
    for (char c : text)
        buf[n++] = (c == 'd' || c == 'D') ? 'e' : c;
    const char *p = buf, *end = buf + n;
    if (*p == '+')
        ++p;
    auto [ptr, ec] = std::from_chars(p, end, value);
    if (ec == std::errc::result_out_of_range) {
        const char *e = static_cast<const char *>(memchr(buf, 'e', n));
        if (!e || e[1] != '-')
            return false;
        value = 0; /* underflow: the value is zero */
        return true;
    }
    return ec == std::errc() && ptr == end && std::fabs(value) <= 1.79769e308;
}

class Lexer {
public:
    Lexer(std::string_view s, Arena &arena) : s_(s), arena_(arena) {}

    Item *run()
    {
        size_t n = s_.size();
        bool afterComma = false;
        while (i_ < n) {
            char c = s_[i_];
            if (isSpace(c)) {
                ++i_;
                continue;
            }
            bool signedNumber = afterComma && (c == '+' || c == '-') && i_ + 1 < n &&
                                (isDigit(s_[i_ + 1]) || s_[i_ + 1] == '.');
            afterComma = c == ',';
            if (c == ',' || (!signedNumber && isOperatorChar(c))) {
                addOperator(c, false);
                ++i_;
            } else if (c == '(' && !signedNumber) {
                group();
            } else if (c == '.' && !(i_ + 1 < n && (isDigit(s_[i_ + 1]) || s_[i_ + 1] == '.'))) {
                addOperator('.', false);
                ++i_;
            } else {
                word();
            }
        }
        return head_;
    }

private:
    void append(Item *it)
    {
        if (tail_)
            tail_->right = it;
        else
            head_ = it;
        tail_ = it;
    }

    void addOperator(char c, bool synthetic)
    {
        static const char kSpelled[] = ",+-*/.~^";
        Item *it = arena_.make();
        it->kind = kOperator;
        it->op = static_cast<int>(strchr(kSpelled, c) - kSpelled);
        it->synthetic = synthetic;
        it->text = synthetic ? std::string_view() : s_.substr(i_, 1);
        append(it);
    }

    void group()
    {
        size_t start = ++i_, depth = 1;
        for (; i_ < s_.size(); ++i_) {
            if (s_[i_] == '(')
                ++depth;
            else if (s_[i_] == ')' && --depth == 0)
                break;
        }
        Item *it = arena_.make();
        it->kind = kGroup;
        it->value = 1.0;
        it->text = s_.substr(start, i_ - start);
        append(it);
        if (i_ < s_.size())
            ++i_; /* the closing bracket */
    }

    static bool isFunctionName(std::string_view w)
    {
        return w.size() == 3 && (strncasecmp(w.data(), "exp", 3) == 0 || strncasecmp(w.data(), "log", 3) == 0);
    }

    /* A letter meets a power: the word ends here and a number follows. */
    bool powerStarts(size_t j, const NumScan &ns) const
    {
        if (ns.possible() || !isLetter(s_[j - 1]))
            return false;
        char c = s_[j], next = j + 1 < s_.size() ? s_[j + 1] : '\0';
        if (c == '+' || c == '-')
            return isDigit(next) || next == '.';
        return isDigit(c) && powerFollows(next);
    }

    void word()
    {
        size_t start = i_, n = s_.size();
        NumScan ns;
        bool power = false;
        for (; i_ < n; ++i_) {
            char c = s_[i_];
            if (isSpace(c) || endsWord(c))
                break;
            if (c == '(' && isFunctionName(s_.substr(start, i_ - start)))
                break;
            if (i_ > start && powerStarts(i_, ns)) {
                power = true;
                break;
            }
            if ((c == '+' || c == '-') && !(i_ == start || (ns.possible() && ns.s == NumScan::ExpLetter)))
                break;
            if (c == '.' && !(ns.possible() && i_ + 1 < n && (isDigit(s_[i_ + 1]) || s_[i_ + 1] == '.')))
                break;
            ns.feed(c);
        }
        addToken(s_.substr(start, i_ - start), ns.complete());
        if (power) {
            addOperator('^', true);
            number();
        }
    }

    /* The number behind a power split: the longest run that stays one. */
    void number()
    {
        size_t start = i_, lastComplete = i_;
        NumScan ns;
        for (; i_ < s_.size(); ++i_) {
            NumScan tried = ns;
            tried.feed(s_[i_]);
            if (!tried.possible())
                break;
            ns = tried;
            if (ns.complete())
                lastComplete = i_ + 1;
        }
        i_ = lastComplete;
        addToken(s_.substr(start, i_ - start), true);
    }

    void addToken(std::string_view text, bool numeric)
    {
        Item *it = arena_.make();
        it->text = text;
        double v = 0;
        if (numeric && numberValue(text, v)) {
            bool integer = text.find_first_of(".eEdD") == std::string_view::npos;
            it->kind = integer ? kInteger : kReal;
            it->value = v;
            double r = std::round(v);
            it->op = r >= INT_MIN && r <= INT_MAX ? static_cast<int>(r) : 0;
        } else {
            it->kind = kWord;
        }
        append(it);
    }

    std::string_view s_;
    Arena &arena_;
    size_t i_ = 0;
    Item *head_ = nullptr;
    Item *tail_ = nullptr;
};

const int kPriority[] = {0, 1, 1, 2, 2, 2, 2, -3, 4, 4, 5, 5};

bool isOperand(const Item *it)
{
    return it && it->kind != kOperator;
}

/* Priorities, unary signs, functions, and '.' between neighbouring
 * operands. */
Item *prepareChain(Item *head, Arena &arena)
{
    Item *prev = nullptr;
    for (Item *it = head; it; prev = it, it = it->right) {
        if (it->kind == kOperator) {
            if ((it->op == kOpAdd || it->op == kOpSub) && !isOperand(prev) && isOperand(it->right))
                it->op = it->op == kOpAdd ? kOpPlus : kOpMinus;
            it->priority = kPriority[it->op];
            continue;
        }
        if (it->kind == kWord && it->right && it->right->kind == kGroup) {
            std::string_view w = it->text;
            bool e = w.size() == 3 && strncasecmp(w.data(), "exp", 3) == 0;
            bool l = w.size() == 3 && strncasecmp(w.data(), "log", 3) == 0;
            it->kind = kOperator;
            it->op = e ? kOpExp : l ? kOpLog : kOpUnknownFunction;
            it->priority = 5;
        }
        if (isOperand(prev) && (it->kind != kOperator || it->op >= kOpExp)) {
            Item *dot = arena.make();
            dot->kind = kOperator;
            dot->op = kOpDot;
            dot->priority = kPriority[kOpDot];
            dot->synthetic = true;
            dot->text = ".";
            prev->right = dot;
            dot->right = it;
        }
    }
    return head;
}

/* Each item in turn walks down the right spine from the root and takes the
 * place of the first node that binds at least as loosely (equal negative
 * priorities excepted, which makes '^' right-associative). */
Item *fold(Item *head)
{
    Item *root = nullptr;
    for (Item *it = head; it;) {
        Item *next = it->right;
        it->right = nullptr;
        Item **slot = &root;
        int p = std::abs(it->priority);
        while (*slot) {
            Item *node = *slot;
            bool sameNegative = node->priority == it->priority && it->priority < 0;
            if (std::abs(node->priority) >= p && !sameNegative) {
                it->left = node;
                break;
            }
            slot = &node->right;
        }
        *slot = it;
        it = next;
    }
    return root;
}

} // namespace

Item *buildTree(std::string_view text, Arena &arena)
{
    Item *head = Lexer(text, arena).run();
    return fold(prepareChain(head, arena));
}

const char *opSpelling(int op)
{
    static const char *const kNames[] = {",", "+", "-", "*", "/", ".", "~", "^", "+", "-", "exp", "log"};
    return op >= 0 && op <= kOpLog ? kNames[op] : "";
}

} // namespace zu_units
