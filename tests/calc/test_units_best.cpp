// Preferred names of dimension texts and the best prefixed form for a value.
#include "units_test_support.h"

#include <cmath>

namespace {

class UnitBest : public UnitsTest {};

struct BestCase {
    double value;
    const char *unit;
    const char *best;
    double scale;
};

TEST_F(UnitBest, PicksThePrefixThatKeepsTheMantissaBelow1000)
{
    const BestCase cases[] = {
        {0.002, "m", "mm", 1000},
        {1500, "m", "km", 1e-3},
        {20, "m", "m", 1},
        {2e6, "N.m", "MN.m", 1e-6},
        {0.5, "kg", "g", 1000},
        {5000, "kg", "Mg", 1e-3},
        {1e-4, "m2", "mm2", 1e6},
        {5000, "m2/J", "m2/mJ", 1e-3},
        {3e-7, "s", "ns", 1e9},
        {2e30, "m", "Ym", 1e-24},
        {7, "m/s", "m/s", 1},
    };
    for (const BestCase &c : cases) {
        char out[64];
        double scale = 0, offset = -1;
        ASSERT_EQ(ZU_unitBest(c.unit, out, sizeof out, c.value, &scale, &offset), 0) << c.unit;
        EXPECT_STREQ(out, c.best) << c.value << " " << c.unit;
        EXPECT_NEAR(scale, c.scale, 1e-9 * c.scale) << c.value << " " << c.unit;
        EXPECT_EQ(offset, 0);
    }
    char out[8];
    EXPECT_EQ(ZU_unitBest("gal", out, sizeof out, 1, nullptr, nullptr), ZU_UNIT_UNDEFINED);
}

TEST_F(UnitBest, NamesComeFromTheDerivedTable)
{
    const std::pair<const char *, const char *> cases[] = {
        {"m.kg.s-2", "N"},
        {"m2.kg.s-2.K-1", "J/K"},
        {"kg-1.s2", "m2/J"},
        {"m.s-1", "m.s-1"},
        {"", ""},
    };
    for (const auto &[dims, name] : cases) {
        char out[64];
        EXPECT_EQ(ZU_unitName(dims, out, sizeof out), 0);
        EXPECT_STREQ(out, name) << dims;
    }
}

} // namespace
