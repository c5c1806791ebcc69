/* Routines the calculator's core files share among themselves; the
 * intrinsic functions see only calc_inner.h.
 *
 * Parsing builds the tree in the run's pool; evaluation fills each node's
 * value; the entry points own the run. A code of 3000 or more returned by
 * any of these has been reported already. */
#ifndef CALC_CORE_H
#define CALC_CORE_H

#include "calc_inner.h"

/* Parses run->text into a tree: lexing, classification, folding and parent
 * links. *root gets the root (null for an empty text). 0 or 3100 / 3102 /
 * 3130, reported from Sdf_Calc. */
int calc_parse(CalcRun *run, CalcNode **root);

/* The type named by a cast's identifier (SDF_CHAR_T ...), 0 for none. */
int calc_type_by_name(const char *name);
/* The value of a constant (M_PI ...) by its exact name; 0 when there is
 * none, 1 with *value set. */
int calc_constant(const char *name, double *value);

/* Evaluates a node and its subtree (right side); the value lands in it. */
int calc_walk(CalcRun *run, CalcNode *node);
/* Flattens the list under a bracket node (its left) into a vector of item
 * nodes, chained by next; returns the count, *first the head. */
int calc_list(CalcNode *bracket, CalcNode **first);
/* Unary and binary operators on evaluated operands; the result goes into op. */
int calc_unary(CalcRun *run, CalcNode *op);
int calc_binary(CalcRun *run, CalcNode *op);
/* Truth of a value: any element non-zero (non-empty for text). */
int calc_truth(const CalcNode *node);

/* Right-side name: resolves and reads the variable (or element, constant,
 * default, text) into node. */
int calc_read_name(CalcRun *run, CalcNode *node);
/* Reads the variable of full name `full` (no prefix applied) into node,
 * units included. */
int calc_read_var(CalcRun *run, CalcNode *node, const char *full);
/* A double array of the channel where it stays, for reading in place. */
typedef struct CalcArrayAt {
    const double *data; /* valid until the channel next changes */
    int64_t dims[8];
    int64_t count;
    double scale, offset;           /* stored units into base units */
    char units[ZU_UNIT_DIMS_SIZE];  /* base-unit dimension text */
    int hasUnits;                   /* stored units given (units valid) */
} CalcArrayAt;
/* Fills *at when node is a right-side identifier without subscripts that
 * names a double array of the channel with readable units; false, quietly,
 * for anything else (the walk then reads it as usual). 1 when filled. */
int calc_double_array_at(CalcRun *run, const CalcNode *node, CalcArrayAt *at);
/* Elementwise arithmetic in one pass: evaluates op (an arithmetic
 * operator, or a name alone) when its subtree qualifies (see calc_fused.cpp)
 * and returns its code; CALC_NOT_FUSED when it doesn't, having changed
 * nothing. */
enum { CALC_NOT_FUSED = -1 };
int calc_fused(CalcRun *run, CalcNode *op);
/* d[i] = d[i] * scale + offset over count doubles, on every core when
 * there are many. */
void calc_scale_doubles(double *d, int64_t count, double scale, double offset);
/* Units of the result of binary op over a and b (null: none), as the
 * operator combines them. 0, or a code reported (3105, 3107, 3108). */
int calc_combine_units(CalcRun *run, CalcNode *op, CalcNode *a, CalcNode *b, const char **out, int *has);

/* Assignment node: right side evaluated already. */
int calc_assign(CalcRun *run, CalcNode *op);
/* Table assignment {% ... %} = {% ... %}. */
int calc_table_assign(CalcRun *run, CalcNode *op);
/* Writes node's value as variable `name` (replacing one there), with its
 * units. With handOver, an array block the node owns may become the
 * variable's buffer instead of being copied: the node is then left without
 * a value, so pass it only when nothing reads the node afterwards. 0 or
 * 3150 reported. */
int calc_write(CalcRun *run, CalcNode *node, const char *name, int handOver);
/* Raises the elements of node by scale and offset (to at least `floor`
 * type): element * scale + offset. */
int calc_scale(CalcRun *run, CalcNode *op, CalcNode *node, double scale, double offset, int floor);

/* User functions: the row of a name (-1 none), the call. */
int calc_user_find(const char *name);
int calc_user_call(CalcRun *run, CalcNode *fn, CalcNode *args, int nargs);

/* Operator name for messages: {%..%}, (typecast), [units] or "token". */
const char *calc_op_name(CalcRun *run, const CalcNode *op);
/* 3103/3104/3005... with a plain text argument (3123: what). */
int calc_fail_text(CalcRun *run, CalcNode *op, int code, const char *what);

/* Shared reads: a numeric array named more than once in the text is read
 * from the channel once; every read gets the same block without owning it,
 * and the run frees it at its end. calc_cache_count counts the names of a
 * parsed tree; calc_cache_take gives node the kept value of `full` (1) or
 * nothing (0); calc_cache_offer keeps a freshly read node's block for the
 * later reads; calc_cache_forget drops every kept value (after any write to
 * the channel). calc_own makes node's array storage its own (a copy when it
 * is shared): any code that changes elements in place calls it first. */
void calc_cache_count(CalcRun *run, const CalcNode *root);
int calc_cache_take(CalcRun *run, CalcNode *node, const char *full);
void calc_cache_offer(CalcRun *run, CalcNode *node, const char *full);
void calc_cache_forget(CalcRun *run);
int calc_own(CalcRun *run, CalcNode *node);

/* Bytes of an array block the run holds (0 for anything else), and the
 * run's letting go of a block a variable has taken over. */
size_t calc_block_bytes(CalcRun *run, const void *block);
void calc_block_given(CalcRun *run, void *block);

/* Frees every array block the run still holds. */
void calc_run_free_blocks(CalcRun *run);

#endif
