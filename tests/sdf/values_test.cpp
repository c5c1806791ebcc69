// Values of single variables through the public operations: scalars of
// every type across a close in both byte orders, character scalars, units
// and descriptions, dimensions and reshaping, the overwrite rules, the
// commit of Write "Always", addresses on internal files, and the codes of
// bad requests, which must leave the file as it was.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "sdf_value_helpers.h"

namespace {

using sdftest::createFile;
using sdftest::makeArray;
using sdftest::openFile;
using sdftest::record;
using sdftest::reported;
using sdftest::cvalOf;
using sdftest::textOf;

class SdfValues : public sdftest::ChannelTest {};

struct Scalar {
    const char* name;
    int type;
    std::vector<unsigned char> bytes;  // 4, 8 or 16, chosen so a swap shows
};

std::vector<unsigned char> pattern(size_t n, unsigned char seed) {
    std::vector<unsigned char> b(n);
    for (size_t i = 0; i < n; i++) b[i] = static_cast<unsigned char>(seed + 17 * i);
    return b;
}

const std::vector<Scalar>& scalars() {
    static const std::vector<Scalar> s = {
        {"i", SDF_INT_T, pattern(4, 1)},     {"l", SDF_INT64_T, pattern(8, 2)},
        {"g", SDF_LOG_T, pattern(4, 3)},     {"r", SDF_REAL_T, pattern(4, 4)},
        {"d", SDF_DBLE_T, pattern(8, 5)},    {"c", SDF_CMPX_T, pattern(8, 6)},
        {"z", SDF_DCMPX_T, pattern(16, 7)},
    };
    return s;
}

TEST_F(SdfValues, ScalarsOfEveryTypeSurviveACloseInBothByteOrders) {
    for (const char* sex : {"Sex=BigEndian", "Sex=LittleEndian"}) {
        SCOPED_TRACE(sex);
        const std::string p = path(sex + 4);
        int ch = createFile(p, sex);
        ASSERT_GE(ch, 0);
        for (const Scalar& s : scalars())
            ASSERT_EQ(Sdf_Write_Var(ch, s.name, s.type, s.bytes.data(), "m/s", "a value"), 0) << s.name;
        ASSERT_EQ(Sdf_Write_Char(ch, "t", "some text", "a string"), 0);
        ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);

        ch = openFile(p, "READ");
        ASSERT_GE(ch, 0);
        EXPECT_EQ(sdf_chan_get(ch)->file->hdr->magic[9], sex[4] == 'B' ? 'B' : 'L');
        for (const Scalar& s : scalars()) {
            SCOPED_TRACE(s.name);
            unsigned char got[16] = {};
            ASSERT_EQ(Sdf_Get_Val(ch, s.name, got), 0);
            EXPECT_EQ(std::vector<unsigned char>(got, got + s.bytes.size()), s.bytes);
            int type = 0, array = -1, elen = 0;
            ASSERT_EQ(Sdf_Get_Type(ch, s.name, &type, &array), 0);
            EXPECT_EQ(type, s.type);
            EXPECT_EQ(array, 0);
            ASSERT_EQ(Sdf_Get_Elen(ch, s.name, &elen), 0);
            EXPECT_EQ(elen, static_cast<int>(s.bytes.size()));
            EXPECT_EQ(textOf(Sdf_Get_Units, ch, s.name), "m/s");
            EXPECT_EQ(textOf(Sdf_Get_Desc, ch, s.name), "a value");
        }
        int len = -1;
        EXPECT_EQ(cvalOf(ch, "t", &len), "some text");
        EXPECT_EQ(len, 9);
        EXPECT_EQ(textOf(Sdf_Get_Units, ch, "t"), "") << "no units give an empty string, not null";
        EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
    }
}

