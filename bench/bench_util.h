// Pieces the benchmark programs share: a scratch folder that goes away
// however the program ends normally, the clock in seconds, and the
// line-by-line copy that text benchmarks measure themselves against (what any
// line-oriented pass over a file has to do at the least).
#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>

namespace zeltra_bench {

struct ScratchFolder {
    std::filesystem::path path;
    ~ScratchFolder() {
        std::error_code ec;
        std::filesystem::remove_all(path, ec);
    }
};

inline double seconds(std::chrono::steady_clock::duration d) {
    return std::chrono::duration<double>(d).count();
}

// Seconds to copy `from` to `to` line by line through the standard streams.
inline double timeLineCopy(const std::filesystem::path& from, const std::filesystem::path& to) {
    std::error_code ec;
    std::filesystem::remove(to, ec);
    const auto begin = std::chrono::steady_clock::now();
    {
        std::ifstream in(from, std::ios::binary);
        std::ofstream out(to, std::ios::binary | std::ios::trunc);
        std::string line;
        while (std::getline(in, line)) out << line << '\n';
    }
    return seconds(std::chrono::steady_clock::now() - begin);
}

}  // namespace zeltra_bench
