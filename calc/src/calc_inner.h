/* Inner records and services of the expression calculator (Sdf_Calc), shared
 * by the core (calc_*.cpp) and the intrinsic functions (calc_fn_*.cpp).
 *
 * A run parses one text into a tree of CalcNode from the run's pool, walks
 * it, and leaves each node's value in the node itself: type, isArray, count,
 * dims, the element storage behind `data` (with one typed view per element
 * type) and the units as a dimension text in base units.
 *
 * Invariants kept by every service below:
 *  - a scalar's storage is the node's own field (cvalue, ivalue, ...), never
 *    an allocation; `data` and the views point at that field;
 *  - an array's storage is one block owned by exactly one node (`owned` set)
 *    and listed in the run, so a failure anywhere frees it at the run's end;
 *  - a character value is `count` pointers (cdata) to texts of strLen + 1
 *    bytes; for an array pointers and texts are one block;
 *  - `units` null means no units (hasUnits 0); otherwise hasUnits is
 *    calc_has_units(units);
 *  - a failure is reported once, through calc_fail, and the code it returns
 *    is passed up unchanged; a code of 3000 or more stops the walk.
 *
 * These sources are compiled into the SDF library (see sdf/CMakeLists.txt),
 * so they may use its inner header. */
#ifndef CALC_INNER_H
#define CALC_INNER_H

#include <stddef.h>
#include <stdint.h>

#include "sdf_inner.h"
#include "zcalc.h"

/* Node kinds: operands and operators 0..29, intrinsic functions 30..64 in
 * the order of calc_fn_names, user functions 65. */
enum {
    CALC_OPERAND = 0,
    CALC_ARRAY = 1,   /* { */
    CALC_TABLE = 2,   /* {% */
    CALC_GROUP = 3,   /* ( */
    CALC_NOT = 4,
    CALC_UPLUS = 5,
    CALC_UMINUS = 6,
    CALC_CAST = 7,
    CALC_UNITS = 8,   /* [ ] */
    CALC_POW = 9,     /* ** */
    CALC_CARET = 10,  /* ^ */
    CALC_CONCAT = 11, /* // */
    CALC_MUL = 12,
    CALC_DIV = 13,
    CALC_MOD = 14,
    CALC_ADD = 15,
    CALC_SUB = 16,
    CALC_RANGE = 17,  /* .. */
    CALC_LT = 18,
    CALC_LE = 19,
    CALC_GT = 20,
    CALC_GE = 21,
    CALC_EQ = 22,
    CALC_NE = 23,
    CALC_AND = 24,
    CALC_OR = 25,
    CALC_ELSE = 26,   /* | */
    CALC_COND = 27,   /* ? */
    CALC_ASSIGN = 28,
    CALC_COMMA = 29,
    CALC_FN_FIRST = 30,
    CALC_FN_LAST = 64,
    CALC_USER_FN = 65,
    CALC_KINDS = 66
};

/* Number of intrinsic functions, and their names, sorted as ZU_strCaseCmp
 * sorts them: name k has kind CALC_FN_FIRST + k ("abs" 30 ... "tanh" 64). */
enum { CALC_FN_COUNT = CALC_FN_LAST - CALC_FN_FIRST + 1 };
extern const char *const calc_fn_names[CALC_FN_COUNT];

/* Options of a run, read once at its start. */
enum { CALC_RANGE_ERROR = 0, CALC_RANGE_WARNING = 1, CALC_RANGE_IGNORE = 2 };

typedef struct CalcNode CalcNode;
struct CalcNode {
    int32_t kind;
    int32_t priority;
    int32_t assoc; /* 1 left-associative, -1 right */
    int32_t type;  /* SDF base type; 0 unset; 2 unresolved identifier; -1/-2 range */
    int32_t isArray;
    int32_t subscripted; /* identifier followed by ( */
    int32_t sliced;      /* left side: a subscript is a range */
    int32_t indexed;     /* left side: element from _$INDEX */
    int64_t *dims;       /* [rank, d1..d7]; left side: first subscripts (0-based) */
    int64_t *dimsEnd;    /* left side: last subscripts (0-based) */
    int64_t count;       /* elements; 1 for a scalar */
    int32_t strLen;      /* characters of a character element, terminator excluded */
    int32_t hasUnits;
    char *name;          /* identifier */
    void *handle;        /* non-null when the variable exists in the channel */
    /* scalar storage */
    char *cvalue;
    int32_t ivalue; /* also SDF_LOG_T; for kind 65 the user function's row */
    int64_t lvalue;
    float fvalue;
    double dvalue;
    float cxvalue[2];
    double dcxvalue[2];
    int32_t rangeLo, rangeHi;
    int64_t rangeLo64, rangeHi64;
    /* views of the element storage, all equal to data */
    char **cdata;
    int32_t *idata; /* SDF_INT_T and SDF_LOG_T */
    int64_t *ldata;
    float *fdata;
    double *ddata;
    float *cxdata;   /* pairs */
    double *dcxdata; /* pairs */
    void *data;
    int32_t owned; /* data is an array block this node must free */
    int32_t lhs;   /* evaluated as a left side */
    char *units;   /* dimension text; in a [ node first the bracketed text */
    char *textHead;
    char *textTail;
    int64_t dimStore[8];    /* storage dims points at */
    int64_t dimEndStore[8]; /* storage dimsEnd points at */
    CalcNode *parent, *left, *right, *next;
};

