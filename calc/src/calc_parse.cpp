/* From expression text to tree: lexing into token chains (one per bracket
 * level), classification of the tokens, and precedence folding.
 *
 * Invariants: every node comes from the run's pool; before folding, `right`
 * chains the tokens of one level and a bracket node's `left` holds its inner
 * chain; after folding, left/right are the tree and parent links are set. A
 * lexing failure is reported once, from Sdf_Calc, before anything runs. */
#include <ctype.h>
#include <errno.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "calc_core.h"

const char *const calc_fn_names[CALC_FN_COUNT] = {
    "abs",   "acos",  "aint",  "anint", "asin",  "atan",   "atan2", "ceil",  "char",
    "cmplx", "cos",   "cosh",  "dble",  "dcmplx", "dim",   "exp",   "floor", "ichar",
    "index", "int",   "int64", "log",   "log10", "max",    "min",   "mod",   "nint",
    "nint64", "real", "sign",  "sin",   "sinh",  "sqrt",   "tan",   "tanh"};

namespace {

struct KindRow {
    int priority;
    int assoc;
};

KindRow kind_row(int kind)
{
    static const KindRow rows[30] = {
        {14, 1},  {14, -1}, {14, -1}, {15, 1}, {13, -1}, {13, -1}, {13, -1}, {13, -1},
        {12, -1}, {11, -1}, {11, -1}, {11, 1}, {10, 1},  {10, 1},  {10, 1},  {9, 1},
        {9, 1},   {8, 1},   {7, 1},   {7, 1},  {7, 1},   {7, 1},   {6, 1},   {6, 1},
        {5, 1},   {4, 1},   {3, -1},  {2, -1}, {1, -1},  {0, -1}};
    if (kind >= 0 && kind < 30) return rows[kind];
    return {14, -1};
}

struct Constant {
    const char *name;
    double value;
};

/* Sorted by strcmp, for the binary search. */
const Constant kConstants[] = {
    {"M_1_PI", 0.318309886183790671538},  {"M_2_PI", 0.636619772367581343076},
    {"M_2_SQRTPI", 1.12837916709551257390}, {"M_E", 2.7182818284590452354},
    {"M_LN10", 2.30258509299404568402},  {"M_LN2", 0.693147180559945309417},
    {"M_LOG10E", 0.434294481903251827651}, {"M_LOG2E", 1.4426950408889634074},
    {"M_PI", 3.14159265358979323846},    {"M_PI_2", 1.57079632679489661923},
    {"M_PI_4", 0.785398163397448309616}, {"M_SQRT1_2", 0.707106781186547524401},
    {"M_SQRT2", 1.41421356237309504880}};

struct Lexer {
    CalcRun *run;
    const char *text;
    size_t pos = 0;

    CalcNode *node(int kind, const char *tok, size_t len)
    {
        CalcNode *n = static_cast<CalcNode *>(ZU_memlinkAlloc(&run->pool, sizeof(CalcNode)));
        if (!n) return nullptr;
        n->kind = kind;
        n->count = 1;
        n->dims = n->dimStore;
        n->dimsEnd = n->dimEndStore;
        char *t = static_cast<char *>(ZU_memlinkAlloc(&run->pool, len + 1));
        if (!t) return nullptr;
        memcpy(t, tok, len);
        t[len] = 0;
        n->textHead = t;
        return n;
    }

    int oom() { return calc_fail_text(run, nullptr, 3025, "Sdf_Calc:pool"); }
    int unbalanced(const char *tok, const char *rest)
    {
        sdf_error("Sdf_Calc", 3100, tok, rest);
        if (run->code < 3100) run->code = 3100;
        return 3100;
    }

