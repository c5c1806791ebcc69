/* The SDF library's 33 options: the table of names and allowed values, the
 * read-only built-in block, the process's current block and stack, a
 * channel's own block and stack, setting options from text and reading them.
 *
 * Invariants:
 * - The built-in block is never written. A null current block means "the
 *   built-in block" for the process and "no block of its own" for a channel;
 *   a block to write is made only when something is set.
 * - Rows 0 to 7 (general) are read from the process whatever the channel;
 *   rows 8 and up from the channel's block when it has one.
 * - In a stack, level 0 holds the block in use at the first push (possibly
 *   null); every other level reached holds a block of its own, and blocks are
 *   kept when a level is left, so a level can be taken up again as it was.
 *   A channel's own_opts always equals its stack.current.
 * - The option mutex is a leaf: nothing that reports, allocates through a
 *   path that reports, or takes another lock runs while it is held, so
 *   failures are collected and reported after its release. */
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "sdf_inner.h"

namespace {

struct allowed {
    const char *text; /* "#" any number, "*" any text, "" ends the list */
    int value;
};

struct opt_def {
    const char *name;
    allowed values[5];
    const char *def;
};

constexpr allowed k_no_yes[5] = {{"No", 0}, {"Yes", 1}, {"", 0}, {"", 0}, {"", 0}};
constexpr allowed k_number[5] = {{"#", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}};
constexpr allowed k_text[5] = {{"*", 0}, {"", 0}, {"", 0}, {"", 0}, {"", 0}};
constexpr allowed k_when[5] = {{"On_Command", 0}, {"Always", 1}, {"", 0}, {"", 0}, {"", 0}};

#define SDF_YN(name, def) {name, {k_no_yes[0], k_no_yes[1], k_no_yes[2], k_no_yes[3], k_no_yes[4]}, def}
#define SDF_NUM(name, def) {name, {k_number[0], k_number[1], k_number[2], k_number[3], k_number[4]}, def}
#define SDF_TXT(name, def) {name, {k_text[0], k_text[1], k_text[2], k_text[3], k_text[4]}, def}
#define SDF_WHEN(name) {name, {k_when[0], k_when[1], k_when[2], k_when[3], k_when[4]}, "On_Command"}

/* In the order of the SDF_OPT_* numbers. */
constexpr opt_def k_table[SDF_NOPTS] = {
    SDF_YN("Thread_Safe", "No"),
    {"Error_Out", {{"None", 0}, {"ErrSet", 1}, {"StdErr", 2}, {"ErrSet&StdErr", 3}, {"", 0}}, "ErrSet"},
    SDF_YN("Case_Sensitive", "Yes"),
    {"Sex", {{"Native_Sex", 0}, {"BigEndian", 1}, {"LittleEndian", 2}, {"", 0}, {"", 0}}, "Native_Sex"},
    SDF_NUM("Default_Internal_Channel", "0"),
    SDF_NUM("Lock_Life_Hrs", "24"),
    SDF_YN("No_Read_Lock", "No"),
    {"Path_Encoding", {{"CP_ACP", 0}, {"CP_UTF8", 65001}, {"", 0}, {"", 0}, {"", 0}}, "CP_ACP"},
    SDF_YN("Overwrite", "Yes"),
    SDF_YN("Overwrite_Warn", "No"),
    SDF_YN("Copyself_Warn", "No"),
    SDF_YN("Delete_Warn", "Yes"),
    SDF_YN("Where_Mem_Error", "Yes"),
    SDF_WHEN("Write"),
    SDF_WHEN("Flush"),
    SDF_YN("Zero_Arrays", "No"),
    {"Calc_Try_NoPrefix", {{"Neither", 0}, {"RHS", 1}, {"LHS", 2}, {"Both", 3}, {"", 0}}, "Neither"},
    SDF_NUM("Max_Extra_Data_Chunks", "2048"),
    SDF_NUM("Max_Extra_Slot_Chunks", "128"),
    SDF_YN("Calc_BadVar_is_Char", "No"),
    {"Calc_Range_Check", {{"Error", 0}, {"Warning", 1}, {"Ignore", 2}, {"", 0}, {"", 0}}, "Error"},
    SDF_NUM("Calc_Range_Subst", "1"),
    SDF_TXT("SDF_INT_format", "%11d"),
    SDF_TXT("SDF_INT64_format", "%20lld"),
    SDF_TXT("SDF_LOG_True_format", "T"),
    SDF_TXT("SDF_LOG_False_format", "F"),
    SDF_TXT("SDF_REAL_format", "%# 13.7e"),
    SDF_TXT("SDF_DBLE_format", "%# 24.16e"),
    SDF_TXT("SDF_CMPX_format", "%# 13.7e,%# 13.7e"),
    SDF_TXT("SDF_DCMPX_format", "%# 24.16e,%# 24.16e"),
    SDF_TXT("Prefix", ""),
    SDF_TXT("Calc_Prefix", ""),
    SDF_TXT("Calc_Default_1_Prefix", ""),
};
#undef SDF_YN
#undef SDF_NUM
#undef SDF_TXT
#undef SDF_WHEN

constexpr size_t k_text_max = sizeof(sdf_optval{}.text) - 1;
constexpr int k_level_step = 32;

bool is_number_row(int row) { return strcmp(k_table[row].values[0].text, "#") == 0; }
bool is_text_row(int row) { return strcmp(k_table[row].values[0].text, "*") == 0; }

void set_text(sdf_optval &v, const char *text)
{
    size_t n = std::min(strlen(text), k_text_max);
    memcpy(v.text, text, n);
    v.text[n] = 0;
}

/* The allowed keyword matching text (without regard to case), or null. */
const allowed *find_keyword(int row, const char *text)
{
    for (const allowed &a : k_table[row].values)
        if (a.text[0] && ZU_strCaseCmp(a.text, text) == 0)
            return &a;
    return nullptr;
}

sdf_optblock make_defaults()
{
    sdf_optblock b{};
    for (int row = 0; row < SDF_NOPTS; ++row) {
        sdf_optval &v = b.v[row];
        set_text(v, k_table[row].def);
        if (is_number_row(row)) {
            v.dval = strtod(k_table[row].def, nullptr);
            v.fval = static_cast<float>(v.dval);
            v.ival = static_cast<int32_t>(v.dval);
        } else if (is_text_row(row)) {
            v.ival = static_cast<int32_t>(strlen(v.text));
        } else {
            v.ival = find_keyword(row, k_table[row].def)->value;
            v.fval = static_cast<float>(v.ival);
            v.dval = v.ival;
        }
    }
    return b;
}

const sdf_optblock &builtin()
{
    static const sdf_optblock block = make_defaults();
    return block;
}

/* The process's options; current null means the built-in block. */
sdf_optstack g_proc{};

const sdf_optblock *proc_block() { return g_proc.current ? g_proc.current : &builtin(); }

const sdf_optval *value_of(const fcb *f, int opt)
{
    static const sdf_optval none{};
    if (opt < 0 || opt >= SDF_NOPTS)
        return &none;
    if (f && f->own_opts && opt >= SDF_NGENERAL_OPTS)
        return &f->own_opts->v[opt];
    return &proc_block()->v[opt];
}

int find_row(const char *name)
{
    for (int row = 0; row < SDF_NOPTS; ++row)
        if (name && ZU_strCaseCmp(k_table[row].name, name) == 0)
            return row;
    return -1;
}

/* A failure found under the option mutex, reported after its release. */
struct failure {
    int code;
    std::string a;
    std::string b;
};

/* Holds the option mutex for a scope. */
struct opt_guard {
    int taken = sdf_opt_lock();
    opt_guard() = default;
    opt_guard(const opt_guard &) = delete;
    opt_guard &operator=(const opt_guard &) = delete;
    ~opt_guard() { sdf_opt_unlock(taken); }
};

sdf_optblock *new_block(const sdf_optblock &from, const char *tag)
{
    auto *b = static_cast<sdf_optblock *>(ZU_allocMem(sizeof(sdf_optblock), tag));
    if (b)
        *b = from;
    return b;
}

/* The block that a set changes: the current level's, made from the built-in
 * block when there is none yet. Null when out of memory. */
sdf_optblock *writable_block(sdf_optstack *st)
{
    if (!st->current) {
        st->current = new_block(builtin(), "sdf_set_opts:opts");
        if (st->levels)
            st->levels[st->depth].block = st->current;
    }
    return st->current;
}

/* Applies one item to block b; 0 or the code of its failure. */
int apply_item(sdf_optblock *b, const ZU_Item &it, bool channel, failure &fail)
{
    int row = find_row(it.name);
    if (row < 0) {
        fail = {3060, it.name, ""};
        return fail.code;
    }
    if (channel && row < SDF_NGENERAL_OPTS) {
        fail = {3063, k_table[row].name, ""};
        return fail.code;
    }
    sdf_optval &v = b->v[row];
    if (it.type == ZU_ITEM_EMPTY || !it.text || !it.text[0]) {
        if (!is_text_row(row)) {
            fail = {3062, k_table[row].name, ""};
            return fail.code;
        }
        v = sdf_optval{};
        return 0;
    }
    if (is_number_row(row)) {
        if (it.type < ZU_ITEM_INT) {
            fail = {3061, it.text, k_table[row].name};
            return fail.code;
        }
        set_text(v, it.text);
        /* A number past 32 bits is held at the nearest bound rather than
         * read as 0. */
        v.ival = it.dvalue > INT32_MAX   ? INT32_MAX
                 : it.dvalue < INT32_MIN ? INT32_MIN
                                         : it.ivalue;
        v.fval = it.fvalue;
        v.dval = it.dvalue;
        return 0;
    }
    if (is_text_row(row)) {
        set_text(v, it.text);
        v.ival = static_cast<int32_t>(strlen(v.text));
        v.fval = 0;
        v.dval = 0;
        return 0;
    }
    const allowed *a = find_keyword(row, it.text);
    if (!a) {
        fail = {3061, it.text, k_table[row].name};
        return fail.code;
    }
    set_text(v, a->text);
    v.ival = a->value;
    v.fval = static_cast<float>(a->value);
    v.dval = a->value;
    return 0;
}

/* Flush=Always commits at every change, so it forces Write's number on;
 * otherwise the number follows Write's own text. */
void settle_write(sdf_optblock *b)
{
    sdf_optval &w = b->v[SDF_OPT_WRITE];
    const allowed *a = find_keyword(SDF_OPT_WRITE, w.text);
    w.ival = b->v[SDF_OPT_FLUSH].ival == 1 ? 1 : a ? a->value : 0;
}

/* Every item of text, however many there are; null when out of memory. */
int parse_all(const char *text, ZU_Item **items)
{
    int n = ZU_parseItems(text, items, SDF_NOPTS, 0);
    if (n > SDF_NOPTS) {
        ZU_freeMem(*items);
        *items = nullptr;
        n = ZU_parseItems(text, items, n, 0);
    }
    return *items ? n : 0;
}

void report(const char *routine, const failure &f)
{
    if (f.code == 3061)
        sdf_error(routine, f.code, f.a.c_str(), f.b.c_str());
    else if (f.code == 3025)
        sdf_error(routine, f.code, "option block");
    else
        sdf_error(routine, f.code, f.a.c_str());
}

/* Makes sure the level table reaches `level`; new levels are empty. */
bool reach_level(sdf_optstack *st, int level)
{
    if (level < st->capacity)
        return true;
    int cap = st->capacity ? st->capacity : k_level_step;
    while (cap <= level)
        cap += k_level_step;
    auto *rows = static_cast<sdf_optlevel *>(
        st->levels ? ZU_reallocMem(st->levels, cap * sizeof(sdf_optlevel))
                   : ZU_allocMem(cap * sizeof(sdf_optlevel), "sdf_push:levels"));
    if (!rows)
        return false;
    for (int i = st->capacity; i < cap; ++i)
        rows[i] = sdf_optlevel{nullptr, -1};
    if (!st->levels)
        rows[0].block = st->current; /* level 0: the block in use at the first push */
    st->levels = rows;
    st->capacity = cap;
    return true;
}

/* The moves of the stack; `from` is the current options to copy. */
int push_level(sdf_optstack *st, int mode, const sdf_optblock &from)
{
    if (mode >= 0) {
        if (st->levels) {
            st->depth = std::min(mode, st->top);
            st->current = st->levels[st->depth].block;
        }
        return 0;
    }
    int target = mode <= -8 ? st->top + 1 : st->depth + 1;
    if (!reach_level(st, target))
        return 3025;
    sdf_optlevel &lv = st->levels[target];
    bool keep = mode >= -7 && mode <= -3 && lv.block;
    if (!lv.block && !(lv.block = new_block(from, "sdf_push:opts")))
        return 3025;
    if (!keep)
        *lv.block = (mode == -1 || mode == -9) ? builtin() : from;
    lv.back = mode <= -8 ? st->depth : -1;
    st->depth = target;
    st->top = std::max(st->top, target);
    st->current = lv.block;
    return 0;
}

void pop_level(sdf_optstack *st)
{
    if (st->depth <= 0 || !st->levels)
        return;
    sdf_optlevel &lv = st->levels[st->depth];
    if (lv.back >= 0) {
        st->top = st->depth - 1;
        st->depth = lv.back;
        lv.back = -1;
    } else {
        st->depth -= 1;
    }
    st->current = st->levels[st->depth].block;
}

void free_stack(sdf_optstack *st)
{
    if (st->levels) {
        for (int i = 0; i < st->capacity; ++i)
            ZU_freeMem(st->levels[i].block);
        ZU_freeMem(st->levels);
    } else {
        ZU_freeMem(st->current);
    }
    *st = sdf_optstack{};
}

} // namespace

