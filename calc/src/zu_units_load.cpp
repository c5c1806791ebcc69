/*
 * zu_units_load.cpp - the tables in force: the built-in ones, sorted on the
 * first load, merged with units files (ZU_UNITS_LOCAL, ZU_UNITS_FILE, then
 * the caller's path; a later file overrides an earlier one, any file the
 * built-in rows), and the hook by which ZU_init loads them.
 *
 * Invariants: g_tables always describes complete, sorted tables, either the
 * built-in ones or those of the last load (tracked blocks "UNITS",
 * "unitstrings", "PARSE_PAIRS", "BASE_UNITS", "baseunitstrings"); a failed
 * or reverted load leaves the built-in tables. Loads and frees run under
 * one lock; parsing reads the tables without it.
 */
#include "zu_units_file.h"
#include "zu_units_inner.h"
#include "zu_internal.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <mutex>
#include <unordered_map>
#include <vector>

namespace zu_units {

namespace {

/* Recursive: an allocation failure with Mem_Error=Exit frees everything,
 * this module included, from inside a load. */
std::recursive_mutex g_loadMutex;
std::atomic<bool> g_loaded{false};
std::atomic<uint64_t> g_generation{1};
bool g_sorted = false;
bool g_atexitDone = false;

ZU_UnitDef g_builtinUnits[512];
ZU_UnitDef g_builtinPairs[32];

Tables g_tables = {g_builtinUnits, 0, g_builtinPairs, 0, kBuiltinBases, kBuiltinBaseCount};

/* The blocks of the last load. */
struct Built {
    ZU_UnitDef *units = nullptr;
    char *strings = nullptr;
    ZU_UnitDef *pairs = nullptr;
    const char **bases = nullptr;
    char *baseStrings = nullptr;
} g_built;

bool byName(const ZU_UnitDef &a, const ZU_UnitDef &b)
{
    return strcmp(a.name, b.name) < 0;
}

void useBuiltin()
{
    g_tables = {g_builtinUnits, kBuiltinUnitCount, g_builtinPairs, kBuiltinPairCount,
                kBuiltinBases, kBuiltinBaseCount};
}

void sortBuiltinOnce()
{
    if (g_sorted)
        return;
    static_assert(sizeof g_builtinUnits / sizeof g_builtinUnits[0] >= 457, "room for the built-in rows");
    std::copy(kBuiltinUnits, kBuiltinUnits + kBuiltinUnitCount, g_builtinUnits);
    std::copy(kBuiltinPairs, kBuiltinPairs + kBuiltinPairCount, g_builtinPairs);
    std::sort(g_builtinUnits, g_builtinUnits + kBuiltinUnitCount, byName);
    std::sort(g_builtinPairs, g_builtinPairs + kBuiltinPairCount, byName);
    g_sorted = true;
}

void freeBuilt()
{
    ZU_freeMem(g_built.units);
    ZU_freeMem(g_built.strings);
    ZU_freeMem(g_built.pairs);
    ZU_freeMem(const_cast<char **>(g_built.bases));
    ZU_freeMem(g_built.baseStrings);
    g_built = Built{};
    useBuiltin();
    g_generation.fetch_add(1, std::memory_order_acq_rel);
}

/* Merges one file's rows into `rows`: a name already there is replaced, and
 * within the file the last definition of a name counts. */
void mergeRows(std::vector<ZU_UnitDef> &rows, const std::vector<ZU_UnitDef> &fresh)
{
    std::unordered_map<std::string_view, size_t> last;
    for (size_t i = 0; i < fresh.size(); ++i)
        last[fresh[i].name] = i;
    const size_t before = rows.size();
    std::vector<bool> dead(before, false);
    for (const ZU_UnitDef &f : fresh) {
        auto it = std::lower_bound(rows.begin(), rows.begin() + static_cast<long>(before), f, byName);
        if (it != rows.begin() + static_cast<long>(before) && strcmp(it->name, f.name) == 0)
            dead[static_cast<size_t>(it - rows.begin())] = true;
    }
    std::vector<ZU_UnitDef> out;
    out.reserve(before + fresh.size());
    for (size_t i = 0; i < before; ++i)
        if (!dead[i])
            out.push_back(rows[i]);
    for (size_t i = 0; i < fresh.size(); ++i)
        if (last[fresh[i].name] == i)
            out.push_back(fresh[i]);
    std::sort(out.begin(), out.end(), byName);
    rows.swap(out);
}

/* Built-in base names followed by the new ones, in table order; false when
 * there would be more than ZU_UNIT_MAX_BASES (*total says how many). */
bool collectBases(const std::vector<ZU_UnitDef> &rows, std::vector<std::string> &extra, int &total)
{
    extra.clear();
    for (const ZU_UnitDef &r : rows) {
        if (r.definition[0] != '[' || r.definition[1] == ']' || r.definition[1] == '\0')
            continue;
        std::string name(r.definition + 1, strcspn(r.definition + 1, "]"));
        bool known = std::find(kBuiltinBases, kBuiltinBases + kBuiltinBaseCount, name) !=
                         kBuiltinBases + kBuiltinBaseCount ||
                     std::find(extra.begin(), extra.end(), name) != extra.end();
        if (!known)
            extra.push_back(name);
    }
    total = kBuiltinBaseCount + static_cast<int>(extra.size());
    return total <= ZU_UNIT_MAX_BASES;
}

char *copyInto(char *&area, const char *text)
{
    size_t n = strlen(text) + 1;
    memcpy(area, text, n);
    char *start = area;
    area += n;
    return start;
}

/* Copies the merged tables into tracked blocks and puts them in force. */
bool install(const std::vector<ZU_UnitDef> &rows, const std::vector<ZU_UnitDef> &pairs,
             const std::vector<std::string> &extraBases)
{
    size_t textBytes = 0, baseBytes = 0;
    for (const auto *list : {&rows, &pairs})
        for (const ZU_UnitDef &r : *list)
            textBytes += strlen(r.name) + strlen(r.definition) + 2;
    for (const std::string &b : extraBases)
        baseBytes += b.size() + 1;
    const int baseCount = kBuiltinBaseCount + static_cast<int>(extraBases.size());
    Built b;
    b.units = static_cast<ZU_UnitDef *>(ZU_allocMem(rows.size() * sizeof(ZU_UnitDef) + 1, "UNITS"));
    b.strings = static_cast<char *>(ZU_allocMem(textBytes + 1, "unitstrings"));
    b.pairs = static_cast<ZU_UnitDef *>(ZU_allocMem(pairs.size() * sizeof(ZU_UnitDef) + 1, "PARSE_PAIRS"));
    b.bases = static_cast<const char **>(ZU_allocMem(static_cast<size_t>(baseCount) * sizeof(char *), "BASE_UNITS"));
    b.baseStrings = static_cast<char *>(ZU_allocMem(baseBytes + 1, "baseunitstrings"));
    g_built = b;
    if (!b.units || !b.strings || !b.pairs || !b.bases || !b.baseStrings) {
        freeBuilt();
        return false;
    }
    char *area = b.strings;
    for (size_t i = 0; i < rows.size(); ++i)
        b.units[i] = {copyInto(area, rows[i].name), copyInto(area, rows[i].definition)};
    for (size_t i = 0; i < pairs.size(); ++i)
        b.pairs[i] = {copyInto(area, pairs[i].name), copyInto(area, pairs[i].definition)};
    std::copy(kBuiltinBases, kBuiltinBases + kBuiltinBaseCount, b.bases);
    char *baseArea = b.baseStrings;
    for (size_t i = 0; i < extraBases.size(); ++i)
        b.bases[kBuiltinBaseCount + i] = copyInto(baseArea, extraBases[i].c_str());
    g_tables = {b.units, static_cast<int>(rows.size()), b.pairs, static_cast<int>(pairs.size()),
                b.bases, baseCount};
    g_generation.fetch_add(1, std::memory_order_acq_rel);
    return true;
}

std::vector<std::string> filesToRead(const char *path)
{
    std::vector<std::string> out;
    const char *const candidates[] = {getenv("ZU_UNITS_LOCAL"), getenv("ZU_UNITS_FILE"), path};
    for (const char *p : candidates)
        if (p && *p)
            out.emplace_back(p);
    return out;
}

int load(const char *path)
{
    std::lock_guard<std::recursive_mutex> guard(g_loadMutex);
    sortBuiltinOnce();
    freeBuilt();
    int rc = 0;
    std::deque<UnitsFile> files;
    for (const std::string &p : filesToRead(path)) {
        UnitsFile f;
        int code = readUnitsFile(p.c_str(), f);
        if (code) {
            raise(code, formatMessage(ZU_unitErrText(code), {p}));
            rc = code;
            continue;
        }
        files.push_back(std::move(f));
    }
    if (!files.empty()) {
        std::vector<ZU_UnitDef> rows(g_builtinUnits, g_builtinUnits + kBuiltinUnitCount);
        std::vector<ZU_UnitDef> pairs(g_builtinPairs, g_builtinPairs + kBuiltinPairCount);
        std::vector<std::string> extra;
        bool reverted = false;
        for (const UnitsFile &f : files) {
            mergeRows(rows, f.rows);
            mergeRows(pairs, f.pairs);
            int total = 0;
            if (!collectBases(rows, extra, total)) {
                raise(ZU_UNIT_TOO_MANY_BASES,
                      formatMessage(ZU_unitErrText(ZU_UNIT_TOO_MANY_BASES),
                                    {std::to_string(total), std::to_string(ZU_UNIT_MAX_BASES)}));
                rc = ZU_UNIT_TOO_MANY_BASES;
                reverted = true;
                break;
            }
        }
        if (!reverted && !install(rows, pairs, extra)) {
            raise(ZU_UNIT_FILE_READ, formatMessage(ZU_unitErrText(ZU_UNIT_FILE_READ), {files.front().path}));
            rc = ZU_UNIT_FILE_READ;
        }
    }
    g_loaded.store(true, std::memory_order_release);
    return rc;
}

int loaderForInit(int atexitFlag)
{
    return ZU_unitsInit(nullptr, atexitFlag);
}

void freerForClose()
{
    ZU_unitsFree();
}

/* Any program that uses this module registers the hook, so ZU_init loads. */
struct AutoRegister {
    AutoRegister() { ZU_unitsRegister(); }
} g_autoRegister;

} // namespace

uint64_t tablesGeneration()
{
    return g_generation.load(std::memory_order_acquire);
}

const Tables &tables()
{
    if (!g_loaded.load(std::memory_order_acquire))
        ZU_unitsInit(nullptr, 1);
    return g_tables;
}

} // namespace zu_units

