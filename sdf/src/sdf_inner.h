/* Inner records and routines of the SDF library, shared by its source files
 * and its tests; not part of the public interface.
 *
 * In memory every multi-byte field is in native byte order: the conversion to
 * and from a file's own order happens at the transfer of a block and nowhere
 * else. Records that mirror bytes on disk (sdf_hdr, sdf_blkent, sdf_varrec)
 * have the exact layout of the file, checked by static assertions below.
 *
 * Routines return 0 on success or an SDF code (2000s warning, 3000s error,
 * 4000s bug); a routine that finds a failure reports it once with sdf_error,
 * and each level above passes it up with sdf_error_chain. */
#ifndef SDF_INNER_H
#define SDF_INNER_H

#include <stddef.h>
#include <stdint.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>

#include "sdf.h"
#include "zutil.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---------------------------------------------------------------- format */

enum {
    SDF_CHUNK = 512,        /* chunk size of every file this library creates */
    SDF_WORD = 4,
    SDF_HDR_BYTES = 256,
    SDF_ENTRY_BYTES = 32,   /* block table entry */
    SDF_RECORD_BYTES = 64,  /* variable record */
    SDF_MAJOR = 3,
    SDF_MINOR = 0,
    SDF_MAX_RANK = 7,
    SDF_MAX_NAME = 512,
    SDF_LRU_ROWS = 64       /* chrvar block buffers per file */
};

#define SDF_GUARD_CLEAN 0x0A0D0A00u
#define SDF_GUARD_DIRTY 0x0A0D0A01u
/* Lowest accepted record time: 2011-01-01 06:00 UTC, in microseconds. */
#define SDF_MIN_STAMP INT64_C(1293861600000000)
/* How far a record's time may lie after the header's: 30 days. */
#define SDF_STAMP_SLACK INT64_C(2592000000000)

/* Chain numbers, which double as block types. Data blocks of an array have
 * the negative swap width of the element type: -1, -4 or -8. */
enum {
    SDF_CH_FREE = 0,
    SDF_CH_BLKINF = 1,
    SDF_CH_UNUSED = 2,
    SDF_CH_VARINF = 3,
    SDF_CH_VARNAM = 4,
    SDF_CH_ARRDIM = 5,
    SDF_CH_CHRVAR = 6,
    SDF_CH_ARRDIM32 = 7 /* slot request unit of version-1 dimensions; arrdim chain */
};

/* One chain's description in the header: 32 bytes. The two `extra` words
 * are the free count and free head of blkinf, or the free count, free block
 * and free index of varinf (free_count, free_a, free_b); reserved elsewhere. */
typedef struct sdf_chain_desc {
    int32_t head;
    int32_t tail;
    int32_t chunks;
    int32_t free_count;
    int32_t free_a;
    int32_t free_b;
    int32_t reserved[2];
} sdf_chain_desc;

/* The header, block 0. chain[k - 1] describes chain k (1 blkinf .. 6 chrvar). */
typedef struct sdf_hdr {
    char magic[16];
    uint32_t guard;
    int32_t major;
    int32_t minor;
    int32_t chunk_size;
    int32_t file_chunks;
    int32_t blk1_start;
    int32_t blk1_len;
    int32_t reserved44;
    int64_t modified;
    int32_t reserved56[2];
    sdf_chain_desc chain[6];
} sdf_hdr;

/* A block table entry. */
typedef struct sdf_blkent {
    int32_t start;
    int32_t chunks;
    int32_t next;
    int32_t prev;
    int32_t used;
    int32_t type;
    int32_t largest_free;
    int32_t first_free;
} sdf_blkent;

/* A slot reference: block number and word index of the slot's size word. */
typedef struct sdf_slotref {
    int32_t block;
    int32_t index;
} sdf_slotref;

/* A variable record. */
typedef struct sdf_varrec {
    sdf_slotref name;
    sdf_slotref units;
    sdf_slotref desc;
    int32_t type;
    int32_t elen;
    union {
        int32_t i[4];
        int64_t l[2];
        float f[4];
        double d[2];
    } value;
    int64_t modified;
    int32_t reserved[2];
} sdf_varrec;

#ifdef __cplusplus
static_assert(sizeof(sdf_hdr) == SDF_HDR_BYTES, "header layout");
static_assert(offsetof(sdf_hdr, modified) == 48, "header layout");
static_assert(offsetof(sdf_hdr, chain) == 64, "header layout");
static_assert(sizeof(sdf_blkent) == SDF_ENTRY_BYTES, "entry layout");
static_assert(sizeof(sdf_varrec) == SDF_RECORD_BYTES, "record layout");
static_assert(offsetof(sdf_varrec, value) == 32, "record layout");
static_assert(offsetof(sdf_varrec, modified) == 48, "record layout");
#endif

/* Type code helpers: an array has the base code plus 100. */
#define SDF_IS_ARRAY(type) ((((type) / 100) % 10) != 0)
#define SDF_BASE_TYPE(type) ((type) % 100)
/* Element size and swap width of a base type; 0 for an unknown base. */
int sdf_type_elen(int base);
int sdf_swap_width(int base);
int sdf_valid_base(int base);

/* ---------------------------------------------------------- in memory */

/* Block list rows. flags: bit 0 modified, bit 1 the buffer is the library's. */
enum { SDF_BLK_MODIFIED = 1, SDF_BLK_OWNED = 2 };

typedef struct Blentry {
    sdf_blkent *entry; /* inside its blkinf block's buffer */
    void *data;        /* the block's contents, or null */
    int32_t owner;     /* blkinf block that holds the entry */
    int32_t slot_row;  /* row in the chrvar LRU table, 0 if none */
    int32_t flags;
} Blentry;

typedef struct Blks {
    int32_t count; /* entries of all blkinf blocks, free ones included */
    int32_t modified;
    int32_t capacity;
    Blentry *rows; /* indexed by block number */
} Blks;

typedef struct ventry {
    char *name;         /* inside its varnam slot */
    sdf_varrec *record; /* inside its varinf block's buffer */
    int32_t block;      /* the varinf block, marked modified on a change */
} ventry;

typedef struct vars {
    int32_t count;
    int32_t capacity;
    ventry *rows;  /* unsorted; rows never move */
    int32_t *key;  /* key[p]: row of the variable at sorted position p */
    void *free_index; /* the free records in list order, kept beside the
                         on-disk list so a delete finds its place in it
                         without walking it; private to the variable table */
} vars;

