/* The SDF library's public interface, callable from C.
 *
 * Every operation returns an integer code: 0 for success, 2000 to 2999 a
 * warning (the operation was carried out or skipped), 3000 to 3999 an error,
 * 4000 and above a fault inside the library. A failure found below the
 * public operation comes back as its family code (2000, 3000 or 4000); the
 * specific code stands in the utility library's error set. */
#ifndef SDF_H
#define SDF_H

#include <stddef.h>
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

/* ---- User cache of array data. */
/* Replaces the cache of the channel's file: the old one's modified buffers
 * are written back and it is freed; with buffers >= 1 a new one gets
 * max(buffers, 10) buffers of buffer_bytes rounded up to whole chunks (8
 * chunks when buffer_bytes <= 0). Transfers above max_transfer bytes (<= 0:
 * one chunk; never above half a buffer) go straight to the file. Nothing for
 * an internal file. Modified buffers reach the file at Sdf_Write, Sdf_Flush,
 * at close and when evicted. 0, 3001, 3025 out of memory, 3000 passed up
 * (a failed write-back, 3084 in the error set: the old cache stays). */
SDF_API int Sdf_Cache(int channel, int buffers, int buffer_bytes, int max_transfer);

/* ------------------------------------------------- variables and values
 * Every name passes through the channel's option Prefix and must then be a
 * valid name. A failure found below the public form comes back as 3000 with
 * the specific code in the error set: 3005 invalid name, 3010 no such
 * variable, 3012 not an array, 3013 an array where a scalar is wanted, 3014 a
 * character scalar where a number is wanted, 3015 not a character scalar.
 * All of them also give 3001 for a channel that isn't open, the changing ones
 * 3002 on a read-only channel, and 4001 for a null out or value argument.
 * Strings handed out are copies to give back with Sdf_Free; an empty value
 * gives "" rather than null. Changing operations commit under option
 * Write "Always" (not Sdf_Put_Dims). */

/* The base type (type mod 100) and 1 for an array, else 0. */
SDF_API int Sdf_Get_Type(int ch, const char *name, int *type, int *is_array);
/* The element length of the record (string length of a character scalar). */
SDF_API int Sdf_Get_Elen(int ch, const char *name, int *elen);
/* dims[0] the rank (0 for an array without a dimension slot), then the
 * extents. The 32-bit forms return 3024 when an extent passes 2147483647
 * (Sdf_Last_Dim tests the last one only). 3012 below for a scalar. */
SDF_API int Sdf_Get_Dims(int ch, const char *name, int32_t dims[8]);
SDF_API int Sdf_Get_Dims64(int ch, const char *name, int64_t dims[8]);
/* The last extent, 0 without a dimension slot. */
SDF_API int Sdf_Last_Dim(int ch, const char *name, int32_t *extent);
SDF_API int Sdf_Last_Dim64(int ch, const char *name, int64_t *extent);
/* Reshapes an array; the product of the extents must stay the same. 3021
 * below for a rank outside 1..7, a negative extent or another product. */
SDF_API int Sdf_Put_Dims(int ch, const char *name, const int32_t *dims);
SDF_API int Sdf_Put_Dims64(int ch, const char *name, const int64_t *dims);
/* A non-character scalar's value: 4, 8 or 16 bytes by its type. */
SDF_API int Sdf_Get_Val(int ch, const char *name, void *value);
SDF_API int Sdf_Put_Val(int ch, const char *name, const void *value);
/* A character scalar: *text a registered copy, *length (may be null) its
 * length. Sdf_Put_Cval with null or "" leaves length 0. */
SDF_API int Sdf_Get_Cval(int ch, const char *name, char **text, int *length);
SDF_API int Sdf_Put_Cval(int ch, const char *name, const char *text);
/* Creates or replaces a non-character scalar of base type `type` (3020
 * below for 1 or a code that isn't a base type) with units and description
 * (null or "" for none). An existing variable follows option Overwrite:
 * "No" leaves it and returns 0, or 2011 under Overwrite_Warn "Yes"; "Yes"
 * replaces it, returning 2010 under Overwrite_Warn "Yes". */
SDF_API int Sdf_Write_Var(int ch, const char *name, int type, const void *value, const char *units, const char *desc);
/* The same for a character scalar (units of a replaced variable stay). */
SDF_API int Sdf_Write_Char(int ch, const char *name, const char *text, const char *desc);
/* Units and description of any variable; null or "" clears them. Storing
 * the text already there leaves the record's time alone. */
SDF_API int Sdf_Get_Units(int ch, const char *name, char **text);
SDF_API int Sdf_Get_Desc(int ch, const char *name, char **text);
SDF_API int Sdf_Put_Units(int ch, const char *name, const char *text);
SDF_API int Sdf_Put_Desc(int ch, const char *name, const char *text);
/* The address of a value on an internal file: an array's data buffer, a
 * character scalar's string, or the scalar in its record. 3004 for a channel
 * that isn't internal; a null address gives 3025 below under option
 * Where_Mem_Error "Yes". Sdf_Where uses option Default_Internal_Channel. */
SDF_API int Sdf_Where_Chan(int ch, const char *name, void **address);
SDF_API int Sdf_Where(const char *name, void **address);

/* ------------------------------------------------ listing and deleting
 * A text that is a valid name (after the prefix) names one variable, any
 * other is a template: "*" any text, "?" one character, "#" a number,
 * matched without regard to case on a case-insensitive file. */

/* 1 when the variable exists or the template matches a variable; 0 else,
 * also for a channel not open or a template that doesn't compile. */
