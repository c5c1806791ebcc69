/* The calculator's entry points: a run of Sdf_Calc / Sdf_Calc_Chan from
 * channel choice to result variables, and the user function table with
 * its calling convention through _$ARG, _$RES and _$ERR variables.
 *
 * Invariants: a run owns its pool and array blocks and frees them however
 * it ends; the channel's prefix is off for the run and on again after it;
 * option and error-output changes are undone by the pop; the function
 * table is read and changed only under its mutex. */
#include <stdio.h>
#include <string.h>

#include <mutex>
#include <string>
#include <vector>

#include "calc_core.h"
#include "sdf_ref_forms.h"

namespace {

const char *R = "Sdf_Calc";

struct UserFn {
    char name[64];
    Sdf_Calc_User_Fn fn;
};

std::mutex g_fn_mutex;
UserFn g_fns[128];
int g_order[128];
int g_nfns = 0;

/* Position in g_order where name is or would go; *hit when it is there. */
int fn_search(const char *name, bool *hit)
{
    int lo = 0, hi = g_nfns - 1;
    *hit = false;
    while (lo <= hi) {
        int mid = (lo + hi) / 2;
        int c = ZU_strCaseCmp(name, g_fns[g_order[mid]].name);
        if (!c) {
            *hit = true;
            return mid;
        }
        if (c < 0) hi = mid - 1;
        else lo = mid + 1;
    }
    return lo;
}

bool name_start(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_'; }
bool name_more(char c)
{
    return name_start(c) || (c >= '0' && c <= '9') || c == '$' || c == ':' || c == '@' || c == '~';
}

/* Picks and checks the channel of a run: channel 0 not open gets a new
 * internal file; any other channel must be open and internal, since a run
 * that fails half way must never leave a file on disk half changed. 0 or a
 * reported code. */
int pick_channel(int channel, bool byDefault, int *out)
{
    fcb *f = sdf_chan_get(channel);
    if (!f && channel == 0) {
        int ch = 0;
        int rc = Sdf_Open(&ch, "", "INTERNAL", "UNKNOWN", "WRITE");
        if (rc >= 3000) return sdf_error_chain(R, rc, "Sdf_Open");
        if (byDefault && ch != 0) {
            char opt[64];
            snprintf(opt, sizeof opt, "Default_Internal_Channel=%d", ch);
            Sdf_Set_Opts(opt);
        }
        *out = ch;
        return 0;
    }
    if (!f) return sdf_error(R, 3001, channel);
    if (!f->file->internal) return sdf_error(R, 3004, channel);
    if (!f->writable) return sdf_error(R, 3002, channel);
    *out = channel;
    return 0;
}

/* Writes the values of the top-level items that are no assignment. */
int write_results(CalcRun *run, CalcNode *root)
{
    std::vector<CalcNode *> items;
    CalcNode *n = root;
    while (n && n->kind == CALC_COMMA) {
        if (n->left) items.push_back(n->left);
        n = n->right;
    }
    if (n) items.push_back(n);
    int x = 0;
    for (CalcNode *it : items)
        if (it->kind != CALC_ASSIGN) ++x;
    int digits = 1;
    for (int v = x; v >= 10; v /= 10) ++digits;
    Sdf_Delete(run->channel, "_$#");
    int k = 0, hi = 0;
    for (CalcNode *it : items) {
        if (it->kind == CALC_ASSIGN) continue;
        char name[64];
        snprintf(name, sizeof name, "_$%0*d", digits & 15, ++k);
        int rc = calc_write(run, it, name, 1); /* the item is done with */
        if (rc >= 3000) return rc;
        if (rc > hi) hi = rc;
    }
    return hi;
}

int run_calc(int channel, bool byDefault, const char *text)
{
    int rc = sdf_lib_start();
    if (rc >= 3000) return rc;
    int ch = 0;
    if ((rc = pick_channel(channel, byDefault, &ch)) != 0) return rc;
    if ((rc = Sdf_Mutex_Lock(ch, 2)) >= 3000) return sdf_error_chain(R, rc, "Sdf_Mutex_Lock");
    fcb *f = sdf_chan_get(ch);
    CalcRun run{};
    run.channel = ch;
    run.f = f;
    run.text = text ? text : "";
    run.rangeCheck = sdf_opt_int(f, SDF_OPT_CALC_RANGE_CHECK);
    run.rangeSubst = sdf_opt_double(f, SDF_OPT_CALC_RANGE_SUBST);
    snprintf(run.rangeSubstText, sizeof run.rangeSubstText, "%s", sdf_opt_text(f, SDF_OPT_CALC_RANGE_SUBST));
    run.badVarIsChar = sdf_opt_int(f, SDF_OPT_CALC_BADVAR_IS_CHAR) != 0;
    if (ZU_memlinkInit(&run.pool, 8192)) {
        Sdf_Mutex_Unlock(ch);
        return sdf_error(R, 3025, "Sdf_Calc:pool");
    }
    ZU_push(0);
    ZU_setOpts("Error_Out=None");
    const int prefixWas = f->prefix_active;
    f->prefix_active = 0;

    CalcNode *root = nullptr;
    rc = calc_parse(&run, &root);
    if (rc < 3000 && root) {
        calc_cache_count(&run, root);
        rc = calc_walk(&run, root);
        if (rc > run.code) run.code = rc;
    }
    if (run.code < 3000) {
        if (root) {
            rc = write_results(&run, root);
            if (rc > run.code) run.code = rc;
        } else {
            Sdf_Delete(ch, "_$#");
        }
    }
    const int code = run.code;
    calc_run_free_blocks(&run);
    ZU_memlinkFree(&run.pool);
    f = sdf_chan_get(ch);
    if (f) f->prefix_active = prefixWas;
    ZU_pop();
    Sdf_Mutex_Unlock(ch);
    return code;
}

} // namespace

int calc_user_find(const char *name)
{
    std::lock_guard<std::mutex> hold(g_fn_mutex);
    bool hit;
    int pos = fn_search(name, &hit);
    return hit ? g_order[pos] : -1;
}

int calc_user_call(CalcRun *run, CalcNode *fn, CalcNode *args, int nargs)
{
    Sdf_Calc_User_Fn call;
    char fname[64];
    {
        std::lock_guard<std::mutex> hold(g_fn_mutex);
        if (fn->ivalue < 0 || fn->ivalue >= g_nfns) return calc_fail(run, fn, 3102, 0);
        call = g_fns[fn->ivalue].fn;
        memcpy(fname, g_fns[fn->ivalue].name, sizeof fname);
    }
    const int ch = run->channel;
    Sdf_Delete(ch, "_$ARG#");
    Sdf_Delete(ch, "_$ERR*");
    Sdf_Delete(ch, "_$RES*");
    int digits = 1;
    for (int v = nargs; v >= 10; v /= 10) ++digits;
    int k = 0;
    for (CalcNode *a = args; a; a = a->next) {
        char name[64];
        snprintf(name, sizeof name, "_$ARG%0*d", digits & 15, ++k);
        int rc = calc_write(run, a, name, 0);
        if (rc >= 3000) return rc;
    }
    int chan = ch;
    calc_cache_forget(run);
    call(&chan);
    int pos = 0;
    if (sdf_find_var(run->f, "_$ERR", &pos)) {
        int type = 0, arr = 0;
        Sdf_Get_Type(ch, "_$ERR", &type, &arr);
        int32_t err = 0;
        if (!arr && type == SDF_INT_T) Sdf_Get_Val(ch, "_$ERR", &err);
        Sdf_Delete(ch, "_$ERR");
        if (arr) return calc_fail_text(run, fn, 3123, "array");
        if (type != SDF_INT_T) return calc_fail_text(run, fn, 3123, "not integer");
        if (err) {
            sdf_error(R, 3000, (int)err, fname);
            if (run->code < 3000) run->code = 3000;
            Sdf_Delete(ch, "_$ARG#");
            return 3000;
        }
    }
    if (!sdf_find_var(run->f, "_$RES", &pos)) {
        Sdf_Delete(ch, "_$ARG#");
        return calc_fail(run, fn, 3124, 0);
    }
    int rc = calc_read_var(run, fn, "_$RES");
    Sdf_Delete(ch, "_$RES");
    Sdf_Delete(ch, "_$ARG#");
    return rc;
}

extern "C" {

int Sdf_Calc(const char *expr)
{
    int rc = sdf_lib_start();
    if (rc >= 3000) return rc;
    return run_calc(sdf_opt_int(nullptr, SDF_OPT_DEFAULT_INTERNAL_CHANNEL), true, expr);
}

int Sdf_Calc_Chan(int channel, const char *expr) { return run_calc(channel, false, expr); }

int Sdf_Calc_Func(const char *name, Sdf_Calc_User_Fn fn)
{
    static const char *F = "Sdf_Calc_Func";
    int rc = sdf_lib_start();
    if (rc >= 3000) return rc;
    if (!name || !fn) return sdf_error(F, 3121, name ? name : "");
    const size_t len = strlen(name);
    bool ok = len > 0 && len < 64 && name_start(name[0]);
    for (size_t k = 1; ok && k < len; ++k) ok = name_more(name[k]);
    std::lock_guard<std::mutex> hold(g_fn_mutex);
    if (g_nfns >= 128) return sdf_error(F, 3120, 128);
    if (!ok) return sdf_error(F, 3121, name);
    bool hit;
    const int pos = fn_search(name, &hit);
    if (hit) return g_fns[g_order[pos]].fn == fn ? 0 : sdf_error(F, 3122, name);
    memcpy(g_fns[g_nfns].name, name, len + 1);
    g_fns[g_nfns].fn = fn;
    memmove(g_order + pos + 1, g_order + pos, sizeof(int) * (size_t)(g_nfns - pos));
    g_order[pos] = g_nfns++;
    return 0;
}

} // extern "C"

namespace {

int calc_func_cut(const char *name, Sdf_Calc_User_Fn fn)
{
    char buf[64];
    snprintf(buf, sizeof buf, "%s", name ? name : "");
    return Sdf_Calc_Func(buf, fn);
}

} // namespace

using namespace sdfref;

extern "C" {
SDF_REF_FORM(Sdf_Calc, sdf_calc, Sdf_Calc, 1, Text)
SDF_REF_FORM(Sdf_Calc_Chan, sdf_calc_chan, Sdf_Calc_Chan, 1, In<int>, Text)
SDF_REF_FORM(Sdf_Calc_Func, sdf_calc_func, calc_func_cut, 1, Text, Ptr<void(int *)>)
}
