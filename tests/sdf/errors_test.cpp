// Reporting of SDF codes: the message table, where a report goes as option
// Error_Out says, how a failure is passed up a level, the system's text.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "sdf_error_table.h"
#include "sdf_inner.h"

namespace {

struct row {
    int code;
    const char *text;
};

#define SDF_TEST_ROW(code, text) {code, text},
const std::vector<row> k_rows = {SDF_ERROR_TABLE(SDF_TEST_ROW)};
#undef SDF_TEST_ROW

struct posted {
    std::string routine;
    int code;
    int severity;
    std::string text;
};

std::vector<posted> held()
{
    std::vector<posted> out;
    int index = 1;
    while (ZU_ErrRec *rec = ZU_errNext("*", &index))
        out.push_back({rec->routine, rec->number, rec->severity, rec->message});
    return out;
}

class SdfErrors : public testing::Test {
protected:
    int depth_ = 0;
    void SetUp() override
    {
        depth_ = Sdf_Opt_Depth();
        ASSERT_EQ(Sdf_Push(-1), 0); // built-in options, taken back at the end
        ZU_errClear("*", 0);
    }
    void TearDown() override
    {
        while (Sdf_Opt_Depth() > depth_)
            Sdf_Pop();
        ZU_errClear("*", 0);
    }
    // Runs fn and returns what it wrote on standard error.
    template <class F> std::string stderr_of(F fn)
    {
        testing::internal::CaptureStderr();
        fn();
        return testing::internal::GetCapturedStderr();
    }
};

TEST(SdfErrorTable, IsSortedUniqueAndEveryCodeFindsItsText)
{
    ASSERT_FALSE(k_rows.empty());
    for (size_t i = 0; i < k_rows.size(); ++i) {
        const row &r = k_rows[i];
        if (i > 0) {
            EXPECT_LT(k_rows[i - 1].code, r.code) << "row " << i;
        }
        EXPECT_GE(r.code / 1000, 2) << r.code;
        EXPECT_LE(r.code / 1000, 4) << r.code;
        ASSERT_NE(r.text, nullptr);
        EXPECT_GT(strlen(r.text), 0u) << r.code;
        EXPECT_STREQ(sdf_error_text(r.code), r.text) << r.code;
    }
    for (int missing : {-3000, 0, 1999, 2005, 3008, 3999, 4002, 9999})
        EXPECT_EQ(sdf_error_text(missing), nullptr) << missing;
}

TEST(SdfErrorTable, PatternsTakeOnlyIntsAndTexts)
{
    // The filler reads an argument for %d and %s only; any other conversion
    // in a pattern would leave its argument unread and shift the rest.
    for (const row &r : k_rows)
        for (const char *p = strchr(r.text, '%'); p; p = strchr(p + 2, '%'))
            EXPECT_TRUE(p[1] == 'd' || p[1] == 's') << r.code << ": " << r.text;
}

TEST_F(SdfErrors, ReportGoesWhereErrorOutSays)
{
    struct one {
        const char *setting;
        bool stored;
        bool printed;
    };
    const std::string text = "\"x\" does not exist on channel 3 (f.sdf).";
    for (const one &c : std::vector<one>{{"None", false, false},
                                         {"ErrSet", true, false},
                                         {"StdErr", false, true},
                                         {"errset&stderr", true, true}}) {
        ZU_errClear("*", 0);
        ASSERT_EQ(Sdf_Set_Opts((std::string("Error_Out=") + c.setting).c_str()), 0);
        int rc = 0;
        std::string err = stderr_of([&] { rc = sdf_error("rtn", 3010, "x", 3, "f.sdf"); });
        EXPECT_EQ(rc, 3010);
        EXPECT_EQ(err, c.printed ? "Error 3010 from rtn: " + text + "\n" : "") << c.setting;
        auto recs = held();
        ASSERT_EQ(recs.size(), c.stored ? 1u : 0u) << c.setting;
        if (c.stored) {
            EXPECT_EQ(recs[0].routine, "rtn");
            EXPECT_EQ(recs[0].code, 3010);
            EXPECT_EQ(recs[0].severity, 3);
            EXPECT_EQ(recs[0].text, text);
        }
    }
}

TEST_F(SdfErrors, BugsReachStandardErrorEvenWithErrorOutNone)
{
    ASSERT_EQ(Sdf_Set_Opts("Error_Out=None"), 0);
    std::string err = stderr_of([] { sdf_error("rtn", 4001, "cannot happen"); });
    EXPECT_EQ(err, "Bug 4001 from rtn: cannot happen\n");
    EXPECT_TRUE(held().empty());

    ASSERT_EQ(Sdf_Set_Opts("Error_Out=ErrSet"), 0);
    err = stderr_of([] { sdf_error("rtn", 2001, "lock.lck"); });
    EXPECT_EQ(err, "");
    auto recs = held();
    ASSERT_EQ(recs.size(), 1u);
    EXPECT_EQ(recs[0].severity, 2);
    EXPECT_EQ(recs[0].text, "Lock file \"lock.lck\" already deleted on SDF close.\n"
                            "Possible file corruption.");
}

TEST_F(SdfErrors, UnknownCodeBecomes3090OnStandardError)
{
    int rc = 0;
    // The arguments of a code without a row are never read.
    std::string err = stderr_of([&] { rc = sdf_error("Sdf_Thing", 3999); });
    EXPECT_EQ(rc, 3090);
    const std::string text =
        "Unknown error code (3999) reported by Sdf_Thing.\nPlease report error to Zeltra Software.";
    EXPECT_EQ(err, "Error 3090 from sdf_error: " + text + "\n");
    auto recs = held();
    ASSERT_EQ(recs.size(), 1u);
    EXPECT_EQ(recs[0].routine, "sdf_error");
    EXPECT_EQ(recs[0].code, 3090);
    EXPECT_EQ(recs[0].text, text);
}

TEST_F(SdfErrors, MessagesAreBoundedAndArgumentsTakenLiterally)
{
    ASSERT_EQ(Sdf_Set_Opts("Error_Out=ErrSet"), 0);
    std::string long_text(1000, 'a');
    sdf_error("rtn", 3005, long_text.c_str());
    sdf_error("rtn", 3005, static_cast<const char *>(nullptr));
    stderr_of([] { sdf_error("rtn", 4001, "100%s and %d%n are text"); });
    auto recs = held();
    ASSERT_EQ(recs.size(), 3u);
    EXPECT_EQ(recs[0].text, "Invalid name \"" + long_text.substr(0, 255 - 14));
    EXPECT_EQ(recs[1].text, "Invalid name \"(null)\".");
    EXPECT_EQ(recs[2].text, "100%s and %d%n are text");
}

TEST_F(SdfErrors, ChainReportsOneLinePerLevelAndReturnsTheFamily)
{
    struct one {
        int code;
        int family;
        const char *line;
        bool printed;
    };
    for (const one &c : std::vector<one>{
             {3010, 3000, "Error 3010 reported by \"sdf_find\".", false},
             {3999, 3000, "Error 3999 reported by \"sdf_find\".", false},
             {2010, 2000, "Warning 2010 reported by \"sdf_find\".", false},
             {1, 2000, "Warning 1 reported by \"sdf_find\".", false},
             {4001, 4000, "Bug 4001 reported by \"sdf_find\".", true}}) {
        ZU_errClear("*", 0);
        int rc = 0;
        std::string err = stderr_of([&] { rc = sdf_error_chain("Sdf_Get", c.code, "sdf_find"); });
        EXPECT_EQ(rc, c.family) << c.code;
        auto recs = held();
        ASSERT_EQ(recs.size(), 1u) << c.code;
        EXPECT_EQ(recs[0].routine, "Sdf_Get");
        EXPECT_EQ(recs[0].code, c.family);
        EXPECT_EQ(recs[0].severity, c.family / 1000);
        EXPECT_EQ(recs[0].text, c.line);
        EXPECT_EQ(!err.empty(), c.printed) << c.code;
    }
    ZU_errClear("*", 0);
    EXPECT_EQ(sdf_error_chain("Sdf_Get", 0, "sdf_find"), 0);
    EXPECT_TRUE(held().empty());
}

TEST_F(SdfErrors, FailureAndItsChainStandInTheErrorSetInOrder)
{
    int rc = sdf_error("sdf_find_var", 3010, "v", 1, "a.sdf");
    rc = sdf_error_chain("sdf_get_dims", rc, "sdf_find_var");
    rc = sdf_error_chain("Sdf_Get_Dims", rc, "sdf_get_dims");
    EXPECT_EQ(rc, 3000);
    auto recs = held();
    ASSERT_EQ(recs.size(), 3u);
    EXPECT_EQ(recs[0].code, 3010);
    EXPECT_EQ(recs[1].text, "Error 3010 reported by \"sdf_find_var\".");
    EXPECT_EQ(recs[2].text, "Error 3000 reported by \"sdf_get_dims\".");
}

TEST(SdfSysError, GivesTheTextOfErrnoAndKeepsIt)
{
    for (int code : {ENOENT, EACCES, ENOSPC}) {
        errno = code;
        std::string text = sdf_sys_error();
        EXPECT_EQ(errno, code);
        EXPECT_EQ(text, strerror(code));
    }
}

} // namespace
