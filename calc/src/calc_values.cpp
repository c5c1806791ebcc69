/* Values of calculator nodes: types and ranks, scalar fields and array
 * blocks, conversion between types, element access as doubles, failures and
 * the range check.
 *
 * Invariants: a scalar never allocates (its storage is the node's own
 * field); every array block is listed in the run until it is freed, so the
 * run's end frees whatever a failure left behind; conversions of doubles to
 * integers are held to the target's range (no undefined behaviour). */
#include <math.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <new>
#include <string>
#include <unordered_map>

#include "calc_core.h"

/* A numeric array read from the channel and kept for the later reads of the
 * same name in the run: `uses` counts the reads still to come. */
struct CalcCached {
    void *block;
    int type;
    int64_t count;
    int64_t dims[8];
    int uses;
};

struct CalcBlocks {
    std::unordered_map<void *, size_t> live; /* block: its bytes */
    std::unordered_map<std::string, int> uses; /* identifier occurrences */
    std::unordered_map<std::string, CalcCached> cache;
};

static CalcBlocks *blocks_of(CalcRun *run)
{
    if (!run->blocks) run->blocks = new (std::nothrow) CalcBlocks;
    return run->blocks;
}

static const char *const kTag = "Sdf_Calc:alloc_array:ptr";

int calc_rank(int type)
{
    switch (type) {
    case SDF_CHAR_T: return 1;
    case SDF_LOG_T: return 2;
    case SDF_INT_T: return 3;
    case SDF_INT64_T: return 4;
    case SDF_REAL_T: return 5;
    case SDF_DBLE_T: return 6;
    case SDF_CMPX_T: return 7;
    case SDF_DCMPX_T: return 8;
    default: return 0;
    }
}

int calc_type_of_rank(int rank)
{
    static const int types[] = {0, SDF_CHAR_T, SDF_LOG_T, SDF_INT_T, SDF_INT64_T,
                                SDF_REAL_T, SDF_DBLE_T, SDF_CMPX_T, SDF_DCMPX_T};
    return rank >= 1 && rank <= 8 ? types[rank] : 0;
}

int calc_elem_size(int type)
{
    switch (type) {
    case SDF_LOG_T:
    case SDF_INT_T:
    case SDF_REAL_T: return 4;
    case SDF_INT64_T:
    case SDF_DBLE_T:
    case SDF_CMPX_T: return 8;
    case SDF_DCMPX_T: return 16;
    default: return 0;
    }
}

int calc_float_type(int type)
{
    return calc_rank(type) > calc_rank(SDF_INT64_T) ? type : SDF_DBLE_T;
}

void calc_set_views(CalcNode *n)
{
    n->cdata = static_cast<char **>(n->data);
    n->idata = static_cast<int32_t *>(n->data);
    n->ldata = static_cast<int64_t *>(n->data);
    n->fdata = static_cast<float *>(n->data);
    n->ddata = static_cast<double *>(n->data);
    n->cxdata = static_cast<float *>(n->data);
    n->dcxdata = static_cast<double *>(n->data);
}

static void *scalar_field(CalcNode *n, int type)
{
    switch (type) {
    case SDF_CHAR_T: return &n->cvalue;
    case SDF_LOG_T:
    case SDF_INT_T: return &n->ivalue;
    case SDF_INT64_T: return &n->lvalue;
    case SDF_REAL_T: return &n->fvalue;
    case SDF_DBLE_T: return &n->dvalue;
    case SDF_CMPX_T: return n->cxvalue;
    case SDF_DCMPX_T: return n->dcxvalue;
    default: return &n->dvalue;
    }
}

void calc_set_scalar(CalcNode *n, int type)
{
    n->type = type;
    n->isArray = 0;
    n->count = 1;
    n->owned = 0;
    n->dims = n->dimStore;
    n->dims[0] = 1;
    n->dims[1] = 1;
    n->data = scalar_field(n, type);
    calc_set_views(n);
}

static void forget_block(CalcRun *run, void *p)
{
    if (run->blocks) run->blocks->live.erase(p);
}

void calc_release(CalcRun *run, CalcNode *n)
{
    if (n->owned && n->data) {
        forget_block(run, n->data);
        ZU_freeMem(n->data);
    }
    n->owned = 0;
    n->data = nullptr;
    calc_set_views(n);
}

