// The example solver's input file and its messages.
//
// The input is "key = value" lines; "#" starts a comment, blank lines don't
// count, keys compare without regard to case. Every problem becomes a
// message naming the line, and reading goes on so that the user sees all of
// them at once; the checks of value ranges run after the whole file was read.
#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <set>

#include "beam.h"

namespace beam {

void Messages::add(const char* level, const std::string& text) {
    std::string line = std::string(level) + text;
    // One message is one line: a line break inside would split it in two.
    std::replace(line.begin(), line.end(), '\n', ' ');
    std::replace(line.begin(), line.end(), '\r', ' ');
    lines_.push_back(line);
}

bool Messages::save(const std::string& path) const {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    for (const std::string& l : lines_) out << l << '\n';
    out.close();
    return static_cast<bool>(out);
}

namespace {

std::string trim(const std::string& s) {
    size_t a = s.find_first_not_of(" \t\r");
    if (a == std::string::npos) return {};
    return s.substr(a, s.find_last_not_of(" \t\r") - a + 1);
}

std::string lower(std::string s) {
    for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return s;
}

// The whole text as one finite number.
bool toNumber(const std::string& text, double& out) {
    if (text.empty()) return false;
    char* end = nullptr;
    out = std::strtod(text.c_str(), &end);
    return end && *end == '\0' && std::isfinite(out);
}

struct Field {
    double BeamInput::*real;
    bool required;
};

const std::map<std::string, Field>& fields() {
    static const std::map<std::string, Field> table = {
        {"length", {&BeamInput::length, true}},
        {"width", {&BeamInput::width, true}},
        {"height", {&BeamInput::height, true}},
        {"youngs_modulus", {&BeamInput::youngsModulus, true}},
        {"load", {&BeamInput::load, true}},
        {"density", {&BeamInput::density, false}},
        {"yield_stress", {&BeamInput::yieldStress, false}},
        {"stations", {nullptr, false}},
    };
    return table;
}

// Keys in `skip` already have a message (missing or not a number).
void checkRanges(const BeamInput& in, const std::set<std::string>& skip, Messages& msgs) {
    const std::pair<const char*, double> positive[] = {
        {"length", in.length},   {"width", in.width},          {"height", in.height},
        {"youngs_modulus", in.youngsModulus}, {"density", in.density}, {"yield_stress", in.yieldStress}};
    char buf[64];
    for (const auto& [name, v] : positive) {
        if (skip.count(name) || v > 0) continue;
        std::snprintf(buf, sizeof buf, "%g", v);
        msgs.error(std::string(name) + " must be positive, got " + buf);
    }
    if (!skip.count("stations") && (in.stations < 2 || in.stations > 100000))
        msgs.error("stations must be a whole number from 2 to 100000, got " + std::to_string(in.stations));
}

}  // namespace

void readInput(const std::string& path, BeamInput& in, Messages& msgs) {
    std::ifstream file(path);
    if (!file) {
        msgs.error("cannot read the input file " + path);
        return;
    }
    std::map<std::string, int> seen;  // key -> line where it was set
    std::set<std::string> skip;       // keys without a usable value
    std::string raw;
    for (int row = 1; std::getline(file, raw); row++) {
        std::string line = trim(raw.substr(0, raw.find('#')));
        if (line.empty()) continue;
        const std::string where = path + " line " + std::to_string(row) + ": ";
        size_t eq = line.find('=');
        if (eq == std::string::npos) {
            msgs.error(where + "expected key = value, got \"" + line + "\"");
            continue;
        }
        const std::string key = lower(trim(line.substr(0, eq)));
        const std::string text = trim(line.substr(eq + 1));
        auto f = fields().find(key);
        if (f == fields().end()) {
            msgs.warning(where + "unknown key \"" + key + "\" ignored");
            continue;
        }
        if (seen.count(key))
            msgs.warning(where + key + " given again (first on line " + std::to_string(seen[key]) + "); the last value counts");
        seen[key] = row;
        double v = 0;
        skip.erase(key);
        if (!toNumber(text, v)) {
            msgs.error(where + key + " needs a number, got \"" + text + "\"");
            skip.insert(key);
            continue;
        }
        if (f->second.real) {
            in.*(f->second.real) = v;
        } else if (v != std::trunc(v) || std::fabs(v) > 1e9) {
            msgs.error(where + "stations needs a whole number, got \"" + text + "\"");
            skip.insert(key);
        } else {
            in.stations = static_cast<int>(v);
        }
    }
    for (const auto& [key, f] : fields()) {
        if (!f.required || seen.count(key)) continue;
        msgs.error(path + ": " + key + " is missing");
        skip.insert(key);
    }
    checkRanges(in, skip, msgs);
}

}  // namespace beam
