// Tests of the XML tagging module on its own: when a tag definition file is
// (not) written, the replaced errors text of a failed read, the splitting of
// paths, the sibling index against the plain walk, and failing file writes.
#include <gtest/gtest.h>

#include <cerrno>

#include "fake_host.h"
#include "xml_path.h"
#include "zeltra/tagging.h"

using namespace MOSAQ;
using namespace MOSAQ::Portals;
using fakehost::FakeHost;
using fakehost::readFile;
using fakehost::TempDir;
using H = HelperBase;

namespace {

String xmlText(const String& key) { return Support::StringTable::lookup("Xml", ".Portal" + key); }

int refuseCreate(const String&) { return -EACCES; }
long refuseWrite(int, const void*, unsigned long) {
    errno = ENOSPC;
    return -1;
}

// Makes the module's file creation, or its writes, fail for one scope.
struct FailingWrites {
    XmlTagging::FileOps saved = XmlTagging::fileOps();
    explicit FailingWrites(bool atCreate) {
        if (atCreate) XmlTagging::fileOps().create = refuseCreate;
        else XmlTagging::fileOps().write = refuseWrite;
    }
    ~FailingWrites() { XmlTagging::fileOps() = saved; }
};

TagData xmlTag(const String& name, const String& file) {
    return {{}, name, "Real", {{"mode", "xml", ""}, {"xpath", "/a/b", ""}, {"xid", "[@v]", ""}, {"filename", file, ""}}};
}

class XmlModule : public testing::Test {
protected:
    FakeHost host;
    XmlTagging xml{&host};
    TempDir dir;
    StringStringMap outputs;
    String errors;
};

TEST_F(XmlModule, WritesATagFileOnlyWithTagsAndAFolderThatTakesIt) {
    const StringStringMap data{{"destDir", dir.path()}, {"analysisName", "A"}};
    EXPECT_TRUE(xml.writeInputTagging("in.xml", {xmlTag("p", "other.xml")}, data, outputs, errors));
    EXPECT_TRUE(xml.writeInputTagging("in.xml", {xmlTag("p", "in.xml")}, {{"analysisName", "A"}}, outputs, errors));
    EXPECT_TRUE(outputs.empty());
    EXPECT_FALSE(std::filesystem::exists(dir.file("X_in_A_in.xml")));
    {
        FailingWrites failing(false);
        EXPECT_TRUE(xml.writeInputTagging("in.xml", {xmlTag("p", "in.xml")}, data, outputs, errors));
    }
    EXPECT_TRUE(outputs.empty());
    EXPECT_EQ(errors, H::normalizeLevel(H::format(xmlText(".err.writeToFile"), dir.file("X_in_A_in.xml")), "ERROR"));

    errors.clear();
    ASSERT_TRUE(xml.writeInputTagging("sub/in.xml", {xmlTag("p", "sub/in.xml")}, data, outputs, errors));
    EXPECT_EQ(outputs, (StringStringMap{{"sub/in.xml_intagfile", "X_in_A_in.xml"}}));
    EXPECT_EQ(readFile(dir.file("X_in_A_in.xml")),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<TagDefinition version=\"\" filename=\"in.xml\">\n"
              "  <tag mode=\"xml\" paramName=\"p\" paramType=\"Real\" format=\"\" xpath=\"/a/b\" xid=\"[@v]\" />\n"
              "</TagDefinition>\n");
}

TEST_F(XmlModule, AReadThatFailsReplacesTheErrorsTextAndPassesTheFileOn) {
    std::list<TagData> tags;
    errors = "ERROR: something earlier";
    const String missing = dir.file("X_in_A_gone.xml");
    EXPECT_EQ(xml.readInputTagging(missing, {}, tags, outputs, errors), -1);
    EXPECT_EQ(errors, "File was not found\n" + H::format(xmlText(".err.readTagDefnFile"), missing));

    errors = "kept";
    const String portalFile = dir.write("P_in_A_x.xml", "<?xml version=\"1.0\"?>\n<Portal><tag/></Portal>");
    EXPECT_EQ(xml.readOutputTagging(portalFile, {}, tags, outputs, errors), -1);
    EXPECT_EQ(errors, "kept");
    EXPECT_EQ(xml.readOutputTagging("", {}, tags, outputs, errors), -1);

    const String noFormat = dir.write("X_out_A_x.xml", "<TagDefinition><tag paramName=\"r\" xid=\"[@v]\"/></TagDefinition>");
    ASSERT_EQ(xml.readOutputTagging(noFormat, {}, tags, outputs, errors), 0);
    ASSERT_EQ(tags.size(), 1u);
    EXPECT_EQ(tags.front().properties,
              (std::list<PropertyItem>{{"mode", "", ""}, {"xpath", "", ""}, {"xid", "[@v]", ""}}));
}

TEST(XmlPath, SplitsOnSlashesOutsideBrackets) {
    const std::pair<const char*, StringList> cases[] = {
        {"", {}},
        {"/", {""}},
        {"/a/b/", {"a", "b", ""}},
        {"a//b", {"a", "", "b"}},
        {"/a/b[@k=x/y]/c", {"a", "b[@k=x/y]", "c"}},
        {"/a[./b[./c/d]]/e", {"a[./b[./c/d]]", "e"}},
        {"/a[@k=\\]/x]/e", {"a[@k=\\]/x]", "e"}},        // an escaped "]" doesn't close
        {"/a[@k=\\\\]/e", {"a[@k=\\\\]", "e"}},            // after "\\" it does
        {"/a[(]/b]/c", {"a[(]", "b]", "c"}},                // a round bracket doesn't hold "[" open
        {"/a[@k=open/b", {"a[@k=open/b"}},                  // no closer: the rest is content
    };
    for (const auto& [path, segments] : cases) EXPECT_EQ(XmlTagging::splitPath(path), segments) << path;
}

TEST(XmlPath, TheSiblingIndexAnswersExactlyAsTheWalk) {
    String doc = "<r>";
    for (int i = 0; i < 200; ++i) {
        doc.append("<s id=\"").append(std::to_string(i % 7)).append("\" k=\"").append(std::to_string(i % 3)).append("\"");
        if (i % 11 == 0) doc += " k=\"dup\"";  // a second k: only the first counts
        doc.append(">").append(std::to_string(i % 5)).append(i % 13 == 0 ? "<c/>" : "").append("</s><t/>");
    }
    doc += "</r>";
    pugi::xml_document d;
    ASSERT_TRUE(d.load_buffer(doc.data(), doc.size(), pugi::parse_default));
    const char* paths[] = {"/r/s", "/r/s[150]", "/r/s[199]", "/r/s[200]", "/r/s[@id=6]", "/r/s[@id=6][k=2]",
                           "/r/s[60][@id=4]", "/r/s[3][@id=5]", "/r/s[@k=dup]", "/r/s[#text=4][@id=0]", "/r/s[./c][k=1]",
                           "/r/s[id=3][#text]", "/r/s[#text]", "/r/s[@k]", "/r/s[x]", "/r/s[@id=9]", "/r/s[k=1][@id=3]",
                           "/r/no_child_of_this_rather_long_name", "/r/u", "/r/s[@id=6]", "/r/t[199]"};
    // One indexed resolver for all, as in a run, so each lookup meets what
    // the earlier ones left in the index.
    xmlpath::Resolver indexed(true), walked(false);
    for (const char* path : paths) {
        const StringList segments = XmlTagging::splitPath(path);
        const XmlTarget a = indexed.resolve(d, segments), b = walked.resolve(d, segments);
        EXPECT_TRUE(a.node == b.node && a.attribute == b.attribute) << path;
        EXPECT_EQ(a.empty(), b.empty()) << path;
    }
    // A value written through the resolver is seen by the next lookup.
    ASSERT_FALSE(indexed.resolve(d, XmlTagging::splitPath("/r/s[@id=6]")).empty());
    XmlTarget id = indexed.resolve(d, XmlTagging::splitPath("/r/s[150]/[@id]"));
    ASSERT_TRUE(id.attribute);
    id.attribute.set_value("new");
    indexed.attributeWritten(indexed.attributeOwner(), "id");
    EXPECT_EQ(indexed.resolve(d, XmlTagging::splitPath("/r/s[@id=new]")).node,
              d.child("r").find_child_by_attribute("s", "id", "new"));
}

TEST_F(XmlModule, ASaveFailsLoudlyKeepsTheEncodingAndARunNeedsAContext) {
    const String input = dir.write("in.xml", "<a><b v=\"1\"/></a>");
    const String tagFile = dir.write("X_in_A_in.xml",
                                     "<TagDefinition><tag paramName=\"p\" xpath=\"/a/b\" xid=\"[@v]\"/></TagDefinition>");
    host.context.designValues = {{"p", "2"}};
    const StringStringMap data{{"inputFilepaths", input}, {"inputTagFilepaths", tagFile}};
    {
        FailingWrites failing(true);
        EXPECT_FALSE(xml.tagInputs(data, nullptr, errors));
    }
    EXPECT_EQ(errors, H::normalizeLevel(H::format(xmlText(".err.writeModInputFile"), input), "ERROR"));
    EXPECT_EQ(readFile(input), "<a><b v=\"1\"/></a>");

    // Saved in the encoding it came in, byte order mark included; a
    // document without a declaration gets one.
    auto utf16 = [](const String& ascii) {
        String out = "\xFF\xFE";
        for (char c : ascii) out += String{c, '\0'};
        return out;
    };
    dir.write("in.xml", utf16("<a><b v=\"1\"/></a>"));
    errors.clear();
    EXPECT_TRUE(xml.tagInputs(data, nullptr, errors)) << errors;
    EXPECT_EQ(readFile(input), utf16("<?xml version=\"1.0\"?>\n<a>\n  <b v=\"2\" />\n</a>\n"));

    host.offerContext = false;
    XmlTagging alone(&host);
    EXPECT_FALSE(alone.tagInputs(data, nullptr, errors));
    EXPECT_FALSE(alone.tagOutputs({}, nullptr, errors));
}

}  // namespace