SDF_API int Sdf_Exists(int ch, const char *name_or_template);
/* Deletes the variable, or every variable the template matches. 0; 2013 for
 * a missing name under option Delete_Warn "Yes" (0 under "No"); 3001, 3002;
 * 3000 with 3006 below for a template that doesn't compile. */
SDF_API int Sdf_Delete(int ch, const char *name_or_template);
/* The names matching a template, in table order, prefix included: *list is
 * one allocation of count + 1 pointers (the last null) and the strings, to
 * give back with Sdf_Free. 0, 3001, 3000 (3006 bad template, 3025 no memory
 * below), 4001 null arguments. */
SDF_API int Sdf_List(int ch, const char *templ, char ***list, int *count);
/* As Sdf_List, filtered and decoded by tags (comma-separated items): a
 * first item "+one_of" or "+all_of" keeps the names that hold at least one
 * or all of the other items as text; the values of name i, (*values)[i], are
 * "tag=value" for each tag found as ":tag_value" in it, comma-separated. */
SDF_API int Sdf_Tag_List(int ch, const char *templ, const char *tags, char ***names, char ***values, int *count);

/* ------------------------------------------------------ arrays and slices
 * An array has 1 to 7 dimensions, the first index fastest, and grows along
 * its last. Dimension, start, begin, end and step arrays hold the rank in
 * element 0, then one value per dimension; indices count from 0. A start,
 * begin, end or step of rank 0 (or null) means the default: reading from the
 * first element, writing behind the last (an append), the whole extent, a
 * step of 1. The forms without "64" take i32 and test on the way out: 2030
 * for a count and 3024 for an extent that doesn't fit 32 bits.
 * Common failures, all as 3000 with the specific code in the error set:
 * 3005 invalid name, 3010 no such variable, 3012 not an array, 3015 a
 * character form on another type, 3022 an index array of the wrong rank,
 * 3023 one with a rank above 7 or a negative index (also a step of 0). 3001
 * and 3002 come back as they are. Memory the library allocates for a result
 * is given back with Sdf_Free. */

/* Creates an array of base type `type` (a character array with elements of
 * max(1, clen) bytes) and extents dims, with units and description (null or
 * empty for none). An existing variable follows option Overwrite: 2010 it
 * was replaced, 2011 it was left (Overwrite_Warn "Yes"), 0 otherwise. A zero
 * extent gives an array without data until the first write. 3005, 3020 bad
 * type, 3021 bad dimensions (as 3000); 3001, 3002. */
SDF_API int Sdf_Define_Array(int ch, const char *name, int type, int clen, const int32_t *dims, const char *units, const char *desc);
SDF_API int Sdf_Define_Array64(int ch, const char *name, int type, int clen, const int64_t *dims, const char *units, const char *desc);
/* Reads `count` elements (0 or less: to the end) from start into *data:
 * a null *data gets new memory on a file, or a pointer into the array on an
 * internal file (valid until the array grows). *nread gets the count read
 * and start moves behind the last element. 2020 fewer than asked; 3023 a
 * start with an index not 0 that gives nothing (behind the end). */
SDF_API int Sdf_Read_Array(int ch, const char *name, void **data, int32_t *start, int32_t count, int32_t *nread);
SDF_API int Sdf_Read_Array64(int ch, const char *name, void **data, int64_t *start, int64_t count, int64_t *nread);
/* Writes `count` elements at start (rank 0: appends), growing the last
 * extent when the run passes the end; elements skipped read as zeros in new
 * chunks. start moves behind the last element. A count of 0 or less does
 * nothing. 3023 (as 3000) when the array would need 2^31 chunks or more. */
SDF_API int Sdf_Write_Array(int ch, const char *name, const void *data, int32_t *start, int32_t count);
SDF_API int Sdf_Write_Array64(int ch, const char *name, const void *data, int64_t *start, int64_t count);
/* Character arrays as strings: a null *strings gets one block of count
 * pointers and the strings, each cut after its last character that is
 * neither NUL nor blank; a given *strings must hold count pointers to
 * elen + 1 bytes each. Writing pads each string to the element length with
 * blanks. Codes as the array forms. */
SDF_API int Sdf_Read_Carray(int ch, const char *name, char ***strings, int32_t *start, int32_t count, int32_t *nread);
SDF_API int Sdf_Read_Carray64(int ch, const char *name, char ***strings, int64_t *start, int64_t count, int64_t *nread);
SDF_API int Sdf_Write_Carray(int ch, const char *name, char *const *strings, int32_t *start, int32_t count);
SDF_API int Sdf_Write_Carray64(int ch, const char *name, char *const *strings, int64_t *start, int64_t count);
/* The same with fields of `width` characters (at least 1, else 4001): a read
 * copies min(elen, width) characters, NUL bytes as blanks, blank-padded; a
 * write takes each field up to its first NUL or min(width, elen). */
SDF_API int Sdf_Read_CarrayF(int ch, const char *name, char **buffer, int width, int32_t *start, int32_t count, int32_t *nread);
SDF_API int Sdf_Read_CarrayF64(int ch, const char *name, char **buffer, int width, int64_t *start, int64_t count, int64_t *nread);
SDF_API int Sdf_Write_CarrayF(int ch, const char *name, const char *buffer, int width, int32_t *start, int32_t count);
SDF_API int Sdf_Write_CarrayF64(int ch, const char *name, const char *buffer, int width, int64_t *start, int64_t count);
/* Fixed-rank forms: the indices (i, j, k, counting from 0) or the extents
 * (d1, d2, d3) stand as separate arguments in place of the array. Each
 * builds the array of rank 1, 2 or 3 and calls the generic form of its
 * width; any non-zero result of that form comes back by the chain rule, as
 * its family code (2000, 3000, 4000) with the generic form named. The
 * caller's indices never move. A start of rank 2 on a 1-D array gives 3022
 * in the error set. */
