// Designs of a study and the text of their values. Generation is a pure
// function of the study: the same study file (and, for a Latin hypercube, the
// same seed) gives the same designs on every machine, which is what lets a
// re-run recognise the designs that are already done.
#pragma once

#include <string>
#include <vector>

#include "study.h"

namespace portalrun {

struct Design {
    int number = 0;             // from 1, the design's "evalId"
    std::vector<Value> values;  // one per study parameter, in order
};

// Refuses grids beyond this many designs: a typo in a step shouldn't fill a
// disk with run folders.
inline constexpr long long kMaxDesigns = 1000000;

// Throws StudyError when the parameters don't fit the method.
std::vector<Design> generateDesigns(const Study& study);

// The shortest text that reads back as the same value.
std::string valueText(const Value& v);

// Formats a value by a print format: one printf conversion with text around
// it, "%%" for a percent sign; empty or "Default" gives valueText. False with
// a reason in error when the format is malformed or doesn't fit the value.
bool formatValue(const Value& v, const std::string& format, std::string& out,
                 std::string& error);

}  // namespace portalrun
