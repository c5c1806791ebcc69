// Helpers of the calculator function tests: an SDF file of the test's own
// in the temporary folder with the built-in options around every case, a
// run of one expression, and the result variable _$1 read back through the
// public interface.
#pragma once

#include <gtest/gtest.h>

#include <complex>
#include <cstring>
#include <string>
#include <vector>

#include "sdf.h"
#include "zutil.h"

namespace calcfn {

// The value an expression left in _$1, as the public interface reads it.
struct Result {
    int type = 0;
    bool isArray = false;
    std::vector<std::complex<double>> values; // every number type
    std::vector<int64_t> ints;                // integer types, exactly
    std::vector<std::string> texts;           // character values
    std::string units;
};

class CalcFnTest : public testing::Test {
protected:
    int ch_ = 0;
    int depth_ = 0;

    void SetUp() override
    {
        depth_ = Sdf_Opt_Depth();
        ASSERT_EQ(Sdf_Push(-1), 0);
        ASSERT_EQ(Sdf_Set_Opts("Error_Out=ErrSet"), 0); // messages on the error set only
        std::string path = testing::TempDir() + "calcfn_" +
                           testing::UnitTest::GetInstance()->current_test_info()->name() + ".sdf";
        ASSERT_LT(Sdf_Open(&ch_, path.c_str(), "BINARY", "FRESH", "WRITE"), 3000);
        ZU_errClear("*", 0);
    }
    void TearDown() override
    {
        Sdf_Close(ch_, "DELETE");
        while (Sdf_Opt_Depth() > depth_) Sdf_Pop();
        ZU_errClear("*", 0);
    }

    int run(const std::string &expr) { return Sdf_Calc_Chan(ch_, expr.c_str()); }

    // Runs expr, expects success, and reads _$1.
    Result eval(const std::string &expr)
    {
        Result r;
        int rc = run(expr);
        EXPECT_EQ(rc, 0) << expr << ": " << lastMessage();
        return rc < 3000 ? read("_$1") : r;
    }

    Result read(const char *name)
    {
        Result r;
        int isArr = 0;
        EXPECT_EQ(Sdf_Get_Type(ch_, name, &r.type, &isArr), 0) << name;
        r.isArray = isArr != 0;
        char *units = nullptr;
        if (Sdf_Get_Units(ch_, name, &units) == 0 && units) r.units = units;
        Sdf_Free(units);
        if (r.type == SDF_CHAR_T) {
            readTexts(name, r);
            return r;
        }
        int64_t n = 1;
        std::vector<unsigned char> raw(16);
        if (r.isArray) {
            int64_t dims[8] = {0};
            EXPECT_EQ(Sdf_Get_Dims64(ch_, name, dims), 0);
            for (int k = 1; k <= dims[0]; ++k) n *= dims[k];
            void *data = nullptr;
            int64_t start[8] = {0}, got = 0;
            EXPECT_EQ(Sdf_Read_Array64(ch_, name, &data, start, n, &got), 0);
            raw.assign(static_cast<unsigned char *>(data), static_cast<unsigned char *>(data) + n * size(r.type));
            Sdf_Free(data);
        } else {
            EXPECT_EQ(Sdf_Get_Val(ch_, name, raw.data()), 0);
        }
        for (int64_t i = 0; i < n; ++i) decode(r, raw.data() + i * size(r.type));
        return r;
    }

    // The text of the last message on the error set, "" for none.
    static std::string lastMessage()
    {
        std::string text;
        int index = 1;
        while (ZU_ErrRec *rec = ZU_errNext("*", &index)) text = rec->message;
        return text;
    }

private:
    static int size(int type)
    {
        switch (type) {
        case SDF_INT64_T: case SDF_DBLE_T: case SDF_CMPX_T: return 8;
        case SDF_DCMPX_T: return 16;
        default: return 4;
        }
    }
    template <class T> static T load(const unsigned char *p)
    {
        T v;
        memcpy(&v, p, sizeof v);
        return v;
    }
    static void decode(Result &r, const unsigned char *p)
    {
        switch (r.type) {
        case SDF_INT_T: case SDF_LOG_T: r.ints.push_back(load<int32_t>(p)); break;
        case SDF_INT64_T: r.ints.push_back(load<int64_t>(p)); break;
        case SDF_REAL_T: r.values.emplace_back(load<float>(p), 0); return;
        case SDF_DBLE_T: r.values.emplace_back(load<double>(p), 0); return;
        case SDF_CMPX_T: r.values.emplace_back(load<float>(p), load<float>(p + 4)); return;
        case SDF_DCMPX_T: r.values.emplace_back(load<double>(p), load<double>(p + 8)); return;
        default: ADD_FAILURE() << "type " << r.type; return;
        }
        r.values.emplace_back(static_cast<double>(r.ints.back()), 0);
    }
    void readTexts(const char *name, Result &r)
    {
        if (!r.isArray) {
            char *text = nullptr;
            EXPECT_EQ(Sdf_Get_Cval(ch_, name, &text, nullptr), 0);
            r.texts.emplace_back(text ? text : "");
            Sdf_Free(text);
            return;
        }
        char **strings = nullptr;
        int64_t start[8] = {0}, got = 0;
        EXPECT_LT(Sdf_Read_Carray64(ch_, name, &strings, start, 0, &got), 3000);
        for (int64_t i = 0; i < got; ++i) r.texts.emplace_back(strings[i]);
        Sdf_Free(strings);
    }
};

} // namespace calcfn
