/* Names and the channel: resolving a name through the prefix options,
 * reading a variable or one element into a node, writing a node back as a
 * variable, and reading the left side of an assignment.
 *
 * Invariants: the channel's own prefix is switched off for the run, so the
 * names passed to the library here are full names; a library failure is
 * reported as 3150 naming the routine; values always enter the calculator
 * in base units. */
#include <stdio.h>
#include <string.h>

#include <string>

#include "calc_core.h"

namespace {


bool exists(CalcRun *run, const char *name)
{
    int pos = 0;
    return sdf_find_var(run->f, name, &pos) != nullptr;
}

/* The full name `name` stands for through the prefix options; *found when
 * it exists. lhs picks the Calc_Try_NoPrefix bit. False, quietly, when the
 * name (as given or with the prefix) is not a valid name: *bad then holds
 * the text to report. */
bool resolve_quiet(CalcRun *run, const char *name, bool lhs, std::string &full, bool *found, std::string *bad)
{
    *found = false;
    const int tryNo = sdf_opt_int(run->f, SDF_OPT_CALC_TRY_NOPREFIX);
    if (tryNo & (lhs ? 2 : 1)) {
        if (!Sdf_Valid_Name(name)) {
            if (bad) *bad = name;
            return false;
        }
        if (exists(run, name)) {
            full = name;
            *found = true;
            return true;
        }
    }
    const char *cp = sdf_opt_text(run->f, SDF_OPT_CALC_PREFIX);
    const char *p = cp && *cp ? cp : sdf_opt_text(run->f, SDF_OPT_PREFIX);
    full = name;
    if (p && *p && strncmp(name, p, strlen(p))) full = std::string(p) + name;
    if (full.size() > 513) full.resize(513);
    if (!Sdf_Valid_Name(full.c_str())) {
        if (bad) *bad = full;
        return false;
    }
    *found = exists(run, full.c_str());
    return true;
}

/* resolve_quiet for a node's identifier, reporting an invalid name: 0 or
 * 3005 (reported). */
int resolve(CalcRun *run, CalcNode *n, bool lhs, std::string &full, bool *found)
{
    std::string bad;
    if (!resolve_quiet(run, n->name, lhs, full, found, &bad)) return calc_fail_text(run, n, 3005, bad.c_str());
    return 0;
}

/* One integer subscript value (1-based) of node s, walked here. */
int subscript_value(CalcRun *run, CalcNode *n, CalcNode *s, int k, int64_t *out)
{
    if (!s) return calc_fail(run, n, 3102, 0);
    int rc = calc_walk(run, s);
    if (rc >= 3000) return rc;
    if (s->type != SDF_INT_T || s->isArray || k >= 7) return calc_fail(run, n, 3103, k + 1);
    *out = (int64_t)s->ivalue - 1;
    return 0;
}

/* Evaluates subscripts (the node's right group) into 0-based n->dims and,
 * for ranges "from..to", n->dimsEnd with n->sliced set. */
int subscripts(CalcRun *run, CalcNode *n, int *count)
{
    CalcNode *first;
    *count = calc_list(n->right, &first);
    int k = 0;
    n->sliced = 0;
    for (CalcNode *s = first; s; s = s->next, ++k) {
        int rc;
        if (s->kind == CALC_RANGE) {
            if ((rc = subscript_value(run, n, s->left, k, &n->dimStore[k + 1])) >= 3000) return rc;
            if ((rc = subscript_value(run, n, s->right, k, &n->dimEndStore[k + 1])) >= 3000) return rc;
            if (n->dimEndStore[k + 1] < n->dimStore[k + 1]) return calc_fail(run, n, 3111, 0);
            n->sliced = 1;
        } else {
            if ((rc = subscript_value(run, n, s, k, &n->dimStore[k + 1])) >= 3000) return rc;
            n->dimEndStore[k + 1] = n->dimStore[k + 1];
        }
    }
    n->dimStore[0] = n->dimEndStore[0] = *count;
    n->dims = n->dimStore;
    n->dimsEnd = n->dimEndStore;
    return 0;
}

int chain(CalcRun *run, CalcNode *n, int rc, const char *routine)
{
    if (rc < 3000) return 0;
    return calc_fail_text(run, n, 3150, routine);
}

/* Units of a stored variable: parse, scale into base units. */
int apply_stored_units(CalcRun *run, CalcNode *n, const char *full)
{
    char *text = nullptr;
    Sdf_Get_Units(run->channel, full, &text);
    int rc = 0;
    if (text && *text) {
        char dims[ZU_UNIT_DIMS_SIZE];
        double scale = 1, offset = 0;
        if (ZU_unitParse(text, dims, &scale, &offset)) {
            rc = calc_fail(run, n, 3107, 0);
        } else {
            rc = calc_scale(run, n, n, scale, offset, SDF_REAL_T);
            if (rc < 3000) calc_set_units(run, n, dims);
        }
    } else {
        calc_set_units(run, n, nullptr);
    }
    if (text) Sdf_Free(text);
    return rc;
}

/* A slice begin..end (0-based, ranks in element 0) as an array value. */
int read_slice(CalcRun *run, CalcNode *n, const char *full, int type, int elen, const int64_t *begin,
               const int64_t *end)
{
    int64_t count = 1;
    for (int k = 1; k <= begin[0]; ++k) count *= end[k] - begin[k] + 1;
    int rc = calc_alloc_array(run, n, type, type == SDF_CHAR_T ? elen : 0, count, nullptr);
    if (rc) return rc;
    int64_t cnt = 0, od[8] = {0};
    if (type == SDF_CHAR_T) {
        char **pp = n->cdata;
        rc = Sdf_Read_Cslice64(run->channel, full, &pp, begin, end, nullptr, nullptr, &cnt, od);
        for (int64_t i = 0; i < count; ++i) n->cdata[i][elen] = 0;
    } else {
        void *p = n->data;
        rc = Sdf_Read_Slice64(run->channel, full, &p, begin, end, nullptr, nullptr, &cnt, od);
    }
    if (rc >= 3000) return chain(run, n, rc, type == SDF_CHAR_T ? "sdf_read_cslice" : "sdf_read_slice");
    if (cnt != count || od[0] < 1 || od[0] > 7) return calc_fail(run, n, 3111, 0);
    for (int k = 0; k <= od[0]; ++k) n->dimStore[k] = od[k];
    return apply_stored_units(run, n, full);
}

int read_variable(CalcRun *run, CalcNode *n, const char *full, int nsubs)
{
    const int ch = run->channel;
    int type = 0, isArr = 0;
    if (Sdf_Get_Type(ch, full, &type, &isArr) >= 3000) return chain(run, n, 3000, "sdf_get_slot");
    int64_t dims[8] = {0};
    if (nsubs) {
        if (!isArr) return calc_fail_text(run, n, 3012, full);
        Sdf_Get_Dims64(ch, full, dims);
        if (dims[0] != nsubs) return calc_fail_text(run, n, 3022, "dimensions");
        for (int k = 1; k <= nsubs; ++k)
            if (n->dims[k] < 0 || n->dimsEnd[k] >= dims[k]) return calc_fail(run, n, 3111, 0);
        int64_t begin[8], end[8], cnt = 0, od[8];
        for (int k = 0; k <= nsubs; ++k) begin[k] = n->dims[k], end[k] = n->dimsEnd[k];
        begin[0] = end[0] = nsubs;
        int elen = 0;
        Sdf_Get_Elen(ch, full, &elen);
        if (n->sliced) return read_slice(run, n, full, type, elen, begin, end);
        if (type == SDF_CHAR_T) {
            std::string buf((size_t)elen + 1, '\0');
            char *ptrs[1] = {&buf[0]};
            char **pp = ptrs;
            if (Sdf_Read_Cslice64(ch, full, &pp, begin, begin, nullptr, nullptr, &cnt, od) >= 3000)
                return chain(run, n, 3000, "sdf_read_cslice");
            calc_set_scalar(n, SDF_CHAR_T);
            n->cvalue = ZU_memlinkStrDup(&run->pool, buf.c_str());
            n->strLen = n->cvalue ? (int32_t)strlen(n->cvalue) : 0;
        } else {
            calc_set_scalar(n, type);
            void *p = n->data;
            if (Sdf_Read_Slice64(ch, full, &p, begin, begin, nullptr, nullptr, &cnt, od) >= 3000)
                return chain(run, n, 3000, "sdf_read_slice");
        }
        n->dims = n->dimStore;
        n->dimStore[0] = 1;
        n->dimStore[1] = 1;
        return apply_stored_units(run, n, full);
    }
    if (isArr && type != SDF_CHAR_T && calc_cache_take(run, n, full)) return apply_stored_units(run, n, full);
    if (isArr) {
        Sdf_Get_Dims64(ch, full, dims);
        const int64_t count = Sdf_Num_Elem64(dims);
        if (count <= 0) return calc_fail_text(run, n, 3021, full);
        int elen = 0;
        Sdf_Get_Elen(ch, full, &elen);
        int rc = calc_alloc_array(run, n, type, type == SDF_CHAR_T ? elen : 0, count, dims);
        if (rc) return rc;
        int64_t start[8] = {0}, nread = 0;
        if (type == SDF_CHAR_T) {
            char **pp = n->cdata;
            rc = Sdf_Read_Carray64(ch, full, &pp, start, count, &nread);
            for (int64_t i = 0; i < count; ++i) n->cdata[i][elen] = 0;
        } else {
            void *p = n->data;
            rc = Sdf_Read_Array64(ch, full, &p, start, count, &nread);
        }
        if (rc >= 3000) return chain(run, n, rc, "sdf_read_array");
        calc_cache_offer(run, n, full);
    } else if (type == SDF_CHAR_T) {
        char *text = nullptr;
        int len = 0;
        if (Sdf_Get_Cval(ch, full, &text, &len) >= 3000) return chain(run, n, 3000, "sdf_get_cval");
        calc_set_scalar(n, SDF_CHAR_T);
        n->cvalue = ZU_memlinkStrDup(&run->pool, text ? text : "");
        n->strLen = n->cvalue ? (int32_t)strlen(n->cvalue) : 0;
        if (text) Sdf_Free(text);
    } else {
        calc_set_scalar(n, type == SDF_LOG_T ? SDF_INT_T : type);
        if (Sdf_Get_Val(ch, full, n->data) >= 3000) return chain(run, n, 3000, "sdf_get_val");
    }
    return apply_stored_units(run, n, full);
}

} // namespace

