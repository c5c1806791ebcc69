/*
 * zcalc.h - the public interface of the unit system (prefix ZU_), part of the
 * calculator library. Callable from C and C++.
 *
 * A unit expression such as "kg.m/s^2", "km/h" or "degC" resolves to three
 * things: a dimension text in base units ("m.kg.s-2"), a scale and an offset
 * that lead to those base units, so that value_in_base = value * scale +
 * offset. Two units are compatible when their dimension texts are equal byte
 * for byte.
 *
 * The tables (units, prefixes, display pairs, base units, derived names) are
 * built in and may be extended by units files (docs/units-files.md) named by
 * the environment variables ZU_UNITS_LOCAL and ZU_UNITS_FILE. Every operation
 * below loads the tables first if nobody has yet; ZU_init of the utility
 * library loads them at start-up once this library is linked and registered.
 *
 * Failures are raised through ZU_Err from routine "cvtUnit" and returned as
 * one of the ZU_UNIT_* codes; the conversions move theirs to the single error
 * slot (ZU_getError) instead. Parsing and converting take no lock; a load
 * runs under the units lock (active with Thread_Safe=Yes), and reloading while
 * other threads convert is the caller's matter.
 */
#ifndef ZCALC_H
#define ZCALC_H

#include "zutil.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One row of the unit table: a name and its definition, whose first
 * character tells the form: '(' formula, '[' base unit, '>' rejection with a
 * hint, anything else the name of another row (alias). */
typedef struct ZU_UnitDef {
    const char *name;
    const char *definition;
} ZU_UnitDef;

/* Room a dimension text needs in ZU_unitParse, terminator included. */
#define ZU_UNIT_DIMS_SIZE 128
/* At most this many base units, built-in and from files together. */
#define ZU_UNIT_MAX_BASES 32

/* The unit system's codes, X(code, name, severity, message template). */
#define ZU_UNIT_CODES(X)                                                                     \
    X(1, ZU_UNIT_UNDEFINED, 3, "Unit \"%s\" not defined.")                                   \
    X(2, ZU_UNIT_NO_RESOLUTION, 3, "No resolution for \"%s\".")                              \
    X(3, ZU_UNIT_ARGUMENTS, 3, "Wrong number of arguments for \"%s\" in \"%s\"")             \
    X(4, ZU_UNIT_RANGE, 3, "Argument out of range for \"%s\" in \"%s\"")                     \
    X(5, ZU_UNIT_DIMENSIONS, 3, "Illegal argument dimensions for \"%s\" in \"%s\"")          \
    X(6, ZU_UNIT_FUNCTION, 3, "Unknown function \"%s\" in \"%s\"")                           \
    X(7, ZU_UNIT_FILE_OPEN, 2, "Could not open units file \"%s\".\n")                        \
    X(8, ZU_UNIT_INCOMPATIBLE, 3, "Incompatible units: %s = [%s]; %s = [%s]")                \
    X(9, ZU_UNIT_TOO_MANY_BASES, 2,                                                          \
      "Too many (%d) base units defined: max. is %d.\nReverting to default definitions.")   \
    X(10, ZU_UNIT_TOO_LONG, 3, "Dimension text of \"%s\" does not fit in %d bytes.")         \
    X(11, ZU_UNIT_FILE_READ, 2, "Could not read units file \"%s\".\n")                       \
    X(12, ZU_UNIT_TOO_DEEP, 3, "Unit expression \"%s\" nested too deeply.")

#define ZU_UNIT_ENUM_(code, name, severity, text) name = code,
enum { ZU_UNIT_CODES(ZU_UNIT_ENUM_) ZU_UNIT_CODE_END_ };
#undef ZU_UNIT_ENUM_

/* Message template of a code ("" for an unknown one), and its severity (0
 * for an unknown one). Code 1 with a hint reads
 * "Unit \"%s\" not defined. %s". */
ZU_API const char *ZU_unitErrText(int code);
ZU_API int ZU_unitErrSeverity(int code);