typedef struct sdf_lru_row {
    int32_t next;
    int32_t prev;
    int32_t block;
    int32_t chunks;
} sdf_lru_row;

typedef struct sdf_slot_lru {
    int32_t initialised;
    int32_t free_row;
    int32_t head; /* least recently used */
    int32_t tail; /* most recently used */
    sdf_lru_row rows[SDF_LRU_ROWS + 1]; /* rows 1..64; row 0 unused */
} sdf_slot_lru;

/* The open operating-system file, shared by the channels that use it. */
typedef struct sdfios {
    int fd;
    int32_t refs;
    ZU_Lock mutex; /* seek plus transfer */
} sdfios;

/* One file in memory, shared by the channels on it. */
typedef struct sdfile {
    char *name;  /* as given to the open */
    char *path;  /* absolute */
    sdf_hdr *hdr;
    vars *vars;
    Blks *blks;
    struct sdf_cache *cache; /* user cache, or null; read and replaced under cache_mutex */
    sdf_slot_lru lru;
    ZU_RWLock rwlock;
    ZU_Lock slot_mutex;
    ZU_Lock cache_mutex;
    int64_t lock_pid;
    int64_t lock_fid;
    int32_t lock_write;
    int32_t writable;
    int32_t scratch;
    int32_t internal;
    int32_t swap;
    int32_t case_insensitive;
    int32_t locked;
    int32_t handles;
    int32_t first_channel; /* head of the chain of channels on this file */
    int64_t disk_bytes;    /* bytes the file is known to hold on disk: its size
                              at open, raised when a commit extends it to the
                              header's length. A read that meets the end of
                              the file before this point found a file cut
                              short under it, and fails. */
    struct fcb *writer;    /* a writable channel on this file, or null: the
                              commit forced by evicting a modified chrvar
                              buffer runs through it */
} sdfile;

/* Option blocks and stacks: see sdf_options. */
typedef struct sdf_optval {
    char text[128];
    int32_t ival;
    float fval;
    double dval;
} sdf_optval;

enum { SDF_NOPTS = 33, SDF_NGENERAL_OPTS = 8 };
typedef struct sdf_optblock {
    sdf_optval v[SDF_NOPTS];
} sdf_optblock;

typedef struct sdf_optlevel {
    sdf_optblock *block;
    int32_t back; /* level to return to on pop, -1 if none */
} sdf_optlevel;

typedef struct sdf_optstack {
    sdf_optlevel *levels;
    int32_t capacity;
    int32_t depth;
    int32_t top;
    sdf_optblock *current;
} sdf_optstack;

/* One channel. */
typedef struct fcb {
    sdfile *file;
    sdfios *ios;              /* null for an internal file */
    sdf_optblock *own_opts;   /* null until the channel sets an option */
    sdf_optstack stack;
    int32_t prefix_active;
    int32_t number;
    int32_t prev;
    int32_t next;
    int32_t writable;
    int32_t write_locks;
    int32_t read_locks;
} fcb;

/* Option numbers, in table order. */
enum {
    SDF_OPT_THREAD_SAFE, SDF_OPT_ERROR_OUT, SDF_OPT_CASE_SENSITIVE, SDF_OPT_SEX,
    SDF_OPT_DEFAULT_INTERNAL_CHANNEL, SDF_OPT_LOCK_LIFE_HRS, SDF_OPT_NO_READ_LOCK,
    SDF_OPT_PATH_ENCODING, SDF_OPT_OVERWRITE, SDF_OPT_OVERWRITE_WARN, SDF_OPT_COPYSELF_WARN,
    SDF_OPT_DELETE_WARN, SDF_OPT_WHERE_MEM_ERROR, SDF_OPT_WRITE, SDF_OPT_FLUSH,
    SDF_OPT_ZERO_ARRAYS, SDF_OPT_CALC_TRY_NOPREFIX, SDF_OPT_MAX_EXTRA_DATA_CHUNKS,
    SDF_OPT_MAX_EXTRA_SLOT_CHUNKS, SDF_OPT_CALC_BADVAR_IS_CHAR, SDF_OPT_CALC_RANGE_CHECK,
    SDF_OPT_CALC_RANGE_SUBST, SDF_OPT_INT_FORMAT, SDF_OPT_INT64_FORMAT,
    SDF_OPT_LOG_TRUE_FORMAT, SDF_OPT_LOG_FALSE_FORMAT, SDF_OPT_REAL_FORMAT,
    SDF_OPT_DBLE_FORMAT, SDF_OPT_CMPX_FORMAT, SDF_OPT_DCMPX_FORMAT, SDF_OPT_PREFIX,
    SDF_OPT_CALC_PREFIX, SDF_OPT_CALC_DEFAULT_1_PREFIX
};

/* ------------------------------------------------- errors and options */

/* Reports code from routine: looks the message up, fills it with the
 * arguments (printf style, as the message's own %d and %s say), and posts it
 * where option Error_Out says. Returns code. An unknown code becomes 3090. */
int sdf_error(const char *routine, int code, ...);
/* Passes a failure code up from callee: reports "Error %d reported by "%s"."
 * (or the warning and bug forms) and returns the family code 2000, 3000 or
 * 4000. 0 passes through as 0. */
int sdf_error_chain(const char *routine, int code, const char *callee);
/* The system's text for errno as it stands, in a thread-local buffer. */
const char *sdf_sys_error(void);
/* Reports a state a sound file can't produce: 4001 with the text formatted
 * printf-style (at most 255 characters). Returns 4001. */
int sdf_bug(const char *routine, const char *fmt, ...) __attribute__((format(printf, 2, 3)));
/* The message pattern of a code, or null when the table has none. */
const char *sdf_error_text(int code);

/* Option values for a channel (its own block for rows 8 and up when it has
 * one) or for the process when f is null. */
int sdf_opt_int(const fcb *f, int opt);
const char *sdf_opt_text(const fcb *f, int opt);
float sdf_opt_float(const fcb *f, int opt);
double sdf_opt_double(const fcb *f, int opt);
/* Sets options from text for the process (f null) or a channel. */
int sdf_set_opts(fcb *f, const char *text);
/* Frees a channel's option block and stack. */
void sdf_free_chan_opts(fcb *f);
/* Whether Thread_Safe was ever set to Yes in this process. */
int sdf_thread_safe(void);
/* Takes the option, register and global mutexes down at exit and frees the
 * process's option blocks and stack. Uses the tracked allocator, so it must
 * run before the utility library's own clean-up (register it with atexit
 * after ZU_init(1)). */
