// Helpers shared by the unit system's tests: a fresh error state and the
// built-in tables around every case, and units files in a scratch folder.
#pragma once

#include "zcalc.h"
#include "zu_internal.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

// The last message routine cvtUnit left on the error set, "" for none.
inline std::string lastUnitMessage()
{
    int index = -1;
    ZU_ErrRec *rec = ZU_errNext("cvtUnit", &index);
    return rec ? rec->message : "";
}

// Parses and returns the dimension text, or "<code>" on failure.
inline std::string dimsOf(const char *unit, double *scale = nullptr, double *offset = nullptr)
{
    char dims[ZU_UNIT_DIMS_SIZE];
    int rc = ZU_unitParse(unit, dims, scale, offset);
    return rc ? std::string("<").append(std::to_string(rc)).append(">") : std::string(dims);
}

// A unit text, the code it fails with, and the message (null: not checked).
struct ErrorCase {
    const char *unit;
    int code;
    const char *message;
};

class UnitsTest : public testing::Test {
protected:
    static void reset()
    {
        unsetenv("ZU_UNITS_LOCAL");
        unsetenv("ZU_UNITS_FILE");
        zu_optReset();
        ZU_unitsFree();
        ZU_errClear("*", 0);
        ZU_getError(nullptr, 0, nullptr);
    }
    void SetUp() override { reset(); }
    void TearDown() override { reset(); }

    // Writes a units file of the test's own and returns its path.
    std::string unitsFile(const std::string &name, const std::string &text)
    {
        std::string path = testing::TempDir() + "units_" + name + "_" +
                           testing::UnitTest::GetInstance()->current_test_info()->name();
        FILE *f = fopen(path.c_str(), "wb");
        EXPECT_NE(f, nullptr);
        if (f) {
            fwrite(text.data(), 1, text.size(), f);
            fclose(f);
        }
        return path;
    }
};
