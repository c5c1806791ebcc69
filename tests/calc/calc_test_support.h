// Helpers of the calculator tests: a fresh internal channel per test, the
// library's options set back afterwards, and readers of the variables an
// expression left behind.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sdf.h"

namespace calctest {

class CalcTest : public ::testing::Test {
protected:
    int ch = 0;
    void SetUp() override
    {
        Sdf_Set_Opts("Error_Out=None");
        ASSERT_EQ(Sdf_Open(&ch, "", "INTERNAL", "UNKNOWN", "WRITE"), 0);
    }
    void TearDown() override
    {
        Sdf_Close(ch, "DELETE");
        Sdf_Set_Opts("Calc_Range_Check=Error,Calc_Range_Subst=1,Calc_BadVar_is_Char=No,"
                     "Calc_Default_1_Prefix=,Overwrite=Yes");
    }
    int calc(const std::string &e) { return Sdf_Calc_Chan(ch, e.c_str()); }
    bool has(const char *name) { return Sdf_Exists(ch, name) == 1; }
    int type(const char *name)
    {
        int t = 0, a = 0;
        Sdf_Get_Type(ch, name, &t, &a);
        return t + 100 * a;
    }
    // Every element as double (complex: real parts).
    std::vector<double> values(const char *name)
    {
        int t = 0, a = 0;
        std::vector<double> out;
        if (Sdf_Get_Type(ch, name, &t, &a) >= 3000) return out;
        unsigned char buf[16] = {0};
        void *data = buf;
        int64_t n = 1;
        if (a) {
            int64_t start[8] = {0}, nread = 0;
            data = nullptr;
            int64_t dims[8];
            Sdf_Get_Dims64(ch, name, dims);
            n = Sdf_Num_Elem64(dims);
            Sdf_Read_Array64(ch, name, &data, start, n, &nread);
        } else {
            Sdf_Get_Val(ch, name, buf);
        }
        for (int64_t i = 0; i < n; ++i) {
            const unsigned char *p = static_cast<const unsigned char *>(data);
            switch (t) {
            case SDF_INT_T:
            case SDF_LOG_T: out.push_back(reinterpret_cast<const int32_t *>(p)[i]); break;
            case SDF_INT64_T: out.push_back((double)reinterpret_cast<const int64_t *>(p)[i]); break;
            case SDF_REAL_T: out.push_back(reinterpret_cast<const float *>(p)[i]); break;
            case SDF_DBLE_T: out.push_back(reinterpret_cast<const double *>(p)[i]); break;
            case SDF_CMPX_T: out.push_back(reinterpret_cast<const float *>(p)[2 * i]); break;
            case SDF_DCMPX_T: out.push_back(reinterpret_cast<const double *>(p)[2 * i]); break;
            default: break;
            }
        }
        return out;
    }
    double value(const char *name)
    {
        std::vector<double> v = values(name);
        return v.empty() ? -1e300 : v[0];
    }
    std::string text(const char *name)
    {
        char *t = nullptr;
        if (Sdf_Get_Cval(ch, name, &t, nullptr) >= 3000) return "<none>";
        std::string s = t ? t : "";
        Sdf_Free(t);
        return s;
    }
    std::string units(const char *name)
    {
        char *t = nullptr;
        Sdf_Get_Units(ch, name, &t);
        std::string s = t ? t : "";
        Sdf_Free(t);
        return s;
    }
    std::vector<int64_t> dims(const char *name)
    {
        int64_t d[8] = {0};
        Sdf_Get_Dims64(ch, name, d);
        return std::vector<int64_t>(d, d + 1 + d[0]);
    }
};

} // namespace calctest
