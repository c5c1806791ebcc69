// The written form of script tags: tag definition files written through the
// portal and read back, the file's own quirks (comments before the first
// script, a stray end line, the parameter list moved out of the code), and a
// script as the CDATA child of a tag node.
#include <filesystem>

#include "script_fixture.h"
#include "zeltra/tagging.h"

using namespace MOSAQ;
using namespace MOSAQ::Portals;
using fakehost::readFile;
using scripttest::ScriptRun;

namespace {

TagData scriptTag(const String& code, const String& file = "deck.inp") {
    return {{}, "", "", {{"mode", "script", ""}, {"code", code, ""}, {"filename", file, ""}}};
}

using ScriptForm = ScriptRun;

TEST_F(ScriptForm, TagFilesRoundTrip) {
    const StringStringMap setup{{"mode", "script"}, {"destDir", study.path()},
                                {"analysisName", "A1"}, {"version", "7"}};
    // Every tag is written, whatever file it names. The SDF portal refuses
    // input tag files of its own, so the input side goes to the module.
    const std::list<TagData> tags = {scriptTag("SET_PARAMETER_LIST(a, b)\nGOTO_TOP\n\n$ note"),
                                     scriptTag("SET_PARAMETER_LIST(c)", "other.inp")};
    StringStringMap outputs;
    String errors;
    ScriptTagging module(&host);
    ASSERT_TRUE(module.writeInputTagging("deck.inp", tags, setup, outputs, errors)) << errors;
    EXPECT_EQ(outputs.at("deck.inp_intagfile"), "S_in_A1_deck.inp");
    EXPECT_EQ(readFile(inputTag()),
              "$ File type, version\nscripting, 7\n$ Tag definition file: deck.inp\nSCRIPTING\n"
              "$! Number of tags: 2\n"
              "$! Start tag script\nSET_PARAMETER_LIST(a, b)\nGOTO_TOP\n\n$ note\n$! End tag script\n\n"
              "$! Start tag script\nSET_PARAMETER_LIST(c)\n$! End tag script\n\n");

    std::list<TagData> back;
    StringStringMap readOutputs;
    ASSERT_EQ(module.readInputTagging(inputTag(), {{"inputFilename", "deck.inp"}}, back,
                                      readOutputs, errors),
              0);
    ASSERT_EQ(back.size(), 2u);
    const TagData& first = back.front();
    EXPECT_EQ(first.paramName, "a, b");
    EXPECT_EQ(first.properties,
              (std::list<PropertyItem>{{"mode", "script", ""},
                                       {"code", "SET_PARAMETER_LIST(%names%)\nGOTO_TOP\n\n$ note", ""},
                                       {"filename", "deck.inp", ""}}));
    EXPECT_EQ(back.back().paramName, "c");

    // The output side through the portal, and a list without scripts writes
    // nothing.
    ASSERT_TRUE(portal->writeOutputTagFile("out.txt", {scriptTag("GOTO_END", "out.txt")}, setup,
                                           outputs, errors));
    EXPECT_EQ(outputs.at("out.txt_outtagfile"), "S_out_A1_out.txt");
    EXPECT_TRUE(portal->writeOutputTagFile("none.txt", {}, setup, outputs, errors));
    EXPECT_FALSE(std::filesystem::exists(study.file("S_out_A1_none.txt")));
    EXPECT_FALSE(outputs.count("none.txt_outtagfile"));
}

TEST_F(ScriptForm, ReadsHeadCommentsStrayEndLinesAndCodeWithoutAList) {
    const String tag = study.write("S_out_A1_out.txt",
                                   "$ File type, version\nscripting, 1\n$ a comment\nSCRIPTING\n"
                                   "$! Number of tags: 3\n"
                                   "ignored outside a script\n"
                                   "$! Start tag script\nGOTO_TOP\n  GOTO_END  \n$! End tag script\n"
                                   "$! End tag script\n");
    std::list<TagData> tags;
    StringStringMap outputs;
    String errors;
    ASSERT_EQ(portal->readOutputTags(tag, {{"outputFilename", "out.txt"}}, tags, outputs, errors),
              0);
    ASSERT_EQ(tags.size(), 2u);
    EXPECT_EQ(tags.front().paramName, "");
    EXPECT_EQ(HelperBase::property(tags.front().properties, "code"), "GOTO_TOP\n  GOTO_END  ");
    EXPECT_EQ(HelperBase::property(tags.back().properties, "code"), "");
    EXPECT_EQ(HelperBase::property(tags.back().properties, "filename"), "out.txt");

    // Not a script file, and no file at all.
    ScriptTagging module(&host);
    const String mark = study.write("S_out_A1_x", "$ x\nmarking, 1\n");
    EXPECT_LT(module.readOutputTagging(mark, {}, tags, outputs, errors), 0);
    errors.clear();
    EXPECT_EQ(module.readInputTagging(study.file("gone"), {}, tags, outputs, errors), 1);
    EXPECT_EQ(errors, scripttest::message(nullptr, ".err.openTagDefnFile", {study.file("gone")}));
}

TEST(ScriptTagNode, CarriesTheCodeAsCData) {
    fakehost::FakeHost host;
    ScriptTagging module(&host);
    pugi::xml_document doc;
    pugi::xml_node node = doc.append_child("tag");
    TagData tag = scriptTag("GOTO_STRING(<a> & b, 1)\nGOTO_TOP");
    module.writeTagAttributes(node, tag);
    ASSERT_EQ(node.first_child().type(), pugi::node_cdata);

    TagData back;
    module.readTagAttributes(node, back);
    EXPECT_EQ(HelperBase::property(back.properties, "code"), "GOTO_STRING(<a> & b, 1)\nGOTO_TOP");

    pugi::xml_node plain = doc.append_child("plain");
    plain.append_child(pugi::node_pcdata).set_value("text");
    TagData none;
    module.readTagAttributes(plain, none);
    EXPECT_TRUE(none.properties.empty());
}

}  // namespace
