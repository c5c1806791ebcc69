// Conversions between units: scales and offsets, values, and how failures
// reach the single error slot or the error set.
#include "units_test_support.h"

#include <cmath>

namespace {

class UnitConvert : public UnitsTest {};

struct ConvertCase {
    const char *from, *to;
    double scale, offset;
};

TEST_F(UnitConvert, GivesScaleAndOffset)
{
    const ConvertCase cases[] = {
        {"km", "m", 1000, 0},
        {"degC", "K", 1, 273.15},
        {"degC", "degF", 1.8, 32},
        {"degF", "degC", 1 / 1.8, -32 / 1.8},
        {"K", "degC", 1, -273.15},
        {"min", "s", 60, 0},
        {"N m", "J", 1, 0},
        {"kg.m/s^2", "N", 1, 0},
        {"mi/h", "m/s", 0.44704, 0},
        {"psi", "kPa", 6.894757293168361, 0},
        {"ft", "in", 12, 0},
        {"lbf", "N", 4.4482216152605, 0},
        {"%", "", 0.01, 0},
    };
    for (const ConvertCase &c : cases) {
        double scale = 0, offset = 0;
        ASSERT_EQ(ZU_cvtUnit(c.from, c.to, &scale, &offset), 0) << c.from << " -> " << c.to;
        EXPECT_NEAR(scale, c.scale, 1e-12 * std::fabs(c.scale)) << c.from << " -> " << c.to;
        EXPECT_NEAR(offset, c.offset, 1e-9) << c.from << " -> " << c.to;
    }
}

TEST_F(UnitConvert, IncompatibleUnitsGo1039ToTheSlot)
{
    double scale = 0, offset = 9;
    EXPECT_EQ(ZU_cvtUnit("m", "s", &scale, &offset), ZU_SLOT_CONVERSION);
    EXPECT_EQ(scale, 1);
    EXPECT_EQ(offset, 0);
    char text[256];
    int extra = 0;
    EXPECT_EQ(ZU_getError(text, sizeof text, &extra), 1039);
    EXPECT_STREQ(text, "Invalid conversion from \"m\" to \"s\" units");
    EXPECT_EQ(extra, 3);
    int now[5], total[5];
    ZU_errCounts("cvtUnit", 0, now, total);
    EXPECT_EQ(now[0], 0) << "the stack of cvtUnit is cleared";
}

TEST_F(UnitConvert, UndefinedUnitsGo1037WithTheParseMessage)
{
    const std::pair<const char *, const char *> cases[] = {
        {"gal", "Unit \"gal\" not defined. Use suffix _UK or _US for British volume units."},
        {"furlongs", "Unit \"furlongs\" not defined."},
    };
    for (const auto &[unit, message] : cases) {
        EXPECT_EQ(ZU_cvtUnit("m3", unit, nullptr, nullptr), ZU_SLOT_TEXT) << unit;
        char text[256];
        EXPECT_EQ(ZU_getError(text, sizeof text, nullptr), 1037);
        EXPECT_STREQ(text, message);
    }
    // Any other parse failure is an invalid conversion.
    EXPECT_EQ(ZU_cvtUnit("m^s", "m", nullptr, nullptr), ZU_SLOT_CONVERSION);
}

TEST_F(UnitConvert, ValueIsConvertedAndFailuresStayOnTheSet)
{
    double value = 100, scale = 0, offset = 0;
    EXPECT_EQ(ZU_cvtValue("degC", "degF", &value, &scale, &offset), 0);
    EXPECT_NEAR(value, 212, 1e-9);
    value = 5;
    EXPECT_EQ(ZU_cvtValue("m", "s", &value, &scale, &offset), ZU_UNIT_INCOMPATIBLE);
    EXPECT_EQ(value, 5);
    EXPECT_EQ(lastUnitMessage(), "Incompatible units: m = [m]; s = [s]");
    EXPECT_EQ(ZU_cvtValue("gal", "m3", &value, nullptr, nullptr), ZU_UNIT_UNDEFINED);
    EXPECT_EQ(ZU_errNumber(), 0) << "the slot is left alone";
}

} // namespace