TEST_F(SdfValues, BadRequestsGiveTheirCodesAndLeaveTheFileAsItWas) {
    const std::string p = path("bad.sdf");
    int ch = createFile(p);
    const double x = 1.5;
    ASSERT_EQ(Sdf_Write_Var(ch, "x", SDF_DBLE_T, &x, "m", "x"), 0);
    ASSERT_EQ(Sdf_Write_Char(ch, "s", "abc", nullptr), 0);
    ASSERT_TRUE(makeArray(ch, "a", SDF_DBLE_T, {2, 6}));
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
    ch = openFile(p, "WRITE");
    const std::vector<std::string> names = {"x", "s", "a"};
    std::vector<sdf_varrec> before;
    for (const auto& n : names) before.push_back(record(ch, n));

    double v = 0;
    char* text = nullptr;
    int32_t dims[8] = {};
    const int32_t reshape[8] = {2, 6, 3};
    const int i4 = 7;
    struct Case {
        const char* what;
        std::function<int()> call;
        int code;
    };
    const std::vector<Case> cases = {
        {"missing name", [&] { return Sdf_Get_Val(ch, "nope", &v); }, 3010},
        {"invalid name", [&] { return Sdf_Get_Val(ch, "1x", &v); }, 3005},
        {"name ending in $", [&] { return Sdf_Put_Val(ch, "x$", &v); }, 3005},
        {"number read of a string", [&] { return Sdf_Get_Val(ch, "s", &v); }, 3014},
        {"number write to a string", [&] { return Sdf_Put_Val(ch, "s", &v); }, 3014},
        {"string read of a number", [&] { return Sdf_Get_Cval(ch, "x", &text, nullptr); }, 3015},
        {"string write to a number", [&] { return Sdf_Put_Cval(ch, "x", "q"); }, 3015},
        {"scalar read of an array", [&] { return Sdf_Get_Val(ch, "a", &v); }, 3013},
        {"string write to an array", [&] { return Sdf_Put_Cval(ch, "a", "q"); }, 3013},
        {"dims of a scalar", [&] { return Sdf_Get_Dims(ch, "x", dims); }, 3012},
        {"reshape of a scalar", [&] { return Sdf_Put_Dims(ch, "x", reshape); }, 3012},
        {"reshape to another size", [&] { return Sdf_Put_Dims(ch, "a", reshape); }, 3021},
        {"character type", [&] { return Sdf_Write_Var(ch, "x", SDF_CHAR_T, &v, nullptr, nullptr); }, 3020},
        {"unknown type", [&] { return Sdf_Write_Var(ch, "x", 13, &i4, nullptr, nullptr); }, 3020},
        {"array type", [&] { return Sdf_Write_Var(ch, "x", 122, &v, nullptr, nullptr); }, 3020},
        {"invalid name on write", [&] { return Sdf_Write_Var(ch, "a b", SDF_INT_T, &i4, nullptr, nullptr); }, 3005},
        {"units of a missing name", [&] { return Sdf_Put_Units(ch, "nope", "m"); }, 3010},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ZU_errClear("*", 0);
        EXPECT_EQ(c.call(), 3000);
        EXPECT_TRUE(reported(c.code)) << "expected " << c.code << " in the error set";
        EXPECT_TRUE(reported(3000));
    }
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(Sdf_Get_Val(ch, "x", nullptr), 4001);
    EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);

    ch = openFile(p, "READ");
    for (size_t i = 0; i < names.size(); i++)
        EXPECT_TRUE(sdftest::sameRecord(record(ch, names[i]), before[i])) << names[i];
    int64_t kept[8] = {};
    ASSERT_EQ(Sdf_Get_Dims64(ch, "a", kept), 0);
    EXPECT_EQ(std::vector<int64_t>(kept, kept + 3), (std::vector<int64_t>{2, 2, 6}));
    EXPECT_FALSE(Sdf_Exists(ch, "nope"));
    EXPECT_EQ(Sdf_Put_Val(ch, "x", &x), 3002) << "read-only channel";
    EXPECT_EQ(Sdf_Get_Val(999, "x", &v), 3001);
    EXPECT_EQ(Sdf_Get_Dims64(-1, "a", nullptr), 4001);
    EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
}

