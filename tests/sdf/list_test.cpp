// Listing by template, the tag filter and decoder, and the test for and
// deletion of variables by name or template, on case-sensitive and
// case-insensitive files and through a channel's prefix.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "sdf_value_helpers.h"

namespace {

using sdftest::createFile;
using sdftest::openFile;
using sdftest::reported;
using Names = std::vector<std::string>;

class SdfList : public sdftest::ChannelTest {
protected:
    int fileWith(const char* file, const Names& names, const char* opts = nullptr) {
        int ch = createFile(path(file), opts);
        for (size_t i = 0; i < names.size(); i++) {
            const int v = static_cast<int>(i);
            EXPECT_EQ(Sdf_Write_Var(ch, names[i].c_str(), SDF_INT_T, &v, nullptr, nullptr), 0) << names[i];
        }
        return ch;
    }
    static Names list(int ch, const char* templ, int want_rc = 0) {
        char** l = reinterpret_cast<char**>(1);
        int count = -1;
        EXPECT_EQ(Sdf_List(ch, templ, &l, &count), want_rc) << templ;
        if (want_rc) {
            EXPECT_EQ(l, nullptr);
            EXPECT_EQ(count, 0);
            return {};
        }
        EXPECT_NE(l, nullptr) << templ << ": a list even when nothing matches";
        return sdftest::takeList(l, count);
    }
};

TEST_F(SdfList, TemplatesSelectNamesInTableOrder) {
    int ch = fileWith("l.sdf", {"b", "a2", "a10", "a1", "c:d", "ab"});
    const struct {
        const char* templ;
        Names want;
    } cases[] = {
        {"*", {"a1", "a10", "a2", "ab", "b", "c:d"}},
        {"a#", {"a1", "a10", "a2"}},
        {"a?", {"a1", "a2", "ab"}},
        {"c:*", {"c:d"}},
        {"A*", {}},
        {"b", {"b"}},
        {"zz", {}},
    };
    for (const auto& c : cases) EXPECT_EQ(list(ch, c.templ), c.want) << c.templ;
    ZU_errClear("*", 0);
    list(ch, "a[b", 3000);
    EXPECT_TRUE(reported(3006));
    EXPECT_EQ(Sdf_List(ch, "*", nullptr, nullptr), 4001);
    char** l = nullptr;
    int count = 0;
    EXPECT_EQ(Sdf_List(99, "*", &l, &count), 3001);
    EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
}

TEST_F(SdfList, CaseInsensitiveFilesMatchAnyCase) {
    int ch = fileWith("ci.sdf", {"Alpha", "beta", "GAMMA"}, "Case_Sensitive=No");
    EXPECT_EQ(list(ch, "a*"), Names{"Alpha"});
    EXPECT_EQ(list(ch, "*A"), (Names{"Alpha", "beta", "GAMMA"}));
    EXPECT_EQ(list(ch, "g?mma"), Names{"GAMMA"});
    EXPECT_EQ(Sdf_Exists(ch, "ALPHA"), 1);
    EXPECT_EQ(Sdf_Exists(ch, "B*"), 1);
    EXPECT_EQ(Sdf_Delete(ch, "gamma"), 0);
    EXPECT_EQ(Sdf_Delete(ch, "*E*"), 0);
    EXPECT_EQ(list(ch, "*"), Names{"Alpha"});
    EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
}

TEST_F(SdfList, PrefixNamesTheChannelsPart) {
    int ch = fileWith("p.sdf", {"run:x", "run:y", "other"});
    ASSERT_EQ(Sdf_Set_Opts_Chan(ch, "Prefix=run:"), 0);
    EXPECT_EQ(list(ch, "*"), (Names{"run:x", "run:y"})) << "full names, prefix included";
    EXPECT_EQ(list(ch, "run:*"), (Names{"run:x", "run:y"}));
    EXPECT_EQ(Sdf_Exists(ch, "x"), 1);
    EXPECT_EQ(Sdf_Exists(ch, "other"), 0);
    EXPECT_EQ(Sdf_Delete(ch, "x"), 0);
    EXPECT_EQ(Sdf_Exists(ch, "run:x"), 0);
    ASSERT_EQ(Sdf_Set_Opts_Chan(ch, "Prefix="), 0);
    EXPECT_EQ(list(ch, "*"), (Names{"other", "run:y"}));
    // A prefix that is no name character turns every name into a template.
    ASSERT_EQ(Sdf_Set_Opts_Chan(ch, "Prefix=x."), 0);
    EXPECT_EQ(Sdf_Exists(ch, "other"), 0);
    EXPECT_EQ(list(ch, "*"), Names{});
    EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
}

TEST_F(SdfList, TagsFilterAndDecodeNames) {
    int ch = fileWith("t.sdf", {"run:speed_100:load_5", "run:speed_100", "run:load_5", "other", "a:x_1"});
    struct Case {
        const char* tags;
        Names names;
        Names values;
    };
    const std::vector<Case> cases = {
        {"+all_of,speed,load", {"run:speed_100:load_5"}, {"speed=100,load=5"}},
        {"+one_of,speed,load",
         {"run:load_5", "run:speed_100", "run:speed_100:load_5"},
         {"load=5", "speed=100", "speed=100,load=5"}},
        {"speed",
         {"a:x_1", "other", "run:load_5", "run:speed_100", "run:speed_100:load_5"},
         {"", "", "", "speed=100", "speed=100"}},
        {"", {"a:x_1", "other", "run:load_5", "run:speed_100", "run:speed_100:load_5"}, {"", "", "", "", ""}},
        // A tag named over and over writes more than the names take.
        {"+one_of,x,x,x,x,x,x,x,x", {"a:x_1"}, {"x=1,x=1,x=1,x=1,x=1,x=1,x=1,x=1"}},
        {"+all_of,speed,nothing", {}, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.tags);
        char** names = nullptr;
        char** values = nullptr;
        int count = -1;
        ASSERT_EQ(Sdf_Tag_List(ch, "*", c.tags, &names, &values, &count), 0);
        ASSERT_EQ(count, static_cast<int>(c.names.size()));
        EXPECT_EQ(sdftest::takeList(names, count), c.names);
        EXPECT_EQ(sdftest::takeList(values, count), c.values);
    }
    char** names = nullptr;
    char** values = nullptr;
    int count = 0;
    ASSERT_EQ(Sdf_Tag_List(ch, "run:*", "+one_of,load", &names, &values, &count), 0);
    EXPECT_EQ(sdftest::takeList(names, count), (Names{"run:load_5", "run:speed_100:load_5"}));
    EXPECT_EQ(sdftest::takeList(values, count), (Names{"load=5", "load=5"}));
    ZU_errClear("*", 0);
    EXPECT_EQ(Sdf_Tag_List(ch, "[", "speed", &names, &values, &count), 3000);
    EXPECT_TRUE(reported(3006));
    EXPECT_EQ(names, nullptr);
    EXPECT_EQ(values, nullptr);
    EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
}

TEST_F(SdfList, ExistsByNameOrTemplate) {
    int ch = fileWith("x.sdf", {"alpha", "beta1"});
    const struct {
        const char* text;
        int want;
    } cases[] = {{"alpha", 1}, {"Alpha", 0}, {"gamma", 0}, {"beta#", 1}, {"b*", 1}, {"*z", 0}, {"[", 0}, {"", 0}};
    for (const auto& c : cases) EXPECT_EQ(Sdf_Exists(ch, c.text), c.want) << c.text;
    EXPECT_EQ(Sdf_Exists(ch, nullptr), 0);
    EXPECT_EQ(Sdf_Exists(77, "alpha"), 0);
    EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
}

TEST_F(SdfList, DeleteByNameOrTemplateAndTheWarning) {
    const std::string p = path("d.sdf");
    int ch = fileWith("d.sdf", {"a1", "a2", "a3", "b", "a4", "c", "ab"});
    ZU_errClear("*", 0);
    EXPECT_EQ(Sdf_Delete(ch, "missing"), 2013);
    EXPECT_NE(sdftest::errorText(2013).find("\"missing\""), std::string::npos);
    ASSERT_EQ(Sdf_Set_Opts_Chan(ch, "Delete_Warn=No"), 0);
    EXPECT_EQ(Sdf_Delete(ch, "missing"), 0);
    EXPECT_EQ(Sdf_Delete(ch, "zz*"), 0) << "a template that matches nothing";
    // Neighbours in table order all go: the walk stays put after a delete.
    EXPECT_EQ(Sdf_Delete(ch, "a#"), 0);
    EXPECT_EQ(Sdf_Delete(ch, "c"), 0);
    ZU_errClear("*", 0);
    EXPECT_EQ(Sdf_Delete(ch, "a[1"), 3000);
    EXPECT_TRUE(reported(3006));
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);

    ch = openFile(p, "READ");
    char** l = nullptr;
    int count = 0;
    ASSERT_EQ(Sdf_List(ch, "*", &l, &count), 0);
    EXPECT_EQ(sdftest::takeList(l, count), (Names{"ab", "b"}));
    EXPECT_EQ(Sdf_Delete(ch, "b"), 3002);
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);

    // Deleting everything leaves a file that opens again, without records.
    ch = openFile(p, "WRITE");
    EXPECT_EQ(Sdf_Delete(ch, "*"), 0);
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
    ch = openFile(p, "READ");
    EXPECT_EQ(list(ch, "*"), Names{});
    EXPECT_EQ(Sdf_Exists(ch, "*"), 0);
    EXPECT_EQ(sdf_chan_get(ch)->file->hdr->chain[SDF_CH_VARINF - 1].chunks, 0);
    EXPECT_EQ(Sdf_Close(ch, "KEEP"), 0);
}

}  // namespace
