// N-dimensional tables: map files in their three forms and their faults,
// multi-linear values checked against independent computations, the
// out-of-range rules, missing points, grid lines, writing and reading back.
#include "zu_ndim.h"
#include "zu_test_support.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace {

class Ndim : public ZuFreshState {
protected:
    void SetUp() override
    {
        ZuFreshState::SetUp();
        ASSERT_NE(mkdtemp(dir_), nullptr);
    }
    void TearDown() override
    {
        zu_ndimIo = zu_ndimIoDefault;
        for (const std::string &f : files_)
            unlink(f.c_str());
        rmdir(dir_);
        ZuFreshState::TearDown();
    }
    std::string path(const std::string &name)
    {
        files_.push_back(std::string(dir_) + "/" + name);
        return files_.back();
    }
    std::string file(const std::string &text, const std::string &name = "map.txt")
    {
        std::string p = path(name);
        std::ofstream(p, std::ios::binary) << text;
        return p;
    }
    // A table from map-file text; fails the test when it doesn't load.
    int table(const std::string &text)
    {
        int h = -1;
        EXPECT_EQ(ZU_ndimCreate(&h, file(text).c_str()), 0) << text << messages();
        return h;
    }
    static std::string messages(const char *routine = "*")
    {
        std::string out;
        int index = 1;
        while (ZU_ErrRec *rec = ZU_errNext(routine, &index))
            out += std::to_string(rec->number) + "/" + std::to_string(rec->severity) + ": " + rec->message + "|";
        return out;
    }
    static size_t count(const std::string &text, const std::string &part)
    {
        size_t n = 0;
        for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
            ++n;
        return n;
    }
    static float at(int h, std::vector<float> coords, int expectRc = 0)
    {
        float v = -999;
        EXPECT_EQ(ZU_ndimInterp(h, coords.data(), &v), expectRc);
        return v;
    }

    char dir_[32] = "/tmp/zu-ndim-XXXXXX";
    std::vector<std::string> files_;
};

const char *kExample = "full\n2 #\n0 1 2 #\n10 20 #\n1 2 3 4 5 6 #\n";

TEST_F(Ndim, FullTableGivesGridValuesAndHandComputedCells)
{
    int h = table(kExample);
    EXPECT_EQ(at(h, {1, 20}), 4.0f);
    EXPECT_EQ(at(h, {0, 10}), 1.0f);
    EXPECT_EQ(at(h, {0.5f, 15}), 2.5f);  // (1 + 2 + 3 + 4) / 4
    EXPECT_EQ(at(h, {1.5f, 12.5f}), 4.25f);  // 0.75*(0.5*3+0.5*5) + 0.25*(0.5*4+0.5*6)
    EXPECT_EQ(at(h, {2, 20}), 6.0f);
    int idx[2];
    float axis[2];
    ASSERT_EQ(ZU_ndimGetCurrentGridPoint(h, idx, axis), 0);
    // The last grid point lies at fraction 1 of the interval below it.
    EXPECT_EQ(std::vector<int>(idx, idx + 2), (std::vector<int>{1, 0}));
    EXPECT_EQ(std::vector<float>(axis, axis + 2), (std::vector<float>{1, 10}));

    int dims = 0;
    float lo = -1, hi = -1, none = -1;
    EXPECT_EQ(ZU_ndimGetDimensions(h, &dims) | ZU_ndimGetGridMin(h, 2, &lo) | ZU_ndimGetGridMax(h, 1, &hi) |
                  ZU_ndimGetGridMax(h, 3, &none),
              0);
    EXPECT_EQ(std::make_tuple(dims, lo, hi, none), std::make_tuple(2, 10.0f, 2.0f, 0.0f));
    EXPECT_EQ(messages(), "");
}

