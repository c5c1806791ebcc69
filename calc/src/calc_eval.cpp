/* The walk over a parsed tree: each node's operands first (in the order of
 * the node's association), then the node itself; groups, array
 * constructors, casts, units, conditionals, logic and function calls here,
 * arithmetic in calc_ops, names and assignments in calc_vars.
 *
 * Invariants: a code of 3000 or more stops the walk at once and has been
 * reported; the highest code so far stands in run->code; after a node's step
 * its operands hold no storage (it moved into the node or was freed). */
#include <string.h>

#include <vector>

#include "calc_core.h"

int calc_list(CalcNode *bracket, CalcNode **first)
{
    std::vector<CalcNode *> items;
    CalcNode *n = bracket->left;
    while (n && n->kind == CALC_COMMA) {
        if (n->left) items.push_back(n->left);
        n = n->right;
    }
    if (n) items.push_back(n);
    for (size_t k = 0; k < items.size(); ++k) items[k]->next = k + 1 < items.size() ? items[k + 1] : nullptr;
    *first = items.empty() ? nullptr : items[0];
    return (int)items.size();
}

namespace {

int worst(CalcRun *run, int rc)
{
    if (rc > run->code) run->code = rc;
    return rc;
}

/* Walks the items of a bracket's list; *first the head. */
int walk_list(CalcRun *run, CalcNode *bracket, CalcNode **first, int *count)
{
    *count = calc_list(bracket, first);
    int hi = 0;
    for (CalcNode *it = *first; it; it = it->next) {
        int rc = calc_walk(run, it);
        if (rc >= 3000) return rc;
        if (rc > hi) hi = rc;
    }
    return hi;
}

int walk_group(CalcRun *run, CalcNode *n)
{
    if (n->right) return calc_fail(run, n, 3109, 0);
    CalcNode *first;
    int count;
    int rc = walk_list(run, n, &first, &count);
    if (rc >= 3000) return rc;
    if (count != 1) return calc_fail(run, n, count ? 3102 : 3109, 0);
    calc_move_value(n, first);
    return rc;
}

int walk_array(CalcRun *run, CalcNode *n)
{
    if (n->right) return calc_fail(run, n, 3109, 0);
    CalcNode *first;
    int count;
    int rc = walk_list(run, n, &first, &count);
    if (rc >= 3000) return rc;
    if (run->badVarIsChar) {
        bool chars = false, other = false, arrays = false, scalars = false;
        for (CalcNode *e = first; e; e = e->next) {
            (e->type == SDF_CHAR_T ? chars : other) = true;
            (e->isArray ? arrays : scalars) = true;
        }
        if ((chars && other) || (arrays && scalars))
            for (CalcNode *e = first; e; e = e->next)
                if (e->type != SDF_CHAR_T || e->isArray) {
                    calc_release(run, e);
                    calc_set_scalar(e, SDF_CHAR_T);
                    e->cvalue = e->textHead ? e->textHead : (char *)"";
                    e->strLen = (int32_t)strlen(e->cvalue);
                    e->units = nullptr;
                    e->hasUnits = 0;
                }
    }
    int rank = 0, strLen = 0;
    int64_t total = 0;
    const char *units = nullptr;
    for (CalcNode *e = first; e; e = e->next) {
        int arg = (int)(e == first ? 1 : 2);
        if ((e->type == SDF_CHAR_T) != (first->type == SDF_CHAR_T) || e->isArray != first->isArray ||
            calc_rank(e->type) == 0)
            return calc_fail(run, n, 3103, 0);
        if (e->isArray) {
            if (e->dims[0] != first->dims[0]) return calc_fail(run, n, 3103, 0);
            for (int k = 1; k <= e->dims[0]; ++k)
                if (e->dims[k] != first->dims[k]) return calc_fail(run, n, 3103, 0);
        }
        if (e->units) {
            if (units && strcmp(units, e->units)) return calc_fail_units(run, n, units, e->units);
            if (!units) units = e->units;
        }
        (void)arg;
        if (calc_rank(e->type) > rank) rank = calc_rank(e->type);
        if (e->strLen > strLen) strLen = e->strLen;
        total += e->count;
    }
    const int type = calc_type_of_rank(rank);
    int64_t dims[8] = {0};
    const int erank = first->isArray ? (int)first->dims[0] : 0;
    if (erank + 1 > 7) return calc_fail_text(run, n, 3021, "{}");
    dims[0] = erank + 1;
    for (int k = 1; k <= erank; ++k) dims[k] = first->dims[k];
    dims[erank + 1] = count;
    if ((rc = calc_alloc_array(run, n, type, strLen, total, dims)) != 0) return rc;
    int64_t at = 0;
    for (CalcNode *e = first; e; e = e->next) {
        int r = calc_retype(run, n, e, type, type == SDF_CHAR_T ? e->strLen : 0);
        if (r >= 3000) return r;
        if (type == SDF_CHAR_T) {
            for (int64_t i = 0; i < e->count; ++i) {
                memcpy(n->cdata[at + i], e->cdata[i], (size_t)e->strLen);
                memset(n->cdata[at + i] + e->strLen, 0, (size_t)(strLen - e->strLen) + 1);
            }
        } else {
            memcpy((char *)n->data + at * calc_elem_size(type), e->data,
                   (size_t)(e->count * calc_elem_size(type)));
        }
        at += e->count;
        calc_release(run, e);
    }
    calc_set_units(run, n, units);
    return rc;
}

int walk_cast(CalcRun *run, CalcNode *n)
{
    if (!n->right) return calc_fail(run, n, 3102, 0);
    int rc = calc_walk(run, n->right);
    if (rc >= 3000) return rc;
    if (n->ivalue < 0) return calc_fail(run, n, 3103, 0);
    if (n->ivalue == 0) return calc_fail(run, n, 3104, 0);
    const int type = n->ivalue;
    CalcNode *v = n->right;
    if ((v->type == SDF_CHAR_T) != (type == SDF_CHAR_T) || calc_rank(v->type) == 0)
        return calc_fail(run, n, 3103, 1);
    int r = calc_retype(run, n, v, type, 0);
    if (r >= 3000) return r;
    calc_move_value(n, v);
    n->type = type;
    return rc;
}

int walk_units(CalcRun *run, CalcNode *n)
{
    if (!n->left || n->right) return calc_fail(run, n, n->left ? 3109 : 3102, 0);
    if (run->table) return calc_fail(run, n, 3133, 0);
    int rc = calc_walk(run, n->left);
    if (rc >= 3000) return rc;
    CalcNode *v = n->left;
    if (v->units) return calc_fail(run, n, 3106, 1);
    if (v->type == SDF_CHAR_T || calc_rank(v->type) == 0) return calc_fail(run, n, 3103, 1);
    char dims[ZU_UNIT_DIMS_SIZE];
    double scale = 1, offset = 0;
    int r = calc_unit_parse(run, n, 0, n->units, dims, &scale, &offset);
    if (r >= 3000) return r;
    calc_move_value(n, v);
    r = calc_scale(run, n, n, scale, offset, SDF_DBLE_T);
    if (r >= 3000) return r;
    calc_set_units(run, n, dims);
    return rc;
}

int walk_logic(CalcRun *run, CalcNode *n)
{
    if (!n->left || !n->right) return calc_fail(run, n, 3102, 0);
    int rc = calc_walk(run, n->left);
    if (rc >= 3000) return rc;
    int t = calc_truth(n->left);
    calc_release(run, n->left);
    if ((n->kind == CALC_AND && t) || (n->kind == CALC_OR && !t)) {
        int r = calc_walk(run, n->right);
        if (r >= 3000) return r;
        if (r > rc) rc = r;
        t = calc_truth(n->right);
        calc_release(run, n->right);
    }
    calc_set_scalar(n, SDF_INT_T);
    n->ivalue = t;
    calc_set_units(run, n, nullptr);
    return rc;
}

int walk_cond(CalcRun *run, CalcNode *n)
{
    if (!n->left || !n->right || n->right->kind != CALC_ELSE) return calc_fail(run, n, 3101, 0);
    CalcNode *alt = n->right;
    if (!alt->left || !alt->right) return calc_fail(run, alt, 3102, 0);
    int rc = calc_walk(run, n->left);
    if (rc >= 3000) return rc;
    const int t = calc_truth(n->left);
    calc_release(run, n->left);
    CalcNode *pick = t ? alt->left : alt->right;
    int r = calc_walk(run, pick);
    if (r >= 3000) return r;
    calc_move_value(n, pick);
    return r > rc ? r : rc;
}

int walk_call(CalcRun *run, CalcNode *n)
{
    if (!n->right || n->right->kind != CALC_GROUP || n->left) return calc_fail(run, n, 3102, 0);
    CalcNode *first;
    int count;
    int rc = walk_list(run, n->right, &first, &count);
    if (rc >= 3000) return rc;
    /* Functions may work on their arguments in place. */
    for (CalcNode *a = first; a; a = a->next)
        if (calc_own(run, a)) return 3025;
    int r = n->kind == CALC_USER_FN ? calc_user_call(run, n, first, count)
                                    : calc_call_intrinsic(run, n, first, count);
    for (CalcNode *a = first; a; a = a->next)
        if (a != n) calc_release(run, a);
    if (r >= 3000) return worst(run, r);
    return worst(run, r > rc ? r : rc);
}

} // namespace

