/* Elementwise arithmetic over whole arrays in one pass.
 *
 * The walk gives every operator a block as large as its operands, so
 * `a*b + a/b` over arrays of ten million doubles fills four such blocks on
 * top of copying a and b out of the channel. A subtree of + - * /, signs and
 * parentheses whose leaves are plain names of double arrays of one shape and
 * constants is instead run here chunk by chunk: each operator works on a
 * few thousand elements at a time in small buffers that stay in cache, the
 * arrays are read where the channel keeps them, and only the result takes a
 * block. Arrays of millions of elements are cut into stretches that threads
 * compute side by side.
 *
 * Invariants: the result is the one the walk gives, element for element:
 * the same double arithmetic in the same order per element, stored units
 * taken into base units the same way, constants evaluated by the walk
 * itself and converted as the walk converts them, units combined by the
 * same routine, and every divisor of zero handled by calc_range on the
 * caller's thread (elements of one operator in index order; operators
 * interleave chunk by chunk). Helper threads touch nothing but the arrays,
 * their own buffers and their own stretch of the result, and are joined
 * before the pass returns. The channel doesn't change while the pass reads
 * it. A subtree that doesn't qualify is left untouched for the walk. */
#include <string.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "calc_core.h"

namespace {

constexpr int64_t kChunk = 2048;
constexpr int64_t kPerThread = int64_t{1} << 18; /* elements a thread is worth starting for */
constexpr int64_t kMaxThreads = 8;
constexpr int kMaxDepth = 48;

enum { kLoad = -100, kCopy = -101 }; /* steps: an array taken into base units; an array as it is */

struct Operand {
    const double *array = nullptr; /* element 0 of the array, or null */
    int reg = -1;                  /* a step's buffer, or -1 */
    double k = 0;                  /* the constant when neither */
};

struct Step {
    int kind; /* CALC_ADD .. CALC_UMINUS, or kLoad */
    CalcNode *node;
    Operand a, b;
    int dst; /* buffer, or -1 for the result */
    double scale, offset;
};

struct Leaf {
    const CalcNode *node;
    CalcArrayAt at;
};

struct Plan {
    std::vector<Leaf> leaves;
    std::vector<Step> steps;
    int regs = 0;
};

bool arith(int kind) { return kind == CALC_ADD || kind == CALC_SUB || kind == CALC_MUL || kind == CALC_DIV; }

bool literal(const CalcNode *n)
{
    const int r = calc_rank(n->type);
    return n->kind == CALC_OPERAND && n->type != 2 && !n->left && !n->right && r >= 2 && r <= 6;
}

enum Class { kNo = 0, kConstant = 1, kArrays = 2 };

/* What a subtree is, without evaluating anything; array leaves are looked
 * up and kept in the plan. */
Class classify(CalcRun *run, CalcNode *n, Plan &plan, int depth)
{
    if (!n || depth > kMaxDepth) return kNo;
    if (n->kind == CALC_OPERAND) {
        if (literal(n)) return kConstant;
        Leaf leaf{n, {}};
        if (!calc_double_array_at(run, n, &leaf.at)) return kNo;
        if (!plan.leaves.empty()) {
            const int64_t *d = plan.leaves.front().at.dims;
            if (memcmp(d, leaf.at.dims, sizeof(int64_t) * (size_t)(d[0] + 1))) return kNo;
        }
        plan.leaves.push_back(leaf);
        return kArrays;
    }
    if (arith(n->kind)) {
        const Class l = classify(run, n->left, plan, depth + 1);
        const Class r = l ? classify(run, n->right, plan, depth + 1) : kNo;
        return l && r ? std::max(l, r) : kNo;
    }
    if (n->kind == CALC_UMINUS || n->kind == CALC_UPLUS)
        return n->left ? kNo : classify(run, n->right, plan, depth + 1);
    if (n->kind == CALC_GROUP)
        return n->right || !n->left || n->left->kind == CALC_COMMA ? kNo : classify(run, n->left, plan, depth + 1);
    if (n->kind == CALC_UNITS && n->left && !n->right)
        return classify(run, n->left, plan, depth + 1) == kConstant ? kConstant : kNo;
    return kNo;
}

const Leaf *leaf_of(const Plan &plan, const CalcNode *n)
{
    for (const Leaf &l : plan.leaves)
        if (l.node == n) return &l;
    return nullptr;
}

int keep_worst(int rc, int *hi)
{
    if (rc > *hi) *hi = rc;
    return rc;
}

/* Turns subtree n into steps (its value into *out), evaluating constants
 * with the walk and setting each node's units as the walk would. A code of
 * 3000 or more has been reported; warnings go into *hi. */
int build(CalcRun *run, CalcNode *n, CalcNode *parent, Plan &plan, Operand *out, int *hi)
{
    Plan scratch;
    if (n->kind != CALC_OPERAND && classify(run, n, scratch, 0) == kConstant) {
        /* Constants give the walk's own value, converted as an operator
         * would convert it to meet a double array. */
        int rc = keep_worst(calc_walk(run, n), hi);
        if (rc >= 3000) return rc;
        if ((rc = calc_retype(run, parent, n, SDF_DBLE_T, 0)) >= 3000) return rc;
        out->k = n->ddata[0];
        return 0;
    }
    if (n->kind == CALC_OPERAND) {
        if (literal(n)) {
            int rc = calc_retype(run, parent, n, SDF_DBLE_T, 0);
            if (rc >= 3000) return rc;
            out->k = n->dvalue;
            return 0;
        }
        const Leaf *l = leaf_of(plan, n);
        calc_set_units(run, n, l->at.hasUnits ? l->at.units : nullptr);
        if (l->at.scale == 1 && l->at.offset == 0) {
            out->array = l->at.data;
            return 0;
        }
        Operand src;
        src.array = l->at.data;
        plan.steps.push_back({kLoad, n, src, {}, plan.regs, l->at.scale, l->at.offset});
        out->reg = plan.regs++;
        return 0;
    }
    if (n->kind == CALC_GROUP || n->kind == CALC_UPLUS) {
        CalcNode *inner = n->kind == CALC_GROUP ? n->left : n->right;
        int rc = build(run, inner, parent, plan, out, hi);
        if (rc < 3000) calc_set_units(run, n, inner->units);
        return rc;
    }
    if (n->kind == CALC_UMINUS) {
        Operand a;
        int rc = build(run, n->right, n, plan, &a, hi);
        if (rc >= 3000) return rc;
        calc_set_units(run, n, n->right->units);
        plan.steps.push_back({CALC_UMINUS, n, a, {}, plan.regs, 1, 0});
        out->reg = plan.regs++;
        return 0;
    }
    /* A binary operator: operands in the walk's order, then units. */
    Operand a, b;
    const bool rightFirst = n->assoc < 0;
    int rc = build(run, rightFirst ? n->right : n->left, n, plan, rightFirst ? &b : &a, hi);
    if (rc >= 3000) return rc;
    if ((rc = build(run, rightFirst ? n->left : n->right, n, plan, rightFirst ? &a : &b, hi)) >= 3000) return rc;
    const char *units = nullptr;
    int has = 0;
    if ((rc = calc_combine_units(run, n, n->left, n->right, &units, &has)) != 0) return rc;
    n->units = (char *)units;
    n->hasUnits = has;
    plan.steps.push_back({n->kind, n, a, b, plan.regs, 1, 0});
    out->reg = plan.regs++;
    return 0;
}

template <class F>
void each(double *r, const double *x, double kx, const double *y, double ky, int64_t m, F f)
{
    if (x && y)
        for (int64_t j = 0; j < m; ++j) r[j] = f(x[j], y[j]);
    else if (x)
        for (int64_t j = 0; j < m; ++j) r[j] = f(x[j], ky);
    else
        for (int64_t j = 0; j < m; ++j) r[j] = f(kx, y[j]);
}

/* A stretch of the result, from element `from` to before `to`, and whom to
 * tell of a zero divisor: the run (through calc_range, in index order), or
 * nobody when a helper thread computes it, which then just stops. */
struct Stretch {
    CalcRun *run;
    int64_t from, to;
    int hi = 0;
};

/* Division of one chunk; elements `at` + j. 0, a code of 3000 or more, or
 * -1 when a stretch without a run meets a zero divisor. */
int divide(const Step &s, Stretch &st, double *r, const double *x, const double *y, int64_t m, int64_t at)
{
    bool zero = false;
    if (y) {
        for (int64_t j = 0; j < m; ++j) zero |= y[j] == 0;
    } else {
        zero = s.b.k == 0;
    }
    if (!zero) {
        each(r, x, s.a.k, y, s.b.k, m, [](double p, double q) { return p / q; });
        return 0;
    }
    if (!st.run) return -1;
    for (int64_t j = 0; j < m; ++j) {
        const double p = x ? x[j] : s.a.k, q = y ? y[j] : s.b.k;
        if (q != 0) {
            r[j] = p / q;
            continue;
        }
        double subst;
        const int rc = keep_worst(calc_range(st.run, s.node, 2, at + j, &subst), &st.hi);
        r[j] = subst;
        if (rc >= 3000) return rc;
    }
    return 0;
}

/* Computes one stretch. 0, a code of 3000 or more (reported), -1 (a zero
 * divisor without a run) or -2 (no memory for the buffers; nothing
 * reported). Throws nothing, so it may run on a thread of its own. */
int compute(const Plan &plan, double *result, Stretch &st) noexcept
{
    std::vector<double> regs;
    try {
        regs.resize((size_t)plan.regs * (size_t)kChunk);
    } catch (...) {
        return -2;
    }
    for (int64_t at = st.from; at < st.to; at += kChunk) {
        const int64_t m = std::min(kChunk, st.to - at);
        auto in = [&](const Operand &o) -> const double * {
            if (o.array) return o.array + at;
            return o.reg >= 0 ? &regs[(size_t)o.reg * kChunk] : nullptr;
        };
        for (const Step &s : plan.steps) {
            double *r = &s == &plan.steps.back() ? result + at : &regs[(size_t)s.dst * kChunk];
            const double *x = in(s.a), *y = in(s.b);
            switch (s.kind) {
            case kLoad: {
                const double scale = s.scale, offset = s.offset;
                for (int64_t j = 0; j < m; ++j) r[j] = x[j] * scale + offset;
                break;
            }
            case kCopy: memcpy(r, x, (size_t)m * sizeof(double)); break;
            case CALC_UMINUS:
                for (int64_t j = 0; j < m; ++j) r[j] = -x[j];
                break;
            case CALC_ADD: each(r, x, s.a.k, y, s.b.k, m, [](double p, double q) { return p + q; }); break;
            case CALC_SUB: each(r, x, s.a.k, y, s.b.k, m, [](double p, double q) { return p - q; }); break;
            case CALC_MUL: each(r, x, s.a.k, y, s.b.k, m, [](double p, double q) { return p * q; }); break;
            default: {
                const int rc = divide(s, st, r, x, y, m, at);
                if (rc != 0) return rc;
                break;
            }
            }
        }
    }
    return 0;
}

/* Stretches of [0, count) for side-by-side threads: 1 when it isn't worth it. */
int64_t stretches(int64_t count, int64_t *per)
{
    const int64_t cores = std::max(1u, std::thread::hardware_concurrency());
    const int64_t parts = std::min({cores, kMaxThreads, count / kPerThread});
    *per = parts > 1 ? (count / parts + kChunk - 1) / kChunk * kChunk : count;
    return std::max<int64_t>(parts, 1);
}

/* Large arrays are cut into stretches computed side by side, one thread
 * each. Only when every stretch went through without a zero divisor does
 * that stand; otherwise (or when a thread can't be had) one pass over all
 * elements does it again on this thread, reporting in index order. */
int execute(CalcRun *run, const Plan &plan, double *result, int64_t count, int *hi)
{
    int64_t per = count;
    const int64_t parts = stretches(count, &per);
    if (parts > 1) {
        std::vector<Stretch> st;
        for (int64_t k = 0; k < parts; ++k)
            st.push_back({nullptr, std::min(count, k * per), std::min(count, (k + 1) * per)});
        std::vector<int> rcs((size_t)parts, -2);
        std::vector<std::thread> threads;
        try {
            for (int64_t k = 1; k < parts; ++k)
                threads.emplace_back([&, k] { rcs[(size_t)k] = compute(plan, result, st[(size_t)k]); });
        } catch (...) {
            /* fewer threads than stretches: the pass below does all */
        }
        rcs[0] = compute(plan, result, st[0]);
        for (std::thread &t : threads) t.join();
        if (std::all_of(rcs.begin(), rcs.end(), [](int rc) { return rc == 0; })) return 0;
    }
    Stretch all{run, 0, count};
    const int rc = compute(plan, result, all);
    *hi = std::max(*hi, all.hi);
    if (rc == -2) return calc_fail_text(run, plan.steps.back().node, 3025, "Sdf_Calc:fused");
    return rc;
}

} // namespace