SDF_API int Sdf_Define_Arr1D(int ch, const char *name, int type, int clen, int32_t d1, const char *units, const char *desc);
SDF_API int Sdf_Define_Arr2D(int ch, const char *name, int type, int clen, int32_t d1, int32_t d2, const char *units, const char *desc);
SDF_API int Sdf_Define_Arr3D(int ch, const char *name, int type, int clen, int32_t d1, int32_t d2, int32_t d3, const char *units, const char *desc);
SDF_API int Sdf_Define_Arr1D64(int ch, const char *name, int type, int clen, int64_t d1, const char *units, const char *desc);
SDF_API int Sdf_Define_Arr2D64(int ch, const char *name, int type, int clen, int64_t d1, int64_t d2, const char *units, const char *desc);
SDF_API int Sdf_Define_Arr3D64(int ch, const char *name, int type, int clen, int64_t d1, int64_t d2, int64_t d3, const char *units, const char *desc);
SDF_API int Sdf_Read_Arr1D(int ch, const char *name, void **data, int32_t i, int32_t count, int32_t *nread);
SDF_API int Sdf_Read_Arr2D(int ch, const char *name, void **data, int32_t i, int32_t j, int32_t count, int32_t *nread);
SDF_API int Sdf_Read_Arr3D(int ch, const char *name, void **data, int32_t i, int32_t j, int32_t k, int32_t count, int32_t *nread);
SDF_API int Sdf_Read_Arr1D64(int ch, const char *name, void **data, int64_t i, int64_t count, int64_t *nread);
SDF_API int Sdf_Read_Arr2D64(int ch, const char *name, void **data, int64_t i, int64_t j, int64_t count, int64_t *nread);
SDF_API int Sdf_Read_Arr3D64(int ch, const char *name, void **data, int64_t i, int64_t j, int64_t k, int64_t count, int64_t *nread);
SDF_API int Sdf_Write_Arr1D(int ch, const char *name, const void *data, int32_t i, int32_t count);
SDF_API int Sdf_Write_Arr2D(int ch, const char *name, const void *data, int32_t i, int32_t j, int32_t count);
SDF_API int Sdf_Write_Arr3D(int ch, const char *name, const void *data, int32_t i, int32_t j, int32_t k, int32_t count);
SDF_API int Sdf_Write_Arr1D64(int ch, const char *name, const void *data, int64_t i, int64_t count);
SDF_API int Sdf_Write_Arr2D64(int ch, const char *name, const void *data, int64_t i, int64_t j, int64_t count);
SDF_API int Sdf_Write_Arr3D64(int ch, const char *name, const void *data, int64_t i, int64_t j, int64_t k, int64_t count);
SDF_API int Sdf_Read_Carr1D(int ch, const char *name, char ***strings, int32_t i, int32_t count, int32_t *nread);
SDF_API int Sdf_Read_Carr2D(int ch, const char *name, char ***strings, int32_t i, int32_t j, int32_t count, int32_t *nread);
SDF_API int Sdf_Read_Carr3D(int ch, const char *name, char ***strings, int32_t i, int32_t j, int32_t k, int32_t count, int32_t *nread);
SDF_API int Sdf_Read_Carr1D64(int ch, const char *name, char ***strings, int64_t i, int64_t count, int64_t *nread);
SDF_API int Sdf_Read_Carr2D64(int ch, const char *name, char ***strings, int64_t i, int64_t j, int64_t count, int64_t *nread);
SDF_API int Sdf_Read_Carr3D64(int ch, const char *name, char ***strings, int64_t i, int64_t j, int64_t k, int64_t count, int64_t *nread);
SDF_API int Sdf_Write_Carr1D(int ch, const char *name, char *const *strings, int32_t i, int32_t count);
SDF_API int Sdf_Write_Carr2D(int ch, const char *name, char *const *strings, int32_t i, int32_t j, int32_t count);
SDF_API int Sdf_Write_Carr3D(int ch, const char *name, char *const *strings, int32_t i, int32_t j, int32_t k, int32_t count);
SDF_API int Sdf_Write_Carr1D64(int ch, const char *name, char *const *strings, int64_t i, int64_t count);
SDF_API int Sdf_Write_Carr2D64(int ch, const char *name, char *const *strings, int64_t i, int64_t j, int64_t count);
SDF_API int Sdf_Write_Carr3D64(int ch, const char *name, char *const *strings, int64_t i, int64_t j, int64_t k, int64_t count);

/* Reads the slice begin..end by step (a step's sign follows the direction;
 * an end is pulled back onto the step's grid) into *data (null: new memory).
 * tr_vec (length in element 0, 0 for none) permutes the dimensions with
 * more than one element: output dimension k is slice dimension tr_vec[k].
 * *count gets the elements, dims the extents of the dimensions with more
 * than one element as handed back (rank 1, extent 1 for one element).
 * 2020 (as 2000) for an array whose last extent is 0; 3022/3023 for begin,
 * end, step or tr_vec (as 3000). */
SDF_API int Sdf_Read_Slice(int ch, const char *name, void **data, const int32_t *begin, const int32_t *end, const int32_t *step, const int32_t *tr_vec, int32_t *count, int32_t dims[8]);
SDF_API int Sdf_Read_Slice64(int ch, const char *name, void **data, const int64_t *begin, const int64_t *end, const int64_t *step, const int32_t *tr_vec, int64_t *count, int64_t dims[8]);
/* Writes a slice; tr_vec[k] names the dimension of the caller's data that
 * becomes slice dimension k. A slice never makes the array grow. */
