// zeltrasdfPortal: the portal to a solver whose results are SDF files. Its
// inputs are tagged by the modules alone, so it offers no input parse and no
// tag definition of its own for inputs.
#include "zeltra/portal.h"

using MOSAQ::String;
using MOSAQ::StringStringMap;
using MOSAQ::Portals::ItemGroup;
using MOSAQ::Portals::TagData;

zeltrasdfPortal::zeltrasdfPortal(MOSAQ::Portals::IPortalHost* host)
    : xmlPortal(host, "ZeltraSDF") {}

bool zeltrasdfPortal::parseInputFile(const String&, void*, std::list<ItemGroup>&, String&) {
    return false;
}

bool zeltrasdfPortal::parseOutputFile(const String& path, void*, std::list<ItemGroup>&,
                                      String& errors) {
    addError(errors, tableText(".err.parse"), path, "SDF output files can't be listed yet");
    return false;
}

bool zeltrasdfPortal::writeInputTagFile(const String&, const std::list<TagData>&,
                                        const StringStringMap&, StringStringMap&, String&) {
    return false;
}

int zeltrasdfPortal::readInputTags(const String&, const StringStringMap&, std::list<TagData>&,
                                   StringStringMap&, String&) {
    return 1;
}