TEST_F(SdfValues, ReshapeKeepsTheProductAndPersists) {
    const std::string p = path("dims.sdf");
    int ch = createFile(p);
    ASSERT_TRUE(makeArray(ch, "a", SDF_DBLE_T, {2, 6}));
    const double one = 1;
    ASSERT_EQ(Sdf_Write_Var(ch, "d", SDF_DBLE_T, &one, nullptr, nullptr), 0);
    int type = 0, array = 0;
    ASSERT_EQ(Sdf_Get_Type(ch, "a", &type, &array), 0);
    EXPECT_EQ(type, 22);
    EXPECT_EQ(array, 1);
    ASSERT_EQ(Sdf_Get_Type(ch, "d", &type, &array), 0);
    EXPECT_EQ(array, 0);

    struct Step {
        std::vector<int32_t> dims;
        int rc;
    };
    const std::vector<Step> steps = {
        {{2, 3, 4}, 0},          {{2, 3, 5}, 3021}, {{2, -1, -12}, 3021}, {{8, 1, 1, 1, 1, 1, 1, 12}, 3021},
        {{0}, 3021},             {{1, 12}, 0},      {{3, 2, 3, 2}, 0},     {{7, 1, 1, 2, 1, 3, 1, 2}, 0},
        {{3, 2, 2, 3}, 0},
    };
    std::vector<int32_t> expect = {2, 2, 6};
    for (const Step& s : steps) {
        int32_t in[8] = {};
        for (size_t i = 0; i < s.dims.size() && i < 8; i++) in[i] = s.dims[i];
        ZU_errClear("*", 0);
        const int rc = Sdf_Put_Dims(ch, "a", in);
        if (s.rc) {
            EXPECT_EQ(rc, 3000) << "rank " << s.dims[0];
            EXPECT_TRUE(reported(s.rc));
        } else {
            EXPECT_EQ(rc, 0) << "rank " << s.dims[0];
            expect = s.dims;
        }
        int32_t out[8] = {};
        ASSERT_EQ(Sdf_Get_Dims(ch, "a", out), 0);
        EXPECT_EQ(std::vector<int32_t>(out, out + out[0] + 1), expect);
        int32_t last = 0;
        ASSERT_EQ(Sdf_Last_Dim(ch, "a", &last), 0);
        EXPECT_EQ(last, expect.back());
    }
    // Put_Dims does not commit, even under Write "Always".
    ASSERT_EQ(Sdf_Set_Opts_Chan(ch, "Write=Always"), 0);
    const int32_t flat[8] = {1, 12};
    ASSERT_EQ(Sdf_Put_Dims(ch, "a", flat), 0);
    EXPECT_GT(sdf_chan_get(ch)->file->blks->modified, 0);
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);

    ch = openFile(p, "READ");
    int64_t out[8] = {};
    ASSERT_EQ(Sdf_Get_Dims64(ch, "a", out), 0);
    EXPECT_EQ(out[0], 1);
    EXPECT_EQ(out[1], 12);
    EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
}

TEST_F(SdfValues, ExtentsBeyond32BitsOnlyFitThe64BitForms) {
    int ch = createFile(path("big.sdf"));
    ASSERT_TRUE(makeArray(ch, "big", SDF_INT_T, {3000000000LL}));
    ASSERT_TRUE(makeArray(ch, "wide", SDF_INT_T, {3000000000LL, 1}));
    int32_t d32[8] = {};
    int32_t last32 = 0;
    EXPECT_EQ(Sdf_Get_Dims(ch, "big", d32), 3024);
    EXPECT_NE(sdftest::errorText(3024).find("\"big\""), std::string::npos) << sdftest::errorText(3024);
    EXPECT_EQ(Sdf_Last_Dim(ch, "big", &last32), 3024);
    EXPECT_EQ(Sdf_Get_Dims(ch, "wide", d32), 3024) << "any extent counts, not the last alone";
    EXPECT_EQ(Sdf_Last_Dim(ch, "wide", &last32), 0);
    EXPECT_EQ(last32, 1);
    int64_t d64[8] = {};
    ASSERT_EQ(Sdf_Get_Dims64(ch, "big", d64), 0);
    EXPECT_EQ(d64[0], 1);
    EXPECT_EQ(d64[1], 3000000000LL);
    int64_t last = 0;
    ASSERT_EQ(Sdf_Last_Dim64(ch, "big", &last), 0);
    EXPECT_EQ(last, 3000000000LL);
    const int64_t split[8] = {2, 1500000000LL, 2};
    ASSERT_EQ(Sdf_Put_Dims64(ch, "big", split), 0);
    ASSERT_EQ(Sdf_Get_Dims(ch, "big", d32), 0);
    EXPECT_EQ(d32[1], 1500000000);
    EXPECT_EQ(d32[2], 2);
    const int64_t overflow[8] = {3, INT64_MAX, 2, 2};  // product overflows
    EXPECT_EQ(Sdf_Put_Dims64(ch, "big", overflow), 3000);
    EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
}

