/*
 * zu_mem.cpp - the tracked allocator and the machine's memory report.
 *
 * Each block is malloc(size + 32): a 32-byte header (list links, the
 * caller's address, the caller's size) and then the caller's area. The
 * header keeps every live block in one list, so ZU_memFreeAll can free
 * whatever is left, and the running total counts size + 32 per block.
 * malloc and realloc run outside the allocator's lock; the list, the total
 * and the peak change only under it.
 *
 * A large block is advised to use huge pages: filling a fresh block of many
 * megabytes costs mostly one page fault per 4 KiB page, and a 2 MiB page
 * takes one fault for 512 of them. The advice covers only the 2 MiB-aligned
 * inside of the caller's area, changes no content, and a kernel that
 * declines it costs nothing.
 */
#include "zu_internal.h"

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

namespace {

struct BlockHeader {
    ZU_Node node;
    void *data;
    uint64_t size;
};
static_assert(sizeof(BlockHeader) == 32, "the header is 32 bytes");

constexpr size_t kHeader = sizeof(BlockHeader);
constexpr unsigned char kTrash = 0x55;

ZU_List g_blocks;
double g_total = 0;
double g_peak = 0;
bool g_trashNoZero = false;
std::atomic<bool> g_initialised{false};
bool g_atexitDone = false;
ZU_LockRec g_lock;
std::mutex g_initMutex; /* guards set-up only, whatever Thread_Safe says */
std::atomic<void (*)(void)> g_failHook{nullptr};

constexpr size_t kHugePage = size_t{2} << 20;
constexpr size_t kHugeFrom = size_t{8} << 20;

void adviseHugePages(void *area, size_t size)
{
    if (size < kHugeFrom)
        return;
    const uintptr_t from = (reinterpret_cast<uintptr_t>(area) + kHugePage - 1) & ~(kHugePage - 1);
    const uintptr_t to = (reinterpret_cast<uintptr_t>(area) + size) & ~(kHugePage - 1);
    if (to > from)
        (void)madvise(reinterpret_cast<void *>(from), to - from, MADV_HUGEPAGE);
}

BlockHeader *headerOf(void *ptr)
{
    return reinterpret_cast<BlockHeader *>(static_cast<char *>(ptr) - kHeader);
}

void raisePeak()
{
    if (g_total > g_peak)
        g_peak = g_total;
}

/* Under the lock: account for and link a block holding `size` bytes. */
void track(BlockHeader *h, size_t size, double growth)
{
    ZU_lock(&g_lock);
    g_total += growth;
    raisePeak();
    ZU_listAddTail(&g_blocks, &h->node);
    h->data = reinterpret_cast<char *>(h) + kHeader;
    h->size = size;
    ZU_unlock(&g_lock);
}

/* What Mem_Error asks for when malloc or realloc gave null. */
void *failure(const char *routine, const char *tag, size_t growth)
{
    int action = ZU_optValue(ZU_OPT_MEM_ERROR);
    if (!(action & 2)) {
        if (tag)
            fprintf(stderr,
                    "ERROR: %s() failed! (%s requires %zd bytes above the %.0f already "
                    "allocated)\n",
                    routine, tag, static_cast<ssize_t>(growth), ZU_memTotal());
        else
            fprintf(stderr,
                    "ERROR: %s() failed! (requires %zd bytes above the %.0f already "
                    "allocated)\n",
                    routine, static_cast<ssize_t>(growth), ZU_memTotal());
    }
    if (!(action & 1)) {
        /* The hook runs once: a failure inside it ends the process at once. */
        void (*hook)(void) = g_failHook.exchange(nullptr);
        if (hook)
            hook();
        ZU_memFreeAll();
        exit(1);
    }
    return nullptr;
}

void *allocate(size_t size, const char *tag, bool zero, const char *routine)
{
    zu_memEnsureInit(1);
    /* calloc: a large block comes zeroed from the system, without a pass
     * of its own over memory the caller is about to fill anyway. */
    BlockHeader *h = size <= SIZE_MAX - kHeader
                         ? static_cast<BlockHeader *>(zero ? calloc(1, size + kHeader) : malloc(size + kHeader))
                         : nullptr;
    if (!h)
        return failure(routine, tag ? tag : "", size + kHeader);
    track(h, size, static_cast<double>(size) + kHeader);
    adviseHugePages(h->data, size);
    if (!zero && g_trashNoZero)
        memset(h->data, kTrash, size);
    return h->data;
}

void *reallocate(void *ptr, size_t size, bool zero, const char *routine)
{
    zu_memEnsureInit(1);
    BlockHeader *old = ptr ? headerOf(ptr) : nullptr;
    size_t oldSize = old ? old->size : 0;
    if (old) {
        ZU_lock(&g_lock);
        ZU_listRemove(&old->node);
        ZU_unlock(&g_lock);
    }
    BlockHeader *h = size <= SIZE_MAX - kHeader
                         ? static_cast<BlockHeader *>(realloc(old, size + kHeader))
                         : nullptr;
    if (!h) {
        /* The old block is still valid: put it back so a later free works. */
        if (old)
            track(old, oldSize, 0);
        size_t growth = size > oldSize ? size - oldSize : 0;
        return failure(routine, nullptr, old ? growth : size + kHeader);
    }
    double growth = static_cast<double>(size) - static_cast<double>(oldSize) + (old ? 0 : kHeader);
    track(h, size, growth);
    char *data = static_cast<char *>(h->data);
    if (size > oldSize)
        adviseHugePages(data, size);
    if (size > oldSize) {
        if (zero)
            memset(data + oldSize, 0, size - oldSize);
        else if (g_trashNoZero)
            memset(data + oldSize, kTrash, size - oldSize);
    }
    return data;
}

/* Available memory from /proc/meminfo, in kB; -1 when it can't be read. */
long long memAvailableKB()
{
    FILE *f = fopen("/proc/meminfo", "re");
    if (!f)
        return -1;
    char line[256];
    long long kb = -1;
    while (fgets(line, sizeof line, f)) {
        if (sscanf(line, "MemAvailable: %lld kB", &kb) == 1)
            break;
        kb = -1;
    }
    fclose(f);
    return kb;
}

} // namespace

