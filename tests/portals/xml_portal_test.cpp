// xmlPortal on its own: the walk that turns a document into groups, values
// of single elements, the test for a stored parse, the portal's tag
// definition file in both path forms, and design values going into an XML
// input.
#include <utime.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "fake_host.h"
#include "zeltra/portal.h"

using namespace MOSAQ;
using namespace MOSAQ::Portals;
using fakehost::FakeHost;
using fakehost::readFile;
using fakehost::ScopedEnv;
using fakehost::TempDir;

namespace MOSAQ::Portals {
void PrintTo(const PropertyItem& p, std::ostream* out) {
    *out << "{" << p.name << ", " << p.value << ", " << p.kind << "}";
}
}  // namespace MOSAQ::Portals

namespace {

ItemGroup group(const String& name, const String& kind, std::list<ItemGroup> children,
                std::list<PropertyItem> items) {
    ItemGroup g;
    g.name = name;
    g.itemKind = kind;
    g.children = std::move(children);
    g.items = std::move(items);
    return g;
}

TagData portalTag(StringList path, const String& param, std::list<PropertyItem> props = {}) {
    props.push_front({"mode", "portal", ""});
    props.push_back({"filename", "ignored.sdf", ""});
    return {std::move(path), param, "Response", std::move(props)};
}

class XmlPortalTest : public ::testing::Test {
protected:
    FakeHost host;
    xmlPortal portal{&host, "XmlTest"};
    TempDir dir;
    String errors;
    StringStringMap outputs;
};

TEST_F(XmlPortalTest, WalkMakesGroupsOnlyForElementsWithContent) {
    const String path = dir.write("in.xml",
                                  "<root><x>1</x>"
                                  "<a name=\"A\"><b name=\"B\"> 1 </b><c><d>2</d></c></a>"
                                  "<e><f><g>3</g></f></e>"
                                  "<xsi:s><h><i>4</i></h></xsi:s>"
                                  "<empty/><k name=\"\"><m>5</m></k></root>");
    std::list<ItemGroup> groups;
    ASSERT_TRUE(portal.parseInputFile(path, nullptr, groups, errors)) << errors;
    EXPECT_EQ(groups, (std::list<ItemGroup>{
                          group("A", "Properties", {}, {{"B", "1", ""}, {"d", "2", ""}}),
                          group("e", "f", {group("f", "Properties", {}, {{"g", "3", ""}})}, {}),
                          group("k", "Properties", {}, {{"m", "5", ""}})}));

    const String bad = dir.write("bad.xml", "<root><a>");
    groups.clear();
    errors = "old";
    EXPECT_FALSE(portal.parseOutputFile(bad, nullptr, groups, errors));
    EXPECT_TRUE(errors.ends_with(" " + bad) && !errors.starts_with("old")) << errors;
    EXPECT_TRUE(groups.empty());
}

TEST_F(XmlPortalTest, NodeValuesAreSetAndReadByPath) {
    pugi::xml_document doc;
    ASSERT_TRUE(doc.load_string("<r><a><b>1</b><e/><n><m>x</m></n></a><v>1\n 2\n3\n</v></r>"));
    EXPECT_TRUE(portal.setNodeValue({"a", "b"}, doc, "7.5"));
    EXPECT_TRUE(portal.setNodeValue({"a", "e"}, doc, "8"));
    EXPECT_FALSE(portal.setNodeValue({"a", "n"}, doc, "9"));  // holds an element, not text
    std::vector<double> values;
    EXPECT_TRUE(portal.getNodeValuesAt({"a", "b"}, doc, values));
    EXPECT_TRUE(portal.getNodeValues("a/e", doc, values, '/'));
    EXPECT_TRUE(portal.getNodeValuesAt({"v"}, doc, values));
    EXPECT_FALSE(portal.getNodeValuesAt({"a"}, doc, values));  // no text of its own
    EXPECT_FALSE(portal.getNodeValuesAt({"q"}, doc, values));
    EXPECT_EQ(values, (std::vector<double>{7.5, 8, 1, 2, 3}));
}

TEST_F(XmlPortalTest, StoredParseIsUsedOnlyWhileItMatchesTheFile) {
    host.baseFolder = dir.path();
    const String file = dir.write("model.inp", "<m/>");
    const String folder = dir.path() + "/XmlTest/model_inp";
    ScopedEnv noForce("MQT_XMLTEST_PARSE_OUTPUT", std::nullopt);
    String parsed;
    EXPECT_TRUE(portal.needsParse(file, parsed, {}, false, errors, true));
    EXPECT_EQ(parsed, folder + "/model.inp.parsedData.xml");

    std::filesystem::create_directories(folder);
    String winPath = file;
    HelperBase::replaceAll(winPath, "/", "\\");
    dir.write("XmlTest/model_inp/model.inp.parsedData.xml",
              "<parse version=\"3\" filepath=\"" + winPath + "\"/>");
    utimbuf same{1000, 1000}, older{999, 999};
    ASSERT_EQ(::utime(file.c_str(), &same) | ::utime(parsed.c_str(), &same), 0);
    const StringStringMap v3{{"version", "3"}};
    EXPECT_FALSE(portal.needsParse(file, parsed, v3, false, errors, false));
    EXPECT_FALSE(portal.needsParse(file, parsed, v3, false, errors, true));
    EXPECT_TRUE(portal.needsParse(file, parsed, {{"version", "4"}}, false, errors, true));
    EXPECT_FALSE(portal.needsParse(file, parsed, {{"version", "3"}, {"ForceReparse", "True"}},
                                   false, errors, true));
    EXPECT_TRUE(portal.needsParse(file, parsed, {{"version", "3"}, {"ForceReparse", "true"}},
                                  false, errors, true));
    ASSERT_EQ(::utime(parsed.c_str(), &older), 0);
    EXPECT_TRUE(portal.needsParse(file, parsed, v3, false, errors, false));
    EXPECT_EQ(errors, "");

    ScopedEnv force("MQT_XMLTEST_PARSE_INPUT", String("/elsewhere/p.xml"));
    EXPECT_FALSE(portal.needsParse(file, parsed, {{"ForceReparse", "true"}}, true, errors, true));
    EXPECT_EQ(parsed, "/elsewhere/p.xml");
    EXPECT_FALSE(portal.needsParse(dir.file("gone.inp"), parsed, {}, true, errors, true));
    EXPECT_EQ(errors, "Unable to open the parsing file: gone.inp");
}

TEST_F(XmlPortalTest, TagFileRoundTripsPathsAndProperties) {
    const std::list<TagData> tags = {
        portalTag({"Variables", "a"}, "Ra",
                  {{"format", "%f", ""}, {"limit", "10", "Prop"}, {"group", "A", "PortalData"},
                   {"other", "x", "Else"}, {"format", "%g", ""}, {"bad name", "1", ""}}),
        portalTag({"Variables", "b"}, "Rb"),
        portalTag({"top"}, "Rt"),
        portalTag({}, "Rnone"),
        {{"Variables", "c"}, "Rfree", "Response", {{"mode", "free", ""}}},
    };
    const StringStringMap data{{"mode", "portal"}, {"destDir", dir.path()},
                               {"analysisName", "A1"}, {"version", "7.2"},
                               {"solverName", "Solver"}};
    ASSERT_TRUE(portal.writeOutputTagFile("x.sdf", tags, data, outputs, errors)) << errors;
    EXPECT_EQ(outputs, (StringStringMap{{"x.sdf_outtagfile", "P_out_A1_x.sdf"}}));
    const String file = dir.file("P_out_A1_x.sdf");
    EXPECT_EQ(readFile(file),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<Portal name=\"XmlTest\" version=\"7.2\" solverName=\"Solver\" "
              "fileType=\"Tag Definition\">\n"
              "  <Key name=\"Variables\">\n"
              "    <tag name=\"a\" paramName=\"Ra\" paramType=\"Response\" format=\"%f\">\n"
              "      <Prop name=\"limit\">10</Prop>\n"
              "      <PortalData name=\"group\">A</PortalData>\n"
              "    </tag>\n"
              "    <tag name=\"b\" paramName=\"Rb\" paramType=\"Response\" />\n"
              "  </Key>\n"
              "  <tag name=\"top\" paramName=\"Rt\" paramType=\"Response\" />\n"
              "</Portal>\n");

    std::list<TagData> read;
    ASSERT_EQ(portal.readOutputTags(file, {{"outputFilename", "x.sdf"}}, read, outputs, errors),
              0);
    auto back = [](StringList path, const String& param, std::list<PropertyItem> props) {
        props.push_back({"filename", "x.sdf", ""});
        props.push_back({"mode", "portal", ""});
        return TagData{std::move(path), param, "Response", std::move(props)};
    };
    EXPECT_EQ(read, (std::list<TagData>{
                        back({"Variables", "a"}, "Ra",
                             {{"format", "%f", ""}, {"limit", "10", "Prop"},
                              {"group", "A", "PortalData"}}),
                        back({"Variables", "b"}, "Rb", {}), back({"top"}, "Rt", {})}));
    EXPECT_EQ(errors, "");

    outputs.clear();
    const String nowhere = dir.file("missing");
    EXPECT_FALSE(portal.writeInputTagFile(
        "in.xml", tags, {{"mode", "portal"}, {"destDir", nowhere}}, outputs, errors));
    EXPECT_EQ(errors, "Unable to write to " + nowhere + "/P_in__in.xml");
    EXPECT_TRUE(outputs.empty());
}

TEST_F(XmlPortalTest, OlderFilesTakeThePathFromElementNames) {
    auto pathsOf = [&](const String& name, const String& content) {
        std::list<TagData> tags;
        EXPECT_EQ(portal.readTagData(dir.write(name, content), {}, tags, outputs, false, errors),
                  0);
        std::vector<StringList> paths;
        for (const TagData& t : tags) paths.push_back(t.path);
        return paths;
    };
    EXPECT_EQ(pathsOf("P_out_1", "<Portal version=\"7.1\"><Variables><tag name=\"Pressure\" "
                                 "paramName=\"Out1\"/></Variables></Portal>"),
              (std::vector<StringList>{{"Variables", "Pressure"}}));
    EXPECT_EQ(pathsOf("P_out_2", "<Portal version=\"7.1\"><Key name=\"V\"><Key name=\"W\">"
                                 "<tag name=\"p\"/></Key></Key><tag/></Portal>"),
              (std::vector<StringList>{{"Key", "Key", "p"}, {"tag"}}));
    EXPECT_EQ(pathsOf("P_out_3", "<Portal version=\"test\"><Key name=\"V\"><tag name=\"p\"/>"
                                 "</Key><tag name=\"q\"/></Portal>"),
              (std::vector<StringList>{{"V", "p"}, {"q"}}));
    EXPECT_EQ(errors, "");
}

TEST_F(XmlPortalTest, TagFilesOfOthersAreLeftToTheModules) {
    std::list<TagData> tags;
    auto read = [&](const String& name, const String& content, bool input) {
        return portal.readTagData(dir.write(name, content), {}, tags, outputs, input, errors);
    };
    // Name, root and content decide; only a file that fails to load says why.
    EXPECT_EQ(read("P_out_x.xml", "<broken", true), -1);
    EXPECT_EQ(read("p_out_a", "<Portal version=\"7.2\"><tag name=\"p\"/></Portal>", false), -1);
    EXPECT_EQ(read("P_out_b", "<Other><tag name=\"p\"/></Other>", false), -1);
    EXPECT_EQ(read("P_out_c", "<Portal version=\"7.2\"><Prop name=\"p\"/></Portal>", false), -1);
    EXPECT_TRUE(tags.empty());
    EXPECT_EQ(errors, "");
    errors = "ERROR: before";
    EXPECT_EQ(read("P_out_x.xml", "<broken", false), -1);
    EXPECT_TRUE(errors.starts_with("ERROR: before\n")) << errors;
    EXPECT_TRUE(errors.ends_with("\nUnable to read tag file " + dir.file("P_out_x.xml")));
}

TEST_F(XmlPortalTest, DesignValuesGoIntoTaggedXmlInputs) {
    const String input = dir.write("model.xml", "<model><geo><len>1</len><w/></geo></model>");
    ASSERT_TRUE(portal.writeInputTagFile(
        "model.xml",
        {portalTag({"geo", "len"}, "length", {{"format", "%.2f", ""}}),
         portalTag({"geo", "w"}, "width"), portalTag({"geo", "nowhere"}, "ghost")},
        {{"mode", "portal"}, {"destDir", dir.path()}, {"analysisName", "A1"}, {"version", "7.2"}},
        outputs, errors))
        << errors;
    host.context.designValues = {{"length", "2.50"}, {"width", "3"}, {"ghost", "4"}};
    const String tagFile = dir.file("P_in_A1_model.xml");
    EXPECT_TRUE(portal.processInputs({{"analysisName", "A1"},
                                      {"inputFilepaths", input},
                                      {"inputTagFilepaths", tagFile}},
                                     nullptr, errors));
    EXPECT_EQ(errors, "\nFailed to write the value for ghost");
    EXPECT_EQ(readFile(input),
              "<?xml version=\"1.0\"?>\n<model>\n  <geo>\n    <len>2.50</len>\n"
              "    <w>3</w>\n  </geo>\n</model>\n");
    ASSERT_EQ(host.context.designRequests.size(), 3u);
    EXPECT_EQ(host.context.designRequests[0].format, "%.2f");
    EXPECT_EQ(host.context.designRequests[0].source, tagFile);
}

}  // namespace
