// Helpers of the array, slice and conversion tests: element values of every
// type that differ in every byte that matters, the extents of an array as the
// library holds them, and channels opened on a file of a chosen byte order or
// in memory.
#pragma once

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "sdf_channel_helpers.h"

namespace sdftest {

using Bytes = std::vector<unsigned char>;

inline const int kAllTypes[] = {SDF_CHAR_T, SDF_INT_T,  SDF_INT64_T, SDF_LOG_T,
                                SDF_REAL_T, SDF_DBLE_T, SDF_CMPX_T,  SDF_DCMPX_T};

// Element size of a type in these tests: character arrays use 3 bytes.
inline int testElen(int type) { return type == SDF_CHAR_T ? 3 : sdf_type_elen(type); }

template <class T>
void put(unsigned char* p, T v) {
    std::memcpy(p, &v, sizeof v);
}

// Element k of a set of values (seed tells sets apart); high and low words
// of 8-byte values differ, so a word-order fault can't hide.
inline void element(int type, int64_t k, int seed, unsigned char* p) {
    const int64_t v = k + 1000 * seed;
    switch (type) {
        case SDF_CHAR_T:
            p[0] = static_cast<unsigned char>('a' + v % 26);
            p[1] = static_cast<unsigned char>('A' + (v / 26) % 26);
            p[2] = static_cast<unsigned char>('0' + v % 10);
            break;
        case SDF_INT_T: put<int32_t>(p, static_cast<int32_t>(v * 7919 - 100000)); break;
        case SDF_INT64_T: put<int64_t>(p, (v << 33) + 0x1234567 - v); break;
        case SDF_LOG_T: put<int32_t>(p, static_cast<int32_t>(v % 3 == 0 ? 0 : v)); break;
        case SDF_REAL_T: put<float>(p, static_cast<float>(v) * 0.5f + 0.25f); break;
        case SDF_DBLE_T: put<double>(p, static_cast<double>(v) * 1e-3 + 1e10); break;
        case SDF_CMPX_T:
            put<float>(p, static_cast<float>(v) + 0.5f);
            put<float>(p + 4, -2.0f * static_cast<float>(v));
            break;
        default:
            put<double>(p, static_cast<double>(v) / 3.0);
            put<double>(p + 8, -1e100 * static_cast<double>(v));
            break;
    }
}

inline Bytes values(int type, int64_t n, int seed) {
    Bytes b(static_cast<size_t>(n * testElen(type)));
    for (int64_t k = 0; k < n; k++) element(type, k, seed, b.data() + k * testElen(type));
    return b;
}

// The extents the library holds for an array, rank first; {} when missing.
inline std::vector<int64_t> dimsOf(int channel, const std::string& name) {
    fcb* f = sdf_chan_get(channel);
    int pos = -1;
    ventry* row = f ? sdf_find_var(f, name.c_str(), &pos) : nullptr;
    int64_t d[8];
    if (!row || sdf_array_dims(f, row, d) != 0) return {};
    return std::vector<int64_t>(d, d + d[0] + 1);
}

inline ventry* rowOf(int channel, const std::string& name) {
    fcb* f = sdf_chan_get(channel);
    int pos = -1;
    return f ? sdf_find_var(f, name.c_str(), &pos) : nullptr;
}

// Opens a new file with the byte order sex ("BigEndian", "LittleEndian").
inline int openNew(const std::string& p, const char* sex) { return createFile(p, (std::string("Sex=") + sex).c_str()); }

inline int openInternal(const char* name) {
    int ch = -1;
    EXPECT_EQ(Sdf_Open(&ch, name, "INTERNAL", "NEW", "WRITE"), 0);
    return ch;
}

// Defines an array of these extents and writes all its elements from data;
// the first code that isn't 0, or 0.
inline int defineFilled(int ch, const char* name, int type, const std::vector<int32_t>& extents, const void* data) {
    int32_t dims[8] = {static_cast<int32_t>(extents.size())}, origin[8] = {dims[0]}, n = 1;
    for (size_t i = 0; i < extents.size() && i < 7; i++) n *= dims[i + 1] = extents[i];
    const int rc = Sdf_Define_Array(ch, name, type, 0, dims, nullptr, nullptr);
    return rc ? rc : Sdf_Write_Array(ch, name, data, origin, n);
}

// Reads the whole array as bytes (a copy the test owns).
inline Bytes readAll(int ch, const std::string& name, int* rc = nullptr) {
    void* data = nullptr;
    int64_t start[8] = {0}, got = 0;
    int r = Sdf_Read_Array64(ch, name.c_str(), &data, start, 0, &got);
    if (rc) *rc = r;
    const ventry* row = rowOf(ch, name);
    Bytes out;
    if (data && row)
        out.assign(static_cast<unsigned char*>(data), static_cast<unsigned char*>(data) + got * row->record->elen);
    if (!sdf_chan_get(ch)->file->internal) Sdf_Free(data);  // an internal read lends a pointer
    return out;
}

}  // namespace sdftest

