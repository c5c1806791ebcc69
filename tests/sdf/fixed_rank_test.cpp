// The 1D, 2D and 3D array forms: the start or extents they build, both
// widths, character arrays, and the chain of reports when they fail.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sdf_array_helpers.h"

namespace {

using sdftest::dimsOf;
using sdftest::reported;

class SdfFixedRank : public sdftest::ChannelTest {};

// The routines of the error set's records of one code, oldest first.
std::vector<std::string> reporters(int code) {
    std::vector<std::string> out;
    int index = -1;
    while (ZU_ErrRec* r = ZU_errNext("*", &index)) {
        if (r->number == code) out.insert(out.begin(), r->routine ? r->routine : "");
        if (index == 0) break;
    }
    return out;
}

TEST_F(SdfFixedRank, IndicesAndExtentsBecomeArraysOfTheirRank) {
    int ch = sdftest::openNew(path("r.sdf"), "LittleEndian");
    ASSERT_EQ(Sdf_Define_Arr1D(ch, "a1", SDF_INT_T, 0, 4, "m", "one"), 0);
    ASSERT_EQ(Sdf_Define_Arr2D(ch, "a2", SDF_DBLE_T, 0, 3, 2, nullptr, nullptr), 0);
    ASSERT_EQ(Sdf_Define_Arr3D64(ch, "a3", SDF_INT64_T, 0, 2, 2, 3, nullptr, nullptr), 0);
    EXPECT_EQ(dimsOf(ch, "a1"), (std::vector<int64_t>{1, 4}));
    EXPECT_EQ(dimsOf(ch, "a2"), (std::vector<int64_t>{2, 3, 2}));
    EXPECT_EQ(dimsOf(ch, "a3"), (std::vector<int64_t>{3, 2, 2, 3}));

    const int32_t v1[4] = {10, 20, 30, 40};
    ASSERT_EQ(Sdf_Write_Arr1D(ch, "a1", v1, 0, 4), 0);
    const double v2[6] = {1, 2, 3, 4, 5, 6};
    ASSERT_EQ(Sdf_Write_Arr2D(ch, "a2", v2, 0, 0, 6), 0);
    int64_t v3[12];
    for (int n = 0; n < 12; n++) v3[n] = (int64_t(n) << 40) + n;
    ASSERT_EQ(Sdf_Write_Arr3D64(ch, "a3", v3, 0, 0, 0, 12), 0);

    int32_t i1[2] = {0};
    void* p = i1;
    int32_t got = 0;
    ASSERT_EQ(Sdf_Read_Arr1D(ch, "a1", &p, 2, 2, &got), 0);
    EXPECT_EQ(got, 2);
    EXPECT_EQ(i1[0], 30);
    EXPECT_EQ(i1[1], 40);
    double d2[3] = {0};
    p = d2;
    ASSERT_EQ(Sdf_Read_Arr2D(ch, "a2", &p, 0, 1, 3, &got), 0);  // the second column
    EXPECT_EQ(d2[0], 4);
    EXPECT_EQ(d2[2], 6);
    int64_t l3[2] = {0}, got64 = 0;
    p = l3;
    ASSERT_EQ(Sdf_Read_Arr3D64(ch, "a3", &p, 1, 1, 2, 2, &got64), 2000);  // element 1 + 2*(1 + 2*2) = 11
    EXPECT_EQ(got64, 1);  // only one left: a short read
    EXPECT_EQ(l3[0], v3[11]);
    // Writing at i=5 of a 4-element array grows it and skips one element.
    ASSERT_EQ(Sdf_Write_Arr1D64(ch, "a1", v1, 5, 1), 0);
    EXPECT_EQ(dimsOf(ch, "a1"), (std::vector<int64_t>{1, 6}));
}

TEST_F(SdfFixedRank, CharacterFormsPassStringsThrough) {
    int ch = sdftest::openInternal("chars");
    ASSERT_EQ(Sdf_Define_Arr2D64(ch, "c", SDF_CHAR_T, 5, 2, 2, nullptr, nullptr), 0);
    char s0[] = "ab", s1[] = "cdefg", s2[] = "h";
    char* in[3] = {s0, s1, s2};
    ASSERT_EQ(Sdf_Write_Carr2D(ch, "c", in, 1, 0, 3), 0);
    char** out = nullptr;
    int32_t got = 0;
    ASSERT_EQ(Sdf_Read_Carr1D(ch, "c", &out, 0, 0, &got), 3000);  // rank 1 on a 2-D array
    EXPECT_TRUE(reported(3022));
    ASSERT_EQ(Sdf_Read_Carr2D(ch, "c", &out, 1, 0, 3, &got), 0);
    ASSERT_EQ(got, 3);
    EXPECT_STREQ(out[0], "ab");
    EXPECT_STREQ(out[1], "cdefg");
    EXPECT_STREQ(out[2], "h");
    EXPECT_EQ(Sdf_Free(out), 1);
}

TEST_F(SdfFixedRank, FailuresComeBackByTheChainNamingTheGenericForm) {
    int ch = sdftest::openInternal("fail");
    ASSERT_EQ(Sdf_Define_Arr1D(ch, "v", SDF_REAL_T, 0, 3, nullptr, nullptr), 0);
    const float f[2] = {1, 2};
    ZU_errClear("*", 0);
    EXPECT_EQ(Sdf_Write_Arr2D(ch, "v", f, 0, 0, 2), 3000);
    EXPECT_TRUE(reported(3022));
    EXPECT_EQ(reporters(3000), (std::vector<std::string>{"Sdf_Write_Array", "Sdf_Write_Arr2D"}));

    ZU_errClear("*", 0);
    void* p = nullptr;
    int32_t got = -1;
    EXPECT_EQ(Sdf_Read_Arr1D(ch, "missing", &p, 0, 0, &got), 3000);
    EXPECT_EQ(got, 0);
    EXPECT_EQ(reporters(3010).size(), 1u);  // where it was found
    EXPECT_EQ(reporters(3000), (std::vector<std::string>{"Sdf_Read_Array", "Sdf_Read_Arr1D"}));
    EXPECT_NE(sdftest::errorText(3000).find("\"Sdf_Read_Array\""), std::string::npos);

    // A warning of the generic form is passed up as its family too.
    ZU_errClear("*", 0);
    float buf[8];
    p = buf;
    EXPECT_EQ(Sdf_Read_Arr1D64(ch, "v", &p, 0, 5, nullptr), 2000);
    EXPECT_TRUE(reported(2020));
    EXPECT_EQ(reporters(2000), (std::vector<std::string>{"Sdf_Read_Arr1D64"}));
    // A channel that isn't open is the generic form's own 3001.
    ZU_errClear("*", 0);
    EXPECT_EQ(Sdf_Write_Arr1D(77, "v", f, 0, 1), 3000);
    EXPECT_TRUE(reported(3001));
    EXPECT_EQ(reporters(3000), (std::vector<std::string>{"Sdf_Write_Arr1D"}));
}

}  // namespace