int calc_read_var(CalcRun *run, CalcNode *n, const char *full) { return read_variable(run, n, full, 0); }

int calc_double_array_at(CalcRun *run, const CalcNode *n, CalcArrayAt *at)
{
    if (n->kind != CALC_OPERAND || n->type != 2 || n->left || n->right || !n->name) return false;
    std::string full;
    bool found = false;
    if (!resolve_quiet(run, n->name, false, full, &found, nullptr) || !found) return false;
    const int ch = run->channel;
    int type = 0, isArr = 0;
    if (Sdf_Get_Type(ch, full.c_str(), &type, &isArr) >= 3000 || type != SDF_DBLE_T || !isArr) return false;
    if (Sdf_Get_Dims64(ch, full.c_str(), at->dims) >= 3000 || Sdf_Num_Elem64(at->dims) <= 0) return false;
    void *p = nullptr;
    if (Sdf_Where_Chan(ch, full.c_str(), &p) >= 3000 || !p) return false;
    at->data = static_cast<const double *>(p);
    at->count = Sdf_Num_Elem64(at->dims);
    at->scale = 1;
    at->offset = 0;
    at->units[0] = 0;
    at->hasUnits = 0;
    char *text = nullptr;
    Sdf_Get_Units(ch, full.c_str(), &text);
    bool ok = true;
    if (text && *text) {
        ok = ZU_unitParse(text, at->units, &at->scale, &at->offset) == 0;
        at->hasUnits = 1;
    }
    if (text) Sdf_Free(text);
    return ok;
}

