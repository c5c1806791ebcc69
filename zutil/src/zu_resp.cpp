/*
 * zu_resp.cpp - response surfaces: kernel-weighted averages of scattered
 * samples, with points added at any time and no fitting step.
 *
 * Invariants: sample i's own copy of its position is positions[i*dimensions
 * ...] and of its response values[i*responses ...], for i below count; both
 * blocks have room for `room` samples, count <= room. The samples lie side
 * by side because every query streams through all of them, so memory
 * traffic decides its speed. A failing addition leaves the surface as it
 * was (a block may have grown, nothing else changes). Handles work as for the
 * n-dimensional tables: a process-wide array under its own lock, a deleted
 * surface leaves a null that the next creation takes.
 */
#include "zu_internal.h"

#include <cmath>
#include <cstring>

namespace {

struct ZU_Resp {
    int32_t dimensions;
    int32_t responses;
    int32_t count;
    int32_t room; /* samples that fit in positions and values */
    double *positions;
    double *values;
    double *gsize;
    double alpha;
    double nu;
};

ZU_LockRec g_lock;
ZU_Resp **g_surfaces = nullptr; /* guarded by g_lock */
int g_slots = 0;

#define ZU_RESP_MESSAGES(X)                                           \
    X(Dims, "invalid number of dimensions (must be > 0)")             \
    X(Responses, "invalid number of responses (must be > 0)")         \
    X(Gsize, "invalid 'gsize' (each grid interval must be >0.0)")     \
    X(Alpha, "invalid 'alpha' (must be >0.0)")                        \
    X(Nu, "invalid 'nu' (must be >0.0)")                              \
    X(Handle, "handle is not valid")                                  \
    X(Pointer, "Invalid pointer")                                     \
    X(Obj, "allocating memory for Resp obj")                          \
    X(GsizeMem, "allocating memory for 'gsize'")                      \
    X(Position, "allocating memory for position")                     \
    X(Response, "allocating memory for response")

enum class Msg {
#define ZU_RESP_ID_(id, text) id,
    ZU_RESP_MESSAGES(ZU_RESP_ID_)
#undef ZU_RESP_ID_
};
const char *const kTexts[] = {
#define ZU_RESP_TEXT_(id, text) text,
    ZU_RESP_MESSAGES(ZU_RESP_TEXT_)
#undef ZU_RESP_TEXT_
};

int fail(const char *routine, int code, Msg id)
{
    ZU_Err(routine, code, ZU_SEV_ERROR, kTexts[static_cast<int>(id)]);
    return code;
}

void freeSurface(ZU_Resp *r)
{
    if (!r)
        return;
    ZU_freeMem(r->positions);
    ZU_freeMem(r->values);
    ZU_freeMem(r->gsize);
    ZU_freeMem(r);
}

ZU_Resp *lookup(const char *routine, int handle)
{
    ZU_lock(&g_lock);
    ZU_Resp *r = handle >= 0 && handle < g_slots ? g_surfaces[handle] : nullptr;
    ZU_unlock(&g_lock);
    if (!r)
        fail(routine, ZU_RESP_BAD_HANDLE, Msg::Handle);
    return r;
}

/* Sum of squared scaled differences. */
inline double squares(const ZU_Resp *r, const double *a, const double *b)
{
    const int32_t n = r->dimensions;
    const double *g = r->gsize;
    double s = 0;
    for (int32_t k = 0; k < n; ++k) {
        double q = (a[k] - b[k]) / g[k];
        s += q * q;
    }
    return s;
}

inline double weight(const ZU_Resp *r, const double *a, const double *b)
{
    return std::exp(-r->alpha * std::pow(std::sqrt(squares(r, a, b)), r->nu));
}

/* The sums of ZU_respSurf for one response, with the position's length N
 * known to the compiler (0: read from the surface). Same arithmetic, in
 * the same order, as squares() and weight(). */
template <int N>
void sumOne(const ZU_Resp *r, const double *x, bool square, double *sum, double *total)
{
    const int32_t n = N ? N : r->dimensions, count = r->count;
    const double *g = r->gsize;
    const double alpha = r->alpha, nu = r->nu;
    const double *positions = r->positions;
    const double *values = r->values;
    double s0 = 0, t0 = 0;
    for (int32_t i = 0; i < count; ++i) {
        const double *p = positions + static_cast<size_t>(i) * n;
        double s = 0;
        for (int32_t k = 0; k < n; ++k) {
            double q = (x[k] - p[k]) / g[k];
            s += q * q;
        }
        const double w = square ? std::exp(-alpha * s) : std::exp(-alpha * std::pow(std::sqrt(s), nu));
        s0 += w * values[i];
        t0 += w;
    }
    *sum = s0;
    *total = t0;
}

bool validCreate(int dimensions, int responses, const double *gsize, double alpha, double nu)
{
    const char *routine = "ZU_respCreate";
    if (dimensions < 1)
        return fail(routine, ZU_RESP_BAD_ARGUMENT, Msg::Dims), false;
    if (responses < 1)
        return fail(routine, ZU_RESP_BAD_ARGUMENT, Msg::Responses), false;
    for (int k = 0; gsize && k < dimensions; ++k)
        if (!(gsize[k] > 0.0) || !std::isfinite(gsize[k]))
            gsize = nullptr;
    if (!gsize)
        return fail(routine, ZU_RESP_BAD_ARGUMENT, Msg::Gsize), false;
    if (!(alpha > 0.0) || !std::isfinite(alpha))
        return fail(routine, ZU_RESP_BAD_ARGUMENT, Msg::Alpha), false;
    if (!(nu > 0.0) || !std::isfinite(nu))
        return fail(routine, ZU_RESP_BAD_ARGUMENT, Msg::Nu), false;
    return true;
}

/* A block of `room` samples of `width` values: the first one tagged, a
 * grown one reallocated (the old one stays valid when that fails). */
double *growBlock(double *block, int32_t room, int32_t width, const char *tag)
{
    size_t bytes = sizeof(double) * static_cast<size_t>(room) * static_cast<size_t>(width);
    return static_cast<double *>(block ? ZU_reallocMemNoZero(block, bytes) : ZU_allocMemNoZero(bytes, tag));
}

/* Makes room for one more sample; 0, or the message of the block that
 * couldn't grow. */
int grow(ZU_Resp *r, Msg *why)
{
    if (r->count < r->room)
        return 0;
    int32_t room = r->room ? (r->room > INT32_MAX / 2 ? INT32_MAX : r->room * 2) : 64;
    if (room == r->room || static_cast<double>(room) * r->dimensions > 1e15 ||
        static_cast<double>(room) * r->responses > 1e15) {
        *why = Msg::Position;
        return 1;
    }
    double *p = growBlock(r->positions, room, r->dimensions, "ZU_respAddPoint::p");
    if (!p) {
        *why = Msg::Position;
        return 1;
    }
    r->positions = p;
    double *v = growBlock(r->values, room, r->responses, "ZU_respAddPoint::v");
    if (!v) {
        /* The positions block may stay larger: room counts the smaller. */
        *why = Msg::Response;
        return 1;
    }
    r->values = v;
    r->room = room;
    return 0;
}

} // namespace