extern "C" {

int sdf_opt_int(const fcb *f, int opt)
{
    opt_guard g;
    return value_of(f, opt)->ival;
}

/* Points into the block, which lives as long as the process or channel; a
 * later set may change the text in place. */
const char *sdf_opt_text(const fcb *f, int opt)
{
    opt_guard g;
    return value_of(f, opt)->text;
}

float sdf_opt_float(const fcb *f, int opt)
{
    opt_guard g;
    return value_of(f, opt)->fval;
}

double sdf_opt_double(const fcb *f, int opt)
{
    opt_guard g;
    return value_of(f, opt)->dval;
}

int sdf_set_opts(fcb *f, const char *text)
{
    const char *routine = f ? "Sdf_Set_Opts_Chan" : "Sdf_Set_Opts";
    ZU_Item *items = nullptr;
    int count = text ? parse_all(text, &items) : 0;
    std::vector<failure> failures;
    bool threads_on = false;
    {
        opt_guard g;
        sdf_optstack *st = f ? &f->stack : &g_proc;
        sdf_optblock *b = count > 0 ? writable_block(st) : nullptr;
        if (f)
            f->own_opts = st->current;
        if (count > 0 && !b)
            failures.push_back({3025, "", ""});
        for (int i = 0; b && i < count; ++i) {
            const ZU_Item &it = items[i];
            if (!it.name[0] && it.type == ZU_ITEM_EMPTY)
                continue; /* ",," or a trailing comma: nothing to set */
            failure fail;
            if (apply_item(b, it, f != nullptr, fail))
                failures.push_back(fail);
            else if (find_row(it.name) == SDF_OPT_THREAD_SAFE && b->v[SDF_OPT_THREAD_SAFE].ival == 1)
                threads_on = true;
        }
        if (b)
            settle_write(b);
    }
    ZU_freeMem(items);
    if (threads_on)
        sdf_threads_on();
    for (const failure &fail : failures)
        report(routine, fail);
    return failures.empty() ? 0 : failures.back().code;
}

int sdf_get_opt(const fcb *f, const char *name, char *value)
{
    int row = find_row(name);
    if (row < 0) {
        if (value)
            value[0] = 0;
        return sdf_error(f ? "Sdf_Get_Opt_Chan" : "Sdf_Get_Opt", 3060, name ? name : "");
    }
    if (!value)
        return 0;
    if (row == SDF_OPT_THREAD_SAFE) {
        strcpy(value, sdf_thread_safe() ? "Yes" : "No");
        return 0;
    }
    opt_guard g;
    strcpy(value, value_of(f, row)->text);
    return 0;
}

int sdf_push(fcb *f, int mode)
{
    int rc;
    {
        opt_guard g;
        if (f) {
            const sdf_optblock &from = f->stack.current ? *f->stack.current : *proc_block();
            rc = push_level(&f->stack, mode, from);
            f->own_opts = f->stack.current;
        } else {
            rc = push_level(&g_proc, mode, *proc_block());
        }
    }
    if (rc)
        sdf_error(f ? "Sdf_Push_Chan" : "Sdf_Push", rc, "option block");
    return rc;
}

int sdf_pop(fcb *f)
{
    opt_guard g;
    if (f) {
        pop_level(&f->stack);
        f->own_opts = f->stack.current;
    } else {
        pop_level(&g_proc);
    }
    return 0;
}

int sdf_opt_depth(const fcb *f)
{
    opt_guard g;
    return f ? f->stack.depth : g_proc.depth;
}

void sdf_free_chan_opts(fcb *f)
{
    if (!f)
        return;
    if (!f->stack.levels && f->own_opts != f->stack.current)
        ZU_freeMem(f->own_opts); /* a block set without going through the stack */
    free_stack(&f->stack);
    f->own_opts = nullptr;
}

void sdf_opts_shutdown(void)
{
    {
        opt_guard g;
        free_stack(&g_proc);
    }
    sdf_threads_shutdown();
}

/* ------------------------------------------------------ public forms */

int Sdf_Set_Opts(const char *text)
{
    int rc = sdf_lib_start();
    return rc ? rc : sdf_set_opts(nullptr, text);
}

int Sdf_Get_Opt(const char *name, char *value)
{
    return sdf_get_opt(nullptr, name, value);
}

int Sdf_Push(int mode)
{
    return sdf_push(nullptr, mode);
}

int Sdf_Pop(void)
{
    return sdf_pop(nullptr);
}

int Sdf_Opt_Depth(void)
{
    return sdf_opt_depth(nullptr);
}

} // extern "C"
