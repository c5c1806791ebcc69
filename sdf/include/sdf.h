/* The SDF library's public interface, callable from C.
 *
 * Every operation returns an integer code: 0 for success, 2000 to 2999 a
 * warning (the operation was carried out or skipped), 3000 to 3999 an error,
 * 4000 and above a fault inside the library. A failure found below the
 * public operation comes back as its family code (2000, 3000 or 4000); the
 * specific code stands in the utility library's error set. */
#ifndef SDF_H
#define SDF_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define SDF_API __attribute__((visibility("default")))

/* Element type codes; an array has the base code plus 100. */
#define SDF_CHAR_T 1
#define SDF_INT_T 11
#define SDF_INT64_T 12
#define SDF_LOG_T 15
#define SDF_REAL_T 21
#define SDF_DBLE_T 22
#define SDF_CMPX_T 31
#define SDF_DCMPX_T 32

/* Whether a name is valid: 1 to 512 characters; first a letter or "_";
 * then letters, digits, "_", "$", ":", "@", "~"; last not "$". 1 or 0. */
SDF_API int Sdf_Valid_Name(const char *name);
/* Copies a name into buf (513 bytes), made valid: empty gives "_", longer
 * than 512 is cut, each offending character becomes "_". Returns whether the
 * name was valid as given. */
SDF_API int Sdf_Fix_Name(const char *name, char *buf);

/* ---------------------------------------------------------------- options
 * Options are "name=value" items separated by commas; names and keyword
 * values compare without regard to case. */

/* Sets options for the process (and starts the library on first use).
 * Every item is tried; returns 0 or the code of the last failing item:
 * 3060 unknown option, 3061 value not allowed, 3062 no value for an option
 * that needs one. Thread_Safe=Yes turns locking on for good. */
SDF_API int Sdf_Set_Opts(const char *text);
/* Copies the current text of option `name` into value (at least 128 bytes,
 * may be null). 0, or 3060 for an unknown name (value then empty). */
SDF_API int Sdf_Get_Opt(const char *name, char *value);
/* Option stack of the process. mode >= 0 selects level min(mode, top);
 * -1 pushes the built-in defaults; -2 a copy of the current options; -3 to
 * -7 the level as it was last used (a copy when new); -8 and below a new
 * level above the top that Sdf_Pop leaves for the level current now (-9 with
 * the defaults, others a copy). 0, or 3025 when out of memory. */
SDF_API int Sdf_Push(int mode);
/* Back to the level before; nothing at level 0. Returns 0. */
SDF_API int Sdf_Pop(void);
/* The level in use, 0 before any push. */
SDF_API int Sdf_Opt_Depth(void);

/* ------------------------------------------------------------ lock files
 * Beside an SDF file P, P".lock" names the process that holds it. */

/* Who holds the SDF file at path: -1 a writer, 1 a reader, with line 2 of
 * the lock file (its "Created ... by ..." text, at most 256 characters) in
 * text when text isn't null (give 257 bytes). 0 when the path is blank, P or
 * P".lock" is missing, unreadable or unparsable, or the lock doesn't count:
 * option Lock_Life_Hrs is 0, or above 0 and the lock older than that, or the
 * lock's process on this host is no longer running. */
SDF_API int Sdf_Lockfile_Info(const char *path, char *text);
/* Deletes P".lock" and P".lock.lock" where they exist; both are tried. 0, or
 * 3044 when either could not be deleted. A blank path gives 0. */
SDF_API int Sdf_Delete_Lockfile(const char *path);

/* ------------------------------------------------------ files and channels
 * A channel is a small number from Sdf_Open that every later call takes.
 * Keywords compare without regard to case. A path is blank when it is null
 * or starts with NUL or a space. */

/* Opens or creates a file and stores its channel in *channel when the result
 * is below 3000. type: "BINARY" (or "UNKNOWN"), "SCRATCH" or "INTERNAL";
 * status: "OLD", "NEW", "FRESH", "UNKNOWN" (old when the file exists) or
 * "SCRATCH" (a scratch file, opened FRESH, whatever the type says); intent:
 * "READ" or "WRITE" (scratch and internal files default to WRITE). A scratch
 * file without a path is "PID<pid>.scratch_<n>.SDF" in the working directory;
 * an internal file lives in memory only ("internal_sdf_<n>" without a path).
 * Refusals, in the order they are tested: 3030 bad TYPE, 3033 READ on NEW or
 * FRESH, 3039 binary file without a path, 3031 bad STATUS, 3032 bad INTENT,
 * 3041 no read access, 3043 NEW file in a directory without write access,
 * 3034 OLD file missing, 3035 NEW file exists, 3042 WRITE on a file without
 * write access (and on an internal file that is open already), 3045/3046/3044
 * lock file trouble, 3036 FRESH on a file open in this process (or that
 * another process holds), 3037 WRITE on a file another process writes (its
 * lock file's second line in the message), 3040 the file can't be opened or
 * created, 3050 not an SDF, 3051 corrupt or caught in another process's
 * commit, 3052 damaged by a text-mode transfer, 3053 an old SDF, 3054 a newer
 * version, 3038 no free channel, 3025 out of memory; 3000 passed up. */
