/*
 * zu_units_file.h - reading one units file into rows and display pairs.
 *
 * The file is read whole through zu_unitsIo, a table of functions that tests
 * replace to make reading fail. The rows point into the UnitsFile's own
 * storage, which stays put while the UnitsFile lives (a deque never moves
 * its elements).
 */
#ifndef ZU_UNITS_FILE_H
#define ZU_UNITS_FILE_H

#include "zcalc.h"

#include <deque>
#include <string>
#include <vector>

namespace zu_units {

struct UnitsFile {
    std::string path;
    std::deque<std::string> texts; /* owns every name, definition, pretty */
    std::vector<ZU_UnitDef> rows;  /* in file order */
    std::vector<ZU_UnitDef> pairs; /* name, pretty */
};

/* 0, ZU_UNIT_FILE_OPEN or ZU_UNIT_FILE_READ. */
int readUnitsFile(const char *path, UnitsFile &out);

/* Splits the bytes of a units file into entries (see docs/units-files.md). */
void parseUnitsText(const std::string &bytes, UnitsFile &out);

} // namespace zu_units

/* File access of the loader: open, read and close by path. readAll returns 0
 * and the bytes, 1 when the file can't be opened, 2 when reading fails. */
struct ZU_UnitsIo {
    int (*readAll)(const char *path, std::string *bytes);
};
extern ZU_UnitsIo zu_unitsIo;

#endif