// A function linear in each coordinate on its own is reproduced exactly by
// multi-linear interpolation, whatever the spacing of the axes.
TEST_F(Ndim, MultilinearFunctionIsReproducedOnUnevenAxes)
{
    const std::vector<std::vector<float>> axes = {{-2, -0.5f, 1, 4}, {0, 0.25f, 3}, {5, 6, 9.5f, 10, 12}};
    auto f = [](double x, double y, double z) { return 1 + 2 * x - 3 * y + 0.5 * z + x * y - 0.25 * x * y * z; };
    std::ostringstream text;
    text << "FULL 3 #\n";
    for (const auto &a : axes) {
        for (float v : a)
            text << v << ' ';
        text << "#\n";
    }
    for (float x : axes[0])
        for (float y : axes[1])
            for (float z : axes[2])
                text << f(x, y, z) << '\n';
    text << "#\n";
    int h = table(text.str());
    int32_t seed = 12345;
    for (int i = 0; i < 200; ++i) {
        double x = -2 + 6 * ZU_rand(&seed), y = 3 * ZU_rand(&seed), z = 5 + 7 * ZU_rand(&seed);
        float v = at(h, {float(x), float(y), float(z)});
        double want = f(float(x), float(y), float(z));
        EXPECT_NEAR(v, want, 1e-4 * (1 + std::fabs(want))) << x << " " << y << " " << z;
    }
}

TEST_F(Ndim, EveryFileFormReadsTheSameTable)
{
    const std::vector<std::string> forms = {
        kExample,
        "Full 2# 0 1 2# 10 20#\r\n1 2 3\r\n4 5 6#",
        "ntuples 2 # 0 1 2 # 10 20 # 99 # 0 0 1 # 0 1 2 # 1 0 3 # 1 1 4 # 2 0 5 # 2 1 6 #",
        "SPARSE 2 # 0 1 2 # 10 20 #\n2 1 6 #\n0 0 1 #\n1 1 4 #\n0 1 2 #\n1 0 3 #\n2 0 5 #\n",
        "sparse 2 # 0 1 2 # 10 20 # 0 0 0.5 # 0 1 2 # 1 0 3 # 1 1 4 # 2 0 5 # 2 1 6 # 0 0 1.0e0 #",
    };
    for (const std::string &text : forms) {
        int h = table(text);
        EXPECT_EQ(at(h, {0.5f, 15}), 2.5f) << text;
        EXPECT_EQ(at(h, {1.5f, 17.5f}), 4.75f) << text;
        ZU_ndimDelete(h);
    }
    int empty = table("ntuples 3 # 1 2 # 0 # 7 8 9 # -2.5 #");
    EXPECT_EQ(at(empty, {1.5f, 0, 8}), -2.5f);
    EXPECT_EQ(messages(), "");
}

TEST_F(Ndim, MalformedFilesReportEveryFaultWithItsLine)
{
    struct Case {
        const char *text;
        std::vector<std::pair<const char *, int>> faults;
    };
    const std::vector<Case> cases = {
        {"", {{"UNKNOWN FILE TYPE", 1}}},
        {"dense 1 # 0 # 1 #", {{"UNKNOWN FILE TYPE", 1}}},
        {"full\n#", {{"NUMBER OF DIMENSIONS MISSING", 2}}},
        {"full 1.5 # 0 # 1 #", {{"NUMBER OF DIMENSIONS MISSING", 1}}},
        {"full\n0 # 0 # 1 #", {{"NUMBER OF DIMENSIONS MUST BE AT LEAST 1", 2}}},
        {"full 1\n0 # 1 #", {{"MISSING TERMINATOR", 2}}},
        {"full 2 #\n0 1 #\n0 1 2 3 #", {{"NOT ENOUGH DATA FIELDS", 1}}},
        {"sparse 2000000000 # 0 #", {{"NOT ENOUGH AXES TABULATED", 1}}},
        {"full 2 #\n0 2 1 #\n0 1 1 #\n1 2 3 4 5 6 7 8 9 #", {{"AXIS VALUES NOT MONOTONICALLY INCREASING", 2},
                                                  {"AXIS VALUES NOT MONOTONICALLY INCREASING", 3}}},
        {"full 2 #\n0 1 #\n0 1.5d0 #\n1 2 3 4 #", {{"NOT ENOUGH AXES TABULATED", 3}}},
        {"sparse 1 # # 0 0 #", {{"NOT ENOUGH AXES TABULATED", 1}}},
        {"full 1 # 0 1 2 #\n1 2\n#", {{"NOT ENOUGH DATA POINTS", 3}}},
        {"full 1 # 0 1 #\n1 2\n3 4 #", {{"TOO MANY DATA POINTS", 3}}},
        {"full 1 # 0 1 #\n1 2 #\n5", {{"EXTRA DATA", 3}}},
        {"full 1 # 0 1 #\n1 2 x #", {{"MISSING TERMINATOR", 2}}},
        {"ntuples 1 # 0 1 #\n# 0 1 #", {{"NO DEFAULT VALUE", 2}}},
        {"ntuples 1 # 0 1 # 5\n0 1 #", {{"MISSING TERMINATOR", 2}}},
        {"sparse 2 # 0 1 # 0 1 #\n0 2 1 #\n-1 0 1 #\n1 x 2 #\n1 1 5 #",
         {{"INDEX OUT OF BOUNDS", 2}, {"INDEX OUT OF BOUNDS", 3}, {"INDEX OUT OF BOUNDS", 4}}},
        {"sparse 2 # 0 1 # 0 1 #\n0 1 #\n1 1 z #\n1 1 1 1 #\n1 0 1",
         {{"INCOMPLETE NTUPLE", 2}, {"INCOMPLETE NTUPLE", 3}, {"MISSING TERMINATOR", 4}, {"MISSING TERMINATOR", 5}}},
    };
    for (const Case &c : cases) {
        ZU_errClear("*", 0);
        std::string p = file(c.text);
        std::string want;
        for (const auto &[text, line] : c.faults)
            want += "300/3: " + std::string(text) + " in \"" + p + "\" near line " + std::to_string(line) + "\n|";
        int h = -7;
        EXPECT_EQ(ZU_ndimCreate(&h, p.c_str()), ZU_NDIM_FAILED) << c.text;
        EXPECT_EQ(messages(), want) << c.text;
        // The handle names a slot that holds no table.
        EXPECT_GE(h, 0);
        EXPECT_EQ(ZU_ndimDelete(h), ZU_NDIM_FAILED);
    }
}

