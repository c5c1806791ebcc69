/*
 * zu_units_inner.h - what the modules of the unit system share: the tables
 * in force, their lookups, and dimension vectors.
 *
 * Invariants: the unit and pair tables in force are sorted by name with
 * strcmp and searched by halving; the base list holds 18..32 names, built-in
 * names first, in dimension-text order. A dimension vector holds one
 * exponent per base unit, always in "printed and read back" form (see
 * zu_normExponent), so that two vectors are equal exactly when their
 * dimension texts are.
 */
#ifndef ZU_UNITS_INNER_H
#define ZU_UNITS_INNER_H

#include "zcalc.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace zu_units {

/* The built-in tables, as listed in the .inc data files. */
struct Prefix {
    const char *name;
    const char *valueText;
    double value;
};
extern const ZU_UnitDef kBuiltinUnits[];
extern const int kBuiltinUnitCount;
extern const Prefix kPrefixes[]; /* sorted by name with strcmp */
extern const int kPrefixCount;
extern const ZU_UnitDef kBuiltinPairs[];
extern const int kBuiltinPairCount;
extern const ZU_UnitDef kDerived[]; /* dimension text -> preferred form, sorted */
extern const int kDerivedCount;
extern const char *const kBuiltinBases[];
constexpr int kBuiltinBaseCount = 18;

/* The tables in force. */
struct Tables {
    const ZU_UnitDef *units;
    int unitCount;
    const ZU_UnitDef *pairs;
    int pairCount;
    const char *const *bases;
    int baseCount;
};

/* Loads on first use (ZU_unitsInit(null, 1)) and returns the tables. */
const Tables &tables();
/* Changes whenever the tables in force change (load or free). */
uint64_t tablesGeneration();

/* Binary searches; null / -1 when absent. */
const char *findDefinition(const Tables &t, std::string_view name);
const Prefix *findPrefix(std::string_view name);
const char *findPretty(const Tables &t, std::string_view name);
const char *findDerived(std::string_view dims);
int baseIndex(const Tables &t, std::string_view name);

/* One exponent per base unit. */
struct Dims {
    double e[ZU_UNIT_MAX_BASES];
};

/* The exponent as the dimension text prints it ("%.3g", 0 below 0.001 in
 * magnitude) and reads it back. */
double normExponentSlow(double e);
inline double normExponent(double e)
{
    /* Whole exponents below 1000 print and read back as they are. */
    if (e < 1000 && e > -1000 && e == static_cast<double>(static_cast<int>(e)))
        return e;
    return normExponentSlow(e);
}
/* Appends the dimension text of `d` (`count` bases). */
void printDims(const Tables &t, const Dims &d, std::string &out);
/* Prints one exponent with "%.3g" into out. */
void printExponent(double e, std::string &out);

/* Raises a unit failure through ZU_Err from routine "cvtUnit", and keeps
 * its message for the conversions (which move it to the error slot). */
void raise(int code, const std::string &message);
/* The message of the last failure raised on this thread. */
const std::string &lastMessage();

/* Fills a message template's %s / %d in order. */
std::string formatMessage(const char *tmpl, std::initializer_list<std::string> args);

/* Skips leading blanks and tabs and reads "**" as "^". */
std::string prepareUnitText(const char *unit);

/* Evaluates a unit text: 0 or a code; on failure the message is raised. In
 * `text` mode *display receives the display text (pretty or plain). */
struct Result {
    double scale = 1;
    double offset = 0;
    Dims dims;
};
int evaluate(const Tables &t, std::string_view text, Result &out, std::string *display,
             bool pretty);

} // namespace zu_units

#endif
