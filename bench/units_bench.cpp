// Speed of the unit system: parse-and-convert of a few thousand unit
// expressions (every table name, prefixed forms, compound expressions), each
// converted to its own base-unit form, beside the same work done by UDUNITS-2
// in the same run when that library is installed (a benchmark-only
// dependency: ZELTRA_BENCH_DEPS=1 scripts/setup.sh). Both sides run the same
// list: the expressions that both understand. Prints conversions per second
// and the ratio of the fastest of five alternating trials.
//
// usage: units_bench [rounds]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "zcalc.h"

#ifdef ZELTRA_BENCH_UDUNITS
#include <udunits2.h>
#endif

namespace {

using Clock = std::chrono::steady_clock;
using Pair = std::pair<std::string, std::string>; // expression, its base form

double seconds(Clock::time_point a, Clock::time_point b)
{
    return std::chrono::duration<double>(b - a).count();
}

const char *const kPrefixed[] = {
    "m", "g", "s", "A", "K", "mol", "cd", "Pa", "J", "W", "N", "V", "C", "F", "ohm", "S",
    "Wb", "T", "H", "Hz", "L", "eV", "metre", "gram", "second", "pascal", "joule", "watt",
    "newton", "volt", "ampere", "litre", "lm", "lx", "Bq", "Gy", "Sv", "bar", "cal", "erg",
    "dyn", "rad", "sr", "mole", "kelvin", "hertz", "coulomb", "farad", "tesla", "henry",
    "weber", "siemens", "ohm.m", "W/m2", "J/kg", "m/s", "N.m", "Pa.s"};

const char *const kCompound[] = {
    "kg.m/s^2", "km/h", "N.m", "W/(m2.K)", "kg.m2/s", "mi/h", "lbf.ft", "J/(kg.K)", "m3/s",
    "kPa.s", "g/cm3", "kW.h", "degC", "degF", "mm2/s", "N/mm2", "MJ/kg", "rad/s", "kg/m3",
    "ft.lbf", "Btu/h", "cal/g", "mol/L", "A/m2", "V/m", "m/s2", "kg m2", "uF", "MPa.m^0.5",
    "W/(m.K)", "kg/(m.s)", "N.s/m2", "lb/in3", "ft3/min", "J/mol", "kJ/(kg.K)", "m2/s",
    "GPa", "mW/cm2", "km/s", "cm^3/g", "(m/s)^2", "1/s", "Pa^-1", "kg.m/s", "psi", "inHg",
    "ohm.m", "S/m", "C/kg", "Gy/s", "lm/W", "kcal/h", "hp", "atm", "bar", "torr", "ft/s^2"};

std::vector<std::string> expressions()
{
    std::vector<std::string> out;
    const ZU_UnitDef *table = nullptr;
    int count = 0;
    ZU_unitsTable(&table, &count);
    for (int i = 0; i < count; ++i)
        out.emplace_back(table[i].name);
    static const char *const prefixes[] = {
        "Y", "yotta", "Z", "zetta", "E", "exa", "P", "peta", "T", "tera", "G", "giga", "M",
        "mega", "k", "kilo", "h", "hecto", "da", "deca", "d", "deci", "c", "centi", "m", "milli",
        "u", "micro", "n", "nano", "p", "pico", "f", "femto", "a", "atto", "z", "zepto", "y", "yocto"};
    for (const char *p : prefixes)
        for (const char *u : kPrefixed)
            out.push_back(std::string(p) + u);
    for (const char *c : kCompound)
        out.emplace_back(c);
    return out;
}

/* The pairs this library converts: each expression to its dimension text. */
std::vector<Pair> ourPairs()
{
    std::vector<Pair> out;
    for (const std::string &e : expressions()) {
        char dims[ZU_UNIT_DIMS_SIZE];
        if (ZU_unitParse(e.c_str(), dims, nullptr, nullptr) == 0 && dims[0] && !strchr(dims, '$') &&
            !strchr(dims, '('))
            out.emplace_back(e, dims);
    }
    ZU_errClear("*", 0);
    return out;
}

double runOurs(const std::vector<Pair> &pairs, int rounds, double &sink)
{
    auto t0 = Clock::now();
    for (int r = 0; r < rounds; ++r)
        for (const Pair &p : pairs) {
            double scale = 0, offset = 0;
            if (ZU_cvtUnit(p.first.c_str(), p.second.c_str(), &scale, &offset) != 0) {
                std::fprintf(stderr, "units_bench: %s -> %s failed\n", p.first.c_str(), p.second.c_str());
                std::exit(1);
            }
            sink += 1.5 * scale + offset;
        }
    return seconds(t0, Clock::now());
}

#ifdef ZELTRA_BENCH_UDUNITS
/* One parse-and-convert; false when UDUNITS-2 can't do this pair. */
bool theirs(ut_system *sys, const Pair &p, double &sink)
{
    ut_unit *from = ut_parse(sys, p.first.c_str(), UT_ASCII);
    ut_unit *to = from ? ut_parse(sys, p.second.c_str(), UT_ASCII) : nullptr;
    cv_converter *cv = to ? ut_get_converter(from, to) : nullptr;
    if (cv) {
        sink += cv_convert_double(cv, 1.5);
        cv_free(cv);
    }
    ut_free(to);
    ut_free(from);
    return cv != nullptr;
}

double runTheirs(ut_system *sys, const std::vector<Pair> &pairs, int rounds, double &sink)
{
    auto t0 = Clock::now();
    for (int r = 0; r < rounds; ++r)
        for (const Pair &p : pairs)
            theirs(sys, p, sink);
    return seconds(t0, Clock::now());
}
#endif

} // namespace