SDF_API int Sdf_Write_Slice(int ch, const char *name, const void *data, const int32_t *begin, const int32_t *end, const int32_t *step, const int32_t *tr_vec, int32_t *count);
SDF_API int Sdf_Write_Slice64(int ch, const char *name, const void *data, const int64_t *begin, const int64_t *end, const int64_t *step, const int32_t *tr_vec, int64_t *count);
/* Slices of character arrays, as strings or fields (see the Carray forms). */
SDF_API int Sdf_Read_Cslice(int ch, const char *name, char ***strings, const int32_t *begin, const int32_t *end, const int32_t *step, const int32_t *tr_vec, int32_t *count, int32_t dims[8]);
SDF_API int Sdf_Read_Cslice64(int ch, const char *name, char ***strings, const int64_t *begin, const int64_t *end, const int64_t *step, const int32_t *tr_vec, int64_t *count, int64_t dims[8]);
SDF_API int Sdf_Write_Cslice(int ch, const char *name, char *const *strings, const int32_t *begin, const int32_t *end, const int32_t *step, const int32_t *tr_vec, int32_t *count);
SDF_API int Sdf_Write_Cslice64(int ch, const char *name, char *const *strings, const int64_t *begin, const int64_t *end, const int64_t *step, const int32_t *tr_vec, int64_t *count);
SDF_API int Sdf_Read_CsliceF(int ch, const char *name, char **buffer, int width, const int32_t *begin, const int32_t *end, const int32_t *step, const int32_t *tr_vec, int32_t *count, int32_t dims[8]);
SDF_API int Sdf_Read_CsliceF64(int ch, const char *name, char **buffer, int width, const int64_t *begin, const int64_t *end, const int64_t *step, const int32_t *tr_vec, int64_t *count, int64_t dims[8]);
SDF_API int Sdf_Write_CsliceF(int ch, const char *name, const char *buffer, int width, const int32_t *begin, const int32_t *end, const int32_t *step, const int32_t *tr_vec, int32_t *count);
SDF_API int Sdf_Write_CsliceF64(int ch, const char *name, const char *buffer, int width, const int64_t *begin, const int64_t *end, const int64_t *step, const int32_t *tr_vec, int64_t *count);

/* ------------------------------------------------------------ helpers */

/* Fills dims with the rank and then `rank` extents given as further
 * arguments: int32_t values for Sdf_Set_Dims, int64_t values (write them as
 * such, e.g. (int64_t)3) for Sdf_Set_Dims64. 0; 3021 for a rank outside
 * 1..7 (nothing read); 4001 for a null array. */
SDF_API int Sdf_Set_Dims(int rank, int32_t *dims, ...);
SDF_API int Sdf_Set_Dims64(int rank, int64_t *dims, ...);
/* The number of elements of a dimension array: the product of its extents
 * (at most 7 read), 0 for null or a rank below 1, -1 when the product
 * doesn't fit the result. */
SDF_API int32_t Sdf_Num_Elem(const int32_t *dims);
SDF_API int64_t Sdf_Num_Elem64(const int64_t *dims);
/* As Sdf_Valid_Name, and *index (may be null) gets the position, counting
 * from 0, of the first character that makes the name invalid: 0 for an empty
 * name, 512 for a name that is valid but too long, -1 for a valid name. */
SDF_API int Sdf_Check_Name(const char *name, int *index);

/* ------------------------------------------------------------ calculator
 * Expressions over the variables of a channel (docs/expressions.md): a
 * comma-separated list of items, each an assignment or a value; the values
 * of the items that are no assignment are written back as _$1, _$2, ...
 * (_$01 ... when there are ten or more), after the old _$ results are
 * deleted. Units are carried in base units and checked.
 * Result: 0, 2104 when an element out of range took Calc_Range_Subst under
 * Calc_Range_Check=Warning, or the error code (3100-3150, 3005, 3010, 3012,
 * 3021, 3022, 3025 and those of the channel), reported from "Sdf_Calc". A
 * failing item stops the text; what earlier items wrote stays. */

/* A user function: reads its arguments _$ARG1... from the channel whose
 * number it is given and writes _$RES (and _$ERR, an integer, on failure). */
typedef void (*Sdf_Calc_User_Fn)(int *channel);

/* Runs expr on the channel named by option Default_Internal_Channel; when
 * that isn't open, a new internal channel is opened and named there. 3004
 * when the option names a channel that isn't internal. */
SDF_API int Sdf_Calc(const char *expr);
/* Runs expr on a writable channel: 3001 not open, 3002 read-only. */
SDF_API int Sdf_Calc_Chan(int channel, const char *expr);
/* Registers a user function under name (a valid SDF name below 64
 * characters; compared without regard to case): 3120 when 128 are
 * registered, 3121 a bad name, 3122 the name taken by another function
 * (the same pair again is accepted). Intrinsic names always win. */
SDF_API int Sdf_Calc_Func(const char *name, Sdf_Calc_User_Fn fn);

/* ------------------------------------------------- by-reference forms
 * Every operation that callers in Fortran need has a twin with the suffix
 * _ref, whose arguments all come by address:
 *  - the result (the form-1 return value) is also stored in an extra last
 *    argument `rc` before the lengths;
 *  - each text argument has a length (size_t, by value) at the end of the
 *    list, in the order of the text arguments;
 *  - an input name has trailing blanks cut and is kept to 512 characters:
 *    a longer one gets "&" as its 512th character and so is invalid (3005);
 *    other input text has trailing blanks cut; a NUL ends any text early;
 *  - output text fills the caller's field, blank-padded to its length;
 *  - start, begin and end arrays and the separate indices i, j, k count
 *    from 1; dimensions, steps and tr_vec pass as they stand;
 *  - data buffers are the caller's own arrays: no form allocates except
 *    those with Alloc or All or ASlice in the name.
 * Each form also exists under the name a gfortran external procedure
 * reaches: all lower case with a trailing underscore, e.g. sdf_read_arr1d_ref_
 * for Sdf_Read_Arr1D_ref. The results and reports are those of form 1. */

