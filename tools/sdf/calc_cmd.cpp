// sdf calc FILE EXPR...: runs expressions on a file opened for writing and
// prints the result variables each one leaves (_$1, _$2, ...).
//
// Invariants: the file is closed with "KEEP" however the command ends, so
// it is committed in a consistent state; an expression that fails stops the
// command with exit code 1 after the library's own message, and the ones
// after it don't run.
#include <cstdio>
#include <string>
#include <vector>

#include "sdf.h"
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
    int result = kOk;
    for (size_t k = 1; k < a.positional.size() && result == kOk; k++) {
        const std::string& expr = a.positional[k];
        rc = Sdf_Calc_Chan(ch, expr.c_str());
        if (rc >= 3000) {
            complain("calc: \"%s\" failed (code %d)", printable(expr).c_str(), rc);
            result = kFailed;
            break;
        }
        if (a.positional.size() > 2) std::printf("%s\n", printable(expr).c_str());
        result = printResults(ch);
    }
    rc = Sdf_Close(ch, "KEEP");
    if (rc >= 3000) {
        complain("%s: cannot be closed (code %d)", printable(path).c_str(), rc);
        result = kFailed;
    }
    return result;
}

}  // namespace sdftool
