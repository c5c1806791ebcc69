/*
 * calc_fn_math.h - the element kernels of the calculator's intrinsic
 * functions: one value in, one value out, no knowledge of nodes, types,
 * units or options.
 *
 * Every kernel is total: it never traps, never invokes undefined behaviour
 * and never loops. A value outside a function's domain (or one whose result
 * the target type cannot hold) makes the kernel return false; the caller
 * then runs the range check and puts the substitute in. Complex kernels
 * compute in doubles whatever the element type, by the textbook formulas
 * (logarithm and square root in polar form), so single and double complex
 * arguments agree to the precision of the narrower type.
 */
#ifndef CALC_FN_MATH_H
#define CALC_FN_MATH_H

#include <cstdint>

namespace calc_fn {

struct Cx {
    double re;
    double im;
};

/* A real kernel: false when x is outside the domain (*r is then unset). */
using RealKernel = bool (*)(double x, double *r);
/* A complex kernel, the same contract. */
using CxKernel = bool (*)(Cx z, Cx *r);

/* The floating functions, real forms. acos/asin: |x| <= 1. log/log10: x > 0
 * (a negative argument is out of range, not a not-a-number). sqrt: x >= 0.
 * The others accept every value. */
bool real_acos(double x, double *r);
bool real_asin(double x, double *r);
bool real_atan(double x, double *r);
bool real_cos(double x, double *r);
bool real_cosh(double x, double *r);
bool real_exp(double x, double *r);
bool real_log(double x, double *r);
bool real_log10(double x, double *r);
bool real_sin(double x, double *r);
bool real_sinh(double x, double *r);
bool real_sqrt(double x, double *r);
bool real_tan(double x, double *r);
bool real_tanh(double x, double *r);

/* Complex forms. acos, asin: the logarithm's argument of modulus 0 is out
 * of range. atan: a zero denominator 1 - iz or a zero quotient. log, log10:
 * modulus 0. tan, tanh: a denominator of modulus 0. The rest accept all. */
bool cx_acos(Cx z, Cx *r);
bool cx_asin(Cx z, Cx *r);
bool cx_atan(Cx z, Cx *r);
bool cx_cos(Cx z, Cx *r);
bool cx_cosh(Cx z, Cx *r);
bool cx_exp(Cx z, Cx *r);
bool cx_log(Cx z, Cx *r);
bool cx_log10(Cx z, Cx *r);
bool cx_sin(Cx z, Cx *r);
bool cx_sinh(Cx z, Cx *r);
bool cx_sqrt(Cx z, Cx *r);
bool cx_tan(Cx z, Cx *r);
bool cx_tanh(Cx z, Cx *r);
/* Modulus without overflow in the squares. */
double cx_abs(Cx z);

/* atan2(y, x); both 0 is out of range. */
bool real_atan2(double y, double x, double *r);

/* Rounding to a whole float, at every magnitude (no 32-bit clipping):
 * aint toward zero, anint half away from zero. Not-a-number and infinities
 * pass through. Always true. */
bool real_aint(double x, double *r);
bool real_anint(double x, double *r);
bool real_ceil(double x, double *r);
bool real_floor(double x, double *r);

/* Integer results are of `bits` 32 or 64 and must lie in the range of a
 * signed integer of that width; a kernel that would leave it returns false.
 *
 * Truncation (int) or rounding half away from zero (nint) to an integer:
 * false also for not-a-number and infinities. */
bool real_to_int(double x, int bits, int64_t *r);
bool real_to_nint(double x, int bits, int64_t *r);
/* An integer of either width narrowed to `bits`. */
bool int_narrow(int64_t a, int bits, int64_t *r);

/* |a|; false for the most negative value. */
bool int_abs(int64_t a, int bits, int64_t *r);
/* dim(a, b) = a - b if a > b, else 0. */
bool int_dim(int64_t a, int64_t b, int bits, int64_t *r);
double real_dim(double a, double b);
/* sign(a, b): |a| with the sign of b, b = 0 (either sign) positive. */
bool int_sign(int64_t a, int64_t b, int bits, int64_t *r);
double real_sign(double a, double b);
/* mod(a, b): remainder with the sign of a; b = 0 gives a. The integer form
 * is exact at every magnitude and cannot fail. */
int64_t int_mod(int64_t a, int64_t b);
double real_mod(double a, double b);

/* index(a, b): 1-based position of the first b in a, 0 for none (an empty
 * b is found at 1). */
int32_t text_index(const char *a, const char *b);
/* ichar(t): the code (0..255) of the single character of t, 0 for the empty
 * text; false for a text of two or more characters. */
bool text_ichar(const char *t, int32_t *r);
/* char(i): false for a code outside 0..255. */
bool int_char(int64_t code, char *r);

} // namespace calc_fn

#endif /* CALC_FN_MATH_H */
