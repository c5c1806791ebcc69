/*
 * zu_ndim_create.cpp - the life of a table: the handle array, reading a
 * checked map file into a table, creation and deletion.
 *
 * The handle array holds one pointer per handle; a deleted table leaves a
 * null that the next creation takes before the array grows by one. The
 * array changes only under its lock, and every operation looks its handle
 * up under that lock too, so growing the array never pulls it away under a
 * concurrent lookup (the lock costs nothing until Thread_Safe is set).
 * Reading and checking happen outside the lock.
 */
#include "zu_ndim.h"

#include <cstring>
#include <fcntl.h>

namespace {

ZU_LockRec g_lock;
ZU_NdimTable **g_tables = nullptr; /* guarded by g_lock */
int g_slots = 0;

/* Under the lock: the first free slot, grown by one when none is free; -1
 * when the array can't grow. */
int takeSlot()
{
    for (int i = 0; i < g_slots; ++i)
        if (!g_tables[i])
            return i;
    auto *grown = static_cast<ZU_NdimTable **>(
        ZU_reallocMem(g_tables, sizeof(ZU_NdimTable *) * (static_cast<size_t>(g_slots) + 1)));
    if (!grown)
        return -1;
    g_tables = grown;
    g_tables[g_slots] = nullptr;
    return g_slots++;
}

/* The whole file as one tracked text; null after raising why not. */
char *slurp(const char *path, size_t *length)
{
    const char *routine = "ZU_ndimCreate";
    int fd = zu_ndimIo.open(path, O_RDONLY, 0);
    if (fd < 0) {
        zu_ndimRaise(routine, ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::CantRead, path);
        return nullptr;
    }
    size_t size = 0, room = 65536;
    char *text = static_cast<char *>(ZU_allocMemNoZero(room, "ZU_ndimCreate::text"));
    bool failed = !text;
    while (!failed) {
        if (size == room) {
            char *grown = static_cast<char *>(ZU_reallocMemNoZero(text, room * 2));
            if (!grown) {
                failed = true;
                break;
            }
            text = grown;
            room *= 2;
        }
        ssize_t n = zu_ndimIo.read(fd, text + size, room - size);
        if (n < 0)
            failed = true;
        if (n <= 0)
            break;
        size += static_cast<size_t>(n);
    }
    zu_ndimIo.close(fd);
    if (failed) {
        ZU_freeMem(text);
        zu_ndimRaise(routine, ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::ReadFailed, path);
        return nullptr;
    }
    *length = size;
    return text;
}

bool readAxes(NdimLexer &lex, ZU_NdimTable *t)
{
    for (int d = 0; d < t->dimensions; ++d) {
        t->grid[d] = static_cast<float *>(ZU_allocMem(sizeof(float) * t->sizes[d], "ZU_ndimCreate::grid"));
        if (!t->grid[d])
            return false;
        for (int i = 0; i < t->sizes[d]; ++i)
            zu_ndimParseFloat(lex.next(), &t->grid[d][i]);
        lex.next(); /* '#' */
    }
    return true;
}

/* The values of a checked file, behind the axes. */
bool readValues(NdimLexer &lex, ZU_NdimTable *t, bool full, bool withDefault)
{
    if (full) {
        t->values = static_cast<float *>(ZU_reallocMem(nullptr, sizeof(float) * t->points));
        t->keys = static_cast<int32_t *>(ZU_reallocMem(nullptr, sizeof(int32_t) * t->points));
        if (!t->values || !t->keys)
            return false;
        for (int32_t i = 0; i < static_cast<int32_t>(t->points); ++i) {
            zu_ndimParseFloat(lex.next(), &t->values[i]);
            t->keys[i] = i;
        }
        t->count = t->capacity = static_cast<int32_t>(t->points);
        return true;
    }
    if (withDefault) {
        t->hasDefault = 1;
        zu_ndimParseFloat(lex.next(), &t->defaultValue);
        lex.next();
    }
    for (NdimToken tok = lex.next(); tok.kind != NdimToken::End; tok = lex.next()) {
        int64_t key = 0;
        for (int d = 0; d < t->dimensions; ++d, tok = lex.next()) {
            int32_t i = 0;
            zu_ndimParseInt(tok, &i);
            key = key * t->sizes[d] + i;
        }
        float v = 0;
        zu_ndimParseFloat(tok, &v);
        if (zu_ndimStore("ZU_ndimCreate", t, key, v) != 0)
            return false;
        lex.next(); /* '#' */
    }
    return true;
}

} // namespace

void zu_ndimFree(ZU_NdimTable *t)
{
    if (!t)
        return;
    if (t->grid)
        for (int d = 0; d < t->dimensions; ++d)
            ZU_freeMem(t->grid[d]);
    ZU_freeMem(t->grid);
    ZU_freeMem(t->sizes);
    ZU_freeMem(t->idx);
    ZU_freeMem(t->x);
    ZU_freeMem(t->file);
    ZU_freeMem(t->values);
    ZU_freeMem(t->keys);
    ZU_freeMem(t);
}