TEST_F(Ndim, GridsBeyondTwoToThe31PointsAreRefused)
{
    std::string text = "sparse 3 #";
    for (int d = 0; d < 3; ++d) {
        for (int i = 0; i < 1300; ++i)
            (text += ' ') += std::to_string(i);
        text += " #";
    }
    int h;
    EXPECT_EQ(ZU_ndimCreate(&h, file(text).c_str()), ZU_NDIM_FAILED);
    EXPECT_EQ(messages(), "300/3: Required number of grid points (2.197000e+09) exceeded maximum number "
                          "(2.147484e+09)|");
}

TEST_F(Ndim, OutOfRangeWarnsFiveTimesInATablesLife)
{
    std::string p = file("full 2 # 0 1 # 5 # 1 3 #");
    int h;
    ASSERT_EQ(ZU_ndimCreate(&h, p.c_str()), 0);
    EXPECT_EQ(at(h, {2, 5}, ZU_NDIM_OUT_OF_RANGE), 3.0f);
    EXPECT_EQ(messages(), "201/2: Interpolation variable out of range|201/2: ARRAY FILE  : \"" + p +
                              "\"|201/2: DIMENSION   : 1|201/2: RANGE       : 0 - 1|201/2: VALUE GIVEN : 2|"
                              "201/2: VALUE USED  : 1|");
    ZU_errClear("*", 0);
    EXPECT_EQ(at(h, {-1, 5}, ZU_NDIM_OUT_OF_RANGE), 1.0f);
    ZU_errClear("*", 0);
    // A one-value axis warns for any other coordinate and uses its value.
    EXPECT_EQ(at(h, {0.5f, 6}, ZU_NDIM_OUT_OF_RANGE), 2.0f);
    EXPECT_NE(messages().find("201/2: DIMENSION   : 2|201/2: RANGE       : 5 - 5|201/2: VALUE GIVEN : 6|"
                              "201/2: VALUE USED  : 5|"),
              std::string::npos);
    EXPECT_EQ(at(h, {0.5f, 5}), 2.0f);  // in range: no warning
    // Both coordinates out: the fourth and fifth warnings in one call.
    ZU_errClear("*", 0);
    EXPECT_EQ(at(h, {9, 9}, ZU_NDIM_OUT_OF_RANGE), 3.0f);
    std::string last = messages();
    EXPECT_EQ(count(last, "Interpolation variable out of range"), 2u);
    EXPECT_TRUE(last.ends_with("|201/2: No more warnings will be given for this file|")) << last;
    ZU_errClear("*", 0);
    EXPECT_EQ(at(h, {9, 9}), 3.0f);  // the sixth: silent, result 0
    EXPECT_EQ(at(h, {-9, 9}), 1.0f);
    EXPECT_EQ(messages(), "");
}