/* Sdf_Set_Dims by reference: rank and each extent by address (int32_t, or
 * int64_t extents for the 64 form), then int *rc. */
SDF_API int Sdf_Set_Dims_ref(const int32_t *rank, int32_t *dims, ...);
SDF_API int Sdf_Set_Dims64_ref(const int32_t *rank, int64_t *dims, ...);
/* Files, channels, options and memory. Sdf_Filename_ref leaves the name
 * blank for a channel not open (result 0); Sdf_Free_ref takes the pointer
 * by reference and gives 1 or 0 as Sdf_Free. */
SDF_API int Sdf_Open_ref(int *ch, const char *path, const char *type, const char *status, const char *intent, int *rc, size_t path_len, size_t type_len, size_t status_len, size_t intent_len);
SDF_API int Sdf_Close_ref(const int *ch, const char *status, int *rc, size_t status_len);
SDF_API int Sdf_Refresh_ref(const int *ch, int *rc);
SDF_API int Sdf_Write_ref(const int *ch, int *rc);
SDF_API int Sdf_Flush_ref(const int *ch, int *rc);
SDF_API int Sdf_Filename_ref(const int *ch, char *path, int *rc, size_t path_len);
SDF_API int Sdf_Is_Open_ref(const char *path, int *ch, int *rc, size_t path_len);
SDF_API int Sdf_Is_Sdf_ref(const char *path, int *rc, size_t path_len);
SDF_API int Sdf_Lockfile_Info_ref(const char *path, char *text, int *rc, size_t path_len, size_t text_len);
SDF_API int Sdf_Delete_Lockfile_ref(const char *path, int *rc, size_t path_len);
SDF_API int Sdf_Free_ref(void *const *ptr, int *rc);
SDF_API int Sdf_Set_Opts_ref(const char *text, int *rc, size_t text_len);
SDF_API int Sdf_Set_Opts_Chan_ref(const int *ch, const char *text, int *rc, size_t text_len);
SDF_API int Sdf_Get_Opt_ref(const char *option, char *value, int *rc, size_t option_len, size_t value_len);
SDF_API int Sdf_Get_Opt_Chan_ref(const int *ch, const char *option, char *value, int *rc, size_t option_len, size_t value_len);
SDF_API int Sdf_Push_ref(const int *mode, int *rc);
SDF_API int Sdf_Push_Chan_ref(const int *ch, const int *mode, int *rc);
SDF_API int Sdf_Pop_ref(int *rc);
SDF_API int Sdf_Pop_Chan_ref(const int *ch, int *rc);
SDF_API int Sdf_Opt_Depth_ref(int *rc);
SDF_API int Sdf_Opt_Depth_Chan_ref(const int *ch, int *rc);
SDF_API int Sdf_Mutex_Lock_ref(const int *ch, const int *mode, int *rc);
SDF_API int Sdf_Mutex_Unlock_ref(const int *ch, int *rc);
SDF_API int Sdf_Cache_ref(const int *ch, const int *buffers, const int *buffer_bytes, const int *max_transfer, int *rc);

/* Variables. Sdf_Exists_ref, Sdf_Valid_Name_ref and Sdf_Check_Name_ref
 * give 1 or 0 as their form 1; Sdf_Check_Name_ref's position counts from 1
 * (0 for a valid name). Sdf_Num_Elem_ref gives the count in *rc, of the
 * width of its dimension array. */
SDF_API int Sdf_Get_Type_ref(const int *ch, const char *name, int *type, int *is_array, int *rc, size_t name_len);
SDF_API int Sdf_Get_Elen_ref(const int *ch, const char *name, int *elen, int *rc, size_t name_len);
SDF_API int Sdf_Get_Dims_ref(const int *ch, const char *name, int32_t *dims, int *rc, size_t name_len);
SDF_API int Sdf_Get_Dims64_ref(const int *ch, const char *name, int64_t *dims, int *rc, size_t name_len);
SDF_API int Sdf_Last_Dim_ref(const int *ch, const char *name, int32_t *extent, int *rc, size_t name_len);
SDF_API int Sdf_Last_Dim64_ref(const int *ch, const char *name, int64_t *extent, int *rc, size_t name_len);
SDF_API int Sdf_Put_Dims_ref(const int *ch, const char *name, const int32_t *dims, int *rc, size_t name_len);
SDF_API int Sdf_Put_Dims64_ref(const int *ch, const char *name, const int64_t *dims, int *rc, size_t name_len);
SDF_API int Sdf_Get_Val_ref(const int *ch, const char *name, void *value, int *rc, size_t name_len);
SDF_API int Sdf_Put_Val_ref(const int *ch, const char *name, const void *value, int *rc, size_t name_len);
SDF_API int Sdf_Get_Cval_ref(const int *ch, const char *name, char *text, int *length, int *rc, size_t name_len, size_t text_len);
SDF_API int Sdf_Put_Cval_ref(const int *ch, const char *name, const char *text, int *rc, size_t name_len, size_t text_len);
SDF_API int Sdf_Write_Var_ref(const int *ch, const char *name, const int *type, const void *value, const char *units, const char *desc, int *rc, size_t name_len, size_t units_len, size_t desc_len);
SDF_API int Sdf_Write_Char_ref(const int *ch, const char *name, const char *text, const char *desc, int *rc, size_t name_len, size_t text_len, size_t desc_len);
SDF_API int Sdf_Get_Units_ref(const int *ch, const char *name, char *text, int *rc, size_t name_len, size_t text_len);
SDF_API int Sdf_Get_Desc_ref(const int *ch, const char *name, char *text, int *rc, size_t name_len, size_t text_len);
SDF_API int Sdf_Put_Units_ref(const int *ch, const char *name, const char *text, int *rc, size_t name_len, size_t text_len);
SDF_API int Sdf_Put_Desc_ref(const int *ch, const char *name, const char *text, int *rc, size_t name_len, size_t text_len);
SDF_API int Sdf_Where_ref(const char *name, void * *address, int *rc, size_t name_len);
SDF_API int Sdf_Where_Chan_ref(const int *ch, const char *name, void * *address, int *rc, size_t name_len);
SDF_API int Sdf_Exists_ref(const int *ch, const char *name_or_template, int *rc, size_t name_or_template_len);
SDF_API int Sdf_Valid_Name_ref(const char *name, int *rc, size_t name_len);
SDF_API int Sdf_Check_Name_ref(const char *name, int *position, int *rc, size_t name_len);
SDF_API int Sdf_Delete_ref(const int *ch, const char *name_or_template, int *rc, size_t name_or_template_len);
SDF_API int32_t Sdf_Num_Elem_ref(const int32_t *dims, int32_t *rc);
SDF_API int64_t Sdf_Num_Elem64_ref(const int64_t *dims, int64_t *rc);