    int close_word(std::string &word, std::vector<CalcNode *> &out);
    int level(int openKind, std::vector<CalcNode *> &out, CalcNode *open);
};

/* Whether word is digits with at most one '.', and an exponent letter with
 * no digit after it yet: the place where a sign still belongs to a number. */
bool sign_belongs(const std::string &w)
{
    if (w.empty()) return false;
    const char last = w.back();
    if (last != 'e' && last != 'E' && last != 'd' && last != 'D') return false;
    int digits = 0, points = 0;
    for (size_t k = 0; k + 1 < w.size(); ++k) {
        if (isdigit((unsigned char)w[k])) ++digits;
        else if (w[k] == '.') ++points;
        else return false;
    }
    return digits > 0 && points <= 1;
}

/* Number form: 0 not a number, 1 integer, 2 real. */
int number_form(const std::string &w)
{
    size_t k = 0, n = w.size();
    int digits = 0, points = 0;
    while (k < n && (isdigit((unsigned char)w[k]) || w[k] == '.')) {
        if (w[k] == '.') ++points;
        else ++digits;
        ++k;
    }
    if (!digits || points > 1) return 0;
    if (k == n) return points ? 2 : 1;
    if (strchr("eEdD", w[k]) == nullptr) return 0;
    ++k;
    if (k < n && (w[k] == '+' || w[k] == '-')) ++k;
    if (k == n) return 0;
    while (k < n && isdigit((unsigned char)w[k])) ++k;
    return k == n ? 2 : 0;
}

int Lexer::close_word(std::string &word, std::vector<CalcNode *> &out)
{
    if (word.empty()) return 0;
    CalcNode *n = node(CALC_OPERAND, word.c_str(), word.size());
    if (!n) return oom();
    const int form = number_form(word);
    bool number = false;
    if (form == 1) {
        errno = 0;
        char *end = nullptr;
        unsigned long long v = strtoull(word.c_str(), &end, 10);
        if (errno == 0 && v <= (unsigned long long)INT32_MAX) {
            calc_set_scalar(n, SDF_INT_T);
            n->ivalue = (int32_t)v;
            number = true;
        } else if (errno == 0 && v <= (unsigned long long)INT64_MAX) {
            calc_set_scalar(n, SDF_INT64_T);
            n->lvalue = (int64_t)v;
            number = true;
        }
    } else if (form == 2) {
        std::string w = word;
        for (char &c : w)
            if (c == 'd' || c == 'D') c = 'e';
        double v = strtod(w.c_str(), nullptr);
        if (!isinf(v)) {
            calc_set_scalar(n, SDF_DBLE_T);
            n->dvalue = v;
            number = true;
        }
    }
    if (!number) {
        n->type = 2;
        n->name = n->textHead;
    }
    out.push_back(n);
    word.clear();
    return 0;
}

/* Reads one level: the tokens up to the closing token of openKind (-1 for
 * the top level) into out. */
int Lexer::level(int openKind, std::vector<CalcNode *> &out, CalcNode *open)
{
    std::string word;
    int rc;
    for (;;) {
        const char c = text[pos];
        if (!c) {
            if ((rc = close_word(word, out))) return rc;
            if (openKind >= 0) return unbalanced(open->textHead, text);
            return 0;
        }
        if (c == '\'' || c == '"') {
            if ((rc = close_word(word, out))) return rc;
            const size_t start = pos++;
            std::string s;
            for (;;) {
                if (!text[pos]) {
                    const char q[2] = {c, 0};
                    return unbalanced(q, text + start);
                }
                if (text[pos] == c) {
                    if (text[pos + 1] == c) {
                        s += c;
                        pos += 2;
                        continue;
                    }
                    ++pos;
                    break;
                }
                s += text[pos++];
            }
            CalcNode *n = node(CALC_OPERAND, text + start, pos - start);
            if (!n) return oom();
            calc_set_scalar(n, SDF_CHAR_T);
            n->cvalue = ZU_memlinkStrDup(&run->pool, s.c_str());
            if (!n->cvalue) return oom();
            n->strLen = (int32_t)s.size();
            out.push_back(n);
            continue;
        }
        if (c == '[') {
            if ((rc = close_word(word, out))) return rc;
            const size_t start = pos++;
            int depth = 1;
            while (text[pos] && depth) {
                if (text[pos] == '[') ++depth;
                else if (text[pos] == ']') --depth;
                ++pos;
            }
            if (depth) return unbalanced("[", text + start);
            CalcNode *n = node(CALC_UNITS, text + start, pos - start);
            if (!n) return oom();
            std::string u(text + start + 1, pos - start - 2);
            n->units = ZU_memlinkStrDup(&run->pool, u.c_str());
            if (!n->units) return oom();
            out.push_back(n);
            continue;
        }
        if (isspace((unsigned char)c)) {
            ++pos;
            continue;
        }
        const char d = text[pos + 1];
        int kind = -1;
        size_t len = 1;
        static const struct {
            char a, b;
            int kind;
        } twos[] = {{'*', '*', CALC_POW}, {'/', '/', CALC_CONCAT}, {'<', '=', CALC_LE},
                    {'>', '=', CALC_GE},  {'=', '=', CALC_EQ},     {'!', '=', CALC_NE},
                    {'&', '&', CALC_AND}, {'|', '|', CALC_OR},     {'.', '.', CALC_RANGE},
                    {'{', '%', CALC_TABLE}, {'%', '}', -2}};
        for (const auto &t : twos)
            if (c == t.a && d == t.b) {
                kind = t.kind;
                len = 2;
                break;
            }
        if (len == 1) {
            switch (c) {
            case '{': kind = CALC_ARRAY; break;
            case '(': kind = CALC_GROUP; break;
            case '}':
            case ')': kind = -2; break;
            case '!': kind = CALC_NOT; break;
            case '+': kind = CALC_ADD; break;
            case '-': kind = CALC_SUB; break;
            case '*': kind = CALC_MUL; break;
            case '/': kind = CALC_DIV; break;
            case '%': kind = CALC_MOD; break;
            case '<': kind = CALC_LT; break;
            case '>': kind = CALC_GT; break;
            case '=': kind = CALC_ASSIGN; break;
            case '|': kind = CALC_ELSE; break;
            case '?': kind = CALC_COND; break;
            case ',': kind = CALC_COMMA; break;
            case '^': kind = CALC_CARET; break;
            default: kind = -1; break;
            }
        }
        if (kind == -1 || ((c == '+' || c == '-') && sign_belongs(word))) {
            word += c;
            ++pos;
            continue;
        }
        if ((rc = close_word(word, out))) return rc;
        const char *tok = text + pos;
        pos += len;
        if (kind == -2) {
            const bool match = (openKind == CALC_GROUP && c == ')') ||
                               (openKind == CALC_ARRAY && c == '}') ||
                               (openKind == CALC_TABLE && c == '%');
            if (!match) {
                std::string t(tok, len);
                return unbalanced(t.c_str(), text);
            }
            open->textTail = ZU_memlinkStrDup(&run->pool, std::string(tok, len).c_str());
            if (!out.empty() && out.back()->kind == CALC_COMMA) {
                CalcNode *e = node(CALC_OPERAND, "", 0);
                if (!e) return oom();
                calc_set_scalar(e, SDF_CHAR_T);
                e->cvalue = e->textHead;
                out.push_back(e);
            }
            return 0;
        }
        if (kind == CALC_COMMA && (out.empty() || out.back()->kind == CALC_COMMA)) {
            CalcNode *e = node(CALC_OPERAND, "", 0);
            if (!e) return oom();
            calc_set_scalar(e, SDF_CHAR_T);
            e->cvalue = e->textHead;
            out.push_back(e);
        }
        CalcNode *n = node(kind, tok, len);
        if (!n) return oom();
        out.push_back(n);
        if (kind == CALC_GROUP || kind == CALC_ARRAY || kind == CALC_TABLE) {
            if (kind == CALC_TABLE && openKind == CALC_TABLE) {
                sdf_error("Sdf_Calc", 3130, text);
                if (run->code < 3130) run->code = 3130;
                return 3130;
            }
            std::vector<CalcNode *> inner;
            if ((rc = level(kind, inner, n))) return rc;
            if (kind == CALC_ARRAY && inner.empty()) {
                sdf_error("Sdf_Calc", 3102, "{", text);
                if (run->code < 3102) run->code = 3102;
                return 3102;
            }
            for (size_t k = 0; k + 1 < inner.size(); ++k) inner[k]->right = inner[k + 1];
            n->left = inner.empty() ? nullptr : inner[0];
        }
    }
}

bool is_identifier(const CalcNode *n) { return n && n->kind == CALC_OPERAND && n->type == 2; }

int fn_kind(const char *name)
{
    int lo = 0, hi = CALC_FN_COUNT - 1;
    while (lo <= hi) {
        int mid = (lo + hi) / 2;
        int c = ZU_strCaseCmp(name, calc_fn_names[mid]);
        if (!c) return CALC_FN_FIRST + mid;
        if (c < 0) hi = mid - 1;
        else lo = mid + 1;
    }
    return 0;
}

/* Classifies one chain (linked by right) and, recursively, its groups. */
void classify(CalcNode *head)
{
    CalcNode *prev = nullptr;
    for (CalcNode *n = head; n; prev = n, n = n->right) {
        if (n->kind == CALC_GROUP || n->kind == CALC_ARRAY || n->kind == CALC_TABLE)
            classify(n->left);
        if (n->kind == CALC_GROUP) {
            const bool call = prev && (prev->kind >= CALC_FN_FIRST || is_identifier(prev));
            CalcNode *nx = n->right;
            if (!call && nx && (nx->kind == CALC_OPERAND || nx->kind == CALC_ARRAY || nx->kind == CALC_GROUP)) {
                n->kind = CALC_CAST;
                /* The group must hold one identifier naming a type: ivalue
                 * keeps the type, 0 an unknown name, -1 no identifier. */
                CalcNode *in = n->left;
                if (in && !in->right && is_identifier(in))
                    n->ivalue = calc_type_by_name(in->name);
                else
                    n->ivalue = -1;
                n->left = nullptr;
            }
        } else if (n->kind == CALC_ADD || n->kind == CALC_SUB) {
            const bool binary = prev && ((prev->kind >= 0 && prev->kind <= 3) || prev->kind == CALC_UNITS);
            if (!binary) n->kind = n->kind == CALC_ADD ? CALC_UPLUS : CALC_UMINUS;
        } else if (is_identifier(n) && n->right && n->right->kind == CALC_GROUP) {
            int k = fn_kind(n->name);
            int row = k ? -1 : calc_user_find(n->name);
            if (k) n->kind = k;
            else if (row >= 0) {
                n->kind = CALC_USER_FN;
                n->ivalue = row;
            } else
                n->subscripted = 1;
        }
        KindRow r = kind_row(n->kind);
        n->priority = r.priority;
        n->assoc = r.assoc;
    }
}

/* Tokens that take no left operand. */
bool prefix_kind(int kind)
{
    return kind <= CALC_CAST || kind >= CALC_FN_FIRST;
}

/* Folds one chain into a tree in *root. 3109 when an operand or prefix
 * operator would get a left operand: two operands with no operator between. */
int fold(CalcRun *run, CalcNode *head, CalcNode **rootOut)
{
    std::vector<CalcNode *> toks;
    for (CalcNode *n = head; n; n = n->right) toks.push_back(n);
    for (CalcNode *n : toks) {
        n->right = nullptr;
        if (n->kind == CALC_GROUP || n->kind == CALC_ARRAY || n->kind == CALC_TABLE) {
            int rc = fold(run, n->left, &n->left);
            if (rc) return rc;
        }
    }
    *rootOut = nullptr;
    if (toks.empty()) return 0;
    CalcNode *root = toks[0];
    for (size_t k = 1; k < toks.size(); ++k) {
        CalcNode *t = toks[k];
        CalcNode **place = &root;
        /* Units follow their operand: they never descend past an equal
         * priority, so "1 [m] [s]" gives units to "1 [m]". */
        const bool descendEqual = t->assoc == -1 && t->kind != CALC_UNITS;
        while (*place && ((*place)->priority < t->priority ||
                          ((*place)->priority == t->priority && descendEqual)))
            place = &(*place)->right;
        if (*place) {
            if (prefix_kind(t->kind)) return calc_fail(run, t, 3109, 0);
            t->left = *place;
        }
        *place = t;
    }
    *rootOut = root;
    return 0;
}

void set_parents(CalcNode *n, CalcNode *parent)
{
    for (; n; parent = n, n = n->right) {
        n->parent = parent;
        if (n->left) set_parents(n->left, n);
    }
}

} // namespace