int calc_read_name(CalcRun *run, CalcNode *n)
{
    int nsubs = 0, rc;
    if (n->right) {
        if (n->right->kind != CALC_GROUP) return calc_fail(run, n, 3109, 0);
        if ((rc = subscripts(run, n, &nsubs)) >= 3000) return rc;
        if (nsubs == 0) return calc_fail(run, n, 3111, 0);
    }
    std::string full;
    bool found = false;
    rc = resolve(run, n, false, full, &found);
    if (rc >= 3000) {
        if (!run->badVarIsChar) return rc;
    } else if (found) {
        n->handle = n;
        return read_variable(run, n, full.c_str(), nsubs);
    } else {
        double v;
        if (!nsubs && calc_constant(n->name, &v)) {
            calc_set_scalar(n, SDF_DBLE_T);
            n->dvalue = v;
            return 0;
        }
        const char *d1 = sdf_opt_text(run->f, SDF_OPT_CALC_DEFAULT_1_PREFIX);
        if (!nsubs && d1 && *d1 && !strncmp(n->name, d1, strlen(d1))) {
            calc_set_scalar(n, SDF_INT_T);
            n->ivalue = 1;
            calc_set_units(run, n, nullptr);
            return calc_write(run, n, full.c_str(), 0);
        }
        if (!run->badVarIsChar) return calc_fail_text(run, n, 3010, full.c_str());
    }
    if (nsubs) return calc_fail(run, n, 3102, 0);
    /* An unknown name stands for its own text; the failure is dropped. */
    calc_set_scalar(n, SDF_CHAR_T);
    n->cvalue = n->name;
    n->strLen = (int32_t)strlen(n->name);
    calc_set_units(run, n, nullptr);
    if (run->code >= 3000) run->code = 0;
    return 0;
}

