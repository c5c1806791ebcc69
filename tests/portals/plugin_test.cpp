// The plug-in as a host meets it: loaded with dlopen, the factory found by its
// plain name, the portal created, viewed through getInterface and deleted
// through the virtual destructor. Also the portal's dispatch of tag
// definition requests and its tag cache, through a portal built in.
#include <dlfcn.h>

#include <gtest/gtest.h>

#include <memory>
#include <set>

#include "fake_host.h"
#include "zeltra/portal.h"

using namespace MOSAQ;
using namespace MOSAQ::Portals;
using fakehost::FakeHost;
using fakehost::ScopedEnv;

namespace {

class Plugin : public ::testing::Test {
protected:
    void SetUp() override {
        handle = ::dlopen(ZELTRA_PLUGIN_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(handle, nullptr) << ::dlerror();
        factory = reinterpret_cast<PortalFactoryFn>(::dlsym(handle, "portalFactory"));
        ASSERT_NE(factory, nullptr) << "portalFactory is not exported under its plain name";
    }
    void TearDown() override {
        if (handle) ::dlclose(handle);
    }
    void* handle = nullptr;
    PortalFactoryFn factory = nullptr;
    FakeHost host;
};

TEST_F(Plugin, CreatesThePortalByNameInAnyCase) {
    for (const char* name : {"ZeltraSDF", "ZELTRASDF", "zeltrasdf", "zElTrAsDf"}) {
        std::unique_ptr<IPortal> portal(factory(&host, name, nullptr));
        ASSERT_NE(portal, nullptr) << name;
        EXPECT_EQ(portal->getName(), "ZeltraSDF");
        EXPECT_EQ(portal->getType(), "Portal");
        EXPECT_EQ(portal->getInterface(2), static_cast<void*>(portal.get()));
        EXPECT_EQ(portal->getInterface(1), nullptr);
        EXPECT_EQ(portal->getInterface(3), nullptr);
        EXPECT_TRUE(portal->getProperties().getKeys().empty());
    }
}

TEST_F(Plugin, UnknownNamesGiveNull) {
    for (const char* name : {"", "Zeltra", "ZeltraSDF ", "ZeltraSDFx"})
        EXPECT_EQ(factory(&host, name, nullptr), nullptr) << '"' << name << '"';
    EXPECT_TRUE(host.extensionsAsked.empty()) << "nothing may be created for an unknown name";
}

TEST_F(Plugin, LooksUpTheContextOnceAndLivesWithoutAHost) {
    {
        std::unique_ptr<IPortal> portal(factory(&host, "ZeltraSDF", nullptr));
        ASSERT_NE(portal, nullptr);
    }
    // Once for the portal and once for each of its three modules.
    EXPECT_EQ(host.extensionsAsked, (std::vector<String>(4, "Portal")));

    std::unique_ptr<IPortal> orphan(factory(nullptr, "ZeltraSDF", nullptr));
    ASSERT_NE(orphan, nullptr);
    String errors;
    StringStringMap outputs;
    std::list<TagData> tags;
    EXPECT_FALSE(orphan->writeOutputTagFile("out.txt", tags, {{"mode", "bogus"}}, outputs, errors));
    EXPECT_TRUE(errors.empty());
}

TEST_F(Plugin, DumpsTheMessageTableWhenTheVariableIsSetEvenIfEmpty) {
    ScopedEnv testing("MQA_TESTING", std::nullopt);
    {
        ScopedEnv dump("MQA_TESTING_ALL_PORTAL_MESSAGES", std::nullopt);
        std::unique_ptr<IPortal> quiet(factory(&host, "ZeltraSDF", nullptr));
        EXPECT_TRUE(host.log.empty()) << host.transcript();
    }
    ScopedEnv dump("MQA_TESTING_ALL_PORTAL_MESSAGES", String());
    std::unique_ptr<IPortal> portal(factory(&host, "ZeltraSDF", nullptr));
    ASSERT_NE(portal, nullptr);
    ASSERT_EQ(host.log.size(), 4u) << host.transcript();
    EXPECT_EQ(host.log[0].text, "##### START OF ALL STRING TABLE MESSAGES #####\n");
    EXPECT_EQ(host.log[1].text, "\n");
    EXPECT_NE(host.log[2].text.find("ZeltraSDF\t.Portal.err.fileNotFound\t"), String::npos);
    EXPECT_EQ(host.log[3].text, "##### END OF ALL STRING TABLE MESSAGES #####\n");
    for (const auto& line : host.log) EXPECT_EQ(line.level, 8);
}

// With both switches a host sees, at creation, the dump with every row of
// every table, then the walk over the framework's messages.
TEST_F(Plugin, ShowsEveryMessageOfEveryTableAndTheWalkWhenTesting) {
    ScopedEnv testing("MQA_TESTING", "Yes"), dump("MQA_TESTING_ALL_PORTAL_MESSAGES", "1");
    std::unique_ptr<IPortal> portal(factory(&host, "ZeltraSDF", nullptr));
    ASSERT_NE(portal, nullptr);
    ASSERT_EQ(host.log.size(), 4u + 23u) << host.transcript();
    const String& table = host.log[2].text;
    std::set<String> tables;
    for (const auto& row : Support::StringTable::rows()) {
        String line = String(row.table) + "\t" + row.id + "\t";
        for (const char* p = row.text; *p; ++p) line += *p == '\n' ? String("\\n") : String(1, *p);
        EXPECT_NE(table.find(line + "\n"), String::npos) << line;
        tables.insert(row.table);
    }
    for (const char* name : {"Marking", "Scripting", "Xml", "ZeltraSDF", "tagging"})
        EXPECT_EQ(tables.count(name), 1u) << name;
    EXPECT_EQ(host.log[3].text, "##### END OF ALL STRING TABLE MESSAGES #####\n");
    // Then the walk: each of the eleven messages shows its id, then its text
    // with dummy values; a newline ends.
    EXPECT_EQ(host.log[4].text, "\n.err.parseBadPath");
    EXPECT_NE(host.log[5].text.find("C:\\dummy\\path\\that\\does\\not\\matter\\filename.ext"),
              String::npos);
    EXPECT_EQ(host.log[12].text, "\n.msg.tagNumInput");
    EXPECT_NE(host.log[13].text.find("99"), String::npos);
    for (std::size_t i = 4; i < host.log.size(); ++i) {
        EXPECT_EQ(host.log[i].level, 8);
        EXPECT_EQ(host.log[i].text.find("%1"), String::npos) << host.log[i].text;
    }
    EXPECT_EQ(host.log[24].text, "\n.err.fileNotFound");
    EXPECT_EQ(host.log[26].text, "\n");
}

// A portal whose own reads are counted: the cache itself is HelperBase's and
// tested there; here, that each side reaches its own reader with its own key.
class CountingPortal : public xmlPortal {
public:
    using xmlPortal::xmlPortal;
    int inputReads = 0;
    int outputReads = 0;
    std::list<TagData> answer{{{"grp", "x"}, "x", "Double", {{"mode", "portal", ""}}}};
    std::vector<StringStringMap> dataSeen;