/* Lists as fields. Sdf_List_ref and Sdf_Tag_List_ref copy at most nfields
 * names (and tag values) into the field arrays, blank-padded to the field
 * length, and set *count to the number of all matches. The Alloc forms
 * allocate count x width bytes of fields for each list instead (null for no
 * match), to give back with Sdf_Free. */
SDF_API int Sdf_List_ref(const int *ch, const char *templ, char *names, const int *nfields, int *count, int *rc, size_t templ_len, size_t names_len);
SDF_API int Sdf_Tag_List_ref(const int *ch, const char *templ, const char *tags, char *names, char *values, const int *nfields, int *count, int *rc, size_t templ_len, size_t tags_len, size_t names_len, size_t values_len);
SDF_API int Sdf_List_Alloc_ref(const int *ch, const char *templ, void **names, const int *width, int *count, int *rc, size_t templ_len);
SDF_API int Sdf_Tag_List_Alloc_ref(const int *ch, const char *templ, const char *tags, void **names, void **values, const int *width, int *count, int *rc, size_t templ_len, size_t tags_len);

/* Arrays. start counts from 1 and comes back moved, counting from 1; dims
 * is passed as it stands. Data is read into the caller's buffer, which must
 * hold count elements (never null: 4001). Character arrays are fields of
 * the text argument's length (the width), read and written as the F forms
 * do. Sdf_Read_Alloc_ref sets *data null, then reads into memory the library
 * allocates: as fields of clen bytes when clen > 0, else as elements; give
 * it back with Sdf_Free (on an internal file an element read lends a
 * pointer into the array instead, as Sdf_Read_Array does). */
SDF_API int Sdf_Define_Array_ref(const int *ch, const char *name, const int *type, const int *clen, const int32_t *dims, const char *units, const char *desc, int *rc, size_t name_len, size_t units_len, size_t desc_len);
SDF_API int Sdf_Read_Array_ref(const int *ch, const char *name, void *data, int32_t *start, const int32_t *count, int32_t *nread, int *rc, size_t name_len);
SDF_API int Sdf_Write_Array_ref(const int *ch, const char *name, const void *data, int32_t *start, const int32_t *count, int *rc, size_t name_len);
SDF_API int Sdf_Read_Carray_ref(const int *ch, const char *name, char *fields, int32_t *start, const int32_t *count, int32_t *nread, int *rc, size_t name_len, size_t fields_len);
SDF_API int Sdf_Write_Carray_ref(const int *ch, const char *name, const char *fields, int32_t *start, const int32_t *count, int *rc, size_t name_len, size_t fields_len);
SDF_API int Sdf_Read_Alloc_ref(const int *ch, const char *name, void **data, const int *clen, int32_t *start, const int32_t *count, int32_t *nread, int *rc, size_t name_len);
SDF_API int Sdf_Define_Array64_ref(const int *ch, const char *name, const int *type, const int *clen, const int64_t *dims, const char *units, const char *desc, int *rc, size_t name_len, size_t units_len, size_t desc_len);
SDF_API int Sdf_Read_Array64_ref(const int *ch, const char *name, void *data, int64_t *start, const int64_t *count, int64_t *nread, int *rc, size_t name_len);
SDF_API int Sdf_Write_Array64_ref(const int *ch, const char *name, const void *data, int64_t *start, const int64_t *count, int *rc, size_t name_len);
SDF_API int Sdf_Read_Carray64_ref(const int *ch, const char *name, char *fields, int64_t *start, const int64_t *count, int64_t *nread, int *rc, size_t name_len, size_t fields_len);
SDF_API int Sdf_Write_Carray64_ref(const int *ch, const char *name, const char *fields, int64_t *start, const int64_t *count, int *rc, size_t name_len, size_t fields_len);
SDF_API int Sdf_Read_Alloc64_ref(const int *ch, const char *name, void **data, const int *clen, int64_t *start, const int64_t *count, int64_t *nread, int *rc, size_t name_len);

/* The fixed-rank forms by reference: i, j, k count from 1; d1, d2, d3 are
 * extents. Sdf_Read_AllND_ref is Sdf_Read_Alloc_ref at the indices. */