/* A block for count elements of type; CHAR: pointers then texts. */
static void *new_block(CalcRun *run, CalcNode *op, int type, int strLen, int64_t count)
{
    size_t bytes;
    if (type == SDF_CHAR_T) {
        bytes = (size_t)count * (sizeof(char *) + (size_t)strLen + 1);
    } else {
        /* Whole chunks of the channel, so a result can become a variable's
         * buffer as it is (calc_write). */
        const size_t cs = run->f && run->f->file->hdr->chunk_size > 0 ? (size_t)run->f->file->hdr->chunk_size : 1;
        bytes = ((size_t)count * (size_t)calc_elem_size(type) + cs - 1) / cs * cs;
    }
    if (!bytes) bytes = 8;
    blocks_of(run);
    void *p = run->blocks ? ZU_allocMemNoZero(bytes, kTag) : nullptr;
    if (p) {
        try {
            run->blocks->live.emplace(p, bytes);
        } catch (...) {
            ZU_freeMem(p);
            p = nullptr;
        }
    }
    if (!p) {
        sdf_error("Sdf_Calc", 3025, op && op->name ? op->name : "Sdf_Calc:alloc_array:ptr");
        if (run->code < 3025) run->code = 3025;
        return nullptr;
    }
    if (type == SDF_CHAR_T) {
        char **ptrs = static_cast<char **>(p);
        char *texts = reinterpret_cast<char *>(ptrs + count);
        for (int64_t i = 0; i < count; ++i) {
            ptrs[i] = texts + i * ((int64_t)strLen + 1);
            ptrs[i][0] = 0;
            ptrs[i][strLen] = 0;
        }
    }
    return p;
}

int calc_alloc_array(CalcRun *run, CalcNode *n, int type, int strLen, int64_t count,
                     const int64_t *dims)
{
    void *p = new_block(run, n, type, strLen, count);
    if (!p) return 3025;
    calc_release(run, n);
    n->type = type;
    n->strLen = type == SDF_CHAR_T ? strLen : 0;
    n->isArray = 1;
    n->count = count;
    n->owned = 1;
    n->data = p;
    calc_set_views(n);
    n->dims = n->dimStore;
    if (dims && dims != n->dimStore) {
        for (int k = 0; k <= dims[0] && k < 8; ++k) n->dimStore[k] = dims[k];
    } else if (!dims) {
        n->dimStore[0] = 1;
        n->dimStore[1] = count;
    }
    return 0;
}

int calc_alloc_result(CalcRun *run, CalcNode *res, CalcNode *a, CalcNode *b, int type, int strLen)
{
    CalcNode *shape = a;
    if (b && (b->isArray && (!a->isArray || b->count > a->count))) shape = b;
    if (!shape->isArray) {
        /* The operands' values may sit in res's own fields (a unary op on
         * itself): keep them readable until the caller is done. */
        if (res->owned) calc_release(run, res);
        res->type = type;
        res->isArray = 0;
        res->count = 1;
        res->strLen = type == SDF_CHAR_T ? strLen : 0;
        res->dims = res->dimStore;
        res->dimStore[0] = 1;
        res->dimStore[1] = 1;
        res->data = scalar_field(res, type);
        calc_set_views(res);
        return 0;
    }
    int64_t dims[8];
    for (int k = 0; k < 8; ++k) dims[k] = shape->dims ? shape->dims[k] : 0;
    if (!shape->dims) {
        dims[0] = 1;
        dims[1] = shape->count;
    }
    const int64_t count = shape->count;
    if (shape != res && shape->owned && shape->type == type &&
        (type != SDF_CHAR_T || shape->strLen == strLen)) {
        /* Take the block over; the operand keeps its pointer for reading. */
        if (res->owned && res->data != shape->data) calc_release(run, res);
        res->data = shape->data;
        shape->owned = 0;
        res->owned = 1;
        res->type = type;
        res->strLen = type == SDF_CHAR_T ? strLen : 0;
        res->isArray = 1;
        res->count = count;
        res->dims = res->dimStore;
        for (int k = 0; k < 8; ++k) res->dimStore[k] = dims[k];
        calc_set_views(res);
        return 0;
    }
    if (shape == res && res->owned && res->type == type &&
        (type != SDF_CHAR_T || res->strLen == strLen))
        return 0;
    void *p = new_block(run, res, type, strLen, count);
    if (!p) return 3025;
    if (res->owned && res != a && res != b) calc_release(run, res);
    /* When res is an operand its old block stays readable: the caller frees
     * it through the operand's own release (not here). */
    res->owned = 1;
    res->data = p;
    res->type = type;
    res->strLen = type == SDF_CHAR_T ? strLen : 0;
    res->isArray = 1;
    res->count = count;
    res->dims = res->dimStore;
    for (int k = 0; k < 8; ++k) res->dimStore[k] = dims[k];
    calc_set_views(res);
    return 0;
}

