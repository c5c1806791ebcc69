/*
 * calc_fn_text.cpp - the functions between characters and numbers: char,
 * ichar and index. Their results have no units.
 *
 * char and ichar stop at the first element they cannot map (3104) whatever
 * Calc_Range_Check says: a substitute number has no meaning as a character
 * and a code for a longer text would hide the rest of it. char takes codes
 * 0 to 255; a negative code is refused like one above 255.
 */
#include "calc_fn_common.h"

namespace calc_fn {

int fn_char(CalcRun *run, CalcNode *fn, CalcNode *a, int)
{
    if (a->type != SDF_INT_T && a->type != SDF_INT64_T) return calc_fail(run, fn, 3103, 0);
    if (int rc = calc_alloc_result(run, fn, a, nullptr, SDF_CHAR_T, 1)) return rc;
    if (!fn->isArray) { // a character scalar's field points at a text of its own
        fn->cvalue = static_cast<char *>(ZU_memlinkAlloc(&run->pool, 2));
        if (!fn->cvalue) return calc_fail(run, fn, 3025, 0);
    }
    int rc = calc_broadcast(fn, a, nullptr, [&](int64_t i, int64_t ia, int64_t) {
        char c;
        if (!int_char(get_i(a, ia), &c)) return calc_fail(run, fn, 3104, 0);
        fn->cdata[i][0] = c;
        fn->cdata[i][1] = '\0';
        return 0;
    });
    release_args(run, a, 1);
    if (rc < 3000) calc_set_units(run, fn, nullptr);
    return rc;
}

int fn_ichar(CalcRun *run, CalcNode *fn, CalcNode *a, int)
{
    if (a->type != SDF_CHAR_T) return calc_fail(run, fn, 3103, 0);
    if (int rc = calc_alloc_result(run, fn, a, nullptr, SDF_INT_T, 0)) return rc;
    int rc = calc_broadcast(fn, a, nullptr, [&](int64_t i, int64_t ia, int64_t) {
        int32_t code;
        if (!text_ichar(a->cdata[ia], &code)) return calc_fail(run, fn, 3104, 0);
        fn->idata[i] = code;
        return 0;
    });
    release_args(run, a, 1);
    if (rc < 3000) calc_set_units(run, fn, nullptr);
    return rc;
}

int fn_index(CalcRun *run, CalcNode *fn, CalcNode *a, int)
{
    CalcNode *b = a->next;
    if (a->type != SDF_CHAR_T) return calc_fail(run, fn, 3103, 1);
    if (b->type != SDF_CHAR_T) return calc_fail(run, fn, 3103, 2);
    if (int rc = need_elements(run, fn, a, b)) return rc;
    if (int rc = calc_alloc_result(run, fn, a, b, SDF_INT_T, 0)) return rc;
    int rc = calc_broadcast(fn, a, b, [&](int64_t i, int64_t ia, int64_t ib) {
        fn->idata[i] = text_index(a->cdata[ia], b->cdata[ib]);
        return 0;
    });
    release_args(run, a, 2);
    calc_set_units(run, fn, nullptr);
    return rc;
}

} // namespace calc_fn
