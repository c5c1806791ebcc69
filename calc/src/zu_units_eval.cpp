/*
 * zu_units_eval.cpp - evaluating a unit expression down to base units.
 *
 * Every word is expanded anew through the table, on every parse: a formula
 * becomes the value of its inner text, a base unit the number 1 with its
 * dimension, a prefix multiplies. What a thread keeps between parses is only
 * the tokenised tree of each table definition it met and the row each word
 * of such a tree names, until the tables change. Dimensions travel as
 * exponent vectors kept in printed-and-read-back form, so the result is the
 * one a dimension text round trip after every operation would give.
 *
 * Evaluation first runs without building any text; only when it fails does
 * it run again in text mode, which builds the display texts that the
 * message quotes (the same run, deterministically, fails at the same place).
 * Nesting (groups, expansions, operator chains) is bounded, so a units file
 * that defines a name through itself, or a pathological text, gives an error
 * rather than a hang or a stack overflow.
 */
#include "zu_units_expr.h"
#include "zu_units_inner.h"

#include <charconv>
#include <climits>
#include <cmath>
#include <cstring>
#include <unordered_map>

namespace zu_units {

namespace {

constexpr int kMaxDepth = 400;

bool isLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

struct Val {
    int kind = kReal; /* kInteger or kReal */
    int64_t iv = 0;   /* the value, for an integer */
    double v = 1;
    bool hasOffset = false;
    double offset = 0;
    Dims d;
    std::string text;
};

/* The tokenised trees of table definitions, per thread, by definition
 * text; dropped when the tables change. */
struct DefinitionCache {
    uint64_t generation = 0;
    Arena arena{true};
    std::unordered_map<const char *, Item *> trees;
};

thread_local DefinitionCache t_defs;

/* The tree of a formula row's inner text (the form's outer brackets go;
 * a missing closing one is forgiven). */
Item *definitionTree(const char *def)
{
    auto found = t_defs.trees.find(def);
    if (found != t_defs.trees.end())
        return found->second;
    std::string_view inner(def + 1);
    if (!inner.empty() && inner.back() == ')')
        inner.remove_suffix(1);
    Item *root = buildTree(inner, t_defs.arena);
    t_defs.trees.emplace(def, root);
    return root;
}

class Evaluator {
public:
    Evaluator(const Tables &t, Arena &arena, bool textMode, bool pretty)
        : t_(t), arena_(arena), n_(t.baseCount), textMode_(textMode), pretty_(pretty)
    {
    }

    int top(std::string_view text, Val &out) { return evalText(text, 0, out); }

private:
    /* A dimensionless real 1 without offset. */
    void reset(Val &v) const
    {
        v.kind = kReal;
        v.iv = 0;
        v.v = 1;
        v.hasOffset = false;
        v.offset = 0;
        clearDims(v.d);
        v.text.clear();
    }

    void clearDims(Dims &d) const
    {
        for (int i = 0; i < n_; ++i)
            d.e[i] = 0;
    }

    bool hasDims(const Dims &d) const
    {
        for (int i = 0; i < n_; ++i)
            if (d.e[i] != 0)
                return true;
        return false;
    }

    bool sameDims(const Dims &a, const Dims &b) const
    {
        for (int i = 0; i < n_; ++i)
            if (a.e[i] != b.e[i])
                return false;
        return true;
    }

    int fail(int code, std::initializer_list<std::string> args)
    {
        if (textMode_)
            raise(code, formatMessage(ZU_unitErrText(code), args));
        return code;
    }

    int tooDeep(std::string_view text) { return fail(ZU_UNIT_TOO_DEEP, {std::string(text)}); }

    /* A group, a formula's inner text, or the whole prepared text. */
    int evalText(std::string_view text, int depth, Val &out)
    {
        if (depth > kMaxDepth)
            return tooDeep(text);
        return evalTree(buildTree(text, arena_), depth, out);
    }

    int evalTree(Item *root, int depth, Val &out)
    {
        if (!root) {
            reset(out);
            return 0;
        }
        return eval(root, depth + 1, out);
    }