void calc_move_value(CalcNode *dst, CalcNode *src)
{
    if (dst == src) return;
    dst->type = src->type;
    dst->isArray = src->isArray;
    dst->count = src->count;
    dst->strLen = src->strLen;
    dst->units = src->units;
    dst->hasUnits = src->hasUnits;
    dst->rangeLo = src->rangeLo;
    dst->rangeHi = src->rangeHi;
    dst->rangeLo64 = src->rangeLo64;
    dst->rangeHi64 = src->rangeHi64;
    for (int k = 0; k < 8; ++k) dst->dimStore[k] = src->dims ? src->dims[k] : src->dimStore[k];
    dst->dims = dst->dimStore;
    if (src->isArray) {
        dst->data = src->data;
        dst->owned = src->owned;
        src->owned = 0;
    } else {
        dst->cvalue = src->cvalue;
        dst->ivalue = src->ivalue;
        dst->lvalue = src->lvalue;
        dst->fvalue = src->fvalue;
        dst->dvalue = src->dvalue;
        memcpy(dst->cxvalue, src->cxvalue, sizeof dst->cxvalue);
        memcpy(dst->dcxvalue, src->dcxvalue, sizeof dst->dcxvalue);
        dst->owned = 0;
        dst->data = src->type > 0 ? scalar_field(dst, src->type) : nullptr;
    }
    calc_set_views(dst);
}

/* ------------------------------------------------------------- retype */

int calc_retype(CalcRun *run, CalcNode *op, CalcNode *n, int type, int strLen)
{
    if (n->type == type && (type != SDF_CHAR_T || strLen <= 0 || strLen == n->strLen)) return 0;
    if (type == SDF_CHAR_T && strLen <= 0) strLen = sdf_convert_width(run->f, n->type, SDF_CHAR_T);
    const int from = n->type;
    const int fromLen = n->strLen;
    if (!n->isArray) {
        /* Convert through a copy of the old field into the new one. */
        unsigned char old[16];
        const char *oldText = n->cvalue;
        memcpy(old, scalar_field(n, from == SDF_LOG_T ? SDF_INT_T : from), from == SDF_CHAR_T ? 0 : 16);
        int rc;
        if (type == SDF_CHAR_T) {
            char *text = static_cast<char *>(ZU_memlinkAlloc(&run->pool, (uint64_t)strLen + 1));
            if (!text) return calc_fail_text(run, op, 3025, "Sdf_Calc:retype");
            rc = sdf_convert(from, calc_elem_size(from), old, SDF_CHAR_T, strLen, text, 1, run->f);
            text[strLen] = 0;
            /* Trim the blanks a fixed-width conversion pads with. */
            for (int k = strLen - 1; k >= 0 && (text[k] == ' ' || text[k] == 0); --k) text[k] = 0;
            size_t lead = strspn(text, " ");
            memmove(text, text + lead, strlen(text + lead) + 1);
            n->cvalue = text;
            n->strLen = (int32_t)strlen(text);
        } else {
            unsigned char out[16] = {0};
            rc = from == SDF_CHAR_T
                     ? sdf_convert(SDF_CHAR_T, fromLen + 1, oldText ? oldText : "", type, 0, out, 1, run->f)
                     : sdf_convert(from, 0, old, type, 0, out, 1, run->f);
            calc_set_scalar(n, type);
            memcpy(n->data, out, (size_t)calc_elem_size(type));
            n->strLen = 0;
        }
        if (rc >= 3000) return calc_fail_text(run, op, 3150, "sdf_convert");
        calc_set_scalar(n, type);
        return 0;
    }
    void *p = new_block(run, op, type, strLen, n->count);
    if (!p) return 3025;
    int rc = 0;
    if (type == SDF_CHAR_T) {
        char **dst = static_cast<char **>(p);
        for (int64_t i = 0; i < n->count && rc < 3000; ++i) {
            const void *src = from == SDF_CHAR_T ? (const void *)n->cdata[i]
                                                 : (const void *)((const char *)n->data + i * calc_elem_size(from));
            rc = sdf_convert(from, from == SDF_CHAR_T ? fromLen + 1 : 0, src, SDF_CHAR_T, strLen, dst[i], 1, run->f);
            dst[i][strLen] = 0;
        }
    } else if (from == SDF_CHAR_T) {
        rc = sdf_convert(SDF_CHAR_T, fromLen + 1, n->cdata[0], type, 0, p, n->count, run->f);
    } else {
        rc = sdf_convert(from, 0, n->data, type, 0, p, n->count, run->f);
    }
    calc_release(run, n);
    n->data = p;
    n->owned = 1;
    n->type = type;
    n->strLen = type == SDF_CHAR_T ? strLen : 0;
    calc_set_views(n);
    if (rc >= 3000) return calc_fail_text(run, op, 3150, "sdf_convert");
    return 0;
}