void sdf_opts_shutdown(void);
/* Option reads and stack moves for a channel (f) or the process (f null).
 * sdf_get_opt copies the text of option `name` into value (128 bytes, may be
 * null): 0, or 3060 for an unknown name. sdf_push: mode >= 0 selects level
 * min(mode, top); -1 a new level of built-in defaults; -2 a copy of the
 * current options; -3 to -7 the level as last used (a copy when new); -8 and
 * below a new level above top that pops back to the current one (-9 with
 * defaults, others a copy). sdf_pop goes back one level (or along the back
 * link); nothing at depth 0. sdf_opt_depth: the level in use. */
int sdf_get_opt(const fcb *f, const char *name, char *value);
int sdf_push(fcb *f, int mode);
int sdf_pop(fcb *f);
int sdf_opt_depth(const fcb *f);
/* Library start of the entry points that set options; 0 or a code. */
int sdf_lib_start(void);

/* Locks, all inactive until Thread_Safe=Yes. sdf_threads_on turns locking
 * on for good: creates the global, option and register mutexes and passes
 * Thread_Safe=Yes to the utility library. The global mutex guards open,
 * close and the channel table; option and register mutexes are leaves.
 * sdf_*_lock returns whether it took the mutex; pass that to the unlock. */
void sdf_threads_on(void);
void sdf_global_lock(void);
void sdf_global_unlock(void);
int sdf_opt_lock(void);
void sdf_opt_unlock(int taken);
int sdf_memreg_lock(void);
void sdf_memreg_unlock(int taken);
/* Destroys the three mutexes (at exit; the switch stays on). */
void sdf_threads_shutdown(void);
/* Cores of Sdf_Mutex_Lock / Sdf_Mutex_Unlock on a channel: hold the file's
 * reader-writer lock across calls. With locking off both do nothing and
 * return 0. Mode 1 reads (counts up when already held), any other mode
 * writes: 3003 when the channel holds only a read lock, 3002 when it isn't
 * writable. The unlock takes one off the write count (clearing the read
 * count at 0), else one off the read count; the lock goes at both 0. */
int sdf_mutex_lock(fcb *f, int mode);
int sdf_mutex_unlock(fcb *f);

/* Enters p in the register of memory handed to callers, which Sdf_Free
 * takes back; returns p. Null gives null; when the register can't grow, p is
 * freed and the result is null, which the caller reports as out of memory. */
void *sdf_register(void *p);

/* --------------------------------------------- file access, for tests */

/* Every call the library makes on files and the clock goes through this
 * table, so tests can inject short writes, a full disk or a failed call.
 * Each entry has the contract of the POSIX call it stands for. */
typedef struct sdf_io_ops {
    int (*open)(const char *path, int flags, mode_t mode);
    int (*close)(int fd);
    ssize_t (*pread)(int fd, void *buf, size_t count, off_t offset);
    ssize_t (*pwrite)(int fd, const void *buf, size_t count, off_t offset);
    int (*fsync)(int fd);
    int (*ftruncate)(int fd, off_t length);
    int (*unlink)(const char *path);
    time_t (*time)(time_t *t);
    int (*fstat)(int fd, struct stat *st);
    /* Lock files: the process test, the clocks and the waits. */
    int (*kill)(pid_t pid, int sig);
    int (*clock_gettime)(clockid_t clock, struct timespec *ts);
    int (*nanosleep)(const struct timespec *req, struct timespec *rem);
    /* Breaking a stale second-level lock: moving it aside, putting back
     * what wasn't the judged one. */
    int (*rename)(const char *from, const char *to);
    int (*link)(const char *from, const char *to);
} sdf_io_ops;

extern sdf_io_ops sdf_io;               /* the table in use */
extern const sdf_io_ops sdf_io_default; /* the real calls */

/* Current time as stored in headers and records: whole seconds * 10^6. */
int64_t sdf_now_stamp(void);

/* ------------------------------------------------------- block layer */

/* Reads `count` bytes (0: the whole block) at byte `offset` of a block into
 * buf, converting to native order. Block 0 is the 256-byte header; block 1 is
 * placed by the header. 3080 on failure. */
int sdf_read_block(void *buf, fcb *f, int block, int64_t offset, int64_t count);
/* The opposite; buf stays in native order. 3081 on failure. */
int sdf_write_block(const void *buf, fcb *f, int block, int64_t offset, int64_t count);
/* Writes the header with the dirty flag set or cleared and a fresh time. */
int sdf_write_hdr(fcb *f, int dirty);
/* The commit: header dirty, every modified block, header clean. */
int sdf_write_modified_blocks(fcb *f);
/* Overwrites a block in the file with zeros. */
int sdf_clean_block(fcb *f, int block);
/* Finds room for `chunks` chunks; *at_end tells that the block lies at the
 * end of the file. Returns the block number, or a negative code. */
int sdf_alloc_block(sdfile *s, int chunks, int *at_end);
/* Returns a block to the unused chain, merging neighbouring runs. */
int sdf_free_block(sdfile *s, int block);
/* Frees every block of a data chain. */
int sdf_free_chain(sdfile *s, int first);
/* Stamps a record (when given) and sets or clears a block's modified flag. */
void sdf_touch(sdfile *s, sdf_varrec *record, int block, int on);
/* Marks a block modified (and counts it); cheap when it already is. */
void sdf_mark(sdfile *s, int block);
/* Cuts unused runs off the end of the file; 1 if it did. */
int sdf_trim_unused(sdfile *s);
/* Block table entries. */
int sdf_new_entry(sdfile *s);
void sdf_free_entry(sdfile *s, int block, int shrink);
int sdf_extend_blkinf_chain(sdfile *s, int entries);
/* Chunks a chain that needs `need` more and holds `total` gets: max(need,
 * min(total, cap)). */
int sdf_chain_growth(int need, int total, int cap);
/* The table of rows: capacity `size` (128 when below 1), or with an extra
 * allowance the smallest doubling of 128 that holds size + extra. Null when
 * out of memory. sdf_grow_blks makes room for `rows` rows (0 or 3001+ code);
 * sdf_free_blks frees the rows and every buffer the library owns. */