void zu_memEnsureInit(int atexitFlag)
{
    if (g_initialised.load(std::memory_order_acquire))
        return;
    std::lock_guard<std::mutex> guard(g_initMutex);
    if (g_initialised.load(std::memory_order_relaxed))
        return;
    ZU_lock(&g_lock);
    ZU_listInit(&g_blocks);
    g_trashNoZero = getenv("ZU_TRASHNOZERO") != nullptr;
    if (atexitFlag && !g_atexitDone) {
        atexit(ZU_memFreeAll);
        g_atexitDone = true;
    }
    ZU_unlock(&g_lock);
    g_initialised.store(true, std::memory_order_release);
}

extern "C" {

void *ZU_allocMem(size_t size, const char *tag)
{
    return allocate(size, tag, true, "ZU_allocMem");
}

void *ZU_allocMemNoZero(size_t size, const char *tag)
{
    return allocate(size, tag, false, "ZU_allocMemNoZero");
}

void *ZU_reallocMem(void *ptr, size_t size)
{
    return reallocate(ptr, size, true, "ZU_reallocMem");
}

void *ZU_reallocMemNoZero(void *ptr, size_t size)
{
    return reallocate(ptr, size, false, "ZU_reallocMemNoZero");
}

void ZU_freeMem(void *ptr)
{
    if (!ptr)
        return;
    BlockHeader *h = headerOf(ptr);
    double size = static_cast<double>(h->size) + kHeader;
    ZU_lock(&g_lock);
    ZU_listRemove(&h->node);
    free(h);
    g_total -= size;
    ZU_unlock(&g_lock);
}

void ZU_memSetFailHook(void (*hook)(void))
{
    g_failHook.store(hook);
}

void ZU_memInit(int atexitFlag)
{
    zu_memEnsureInit(atexitFlag);
}

void ZU_memFreeAll(void)
{
    /* The unit tables, the error set and the option stack hold tracked
     * blocks: let them drop those first, so that nothing is left pointing at
     * freed memory. */
    if (zu_unitTableFreer)
        zu_unitTableFreer();
    zu_errCleanup();
    zu_optReset();
    zu_ndimReset();
    zu_respReset();
    zu_pipeReset();
    std::lock_guard<std::mutex> guard(g_initMutex);
    if (!g_initialised.load(std::memory_order_relaxed))
        return;
    ZU_lock(&g_lock);
    while (ZU_Node *n = ZU_listRemTail(&g_blocks))
        free(n);
    ZU_unlock(&g_lock);
    g_initialised.store(false, std::memory_order_release);
}

double ZU_memTotal(void)
{
    ZU_lock(&g_lock);
    double total = g_total;
    ZU_unlock(&g_lock);
    return total;
}

double ZU_memPeak(int reset)
{
    ZU_lock(&g_lock);
    double peak = g_peak;
    if (reset)
        g_peak = g_total;
    ZU_unlock(&g_lock);
    return peak;
}

int ZU_memStatus(int *totalMB, int *availMB)
{
    if (!totalMB || !availMB)
        return 1;
    long pages = sysconf(_SC_PHYS_PAGES);
    long pageSize = sysconf(_SC_PAGESIZE);
    double total = pages > 0 && pageSize > 0 ? static_cast<double>(pages) * pageSize : 0;
    long long availKB = memAvailableKB();
    double avail = 0;
    if (availKB >= 0) {
        avail = static_cast<double>(availKB) * 1024;
    } else {
        long free = sysconf(_SC_AVPHYS_PAGES);
        avail = free > 0 && pageSize > 0 ? static_cast<double>(free) * pageSize : 0;
    }
    *totalMB = static_cast<int>(total / 1024 / 1024);
    *availMB = static_cast<int>(avail / 1024 / 1024);
    return 0;
}

} // extern "C"
