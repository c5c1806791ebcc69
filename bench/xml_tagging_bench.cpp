// Cost of the XML module's input tagging (XmlTagging::tagInputs) against
// pugixml loading and saving the same document, measured in the same run, so
// the ratio says what the tagging costs over the bare parse and write.
//
//   xml_tagging_bench [sibling count, default 100000]
//
// The input is a model with one long list of sibling elements, each with
// attributes and text (about 500 bytes each, so 100,000 give some 50 MB), and
// 10,000 tags spread over the whole list: indexed paths ("item[73512]"),
// attribute conditions ("item[@id=i73512]") and both slots ("item[@group=g3]
// [#text]" style), writing attributes and text. Each side runs three times,
// interleaved, and the best time counts; the input is restored from a
// pristine copy (untimed) before every tagging run, and every run uses a
// fresh module, so the tag file is read each time too.
//
// Exit status: 0 when the tagging ran clean, 1 when it reported an error,
// 2 when the tagged document doesn't hold the values it should.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <list>
#include <string>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "zeltra/tagging.h"

#include "bench_util.h"

using zeltra_bench::ScratchFolder;
using zeltra_bench::seconds;

namespace {

namespace fs = std::filesystem;
using MOSAQ::IExtension;
using MOSAQ::IProperties;
using MOSAQ::String;
using MOSAQ::StringList;
using MOSAQ::StringStringMap;
using MOSAQ::Portals::IPortalContext;
using MOSAQ::Portals::IPortalHost;
using MOSAQ::Portals::ResponseValues;
using MOSAQ::Portals::TagData;
using MOSAQ::Portals::XmlTagging;

constexpr int kTagCount = 10000;
constexpr int kRuns = 3;

// Parameter p<i> has the value "v<i>", so the check can tell tags apart.
// (Appended, not "v" + text: g++ 12 at -O3 warns falsely on that form.)
String designValue(const String& paramName) {
    String v = "v";
    return v.append(paramName, 1);
}
String paramName(std::size_t k) {
    String p = "p";
    return p.append(std::to_string(k));
}

class BenchContext : public IPortalContext {
public:
    String getType() override { return "Portal"; }
    String getName() override { return "XmlTaggingBench"; }
    IProperties& getProperties() override { return properties_; }
    void* getInterface(int) override { return nullptr; }
    String getDesignValue(const String&, const String& paramName, const String&, const String&,
                          String&) override {
        return designValue(paramName);
    }
    void getAnalysisProperties(const String&, const String&, StringStringMap&) override {}
    void reportResponse(const String&, const StringStringMap&, const ResponseValues&) override {}

private:
    IProperties properties_;
};

class BenchHost : public IPortalHost {
public:
    BenchContext context;
    void logMessage(const String&, const String&, int, int) override {}
    void reportProgress(int, int, const String&, int) override {}
    void resolveFolder(const String&, StringList&, String&, const StringStringMap&) override {}
    String getInstallFolder() override { return {}; }
    String getSetting(const String&, const String& defaultValue) override { return defaultValue; }
    IExtension* findExtension(const String& type) override {
        return type == "Portal" ? &context : nullptr;
    }
};

void writeModel(const fs::path& path, int count) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<model name=\"bench\">\n  <items>\n";
    char line[640];
    for (int i = 0; i < count; ++i) {
        std::snprintf(line, sizeof line,
                      "    <item id=\"i%d\" group=\"g%d\" load=\"%d.25\" scale=\"1.0\">\n"
                      "      <value unit=\"mm\">%d.5</value>\n"
                      "      <note>item %d of the model, kept as free text that a solver would "
                      "carry along unchanged: material, batch, inspection remarks and so on "
                      "for the record, together with the notes of the last review of the part and "
                      "of its drawing. %08d %08d %08d %08d %08d %08d</note>\n"
                      "      <limits lower=\"-%d\" upper=\"%d\" />\n"
                      "    </item>\n",
                      i, i % 10, i, i, i, i, i + 1, i + 2, i + 3, i + 4, i + 5, i, i);
        out << line;
    }
    out << "  </items>\n</model>\n";
    if (!out) {
        std::cerr << "cannot write " << path << "\n";
        std::exit(1);
    }
}

struct PlannedTag {
    int item;
    String xpath, xid;
    bool text;  // the value goes into the value element's text
};

// Tags spread evenly over the list, the last ones deepest.
std::vector<PlannedTag> planTags(int count) {
    std::vector<PlannedTag> plan;
    const int stride = std::max(1, count / kTagCount);
    for (int k = 0; k < kTagCount; ++k) {
        const int item = std::min(count - 1, k * stride + stride / 2);
        const String n = std::to_string(item);
        switch (k % 4) {
            case 0: plan.push_back({item, "/model/items/item[" + n + "]", "[@load]", false}); break;
            case 1: plan.push_back({item, "/model/items/item[@id=i" + n + "]/value", "[#text]", true}); break;
            case 2: plan.push_back({item, "/model/items/item[" + n + "]/value", "[#text]", true}); break;
            default: plan.push_back({item, "/model/items", "item[@id=i" + n + "][@load]", false}); break;
        }
    }
    return plan;
}