/* One run of Sdf_Calc. Everything in it is local to the run. */
typedef struct CalcRun {
    ZU_MemLink pool;
    int channel;
    fcb *f;            /* the channel's control block: formats for sdf_convert */
    const char *text;  /* the expression as given */
    int code;          /* highest code so far */
    int argIndex;      /* argument number for the message, 0 none */
    const char *opName;
    int rangeCheck;    /* CALC_RANGE_* */
    double rangeSubst;
    char rangeSubstText[128];
    int badVarIsChar;
    int table;         /* inside a table's left side */
    struct CalcBlocks *blocks; /* array blocks alive in this run */
} CalcRun;

/* ----------------------------------------------------------- failures */

/* Reports `code` for node `op` with argument number `arg` (0 none; -1 the
 * plural form of 3104) in the shape the code's message needs: the operator's
 * name ({%..%}, (typecast), [units] or the token in quotes) and the whole
 * expression rebuilt from the tree. Raises it through the SDF error layer
 * from routine "Sdf_Calc", keeps the highest code in run->code and returns
 * code. For 3108 use calc_fail_units; for 3111-3115, 3131, 3134 and 3005 /
 * 3010 / 3012 the name is taken from op->name. */
int calc_fail(CalcRun *run, CalcNode *op, int code, int arg);
/* 3108: units a and b are incompatible for op. Returns 3108. */
int calc_fail_units(CalcRun *run, CalcNode *op, const char *a, const char *b);

/* One element without a value (divisor 0, a function outside its domain).
 * Under Calc_Range_Check Error: reports 3104 for op with argument `arg` (0
 * none, -1 plural) and returns 3104. Warning: raises 2104 with the rebuilt
 * text, Calc_Range_Subst and index + 1, stores the substitute in *subst and
 * returns 2104. Ignore: stores the substitute, returns 0. The caller stops
 * on 3000 or more, else puts *subst into the element (for complex: as the
 * real component, the imaginary one zero). */
int calc_range(CalcRun *run, CalcNode *op, int arg, int64_t index, double *subst);

/* ------------------------------------------------------ values and types */

/* Rank of a base type (1 CHAR .. 8 DCMPX), 0 for anything else; and back. */
int calc_rank(int type);
int calc_type_of_rank(int rank);
/* Bytes of one element of a non-character type (complex: both parts). */
int calc_elem_size(int type);
/* The floating result of a function: ranks above INT64 stay, LOG/INT/INT64
 * give SDF_DBLE_T. */
int calc_float_type(int type);

/* Makes node a scalar of `type` on its own field (no allocation); count 1,
 * isArray 0, views set. */
void calc_set_scalar(CalcNode *node, int type);
/* Points all views at node->data. */
void calc_set_views(CalcNode *node);

/* Storage for the result `res` of an operation on a (and b, may be null)
 * with element type `type` (strLen for CHAR). Shape by broadcasting: an
 * array if either operand is; count and dims from a if it is an array with
 * at least as many elements as b, else from b. A scalar result uses its own
 * field. An array result takes over the block of the operand that gave its
 * shape when that operand owns it, has the same type (and for CHAR the same
 * strLen) and is not res itself; otherwise a new block is allocated. The
 * operands' data pointers stay valid for reading until the caller frees
 * them with calc_release, so element i may be computed in place. 0 or 3025
 * (reported). */
int calc_alloc_result(CalcRun *run, CalcNode *res, CalcNode *a, CalcNode *b, int type, int strLen);
/* A fresh block for node: `count` elements of `type` (strLen for CHAR),
 * shape as given (dims may be null for rank 1). 0 or 3025 (reported). */
