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

#ifdef __cplusplus
}
#endif

#endif