Blks *sdf_new_blks(int size, int extra);
int sdf_grow_blks(Blks *b, int rows);
void sdf_free_blks(Blks *b);

/* Block b of a chain and the block before it in chain order (0 at the
 * head); -1 when b isn't in the chain. */
int sdf_chain_prev(sdfile *s, int chain, int b);
/* Takes block b, whose predecessor is prev, out of its chain and off the
 * chain's total, drops a buffer the library owns, and hands the block to
 * sdf_free_block. A chrvar buffer held by the LRU table is released by the
 * caller first. 0, or the family code passed up for `routine`. */
int sdf_chain_release(sdfile *s, int chain, int b, int prev, const char *routine);

/* Byte order: converts a block's bytes between file and native order in
 * place, by block type. `entry` gives the slot chains their first free
 * word; `word0` is the index of buf's first word in the block, so a block
 * can be converted in pieces. */
void sdf_swap_header(sdf_hdr *h);
void sdf_swap_block(void *buf, int type, int64_t bytes, const sdf_blkent *entry, int64_t word0,
                    int to_native);
/* The walk over the size words and free links of a slot block (types 4 and
 * 6), carried from one piece to the next: start it from the block's entry,
 * then hand it the pieces in order. sdf_swap_block uses it for a piece that
 * starts at word 0. */
typedef struct sdf_slot_walk {
    int64_t next_slot; /* word index of the next size word */
    int64_t next_free; /* word index of the next free slot, -1 when none */
    int64_t link;      /* word index of a free link still to convert, -1 */
} sdf_slot_walk;
void sdf_slot_walk_start(sdf_slot_walk *w, const sdf_blkent *entry);
void sdf_swap_slots(void *buf, int64_t bytes, int64_t word0, sdf_slot_walk *w, int to_native);

/* ---------------------------------------------------- open and close */

/* Creates an empty file (header alone) and a channel record for it.
 * sex: 0 native, 1 big-endian, 2 little-endian. */
int sdf_create_file(const char *path, int sex, int case_insensitive, fcb **out);
/* Opens an existing file: checks the magic, guard and version, loads the
 * block table, the variables and the dimensions. 3050 to 3054 on refusal. */
int sdf_load_file(const char *path, int writable, fcb **out);
/* The same, and *refusal (may be null) gets the code 3050 to 3054 behind a
 * refusal that the result passes up as 3000, else 0: Sdf_Open returns it. */
int sdf_load_file_refusal(const char *path, int writable, fcb **out, int *refusal);
/* Commits (when writable and commit is set), trims unused chunks off the
 * end, truncates, and frees everything; the fcb is gone afterwards. When the
 * commit fails nothing is freed and its code is returned: the fcb stays
 * usable, and a close with commit 0 drops it. */
int sdf_close_file(fcb *f, int commit);
/* Checks of a header as read (native order): guard and version. */
int sdf_check_header(const sdf_hdr *h, const char *name);
/* Loads and checks the block table (open time). */
int sdf_read_blkinf(fcb *f);

/* ------------------------------------------------------------ channels */

/* The channel table (chlist): 256 rows at first, growing by 256. Channel 0
 * belongs to internal files; file channels come from 1 up; a number is free
 * again as soon as its channel closes. All of these run under the global
 * mutex (the caller holds it). sdf_chan_init creates the table (0 or 3025);
 * sdf_chan_shutdown frees it, channels must be closed by then. */
int sdf_chan_init(void);
void sdf_chan_shutdown(void);
/* Rows in the table (0 before the start). */
int sdf_chan_capacity(void);
/* The channel's record, or null when it isn't open. */
fcb *sdf_chan_get(int channel);
/* Stores f at the lowest free number from `from` up (growing the table) and
 * sets f->number; the number, or -1 when none can be had (3038 is the
 * caller's to report). */
int sdf_chan_take(fcb *f, int from);
/* Empties a row; the record is the caller's. */
void sdf_chan_release(int channel);
/* The first channel of an open file that isn't internal, by absolute path or
 * by lock FID plus last path component; of an internal file by name. */
fcb *sdf_chan_find_path(const char *path);
fcb *sdf_chan_find_fid(int64_t fid, const char *path);
fcb *sdf_chan_find_internal(const char *name);
/* Chain of the channels on one file (sdfile.first_channel, fcb.prev/next). */
void sdf_chain_append(sdfile *s, fcb *f);
void sdf_chain_remove(sdfile *s, fcb *f);
/* A record for another channel on an open file: options empty, prefix on,
 * no handle yet. Null when out of memory. */
fcb *sdf_chan_new_fcb(sdfile *s, const char *routine);
/* Frees a record that shares its file: its options and itself; drops its
 * handle (closed with the last reference). */
void sdf_chan_free_fcb(fcb *f);
/* A handle of its own on path: "rb" (write 0) or "r+b". 3040 on failure. */
int sdf_ios_open(const char *path, int write, const char *routine, sdfios **out);
void sdf_ios_drop(sdfios *io);
/* Lookups of public operations: 3001 for a channel not open, 3002 for a
 * changing one on a read-only channel, 3051 for a file whose tables were
 * lost by a failed refresh. The begin forms also take the file's
 * reader-writer lock (when Thread_Safe is on and the channel's counts don't
 * hold it already); *taken goes to the matching end. */
int sdf_chan_lookup(int channel, int writing, const char *routine, fcb **out);
int sdf_chan_read_begin(int channel, const char *routine, fcb **out, int *taken);
void sdf_chan_read_end(fcb *f, int taken);
int sdf_chan_write_begin(int channel, const char *routine, fcb **out, int *taken);
void sdf_chan_write_end(fcb *f, int taken);
/* Brings the tables up to date with the file when its header's time moved;
 * 0 when nothing changed. After a failed load the file has no tables. */
int sdf_refresh_fcb(fcb *f);
/* An internal file (memory only, no handle) with a new header and empty
 * tables; name and path are `name`. 3025 when out of memory. */
int sdf_create_internal(const char *name, int case_insensitive, fcb **out);
/* The core of Sdf_Close on a channel that the caller looked up; the caller
 * holds the global mutex and the file's write lock (when locking is on).
 * 0 or above: the file object is still there and this is the code; below 0:
 * it is gone, -1 is success and any other value is minus the code. */
int sdf_close_chan(fcb *f, const char *status);

/* -------------------------------------------------------- lock files */

