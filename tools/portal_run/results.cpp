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

toml::table textTable(const std::map<std::string, std::string>& texts) {
    toml::table t;
    for (const auto& [k, v] : texts) t.insert(k, v);
    return t;
}

bool readTable(const toml::table& t, const char* key, std::map<std::string, std::string>& out) {
    const toml::table* sub = t[key].as_table();
    if (!sub) return false;
    for (auto&& [k, v] : *sub) {
        if (!v.is_string()) return false;
        out[std::string(k.str())] = v.as_string()->get();
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

bool isRunFolderName(const std::string& name) {
    const std::string prefix = "design_";
    if (name.rfind(prefix, 0) != 0 || name.size() < prefix.size() + 4) return false;
    return name.find_first_not_of("0123456789", prefix.size()) == std::string::npos;
}

std::vector<std::string> parameterTexts(const Design& design) {
    std::vector<std::string> out;
    for (const Value& v : design.values) out.push_back(valueText(v));
    return out;
}

std::map<std::string, std::string> parameterValues(const Study& study, const Design& design) {
    std::map<std::string, std::string> out;
    for (std::size_t i = 0; i < study.parameters.size() && i < design.values.size(); ++i)
        out[study.parameters[i].name] = valueText(design.values[i]);
    return out;
}

std::string countOf(std::size_t n, const char* noun) {
    return std::to_string(n) + " " + noun + (n == 1 ? "" : "s");
}

void Tally::countRerun(const std::string& cause) {
    for (auto& [c, n] : rerun)
        if (c == cause) return void(++n);
    rerun.emplace_back(cause, 1);
}

bool writeResult(const std::string& path, const DesignResult& r, std::string& error) {
    toml::table t{{"design", r.design},
                  {"status", r.status},
                  {"reason", r.reason},
                  {"seconds", r.seconds},
                  {"parameters", textTable(r.parameters)},
                  {"responses", textTable(r.responses)},
                  {"messages", textArray(r.messages)},
                  {"identity", textTable(r.identity)}};
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
    if (!readTable(t, "parameters", r.parameters) || !readTable(t, "responses", r.responses) ||
        !readTexts(t, "messages", r.messages) || !readTable(t, "identity", r.identity))
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
        for (const Response& resp : study.responses) {
            auto it = r ? r->responses.find(resp.name) : std::map<std::string, std::string>::const_iterator{};
            csv << "," << (r && it != r->responses.end() ? csvField(it->second) : std::string());
        }
        csv << "," << (r ? r->status : "pending") << "," << (r ? csvField(r->reason) : "") << "\n";
    }
    return writeAtomically(path, csv.str(), error);
}

std::string summaryText(const Study& study, const std::vector<std::optional<DesignResult>>& results,
                        const Tally& tally, double seconds, const std::string& csvPath) {
    std::ostringstream s;
    s << "study " << study.name << ": " << countOf(results.size(), "design") << ", " << tally.ok
      << " ok, " << tally.failed << " failed";
    if (tally.pending) s << ", " << tally.pending << " not run";
    if (tally.skipped) s << " (" << tally.skipped << " done before)";
    char time[32];
    std::snprintf(time, sizeof time, "%.1f", seconds);
    s << " in " << time << " s\n";
    for (const auto& [cause, n] : tally.rerun)
        s << "  " << countOf(static_cast<std::size_t>(n), "design") << " run again: " << cause << "\n";
    int shown = 0;
    for (const auto& r : results) {
        if (!r || r->status != "failed") continue;
        if (++shown > 20) {
            s << "  ... and " << (tally.failed - 20) << " more failed\n";
            break;
        }
        s << "  design " << r->design << " failed: " << r->reason << "\n";
    }
    s << "results: " << csvPath << "\n";
    return s.str();
}

}  // namespace portalrun