    int eval(Item *it, int depth, Val &out)
    {
        if (depth > kMaxDepth)
            return tooDeep(it->text);
        switch (it->kind) {
        case kInteger:
        case kReal:
            reset(out);
            out.v = it->value;
            out.iv = it->op;
            out.kind = it->kind == kInteger && it->value == it->op ? kInteger : kReal;
            if (textMode_)
                out.text = it->text;
            return 0;
        case kGroup: {
            if (depth > kMaxDepth)
                return tooDeep(it->text);
            if (!it->subBuilt) {
                it->sub = buildTree(it->text, it->persistent ? t_defs.arena : arena_);
                it->subBuilt = true;
            }
            int rc = evalTree(it->sub, depth + 1, out);
            if (textMode_)
                out.text = "(" + out.text + ")";
            return rc;
        }
        case kWord:
            return resolve(it, depth + 1, out);
        default:
            return operate(it, depth + 1, out);
        }
    }

    std::string spelled(std::string_view prefix, std::string_view unit) const
    {
        if (!pretty_)
            return std::string(prefix) + std::string(unit);
        std::string s = prefix == "u" ? "\\greek{m}" : std::string(prefix);
        const char *p = findPretty(t_, unit);
        return s + (p ? std::string(p) : std::string(unit));
    }

    /* The row of a word (through its aliases) and its prefix; 0 or a code.
     * Kept in the item, as the tables decide it alone. */
    int lookUp(Item *it)
    {
        if (it->resolved)
            return 0;
        std::string_view name = it->text;
        const char *def = findDefinition(t_, name);
        size_t k = 0;
        while (!def && ++k < name.size())
            def = findDefinition(t_, name.substr(k));
        if (!def)
            return fail(ZU_UNIT_UNDEFINED, {std::string(name)});
        const Prefix *prefix = nullptr;
        if (k > 0 && !(prefix = findPrefix(name.substr(0, k))))
            return fail(ZU_UNIT_UNDEFINED, {std::string(name)});
        for (int steps = 0; def[0] != '(' && def[0] != '[' && def[0] != '>'; ++steps) {
            const char *target = def;
            def = findDefinition(t_, target);
            if (!def || steps > t_.unitCount)
                return fail(ZU_UNIT_NO_RESOLUTION, {target});
        }
        it->definition = def;
        it->prefix = prefix;
        it->cut = k;
        it->resolved = true;
        return 0;
    }

    int resolve(Item *it, int depth, Val &out)
    {
        if (int rc = lookUp(it))
            return rc;
        std::string_view name = it->text;
        const char *def = it->definition;
        const Prefix *prefix = it->prefix;
        const size_t k = it->cut;
        if (def[0] == '>') {
            std::string msg = formatMessage("Unit \"%s\" not defined. %s", {std::string(name), def + 1});
            if (textMode_)
                raise(ZU_UNIT_UNDEFINED, msg);
            return ZU_UNIT_UNDEFINED;
        }
        if (def[0] == '(') {
            if (depth > kMaxDepth)
                return tooDeep(name);
            if (int rc = evalTree(definitionTree(def), depth + 1, out))
                return rc;
        } else {
            reset(out);
            std::string_view inner(def + 1, strcspn(def + 1, "]"));
            if (int rc = readDims(inner, out.d))
                return rc;
        }
        if (prefix) {
            out.v *= prefix->value;
            out.kind = kReal;
            out.hasOffset = false;
            out.offset = 0;
        }
        if (textMode_)
            out.text = spelled(name.substr(0, k), name.substr(k));
        return 0;
    }