/* What a lock file says (line 1 and line 2). pid 0: no lock. */
typedef struct sdf_lockinfo {
    int64_t pid;       /* the library's process stamp, not the OS pid */
    int64_t fid;
    int32_t write;
    int32_t sys_pid;   /* from line 2, -1 when absent */
    char host[257];
    char line2[257];   /* without its line feed, for messages */
} sdf_lockinfo;

/* Takes the process identity (stamp, OS pid, host, user, program); run once
 * by the library start. Every reader of the identity also retakes it when
 * the OS pid changed, so a child made by fork() is a process of its own. */
void sdf_lock_identity_init(void);
/* This process's stamp (PID of lock files). */
int64_t sdf_lock_self_pid(void);
/* This process's host name ("unknown" when it can't be had) and line 2 of
 * the lock files it writes, without the line feed. */
const char *sdf_lock_host(void);
const char *sdf_lock_line2(void);
/* The creator text " by PROGRAM (PID n) on HOST. User: USER" into out
 * (size bytes), with program, host and user cut so that the text stays
 * within 210 characters less the "(PID n)" text. */
void sdf_lock_creator_text(char *out, size_t size, const char *program, int sys_pid,
                           const char *host, const char *user);
/* The time in microseconds since 1970 (the clock of PID and FID). */
int64_t sdf_lock_now_us(void);
/* Whether an OS process id names a running process: ids <= 0 never do; a
 * live process of another user does. */
int sdf_process_running(int sys_pid);

/* Takes the second-level lock lock2 (P".lock.lock"), breaking one that is
 * stale. 0 held; 3045 not had within 5 seconds; 3042 no file can be created
 * there. Reports nothing: the caller words the failure. */
int sdf_get_lockfile_lock(const char *lock2);
/* Creates lock file `lock` exclusively with the four lines; a *fid of 0 is
 * replaced by the current time. 0; 3042 when the directory is missing or
 * refuses; 3000 for any other failure (an existing file among them), errno
 * kept. Reports nothing. */
int sdf_write_lockfile(const char *lock, int64_t *fid, int write);
/* Reads lines 1 and 2 of lock file `lock` into info (sys_pid -1 and host
 * empty when line 2 has no "(PID"). 0 parsed; 1 present but not parsable;
 * -1 missing; 3040 could not be opened or read (reported when `report`). */
int sdf_read_lockfile(const char *lock, sdf_lockinfo *info, int report);

/* The open-time lock step for an SDF file at absolute path: waits 10 ms,
 * takes the second-level lock, judges P".lock" and writes one where due.
 * A reader with option No_Read_Lock "Yes" returns 0 at once, nothing held.
 * On success the second-level lock is held when *held is set (a reader in a
 * directory it can't write gets no lock and nothing held); release it with
 * sdf_lock_release_second after the reconciliation. On failure nothing is
 * held and nothing written. `info` gets the lock that stands (pid 0 for
 * none; line2 for the 3037 message), `*wrote` whether this call wrote it.
 * is_new: the file is being created (NEW/FRESH). Codes 0, 2002 (a stray lock
 * beside a missing file could not be removed; the step went on), 3000 (an
 * unopenable lock, 3040 reported below), 3041, 3043, 3044, 3045, 3046. */
int sdf_lock_open(const char *path, int is_new, int write_intent, sdf_lockinfo *info,
                  int *wrote, int *held);
/* Reconciles an sdfile already open in this process with the lock found at
 * open (the table of cases), with the second-level lock held. When it
 * rewrites the lock as this process's, info is updated to say so. Codes 0,
 * 3046, 4001. */
int sdf_lock_reconcile(sdfile *s, sdf_lockinfo *info, int write_intent, int wrote,
                       const char *path);
/* The path of a file whose lock this process wrote in an open that hasn't
 * given it a channel yet (null when none): an allocation failure that ends
 * the process in between still removes that lock. sdf_lock_pending sets it,
 * null clears it. */
void sdf_lock_pending(const char *path);
/* The record of a file a load is building (between its open and its
 * entry in the channel table), or null: the allocation-failure hook must
 * release that one's locks too. */
fcb *sdf_file_in_making(void);
const char *sdf_lock_pending_path(void);
/* Deletes P".lock.lock"; 2002 on failure (one already gone is no failure). */
int sdf_lock_release_second(const char *path);
/* Removes a lock file this open wrote, after a failed open (takes and
 * releases the second-level lock itself; leaves a lock of another process). */
void sdf_lock_undo(const char *path);
/* Close, before the decision: reads P".lock" under the second-level lock.
 * *exists: there is a lock file; *ours: it names this process. Codes 0,
 * 3045 ("after 5 seconds."). In a directory where no second-level lock can
 * be made the lock file is read without it. */
int sdf_lock_peek(const char *path, int *exists, int *ours);
/* At close of the last channel: reads the lock under the second-level lock;
 * deletes it when it is this process's (2002 on failure); warning 2001 when
 * it isn't (or is gone) and the closing channel was writable. 0, 2001, 2002,
 * 3045. */
int sdf_lock_close(sdfile *s, const char *path, int was_writable);
/* When the last writer closes and readers stay: rewrites this process's
 * lock with the same FID and WRITE=0 under the second-level lock, and notes
 * it in s; a lock of another process is left alone. 0, 3044, 3045, 3000. */
int sdf_lock_downgrade(sdfile *s, const char *path);

/* ------------------------------------------------------------- slots */

/* With n >= 1 allocates a slot for a request of n units of chain_type (4
 * varnam chars, 5 arrdim i64, 6 chrvar chars, 7 arrdim i32) and fills ref;
 * with n == 0 gives the payload of ref as it stands (null for block 0; for
 * chain types 4 and 6 the payload is checked to hold its NUL). A chrvar
 * payload stays valid until the next operation that loads another chrvar
 * block. Returns the payload's address, or null with *err set (0 for block
 * 0): 4001 for a bad chain_type or request, or the "can't happen" state of a
 * block whose largest free isn't on its list; 3051 for a reference that
 * doesn't fit its block; 3000 passed up from the block layer. */
void *sdf_get_slot(fcb *f, int chain_type, int n, sdf_slotref *ref, int *err);
/* Releases a slot (chain_type 4, 5 or 6) and clears ref; the block leaves
 * its chain when its last slot goes. Block 0 is a no-op. 4001 for another
 * chain_type or a block that isn't in the chain, 3051 for a reference that
 * doesn't fit its block or a slot that is already free, 3000 passed up. */