void zu_respReset(void)
{
    ZU_lock(&g_lock);
    ZU_Resp **surfaces = g_surfaces;
    int slots = g_slots;
    g_surfaces = nullptr;
    g_slots = 0;
    ZU_unlock(&g_lock);
    for (int i = 0; i < slots; ++i)
        freeSurface(surfaces[i]);
    ZU_freeMem(surfaces);
}

extern "C" {

const char *ZU_respCodeText(int code)
{
    switch (code) {
#define ZU_CASE_(c, name, text) \
    case c:                     \
        return text;
        ZU_RESP_CODES(ZU_CASE_)
#undef ZU_CASE_
    default:
        return "";
    }
}

int ZU_respCreate(int *handle, int dimensions, int responses, const double *gsize, double alpha, double nu)
{
    const char *routine = "ZU_respCreate";
    if (!handle)
        return fail(routine, ZU_RESP_BAD_ARGUMENT, Msg::Pointer);
    if (!validCreate(dimensions, responses, gsize, alpha, nu))
        return ZU_RESP_BAD_ARGUMENT;
    auto *r = static_cast<ZU_Resp *>(ZU_allocMem(sizeof(ZU_Resp), "ZU_respCreate::obj"));
    if (!r)
        return fail(routine, ZU_RESP_NO_MEMORY, Msg::Obj);
    r->gsize = static_cast<double *>(ZU_allocMem(sizeof(double) * dimensions, "ZU_respCreate::gsize"));
    if (!r->gsize) {
        ZU_freeMem(r);
        return fail(routine, ZU_RESP_NO_MEMORY, Msg::GsizeMem);
    }
    memcpy(r->gsize, gsize, sizeof(double) * dimensions);
    r->dimensions = dimensions;
    r->responses = responses;
    r->alpha = alpha;
    r->nu = nu;
    *handle = -1;
    ZU_lock(&g_lock);
    int slot = 0;
    while (slot < g_slots && g_surfaces[slot])
        ++slot;
    if (slot == g_slots) {
        auto *grown = static_cast<ZU_Resp **>(
            ZU_reallocMem(g_surfaces, sizeof(ZU_Resp *) * (static_cast<size_t>(g_slots) + 1)));
        if (grown) {
            g_surfaces = grown;
            g_surfaces[g_slots++] = nullptr;
        } else {
            slot = -1;
        }
    }
    if (slot >= 0)
        g_surfaces[slot] = r;
    ZU_unlock(&g_lock);
    if (slot < 0) {
        freeSurface(r);
        return fail(routine, ZU_RESP_NO_MEMORY, Msg::Obj);
    }
    *handle = slot;
    return 0;
}

int ZU_respDelete(int handle)
{
    ZU_lock(&g_lock);
    ZU_Resp *r = handle >= 0 && handle < g_slots ? g_surfaces[handle] : nullptr;
    if (r)
        g_surfaces[handle] = nullptr;
    ZU_unlock(&g_lock);
    if (!r)
        return fail("ZU_respDelete", ZU_RESP_BAD_HANDLE, Msg::Handle);
    freeSurface(r);
    return 0;
}

int ZU_respAddPoint(int handle, const double *position, const double *response)
{
    const char *routine = "ZU_respAddPoint";
    ZU_Resp *r = lookup(routine, handle);
    if (!r)
        return ZU_RESP_BAD_HANDLE;
    if (!position || !response)
        return fail(routine, ZU_RESP_BAD_ARGUMENT, Msg::Pointer);
    Msg why;
    if (grow(r, &why))
        return fail(routine, ZU_RESP_NO_MEMORY, why);
    memcpy(r->positions + static_cast<size_t>(r->count) * r->dimensions, position, sizeof(double) * r->dimensions);
    memcpy(r->values + static_cast<size_t>(r->count) * r->responses, response, sizeof(double) * r->responses);
    ++r->count;
    return 0;
}

int ZU_respSurf(int handle, const double *position, double *response)
{
    const char *routine = "ZU_respSurf";
    ZU_Resp *r = lookup(routine, handle);
    if (!r)
        return ZU_RESP_BAD_HANDLE;
    if (!position || !response)
        return fail(routine, ZU_RESP_BAD_ARGUMENT, Msg::Pointer);
    /* Locals, so the compiler need not reload them after each store into
     * the caller's response array, which it must assume may alias. */
    const int32_t m = r->responses, count = r->count;
    const double *positions = r->positions;
    const double *values = r->values;
    const int32_t n = r->dimensions;
    const bool square = r->nu == 2.0;
    const double alpha = r->alpha;
    for (int32_t j = 0; j < m; ++j)
        response[j] = 0;
    double total = 0;
    if (m == 1) {
        /* One response, the common case: sums stay in registers, and the
         * usual position lengths get unrolled loops. */
        auto sum = r->dimensions == 1   ? sumOne<1>
                   : r->dimensions == 2 ? sumOne<2>
                   : r->dimensions == 3 ? sumOne<3>
                   : r->dimensions == 4 ? sumOne<4>
                   : r->dimensions == 5 ? sumOne<5>
                   : r->dimensions == 6 ? sumOne<6>
                                        : sumOne<0>;
        sum(r, position, square, &response[0], &total);
    } else {
        for (int32_t i = 0; i < count; ++i) {
            const double *p = positions + static_cast<size_t>(i) * n;
            const double w = square ? std::exp(-alpha * squares(r, position, p)) : weight(r, position, p);
            const double *v = values + static_cast<size_t>(i) * m;
            for (int32_t j = 0; j < m; ++j)
                response[j] += w * v[j];
            total += w;
        }
    }
    if (total > 0)
        for (int32_t j = 0; j < m; ++j)
            response[j] /= total;
    return 0;
}

int ZU_respNorm(int handle, const double *a, const double *b, double *distance)
{
    const char *routine = "ZU_respNorm";
    ZU_Resp *r = lookup(routine, handle);
    if (!r)
        return ZU_RESP_BAD_HANDLE;
    if (!a || !b || !distance)
        return fail(routine, ZU_RESP_BAD_ARGUMENT, Msg::Pointer);
    *distance = std::sqrt(squares(r, a, b));
    return 0;
}

int ZU_respCorr(int handle, const double *a, const double *b, double *correlation)
{
    const char *routine = "ZU_respCorr";
    ZU_Resp *r = lookup(routine, handle);
    if (!r)
        return ZU_RESP_BAD_HANDLE;
    if (!a || !b || !correlation)
        return fail(routine, ZU_RESP_BAD_ARGUMENT, Msg::Pointer);
    *correlation = weight(r, a, b);
    return 0;
}

} // extern "C"
