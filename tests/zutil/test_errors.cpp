// The error set: raising, counting, walking, formatting, printing, clearing;
// and the single error slot.
#include "zu_internal.h"
#include "zu_test_support.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

namespace {

class ZuErrors : public ZuFreshState {};

std::vector<std::string> walk(const char *pattern, int start)
{
    std::vector<std::string> out;
    int index = start;
    while (ZU_ErrRec *rec = ZU_errNext(pattern, &index))
        out.push_back(rec->routine + std::string(":") + rec->message);
    EXPECT_EQ(index, 0);
    return out;
}

void raiseThree()
{
    ZU_ErrQuiet("Sdf_Open", 3040, 3, "first");
    ZU_ErrQuiet("Sdf_Read", 2001, 2, "second");
    ZU_ErrQuiet("Sdf_Open", 3041, 1, "third");
}

TEST_F(ZuErrors, RaiseStoresAndPrintsAsErrorOutSaysAndTheQuietFormOnlyStores)
{
    testing::internal::CaptureStderr();
    ZU_Err("R", 7, 2, "stored only");
    ZU_setOpts("Error_Out=ErrSet&StdErr");
    ZU_Err("R", 8, 3, "both");
    ZU_setOpts("Error_Out=None");
    ZU_Err("R", 9, 4, "bug printed, not stored");
    ZU_Err("R", 10, 3, "nowhere");
    ZU_setOpts("Error_Out=ErrSet");
    ZU_Err("R", 11, 0, "severity 0 never stored");
    ZU_Err("R", 0, 3, "number 0 never stored");
    ZU_setOpts("Error_Out=StdErr");
    ZU_ErrQuiet("R", 12, 3, "quiet form: stored, never printed");
    std::string err = testing::internal::GetCapturedStderr();
    EXPECT_EQ(err, "Error 8 from R: both\nBug 9 from R: bug printed, not stored\n");
    EXPECT_EQ(walk("R", 1),
              (std::vector<std::string>{"R:stored only", "R:both", "R:quiet form: stored, never printed"}));
}

TEST_F(ZuErrors, WalksFromEitherEndThroughPatterns)
{
    raiseThree();
    EXPECT_EQ(walk("*", 1), (std::vector<std::string>{"Sdf_Open:first", "Sdf_Read:second",
                                                      "Sdf_Open:third"}));
    EXPECT_EQ(walk("*", -1), (std::vector<std::string>{"Sdf_Open:third", "Sdf_Read:second",
                                                       "Sdf_Open:first"}));
    EXPECT_EQ(walk("Sdf_O*", 1), (std::vector<std::string>{"Sdf_Open:first", "Sdf_Open:third"}));
    EXPECT_EQ(walk("Sdf_Re?d", -1), (std::vector<std::string>{"Sdf_Read:second"}));
    EXPECT_EQ(walk("*", 2).size(), 2u); // starts at the second
    EXPECT_TRUE(walk("[bad", 1).empty());
    EXPECT_TRUE(walk("*", 4).empty());
    // Past the only error held, too.
    ZU_errClear("*", 0);
    ZU_ErrQuiet("R", 1, 1, "one");
    EXPECT_TRUE(walk("*", 2).empty());
}

TEST_F(ZuErrors, CountsNowAndEver)
{
    int now[5], total[5], before[5];
    ZU_errCounts("*", 0, now, before);
    raiseThree();
    ZU_errCounts("*", 0, now, total);
    EXPECT_EQ(std::vector<int>(now, now + 4), (std::vector<int>{3, 1, 1, 1}));
    EXPECT_EQ(total[0], before[0] + 3);
    ZU_errCounts("Sdf_Open", 3040, now, total);
    EXPECT_EQ(now[3], 1);
    EXPECT_EQ(now[1], 0);
    ZU_errCounts("Sdf_Open", 0, now, total);
    EXPECT_EQ(now[0], 2);
    int count = 0;
    EXPECT_EQ(ZU_errWorst("*", &count), 3);
    EXPECT_EQ(count, 3);
    EXPECT_EQ(ZU_errWorst("Sdf_Read", &count), 2);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(ZU_errWorst("Nobody", &count), 0);
    EXPECT_EQ(count, 0);
}

TEST_F(ZuErrors, ClearLowersHeldCountsButNotTotals)
{
    raiseThree();
    int now[5], totalBefore[5], total[5];
    ZU_errCounts("Sdf_Open", 0, now, totalBefore);
    ZU_errClear("Sdf_Open", 3);
    int count = 0;
    EXPECT_EQ(ZU_errWorst("Sdf_Open", &count), 1);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(ZU_errWorst("*", &count), 2);
    ZU_errClear("*", 0);
    ZU_errCounts("Sdf_Open", 0, now, total);
    EXPECT_EQ(now[0], 0);
    EXPECT_EQ(total[0], totalBefore[0]);
    EXPECT_EQ(total[3], totalBefore[3]);
    EXPECT_EQ(ZU_errWorst("*", &count), 0);
}

TEST_F(ZuErrors, DeleteRemovesOneHeldRecord)
{
    raiseThree();
    int index = 2;
    ZU_ErrRec *second = ZU_errNext("*", &index);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(ZU_errDelete(second), 0);
    EXPECT_EQ(walk("*", 1), (std::vector<std::string>{"Sdf_Open:first", "Sdf_Open:third"}));
    ZU_ErrRec stranger{};
    EXPECT_EQ(ZU_errDelete(&stranger), 1);
    EXPECT_EQ(ZU_errDelete(nullptr), 1);
}

TEST_F(ZuErrors, FormatsRecordFields)
{
    ZU_ErrQuiet("Sdf_Open", 3040, 3, "no file");
    int index = 1;
    ZU_ErrRec *rec = ZU_errNext("*", &index);
    ASSERT_NE(rec, nullptr);
    EXPECT_STREQ(ZU_errStr("$S $E in $R: $M ($s)\\n\\t\\\\", rec),
                 "ERROR 3040 in Sdf_Open: no file (Error)\n\t\\");
    EXPECT_STREQ(ZU_errStr("$X \\q $", rec), "$X \\q $");
    EXPECT_STREQ(ZU_errStr(nullptr, rec), "");
    char small[8];
    EXPECT_STREQ(ZU_errStrTS("$M$M$M", rec, small, sizeof small), "no file");
    EXPECT_EQ(takeText(ZU_errStrTS("[$E]", rec, nullptr, 0)), "[3040]");
    ZU_ErrRec blank{};
    EXPECT_STREQ(ZU_errStr("<$S|$s>", &blank), "< | >");
}

TEST_F(ZuErrors, PrintShowsThenClearsMatchingErrors)
{
    raiseThree();
    int worst = -1;
    testing::internal::CaptureStdout();
    ZU_errPrint("Sdf_Open", "$E $M", -1, &worst);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "3041 third\n3040 first\n");
    EXPECT_EQ(worst, 3);
    EXPECT_EQ(walk("*", 1), (std::vector<std::string>{"Sdf_Read:second"}));
    testing::internal::CaptureStdout();
    ZU_errPrint("*", "", 1, &worst);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(worst, 2);
    ZU_errPrint("*", "$M", 1, &worst);
    EXPECT_EQ(worst, 0);
}