int sdf_free_slot(fcb *f, int chain_type, sdf_slotref *ref);
/* Loads a chrvar block into an LRU buffer (evicting, and committing, when
 * all 64 are taken); 3000 passed up on a failed read or commit. */
int sdf_read_slotblock(fcb *f, int block);
/* Gives a chrvar block a buffer and an LRU row; the commit of an evicted
 * modified block runs through s->writer. 0, 3000 or 4001. */
int sdf_alloc_slotblock(sdfile *s, int block);
/* Evicts the least recently used chrvar buffer, committing first when it is
 * modified; 0 when there was none. 3000 passed up from the commit. */
int sdf_free_lru_slotblock(sdfile *s);
/* Drops every chrvar buffer and its row (at close and refresh). Must run
 * while s->blks still exists, before sdf_free_blks. */
void sdf_drop_slotblocks(sdfile *s);

/* ---------------------------------------------------- variable table */

/* Creates the list with room for size rows plus an allowance (capacity 128
 * below size 1; with extra the smallest doubling of 128 that holds size +
 * extra); key[p] = p. Null when out of memory. */
vars *sdf_new_vars(int size, int extra);
/* Frees the list (not the blocks its rows point into); null is ignored. */
void sdf_free_vars(vars *v);
/* The row of a name, or null; *pos is where it stands or would be inserted.
 * The name is taken as given: the caller has applied the prefix. */
ventry *sdf_find_var(fcb *f, const char *name, int *pos);
/* A new variable with an empty record (type 0) at sorted position pos, which
 * sdf_find_var gave. Null with *err: 3005 for a name that is empty or longer
 * than 512, 4001 for a bad position or the "can't happen" free record in a
 * block not in memory, 3051 for a broken free list, 3000 passed up. Row
 * pointers are valid until the next insert. */
ventry *sdf_insert_var(fcb *f, const char *name, int pos, int *err);
/* Frees everything the variable holds and its record, and takes it off the
 * key; a varinf block that empties goes back to the unused chain. 4001 when
 * row and pos disagree; a failure to free a part is passed up (3000) after
 * the rest of the delete went through. */
int sdf_delete_var(fcb *f, ventry *row, int pos);
/* Gives the variable at oldpos a new name and moves it in the key; newpos
 * is where sdf_find_var placed the new name. 4001 for bad positions, 3005
 * for a bad name length, 3000 passed up. */
int sdf_rename_var(fcb *f, const char *name, int oldpos, int newpos);
/* Frees the value (dimensions and data chain, or the character slot, or the
 * scalar bytes) and clears type and elen; stamps. 0 or 3000 passed up. */
int sdf_clear_val(fcb *f, ventry *row);
/* Adds a varinf block with room for at least `records` records and puts
 * them on the free list. 0, 4001 out of memory, 3000 passed up. */
int sdf_extend_varinf_chain(sdfile *s, int records);
/* Open time: loads the varnam and varinf chains into buffers of their own,
 * checks each record (3051 "is corrupt: ..."), builds s->vars (replacing any
 * list there) sorted by name, and indexes the free records. */
int sdf_read_varinf(fcb *f);
/* Open time, after sdf_read_varinf: loads the arrdim chain, checks every
 * array's dimension slot (3051), and upgrades a file below version 3 in
 * memory (warning code 1 in the error set). */
int sdf_read_arrdim(fcb *f);
/* At a close with "DOWNGRADE": dimensions to i32 slots and version 1.0;
 * 3024 (nothing changed) when an extent doesn't fit 32 bits. */
int sdf_downgrade_arrdim(fcb *f);
/* Compares two names by the file's case rule (ASCII upper case when
 * case-insensitive); <0, 0, >0. */
int sdf_name_cmp(const sdfile *s, const char *a, const char *b);
/* Rebuilds the in-memory index of the free records from the on-disk list
 * (open time); 3051 when the list is broken, out of order or names a record
 * in use. */
int sdf_index_free_records(fcb *f);
/* Reports 3051 "File "<name>" is corrupt: <text>" with a printf-style text
 * and returns 3051. */
int sdf_corrupt(const char *routine, const sdfile *s, const char *fmt, ...);

/* ------------------------------------------------ lookups and values */

/* Puts the channel's option Prefix in front of name into out (514 bytes,
 * cut to 513 characters) unless the option is empty, the channel's prefix
 * flag is off, or the name starts with the prefix already (by the file's
 * case rule). A null name counts as empty. Returns 1 when it prefixed. */
int sdf_apply_prefix(const fcb *f, const char *name, char out[514]);

/* What a lookup accepts. */
enum {
    SDF_WANT_ANY = 0,    /* any variable */
    SDF_WANT_ARRAY = 1,  /* an array: 3012 otherwise */
    SDF_WANT_SCALAR = 2, /* any scalar: 3013 for an array */
    SDF_WANT_CHAR = 3,   /* a character scalar: 3013 array, 3015 other scalar */
    SDF_WANT_NUMBER = 4  /* a non-character scalar: 3013 array, 3014 character */
};
/* The variable `name` (prefix applied) of the kind `want`, or null with *rc
 * set and the failure reported from `routine`: 3005 invalid name, 3010 not
 * there, 3012 to 3015 by `want`. full (514 bytes) gets the prefixed name and
 * *pos the sorted position (where it would go when missing); both may be
 * null, and both are filled for a missing variable too. */
ventry *sdf_lookup_pos(fcb *f, const char *routine, const char *name, int want, char *full,
                       int *pos, int *rc);
ventry *sdf_lookup(fcb *f, const char *routine, const char *name, int want, int *rc);

/* The row a define or write stores into, prefix applied: 3005 for an
 * invalid name. A missing variable is inserted (*rc 0). An existing one
 * follows option Overwrite: "No" returns null with *rc 0, or the warning
 * 2011 (reported from routine) under Overwrite_Warn "Yes" — nothing is
 * changed; "Yes" clears its value with sdf_clear_val and returns the row
 * with *rc 0, or 2010 (reported) under Overwrite_Warn "Yes". Failures:
 * null with 3005, or 3000 passed up from the table. */
ventry *sdf_value_row(fcb *f, const char *routine, const char *name, int *rc);

