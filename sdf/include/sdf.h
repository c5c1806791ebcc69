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

/* Gives back memory that the library handed to the caller: 1 when it was
 * one of those and is now freed, 0 (and nothing done) for any other pointer,
 * null included. */
SDF_API int Sdf_Free(void *ptr);

#ifdef __cplusplus
}
#endif

#endif
