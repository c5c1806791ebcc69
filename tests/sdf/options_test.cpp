// Options: the table and its defaults, setting from text with its failures,
// channel blocks, the option stacks, the memory register and the switch
// that turns locking on.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "sdf_inner.h"

namespace {

std::string get(const char *name)
{
    char value[128] = "?";
    EXPECT_EQ(Sdf_Get_Opt(name, value), 0) << name;
    return value;
}

std::string get_chan(const fcb *f, const char *name)
{
    char value[128] = "?";
    EXPECT_EQ(sdf_get_opt(f, name, value), 0) << name;
    return value;
}

// Codes now held in the error set, oldest first.
std::vector<int> held_codes()
{
    std::vector<int> out;
    int index = 1;
    while (ZU_ErrRec *rec = ZU_errNext("*", &index))
        out.push_back(rec->number);
    return out;
}

std::string newest_message()
{
    int index = -1;
    ZU_ErrRec *rec = ZU_errNext("*", &index);
    return rec ? rec->message : "";
}

// Each test starts on a level of built-in defaults and leaves the process's
// options as it found them.
class SdfOptions : public testing::Test {
protected:
    int depth_ = 0;
    void SetUp() override
    {
        depth_ = Sdf_Opt_Depth();
        ASSERT_EQ(Sdf_Push(-1), 0);
        ZU_errClear("*", 0);
    }
    void TearDown() override
    {
        while (Sdf_Opt_Depth() > depth_)
            Sdf_Pop();
        ZU_errClear("*", 0);
    }
};

// Each setting shows in the table's spelling and as the number the library
// works with (a text option's number is its length).
TEST_F(SdfOptions, SettingsKeepTheTablesSpellingAndTheirNumber)
{
    const std::string p200(200, 'p');
    struct one {
        std::string setting;
        int opt;
        const char *name;
        std::string shown;
        int ival;
    };
    for (const one &c : std::vector<one>{
             {"Overwrite=no", SDF_OPT_OVERWRITE, "Overwrite", "No", 0},
             {" calc_try_noprefix = BOTH", SDF_OPT_CALC_TRY_NOPREFIX, "Calc_Try_NoPrefix", "Both", 3},
             {"PATH_ENCODING='cp_utf8'", SDF_OPT_PATH_ENCODING, "Path_Encoding", "CP_UTF8", 65001},
             {"Prefix='ab c'", SDF_OPT_PREFIX, "Prefix", "ab c", 4},
             {"SDF_INT_format=%5d", SDF_OPT_INT_FORMAT, "SDF_INT_format", "%5d", 3},
             {"Prefix=", SDF_OPT_PREFIX, "Prefix", "", 0},
             {"Calc_Prefix=" + p200, SDF_OPT_CALC_PREFIX, "Calc_Prefix", p200.substr(0, 127), 127},
             {"Lock_Life_Hrs=1.5", SDF_OPT_LOCK_LIFE_HRS, "Lock_Life_Hrs", "1.5", 2},
             {"Calc_Range_Subst=-7", SDF_OPT_CALC_RANGE_SUBST, "Calc_Range_Subst", "-7", -7},
             {"Max_Extra_Data_Chunks=3000000000", SDF_OPT_MAX_EXTRA_DATA_CHUNKS, "Max_Extra_Data_Chunks",
              "3000000000", INT_MAX},
             {"Default_Internal_Channel=2", SDF_OPT_DEFAULT_INTERNAL_CHANNEL, "Default_Internal_Channel", "2",
              2}}) {
        ASSERT_EQ(Sdf_Set_Opts(c.setting.c_str()), 0) << c.setting;
        EXPECT_EQ(get(c.name), c.shown) << c.setting;
        EXPECT_EQ(sdf_opt_int(nullptr, c.opt), c.ival) << c.setting;
    }
    EXPECT_DOUBLE_EQ(sdf_opt_double(nullptr, SDF_OPT_LOCK_LIFE_HRS), 1.5);
    EXPECT_FLOAT_EQ(sdf_opt_float(nullptr, SDF_OPT_LOCK_LIFE_HRS), 1.5f);
    EXPECT_TRUE(held_codes().empty());
}

TEST_F(SdfOptions, FailuresLeaveTheOptionAndAreReported)
{
    struct one {
        const char *text;
        int code;
        const char *name;
        const char *after;
        const char *message;
    };
    for (const one &c : std::vector<one>{
             {"Overwrite=maybe", 3061, "Overwrite", "Yes",
              "Value \"maybe\" invalid for option \"Overwrite\"."},
             {"Overwrite=", 3062, "Overwrite", "Yes", "No value given for option \"Overwrite\"."},
             {"Max_Extra_Slot_Chunks=abc", 3061, "Max_Extra_Slot_Chunks", "128",
              "Value \"abc\" invalid for option \"Max_Extra_Slot_Chunks\"."},
             {"Lock_Life_Hrs=", 3062, "Lock_Life_Hrs", "24",
              "No value given for option \"Lock_Life_Hrs\"."},
             {"Error_Out=1", 3061, "Error_Out", "ErrSet",
              "Value \"1\" invalid for option \"Error_Out\"."},
             {"Nonsense=1", 3060, "Overwrite", "Yes", "Unknown option \"Nonsense\"."}}) {
        ZU_errClear("*", 0);
        EXPECT_EQ(Sdf_Set_Opts(c.text), c.code) << c.text;
        EXPECT_EQ(get(c.name), c.after) << c.text;
        EXPECT_EQ(held_codes(), std::vector<int>{c.code}) << c.text;
        EXPECT_EQ(newest_message(), c.message);
    }
}

TEST_F(SdfOptions, EveryItemIsTriedAndTheLastFailureIsReturned)
{
    EXPECT_EQ(Sdf_Set_Opts("Overwrite=No,Nonsense=1,Write=Always"), 3060);
    EXPECT_EQ(get("Overwrite"), "No");
    EXPECT_EQ(get("Write"), "Always");
    ZU_errClear("*", 0);
    EXPECT_EQ(Sdf_Set_Opts("Nonsense=1, Zero_Arrays=Yes, Delete_Warn=perhaps"), 3061);
    EXPECT_EQ(held_codes(), (std::vector<int>{3060, 3061}));
    EXPECT_EQ(get("Zero_Arrays"), "Yes");
    // Empty items between commas set nothing and are no failure.
    EXPECT_EQ(Sdf_Set_Opts("Zero_Arrays=No,,"), 0);
    EXPECT_EQ(get("Zero_Arrays"), "No");
    // More items than there are options are all applied.
    std::string text;
    for (int i = 0; i < 40; ++i)
        text += "Overwrite=No, ";
    EXPECT_EQ(Sdf_Set_Opts((text + "Prefix=last").c_str()), 0);
    EXPECT_EQ(get("Prefix"), "last");
}

TEST_F(SdfOptions, FlushAlwaysForcesWriteButKeepsItsText)
{
    ASSERT_EQ(Sdf_Set_Opts("Flush=Always"), 0);
    EXPECT_EQ(sdf_opt_int(nullptr, SDF_OPT_WRITE), 1);
    EXPECT_EQ(get("Write"), "On_Command");
    ASSERT_EQ(Sdf_Set_Opts("Flush=On_Command"), 0);
    EXPECT_EQ(sdf_opt_int(nullptr, SDF_OPT_WRITE), 0);
    ASSERT_EQ(Sdf_Set_Opts("Write=Always"), 0);
    EXPECT_EQ(sdf_opt_int(nullptr, SDF_OPT_WRITE), 1);
    // A failing item doesn't skip the settling of Write.
    ASSERT_EQ(Sdf_Set_Opts("Write=On_Command, Flush=Always, Nonsense=1"), 3060);
    EXPECT_EQ(sdf_opt_int(nullptr, SDF_OPT_WRITE), 1);
}

TEST_F(SdfOptions, GetOptOfUnknownNameAndOfThreadSafe)
{
    char value[128] = "x";
    EXPECT_EQ(Sdf_Get_Opt("Bogus", value), 3060);
    EXPECT_STREQ(value, "");
    EXPECT_EQ(held_codes(), std::vector<int>{3060});
    EXPECT_EQ(Sdf_Get_Opt(nullptr, value), 3060);
    EXPECT_EQ(Sdf_Get_Opt("Overwrite", nullptr), 0);
    EXPECT_EQ(get("thread_safe"), sdf_thread_safe() ? "Yes" : "No");
    EXPECT_STREQ(sdf_opt_text(nullptr, SDF_NOPTS), "");  // numbers outside the table
    EXPECT_EQ(sdf_opt_int(nullptr, -1), 0);
}

TEST_F(SdfOptions, ChannelRefusesGeneralAndUnknownOptions)
{
    fcb f{};
    EXPECT_EQ(sdf_set_opts(&f, "Sex=BigEndian"), 3063);
    EXPECT_EQ(newest_message(), "Cannot set general option \"Sex\" using Sdf_Set_Opts_Chan().");
    EXPECT_EQ(sdf_set_opts(&f, "Nonsense=1"), 3060);
    EXPECT_EQ(get("Sex"), "Native_Sex");
    char value[128];
    EXPECT_EQ(sdf_get_opt(&f, "Nonsense", value), 3060);
    int index = -1;
    ZU_ErrRec *rec = ZU_errNext("*", &index);
    ASSERT_NE(rec, nullptr);
    EXPECT_STREQ(rec->routine, "Sdf_Get_Opt_Chan");
    sdf_free_chan_opts(&f);
}

TEST_F(SdfOptions, ChannelBlockStartsFromBuiltInDefaults)
{
    ASSERT_EQ(Sdf_Set_Opts("Overwrite=No, Delete_Warn=No, Case_Sensitive=No"), 0);
    fcb f{};
    // No block yet: the process's options show through.
    EXPECT_EQ(sdf_opt_int(&f, SDF_OPT_OVERWRITE), 0);
    EXPECT_EQ(get_chan(&f, "Overwrite"), "No");
    ASSERT_EQ(sdf_set_opts(&f, "Zero_Arrays=Yes"), 0);
    ASSERT_NE(f.own_opts, nullptr);
    EXPECT_EQ(sdf_opt_int(&f, SDF_OPT_ZERO_ARRAYS), 1);
    EXPECT_EQ(sdf_opt_int(nullptr, SDF_OPT_ZERO_ARRAYS), 0);
    EXPECT_EQ(sdf_opt_int(&f, SDF_OPT_OVERWRITE), 1);
    EXPECT_EQ(get_chan(&f, "Delete_Warn"), "Yes");
    // General options always come from the process.
    EXPECT_EQ(sdf_opt_int(&f, SDF_OPT_CASE_SENSITIVE), 0);
    EXPECT_EQ(get_chan(&f, "Case_Sensitive"), "No");
    sdf_free_chan_opts(&f);
    EXPECT_EQ(f.own_opts, nullptr);
}

TEST_F(SdfOptions, ProcessPushCopyChangePopRestores)
{
    ASSERT_EQ(Sdf_Set_Opts("Overwrite=No"), 0);
    int base = Sdf_Opt_Depth();
    ASSERT_EQ(Sdf_Push(-2), 0);
    EXPECT_EQ(Sdf_Opt_Depth(), base + 1);
    EXPECT_EQ(get("Overwrite"), "No");
    ASSERT_EQ(Sdf_Set_Opts("Overwrite=Yes, Prefix=tmp"), 0);
    EXPECT_EQ(Sdf_Pop(), 0);
    EXPECT_EQ(Sdf_Opt_Depth(), base);
    EXPECT_EQ(get("Overwrite"), "No");
    EXPECT_EQ(get("Prefix"), "");

    ASSERT_EQ(Sdf_Push(-1), 0); // built-in defaults whatever the process holds
    EXPECT_EQ(get("Overwrite"), "Yes");
    Sdf_Pop();
}

TEST_F(SdfOptions, ChannelStackLevels)
{
    ASSERT_EQ(Sdf_Set_Opts("Overwrite=No"), 0);
    fcb f{};
    ASSERT_EQ(sdf_push(&f, 0), 0); // empty stack: nothing happens
    EXPECT_EQ(f.stack.levels, nullptr);
    EXPECT_EQ(sdf_pop(&f), 0);
    EXPECT_EQ(sdf_opt_depth(&f), 0);

    // Without a block of its own the copy comes from the process.
    ASSERT_EQ(sdf_push(&f, -2), 0);
    EXPECT_EQ(get_chan(&f, "Overwrite"), "No");
    ASSERT_EQ(sdf_set_opts(&f, "Prefix=one"), 0);
    ASSERT_EQ(sdf_push(&f, -1), 0);
    EXPECT_EQ(get_chan(&f, "Overwrite"), "Yes");
    EXPECT_EQ(get_chan(&f, "Prefix"), "");
    ASSERT_EQ(sdf_set_opts(&f, "Prefix=two"), 0);
    EXPECT_EQ(sdf_opt_depth(&f), 2);

    // -3..-7 take a level up as it was left; -2 copies over it.
    sdf_pop(&f);
    EXPECT_EQ(get_chan(&f, "Prefix"), "one");
    ASSERT_EQ(sdf_push(&f, -5), 0);
    EXPECT_EQ(get_chan(&f, "Prefix"), "two");
    sdf_pop(&f);
    ASSERT_EQ(sdf_push(&f, -2), 0);
    EXPECT_EQ(get_chan(&f, "Prefix"), "one");

    // Selecting: min(mode, top), without changing the stack.
    ASSERT_EQ(sdf_push(&f, 99), 0);
    EXPECT_EQ(sdf_opt_depth(&f), 2);
    ASSERT_EQ(sdf_push(&f, 1), 0);
    EXPECT_EQ(sdf_opt_depth(&f), 1);
    EXPECT_EQ(f.stack.top, 2);

    // Level 0 had no block: back there the process shows through again.
    ASSERT_EQ(sdf_push(&f, 0), 0);
    EXPECT_EQ(f.own_opts, nullptr);
    EXPECT_EQ(get_chan(&f, "Prefix"), "");
    EXPECT_EQ(get_chan(&f, "Overwrite"), "No");
    sdf_free_chan_opts(&f);
}

TEST_F(SdfOptions, PushAboveTopPopsBackToWhereItCameFrom)
{
    fcb f{};
    ASSERT_EQ(sdf_set_opts(&f, "Prefix=base"), 0);
    ASSERT_EQ(sdf_push(&f, -2), 0);
    ASSERT_EQ(sdf_push(&f, -2), 0);
    ASSERT_EQ(sdf_set_opts(&f, "Prefix=two"), 0);
    ASSERT_EQ(sdf_push(&f, 0), 0); // back to level 0, top stays 2
    ASSERT_EQ(sdf_push(&f, -8), 0);
    EXPECT_EQ(sdf_opt_depth(&f), 3);
    EXPECT_EQ(get_chan(&f, "Prefix"), "base"); // a copy of level 0
    sdf_pop(&f);
    EXPECT_EQ(sdf_opt_depth(&f), 0);
    EXPECT_EQ(f.stack.top, 2);
    EXPECT_EQ(get_chan(&f, "Prefix"), "base");

    ASSERT_EQ(sdf_push(&f, -9), 0); // -9 as -1: built-in defaults
    EXPECT_EQ(sdf_opt_depth(&f), 3);
    EXPECT_EQ(get_chan(&f, "Prefix"), "");
    sdf_pop(&f);
    EXPECT_EQ(sdf_opt_depth(&f), 0);

    // An ordinary push onto a level that had a back link drops the link.
    ASSERT_EQ(sdf_push(&f, -8), 0);
    ASSERT_EQ(sdf_push(&f, 1), 0);
    ASSERT_EQ(sdf_push(&f, -2), 0);
    ASSERT_EQ(sdf_push(&f, -2), 0);
    EXPECT_EQ(sdf_opt_depth(&f), 3);
    sdf_pop(&f);
    EXPECT_EQ(sdf_opt_depth(&f), 2);
    sdf_free_chan_opts(&f);
}

TEST_F(SdfOptions, StackGrowsPastItsFirstLevels)
{
    fcb f{};
    for (int i = 1; i <= 70; ++i) {
        ASSERT_EQ(sdf_push(&f, -2), 0);
        ASSERT_EQ(sdf_set_opts(&f, ("Prefix=p" + std::to_string(i)).c_str()), 0);
    }
    EXPECT_EQ(sdf_opt_depth(&f), 70);
    EXPECT_GE(f.stack.capacity, 71);
    for (int i = 69; i >= 1; --i) {
        sdf_pop(&f);
        ASSERT_EQ(get_chan(&f, "Prefix"), std::string("p").append(std::to_string(i)));
    }
    sdf_free_chan_opts(&f);
}

TEST(SdfMemReg, FreesOnlyWhatWasHandedOut)
{
    double before = ZU_memTotal();
    void *given = sdf_register(ZU_allocMem(64, "test:given"));
    ASSERT_NE(given, nullptr);
    EXPECT_EQ(sdf_register(given), given); // once in the register
    void *own = ZU_allocMem(64, "test:own");
    int local = 0;
    EXPECT_EQ(Sdf_Free(own), 0);
    EXPECT_EQ(Sdf_Free(&local), 0);
    EXPECT_EQ(Sdf_Free(nullptr), 0);
    static_cast<char *>(own)[63] = 1; // still ours
    ZU_freeMem(own);
    EXPECT_EQ(Sdf_Free(given), 1);
    EXPECT_EQ(Sdf_Free(given), 0);
    EXPECT_EQ(sdf_register(nullptr), nullptr);
    EXPECT_EQ(ZU_memTotal(), before);
}

TEST(SdfMemReg, GrowsAndEmptiesInAnyOrder)
{
    double before = ZU_memTotal();
    std::vector<void *> ptrs;
    for (int i = 0; i < 3000; ++i)
        ptrs.push_back(sdf_register(ZU_allocMem(8 + i % 5, "test:many")));
    std::shuffle(ptrs.begin(), ptrs.end(), std::mt19937(7));
    for (size_t i = 0; i < ptrs.size(); ++i)
        ASSERT_EQ(Sdf_Free(ptrs[i]), 1) << i;
    for (void *p : ptrs)
        EXPECT_EQ(Sdf_Free(p), 0);
    // The register's own array went with the last pointer.
    EXPECT_EQ(ZU_memTotal(), before);
}

// The clean-up at exit empties the process's stack; the library works on
// from the built-in options.
TEST(SdfOptionsShutdown, FreesTheProcessStack)
{
    EXPECT_EXIT(
        {
            bool ok = Sdf_Push(-2) == 0 && Sdf_Set_Opts("Overwrite=No") == 0 &&
                      Sdf_Push(-2) == 0;
            double during = ZU_memTotal();
            sdf_opts_shutdown();
            ok = ok && Sdf_Opt_Depth() == 0 && get("Overwrite") == "Yes" &&
                 ZU_memTotal() < during && Sdf_Set_Opts("Prefix=a") == 0 && get("Prefix") == "a";
            exit(ok ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

// Turning locking on can't be undone, so it runs in a child process.
TEST(SdfThreadSafe, OnceOnStaysOnAndGuardsSharedState)
{
    EXPECT_EXIT(
        {
            bool ok = !sdf_thread_safe() && Sdf_Set_Opts("Thread_Safe=Yes") == 0 &&
                      sdf_thread_safe() && ZU_isThreadSafe() && get("Thread_Safe") == "Yes" &&
                      Sdf_Set_Opts("Thread_Safe=No") == 0 && sdf_thread_safe() &&
                      get("Thread_Safe") == "Yes";
            std::vector<std::thread> threads;
            std::vector<int> good(8, 0);
            for (int t = 0; t < 8; ++t)
                threads.emplace_back([t, &good] {
                    fcb f{};
                    int freed = 0;
                    for (int i = 0; i < 500; ++i) {
                        void *p = sdf_register(ZU_allocMem(16, "test:thread"));
                        sdf_push(&f, -2);
                        sdf_set_opts(&f, "Overwrite=No");
                        freed += Sdf_Free(p) == 1 && sdf_opt_int(&f, SDF_OPT_OVERWRITE) == 0 &&
                                 sdf_opt_int(nullptr, SDF_OPT_ERROR_OUT) == 1;
                        sdf_global_lock();
                        sdf_global_unlock();
                    }
                    sdf_free_chan_opts(&f);
                    good[t] = freed == 500;
                });
            for (std::thread &th : threads)
                th.join();
            for (int g : good)
                ok = ok && g;
            exit(ok ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

// The channel's hold on its file's lock across calls.
TEST(SdfMutexLock, CountsNestedHoldsAndRefusesToUpgrade)
{
    sdfile file{};
    fcb f{};
    f.file = &file;
    f.number = 4;
    if (!sdf_thread_safe()) {
        EXPECT_EQ(sdf_mutex_lock(&f, 2), 0); // locking off: nothing at all
        EXPECT_EQ(f.write_locks, 0);
    }
    EXPECT_EXIT(
        {
            ZU_errClear("*", 0);
            Sdf_Set_Opts("Thread_Safe=Yes, Error_Out=ErrSet");
            file.rwlock = ZU_rwCreate();
            bool ok = sdf_mutex_lock(&f, 1) == 0 && sdf_mutex_lock(&f, 1) == 0 &&
                      f.read_locks == 2 && ZU_rwState(file.rwlock) == 1 &&
                      sdf_mutex_lock(&f, 2) == 3003;
            ok = ok && newest_message() == "Channel 4 locked for reading. Cannot obtain write lock.";
            sdf_mutex_unlock(&f);
            ok = ok && ZU_rwState(file.rwlock) == 1;
            sdf_mutex_unlock(&f);
            ok = ok && ZU_rwState(file.rwlock) == 0 && sdf_mutex_unlock(&f) == 0;

            ok = ok && sdf_mutex_lock(&f, 2) == 3002; // not writable
            f.writable = 1;
            ok = ok && sdf_mutex_lock(&f, 0) == 0 && ZU_rwState(file.rwlock) == -1 &&
                 sdf_mutex_lock(&f, 1) == 0 && f.read_locks == 1 && sdf_mutex_lock(&f, 3) == 0 &&
                 f.write_locks == 2;
            sdf_mutex_unlock(&f);
            ok = ok && ZU_rwState(file.rwlock) == -1 && f.read_locks == 1;
            sdf_mutex_unlock(&f);
            ok = ok && ZU_rwState(file.rwlock) == 0 && f.read_locks == 0;
            ZU_rwDestroy(file.rwlock);
            exit(ok ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

} // namespace
