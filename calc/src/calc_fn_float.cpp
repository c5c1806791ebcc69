/*
 * calc_fn_float.cpp - the functions with a floating result over one number:
 * acos, asin, atan, cos, cosh, exp, log, log10, sin, sinh, sqrt, tan, tanh,
 * and atan2 over two.
 *
 * An integer or logical argument gives SDF_DBLE_T, a floating or complex
 * one keeps its type; complex elements go through the complex kernels. All
 * but sqrt and atan2 need an argument whose units are not dimensions
 * (3105). The inverse functions give radians; sqrt gives the square root of
 * the argument's units; the others give a value without units. A finite
 * argument whose result overflows the result type is out of range.
 */
#include <cfloat>
#include <cmath>

#include "calc_fn_common.h"

namespace calc_fn {

namespace {

enum class UnitRule { None, Radian, Root };

struct FloatFn {
    RealKernel real;
    CxKernel cx;
    bool pure;
    UnitRule units;
};

// Whether a result computed from a finite argument fits the result type:
// an overflow to infinity (exp(1000), sinh of a single beyond 89) would be
// written as if it were a value, so it counts as out of range.
bool fits(int type, bool finiteArg, double v)
{
    if (!finiteArg) return true; // infinities in, whatever the function makes of them out
    if (!std::isfinite(v)) return false;
    return (type != SDF_REAL_T && type != SDF_CMPX_T) || std::fabs(v) <= FLT_MAX;
}

int unary(CalcRun *run, CalcNode *fn, CalcNode *a, const FloatFn &k)
{
    if (int rc = need_number(run, fn, a, 0)) return rc;
    if (k.pure)
        if (int rc = need_pure(run, fn, a)) return rc;
    const char *units = nullptr;
    if (k.units == UnitRule::Radian) units = "rad";
    if (k.units == UnitRule::Root && a->units) {
        units = calc_unit_formula(run, fn, "(%s)^0.5", a->units);
        if (!units) return 3107;
    }
    const int type = calc_float_type(a->type);
    if (int rc = calc_alloc_result(run, fn, a, nullptr, type, 0)) return rc;
    const bool cx = is_complex(type);
    int rc = calc_broadcast(fn, a, nullptr, [&](int64_t i, int64_t ia, int64_t) {
        if (cx) {
            Cx z, r;
            calc_get_z(a, ia, &z.re, &z.im);
            bool finite = std::isfinite(z.re) && std::isfinite(z.im);
            if (k.cx(z, &r) && fits(type, finite, r.re) && fits(type, finite, r.im))
                return calc_put_z(fn, i, r.re, r.im), 0;
        } else {
            double x = calc_get_d(a, ia), r;
            if (k.real(x, &r) && fits(type, std::isfinite(x), r)) return calc_put_d(fn, i, r), 0;
        }
        return out_of_range(run, fn, 0, i);
    });
    release_args(run, a, 1);
    if (rc < 3000) calc_set_units(run, fn, units);
    return rc;
}

} // namespace

int fn_acos(CalcRun *r, CalcNode *f, CalcNode *a, int) { return unary(r, f, a, {real_acos, cx_acos, true, UnitRule::Radian}); }
int fn_asin(CalcRun *r, CalcNode *f, CalcNode *a, int) { return unary(r, f, a, {real_asin, cx_asin, true, UnitRule::Radian}); }
int fn_atan(CalcRun *r, CalcNode *f, CalcNode *a, int) { return unary(r, f, a, {real_atan, cx_atan, true, UnitRule::Radian}); }
int fn_cos(CalcRun *r, CalcNode *f, CalcNode *a, int) { return unary(r, f, a, {real_cos, cx_cos, true, UnitRule::None}); }
int fn_cosh(CalcRun *r, CalcNode *f, CalcNode *a, int) { return unary(r, f, a, {real_cosh, cx_cosh, true, UnitRule::None}); }
int fn_exp(CalcRun *r, CalcNode *f, CalcNode *a, int) { return unary(r, f, a, {real_exp, cx_exp, true, UnitRule::None}); }
int fn_log(CalcRun *r, CalcNode *f, CalcNode *a, int) { return unary(r, f, a, {real_log, cx_log, true, UnitRule::None}); }
int fn_log10(CalcRun *r, CalcNode *f, CalcNode *a, int) { return unary(r, f, a, {real_log10, cx_log10, true, UnitRule::None}); }
int fn_sin(CalcRun *r, CalcNode *f, CalcNode *a, int) { return unary(r, f, a, {real_sin, cx_sin, true, UnitRule::None}); }
int fn_sinh(CalcRun *r, CalcNode *f, CalcNode *a, int) { return unary(r, f, a, {real_sinh, cx_sinh, true, UnitRule::None}); }
int fn_sqrt(CalcRun *r, CalcNode *f, CalcNode *a, int) { return unary(r, f, a, {real_sqrt, cx_sqrt, false, UnitRule::Root}); }
int fn_tan(CalcRun *r, CalcNode *f, CalcNode *a, int) { return unary(r, f, a, {real_tan, cx_tan, true, UnitRule::None}); }
int fn_tanh(CalcRun *r, CalcNode *f, CalcNode *a, int) { return unary(r, f, a, {real_tanh, cx_tanh, true, UnitRule::None}); }

// atan2(y, x): two non-complex numbers with equal units; at least
// SDF_REAL_T; both 0 is out of range (the message's plural form).
int fn_atan2(CalcRun *run, CalcNode *fn, CalcNode *y, int)
{
    CalcNode *x = y->next;
    if (int rc = need_real(run, fn, y, 1)) return rc;
    if (int rc = need_real(run, fn, x, 2)) return rc;
    if (int rc = need_elements(run, fn, y, x)) return rc;
    int rc = 0;
    pair_units(run, fn, y, x, &rc);
    if (rc) return rc;
    int type = higher(higher(y->type, x->type), SDF_REAL_T);
    if ((rc = calc_alloc_result(run, fn, y, x, type, 0))) return rc;
    rc = calc_broadcast(fn, y, x, [&](int64_t i, int64_t iy, int64_t ix) {
        double r;
        if (real_atan2(calc_get_d(y, iy), calc_get_d(x, ix), &r)) return calc_put_d(fn, i, r), 0;
        return out_of_range(run, fn, -1, i);
    });
    release_args(run, y, 2);
    if (rc < 3000) calc_set_units(run, fn, "rad");
    return rc;
}

} // namespace calc_fn
