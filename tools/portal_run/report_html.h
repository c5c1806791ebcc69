// `portal-run report`: one self-contained HTML page of a study's results,
// made from its results.json: the summary, the results table, a scatter plot
// of each scalar response against each parameter, a line plot of each array
// response with one line per design, and the failed designs with reasons and
// messages. Plots are inline SVG written here; the page loads nothing from
// anywhere. Every text from the study is escaped, and every plotted point
// carries its exact values (shortest round-trip text) in data attributes.
#pragma once

#include <string>

#include "results_json.h"

namespace portalrun {

// Text made safe for HTML content and for attribute values in double or
// single quotes.
std::string htmlEscape(const std::string& text);

std::string reportHtml(const ResultsFile& results);

}  // namespace portalrun
