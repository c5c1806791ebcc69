// sdf units FROM [TO]: what the unit system makes of a unit expression (its
// dimension text in base units, scale and offset), or the conversion from
// one unit to another. It touches no file. A failure prints the unit
// system's own message and gives exit code 1.
#include <cstdio>
#include <string>

#include "sdf_tool.h"
#include "zcalc.h"

namespace sdftool {

namespace {

// The newest message of the unit system on the error set, then cleared.
std::string unitMessage() {
    int index = -1;
    ZU_ErrRec* rec = ZU_errNext("cvtUnit", &index);
    std::string text = rec ? rec->message : "unknown failure";
    ZU_errClear("cvtUnit", 0);
    while (!text.empty() && text.back() == '\n') text.pop_back();
    return text;
}

}  // namespace

int cmdUnits(const Args& a) {
    // Messages are collected, not printed as they arise: the tool prints one.
    ZU_setOpts("Error_Out=ErrSet");
    const std::string& from = a.positional[0];
    double scale = 1, offset = 0;
    if (a.positional.size() == 1) {
        char dims[ZU_UNIT_DIMS_SIZE];
        if (ZU_unitParse(from.c_str(), dims, &scale, &offset) != 0) {
            complain("units: %s", unitMessage().c_str());
            return kFailed;
        }
        std::printf("dimensions: %s\nscale:      %.12g\noffset:     %.12g\n", dims, scale, offset);
        return kOk;
    }
    const std::string& to = a.positional[1];
    char dims[ZU_UNIT_DIMS_SIZE];
    if (ZU_cvtValue(from.c_str(), to.c_str(), nullptr, &scale, &offset) != 0 ||
        ZU_unitParse(to.c_str(), dims, nullptr, nullptr) != 0) {
        complain("units: %s", unitMessage().c_str());
        return kFailed;
    }
    std::printf("dimensions: %s\nscale:      %.12g\noffset:     %.12g\n", dims, scale, offset);
    std::printf("%s = %s * %.12g + %.12g\n", to.c_str(), from.c_str(), scale, offset);
    return kOk;
}

}  // namespace sdftool
