// Every public form of the library exists: the table below takes the
// address of each (so the link proves it) and counts them per group; the
// by-reference forms must also answer to their gfortran names.
#include <gtest/gtest.h>

#include <cctype>
#include <set>
#include <string>
#include <vector>

#include "sdf.h"

// F1: form 1 only; F2: form 2 only; B: both. W64 adds the 64 twins.
#define SDF_W64(X, n, l) X(n, l) X(n##64, l##64)
#define SDF_FORMS(F1, F2, B)                                                                                      \
    /* files and channels: 24 */                                                                                 \
    B(Sdf_Open, sdf_open) B(Sdf_Close, sdf_close) B(Sdf_Refresh, sdf_refresh) B(Sdf_Write, sdf_write)             \
    B(Sdf_Flush, sdf_flush) F1(Sdf_Fileinf, _) B(Sdf_Filename, sdf_filename) F1(Sdf_FilenameTS, _)               \
    B(Sdf_Is_Open, sdf_is_open) B(Sdf_Is_Sdf, sdf_is_sdf) B(Sdf_Lockfile_Info, sdf_lockfile_info)                 \
    B(Sdf_Delete_Lockfile, sdf_delete_lockfile) B(Sdf_Free, sdf_free)                                            \
    /* variables: 63 */                                                                                           \
    B(Sdf_Get_Type, sdf_get_type) B(Sdf_Get_Elen, sdf_get_elen) SDF_W64(B, Sdf_Get_Dims, sdf_get_dims)          \
    SDF_W64(B, Sdf_Last_Dim, sdf_last_dim) SDF_W64(B, Sdf_Put_Dims, sdf_put_dims)                                \
    SDF_W64(B, Sdf_Set_Dims, sdf_set_dims) SDF_W64(B, Sdf_Num_Elem, sdf_num_elem) B(Sdf_Get_Val, sdf_get_val)   \
    B(Sdf_Put_Val, sdf_put_val) B(Sdf_Get_Cval, sdf_get_cval) B(Sdf_Put_Cval, sdf_put_cval)                      \
    B(Sdf_Write_Var, sdf_write_var) B(Sdf_Write_Char, sdf_write_char) B(Sdf_Get_Units, sdf_get_units)           \
    B(Sdf_Put_Units, sdf_put_units) B(Sdf_Get_Desc, sdf_get_desc) B(Sdf_Put_Desc, sdf_put_desc)                  \
    B(Sdf_Where, sdf_where) B(Sdf_Where_Chan, sdf_where_chan) B(Sdf_Exists, sdf_exists)                           \
    B(Sdf_Valid_Name, sdf_valid_name) F1(Sdf_Fix_Name, _) B(Sdf_Check_Name, sdf_check_name)                      \
    B(Sdf_Delete, sdf_delete) B(Sdf_List, sdf_list) B(Sdf_Tag_List, sdf_tag_list)                                \
    F2(Sdf_List_Alloc, sdf_list_alloc) F2(Sdf_Tag_List_Alloc, sdf_tag_list_alloc)                                \
    /* arrays: 92 */                                                                                              \
    SDF_W64(B, Sdf_Define_Array, sdf_define_array) SDF_W64(B, Sdf_Define_Arr1D, sdf_define_arr1d)               \
    SDF_W64(B, Sdf_Define_Arr2D, sdf_define_arr2d) SDF_W64(B, Sdf_Define_Arr3D, sdf_define_arr3d)               \
    SDF_W64(B, Sdf_Read_Array, sdf_read_array) SDF_W64(B, Sdf_Read_Arr1D, sdf_read_arr1d)                       \
    SDF_W64(B, Sdf_Read_Arr2D, sdf_read_arr2d) SDF_W64(B, Sdf_Read_Arr3D, sdf_read_arr3d)                       \
    SDF_W64(B, Sdf_Write_Array, sdf_write_array) SDF_W64(B, Sdf_Write_Arr1D, sdf_write_arr1d)                   \
    SDF_W64(B, Sdf_Write_Arr2D, sdf_write_arr2d) SDF_W64(B, Sdf_Write_Arr3D, sdf_write_arr3d)                   \
    SDF_W64(B, Sdf_Read_Carray, sdf_read_carray) SDF_W64(B, Sdf_Read_Carr1D, sdf_read_carr1d)                   \
    SDF_W64(B, Sdf_Read_Carr2D, sdf_read_carr2d) SDF_W64(B, Sdf_Read_Carr3D, sdf_read_carr3d)                   \
    SDF_W64(B, Sdf_Write_Carray, sdf_write_carray) SDF_W64(B, Sdf_Write_Carr1D, sdf_write_carr1d)               \
    SDF_W64(B, Sdf_Write_Carr2D, sdf_write_carr2d) SDF_W64(B, Sdf_Write_Carr3D, sdf_write_carr3d)               \
    SDF_W64(F1, Sdf_Read_CarrayF, _) SDF_W64(F1, Sdf_Write_CarrayF, _)                                           \
    SDF_W64(F2, Sdf_Read_All1D, sdf_read_all1d) SDF_W64(F2, Sdf_Read_All2D, sdf_read_all2d)                     \
    SDF_W64(F2, Sdf_Read_All3D, sdf_read_all3d) SDF_W64(F2, Sdf_Read_Alloc, sdf_read_alloc)                     \
    /* slices: 22 */                                                                                              \
    SDF_W64(B, Sdf_Read_Slice, sdf_read_slice) SDF_W64(B, Sdf_Write_Slice, sdf_write_slice)                     \
    SDF_W64(B, Sdf_Read_Cslice, sdf_read_cslice) SDF_W64(B, Sdf_Write_Cslice, sdf_write_cslice)                 \
    SDF_W64(F1, Sdf_Read_CsliceF, _) SDF_W64(F1, Sdf_Write_CsliceF, _) SDF_W64(F2, Sdf_Read_ASlice, sdf_read_aslice) \
    /* options and threads: 26 */                                                                                 \
    B(Sdf_Set_Opts, sdf_set_opts) B(Sdf_Set_Opts_Chan, sdf_set_opts_chan) B(Sdf_Get_Opt, sdf_get_opt)            \
    B(Sdf_Get_Opt_Chan, sdf_get_opt_chan) B(Sdf_Push, sdf_push) B(Sdf_Push_Chan, sdf_push_chan)                  \
    B(Sdf_Pop, sdf_pop) B(Sdf_Pop_Chan, sdf_pop_chan) B(Sdf_Opt_Depth, sdf_opt_depth)                            \
    B(Sdf_Opt_Depth_Chan, sdf_opt_depth_chan) B(Sdf_Mutex_Lock, sdf_mutex_lock)                                   \
    B(Sdf_Mutex_Unlock, sdf_mutex_unlock) B(Sdf_Cache, sdf_cache)

