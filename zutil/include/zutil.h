/*
 * zutil.h - the public interface of the utility library (prefix ZU_).
 *
 * Plain procedures over plain records, callable from C and C++. Module state
 * lives inside the library, one instance per process. Unless a contract says
 * otherwise, a function returns 0 for success and a small positive code for a
 * failure, and reports the failure through the error set (ZU_Err) under the
 * routine's own name. Texts are NUL-terminated byte strings (UTF-8 passes
 * through untouched); "Fortran" texts are a pointer and a width, blank padded.
 *
 * Locks are inactive until the option Thread_Safe is set to Yes; a program
 * that wants threads sets it before it starts them.
 */
#ifndef ZUTIL_H
#define ZUTIL_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#if defined(__GNUC__)
#define ZU_API __attribute__((visibility("default")))
/* List nodes are reached both through ZU_Node and through the records that
 * embed one, and a list header doubles as two sentinel nodes: the compiler
 * must not assume that those differently typed views never overlap. */
#define ZU_MAY_ALIAS __attribute__((may_alias))
#else
#define ZU_API
#define ZU_MAY_ALIAS
#endif

#ifdef __cplusplus
extern "C" {
#endif

ZU_API const char *ZU_version(void);

/* ======================================================================
 * Intrusive doubly linked list
 * ====================================================================== */

/* The two link words at the start of any record that sits in a list. */
typedef struct ZU_MAY_ALIAS ZU_Node {
    struct ZU_Node *next;
    struct ZU_Node *prev;
} ZU_Node;

/* Head and tail sentinels folded into three words: `head`, `tail` (always
 * null) and `tailPred`. Walk from `head` and stop at the node whose `next`
 * is null. Empty: head == (ZU_Node*)&tail, tailPred == (ZU_Node*)list. */
typedef struct ZU_MAY_ALIAS ZU_List {
    ZU_Node *head;
    ZU_Node *tail;
    ZU_Node *tailPred;
} ZU_List;

/* None of the list operations lock: the caller holds whatever lock covers
 * the list. Null lists or nodes are ignored (results null / 0). */
ZU_API void ZU_listInit(ZU_List *list);
ZU_API void ZU_listAddTail(ZU_List *list, ZU_Node *node);
ZU_API void ZU_listAddHead(ZU_List *list, ZU_Node *node);
/* Places `node` right after / before `at`, which must be in a list. */
ZU_API void ZU_listInsertAfter(ZU_Node *at, ZU_Node *node);
ZU_API void ZU_listInsertBefore(ZU_Node *at, ZU_Node *node);
/* Unlinks `node` and sets its links to null; an unlinked node is ignored. */
ZU_API void ZU_listRemove(ZU_Node *node);
/* Unlinks and returns the first / last node, null on an empty list. */
ZU_API ZU_Node *ZU_listRemHead(ZU_List *list);
ZU_API ZU_Node *ZU_listRemTail(ZU_List *list);
ZU_API int ZU_listIsEmpty(const ZU_List *list);
ZU_API int ZU_listCount(const ZU_List *list);
/* The node at a 0-based index, null when the index is negative or past the
 * end. */
ZU_API ZU_Node *ZU_listNth(const ZU_List *list, int index);

/* ======================================================================
 * Tracked allocator
 *
 * Every block carries a 32-byte header in front of the caller's area and
 * stands in one process-wide list, so the library can report what it holds
 * and free everything at exit. `tag` names the allocation ("routine:var")
 * for the failure message only. On failure the option Mem_Error decides:
 * Exit (message, ZU_memFreeAll, exit(1)), NULL (message, null result) or
 * NULL_NoMessage (null result).
 * ====================================================================== */

/* Zero-filled block of `size` bytes. */
ZU_API void *ZU_allocMem(size_t size, const char *tag);
/* Block as malloc gave it, or filled with 0x55 when the environment variable
 * ZU_TRASHNOZERO exists. */
ZU_API void *ZU_allocMemNoZero(size_t size, const char *tag);
/* Resizes (null behaves as allocation); grown bytes are zero. On failure the
 * old block stays valid and tracked. */
ZU_API void *ZU_reallocMem(void *ptr, size_t size);
/* The same, grown bytes left as they are (or 0x55 with ZU_TRASHNOZERO). */
ZU_API void *ZU_reallocMemNoZero(void *ptr, size_t size);
/* Frees a tracked block; null is ignored. */
ZU_API void ZU_freeMem(void *ptr);
/* Sets the allocator up once; non-zero `atexitFlag` registers ZU_memFreeAll
 * with atexit. Allocation does this by itself on first use. */
ZU_API void ZU_memInit(int atexitFlag);
/* Frees every tracked block, including those held by the library's own
 * modules; use at the very end only (ZU_close runs it in order). */
ZU_API void ZU_memFreeAll(void);
/* Bytes held, each block counted with its 32-byte header. */
ZU_API double ZU_memTotal(void);
/* The peak of ZU_memTotal; a non-zero `reset` then sets it to the total. */
ZU_API double ZU_memPeak(int reset);
/* Physical memory of the machine in MB: total and available. Returns 0, or
 * 1 when an output pointer is null. */
ZU_API int ZU_memStatus(int *totalMB, int *availMB);

/* ======================================================================
 * Pools: many small zeroed allocations freed at once
 * ====================================================================== */

typedef struct ZU_LockRec *ZU_Lock;

typedef struct ZU_MemLink {
    ZU_List chunks;     /* tracked chunks, oldest first */
    uint64_t chunkSize; /* usual chunk capacity, at least 8192 */
    uint64_t free;      /* bytes left in the current chunk */
    char *current;      /* usable area of the current chunk */
    ZU_Lock lock;       /* the pool's own lock */
} ZU_MemLink;

/* Makes an empty pool; chunk size is at least 8192. 0, or 1 for a null pool
 * or when the lock can't be created. */
ZU_API int ZU_memlinkInit(ZU_MemLink *pool, uint64_t chunkSize);
/* Zeroed, 8-byte aligned memory from the pool; a request of 0 gets 8 bytes.
 * Null on failure (see Mem_Error) or for a null pool. */
ZU_API void *ZU_memlinkAlloc(ZU_MemLink *pool, uint64_t size);
/* Copy of `text` in the pool; null for null. */
ZU_API char *ZU_memlinkStrDup(ZU_MemLink *pool, const char *text);
/* Frees every chunk at once and closes the pool's lock. */
ZU_API void ZU_memlinkFree(ZU_MemLink *pool);

/* ======================================================================
 * Strings and Fortran strings
 * ====================================================================== */

/* Tracked copy (not zero-filled before copying); null gives null. */
ZU_API char *strDup(const char *text);
/* Null `text` gives null and leaves `old` alone; else frees `old` and
 * returns a tracked copy of `text`. */
ZU_API char *reStrDup(char *old, const char *text);
/* Tracked terminated copy of a Fortran text of `length` bytes without its
 * trailing white space; null for a null text or negative length. */
ZU_API char *strf2cDup(const char *text, int length);
/* Length of the first `length` bytes without trailing white space. */
ZU_API int ZU_strLenTrim(const char *text, int length);
/* Copies at most `width` bytes of `text` (null = empty) into `dest` and pads
 * with blanks; writes no terminator. */
ZU_API void ZU_strC2F(char *dest, const char *text, int width);
/* Copies `width` bytes and ends the text after the last non-blank; `dest`
 * holds width + 1 bytes. */
ZU_API void ZU_strF2C(char *dest, const char *source, int width);
/* Copies up to the terminator or `limit` bytes, then ends the text after the
 * last non-blank; `dest` holds limit + 1 bytes. */
ZU_API void ZU_strCopyTrim(char *dest, const char *text, int limit);
/* Compare through tolower: the difference of the first unequal lowered
 * bytes. Null sorts before any text. */
ZU_API int ZU_strCaseCmp(const char *a, const char *b);
ZU_API int ZU_strNCaseCmp(const char *a, const char *b, size_t n);
/* Lower-cases in place outside '...' and "..."; inside quotes a backslash
 * makes the next quote character ordinary. */
ZU_API void ZU_strLowerUnquoted(char *text);
/* 1 for [+-]digits and nothing else, else 0 (also for null or empty). */
ZU_API int ZU_isInteger(const char *text);
/* 1 for [+-]digits with at most one '.', at least one digit, and an optional
 * exponent letter e, E, d or D followed by an integer; else 0. */
ZU_API int ZU_isReal(const char *text);
/* The number in `text` (d/D exponents allowed, '.' as decimal sign whatever
 * the locale), clamped to the range of a 32-bit float; 0 for null. */
ZU_API float ZU_atofFloat(const char *text);
/* A level 1..9: non-integer text keeps `current`, a signed number moves it
 * (held to 1..9), an unsigned one replaces it. */
ZU_API int ZU_parseLevel(const char *text, int current);
/* Replaces each of " % * / : < > ? \ | by '_' in place; returns how many. */
ZU_API int ZU_fixFileName(char *name);

/* ======================================================================
 * Files, clock, arguments
 * ====================================================================== */

/* Modification time in seconds, 0 when stat fails. */
ZU_API int64_t ZU_fileTime(const char *path);
ZU_API int ZU_isDir(const char *path);
ZU_API int ZU_isFile(const char *path);
/* Local time "hh:mm:ss" into `time` (9 bytes) and date "d-Mon-yyyy" into
 * `date` (16 bytes); either may be null. */
ZU_API void ZU_timeDate(char *time, char *date);
/* The process-wide argument triple; nothing stores it unless told to. */
ZU_API void ZU_setArgs(int argc, char **argv, char **envp);
ZU_API void ZU_getArgs(int *argc, char ***argv, char ***envp);

/* ======================================================================
 * Numbers, byte order, random numbers
 * ====================================================================== */

/* Widens *minimum and *maximum over `count` values. */
ZU_API void ZU_floatRange(int count, const float *values, float *minimum, float *maximum);
/* Heap sort of `key` ascending, companions moved in step (may be null). */
ZU_API void ZU_sort2(int count, float *key, float *other);
ZU_API void ZU_sort3(int count, float *key, float *other1, float *other2);
/* Characters needed to print `value` with `decimals` decimals. */
ZU_API int ZU_fieldWidth(float value, int decimals);
/* Byte-order codes: 1 big-endian, 2 little-endian (the native one here). */
ZU_API int ZU_byteOrder(void);
ZU_API int ZU_otherByteOrder(int code);
/* Reverses the bytes of `count` elements of `size` bytes (1, 2, 4 or 8) from
 * `source` into `dest`; the two may be the same. Any other size prints a
 * message on standard error and ends the process with exit(1). */
ZU_API void ZU_changeSex(const void *source, void *dest, int size, int count);
/* Uniform deviate in (0, 1); a seed below 1 or of 2147483647 is first
 * replaced by one built from the clock. The seed is updated. */
ZU_API double ZU_rand(int32_t *seed);
/* Standard normal deviate; `spare` holds the second deviate of a pair and
 * starts at 0. */
ZU_API double ZU_randGauss(int32_t *seed, double *spare);

/* ======================================================================
 * Locks (inactive until Thread_Safe=Yes for ZU_lock / ZU_unlock)
 * ====================================================================== */

/* A binary lock, created unlocked; null when out of memory. A lock may be
 * released by a thread other than the one that took it; releasing a free
 * lock leaves it free. Null handles are ignored everywhere. */
ZU_API ZU_Lock ZU_lockCreate(void);
ZU_API void ZU_lockDestroy(ZU_Lock lock);
/* Take and release, only when Thread_Safe is set. */
ZU_API void ZU_lock(ZU_Lock lock);
ZU_API void ZU_unlock(ZU_Lock lock);
/* Take, try (1 when taken, else 0) and release, whatever Thread_Safe says. */
ZU_API void ZU_lockAlways(ZU_Lock lock);
ZU_API int ZU_lockTry(ZU_Lock lock);
ZU_API void ZU_unlockAlways(ZU_Lock lock);

/* Reader-writer lock with writer preference, built of four binary locks. */
typedef struct ZU_RWLockRec *ZU_RWLock;
#define ZU_RW_WRITE (-1) /* mode for ZU_rwLock: any other value reads */
ZU_API ZU_RWLock ZU_rwCreate(void);
ZU_API void ZU_rwDestroy(ZU_RWLock lock);
ZU_API void ZU_rwLock(ZU_RWLock lock, int mode);
/* 1 when taken, else 0. */
ZU_API int ZU_rwTryLock(ZU_RWLock lock, int mode);
/* Releases as the state says: read (1), write (-1); free (0) does nothing. */
ZU_API void ZU_rwUnlock(ZU_RWLock lock);
/* Current state: 1 read-locked, -1 write-locked, 0 free. */
ZU_API int ZU_rwState(ZU_RWLock lock);

/* ======================================================================
 * Start-up and shut-down
 * ====================================================================== */

/* Runs once: sets up memory, errors and options and loads the unit tables;
 * non-zero `atexitFlag` registers the clean-ups with atexit. A failing unit
 * load prints "ZUtil: <text>" on standard error and ends with exit(1). */
ZU_API void ZU_init(int atexitFlag);
/* Frees the units, the errors, the option stack, then all tracked memory;
 * ZU_init may run again afterwards. */
ZU_API void ZU_close(void);

/* ======================================================================
 * Error set
 * ====================================================================== */

#define ZU_SEV_NONE 0
#define ZU_SEV_MESSAGE 1
#define ZU_SEV_WARNING 2
#define ZU_SEV_ERROR 3
#define ZU_SEV_BUG 4

typedef struct ZU_ErrRec {
    ZU_Node node;
    const char *routine; /* shared with the routine's record */
    char *message;
    int32_t number;
    int32_t severity; /* 1..4 */
} ZU_ErrRec;

/* Records an error and/or prints it on standard error as option Error_Out
 * says (bit 0 store, bit 1 print; severity 4 always prints). Severity 0 or
 * below, or number 0, is never stored. */
ZU_API void ZU_Err(const char *routine, int number, int severity, const char *message);
/* Records without looking at Error_Out; never prints. */
ZU_API void ZU_ErrQuiet(const char *routine, int number, int severity, const char *message);
/* Removes the errors of routines matching `pattern` ("*" or a template);
 * severity 0 means every severity. */
ZU_API void ZU_errClear(const char *pattern, int severity);
/* Removes one record; 0, or 1 when it isn't held. */
ZU_API int ZU_errDelete(ZU_ErrRec *record);
/* now[0] / total[0]: sums; [1..4]: by severity. See docs/zutil.md for
 * the meaning of `number`. */
ZU_API void ZU_errCounts(const char *pattern, int number, int now[5], int total[5]);
/* Worst severity now held by matching routines; *count their errors. */
ZU_API int ZU_errWorst(const char *pattern, int *count);
/* Next matching record: *index 1.. counts from the oldest, -1.. from the
 * newest; null and *index 0 at the end. */
ZU_API ZU_ErrRec *ZU_errNext(const char *pattern, int *index);
/* Expands $E $M $R $S $s \\ \n \t of `format` for `record` into a static
 * 1024-byte buffer (not for threads). */
ZU_API const char *ZU_errStr(const char *format, const ZU_ErrRec *record);
/* The same into `buffer` of `size` bytes (below 1: 1024), allocated with
 * ZU_allocMem when null; returns the buffer. */
ZU_API char *ZU_errStrTS(const char *format, const ZU_ErrRec *record, char *buffer, int size);
/* Prints each matching record with `format` on standard output (oldest first,
 * or newest first for a negative direction), sets *worst, then clears them;
 * a worst of 4 ends the process with exit(1). */
ZU_API void ZU_errPrint(const char *pattern, const char *format, int direction, int *worst);

/* The single error slot of the unit code, apart from the set above. */
ZU_API void ZU_setError(int number, const char *text, int iarg, int extra);
/* Formats the slot's message into `text` (size bytes, may be null), sets
 * *extra (may be null), clears the slot and returns the number. */
ZU_API int ZU_getError(char *text, int size, int *extra);
/* The slot's number; clears it. */
ZU_API int ZU_errNumber(void);

/* ======================================================================
 * Code tables. Each list is X(code, name, text); the texts are looked up by
 * the functions below, which never return null.
 * ====================================================================== */

#define ZU_PATTERN_CODES(X)                                        \
    X(11, ZU_PAT_RANGE_TOO_LARGE, "Range endpoint too large.")     \
    X(16, ZU_PAT_BAD_NUMBER, "Bad number.")                        \
    X(25, ZU_PAT_DIGIT_RANGE, "\\digit out of range.")             \
    X(36, ZU_PAT_DELIMITER, "Illegal or missing delimiter.")       \
    X(41, ZU_PAT_NO_REMEMBERED, "No remembered search string.")    \
    X(42, ZU_PAT_IMBALANCE, "\\( \\) imbalance.")                  \
    X(43, ZU_PAT_TOO_MANY_GROUPS, "Too many \\(.")                 \
    X(44, ZU_PAT_TOO_MANY_NUMBERS, "More than 2 numbers given in \\{ \\}.") \
    X(45, ZU_PAT_BRACE_EXPECTED, "}expected after \\.")            \
    X(46, ZU_PAT_FIRST_EXCEEDS, "First number exceeds second in \\{ \\}.") \
    X(49, ZU_PAT_SET_IMBALANCE, "[ ] imbalance.")                  \
    X(50, ZU_PAT_OVERFLOW, "Pattern buffer overflow.")

#define ZU_SLOT_CODES(X)                                                    \
    X(1001, ZU_SLOT_OPEN_FILE, "Cannot open file \"%s\"")                   \
    X(1002, ZU_SLOT_EOF, "Unexpected end of file")                          \
    X(1003, ZU_SLOT_AUX_FORMAT, "Unknown auxiliary file format \"%s\"")     \
    X(1037, ZU_SLOT_TEXT, "%s")                                             \
    X(1038, ZU_SLOT_PREFIX, "Unit prefix \"%c\" not found")                 \
    X(1039, ZU_SLOT_CONVERSION, "Invalid conversion from \"%s\" units")     \
    X(1040, ZU_SLOT_ALLOC, "Cannot allocate %d bytes for \"%s\"")           \
    X(1041, ZU_SLOT_INTERNAL, "INTERNAL ERROR: %s")

#define ZU_OPTION_CODES(X)                                          \
    X(1, ZU_OPT_UNKNOWN, "Unknown option \"%s\".")                  \
    X(2, ZU_OPT_INVALID, "Value \"%s\" invalid for option \"%s\".") \
    X(3, ZU_OPT_NO_VALUE, "No value given for option \"%s\".")

#define ZU_CODE_ENUM_(code, name, text) name = code,
enum { ZU_PATTERN_CODES(ZU_CODE_ENUM_) ZU_PAT_CODE_END_ };
enum { ZU_SLOT_CODES(ZU_CODE_ENUM_) ZU_SLOT_CODE_END_ };
enum { ZU_OPTION_CODES(ZU_CODE_ENUM_) ZU_OPT_CODE_END_ };
#undef ZU_CODE_ENUM_

/* "Unknown error code." for a code not in the list. */
ZU_API const char *ZU_patErrText(int code);
/* The slot's message template; "Unknown error number (%d)" otherwise. */
ZU_API const char *ZU_slotErrText(int number);
/* The option failure's message template; "" for 0 or an unknown code. */
ZU_API const char *ZU_optErrText(int code);

/* ======================================================================
 * Options
 * ====================================================================== */

/* Option indexes for ZU_optValue. */
#define ZU_OPT_ERROR_OUT 0   /* None 0, ErrSet 1, StdErr 2, ErrSet&StdErr 3 */
#define ZU_OPT_MEM_ERROR 1   /* Exit 0, NULL 1, NULL_NoMessage 3 */
#define ZU_OPT_THREAD_SAFE 2 /* No 0, Yes 1 */
#define ZU_OPT_COUNT 3

/* Applies "name = value, ..." (names and values without regard to case).
 * Every item is tried; the result is 0 or the code of the last failure:
 * ZU_OPT_UNKNOWN, ZU_OPT_INVALID, ZU_OPT_NO_VALUE. Thread_Safe=Yes turns
 * locking on for good and runs ZU_init(1). */
ZU_API int ZU_setOpts(const char *text);
/* Copies the current value text of option `name` into `value` (128 bytes,
 * may be null). 0, or ZU_OPT_UNKNOWN. */
ZU_API int ZU_getOpt(const char *name, char *value);
/* The current value's number; -1 for an index out of range. */
ZU_API int ZU_optValue(int index);
/* Pushes the current set; the new one is a copy of it (`copy` non-zero) or
 * of the defaults. 0, or 1 when out of memory (the set stays unchanged). */
ZU_API int ZU_push(int copy);
/* Drops the current set for the pushed one; nothing on an empty stack. */
ZU_API void ZU_pop(void);
ZU_API int ZU_isThreadSafe(void);

/* ======================================================================
 * Item parser: "name = value [units], 'text', ..."
 * ====================================================================== */

#define ZU_ITEM_TEXT (-1)
#define ZU_ITEM_EMPTY 0
#define ZU_ITEM_INT 1
#define ZU_ITEM_INT64 2
#define ZU_ITEM_REAL 3
#define ZU_ITEM_DOUBLE 4

typedef struct ZU_Item {
    char *name;    /* left-hand side, empty when none */
    int32_t type;  /* ZU_ITEM_* */
    int32_t ivalue; /* 32-bit value, or the length of a text */
    int64_t lvalue;
    float fvalue;
    double dvalue;
    char *text;    /* the value as written, quotes removed */
    char *bracket; /* text between [ and ], empty when none */
} ZU_Item;

/* Parses `text` into at most `maxItems` records of *items and returns how
 * many items the text holds (records past maxItems are not written). When
 * *items is null an array is allocated (maxItems records followed by a text
 * area of 2 + max(extra, strlen(text)) bytes) that the caller frees with
 * ZU_freeMem; a set pointer must come from such an allocation. An empty
 * text gives 0 and allocates nothing; a null `items` gives -1. */
ZU_API int ZU_parseItems(const char *text, ZU_Item **items, int maxItems, int extra);
/* Replaces the comment characters (default ";!"), at most 63 kept. */
ZU_API void ZU_setCommentChars(const char *chars);

/* ======================================================================
 * Paths: pure text, '/' and '\' both separate
 * ====================================================================== */

/* 1 when `path` starts with a separator or with a letter and ':'. */
ZU_API int ZU_isAbsolute(const char *path);
/* Stores the directory that relative names resolve against (at most 1023
 * bytes are kept). */
ZU_API void ZU_setReferencePath(const char *path);
/* Pointer to a static copy of the reference path (not for threads). */
ZU_API const char *ZU_getReferencePath(void);
/* Copies it into `buffer` (size bytes, below 1: 1024; allocated when null);
 * the copy is always terminated. */
ZU_API char *ZU_getReferencePathTS(char *buffer, int size);
/* All of these return a tracked block the caller frees with ZU_freeMem, or
 * null when out of memory or for a null path. A null or empty reference
 * means the stored reference path. */
ZU_API char *ZU_absolutePath(const char *reference, const char *path);
ZU_API char *ZU_relativePath(const char *reference, const char *path);
/* Display form of at most `maxLength` (at least 4) characters. */
ZU_API char *ZU_reducePath(const char *path, int maxLength);
ZU_API char *ZU_baseNameDup(const char *path);
ZU_API char *ZU_dirNameDup(const char *path);
/* In place: trailing separators are cut; the result points into `path` (or
 * at a static empty text for null). */
ZU_API char *ZU_baseName(char *path);
ZU_API char *ZU_dirName(char *path);
/* Every separator becomes '/' for mode > 0, else '\'. */
ZU_API void ZU_setSlashes(char *path, int mode);

/* ======================================================================
 * Templates: '*' any text, '?' one character, '#' a number
 * ====================================================================== */

#define ZU_PAT_BUFSIZE 2048

/* Translates `template_` into an anchored expression and compiles it into
 * `buffer`. `size` >= 0 is the buffer length and reports failures through
 * ZU_Err (routine "setPat"); a negative size means its absolute value and
 * stays quiet. Returns 0 or a ZU_PAT_* code; on failure buffer[0] is 0. */
ZU_API int ZU_patCompile(const char *template_, unsigned char *buffer, int size);
/* 1 when `text` matches the compiled buffer, else 0 (also for an empty or
 * null buffer). Allocation-free; a buffer can be shared by threads. */
ZU_API int ZU_patMatch(const char *text, const unsigned char *buffer);
/* Compiles quietly and matches; 0 when the template doesn't compile. */
ZU_API int ZU_patMatchText(const char *text, const char *template_);

/* ======================================================================
 * N-dimensional tables ("maps"): 32-bit float values on a rectilinear grid,
 * read from a map file (docs/map-files.md) and interpolated multi-linearly.
 * A table is named by a small integer handle. Create and delete hold the
 * tables' lock; the other operations work on one table, which serves one
 * thread at a time (it keeps working state of its last interpolation).
 * Every failure is raised through ZU_Err under the operation's name.
 * ====================================================================== */

#define ZU_NDIM_CODES(X)                                                         \
    X(1, ZU_NDIM_NOT_WRITTEN, "the table could not be written")                 \
    X(201, ZU_NDIM_OUT_OF_RANGE, "a coordinate was out of range (warning)")     \
    X(202, ZU_NDIM_MISSING_POINT, "a point needed for the value is missing")     \
    X(300, ZU_NDIM_FAILED, "bad handle, argument or map file")

#define ZU_CODE_ENUM_(code, name, text) name = code,
enum { ZU_NDIM_CODES(ZU_CODE_ENUM_) ZU_NDIM_CODE_END_ };
#undef ZU_CODE_ENUM_

/* What a result code of the table operations means; "" for an unknown one. */
ZU_API const char *ZU_ndimCodeText(int code);

/* Checks the whole map file at `path`, then reads it. 0 with *handle set;
 * or ZU_NDIM_FAILED with *handle set to a slot that holds no table (-1 when
 * not even such a slot could be had), every fault of the file raised. */
ZU_API int ZU_ndimCreate(int *handle, const char *path);
/* Frees the table; its handle may be handed out again. */
ZU_API int ZU_ndimDelete(int handle);
ZU_API int ZU_ndimGetDimensions(int handle, int *count);
/* First / last axis value of `dimension` (from 1); a dimension outside
 * 1..count gives 0.0 and result 0. */
ZU_API int ZU_ndimGetGridMin(int handle, int dimension, float *value);
ZU_API int ZU_ndimGetGridMax(int handle, int dimension, float *value);
/* Per dimension the lower grid index (from 0) of the cell of the last
 * interpolation and its axis value; arrays of the table's dimension count. */
ZU_API int ZU_ndimGetCurrentGridPoint(int handle, int *indices, float *axisValues);
/* Multi-linear value at `coords` (one per dimension). 0; ZU_NDIM_OUT_OF_RANGE
 * when this call warned of a coordinate outside an axis (the nearest axis
 * value is used); ZU_NDIM_MISSING_POINT when a corner of the cell holds no
 * value and the table has no default (then *value is left alone). A table
 * warns five times in its life, then falls silent and returns 0. */
ZU_API int ZU_ndimInterp(int handle, const float *coords, float *value);
/* Inserts `value` into the axis of `dimension` (from 1) unless it lies
 * within `tolerance` of an axis value (or equals one); stored values keep
 * their coordinates. *added is 1 when inserted, else 0. */
ZU_API int ZU_ndimAddGridPoint(int handle, int dimension, float value, float tolerance, int *added);
/* Stores `value` at the grid point of `indices` (from 0), replacing any. */
ZU_API int ZU_ndimSetValue(int handle, const int *indices, float value);
/* Writes the table as a SPARSE map file (no default value). 0, or
 * ZU_NDIM_NOT_WRITTEN (or ZU_NDIM_FAILED for a bad handle or pointer). */
ZU_API int ZU_ndimWrite(int handle, const char *path);

/* ======================================================================
 * Response surfaces: kernel-weighted averages of scattered samples
 * (64-bit floats). A sample at distance d (scaled per axis by gsize) weighs
 * exp(-alpha d^nu). Create and delete hold the surfaces' lock; adding points
 * and queries don't, so a surface being added to is not queried elsewhere.
 * ====================================================================== */

#define ZU_RESP_CODES(X)                                   \
    X(1, ZU_RESP_BAD_ARGUMENT, "bad argument")             \
    X(2, ZU_RESP_BAD_HANDLE, "handle is not valid")        \
    X(3, ZU_RESP_NO_MEMORY, "out of memory")

#define ZU_CODE_ENUM_(code, name, text) name = code,
enum { ZU_RESP_CODES(ZU_CODE_ENUM_) ZU_RESP_CODE_END_ };
#undef ZU_CODE_ENUM_

/* What a result code of the surface operations means; "" when unknown. */
ZU_API const char *ZU_respCodeText(int code);

/* An empty surface for positions of `dimensions` and response vectors of
 * `responses` values; gsize holds `dimensions` grid intervals (> 0), alpha
 * and nu are > 0 (all finite). */
ZU_API int ZU_respCreate(int *handle, int dimensions, int responses, const double *gsize, double alpha,
                         double nu);
ZU_API int ZU_respDelete(int handle);
/* Copies a sample: `position` of dimensions values, `response` of
 * responses values. On failure the surface is unchanged. */
ZU_API int ZU_respAddPoint(int handle, const double *position, const double *response);
/* The weighted mean of the samples' responses at `position` into `response`;
 * all 0 when there are no samples or every weight underflows to 0. */
ZU_API int ZU_respSurf(int handle, const double *position, double *response);
/* Scaled distance of two positions, and their correlation exp(-alpha d^nu). */
ZU_API int ZU_respNorm(int handle, const double *a, const double *b, double *distance);
ZU_API int ZU_respCorr(int handle, const double *a, const double *b, double *correlation);

/* ======================================================================
 * By-reference forms of the table and surface operations, for Fortran.
 * Every argument comes by address; the result is also stored in `rc`
 * (before the hidden text lengths), and each path is a blank-padded field
 * with its length last. Indices and dimensions count as in the forms above.
 * Each has a gfortran alias: all lower case with a trailing underscore,
 * e.g. zu_ndiminterp_ref_ for ZU_ndimInterp_ref.
 * ====================================================================== */

ZU_API int ZU_ndimCreate_ref(int *handle, const char *path, int *rc, size_t path_len);
ZU_API int ZU_ndimDelete_ref(const int *handle, int *rc);
ZU_API int ZU_ndimGetDimensions_ref(const int *handle, int *count, int *rc);
ZU_API int ZU_ndimGetGridMin_ref(const int *handle, const int *dimension, float *value, int *rc);
ZU_API int ZU_ndimGetGridMax_ref(const int *handle, const int *dimension, float *value, int *rc);
ZU_API int ZU_ndimGetCurrentGridPoint_ref(const int *handle, int *indices, float *axisValues, int *rc);
ZU_API int ZU_ndimInterp_ref(const int *handle, const float *coords, float *value, int *rc);
ZU_API int ZU_ndimAddGridPoint_ref(const int *handle, const int *dimension, const float *value,
                                   const float *tolerance, int *added, int *rc);
ZU_API int ZU_ndimSetValue_ref(const int *handle, const int *indices, const float *value, int *rc);
ZU_API int ZU_ndimWrite_ref(const int *handle, const char *path, int *rc, size_t path_len);
ZU_API int ZU_respCreate_ref(int *handle, const int *dimensions, const int *responses, const double *gsize,
                             const double *alpha, const double *nu, int *rc);
ZU_API int ZU_respDelete_ref(const int *handle, int *rc);
ZU_API int ZU_respAddPoint_ref(const int *handle, const double *position, const double *response, int *rc);
ZU_API int ZU_respSurf_ref(const int *handle, const double *position, double *response, int *rc);
ZU_API int ZU_respNorm_ref(const int *handle, const double *a, const double *b, double *distance, int *rc);
ZU_API int ZU_respCorr_ref(const int *handle, const double *a, const double *b, double *correlation, int *rc);

/* ======================================================================
 * Message writer: one line of text to the caller's outputs, under one lock.
 * A text that begins with '%' is a control line for the outgoing pipe only
 * (dropped when none is set). Any other text goes to the outgoing pipe when
 * one is set, else to the printer (or its length form); then, in any case,
 * to the echo (or its length form) and to the log file as "text\n". A
 * failed pipe write turns the pipe off for later messages. The writer holds
 * its lock over the outputs, so an output must not call ZU_wrMes itself: such
 * a call is refused (routine "wrmes", ZU_WRMES_NESTED, the text in the
 * message).
 * ====================================================================== */

/* Numbers of the writer's error records (routine "wrmes") and the template
 * of each message. */
#define ZU_WRMES_CODES(X)                                                                               \
    X(1, ZU_WRMES_LOG_OPEN, "Could not open logfile \"%s\". %s")                                        \
    X(2, ZU_WRMES_NESTED, "An output of the message writer called it again; message not written: %s") \
    X(3, ZU_WRMES_FORMAT, "Could not format message: %s")                                               \
    X(4, ZU_WRMES_LOG_WRITE, "Could not write logfile \"%s\". %s")

#define ZU_CODE_ENUM_(code, name, text) name = code,
enum { ZU_WRMES_CODES(ZU_CODE_ENUM_) ZU_WRMES_CODE_END_ };
#undef ZU_CODE_ENUM_

/* The template of a writer's error number; "" for an unknown one. */
ZU_API const char *ZU_wrMesCodeText(int number);

typedef void (*ZU_MesFn)(const char *text);
/* `length` is the text's length without its terminator. */
typedef void (*ZU_MesLenFn)(const char *text, size_t length);

/* Writes one message; null is ignored. */
ZU_API void ZU_wrMes(const char *text);
/* Formats as printf does and writes the result as ZU_wrMes (texts longer
 * than 1023 bytes are formatted again at their full length, never cut). */
ZU_API void ZU_wrMesF(const char *format, ...)
#if defined(__GNUC__)
    __attribute__((format(printf, 1, 2)))
#endif
    ;
/* Closes any open log, then opens `path` for appending when `mode` is
 * "append" (any case), else for writing from the start. A null or empty path
 * leaves no log open and gives 0. 1 when the file can't be opened: "Could
 * not open logfile "<path>". <reason>" is recorded quietly (ZU_ErrQuiet,
 * routine "wrmes", number 1, severity 2). A failing close of the old log is
 * recorded the same way with number 4 ("Could not write logfile ..."). The
 * log is not flushed per message. */
ZU_API int ZU_wrMesLog(const char *path, const char *mode);
/* The default printer: "text\n" on standard output. */
ZU_API void ZU_wrMesStdout(const char *text);
/* Output setters; each form clears its twin (printer / printerLen, echo /
 * echoLen). Null switches that output off. */
ZU_API void ZU_wrMesPrinter(ZU_MesFn printer);
ZU_API void ZU_wrMesPrinterLen(ZU_MesLenFn printer);
ZU_API void ZU_wrMesEcho(ZU_MesFn echo);
ZU_API void ZU_wrMesEchoLen(ZU_MesLenFn echo);
/* The outgoing pipe (a writing end from ZU_pipeCreate / ZU_pipeOpen); 0 for
 * none. Each message goes as one pipe message with its terminator. */
ZU_API void ZU_wrMesPipe(int handle);
/* Settles the writer before threads start; ZU_init calls it. The writer's
 * lock is a static object that exists from load and its state starts with
 * the defaults, so this has nothing left to do: it stays for callers. */
ZU_API void ZU_wrMesInit(void);

/* By-reference forms for Fortran: texts blank-padded with their hidden
 * lengths last, the handle by address, the setters' procedures as passed.
 * Each has a lower-case alias with a trailing underscore (zu_wrmes_ref_)
 * and an upper-case name (ZU_WRMES_REF). A null argument is refused with
 * "Invalid pointer" (routine = the form's name, number 1, severity 3). */
ZU_API void ZU_wrMes_ref(const char *text, size_t text_len);
ZU_API void ZU_WRMES_REF(const char *text, size_t text_len);
/* The result is stored in *rc and returned. */
ZU_API int ZU_wrMesLog_ref(const char *path, const char *mode, int *rc, size_t path_len, size_t mode_len);
ZU_API int ZU_WRMESLOG_REF(const char *path, const char *mode, int *rc, size_t path_len, size_t mode_len);
ZU_API void ZU_wrMesPipe_ref(const int *handle);
ZU_API void ZU_WRMESPIPE_REF(const int *handle);
ZU_API void ZU_wrMesPrinterLen_ref(ZU_MesLenFn printer);
ZU_API void ZU_WRMESPRINTERLEN_REF(ZU_MesLenFn printer);
ZU_API void ZU_wrMesEchoLen_ref(ZU_MesLenFn echo);
ZU_API void ZU_WRMESECHOLEN_REF(ZU_MesLenFn echo);

/* ======================================================================
 * Named pipes: one-way message channels between two processes of the same
 * user, named "\\.\pipe\<name>" (Linux: sequenced-packet sockets in the
 * abstract namespace, so nothing is left on disk). A handle is 1..256; 0 is
 * never a pipe. The server end is made by ZU_pipeCreate, the client end by
 * ZU_pipeOpen; mode ZU_PIPE_WRITE makes an end the writing one, else it
 * reads, and ZU_PIPE_NOWAIT makes its reads return ZU_PIPE_PENDING instead
 * of waiting. Create, open and close hold the table's lock; a handle's reads
 * and writes belong to one thread at a time. Every failure is raised through
 * ZU_Err under the routine "pipeCreate", "pipeOpen", "pipeClose",
 * "pipeRead" or "pipeWrite" with the code as number, severity 3; the two
 * negative results raise nothing. No SIGPIPE is ever raised.
 * ====================================================================== */

#define ZU_PIPE_WRITE 1  /* mode bit: the writing end */
#define ZU_PIPE_NOWAIT 2 /* mode bit: reads and connects don't wait */
#define ZU_PIPE_MAX 256
/* Bytes of a full name with its terminator: the longest name is 107 bytes. */
#define ZU_PIPE_NAME_MAX 108

#define ZU_PIPE_CODES(X)                                                           \
    X(0, ZU_PIPE_DONE, "done")                                                     \
    X(1, ZU_PIPE_BAD_HANDLE, "invalid handle")                                     \
    X(2, ZU_PIPE_SYSTEM_ERROR, "system error")                                     \
    X(3, ZU_PIPE_NO_FREE, "no free pipes")                                         \
    X(4, ZU_PIPE_REFUSED, "the other end belongs to another user and was refused") \
    X(-1, ZU_PIPE_PENDING, "nothing yet: the operation is pending, ask again")     \
    X(-2, ZU_PIPE_GONE, "the other end has gone")

#define ZU_CODE_ENUM_(code, name, text) name = code,
enum { ZU_PIPE_CODES(ZU_CODE_ENUM_) ZU_PIPE_CODE_END_ };
#undef ZU_CODE_ENUM_

/* What a pipe result means; "" for an unknown code. */
ZU_API const char *ZU_pipeCodeText(int code);

/* Makes the server end. The name is "\\.\pipe\" and `nameTemplate`, where
 * everything from the first '*' on becomes "<process id>_<handle>" (so
 * "data*" gives a name unique to this pipe). *handle gets the handle (0 on
 * failure); `fullName` (null, or ZU_PIPE_NAME_MAX bytes) gets the name.
 * 0; ZU_PIPE_SYSTEM_ERROR (also for a name over 107 bytes or one in use);
 * ZU_PIPE_NO_FREE. */
ZU_API int ZU_pipeCreate(const char *nameTemplate, int *handle, char *fullName, int mode);
/* Connects the client end to the server named `fullName`. Never waits: no
 * server, or one whose queue of clients is full, is ZU_PIPE_SYSTEM_ERROR.
 * A server of another user is ZU_PIPE_REFUSED. *handle is 0 on failure. */
ZU_API int ZU_pipeOpen(int *handle, const char *fullName, int mode);
/* Ends the pipe and frees the handle. ZU_PIPE_BAD_HANDLE; or
 * ZU_PIPE_SYSTEM_ERROR when the system refused a close: the handle then
 * stays in the table (holding nothing) and a second close frees it. */
ZU_API int ZU_pipeClose(int handle);
/* Reads one message, or the next part of one longer than `size`, into
 * `buffer`; *count gets the bytes read (0 unless the result is 0). A server
 * end first takes a client, and takes only a client of its own user (else
 * ZU_PIPE_REFUSED, and the next read waits for another). ZU_PIPE_PENDING:
 * nothing yet (ZU_PIPE_NOWAIT only); ZU_PIPE_GONE: the other end has gone,
 * and a server's next read serves a new client. A writing end, a null
 * buffer or count, or a size below 1 is ZU_PIPE_SYSTEM_ERROR. */
ZU_API int ZU_pipeRead(int handle, void *buffer, int size, int *count);
/* Sends `size` bytes as one message, waiting while the reader is behind.
 * Size 0 sends nothing (an empty message would read as "gone"). A server
 * with no client yet, a reader that has gone, a reading end, or a message
 * larger than the system takes at once is ZU_PIPE_SYSTEM_ERROR; a client of
 * another user is ZU_PIPE_REFUSED. */
ZU_API int ZU_pipeWrite(int handle, const void *buffer, int size);

/* ======================================================================
 * Process report: program, version, command line, host, system, hardware,
 * memory, local time and the environment, framed by lines of '=' and '-'.
 * The command line is the triple stored by ZU_setArgs.
 * ====================================================================== */

/* 0; 1 for a null stream; 2 when the stream reports a write error (raised
 * under "ZU_processReport"). Null texts print as empty. */
ZU_API int ZU_processReport(FILE *stream, const char *program, const char *version);

/* ======================================================================
 * Allocation failure hook
 * ====================================================================== */

/* Sets (or with null clears) the routine run once when a failed allocation
 * is about to end the process (Mem_Error Exit), before ZU_memFreeAll frees
 * every tracked block: a library can give up what outlives the process
 * (lock files) while its records are still there, and note that its exit
 * handlers must touch nothing the allocator held. The hook should not rely
 * on tracked allocations succeeding; one that fails inside it ends the
 * process at once, without running the hook again. */
ZU_API void ZU_memSetFailHook(void (*hook)(void));

#ifdef __cplusplus
}
#endif
#endif /* ZUTIL_H */
