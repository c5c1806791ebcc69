// Small helpers of the public surface: filling a dimension array from
// separate arguments (Sdf_Set_Dims), counting its elements (Sdf_Num_Elem),
// and finding where a name goes wrong (Sdf_Check_Name).
//
// Invariants: at most seven extents are ever read from or written to a
// dimension array; a product that doesn't fit the result type is -1, never a
// wrapped value; the varargs of the by-reference Sdf_Set_Dims are consumed
// exactly as the caller passed them (rank extents, then the result).
#include <stdarg.h>

#include "sdf_ref_forms.h"

namespace {

template <class I>
int set_dims(const char* routine, int rank, I* dims, va_list ap, bool by_ref) {
    if (!dims) return sdf_error(routine, 4001, "No dimension array given.");
    if (rank < 1 || rank > SDF_MAX_RANK) return sdf_error(routine, 3021, "dims");
    dims[0] = static_cast<I>(rank);
    for (int d = 1; d <= rank; d++) {
        if (by_ref) {
            const I* p = va_arg(ap, const I*);
            dims[d] = p ? *p : 0;
        } else if constexpr (sizeof(I) == sizeof(int64_t)) {
            dims[d] = va_arg(ap, int64_t);
        } else {
            dims[d] = va_arg(ap, int32_t);
        }
    }
    return 0;
}

template <class I>
I num_elem(const I* dims) {
    if (!dims || dims[0] < 1) return 0;
    const int rank = dims[0] > I(SDF_MAX_RANK) ? SDF_MAX_RANK : int(dims[0]);
    I n = 1;
    for (int d = 1; d <= rank; d++)
        if (__builtin_mul_overflow(n, dims[d], &n)) return -1;
    return n;
}

// The by-reference Sdf_Set_Dims: rank, array, rank extents, then the result,
// each by reference. A rank outside 1..7 still has its extents skipped.
template <class I>
int set_dims_ref(const char* routine, const int32_t* rank, I* dims, va_list ap) {
    const int r = rank ? *rank : 0;
    va_list copy;
    va_copy(copy, ap);
    const int rc = rank ? set_dims(routine, r, dims, ap, true) : sdf_error(routine, 4001, "No rank given.");
    for (int d = 0; d < r; d++) (void)va_arg(copy, const I*);
    int* result = va_arg(copy, int*);
    va_end(copy);
    if (result) *result = rc;
    return rc;
}

// Sdf_Check_Name's position: where Sdf_Fix_Name had to change the name.
int check_name(const char* name, int* index) {
    char fixed[SDF_MAX_NAME + 1];
    const int valid = Sdf_Fix_Name(name, fixed);
    int at = -1;
    if (!valid) {
        const size_t n = name ? strnlen(name, SDF_MAX_NAME + 1) : 0;
        at = n == 0 ? 0 : SDF_MAX_NAME;
        for (size_t i = 0; i < n && i < SDF_MAX_NAME; i++)
            if (fixed[i] != name[i]) {
                at = static_cast<int>(i);
                break;
            }
    }
    if (index) *index = at;
    return valid;
}

}  // namespace

extern "C" {

int Sdf_Set_Dims(int rank, int32_t* dims, ...) {
    va_list ap;
    va_start(ap, dims);
    const int rc = set_dims("Sdf_Set_Dims", rank, dims, ap, false);
    va_end(ap);
    return rc;
}
int Sdf_Set_Dims64(int rank, int64_t* dims, ...) {
    va_list ap;
    va_start(ap, dims);
    const int rc = set_dims("Sdf_Set_Dims64", rank, dims, ap, false);
    va_end(ap);
    return rc;
}
int Sdf_Set_Dims_ref(const int32_t* rank, int32_t* dims, ...) {
    va_list ap;
    va_start(ap, dims);
    const int rc = set_dims_ref("Sdf_Set_Dims_ref", rank, dims, ap);
    va_end(ap);
    return rc;
}
int Sdf_Set_Dims64_ref(const int32_t* rank, int64_t* dims, ...) {
    va_list ap;
    va_start(ap, dims);
    const int rc = set_dims_ref("Sdf_Set_Dims64_ref", rank, dims, ap);
    va_end(ap);
    return rc;
}
SDF_API int sdf_set_dims_ref_(const int32_t* rank, int32_t* dims, ...) __attribute__((alias("Sdf_Set_Dims_ref")));
SDF_API int sdf_set_dims64_ref_(const int32_t* rank, int64_t* dims, ...) __attribute__((alias("Sdf_Set_Dims64_ref")));

int32_t Sdf_Num_Elem(const int32_t* dims) { return num_elem(dims); }
int64_t Sdf_Num_Elem64(const int64_t* dims) { return num_elem(dims); }
int Sdf_Check_Name(const char* name, int* index) { return check_name(name, index); }

using namespace sdfref;
SDF_REF_FORM_R(int32_t, Sdf_Num_Elem, sdf_num_elem, Sdf_Num_Elem, 0, Ptr<const int32_t>)
SDF_REF_FORM_R(int64_t, Sdf_Num_Elem64, sdf_num_elem64, Sdf_Num_Elem64, 0, Ptr<const int64_t>)
SDF_REF_FORM(Sdf_Check_Name, sdf_check_name, Sdf_Check_Name, 1, Name, PosOut)

}  // extern "C"