void calc_scale_doubles(double *d, int64_t count, double scale, double offset)
{
    auto part = [=](int64_t from, int64_t to) {
        for (int64_t i = from; i < to; ++i) d[i] = d[i] * scale + offset;
    };
    int64_t per = count;
    stretches(count, &per);
    std::vector<std::thread> threads;
    int64_t done = per; /* the first stretch is this thread's own */
    try {
        for (; done < count; done += per) threads.emplace_back(part, done, std::min(count, done + per));
    } catch (...) {
        /* no more threads: this one takes the rest */
    }
    part(0, std::min(count, per));
    for (std::thread &t : threads) t.join();
    if (done < count) part(done, count);
}

int calc_fused(CalcRun *run, CalcNode *op)
{
    Plan plan;
    try {
        if (!(arith(op->kind) || op->kind == CALC_OPERAND) || classify(run, op, plan, 0) != kArrays)
            return CALC_NOT_FUSED;
    } catch (...) {
        return CALC_NOT_FUSED; /* the walk needs less memory up front */
    }
    int hi = 0, rc;
    Operand root;
    try {
        rc = build(run, op, op, plan, &root, &hi);
        /* A name alone: its elements as they are. */
        if (rc < 3000 && (plan.steps.empty() || root.reg != plan.steps.back().dst))
            plan.steps.push_back({kCopy, op, root, {}, plan.regs++, 1, 0});
    } catch (...) {
        return calc_fail_text(run, op, 3025, "Sdf_Calc:fused");
    }
    if (rc >= 3000) return rc;
    const CalcArrayAt &shape = plan.leaves.front().at;
    const char *units = op->units;
    const int has = op->hasUnits;
    if ((rc = calc_alloc_array(run, op, SDF_DBLE_T, 0, shape.count, shape.dims)) != 0) return rc;
    op->units = (char *)units;
    op->hasUnits = has;
    if ((rc = execute(run, plan, op->ddata, shape.count, &hi)) >= 3000) return rc;
    return hi;
}
