/* Unary and binary operators over evaluated operands: type promotion by
 * rank, broadcasting with wrap-around, units arithmetic, comparisons and
 * concatenation.
 *
 * Invariants: integer arithmetic wraps (no signed overflow), conversions of
 * doubles to integers are held to range, an element without a value goes
 * through calc_range; the result lands in the operator node, reusing the
 * larger operand's block when its type fits, and the operands hold no
 * storage afterwards. */
#include <math.h>
#include <stdio.h>
#include <string.h>

#include "calc_core.h"

namespace {

bool is_complex(int t) { return t == SDF_CMPX_T || t == SDF_DCMPX_T; }
bool is_int(int t) { return t == SDF_INT_T || t == SDF_INT64_T || t == SDF_LOG_T; }

template <class T>
T wrap_add(T a, T b)
{
    using U = std::make_unsigned_t<T>;
    return (T)((U)a + (U)b);
}
template <class T>
T wrap_sub(T a, T b)
{
    using U = std::make_unsigned_t<T>;
    return (T)((U)a - (U)b);
}
template <class T>
T wrap_mul(T a, T b)
{
    using U = std::make_unsigned_t<T>;
    return (T)((U)a * (U)b);
}

} // namespace

int calc_combine_units(CalcRun *run, CalcNode *op, CalcNode *a, CalcNode *b, const char **out, int *has)
{
    const char *ua = a->units, *ub = b->units;
    *out = nullptr;
    *has = 0;
    switch (op->kind) {
    case CALC_ADD:
    case CALC_SUB:
        if (ua && ub && strcmp(ua, ub)) return calc_fail_units(run, op, ua, ub);
        *out = ua ? ua : ub;
        break;
    case CALC_MOD: *out = ua; break;
    case CALC_MUL:
        if (ua && ub) {
            if (!*ua) *out = ub;
            else if (!*ub) *out = ua;
            else if (!(*out = calc_unit_formula(run, op, "(%s).(%s)", ua, ub))) return 3107;
        } else
            *out = ua ? ua : ub;
        break;
    case CALC_DIV:
        if (ua && ub) {
            if (!strcmp(ua, ub)) *out = nullptr;
            else if (!*ub) *out = ua;
            else if (!*ua) {
                if (!(*out = calc_unit_formula(run, op, "1/(%s)", ub))) return 3107;
            } else if (!(*out = calc_unit_formula(run, op, "(%s)/(%s)", ua, ub)))
                return 3107;
        } else if (ua)
            *out = ua;
        else if (ub && !(*out = *ub ? calc_unit_formula(run, op, "1/(%s)", ub) : ub))
            return 3107;
        break;
    case CALC_POW:
    case CALC_CARET:
        if (b->hasUnits) return calc_fail(run, op, 3105, 2);
        if (ua) {
            if (is_complex(b->type)) return calc_fail(run, op, 3103, 2);
            if (!*ua) *out = ua;
            else if (!(*out = calc_unit_formula(run, op, "(%s)^%.17g", ua, calc_get_d(b, 0)))) return 3107;
        }
        break;
    default: break;
    }
    *has = calc_has_units(*out);
    return 0;
}