/* ------------------------------------------------------ element access */

double calc_get_d(const CalcNode *n, int64_t i)
{
    switch (n->type) {
    case SDF_LOG_T:
    case SDF_INT_T: return n->idata[i];
    case SDF_INT64_T: return (double)n->ldata[i];
    case SDF_REAL_T: return n->fdata[i];
    case SDF_DBLE_T: return n->ddata[i];
    case SDF_CMPX_T: return n->cxdata[2 * i];
    case SDF_DCMPX_T: return n->dcxdata[2 * i];
    default: return 0;
    }
}

void calc_get_z(const CalcNode *n, int64_t i, double *re, double *im)
{
    *im = 0;
    if (n->type == SDF_CMPX_T) {
        *re = n->cxdata[2 * i];
        *im = n->cxdata[2 * i + 1];
    } else if (n->type == SDF_DCMPX_T) {
        *re = n->dcxdata[2 * i];
        *im = n->dcxdata[2 * i + 1];
    } else {
        *re = calc_get_d(n, i);
    }
}

static int32_t to_i32(double v)
{
    if (!(v == v)) return 0;
    if (v >= 2147483647.0) return INT32_MAX;
    if (v <= -2147483648.0) return INT32_MIN;
    return (int32_t)v;
}

static int64_t to_i64(double v)
{
    if (!(v == v)) return 0;
    if (v >= 9223372036854775807.0) return INT64_MAX;
    if (v <= -9223372036854775808.0) return INT64_MIN;
    return (int64_t)v;
}

static float to_f(double v)
{
    if (v > 3.4028234663852886e38) return INFINITY;
    if (v < -3.4028234663852886e38) return -INFINITY;
    return (float)v;
}

void calc_put_z(CalcNode *n, int64_t i, double re, double im)
{
    switch (n->type) {
    case SDF_LOG_T:
    case SDF_INT_T: n->idata[i] = to_i32(re); break;
    case SDF_INT64_T: n->ldata[i] = to_i64(re); break;
    case SDF_REAL_T: n->fdata[i] = to_f(re); break;
    case SDF_DBLE_T: n->ddata[i] = re; break;
    case SDF_CMPX_T:
        n->cxdata[2 * i] = to_f(re);
        n->cxdata[2 * i + 1] = to_f(im);
        break;
    case SDF_DCMPX_T:
        n->dcxdata[2 * i] = re;
        n->dcxdata[2 * i + 1] = im;
        break;
    default: break;
    }
}

void calc_put_d(CalcNode *n, int64_t i, double v) { calc_put_z(n, i, v, 0); }

/* --------------------------------------------------------------- units */

int calc_has_units(const char *u)
{
    if (!u) return 0;
    if (strchr(u, '$')) return 1;
    if (!strncmp(u, "rad", 3) || !strncmp(u, "sr", 2) || !strncmp(u, "Np", 2)) return 0;
    return 1;
}

int calc_units_equal(const char *a, const char *b)
{
    if (!a || !b) return !a && !b;
    return !strcmp(a, b);
}

void calc_set_units(CalcRun *run, CalcNode *n, const char *dims)
{
    n->units = dims ? ZU_memlinkStrDup(&run->pool, dims) : nullptr;
    n->hasUnits = calc_has_units(n->units);
}

int calc_unit_parse(CalcRun *run, CalcNode *op, int arg, const char *text, char *dims,
                    double *scale, double *offset)
{
    if (ZU_unitParse(text ? text : "", dims, scale, offset) != 0) return calc_fail(run, op, 3107, arg);
    return 0;
}