TEST_F(ZuErrors, PrintingABugEndsTheProcess)
{
    ZU_ErrQuiet("R", 1, 4, "fatal");
    EXPECT_EXIT(ZU_errPrint("*", "$S: $M", 1, nullptr), testing::ExitedWithCode(1), "");
    EXPECT_EQ(walk("*", 1).size(), 1u); // the parent still holds it
}

TEST(ZuErrorSlot, FormatsAndClearsOnRead)
{
    char text[128];
    int extra = 0;
    ZU_setError(1001, "units.dat", 0, 3);
    EXPECT_EQ(ZU_getError(text, sizeof text, &extra), 1001);
    EXPECT_STREQ(text, "Cannot open file \"units.dat\"");
    EXPECT_EQ(extra, 3);
    EXPECT_EQ(ZU_getError(text, sizeof text, &extra), 0);
    EXPECT_STREQ(text, "Unknown error number (0)");
    const std::tuple<int, const char *, int, const char *> texts[] = {
        {1038, nullptr, 'Q', "Unit prefix \"Q\" not found"},
        {1040, "buf", 512, "Cannot allocate 512 bytes for \"buf\""},
        {1037, "as stored", 0, "as stored"},
    };
    for (const auto &[number, name, value, want] : texts) {
        ZU_setError(number, name, value, 0);
        ZU_getError(text, sizeof text, nullptr);
        EXPECT_STREQ(text, want) << number;
    }
    ZU_setError(77, nullptr, 0, 0);
    ZU_getError(text, 10, nullptr);
    EXPECT_STREQ(text, "Unknown e");
    ZU_setError(1002, nullptr, 0, 0);
    EXPECT_EQ(ZU_errNumber(), 1002);
    EXPECT_EQ(ZU_errNumber(), 0);
}

TEST(ZuInit, LoadsUnitTablesOnceAndStopsOnFailure)
{
    static int loads;
    loads = 0;
    zu_unitTableLoader = [](int) {
        ++loads;
        return 0;
    };
    ZU_close();
    ZU_init(1);
    ZU_init(1);
    EXPECT_EQ(loads, 1);
    zu_unitTableLoader = [](int) {
        ZU_setError(1001, "units.dat", 0, 0);
        return 7;
    };
    ZU_close();
    EXPECT_EXIT(ZU_init(1), testing::ExitedWithCode(1), "ZUtil: Cannot open file \"units.dat\"");
    zu_unitTableLoader = nullptr;
    ZU_init(1);
}

TEST(ZuInit, CloseFreesEverythingAndAllowsAFreshStart)
{
    ZU_init(1);
    ZU_push(1);
    ZU_setOpts("Mem_Error=NULL");
    ZU_ErrQuiet("R", 1, 2, "held");
    ZU_close();
    EXPECT_EQ(ZU_optValue(ZU_OPT_MEM_ERROR), 0);
    EXPECT_EQ(ZU_errWorst("*", nullptr), 0);
    ZU_init(1);
    ZU_ErrQuiet("R", 1, 2, "again");
    EXPECT_EQ(ZU_errWorst("*", nullptr), 2);
    ZU_errClear("*", 0);
}

} // namespace
