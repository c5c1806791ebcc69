/*
 * zu_units_data.cpp - the built-in tables of the unit system as plain arrays,
 * filled from the .inc data files beside this one. Nothing here runs: the
 * loader sorts its own copies of the unit and pair tables.
 */
#include "zu_units_inner.h"

namespace zu_units {

const ZU_UnitDef kBuiltinUnits[] = {
#define ZU_UNIT_ROW(name, definition) {name, definition},
#include "zu_units_builtin.inc"
#undef ZU_UNIT_ROW
};
const int kBuiltinUnitCount = static_cast<int>(sizeof kBuiltinUnits / sizeof kBuiltinUnits[0]);

const Prefix kPrefixes[] = {
#define ZU_PREFIX_ROW(name, value) {name, #value, value},
#include "zu_units_prefixes.inc"
#undef ZU_PREFIX_ROW
};
const int kPrefixCount = static_cast<int>(sizeof kPrefixes / sizeof kPrefixes[0]);

const ZU_UnitDef kBuiltinPairs[] = {
#define ZU_PAIR_ROW(name, pretty) {name, pretty},
#include "zu_units_pairs.inc"
#undef ZU_PAIR_ROW
};
const int kBuiltinPairCount = static_cast<int>(sizeof kBuiltinPairs / sizeof kBuiltinPairs[0]);

const ZU_UnitDef kDerived[] = {
#define ZU_DERIVED_ROW(dims, form) {dims, form},
#include "zu_units_derived.inc"
#undef ZU_DERIVED_ROW
};
const int kDerivedCount = static_cast<int>(sizeof kDerived / sizeof kDerived[0]);

const char *const kBuiltinBases[kBuiltinBaseCount] = {
    "m", "kg", "s", "A", "K", "mol", "cd", "rad", "sr",
    "Np", "$", "B(A)", "B(B)", "B(C)", "B(D)", "B(LIN)", "B(Z)", "cycle"};

} // namespace zu_units