const char *calc_unit_formula(CalcRun *run, CalcNode *op, const char *fmt, ...)
{
    char text[1024];
    va_list ap;
    va_start(ap, fmt);
    int n = vsnprintf(text, sizeof text, fmt, ap);
    va_end(ap);
    char dims[ZU_UNIT_DIMS_SIZE];
    double scale = 1, offset = 0;
    if (n < 0 || n >= (int)sizeof text || ZU_unitParse(text, dims, &scale, &offset) != 0) {
        calc_fail(run, op, 3107, 0);
        return nullptr;
    }
    return ZU_memlinkStrDup(&run->pool, dims);
}

int calc_scale(CalcRun *run, CalcNode *op, CalcNode *n, double scale, double offset, int floor)
{
    if (scale == 1 && offset == 0) return 0;
    if (calc_own(run, n)) return 3025;
    if (calc_rank(n->type) < calc_rank(floor)) {
        int rc = calc_retype(run, op, n, floor, 0);
        if (rc >= 3000) return rc;
    }
    if (n->type == SDF_DBLE_T) {
        /* The common case, without the per-element type switch. */
        calc_scale_doubles(n->ddata, n->count, scale, offset);
        return 0;
    }
    const bool cx = n->type == SDF_CMPX_T || n->type == SDF_DCMPX_T;
    for (int64_t i = 0; i < n->count; ++i) {
        double re, im;
        calc_get_z(n, i, &re, &im);
        calc_put_z(n, i, re * scale + offset, cx ? im * scale : 0);
    }
    return 0;
}

/* ------------------------------------------------------------ failures */

const char *calc_op_name(CalcRun *run, const CalcNode *op)
{
    if (!op) return "\"\"";
    switch (op->kind) {
    case CALC_TABLE: return "{%..%}";
    case CALC_CAST: return "(typecast)";
    case CALC_UNITS: return "[units]";
    default: break;
    }
    std::string s = "\"";
    s += op->textHead ? op->textHead : (op->name ? op->name : "");
    s += "\"";
    const char *t = ZU_memlinkStrDup(&run->pool, s.c_str());
    return t ? t : "\"\"";
}

static int keep(CalcRun *run, int code)
{
    if (code > run->code) run->code = code;
    return code;
}

int calc_fail_text(CalcRun *run, CalcNode *op, int code, const char *what)
{
    static const char *R = "Sdf_Calc";
    const char *text = run->text ? run->text : "";
    switch (code) {
    case 3123: sdf_error(R, code, what, calc_op_name(run, op), text); break;
    case 3150: sdf_error(R, code, what, text); break;
    case 3103:
    case 3104: sdf_error(R, code, what, calc_op_name(run, op), text); break;
    case 3021:
    case 3025:
    case 3005: sdf_error(R, code, what); break;
    case 3022: sdf_error(R, code, what, op && op->name ? op->name : ""); break;
    case 3010:
    case 3012: sdf_error(R, code, what, run->channel, Sdf_Filename(run->channel)); break;
    default: sdf_error(R, code, what, text); break;
    }
    return keep(run, code);
}

int calc_fail(CalcRun *run, CalcNode *op, int code, int arg)
{
    static const char *R = "Sdf_Calc";
    const char *text = run->text ? run->text : "";
    const char *name = op && op->name ? op->name : "";
    char num[32] = "";
    switch (code) {
    case 3101:
    case 3109:
    case 3114:
    case 3130:
    case 3132:
    case 3135: sdf_error(R, code, text); break;
    case 3100:
    case 3102:
    case 3124:
    case 3133: sdf_error(R, code, code == 3133 || code == 3100 ? (op && op->textHead ? op->textHead : "") : calc_op_name(run, op), text); break;
    case 3103:
    case 3104:
        if (arg > 0) snprintf(num, sizeof num, " %d", arg);
        else if (arg < 0 && code == 3104) snprintf(num, sizeof num, "s");
        sdf_error(R, code, num, calc_op_name(run, op), text);
        break;
    case 3105:
    case 3106: sdf_error(R, code, arg, calc_op_name(run, op), text); break;
    case 3107:
        if (arg > 0) snprintf(num, sizeof num, "argument %d of ", arg);
        sdf_error(R, code, num, calc_op_name(run, op), text);
        break;
    case 3110: sdf_error(R, code, calc_op_name(run, op)); break;
    case 3111:
    case 3112:
    case 3113:
    case 3115:
    case 3131:
    case 3134: sdf_error(R, code, name, text); break;
    default: return calc_fail_text(run, op, code, name);
    }
    return keep(run, code);
}