TEST_F(SdfValues, OverwriteOptionsDecideAndWarn) {
    struct Case {
        const char* opts;
        int rc;
        bool replaced;
    };
    const std::vector<Case> cases = {
        {"Overwrite=No,Overwrite_Warn=No", 0, false},
        {"Overwrite=No,Overwrite_Warn=Yes", 2011, false},
        {"Overwrite=Yes,Overwrite_Warn=No", 0, true},
        {"Overwrite=Yes,Overwrite_Warn=Yes", 2010, true},
    };
    int ch = createFile(path("ow.sdf"));
    int n = 0;
    for (const Case& c : cases) {
        SCOPED_TRACE(c.opts);
        std::string name = "v";  // appended, not "v" + ...: g++ 12 at -O3 misreads that as an overlapping copy
        name += std::to_string(n++);
        const int old = 1, now = 2;
        ASSERT_EQ(Sdf_Write_Var(ch, name.c_str(), SDF_INT_T, &old, "kg", nullptr), 0);
        ASSERT_EQ(Sdf_Write_Char(ch, (name + "c").c_str(), "old", nullptr), 0);
        ASSERT_EQ(Sdf_Set_Opts_Chan(ch, c.opts), 0);
        ZU_errClear("*", 0);
        EXPECT_EQ(Sdf_Write_Var(ch, name.c_str(), SDF_INT_T, &now, nullptr, nullptr), c.rc);
        EXPECT_EQ(Sdf_Write_Char(ch, (name + "c").c_str(), "new", nullptr), c.rc);
        if (c.rc) {
            EXPECT_TRUE(reported(c.rc));
        }
        int got = 0;
        ASSERT_EQ(Sdf_Get_Val(ch, name.c_str(), &got), 0);
        EXPECT_EQ(got, c.replaced ? now : old);
        EXPECT_EQ(textOf(Sdf_Get_Units, ch, name), c.replaced ? "" : "kg");
        EXPECT_EQ(cvalOf(ch, name + "c"), c.replaced ? "new" : "old");
        ASSERT_EQ(Sdf_Set_Opts_Chan(ch, "Overwrite=Yes,Overwrite_Warn=No"), 0);
    }
    // A replaced array becomes a scalar and gives its dimension slot back.
    ASSERT_TRUE(makeArray(ch, "arr", SDF_INT_T, {4}));
    const int five = 5;
    ASSERT_EQ(Sdf_Write_Var(ch, "arr", SDF_INT_T, &five, nullptr, nullptr), 0);
    int type = 0, array = 1;
    ASSERT_EQ(Sdf_Get_Type(ch, "arr", &type, &array), 0);
    EXPECT_EQ(array, 0);
    EXPECT_EQ(sdf_chan_get(ch)->file->hdr->chain[SDF_CH_ARRDIM - 1].chunks, 0);
    EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
}

TEST_F(SdfValues, CharacterValuesUnitsAndDescriptions) {
    const std::string p = path("chr.sdf");
    int ch = createFile(p);
    ASSERT_EQ(Sdf_Write_Char(ch, "s", "a rather longer value", "first"), 0);
    ASSERT_EQ(Sdf_Put_Cval(ch, "s", ""), 0);
    int len = -1, elen = -1;
    EXPECT_EQ(cvalOf(ch, "s", &len), "") << "an empty string, not null";
    EXPECT_EQ(len, 0);
    ASSERT_EQ(Sdf_Get_Elen(ch, "s", &elen), 0);
    EXPECT_EQ(elen, 0);
    EXPECT_EQ(record(ch, "s").value.i[2], 0) << "an empty string keeps no slot";
    ASSERT_EQ(Sdf_Put_Cval(ch, "s", "xyz"), 0);
    ASSERT_EQ(Sdf_Put_Cval(ch, "e", nullptr), 3000);
    ASSERT_EQ(Sdf_Write_Char(ch, "e", nullptr, nullptr), 0);

    // The same units keep the record's time; other units or none stamp it.
    ASSERT_EQ(Sdf_Put_Units(ch, "s", "N"), 0);
    sdf_varrec* r = sdftest::recordPtr(ch, "s");
    ASSERT_NE(r, nullptr);
    r->modified = SDF_MIN_STAMP;
    ASSERT_EQ(Sdf_Put_Units(ch, "s", "N"), 0);
    EXPECT_EQ(r->modified, SDF_MIN_STAMP);
    ASSERT_EQ(Sdf_Put_Units(ch, "s", "kN"), 0);
    EXPECT_GT(r->modified, SDF_MIN_STAMP);
    r->modified = SDF_MIN_STAMP;
    ASSERT_EQ(Sdf_Put_Desc(ch, "s", nullptr), 0);
    EXPECT_GT(r->modified, SDF_MIN_STAMP);
    r->modified = SDF_MIN_STAMP;
    ASSERT_EQ(Sdf_Put_Desc(ch, "s", ""), 0);
    EXPECT_EQ(r->modified, SDF_MIN_STAMP) << "clearing what is already empty changes nothing";
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);

    ch = openFile(p, "READ");
    EXPECT_EQ(cvalOf(ch, "s", &len), "xyz");
    EXPECT_EQ(len, 3);
    EXPECT_EQ(textOf(Sdf_Get_Units, ch, "s"), "kN");
    EXPECT_EQ(textOf(Sdf_Get_Desc, ch, "s"), "");
    EXPECT_EQ(cvalOf(ch, "e"), "");
    EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
}