SDF_API int Sdf_Define_Arr1D_ref(const int *ch, const char *name, const int *type, const int *clen, const int32_t *d1, const char *units, const char *desc, int *rc, size_t name_len, size_t units_len, size_t desc_len);
SDF_API int Sdf_Read_Arr1D_ref(const int *ch, const char *name, void *data, const int32_t *i, const int32_t *count, int32_t *nread, int *rc, size_t name_len);
SDF_API int Sdf_Write_Arr1D_ref(const int *ch, const char *name, const void *data, const int32_t *i, const int32_t *count, int *rc, size_t name_len);
SDF_API int Sdf_Read_Carr1D_ref(const int *ch, const char *name, char *fields, const int32_t *i, const int32_t *count, int32_t *nread, int *rc, size_t name_len, size_t fields_len);
SDF_API int Sdf_Write_Carr1D_ref(const int *ch, const char *name, const char *fields, const int32_t *i, const int32_t *count, int *rc, size_t name_len, size_t fields_len);
SDF_API int Sdf_Read_All1D_ref(const int *ch, const char *name, void **data, const int *clen, const int32_t *i, const int32_t *count, int32_t *nread, int *rc, size_t name_len);
SDF_API int Sdf_Define_Arr2D_ref(const int *ch, const char *name, const int *type, const int *clen, const int32_t *d1, const int32_t *d2, const char *units, const char *desc, int *rc, size_t name_len, size_t units_len, size_t desc_len);
SDF_API int Sdf_Read_Arr2D_ref(const int *ch, const char *name, void *data, const int32_t *i, const int32_t *j, const int32_t *count, int32_t *nread, int *rc, size_t name_len);
SDF_API int Sdf_Write_Arr2D_ref(const int *ch, const char *name, const void *data, const int32_t *i, const int32_t *j, const int32_t *count, int *rc, size_t name_len);
SDF_API int Sdf_Read_Carr2D_ref(const int *ch, const char *name, char *fields, const int32_t *i, const int32_t *j, const int32_t *count, int32_t *nread, int *rc, size_t name_len, size_t fields_len);
SDF_API int Sdf_Write_Carr2D_ref(const int *ch, const char *name, const char *fields, const int32_t *i, const int32_t *j, const int32_t *count, int *rc, size_t name_len, size_t fields_len);
SDF_API int Sdf_Read_All2D_ref(const int *ch, const char *name, void **data, const int *clen, const int32_t *i, const int32_t *j, const int32_t *count, int32_t *nread, int *rc, size_t name_len);
SDF_API int Sdf_Define_Arr3D_ref(const int *ch, const char *name, const int *type, const int *clen, const int32_t *d1, const int32_t *d2, const int32_t *d3, const char *units, const char *desc, int *rc, size_t name_len, size_t units_len, size_t desc_len);
SDF_API int Sdf_Read_Arr3D_ref(const int *ch, const char *name, void *data, const int32_t *i, const int32_t *j, const int32_t *k, const int32_t *count, int32_t *nread, int *rc, size_t name_len);
SDF_API int Sdf_Write_Arr3D_ref(const int *ch, const char *name, const void *data, const int32_t *i, const int32_t *j, const int32_t *k, const int32_t *count, int *rc, size_t name_len);
SDF_API int Sdf_Read_Carr3D_ref(const int *ch, const char *name, char *fields, const int32_t *i, const int32_t *j, const int32_t *k, const int32_t *count, int32_t *nread, int *rc, size_t name_len, size_t fields_len);
SDF_API int Sdf_Write_Carr3D_ref(const int *ch, const char *name, const char *fields, const int32_t *i, const int32_t *j, const int32_t *k, const int32_t *count, int *rc, size_t name_len, size_t fields_len);
SDF_API int Sdf_Read_All3D_ref(const int *ch, const char *name, void **data, const int *clen, const int32_t *i, const int32_t *j, const int32_t *k, const int32_t *count, int32_t *nread, int *rc, size_t name_len);
SDF_API int Sdf_Define_Arr1D64_ref(const int *ch, const char *name, const int *type, const int *clen, const int64_t *d1, const char *units, const char *desc, int *rc, size_t name_len, size_t units_len, size_t desc_len);
SDF_API int Sdf_Read_Arr1D64_ref(const int *ch, const char *name, void *data, const int64_t *i, const int64_t *count, int64_t *nread, int *rc, size_t name_len);
SDF_API int Sdf_Write_Arr1D64_ref(const int *ch, const char *name, const void *data, const int64_t *i, const int64_t *count, int *rc, size_t name_len);
SDF_API int Sdf_Read_Carr1D64_ref(const int *ch, const char *name, char *fields, const int64_t *i, const int64_t *count, int64_t *nread, int *rc, size_t name_len, size_t fields_len);
SDF_API int Sdf_Write_Carr1D64_ref(const int *ch, const char *name, const char *fields, const int64_t *i, const int64_t *count, int *rc, size_t name_len, size_t fields_len);
SDF_API int Sdf_Read_All1D64_ref(const int *ch, const char *name, void **data, const int *clen, const int64_t *i, const int64_t *count, int64_t *nread, int *rc, size_t name_len);
SDF_API int Sdf_Define_Arr2D64_ref(const int *ch, const char *name, const int *type, const int *clen, const int64_t *d1, const int64_t *d2, const char *units, const char *desc, int *rc, size_t name_len, size_t units_len, size_t desc_len);
SDF_API int Sdf_Read_Arr2D64_ref(const int *ch, const char *name, void *data, const int64_t *i, const int64_t *j, const int64_t *count, int64_t *nread, int *rc, size_t name_len);
SDF_API int Sdf_Write_Arr2D64_ref(const int *ch, const char *name, const void *data, const int64_t *i, const int64_t *j, const int64_t *count, int *rc, size_t name_len);
SDF_API int Sdf_Read_Carr2D64_ref(const int *ch, const char *name, char *fields, const int64_t *i, const int64_t *j, const int64_t *count, int64_t *nread, int *rc, size_t name_len, size_t fields_len);
SDF_API int Sdf_Write_Carr2D64_ref(const int *ch, const char *name, const char *fields, const int64_t *i, const int64_t *j, const int64_t *count, int *rc, size_t name_len, size_t fields_len);
SDF_API int Sdf_Read_All2D64_ref(const int *ch, const char *name, void **data, const int *clen, const int64_t *i, const int64_t *j, const int64_t *count, int64_t *nread, int *rc, size_t name_len);
SDF_API int Sdf_Define_Arr3D64_ref(const int *ch, const char *name, const int *type, const int *clen, const int64_t *d1, const int64_t *d2, const int64_t *d3, const char *units, const char *desc, int *rc, size_t name_len, size_t units_len, size_t desc_len);
SDF_API int Sdf_Read_Arr3D64_ref(const int *ch, const char *name, void *data, const int64_t *i, const int64_t *j, const int64_t *k, const int64_t *count, int64_t *nread, int *rc, size_t name_len);
SDF_API int Sdf_Write_Arr3D64_ref(const int *ch, const char *name, const void *data, const int64_t *i, const int64_t *j, const int64_t *k, const int64_t *count, int *rc, size_t name_len);
SDF_API int Sdf_Read_Carr3D64_ref(const int *ch, const char *name, char *fields, const int64_t *i, const int64_t *j, const int64_t *k, const int64_t *count, int64_t *nread, int *rc, size_t name_len, size_t fields_len);
SDF_API int Sdf_Write_Carr3D64_ref(const int *ch, const char *name, const char *fields, const int64_t *i, const int64_t *j, const int64_t *k, const int64_t *count, int *rc, size_t name_len, size_t fields_len);
SDF_API int Sdf_Read_All3D64_ref(const int *ch, const char *name, void **data, const int *clen, const int64_t *i, const int64_t *j, const int64_t *k, const int64_t *count, int64_t *nread, int *rc, size_t name_len);

