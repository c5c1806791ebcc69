// Copies variables between a file channel and the internal channel that
// "sdf calc" runs its expressions on, and writes back only what a run
// changed.
//
// Invariants: a copy carries type, element length, shape, units,
// description and every byte of the data; a variable is written back only
// when its record or data differ from the file's (so a large array the run
// never touched is not rewritten); the file is not touched at all until
// writeBack is called.
#include <cstring>
#include <string>
#include <vector>

#include "sdf.h"
#include "sdf_tool.h"

namespace sdftool {

namespace {

// Text the library hands out, given back with Sdf_Free.
struct Owned {
    char* p = nullptr;
    ~Owned() { Sdf_Free(p); }
    std::string str() const { return p ? p : ""; }
};

std::vector<std::string> names(int ch, int* rc) {
    std::vector<std::string> out;
    char** list = nullptr;
    int count = 0;
    *rc = Sdf_List(ch, "*", &list, &count);
    if (*rc >= 3000) return out;
    for (int k = 0; k < count; k++) out.push_back(list[k]);
    Sdf_Free(list);
    return out;
}

// Every element of an array; on an internal channel the pointer is the
// array's own buffer (owned false), on a file new memory (owned true).
struct ArrayData {
    void* p = nullptr;
    int64_t n = 0;
    bool owned = false;
    ~ArrayData() {
        if (owned) Sdf_Free(p);
    }
};

int readArray(int ch, const char* name, bool internal, ArrayData& d) {
    int64_t start[8] = {0};
    d.owned = !internal;
    const int rc = Sdf_Read_Array64(ch, name, &d.p, start, 0, &d.n);
    return rc >= 3000 ? rc : 0;
}

// The record facts that must match for a variable to count as unchanged.
bool sameRecord(const VarInfo& a, const VarInfo& b) {
    return a.base == b.base && a.array == b.array && a.elen == b.elen && a.dims == b.dims && a.units == b.units &&
           a.desc == b.desc;
}

// Whether name holds the same record and data on the file channel and the
// internal one; a read failure counts as different, so it is written.
bool unchanged(int file, int in, const std::string& name) {
    VarInfo f, i;
    if (loadInfo(file, name, f) || loadInfo(in, name, i) || !sameRecord(f, i)) return false;
    const char* nm = name.c_str();
    if (f.base == SDF_CHAR_T && !f.array) {
        Owned a, b;
        int la = 0, lb = 0;
        if (Sdf_Get_Cval(file, nm, &a.p, &la) || Sdf_Get_Cval(in, nm, &b.p, &lb)) return false;
        return la == lb && (la == 0 || std::memcmp(a.p, b.p, static_cast<size_t>(la)) == 0);
    }
    if (!f.array) {
        unsigned char a[16] = {}, b[16] = {};
        if (Sdf_Get_Val(file, nm, a) || Sdf_Get_Val(in, nm, b)) return false;
        return std::memcmp(a, b, sizeof a) == 0;
    }
    ArrayData a, b;
    if (readArray(file, nm, false, a) || readArray(in, nm, true, b) || a.n != b.n) return false;
    return a.n == 0 || std::memcmp(a.p, b.p, static_cast<size_t>(a.n) * static_cast<size_t>(f.elen)) == 0;
}

}  // namespace

int copyVariable(int from, bool fromInternal, int to, const std::string& name) {
    VarInfo v;
    if (int rc = loadInfo(from, name, v)) return rc;
    const char* nm = name.c_str();
    const char* units = v.units.empty() ? nullptr : v.units.c_str();
    const char* desc = v.desc.empty() ? nullptr : v.desc.c_str();
    int rc = 0;
    if (v.base == SDF_CHAR_T && !v.array) {
        Owned text;
        if ((rc = Sdf_Get_Cval(from, nm, &text.p, nullptr))) return rc;
        if ((rc = Sdf_Write_Char(to, nm, text.p ? text.p : "", desc)) >= 3000) return rc;
        return units ? Sdf_Put_Units(to, nm, units) : 0;
    }
    if (!v.array) {
        unsigned char value[16] = {};
        if ((rc = Sdf_Get_Val(from, nm, value))) return rc;
        rc = Sdf_Write_Var(to, nm, v.base, value, units, desc);
        return rc >= 3000 ? rc : 0;
    }
    int64_t dims[8] = {static_cast<int64_t>(v.dims.size())};
    for (size_t k = 0; k < v.dims.size(); k++) dims[k + 1] = v.dims[k];
    if ((rc = Sdf_Define_Array64(to, nm, v.base, v.elen, dims, units, desc)) >= 3000) return rc;
    // Into an internal channel a numeric array is read straight into the
    // (zero-filled) buffer the define made: one pass, no second copy.
    void* buffer = nullptr;
    const int64_t count = dims[0] > 0 ? Sdf_Num_Elem64(dims) : 0;
    if (!fromInternal && v.base != SDF_CHAR_T && count > 0 && Sdf_Where_Chan(to, nm, &buffer) == 0 && buffer) {
        int64_t start[8] = {0}, nread = 0;
        rc = Sdf_Read_Array64(from, nm, &buffer, start, count, &nread);
        return rc >= 3000 ? rc : 0;
    }
    ArrayData data;
    if ((rc = readArray(from, nm, fromInternal, data))) return rc;
    if (data.n == 0) return 0;
    int64_t start[8] = {dims[0]};
    rc = Sdf_Write_Array64(to, nm, data.p, start, data.n);
    return rc >= 3000 ? rc : 0;
}

int copyAll(int file, int in, std::string* failed) {
    int rc = 0;
    for (const std::string& name : names(file, &rc)) {
        if ((rc = copyVariable(file, false, in, name))) {
            *failed = name;
            return rc;
        }
    }
    return rc >= 3000 ? rc : 0;
}

int writeBack(int in, int file, std::string* failed) {
    int rc = 0;
    const std::vector<std::string> before = names(file, &rc);
    if (rc >= 3000) return rc;
    const std::vector<std::string> after = names(in, &rc);
    if (rc >= 3000) return rc;
    // Deleted ones go first, so their room can take the new data.
    for (const std::string& name : before) {
        if (Sdf_Exists(in, name.c_str()) == 1) continue;
        if ((rc = Sdf_Delete(file, name.c_str())) >= 3000) {
            *failed = name;
            return rc;
        }
    }
    for (const std::string& name : after) {
        if (Sdf_Exists(file, name.c_str()) == 1) {
            if (unchanged(file, in, name)) continue;
            // A changed type or shape can't be written over in place.
            if ((rc = Sdf_Delete(file, name.c_str())) >= 3000) {
                *failed = name;
                return rc;
            }
        }
        if ((rc = copyVariable(in, true, file, name))) {
            *failed = name;
            return rc;
        }
    }
    return 0;
}

}  // namespace sdftool
