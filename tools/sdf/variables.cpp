// Reading SDF variables for the tool: opening a file read-only, turning name
// patterns into names, and loading a variable's description and values.
//
// Everything goes through the public interface. Buffers handed to the library
// are sized from the record's own element length, so a record whose length
// disagrees with its type is refused rather than read past a buffer.
#include <algorithm>
#include <cstring>
#include <set>

#include "sdf.h"
#include "sdf_tool.h"

namespace sdftool {

namespace {

// The tool refuses to hold more than this in memory for one variable.
constexpr uint64_t kMaxBytes = uint64_t(1) << 32;

int elementSize(int base) {
    switch (base) {
        case SDF_INT_T:
        case SDF_LOG_T:
        case SDF_REAL_T: return 4;
        case SDF_INT64_T:
        case SDF_DBLE_T:
        case SDF_CMPX_T: return 8;
        case SDF_DCMPX_T: return 16;
        default: return 0;
    }
}

// A library string handed to us, given back when we are done with it.
struct LibText {
    char* p = nullptr;
    ~LibText() { Sdf_Free(p); }
    std::string str() const { return p ? std::string(p) : std::string(); }
};

template <typename T>
T fetch(const unsigned char* p) {
    T v;
    std::memcpy(&v, p, sizeof v);
    return v;
}

}  // namespace

SdfFile::~SdfFile() {
    if (channel_ >= 0) Sdf_Close(channel_, "KEEP");
}

int SdfFile::open(const std::string& path) {
    int ch = -1;
    int rc = Sdf_Open(&ch, path.c_str(), "BINARY", "OLD", "READ");
    if (rc >= 3000) return rc;
    channel_ = ch;
    return 0;
}

int resolveNames(int ch, const std::vector<std::string>& patterns, std::vector<std::string>& out) {
    std::vector<std::string> all = patterns;
    if (all.empty()) all.push_back("*");
    std::set<std::string> seen;
    for (const std::string& pat : all) {
        char** list = nullptr;
        int count = 0;
        int rc = Sdf_List(ch, pat.c_str(), &list, &count);
        if (rc != 0) return rc;
        for (int i = 0; i < count; i++)
            if (list[i] && seen.insert(list[i]).second) out.push_back(list[i]);
        Sdf_Free(list);
        if (count == 0 && !patterns.empty()) {
            complain("no variable matches \"%s\"", printable(pat).c_str());
            return -1;
        }
    }
    return 0;
}

size_t VarInfo::count() const {
    if (!array) return 1;
    size_t n = 1;
    for (int64_t d : dims) n *= static_cast<size_t>(d);
    return dims.empty() ? 0 : n;
}

int loadInfo(int ch, const std::string& name, VarInfo& out) {
    out = VarInfo{};
    out.name = name;
    int isArray = 0;
    if (int rc = Sdf_Get_Type(ch, name.c_str(), &out.base, &isArray)) return rc;
    out.array = isArray != 0;
    if (int rc = Sdf_Get_Elen(ch, name.c_str(), &out.elen)) return rc;
    if (out.array) {
        int64_t dims[8] = {};
        if (int rc = Sdf_Get_Dims64(ch, name.c_str(), dims)) return rc;
        out.dims.assign(dims + 1, dims + 1 + std::clamp<int64_t>(dims[0], 0, 7));
    }
    LibText units, desc;
    if (int rc = Sdf_Get_Units(ch, name.c_str(), &units.p)) return rc;
    if (int rc = Sdf_Get_Desc(ch, name.c_str(), &desc.p)) return rc;
    out.units = units.str();
    out.desc = desc.str();
    return 0;
}

int Values::load(int ch, const VarInfo& info) {
    base_ = info.base;
    elen_ = info.elen;
    raw_.clear();
    text_.clear();
    const char* name = info.name.c_str();
    if (info.base == SDF_CHAR_T && !info.array) {
        LibText t;
        int len = 0;
        if (int rc = Sdf_Get_Cval(ch, name, &t.p, &len)) return rc;
        text_.push_back(t.str());
        return 0;
    }
    if (info.base != SDF_CHAR_T && elementSize(info.base) != info.elen) {
        complain("\"%s\": element length %d doesn't fit type %s", name, info.elen, typeName(info.base));
        return -1;
    }
    if (!info.array) {
        raw_.resize(static_cast<size_t>(info.elen));
        return Sdf_Get_Val(ch, name, raw_.data());
    }
    // Guard the product of the extents against overflow before allocating.
    uint64_t n = info.dims.empty() ? 0 : 1;
    for (int64_t d : info.dims) {
        if (d < 0 || (d > 0 && n > kMaxBytes / static_cast<uint64_t>(d))) n = kMaxBytes + 1;
        else n *= static_cast<uint64_t>(d);
    }
    if (n * static_cast<uint64_t>(std::max(info.elen, 1)) > kMaxBytes) {
        complain("\"%s\" is too large to read whole", name);
        return -1;
    }
    if (n == 0) return 0;
    int64_t start[8] = {};
    int64_t got = 0;
    int rc;
    if (info.base == SDF_CHAR_T) {
        char** strings = nullptr;
        rc = Sdf_Read_Carray64(ch, name, &strings, start, static_cast<int64_t>(n), &got);
        if (strings) {
            for (int64_t k = 0; k < got; k++) text_.emplace_back(strings[k] ? strings[k] : "");
            Sdf_Free(strings);
        }
    } else {
        raw_.resize(n * static_cast<uint64_t>(info.elen));
        void* p = raw_.data();
        rc = Sdf_Read_Array64(ch, name, &p, start, static_cast<int64_t>(n), &got);
    }
    if (rc == 0 && static_cast<uint64_t>(got) != n) rc = 2020;
    return rc;
}

size_t Values::size() const {
    if (base_ == SDF_CHAR_T) return text_.size();
    return elen_ > 0 ? raw_.size() / static_cast<size_t>(elen_) : 0;
}

Element Values::at(size_t k) const {
    Element e;
    if (base_ == SDF_CHAR_T) {
        e.kind = Element::Text;
        e.text = text_[k];
        return e;
    }
    const unsigned char* p = raw_.data() + k * static_cast<size_t>(elen_);
    switch (base_) {
        case SDF_INT_T: e.i = fetch<int32_t>(p); break;
        case SDF_INT64_T: e.i = fetch<int64_t>(p); break;
        case SDF_LOG_T:
            e.kind = Element::Logical;
            e.i = fetch<int32_t>(p) != 0;
            break;
        case SDF_REAL_T:
            e.kind = Element::Real;
            e.single = true;
            e.re = fetch<float>(p);
            break;
        case SDF_DBLE_T:
            e.kind = Element::Real;
            e.re = fetch<double>(p);
            break;
        case SDF_CMPX_T:
            e.kind = Element::Complex;
            e.single = true;
            e.re = fetch<float>(p);
            e.im = fetch<float>(p + 4);
            break;
        case SDF_DCMPX_T:
            e.kind = Element::Complex;
            e.re = fetch<double>(p);
            e.im = fetch<double>(p + 8);
            break;
        default: break;
    }
    return e;
}

}  // namespace sdftool