int calc_write(CalcRun *run, CalcNode *n, const char *name, int handOver)
{
    const int ch = run->channel;
    calc_cache_forget(run);
    if (exists(run, name) && Sdf_Delete(ch, name) >= 3000) return chain(run, n, 3000, "sdf_delete");
    const char *units = n->units && *n->units ? n->units : nullptr;
    int rc;
    if (n->isArray && handOver && n->owned && n->type != SDF_CHAR_T) {
        void *block = n->data;
        rc = sdf_adopt_array(ch, name, n->type, n->dims, units, &block, calc_block_bytes(run, n->data));
        if (!block) {
            /* The library holds the block now (and has freed it again if the
             * define failed after taking it); the node lets go of it. */
            calc_block_given(run, n->data);
            n->owned = 0;
            calc_set_scalar(n, n->type);
        }
        if (rc >= 3000) return chain(run, n, rc, "sdf_define_array");
        if (!block) return 0;
        int64_t start[8] = {0};
        start[0] = n->dims[0];
        return chain(run, n, Sdf_Write_Array64(ch, name, n->data, start, n->count), "sdf_write_array");
    }
    if (n->isArray) {
        rc = Sdf_Define_Array64(ch, name, n->type, n->type == SDF_CHAR_T ? (n->strLen > 0 ? n->strLen : 1) : 0,
                                n->dims, units, nullptr);
        if (rc >= 3000) return chain(run, n, rc, "sdf_define_array");
        int64_t start[8] = {0};
        start[0] = n->dims[0]; /* from the first element, not appended */
        if (n->type == SDF_CHAR_T) {
            rc = Sdf_Write_Carray64(ch, name, n->cdata, start, n->count);
            return chain(run, n, rc, "sdf_write_carray");
        }
        rc = Sdf_Write_Array64(ch, name, n->data, start, n->count);
        return chain(run, n, rc, "sdf_write_array");
    }
    if (n->type == SDF_CHAR_T) {
        rc = Sdf_Write_Char(ch, name, n->cvalue ? n->cvalue : "", nullptr);
        if (rc < 3000 && units) rc = Sdf_Put_Units(ch, name, units);
        return chain(run, n, rc, "sdf_write_char");
    }
    rc = Sdf_Write_Var(ch, name, n->type, n->data, units, nullptr);
    return chain(run, n, rc, "sdf_write_var");
}

/* ------------------------------------------------------------ assignment */

