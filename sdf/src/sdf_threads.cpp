/* The process-wide switch that turns the SDF library's locking on, and the
 * three process mutexes: global (open, close, the channel table), options
 * and the memory register.
 *
 * Invariants: the flag goes from off to on once and never back; the mutexes
 * don't exist before it goes on, and are created before the flag is
 * published, so any thread that sees the flag sees the mutexes. Lock order:
 * global, then file locks; the option and register mutexes are leaves, never
 * held while another lock is taken. */
#include <atomic>
#include <mutex>

#include "sdf_inner.h"

namespace {

std::atomic<int> g_on{0};
std::atomic<ZU_Lock> g_global{nullptr};
std::atomic<ZU_Lock> g_options{nullptr};
std::atomic<ZU_Lock> g_memreg{nullptr};
std::mutex g_switch; /* serialises the one turning on */

int take(const std::atomic<ZU_Lock> &lock)
{
    if (!g_on.load(std::memory_order_acquire))
        return 0;
    ZU_lockAlways(lock.load(std::memory_order_acquire));
    return 1;
}

void give(const std::atomic<ZU_Lock> &lock, int taken)
{
    if (taken)
        ZU_unlockAlways(lock.load(std::memory_order_acquire));
}

} // namespace

extern "C" {

int sdf_thread_safe(void)
{
    return g_on.load(std::memory_order_acquire);
}

void sdf_threads_on(void)
{
    {
        std::lock_guard<std::mutex> guard(g_switch);
        if (g_on.load(std::memory_order_acquire))
            return;
        g_global.store(ZU_lockCreate(), std::memory_order_release);
        g_options.store(ZU_lockCreate(), std::memory_order_release);
        g_memreg.store(ZU_lockCreate(), std::memory_order_release);
        g_on.store(1, std::memory_order_release);
    }
    /* The utility library's own locks (allocator, error set) follow. */
    if (!ZU_isThreadSafe())
        ZU_setOpts("Thread_Safe=Yes");
}

void sdf_global_lock(void)
{
    take(g_global);
}

void sdf_global_unlock(void)
{
    /* Releasing a free lock leaves it free, so an unlock after the switch
     * went on between the two calls does no harm. */
    give(g_global, sdf_thread_safe());
}

int sdf_opt_lock(void)
{
    return take(g_options);
}

void sdf_opt_unlock(int taken)
{
    give(g_options, taken);
}

int sdf_memreg_lock(void)
{
    return take(g_memreg);
}

void sdf_memreg_unlock(int taken)
{
    give(g_memreg, taken);
}

int sdf_mutex_lock(fcb *f, int mode)
{
    if (!sdf_thread_safe())
        return 0;
    if (!f || !f->file)
        return sdf_error("Sdf_Mutex_Lock", 4001, "channel without a file");
    if (mode == 1) {
        if (f->write_locks > 0)
            return 0; /* the write lock covers reading */
        if (f->read_locks > 0) {
            ++f->read_locks;
            return 0;
        }
        ZU_rwLock(f->file->rwlock, 1);
        f->read_locks = 1;
        return 0;
    }
    if (f->write_locks > 0) {
        ++f->write_locks;
        return 0;
    }
    /* Trading a read lock for a write lock would let two readers wait for
     * each other. */
    if (f->read_locks > 0)
        return sdf_error("Sdf_Mutex_Lock", 3003, f->number);
    if (!f->writable)
        return sdf_error("Sdf_Mutex_Lock", 3002, f->number);
    ZU_rwLock(f->file->rwlock, ZU_RW_WRITE);
    f->write_locks = 1;
    f->read_locks = 1;
    return 0;
}

int sdf_mutex_unlock(fcb *f)
{
    if (!sdf_thread_safe() || !f || !f->file)
        return 0;
    if (f->write_locks == 0 && f->read_locks == 0)
        return 0;
    if (f->write_locks > 0) {
        if (--f->write_locks == 0)
            f->read_locks = 0;
    } else {
        --f->read_locks;
    }
    if (f->write_locks == 0 && f->read_locks == 0)
        ZU_rwUnlock(f->file->rwlock);
    return 0;
}

/* The mutexes only; the flag stays on, so a late caller finds null handles,
 * which the lock calls ignore. */
void sdf_threads_shutdown(void)
{
    ZU_lockDestroy(g_global.exchange(nullptr));
    ZU_lockDestroy(g_options.exchange(nullptr));
    ZU_lockDestroy(g_memreg.exchange(nullptr));
}

} // extern "C"
