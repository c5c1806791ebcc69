// By-reference forms of the variable operations, and the lists as field
// arrays (Sdf_List_ref, Sdf_Tag_List_ref) or as fields the library
// allocates (Sdf_List_Alloc_ref, Sdf_Tag_List_Alloc_ref).
//
// A list form copies at most as many names as the caller has fields and
// reports the number of all matches, so a caller can tell it was cut. The
// allocating forms register their block for Sdf_Free and hand out nothing
// when there is no match.
#include "sdf_ref_forms.h"

namespace {

using sdfref::Fields;

void to_fields(char* const* from, int n, const Fields& f) {
    for (int k = 0; k < n; k++) sdfref::put_field(*f.buffer + size_t(k) * size_t(f.width), size_t(f.width), from[k]);
}

int list_fields(int ch, const char* templ, Fields names, int nfields, int* count) {
    char** list = nullptr;
    int n = 0;
    const int rc = Sdf_List(ch, templ, &list, &n);
    if (rc == 0) to_fields(list, n < nfields ? n : nfields, names);
    Sdf_Free(list);
    if (count) *count = n;
    return rc;
}

int tag_list_fields(int ch, const char* templ, const char* tags, Fields names, Fields values, int nfields,
                    int* count) {
    char **nl = nullptr, **vl = nullptr;
    int n = 0;
    const int rc = Sdf_Tag_List(ch, templ, tags, &nl, &vl, &n);
    if (rc == 0) {
        to_fields(nl, n < nfields ? n : nfields, names);
        to_fields(vl, n < nfields ? n : nfields, values);
    }
    Sdf_Free(nl);
    Sdf_Free(vl);
    if (count) *count = n;
    return rc;
}

// count x width blank-padded fields in registered memory; null for none.
int alloc_fields(const char* routine, const char* tag, char* const* from, int n, int width, void** out) {
    if (n == 0) return 0;
    char* block = static_cast<char*>(ZU_allocMemNoZero(size_t(n) * size_t(width), tag));
    if (!block || !sdf_register(block)) return sdf_error(routine, 3025, tag);
    char* b = block;
    to_fields(from, n, Fields{&b, width});
    *out = block;
    return 0;
}

int list_alloc(int ch, const char* templ, void** names, int width, int* count) {
    static const char* R = "Sdf_List_Alloc_ref";
    if (count) *count = 0;
    if (width < 1) return sdf_error(R, 4001, "The field width must be at least 1.");
    char** list = nullptr;
    int n = 0;
    int rc = Sdf_List(ch, templ, &list, &n);
    if (rc == 0) rc = alloc_fields(R, "sdf_list_alloc_:names", list, n, width, names);
    Sdf_Free(list);
    if (count && rc == 0) *count = n;
    return rc;
}

int tag_list_alloc(int ch, const char* templ, const char* tags, void** names, void** values, int width,
                   int* count) {
    static const char* R = "Sdf_Tag_List_Alloc_ref";
    if (count) *count = 0;
    if (width < 1) return sdf_error(R, 4001, "The field width must be at least 1.");
    char **nl = nullptr, **vl = nullptr;
    int n = 0;
    int rc = Sdf_Tag_List(ch, templ, tags, &nl, &vl, &n);
    if (rc == 0) rc = alloc_fields(R, "sdf_tag_list_alloc:names", nl, n, width, names);
    if (rc == 0) rc = alloc_fields(R, "sdf_tag_list_alloc:tagvals", vl, n, width, values);
    if (rc) {  // nothing half-made reaches the caller
        Sdf_Free(*names);
        *names = nullptr;
    }
    Sdf_Free(nl);
    Sdf_Free(vl);
    if (count && rc == 0) *count = n;
    return rc;
}

}  // namespace

using namespace sdfref;

