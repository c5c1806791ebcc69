// The study's identity and the reuse rule. Each part of the identity is a
// 64-bit hash over length-prefixed fields, so that no two different setups
// give the same stream of bytes; files count by content (and the name they
// are known by), not by their absolute path, so a study folder that moves
// keeps its runs. The hash only has to notice a change, not resist an
// attacker: four multiply-rotate lanes over 32-byte blocks read a plug-in of
// some megabytes in a few milliseconds.
#include "reuse.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <vector>

namespace portalrun {

namespace fs = std::filesystem;

namespace {

constexpr std::uint64_t kP1 = 0x9E3779B185EBCA87ULL;
constexpr std::uint64_t kP2 = 0xC2B2AE3D27D4EB4FULL;
constexpr std::uint64_t kP3 = 0x165667B19E3779F9ULL;
constexpr std::uint64_t kP4 = 0x85EBCA77C2B2AE63ULL;

std::uint64_t rotl(std::uint64_t x, int r) { return (x << r) | (x >> (64 - r)); }

std::uint64_t round64(std::uint64_t acc, std::uint64_t input) {
    return rotl(acc + input * kP2, 31) * kP1;
}

class Hasher {
public:
    // A field: its length, then its bytes.
    void add(std::string_view s) {
        number(s.size());
        bytes(s.data(), s.size());
    }
    void add(double v) {
        char buf[64];
        auto r = std::to_chars(buf, buf + sizeof buf, v);
        add(std::string_view(buf, static_cast<std::size_t>(r.ptr - buf)));
    }
    // A file's content followed by its size. False when it can't be read.
    bool addFile(const std::string& path) {
        std::ifstream in(path, std::ios::binary);
        if (!in) return false;
        std::vector<char> chunk(1 << 20);
        std::uint64_t size = 0;
        while (in) {
            in.read(chunk.data(), static_cast<std::streamsize>(chunk.size()));
            const auto got = static_cast<std::size_t>(in.gcount());
            bytes(chunk.data(), got);
            size += got;
        }
        if (in.bad()) return false;
        number(size);
        return true;
    }

    std::string hex() const {
        std::uint64_t h = rotl(lanes_[0], 1) + rotl(lanes_[1], 7) + rotl(lanes_[2], 12) +
                          rotl(lanes_[3], 18);
        for (std::uint64_t lane : lanes_) h = (h ^ round64(0, lane)) * kP1 + kP4;
        h += total_;
        for (std::size_t i = 0; i < fill_; ++i) h = rotl(h ^ (buf_[i] * kP3), 11) * kP1;
        h ^= h >> 33;
        h *= kP2;
        h ^= h >> 29;
        h *= kP3;
        h ^= h >> 32;
        char out[17];
        std::snprintf(out, sizeof out, "%016llx", static_cast<unsigned long long>(h));
        return out;
    }

private:
    void number(std::uint64_t n) {
        unsigned char b[8];
        for (int i = 0; i < 8; ++i) b[i] = static_cast<unsigned char>(n >> (8 * i));
        bytes(reinterpret_cast<const char*>(b), sizeof b);
    }
    void bytes(const char* p, std::size_t n) {
        total_ += n;
        while (n > 0) {
            const std::size_t take = std::min(n, sizeof buf_ - fill_);
            std::memcpy(buf_ + fill_, p, take);
            fill_ += take;
            p += take;
            n -= take;
            if (fill_ == sizeof buf_) {
                for (int k = 0; k < 4; ++k) {
                    std::uint64_t w;
                    std::memcpy(&w, buf_ + 8 * k, 8);
                    lanes_[k] = round64(lanes_[k], w);
                }
                fill_ = 0;
            }
        }
    }