    /* A base unit's dimension text: a word sets its slot to 1, a following
     * number multiplies it, any operator but '^' ends the term. */
    int readDims(std::string_view s, Dims &d)
    {
        clearDims(d);
        if (s.find_first_of("0123456789+-.*/^~, ") == std::string_view::npos) {
            int slot = baseIndex(t_, s);
            if (slot >= 0 || s.empty()) {
                if (slot >= 0)
                    d.e[slot] = 1;
                return 0;
            }
        }
        size_t i = 0, n = s.size();
        while (i < n) {
            size_t start = i;
            for (; i < n && !strchr(".*/~,^ ", s[i]); ++i) {
                char next = i + 1 < n ? s[i + 1] : '\0';
                bool signPower = (s[i] == '+' || s[i] == '-') && (isDigit(next) || next == '.');
                bool digitPower = isDigit(s[i]) && (next == '\0' || isDigit(next) || strchr(" *+,-./^", next));
                if (i > start && isLetter(s[i - 1]) && (signPower || digitPower))
                    break;
            }
            std::string_view word = s.substr(start, i - start);
            double e = 1;
            if (i < n && s[i] == '^')
                ++i;
            if (i < n && s[i] == '+')
                ++i;
            double num = 0;
            auto [ptr, ec] = std::from_chars(s.data() + i, s.data() + n, num);
            if (ec == std::errc()) {
                e = num;
                i = static_cast<size_t>(ptr - s.data());
            }
            if (!word.empty()) {
                int slot = baseIndex(t_, word);
                if (slot < 0)
                    return fail(ZU_UNIT_NO_RESOLUTION, {std::string(word)});
                d.e[slot] = normExponent(e);
            }
            while (i < n && !strchr(".*/~,", s[i]))
                ++i;
            if (i < n)
                ++i;
        }
        return 0;
    }

    std::string joined(Item *it, const Val *l, const Val *r) const
    {
        std::string s = l ? l->text : std::string();
        if (it->op >= kOpExp)
            return s + std::string(it->text) + (r ? r->text : std::string());
        if (pretty_ && (it->op == kOpMul || it->op == kOpDot))
            s += "\\greek{.}";
        else if (pretty_ && it->op == kOpPow)
            return s + "\\sup{" + (r ? r->text : std::string()) + "}";
        else if (it->synthetic)
            s += it->op == kOpPow ? "" : ".";
        else
            s += it->text;
        return s + (r ? r->text : std::string());
    }

    int operate(Item *it, int depth, Val &out)
    {
        Val lv, rv;
        Val *l = nullptr, *r = nullptr;
        if (it->left) {
            if (int rc = eval(it->left, depth + 1, lv))
                return rc;
            l = &lv;
        }
        if (it->right) {
            if (int rc = eval(it->right, depth + 1, rv))
                return rc;
            r = &rv;
        }
        int rc = apply(it, l, r, out);
        if (!textMode_)
            return rc;
        std::string text = joined(it, l, r);
        if (rc) {
            std::string name = it->op == kOpUnknownFunction ? std::string(it->text) : opSpelling(it->op);
            raise(rc, formatMessage(ZU_unitErrText(rc), {name, text}));
        }
        out.text = std::move(text);
        return rc;
    }

    static void setInteger(Val &out, int64_t value)
    {
        if (value >= INT_MIN && value <= INT_MAX) {
            out.kind = kInteger;
            out.iv = value;
        } else {
            out.kind = kReal;
        }
        out.v = static_cast<double>(value);
    }

