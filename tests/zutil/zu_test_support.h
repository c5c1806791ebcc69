// Helpers shared by the utility library's tests.
#pragma once

#include "zutil.h"

#include <string>

// Copies a tracked text and frees it, so results compare as std::string.
inline std::string takeText(char *tracked)
{
    std::string out = tracked ? tracked : "<null>";
    ZU_freeMem(tracked);
    return out;
}

// Starts each error-set test from an empty set and default options.
inline void resetErrorsAndOptions()
{
    ZU_errClear("*", 0);
}
