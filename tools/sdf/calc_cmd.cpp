// sdf calc FILE EXPR...: runs expressions on the variables of a file and
// prints the result variables each one leaves (_$1, _$2, ...).
//
// The calculator works on internal channels only, so the file's variables
// are copied into one, the expressions run there, and only when every one
// of them succeeded does the file get what they created, changed or
// deleted. Invariants: a failing expression (or a failed copy in) leaves
// the file exactly as it was; the file is closed with "KEEP" however the
// command ends; the options the command sets are on a pushed level that it
// pops again.
#include <cstdio>
#include <string>
#include <vector>

#include "sdf.h"
#include "sdf_inner.h"
#include "sdf_tool.h"

namespace sdftool {

namespace {

// Prints every _$ result variable of the channel.
int printResults(int ch)
{
    std::vector<std::string> names;
    char** list = nullptr;
    int count = 0;
    if (Sdf_List(ch, "_$#", &list, &count) >= 3000) return kFailed;
    for (int k = 0; k < count; k++) names.push_back(list[k]);
    Sdf_Free(list);
    int result = kOk;
    for (const std::string& name : names) {
        VarInfo v;
        Values vals;
        if (!loadVariable(ch, name, v, vals)) {
            result = kFailed;
            continue;
        }
        std::string head = v.name + ": " + typeText(v);
        if (!v.units.empty()) head += concat({" [", printable(v.units), "]"});
        std::printf("%s\n", head.c_str());
        dumpValues(v, vals);
    }
    return result;
}

// Copies the file in, runs every expression, and writes back on success.
int calcOn(int file, const Args& a)
{
    // Names must match as they do in the file, or two variables that
    // differ only in case would fall together (or one not be found).
    const fcb* f = sdf_chan_get(file);
    const bool caseInsensitive = f && f->file->case_insensitive;
    Sdf_Set_Opts(caseInsensitive ? "Case_Sensitive=No" : "Case_Sensitive=Yes");
    int in = 0;
    int rc = Sdf_Open(&in, "", "INTERNAL", "UNKNOWN", "WRITE");
    if (rc >= 3000) {
        complain("calc: no internal channel to work on (code %d)", rc);
        return kFailed;
    }
    std::string failed;
    int result = kOk;
    if ((rc = copyAll(file, in, &failed))) {
        complain("calc: \"%s\" could not be copied in (code %d); the file is unchanged", printable(failed).c_str(),
                 rc);
        result = kFailed;
    }
    for (size_t k = 1; k < a.positional.size() && result == kOk; k++) {
        const std::string& expr = a.positional[k];
        rc = Sdf_Calc_Chan(in, expr.c_str());
        if (rc >= 3000) {
            complain("calc: \"%s\" failed (code %d); the file is unchanged", printable(expr).c_str(), rc);
            result = kFailed;
            break;
        }
        if (a.positional.size() > 2) std::printf("%s\n", printable(expr).c_str());
        result = printResults(in);
    }
    if (result == kOk && (rc = writeBack(in, file, &failed))) {
        complain("calc: \"%s\" could not be written to the file (code %d)", printable(failed).c_str(), rc);
        result = kFailed;
    }
    Sdf_Close(in, "DELETE");
    return result;
}

}  // namespace

int cmdCalc(const Args& a)
{
    const std::string& path = a.positional[0];
    int ch = -1;
    int rc = Sdf_Open(&ch, path.c_str(), "BINARY", "OLD", "WRITE");
    if (rc >= 3000) {
        complain("%s: cannot open for writing (code %d)", printable(path).c_str(), rc);
        return kFailed;
    }
    int result = kFailed;
    if (Sdf_Push(-2) == 0) {
        result = calcOn(ch, a);
        Sdf_Pop();
    } else {
        complain("calc: out of memory");
    }
    rc = Sdf_Close(ch, "KEEP");
    if (rc >= 3000) {
        complain("%s: cannot be closed (code %d)", printable(path).c_str(), rc);
        result = kFailed;
    }
    return result;
}

}  // namespace sdftool