ZU_NdimTable *zu_ndimRead(const char *text, size_t length, const char *path, const int32_t *sizes,
                          int dimensions)
{
    double points = 1;
    for (int d = 0; d < dimensions; ++d)
        points *= static_cast<float>(sizes[d]);
    if (points > kNdimMaxPoints) {
        zu_ndimRaise("ZU_ndimCreate", ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::TooManyPoints, points,
                     kNdimMaxPoints);
        return nullptr;
    }
    auto *t = static_cast<ZU_NdimTable *>(ZU_allocMem(sizeof(ZU_NdimTable), "ZU_ndimCreate::a"));
    if (!t) {
        zu_ndimRaise("ZU_ndimCreate", ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::ReadAlloc, path);
        return nullptr;
    }
    t->dimensions = dimensions;
    t->points = 1;
    for (int d = 0; d < dimensions; ++d)
        t->points *= sizes[d];
    size_t n = static_cast<size_t>(dimensions);
    t->sizes = static_cast<int32_t *>(ZU_allocMem(sizeof(int32_t) * n, "ZU_ndimCreate::sizes"));
    t->idx = static_cast<int32_t *>(ZU_allocMem(sizeof(int32_t) * n, "ZU_ndimCreate::idx"));
    t->x = static_cast<float *>(ZU_allocMem(sizeof(float) * n, "ZU_ndimCreate::x"));
    t->grid = static_cast<float **>(ZU_allocMem(sizeof(float *) * n, "ZU_ndimCreate::grid"));
    t->file = static_cast<char *>(ZU_allocMem(strlen(path) + 1, "ZU_ndimCreate::file"));
    bool ok = t->sizes && t->idx && t->x && t->grid && t->file;
    if (ok) {
        memcpy(t->sizes, sizes, sizeof(int32_t) * n);
        strcpy(t->file, path);
        NdimLexer lex(text, length);
        NdimToken type = lex.next();
        lex.next(); /* dimensions */
        lex.next(); /* '#' */
        /* The check accepted the type, so its length tells which it is. */
        bool full = type.length == 4, ntuples = type.length == 7;
        ok = readAxes(lex, t) && readValues(lex, t, full, ntuples);
    }
    if (!ok) {
        zu_ndimRaise("ZU_ndimCreate", ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::ReadAlloc, path);
        zu_ndimFree(t);
        return nullptr;
    }
    return t;
}

ZU_NdimTable *zu_ndimLookup(const char *routine, int handle)
{
    ZU_lock(&g_lock);
    ZU_NdimTable *t = handle >= 0 && handle < g_slots ? g_tables[handle] : nullptr;
    ZU_unlock(&g_lock);
    if (!t)
        zu_ndimRaise(routine, ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::BadHandle);
    return t;
}

void zu_ndimReset(void)
{
    ZU_lock(&g_lock);
    ZU_NdimTable **tables = g_tables;
    int slots = g_slots;
    g_tables = nullptr;
    g_slots = 0;
    ZU_unlock(&g_lock);
    for (int i = 0; i < slots; ++i)
        zu_ndimFree(tables[i]);
    ZU_freeMem(tables);
}

extern "C" {

const char *ZU_ndimCodeText(int code)
{
    switch (code) {
#define ZU_CASE_(c, name, text) \
    case c:                     \
        return text;
        ZU_NDIM_CODES(ZU_CASE_)
#undef ZU_CASE_
    default:
        return "";
    }
}

int ZU_ndimCreate(int *handle, const char *path)
{
    if (!handle || !path) {
        zu_ndimRaise("ZU_ndimCreate", ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::BadPointer);
        return ZU_NDIM_FAILED;
    }
    ZU_NdimTable *table = nullptr;
    size_t length = 0;
    if (char *text = slurp(path, &length)) {
        int dims = 0;
        int32_t *sizes = nullptr;
        if (zu_ndimCheck(text, length, path, &dims, &sizes) == 0)
            table = zu_ndimRead(text, length, path, sizes, dims);
        ZU_freeMem(sizes);
        ZU_freeMem(text);
    }
    ZU_lock(&g_lock);
    int slot = takeSlot();
    if (slot >= 0)
        g_tables[slot] = table;
    ZU_unlock(&g_lock);
    *handle = slot;
    if (slot < 0 && table) {
        zu_ndimRaise("ZU_ndimCreate", ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::ReadAlloc, path);
        zu_ndimFree(table);
        table = nullptr;
    }
    return table ? 0 : ZU_NDIM_FAILED;
}

int ZU_ndimDelete(int handle)
{
    ZU_lock(&g_lock);
    ZU_NdimTable *t = handle >= 0 && handle < g_slots ? g_tables[handle] : nullptr;
    if (t)
        g_tables[handle] = nullptr;
    ZU_unlock(&g_lock);
    if (!t) {
        zu_ndimRaise("ZU_ndimDelete", ZU_NDIM_FAILED, ZU_SEV_ERROR, NdimMsg::BadHandle);
        return ZU_NDIM_FAILED;
    }
    zu_ndimFree(t);
    return 0;
}

} // extern "C"
