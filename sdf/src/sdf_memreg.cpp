/* The register of memory that the library hands to its callers, and
 * Sdf_Free, which takes it back.
 *
 * Invariants: the pointers stand sorted and unique in one tracked array
 * (capacity 1024 at first, doubling when full), so a lookup is a bisection;
 * a pointer is freed only when it is found in the register, so a caller's
 * own memory or a second Sdf_Free of the same pointer is left alone; the
 * array is freed when the last pointer leaves. All of it under the register
 * mutex, a leaf lock. */
#include <cstdint>
#include <functional>

#include "sdf_inner.h"

namespace {

constexpr int k_first_capacity = 1024;

void **g_mem = nullptr;
int g_count = 0;
int g_capacity = 0;

/* Position of p, or where it would be inserted. */
int position(void *p)
{
    int lo = 0, hi = g_count;
    while (lo < hi) {
        int mid = lo + (hi - lo) / 2;
        if (std::less<void *>()(g_mem[mid], p))
            lo = mid + 1;
        else
            hi = mid;
    }
    return lo;
}

bool make_room()
{
    if (g_count < g_capacity)
        return true;
    int cap = g_capacity ? g_capacity * 2 : k_first_capacity;
    void *grown = g_mem ? ZU_reallocMem(g_mem, sizeof(void *) * cap)
                        : ZU_allocMem(sizeof(void *) * cap, "sdf_mem_init:MemBlock");
    if (!grown)
        return false;
    g_mem = static_cast<void **>(grown);
    g_capacity = cap;
    return true;
}

struct memreg_guard {
    int taken = sdf_memreg_lock();
    memreg_guard() = default;
    memreg_guard(const memreg_guard &) = delete;
    memreg_guard &operator=(const memreg_guard &) = delete;
    ~memreg_guard() { sdf_memreg_unlock(taken); }
};

} // namespace

extern "C" {

void *sdf_register(void *p)
{
    if (!p)
        return nullptr;
    bool entered = false;
    {
        memreg_guard g;
        int at = position(p);
        if (at < g_count && g_mem[at] == p)
            return p; /* already handed out */
        if (make_room()) {
            for (int i = g_count; i > at; --i)
                g_mem[i] = g_mem[i - 1];
            g_mem[at] = p;
            ++g_count;
            entered = true;
        }
    }
    if (entered)
        return p;
    /* Memory the caller could never give back through Sdf_Free is not
     * handed out at all. */
    ZU_freeMem(p);
    return nullptr;
}

int Sdf_Free(void *ptr)
{
    if (!ptr)
        return 0;
    {
        memreg_guard g;
        int at = position(ptr);
        if (at >= g_count || g_mem[at] != ptr)
            return 0;
        for (int i = at; i + 1 < g_count; ++i)
            g_mem[i] = g_mem[i + 1];
        if (--g_count == 0) {
            ZU_freeMem(g_mem);
            g_mem = nullptr;
            g_capacity = 0;
        }
    }
    ZU_freeMem(ptr);
    return 1;
}

} // extern "C"