int calc_alloc_array(CalcRun *run, CalcNode *node, int type, int strLen, int64_t count,
                     const int64_t *dims);
/* Frees node's block if it owns one, and makes it an empty scalar. */
void calc_release(CalcRun *run, CalcNode *node);
/* Moves the value of src into dst (storage, shape, type, units); src is left
 * without storage. */
void calc_move_value(CalcNode *dst, CalcNode *src);

/* Converts node's elements to `type` (strLen for CHAR: 0 picks the width the
 * channel's formats give) with sdf_convert. Nothing when the type is the
 * same. 0, or 3025 / the conversion's code (reported against op). */
int calc_retype(CalcRun *run, CalcNode *op, CalcNode *node, int type, int strLen);

/* Element i of a non-character node as double, or as a complex pair. */
double calc_get_d(const CalcNode *node, int64_t i);
void calc_get_z(const CalcNode *node, int64_t i, double *re, double *im);
/* Stores a double (complex: re, im) into element i, converted to the node's
 * type (integers cut toward zero). */
void calc_put_d(CalcNode *node, int64_t i, double v);
void calc_put_z(CalcNode *node, int64_t i, double re, double im);

/* ------------------------------------------------------------ broadcasting */

#ifdef __cplusplus
/* Calls f(i, ia, ib) for every element i of res, with ia = i mod a->count
 * and ib = i mod b->count (b may be null: ib 0). Without divisions in the
 * usual cases (equal counts, a scalar side). Stops and returns the first
 * code of 3000 or more that f returns; else the highest code. */
template <class F>
int calc_broadcast(const CalcNode *res, const CalcNode *a, const CalcNode *b, F &&f)
{
    const int64_t n = res->count, na = a->count, nb = b ? b->count : 1;
    int worst = 0;
    auto step = [&](int64_t i, int64_t ia, int64_t ib) {
        int rc = f(i, ia, ib);
        if (rc > worst) worst = rc;
        return rc < 3000;
    };
    if (na == n && nb == n) {
        for (int64_t i = 0; i < n; ++i)
            if (!step(i, i, i)) break;
    } else if (na == n && nb == 1) {
        for (int64_t i = 0; i < n; ++i)
            if (!step(i, i, 0)) break;
    } else if (na == 1 && nb == n) {
        for (int64_t i = 0; i < n; ++i)
            if (!step(i, 0, i)) break;
    } else {
        int64_t ia = 0, ib = 0;
        for (int64_t i = 0; i < n; ++i) {
            if (!step(i, ia, ib)) break;
            if (++ia == na) ia = 0;
            if (++ib == nb) ib = 0;
        }
    }
    return worst;
}
#endif

/* ------------------------------------------------------------------ units */

/* 1 when a dimension text counts as dimensional: it contains '$', or it
 * doesn't start with "rad", "sr" or "Np"; 0 for those and for null. */
int calc_has_units(const char *units);
/* 1 when both are null or both are equal texts. */
int calc_units_equal(const char *a, const char *b);
/* Sets node->units to a pool copy of dims (null: none) and hasUnits. */
void calc_set_units(CalcRun *run, CalcNode *node, const char *dims);
/* Parses a unit text with ZU_unitParse into dims (ZU_UNIT_DIMS_SIZE bytes),
 * scale and offset. 0, or 3107 reported against op with argument arg. */
int calc_unit_parse(CalcRun *run, CalcNode *op, int arg, const char *text, char *dims,
                    double *scale, double *offset);
/* The dimension text of a unit formula built printf-style, e.g.
 * calc_unit_formula(run, op, "(%s)^0.5", units): a pool copy, or null with
 * 3107 reported. */
const char *calc_unit_formula(CalcRun *run, CalcNode *op, const char *fmt, ...)
    __attribute__((format(printf, 3, 4)));

/* ------------------------------------------------------------- functions */

/* Runs intrinsic function node fn (kind 30..64) over its evaluated
 * arguments: args is the first, chained by `next`, nargs of them. The
 * result goes into fn itself (type, shape, storage, units); argument
 * storage may be taken over with calc_alloc_result. Returns 0, 2104 or an
 * error code already reported with calc_fail / calc_range. Defined by the
 * function sources (calc_fn_*.cpp). */
int calc_call_intrinsic(CalcRun *run, CalcNode *fn, CalcNode *args, int nargs);

#endif
