// Helpers of the SDF tests that work on files: a scratch directory per test,
// raw bytes in and out, the error set, and a guard that puts the table of
// file calls back however the test ends.
#pragma once

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "sdf_inner.h"

namespace sdftest {

class FileTest : public ::testing::Test {
protected:
    void SetUp() override {
        char tmpl[] = "/tmp/sdf_test_XXXXXX";
        ASSERT_NE(mkdtemp(tmpl), nullptr);
        dir_ = tmpl;
        ZU_errClear("*", 0);
        sdf_io = sdf_io_default;
    }
    void TearDown() override {
        sdf_io = sdf_io_default;
        std::error_code ec;
        std::filesystem::remove_all(dir_, ec);
    }
    std::string path(const char* name) const { return dir_ + "/" + name; }

    std::string dir_;
};

inline std::vector<unsigned char> readBytes(const std::string& p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void writeBytes(const std::string& p, const std::vector<unsigned char>& b) {
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size()));
}

inline std::string readText(const std::string& p) {
    const auto b = readBytes(p);
    return std::string(b.begin(), b.end());
}

inline void writeText(const std::string& p, const std::string& text) { writeBytes(p, {text.begin(), text.end()}); }

// A lock file's text as another process would write it.
inline std::string lockText(int64_t pid, int64_t fid, int write, const std::string& host, int sys_pid,
                            const char* eol = "\n") {
    char line1[128];
    snprintf(line1, sizeof line1, "PID=%.20lld,FID=%.20lld,WRITE=%d", static_cast<long long>(pid),
             static_cast<long long>(fid), write);
    return std::string(line1) + eol + "Created 01-Jan-2024 10:00:00 by other (PID " + std::to_string(sys_pid) +
           ") on " + host + ". User: someone" + eol + "This file is used for identification by the SDF system." +
           eol + "It can be deleted if the process that created it has finished." + eol;
}

// Little-endian word access to raw file bytes.
inline uint32_t getLE(const std::vector<unsigned char>& b, size_t at) {
    return b[at] | (b[at + 1] << 8) | (b[at + 2] << 16) | (static_cast<uint32_t>(b[at + 3]) << 24);
}
inline void putLE(std::vector<unsigned char>& b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; i++) b[at + i] = static_cast<unsigned char>(v >> (8 * i));
}

// The message of the newest record with this number in the error set, or
// "<none>" when there is none.
inline std::string errorText(int code) {
    int index = -1;
    while (ZU_ErrRec* r = ZU_errNext("*", &index)) {
        if (r->number == code) return r->message ? r->message : "";
        if (index == 0) break;
    }
    return "<none>";
}

// Whether the error set holds a record with this code.
inline bool reported(int code) { return errorText(code) != "<none>"; }

inline bool exists(const std::string& p) { return access(p.c_str(), F_OK) == 0; }

// The names in a directory, sorted.
inline std::vector<std::string> dirEntries(const std::string& dir) {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(dir)) names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace sdftest