/* Stores units or a description of a variable: a non-empty text equal to
 * the slot's leaves all as it is, unstamped; another text replaces the slot
 * and stamps; null or empty frees the slot (stamping when there was one).
 * 0, or 3000 passed up from the slot layer. */
int sdf_units_put(fcb *f, ventry *row, const char *text);
int sdf_desc_put(fcb *f, ventry *row, const char *text);

/* The units and description of a replacement, made before the variable
 * changes so that a failure leaves it as it was. sdf_texts_stage compares
 * each text with the field of `old` (null for a new variable) by the rules
 * of sdf_units_put and makes a new slot for each that changes; with
 * with_units 0 the units are left alone. 0, or 3000 passed up with nothing
 * changed and nothing held. sdf_texts_install then puts the staged fields
 * into row (stamping when any changed) and frees the slots they replace:
 * the variable is replaced either way, and 3000 passed up only tells that an
 * old slot could not be freed. sdf_texts_drop frees what was staged. */
typedef struct sdf_texts {
    sdf_slotref slot[2]; /* units, description: the new slot (block 0: none) */
    int32_t set[2];      /* 1 when the field takes slot[k] */
} sdf_texts;
int sdf_texts_stage(fcb *f, const ventry *old, const char *units, const char *desc, int with_units,
                    sdf_texts *t);
int sdf_texts_install(fcb *f, ventry *row, sdf_texts *t);
void sdf_texts_drop(fcb *f, sdf_texts *t);

/* The commit that option Write "Always" asks for after a change: runs
 * sdf_write_modified_blocks on a file that isn't internal; 0 otherwise, or
 * 3000 passed up naming routine. */
int sdf_commit_if_always(fcb *f, const char *routine);

/* Compiles a template (prefix applied, upper-cased on a case-insensitive
 * file) into buf (ZU_PAT_BUFSIZE bytes), quiet unless bit 0 of Error_Out is
 * set; 3006 reported from routine when it doesn't compile. sdf_match_name
 * matches a variable name by the file's case rule. */
int sdf_compile_template(const fcb *f, const char *routine, const char *templ, unsigned char *buf);
int sdf_match_name(const fcb *f, const char *name, const unsigned char *buf);

/* -------------------------------------------------------- user cache */

/* A buffer row of the user cache. Rows 1..rows-1 hold buffers; row 0 is the
 * head of the LRU ring: buffer[0].next is the least recently used row and
 * buffer[0].prev the most recently used. A buffer holds chunks first..last
 * of one data block (chunks == 0: empty), in the file's byte order, and
 * never passes the block's end; its stretch starts at a multiple of
 * chunks_per_buffer from the block's start. */
typedef struct sdf_cache_row {
    unsigned char *data; /* chunks_per_buffer chunks, allocated at first use */
    int32_t first;       /* first chunk held (file chunk number) */
    int32_t last;        /* last chunk held */
    int32_t chunks;      /* chunks held; 0 for an empty buffer */
    int32_t next, prev;  /* LRU ring */
    int32_t modified;    /* 1 when the buffer differs from the file */
} sdf_cache_row;

typedef struct sdf_cache {
    sdf_cache_row *buffer;     /* rows, row 0 the ring's head */
    int32_t *key;              /* key[1..filled]: filled rows sorted by first chunk */
    int32_t rows;              /* rows including row 0 */
    int32_t filled;
    int32_t modified;          /* filled rows with modified set */
    int32_t chunks_per_buffer;
    int32_t max_transfer;      /* bytes; a larger transfer bypasses the cache */
    struct sdfile *owner;
} sdf_cache;

/* Fills the least recently used buffer with the stretch of `block` that
 * holds `chunk` (writing back what it held when modified) and makes it the
 * most recently used; *row gets it. Caller holds the cache mutex. 0, 3083
 * on a failed read, 3000 passed up from sdf_write_cache. */
int sdf_get_cache(fcb *f, int block, int chunk, int *row);
/* Writes buffer `row` back to the file and clears its flag; 0 or 3084. The
 * transfer goes through the file's writer channel when it has one. */
int sdf_write_cache(fcb *f, sdf_cache *c, int row);
/* Writes back every modified buffer of f's file, in chunk order; 0 when
 * there is no cache, 3000 passed up. Takes the cache mutex. */
int sdf_write_modified_caches(fcb *f);
/* Writes back the modified buffers and frees the cache; on a failure the
 * cache stays and the code (3000 passed up) is returned. Takes the mutex. */
int sdf_remove_cache(fcb *f);
/* Frees the cache without writing anything (a file leaving memory). */
void sdf_drop_cache(sdfile *s);
/* Empties every buffer without writing (refresh), or those that overlap
 * chunks first..last (a freed data block). Take the cache mutex. */
void sdf_cache_empty_all(sdfile *s);
void sdf_cache_empty_range(sdfile *s, int first, int last);
/* A data block grew in place from old_chunks to new_chunks: a buffer that
 * holds its old last chunk takes in the new chunks, as zeros, up to its
 * capacity. Call after the entry's chunks were updated. */
void sdf_cache_extend(sdfile *s, int block, int old_chunks, int new_chunks);
/* The cache's part of a transfer of n bytes at byte position pos of data
 * block `block` (file order on both sides). *done tells whether the cache
 * took it; when not, the caller transfers straight to the file, the cache
 * having written back and emptied what it must first. 0, 3083 or 3084
 * reported here, 3000 passed up. */
int sdf_cache_read(fcb *f, int block, int64_t pos, int64_t n, void *buf, int *done);
int sdf_cache_write(fcb *f, int block, int64_t pos, int64_t n, const void *buf, int *done);


/* ------------------------------------------------- arrays and slices */

/* Dimension, start, begin, end and step arrays are i64[8] here: element 0
 * the rank, then one value per dimension, indices counted from 0. */

/* Rank and extents of an array's dimension slot into dims[8]. 0, or 3000
 * passed up from the slot layer (3051 for a slot that doesn't hold them). */
int sdf_array_dims(fcb *f, const ventry *row, int64_t dims[8]);
/* Stores rank and extents into the array's dimension slot (the rank must be
 * the slot's) and marks its block modified. */
int sdf_array_put_dims(fcb *f, const ventry *row, const int64_t dims[8]);
/* Creates (or by option Overwrite replaces) an array of base type `type`
 * with element size max(1, clen) for characters: 3005, 3020, 3021; warnings
 * 2010/2011 as sdf_value_row gives them; 3000 passed up. */
