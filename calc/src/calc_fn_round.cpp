/*
 * calc_fn_round.cpp - abs and the whole-number functions with a floating
 * result: aint, anint, ceil, floor.
 *
 * All keep the argument's units and shape. aint and anint round at every
 * magnitude, never through a 32-bit integer, so a value beyond 2^31 keeps
 * its whole part. abs keeps the argument's type (complex gives the modulus
 * in the matching real type) and reports the one integer without a positive
 * counterpart as out of range instead of wrapping.
 */
#include <cmath>

#include "calc_fn_common.h"

namespace calc_fn {

namespace {

// Floating result of a non-complex argument, element by element.
int whole(CalcRun *run, CalcNode *fn, CalcNode *a, RealKernel k)
{
    if (int rc = need_real(run, fn, a, 0)) return rc;
    const char *units = a->units;
    if (int rc = calc_alloc_result(run, fn, a, nullptr, calc_float_type(a->type), 0)) return rc;
    int rc = calc_broadcast(fn, a, nullptr, [&](int64_t i, int64_t ia, int64_t) {
        double r = 0;
        k(calc_get_d(a, ia), &r); // total: no domain
        calc_put_d(fn, i, r);
        return 0;
    });
    release_args(run, a, 1);
    calc_set_units(run, fn, units);
    return rc;
}

} // namespace

int fn_aint(CalcRun *r, CalcNode *f, CalcNode *a, int) { return whole(r, f, a, real_aint); }
int fn_anint(CalcRun *r, CalcNode *f, CalcNode *a, int) { return whole(r, f, a, real_anint); }
int fn_ceil(CalcRun *r, CalcNode *f, CalcNode *a, int) { return whole(r, f, a, real_ceil); }
int fn_floor(CalcRun *r, CalcNode *f, CalcNode *a, int) { return whole(r, f, a, real_floor); }

int fn_abs(CalcRun *run, CalcNode *fn, CalcNode *a, int)
{
    if (int rc = need_number(run, fn, a, 0)) return rc;
    const char *units = a->units;
    const int in = a->type;
    const int type = in == SDF_CMPX_T ? SDF_REAL_T : in == SDF_DCMPX_T ? SDF_DBLE_T : in;
    const int bits = in == SDF_INT64_T ? 64 : 32;
    if (int rc = calc_alloc_result(run, fn, a, nullptr, type, 0)) return rc;
    int rc = calc_broadcast(fn, a, nullptr, [&](int64_t i, int64_t ia, int64_t) {
        if (is_integer(in)) {
            int64_t v;
            if (!int_abs(get_i(a, ia), bits, &v)) return out_of_range(run, fn, 0, i);
            put_i(fn, i, v);
        } else if (is_complex(in)) {
            Cx z;
            calc_get_z(a, ia, &z.re, &z.im);
            calc_put_d(fn, i, cx_abs(z));
        } else {
            calc_put_d(fn, i, std::fabs(calc_get_d(a, ia)));
        }
        return 0;
    });
    release_args(run, a, 1);
    if (rc < 3000) calc_set_units(run, fn, units);
    return rc;
}

} // namespace calc_fn
