/*
 * zu_lock.cpp - binary locks and the reader-writer lock built from them.
 *
 * ZU_lock and ZU_unlock do nothing until Thread_Safe=Yes has been set, so a
 * single-threaded process pays no system call; the flag only ever goes from
 * off to on. The binary lock is a flag guarded by a mutex, so that any thread
 * may release it and a second release leaves it free. The reader-writer lock
 * gives writers preference: the first writer closes readGate, which keeps
 * new readers out until the last writer has gone.
 */
#include "zu_internal.h"

#include <new>

namespace {

void take(ZU_LockRec *lock)
{
    std::unique_lock<std::mutex> guard(lock->mutex);
    lock->freed.wait(guard, [lock] { return lock->free; });
    lock->free = false;
}

bool tryTake(ZU_LockRec *lock)
{
    std::lock_guard<std::mutex> guard(lock->mutex);
    if (!lock->free)
        return false;
    lock->free = false;
    return true;
}

void release(ZU_LockRec *lock)
{
    {
        std::lock_guard<std::mutex> guard(lock->mutex);
        lock->free = true;
    }
    lock->freed.notify_one();
}

/* Bookkeeping of the reader and writer counts: each count has its own lock
 * in the scheme, so these follow it exactly. */
void readerEnter(ZU_RWLockRec *rw)
{
    take(&rw->readCount);
    if (++rw->readers == 1) {
        take(&rw->resource);
        rw->state = 1;
    }
    release(&rw->readCount);
}

void writerEnter(ZU_RWLockRec *rw)
{
    take(&rw->writeCount);
    if (++rw->writers == 1)
        take(&rw->readGate);
    release(&rw->writeCount);
}

void writerLeave(ZU_RWLockRec *rw)
{
    take(&rw->writeCount);
    if (--rw->writers == 0)
        release(&rw->readGate);
    release(&rw->writeCount);
}

int tryRead(ZU_RWLockRec *rw)
{
    if (!tryTake(&rw->readGate))
        return 0;
    take(&rw->readCount);
    if (rw->readers == 0) {
        if (!tryTake(&rw->resource)) {
            release(&rw->readCount);
            release(&rw->readGate);
            return 0;
        }
        rw->state = 1;
    }
    ++rw->readers;
    release(&rw->readCount);
    release(&rw->readGate);
    return 1;
}

int tryWrite(ZU_RWLockRec *rw)
{
    take(&rw->writeCount);
    if (rw->writers == 0 && !tryTake(&rw->readGate)) {
        release(&rw->writeCount);
        return 0;
    }
    ++rw->writers;
    release(&rw->writeCount);
    if (!tryTake(&rw->resource)) {
        writerLeave(rw);
        return 0;
    }
    rw->state = -1;
    return 1;
}

} // namespace

extern "C" {

ZU_Lock ZU_lockCreate(void)
{
    return new (std::nothrow) ZU_LockRec;
}

void ZU_lockDestroy(ZU_Lock lock)
{
    delete lock;
}

void ZU_lock(ZU_Lock lock)
{
    if (lock && ZU_isThreadSafe())
        take(lock);
}

void ZU_unlock(ZU_Lock lock)
{
    if (lock && ZU_isThreadSafe())
        release(lock);
}

void ZU_lockAlways(ZU_Lock lock)
{
    if (lock)
        take(lock);
}

int ZU_lockTry(ZU_Lock lock)
{
    return lock && tryTake(lock) ? 1 : 0;
}

void ZU_unlockAlways(ZU_Lock lock)
{
    if (lock)
        release(lock);
}

ZU_RWLock ZU_rwCreate(void)
{
    return new (std::nothrow) ZU_RWLockRec;
}

void ZU_rwDestroy(ZU_RWLock lock)
{
    delete lock;
}

void ZU_rwLock(ZU_RWLock rw, int mode)
{
    if (!rw)
        return;
    if (mode == ZU_RW_WRITE) {
        writerEnter(rw);
        take(&rw->resource);
        rw->state = -1;
    } else {
        take(&rw->readGate);
        readerEnter(rw);
        release(&rw->readGate);
    }
}

int ZU_rwTryLock(ZU_RWLock rw, int mode)
{
    if (!rw)
        return 0;
    return mode == ZU_RW_WRITE ? tryWrite(rw) : tryRead(rw);
}

void ZU_rwUnlock(ZU_RWLock rw)
{
    if (!rw)
        return;
    int state = rw->state.load();
    if (state == -1) {
        rw->state = 0;
        release(&rw->resource);
        writerLeave(rw);
    } else if (state == 1) {
        take(&rw->readCount);
        if (rw->readers > 0 && --rw->readers == 0) {
            rw->state = 0;
            release(&rw->resource);
        }
        release(&rw->readCount);
    }
}

int ZU_rwState(ZU_RWLock rw)
{
    return rw ? rw->state.load() : 0;
}

} // extern "C"