int calc_truth(const CalcNode *v)
{
    for (int64_t i = 0; i < v->count; ++i) {
        if (v->type == SDF_CHAR_T) {
            if (v->cdata[i] && v->cdata[i][0]) return 1;
        } else {
            double re, im;
            calc_get_z(v, i, &re, &im);
            if (re != 0 || im != 0) return 1;
        }
    }
    return 0;
}

int calc_walk(CalcRun *run, CalcNode *n)
{
    int rc = 0;
    switch (n->kind) {
    case CALC_OPERAND:
        if (n->left) return calc_fail(run, n, 3109, 0);
        if (n->type == 2) return worst(run, calc_read_name(run, n));
        if (n->right) return calc_fail(run, n, 3109, 0);
        return 0;
    case CALC_ARRAY: return walk_array(run, n);
    case CALC_TABLE: return calc_fail(run, n->parent ? n->parent : n, 3132, 0);
    case CALC_GROUP: return walk_group(run, n);
    case CALC_CAST: return walk_cast(run, n);
    case CALC_UNITS: return walk_units(run, n);
    case CALC_AND:
    case CALC_OR: return walk_logic(run, n);
    case CALC_ELSE: return calc_fail(run, n, 3101, 0);
    case CALC_COND: return walk_cond(run, n);
    case CALC_RANGE: return calc_fail(run, n, 3103, 1);
    case CALC_ASSIGN:
        if (!n->left || !n->right) return calc_fail(run, n, 3102, 0);
        if (n->left->kind == CALC_TABLE || n->right->kind == CALC_TABLE) return calc_table_assign(run, n);
        /* An array copied by name goes through the one pass too. */
        rc = n->right->kind == CALC_OPERAND ? calc_fused(run, n->right) : CALC_NOT_FUSED;
        if (rc == CALC_NOT_FUSED) rc = calc_walk(run, n->right);
        if (rc >= 3000) return rc;
        {
            int r = calc_assign(run, n);
            return r > rc ? r : rc;
        }
    case CALC_COMMA: {
        int hi = 0;
        for (CalcNode *side : {n->left, n->right}) {
            if (!side) continue;
            int r = calc_walk(run, side);
            if (r >= 3000) return r;
            if (r > hi) hi = r;
        }
        return hi;
    }
    case CALC_NOT:
    case CALC_UPLUS:
    case CALC_UMINUS:
        if (!n->right) return calc_fail(run, n, 3102, 0);
        rc = calc_walk(run, n->right);
        if (rc >= 3000) return rc;
        {
            int r = calc_unary(run, n);
            return r > rc ? r : rc;
        }
    default: break;
    }
    if (n->kind >= CALC_FN_FIRST) return walk_call(run, n);
    if (!n->left || !n->right) return calc_fail(run, n, 3102, 0);
    if ((rc = calc_fused(run, n)) != CALC_NOT_FUSED) return rc;
    CalcNode *one = n->assoc < 0 ? n->right : n->left;
    CalcNode *two = n->assoc < 0 ? n->left : n->right;
    rc = calc_walk(run, one);
    if (rc >= 3000) return rc;
    int r = calc_walk(run, two);
    if (r >= 3000) return r;
    if (r > rc) rc = r;
    r = calc_binary(run, n);
    return r > rc ? r : rc;
}