using namespace zu_units;

extern "C" {

void ZU_unitsRegister(void)
{
    zu_unitTableLoader = loaderForInit;
    zu_unitTableFreer = freerForClose;
}

int ZU_unitsInit(const char *path, int atexitFlag)
{
    std::lock_guard<std::recursive_mutex> guard(g_loadMutex);
    if (g_loaded.load(std::memory_order_acquire))
        return 0;
    /* The allocator's exit clean-up must run after ours: register it first. */
    ZU_memInit(atexitFlag);
    int rc = load(path);
    if (atexitFlag && !g_atexitDone) {
        g_atexitDone = true;
        atexit(ZU_unitsFree);
    }
    return rc;
}

int ZU_unitsLoad(const char *path)
{
    ZU_memInit(1);
    return load(path);
}

void ZU_unitsFree(void)
{
    std::lock_guard<std::recursive_mutex> guard(g_loadMutex);
    sortBuiltinOnce();
    freeBuilt();
    g_loaded.store(false, std::memory_order_release);
}

void ZU_unitsTable(const ZU_UnitDef **table, int *count)
{
    const Tables &t = tables();
    if (table)
        *table = t.units;
    if (count)
        *count = t.unitCount;
}

void ZU_unitBases(const char *const **names, int *count)
{
    const Tables &t = tables();
    if (names)
        *names = t.bases;
    if (count)
        *count = t.baseCount;
}

} // extern "C"