int calc_fail_units(CalcRun *run, CalcNode *op, const char *a, const char *b)
{
    sdf_error("Sdf_Calc", 3108, a ? a : "", b ? b : "", calc_op_name(run, op), run->text ? run->text : "");
    return keep(run, 3108);
}

int calc_range(CalcRun *run, CalcNode *op, int arg, int64_t index, double *subst)
{
    *subst = run->rangeSubst;
    switch (run->rangeCheck) {
    case CALC_RANGE_WARNING:
        sdf_error("Sdf_Calc", 2104, run->text ? run->text : "", run->rangeSubstText,
                  (int)(index + 1 > INT32_MAX ? INT32_MAX : index + 1));
        return keep(run, 2104);
    case CALC_RANGE_IGNORE: return 0;
    default: return calc_fail(run, op, 3104, arg);
    }
}

size_t calc_block_bytes(CalcRun *run, const void *block)
{
    if (!run->blocks) return 0;
    auto it = run->blocks->live.find(const_cast<void *>(block));
    return it == run->blocks->live.end() ? 0 : it->second;
}

void calc_block_given(CalcRun *run, void *block) { forget_block(run, block); }

void calc_run_free_blocks(CalcRun *run)
{
    if (!run->blocks) return;
    for (auto &block : run->blocks->live) ZU_freeMem(block.first);
    delete run->blocks;
    run->blocks = nullptr;
}

/* ------------------------------------------------------ shared reads */

static void count_names(CalcBlocks *b, const CalcNode *n)
{
    for (; n; n = n->right) {
        if (n->kind == CALC_OPERAND && n->type == 2 && n->name) b->uses[n->name]++;
        count_names(b, n->left);
    }
}

void calc_cache_count(CalcRun *run, const CalcNode *root)
{
    CalcBlocks *b = blocks_of(run);
    if (!b) return;
    try {
        count_names(b, root);
    } catch (...) {
        b->uses.clear();
    }
}

int calc_cache_take(CalcRun *run, CalcNode *n, const char *full)
{
    CalcBlocks *b = run->blocks;
    if (!b || !n->name) return 0;
    auto it = b->cache.find(full);
    if (it == b->cache.end()) return 0;
    CalcCached &e = it->second;
    calc_release(run, n);
    n->type = e.type;
    n->isArray = 1;
    n->count = e.count;
    n->strLen = 0;
    n->dims = n->dimStore;
    memcpy(n->dimStore, e.dims, sizeof e.dims);
    n->data = e.block;
    /* Never owned by a reader, not even the last: an earlier reader's value
     * may still point into the block (an item's result, say). The block
     * stays on the live list and goes at the run's end. */
    n->owned = 0;
    if (--e.uses <= 0) b->cache.erase(it);
    calc_set_views(n);
    return 1;
}

void calc_cache_offer(CalcRun *run, CalcNode *n, const char *full)
{
    CalcBlocks *b = run->blocks;
    if (!b || !n->name || !n->owned || n->type == SDF_CHAR_T) return;
    auto u = b->uses.find(n->name);
    if (u == b->uses.end() || u->second < 2) return;
    try {
        CalcCached e{n->data, n->type, n->count, {0}, u->second - 1};
        memcpy(e.dims, n->dims, sizeof e.dims);
        b->cache[full] = e;
    } catch (...) {
        return;
    }
    n->owned = 0; /* the run holds it from now on, for every reader */
}

void calc_cache_forget(CalcRun *run)
{
    /* Blocks stay on the live list (a node may still read one); only the
     * entries go, so later reads see the channel as it is now. */
    if (run->blocks) run->blocks->cache.clear();
}

int calc_own(CalcRun *run, CalcNode *n)
{
    if (!n->isArray || n->owned || !n->data) return 0;
    const int strLen = n->type == SDF_CHAR_T ? n->strLen : 0;
    void *p = new_block(run, n, n->type, strLen, n->count);
    if (!p) return 3025;
    if (n->type == SDF_CHAR_T) {
        char **dst = static_cast<char **>(p);
        for (int64_t i = 0; i < n->count; ++i) memcpy(dst[i], n->cdata[i], (size_t)strLen + 1);
    } else {
        memcpy(p, n->data, (size_t)(n->count * calc_elem_size(n->type)));
    }
    n->data = p;
    n->owned = 1;
    calc_set_views(n);
    return 0;
}
