// "sdf calc" as a user runs it: results printed with type, shape and units;
// the file gets what the run created, changed or deleted only when every
// expression succeeded, and a failing one ends the command with exit code 1
// and the library's message, the file byte for byte as it was.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "sdf.h"
#include "tool_run.h"

namespace {

using sdftooltest::Outcome;

Outcome run(const std::string& args) { return sdftooltest::runTool("calc " + args); }

std::string bytesOf(const char* path) {
    std::string out;
    FILE* f = std::fopen(path, "rb");
    if (!f) return out;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
    std::fclose(f);
    return out;
}

double valueIn(int ch, const char* name, int k) {
    double v[8] = {};
    void* data = v;
    int64_t start[8] = {0}, nread = 0;
    if (Sdf_Read_Array64(ch, name, &data, start, 8, &nread) >= 3000 || k >= nread) return -1;
    return v[k];
}

TEST(SdfCalcTool, WritesBackOnlyAfterEveryExpressionSucceeded) {
    char path[] = "/tmp/calc_toolXXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    unlink(path);
    Sdf_Set_Opts("Error_Out=None");
    int ch = 0;
    ASSERT_EQ(Sdf_Open(&ch, path, "BINARY", "NEW", "WRITE"), 0);
    const double a[3] = {1, 2, 4};
    ASSERT_EQ(Sdf_Define_Arr1D(ch, "a", SDF_DBLE_T, 0, 3, "m", "lengths"), 0);
    int32_t start[2] = {1, 0};
    ASSERT_EQ(Sdf_Write_Array(ch, "a", a, start, 3), 0);
    ASSERT_EQ(Sdf_Write_Char(ch, "Tag", "first", "a label"), 0);
    const int32_t m[6] = {1, 2, 3, 4, 5, 6};
    const int64_t mdims[3] = {2, 2, 3};
    ASSERT_EQ(Sdf_Define_Array64(ch, "m", SDF_INT_T, 0, mdims, "s", nullptr), 0);
    int64_t mstart[3] = {2, 0, 0};
    ASSERT_EQ(Sdf_Write_Array64(ch, "m", m, mstart, 6), 0);
    char* words[2] = {const_cast<char*>("ab"), const_cast<char*>("cde")};
    const int64_t wdims[2] = {1, 2};
    ASSERT_EQ(Sdf_Define_Array64(ch, "w", SDF_CHAR_T, 4, wdims, nullptr, nullptr), 0);
    int64_t wstart[2] = {1, 0};
    ASSERT_EQ(Sdf_Write_Carray64(ch, "w", words, wstart, 2), 0);
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);

    Outcome r = run(std::string(path) + " 'b = a * 2' 'b + 1 [m]'");
    EXPECT_EQ(r.code, 0) << r.out;
    EXPECT_NE(r.out.find("_$1: double[3] [m]"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("3"), std::string::npos) << r.out;

    ASSERT_EQ(Sdf_Open(&ch, path, "BINARY", "OLD", "READ"), 0);
    EXPECT_EQ(valueIn(ch, "_$1", 2), 9);
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
    const std::string before = bytesOf(path);
    r = run(std::string(path) + " 'c = 1' 'a = a * 10' 'd = a + 1 [s]' 'e = 2'");
    EXPECT_EQ(r.code, 1) << r.out;
    EXPECT_NE(r.out.find("are incompatible"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("the file is unchanged"), std::string::npos) << r.out;
    EXPECT_EQ(bytesOf(path), before) << "a failed run must not write to the file";

    r = run(std::string(path) + " 'a = a * 10, x = Tag' 'y = 1, mm = m * 2, ww = w'");
    EXPECT_EQ(r.code, 0) << r.out;
    ASSERT_EQ(Sdf_Open(&ch, path, "BINARY", "OLD", "READ"), 0);
    EXPECT_EQ(valueIn(ch, "b", 2), 8);
    EXPECT_EQ(Sdf_Exists(ch, "_$1"), 0) << "the old result the run deleted goes from the file";
    EXPECT_EQ(valueIn(ch, "a", 2), 40) << "a changed array is written back";
    char* text = nullptr;
    ASSERT_EQ(Sdf_Get_Desc(ch, "Tag", &text), 0);
    EXPECT_STREQ(text, "a label");
    Sdf_Free(text);
    text = nullptr;
    ASSERT_EQ(Sdf_Get_Units(ch, "a", &text), 0);
    EXPECT_STREQ(text, "m");
    Sdf_Free(text);
    text = nullptr;
    ASSERT_EQ(Sdf_Get_Cval(ch, "x", &text, nullptr), 0);
    EXPECT_STREQ(text, "first");
    Sdf_Free(text);
    for (const char* gone : {"c", "d", "e"}) EXPECT_EQ(Sdf_Exists(ch, gone), 0) << gone;
    EXPECT_EQ(Sdf_Exists(ch, "y"), 1);
    int64_t dims[8] = {};
    ASSERT_EQ(Sdf_Get_Dims64(ch, "mm", dims), 0);
    EXPECT_EQ(std::vector<int64_t>(dims, dims + 3), (std::vector<int64_t>{2, 2, 3})) << "shape copied in and out";
    int32_t mm[6] = {};
    void* mp = mm;
    int64_t rstart[8] = {0}, nread = 0;
    ASSERT_EQ(Sdf_Read_Array64(ch, "mm", &mp, rstart, 6, &nread), 0);
    EXPECT_EQ(mm[5], 12);
    char** strings = nullptr;
    int64_t cstart[8] = {0};
    ASSERT_EQ(Sdf_Read_Carray64(ch, "ww", &strings, cstart, 2, &nread), 0);
    ASSERT_EQ(nread, 2);
    EXPECT_STREQ(strings[1], "cde");
    Sdf_Free(strings);
    EXPECT_EQ(Sdf_Exists(ch, "Tag"), 1);
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);

    Sdf_Close(ch, "DELETE");
    EXPECT_EQ(run("/nonexistent/x.sdf '1'").code, 1);
    EXPECT_EQ(run("").code, 2);
}

// On a file that ignores case, names in expressions do too, as they would
// on the file itself.
TEST(SdfCalcTool, FollowsTheFilesNameCase) {
    char path[] = "/tmp/calc_caseXXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    unlink(path);
    Sdf_Set_Opts("Error_Out=None");
    ASSERT_EQ(Sdf_Push(-2), 0);
    Sdf_Set_Opts("Case_Sensitive=No");
    int ch = 0;
    ASSERT_EQ(Sdf_Open(&ch, path, "BINARY", "NEW", "WRITE"), 0);
    Sdf_Pop();
    const double v = 3;
    ASSERT_EQ(Sdf_Write_Var(ch, "Alpha", SDF_DBLE_T, &v, nullptr, nullptr), 0);
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
    Outcome r = run(std::string(path) + " 'Beta = ALPHA * 2'");
    EXPECT_EQ(r.code, 0) << r.out;
    ASSERT_EQ(Sdf_Open(&ch, path, "BINARY", "OLD", "READ"), 0);
    double beta = 0;
    EXPECT_EQ(Sdf_Get_Val(ch, "beta", &beta), 0);
    EXPECT_EQ(beta, 6);
    Sdf_Close(ch, "DELETE");
}

}  // namespace
