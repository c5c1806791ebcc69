// File helpers of the support layer. Path texts accept both '/' and '\' as
// separators; the operating system receives paths unchanged. rename() never
// replaces its target: the tagging code relies on that refusal to notice a
// stage file that is already there.
#include "mosaq/support.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace MOSAQ::Support {

namespace {

int renameNoReplace(const char* from, const char* to) {
    if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return -1;
    // File systems without the no-replace flag: a hard link fails on an
    // existing target just the same.
    if (::link(from, to) != 0) return -1;
    return ::unlink(from);
}

const FileSystemOps kDefaultOps{renameNoReplace, ::unlink};

bool isSeparator(char c) { return c == '/' || c == '\\'; }

// Index just past the last separator (0 when there is none).
std::size_t lastComponentStart(const String& path) {
    std::size_t pos = path.find_last_of("/\\");
    return pos == String::npos ? 0 : pos + 1;
}

}  // namespace

FileSystemOps& fileSystemOps() {
    static FileSystemOps ops = kDefaultOps;
    return ops;
}

const FileSystemOps& defaultFileSystemOps() { return kDefaultOps; }

bool File::exists(const String& path) {
    struct stat st;
    return !path.empty() && ::stat(path.c_str(), &st) == 0;
}

bool File::remove(const String& path) {
    return !path.empty() && fileSystemOps().unlink(path.c_str()) == 0;
}

bool File::rename(const String& from, const String& to) {
    if (from.empty() || to.empty()) return false;
    return fileSystemOps().rename(from.c_str(), to.c_str()) == 0;
}

String File::base(const String& path, bool withExtension) {
    String name = path.substr(lastComponentStart(path));
    if (!withExtension) {
        std::size_t dot = name.rfind('.');
        if (dot != String::npos && dot > 0) name.erase(dot);
    }
    return name;
}

String File::extension(const String& path) {
    String name = path.substr(lastComponentStart(path));
    std::size_t dot = name.rfind('.');
    if (dot == String::npos || dot == 0) return String();
    return name.substr(dot + 1);
}

String File::parentFolder(const String& path) {
    std::size_t start = lastComponentStart(path);
    if (start == 0) return ".";
    std::size_t end = start - 1;
    // "/x" lives in the root; keep the root separator itself.
    if (end == 0) return path.substr(0, 1);
    // "C:\x" lives in "C:\".
    if (end == 2 && path[1] == ':') return path.substr(0, 3);
    return path.substr(0, end);
}

bool File::isAbsolutePath(const String& path) {
    if (path.empty()) return false;
    if (isSeparator(path[0])) return true;
    return path.size() >= 2 && path[1] == ':' &&
           ((path[0] >= 'A' && path[0] <= 'Z') || (path[0] >= 'a' && path[0] <= 'z'));
}

std::uint32_t File::modifiedTime(const String& path) {
    struct stat st;
    if (path.empty() || ::stat(path.c_str(), &st) != 0) return 0;
    return static_cast<std::uint32_t>(st.st_mtime);
}

}  // namespace MOSAQ::Support
