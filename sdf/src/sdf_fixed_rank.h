// The separate-index forms (1D, 2D, 3D) share one builder: the indices or
// extents become an array {rank, x...} on the stack, the generic form runs
// on it, and a non-zero result is passed up by the chain rule under the
// fixed-rank form's name. Besides the public forms, this header declares the
// fixed-rank forms over the fields and allocating cores, which only the
// by-reference forms call.
#pragma once

#include "sdf_inner.h"

namespace sdfforms {

// Runs call(array) with the array {rank, x...} and chains its result.
template <class I, class Call, class... X>
int fixed_rank(const char* routine, const char* generic, Call call, X... x) {
    I a[8] = {static_cast<I>(sizeof...(X)), static_cast<I>(x)...};
    const int rc = call(a);
    return rc ? sdf_error_chain(routine, rc, generic) : 0;
}

// Reads count elements from start into *out, which starts null, so the
// library allocates (give it back with Sdf_Free): as fields of clen bytes
// when clen > 0, else as elements of the array's own type. The codes of
// Sdf_Read_CarrayF and Sdf_Read_Array.
int read_alloc(int ch, const char* name, void** out, int clen, int32_t* start, int32_t count, int32_t* nread);
int read_alloc(int ch, const char* name, void** out, int clen, int64_t* start, int64_t count, int64_t* nread);
// The same for a slice, with the codes of Sdf_Read_CsliceF and Sdf_Read_Slice.
int read_aslice(int ch, const char* name, void** out, int clen, const int32_t* begin, const int32_t* end,
                const int32_t* step, const int32_t* tr_vec, int32_t* count, int32_t* dims);
int read_aslice(int ch, const char* name, void** out, int clen, const int64_t* begin, const int64_t* end,
                const int64_t* step, const int32_t* tr_vec, int64_t* count, int64_t* dims);

}  // namespace sdfforms

// The separate index (or extent) arguments of each rank, and their names.
#define SDF_RANK_PARAMS_1D(I) I i
#define SDF_RANK_PARAMS_2D(I) I i, I j
#define SDF_RANK_PARAMS_3D(I) I i, I j, I k
#define SDF_RANK_ARGS_1D i
#define SDF_RANK_ARGS_2D i, j
#define SDF_RANK_ARGS_3D i, j, k

// Every family at ranks 1 to 3 in both widths: FORM(N, W, I) with N 1D, 2D
// or 3D, W empty or 64, I the integer type of that width.
#define SDF_FIXED_ALL(FORM) \
    FORM(1D, , int32_t)     \
    FORM(2D, , int32_t)     \
    FORM(3D, , int32_t)     \
    FORM(1D, 64, int64_t)   \
    FORM(2D, 64, int64_t)   \
    FORM(3D, 64, int64_t)

// Signatures of the inner fixed-rank forms: character fields of a width, and
// reads into memory the library allocates.
#define SDF_FIXED_READ_F_SIG(N, W, I) \
    int sdf_read_carrf##N##W(int ch, const char* name, char** buffer, int width, SDF_RANK_PARAMS_##N(I), I count, I* nread)
#define SDF_FIXED_WRITE_F_SIG(N, W, I) \
    int sdf_write_carrf##N##W(int ch, const char* name, const char* buffer, int width, SDF_RANK_PARAMS_##N(I), I count)
#define SDF_FIXED_READ_ALL_SIG(N, W, I) \
    int sdf_read_all##N##W(int ch, const char* name, void** out, int clen, SDF_RANK_PARAMS_##N(I), I count, I* nread)
#define SDF_FIXED_DECLARE_READ_F(N, W, I) SDF_FIXED_READ_F_SIG(N, W, I);
#define SDF_FIXED_DECLARE_WRITE_F(N, W, I) SDF_FIXED_WRITE_F_SIG(N, W, I);
#define SDF_FIXED_DECLARE_READ_ALL(N, W, I) SDF_FIXED_READ_ALL_SIG(N, W, I);

SDF_FIXED_ALL(SDF_FIXED_DECLARE_READ_F)
SDF_FIXED_ALL(SDF_FIXED_DECLARE_WRITE_F)
SDF_FIXED_ALL(SDF_FIXED_DECLARE_READ_ALL)