TEST_F(Ndim, MissingPointsFailOnlyInCellsThatTouchThem)
{
    // A hole at (1, 1) of a 4 x 3 grid; every cell read reads all its corners.
    std::string text = "sparse 2 # 0 1 2 3 # 0 1 2 #";
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 3; ++j)
            if (i != 1 || j != 1)
                ((((text += ' ') += std::to_string(i)) += ' ') += std::to_string(j)) += " 1 #";
    int h = table(text);
    float v = 42;
    EXPECT_EQ(ZU_ndimInterp(h, std::vector<float>{0.5f, 0.5f}.data(), &v), ZU_NDIM_MISSING_POINT);
    EXPECT_EQ(v, 42.0f);
    EXPECT_EQ(messages(), "202/2: Missing required point in array file: \"" + files_.back() + "\"|");
    (void)at(h, {1, 1}, ZU_NDIM_MISSING_POINT);
    (void)at(h, {0, 0}, ZU_NDIM_MISSING_POINT);  // on a grid point, but the cell holds the hole
    EXPECT_EQ(at(h, {2.5f, 0.5f}), 1.0f);
    EXPECT_EQ(at(h, {3, 2}), 1.0f);
    int keys[2] = {1, 1};
    EXPECT_EQ(ZU_ndimSetValue(h, keys, 5), 0);
    EXPECT_EQ(at(h, {0.5f, 0.5f}), 2.0f);
}

TEST_F(Ndim, SetValueReplacesOrInsertsInKeyOrder)
{
    int h = table("sparse 2 # 0 1 2 # 0 1 # 2 1 6 # 0 0 1 #");
    ZU_NdimTable *t = zu_ndimLookup("test", h);
    ASSERT_NE(t, nullptr);
    EXPECT_EQ(t->count, 2);
    const int a[2] = {1, 0}, b[2] = {0, 0}, bad[2] = {0, 2};
    EXPECT_EQ(ZU_ndimSetValue(h, a, 3), 0);
    EXPECT_EQ(ZU_ndimSetValue(h, b, 7), 0);
    EXPECT_EQ(t->count, 3);
    EXPECT_EQ(std::vector<int32_t>(t->keys, t->keys + 3), (std::vector<int32_t>{0, 2, 5}));
    EXPECT_EQ(std::vector<float>(t->values, t->values + 3), (std::vector<float>{7, 3, 6}));
    EXPECT_EQ(ZU_ndimSetValue(h, bad, 1), ZU_NDIM_FAILED);
    EXPECT_EQ(messages(), "300/3: INDEX OUT OF BOUNDS|");
}

TEST_F(Ndim, GridLinesGoBetweenAndOutsideAndKeepStoredPoints)
{
    int h = table(kExample);
    // Within tolerance, no such dimension, between, above, below.
    const std::tuple<int, float, float, int> lines[] = {
        {1, 1.00001f, 0.001f, 0}, {3, 5, 0, 0}, {1, 0.5f, 0.001f, 1}, {2, 30, 0.001f, 1}, {2, 0, 0.001f, 1}};
    int added = -1;
    for (const auto &[dim, value, tolerance, want] : lines) {
        EXPECT_EQ(ZU_ndimAddGridPoint(h, dim, value, tolerance, &added), 0);
        EXPECT_EQ(added, want) << dim << " " << value;
    }
    float hi, lo;
    ZU_ndimGetGridMax(h, 2, &hi);
    ZU_ndimGetGridMin(h, 2, &lo);
    EXPECT_EQ(hi, 30.0f);
    EXPECT_EQ(lo, 0.0f);
    // Old points keep their coordinates; the new lines hold nothing yet.
    EXPECT_EQ(at(h, {1, 10}), 3.0f);
    EXPECT_EQ(at(h, {2, 15}), 5.5f);
    EXPECT_EQ(at(h, {1.5f, 15}), 4.5f);
    (void)at(h, {0.25f, 15}, ZU_NDIM_MISSING_POINT);
    (void)at(h, {1, 25}, ZU_NDIM_MISSING_POINT);
    const int line[2] = {1, 1};  // x = 0.5, y = 10
    const int line2[2] = {1, 2};  // x = 0.5, y = 20
    ZU_ndimSetValue(h, line, 10);
    ZU_ndimSetValue(h, line2, 20);
    EXPECT_EQ(at(h, {0.25f, 15}), 0.5f * (1.5f + 15));
    // One-value axes take any new value but never a duplicate one.
    int one = table("full 1 # 3 # 8 #");
    EXPECT_EQ(ZU_ndimAddGridPoint(one, 1, 3, 0, &added), 0);
    EXPECT_EQ(added, 0);
    EXPECT_EQ(ZU_ndimAddGridPoint(one, 1, 3.0001f, 1, &added), 0);
    EXPECT_EQ(added, 1);
}

