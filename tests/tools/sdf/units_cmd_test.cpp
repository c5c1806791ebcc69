// "sdf units" as a user runs it: the base-unit form of one expression, the
// conversion between two, and the unit system's message with exit code 1.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "tool_run.h"

namespace {

using sdftooltest::Outcome;

Outcome units(const std::string& args) { return sdftooltest::runTool("units " + args); }

TEST(SdfUnits, PrintsBaseFormAndConversions) {
    const std::pair<const char*, const char*> cases[] = {
        {"'kg.m/s^2'", "dimensions: m.kg.s-2\nscale:      1\noffset:     0\n"},
        {"km", "dimensions: m\nscale:      1000\noffset:     0\n"},
        {"degC degF", "dimensions: K\nscale:      1.8\noffset:     32\ndegF = degC * 1.8 + 32\n"},
    };
    for (const auto& [args, expected] : cases) {
        Outcome r = units(args);
        EXPECT_EQ(r.code, 0) << args;
        EXPECT_EQ(r.out, expected) << args;
    }
}

TEST(SdfUnits, FailsWithTheUnitSystemsMessage) {
    const std::pair<const char*, const char*> cases[] = {
        {"m s", "sdf: units: Incompatible units: m = [m]; s = [s]\n"},
        {"gal", "sdf: units: Unit \"gal\" not defined. Use suffix _UK or _US for British volume units.\n"},
        {"'m^s' m", "sdf: units: Illegal argument dimensions for \"^\" in \"m^s\"\n"},
    };
    for (const auto& [args, expected] : cases) {
        Outcome r = units(args);
        EXPECT_EQ(r.code, 1) << args;
        EXPECT_EQ(r.out, expected) << args;
    }
    EXPECT_EQ(units("").code, 2);
}

}  // namespace
