// The check of a study's bindings before anything runs: every tag file is
// read through the plug-in, every tag is resolved against the template input
// (and, when given, a sample output), and the names in the tags are held
// against the study. A run that would quietly write to nowhere, read from
// nowhere or apply nothing is an error here; what may be meant is a warning.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "study.h"
#include "tag_survey.h"
#include "zeltra/interfaces.h"

namespace portalrun {

struct Finding {
    bool error = true;
    std::string where;  // "file:line", "file" or empty for the study as a whole
    std::string text;
};

struct CheckOptions {
    // A folder with an output of each kind from an earlier run of the
    // solver; output tags are resolved against it. Empty: they aren't.
    std::string sampleOutputDir;
};

std::vector<Finding> checkStudy(MOSAQ::Portals::IPortal& portal, const Study& study,
                                const CheckOptions& options);

// The findings of one tag file alone, without the study-wide ones (names
// bound nowhere); bind uses it on a file before writing it.
std::vector<Finding> checkTagFile(MOSAQ::Portals::IPortal& portal, const Study& study,
                                  const CheckOptions& options, const SurveyedTagFile& file);

// How findings name a place: the path as given from the current folder,
// with ":line" when line is above 0.
std::string findingPlace(const std::string& path, int line);

// Prints each finding as "where: error: text" (or "warning:"), errors first;
// gives the number of errors.
int printFindings(const std::vector<Finding>& findings, std::FILE* out);

}  // namespace portalrun
