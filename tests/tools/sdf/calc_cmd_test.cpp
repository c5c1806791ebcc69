// "sdf calc" as a user runs it: results printed with type, shape and units,
// assignments kept in the file, and a failing expression ends the command
// with exit code 1 and the library's message, the file still readable.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "sdf.h"

namespace {

struct Outcome {
    int code = -1;
    std::string out;  // standard output and standard error together
};

Outcome run(const std::string& args) {
    Outcome r;
    std::string cmd = std::string(SDF_TOOL) + " calc " + args + " 2>&1";
    FILE* p = popen(cmd.c_str(), "r");
    if (!p) return r;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
    int status = pclose(p);
    r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return r;
}

TEST(SdfCalcTool, PrintsResultsKeepsAssignmentsAndStopsAtAFailure) {
    char path[] = "/tmp/calc_toolXXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    unlink(path);
    Sdf_Set_Opts("Error_Out=None");
    int ch = 0;
    ASSERT_EQ(Sdf_Open(&ch, path, "BINARY", "NEW", "WRITE"), 0);
    const double a[3] = {1, 2, 4};
    ASSERT_EQ(Sdf_Define_Arr1D(ch, "a", SDF_DBLE_T, 0, 3, "m", nullptr), 0);
    int32_t start[2] = {1, 0};
    ASSERT_EQ(Sdf_Write_Array(ch, "a", a, start, 3), 0);
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);

    Outcome r = run(std::string(path) + " 'b = a * 2' 'b + 1 [m]'");
    EXPECT_EQ(r.code, 0) << r.out;
    EXPECT_NE(r.out.find("_$1: double[3] [m]"), std::string::npos) << r.out;
    EXPECT_NE(r.out.find("3"), std::string::npos) << r.out;

    r = run(std::string(path) + " 'c = 1' 'd = a + 1 [s]' 'e = 2'");
    EXPECT_EQ(r.code, 1) << r.out;
    EXPECT_NE(r.out.find("are incompatible"), std::string::npos) << r.out;

    ASSERT_EQ(Sdf_Open(&ch, path, "BINARY", "OLD", "READ"), 0);
    EXPECT_EQ(Sdf_Exists(ch, "b"), 1);
    EXPECT_EQ(Sdf_Exists(ch, "c"), 1);
    EXPECT_EQ(Sdf_Exists(ch, "d"), 0);
    EXPECT_EQ(Sdf_Exists(ch, "e"), 0);
    Sdf_Close(ch, "DELETE");
    EXPECT_EQ(run("/nonexistent/x.sdf '1'").code, 1);
    EXPECT_EQ(run("").code, 2);
}

}  // namespace
