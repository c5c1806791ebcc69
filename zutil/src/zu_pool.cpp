/*
 * zu_pool.cpp - pools (ZU_MemLink): many small allocations freed at once.
 *
 * A pool is a list of tracked chunks. The first 32 bytes of a chunk are its
 * list node, a pointer to itself and a spare word; the usable area follows.
 * Requests are rounded up to 8 bytes and cut from the current chunk; what a
 * chunk can't serve is abandoned, and nothing is ever reused, so pool memory
 * is always zero. The pool's lock is taken before the allocator's, never the
 * other way round.
 */
#include "zu_internal.h"

#include <cstring>

namespace {

struct ChunkHead {
    ZU_Node node;
    void *self;
    void *spare;
};
static_assert(sizeof(ChunkHead) == 32, "the chunk head is 32 bytes");

constexpr uint64_t kMinChunk = 8192;

} // namespace

extern "C" {

int ZU_memlinkInit(ZU_MemLink *pool, uint64_t chunkSize)
{
    if (!pool)
        return 1;
    pool->lock = ZU_lockCreate();
    ZU_listInit(&pool->chunks);
    pool->free = 0;
    pool->current = nullptr;
    pool->chunkSize = chunkSize > kMinChunk ? chunkSize : kMinChunk;
    return pool->lock ? 0 : 1;
}

void *ZU_memlinkAlloc(ZU_MemLink *pool, uint64_t size)
{
    if (!pool || size > UINT64_MAX - 8 - sizeof(ChunkHead))
        return nullptr;
    uint64_t rounded = size == 0 ? 8 : (size + 7) & ~uint64_t{7};
    ZU_lock(pool->lock);
    uint64_t capacity = rounded > pool->chunkSize ? rounded : pool->chunkSize;
    if (rounded > pool->free) {
        auto *chunk = static_cast<ChunkHead *>(
            ZU_allocMem(static_cast<size_t>(capacity + sizeof(ChunkHead)), "memlink"));
        if (!chunk) {
            ZU_unlock(pool->lock);
            return nullptr;
        }
        chunk->self = chunk;
        ZU_listAddTail(&pool->chunks, &chunk->node);
        pool->current = reinterpret_cast<char *>(chunk + 1);
        pool->free = capacity;
    }
    /* A chunk with room left always has the usual capacity: one made for a
     * larger request is full at once. So `capacity` is this chunk's size. */
    void *result = pool->current + (capacity - pool->free);
    pool->free -= rounded;
    ZU_unlock(pool->lock);
    return result;
}

char *ZU_memlinkStrDup(ZU_MemLink *pool, const char *text)
{
    if (!text)
        return nullptr;
    size_t length = strlen(text);
    auto *copy = static_cast<char *>(ZU_memlinkAlloc(pool, length + 1));
    if (copy)
        memcpy(copy, text, length + 1);
    return copy;
}

void ZU_memlinkFree(ZU_MemLink *pool)
{
    if (!pool)
        return;
    ZU_lock(pool->lock);
    while (ZU_Node *n = ZU_listRemTail(&pool->chunks))
        ZU_freeMem(n);
    pool->free = 0;
    pool->current = nullptr;
    ZU_unlock(pool->lock);
    ZU_lockDestroy(pool->lock);
    pool->lock = nullptr;
}

} // extern "C"
