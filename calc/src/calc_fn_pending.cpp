/* Placeholder dispatcher for the intrinsic functions until their sources
 * (calc_fn_*.cpp) join the library: every call is refused with 3102 naming
 * the function, so an expression that uses one fails clearly instead of
 * giving a wrong value. */
#include "calc_inner.h"

int calc_call_intrinsic(CalcRun *run, CalcNode *fn, CalcNode *args, int nargs)
{
    (void)args;
    (void)nargs;
    return calc_fail(run, fn, 3102, 0);
}