    int apply(Item *it, Val *l, Val *r, Val &out)
    {
        const int op = it->op;
        reset(out);
        if (op == kOpUnknownFunction)
            return ZU_UNIT_FUNCTION;
        if (op == kOpExp || op == kOpLog)
            return function(it, l, r, out);
        if (op == kOpPlus || op == kOpMinus) {
            if (l || !r)
                return ZU_UNIT_ARGUMENTS;
            out = *r;
            out.hasOffset = false;
            out.offset = 0;
            if (op == kOpMinus) {
                out.v = -out.v;
                out.iv = -out.iv;
            }
            return 0;
        }
        if (!l || !r)
            return ZU_UNIT_ARGUMENTS;
        const bool ints = l->kind == kInteger && r->kind == kInteger;
        for (int i = 0; i < n_; ++i)
            out.d.e[i] = l->d.e[i];
        switch (op) {
        case kOpOffset:
            if (hasDims(r->d) && !sameDims(l->d, r->d))
                return ZU_UNIT_DIMENSIONS;
            out.kind = l->kind;
            out.iv = l->iv;
            out.v = l->v;
            out.hasOffset = true;
            out.offset = (l->hasOffset ? l->offset : 0) + (hasDims(r->d) ? r->v : r->v * l->v);
            return 0;
        case kOpAdd:
        case kOpSub:
            if (!sameDims(l->d, r->d))
                return ZU_UNIT_DIMENSIONS;
            out.v = op == kOpAdd ? l->v + r->v : l->v - r->v;
            if (ints)
                setInteger(out, op == kOpAdd ? l->iv + r->iv : l->iv - r->iv);
            return 0;
        case kOpMul:
        case kOpDot:
        case kOpPrefix:
            for (int i = 0; i < n_; ++i)
                out.d.e[i] = normExponent(l->d.e[i] + r->d.e[i]);
            out.v = l->v * r->v;
            if (ints)
                setInteger(out, l->iv * r->iv);
            return 0;
        case kOpDiv:
            if (r->v == 0)
                return ZU_UNIT_RANGE;
            for (int i = 0; i < n_; ++i)
                out.d.e[i] = normExponent(l->d.e[i] - r->d.e[i]);
            out.v = l->v / r->v;
            if (ints)
                setInteger(out, l->iv / r->iv);
            return 0;
        case kOpPow:
            return power(l, r, out);
        default:
            return ZU_UNIT_FUNCTION;
        }
    }

    int power(const Val *l, const Val *r, Val &out)
    {
        if (hasDims(r->d))
            return ZU_UNIT_DIMENSIONS;
        if (l->v < 0 && r->v != std::floor(r->v))
            return ZU_UNIT_RANGE;
        if (l->v == 0 && r->v <= 0)
            return ZU_UNIT_RANGE;
        out.v = std::pow(l->v, r->v);
        for (int i = 0; i < n_; ++i)
            out.d.e[i] = normExponent(l->d.e[i] * r->v);
        /* An integer power of an integer stays one while it is whole and
         * fits: 10^-3 must not become 0. */
        if (l->kind == kInteger && r->kind == kInteger && r->iv >= 0 && std::fabs(out.v) <= INT_MAX)
            setInteger(out, static_cast<int64_t>(out.v));
        return 0;
    }

    int function(Item *it, const Val *l, const Val *r, Val &out)
    {
        if (l || !r || it->right->left || it->right->right)
            return ZU_UNIT_ARGUMENTS;
        if (hasDims(r->d))
            return ZU_UNIT_DIMENSIONS;
        if (it->op == kOpLog && r->v <= 0)
            return ZU_UNIT_RANGE;
        clearDims(out.d);
        out.kind = kReal;
        out.v = it->op == kOpExp ? std::exp(r->v) : std::log(r->v);
        return 0;
    }

    const Tables &t_;
    Arena &arena_;
    int n_;
    bool textMode_;
    bool pretty_;
};

thread_local Arena t_arena;

} // namespace

int evaluate(const Tables &t, std::string_view text, Result &out, std::string *display, bool pretty)
{
    if (t_defs.generation != tablesGeneration()) {
        t_defs.trees.clear();
        t_defs.arena.reset();
        t_defs.generation = tablesGeneration();
    }
    Val v;
    t_arena.reset();
    int rc = display ? 0 : Evaluator(t, t_arena, false, false).top(text, v);
    if (rc || display) {
        /* Again with texts: for the message, or for the display. */
        t_arena.reset();
        v = Val{};
        rc = Evaluator(t, t_arena, true, pretty).top(text, v);
        if (display)
            *display = v.text;
    }
    t_arena.reset();
    if (rc)
        return rc;
    out.scale = v.v;
    out.offset = v.hasOffset ? v.offset : 0;
    out.dims = v.d;
    return 0;
}

} // namespace zu_units
