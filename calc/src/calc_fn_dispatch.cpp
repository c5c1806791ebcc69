/*
 * calc_fn_dispatch.cpp - the one entry the core calls for an intrinsic
 * function, and the argument tests all functions share.
 *
 * The table below has one row per function in kind order (30 abs ... 64
 * tanh), the order of the core's sorted name list; the static_assert keeps
 * its length in step with the kinds. The dispatcher refuses a function on a
 * left side (3110) and a wrong argument count (3102) before any function
 * code runs, so every entry may rely on the count it was declared with.
 */
#include "calc_fn_common.h"

namespace calc_fn {

namespace {

struct FnRow {
    const char *name; // for the reader; the core's calc_fn_names is the lookup
    int minArgs;
    int maxArgs; // -1: no limit
    FnEntry entry;
};

constexpr FnRow kRows[] = {
    {"abs", 1, 1, fn_abs},       {"acos", 1, 1, fn_acos},     {"aint", 1, 1, fn_aint},
    {"anint", 1, 1, fn_anint},   {"asin", 1, 1, fn_asin},     {"atan", 1, 1, fn_atan},
    {"atan2", 2, 2, fn_atan2},   {"ceil", 1, 1, fn_ceil},     {"char", 1, 1, fn_char},
    {"cmplx", 1, 2, fn_cmplx},   {"cos", 1, 1, fn_cos},       {"cosh", 1, 1, fn_cosh},
    {"dble", 1, 1, fn_dble},     {"dcmplx", 1, 2, fn_dcmplx}, {"dim", 2, 2, fn_dim},
    {"exp", 1, 1, fn_exp},       {"floor", 1, 1, fn_floor},   {"ichar", 1, 1, fn_ichar},
    {"index", 2, 2, fn_index},   {"int", 1, 1, fn_int},       {"int64", 1, 1, fn_int64},
    {"log", 1, 1, fn_log},       {"log10", 1, 1, fn_log10},   {"max", 1, -1, fn_max},
    {"min", 1, -1, fn_min},      {"mod", 2, 2, fn_mod},       {"nint", 1, 1, fn_nint},
    {"nint64", 1, 1, fn_nint64}, {"real", 1, 1, fn_real},     {"sign", 2, 2, fn_sign},
    {"sin", 1, 1, fn_sin},       {"sinh", 1, 1, fn_sinh},     {"sqrt", 1, 1, fn_sqrt},
    {"tan", 1, 1, fn_tan},       {"tanh", 1, 1, fn_tanh},
};
static_assert(sizeof kRows / sizeof kRows[0] == CALC_FN_COUNT, "one row per intrinsic kind");

bool is_type(int type) { return calc_rank(type) != 0; }

} // namespace

int need_number(CalcRun *run, CalcNode *fn, const CalcNode *arg, int argNo)
{
    if (!is_type(arg->type) || arg->type == SDF_CHAR_T) return calc_fail(run, fn, 3103, argNo);
    return 0;
}

int need_real(CalcRun *run, CalcNode *fn, const CalcNode *arg, int argNo)
{
    if (int rc = need_number(run, fn, arg, argNo)) return rc;
    if (is_complex(arg->type)) return calc_fail(run, fn, 3103, argNo);
    return 0;
}

int need_pure(CalcRun *run, CalcNode *fn, const CalcNode *arg)
{
    return arg->hasUnits ? calc_fail(run, fn, 3105, 1) : 0;
}

const char *pair_units(CalcRun *run, CalcNode *fn, const CalcNode *a, const CalcNode *b, int *rc)
{
    *rc = 0;
    if (a->units && b->units && !calc_units_equal(a->units, b->units)) {
        *rc = calc_fail_units(run, fn, a->units, b->units);
        return nullptr;
    }
    return a->units ? a->units : b->units;
}

int need_elements(CalcRun *run, CalcNode *fn, const CalcNode *a, const CalcNode *b)
{
    if (a->count < 1) return calc_fail(run, fn, 3104, 1);
    if (b->count < 1) return calc_fail(run, fn, 3104, 2);
    return 0;
}

int64_t get_i(const CalcNode *node, int64_t i)
{
    return node->type == SDF_INT64_T ? node->ldata[i] : node->idata[i];
}

void put_i(CalcNode *node, int64_t i, int64_t v)
{
    if (node->type == SDF_INT64_T)
        node->ldata[i] = v;
    else
        node->idata[i] = static_cast<int32_t>(v);
}

int out_of_range(CalcRun *run, CalcNode *fn, int argNo, int64_t i)
{
    double subst = 0;
    int rc = calc_range(run, fn, argNo, i, &subst);
    if (rc >= 3000) return rc;
    if (is_complex(fn->type))
        calc_put_z(fn, i, subst, 0);
    else
        calc_put_d(fn, i, subst);
    return rc;
}

void release_args(CalcRun *run, CalcNode *args, int nargs)
{
    for (CalcNode *a = args; a && nargs > 0; a = a->next, --nargs) calc_release(run, a);
}

} // namespace calc_fn

int calc_call_intrinsic(CalcRun *run, CalcNode *fn, CalcNode *args, int nargs)
{
    int k = fn->kind - CALC_FN_FIRST;
    if (k < 0 || k >= CALC_FN_COUNT) return calc_fail(run, fn, 3109, 0);
    if (fn->lhs) return calc_fail(run, fn, 3110, 0);
    const calc_fn::FnRow &row = calc_fn::kRows[k];
    if (nargs < row.minArgs || (row.maxArgs >= 0 && nargs > row.maxArgs))
        return calc_fail(run, fn, 3102, 0);
    return row.entry(run, fn, args, nargs);
}
