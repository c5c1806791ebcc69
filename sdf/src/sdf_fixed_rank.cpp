// Array forms of a fixed rank: Sdf_Xxx_Arr1D, 2D and 3D (and their 64-bit
// twins) take the indices or extents as separate arguments.
//
// Each one builds the rank-1, 2 or 3 index array on its stack and calls the
// generic form of the same width, so every test and every lock stays in one
// place. A non-zero result of the generic form is passed up by the chain
// rule under this form's own name (warnings too), naming the generic form.
// The generic form moves a start array behind the last element; that array
// is local here, so the caller's separate indices never change.
#include "sdf_fixed_rank.h"

using sdfforms::fixed_rank;

// One line per family.
#define SDF_FIXED_DEFINE(N, W, I)                                                                           \
    int Sdf_Define_Arr##N##W(int ch, const char* name, int type, int clen, SDF_RANK_PARAMS_##N(I),          \
                             const char* units, const char* desc) {                                         \
        return fixed_rank<I>("Sdf_Define_Arr" #N #W, "Sdf_Define_Array" #W,                                 \
                             [&](I* d) { return Sdf_Define_Array##W(ch, name, type, clen, d, units, desc); }, \
                             SDF_RANK_ARGS_##N);                                                            \
    }
#define SDF_FIXED_READ(N, W, I)                                                                                   \
    int Sdf_Read_Arr##N##W(int ch, const char* name, void** data, SDF_RANK_PARAMS_##N(I), I count, I* nread) {   \
        return fixed_rank<I>("Sdf_Read_Arr" #N #W, "Sdf_Read_Array" #W,                                           \
                             [&](I* s) { return Sdf_Read_Array##W(ch, name, data, s, count, nread); },            \
                             SDF_RANK_ARGS_##N);                                                                  \
    }
#define SDF_FIXED_WRITE(N, W, I)                                                                               \
    int Sdf_Write_Arr##N##W(int ch, const char* name, const void* data, SDF_RANK_PARAMS_##N(I), I count) {    \
        return fixed_rank<I>("Sdf_Write_Arr" #N #W, "Sdf_Write_Array" #W,                                      \
                             [&](I* s) { return Sdf_Write_Array##W(ch, name, data, s, count); },               \
                             SDF_RANK_ARGS_##N);                                                               \
    }
#define SDF_FIXED_READ_C(N, W, I)                                                                         \
    int Sdf_Read_Carr##N##W(int ch, const char* name, char*** strings, SDF_RANK_PARAMS_##N(I), I count, \
                            I* nread) {                                                                   \
        return fixed_rank<I>("Sdf_Read_Carr" #N #W, "Sdf_Read_Carray" #W,                                 \
                             [&](I* s) { return Sdf_Read_Carray##W(ch, name, strings, s, count, nread); }, \
                             SDF_RANK_ARGS_##N);                                                          \
    }
#define SDF_FIXED_WRITE_C(N, W, I)                                                                                  \
    int Sdf_Write_Carr##N##W(int ch, const char* name, char* const* strings, SDF_RANK_PARAMS_##N(I), I count) {    \
        return fixed_rank<I>("Sdf_Write_Carr" #N #W, "Sdf_Write_Carray" #W,                                         \
                             [&](I* s) { return Sdf_Write_Carray##W(ch, name, strings, s, count); },                \
                             SDF_RANK_ARGS_##N);                                                                    \
    }
// The inner ones: fields of a width for the by-reference character forms,
// which name themselves by their public form-1 names.
#define SDF_FIXED_READ_F(N, W, I)                                                                           \
    SDF_FIXED_READ_F_SIG(N, W, I) {                                                                         \
        return fixed_rank<I>("Sdf_Read_Carr" #N #W, "Sdf_Read_CarrayF" #W,                                  \
                             [&](I* s) { return Sdf_Read_CarrayF##W(ch, name, buffer, width, s, count, nread); }, \
                             SDF_RANK_ARGS_##N);                                                            \
    }
#define SDF_FIXED_WRITE_F(N, W, I)                                                                          \
    SDF_FIXED_WRITE_F_SIG(N, W, I) {                                                                        \
        return fixed_rank<I>("Sdf_Write_Carr" #N #W, "Sdf_Write_CarrayF" #W,                                \
                             [&](I* s) { return Sdf_Write_CarrayF##W(ch, name, buffer, width, s, count); }, \
                             SDF_RANK_ARGS_##N);                                                            \
    }
#define SDF_FIXED_READ_ALL(N, W, I)                                                                            \
    SDF_FIXED_READ_ALL_SIG(N, W, I) {                                                                          \
        return fixed_rank<I>("Sdf_Read_All" #N #W, "Sdf_Read_Alloc" #W,                                        \
                             [&](I* s) { return sdfforms::read_alloc(ch, name, out, clen, s, count, nread); }, \
                             SDF_RANK_ARGS_##N);                                                               \
    }

extern "C" {
SDF_FIXED_ALL(SDF_FIXED_DEFINE)
SDF_FIXED_ALL(SDF_FIXED_READ)
SDF_FIXED_ALL(SDF_FIXED_WRITE)
SDF_FIXED_ALL(SDF_FIXED_READ_C)
SDF_FIXED_ALL(SDF_FIXED_WRITE_C)
}  // extern "C"

SDF_FIXED_ALL(SDF_FIXED_READ_F)
SDF_FIXED_ALL(SDF_FIXED_WRITE_F)
SDF_FIXED_ALL(SDF_FIXED_READ_ALL)

namespace sdfforms {

namespace {

// The allocating reads of both widths over the generic forms; *out starts
// null whatever the caller left in it.
template <class I, class Fields, class Elements>
int alloc_into(void** out, int clen, Fields fields, Elements elements) {
    if (!out) return sdf_error("Sdf_Read_Alloc", 4001, "No pointer given for the data.");
    *out = nullptr;
    if (clen <= 0) return elements(out);
    char* text = nullptr;
    const int rc = fields(&text);
    *out = text;
    return rc;
}

}  // namespace

int read_alloc(int ch, const char* name, void** out, int clen, int32_t* start, int32_t count, int32_t* nread) {
    return alloc_into<int32_t>(
        out, clen, [&](char** t) { return Sdf_Read_CarrayF(ch, name, t, clen, start, count, nread); },
        [&](void** d) { return Sdf_Read_Array(ch, name, d, start, count, nread); });
}
int read_alloc(int ch, const char* name, void** out, int clen, int64_t* start, int64_t count, int64_t* nread) {
    return alloc_into<int64_t>(
        out, clen, [&](char** t) { return Sdf_Read_CarrayF64(ch, name, t, clen, start, count, nread); },
        [&](void** d) { return Sdf_Read_Array64(ch, name, d, start, count, nread); });
}
int read_aslice(int ch, const char* name, void** out, int clen, const int32_t* begin, const int32_t* end,
                const int32_t* step, const int32_t* tr_vec, int32_t* count, int32_t* dims) {
    return alloc_into<int32_t>(
        out, clen,
        [&](char** t) { return Sdf_Read_CsliceF(ch, name, t, clen, begin, end, step, tr_vec, count, dims); },
        [&](void** d) { return Sdf_Read_Slice(ch, name, d, begin, end, step, tr_vec, count, dims); });
}
int read_aslice(int ch, const char* name, void** out, int clen, const int64_t* begin, const int64_t* end,
                const int64_t* step, const int32_t* tr_vec, int64_t* count, int64_t* dims) {
    return alloc_into<int64_t>(
        out, clen,
        [&](char** t) { return Sdf_Read_CsliceF64(ch, name, t, clen, begin, end, step, tr_vec, count, dims); },
        [&](void** d) { return Sdf_Read_Slice64(ch, name, d, begin, end, step, tr_vec, count, dims); });
}

}  // namespace sdfforms
