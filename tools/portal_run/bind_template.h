// Turning a template with placeholders ({{name}} or {{name:%10.4f}}) into an
// input file and its mark tag file. A placeholder whose format gives a width
// becomes a fixed tag on exactly those columns; one without becomes a free
// tag on its token. The input holds each parameter's first study value (0
// without a study), so the pair is a working template straight away.
#pragma once

#include <string>

#include "study.h"
#include "zeltra/interfaces.h"

namespace portalrun {

struct TemplateRequest {
    std::string templatePath;
    std::string outPath;
    std::string analysis;  // the analysis name in the tag file's name; the study's when empty
    std::string tagsPath;  // empty: the study's tag file for the output, else the default name
};

// study may be null. False with a reason when a placeholder can't be made a
// tag; nothing is written then.
bool bindTemplate(MOSAQ::Portals::IPortal& portal, const Study* study, const TemplateRequest& r,
                  std::string& done, std::string& error);

}  // namespace portalrun
