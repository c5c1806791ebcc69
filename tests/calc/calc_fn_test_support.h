// Helpers of the calculator function tests: the calculator fixture's
// internal channel, messages kept on the error set, and the result _$1 read
// back whole: complex parts, integers without a detour through double, texts
// and units.
#pragma once

#include <complex>
#include <cstring>

#include "calc_test_support.h"
#include "zutil.h"

namespace calcfn {

struct Result {
    int type = 0;
    bool isArray = false;
    std::vector<std::complex<double>> values; // every number type
    std::vector<int64_t> ints;                // integer types, exactly
    std::vector<std::string> texts;
    std::string units;
};

class CalcFnTest : public calctest::CalcTest {
protected:
    void SetUp() override
    {
        calctest::CalcTest::SetUp();
        ASSERT_EQ(Sdf_Set_Opts("Error_Out=ErrSet"), 0);
    }

    int run(const std::string &expr)
    {
        ZU_errClear("*", 0);
        return calc(expr);
    }

    // Runs expr, expects success, and reads _$1.
    Result eval(const std::string &expr)
    {
        int rc = run(expr);
        EXPECT_EQ(rc, 0) << expr << ": " << lastMessage();
        return rc < 3000 ? read("_$1") : Result();
    }

    Result read(const char *name)
    {
        Result r;
        r.type = type(name) % 100;
        r.isArray = type(name) >= 100;
        r.units = units(name);
        if (r.type == SDF_CHAR_T) {
            if (!r.isArray) return r.texts.push_back(text(name)), r;
            char **strings = nullptr;
            int64_t start[8] = {0}, got = 0;
            EXPECT_LT(Sdf_Read_Carray64(ch, name, &strings, start, 0, &got), 3000);
            for (int64_t i = 0; i < got; ++i) r.texts.emplace_back(strings[i]);
            Sdf_Free(strings);
            return r;
        }
        const size_t size = r.type == SDF_DCMPX_T ? 16 : r.type == SDF_INT64_T || r.type == SDF_DBLE_T || r.type == SDF_CMPX_T ? 8 : 4;
        std::vector<unsigned char> raw(16);
        int64_t n = 1;
        if (r.isArray) {
            std::vector<int64_t> d = dims(name);
            n = Sdf_Num_Elem64(d.data());
            void *data = nullptr;
            int64_t start[8] = {0}, got = 0;
            EXPECT_EQ(Sdf_Read_Array64(ch, name, &data, start, n, &got), 0);
            raw.assign(static_cast<unsigned char *>(data), static_cast<unsigned char *>(data) + n * size);
            Sdf_Free(data);
        } else {
            EXPECT_EQ(Sdf_Get_Val(ch, name, raw.data()), 0);
        }
        for (int64_t i = 0; i < n; ++i) decode(r, raw.data() + i * size);
        return r;
    }

    // The last message on the error set, "" for none.
    static std::string lastMessage()
    {
        std::string text;
        int index = 1;
        while (ZU_ErrRec *rec = ZU_errNext("*", &index)) text = rec->message;
        return text;
    }

private:
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
};

} // namespace calcfn