    int readInputTags(const String&, const StringStringMap& data, std::list<TagData>& tags,
                      StringStringMap&, String&) override {
        ++inputReads;
        dataSeen.push_back(data);
        tags = answer;
        return 0;
    }
    int readOutputTags(const String&, const StringStringMap& data, std::list<TagData>& tags,
                       StringStringMap&, String&) override {
        ++outputReads;
        dataSeen.push_back(data);
        tags = answer;
        return 0;
    }
    using PortalImpl::getInputTags;
    using PortalImpl::getOutputTags;
};

TEST(PortalTagCache, EachSideReadsThroughItsOwnReaderOncePerBaseName) {
    FakeHost host;
    CountingPortal portal(&host, "Counting");
    std::list<TagData> tags;
    EXPECT_TRUE(portal.getInputTags("/a/M_in_deck.txt", "deck.inp", tags));
    EXPECT_EQ(tags, portal.answer);
    tags.clear();
    EXPECT_TRUE(portal.getInputTags("/b/M_in_deck.txt", "other.inp", tags));
    EXPECT_EQ(tags, portal.answer);
    EXPECT_TRUE(portal.getOutputTags("/a/M_in_deck.xml", "deck.out", tags));
    EXPECT_EQ(std::make_pair(portal.inputReads, portal.outputReads), std::make_pair(1, 1));
    EXPECT_EQ(portal.dataSeen, (std::vector<StringStringMap>{{{"inputFilename", "deck.inp"}},
                                                             {{"outputFilename", "deck.out"}}}));
}

TEST(PortalDispatch, ModesAreExactAndUnknownModesReachNobody) {
    FakeHost host;
    zeltrasdfPortal portal(&host);
    const std::list<TagData> tags;
    for (const char* mode : {"Fixed", "FREE", "Xml", "", "portalx", "scripts"}) {
        String errors = "before";
        StringStringMap outputs;
        EXPECT_FALSE(portal.writeOutputTagFile("o.txt", tags, {{"mode", mode}}, outputs, errors))
            << mode;
        EXPECT_EQ(errors, "before") << mode;
        EXPECT_TRUE(outputs.empty());
    }
}

TEST(PortalDispatch, AFileNoModuleClaimsGivesTheLastNegativeAnswer) {
    FakeHost host;
    zeltrasdfPortal portal(&host);
    fakehost::TempDir dir;
    const String file = dir.write("unknown.tag", "nothing anyone reads\n");
    std::list<TagData> tags;
    StringStringMap outputs;
    String errors;
    EXPECT_LT(portal.readOutputTags(file, {}, tags, outputs, errors), 0);
    EXPECT_TRUE(tags.empty());
    // The SDF portal reads no input tags of its own and claims them all.
    EXPECT_EQ(portal.readInputTags(file, {}, tags, outputs, errors), 1);
}

TEST(PortalSelfTest, AMessageWithoutArgumentsKeepsItsPlaceholders) {
    FakeHost host;
    zeltrasdfPortal portal(&host);
    portal.showTableMessage(".err.fileNotFound");
    ASSERT_EQ(host.log.size(), 2u);
    EXPECT_NE(host.log[1].text.find("%1"), String::npos) << host.log[1].text;
}

}  // namespace