namespace {

/* Arithmetic in a real or integer type T. */
template <class T>
int arith_real(CalcRun *run, CalcNode *op, CalcNode *a, CalcNode *b, T *r, const T *x, const T *y)
{
    const int kind = op->kind;
    switch (kind) {
    case CALC_ADD:
        return calc_broadcast(op, a, b, [&](int64_t i, int64_t ia, int64_t ib) {
            if constexpr (std::is_integral_v<T>) r[i] = wrap_add(x[ia], y[ib]);
            else r[i] = x[ia] + y[ib];
            return 0;
        });
    case CALC_SUB:
        return calc_broadcast(op, a, b, [&](int64_t i, int64_t ia, int64_t ib) {
            if constexpr (std::is_integral_v<T>) r[i] = wrap_sub(x[ia], y[ib]);
            else r[i] = x[ia] - y[ib];
            return 0;
        });
    case CALC_MUL:
        return calc_broadcast(op, a, b, [&](int64_t i, int64_t ia, int64_t ib) {
            if constexpr (std::is_integral_v<T>) r[i] = wrap_mul(x[ia], y[ib]);
            else r[i] = x[ia] * y[ib];
            return 0;
        });
    case CALC_DIV:
        return calc_broadcast(op, a, b, [&](int64_t i, int64_t ia, int64_t ib) {
            if (y[ib] == 0) {
                double s;
                int rc = calc_range(run, op, 2, i, &s);
                r[i] = (T)s;
                return rc;
            }
            r[i] = x[ia] / y[ib];
            return 0;
        });
    case CALC_MOD:
        if constexpr (std::is_integral_v<T>) {
            return calc_broadcast(op, a, b, [&](int64_t i, int64_t ia, int64_t ib) {
                if (y[ib] == 0) {
                    double s;
                    int rc = calc_range(run, op, 2, i, &s);
                    calc_put_d(op, i, s);
                    return rc;
                }
                r[i] = y[ib] == -1 ? 0 : x[ia] % y[ib];
                return 0;
            });
        }
        return calc_fail(run, op, 3103, 1);
    default:
        return calc_broadcast(op, a, b, [&](int64_t i, int64_t ia, int64_t ib) {
            const double base = (double)x[ia], ex = (double)y[ib];
            if ((base == 0 && ex <= 0) || (base < 0 && ex != floor(ex))) {
                double s;
                int rc = calc_range(run, op, -1, i, &s);
                calc_put_d(op, i, s);
                return rc;
            }
            calc_put_d(op, i, pow(base, ex));
            return 0;
        });
    }
}

/* Complex arithmetic, computed in doubles. */
int arith_complex(CalcRun *run, CalcNode *op, CalcNode *a, CalcNode *b)
{
    const int kind = op->kind;
    return calc_broadcast(op, a, b, [&](int64_t i, int64_t ia, int64_t ib) {
        double p, q, c, d, re = 0, im = 0;
        calc_get_z(a, ia, &p, &q);
        calc_get_z(b, ib, &c, &d);
        switch (kind) {
        case CALC_ADD: re = p + c, im = q + d; break;
        case CALC_SUB: re = p - c, im = q - d; break;
        case CALC_MUL: re = p * c - q * d, im = p * d + q * c; break;
        case CALC_DIV: {
            const double m = c * c + d * d;
            if (m == 0) {
                double s;
                int rc = calc_range(run, op, 2, i, &s);
                calc_put_z(op, i, s, 0);
                return rc;
            }
            re = (p * c + q * d) / m, im = (q * c - p * d) / m;
            break;
        }
        default: {
            const double rr = hypot(p, q), t = atan2(q, p);
            if (rr == 0) {
                double s;
                int rc = calc_range(run, op, -1, i, &s);
                calc_put_z(op, i, s, 0);
                return rc;
            }
            const double mag = pow(rr, c) * exp(-t * d), ang = d * log(rr) + c * t;
            re = mag * cos(ang), im = mag * sin(ang);
            break;
        }
        }
        calc_put_z(op, i, re, im);
        return 0;
    });
}

int compare(CalcRun *run, CalcNode *op, CalcNode *a, CalcNode *b)
{
    const bool ca = a->type == SDF_CHAR_T, cb = b->type == SDF_CHAR_T;
    if (ca != cb) return calc_fail(run, op, 3103, ca ? 2 : 1);
    if (a->units && b->units && strcmp(a->units, b->units)) return calc_fail_units(run, op, a->units, b->units);
    const int kind = op->kind;
    const bool cx = is_complex(a->type) || is_complex(b->type);
    /* Arrays compare pair by pair over the broadcast count: the relation
     * holds when it holds for every pair; != is the negation of ==. */
    const int64_t n = (a->isArray || b->isArray) ? (a->count > b->count ? a->count : b->count) : 1;
    bool all = true;
    for (int64_t i = 0; i < n && all; ++i) {
        const int64_t ia = i % a->count, ib = i % b->count;
        int c;
        if (ca) {
            c = strcmp(a->cdata[ia], b->cdata[ib]);
        } else {
            double p, q, r, s;
            calc_get_z(a, ia, &p, &q);
            calc_get_z(b, ib, &r, &s);
            if (kind == CALC_EQ || kind == CALC_NE) c = (p == r && q == s) ? 0 : 1;
            else if (cx) {
                const double m1 = p * p + q * q, m2 = r * r + s * s;
                c = m1 < m2 ? -1 : m1 > m2 ? 1 : 0;
            } else if (is_int(a->type) && is_int(b->type) && a->type != SDF_LOG_T && b->type != SDF_LOG_T &&
                       (a->type == SDF_INT64_T || b->type == SDF_INT64_T)) {
                const int64_t u = a->type == SDF_INT64_T ? a->ldata[ia] : a->idata[ia];
                const int64_t v = b->type == SDF_INT64_T ? b->ldata[ib] : b->idata[ib];
                c = u < v ? -1 : u > v ? 1 : 0;
            } else
                c = p < r ? -1 : p > r ? 1 : (p == r ? 0 : 2); /* 2: unordered (NaN) */
        }
        switch (kind) {
        case CALC_LT: all = c == -1 || (ca && c < 0); break;
        case CALC_LE: all = c == -1 || c == 0 || (ca && c < 0); break;
        case CALC_GT: all = c == 1 || (ca && c > 0); break;
        case CALC_GE: all = c == 1 || c == 0 || (ca && c > 0); break;
        default: all = c == 0; break;
        }
    }
    calc_release(run, a);
    calc_release(run, b);
    calc_set_scalar(op, SDF_INT_T);
    op->ivalue = kind == CALC_NE ? !all : all;
    calc_set_units(run, op, nullptr);
    return 0;
}

int concat(CalcRun *run, CalcNode *op, CalcNode *a, CalcNode *b)
{
    if (a->type != SDF_CHAR_T) return calc_fail(run, op, 3103, 1);
    if (b->type != SDF_CHAR_T) return calc_fail(run, op, 3103, 2);
    const int len = a->strLen + b->strLen;
    if (!a->isArray && !b->isArray) {
        char *t = static_cast<char *>(ZU_memlinkAlloc(&run->pool, (uint64_t)len + 1));
        if (!t) return calc_fail_text(run, op, 3025, "Sdf_Calc:concat");
        snprintf(t, (size_t)len + 1, "%s%s", a->cvalue ? a->cvalue : "", b->cvalue ? b->cvalue : "");
        calc_set_scalar(op, SDF_CHAR_T);
        op->cvalue = t;
        op->strLen = len;
    } else {
        CalcNode tmp = *op; /* the block must not replace an operand's storage we still read */
        tmp.owned = 0;
        int rc = calc_alloc_result(run, &tmp, a, b, SDF_CHAR_T, len);
        if (rc) return rc;
        calc_broadcast(&tmp, a, b, [&](int64_t i, int64_t ia, int64_t ib) {
            snprintf(tmp.cdata[i], (size_t)len + 1, "%s%s", a->cdata[ia], b->cdata[ib]);
            return 0;
        });
        calc_release(run, a);
        calc_release(run, b);
        calc_move_value(op, &tmp);
        op->owned = 1;
    }
    calc_set_units(run, op, nullptr);
    return 0;
}

} // namespace

