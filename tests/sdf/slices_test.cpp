// Slices read and written against a plain reference built from index lists:
// steps, reversed bounds, ends pulled back onto the step, collapsed
// dimensions, transpositions of two and three dimensions, on a file of the
// other byte order and in memory, through the 32-bit and 64-bit forms; the
// refusals of bad slice arguments; and slices of character arrays.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sdf_array_helpers.h"

namespace {

using sdftest::Bytes;
using sdftest::reported;
using sdftest::SliceRef;
using sdftest::values;

using V = std::vector<int64_t>;

struct Case {
    const char* what;
    V begin, end, step;  // empty: the default
    std::vector<int> tr;
};

const V kDims = {3, 6, 5, 4};

const Case kCases[] = {
    {"whole array", {}, {}, {}, {}},
    {"step 2 along the first", {0, 0, 0}, {5, 4, 3}, {2, 1, 1}, {}},
    {"reversed with step 2", {5, 0, 0}, {1, 4, 3}, {2, 1, 1}, {}},
    {"end pulled back to the step", {5, 0, 0}, {0, 4, 3}, {2, 1, 1}, {}},
    {"reversed with step 1", {4, 0, 0}, {1, 4, 3}, {1, 1, 1}, {}},
    {"sign of a step follows the bounds", {0, 0, 0}, {5, 4, 3}, {-3, 1, 1}, {}},
    {"along the last only", {2, 1, 0}, {2, 1, 3}, {}, {}},
    {"first dimension collapsed", {3, 4, 1}, {3, 0, 3}, {1, 2, 1}, {}},
    {"transposed 3 x 4", {0, 0, 2}, {2, 3, 2}, {}, {2, 1}},
    {"ascending vector is none", {0, 0, 2}, {2, 3, 2}, {}, {1, 2}},
    {"3-D permutation (3,1,2)", {1, 0, 0}, {5, 4, 3}, {2, 2, 1}, {3, 1, 2}},
    {"3-D permutation (2,3,1), reversed", {5, 4, 3}, {0, 0, 0}, {1, 3, 2}, {2, 3, 1}},
    {"one element", {1, 2, 3}, {1, 2, 3}, {}, {}},
    {"steps past the bounds", {0, 0, 0}, {5, 4, 3}, {10, 10, 10}, {}},
};

// The case with defaults filled in, as the reference needs them.
SliceRef refOf(const Case& c) {
    V b = c.begin, e = c.end, s = c.step;
    for (size_t d = 0; d < 3; d++) {
        if (c.begin.empty()) b.push_back(0);
        if (c.end.empty()) e.push_back(kDims[d + 1] - 1);
        if (c.step.empty()) s.push_back(1);
    }
    return SliceRef(b, e, s, c.tr);
}

template <class I>
std::vector<I> arg(const V& v) {
    std::vector<I> out(8, 0);
    out[0] = static_cast<I>(v.size());
    for (size_t i = 0; i < v.size(); i++) out[i + 1] = static_cast<I>(v[i]);
    return out;
}

std::vector<int32_t> trArg(const std::vector<int>& tr) {
    std::vector<int32_t> out(8, 0);
    out[0] = static_cast<int32_t>(tr.size());
    for (size_t i = 0; i < tr.size(); i++) out[i + 1] = tr[i];
    return out;
}

// The slice forms of one width, so the table runs through both.
struct Forms32 {
    static int read(int ch, const Case& c, void** data, int64_t* count, V* dims) {
        auto b = arg<int32_t>(c.begin), e = arg<int32_t>(c.end), s = arg<int32_t>(c.step);
        auto t = trArg(c.tr);
        int32_t n = -1, d[8] = {0};
        int rc = Sdf_Read_Slice(ch, "s", data, b.data(), e.data(), s.data(), t.data(), &n, d);
        *count = n;
        dims->assign(d + 1, d + 1 + d[0]);
        return rc;
    }
    static int write(int ch, const Case& c, const void* data, int64_t* count) {
        auto b = arg<int32_t>(c.begin), e = arg<int32_t>(c.end), s = arg<int32_t>(c.step);
        auto t = trArg(c.tr);
        int32_t n = -1;
        int rc = Sdf_Write_Slice(ch, "s", data, b.data(), e.data(), s.data(), t.data(), &n);
        *count = n;
        return rc;
    }
};

struct Forms64 {
    static int read(int ch, const Case& c, void** data, int64_t* count, V* dims) {
        auto b = arg<int64_t>(c.begin), e = arg<int64_t>(c.end), s = arg<int64_t>(c.step);
        auto t = trArg(c.tr);
        int64_t d[8] = {0};
        int rc = Sdf_Read_Slice64(ch, "s", data, b.data(), e.data(), s.data(), t.data(), count, d);
        dims->assign(d + 1, d + 1 + d[0]);
        return rc;
    }
    static int write(int ch, const Case& c, const void* data, int64_t* count) {
        auto b = arg<int64_t>(c.begin), e = arg<int64_t>(c.end), s = arg<int64_t>(c.step);
        auto t = trArg(c.tr);
        return Sdf_Write_Slice64(ch, "s", data, b.data(), e.data(), s.data(), t.data(), count);
    }
};

class SdfSlices : public sdftest::ChannelTest {
protected:
    template <class Forms>
    void runTable(int ch, int type) {
        const int elen = sdf_type_elen(type);
        const Bytes full = values(type, 120, 1);
        ASSERT_EQ(sdftest::defineFilled(ch, "s", type, {6, 5, 4}, full.data()), 0);
        auto restore = [&] {
            int32_t origin[4] = {3, 0, 0, 0};  // moves with each write
            return Sdf_Write_Array(ch, "s", full.data(), origin, 120);
        };
        for (const Case& c : kCases) {
            SCOPED_TRACE(c.what);
            const SliceRef ref = refOf(c);
            void* data = nullptr;
            int64_t count = -1;
            V out;
            ASSERT_EQ(Forms::read(ch, c, &data, &count, &out), 0);
            ASSERT_EQ(count, ref.count());
            EXPECT_EQ(out, ref.readDims());
            EXPECT_EQ(Bytes(static_cast<unsigned char*>(data), static_cast<unsigned char*>(data) + count * elen),
                      ref.read(full, elen, kDims));
            EXPECT_EQ(Sdf_Free(data), 1);

            // A write of new values into the same slice, then the whole array.
            const Bytes in = values(type, ref.count(), 9);
            ASSERT_EQ(Forms::write(ch, c, in.data(), &count), 0);
            EXPECT_EQ(count, ref.count());
            Bytes expect = full;
            ref.write(expect, elen, kDims, in);
            EXPECT_EQ(sdftest::readAll(ch, "s"), expect);
            ASSERT_EQ(restore(), 0);
        }
        EXPECT_EQ(sdftest::dimsOf(ch, "s"), kDims) << "slices never grow the array";
    }
};

TEST_F(SdfSlices, TableOnAFileOfTheOtherByteOrder) {
    const std::string p = path("slices.sdf");
    int ch = sdftest::openNew(p, "BigEndian");
    runTable<Forms32>(ch, SDF_INT64_T);
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
}

TEST_F(SdfSlices, TableInMemory) {
    int ch = sdftest::openInternal("slices");
    runTable<Forms64>(ch, SDF_DCMPX_T);
}

TEST_F(SdfSlices, PulledBackEndsAndSmallTranspositions) {
    int ch = sdftest::openInternal("shapes");
    int32_t v[24];
    for (int i = 0; i < 24; i++) v[i] = i;
    ASSERT_EQ(sdftest::defineFilled(ch, "s", SDF_INT_T, {6, 4}, v), 0);
    for (int32_t end : {1, 0}) {  // end 0 with step 2 is pulled back to 1
        const int32_t b[3] = {2, 5, 0}, e[3] = {2, end, 0}, s[3] = {2, 2, 1};
        int32_t out[3] = {-1, -1, -1}, count = 0, d[8] = {0};
        void* p = out;
        ASSERT_EQ(Sdf_Read_Slice(ch, "s", &p, b, e, s, nullptr, &count, d), 0);
        EXPECT_EQ(count, 3);
        EXPECT_EQ((std::vector<int32_t>(out, out + 3)), (std::vector<int32_t>{5, 3, 1}));
        EXPECT_EQ(d[0], 1);
        EXPECT_EQ(d[1], 3);
    }
    const int32_t b[3] = {2, 0, 0}, e[3] = {2, 2, 3};
    for (std::vector<int32_t> tr : {std::vector<int32_t>{2, 2, 1}, std::vector<int32_t>{2, 1, 2}}) {
        int32_t count = 0, d[8] = {0};
        void* p = nullptr;
        ASSERT_EQ(Sdf_Read_Slice(ch, "s", &p, b, e, nullptr, tr.data(), &count, d), 0);
        EXPECT_EQ(d[0], 2);
        const bool swapped = tr[1] == 2;
        EXPECT_EQ(d[1], swapped ? 4 : 3);
        EXPECT_EQ(d[2], swapped ? 3 : 4);
        EXPECT_EQ(static_cast<int32_t*>(p)[1], swapped ? 6 : 1);
        Sdf_Free(p);
    }
}

TEST_F(SdfSlices, BadSliceArgumentsAreRefusedAndChangeNothing) {
    int ch = sdftest::openNew(path("bad.sdf"), "LittleEndian");
    const Bytes full = values(SDF_REAL_T, 12, 3);
    ASSERT_EQ(sdftest::defineFilled(ch, "s", SDF_REAL_T, {3, 4}, full.data()), 0);
    const int32_t empty_dims[3] = {2, 3, 0};
    ASSERT_EQ(Sdf_Define_Array(ch, "empty", SDF_REAL_T, 0, empty_dims, nullptr, nullptr), 0);

    struct Bad {
        const char* what;
        const char* name;
        std::vector<int32_t> begin, end, step, tr;
        int rc, detail;
        const char* word;
    };
    const Bad cases[] = {
        {"a step of 0", "s", {}, {}, {2, 1, 0}, {}, 3000, 3023, "step"},
        {"step of rank 1", "s", {}, {}, {1, 1}, {}, 3000, 3022, "step"},
        {"begin out of range", "s", {2, 3, 0}, {}, {}, {}, 3000, 3023, "begin"},
        {"negative end", "s", {}, {2, 0, -1}, {}, {}, 3000, 3023, "end"},
        {"end of rank 3", "s", {}, {3, 0, 0, 0}, {}, {}, 3000, 3022, "end"},
        {"tr_vec too long", "s", {}, {}, {}, {3, 1, 2, 3}, 3000, 3022, "tr_vec"},
        {"tr_vec repeats", "s", {}, {}, {}, {2, 1, 1}, 3000, 3023, "tr_vec"},
        {"tr_vec names 0", "s", {}, {}, {}, {2, 0, 1}, 3000, 3023, "tr_vec"},
        {"empty array", "empty", {}, {}, {}, {}, 2000, 2020, "empty"},
        {"no such array", "none", {}, {}, {}, {}, 3000, 3010, "none"},
    };
    auto ptr = [](const std::vector<int32_t>& v) { return v.empty() ? nullptr : v.data(); };
    for (const Bad& c : cases) {
        SCOPED_TRACE(c.what);
        for (bool write : {false, true}) {
            ZU_errClear("*", 0);
            float buf[16] = {0};
            void* p = buf;
            int32_t count = -1, d[8] = {-1};
            const int rc = write ? Sdf_Write_Slice(ch, c.name, buf, ptr(c.begin), ptr(c.end), ptr(c.step), ptr(c.tr), &count)
                                 : Sdf_Read_Slice(ch, c.name, &p, ptr(c.begin), ptr(c.end), ptr(c.step), ptr(c.tr), &count, d);
            EXPECT_EQ(rc, c.rc);
            EXPECT_EQ(count, 0);
            EXPECT_TRUE(reported(c.detail));
            EXPECT_NE(sdftest::errorText(c.detail).find(c.word), std::string::npos) << sdftest::errorText(c.detail);
        }
    }
    EXPECT_EQ(sdftest::readAll(ch, "s"), full);
    char** strings = nullptr;
    int32_t count = 0, d[8];
    EXPECT_EQ(Sdf_Read_Cslice(ch, "s", &strings, nullptr, nullptr, nullptr, nullptr, &count, d), 3000);
    EXPECT_TRUE(reported(3015));
}

TEST_F(SdfSlices, CharacterSlicesAsStringsAndFields) {
    int ch = sdftest::openNew(path("cslice.sdf"), "BigEndian");
    const int32_t dims[3] = {2, 3, 2};
    ASSERT_EQ(Sdf_Define_Array(ch, "c", SDF_CHAR_T, 4, dims, nullptr, nullptr), 0);
    const char* words[6] = {"one", "two", "th", "four", "five!", ""};
    int32_t origin[3] = {2, 0, 0};
    ASSERT_EQ(Sdf_Write_Carray(ch, "c", const_cast<char* const*>(words), origin, 6), 0);

    // Column 1 backwards, then transposed rows of the first two columns.
    const int32_t b[3] = {2, 2, 1}, e[3] = {2, 0, 1};
    char** strings = nullptr;
    int32_t count = 0, d[8] = {0};
    ASSERT_EQ(Sdf_Read_Cslice(ch, "c", &strings, b, e, nullptr, nullptr, &count, d), 0);
    ASSERT_EQ(count, 3);
    EXPECT_STREQ(strings[0], "");
    EXPECT_STREQ(strings[1], "five");
    EXPECT_STREQ(strings[2], "four");
    Sdf_Free(strings);
    const int32_t b2[3] = {2, 0, 0}, e2[3] = {2, 1, 1}, tr[3] = {2, 2, 1};
    char* fields = nullptr;
    ASSERT_EQ(Sdf_Read_CsliceF(ch, "c", &fields, 2, b2, e2, nullptr, tr, &count, d), 0);
    EXPECT_EQ(std::string(fields, 8), "onfotwfi");
    Sdf_Free(fields);

    const char* put[2] = {"ab", "cdefgh"};
    const int32_t b3[3] = {2, 1, 0}, e3[3] = {2, 1, 1};
    ASSERT_EQ(Sdf_Write_Cslice(ch, "c", const_cast<char* const*>(put), b3, e3, nullptr, nullptr, &count), 0);
    EXPECT_EQ(count, 2);
    ASSERT_EQ(Sdf_Write_CsliceF(ch, "c", "xyz", 1, b2, b2, nullptr, nullptr, &count), 0);
    const std::string stored = "x   ab  th  fourcdef    ";
    EXPECT_EQ(sdftest::readAll(ch, "c"), Bytes(stored.begin(), stored.end()));
}

}  // namespace
