// Records, CSV and summary. Records are TOML like the study, so a user can
// read them; the reader takes only a record with every key of the right type,
// and anything else counts as no record, which makes the design run again.
#include "results.h"

#include <toml++/toml.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace portalrun {

namespace fs = std::filesystem;

namespace {

toml::array textArray(const std::vector<std::string>& texts) {
    toml::array a;
    for (const std::string& t : texts) a.push_back(t);
    return a;
}

bool readTexts(const toml::table& t, const char* key, std::vector<std::string>& out) {
    const toml::array* a = t[key].as_array();
    if (!a) return false;
    for (const toml::node& n : *a) {
        if (!n.is_string()) return false;
        out.push_back(n.as_string()->get());
    }
    return true;
}

// Writes a file whole or not at all.
bool writeAtomically(const std::string& path, const std::string& content, std::string& error) {
    const std::string temp = path + ".tmp";
    {
        std::ofstream out(temp, std::ios::binary | std::ios::trunc);
        out << content;
        out.flush();
        if (!out) {
            error = "cannot write " + temp;
            return false;
        }
    }
    std::error_code ec;
    fs::rename(temp, path, ec);
    if (ec) {
        error = "cannot rename " + temp + " to " + path + ": " + ec.message();
        return false;
    }
    return true;
}

}  // namespace

std::string runFolderName(int design) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "design_%04d", design);
    return buf;
}

std::vector<std::string> parameterTexts(const Design& design) {
    std::vector<std::string> out;
    for (const Value& v : design.values) out.push_back(valueText(v));
    return out;
}

bool writeResult(const std::string& path, const DesignResult& r, std::string& error) {
    toml::table t{{"design", r.design},
                  {"status", r.status},
                  {"reason", r.reason},
                  {"seconds", r.seconds},
                  {"parameters", textArray(r.parameters)},
                  {"responses", textArray(r.responses)},
                  {"messages", textArray(r.messages)}};
    std::ostringstream text;
    text << t << "\n";
    return writeAtomically(path, text.str(), error);
}

std::optional<DesignResult> readResult(const std::string& path) {
    std::error_code ec;
    if (!fs::is_regular_file(path, ec)) return std::nullopt;
    toml::table t;
    try {
        t = toml::parse_file(path);
    } catch (const toml::parse_error&) {
        return std::nullopt;
    }
    DesignResult r;
    auto design = t["design"].value<long long>();
    auto status = t["status"].value<std::string>();
    auto reason = t["reason"].value<std::string>();
    if (!design || !status || !reason || (*status != "ok" && *status != "failed"))
        return std::nullopt;
    r.design = static_cast<int>(*design);
    r.status = *status;
    r.reason = *reason;
    r.seconds = t["seconds"].value<double>().value_or(0.0);
    if (!readTexts(t, "parameters", r.parameters) || !readTexts(t, "responses", r.responses) ||
        !readTexts(t, "messages", r.messages))
        return std::nullopt;
    return r;
}

std::string csvField(const std::string& text) {
    if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
    std::string out = "\"";
    for (char c : text) {
        if (c == '"') out += '"';
        out += c;
    }
    return out + "\"";
}

bool writeCsv(const std::string& path, const Study& study, const std::vector<Design>& designs,
              const std::vector<std::optional<DesignResult>>& results, std::string& error) {
    std::ostringstream csv;
    csv << "design";
    for (const Parameter& p : study.parameters) csv << "," << csvField(p.name);
    for (const Response& r : study.responses) csv << "," << csvField(r.name);
    csv << ",status,reason\n";
    for (std::size_t i = 0; i < designs.size(); ++i) {
        csv << designs[i].number;
        for (const std::string& p : parameterTexts(designs[i])) csv << "," << csvField(p);
        const DesignResult* r = i < results.size() && results[i] ? &*results[i] : nullptr;
        for (std::size_t k = 0; k < study.responses.size(); ++k)
            csv << "," << (r && k < r->responses.size() ? csvField(r->responses[k]) : "");
        csv << "," << (r ? r->status : "pending") << "," << (r ? csvField(r->reason) : "") << "\n";
    }
    return writeAtomically(path, csv.str(), error);
}

std::string summaryText(const Study& study, const std::vector<std::optional<DesignResult>>& results,
                        const Tally& tally, double seconds, const std::string& csvPath) {
    std::ostringstream s;
    s << "study " << study.name << ": " << results.size() << " designs, " << tally.ok << " ok, "
      << tally.failed << " failed";
    if (tally.pending) s << ", " << tally.pending << " not run";
    if (tally.skipped) s << " (" << tally.skipped << " done before)";
    char time[32];
    std::snprintf(time, sizeof time, "%.1f", seconds);
    s << " in " << time << " s\n";
    int shown = 0;
    for (const auto& r : results) {
        if (!r || r->status != "failed") continue;
        if (++shown > 20) {
            s << "  ... and " << (tally.failed - 20) << " more failed designs\n";
            break;
        }
        s << "  design " << r->design << " failed: " << r->reason << "\n";
    }
    s << "results: " << csvPath << "\n";
    return s.str();
}

}  // namespace portalrun