int sdf_define_array(fcb *f, const char *name, int type, int clen, const int64_t *dims,
                     const char *units, const char *desc);
/* sdf_define_array of a non-character array on an internal file that takes
 * the caller's block, from ZU_allocMem*, as the array's buffer instead of
 * allocating one: the elements stand at its start, and it holds `size`
 * bytes. When the block is taken, *block is set to null and the array owns
 * it; otherwise (another file, a block smaller than the array's chunks, a
 * refused define) it stays the caller's and the define, if any, allocates as
 * usual, so the caller must check *block to know which happened. */
int sdf_define_array_adopt(fcb *f, const char *name, int type, const int64_t *dims, const char *units,
                           void **block, size_t size);
/* The same on a channel, under its lock, reported as Sdf_Define_Array64. */
int sdf_adopt_array(int channel, const char *name, int type, const int64_t *dims, const char *units,
                    void **block, size_t size);
/* Whether a start array says anything (rank above 0) and whether it fits an
 * array of dims: 0, 3022 (wrong rank) or 3023 (rank above 7, an index below
 * 0), reported from routine with `what` ("start", "begin", ...). */
int sdf_check_index_array(const char *routine, const char *what, const char *name,
                          const int64_t *a, const int64_t dims[8]);
/* Elements from start (null or rank 0: the first) to the end of the array;
 * 0 when the start lies behind it. */
int64_t sdf_array_left(const int64_t dims[8], const int64_t *start);
/* Reads up to n elements (n <= 0: to the end) from start (may be null; when
 * given it is moved behind the last element read) into *data, which when
 * null gets registered memory on a file, or the address inside the array's
 * buffer on an internal file. *nread gets the count. 0, 3025, 4001 for a
 * chain shorter than the record says, 3000 passed up. */
int sdf_array_read(fcb *f, ventry *row, int64_t *start, int64_t n, void **data, int64_t *nread);
/* Writes n elements at start (null or rank 0: behind the end, which appends
 * along the last dimension), growing the array and its chain as needed;
 * start is moved behind the last element written. On a file the tables are
 * committed before any data land. 0, 3023 (the chain would need 2^31 chunks
 * or more), 3025, 4001, 3000 passed up. */
int sdf_array_write(fcb *f, ventry *row, int64_t *start, int64_t n, const void *data);

/* A slice in normal form: defaults filled in, steps signed by direction,
 * ends pulled back to the last index the step reaches. */
typedef struct sdf_slice {
    int64_t dims[8];  /* the array's */
    int64_t begin[8];
    int64_t end[8];
    int64_t step[8];
    int32_t tr[8];    /* tr[0] 0 for none */
    int64_t count;
    int32_t nout;     /* dimensions of the slice with more than one element */
    int64_t shape[8]; /* their extents, in slice order (rank nout) */
    int64_t odims[8]; /* the dimension array a read gives back: shape as
                         tr permutes it; rank 1, extent 1 for one element */
} sdf_slice;
/* Normalises begin/end/step/tr_vec (each may be null or rank 0) against the
 * array: 2020 for an array whose last extent is 0 (count 0); 3022/3023 with
 * "begin", "end", "step" or "tr_vec"; 3023 "step" for a step of 0. */
int sdf_slice_args(fcb *f, ventry *row, const int64_t *begin, const int64_t *end,
                   const int64_t *step, const int32_t *tr_vec, sdf_slice *sl);
/* Reads the slice into *data (null: registered memory for sl->count
 * elements); dims (may be null) gets the extents of the dimensions with more
 * than one element, transposed as sl->tr says. */
int sdf_slice_read(fcb *f, ventry *row, const sdf_slice *sl, void **data, int64_t dims[8]);
/* Writes sl->count elements of data into the slice. */
int sdf_slice_write(fcb *f, ventry *row, const sdf_slice *sl, const void *data);

/* Converts n elements between any two of the eight base types; from_elen
 * and to_elen matter for CHAR only. f (may be null) gives the format
 * options. 0, or 3020 for an unknown type. */
int sdf_convert(int from_type, int from_elen, const void *from, int to_type, int to_elen, void *to,
                int64_t n, const fcb *f);
/* The element size of a conversion's target in new memory: the type's
 * size, or for CHAR the width the channel's format gives a wide value of
 * base type `from`. */
int sdf_convert_width(const fcb *f, int from, int to);
/* The base routines through a conversion: the caller's data are of `type`
 * (base code) with element size elen (0: the natural size, or the width of
 * sdf_convert_width for CHAR). A null *data gets registered memory. */
int sdf_array_read_as(fcb *f, ventry *row, int64_t *start, int64_t n, int type, int elen,
                      void **data, int64_t *nread);
int sdf_slice_read_as(fcb *f, ventry *row, const sdf_slice *sl, int type, int elen, void **data,
                      int64_t dims[8]);
int sdf_array_write_from(fcb *f, ventry *row, int64_t *start, int64_t n, int type, int elen,
                         const void *data);
int sdf_slice_write_from(fcb *f, ventry *row, const sdf_slice *sl, int type, int elen,
                         const void *data);

/* Character arrays: from elements of elen bytes (blank-padded) to strings
 * and fixed-width fields, and back. */
char **sdf_chars_to_strings(const char *elems, int elen, int64_t n, const char *tag);
void sdf_chars_to_fields(const char *elems, int elen, int64_t n, char *out, int width);
void sdf_strings_to_chars(char *const *strings, int elen, int64_t n, char *out);
void sdf_fields_to_chars(const char *fields, int width, int elen, int64_t n, char *out);

#ifdef __cplusplus
}

/* A temporary buffer of the library's allocator (not zeroed), freed however
 * the routine that holds it ends. */
struct sdf_temp {
    void *p = nullptr;
    sdf_temp() = default;
    sdf_temp(const sdf_temp &) = delete;
    sdf_temp &operator=(const sdf_temp &) = delete;
    ~sdf_temp() { ZU_freeMem(p); }
    /* Null when out of memory; a size of 0 still gives a buffer. */
    unsigned char *take(size_t bytes, const char *tag)
    {
        p = ZU_allocMemNoZero(bytes ? bytes : 1, tag);
        return data();
    }
    unsigned char *data() const { return static_cast<unsigned char *>(p); }
    char *chars() const { return static_cast<char *>(p); }
};
#endif

#endif
