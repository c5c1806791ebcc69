/* The SDF library's message table: one row per code, in ascending order.
 *
 * This X-macro list is the only place where codes and their texts are
 * written down; sdf_errors.cpp expands it into the table it searches, and the
 * tests expand it to check that it stays sorted and unique. A row's pattern
 * names its arguments with %d (an int) and %s (a text) only, and every caller
 * of sdf_error passes exactly those, in that order.
 *
 * Family = code / 1000: 2 warning, 3 error, 4 fault inside the library. */
#ifndef SDF_ERROR_TABLE_H
#define SDF_ERROR_TABLE_H

/* clang-format off */
#define SDF_ERROR_TABLE(SDF_ERR) \
    SDF_ERR(2000, "Warning %d reported by \"%s\".") \
    SDF_ERR(2001, "Lock file \"%s\" already deleted on SDF close.\nPossible file corruption.") \
    SDF_ERR(2002, "Could not delete \"%s\": %s.") \
    SDF_ERR(2003, "Handles may have been invalidated by refresh of \"%s\"") \
    SDF_ERR(2004, "\"%s\" has been modified externally.") \
    SDF_ERR(2010, "\"%s\" overwritten on channel %d (%s).") \
    SDF_ERR(2011, "\"%s\" not overwritten on channel %d (%s).") \
    SDF_ERR(2012, "Request to copy/move \"%s\" to itself on channel %d.") \
    SDF_ERR(2013, "\"%s\" does not exist on channel %d (%s).") \
    SDF_ERR(2020, "Attempt to read past end of array \"%s\".") \
    SDF_ERR(2030, "Number of values in%s\"%s\" overflows 32-bit integer.") \
    SDF_ERR(2104, "Argument(s) out of range in \"%s\": result set to %s for index=%d.") \
    SDF_ERR(2110, "Too few data on line %d of \"%s\": zero(s) substituted.") \
    SDF_ERR(2111, "Too many data on line %d of \"%s\": surplus ignored.") \
    SDF_ERR(2112, "Too few data on line %d of \"%s\": line ignored.") \
    SDF_ERR(2113, "Too many data on line %d of \"%s\": line ignored.") \
    SDF_ERR(3000, "Error %d reported by \"%s\".") \
    SDF_ERR(3001, "Channel %d not open.") \
    SDF_ERR(3002, "Channel %d not writable.") \
    SDF_ERR(3003, "Channel %d locked for reading. Cannot obtain write lock.") \
    SDF_ERR(3004, "Channel %d not an internal channel.") \
    SDF_ERR(3005, "Invalid name \"%s\".") \
    SDF_ERR(3006, "Invalid template \"%s\".") \
    SDF_ERR(3007, "Invalid or stale handle %d for channel %d (%s).") \
    SDF_ERR(3010, "\"%s\" does not exist on channel %d (%s).") \
    SDF_ERR(3011, "\"%s\" already exists on channel %d (%s).") \
    SDF_ERR(3012, "\"%s\" is not an array on channel %d (%s).") \
    SDF_ERR(3013, "\"%s\" is not a variable on channel %d (%s).") \
    SDF_ERR(3014, "\"%s\" is a character variable on channel %d (%s).") \
    SDF_ERR(3015, "\"%s\" is not a character variable on channel %d (%s).") \
    SDF_ERR(3016, "Can't append \"%s\" to itself on channel %d (%s).") \
    SDF_ERR(3020, "Invalid type (%d) for \"%s\".") \
    SDF_ERR(3021, "Bad array dimensions for \"%s\".") \
    SDF_ERR(3022, "Wrong number of dimensions in %s array for \"%s\".") \
    SDF_ERR(3023, "Bad %s array for \"%s\".") \
    SDF_ERR(3024, "A dimension of array%s\"%s\" overflows 32-bit integer.") \
    SDF_ERR(3025, "No memory allocated for \"%s\".") \
    SDF_ERR(3026, "Can't append \"%s\" (channel %d) to \"%s\" (channel %d): types differ.") \
    SDF_ERR(3027, "Can't append \"%s\" (channel %d) to \"%s\" (channel %d): incompatible dimensions.") \
    SDF_ERR(3030, "Invalid TYPE \"%s\" for file \"%s\".") \
    SDF_ERR(3031, "Invalid STATUS \"%s\" for file \"%s\".") \
    SDF_ERR(3032, "Invalid INTENT \"%s\" for file \"%s\".") \
    SDF_ERR(3033, "INTENT cannot be READ on NEW or FRESH file \"%s\".") \
    SDF_ERR(3034, "OLD file \"%s\" does not exist.") \
    SDF_ERR(3035, "NEW file \"%s\" already exists.") \
    SDF_ERR(3036, "Cannot open already-open file \"%s\" FRESH.") \
    SDF_ERR(3037, "Cannot open \"%s\" WRITE.\nFile apparently open by another process - lock file exists:\n%s") \
    SDF_ERR(3038, "No free channel for file \"%s\".") \
    SDF_ERR(3039, "No path given for Binary file open.") \
    SDF_ERR(3040, "Could not open file \"%s\": %s.") \
    SDF_ERR(3041, "No read access for file \"%s\".") \
    SDF_ERR(3042, "No write access for file \"%s\".") \
    SDF_ERR(3043, "Cannot create file \"%s\": %s.") \
    SDF_ERR(3044, "Could not delete \"%s\": %s.") \
    SDF_ERR(3045, "Cannot create lockfile \"%s\": %s.") \
    SDF_ERR(3046, "Apparently corrupt lockfile \"%s\" could not be read.") \
    SDF_ERR(3047, "Unreachable path \"%s\": %s.") \
    SDF_ERR(3050, "File \"%s\" is not an SDF.") \
    SDF_ERR(3051, "File \"%s\" %s") \
    SDF_ERR(3052, "File \"%s\" appears corrupted by ASCII ftp transfer.") \
    SDF_ERR(3053, "File \"%s\" is an old SDF.") \
    SDF_ERR(3054, "File \"%s\" is version %s.\nThis version of theSDF library can only open files up to version %s.") \
    SDF_ERR(3060, "Unknown option \"%s\".") \
    SDF_ERR(3061, "Value \"%s\" invalid for option \"%s\".") \
    SDF_ERR(3062, "No value given for option \"%s\".") \
    SDF_ERR(3063, "Cannot set general option \"%s\" using Sdf_Set_Opts_Chan().") \
    SDF_ERR(3080, "Could not read block %d from channel %d (%s):\n%s.") \
    SDF_ERR(3081, "Could not write block %d to channel %d (%s):\n%s.") \
    SDF_ERR(3082, "Could not flush channel %d (%s): %s.") \
    SDF_ERR(3083, "Could not read cache from channel %d (%s):\n%s.") \
    SDF_ERR(3084, "Could not write cache to channel %d (%s):\n%s.") \
    SDF_ERR(3090, "Unknown error code (%d) reported by %s.\nPlease report error to Zeltra Software.") \
    SDF_ERR(3091, "Garbled message for error %d reported by %s.\nPlease report error to Zeltra Software.") \
    SDF_ERR(3100, "Unbalanced \"%s\" in expression:\n%s") \
    SDF_ERR(3101, "Badly formed conditional expression:\n%s") \
    SDF_ERR(3102, "Wrong number of arguments for %s in expression:\n%s") \
    SDF_ERR(3103, "Wrong argument%s type for %s in expression:\n%s") \
    SDF_ERR(3104, "Argument%s out of range for %s in expression:\n%s") \
    SDF_ERR(3105, "Argument %d of %s is not non-dimensional in expression:\n%s") \
    SDF_ERR(3106, "Argument %d of %s has units in expression:\n%s") \
    SDF_ERR(3107, "Invalid units for %s%s in expression:\n%s") \
    SDF_ERR(3108, "[%s] and [%s] are incompatible for %s in expression:\n%s") \
    SDF_ERR(3109, "No operator in the expression:\n%s") \
    SDF_ERR(3110, "%s is not allowed on the LHS of an assignment.") \
    SDF_ERR(3111, "Bad dimensions for array \"%s\" in expression:\n%s") \
    SDF_ERR(3112, "Can't change type of \"%s\" in expression:\n%s") \
    SDF_ERR(3113, "Can't change units of \"%s\" in expression:\n%s") \
    SDF_ERR(3114, "Wrong number of values for array slice in expression:\n%s") \
    SDF_ERR(3115, "Cannot assign array to scalar \"%s\" in expression:\n%s") \
    SDF_ERR(3120, "Too many user functions (Max. %d).") \
    SDF_ERR(3121, "Invalid function name \"%s\".") \
    SDF_ERR(3122, "Attempt to re-define user function \"%s\".") \
    SDF_ERR(3123, "Invalid error return (%s) from %s in expression:\n%s") \
    SDF_ERR(3124, "No result returned from %s in expression:\n%s") \
    SDF_ERR(3130, "Illegal nested table in expression:\n%s") \
    SDF_ERR(3131, "For table, \"%s\" must be exist and be unsubscripted in expression:\n%s") \
    SDF_ERR(3132, "Missing \"=\" operator in table expression:\n%s") \
    SDF_ERR(3133, "\"%s\" not allowed on LHS of table in expression:\n%s") \
    SDF_ERR(3134, "\"%s\" is not a 1D array on LHS of table expression:\n%s") \
    SDF_ERR(3135, "Array not allowed on RHS of table in expression:\n%s") \
    SDF_ERR(3150, "Error from \"%s\" while evaluating expression:\n%s") \
    SDF_ERR(4000, "Bug %d reported by \"%s\".") \
    SDF_ERR(4001, "%s")
/* clang-format on */

#endif
