// Feeds arbitrary bytes to the open-and-load path of the SDF library. Every
// input must be either refused with a code or opened and closed again; a
// crash, a leak or a sanitizer report is a failure. The bytes go through a
// real file descriptor (an in-memory file reached by its /proc path), since
// the loader reads through the file calls it uses in production.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

#include "sdf_inner.h"

namespace {

struct Scratch {
    int fd;
    std::string path;
};

const Scratch& scratch() {
    static const Scratch s = [] {
        int fd = ::memfd_create("sdf-fuzz", MFD_CLOEXEC);
        if (fd < 0) std::abort();
        return Scratch{fd, "/proc/self/fd/" + std::to_string(fd)};
    }();
    return s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = [] {
        // Refusals are expected by the thousand; keep them out of stderr.
        Sdf_Set_Opts("Error_Out=None");
        return true;
    }();
    (void)quiet;
    const Scratch& file = scratch();
    if (::ftruncate(file.fd, 0) != 0) std::abort();
    if (size && ::pwrite(file.fd, data, size, 0) != static_cast<ssize_t>(size)) std::abort();
    const std::string& path = file.path;

    fcb* f = nullptr;
    const int rc = sdf_load_file(path.c_str(), 0, &f);
    if (rc < 3000) {
        if (!f) std::abort();  // opened files must give a channel
        sdf_close_file(f, 0);
    } else if (f) {
        std::abort();  // a refusal must leave nothing open
    }
    ZU_errClear(nullptr, 0);
    return 0;
}