fs::path writeTagFile(XmlTagging& module, const fs::path& input, const fs::path& folder,
                      const std::vector<PlannedTag>& plan) {
    std::list<TagData> tags;
    for (std::size_t k = 0; k < plan.size(); ++k)
        tags.push_back({{}, paramName(k), "Double",
                        {{"mode", "xml", ""}, {"format", "%g", ""}, {"xpath", plan[k].xpath, ""},
                         {"xid", plan[k].xid, ""}, {"filename", input.filename().string(), ""}}});
    StringStringMap outputs;
    String errors;
    module.writeInputTagging(input.filename().string(), tags,
                             {{"analysisName", "bench"}, {"destDir", folder.string()}, {"version", "1"}},
                             outputs, errors);
    if (outputs.empty()) {
        std::cerr << "cannot write the tag file:\n" << errors << "\n";
        std::exit(1);
    }
    return folder / outputs.begin()->second;
}

double timeBaseline(const fs::path& from, const fs::path& to) {
    const auto begin = std::chrono::steady_clock::now();
    pugi::xml_document document;
    if (!document.load_file(from.c_str()) || !document.save_file(to.c_str(), "  ", pugi::format_indent)) {
        std::cerr << "the baseline failed\n";
        std::exit(1);
    }
    return seconds(std::chrono::steady_clock::now() - begin);
}

double timeTagging(IPortalHost& host, const fs::path& pristine, const fs::path& input,
                   const fs::path& tagFile) {
    fs::copy_file(pristine, input, fs::copy_options::overwrite_existing);
    String errors;
    const auto begin = std::chrono::steady_clock::now();
    XmlTagging module(&host);
    const bool ok = module.tagInputs({{"inputFilepaths", input.string()}, {"inputTagFilepaths", tagFile.string()}},
                                     nullptr, errors);
    const double elapsed = seconds(std::chrono::steady_clock::now() - begin);
    if (!ok) {
        std::cerr << "tagging failed:\n" << errors.substr(0, 2000) << "\n";
        std::exit(1);
    }
    return elapsed;
}

// Every tag's value must stand where its path points (the last write wins
// where two tags share a place).
bool checkTagged(const fs::path& input, const std::vector<PlannedTag>& plan) {
    pugi::xml_document document;
    if (!document.load_file(input.c_str())) return false;
    std::vector<pugi::xml_node> items;
    for (pugi::xml_node item : document.child("model").child("items").children("item")) items.push_back(item);
    std::vector<String> load(items.size()), text(items.size());
    for (std::size_t k = 0; k < plan.size(); ++k)
        (plan[k].text ? text : load)[static_cast<std::size_t>(plan[k].item)] = designValue(paramName(k));
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (!load[i].empty() && load[i] != items[i].attribute("load").value()) return false;
        if (!text[i].empty() && text[i] != items[i].child("value").child_value()) return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv) {
    int count = 100000;
    if (argc > 1) {
        char* end = nullptr;
        const long n = std::strtol(argv[1], &end, 10);
        if (end == argv[1] || *end || n < 1 || n > 10000000) {
            std::cerr << "usage: " << argv[0] << " [sibling count, default 100000]\n";
            return 1;
        }
        count = static_cast<int>(n);
    }
    ScratchFolder scratch{fs::temp_directory_path() / ("zeltra_xml_bench_" + std::to_string(::getpid()))};
    fs::create_directories(scratch.path);
    const fs::path pristine = scratch.path / "model.pristine", input = scratch.path / "model.xml",
                   copy = scratch.path / "model.copy";
    writeModel(pristine, count);
    const std::vector<PlannedTag> plan = planTags(count);
    BenchHost host;
    fs::path tagFile;
    {
        XmlTagging writer(&host);
        tagFile = writeTagFile(writer, input, scratch.path, plan);
    }
    const double bytes = static_cast<double>(fs::file_size(pristine));
    std::printf("model: %.1f MB, %d sibling elements, %zu tags\n", bytes / 1e6, count, plan.size());

    double bestBaseline = 1e300, bestTagging = 1e300;
    for (int run = 0; run < kRuns; ++run) {
        bestBaseline = std::min(bestBaseline, timeBaseline(pristine, copy));
        bestTagging = std::min(bestTagging, timeTagging(host, pristine, input, tagFile));
    }
    std::printf("tagging: %.3f s  pugixml load+save: %.3f s  ratio: %.2f (target <= 2)\n", bestTagging,
                bestBaseline, bestTagging / bestBaseline);
    if (!checkTagged(input, plan)) {
        std::cerr << "the tagged document doesn't hold the expected values\n";
        return 2;
    }
    return 0;
}
