// XML tags played through the loaded plug-in and the fake host: the path
// language case by case on an output document, a design's values written
// into an XML input (which keeps its declaration, document type, comments
// and processing instructions), the output tag file written and read back,
// and every failure with its message and level. A document that doesn't
// load is never touched.
#include <gtest/gtest.h>

#include <optional>

#include "fake_host.h"
#include "loaded_portal.h"
#include "zeltra/helper_base.h"
#include "zeltra/interfaces.h"

using namespace MOSAQ;
using namespace MOSAQ::Portals;
using fakehost::readFile;
using H = HelperBase;

namespace {

struct XTag {
    String name, xpath, xid;
    String type = "Real";
    std::optional<String> format = "%g";
};

String escaped(const String& text) {
    String out;
    for (char c : text) out += c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '"' ? "&quot;" : String(1, c);
    return out;
}

// A tag definition file as a study keeps it.
String tagFile(const std::vector<XTag>& tags) {
    String text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<TagDefinition version=\"1\" filename=\"f.xml\">\n";
    for (const XTag& t : tags) {
        text += "  <tag mode=\"xml\" paramName=\"" + escaped(t.name) + "\" paramType=\"" + t.type + "\"";
        if (t.format) text += " format=\"" + escaped(*t.format) + "\"";
        text += " xpath=\"" + escaped(t.xpath) + "\" xid=\"" + escaped(t.xid) + "\" />\n";
    }
    return text + "</TagDefinition>\n";
}

// An error line of the "Xml" table as the module writes it.
String errorLine(const String& key, const StringList& args) {
    return H::formatList(H::normalizeLevel(Support::StringTable::lookup("Xml", ".Portal" + key), "ERROR"), args);
}

const char* const kResults =
    "<?xml version=\"1.0\"?>\n"
    "<a>\n"
    "  <b id=\"5\" v=\"b0\">zero</b>\n"
    "  <b id=\"7\" v=\"b1\" x=\"1\">one</b>\n"
    "  <b id=\"7\" v=\"b2\"><c>c2</c>two</b>\n"
    "  <d name=\"f[1]\" k=\"p/q\">nested</d>\n"
    "  <d name=\"x\\]y\">escaped</d>\n"
    "  <d name=\"w\\\\\">double</d>\n"
    "  <e><![CDATA[1.5e3]]></e>\n"
    "  <n>  42  </n>\n"
    "</a>\n";

class XmlStudy : public LoadedPortal {
protected:
    // Runs processOutputs on results.xml with one tag file; the errors text.
    String readOutputs(const std::vector<XTag>& tags, bool expectOk) {
        const String results = run.write("results.xml", kResults);
        const String tagPath = study.write("X_out_A1_results.xml", tagFile(tags));
        String errors;
        EXPECT_EQ(portal->processOutputs(outputData(results, tagPath), nullptr, errors), expectOk) << errors;
        return errors;
    }
    StringStringMap outputData(const String& results, const String& tagPath) const {
        return {{"analysisName", "A1"}, {"evalId", "3"}, {"caseIndex", "0"},
                {"outputFilepaths", results}, {"outputTagFilepaths", tagPath}};
    }
    const fakehost::ResponseReport* response(const String& name) { return host.context.response(name); }
};

TEST_F(XmlStudy, PathLanguageFindsExactlyWhatItNames) {
    struct Case {
        const char *xpath, *xid, *value;  // value null: the path finds nothing
        const char* failure = nullptr;    // the message key then
    };
    const Case cases[] = {
        {"/a/b", "[#text]", "zero"},                         // a bare name is index 0
        {"/a/b[1]", "[#text]", "one"},                       // indices count from 0
        {"a/b[2.9]", "[@v]", "b2"},                          // truncated; no leading "/" needed
        {"/a/b[@id=7]", "[@v]", "b1"},                       // the first that meets the condition
        {"/a/b[./c]", "[@v]", "b2"},                         // has a child c
        {"/a/b[#text=one]", "[@v]", "b1"},                   // text condition in slot 1
        {"/a", "b[@id=7][#text=two]", "two"},                // both slots tested, slot 2 selects
        {"/a", "b[x=1][@v]", "b1"},                          // "x=1" moves to slot 1, "@v" selects
        {"/a", "b[1][@id=5]", "7"},                          // index, then a selection of @id
        {"/a", "b[@v]", "b0"},                               // a bare @ selects on the first b
        {"/a", "b[#text]", "zero"},
        {"/a/./b[1]", "./[@x]", "1"},                        // "." stays; a bracket alone selects
        {"/a/b/", "[@v]", "b0"},                             // a trailing "/" is the node itself
        {"/a/d[@name=f[1]]", "[#text]", "nested"},           // nested brackets
        {"/a/d[@k=p/q]", "[#text]", "nested"},               // "/" inside a bracket
        {"/a/d[@name=x\\]y]", "[#text]", "escaped"},         // an escaped bracket doesn't close
        {"/a/d[@name=w\\\\]", "[#text]", "double"},          // after two backslashes it does
        {"/a/e", "[#text]", "1.5e3"},                        // CDATA is text too
        {"/a/b[x=1]", "[@v]", nullptr, ".err.noXmlElement"}, // one bracket without "@" is slot 2
        {"/a/b[3]", "[@v]", nullptr, ".err.noXmlElement"},
        {"/b", "[@v]", nullptr, ".err.noXmlElement"},        // the first segment is the root
        {"/a/b[@id=9]", "[@v]", nullptr, ".err.noXmlElement"},
        {"/a/b", "[@missing]", nullptr, ".err.noXmlNode"},
        {"/a/n", "[#comment]", nullptr, ".err.noXmlNode"},
        {"/a/b[@v]", "[@v]", nullptr, ".err.noXmlNode"},    // an attribute has no node to go on from
        {"", "[@v]", nullptr, ".err.noXmlPath"},
        {"/a/b", "", nullptr, ".err.noXmlPath"},
        {"/a", "b", nullptr, ".err.readXmlNodeValue"},      // an element has no value of its own
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(String(c.xpath) + " | " + c.xid);
        host.context.responses.clear();
        const String errors = readOutputs({{"r", c.xpath, c.xid, "String"}}, c.value != nullptr);
        if (c.value) {
            ASSERT_EQ(host.context.responses.size(), 1u) << errors;
            EXPECT_EQ(host.context.responses[0].values.strings, StringList{c.value});
            EXPECT_EQ(errors, "");
            continue;
        }
        EXPECT_TRUE(host.context.responses.empty());
        // Messages give the paths joined from their segments: no leading "/".
        String xpath = c.xpath;
        if (xpath.rfind('/', 0) == 0) xpath.erase(0, 1);
        const String key = c.failure;
        const String expected = key == ".err.noXmlPath"      ? errorLine(key, {"r"})
                                : key == ".err.noXmlElement" ? errorLine(key, {"r", xpath})
                                                             : errorLine(key, {"r", xpath, c.xid});
        EXPECT_EQ(errors, expected);
    }
}

TEST_F(XmlStudy, ResponsesOfEachTypeAndTheirFailures) {
    for (const char* r : {"count", "big", "bad"})
        host.context.analysisProperties[{"A1", String("responseDataType#") + r}] = {{"responseDataType", "Numeric"}};
    const String errors = readOutputs({{"count", "/a/n", "[#text]"},
                                       {"big", "/a/e", "[#text]"},
                                       {"bad", "/a/b", "[#text]"},
                                       {"label", "/a/n", "[#text]"},
                                       {"lost", "/a/zz", "[#text]"}},
                                      false);
    ASSERT_EQ(host.context.responses.size(), 4u);
    EXPECT_EQ(response("count")->values.numbers, std::vector<double>{42});
    EXPECT_EQ(response("big")->values.numbers, std::vector<double>{1500});
    EXPECT_EQ(response("label")->values.strings, StringList{"  42  "});
    EXPECT_EQ(response("label")->caseInfo, (StringStringMap{{"analysisName", "A1"}, {"evalId", "3"}, {"caseIndex", "0"}}));
    const auto* bad = response("bad");
    ASSERT_TRUE(bad->failed());
    EXPECT_EQ(bad->caseInfo.at("message"),
              H::formatList(Support::StringTable::lookup("Xml", ".Portal.err.responseNotANumber"), {"bad", "zero"}));
    EXPECT_EQ(errors, errorLine(".err.noXmlElement", {"lost", "a/zz"}));  // a failed report isn't an error line

    // An output that isn't there, or isn't XML: the parser's reason, then the file.
    for (const char* content : {static_cast<const char*>(nullptr), "<a><b></a>"}) {
        const String results = run.file("broken.xml");
        if (content) run.write("broken.xml", content);
        String failed;
        EXPECT_FALSE(portal->processOutputs(outputData(results, study.file("X_out_A1_results.xml")), nullptr, failed));
        const StringList got = H::split(failed, '\n');
        ASSERT_EQ(got.size(), 2u) << failed;
        EXPECT_EQ(got[0], content ? "ERROR: Start-end tags mismatch" : "ERROR: File was not found");
        EXPECT_EQ(got[1], errorLine(".err.readOutputFile", {results}));
    }
}

TEST_F(XmlStudy, OutputTagsAreWrittenAndReadBackThroughThePortal) {
    auto tag = [](const String& name, const String& file, const String& format) {
        return TagData{{"a", name}, name, "Response",
                       {{"mode", "xml", ""}, {"format", format, ""}, {"xpath", "/a/b[@id=" + name + "]", ""},
                        {"xid", "[#text]", ""}, {"filename", file, ""}}};
    };
    const std::list<TagData> tags{tag("p", "results.xml", "%g"), tag("q", "other.xml", ""), tag("r&s", "results.xml", "")};
    StringStringMap outputs;
    String errors;
    ASSERT_TRUE(portal->writeOutputTagFile("results.xml", tags,
                                           {{"mode", "xml"}, {"destDir", study.path()}, {"analysisName", "A1"},
                                            {"version", "4"}, {"solverName", "plate"}},
                                           outputs, errors));
    EXPECT_EQ(outputs, (StringStringMap{{"results.xml_outtagfile", "X_out_A1_results.xml"}}));
    const String path = study.file("X_out_A1_results.xml");
    EXPECT_EQ(readFile(path),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<TagDefinition version=\"4\" solverName=\"plate\" filename=\"results.xml\">\n"
              "  <tag mode=\"xml\" paramName=\"p\" paramType=\"Response\" format=\"%g\" xpath=\"/a/b[@id=p]\" xid=\"[#text]\" />\n"
              "  <tag mode=\"xml\" paramName=\"r&amp;s\" paramType=\"Response\" format=\"\" xpath=\"/a/b[@id=r&amp;s]\" xid=\"[#text]\" />\n"
              "</TagDefinition>\n");

    std::list<TagData> read;
    ASSERT_EQ(portal->readOutputTags(path, {{"outputFilename", "results.xml"}}, read, outputs, errors), 0) << errors;
    ASSERT_EQ(read.size(), 2u);
    EXPECT_EQ(read.back().paramName, "r&s");
    EXPECT_EQ(read.back().properties, (std::list<PropertyItem>{{"mode", "xml", ""}, {"format", "", ""},
                                                               {"xpath", "/a/b[@id=r&s]", ""}, {"xid", "[#text]", ""}}));
    EXPECT_EQ(errors, "");
}

TEST_F(XmlStudy, DesignValuesGoIntoTheInputAndItKeepsItsProlog) {
    const String input = run.write("plate.xml",
                                   "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                   "<!DOCTYPE plate SYSTEM \"plate.dtd\">\n"
                                   "<!-- template -->\n"
                                   "<plate units=\"SI\">\n"
                                   "<?solver fast?>\n"
                                   "<size w=\"1\" h=\"1\"/>\n"
                                   "<layer id=\"top\"><t>0.1</t></layer>\n"
                                   "<layer id=\"core\"><t>0.5</t></layer>\n"
                                   "<note><![CDATA[old]]></note>\n"
                                   "</plate>\n");
    const String tags = study.write(
        "X_in_A1_plate.xml",
        tagFile({{"w", "/plate/size", "[@w]"},
                 {"core", "/plate/layer[@id=core]/t", "[#text]", "Real", std::nullopt},
                 {"rename", "/plate/layer[0]", "[@id]", "String", "%s"},  // the top layer becomes "skin"
                 {"skin", "/plate/layer[@id=skin]/t", "[#text]"},          // found by its new name
                 {"note", "/plate/note", "[#text]", "String", "%s"},
                 {"gone", "/plate/frame", "[@w]"},
                 {"whole", "/plate", "layer"},
                 {"h", "/plate/size", "[@h]"}}));
    host.context.designValues = {{"w", "2.5"}, {"core", "0.75"}, {"rename", "skin"}, {"skin", "0.2"},
                                 {"note", "new & <b>"}, {"gone", "1"}, {"whole", "1"}, {"h", "3"}};
    String errors;
    EXPECT_FALSE(portal->processInputs({{"analysisName", "A1"}, {"inputFilepaths", input}, {"inputTagFilepaths", tags}},
                                       nullptr, errors));
    EXPECT_EQ(readFile(input),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
              "<!DOCTYPE plate SYSTEM \"plate.dtd\">\n"
              "<!-- template -->\n"
              "<plate units=\"SI\">\n"
              "  <?solver fast?>\n"
              "  <size w=\"2.5\" h=\"3\" />\n"
              "  <layer id=\"skin\">\n    <t>0.2</t>\n  </layer>\n"
              "  <layer id=\"core\">\n    <t>0.75</t>\n  </layer>\n"
              "  <note><![CDATA[new & <b>]]></note>\n"
              "</plate>\n");
    EXPECT_EQ(errors, errorLine(".err.noXmlElement", {"gone", "plate/frame"}) + "\n" +
                          errorLine(".err.writeXmlNodeValue", {"whole", "plate", "layer"}));
    // Every value is asked for in tag order, with the input as the source.
    ASSERT_EQ(host.context.designRequests.size(), 8u);
    EXPECT_EQ(host.context.designRequests[1].format, "");  // no format attribute
    EXPECT_EQ(host.context.designRequests[2].format, "%s");
    for (const auto& r : host.context.designRequests) EXPECT_EQ(r.source, input);
}

TEST_F(XmlStudy, AMalformedInputIsLeftByteForByte) {
    const String broken = "<?xml version=\"1.0\"?>\n<plate>\n  <size w=\"1\">\n</plate>\n";
    const String input = run.write("plate.xml", broken);
    const String tags = study.write("X_in_A1_plate.xml", tagFile({{"w", "/plate/size", "[@w]"}}));
    host.context.designValues = {{"w", "2"}};
    String errors;
    EXPECT_FALSE(portal->processInputs({{"inputFilepaths", input}, {"inputTagFilepaths", tags}}, nullptr, errors));
    EXPECT_EQ(readFile(input), broken);
    EXPECT_EQ(errors, "ERROR: Start-end tags mismatch\n" + errorLine(".err.readInputFile", {input}));
}

TEST_F(XmlStudy, AnUnreadableTagFileFailsTheRunInsteadOfPassingSilently) {
    const String input = run.write("plate.xml", "<plate w=\"1\"/>");
    // Passes the sorting (its first line holds "xml") but isn't a tag definition.
    const String tags = study.write("X_in_A1_plate.xml", "<?xml version=\"1.0\"?>\n<TagDefinition><tag\n");
    String errors;
    EXPECT_FALSE(portal->processInputs({{"inputFilepaths", input}, {"inputTagFilepaths", tags}}, nullptr, errors));
    EXPECT_EQ(readFile(input), "<plate w=\"1\"/>");
    EXPECT_EQ(errors, "ERROR: Error parsing start element tag\n" +
                          H::normalizeLevel(H::format(Support::StringTable::lookup("Xml", ".Portal.err.readTagDefnFile"), tags),
                                            "ERROR"));
    EXPECT_TRUE(host.context.designRequests.empty());
}

}  // namespace