int calc_binary(CalcRun *run, CalcNode *op)
{
    CalcNode *a = op->left, *b = op->right;
    if (calc_rank(a->type) == 0) return calc_fail(run, op, 3103, 1);
    if (calc_rank(b->type) == 0) return calc_fail(run, op, 3103, 2);
    if (op->kind >= CALC_LT && op->kind <= CALC_NE) return compare(run, op, a, b);
    if (op->kind == CALC_CONCAT) return concat(run, op, a, b);
    if (a->type == SDF_CHAR_T) return calc_fail(run, op, 3103, 1);
    if (b->type == SDF_CHAR_T) return calc_fail(run, op, 3103, 2);
    const char *units;
    int has;
    int rc = calc_combine_units(run, op, a, b, &units, &has);
    if (rc) return rc;
    int ta = a->type == SDF_LOG_T ? SDF_INT_T : a->type;
    int tb = b->type == SDF_LOG_T ? SDF_INT_T : b->type;
    int type = calc_rank(ta) > calc_rank(tb) ? ta : tb;
    if (op->kind == CALC_DIV && calc_rank(type) < calc_rank(SDF_REAL_T)) type = SDF_REAL_T;
    if (op->kind == CALC_MOD && !(type == SDF_INT_T || type == SDF_INT64_T))
        return calc_fail(run, op, 3103, is_int(ta) ? 2 : 1);
    if ((rc = calc_retype(run, op, a, type, 0)) >= 3000) return rc;
    if ((rc = calc_retype(run, op, b, type, 0)) >= 3000) return rc;
    /* Keep the operands' scalar values where the result can't overwrite
     * them: the result's own fields belong to op, not to a or b. */
    if ((rc = calc_alloc_result(run, op, a, b, type, 0)) != 0) return rc;
    switch (type) {
    case SDF_INT_T: rc = arith_real(run, op, a, b, op->idata, a->idata, b->idata); break;
    case SDF_INT64_T: rc = arith_real(run, op, a, b, op->ldata, a->ldata, b->ldata); break;
    case SDF_REAL_T: rc = arith_real(run, op, a, b, op->fdata, a->fdata, b->fdata); break;
    case SDF_DBLE_T: rc = arith_real(run, op, a, b, op->ddata, a->ddata, b->ddata); break;
    default: rc = arith_complex(run, op, a, b); break;
    }
    calc_release(run, a);
    calc_release(run, b);
    op->units = (char *)units;
    op->hasUnits = has;
    return rc;
}