int main(int argc, char **argv)
{
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 4;
    if (rounds < 1) {
        std::fprintf(stderr, "usage: units_bench [rounds]\n");
        return 2;
    }
    ZU_init(1);
    std::vector<Pair> pairs = ourPairs();
    double sink = 0;
#ifdef ZELTRA_BENCH_UDUNITS
    ut_set_error_message_handler(ut_ignore);
    ut_system *sys = ut_read_xml(nullptr);
    if (!sys) {
        std::fprintf(stderr, "units_bench: UDUNITS-2 could not read its unit database\n");
        return 1;
    }
    std::vector<Pair> shared;
    for (const Pair &p : pairs)
        if (theirs(sys, p, sink))
            shared.push_back(p);
    pairs.swap(shared);
#endif
    const double n = static_cast<double>(pairs.size()) * rounds;
    std::printf("expressions %zu (table names, prefixed forms, compounds), rounds %d\n", pairs.size(),
                rounds);
    /* Trials alternate between the two sides and the fastest of each
     * counts, so that load from other programs hits both alike. */
    const int trials = 5;
    runOurs(pairs, 1, sink); /* warm-up */
    double ours = 1e300;
#ifdef ZELTRA_BENCH_UDUNITS
    runTheirs(sys, pairs, 1, sink);
    double udunits = 1e300;
#endif
    for (int t = 0; t < trials; ++t) {
        ours = std::min(ours, runOurs(pairs, rounds, sink));
#ifdef ZELTRA_BENCH_UDUNITS
        udunits = std::min(udunits, runTheirs(sys, pairs, rounds, sink));
#endif
    }
    std::printf("zeltra units   %12.0f conversions/s\n", n / ours);
#ifdef ZELTRA_BENCH_UDUNITS
    std::printf("UDUNITS-2      %12.0f conversions/s\n", n / udunits);
    std::printf("ratio %.2f (target: at least 2)\n", udunits / ours);
    ut_free_system(sys);
#else
    std::printf("UDUNITS-2 not installed: comparison skipped (ZELTRA_BENCH_DEPS=1 scripts/setup.sh)\n");
#endif
    return sink == 0.123456789 ? 3 : 0; /* keeps the work observable */
}
