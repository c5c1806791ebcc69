// Helpers shared by the utility library's tests.
#pragma once

#include "zu_internal.h"
#include "zutil.h"

#include <gtest/gtest.h>

#include <string>

// Copies a tracked text and frees it, so results compare as std::string.
inline std::string takeText(char *tracked)
{
    std::string out = tracked ? tracked : "<null>";
    ZU_freeMem(tracked);
    return out;
}

// Starts and ends a test with an empty error set and default options, as
// both are process-wide and other tests in the same run change them.
class ZuFreshState : public testing::Test {
protected:
    static void reset()
    {
        zu_optReset();
        ZU_errClear("*", 0);
    }
    void SetUp() override { reset(); }
    void TearDown() override { reset(); }
};
