/*
 * calc_fn_convert.cpp - the type conversions: int, int64, nint, nint64,
 * dble, real, cmplx, dcmplx.
 *
 * Each keeps the argument's units and shape; a complex argument gives its
 * real part to the non-complex targets. A conversion never wraps or
 * saturates silently: an element the target type cannot hold (a real beyond
 * the integer's range, not-a-number to an integer, an SDF_INT64_T value
 * beyond 32 bits, a finite double beyond single precision) goes through the
 * range check like a value outside a function's domain.
 */
#include <cfloat>
#include <cmath>

#include "calc_fn_common.h"

namespace calc_fn {

namespace {

double real_part(const CalcNode *a, int64_t i)
{
    if (!is_complex(a->type)) return calc_get_d(a, i);
    double re, im;
    calc_get_z(a, i, &re, &im);
    return re;
}

// A finite double that single precision cannot hold.
bool beyond_float(double v) { return std::isfinite(v) && std::fabs(v) > FLT_MAX; }

// int, int64 (round false) and nint, nint64 (round true).
int to_integer(CalcRun *run, CalcNode *fn, CalcNode *a, int type, bool round)
{
    if (int rc = need_number(run, fn, a, 0)) return rc;
    const char *units = a->units;
    const int in = a->type;
    const int bits = type == SDF_INT64_T ? 64 : 32;
    if (int rc = calc_alloc_result(run, fn, a, nullptr, type, 0)) return rc;
    int rc = calc_broadcast(fn, a, nullptr, [&](int64_t i, int64_t ia, int64_t) {
        int64_t v;
        bool ok = is_integer(in) ? int_narrow(get_i(a, ia), bits, &v)
                  : round        ? real_to_nint(real_part(a, ia), bits, &v)
                                 : real_to_int(real_part(a, ia), bits, &v);
        if (!ok) return out_of_range(run, fn, 0, i);
        put_i(fn, i, v);
        return 0;
    });
    release_args(run, a, 1);
    if (rc < 3000) calc_set_units(run, fn, units);
    return rc;
}

// dble and real: the real part in a floating type.
int to_floating(CalcRun *run, CalcNode *fn, CalcNode *a, int type)
{
    if (int rc = need_number(run, fn, a, 0)) return rc;
    const char *units = a->units;
    if (int rc = calc_alloc_result(run, fn, a, nullptr, type, 0)) return rc;
    int rc = calc_broadcast(fn, a, nullptr, [&](int64_t i, int64_t ia, int64_t) {
        double v = real_part(a, ia);
        if (type == SDF_REAL_T && beyond_float(v)) return out_of_range(run, fn, 0, i);
        calc_put_d(fn, i, v);
        return 0;
    });
    release_args(run, a, 1);
    if (rc < 3000) calc_set_units(run, fn, units);
    return rc;
}

// cmplx and dcmplx: one number converted, or a real and an imaginary part.
int to_complex(CalcRun *run, CalcNode *fn, CalcNode *a, int nargs, int type)
{
    CalcNode *b = nargs == 2 ? a->next : nullptr;
    const char *units = a->units;
    int rc = 0;
    if (b) {
        if ((rc = need_real(run, fn, a, 1)) || (rc = need_real(run, fn, b, 2)) ||
            (rc = need_elements(run, fn, a, b)))
            return rc;
        units = pair_units(run, fn, a, b, &rc);
        if (rc) return rc;
    } else if ((rc = need_number(run, fn, a, 0))) {
        return rc;
    }
    if ((rc = calc_alloc_result(run, fn, a, b, type, 0))) return rc;
    rc = calc_broadcast(fn, a, b, [&](int64_t i, int64_t ia, int64_t ib) {
        double re, im = 0;
        if (b) {
            re = calc_get_d(a, ia);
            im = calc_get_d(b, ib);
        } else {
            calc_get_z(a, ia, &re, &im);
        }
        if (type == SDF_CMPX_T && (beyond_float(re) || beyond_float(im)))
            return out_of_range(run, fn, 0, i);
        calc_put_z(fn, i, re, im);
        return 0;
    });
    release_args(run, a, nargs);
    if (rc < 3000) calc_set_units(run, fn, units);
    return rc;
}

} // namespace

int fn_int(CalcRun *r, CalcNode *f, CalcNode *a, int) { return to_integer(r, f, a, SDF_INT_T, false); }
int fn_int64(CalcRun *r, CalcNode *f, CalcNode *a, int) { return to_integer(r, f, a, SDF_INT64_T, false); }
int fn_nint(CalcRun *r, CalcNode *f, CalcNode *a, int) { return to_integer(r, f, a, SDF_INT_T, true); }
int fn_nint64(CalcRun *r, CalcNode *f, CalcNode *a, int) { return to_integer(r, f, a, SDF_INT64_T, true); }
int fn_dble(CalcRun *r, CalcNode *f, CalcNode *a, int) { return to_floating(r, f, a, SDF_DBLE_T); }
int fn_real(CalcRun *r, CalcNode *f, CalcNode *a, int) { return to_floating(r, f, a, SDF_REAL_T); }
int fn_cmplx(CalcRun *r, CalcNode *f, CalcNode *a, int n) { return to_complex(r, f, a, n, SDF_CMPX_T); }
int fn_dcmplx(CalcRun *r, CalcNode *f, CalcNode *a, int n) { return to_complex(r, f, a, n, SDF_DCMPX_T); }

} // namespace calc_fn