/* Slices by reference: begin and end count from 1; step and tr_vec pass as
 * they stand; Sdf_Read_ASlice_ref allocates as Sdf_Read_Alloc_ref does. */
SDF_API int Sdf_Read_Slice_ref(const int *ch, const char *name, void *data, const int32_t *begin, const int32_t *end, const int32_t *step, const int32_t *tr_vec, int32_t *count, int32_t *dims, int *rc, size_t name_len);
SDF_API int Sdf_Write_Slice_ref(const int *ch, const char *name, const void *data, const int32_t *begin, const int32_t *end, const int32_t *step, const int32_t *tr_vec, int32_t *count, int *rc, size_t name_len);
SDF_API int Sdf_Read_Cslice_ref(const int *ch, const char *name, char *fields, const int32_t *begin, const int32_t *end, const int32_t *step, const int32_t *tr_vec, int32_t *count, int32_t *dims, int *rc, size_t name_len, size_t fields_len);
SDF_API int Sdf_Write_Cslice_ref(const int *ch, const char *name, const char *fields, const int32_t *begin, const int32_t *end, const int32_t *step, const int32_t *tr_vec, int32_t *count, int *rc, size_t name_len, size_t fields_len);
SDF_API int Sdf_Read_ASlice_ref(const int *ch, const char *name, void **data, const int *clen, const int32_t *begin, const int32_t *end, const int32_t *step, const int32_t *tr_vec, int32_t *count, int32_t *dims, int *rc, size_t name_len);
SDF_API int Sdf_Read_Slice64_ref(const int *ch, const char *name, void *data, const int64_t *begin, const int64_t *end, const int64_t *step, const int32_t *tr_vec, int64_t *count, int64_t *dims, int *rc, size_t name_len);
SDF_API int Sdf_Write_Slice64_ref(const int *ch, const char *name, const void *data, const int64_t *begin, const int64_t *end, const int64_t *step, const int32_t *tr_vec, int64_t *count, int *rc, size_t name_len);
SDF_API int Sdf_Read_Cslice64_ref(const int *ch, const char *name, char *fields, const int64_t *begin, const int64_t *end, const int64_t *step, const int32_t *tr_vec, int64_t *count, int64_t *dims, int *rc, size_t name_len, size_t fields_len);
SDF_API int Sdf_Write_Cslice64_ref(const int *ch, const char *name, const char *fields, const int64_t *begin, const int64_t *end, const int64_t *step, const int32_t *tr_vec, int64_t *count, int *rc, size_t name_len, size_t fields_len);
SDF_API int Sdf_Read_ASlice64_ref(const int *ch, const char *name, void **data, const int *clen, const int64_t *begin, const int64_t *end, const int64_t *step, const int32_t *tr_vec, int64_t *count, int64_t *dims, int *rc, size_t name_len);

/* The calculator by reference; Sdf_Calc_Func_ref cuts the name to 63
 * characters. */
SDF_API int Sdf_Calc_ref(const char *expr, int *rc, size_t expr_len);
SDF_API int Sdf_Calc_Chan_ref(const int *ch, const char *expr, int *rc, size_t expr_len);
SDF_API int Sdf_Calc_Func_ref(const char *name, Sdf_Calc_User_Fn fn, int *rc, size_t name_len);

#ifdef __cplusplus
}
#endif

#endif
