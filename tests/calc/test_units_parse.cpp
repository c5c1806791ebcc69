// Parsing unit expressions: dimension texts and scales, the tokeniser's
// rules, errors with their messages, display texts, and the built-in table.
#include "units_test_support.h"
#include "zu_units_inner.h"

#include <cmath>
#include <cstring>
#include <set>
#include <string>

namespace {

class UnitParse : public UnitsTest {};

struct DimsCase {
    const char *unit;
    const char *dims;
    double scale;
};

TEST_F(UnitParse, ResolvesToBaseDimensionsAndScale)
{
    const DimsCase cases[] = {
        {"kg.m/s^2", "m.kg.s-2", 1},
        {"N m", "m2.kg.s-2", 1},
        {"N.m", "m2.kg.s-2", 1},
        {"N*m", "m2.kg.s-2", 1},
        {"  N  m", "m2.kg.s-2", 1},
        {"m2", "m2", 1},
        {"m2 .s", "m2.s", 1},
        {"m2/s", "m2.s-1", 1},
        {"kg-1", "kg-1", 1},
        {"H2O", "m-2.kg.s-2", 9806.65},
        {"2**3", "", 8},
        {"1/2", "", 0},
        {"1/2.0", "", 0.5},
        {"-m", "m", -1},
        {"-m^2", "m2", 1},
        {"", "", 1},
        {"min", "s", 60},
        {"mmin", "s", 0.06},
        {"km", "m", 1000},
        {"kilometre", "m", 1000},
        {"RPM", "s-1.rad", 2 * M_PI / 60},
        {"rpm", "s-1.rad", 2 * M_PI / 60},
        {"percent", "", 0.01},
        {"exp(0)", "", 1},
        {"LOG(100)/Log(10)", "", 2},
        {"B(A)", "B(A)", 1},
        {"$/kg", "kg-1.$", 1},
        {"degree", "rad", M_PI / 180},
        {"gal_US", "m3", 231 * std::pow(0.0254, 3)},
        {"m^0.5", "m0.5", 1},
        {"(m^(1/3))^3", "", 1},         // 1/3 is integer division
        {"(m^(1/3.0))^3", "m0.999", 1}, // exponents print and read back
        {"m^0.0005", "", 1},
        {"1e3~m", "m", 1000},
        {"(kg)(m)", "m.kg", 1},
    };
    for (const DimsCase &c : cases) {
        double scale = 0, offset = -1;
        EXPECT_EQ(dimsOf(c.unit, &scale, &offset), c.dims) << c.unit;
        EXPECT_NEAR(scale, c.scale, 1e-12 * std::fabs(c.scale) + 1e-15) << c.unit;
        EXPECT_EQ(offset, 0) << c.unit;
    }
}

TEST_F(UnitParse, OffsetUnitsCarryTheirOffset)
{
    double scale = 0, offset = 0;
    EXPECT_EQ(dimsOf("degC", &scale, &offset), "K");
    EXPECT_DOUBLE_EQ(scale, 1);
    EXPECT_DOUBLE_EQ(offset, 273.15);
    EXPECT_EQ(dimsOf("degF", &scale, &offset), "K");
    EXPECT_DOUBLE_EQ(scale, 1 / 1.8);
    EXPECT_DOUBLE_EQ(offset, 459.67 / 1.8);
    // Arithmetic makes a difference unit: the offset goes.
    EXPECT_EQ(dimsOf("degC/s", &scale, &offset), "s-1.K");
    EXPECT_EQ(offset, 0);
}

TEST_F(UnitParse, FailsWithCodeAndMessage)
{
    const ErrorCase cases[] = {
        {"gal", 1, "Unit \"gal\" not defined. Use suffix _UK or _US for British volume units."},
        {"ton", 1, "Unit \"ton\" not defined. Use suffix _UK or _US for British mass units."},
        {"fl_oz", 1, "Unit \"fl_oz\" not defined. Use suffix _UK or _US for British volume units."},
        {"foo", 1, "Unit \"foo\" not defined."},
        {"xmin", 1, "Unit \"xmin\" not defined."},
        {"dekametre", 1, "Unit \"dekametre\" not defined."},
        {"m^s", 5, "Illegal argument dimensions for \"^\" in \"m^s\""},
        {"m+s", 5, "Illegal argument dimensions for \"+\" in \"m+s\""},
        {"log(m)", 5, "Illegal argument dimensions for \"log\" in \"log(m)\""},
        {"1/0", 4, "Argument out of range for \"/\" in \"1/0\""},
        {"log(0)", 4, "Argument out of range for \"log\" in \"log(0)\""},
        {"(-8)^0.5", 4, "Argument out of range for \"^\" in \"(-8)^0.5\""},
        {"0^-1", 4, "Argument out of range for \"^\" in \"0^-1\""},
        {"m*", 3, "Wrong number of arguments for \"*\" in \"m*\""},
        {"/s", 3, "Wrong number of arguments for \"/\" in \"/s\""},
        {"foo (m)", 6, "Unknown function \"foo\" in \"foo(m)\""},
    };
    for (const ErrorCase &c : cases) {
        ZU_errClear("*", 0);
        double scale = 0, offset = 0;
        EXPECT_EQ(ZU_unitParse(c.unit, nullptr, &scale, &offset), c.code) << c.unit;
        EXPECT_EQ(lastUnitMessage(), c.message) << c.unit;
        EXPECT_EQ(scale, 1) << c.unit;
    }
}

TEST_F(UnitParse, PathologicalNestingIsRefusedNotFatal)
{
    std::string deep = std::string(5000, '(') + "m" + std::string(5000, ')');
    EXPECT_EQ(ZU_unitParse(deep.c_str(), nullptr, nullptr, nullptr), ZU_UNIT_TOO_DEEP);
    std::string chain = "m";
    for (int i = 0; i < 5000; ++i)
        chain += "*m";
    EXPECT_EQ(ZU_unitParse(chain.c_str(), nullptr, nullptr, nullptr), ZU_UNIT_TOO_DEEP);
}

TEST_F(UnitParse, PrettyFormUsesTheMarkup)
{
    const std::pair<const char *, const char *> cases[] = {
        {"kg.m/s^2", "kg\\greek{.}m/s\\sup{2}"},
        {"m2", "m\\sup{2}"},
        {"degC", "\\greek{'}C"},
        {"um", "\\greek{m}m"},
        {"kohm", "k\\greek{W}"},
        {"N m", "N\\greek{.}m"},
        {"exp(1)*(cal_IT)", "exp(1)\\greek{.}(cal\\sub{IT})"},
    };
    for (const auto &[unit, pretty] : cases) {
        char out[128];
        EXPECT_EQ(ZU_unitPretty(unit, out, sizeof out), 0) << unit;
        EXPECT_STREQ(out, pretty) << unit;
    }
    char out[8];
    EXPECT_EQ(ZU_unitPretty("gal", out, sizeof out), ZU_UNIT_UNDEFINED);
    EXPECT_STREQ(out, "");
}

TEST_F(UnitParse, BuiltinTablesAreCompleteSortedAndResolve)
{
    const ZU_UnitDef *table = nullptr;
    int count = 0;
    ZU_unitsTable(&table, &count);
    ASSERT_EQ(count, 457);
    for (int i = 1; i < count; ++i)
        EXPECT_LT(strcmp(table[i - 1].name, table[i].name), 0) << table[i].name;
    // The prefix and derived tables are searched by halving as they stand.
    ASSERT_EQ(zu_units::kPrefixCount, 58);
    for (int i = 1; i < zu_units::kPrefixCount; ++i)
        EXPECT_LT(strcmp(zu_units::kPrefixes[i - 1].name, zu_units::kPrefixes[i].name), 0);
    ASSERT_EQ(zu_units::kDerivedCount, 75);
    for (int i = 1; i < zu_units::kDerivedCount; ++i)
        EXPECT_LT(strcmp(zu_units::kDerived[i - 1].name, zu_units::kDerived[i].name), 0);
    const char *const *bases = nullptr;
    int baseCount = 0;
    ZU_unitBases(&bases, &baseCount);
    ASSERT_EQ(baseCount, 18);
    EXPECT_STREQ(bases[17], "cycle");
    // Every row resolves, unless it leads to one of the rejected British
    // names, which must then say so.
    int rejected = 0;
    for (int i = 0; i < count; ++i) {
        ZU_errClear("*", 0);
        int rc = ZU_unitParse(table[i].name, nullptr, nullptr, nullptr);
        if (rc == ZU_UNIT_UNDEFINED && lastUnitMessage().find("Use suffix _UK or _US") != std::string::npos)
            ++rejected;
        else
            EXPECT_EQ(rc, 0) << table[i].name << ": " << lastUnitMessage();
    }
    EXPECT_GE(rejected, 4);
}

} // namespace