TEST_F(Ndim, WrittenTablesHaveTheSparseFormatAndReadBack)
{
    int h = table("ntuples 2 # -1.5 2 # 10 20 30 # 4 # 1 2 0.125 # 0 0 -3 #");
    std::string out = path("out.txt");
    ASSERT_EQ(ZU_ndimWrite(h, out.c_str()), 0);
    std::ifstream in(out, std::ios::binary);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(text, "SPARSE\n2 #\n\n-1.50000000e+00 2.00000000e+00 #\n"
                    "1.00000000e+01 2.00000000e+01 3.00000000e+01 #\n\n"
                    "0 0 -3.00000000e+00 #\n1 2 1.25000000e-01 #\n");

    // A table of awkward values comes back bit for bit.
    int big = table("full 2 # 0.1 0.2 0.7 # -1e-30 3.4e38 # 0.3 -7.77777 1e-38 123456.7 1 2 #");
    ASSERT_EQ(ZU_ndimWrite(big, out.c_str()), 0);
    int back;
    ASSERT_EQ(ZU_ndimCreate(&back, out.c_str()), 0);
    ZU_NdimTable *a = zu_ndimLookup("test", big), *b = zu_ndimLookup("test", back);
    ASSERT_EQ(b->count, a->count);
    for (int d = 0; d < 2; ++d)
        EXPECT_EQ(std::vector<float>(a->grid[d], a->grid[d] + 3 - d),
                  std::vector<float>(b->grid[d], b->grid[d] + 3 - d));
    EXPECT_EQ(std::vector<float>(a->values, a->values + 6), std::vector<float>(b->values, b->values + 6));
    EXPECT_EQ(b->hasDefault, 0);

    EXPECT_EQ(ZU_ndimWrite(h, (std::string(dir_) + "/no/such/dir").c_str()), ZU_NDIM_NOT_WRITTEN);
    EXPECT_NE(messages().find("300/1: Cannot open file : \""), std::string::npos);
}

TEST_F(Ndim, FileFaultsAreReportedNotIgnored)
{
    std::string p = file(kExample);
    int h;
    EXPECT_EQ(ZU_ndimCreate(&h, (p + ".missing").c_str()), ZU_NDIM_FAILED);
    EXPECT_EQ(messages(), "300/3: Cannot open file : \"" + p + ".missing\" for reading|");
    ZU_errClear("*", 0);
    zu_ndimIo.read = [](int, void *, size_t) -> ssize_t {
        errno = EIO;
        return -1;
    };
    EXPECT_EQ(ZU_ndimCreate(&h, p.c_str()), ZU_NDIM_FAILED);
    EXPECT_EQ(messages(), "300/3: Read failed on file : \"" + p + "\"|");
    zu_ndimIo = zu_ndimIoDefault;
    ZU_errClear("*", 0);
    h = table(kExample);
    zu_ndimIo.write = [](int, const void *, size_t) -> ssize_t {
        errno = ENOSPC;
        return -1;
    };
    std::string out = path("full.txt");
    EXPECT_EQ(ZU_ndimWrite(h, out.c_str()), ZU_NDIM_NOT_WRITTEN);
    EXPECT_EQ(messages(), "300/3: Write failed on file : \"" + out + "\"|");
}