int calc_type_by_name(const char *name)
{
    static const struct {
        const char *name;
        int type;
    } types[] = {{"SDF_CHAR_T", SDF_CHAR_T}, {"SDF_INT_T", SDF_INT_T},   {"SDF_LOG_T", SDF_LOG_T},
                 {"SDF_INT64_T", SDF_INT64_T}, {"SDF_REAL_T", SDF_REAL_T}, {"SDF_DBLE_T", SDF_DBLE_T},
                 {"SDF_CMPX_T", SDF_CMPX_T}, {"SDF_DCMPX_T", SDF_DCMPX_T}};
    for (const auto &t : types)
        if (!ZU_strCaseCmp(name, t.name)) return t.type;
    return 0;
}

int calc_constant(const char *name, double *value)
{
    int lo = 0, hi = (int)(sizeof kConstants / sizeof kConstants[0]) - 1;
    while (lo <= hi) {
        int mid = (lo + hi) / 2;
        int c = strcmp(name, kConstants[mid].name);
        if (!c) {
            *value = kConstants[mid].value;
            return 1;
        }
        if (c < 0) hi = mid - 1;
        else lo = mid + 1;
    }
    return 0;
}

int calc_parse(CalcRun *run, CalcNode **root)
{
    *root = nullptr;
    Lexer lx;
    lx.run = run;
    lx.text = run->text ? run->text : "";
    std::vector<CalcNode *> top;
    int rc;
    try {
        rc = lx.level(-1, top, nullptr);
    } catch (...) {
        return calc_fail_text(run, nullptr, 3025, "Sdf_Calc:lex");
    }
    if (rc) return rc;
    if (top.empty()) return 0;
    if (top.back()->kind == CALC_COMMA) {
        CalcNode *e = lx.node(CALC_OPERAND, "", 0);
        if (!e) return lx.oom();
        calc_set_scalar(e, SDF_CHAR_T);
        e->cvalue = e->textHead;
        top.push_back(e);
    }
    for (size_t k = 0; k + 1 < top.size(); ++k) top[k]->right = top[k + 1];
    try {
        classify(top[0]);
        rc = fold(run, top[0], root);
    } catch (...) {
        return calc_fail_text(run, nullptr, 3025, "Sdf_Calc:fold");
    }
    if (rc) return rc;
    set_parents(*root, nullptr);
    return 0;
}
