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
/* Assignment node: right side evaluated already. */
int calc_assign(CalcRun *run, CalcNode *op);
/* Table assignment {% ... %} = {% ... %}. */
int calc_table_assign(CalcRun *run, CalcNode *op);
/* Writes node's value as variable `name` (replacing one there), with its
 * units. 0 or 3150 reported. */
int calc_write(CalcRun *run, CalcNode *node, const char *name);
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
 * from the channel once; the later reads get the same block without owning
 * it (the last one takes it over). calc_cache_count counts the names of a
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

/* Frees every array block the run still holds. */
void calc_run_free_blocks(CalcRun *run);

#endif