extern "C" {

SDF_REF_FORM(Sdf_Get_Type, sdf_get_type, Sdf_Get_Type, 1, In<int>, Name, Ptr<int>, Ptr<int>)
SDF_REF_FORM(Sdf_Get_Elen, sdf_get_elen, Sdf_Get_Elen, 1, In<int>, Name, Ptr<int>)
SDF_REF_FORM(Sdf_Get_Dims, sdf_get_dims, Sdf_Get_Dims, 1, In<int>, Name, Ptr<int32_t>)
SDF_REF_FORM(Sdf_Get_Dims64, sdf_get_dims64, Sdf_Get_Dims64, 1, In<int>, Name, Ptr<int64_t>)
SDF_REF_FORM(Sdf_Last_Dim, sdf_last_dim, Sdf_Last_Dim, 1, In<int>, Name, Ptr<int32_t>)
SDF_REF_FORM(Sdf_Last_Dim64, sdf_last_dim64, Sdf_Last_Dim64, 1, In<int>, Name, Ptr<int64_t>)
SDF_REF_FORM(Sdf_Put_Dims, sdf_put_dims, Sdf_Put_Dims, 1, In<int>, Name, Ptr<const int32_t>)
SDF_REF_FORM(Sdf_Put_Dims64, sdf_put_dims64, Sdf_Put_Dims64, 1, In<int>, Name, Ptr<const int64_t>)
SDF_REF_FORM(Sdf_Get_Val, sdf_get_val, Sdf_Get_Val, 1, In<int>, Name, Ptr<void>)
SDF_REF_FORM(Sdf_Put_Val, sdf_put_val, Sdf_Put_Val, 1, In<int>, Name, Ptr<const void>)
SDF_REF_FORM(Sdf_Get_Cval, sdf_get_cval, Sdf_Get_Cval, 2, In<int>, Name, TextOut, Ptr<int>)
SDF_REF_FORM(Sdf_Put_Cval, sdf_put_cval, Sdf_Put_Cval, 2, In<int>, Name, Text)
SDF_REF_FORM(Sdf_Write_Var, sdf_write_var, Sdf_Write_Var, 3, In<int>, Name, In<int>, Ptr<const void>, Text, Text)
SDF_REF_FORM(Sdf_Write_Char, sdf_write_char, Sdf_Write_Char, 3, In<int>, Name, Text, Text)
SDF_REF_FORM(Sdf_Get_Units, sdf_get_units, Sdf_Get_Units, 2, In<int>, Name, TextOut)
SDF_REF_FORM(Sdf_Get_Desc, sdf_get_desc, Sdf_Get_Desc, 2, In<int>, Name, TextOut)
SDF_REF_FORM(Sdf_Put_Units, sdf_put_units, Sdf_Put_Units, 2, In<int>, Name, Text)
SDF_REF_FORM(Sdf_Put_Desc, sdf_put_desc, Sdf_Put_Desc, 2, In<int>, Name, Text)
SDF_REF_FORM(Sdf_Where, sdf_where, Sdf_Where, 1, Name, Ptr<void*>)
SDF_REF_FORM(Sdf_Where_Chan, sdf_where_chan, Sdf_Where_Chan, 1, In<int>, Name, Ptr<void*>)
SDF_REF_FORM(Sdf_Exists, sdf_exists, Sdf_Exists, 1, In<int>, Text)
SDF_REF_FORM(Sdf_Valid_Name, sdf_valid_name, Sdf_Valid_Name, 1, Name)
SDF_REF_FORM(Sdf_Delete, sdf_delete, Sdf_Delete, 1, In<int>, Text)

SDF_REF_FORM(Sdf_List, sdf_list, list_fields, 2, In<int>, Text, FieldsOut, In<int>, Ptr<int>)
SDF_REF_FORM(Sdf_Tag_List, sdf_tag_list, tag_list_fields, 4, In<int>, Text, Text, FieldsOut, FieldsOut, In<int>,
             Ptr<int>)
SDF_REF_FORM(Sdf_List_Alloc, sdf_list_alloc, list_alloc, 1, In<int>, Text, AllocOut, In<int>, Ptr<int>)
SDF_REF_FORM(Sdf_Tag_List_Alloc, sdf_tag_list_alloc, tag_list_alloc, 2, In<int>, Text, Text, AllocOut, AllocOut,
             In<int>, Ptr<int>)

}  // extern "C"
