// The export command: the variables of an SDF file as JSON or CSV.
//
// The whole text is built before anything is written, so that a variable
// that can't be read leaves no half-written output behind. The output never
// goes over the SDF file being read.
//
// JSON: {"file": ..., "variables": [{"name", "type", "dims", "units",
// "description", "value"}...]}, an array's value nested by dimension with the
// first dimension outermost (value[i][j] is element (i, j)).
// CSV: one row per element, "name,type,units,index,value"; index is the
// element's indices joined by ";" (empty for a scalar); a complex value is
// "re,im" in one quoted field. An array without elements has no rows.
#include <filesystem>
#include <fstream>

#include "sdf_tool.h"

namespace sdftool {

namespace {

void appendJson(const VarInfo& v, const Values& vals, bool first, std::string& out) {
    out += first ? "    {" : ",\n    {";
    out += "\"name\": " + jsonString(v.name);
    out += ", \"type\": " + jsonString(typeName(v.base));
    out += ", \"dims\": [";
    for (size_t i = 0; i < v.dims.size(); i++) out += (i ? ", " : "") + std::to_string(v.dims[i]);
    out += "], \"units\": " + jsonString(v.units);
    out += ", \"description\": " + jsonString(v.desc);
    out += ", \"value\": " + jsonNested(v, vals) + "}";
}

void appendCsv(const VarInfo& v, const Values& vals, std::string& out) {
    const std::string lead = csvField(v.name) + "," + csvField(typeText(v)) + "," + csvField(v.units) + ",";
    for (size_t k = 0; k < vals.size(); k++) {
        out += lead;
        if (v.array) out += indexText(v.dims, k, ";");
        out += concat({",", csvValue(vals.at(k)), "\n"});
    }
}

bool sameFile(const std::string& a, const std::string& b) {
    std::error_code ec;
    return std::filesystem::equivalent(a, b, ec);
}

}  // namespace

int cmdExport(const Args& a) {
    if (a.has("--csv") && a.has("--json")) {
        complain("export: give --csv or --json, not both");
        return kUsage;
    }
    const bool csv = a.has("--csv");
    const std::string& path = a.positional[0];
    const std::string outPath = a.get("-o");
    if (!outPath.empty() && outPath != "-" && sameFile(outPath, path)) {
        complain("export: the output would overwrite %s", printable(path).c_str());
        return kUsage;
    }
    SdfFile f;
    if (int rc = f.open(path)) {
        complain("%s: cannot open (code %d)", printable(path).c_str(), rc);
        return kFailed;
    }
    std::vector<std::string> names;
    if (resolveNames(f.channel(), {a.positional.begin() + 1, a.positional.end()}, names)) return kFailed;

    std::string out = csv ? "name,type,units,index,value\n"
                          : "{\n  \"file\": " + jsonString(path) + ",\n  \"variables\": [\n";
    for (size_t i = 0; i < names.size(); i++) {
        VarInfo v;
        Values vals;
        int rc = loadInfo(f.channel(), names[i], v);
        if (!rc) rc = vals.load(f.channel(), v);
        if (rc) {
            if (rc > 0) complain("\"%s\": cannot be read (code %d)", names[i].c_str(), rc);
            complain("export: nothing written");
            return kFailed;
        }
        if (csv) appendCsv(v, vals, out);
        else appendJson(v, vals, i == 0, out);
    }
    if (!csv) out += names.empty() ? "  ]\n}\n" : "\n  ]\n}\n";

    if (outPath.empty() || outPath == "-") {
        std::fwrite(out.data(), 1, out.size(), stdout);
        return std::fflush(stdout) == 0 ? kOk : kFailed;
    }
    std::ofstream file(outPath, std::ios::binary | std::ios::trunc);
    file.write(out.data(), static_cast<std::streamsize>(out.size()));
    file.close();
    if (!file) {
        complain("export: cannot write %s", printable(outPath).c_str());
        return kFailed;
    }
    return kOk;
}

}  // namespace sdftool
