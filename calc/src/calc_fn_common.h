/*
 * calc_fn_common.h - what the intrinsic function sources (calc_fn_*.cpp)
 * share: the argument tests every function starts with, integer element
 * access, the range check of one element, and the entry of each function.
 *
 * Every entry has the dispatcher's contract: it runs after the argument
 * count was checked, leaves the result in fn (type, shape, storage, units),
 * releases the arguments' storage, and returns 0, 2104 or a code already
 * reported. An argument test reports its own failure and returns the code.
 */
#ifndef CALC_FN_COMMON_H
#define CALC_FN_COMMON_H

#include "calc_fn_math.h"
#include "calc_inner.h"

namespace calc_fn {

using FnEntry = int (*)(CalcRun *run, CalcNode *fn, CalcNode *args, int nargs);

inline bool is_complex(int type) { return type == SDF_CMPX_T || type == SDF_DCMPX_T; }
inline bool is_integer(int type) { return type == SDF_INT_T || type == SDF_INT64_T || type == SDF_LOG_T; }
inline int higher(int a, int b) { return calc_rank(a) >= calc_rank(b) ? a : b; }

/* 3103 unless arg is a number (any type but character); `argNo` 0 for the
 * message without a number. */
int need_number(CalcRun *run, CalcNode *fn, const CalcNode *arg, int argNo);
/* 3103 unless arg is a non-complex number. */
int need_real(CalcRun *run, CalcNode *fn, const CalcNode *arg, int argNo);
/* 3105 (argument 1) when arg has units that count as dimensions. */
int need_pure(CalcRun *run, CalcNode *fn, const CalcNode *arg);
/* The units of a pair whose units must agree: both present and different
 * give 3108 in *rc; else the one present (null for none). */
const char *pair_units(CalcRun *run, CalcNode *fn, const CalcNode *a, const CalcNode *b, int *rc);

/* 3104 with the argument's number when one of a pair is an empty array:
 * wrapping around nothing has no element to pair with. */
int need_elements(CalcRun *run, CalcNode *fn, const CalcNode *a, const CalcNode *b);

/* Element i of an integer node (LOG, INT, INT64) and back. */
int64_t get_i(const CalcNode *node, int64_t i);
void put_i(CalcNode *node, int64_t i, int64_t v);

/* Element i has no value: the range check decides. Puts the substitute
 * (real part, imaginary 0) into fn's element i unless the check stops the
 * run; returns the check's code. */
int out_of_range(CalcRun *run, CalcNode *fn, int argNo, int64_t i);

/* Frees the arguments' storage once the result is complete. */
void release_args(CalcRun *run, CalcNode *args, int nargs);

/* The entries, by group. */
int fn_abs(CalcRun *, CalcNode *, CalcNode *, int);
int fn_acos(CalcRun *, CalcNode *, CalcNode *, int);
int fn_aint(CalcRun *, CalcNode *, CalcNode *, int);
int fn_anint(CalcRun *, CalcNode *, CalcNode *, int);
int fn_asin(CalcRun *, CalcNode *, CalcNode *, int);
int fn_atan(CalcRun *, CalcNode *, CalcNode *, int);
int fn_atan2(CalcRun *, CalcNode *, CalcNode *, int);
int fn_ceil(CalcRun *, CalcNode *, CalcNode *, int);
int fn_char(CalcRun *, CalcNode *, CalcNode *, int);
int fn_cmplx(CalcRun *, CalcNode *, CalcNode *, int);
int fn_cos(CalcRun *, CalcNode *, CalcNode *, int);
int fn_cosh(CalcRun *, CalcNode *, CalcNode *, int);
int fn_dble(CalcRun *, CalcNode *, CalcNode *, int);
int fn_dcmplx(CalcRun *, CalcNode *, CalcNode *, int);
int fn_dim(CalcRun *, CalcNode *, CalcNode *, int);
int fn_exp(CalcRun *, CalcNode *, CalcNode *, int);
int fn_floor(CalcRun *, CalcNode *, CalcNode *, int);
int fn_ichar(CalcRun *, CalcNode *, CalcNode *, int);
int fn_index(CalcRun *, CalcNode *, CalcNode *, int);
int fn_int(CalcRun *, CalcNode *, CalcNode *, int);
int fn_int64(CalcRun *, CalcNode *, CalcNode *, int);
int fn_log(CalcRun *, CalcNode *, CalcNode *, int);
int fn_log10(CalcRun *, CalcNode *, CalcNode *, int);
int fn_max(CalcRun *, CalcNode *, CalcNode *, int);
int fn_min(CalcRun *, CalcNode *, CalcNode *, int);
int fn_mod(CalcRun *, CalcNode *, CalcNode *, int);
int fn_nint(CalcRun *, CalcNode *, CalcNode *, int);
int fn_nint64(CalcRun *, CalcNode *, CalcNode *, int);
int fn_real(CalcRun *, CalcNode *, CalcNode *, int);
int fn_sign(CalcRun *, CalcNode *, CalcNode *, int);
int fn_sin(CalcRun *, CalcNode *, CalcNode *, int);
int fn_sinh(CalcRun *, CalcNode *, CalcNode *, int);
int fn_sqrt(CalcRun *, CalcNode *, CalcNode *, int);
int fn_tan(CalcRun *, CalcNode *, CalcNode *, int);
int fn_tanh(CalcRun *, CalcNode *, CalcNode *, int);

} // namespace calc_fn

#endif /* CALC_FN_COMMON_H */