SDF_API int Sdf_Open(int *channel, const char *path, const char *type, const char *status, const char *intent);
/* Closes a channel; status "KEEP", "DELETE" or "DOWNGRADE" (any text for an
 * internal file). With other channels on the file open the status doesn't
 * apply; when the last writer of several leaves, the rest fall back to read
 * handles. The last channel commits (KEEP, DOWNGRADE) or deletes the file
 * (DELETE) and drops its lock file. 3001 not open; 3031 bad status and 3020
 * an INT64 variable at DOWNGRADE, both with the channel still open; 3000 a
 * failed commit (still open) or a failure after the channel was removed;
 * 2002 the file couldn't be deleted (or another process has it open), 2001
 * the lock file was gone. */
SDF_API int Sdf_Close(int channel, const char *status);
/* Loads the tables again when another process changed the file since; does
 * nothing while a writable channel on it is open here, or for an internal
 * file. 0, 3001, 3000 passed up (the file caught mid-commit: 3051 in the
 * error set; when the new tables can't be loaded, the channel can only be
 * closed). */
SDF_API int Sdf_Refresh(int channel);
/* Writes what is modified to the file. 0 (also for an internal file),
 * 3001, 3002 on a read-only channel, 3000 passed up. */
SDF_API int Sdf_Write(int channel);
/* As Sdf_Write, then flushes the system's buffers to the disk. 0 on a
 * read-only channel or internal file; 3001, 3082 the flush failed, 3000. */
SDF_API int Sdf_Flush(int channel);
/* Facts of the file in info[7]: [0] 0 for an SDF magic, else 1; [1] major
 * and [2] minor version; [3] 2 little-endian, 1 big-endian; [4] chunk size;
 * [5] chunks in the file; [6] unused chunks. 0, 3001, 4001 for null info. */
SDF_API int Sdf_Fileinf(int channel, int32_t *info);
/* The name as given to Sdf_Open, in a static buffer (not for threads);
 * empty when the channel isn't open. */
SDF_API const char *Sdf_Filename(int channel);
/* The same in buffer (size bytes; below 1 counts as 2049), at most 2048
 * characters. A null buffer is allocated with that size; give it back with
 * Sdf_Free. Returns the buffer, null when out of memory. */
SDF_API char *Sdf_FilenameTS(int channel, char *buffer, int size);
/* 1 and the first channel in *channel (may be null) when an internal file of
 * that name or a file of that path is open in this process; 0 and -1 when
 * not; 0 for a blank path, *channel untouched. */
SDF_API int Sdf_Is_Open(const char *path, int *channel);
/* 1 when the file is open in this process, or exists and starts with the
 * SDF magic; else 0. */
SDF_API int Sdf_Is_Sdf(const char *path);

/* Options of one channel; they take the place of the process's options for
 * the non-general rows (8 and up). The same contracts as the process forms,
 * plus 3001 for a channel not open and 3063 for a general option. */
SDF_API int Sdf_Set_Opts_Chan(int channel, const char *text);
SDF_API int Sdf_Get_Opt_Chan(int channel, const char *name, char *value);
SDF_API int Sdf_Push_Chan(int channel, int mode);
SDF_API int Sdf_Pop_Chan(int channel);
/* The level in use, or 3001. */
SDF_API int Sdf_Opt_Depth_Chan(int channel);
/* Hold the file's reader-writer lock across calls (Thread_Safe=Yes only;
 * otherwise both do nothing and return 0, open channel or not). mode 1
 * reads, any other value writes. 0, 3001, 3002 write on a read-only
 * channel, 3003 write asked while holding only a read lock. */
SDF_API int Sdf_Mutex_Lock(int channel, int mode);
SDF_API int Sdf_Mutex_Unlock(int channel);

/* Gives back memory that the library handed to the caller: 1 when it was
 * one of those and is now freed, 0 (and nothing done) for any other pointer,
 * null included. */
SDF_API int Sdf_Free(void *ptr);

#ifdef __cplusplus
}
#endif

#endif
