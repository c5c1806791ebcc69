// The option set: setting, reading, failures with their codes, the stack.
#include "zu_internal.h"
#include "zu_test_support.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string opt(const char *name)
{
    char value[128] = "?";
    EXPECT_EQ(ZU_getOpt(name, value), 0) << name;
    return value;
}

class ZuOptions : public ZuFreshState {};

TEST_F(ZuOptions, StartFromTheDefaults)
{
    EXPECT_EQ(opt("Error_Out"), "ErrSet");
    EXPECT_EQ(opt("mem_error"), "Exit");
    EXPECT_EQ(opt("THREAD_SAFE"), "No");
    EXPECT_EQ(ZU_optValue(ZU_OPT_ERROR_OUT), 1);
    EXPECT_EQ(ZU_optValue(ZU_OPT_MEM_ERROR), 0);
    EXPECT_EQ(ZU_optValue(ZU_OPT_COUNT), -1);
    EXPECT_EQ(ZU_optValue(-1), -1);
    EXPECT_FALSE(ZU_isThreadSafe());
}

TEST_F(ZuOptions, StoreTheTablesSpellingOfAValue)
{
    EXPECT_EQ(ZU_setOpts("error_out = errset&stderr, MEM_ERROR='null_nomessage'"), 0);
    EXPECT_EQ(opt("Error_Out"), "ErrSet&StdErr");
    EXPECT_EQ(ZU_optValue(ZU_OPT_ERROR_OUT), 3);
    EXPECT_EQ(opt("Mem_Error"), "NULL_NoMessage");
    EXPECT_EQ(ZU_optValue(ZU_OPT_MEM_ERROR), 3);
}

TEST_F(ZuOptions, FailuresAreRaisedAndTheRestStillApplies)
{
    EXPECT_EQ(ZU_setOpts("Bogus=1, Error_Out=None"), ZU_OPT_UNKNOWN);
    EXPECT_EQ(ZU_optValue(ZU_OPT_ERROR_OUT), 0);
    ZU_setOpts("Error_Out=ErrSet");
    EXPECT_EQ(ZU_setOpts("Mem_Error=Sometimes"), ZU_OPT_INVALID);
    EXPECT_EQ(ZU_setOpts("Mem_Error="), ZU_OPT_NO_VALUE);
    // Each failure goes where Error_Out pointed when it was met.
    testing::internal::CaptureStderr();
    EXPECT_EQ(ZU_setOpts("Mem_Error=Sometimes, Error_Out=StdErr, Thread_Safe="), ZU_OPT_NO_VALUE);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Error 3 from ZU_setOpts: No value given for option \"Thread_Safe\".\n");
    EXPECT_EQ(opt("Mem_Error"), "Exit");
    ZU_setOpts("Error_Out=ErrSet");

    std::vector<std::string> messages;
    int index = 1;
    while (ZU_ErrRec *rec = ZU_errNext("ZU_setOpts", &index))
        messages.push_back(std::to_string(rec->number) + ":" + rec->message);
    EXPECT_EQ(messages, (std::vector<std::string>{
                            "1:Unknown option \"Bogus\".",
                            "2:Value \"Sometimes\" invalid for option \"Mem_Error\".",
                            "3:No value given for option \"Mem_Error\".",
                            "2:Value \"Sometimes\" invalid for option \"Mem_Error\".",
                        }));
}

TEST_F(ZuOptions, AppliesEveryItemEvenPastThree)
{
    EXPECT_EQ(ZU_setOpts("Error_Out=None, Mem_Error=NULL, Thread_Safe=No, Error_Out=StdErr"), 0);
    EXPECT_EQ(opt("Error_Out"), "StdErr");
    EXPECT_EQ(opt("Mem_Error"), "NULL");
    EXPECT_EQ(ZU_setOpts(",,"), 0);
    EXPECT_EQ(ZU_setOpts(nullptr), 0);
}

TEST_F(ZuOptions, UnknownNameInGetOptIsReported)
{
    char value[128];
    EXPECT_EQ(ZU_getOpt("Nope", value), ZU_OPT_UNKNOWN);
    int index = 1;
    ZU_ErrRec *rec = ZU_errNext("ZU_getOpt", &index);
    ASSERT_NE(rec, nullptr);
    EXPECT_STREQ(rec->message, "Unknown option \"Nope\".");
    EXPECT_EQ(rec->severity, ZU_SEV_ERROR);
}

TEST_F(ZuOptions, StackSavesAndRestoresSetsAndReleasesThem)
{
    ZU_setOpts("Mem_Error=NULL");
    const double before = ZU_memTotal();
    ASSERT_EQ(ZU_push(1), 0);
    EXPECT_EQ(opt("Mem_Error"), "NULL"); // a copy of the current set
    ZU_setOpts("Mem_Error=NULL_NoMessage");
    ASSERT_EQ(ZU_push(0), 0);
    EXPECT_GT(ZU_memTotal(), before);
    EXPECT_EQ(opt("Mem_Error"), "Exit"); // a copy of the defaults
    ZU_pop();
    EXPECT_EQ(opt("Mem_Error"), "NULL_NoMessage");
    ZU_pop();
    EXPECT_EQ(opt("Mem_Error"), "NULL");
    EXPECT_EQ(ZU_memTotal(), before);
    ZU_pop(); // empty stack: nothing happens
    EXPECT_EQ(opt("Mem_Error"), "NULL");
}

} // namespace