namespace {

/* Brings value v into the units `leftText` (a user's unit text, may be
 * null): *stored gets the units text to store. 0, 3107 or 3108. */
int into_units(CalcRun *run, CalcNode *op, CalcNode *v, const char *leftText, const char **stored)
{
    *stored = v->units;
    if (!leftText || !*leftText) return 0;
    *stored = leftText;
    if (!v->units) return 0;
    char ld[ZU_UNIT_DIMS_SIZE];
    double ls = 1, lo = 0;
    if (ZU_unitParse(leftText, ld, &ls, &lo)) return calc_fail(run, op, 3107, 1);
    if (strcmp(ld, v->units)) return calc_fail_units(run, op, leftText, v->units);
    if (ls == 1 && lo == 0) return 0;
    if (ls == 0) return calc_fail(run, op, 3107, 1);
    return calc_scale(run, op, v, 1 / ls, -lo / ls, SDF_REAL_T);
}

/* An assignment whose value nothing reads: an item of the text itself. */
bool value_unused(const CalcNode *op)
{
    for (const CalcNode *p = op->parent; p; p = p->parent)
        if (p->kind != CALC_COMMA) return false;
    return true;
}

struct Lhs {
    CalcNode *id = nullptr;
    int cast = 0;
    const char *units = nullptr;
    int nsubs = 0;
    bool hasSubs = false;
};

int read_lhs(CalcRun *run, CalcNode *l, Lhs *out)
{
    for (;;) {
        if (!l) return calc_fail(run, nullptr, 3110, 0);
        if (l->kind == CALC_CAST) {
            if (l->ivalue < 0) return calc_fail(run, l, 3103, 0);
            if (l->ivalue == 0) return calc_fail(run, l, 3104, 0);
            out->cast = l->ivalue;
            l = l->right;
        } else if (l->kind == CALC_UNITS) {
            if (run->table) return calc_fail(run, l, 3133, 0);
            out->units = l->units;
            l = l->left;
        } else
            break;
    }
    if (l->kind != CALC_OPERAND || l->type != 2 || l->left) return calc_fail(run, l, 3110, 0);
    out->id = l;
    l->lhs = 1;
    if (l->right) {
        if (l->right->kind != CALC_GROUP) return calc_fail(run, l, 3110, 0);
        out->hasSubs = true;
        int rc = subscripts(run, l, &out->nsubs);
        if (rc >= 3000) return rc;
        if (out->nsubs == 0) return calc_fail(run, l, 3111, 0);
    }
    return 0;
}

/* _$INDEX: an SDF_INT_T array of rank 1 holding the target's rank and then
 * one 1-based subscript per dimension makes a scalar assignment to a plain
 * array name go to that element. True when it applies (id->dims set). */
bool index_from_channel(CalcRun *run, CalcNode *id, int rank)
{
    int pos = 0;
    if (!sdf_find_var(run->f, "_$INDEX", &pos)) return false;
    int type = 0, arr = 0;
    int64_t d[8] = {0};
    if (Sdf_Get_Type(run->channel, "_$INDEX", &type, &arr) >= 3000 || type != SDF_INT_T || !arr) return false;
    if (Sdf_Get_Dims64(run->channel, "_$INDEX", d) >= 3000 || d[0] != 1 || d[1] <= rank || rank > 7) return false;
    int32_t vals[8];
    void *p = vals;
    int64_t start[8] = {0}, nread = 0;
    if (Sdf_Read_Array64(run->channel, "_$INDEX", &p, start, rank + 1, &nread) >= 3000 || nread != rank + 1 ||
        vals[0] != rank)
        return false;
    id->dims = id->dimStore;
    id->dimsEnd = id->dimEndStore;
    id->dimStore[0] = id->dimEndStore[0] = rank;
    for (int k = 1; k <= rank; ++k) id->dimStore[k] = id->dimEndStore[k] = (int64_t)vals[k] - 1;
    id->indexed = 1;
    id->sliced = 0;
    return true;
}

/* Writes v into the slice id->dims..id->dimsEnd of an existing array: a
 * scalar fills it, an array must have as many elements. */
int write_slice(CalcRun *run, CalcNode *op, CalcNode *id, CalcNode *v, const char *name, bool isArray,
                const int64_t *sdims, int stype)
{
    if (!isArray) return calc_fail_text(run, id, 3012, name);
    if (sdims[0] != id->dims[0]) return calc_fail_text(run, id, 3022, "dimensions");
    int64_t count = 1;
    for (int k = 1; k <= id->dims[0]; ++k) {
        if (id->dims[k] < 0 || id->dimsEnd[k] >= sdims[k]) return calc_fail(run, id, 3111, 0);
        count *= id->dimsEnd[k] - id->dims[k] + 1;
    }
    if (v->isArray && v->count != count) return calc_fail(run, op, 3114, 0);
    int rc = calc_retype(run, op, v, stype, stype == SDF_CHAR_T ? v->strLen : 0);
    if (rc >= 3000) return rc;
    if (!v->isArray) {
        /* One value for the whole slice. */
        CalcNode fill = *v;
        fill.owned = 0;
        fill.data = nullptr;
        if ((rc = calc_alloc_array(run, &fill, v->type, v->strLen, count, nullptr))) return rc;
        for (int64_t i = 0; i < count; ++i) {
            if (v->type == SDF_CHAR_T) memcpy(fill.cdata[i], v->cvalue, (size_t)v->strLen + 1);
            else memcpy((char *)fill.data + i * calc_elem_size(v->type), v->data, (size_t)calc_elem_size(v->type));
        }
        rc = write_slice(run, op, id, &fill, name, isArray, sdims, stype);
        calc_release(run, &fill);
        return rc;
    }
    int64_t begin[8], end[8], cnt = 0;
    for (int k = 0; k <= id->dims[0]; ++k) begin[k] = id->dims[k], end[k] = id->dimsEnd[k];
    if (v->type == SDF_CHAR_T)
        return chain(run, op, Sdf_Write_Cslice64(run->channel, name, v->cdata, begin, end, nullptr, nullptr, &cnt),
                     "sdf_write_cslice");
    return chain(run, op, Sdf_Write_Slice64(run->channel, name, v->data, begin, end, nullptr, nullptr, &cnt),
                 "sdf_write_slice");
}

} // namespace

