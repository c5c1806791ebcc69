// Feeds arbitrary bytes to the whole life of an SDF file through the public
// operations: open for writing, read every variable whole and as slices,
// write each back, append to each array, add and delete variables, close,
// and open again. Every step may refuse a damaged file with a code; what
// must never happen is a crash, a sanitizer report, a leak, a lock file left
// behind, or a file that closed cleanly and then fails to open.
//
// The bytes go to a real file in a scratch directory, since opening for
// writing makes a lock file beside it. Arrays are read and written only up
// to a bounded size: a damaged file can describe a sparse array of a
// terabyte, which a caller that allocates for it would fail on too.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "sdf_inner.h"

namespace {

constexpr int64_t kMaxBytes = 1 << 16;  // largest array this target reads whole

const std::string& scratchFile() {
    static const std::string path = [] {
        char dir[] = "/tmp/sdf_rw_fuzz_XXXXXX";
        if (!mkdtemp(dir)) std::abort();
        return std::string(dir) + "/fuzz.sdf";
    }();
    return path;
}

bool exists(const std::string& p) { return access(p.c_str(), F_OK) == 0; }

int64_t elements(const int64_t dims[8]) {
    int64_t n = 1;
    for (int i = 1; i <= dims[0] && i <= 7; i++) {
        if (dims[i] < 0 || (dims[i] && n > kMaxBytes / dims[i])) return -1;
        n *= dims[i];
    }
    return n;
}

// Reads an array whole and as two slices, writes it back over itself, and
// appends one slab along its last dimension.
void exerciseArray(int ch, const char* name, int elen) {
    int64_t dims[8] = {0};
    if (Sdf_Get_Dims64(ch, name, dims) != 0 || dims[0] < 1 || dims[0] > 7) return;
    const int64_t n = elements(dims);
    if (n < 0 || elen < 1 || n * elen > kMaxBytes) return;
    void* whole = nullptr;
    int64_t start[8] = {0}, got = 0;
    if (Sdf_Read_Array64(ch, name, &whole, start, 0, &got) == 0 && whole) {
        if (got > n) std::abort();  // more than the dimensions hold
        int64_t at[8] = {dims[0]};
        Sdf_Write_Array64(ch, name, whole, at, got);
    }
    Sdf_Free(whole);

    void* slice = nullptr;
    int64_t count = 0, sdims[8] = {0};
    const int64_t none[8] = {0};
    Sdf_Read_Slice64(ch, name, &slice, none, none, none, nullptr, &count, sdims);
    Sdf_Free(slice);
    slice = nullptr;
    int64_t begin[8] = {dims[0]}, end[8] = {dims[0]}, step[8] = {dims[0]};
    for (int i = 1; i <= dims[0]; i++) {
        begin[i] = dims[i] > 0 ? dims[i] - 1 : 0;
        end[i] = 0;
        step[i] = i == 1 ? 2 : 1;
    }
    Sdf_Read_Slice64(ch, name, &slice, begin, end, step, nullptr, &count, sdims);
    Sdf_Free(slice);

    const int64_t slab = dims[dims[0]] > 0 ? n / dims[dims[0]] : 0;
    if (slab > 0 && slab * elen <= kMaxBytes) {
        std::vector<unsigned char> zeros(static_cast<size_t>(slab * elen), 0);
        int64_t behind[8] = {0};
        Sdf_Write_Array64(ch, name, zeros.data(), behind, slab);
    }
}

void exerciseScalar(int ch, const char* name, int type) {
    if (type == SDF_CHAR_T) {
        char* text = nullptr;
        int length = 0;
        if (Sdf_Get_Cval(ch, name, &text, &length) == 0 && text) {
            if (static_cast<size_t>(length) != strlen(text)) std::abort();
            Sdf_Put_Cval(ch, name, text);
        }
        Sdf_Free(text);
        return;
    }
    unsigned char value[16] = {0};
    if (Sdf_Get_Val(ch, name, value) == 0) Sdf_Put_Val(ch, name, value);
}

void exerciseTexts(int ch, const char* name) {
    char* units = nullptr;
    if (Sdf_Get_Units(ch, name, &units) == 0 && units) Sdf_Put_Units(ch, name, units);
    Sdf_Free(units);
    char* desc = nullptr;
    Sdf_Get_Desc(ch, name, &desc);
    Sdf_Free(desc);
}

// The whole round on an open writable channel.
void exercise(int ch, bool* added) {
    char** list = nullptr;
    int count = 0;
    if (Sdf_List(ch, "*", &list, &count) != 0 || !list) return;
    std::vector<std::string> names;
    for (int i = 0; i < count && list[i]; i++) names.emplace_back(list[i]);
    Sdf_Free(list);
    for (const std::string& name : names) {
        int type = 0, is_array = 0, elen = 0;
        if (Sdf_Get_Type(ch, name.c_str(), &type, &is_array) != 0) continue;
        Sdf_Get_Elen(ch, name.c_str(), &elen);
        if (is_array)
            exerciseArray(ch, name.c_str(), elen);
        else
            exerciseScalar(ch, name.c_str(), type);
        exerciseTexts(ch, name.c_str());
    }
    if (!names.empty()) Sdf_Delete(ch, names.front().c_str());
    const double x = 2.5;
    *added = Sdf_Write_Var(ch, "fuzz_new", SDF_DBLE_T, &x, "m", "added") == 0;
    Sdf_Write_Char(ch, "fuzz_text", "some text", "added");
    const int32_t dims[8] = {1, 5};
    if (Sdf_Define_Array(ch, "fuzz_arr", SDF_INT_T, 0, dims, nullptr, nullptr) == 0) {
        const int32_t five[5] = {1, 2, 3, 4, 5};
        int32_t behind[8] = {0};
        Sdf_Write_Array(ch, "fuzz_arr", five, behind, 5);
    }
    Sdf_Delete(ch, "fuzz_text");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = [] {
        // Refusals are expected by the thousand; keep them out of stderr.
        Sdf_Set_Opts("Error_Out=None,Delete_Warn=No");
        return true;
    }();
    (void)quiet;
    const std::string& path = scratchFile();
    const std::string lock = path + ".lock", lock2 = path + ".lock.lock";
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0 || (size && ::write(fd, data, size) != static_cast<ssize_t>(size)) || ::close(fd) != 0)
        std::abort();

    int ch = -1;
    if (Sdf_Open(&ch, path.c_str(), "BINARY", "OLD", "WRITE") >= 3000) {
        if (exists(lock) || exists(lock2)) std::abort();  // a refused open leaves nothing
        ZU_errClear(nullptr, 0);
        return 0;
    }
    bool added = false;
    exercise(ch, &added);
    const int closed = Sdf_Close(ch, "KEEP");
    if (closed >= 3000) {
        // A failed commit keeps the channel open; the scratch copy goes.
        if (sdf_chan_get(ch) && Sdf_Close(ch, "DELETE") >= 3000) std::abort();
    } else {
        // A file that closed cleanly opens again, and holds what was added.
        if (exists(lock) || exists(lock2)) std::abort();
        if (Sdf_Open(&ch, path.c_str(), "BINARY", "OLD", "READ") != 0) std::abort();
        double x = 0;
        if (added && (Sdf_Get_Val(ch, "fuzz_new", &x) != 0 || x != 2.5)) std::abort();
        if (Sdf_Close(ch, "KEEP") != 0) std::abort();
    }
    if (exists(lock) || exists(lock2)) std::abort();
    ZU_errClear(nullptr, 0);
    return 0;
}
