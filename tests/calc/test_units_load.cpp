// Units files: rows that add, replace and break, display pairs, the order of
// the files, new base units, and every load failure; and the start-up hook.
#include "units_test_support.h"
#include "zu_units_file.h"

#include <string>

namespace {

class UnitsLoad : public UnitsTest {};

TEST_F(UnitsLoad, FileAddsAndReplacesRows)
{
    std::string path = unitsFile("a", "foo = (3*metre);\n"
                                      "metre = [m2] ;\n"
                                      "widget = (2 * m) | w\\sub{x};\n"
                                      "thing=>Use   other units;");
    ASSERT_EQ(ZU_unitsLoad(path.c_str()), 0);
    int count = 0;
    ZU_unitsTable(nullptr, &count);
    EXPECT_EQ(count, 457 + 3);
    double scale = 0;
    EXPECT_EQ(dimsOf("metre"), "m2");
    EXPECT_EQ(dimsOf("m"), "m2") << "aliases follow the new row";
    EXPECT_EQ(dimsOf("foo", &scale), "m2");
    EXPECT_EQ(scale, 3);
    char out[64];
    EXPECT_EQ(ZU_unitPretty("kwidget", out, sizeof out), 0);
    EXPECT_STREQ(out, "kw\\sub{x}");
    EXPECT_EQ(ZU_unitParse("thing", nullptr, nullptr, nullptr), ZU_UNIT_UNDEFINED);
    EXPECT_EQ(lastUnitMessage(), "Unit \"thing\" not defined. Use   other units");
}

TEST_F(UnitsLoad, LaterFilesOverrideEarlierOnes)
{
    setenv("ZU_UNITS_LOCAL", unitsFile("local", "a = (2*m); b = (5*m);").c_str(), 1);
    setenv("ZU_UNITS_FILE", unitsFile("file", "a = (3*m); a = (4*m);").c_str(), 1);
    ASSERT_EQ(ZU_unitsLoad(unitsFile("path", "b = (6*m);").c_str()), 0);
    double a = 0, b = 0;
    dimsOf("a", &a);
    dimsOf("b", &b);
    EXPECT_EQ(a, 4) << "within a file the last definition counts";
    EXPECT_EQ(b, 6);
}

TEST_F(UnitsLoad, NewBaseUnitKeepsExistingDimensionTexts)
{
    ASSERT_EQ(ZU_unitsLoad(unitsFile("a", "foo = [foo];").c_str()), 0);
    const char *const *bases = nullptr;
    int count = 0;
    ZU_unitBases(&bases, &count);
    ASSERT_EQ(count, 19);
    EXPECT_STREQ(bases[18], "foo");
    EXPECT_EQ(dimsOf("kg.m/s2"), "m.kg.s-2");
    EXPECT_EQ(dimsOf("foo2/m"), "m-1.foo2");
}

TEST_F(UnitsLoad, BrokenRowsFailWhenUsedAndNeverHang)
{
    ASSERT_EQ(ZU_unitsLoad(unitsFile("a", "loop = loop2; loop2 = loop; self = (self*2);\n"
                                          "bad = (m^s); noequals; weird = [m.x];")
                               .c_str()),
              0);
    const ErrorCase cases[] = {
        {"loop", ZU_UNIT_NO_RESOLUTION, "No resolution for \"loop2\"."},
        {"self", ZU_UNIT_TOO_DEEP, nullptr},
        {"bad", ZU_UNIT_DIMENSIONS, "Illegal argument dimensions for \"^\" in \"m^s\""},
        {"noequals", ZU_UNIT_NO_RESOLUTION, "No resolution for \"\"."},
        {"weird", ZU_UNIT_NO_RESOLUTION, "No resolution for \"x\"."},
        {"km", 0, nullptr},
    };
    for (const ErrorCase &c : cases) {
        ZU_errClear("*", 0);
        EXPECT_EQ(ZU_unitParse(c.unit, nullptr, nullptr, nullptr), c.code) << c.unit;
        if (c.message) {
            EXPECT_EQ(lastUnitMessage(), c.message) << c.unit;
        }
    }
}

TEST_F(UnitsLoad, UnreadableFilesAreSkippedWithWarnings)
{
    std::string good = unitsFile("good", "foo = (2*m);");
    setenv("ZU_UNITS_FILE", "/nonexistent/units", 1);
    EXPECT_EQ(ZU_unitsLoad(good.c_str()), ZU_UNIT_FILE_OPEN);
    int index = 1;
    ZU_ErrRec *rec = ZU_errNext("cvtUnit", &index);
    ASSERT_NE(rec, nullptr);
    EXPECT_EQ(rec->severity, 2);
    EXPECT_STREQ(rec->message, "Could not open units file \"/nonexistent/units\".\n");
    EXPECT_EQ(dimsOf("foo"), "m") << "the file that opened still counts";

    ZU_UnitsIo saved = zu_unitsIo;
    zu_unitsIo.readAll = [](const char *, std::string *) { return 2; };
    unsetenv("ZU_UNITS_FILE");
    EXPECT_EQ(ZU_unitsLoad(good.c_str()), ZU_UNIT_FILE_READ);
    zu_unitsIo = saved;
    EXPECT_EQ(dimsOf("foo"), "<1>") << "built-in tables only";
}

TEST_F(UnitsLoad, TooManyBaseUnitsRevertToBuiltinTables)
{
    std::string text = "keep = (m);";
    for (int i = 0; i < 15; ++i)
        text.append("b").append(std::to_string(i)).append(" = [b").append(std::to_string(i)).append("];");
    ASSERT_EQ(ZU_unitsLoad(unitsFile("a", text).c_str()), ZU_UNIT_TOO_MANY_BASES);
    EXPECT_EQ(lastUnitMessage(),
              "Too many (33) base units defined: max. is 32.\nReverting to default definitions.");
    EXPECT_EQ(dimsOf("keep"), "<1>");
    int count = 0;
    ZU_unitBases(nullptr, &count);
    EXPECT_EQ(count, 18);
}

TEST_F(UnitsLoad, InitLoadsThroughTheRegisteredHook)
{
    ZU_close();
    setenv("ZU_UNITS_FILE", unitsFile("a", "zz = (7*m);").c_str(), 1);
    ZU_init(0);
    unsetenv("ZU_UNITS_FILE");
    double scale = 0;
    EXPECT_EQ(dimsOf("zz", &scale), "m");
    EXPECT_EQ(scale, 7);
}

TEST_F(UnitsLoad, InitEndsTheProcessWhenALoadFails)
{
    ZU_close();
    setenv("ZU_UNITS_FILE", "/nonexistent/units", 1);
    EXPECT_EXIT(ZU_init(0), testing::ExitedWithCode(1), "ZUtil: Unknown error number \\(0\\)");
}

} // namespace
