// The salvage command: copies what can be read from an SDF file that the
// library refuses (marked dirty by a crash, or damaged) into a new file, and
// reports what was recovered and what was lost.
//
// Invariants: the input is only ever read (no lock file is made beside it);
// the output is never an existing file unless --force says so, and never the
// input itself, by whatever path it is named. Exit codes: 0 every record
// recovered whole from a file closed cleanly; 3 some records, texts or array
// data (cut off the end of the file) lost,
// part of the file unreadable, or the file marked dirty (what its cut commit
// was writing may be mixed); 1 nothing could be read or the output could not
// be written; 2 the command line is wrong (this includes an output that
// exists or is the input).
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "sdf.h"
#include "sdf_salvage.h"
#include "sdf_tool.h"

namespace sdftool {

namespace {

const char* guardText(int state) {
    switch (state) {
        case 0: return "closed cleanly";
        case 1: return "marked dirty (a write was cut short)";
        default: return "guard word damaged (as by a text-mode transfer)";
    }
}

std::string describe(const sdf_salvage_var& v) {
    VarInfo info;
    info.name = v.name ? v.name : "";
    info.base = v.type % 100;
    info.array = (v.type / 100) % 10 != 0;
    info.elen = v.elen;
    if (info.array && !v.lost)
        for (int k = 1; k <= v.dims[0] && k <= 7; k++) info.dims.push_back(v.dims[k]);
    std::string t = typeText(info);
    if (info.base == SDF_CHAR_T && info.array) t += " of " + std::to_string(v.elen) + " characters";
    if (v.units) t += " [" + printable(v.units) + "]";
    return t;
}

// "x", or the record's place when its name is gone.
std::string label(const sdf_salvage_var& v) {
    if (v.name) return printable(v.name);
    return "record " + std::to_string(v.index) + " of block " + std::to_string(v.block);
}

// Refuses an output that exists (without --force) or is the input.
bool outputAllowed(const std::string& in, const std::string& out, bool force) {
    struct stat si, so;
    if (stat(out.c_str(), &so) != 0) return true;
    if (stat(in.c_str(), &si) == 0 && si.st_dev == so.st_dev && si.st_ino == so.st_ino) {
        complain("salvage: %s is the input file; salvage never writes over its input", printable(out).c_str());
        return false;
    }
    if (!force) {
        complain("salvage: %s already exists; add --force to replace it", printable(out).c_str());
        return false;
    }
    return true;
}

}  // namespace

int cmdSalvage(const Args& a) {
    const std::string& in = a.positional[0];
    const std::string& out = a.positional[1];
    if (!outputAllowed(in, out, a.has("--force"))) return kUsage;
    sdf_salvage* s = nullptr;
    if (int rc = sdf_salvage_open(in.c_str(), &s)) {
        complain("salvage: %s: nothing can be read (code %d)", printable(in).c_str(), rc);
        return kFailed;
    }
    sdf_salvage_facts f;
    sdf_salvage_get_facts(s, &f);
    std::printf("input:      %s: SDF %d.%d, %s-endian, names %s, %d-byte chunks, %s\n", printable(in).c_str(),
                f.major, f.minor, f.little_endian ? "little" : "big",
                f.case_insensitive ? "case-insensitive" : "case-sensitive", f.chunk_size, guardText(f.guard_state));
    if (f.guard_state == 1)
        std::printf("note:       a commit was cut short: variables changed since the last complete commit may\n"
                    "            mix their old and new versions; all others are as last committed\n");
    char holder[257] = {};
    if (Sdf_Lockfile_Info(in.c_str(), holder) < 0)
        std::printf("note:       a writer still holds the file, so it may be changing: %s\n", printable(holder).c_str());
    for (int i = 0; const char* note = sdf_salvage_note(s, i); i++) std::printf("note:       %s\n", note);
    const int n = sdf_salvage_count(s);
    std::vector<int32_t> outcome(static_cast<size_t>(n));
    const int rc = sdf_salvage_copy(s, out.c_str(), a.has("--force"), outcome.data());
    if (rc) {
        sdf_salvage_close(s);
        complain("salvage: %s could not be written (code %d)", printable(out).c_str(), rc);
        return kFailed;
    }
    int recovered = 0, lost = 0, partial = 0, cut = 0;
    for (int i = 0; i < n; i++) {
        const sdf_salvage_var& v = *sdf_salvage_get(s, i);
        if (outcome[i] == SDF_SALVAGE_COPIED) {
            recovered++;
            std::string extra;
            if (v.units_lost) extra += ", units lost";
            if (v.desc_lost) extra += ", description lost";
            if (!extra.empty()) partial++;
            if (v.missing > 0) {  // counted apart: the summary's partial text names texts
                extra += ", " + std::to_string(v.missing) + " data bytes cut off the end of the file (zeros)";
                cut++;
            }
            std::printf("recovered  %s: %s%s\n", label(v).c_str(), describe(v).c_str(), extra.c_str());
        } else {
            lost++;
            std::printf("lost       %s: %s\n", label(v).c_str(),
                        v.lost ? printable(v.lost).c_str() : "its data could not be read or written");
        }
    }
    std::printf("summary:    %d of %d variables recovered into %s", recovered, n, printable(out).c_str());
    if (partial) std::printf(" (%d without their units or description)", partial);
    if (cut) std::printf(" (%d with data cut off)", cut);
    std::printf(", %d lost\n", lost);
    // A note means part of the file could not be read, so records may be
    // missing that the report can't even name.
    const bool unread = sdf_salvage_note(s, 0) != nullptr || f.guard_state == 1;
    sdf_salvage_close(s);
    return lost || partial || cut || unread ? kSalvageLosses : kOk;
}

}  // namespace sdftool