/* ---------------------------------------------------------------- loading */

/* Makes ZU_init load the unit tables (the utility library can't see this
 * library otherwise). Idempotent; any program that calls a function of this
 * header is registered already. */
ZU_API void ZU_unitsRegister(void);

/* Loads the tables once: built-in rows merged with the files named by
 * ZU_UNITS_LOCAL, ZU_UNITS_FILE and `path` (each may be null or absent).
 * Non-zero `atexitFlag` registers ZU_unitsFree with atexit. Returns 0, or
 * the code of the last load failure: ZU_UNIT_FILE_OPEN / ZU_UNIT_FILE_READ
 * (that file is skipped) or ZU_UNIT_TOO_MANY_BASES (all files are dropped
 * and the built-in tables used). A later call returns 0 and does nothing. */
ZU_API int ZU_unitsInit(const char *path, int atexitFlag);
/* Loads again as above, freeing what a former load built. */
ZU_API int ZU_unitsLoad(const char *path);
/* Frees what loads built; the built-in tables stay in use, and the next use
 * or ZU_init loads the files anew. */
ZU_API void ZU_unitsFree(void);
/* The current unit table, sorted by name with strcmp, and its row count.
 * Valid until the next load or free. Either pointer may be null. */
ZU_API void ZU_unitsTable(const ZU_UnitDef **table, int *count);
/* The current base units in dimension-text order, and their count. */
ZU_API void ZU_unitBases(const char *const **names, int *count);

/* ---------------------------------------------------------------- parsing */

/* Resolves `unit` to base units: the dimension text into `dims` (at least
 * ZU_UNIT_DIMS_SIZE bytes, may be null), *scale and *offset (may be null).
 * An empty text is dimensionless with scale 1. Returns 0 or a ZU_UNIT_*
 * code (1..6, 10, 12), with the message on the error set. */
ZU_API int ZU_unitParse(const char *unit, char *dims, double *scale, double *offset);

/* Conversion from unit `from` to unit `to`: value_to = value_from * *scale
 * + *offset. Returns 0; or 1037 (the parse message, on the error slot) when
 * a unit is not defined; or 1039 ("Invalid conversion from \"a\" to \"b\"
 * units" on the error slot) for any other failure, incompatible units
 * included. On failure the errors of routine cvtUnit are cleared from the
 * error set and *scale is 1, *offset 0. */
ZU_API int ZU_cvtUnit(const char *from, const char *to, double *scale, double *offset);

/* The same arithmetic, and *value (may be null) is converted in place.
 * Returns 0 or the unit code (ZU_UNIT_INCOMPATIBLE for differing
 * dimensions), and leaves the error set as it is. */
ZU_API int ZU_cvtValue(const char *from, const char *to, double *value, double *scale,
                       double *offset);

/* The typesetting form of `unit` into `out` (size bytes, always terminated;
 * a longer text is cut): "*" and "." as "\greek{.}", powers as "\sup{..}",
 * prefix u as "\greek{m}", names with a display pair in their pretty form.
 * Returns 0 or a ZU_UNIT_* code. */
ZU_API int ZU_unitPretty(const char *unit, char *out, int size);

/* The preferred form of a dimension text from the derived table, without
 * its prefix markers, or the text itself when it has no row; into `out`
 * (size bytes, always terminated). Returns 0, or 1 for a null argument. */
ZU_API int ZU_unitName(const char *dims, char *out, int size);

/* The form of `unit`'s quantity in which `value` (given in `unit`) has a
 * mantissa between 1 and 1000, e.g. 0.002 "m" -> "mm", into `out` (size
 * bytes). *scale and *offset convert from `unit` to that form. Returns 0 or
 * a ZU_UNIT_* code (ZU_UNIT_TOO_LONG when `out` is too small). */
ZU_API int ZU_unitBest(const char *unit, char *out, int size, double value, double *scale,
                       double *offset);

#ifdef __cplusplus
}
#endif
#endif /* ZCALC_H */
