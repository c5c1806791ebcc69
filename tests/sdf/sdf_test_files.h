// Helpers of the SDF tests that work on files: a scratch directory per test,
// raw bytes in and out, the error set, and a guard that puts the table of
// file calls back however the test ends.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

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

}  // namespace sdftest
