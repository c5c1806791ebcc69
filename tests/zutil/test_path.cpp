// Path operations: both slash kinds, drives, UNC names, the reference path.
#include "zu_test_support.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace {

std::string absolute(const char *ref, const char *path)
{
    return takeText(ZU_absolutePath(ref, path));
}

std::string relative(const char *ref, const char *path)
{
    return takeText(ZU_relativePath(ref, path));
}

std::string reduced(const char *path, int max)
{
    return takeText(ZU_reducePath(path, max));
}

std::string dirName(const char *path)
{
    std::string copy = path;
    return ZU_dirName(copy.data());
}

std::string baseName(const char *path)
{
    std::string copy = path;
    return ZU_baseName(copy.data());
}

class ZuPath : public testing::Test {
protected:
    void SetUp() override { ZU_setReferencePath(""); }
    void TearDown() override { ZU_setReferencePath(""); }
};

TEST_F(ZuPath, KnowsAbsoluteForms)
{
    for (const char *p : {"/a", "\\a", "C:name", "\\\\server\\share"})
        EXPECT_TRUE(ZU_isAbsolute(p)) << p;
    for (const char *p : {"a/b", "1:x", "", static_cast<const char *>(nullptr)})
        EXPECT_FALSE(ZU_isAbsolute(p)) << (p ? p : "(null)");
}

TEST_F(ZuPath, AbsoluteJoinsAndReducesBothSlashKinds)
{
    EXPECT_EQ(absolute("C:\\work", "a\\..\\b"), "C:\\work\\b");
    EXPECT_EQ(absolute("C:/work//x", "./a/../b/"), "C:\\work\\x\\b");
    EXPECT_EQ(absolute("/home/u", "a/../b.sdf"), "/home/u/b.sdf");
    EXPECT_EQ(absolute("/home/u", "a\\.\\b.sdf"), "/home/u/a/b.sdf");
    EXPECT_EQ(absolute("\\\\srv\\share", "x"), "\\\\srv\\share\\x");
    EXPECT_EQ(absolute("rel", "b"), "rel/b");
    EXPECT_EQ(absolute("x", "a/../b"), "x/b");
    // The first segment is never cancelled: it may be a drive.
    EXPECT_EQ(absolute("C:", "../b"), "C:\\..\\b");
    // An absolute path comes back untouched.
    EXPECT_EQ(absolute("/any", "C:x"), "C:x");
    EXPECT_EQ(absolute("/any", "/p/./q"), "/p/./q");
}

TEST_F(ZuPath, AbsoluteUsesTheStoredReference)
{
    EXPECT_EQ(absolute(nullptr, "b"), "b");
    ZU_setReferencePath("D:\\base");
    EXPECT_EQ(absolute(nullptr, "b"), "D:\\base\\b");
    EXPECT_EQ(absolute("", "b"), "D:\\base\\b");
    EXPECT_STREQ(ZU_getReferencePath(), "D:\\base");
    char small[4];
    EXPECT_STREQ(ZU_getReferencePathTS(small, sizeof small), "D:\\");
    EXPECT_EQ(takeText(ZU_getReferencePathTS(nullptr, 0)), "D:\\base");
    EXPECT_EQ(relative(nullptr, "d:/base/sub/f"), "sub/f");
}

TEST_F(ZuPath, RelativeWalksUpAndDown)
{
    EXPECT_EQ(relative("C:/a/b", "c:/a/c/d"), "../c/d");
    EXPECT_EQ(relative("/a/b", "/a/b"), "");
    EXPECT_EQ(relative("/A/b", "/a/B/"), "");
    EXPECT_EQ(relative("C:/a", "D:/a"), "D:/a");
    EXPECT_EQ(relative("/a/b/c", "/a"), "../..");
    EXPECT_EQ(relative("/a\\b", "/a/b\\c/d"), "c/d");
    EXPECT_EQ(relative("/a/./b/../c", "/a/c/x"), "x");
    // Different roots or leading separators keep the path absolute.
    EXPECT_EQ(relative("/a/b", "//a/b/c"), "//a/b/c");
    EXPECT_EQ(relative("/a/b", "/x/y"), "/x/y");
    EXPECT_EQ(relative("a/b", "a/../../x"), "../../../x");
    EXPECT_EQ(relative("/a/../..", "/a/x"), "/a/x");
}

TEST_F(ZuPath, ReducedFormFitsTheMaximum)
{
    const char *longPath = "/home/user/projects/alpha/data/run/result.sdf";
    EXPECT_EQ(reduced("/a/b", 10), "/a/b");
    std::string r = reduced(longPath, 30);
    EXPECT_LE(r.size(), 30u);
    EXPECT_EQ(r, "/home/user/.../run/result.sdf");
    EXPECT_EQ(reduced("C:\\alpha\\beta\\gamma\\delta.txt", 20), "C:\\...\\delta.txt");
    EXPECT_EQ(reduced("a/bbbbbbbbbbbbbbbbbbbbbb/c.txt", 12), "a/.../c.txt");
    // Nothing fits but the last segment, cut with a marker.
    EXPECT_EQ(reduced("/dir/averyveryverylongname.txt", 10), "averyve...");
    EXPECT_EQ(reduced("/dir/name.txt", 3), "n...");
    EXPECT_EQ(reduced("//////////", 4), "////");
    for (int max = 4; max < 50; ++max)
        EXPECT_LE(reduced(longPath, max).size(), static_cast<size_t>(max)) << max;
}

TEST_F(ZuPath, BaseAndDirNamesCutInPlace)
{
    const std::pair<const char *, const char *> bases[] = {
        {"a/b/", "b"}, {"a\\b", "b"}, {"name", "name"}, {"/", "/"}, {"///", "/"}, {"", ""}};
    for (const auto &[path, base] : bases)
        EXPECT_EQ(baseName(path), base) << path;
    const std::pair<const char *, const char *> dirs[] = {
        {"name", "."},     {"/name", "/"},  {"C:name", "C:"}, {"C:\\name", "C:\\"},
        {"C:/a/b", "C:/a"}, {"a//b\\", "a"}, {"//x", "/"},     {"\\", "\\"}};
    for (const auto &[path, dir] : dirs)
        EXPECT_EQ(dirName(path), dir) << path;
    EXPECT_STREQ(ZU_baseName(nullptr), "");
    EXPECT_STREQ(ZU_dirName(nullptr), "");

    EXPECT_EQ(takeText(ZU_baseNameDup("x/y.txt")), "y.txt");
    EXPECT_EQ(takeText(ZU_dirNameDup("x/y.txt")), "x");
}

TEST_F(ZuPath, SetsSlashesEitherWay)
{
    char p[] = "a\\b/c";
    ZU_setSlashes(p, 1);
    EXPECT_STREQ(p, "a/b/c");
    ZU_setSlashes(p, 0);
    EXPECT_STREQ(p, "a\\b\\c");
}

TEST_F(ZuPath, NullPathsGiveNull)
{
    EXPECT_EQ(ZU_absolutePath("/a", nullptr), nullptr);
    EXPECT_EQ(ZU_relativePath("/a", nullptr), nullptr);
    EXPECT_EQ(ZU_reducePath(nullptr, 10), nullptr);
}

} // namespace
