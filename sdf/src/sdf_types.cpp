// The element types of the format: sizes and swap widths by base code.
#include "sdf_inner.h"

namespace {

struct TypeInfo {
    int base;
    int elen;  // 0: a character type, whose length is the string's
    int swap;
};

constexpr TypeInfo kTypes[] = {
    {SDF_CHAR_T, 0, 1}, {SDF_INT_T, 4, 4},  {SDF_INT64_T, 8, 8}, {SDF_LOG_T, 4, 4},
    {SDF_REAL_T, 4, 4}, {SDF_DBLE_T, 8, 8}, {SDF_CMPX_T, 8, 4},  {SDF_DCMPX_T, 16, 8},
};

const TypeInfo* find(int base) {
    for (const auto& t : kTypes)
        if (t.base == base) return &t;
    return nullptr;
}

}  // namespace

extern "C" int sdf_valid_base(int base) { return find(base) != nullptr; }

extern "C" int sdf_type_elen(int base) {
    const TypeInfo* t = find(base);
    return t ? t->elen : 0;
}

extern "C" int sdf_swap_width(int base) {
    const TypeInfo* t = find(base);
    return t ? t->swap : 0;
}