    std::array<std::uint64_t, 4> lanes_{kP1 + kP2, kP2, 0, 0 - kP1};
    unsigned char buf_[32] = {};
    std::size_t fill_ = 0;
    std::uint64_t total_ = 0;
};

// Settings that change only what is logged, never a result: turning the
// log on must not run a finished study again.
bool onlyForTheLog(const std::string& key) { return key == "verbose" || key == "scriptverbose"; }

struct Part {
    const char* key;
    const char* cause;
};

// In the order a cause is told when several apply.
constexpr Part kParts[] = {
    {"solver", "the solver command or its time limits changed"},
    {"files", "an input, output or tag file changed"},
    {"responses", "the study's responses changed"},
    {"portal", "the study's name, version, portal, settings or properties changed"},
    {"plugin", "the plug-in changed"},
};

constexpr const char* kValuesChanged = "the design's parameter values changed";
constexpr const char* kResponsesChanged = "the study's responses changed";
constexpr const char* kRetry = "it failed before (--retry-failed)";
constexpr const char* kDamaged = "its record was damaged or written by an older portal-run";

bool hashFiles(const std::vector<FileSpec>& files, bool inputs, Hasher& h, std::string& error) {
    for (const FileSpec& f : files) {
        h.add(inputs ? "input" : "output");
        h.add(inputs ? fs::path(f.file).filename().string() : f.file);
        if (inputs && !h.addFile(f.file)) return error = "cannot read the input " + f.file, false;
        h.add(f.tags.empty() ? std::string() : fs::path(f.tags).filename().string());
        if (!f.tags.empty() && !h.addFile(f.tags))
            return error = "cannot read the tag file " + f.tags, false;
    }
    return true;
}

}  // namespace

bool fileHash(const std::string& path, std::string& hex) {
    Hasher h;
    if (!h.addFile(path)) return false;
    hex = h.hex();
    return true;
}

bool studyIdentity(const Study& study, const std::map<std::string, std::string>& settings,
                   const std::string& pluginHash, StudyIdentity& out, std::string& error) {
    out.clear();
    Hasher solver;
    solver.add(study.command);
    solver.add(study.timeLimit);
    solver.add(study.killGrace);
    out["solver"] = solver.hex();

    Hasher files;
    if (!hashFiles(study.inputs, true, files, error) || !hashFiles(study.outputs, false, files, error))
        return false;
    out["files"] = files.hex();

    // By name: the order of the responses only orders the CSV's columns.
    std::map<std::string, bool> responses;
    for (const Response& r : study.responses) responses[r.name] = r.numeric;
    Hasher resp;
    for (const auto& [name, numeric] : responses) {
        resp.add(name);
        resp.add(numeric ? "numeric" : "text");
    }
    out["responses"] = resp.hex();

    Hasher portal;
    for (const std::string* s : {&study.portal, &study.name, &study.version}) portal.add(*s);
    for (const auto& [group, values] : study.properties) {
        portal.add(group);
        portal.add(std::to_string(values.size()));
        for (const auto& [k, v] : values) {
            portal.add(k);
            portal.add(v);
        }
    }
    portal.add("settings");
    for (const auto& [k, v] : settings) {
        if (onlyForTheLog(k)) continue;
        portal.add(k);
        portal.add(v);
    }
    out["portal"] = portal.hex();

    out["plugin"] = pluginHash;
    return true;
}

std::string loadedLibraryFile(const std::string& path) {
    void* handle = ::dlopen(path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (!handle) return path;
    std::string file = path;
    link_map* map = nullptr;
    if (::dlinfo(handle, RTLD_DI_LINKMAP, &map) == 0 && map && map->l_name && *map->l_name)
        file = map->l_name;
    ::dlclose(handle);
    return file;
}

ReuseVerdict judgeRecord(const std::optional<DesignResult>& record, const std::string& recordPath,
                         const Study& study, const Design& design, const StudyIdentity& identity,
                         bool retryFailed) {
    if (!record) {
        std::error_code ec;
        return {false, fs::exists(recordPath, ec) ? kDamaged : ""};
    }
    if (record->design != design.number || record->parameters != parameterValues(study, design))
        return {false, kValuesChanged};
    for (const Part& p : kParts) {
        auto now = identity.find(p.key);
        auto then = record->identity.find(p.key);
        if (now == identity.end() || then == record->identity.end() || now->second != then->second)
            return {false, p.cause};
    }
    bool sameResponses = record->responses.size() == study.responses.size();
    for (const Response& r : study.responses)
        sameResponses = sameResponses && record->responses.count(r.name);
    if (!sameResponses) return {false, kResponsesChanged};
    if (record->status == "failed" && retryFailed) return {false, kRetry};
    return {true, ""};
}

}  // namespace portalrun