int calc_assign(CalcRun *run, CalcNode *op)
{
    CalcNode *v = op->right;
    calc_cache_forget(run);
    Lhs lhs;
    int rc = read_lhs(run, op->left, &lhs);
    if (rc >= 3000) return rc;
    CalcNode *id = lhs.id;
    std::string full;
    bool found = false;
    if ((rc = resolve(run, id, true, full, &found)) >= 3000) return rc;
    const char *name = full.c_str();
    const int ch = run->channel;
    const bool overwrite = sdf_opt_int(run->f, SDF_OPT_OVERWRITE) != 0;
    int stype = 0, sarr = 0;
    int64_t sdims[8] = {0};
    char *sunits = nullptr;
    if (found) {
        Sdf_Get_Type(ch, name, &stype, &sarr);
        if (sarr) Sdf_Get_Dims64(ch, name, sdims);
        Sdf_Get_Units(ch, name, &sunits);
    }
    std::string storedUnits = sunits ? sunits : "";
    if (sunits) Sdf_Free(sunits);
    if (!lhs.hasSubs && sarr && !v->isArray && index_from_channel(run, id, (int)sdims[0])) {
        lhs.hasSubs = true;
        lhs.nsubs = (int)sdims[0];
    }
    const bool keep = found && !overwrite;
    int T = keep ? stype : lhs.cast;
    if (calc_rank(v->type) == 0) return calc_fail(run, op, 3103, 2);
    if (T && (T == SDF_CHAR_T) != (v->type == SDF_CHAR_T)) return calc_fail(run, op, 3103, 2);
    if (keep) {
        if (lhs.cast && lhs.cast != stype) return calc_fail(run, id, 3112, 0);
        if (lhs.units && strcmp(lhs.units, storedUnits.c_str())) return calc_fail(run, id, 3113, 0);
        if (!sarr && (v->isArray || lhs.hasSubs)) return calc_fail(run, id, v->isArray ? 3115 : 3012, 0);
    }
    const char *left = lhs.units ? lhs.units : (found && !storedUnits.empty() ? storedUnits.c_str() : nullptr);
    const char *stored = nullptr;
    if ((rc = into_units(run, op, v, left, &stored)) >= 3000) return rc;
    if (T && (rc = calc_retype(run, op, v, T, T == SDF_CHAR_T ? v->strLen : 0)) >= 3000) return rc;
    const char *base = v->units;
    v->units = (char *)stored;
    if (!lhs.hasSubs && !keep) {
        rc = calc_write(run, v, name, value_unused(op));
    } else if (!lhs.hasSubs) {
        /* Existing variable kept: its type and shape stay. */
        if (!sarr) {
            rc = v->type == SDF_CHAR_T ? Sdf_Put_Cval(ch, name, v->cvalue) : Sdf_Put_Val(ch, name, v->data);
            rc = chain(run, op, rc, v->type == SDF_CHAR_T ? "sdf_put_cval" : "sdf_put_val");
        } else {
            int64_t start[8] = {0};
            start[0] = sdims[0];
            rc = v->type == SDF_CHAR_T ? Sdf_Write_Carray64(ch, name, v->cdata, start, v->count)
                                       : Sdf_Write_Array64(ch, name, v->data, start, v->count);
            rc = chain(run, op, rc, v->type == SDF_CHAR_T ? "sdf_write_carray" : "sdf_write_array");
        }
    } else if (id->sliced) {
        rc = write_slice(run, op, id, v, name, found && sarr, sdims, stype);
    } else if (!v->isArray) {
        if (!found) return calc_fail_text(run, id, 3012, name);
        if (!sarr) return calc_fail_text(run, id, 3012, name);
        if (sdims[0] != lhs.nsubs) return calc_fail_text(run, id, 3022, "dimensions");
        for (int k = 1; k <= lhs.nsubs; ++k)
            if (id->dims[k] < 0 || id->dims[k] >= sdims[k]) return calc_fail(run, id, 3111, 0);
        if (!keep && (rc = calc_retype(run, op, v, stype, stype == SDF_CHAR_T ? v->strLen : 0)) >= 3000)
            return rc;
        int64_t begin[8], cnt = 0;
        for (int k = 0; k <= lhs.nsubs; ++k) begin[k] = id->dims[k];
        if (v->type == SDF_CHAR_T) {
            char *ptrs[1] = {v->cvalue};
            rc = chain(run, op, Sdf_Write_Cslice64(ch, name, ptrs, begin, begin, nullptr, nullptr, &cnt),
                       "sdf_write_cslice");
        } else {
            rc = chain(run, op, Sdf_Write_Slice64(ch, name, v->data, begin, begin, nullptr, nullptr, &cnt),
                       "sdf_write_slice");
        }
    } else if (!keep) {
        /* A new array whose extents are the subscripts. */
        int64_t dims[8];
        dims[0] = lhs.nsubs;
        int64_t total = 1;
        for (int k = 1; k <= lhs.nsubs; ++k) {
            dims[k] = id->dims[k] + 1;
            if (dims[k] < 1) return calc_fail(run, id, 3111, 0);
            total = total * dims[k];
        }
        if (total < v->count) return calc_fail(run, op, 3114, 0);
        int64_t saved[8];
        memcpy(saved, v->dims, sizeof saved);
        memcpy(v->dimStore, dims, sizeof dims);
        v->dims = v->dimStore;
        const int64_t cnt = v->count;
        /* Define with the full extents, then write the values from the start. */
        if (found && Sdf_Delete(ch, name) >= 3000) return chain(run, op, 3000, "sdf_delete");
        rc = Sdf_Define_Array64(ch, name, v->type, v->type == SDF_CHAR_T ? (v->strLen > 0 ? v->strLen : 1) : 0,
                                dims, stored && *stored ? stored : nullptr, nullptr);
        if (rc >= 3000) return chain(run, op, rc, "sdf_define_array");
        int64_t start[8] = {0};
        start[0] = dims[0];
        rc = v->type == SDF_CHAR_T ? Sdf_Write_Carray64(ch, name, v->cdata, start, cnt)
                                   : Sdf_Write_Array64(ch, name, v->data, start, cnt);
        rc = chain(run, op, rc, "sdf_write_array");
        memcpy(v->dimStore, saved, sizeof saved);
    } else {
        if (sdims[0] != lhs.nsubs) return calc_fail_text(run, id, 3022, "dimensions");
        int64_t start[8], off = 0, stride = 1;
        for (int k = 0; k <= lhs.nsubs; ++k) start[k] = id->dims[k];
        for (int k = 1; k <= lhs.nsubs; ++k) {
            if (id->dims[k] < 0 || id->dims[k] >= sdims[k]) return calc_fail(run, id, 3111, 0);
            off += id->dims[k] * stride;
            stride *= sdims[k];
        }
        if (off + v->count > stride) return calc_fail(run, op, 3114, 0);
        rc = v->type == SDF_CHAR_T ? Sdf_Write_Carray64(ch, name, v->cdata, start, v->count)
                                   : Sdf_Write_Array64(ch, name, v->data, start, v->count);
        rc = chain(run, op, rc, v->type == SDF_CHAR_T ? "sdf_write_carray" : "sdf_array_write");
    }
    v->units = (char *)base;
    if (rc >= 3000) return rc;
    calc_move_value(op, v);
    return rc;
}

