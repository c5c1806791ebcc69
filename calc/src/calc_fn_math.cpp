/*
 * calc_fn_math.cpp - the element kernels of the intrinsic functions.
 *
 * Real kernels call the standard library; complex kernels are written out
 * from the real and imaginary parts so that every case of a zero divisor or
 * a logarithm of zero is seen here and reported, never turned into a silent
 * not-a-number. Integer kernels keep to int64_t arithmetic that cannot
 * overflow: every operation whose exact result might not fit is tested
 * first and reported as out of range.
 */
#include "calc_fn_math.h"

#include <cmath>
#include <cstring>

namespace calc_fn {

namespace {

constexpr double kLn10 = 2.302585092994045684017991454684364208;

Cx mul(Cx x, Cx y) { return {x.re * y.re - x.im * y.im, x.re * y.im + x.im * y.re}; }
Cx add(Cx x, Cx y) { return {x.re + y.re, x.im + y.im}; }

// x / y written out; false for a divisor of modulus 0.
bool div(Cx x, Cx y, Cx *r)
{
    double d = y.re * y.re + y.im * y.im;
    if (d == 0) return false;
    *r = {(x.re * y.re + x.im * y.im) / d, (x.im * y.re - x.re * y.im) / d};
    return true;
}

// Principal square root in polar form: sqrt of the modulus, half the angle.
Cx csqrt(Cx z)
{
    double m = std::sqrt(cx_abs(z));
    double t = std::atan2(z.im, z.re) / 2;
    return {m * std::cos(t), m * std::sin(t)};
}

// ln z as (ln |z|, arg z); false for modulus 0.
bool clog(Cx z, Cx *r)
{
    double m = cx_abs(z);
    if (m == 0) return false;
    *r = {std::log(m), std::atan2(z.im, z.re)};
    return true;
}

bool finite(Cx z) { return std::isfinite(z.re) && std::isfinite(z.im); }

// The quotient of tan and tanh: a finite argument whose written-out quotient
// is not finite (both parts overflowed) counts as out of range.
bool quotient(Cx z, Cx num, Cx den, Cx *r)
{
    if (!div(num, den, r)) return false;
    return finite(*r) || !finite(z);
}

// Bounds of a signed integer of `bits` 32 or 64.
int64_t lo_of(int bits) { return bits == 32 ? INT32_MIN : INT64_MIN; }
int64_t hi_of(int bits) { return bits == 32 ? INT32_MAX : INT64_MAX; }

// A whole double into [lo, hi] of `bits`: -2^(bits-1) <= t < 2^(bits-1).
bool whole_to_int(double t, int bits, int64_t *r)
{
    double lim = std::ldexp(1.0, bits - 1);
    if (!(t >= -lim && t < lim)) return false; // also not-a-number
    *r = static_cast<int64_t>(t);
    return true;
}

} // namespace

double cx_abs(Cx z) { return std::hypot(z.re, z.im); }

// ---------------------------------------------------------------- real forms

bool real_acos(double x, double *r)
{
    if (std::fabs(x) > 1) return false;
    *r = std::acos(x);
    return true;
}

bool real_asin(double x, double *r)
{
    if (std::fabs(x) > 1) return false;
    *r = std::asin(x);
    return true;
}

bool real_atan(double x, double *r) { return *r = std::atan(x), true; }
bool real_cos(double x, double *r) { return *r = std::cos(x), true; }
bool real_cosh(double x, double *r) { return *r = std::cosh(x), true; }
bool real_exp(double x, double *r) { return *r = std::exp(x), true; }
bool real_sin(double x, double *r) { return *r = std::sin(x), true; }
bool real_sinh(double x, double *r) { return *r = std::sinh(x), true; }
bool real_tan(double x, double *r) { return *r = std::tan(x), true; }
bool real_tanh(double x, double *r) { return *r = std::tanh(x), true; }

// A negative argument would give a not-a-number that looks like a result in
// a written variable; it is out of range like 0.
bool real_log(double x, double *r)
{
    if (x <= 0) return false;
    *r = std::log(x);
    return true;
}

bool real_log10(double x, double *r)
{
    if (x <= 0) return false;
    *r = std::log10(x);
    return true;
}

bool real_sqrt(double x, double *r)
{
    if (x < 0) return false;
    *r = std::sqrt(x);
    return true;
}

bool real_atan2(double y, double x, double *r)
{
    if (y == 0 && x == 0) return false;
    *r = std::atan2(y, x);
    return true;
}

// ------------------------------------------------------------- complex forms

// acos z = -i ln(z + sqrt(z^2 - 1)); -i (p + iq) = q - ip.
bool cx_acos(Cx z, Cx *r)
{
    Cx z2 = mul(z, z);
    Cx w = add(z, csqrt({z2.re - 1, z2.im}));
    Cx l;
    if (!clog(w, &l)) return false;
    *r = {l.im, -l.re};
    return true;
}

// asin z = -i ln(iz + sqrt(1 - z^2)).
bool cx_asin(Cx z, Cx *r)
{
    Cx z2 = mul(z, z);
    Cx w = add({-z.im, z.re}, csqrt({1 - z2.re, -z2.im}));
    Cx l;
    if (!clog(w, &l)) return false;
    *r = {l.im, -l.re};
    return true;
}

// atan z = (1/2i) ln((1 + iz) / (1 - iz)); 1/(2i) (p + iq) = (q/2, -p/2).
bool cx_atan(Cx z, Cx *r)
{
    Cx q, l;
    if (!div({1 - z.im, z.re}, {1 + z.im, -z.re}, &q)) return false;
    if (!clog(q, &l)) return false;
    *r = {l.im / 2, -l.re / 2};
    return true;
}

bool cx_cos(Cx z, Cx *r)
{
    *r = {std::cos(z.re) * std::cosh(z.im), -std::sin(z.re) * std::sinh(z.im)};
    return true;
}

bool cx_cosh(Cx z, Cx *r)
{
    *r = {std::cos(z.im) * std::cosh(z.re), std::sin(z.im) * std::sinh(z.re)};
    return true;
}

bool cx_exp(Cx z, Cx *r)
{
    double m = std::exp(z.re);
    *r = {m * std::cos(z.im), m * std::sin(z.im)};
    return true;
}

bool cx_log(Cx z, Cx *r) { return clog(z, r); }

bool cx_log10(Cx z, Cx *r)
{
    if (!clog(z, r)) return false;
    *r = {r->re / kLn10, r->im / kLn10};
    return true;
}

bool cx_sin(Cx z, Cx *r)
{
    *r = {std::sin(z.re) * std::cosh(z.im), std::cos(z.re) * std::sinh(z.im)};
    return true;
}

bool cx_sinh(Cx z, Cx *r)
{
    *r = {std::cos(z.im) * std::sinh(z.re), std::sin(z.im) * std::cosh(z.re)};
    return true;
}

bool cx_sqrt(Cx z, Cx *r) { return *r = csqrt(z), true; }

bool cx_tan(Cx z, Cx *r)
{
    Cx s, c;
    cx_sin(z, &s);
    cx_cos(z, &c);
    return quotient(z, s, c, r);
}

bool cx_tanh(Cx z, Cx *r)
{
    Cx s, c;
    cx_sinh(z, &s);
    cx_cosh(z, &c);
    return quotient(z, s, c, r);
}

// ------------------------------------------------------------------ rounding

bool real_aint(double x, double *r) { return *r = std::trunc(x), true; }
bool real_anint(double x, double *r) { return *r = std::round(x), true; }
bool real_ceil(double x, double *r) { return *r = std::ceil(x), true; }
bool real_floor(double x, double *r) { return *r = std::floor(x), true; }

bool real_to_int(double x, int bits, int64_t *r) { return whole_to_int(std::trunc(x), bits, r); }
bool real_to_nint(double x, int bits, int64_t *r) { return whole_to_int(std::round(x), bits, r); }

bool int_narrow(int64_t a, int bits, int64_t *r)
{
    if (a < lo_of(bits) || a > hi_of(bits)) return false;
    *r = a;
    return true;
}

// ------------------------------------------------------------ integer pairs

bool int_abs(int64_t a, int bits, int64_t *r)
{
    int64_t neg = a < 0 ? a : -a; // always representable
    if (neg <= lo_of(bits)) return false;
    *r = -neg;
    return true;
}

bool int_dim(int64_t a, int64_t b, int bits, int64_t *r)
{
    if (a <= b) return *r = 0, true;
    int64_t d;
    if (__builtin_sub_overflow(a, b, &d)) return false;
    return int_narrow(d, bits, r);
}

double real_dim(double a, double b) { return a > b ? a - b : 0.0; }

bool int_sign(int64_t a, int64_t b, int bits, int64_t *r)
{
    int64_t neg = a < 0 ? a : -a;
    if (b < 0) return int_narrow(neg, bits, r);
    if (neg <= lo_of(bits)) return false;
    *r = -neg;
    return true;
}

double real_sign(double a, double b) { return b >= 0 ? std::fabs(a) : -std::fabs(a); }

int64_t int_mod(int64_t a, int64_t b)
{
    if (b == 0) return a;
    if (b == -1) return 0; // the most negative a % -1 would trap
    return a % b;
}

double real_mod(double a, double b) { return b == 0 ? a : std::fmod(a, b); }

// ---------------------------------------------------------------------- text

int32_t text_index(const char *a, const char *b)
{
    const char *p = std::strstr(a, b);
    return p ? static_cast<int32_t>(p - a) + 1 : 0;
}

bool text_ichar(const char *t, int32_t *r)
{
    if (t[0] && t[1]) return false;
    *r = static_cast<unsigned char>(t[0]);
    return true;
}

bool int_char(int64_t code, char *r)
{
    if (code < 0 || code > 255) return false;
    *r = static_cast<char>(static_cast<unsigned char>(code));
    return true;
}

} // namespace calc_fn
