/*
 * calc_fn_pair.cpp - the functions over two or more non-complex numbers:
 * dim, mod, sign element by element with broadcasting, and max, min over
 * all elements of all arguments.
 *
 * Integer types compute in 64-bit integers, never through doubles, so
 * SDF_INT64_T values keep every digit; a result the type cannot hold (dim
 * of far-apart values, sign of the most negative integer) is out of range
 * rather than wrapped. mod by 0 gives the first argument, with no range
 * error, so mod is defined for every pair.
 */
#include <cmath>

#include "calc_fn_common.h"

namespace calc_fn {

namespace {

enum class Pair { Dim, Mod, Sign };

int pair(CalcRun *run, CalcNode *fn, CalcNode *a, Pair op)
{
    CalcNode *b = a->next;
    int rc;
    if ((rc = need_real(run, fn, a, 1)) || (rc = need_real(run, fn, b, 2)) ||
        (rc = need_elements(run, fn, a, b)))
        return rc;
    const char *units = a->units; // sign: the second's units don't count
    if (op != Pair::Sign) {
        units = pair_units(run, fn, a, b, &rc);
        if (rc) return rc;
    }
    const int type = op == Pair::Sign ? a->type : higher(a->type, b->type);
    const int bits = type == SDF_INT64_T ? 64 : 32;
    if ((rc = calc_alloc_result(run, fn, a, b, type, 0))) return rc;
    rc = calc_broadcast(fn, a, b, [&](int64_t i, int64_t ia, int64_t ib) {
        if (!is_integer(type)) {
            double x = calc_get_d(a, ia), y = calc_get_d(b, ib);
            calc_put_d(fn, i, op == Pair::Dim ? real_dim(x, y) : op == Pair::Mod ? real_mod(x, y) : real_sign(x, y));
            return 0;
        }
        int64_t x = get_i(a, ia), v = 0;
        bool ok = true;
        if (op == Pair::Sign) {
            int64_t y = is_integer(b->type) ? get_i(b, ib) : (calc_get_d(b, ib) >= 0 ? 0 : -1);
            ok = int_sign(x, y, bits, &v);
        } else if (op == Pair::Dim) {
            ok = int_dim(x, get_i(b, ib), bits, &v);
        } else {
            v = int_mod(x, get_i(b, ib));
        }
        if (!ok) return out_of_range(run, fn, 0, i);
        put_i(fn, i, v);
        return 0;
    });
    release_args(run, a, 2);
    if (rc < 3000) calc_set_units(run, fn, units);
    return rc;
}

// max (sign 1) and min (sign -1): one scalar of the highest rank among the
// arguments. A not-a-number element makes the result not-a-number: no
// extreme of a set that holds one is meaningful.
int extreme(CalcRun *run, CalcNode *fn, CalcNode *args, int nargs, int sign)
{
    int type = SDF_LOG_T;
    const char *units = nullptr;
    int64_t total = 0;
    int rc = 0, k = 1;
    for (CalcNode *a = args; k <= nargs; a = a->next, ++k) {
        if ((rc = need_real(run, fn, a, k))) return rc;
        if (a->units) {
            if (units && !calc_units_equal(units, a->units)) return calc_fail_units(run, fn, units, a->units);
            if (!units) units = a->units;
        }
        type = higher(type, a->type);
        total += a->count;
    }
    if (total == 0) return calc_fail(run, fn, 3104, 0);
    bool have = false;
    int64_t bestI = 0;
    double bestD = 0;
    k = 1;
    for (CalcNode *a = args; k <= nargs; a = a->next, ++k) {
        for (int64_t i = 0; i < a->count; ++i) {
            if (is_integer(type)) {
                int64_t v = get_i(a, i);
                if (!have || (sign > 0 ? v > bestI : v < bestI)) bestI = v;
            } else {
                double v = calc_get_d(a, i);
                if (!have || std::isnan(v) || (sign > 0 ? v > bestD : v < bestD))
                    if (!std::isnan(bestD)) bestD = v;
            }
            have = true;
        }
    }
    release_args(run, args, nargs);
    calc_set_scalar(fn, type);
    if (is_integer(type))
        put_i(fn, 0, bestI);
    else
        calc_put_d(fn, 0, bestD);
    calc_set_units(run, fn, units);
    return 0;
}

} // namespace

int fn_dim(CalcRun *r, CalcNode *f, CalcNode *a, int) { return pair(r, f, a, Pair::Dim); }
int fn_mod(CalcRun *r, CalcNode *f, CalcNode *a, int) { return pair(r, f, a, Pair::Mod); }
int fn_sign(CalcRun *r, CalcNode *f, CalcNode *a, int) { return pair(r, f, a, Pair::Sign); }
int fn_max(CalcRun *r, CalcNode *f, CalcNode *a, int n) { return extreme(r, f, a, n, 1); }
int fn_min(CalcRun *r, CalcNode *f, CalcNode *a, int n) { return extreme(r, f, a, n, -1); }

} // namespace calc_fn
