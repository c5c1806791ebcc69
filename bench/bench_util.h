// Pieces the benchmark programs share: a scratch folder that goes away
// however the program ends normally, the clock in seconds, the line-by-line
// copy that text benchmarks measure themselves against (what any
// line-oriented pass over a file has to do at the least), the size argument,
// a buffered writer for generated inputs, the best-of-runs timing loop, and a
// way to stop with a message that still removes the scratch folder.
//
// Failures go through fail(), which throws; guardedMain() turns that into the
// message on stderr and the exit status, after the stack (and with it the
// scratch folder) has been unwound. std::exit would leave the folder behind.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <system_error>
#include <utility>

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

// What stops a benchmark: the text for stderr and the exit status.
struct Failure {
    std::string message;
    int status;
};

[[noreturn]] inline void fail(std::string message, int status = 1) {
    throw Failure{std::move(message), status};
}

// Runs a benchmark's body; a fail() in it prints its message and gives its
// status, any other exception (a folder that can't be made) gives 1.
template <class Body>
int guardedMain(Body&& body) {
    try {
        return body();
    } catch (const Failure& f) {
        std::cerr << f.message << "\n";
        return f.status;
    } catch (const std::exception& e) {
        std::cerr << e.what() << "\n";
        return 1;
    }
}

// The optional first argument: a positive number, a whole one when `whole`,
// at most `most`; `fallback` when there is none. Anything else fails with
// "usage: <program> [<what>, default <fallback>]".
inline double sizeArgument(int argc, char** argv, const char* what, double fallback,
                           bool whole = false, double most = HUGE_VAL) {
    if (argc < 2) return fallback;
    char* end = nullptr;
    const double value = std::strtod(argv[1], &end);
    if (end == argv[1] || *end || !(value > 0) || !(value <= most) ||
        (whole && value != std::floor(value))) {
        char text[64];
        std::snprintf(text, sizeof text, "%.15g", fallback);
        fail(std::string("usage: ") + argv[0] + " [" + what + ", default " + text + "]");
    }
    return value;
}

// A scratch folder under the system's temporary folder, named after the
// benchmark and this process, created.
inline ScratchFolder makeScratch(const std::string& name) {
    const std::filesystem::path path =
        std::filesystem::temp_directory_path() / (name + "_" + std::to_string(::getpid()));
    std::filesystem::create_directories(path);
    // Returned as a prvalue: a copy would remove the folder when it died.
    return ScratchFolder{path};
}

// Writes a generated file through a buffer of about a megabyte. size() counts
// what was written and what waits, so a generator can stop at a target size;
// finish() writes the rest and fails the benchmark when the file couldn't be
// written; what is still buffered without it is dropped.
class TextWriter {
public:
    explicit TextWriter(const std::filesystem::path& path)
        : path_(path), out_(path, std::ios::binary | std::ios::trunc) {
        buffer_.reserve(kChunk + 512);
    }

    std::uint64_t size() const { return written_ + buffer_.size(); }

    void append(const std::string& text) {
        buffer_ += text;
        if (buffer_.size() >= kChunk) flush();
    }

#if defined(__GNUC__)
    __attribute__((format(printf, 2, 3)))
#endif
    void appendf(const char* format, ...) {
        va_list args, again;
        va_start(args, format);
        va_copy(again, args);
        char text[512];
        const int n = std::vsnprintf(text, sizeof text, format, args);
        va_end(args);
        if (n >= 0 && static_cast<std::size_t>(n) < sizeof text) {
            buffer_.append(text, static_cast<std::size_t>(n));
        } else if (n >= 0) {
            const std::size_t at = buffer_.size();
            buffer_.resize(at + static_cast<std::size_t>(n) + 1);
            std::vsnprintf(&buffer_[at], static_cast<std::size_t>(n) + 1, format, again);
            buffer_.resize(at + static_cast<std::size_t>(n));
        }
        va_end(again);
        if (n < 0) fail("cannot format a line of " + path_.string());
        if (buffer_.size() >= kChunk) flush();
    }

    void finish() {
        flush();
        out_.close();
        if (!out_) fail("cannot write " + path_.string());
    }

private:
    static constexpr std::size_t kChunk = 1 << 20;

    void flush() {
        out_.write(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
        written_ += buffer_.size();
        buffer_.clear();
    }

    std::filesystem::path path_;
    std::ofstream out_;
    std::string buffer_;
    std::uint64_t written_ = 0;
};

// Seconds `work` takes.
template <class Work>
double secondsOf(Work&& work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return seconds(std::chrono::steady_clock::now() - begin);
}

// The best of `runs` timings of a baseline and of the subject, interleaved
// so that a slow spell of the machine hits both. Each callable answers its
// own seconds (it may leave set-up out of them). Three runs unless said.
struct BestTimes {
    double baseline = HUGE_VAL;
    double subject = HUGE_VAL;
};

template <class Baseline, class Subject>
BestTimes bestOf(Baseline&& baseline, Subject&& subject, int runs = 3) {
    BestTimes best;
    for (int run = 0; run < runs; ++run) {
        best.baseline = std::min(best.baseline, baseline());
        best.subject = std::min(best.subject, subject());
    }
    return best;
}

// Prints "<subject>: N MB/s  copy: N MB/s  ratio: R (target >= T)" for a
// file of `bytes` bytes (MB are 10^6 bytes).
inline void printRates(const char* subject, double bytes, const BestTimes& best,
                       double target) {
    const double subjectRate = bytes / 1e6 / best.subject;
    const double copyRate = bytes / 1e6 / best.baseline;
    std::printf("%s: %.1f MB/s  copy: %.1f MB/s  ratio: %.2f (target >= %.1f)\n", subject,
                subjectRate, copyRate, subjectRate / copyRate, target);
}

// Seconds to copy `from` to `to` line by line through the standard streams.
inline double timeLineCopy(const std::filesystem::path& from, const std::filesystem::path& to) {
    std::error_code ec;
    std::filesystem::remove(to, ec);
    return secondsOf([&] {
        std::ifstream in(from, std::ios::binary);
        std::ofstream out(to, std::ios::binary | std::ios::trunc);
        std::string line;
        while (std::getline(in, line)) out << line << '\n';
    });
}

}  // namespace zeltra_bench
