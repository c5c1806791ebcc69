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
#include <cstdio>
#include <filesystem>
#include <list>
#include <string>
#include <vector>

#include "tagging_bench_util.h"

namespace {

namespace fs = std::filesystem;
using MOSAQ::Portals::TagData;
using MOSAQ::Portals::XmlTagging;
using namespace zeltra_bench;

constexpr int kTagCount = 10000;

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

class ModelContext : public BenchContext {
public:
    ModelContext() : BenchContext("XmlTaggingBench") {}
    String getDesignValue(const String&, const String& paramName, const String&, const String&,
                          String&) override {
        return designValue(paramName);
    }
};

void writeModel(const fs::path& path, int count) {
    TextWriter out(path);
    out.append("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<model name=\"bench\">\n  <items>\n");
    for (int i = 0; i < count; ++i)
        out.appendf("    <item id=\"i%d\" group=\"g%d\" load=\"%d.25\" scale=\"1.0\">\n"
                    "      <value unit=\"mm\">%d.5</value>\n"
                    "      <note>item %d of the model, kept as free text that a solver would "
                    "carry along unchanged: material, batch, inspection remarks and so on "
                    "for the record, together with the notes of the last review of the part and "
                    "of its drawing. %08d %08d %08d %08d %08d %08d</note>\n"
                    "      <limits lower=\"-%d\" upper=\"%d\" />\n"
                    "    </item>\n",
                    i, i % 10, i, i, i, i, i + 1, i + 2, i + 3, i + 4, i + 5, i, i);
    out.append("  </items>\n</model>\n");
    out.finish();
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

std::list<TagData> tagsOf(const fs::path& input, const std::vector<PlannedTag>& plan) {
    std::list<TagData> tags;
    for (std::size_t k = 0; k < plan.size(); ++k)
        tags.push_back({{}, paramName(k), "Double",
                        {{"mode", "xml", ""}, {"format", "%g", ""}, {"xpath", plan[k].xpath, ""},
                         {"xid", plan[k].xid, ""}, {"filename", input.filename().string(), ""}}});
    return tags;
}

double timeBaseline(const fs::path& from, const fs::path& to) {
    bool ok = false;
    const double elapsed = secondsOf([&] {
        pugi::xml_document document;
        ok = document.load_file(from.c_str()) &&
             document.save_file(to.c_str(), "  ", pugi::format_indent);
    });
    if (!ok) fail("the baseline failed");
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

int run(int argc, char** argv) {
    const int count =
        static_cast<int>(sizeArgument(argc, argv, "sibling count", 100000, true, 10000000));
    const ScratchFolder scratch = makeScratch("zeltra_xml_bench");
    const fs::path pristine = scratch.path / "model.pristine", input = scratch.path / "model.xml",
                   copy = scratch.path / "model.copy";
    writeModel(pristine, count);
    const std::vector<PlannedTag> plan = planTags(count);
    ModelContext context;
    BenchHost host(context);
    const fs::path tagFile = writeInputTagFile<XmlTagging>(host, input.filename().string(),
                                                           tagsOf(input, plan), scratch.path);
    const double bytes = static_cast<double>(fs::file_size(pristine));
    std::printf("model: %.1f MB, %d sibling elements, %zu tags\n", bytes / 1e6, count, plan.size());

    const BestTimes best = bestOf(
        [&] { return timeBaseline(pristine, copy); },
        [&] { return timeInputTagging<XmlTagging>(host, pristine, input, tagFile); });
    std::printf("tagging: %.3f s  pugixml load+save: %.3f s  ratio: %.2f (target <= 2)\n",
                best.subject, best.baseline, best.subject / best.baseline);
    if (!checkTagged(input, plan)) fail("the tagged document doesn't hold the expected values", 2);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return guardedMain([&] { return run(argc, argv); });
}