int calc_unary(CalcRun *run, CalcNode *op)
{
    CalcNode *v = op->right;
    if (v->type == SDF_CHAR_T || calc_rank(v->type) == 0) return calc_fail(run, op, 3103, 1);
    calc_move_value(op, v);
    if (op->kind == CALC_UPLUS) return 0;
    if (op->kind == CALC_UMINUS && calc_own(run, op)) return 3025;
    if (op->kind == CALC_NOT) {
        CalcNode src = *op; /* the old values, read before the result replaces them */
        src.data = op->isArray ? op->data : nullptr;
        if (!op->isArray) {
            double re, im;
            calc_get_z(op, 0, &re, &im);
            calc_set_scalar(op, SDF_INT_T);
            op->ivalue = re == 0 && im == 0;
            return 0;
        }
        const int oldOwned = op->owned;
        op->owned = 0;
        int rc = calc_alloc_array(run, op, SDF_INT_T, 0, src.count, src.dims);
        if (rc) return rc;
        for (int64_t i = 0; i < src.count; ++i) {
            double re, im;
            calc_get_z(&src, i, &re, &im);
            op->idata[i] = re == 0 && im == 0;
        }
        if (oldOwned) {
            src.owned = 1;
            calc_release(run, &src);
        }
        return 0;
    }
    for (int64_t i = 0; i < op->count; ++i) {
        switch (op->type) {
        case SDF_LOG_T:
        case SDF_INT_T: op->idata[i] = wrap_sub<int32_t>(0, op->idata[i]); break;
        case SDF_INT64_T: op->ldata[i] = wrap_sub<int64_t>(0, op->ldata[i]); break;
        case SDF_REAL_T: op->fdata[i] = -op->fdata[i]; break;
        case SDF_DBLE_T: op->ddata[i] = -op->ddata[i]; break;
        case SDF_CMPX_T:
            op->cxdata[2 * i] = -op->cxdata[2 * i];
            op->cxdata[2 * i + 1] = -op->cxdata[2 * i + 1];
            break;
        default:
            op->dcxdata[2 * i] = -op->dcxdata[2 * i];
            op->dcxdata[2 * i + 1] = -op->dcxdata[2 * i + 1];
            break;
        }
    }
    return 0;
}
