// Helpers of the tests that go through Sdf_Open and Sdf_Close: new files
// made with options for their creation only, variables made through the
// inner table of an open channel, lock file lines, and a directory change
// that is undone however the test ends.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "sdf_inner.h"
#include "sdf_test_files.h"

namespace sdftest {

// Defines (or changes) a double variable on an open writable file.
inline bool putVar(fcb* f, const std::string& name, double value, int type = SDF_DBLE_T) {
    if (!f) return false;
    int pos = -1, err = 0;
    ventry* row = sdf_find_var(f, name.c_str(), &pos);
    if (!row) row = sdf_insert_var(f, name.c_str(), pos, &err);
    if (!row) return false;
    row->record->type = type;
    row->record->elen = 8;
    if (type == SDF_INT64_T)
        row->record->value.l[0] = static_cast<int64_t>(value);
    else
        row->record->value.d[0] = value;
    sdf_touch(f->file, row->record, row->block, 1);
    return true;
}
inline bool putVar(int channel, const std::string& name, double value, int type = SDF_DBLE_T) {
    return putVar(sdf_chan_get(channel), name, value, type);
}

// The value of a double variable, or NaN-free -1e300 when it is missing.
inline double getVar(int channel, const std::string& name) {
    fcb* f = sdf_chan_get(channel);
    if (!f || !f->file->vars) return -1e300;
    int pos = -1;
    ventry* row = sdf_find_var(f, name.c_str(), &pos);
    return row ? row->record->value.d[0] : -1e300;
}

inline std::string lockLine(const std::string& path, int line = 1) {
    std::ifstream in(path + ".lock");
    std::string text;
    for (int i = 0; i < line && std::getline(in, text); i++) {
    }
    return in ? text : "";
}

// Runs the test body in `dir` and goes back to where it was.
class InDir {
public:
    explicit InDir(const std::string& dir) {
        char buf[4096];
        old_ = getcwd(buf, sizeof buf) ? buf : "/";
        EXPECT_EQ(chdir(dir.c_str()), 0);
    }
    ~InDir() {
        if (chdir(old_.c_str()) != 0) ADD_FAILURE() << "cannot go back to " << old_;
    }
    InDir(const InDir&) = delete;
    InDir& operator=(const InDir&) = delete;

private:
    std::string old_;
};

// Opens path new and writable, with options set for the creation only.
inline int createFile(const std::string& path, const char* opts = nullptr) {
    if (opts) {
        EXPECT_EQ(Sdf_Set_Opts(opts), 0);
    }
    int ch = -1;
    int rc = Sdf_Open(&ch, path.c_str(), "BINARY", "NEW", "WRITE");
    if (opts) Sdf_Set_Opts("Sex=Native_Sex,Case_Sensitive=Yes");
    EXPECT_EQ(rc, 0);
    return rc == 0 ? ch : -1;
}

// Makes a closed file at path, holding one double variable when var is set.
inline bool makeFile(const std::string& path, const char* var = nullptr, double value = 0) {
    int ch = createFile(path);
    const bool put = ch >= 0 && (!var || putVar(ch, var, value));
    return Sdf_Close(ch, "KEEP") == 0 && put;
}

inline int openFile(const std::string& path, const char* intent) {
    int ch = -1;
    EXPECT_EQ(Sdf_Open(&ch, path.c_str(), "BINARY", "OLD", intent), 0);
    return ch;
}

// A FileTest that closes whatever channels a test left open.
class ChannelTest : public FileTest {
protected:
    void TearDown() override {
        for (int c = 0; c < sdf_chan_capacity(); c++)
            if (sdf_chan_get(c)) Sdf_Close(c, "DELETE");
        FileTest::TearDown();
    }
};

}  // namespace sdftest