namespace sdftest {

// The indices a step reaches from b towards e (s > 0, the magnitude).
inline std::vector<int64_t> picks(int64_t b, int64_t e, int64_t s) {
    std::vector<int64_t> v;
    if (b <= e)
        for (int64_t i = b; i <= e; i += s) v.push_back(i);
    else
        for (int64_t i = b; i >= e; i -= s) v.push_back(i);
    return v;
}

// A slice as plain index lists: lists[d] are the indices of dimension d + 1.
struct SliceRef {
    std::vector<std::vector<int64_t>> lists;
    std::vector<int64_t> shape;  // extents above 1, in slice order
    std::vector<int> tr;         // tr[k] (1-based), empty for none

    SliceRef(const std::vector<int64_t>& b, const std::vector<int64_t>& e, const std::vector<int64_t>& s,
             std::vector<int> t)
        : tr(std::move(t)) {
        for (size_t d = 0; d < b.size(); d++) {
            lists.push_back(picks(b[d], e[d], s[d] < 0 ? -s[d] : s[d]));
            if (lists.back().size() > 1) shape.push_back(static_cast<int64_t>(lists.back().size()));
        }
    }
    int64_t count() const {
        int64_t n = 1;
        for (const auto& l : lists) n *= static_cast<int64_t>(l.size());
        return n;
    }
    // The full array's element offset of every slice element, slice order.
    std::vector<int64_t> offsets(const std::vector<int64_t>& dims) const {
        std::vector<int64_t> out, idx(lists.size(), 0);
        for (int64_t n = 0; n < count(); n++) {
            int64_t off = 0, stride = 1;
            for (size_t d = 0; d < lists.size(); d++) {
                off += lists[d][static_cast<size_t>(idx[d])] * stride;
                stride *= dims[d + 1];
            }
            out.push_back(off);
            for (size_t d = 0; d < lists.size() && ++idx[d] == static_cast<int64_t>(lists[d].size()); d++) idx[d] = 0;
        }
        return out;
    }
    // Slice position of element j of an array of extents `outer` whose
    // dimension k is slice dimension tr[k].
    int64_t slicePos(int64_t j, const std::vector<int64_t>& outer) const {
        std::vector<int64_t> sidx(shape.size());
        for (size_t k = 0; k < outer.size(); k++) {
            sidx[static_cast<size_t>(tr[k] - 1)] = j % outer[k];
            j /= outer[k];
        }
        int64_t pos = 0, stride = 1;
        for (size_t d = 0; d < shape.size(); d++) {
            pos += sidx[d] * stride;
            stride *= shape[d];
        }
        return pos;
    }
    // The extents a read hands back.
    std::vector<int64_t> readDims() const {
        if (tr.empty()) return shape.empty() ? std::vector<int64_t>{1} : shape;
        std::vector<int64_t> o;
        for (int t : tr) o.push_back(shape[static_cast<size_t>(t - 1)]);
        return o;
    }
    // What a read of the slice gives from the full array.
    Bytes read(const Bytes& full, int elen, const std::vector<int64_t>& dims) const {
        const auto offs = offsets(dims);
        Bytes out(offs.size() * static_cast<size_t>(elen));
        const auto outer = readDims();
        for (int64_t j = 0; j < static_cast<int64_t>(offs.size()); j++) {
            const int64_t src = offs[static_cast<size_t>(tr.empty() ? j : slicePos(j, outer))];
            std::memcpy(out.data() + j * elen, full.data() + src * elen, static_cast<size_t>(elen));
        }
        return out;
    }
    // The full array after a write of `data`: data's dimension tr[k] is
    // slice dimension k.
    void write(Bytes& full, int elen, const std::vector<int64_t>& dims, const Bytes& data) const {
        const auto offs = offsets(dims);
        std::vector<int64_t> caller(shape.size());
        for (size_t k = 0; k < tr.size(); k++) caller[static_cast<size_t>(tr[k] - 1)] = shape[k];
        for (int64_t i = 0; i < static_cast<int64_t>(offs.size()); i++) {
            int64_t src = i;
            if (!tr.empty()) {  // slice index i_k sits at caller dimension tr[k]
                std::vector<int64_t> cidx(shape.size());
                int64_t rest = i;
                for (size_t k = 0; k < shape.size(); k++) {
                    cidx[static_cast<size_t>(tr[k] - 1)] = rest % shape[k];
                    rest /= shape[k];
                }
                src = 0;
                int64_t stride = 1;
                for (size_t d = 0; d < caller.size(); d++) {
                    src += cidx[d] * stride;
                    stride *= caller[d];
                }
            }
            std::memcpy(full.data() + offs[static_cast<size_t>(i)] * elen, data.data() + src * elen,
                        static_cast<size_t>(elen));
        }
    }
};

}  // namespace sdftest
