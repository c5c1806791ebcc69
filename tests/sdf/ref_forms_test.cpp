// The by-reference forms as a Fortran caller uses them: blank-padded names
// and fields with lengths, indices from 1, results in the last argument,
// buffers filled in place, and the few forms that allocate.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sdf_array_helpers.h"

namespace {

using sdftest::reported;

class SdfRefForms : public sdftest::ChannelTest {
protected:
    void SetUp() override {
        ChannelTest::SetUp();
        ch = sdftest::openInternal("ref");
        const int32_t v[5] = {11, 22, 33, 44, 55};
        ASSERT_EQ(Sdf_Define_Arr1D(ch, "v", SDF_INT_T, 0, 5, "kg", nullptr), 0);
        ASSERT_EQ(Sdf_Write_Arr1D(ch, "v", v, 0, 5), 0);
    }
    // A Fortran field: the text blank-padded to len.
    static std::string field(const std::string& s, size_t len) { return s + std::string(len - s.size(), ' '); }

    int ch = -1;
};

TEST_F(SdfRefForms, IndicesCountFromOneAndStartsComeBackSo) {
    int32_t buf[5] = {0}, one = 1, count = 2, got = 0, rc = -1;
    const std::string name = field("v", 8);
    ASSERT_EQ(Sdf_Read_Arr1D_ref(&ch, name.c_str(), buf, &one, &count, &got, &rc, name.size()), 0);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(got, 2);
    EXPECT_EQ(buf[0], 11);  // start 1 is the first element
    void* p = buf;
    ASSERT_EQ(Sdf_Read_Arr1D(ch, "v", &p, 0, 1, &got), 0);  // as start 0 of form 1
    EXPECT_EQ(buf[0], 11);

    int32_t start[2] = {1, 4};
    ASSERT_EQ(Sdf_Read_Array_ref(&ch, name.c_str(), buf, start, &count, &got, &rc, name.size()), 0);
    EXPECT_EQ(buf[0], 44);
    EXPECT_EQ(buf[1], 55);
    EXPECT_EQ(start[1], 6);  // behind the last element, counting from 1

    int64_t i = 2, n = 1;
    const int32_t seven[1] = {77};
    ASSERT_EQ(Sdf_Write_Arr1D64_ref(&ch, name.c_str(), seven, &i, &n, &rc, name.size()), 0);
    int64_t b[2] = {1, 2}, e[2] = {1, 3}, cnt = 0, dims[8];
    ASSERT_EQ(Sdf_Read_Slice64_ref(&ch, name.c_str(), buf, b, e, nullptr, nullptr, &cnt, dims, &rc, name.size()), 0);
    EXPECT_EQ(cnt, 2);
    EXPECT_EQ(buf[0], 77);
    EXPECT_EQ(buf[1], 33);

    int32_t zero = 0;  // index 0 is -1 inside: refused
    EXPECT_EQ(Sdf_Read_Arr1D_ref(&ch, name.c_str(), buf, &zero, &count, &got, &rc, name.size()), 3000);
    EXPECT_EQ(rc, 3000);
    EXPECT_TRUE(reported(3023));
}

TEST_F(SdfRefForms, NamesAreCutAtTrailingBlanksAndKeptTo512) {
    int type = 0, is_array = 0, rc = -1;
    const std::string padded = field("v", 40);
    EXPECT_EQ(Sdf_Get_Type_ref(&ch, padded.c_str(), &type, &is_array, &rc, padded.size()), 0);
    EXPECT_EQ(type, SDF_INT_T);
    EXPECT_EQ(is_array, 1);
    // A length shorter than the text cuts it: "vx" with length 1 is "v".
    EXPECT_EQ(Sdf_Get_Type_ref(&ch, "vx", &type, &is_array, &rc, 1), 0);

    const std::string n512(512, 'a'), n513(513, 'a');
    int pos = -1;
    EXPECT_EQ(Sdf_Check_Name_ref(n512.c_str(), &pos, &rc, n512.size()), 1);
    EXPECT_EQ(pos, 0);
    EXPECT_EQ(Sdf_Check_Name_ref(n513.c_str(), &pos, &rc, n513.size()), 0);
    EXPECT_EQ(pos, 512);  // the "&" put in its place
    const std::string blanks = n512 + "   ";
    EXPECT_EQ(Sdf_Valid_Name_ref(blanks.c_str(), &rc, blanks.size()), 1);

    const int32_t dims[2] = {1, 2};
    ZU_errClear("*", 0);
    EXPECT_EQ(Sdf_Define_Array_ref(&ch, n513.c_str(), &type, &is_array, dims, "", "", &rc, n513.size(), 0, 0), 3000);
    EXPECT_TRUE(reported(3005));
    EXPECT_EQ(Sdf_Define_Array_ref(&ch, n512.c_str(), &type, &is_array, dims, "", "", &rc, n512.size(), 0, 0), 0);
    EXPECT_EQ(Sdf_Exists(ch, n512.c_str()), 1);
}

TEST_F(SdfRefForms, OutputTextAndFieldsAreBlankPadded) {
    char units[8], text[6];
    int rc = -1;
    memset(units, '#', sizeof units);
    ASSERT_EQ(Sdf_Get_Units_ref(&ch, "v", units, &rc, 1, sizeof units), 0);
    EXPECT_EQ(std::string(units, sizeof units), field("kg", 8));
    // Too long for the field: cut, not spilled.
    ASSERT_EQ(Sdf_Put_Desc_ref(&ch, "v", "a description   ", &rc, 1, 16), 0);
    char* desc = nullptr;
    ASSERT_EQ(Sdf_Get_Desc(ch, "v", &desc), 0);
    EXPECT_STREQ(desc, "a description");
    Sdf_Free(desc);
    ASSERT_EQ(Sdf_Get_Desc_ref(&ch, "v", text, &rc, 1, sizeof text), 0);
    EXPECT_EQ(std::string(text, sizeof text), "a desc");

    ASSERT_EQ(Sdf_Define_Arr2D(ch, "c", SDF_CHAR_T, 4, 2, 2, nullptr, nullptr), 0);
    const char in[] = "ab  cdefxy  ";  // three fields of 4: "ab", "cdef", "xy"
    int32_t i = 1, j = 1, three = 3, got = 0;
    ASSERT_EQ(Sdf_Write_Carr2D_ref(&ch, "c", in, &i, &j, &three, &rc, 1, 4), 0);
    char out[3 * 6];
    ASSERT_EQ(Sdf_Read_Carray_ref(&ch, "c", out, nullptr, &three, &got, &rc, 1, 6), 0);
    EXPECT_EQ(got, 3);
    EXPECT_EQ(std::string(out, sizeof out), "ab    cdef  xy    ");
    EXPECT_EQ(Sdf_Read_Carray_ref(&ch, "c", out, nullptr, &three, &got, &rc, 1, 0), 4001);  // no width
}

TEST_F(SdfRefForms, ListsFillFieldsAndCountAllMatches) {
    ASSERT_EQ(Sdf_Define_Arr1D(ch, "w", SDF_INT_T, 0, 1, nullptr, nullptr), 0);
    ASSERT_EQ(Sdf_Define_Arr1D(ch, "x:unit_m", SDF_INT_T, 0, 1, nullptr, nullptr), 0);
    char names[2 * 10];
    int one = 1, count = 0, rc = -1;
    ASSERT_EQ(Sdf_List_ref(&ch, "*", names, &one, &count, &rc, 1, 10), 0);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(std::string(names, 10), field("v", 10));

    char tn[10], tv[10];
    ASSERT_EQ(Sdf_Tag_List_ref(&ch, "*", "+one_of,unit  ", tn, tv, &one, &count, &rc, 1, 14, 10, 10), 0);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(std::string(tn, 10), field("x:unit_m", 10));
    EXPECT_EQ(std::string(tv, 10), field("unit=m", 10));

    void* block = nullptr;
    int width = 3;
    ASSERT_EQ(Sdf_List_Alloc_ref(&ch, "*", &block, &width, &count, &rc, 1), 0);
    ASSERT_EQ(count, 3);
    EXPECT_EQ(std::string(static_cast<char*>(block), 9), "v  w  x:u");
    EXPECT_EQ(Sdf_Free(block), 1);
    void *bn = &count, *bv = &count;  // set to null when nothing matches
    ASSERT_EQ(Sdf_Tag_List_Alloc_ref(&ch, "nothing*", "", &bn, &bv, &width, &count, &rc, 8, 0), 0);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(bn, nullptr);
    EXPECT_EQ(bv, nullptr);
}

TEST_F(SdfRefForms, AllocatingReadsGiveMemoryForSdfFree) {
    int f = -1, rc = -1;
    const std::string p = path("a.sdf");
    ASSERT_EQ(Sdf_Open_ref(&f, p.c_str(), "BINARY", "NEW ", "WRITE", &rc, p.size(), 6, 4, 5), 0);
    const int32_t d[4] = {3, 2, 2, 2};
    ASSERT_EQ(Sdf_Define_Array(f, "a", SDF_DBLE_T, 0, d, nullptr, nullptr), 0);
    double v[8] = {0, 1, 2, 3, 4, 5, 6, 7};
    int32_t first[4] = {3, 0, 0, 0};
    ASSERT_EQ(Sdf_Write_Array(f, "a", v, first, 8), 0);

    void* data = v;  // whatever it held: set to null first
    int clen = 0;
    int32_t i = 2, j = 1, k = 2, count = 0, got = 0;
    ASSERT_EQ(Sdf_Read_All3D_ref(&f, "a", &data, &clen, &i, &j, &k, &count, &got, &rc, 1), 0);
    ASSERT_NE(data, static_cast<void*>(v));
    EXPECT_EQ(got, 3);
    EXPECT_EQ(static_cast<double*>(data)[0], 5);  // (1, 0, 1) from 0
    EXPECT_EQ(Sdf_Free(data), 1);

    int64_t b[4] = {3, 1, 2, 1}, e[4] = {3, 2, 2, 2}, cnt = 0, dims[8];
    ASSERT_EQ(Sdf_Read_ASlice64_ref(&f, "a", &data, &clen, b, e, nullptr, nullptr, &cnt, dims, &rc, 1), 0);
    EXPECT_EQ(cnt, 4);
    EXPECT_EQ(static_cast<double*>(data)[1], 3);
    EXPECT_EQ(Sdf_Free(data), 1);

    ZU_errClear("*", 0);
    EXPECT_EQ(Sdf_Read_Alloc_ref(&f, "a", nullptr, &clen, nullptr, &count, &got, &rc, 1), 4001);
    EXPECT_EQ(Sdf_Read_Array_ref(&f, "a", nullptr, nullptr, &count, &got, &rc, 1), 4001);
    EXPECT_EQ(rc, 4001);
    ASSERT_EQ(Sdf_Close_ref(&f, "DELETE", &rc, 6), 0);
}

TEST(SdfDimsHelpers, SetDimsNumElemAndCheckName) {
    int32_t d[8] = {0};
    ASSERT_EQ(Sdf_Set_Dims(3, d, 4, 5, 6), 0);
    EXPECT_EQ(d[3], 6);
    EXPECT_EQ(Sdf_Num_Elem(d), 120);
    int64_t d64[8] = {0};
    ASSERT_EQ(Sdf_Set_Dims64(2, d64, int64_t(1) << 40, int64_t(3)), 0);
    EXPECT_EQ(Sdf_Num_Elem64(d64), int64_t(3) << 40);
    EXPECT_EQ(Sdf_Set_Dims(8, d, 1), 3021);
    const int32_t big[3] = {2, 65536, 65536}, none[1] = {0};
    EXPECT_EQ(Sdf_Num_Elem(big), -1);
    EXPECT_EQ(Sdf_Num_Elem(none), 0);

    const int32_t rank = 2, e1 = 7, e2 = 9;
    int rc = -1;
    ASSERT_EQ(Sdf_Set_Dims_ref(&rank, d, &e1, &e2, &rc), 0);
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(d[0], 2);
    EXPECT_EQ(d[2], 9);
    const int32_t bad = 0;
    EXPECT_EQ(Sdf_Set_Dims_ref(&bad, d, &rc), 3021);  // the result right after the (no) extents
    EXPECT_EQ(rc, 3021);
    int32_t n = 0;
    EXPECT_EQ(Sdf_Num_Elem_ref(d, &n), 63);
    EXPECT_EQ(n, 63);

    int at = 5;
    EXPECT_EQ(Sdf_Check_Name("ok_name", &at), 1);
    EXPECT_EQ(at, -1);
    EXPECT_EQ(Sdf_Check_Name("ab-c", &at), 0);
    EXPECT_EQ(at, 2);
    EXPECT_EQ(Sdf_Check_Name("ab$", &at), 0);
    EXPECT_EQ(at, 2);
    EXPECT_EQ(Sdf_Check_Name("", &at), 0);
    EXPECT_EQ(at, 0);
    EXPECT_EQ(Sdf_Check_Name(std::string(600, 'x').c_str(), &at), 0);
    EXPECT_EQ(at, 512);
}

}  // namespace
