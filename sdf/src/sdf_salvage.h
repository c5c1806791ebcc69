/* Salvage of SDF files that the library refuses at open (marked dirty by an
 * interrupted commit, or damaged): an inner interface of the library, used
 * by the sdf tool's "salvage" command and by the tests.
 *
 * The reader opens the file read-only through the table of file calls and
 * never writes to it. It ignores the guard word and reads every table
 * itself: each header field, block-table entry, chain link, slot and record
 * is checked before it is used as an index, a length or a size, so any bytes
 * give a report, never an out-of-range access or a runaway allocation. A
 * record that fails a check is reported as lost with the reason; the others
 * are offered for copying. When two records claim the same name, slot or
 * data block (the mark of a commit cut short), the record with the newer
 * time stamp keeps it and the other is lost.
 *
 * The copy writes the variables that passed into a new file through the
 * library's public writing interface, so the output is a clean file. */
#ifndef SDF_SALVAGE_H
#define SDF_SALVAGE_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A file under salvage, open read-only. */
typedef struct sdf_salvage sdf_salvage;

/* What the reader found in the header. */
typedef struct sdf_salvage_facts {
    int32_t major, minor;   /* version as stored */
    int32_t little_endian;  /* byte order of the file */
    int32_t case_insensitive;
    int32_t guard_state;    /* 0 clean, 1 marked dirty, 2 damaged guard word */
    int32_t chunk_size;     /* the one used (512 when the stored one was unusable) */
    int32_t entries;        /* block-table entries that could be read */
    int32_t records;        /* variable records in use that were found */
} sdf_salvage_facts;

/* One variable record in use. Texts stay valid until sdf_salvage_close. */
typedef struct sdf_salvage_var {
    const char *name;      /* null when the name could not be read */
    int32_t block, index;  /* where the record stands */
    int32_t type;          /* full type code: base, plus 100 for an array */
    int32_t elen;          /* bytes per element; a string scalar's length */
    int64_t dims[8];       /* rank and extents of an array; rank 0 for a scalar */
    const char *units;     /* null when none, or when lost */
    const char *desc;
    int32_t units_lost;    /* 1: the record names units whose slot failed its checks */
    int32_t desc_lost;
    const char *text;      /* a string scalar's value */
    unsigned char value[16]; /* a numeric scalar's value, native order */
    int64_t modified;      /* the record's time stamp */
    int64_t missing;       /* bytes of an array's elements behind the end of
                              the file (cut off): they read as zeros */
    const char *lost;      /* null when the variable can be copied, else why not */
} sdf_salvage_var;

/* Opens `path` read-only and reads everything but array data. 0; 3040 the
 * file can't be opened, isn't a regular file, or its size can't be had; 3050 shorter than a header or not
 * an SDF; 3053 an old SDF. These are reported with sdf_error; damage inside
 * the file is not an error here but a note or a lost record. *out is null
 * on failure. */
int sdf_salvage_open(const char *path, sdf_salvage **out);
/* Header facts; the notes on damage to the file as a whole (index from 0,
 * null past the last); the records in use, in table order. */
void sdf_salvage_get_facts(const sdf_salvage *s, sdf_salvage_facts *facts);
const char *sdf_salvage_note(const sdf_salvage *s, int i);
int sdf_salvage_count(const sdf_salvage *s);
const sdf_salvage_var *sdf_salvage_get(const sdf_salvage *s, int i);
/* Reads n elements of array variable i from element `first` (storage order)
 * into buf (n * elen bytes), native order; parts of the chain behind the end
 * of the file read as zeros. 0; 4001 for a variable that is lost, not an
 * array, or a range outside it; 3080 when the read fails (reported). */
int sdf_salvage_read(sdf_salvage *s, int i, int64_t first, int64_t n, void *buf);
/* The first element at or after `first` of array variable i that has bytes
 * inside the file; the element count when none has. Elements behind it read
 * as zeros, so a copy can skip them without reading. */
int64_t sdf_salvage_stored(const sdf_salvage *s, int i, int64_t first);
/* Closes the file and frees everything; null is ignored. */
void sdf_salvage_close(sdf_salvage *s);

/* Outcome of the copy of one variable. */
enum { SDF_SALVAGE_LOST = 0, SDF_SALVAGE_COPIED = 1, SDF_SALVAGE_NOT_WRITTEN = 2 };
/* Writes every variable that isn't lost into a new file `out`, in the byte
 * order and name case of the input: STATUS "NEW" (3035 when it exists), or
 * "FRESH" when `replace` is set. outcome (sdf_salvage_count entries, may be
 * null) gets each variable's outcome; a variable whose data can't be read or
 * written is taken out of the output again (NOT_WRITTEN). 0 when the output
 * was written and closed; else the code of the open or close that failed
 * (the library's message is posted): an output whose final commit failed is
 * deleted again. */
int sdf_salvage_copy(sdf_salvage *s, const char *out, int replace, int32_t *outcome);

#ifdef __cplusplus
}
#endif

#endif