/* ------------------------------------------------------- table assignment */

int calc_table_assign(CalcRun *run, CalcNode *op)
{
    calc_cache_forget(run);
    CalcNode *L = op->left, *Rt = op->right;
    if (L->kind != CALC_TABLE || Rt->kind != CALC_TABLE) return calc_fail(run, op, 3103, 0);
    const int ch = run->channel;
    CalcNode *first;
    const int nl = calc_list(L, &first);
    if (nl < 2) return calc_fail(run, L, 3102, 0);
    std::string names[64];
    if (nl > 64) return calc_fail(run, L, 3102, 0);
    int types[64] = {0}, elens[64] = {0};
    std::string units[64];
    int k = 0;
    run->table = 1;
    for (CalcNode *c = first; c; c = c->next, ++k) {
        if (c->kind == CALC_CAST || c->kind == CALC_UNITS) {
            run->table = 0;
            return calc_fail(run, c, 3133, 0);
        }
        bool found = false;
        if (c->kind != CALC_OPERAND || c->type != 2) {
            run->table = 0;
            return calc_fail(run, c, 3110, 0);
        }
        int rc = resolve(run, c, true, names[k], &found);
        if (rc >= 3000) {
            run->table = 0;
            return rc;
        }
        c->name = ZU_memlinkStrDup(&run->pool, names[k].c_str());
        if (!found || c->right) {
            run->table = 0;
            if (k == 0 && found) return calc_fail(run, op, 3103, 1);
            return calc_fail(run, c, 3131, 0);
        }
        int arr = 0;
        Sdf_Get_Type(ch, names[k].c_str(), &types[k], &arr);
        if (k == 0 && (arr || types[k] != SDF_INT_T)) {
            run->table = 0;
            return calc_fail(run, op, 3103, 1);
        }
        if (k > 0) {
            int64_t d[8] = {0};
            if (arr) Sdf_Get_Dims64(ch, names[k].c_str(), d);
            if (!arr || d[0] != 1) {
                run->table = 0;
                return calc_fail(run, c, 3134, 0);
            }
            Sdf_Get_Elen(ch, names[k].c_str(), &elens[k]);
            char *u = nullptr;
            Sdf_Get_Units(ch, names[k].c_str(), &u);
            units[k] = u ? u : "";
            if (u) Sdf_Free(u);
        }
    }
    run->table = 0;
    int32_t counter = 0;
    if (Sdf_Get_Val(ch, names[0].c_str(), &counter) >= 3000) return chain(run, op, 3000, "sdf_get_val");
    int64_t r = counter < 1 ? -1 : (int64_t)counter - 2;
    CalcNode *vals;
    calc_list(Rt, &vals);
    int hi = 0, col = 0;
    for (CalcNode *v = vals; v; v = v->next) {
        int rc = calc_walk(run, v);
        if (rc >= 3000) return rc;
        if (rc > hi) hi = rc;
        if (v->isArray) return calc_fail(run, op, 3135, 0);
        if (col == 0) ++r;
        const int c = col + 1;
        const char *stored;
        if ((rc = into_units(run, op, v, units[c].empty() ? nullptr : units[c].c_str(), &stored)) >= 3000)
            return rc;
        if ((types[c] == SDF_CHAR_T) != (v->type == SDF_CHAR_T)) return calc_fail(run, op, 3103, 2);
        if ((rc = calc_retype(run, op, v, types[c], types[c] == SDF_CHAR_T ? v->strLen : 0)) >= 3000) return rc;
        int64_t start[2] = {1, r};
        if (types[c] == SDF_CHAR_T) {
            char *ptrs[1] = {v->cvalue};
            rc = chain(run, op, Sdf_Write_Carray64(ch, names[c].c_str(), ptrs, start, 1), "sdf_write_carray");
        } else {
            rc = chain(run, op, Sdf_Write_Array64(ch, names[c].c_str(), v->data, start, 1), "sdf_array_write");
        }
        if (rc >= 3000) return rc;
        col = (col + 1) % (nl - 1);
    }
    int32_t next = (int32_t)(r + 2);
    if (Sdf_Put_Val(ch, names[0].c_str(), &next) >= 3000) return chain(run, op, 3000, "sdf_put_val");
    calc_set_scalar(op, SDF_INT_T);
    op->ivalue = next;
    return hi;
}
