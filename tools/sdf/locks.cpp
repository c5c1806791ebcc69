// The locks command: who holds an SDF file, and removal of its lock files.
//
// The library decides whether a lock counts (a live reader or writer) or not
// (stale, dead, unparsable). A lock that counts is only deleted with
// --force, since its holder may still be writing; one that doesn't count is
// deleted on --delete alone.
#include <filesystem>
#include <fstream>

#include "sdf.h"
#include "sdf_tool.h"

namespace sdftool {

namespace {

bool exists(const std::string& p) {
    std::error_code ec;
    return std::filesystem::exists(p, ec);
}

// Line 2 of a lock file ("Created ... by ..."), for locks the library
// doesn't count any more and so doesn't describe.
std::string secondLine(const std::string& lockPath) {
    std::ifstream in(lockPath);
    std::string line;
    std::getline(in, line);
    if (!std::getline(in, line)) return "unreadable";
    return printable(line.substr(0, 256));
}

}  // namespace

int cmdLocks(const Args& a) {
    const bool del = a.has("--delete");
    const bool force = a.has("--force");
    if (force && !del) {
        complain("locks: --force goes with --delete");
        return kUsage;
    }
    int result = kOk;
    for (const std::string& path : a.positional) {
        const std::string shown = printable(path);
        const std::string lock = path + ".lock", lock2 = path + ".lock.lock";
        char text[257] = {};
        int who = Sdf_Lockfile_Info(path.c_str(), text);
        bool any = exists(lock) || exists(lock2);
        if (who != 0)
            std::printf("%s: held by a %s: %s\n", shown.c_str(), who < 0 ? "writer" : "reader",
                        printable(text).c_str());
        else if (exists(lock))
            std::printf("%s: lock file that no longer counts: %s\n", shown.c_str(), secondLine(lock).c_str());
        else
            std::printf("%s: not locked%s%s\n", shown.c_str(), exists(path) ? "" : " (no such file)",
                        exists(lock2) ? " (a second-level lock is left)" : "");
        if (!del || !any) continue;
        if (who != 0 && !force) {
            complain("%s: the lock is held; add --force to delete it anyway", shown.c_str());
            result = kFailed;
            continue;
        }
        if (int rc = Sdf_Delete_Lockfile(path.c_str())) {
            complain("%s: lock files could not be deleted (code %d)", shown.c_str(), rc);
            result = kFailed;
        } else {
            std::printf("%s: lock files deleted\n", shown.c_str());
        }
    }
    return result;
}

}  // namespace sdftool
