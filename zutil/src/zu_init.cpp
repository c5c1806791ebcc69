/*
 * zu_init.cpp - start-up and shut-down of the utility library.
 *
 * ZU_init runs once (until ZU_close): memory, errors, then the unit tables.
 * Option and module locks are static and need no set-up. It may be reached
 * again from inside itself (a loader that sets options), which the
 * re-entrant guard and the early flag make harmless.
 *
 * Unit tables: the unit system lives outside this part of the library, so
 * loading goes through a loader pointer that it installs; with none
 * installed there is nothing to load.
 */
#include "zu_internal.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

/* Visible outside the library: the unit system may be linked separately. */
ZU_API int (*zu_unitTableLoader)(int atexitFlag) = nullptr;
ZU_API void (*zu_unitTableFreer)(void) = nullptr;

namespace {

std::atomic<bool> g_started{false};
std::recursive_mutex g_startMutex;

void loadUnitTables(int atexitFlag)
{
    if (!zu_unitTableLoader || zu_unitTableLoader(atexitFlag) == 0)
        return;
    char text[1024];
    ZU_getError(text, sizeof text, nullptr);
    fprintf(stderr, "ZUtil: %s\n", text);
    exit(1);
}

} // namespace

extern "C" {

void ZU_init(int atexitFlag)
{
    if (g_started.load(std::memory_order_acquire))
        return;
    std::lock_guard<std::recursive_mutex> guard(g_startMutex);
    if (g_started.load(std::memory_order_relaxed))
        return;
    g_started.store(true, std::memory_order_release);
    ZU_memInit(atexitFlag);
    zu_errInit(atexitFlag);
    ZU_wrMesInit();
    loadUnitTables(atexitFlag);
}

void ZU_close(void)
{
    std::lock_guard<std::recursive_mutex> guard(g_startMutex);
    if (zu_unitTableFreer)
        zu_unitTableFreer();
    zu_errCleanup();
    zu_optReset();
    ZU_memFreeAll();
    g_started.store(false, std::memory_order_release);
}

} // extern "C"
