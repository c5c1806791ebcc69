// The table of file and clock calls the SDF library makes, and its real
// entries. Everything that touches a file descriptor or reads the clock goes
// through `sdf_io`, so a test can swap one entry for a failing or short one
// and put the original back afterwards.
//
// The entries keep the POSIX contracts: pread/pwrite may transfer less than
// asked and the callers loop; here they only retry a call that an interrupt
// cut off before it transferred anything, and never hand more than 16 MiB to
// the system in one request.
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <time.h>
#include <sys/stat.h>
#include <unistd.h>

#include "sdf_inner.h"

namespace {

constexpr size_t kMaxPiece = 0x1000000;  // 16 MiB per system request

int io_open(const char* path, int flags, mode_t mode) {
    int fd;
    do {
        fd = ::open(path, flags | O_CLOEXEC, mode);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

int io_close(int fd) { return ::close(fd); }

ssize_t io_pread(int fd, void* buf, size_t count, off_t offset) {
    ssize_t n;
    do {
        n = ::pread(fd, buf, count < kMaxPiece ? count : kMaxPiece, offset);
    } while (n < 0 && errno == EINTR);
    return n;
}

ssize_t io_pwrite(int fd, const void* buf, size_t count, off_t offset) {
    ssize_t n;
    do {
        n = ::pwrite(fd, buf, count < kMaxPiece ? count : kMaxPiece, offset);
    } while (n < 0 && errno == EINTR);
    return n;
}

int io_fsync(int fd) {
    int rc;
    do {
        rc = ::fsync(fd);
    } while (rc < 0 && errno == EINTR);
    return rc;
}

int io_ftruncate(int fd, off_t length) {
    int rc;
    do {
        rc = ::ftruncate(fd, length);
    } while (rc < 0 && errno == EINTR);
    return rc;
}

int io_unlink(const char* path) { return ::unlink(path); }

time_t io_time(time_t* t) { return ::time(t); }

int io_fstat(int fd, struct stat* st) { return ::fstat(fd, st); }

int io_kill(pid_t pid, int sig) { return ::kill(pid, sig); }

int io_clock_gettime(clockid_t clock, struct timespec* ts) { return ::clock_gettime(clock, ts); }

int io_nanosleep(const struct timespec* req, struct timespec* rem) { return ::nanosleep(req, rem); }

int io_rename(const char* from, const char* to) { return ::rename(from, to); }

int io_link(const char* from, const char* to) { return ::link(from, to); }

}  // namespace

extern "C" {

const sdf_io_ops sdf_io_default = {io_open,      io_close,  io_pread, io_pwrite, io_fsync,
                                   io_ftruncate, io_unlink, io_time,  io_fstat,  io_kill,
                                   io_clock_gettime, io_nanosleep, io_rename, io_link};

sdf_io_ops sdf_io = sdf_io_default;

int64_t sdf_now_stamp(void) { return static_cast<int64_t>(sdf_io.time(nullptr)) * 1000000; }

}  // extern "C"