TEST_F(Ndim, HandlesAreCheckedAndReused)
{
    int a = table(kExample), b = table(kExample);
    EXPECT_EQ(ZU_ndimDelete(a), 0);
    float v;
    EXPECT_EQ(ZU_ndimInterp(a, std::vector<float>{0, 10}.data(), &v), ZU_NDIM_FAILED);
    EXPECT_EQ(ZU_ndimDelete(a), ZU_NDIM_FAILED);
    EXPECT_EQ(ZU_ndimGetDimensions(-1, nullptr), ZU_NDIM_FAILED);
    EXPECT_EQ(ZU_ndimGetDimensions(b + 100, nullptr), ZU_NDIM_FAILED);
    EXPECT_EQ(ZU_ndimInterp(b, nullptr, &v), ZU_NDIM_FAILED);
    EXPECT_EQ(ZU_ndimCreate(nullptr, "x"), ZU_NDIM_FAILED);
    EXPECT_EQ(messages(), "300/3: handle is not valid|300/3: handle is not valid|300/3: handle is not valid|"
                          "300/3: handle is not valid|300/3: Invalid pointer|300/3: Invalid pointer|");
    EXPECT_EQ(table(kExample), a);
    EXPECT_EQ(table(kExample), b + 1);
}

// Freeing all memory at shut-down takes the tables and surfaces with it, so
// no handle is left naming a freed block.
TEST_F(Ndim, ShutDownDropsEveryTableAndSurface)
{
    int h = table(kExample);
    const double g = 1;
    int s = -1;
    ASSERT_EQ(ZU_respCreate(&s, 1, 1, &g, 1, 1), 0);
    ZU_close();
    ZU_init(0);
    int dims = 0;
    double d;
    EXPECT_EQ(ZU_ndimGetDimensions(h, &dims), ZU_NDIM_FAILED);
    EXPECT_EQ(ZU_respNorm(s, &g, &g, &d), ZU_RESP_BAD_HANDLE);
    EXPECT_EQ(table(kExample), 0);
}

extern "C" int zu_ndiminterp_ref_(const int *, const float *, float *, int *);

TEST_F(Ndim, ByReferenceFormsTakeFortranArguments)
{
    std::string p = file(kExample);
    std::string field = p + "      ";
    int h = -1, rc = -1;
    ASSERT_EQ(ZU_ndimCreate_ref(&h, field.data(), &rc, field.size()), 0);
    EXPECT_EQ(rc, 0);
    const float coords[2] = {0.5f, 15};
    float v = 0;
    rc = -1;
    EXPECT_EQ(zu_ndiminterp_ref_(&h, coords, &v, &rc), 0);
    EXPECT_EQ(v, 2.5f);
    EXPECT_EQ(rc, 0);
    const int dim = 2;
    float hi = 0;
    EXPECT_EQ(ZU_ndimGetGridMax_ref(&h, &dim, &hi, &rc), 0);
    EXPECT_EQ(hi, 20.0f);
    EXPECT_EQ(ZU_ndimDelete_ref(nullptr, &rc), ZU_NDIM_FAILED);
    EXPECT_EQ(rc, ZU_NDIM_FAILED);
    EXPECT_EQ(messages(), "300/3: Invalid pointer|");
}

TEST(NdimCodes, EveryCodeAndMessageHasItsText)
{
#define ZU_CHECK_(code, name, text) EXPECT_STREQ(ZU_ndimCodeText(code), text);
    ZU_NDIM_CODES(ZU_CHECK_)
#undef ZU_CHECK_
#define ZU_CHECK_(code, name, text) EXPECT_STREQ(ZU_respCodeText(code), text);
    ZU_RESP_CODES(ZU_CHECK_)
#undef ZU_CHECK_
    EXPECT_STREQ(ZU_ndimCodeText(7), "");
    EXPECT_STREQ(ZU_respCodeText(0), "");
    for (int i = 0; i < static_cast<int>(NdimMsg::Count_); ++i)
        EXPECT_STRNE(zu_ndimMsg(static_cast<NdimMsg>(i)), "") << i;
}

} // namespace