// The gfortran names are not in the header: declared here only to take
// their addresses.
#define SDF_NONE(n, l)
#define SDF_ALIAS_DECL(n, l) void l##_ref_();
extern "C" {
SDF_FORMS(SDF_NONE, SDF_ALIAS_DECL, SDF_ALIAS_DECL)
}

namespace {

using Fn = void (*)();
struct Form {
    std::string name;
    Fn address;
    Fn alias;  // the gfortran name of a by-reference form
    std::string alias_name;
};

#define SDF_ROW1(n, l) {#n, reinterpret_cast<Fn>(&n), nullptr, ""},
#define SDF_ROW2(n, l) {#n "_ref", reinterpret_cast<Fn>(&n##_ref), reinterpret_cast<Fn>(&l##_ref_), #l "_ref_"},
#define SDF_ROWB(n, l) SDF_ROW1(n, l) SDF_ROW2(n, l)
const std::vector<Form> kForms = {SDF_FORMS(SDF_ROW1, SDF_ROW2, SDF_ROWB)};

TEST(SdfForms, EveryListedFormExistsOnce) {
    // 24 + 63 + 92 + 22 + 26 names, as the groups of the API count them.
    EXPECT_EQ(kForms.size(), 227u);
    std::set<std::string> names;
    std::set<Fn> addresses;
    size_t by_ref = 0;
    for (const Form& f : kForms) {
        EXPECT_TRUE(names.insert(f.name).second) << f.name;
        EXPECT_TRUE(addresses.insert(f.address).second) << f.name << " shares its code";
        EXPECT_NE(f.address, nullptr) << f.name;
        by_ref += f.alias != nullptr;
    }
    EXPECT_EQ(by_ref, 114u);
}

TEST(SdfForms, ByReferenceFormsAnswerToTheirGfortranNames) {
    for (const Form& f : kForms) {
        if (!f.alias) continue;
        std::string lower;
        for (char c : f.name) lower += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        EXPECT_EQ(f.alias_name, lower + "_") << f.name;
        EXPECT_EQ(f.alias, f.address) << f.name;
    }
}

}  // namespace
