// The reading commands of the sdf tool: info, ls, dump and check.
//
// Each opens its file read-only for the length of the command. A file the
// library refuses ends the command with exit code 1 after the library's own
// message; a variable that can't be read is named and makes the exit code 1
// while the others are still shown.
#include <algorithm>
#include <ctime>
#include <fstream>

#include "sdf.h"
#include "sdf_tool.h"

namespace sdftool {

namespace {

int openOrComplain(SdfFile& f, const std::string& path) {
    int rc = f.open(path);
    if (rc) complain("%s: cannot open (code %d)", printable(path).c_str(), rc);
    return rc;
}

void readFailed(const std::string& name, int rc) {
    if (rc > 0) complain("\"%s\": cannot be read (code %d)", name.c_str(), rc);
}

}  // namespace

// A variable's facts and all its values; false (said on standard error)
// when either can't be read.
bool loadVariable(int ch, const std::string& name, VarInfo& v, Values& vals) {
    int rc = loadInfo(ch, name, v);
    if (!rc) rc = vals.load(ch, v);
    if (rc) readFailed(name, rc);
    return rc == 0;
}

// Magic, and the header's time of the last write, straight from the first
// bytes; the library has no call for the name-case letter or the time.
struct RawHeader {
    bool ok = false;
    char caseLetter = 'S';
    int64_t modified = 0;
};

RawHeader readRawHeader(const std::string& path, bool little) {
    RawHeader h;
    unsigned char b[56];
    std::ifstream in(path, std::ios::binary);
    if (!in.read(reinterpret_cast<char*>(b), sizeof b)) return h;
    h.ok = true;
    h.caseLetter = b[10] == 'I' ? 'I' : 'S';
    // Two words in the file's byte order, the low word first.
    auto word = [&](int at) {
        uint32_t v = 0;
        for (int i = 0; i < 4; i++) v |= uint32_t(b[at + (little ? i : 3 - i)]) << (8 * i);
        return v;
    };
    h.modified = static_cast<int64_t>(uint64_t(word(52)) << 32 | word(48));
    return h;
}

std::string utcText(int64_t micros) {
    time_t t = static_cast<time_t>(micros / 1000000);
    struct tm tm {};
    char buf[64];
    if (!gmtime_r(&t, &tm) || !std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S UTC", &tm))
        return "?";
    return buf;
}

std::string lockText(const std::string& path) {
    char text[257] = {};
    int who = Sdf_Lockfile_Info(path.c_str(), text);
    if (who == 0) return "none";
    return std::string(who < 0 ? "writer: " : "reader: ") + printable(text);
}

// Prints the values of one variable under its heading line.
void dumpValues(const VarInfo& v, const Values& vals) {
    const size_t n = vals.size();
    if (!v.array) {
        std::printf("  %s\n", elementText(vals.at(0)).c_str());
        return;
    }
    if (n == 0) {
        std::printf("  (no elements)\n");
        return;
    }
    if (v.dims.size() == 1) {
        const size_t perLine = v.base == SDF_CHAR_T ? 1 : 8;
        for (size_t k = 0; k < n; k += perLine) {
            std::printf("  [%zu]", k);
            for (size_t j = k; j < std::min(n, k + perLine); j++)
                std::printf(" %s", elementText(vals.at(j)).c_str());
            std::printf("\n");
        }
        return;
    }
    // One line per combination of all indices but the second: for a table of
    // rows x columns that is one line per row.
    const size_t rows = static_cast<size_t>(v.dims[0]);
    const size_t cols = static_cast<size_t>(v.dims[1]);
    for (size_t k = 0; k < n; k++) {
        if ((k / rows) % cols != 0) continue;
        const std::string index = indexText(v.dims, k, ",");
        const std::string_view all(index);
        const size_t comma = all.find(',');
        const size_t next = all.find(',', comma + 1);
        const std::string label =
            concat({all.substr(0, comma + 1), "*", next == std::string_view::npos ? "" : all.substr(next)});
        std::printf("  [%s]", label.c_str());
        for (size_t c = 0; c < cols; c++) std::printf(" %s", elementText(vals.at(k + c * rows)).c_str());
        std::printf("\n");
    }
}

int cmdInfo(const Args& a) {
    const std::string& path = a.positional[0];
    SdfFile f;
    if (openOrComplain(f, path)) return kFailed;
    int32_t fi[7] = {};
    if (int rc = Sdf_Fileinf(f.channel(), fi)) {
        complain("%s: no file facts (code %d)", printable(path).c_str(), rc);
        return kFailed;
    }
    std::vector<std::string> names;
    if (resolveNames(f.channel(), {}, names)) return kFailed;
    size_t scalars = 0, strings = 0, arrays = 0, unreadable = 0;
    for (const std::string& name : names) {
        VarInfo v;
        if (loadInfo(f.channel(), name, v)) unreadable++;
        else if (v.array) arrays++;
        else if (v.base == SDF_CHAR_T) strings++;
        else scalars++;
    }
    bool little = fi[3] == 2;
    RawHeader raw = readRawHeader(path, little);
    std::printf("file:        %s\n", printable(path).c_str());
    std::printf("format:      SDF %d.%d, %s-endian, names %s\n", fi[1], fi[2], little ? "little" : "big",
                raw.caseLetter == 'I' ? "case-insensitive" : "case-sensitive");
    std::printf("chunks:      %d of %d bytes (%lld bytes), %d unused\n", fi[5], fi[4],
                static_cast<long long>(fi[5]) * fi[4], fi[6]);
    if (raw.ok) std::printf("modified:    %s\n", utcText(raw.modified).c_str());
    auto count = [](size_t n, const char* one, const char* many) {
        return std::to_string(n) + " " + (n == 1 ? one : many);
    };
    std::printf("variables:   %zu (%s, %s, %s", names.size(), count(scalars, "scalar", "scalars").c_str(),
                count(strings, "string", "strings").c_str(), count(arrays, "array", "arrays").c_str());
    if (unreadable) std::printf(", %zu unreadable", unreadable);
    std::printf(")\n");
    std::printf("lock:        %s\n", lockText(path).c_str());
    return unreadable ? kFailed : kOk;
}

int cmdLs(const Args& a) {
    SdfFile f;
    if (openOrComplain(f, a.positional[0])) return kFailed;
    std::string templ = a.positional.size() > 1 ? a.positional[1] : "*";
    std::vector<std::string> names, tags;
    if (a.has("--tags")) {
        char **n = nullptr, **t = nullptr;
        int count = 0;
        if (int rc = Sdf_Tag_List(f.channel(), templ.c_str(), a.get("--tags").c_str(), &n, &t, &count)) {
            complain("cannot list \"%s\" (code %d)", printable(templ).c_str(), rc);
            return kFailed;
        }
        for (int i = 0; i < count; i++) {
            names.push_back(n[i] ? n[i] : "");
            tags.push_back(t[i] ? t[i] : "");
        }
        Sdf_Free(n);
        Sdf_Free(t);
    } else {
        char** n = nullptr;
        int count = 0;
        if (int rc = Sdf_List(f.channel(), templ.c_str(), &n, &count)) {
            complain("cannot list \"%s\" (code %d)", printable(templ).c_str(), rc);
            return kFailed;
        }
        for (int i = 0; i < count; i++) names.push_back(n[i] ? n[i] : "");
        Sdf_Free(n);
    }
    // Rows first, so that the columns can be aligned.
    std::vector<std::vector<std::string>> rows;
    rows.push_back({"NAME", "TYPE", "SHAPE", "UNITS", a.has("--tags") ? "TAGS" : "DESCRIPTION"});
    int result = kOk;
    for (size_t i = 0; i < names.size(); i++) {
        VarInfo v;
        if (int rc = loadInfo(f.channel(), names[i], v)) {
            readFailed(names[i], rc);
            result = kFailed;
            continue;
        }
        std::string tn = typeName(v.base);
        if (v.base == SDF_CHAR_T && v.array) tn += concat({"*", std::to_string(v.elen)});
        rows.push_back({v.name, tn, shapeText(v), printable(v.units),
                        a.has("--tags") ? tags[i] : printable(v.desc)});
    }
    std::vector<size_t> width(5, 0);
    for (const auto& r : rows)
        for (size_t c = 0; c < 4; c++) width[c] = std::max(width[c], r[c].size());
    for (const auto& r : rows) {
        std::string line;
        for (size_t c = 0; c < 4; c++) line += r[c] + std::string(width[c] - r[c].size() + 2, ' ');
        line += r[4];
        while (!line.empty() && line.back() == ' ') line.pop_back();
        std::printf("%s\n", line.c_str());
    }
    return result;
}

int cmdDump(const Args& a) {
    SdfFile f;
    if (openOrComplain(f, a.positional[0])) return kFailed;
    std::vector<std::string> names;
    if (resolveNames(f.channel(), {a.positional.begin() + 1, a.positional.end()}, names)) return kFailed;
    int result = kOk;
    for (const std::string& name : names) {
        VarInfo v;
        Values vals;
        if (!loadVariable(f.channel(), name, v, vals)) {
            result = kFailed;
            continue;
        }
        std::string head = v.name + ": " + typeText(v);
        if (!v.units.empty()) head += concat({" [", printable(v.units), "]"});
        if (!v.desc.empty()) {
            Element d;
            d.kind = Element::Text;
            d.text = v.desc;
            head += concat({" ", elementText(d)});
        }
        std::printf("%s\n", head.c_str());
        dumpValues(v, vals);
    }
    return result;
}

int cmdCheck(const Args& a) {
    int result = kOk;
    for (const std::string& path : a.positional) {
        SdfFile f;
        if (int rc = f.open(path)) {
            complain("%s: check failed: the library refuses the file (code %d)", printable(path).c_str(), rc);
            result = kFailed;
            continue;
        }
        // The open checked the header and the tables; reading every value
        // walks the data chains as well.
        std::vector<std::string> names;
        if (resolveNames(f.channel(), {}, names)) {
            result = kFailed;
            continue;
        }
        size_t bad = 0;
        for (const std::string& name : names) {
            VarInfo v;
            Values vals;
            if (!loadVariable(f.channel(), name, v, vals)) bad++;
        }
        if (bad) {
            complain("%s: check failed: %zu of %zu variables unreadable", printable(path).c_str(), bad,
                     names.size());
            result = kFailed;
        } else {
            std::printf("%s: ok, %zu variables\n", printable(path).c_str(), names.size());
        }
    }
    return result;
}

}  // namespace sdftool
