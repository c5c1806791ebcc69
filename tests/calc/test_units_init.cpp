// The SDF library's start-up registers the unit system, so its ZU_init loads
// the unit tables although nothing else in this program refers to them
// before the check.
#include "sdf.h"
#include "zcalc.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

TEST(UnitsStartUp, SdfStartLoadsUnitsFiles)
{
    std::string path = testing::TempDir() + "units_startup";
    FILE *f = fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    fputs("zz = (7*m);", f);
    fclose(f);
    setenv("ZU_UNITS_FILE", path.c_str(), 1);
    Sdf_Set_Opts("Error_Out=None");
    unsetenv("ZU_UNITS_FILE"); // a load from here on would not see the file
    double scale = 0;
    EXPECT_EQ(ZU_unitParse("zz", nullptr, &scale, nullptr), 0);
    EXPECT_EQ(scale, 7);
}
