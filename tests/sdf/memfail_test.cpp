// An allocation failure ends the process: the allocator prints its message,
// frees every tracked block and exits with 1. What the SDF library does on
// that road: it removes the lock files of this process's open files (and of
// an open still under way), and its exit handler touches nothing the
// allocator freed. Each case runs in a child process.
#include <gtest/gtest.h>
#include <stdint.h>

#include <string>

#include "sdf_channel_helpers.h"

namespace {

using sdftest::exists;

class SdfAllocationFailure : public sdftest::FileTest {};

// A read whose first call asks for more memory than any machine has, as a
// damaged size would; later reads (the clean-up's) are real.
ssize_t hungryRead(int fd, void* buf, size_t n, off_t at) {
    static bool once = false;
    if (!once) {
        once = true;
        ZU_allocMem(SIZE_MAX, "test:huge");
    }
    return sdf_io_default.pread(fd, buf, n, at);
}

}  // namespace

TEST_F(SdfAllocationFailure, EndsWithOneAndLeavesNoLockBehind) {
    const std::string writer = path("w.sdf"), reader = path("r.sdf"), opening = path("o.sdf");
    for (const std::string& p : {writer, reader, opening}) ASSERT_TRUE(sdftest::makeFile(p, "x", 1));
    struct Case {
        const char* what;
        bool during_open;
    };
    for (const Case& c : {Case{"channels open", false}, Case{"an open under way", true}}) {
        SCOPED_TRACE(c.what);
        auto child = [&] {
            int w = -1, r1 = -1, r2 = -1, o = -1;
            if (Sdf_Open(&w, writer.c_str(), "BINARY", "OLD", "WRITE") ||
                Sdf_Open(&r1, reader.c_str(), "BINARY", "OLD", "READ") ||
                Sdf_Open(&r2, reader.c_str(), "BINARY", "OLD", "READ"))
                _exit(3);
            sdftest::putVar(w, "y", 2);  // uncommitted: must not reach the file
            if (c.during_open) {
                sdf_io.pread = hungryRead;
                Sdf_Open(&o, opening.c_str(), "BINARY", "OLD", "READ");
            } else {
                ZU_allocMem(SIZE_MAX, "test:huge");
            }
            _exit(4);
        };
        EXPECT_EXIT(child(), testing::ExitedWithCode(1), "ZU_allocMem\\(\\) failed");
        for (const std::string& p : {writer, reader, opening}) {
            EXPECT_FALSE(exists(p + ".lock")) << p;
            EXPECT_FALSE(exists(p + ".lock.lock")) << p;
        }
        int ch = -1;
        ASSERT_EQ(Sdf_Open(&ch, writer.c_str(), "BINARY", "OLD", "WRITE"), 0) << "a clean file stays clean";
        EXPECT_EQ(sdftest::getVar(ch, "y"), -1e300);
        EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
    }
}