TEST_F(SdfValues, WriteAlwaysCommitsEachChange) {
    int ch = createFile(path("always.sdf"));
    const int one = 1;
    ASSERT_EQ(Sdf_Write_Var(ch, "a", SDF_INT_T, &one, nullptr, nullptr), 0);
    Blks* b = sdf_chan_get(ch)->file->blks;
    EXPECT_GT(b->modified, 0) << "on command: nothing written yet";
    ASSERT_EQ(Sdf_Set_Opts_Chan(ch, "Write=Always"), 0);
    const std::vector<std::function<int()>> changes = {
        [&] { return Sdf_Write_Var(ch, "b", SDF_INT_T, &one, "m", nullptr); },
        [&] { return Sdf_Put_Val(ch, "a", &one); },
        [&] { return Sdf_Write_Char(ch, "c", "x", nullptr); },
        [&] { return Sdf_Put_Cval(ch, "c", "yy"); },
        [&] { return Sdf_Put_Units(ch, "a", "s"); },
        [&] { return Sdf_Put_Desc(ch, "a", "d"); },
        [&] { return Sdf_Delete(ch, "b"); },
    };
    for (size_t i = 0; i < changes.size(); i++) {
        sdf_mark(sdf_chan_get(ch)->file, 1);
        ASSERT_EQ(changes[i](), 0) << i;
        EXPECT_EQ(sdf_chan_get(ch)->file->blks->modified, 0) << "change " << i << " was committed";
    }
    EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
}

TEST_F(SdfValues, CaseInsensitiveFilesAndThePrefix) {
    int ch = createFile(path("ci.sdf"), "Case_Sensitive=No");
    const double v = 3.25;
    ASSERT_EQ(Sdf_Write_Var(ch, "Speed", SDF_DBLE_T, &v, nullptr, nullptr), 0);
    double got = 0;
    ASSERT_EQ(Sdf_Get_Val(ch, "SPEED", &got), 0);
    EXPECT_EQ(got, v);
    ASSERT_EQ(Sdf_Write_Var(ch, "speed", SDF_DBLE_T, &got, nullptr, nullptr), 0);
    char** list = nullptr;
    int count = 0;
    ASSERT_EQ(Sdf_List(ch, "*", &list, &count), 0);
    EXPECT_EQ(sdftest::takeList(list, count), std::vector<std::string>{"Speed"}) << "first spelling stays";

    ASSERT_EQ(Sdf_Set_Opts_Chan(ch, "Prefix=run:"), 0);
    ASSERT_EQ(Sdf_Write_Var(ch, "x", SDF_DBLE_T, &v, nullptr, nullptr), 0);
    EXPECT_EQ(record(ch, "run:x").type, SDF_DBLE_T);
    ASSERT_EQ(Sdf_Get_Val(ch, "run:x", &got), 0) << "a prefixed name is not prefixed again";
    ASSERT_EQ(Sdf_Get_Val(ch, "RUN:x", &got), 0) << "the prefix follows the case rule";
    ZU_errClear("*", 0);
    EXPECT_EQ(Sdf_Get_Val(ch, "Speed", &got), 3000) << "run:Speed doesn't exist";
    EXPECT_NE(sdftest::errorText(3010).find("run:Speed"), std::string::npos);
    EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
}

