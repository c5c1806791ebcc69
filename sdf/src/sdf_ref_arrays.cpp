// By-reference forms of the array and slice operations, both widths.
//
// Start, begin and end arrays and the separate indices count from 1 here and
// are shifted before the core sees them (a start moved by the core comes
// back counting from 1). Dimensions, steps and tr_vec pass as they stand.
// Data goes straight into the caller's buffer; character arrays are always
// fields of the text argument's length, through the fields cores. Only the
// Read_All, Read_Alloc and Read_ASlice forms allocate, for Sdf_Free.
#include "sdf_ref_forms.h"

namespace {

// The allocating cores of both widths, for the adapter lines.
struct ReadAlloc {
    template <class... X>
    int operator()(X... x) const {
        return sdfforms::read_alloc(x...);
    }
};
struct ReadASlice {
    template <class... X>
    int operator()(X... x) const {
        return sdfforms::read_aslice(x...);
    }
};

}  // namespace

using namespace sdfref;

// The generic forms of one width: W empty or 64, w the same for the alias.
#define SDF_REF_GENERIC(W, I)                                                                                      \
    SDF_REF_FORM(Sdf_Define_Array##W, sdf_define_array##W, Sdf_Define_Array##W, 3, In<int>, Name, In<int>,        \
                 In<int>, Ptr<const I>, Text, Text)                                                                \
    SDF_REF_FORM(Sdf_Read_Array##W, sdf_read_array##W, Sdf_Read_Array##W, 1, In<int>, Name, Data, Start<I>, In<I>, \
                 Ptr<I>)                                                                                           \
    SDF_REF_FORM(Sdf_Write_Array##W, sdf_write_array##W, Sdf_Write_Array##W, 1, In<int>, Name, Ptr<const void>,   \
                 Start<I>, In<I>)                                                                                  \
    SDF_REF_FORM(Sdf_Read_Carray##W, sdf_read_carray##W, Spread<&Sdf_Read_CarrayF##W>{}, 2, In<int>, Name,          \
                 FieldsOut, Start<I>, In<I>, Ptr<I>)                                                               \
    SDF_REF_FORM(Sdf_Write_Carray##W, sdf_write_carray##W, Spread<&Sdf_Write_CarrayF##W>{}, 2, In<int>, Name,       \
                 FieldsIn, Start<I>, In<I>)                                                                        \
    SDF_REF_FORM(Sdf_Read_Alloc##W, sdf_read_alloc##W, ReadAlloc{}, 1, In<int>, Name, AllocOut, In<int>, Start<I>, \
                 In<I>, Ptr<I>)                                                                                    \
    SDF_REF_FORM(Sdf_Read_Slice##W, sdf_read_slice##W, Sdf_Read_Slice##W, 1, In<int>, Name, Data, Bound<I>,       \
                 Bound<I>, Ptr<const I>, Ptr<const int32_t>, Ptr<I>, Ptr<I>)                                       \
    SDF_REF_FORM(Sdf_Write_Slice##W, sdf_write_slice##W, Sdf_Write_Slice##W, 1, In<int>, Name, Ptr<const void>,   \
                 Bound<I>, Bound<I>, Ptr<const I>, Ptr<const int32_t>, Ptr<I>)                                     \
    SDF_REF_FORM(Sdf_Read_Cslice##W, sdf_read_cslice##W, Spread<&Sdf_Read_CsliceF##W>{}, 2, In<int>, Name,          \
                 FieldsOut, Bound<I>, Bound<I>, Ptr<const I>, Ptr<const int32_t>, Ptr<I>, Ptr<I>)                  \
    SDF_REF_FORM(Sdf_Write_Cslice##W, sdf_write_cslice##W, Spread<&Sdf_Write_CsliceF##W>{}, 2, In<int>, Name,       \
                 FieldsIn, Bound<I>, Bound<I>, Ptr<const I>, Ptr<const int32_t>, Ptr<I>)                           \
    SDF_REF_FORM(Sdf_Read_ASlice##W, sdf_read_aslice##W, ReadASlice{}, 1, In<int>, Name, AllocOut, In<int>,       \
                 Bound<I>, Bound<I>, Ptr<const I>, Ptr<const int32_t>, Ptr<I>, Ptr<I>)

// The separate indices (from 1) and extents (as they stand) of each rank.
#define SDF_REF_IDX_1D(I) Index<I>
#define SDF_REF_IDX_2D(I) Index<I>, Index<I>
#define SDF_REF_IDX_3D(I) Index<I>, Index<I>, Index<I>
#define SDF_REF_EXT_1D(I) In<I>
#define SDF_REF_EXT_2D(I) In<I>, In<I>
#define SDF_REF_EXT_3D(I) In<I>, In<I>, In<I>

// The fixed-rank forms of one rank and width: N 1D..3D, n the same in lower
// case for the alias.
#define SDF_REF_FIXED(N, n, W, I)                                                                                 \
    SDF_REF_FORM(Sdf_Define_Arr##N##W, sdf_define_arr##n##W, Sdf_Define_Arr##N##W, 3, In<int>, Name, In<int>,    \
                 In<int>, SDF_REF_EXT_##N(I), Text, Text)                                                         \
    SDF_REF_FORM(Sdf_Read_Arr##N##W, sdf_read_arr##n##W, Sdf_Read_Arr##N##W, 1, In<int>, Name, Data,             \
                 SDF_REF_IDX_##N(I), In<I>, Ptr<I>)                                                               \
    SDF_REF_FORM(Sdf_Write_Arr##N##W, sdf_write_arr##n##W, Sdf_Write_Arr##N##W, 1, In<int>, Name, Ptr<const void>, \
                 SDF_REF_IDX_##N(I), In<I>)                                                                       \
    SDF_REF_FORM(Sdf_Read_Carr##N##W, sdf_read_carr##n##W, Spread<&sdf_read_carrf##N##W>{}, 2, In<int>, Name,      \
                 FieldsOut, SDF_REF_IDX_##N(I), In<I>, Ptr<I>)                                                    \
    SDF_REF_FORM(Sdf_Write_Carr##N##W, sdf_write_carr##n##W, Spread<&sdf_write_carrf##N##W>{}, 2, In<int>, Name,   \
                 FieldsIn, SDF_REF_IDX_##N(I), In<I>)                                                             \
    SDF_REF_FORM(Sdf_Read_All##N##W, sdf_read_all##n##W, sdf_read_all##N##W, 1, In<int>, Name, AllocOut, In<int>, \
                 SDF_REF_IDX_##N(I), In<I>, Ptr<I>)

extern "C" {

SDF_REF_GENERIC(, int32_t)
SDF_REF_GENERIC(64, int64_t)

SDF_REF_FIXED(1D, 1d, , int32_t)
SDF_REF_FIXED(2D, 2d, , int32_t)
SDF_REF_FIXED(3D, 3d, , int32_t)
SDF_REF_FIXED(1D, 1d, 64, int64_t)
SDF_REF_FIXED(2D, 2d, 64, int64_t)
SDF_REF_FIXED(3D, 3d, 64, int64_t)

}  // extern "C"
