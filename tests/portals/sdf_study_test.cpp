// A study of an SDF output played through the loaded plug-in and the fake
// host: a solver leaves a file made with the SDF library, the host lists it,
// binds responses with a tag file of the portal's own, and gets exactly the
// stored numbers for a design, or the failures of a bad file or a bad tag.
#include <dlfcn.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <memory>

#include "fake_host.h"
#include "loaded_portal.h"
#include "sdf.h"
#include "zeltra/interfaces.h"

using namespace MOSAQ;
using namespace MOSAQ::Portals;
using fakehost::FakeHost;
using fakehost::TempDir;

namespace MOSAQ::Portals {
void PrintTo(const PropertyItem& p, std::ostream* out) {
    *out << "{" << p.name << ", " << p.value << ", " << p.kind << "}";
}
}  // namespace MOSAQ::Portals

namespace {

// The table T: 5 rows, 3 columns, the first index fastest.
constexpr int kRows = 5, kCols = 3;
double tableValue(int row, int col) { return 10.0 * col + row + 0.5; }

// The solver's side: every kind of variable the portal meets.
void writeResults(const String& path) {
    int ch = -1;
    ASSERT_EQ(Sdf_Open(&ch, path.c_str(), "BINARY", "NEW", "WRITE"), 0);
    const std::int32_t i = 1000000, flag = 1;
    const float r = 0.5f;
    const double d = 0.1;
    const std::int64_t big = 7;
    const float z[2] = {1, 2};
    ASSERT_EQ(Sdf_Write_Var(ch, "i", SDF_INT_T, &i, nullptr, nullptr), 0);
    ASSERT_EQ(Sdf_Write_Var(ch, "flag", SDF_LOG_T, &flag, nullptr, nullptr), 0);
    ASSERT_EQ(Sdf_Write_Var(ch, "r", SDF_REAL_T, &r, nullptr, nullptr), 0);
    ASSERT_EQ(Sdf_Write_Var(ch, "d", SDF_DBLE_T, &d, "m", "a double"), 0);
    ASSERT_EQ(Sdf_Write_Var(ch, "big", SDF_INT64_T, &big, nullptr, nullptr), 0);
    ASSERT_EQ(Sdf_Write_Var(ch, "z", SDF_CMPX_T, z, nullptr, nullptr), 0);
    ASSERT_EQ(Sdf_Write_Char(ch, "title", "beam run", nullptr), 0);

    // Defined with an empty last extent, then filled by one append.
    auto array = [&](const char* name, int type, std::vector<std::int32_t> dims, const void* data) {
        std::int32_t count = 1;
        for (std::size_t k = 1; k < dims.size(); ++k) count *= dims[k];
        const std::int32_t last = dims.back();
        dims.back() = 0;
        ASSERT_EQ(Sdf_Define_Array(ch, name, type, 0, dims.data(), nullptr, nullptr), 0) << name;
        if (last > 0) {
            ASSERT_EQ(Sdf_Write_Array(ch, name, data, nullptr, count), 0) << name;
        }
    };
    const double arr[4] = {1, 2, 3, 4};
    array("arr", SDF_DBLE_T, {1, 4}, arr);
    std::vector<float> ramp(100);
    for (int k = 0; k < 100; ++k) ramp[k] = 1.5f * static_cast<float>(k);
    array("ramp", SDF_REAL_T, {1, 100}, ramp.data());
    array("none", SDF_DBLE_T, {1, 0}, nullptr);
    std::vector<double> table;
    for (int c = 1; c <= kCols; ++c)
        for (int row = 0; row < kRows; ++row) table.push_back(tableValue(row, c));
    array("T", SDF_DBLE_T, {2, kRows, kCols}, table.data());
    const std::int32_t cube[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    array("cube", SDF_INT_T, {3, 2, 2, 2}, cube);
    array("hyper", SDF_INT_T, {4, 1, 2, 2, 2}, cube);
    ASSERT_EQ(Sdf_Close(ch, "KEEP"), 0);
}

TagData responseTag(const String& variable, const String& response) {
    return {{"Variables", variable}, response, "Response", {{"mode", "portal", ""}}};
}

class SdfStudy : public LoadedPortal {
protected:
    void SetUp() override {
        LoadedPortal::SetUp();
        if (HasFatalFailure()) return;
        results = run.file("results.sdf");
        writeResults(results);
    }

    // Writes the output tag file of an analysis through the plug-in.
    String writeTags(const String& analysis, const std::list<TagData>& tags) {
        const StringStringMap setup{{"mode", "portal"}, {"destDir", study.path()},
                                    {"analysisName", analysis}, {"version", "7.2"}};
        StringStringMap outputs;
        String errors;
        EXPECT_TRUE(portal->writeOutputTagFile("results.sdf", tags, setup, outputs, errors))
            << errors;
        EXPECT_EQ(outputs["results.sdf_outtagfile"], "P_out_" + analysis + "_results.sdf");
        return study.file("P_out_" + analysis + "_results.sdf");
    }

    StringStringMap design(const String& analysis, const String& output, const String& tagFile) {
        return {{"analysisName", analysis}, {"evalId", "3"},          {"caseIndex", "0"},
                {"destDir", run.path()},    {"outputFilepaths", output},
                {"outputTagFilepaths", tagFile}};
    }

    bool locked() const { return std::filesystem::exists(results + ".lock"); }

    String results;
};

TEST_F(SdfStudy, ListsReadableVariablesWithTheirDisplayTexts) {
    std::list<ItemGroup> groups;
    String errors;
    ASSERT_TRUE(portal->parseOutputFile(results, nullptr, groups, errors)) << errors;
    EXPECT_EQ(errors, "");
    ASSERT_EQ(groups.size(), 1u);
    const ItemGroup& g = groups.front();
    EXPECT_EQ(g.name, "Variables");
    EXPECT_EQ(g.itemKind, "Name");
    EXPECT_TRUE(g.children.empty());

    // Past 100 characters the text is cut to 80, mid-number if need be.
    const String ramp =
        "[0, 1.5, 3, 4.5, 6, 7.5, 9, 10.5, 12, 13.5, 15, 16.5, 18, 19.5, 21, 22.5, 24, 25...]";
    // In the order of the library's list, which is that of its name table.
    const std::list<PropertyItem> expected = {
        {"T__Col1", "[10.5, 11.5, 12.5, 13.5, 14.5]", ""},
        {"T__Col2", "[20.5, 21.5, 22.5, 23.5, 24.5]", ""},
        {"T__Col3", "[30.5, 31.5, 32.5, 33.5, 34.5]", ""},
        {"arr", "[1, 2, 3, 4]", ""},
        {"d", "0.1", ""},
        {"flag", "1", ""},
        {"i", "1e+06", ""},
        {"none", "[]", ""},
        {"r", "0.5", ""},
        {"ramp", ramp, ""},
    };
    EXPECT_EQ(g.items, expected);
    EXPECT_FALSE(locked());
}

TEST_F(SdfStudy, HandsTheHostExactlyTheStoredNumbers) {
    const String tagFile =
        writeTags("A1", {responseTag("d", "Rd"), responseTag("flag", "Rflag"),
                         responseTag("arr", "Rarr"), responseTag("T__Col2", "Rcol"),
                         responseTag("T__Col02", "Rcol02"), responseTag("arr__Col3", "Rsuffix"),
                         responseTag("T", "Rwhole"), responseTag("T__Col4", "Rbeyond"),
                         responseTag("hyper", "Rhyper"),
                         {{"d"}, "Rshort", "Response", {{"mode", "portal", ""}}}});
    String errors;
    ASSERT_TRUE(portal->processOutputs(design("A1", results, tagFile), nullptr, errors))
        << errors;
    EXPECT_EQ(errors, "");
    EXPECT_FALSE(locked());

    const auto& got = host.context.responses;
    ASSERT_EQ(got.size(), 9u);  // the tag with a one-entry path is passed over
    auto numbers = [&](const String& name) {
        const auto* r = host.context.response(name);
        EXPECT_NE(r, nullptr) << name;
        return r ? r->values.numbers : std::vector<double>{-1};
    };
    EXPECT_EQ(numbers("Rd"), (std::vector<double>{0.1}));
    EXPECT_EQ(numbers("Rflag"), (std::vector<double>{1}));
    EXPECT_EQ(numbers("Rarr"), (std::vector<double>{1, 2, 3, 4}));
    const std::vector<double> column2 = {20.5, 21.5, 22.5, 23.5, 24.5};
    EXPECT_EQ(numbers("Rcol"), column2);
    EXPECT_EQ(numbers("Rcol02"), column2);
    EXPECT_EQ(numbers("Rsuffix"), (std::vector<double>{1, 2, 3, 4}));
    for (const char* none : {"Rwhole", "Rbeyond", "Rhyper"}) {
        const auto* r = host.context.response(none);
        ASSERT_NE(r, nullptr) << none;
        EXPECT_TRUE(r->failed()) << none;
        EXPECT_EQ(r->caseInfo.at("message"), String("No values provided for response '") +
                                                 none + "'");
    }
    EXPECT_EQ(host.context.response("Rd")->caseInfo,
              (StringStringMap{{"analysisName", "A1"}, {"evalId", "3"}, {"caseIndex", "0"}}));
}

TEST_F(SdfStudy, StopsAtTheFirstTagItCannotRead) {
    const String tagFile = writeTags("A2", {responseTag("d", "Rd"), responseTag("missing", "Rm"),
                                            responseTag("arr", "Rarr")});
    String errors;
    EXPECT_FALSE(portal->processOutputs(design("A2", results, tagFile), nullptr, errors));
    EXPECT_EQ(errors, "Error reading value of missing.\n\nERROR: Error getting data from output "
                      "file:\n" + results);
    ASSERT_EQ(host.context.responses.size(), 1u);
    EXPECT_EQ(host.context.responses[0].name, "Rd");
    EXPECT_FALSE(locked());

    // A type without values ends the extraction without a text of its own.
    const String silent = writeTags("A3", {responseTag("title", "Rt"), responseTag("d", "Rd")});
    errors.clear();
    EXPECT_FALSE(portal->processOutputs(design("A3", results, silent), nullptr, errors));
    EXPECT_EQ(errors, "ERROR: Error getting data from output file:\n" + results);
    EXPECT_EQ(host.context.responses.size(), 1u);
}

TEST_F(SdfStudy, UnreadableFilesAreReportedNotRead) {
    const String garbage = run.write("garbage.sdf", String(600, 'x'));
    const String tagFile = writeTags("A4", {responseTag("d", "Rd")});
    for (const String& file : {garbage, run.file("absent.sdf")}) {
        String errors;
        std::list<ItemGroup> groups;
        EXPECT_FALSE(portal->parseOutputFile(file, nullptr, groups, errors));
        EXPECT_EQ(errors, "Error: Unable to establish a connection with " + file + ".\n");
        EXPECT_TRUE(groups.empty());

        errors.clear();
        EXPECT_FALSE(portal->processOutputs(design("A4", file, tagFile), nullptr, errors));
        EXPECT_EQ(errors, "Error: Unable to establish connection with " + file +
                              ".\n\nERROR: Error getting data from output file:\n" + file);
    }
    EXPECT_TRUE(host.context.responses.empty());
    EXPECT_FALSE(std::filesystem::exists(garbage + ".lock"));
}

}  // namespace
