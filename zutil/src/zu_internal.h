/*
 * zu_internal.h - what the modules of the utility library share with each
 * other and with the library's own tests, but not with callers.
 *
 * Module locks are static objects that exist for the whole life of the
 * process, so no module has to create its lock before first use and a lock
 * never disappears under a thread that is waiting on it.
 */
#ifndef ZU_INTERNAL_H
#define ZU_INTERNAL_H

#include "zutil.h"

#include <atomic>
#include <condition_variable>
#include <mutex>

/* A binary lock that any thread may release (a reader-writer lock releases
 * on behalf of other threads), unlike std::mutex. */
struct ZU_LockRec {
    std::mutex mutex;
    std::condition_variable freed;
    bool free = true;
};

struct ZU_RWLockRec {
    ZU_LockRec readGate, readCount, resource, writeCount;
    int readers = 0;            /* guarded by readCount */
    int writers = 0;            /* guarded by writeCount */
    std::atomic<int> state{0}; /* 1 read, -1 write, 0 free */
};

/* Allocator: sets itself up if needed (first use, or from other modules'
 * start-up so that their atexit clean-ups run before ZU_memFreeAll). */
void zu_memEnsureInit(int atexitFlag);

/* Raises an error as ZU_Err does, with `errorOut` in place of the option's
 * current value (for a caller that read it earlier, under its own lock). */
void zu_errRaise(const char *routine, int number, int severity, const char *message, int errorOut);

/* Error set: set-up, and the clean-up that ZU_close and atexit run. */
void zu_errInit(int atexitFlag);
void zu_errCleanup(void);

/* Options: drops every pushed set and the working set (for ZU_close). */
void zu_optReset(void);

/* N-dimensional tables and response surfaces: drop every table or surface
 * and empty the handle arrays (ZU_memFreeAll runs them before it frees all
 * memory, so no handle is left pointing at a freed block). */
void zu_ndimReset(void);
void zu_respReset(void);
/* Pipes: close every pipe and empty the table (ZU_memFreeAll). */
void zu_pipeReset(void);

/* Compiles a routine pattern quietly for the error operations; returns 1 and
 * fills `buffer` unless it is "*" (then `*all` is set) or doesn't compile. */
int zu_patCompileQuiet(const char *pattern, unsigned char *buffer, int *all);

/* Compiles the expression `regex` into [buffer, end). Stops at `terminator`
 * or a newline. Reports failures through ZU_Err when `report` is non-zero. */
int setPat(const char *regex, unsigned char *buffer, const unsigned char *end, int terminator,
           int report);

/* Unit tables. ZU_init calls the loader if one is set, and ZU_close the
 * freer; the unit system installs its own pair here. A loader returns 0 or
 * the load's code, and leaves its message in the error slot. */
extern ZU_API int (*zu_unitTableLoader)(int atexitFlag);
extern ZU_API void (*zu_unitTableFreer)(void);

#endif
