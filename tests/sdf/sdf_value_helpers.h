// Helpers of the tests of values, listing and deleting: arrays made through
// the inner define (never written), copies of records to tell a
// change, and strings and lists handed out by the library.
#pragma once

#include <gtest/gtest.h>
#include <string.h>

#include <string>
#include <vector>

#include "sdf_channel_helpers.h"

namespace sdftest {

// An array of base type `base` (characters of one byte) with the given
// extents, made by the inner define: dimensions and a data chain that holds
// them, never written.
inline bool makeArray(int channel, const std::string& name, int base, const std::vector<int64_t>& extents) {
    fcb* f = sdf_chan_get(channel);
    if (!f) return false;
    std::vector<int64_t> dims{static_cast<int64_t>(extents.size())};
    dims.insert(dims.end(), extents.begin(), extents.end());
    return sdf_define_array(f, name.c_str(), base, 1, dims.data(), nullptr, nullptr) == 0;
}

// The record of a variable as it stands (type 0 when missing).
inline sdf_varrec record(int channel, const std::string& name) {
    sdf_varrec r{};
    fcb* f = sdf_chan_get(channel);
    int pos = -1;
    if (ventry* row = f ? sdf_find_var(f, name.c_str(), &pos) : nullptr) r = *row->record;
    return r;
}

inline sdf_varrec* recordPtr(int channel, const std::string& name) {
    fcb* f = sdf_chan_get(channel);
    int pos = -1;
    ventry* row = f ? sdf_find_var(f, name.c_str(), &pos) : nullptr;
    return row ? row->record : nullptr;
}

inline bool sameRecord(const sdf_varrec& a, const sdf_varrec& b) { return memcmp(&a, &b, sizeof a) == 0; }

// A string handed out by the library, as text, given back at once.
inline std::string take(char* p) {
    std::string s = p ? p : "<null>";
    if (p) {
        EXPECT_EQ(Sdf_Free(p), 1);
    }
    return s;
}

// The text a getter (units, description) hands out for a variable, given
// back at once; "<code N>" when the getter fails.
inline std::string textOf(int (*get)(int, const char*, char**), int channel, const std::string& name) {
    char* p = nullptr;
    const int rc = get(channel, name.c_str(), &p);
    return rc ? "<code " + std::to_string(rc) + ">" : take(p);
}

// The value of a character variable, as textOf; its length in *len.
inline std::string cvalOf(int channel, const std::string& name, int* len = nullptr) {
    char* p = nullptr;
    const int rc = Sdf_Get_Cval(channel, name.c_str(), &p, len);
    return rc ? "<code " + std::to_string(rc) + ">" : take(p);
}

// A list handed out by the library, as strings, given back at once.
inline std::vector<std::string> takeList(char** list, int count) {
    std::vector<std::string> out;
    if (!list) return out;
    for (int i = 0; i < count; i++) out.emplace_back(list[i] ? list[i] : "<null>");
    EXPECT_EQ(list[count], nullptr) << "the list ends with a null pointer";
    EXPECT_EQ(Sdf_Free(list), 1);
    return out;
}

}  // namespace sdftest
