/*
 * zu_ndim.h - what the n-dimensional table modules share: the table record,
 * the handle array, the messages, the file access table and the map-file
 * lexer.
 *
 * Invariants of a table (kept by every operation that changes one):
 *  - each axis grid[d] holds sizes[d] >= 1 strictly increasing values;
 *  - the product of the sizes (`points`) is at most 2^31, so a flat key fits
 *    in 32 bits;
 *  - keys[0..count) are sorted, unique and below `points`, values[i] belongs
 *    to keys[i], and count <= capacity. count == points therefore means that
 *    every point is stored and keys[i] == i.
 */
#ifndef ZU_NDIM_H
#define ZU_NDIM_H

#include "zu_internal.h"

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

struct ZU_NdimTable {
    float **grid;     /* per dimension the axis values */
    int32_t *sizes;   /* per dimension the number of axis values */
    int32_t *idx;     /* working: lower grid index of the last interpolation */
    float *x;         /* working: fraction per dimension */
    char *file;       /* the path it was read from, for messages */
    int32_t dimensions;
    int32_t warnings; /* out-of-range warnings issued so far */
    int32_t hasDefault;
    float defaultValue;
    float *values; /* in the order of keys */
    int32_t *keys; /* sorted flat indices, last dimension fastest */
    int32_t count;
    int32_t capacity;
    int64_t points; /* product of the sizes */
};

/* The largest grid a table may have: flat keys stay 32-bit. */
constexpr double kNdimMaxPoints = 2147483648.0;
/* Room in values and keys grows by this many entries at a time. */
constexpr int32_t kNdimGrowth = 8192;

/* Messages of the table operations: X(id, text). */
#define ZU_NDIM_MESSAGES(X)                                                              \
    X(BadHandle, "handle is not valid")                                                  \
    X(BadPointer, "Invalid pointer")                                                     \
    X(FaultAt, "%s in \"%s\" near line %d\n")                                            \
    X(DimsMissing, "NUMBER OF DIMENSIONS MISSING")                                       \
    X(DimsBelowOne, "NUMBER OF DIMENSIONS MUST BE AT LEAST 1")                           \
    X(NoTerminator, "MISSING TERMINATOR")                                                \
    X(FewFields, "NOT ENOUGH DATA FIELDS")                                               \
    X(NotIncreasing, "AXIS VALUES NOT MONOTONICALLY INCREASING")                         \
    X(FewAxes, "NOT ENOUGH AXES TABULATED")                                              \
    X(FewPoints, "NOT ENOUGH DATA POINTS")                                               \
    X(ManyPoints, "TOO MANY DATA POINTS")                                                \
    X(ExtraData, "EXTRA DATA")                                                           \
    X(NoDefault, "NO DEFAULT VALUE")                                                     \
    X(IndexBounds, "INDEX OUT OF BOUNDS")                                                \
    X(Incomplete, "INCOMPLETE NTUPLE")                                                   \
    X(UnknownType, "UNKNOWN FILE TYPE")                                                  \
    X(CheckAlloc, "ALLOCMEM FAILED during input error check")                            \
    X(ReadAlloc, "ALLOCMEM FAILED reading \"%s\"")                                       \
    X(CantRead, "Cannot open file : \"%s\" for reading")                                 \
    X(ReadFailed, "Read failed on file : \"%s\"")                                        \
    X(TooManyPoints, "Required number of grid points (%e) exceeded maximum number (%e)") \
    X(OutOfRange, "Interpolation variable out of range")                                 \
    X(Corrupted, "Corrupted map file")                                                   \
    X(RangeFile, "ARRAY FILE  : \"%s\"")                                                 \
    X(RangeDim, "DIMENSION   : %d")                                                      \
    X(RangeSpan, "RANGE       : %g - %g")                                                \
    X(RangeGiven, "VALUE GIVEN : %g")                                                    \
    X(RangeUsed, "VALUE USED  : %g")                                                     \
    X(NoMoreWarnings, "No more warnings will be given for this file")                    \
    X(Missing, "Missing required point in array file: \"%s\"")                          \
    X(NoRoom, "ALLOCMEM FAILED storing a value of \"%s\"")                               \
    X(CantWrite, "Cannot open file : \"%s\" for writing")                                \
    X(WriteFailed, "Write failed on file : \"%s\"")

enum class NdimMsg {
#define ZU_NDIM_ID_(id, text) id,
    ZU_NDIM_MESSAGES(ZU_NDIM_ID_)
#undef ZU_NDIM_ID_
        Count_
};

/* The text of a message (a printf format where it has placeholders). */
const char *zu_ndimMsg(NdimMsg id);
/* Formats a message and raises it through ZU_Err. */
void zu_ndimRaise(const char *routine, int code, int severity, NdimMsg id, ...);

/* The table of a handle, or null after raising "handle is not valid". */
ZU_NdimTable *zu_ndimLookup(const char *routine, int handle);
/* Frees a table and all its parts; null is ignored. */
void zu_ndimFree(ZU_NdimTable *table);
/* Reads the checked map file text into a new table; null after raising
 * why not. */
ZU_NdimTable *zu_ndimRead(const char *text, size_t length, const char *path, const int32_t *sizes,
                          int dimensions);
/* Checks the map file text; 0 when good, else ZU_NDIM_FAILED after raising
 * every fault met. On success *dimensions is set and *sizes is a tracked
 * array of the axis sizes that the caller frees. */
int zu_ndimCheck(const char *text, size_t length, const char *path, int *dimensions, int32_t **sizes);
/* Stores a value at a flat key (ZU_ndimSetValue without the checks). */
int zu_ndimStore(const char *routine, ZU_NdimTable *table, int64_t key, float value);

/* File access of the map-file reader and writer, swappable by tests. */
struct ZU_NdimIo {
    int (*open)(const char *path, int flags, mode_t mode);
    ssize_t (*read)(int fd, void *buf, size_t count);
    ssize_t (*write)(int fd, const void *buf, size_t count);
    int (*close)(int fd);
};
extern ZU_NdimIo zu_ndimIo;
extern const ZU_NdimIo zu_ndimIoDefault;

/* ----------------------------------------------------------------------
 * Map-file lexer. Fields are separated by white space; '#' is a field of
 * its own wherever it stands, so "3#" is the number 3 and a terminator.
 * ---------------------------------------------------------------------- */

struct NdimToken {
    enum Kind { End, Hash, Word } kind;
    size_t at; /* offset of the token, or of the end of the text */
    const char *text;
    size_t length;
};

class NdimLexer {
public:
    NdimLexer(const char *text, size_t length) : text_(text), length_(length) {}
    NdimToken next();
    NdimToken peek()
    {
        size_t keep = pos_;
        NdimToken t = next();
        pos_ = keep;
        return t;
    }
    /* Number of '#' fields from here to the end. */
    size_t countHashes() const;
    /* Line (from 1) of an offset in the text. Counting goes on from the
     * previous answer when offsets come in order, as faults do, so many
     * faults in a large file don't each rescan it. */
    int lineOf(size_t offset);

private:
    const char *text_;
    size_t length_;
    size_t pos_ = 0;
    size_t lineFrom_ = 0; /* offset up to which lines_ newlines were counted */
    int lines_ = 1;
};

/* A float field as the reader understands it: optional sign, digits with an
 * optional '.', an optional e/E exponent; finite in single precision. */
bool zu_ndimParseFloat(const NdimToken &t, float *value);
/* An integer field: optional sign and digits, within 32 bits. */
bool zu_ndimParseInt(const NdimToken &t, int32_t *value);

#endif