TEST_F(SdfValues, AddressesOnInternalFilesOnly) {
    int in = -1;
    ASSERT_EQ(Sdf_Open(&in, "mem_values", "INTERNAL", "NEW", "WRITE"), 0);
    const int i4 = 42;
    ASSERT_EQ(Sdf_Write_Var(in, "n", SDF_INT_T, &i4, nullptr, nullptr), 0);
    ASSERT_EQ(Sdf_Write_Char(in, "s", "hello", nullptr), 0);
    ASSERT_EQ(Sdf_Write_Char(in, "empty", "", nullptr), 0);
    void* at = nullptr;
    ASSERT_EQ(Sdf_Where_Chan(in, "n", &at), 0);
    ASSERT_NE(at, nullptr);
    EXPECT_EQ(*static_cast<int*>(at), 42);
    ASSERT_EQ(Sdf_Where_Chan(in, "s", &at), 0);
    EXPECT_STREQ(static_cast<char*>(at), "hello");
    EXPECT_EQ(Sdf_Where_Chan(in, "empty", &at), 3000);
    EXPECT_TRUE(reported(3025));
    ASSERT_EQ(Sdf_Set_Opts_Chan(in, "Where_Mem_Error=No"), 0);
    EXPECT_EQ(Sdf_Where_Chan(in, "empty", &at), 0);
    EXPECT_EQ(at, nullptr);

    ASSERT_EQ(Sdf_Set_Opts(("Default_Internal_Channel=" + std::to_string(in)).c_str()), 0);
    at = nullptr;
    EXPECT_EQ(Sdf_Where("n", &at), 0);
    EXPECT_EQ(at != nullptr && *static_cast<int*>(at) == 42, true);
    ASSERT_EQ(Sdf_Set_Opts("Default_Internal_Channel=0"), 0);

    int ch = createFile(path("file.sdf"));
    ASSERT_EQ(Sdf_Write_Var(ch, "n", SDF_INT_T, &i4, nullptr, nullptr), 0);
    EXPECT_EQ(Sdf_Where_Chan(ch, "n", &at), 3004);
    EXPECT_EQ(at, nullptr);
    EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
    EXPECT_EQ(Sdf_Close(in, "KEEP"), 0);
}

}  // namespace

// A replacement that fails part way (here the old units and description
// can't be read back) must leave the variable as it was: not the new type
// and value with the old units, as a close would then commit.
TEST_F(SdfValues, FailedReplacementLeavesTheVariableAsItWas) {
    const std::string p = path("replace.sdf");
    int ch = createFile(p);
    const double x = 1.5;
    ASSERT_EQ(Sdf_Write_Var(ch, "x", SDF_DBLE_T, &x, "m", "length"), 0);
    ASSERT_EQ(Sdf_Write_Char(ch, "s", "abc", "label"), 0);
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
    const int seven = 7;
    struct Case {
        const char* name;
        std::function<int(int)> replace;
    };
    const Case cases[] = {
        {"x", [&](int c) { return Sdf_Write_Var(c, "x", SDF_INT_T, &seven, "kg", "mass"); }},
        {"s", [&](int c) { return Sdf_Write_Char(c, "s", "longer text", "other"); }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ch = openFile(p, "WRITE");  // the texts' block is read again on demand
        const sdf_varrec before = record(ch, c.name);
        sdf_io.pread = [](int, void*, size_t, off_t) -> ssize_t { return errno = EIO, -1; };
        EXPECT_EQ(c.replace(ch), 3000);
        sdf_io.pread = sdf_io_default.pread;
        EXPECT_TRUE(sdftest::sameRecord(record(ch, c.name), before));
        ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
        ch = openFile(p, "READ");
        EXPECT_TRUE(sdftest::sameRecord(record(ch, c.name), before)) << "after a reopen";
        EXPECT_EQ(textOf(Sdf_Get_Desc, ch, c.name), c.name == std::string("x") ? "length" : "label");
        ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
    }
    // Without the fault the same replacement goes through whole.
    ch = openFile(p, "WRITE");
    ASSERT_EQ(cases[0].replace(ch), 0);
    int type = 0, is_array = 0;
    ASSERT_EQ(Sdf_Get_Type(ch, "x", &type, &is_array), 0);
    EXPECT_EQ(type, SDF_INT_T);
    EXPECT_EQ(textOf(Sdf_Get_Units, ch, "x"), "kg");
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
}
