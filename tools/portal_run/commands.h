// The subcommands beside running a study: inspect, bind and check. Each
// loads the plug-in and plays the host for one request, the way a host does
// ahead of any run.
#pragma once

#include <string>

#include "study.h"

namespace portalrun {

// Whether the first argument names a subcommand.
bool isSubcommand(const std::string& word);

// Runs a subcommand; argv[0] is its name. defaultPlugin is the plug-in used
// without --plugin. Gives the exit code.
int subcommandMain(int argc, char** argv, const std::string& defaultPlugin);

// Loads the plug-in, makes the study's portal and checks the study; prints
// the findings (errors and warnings) to stderr. The exit code of a refused run (kExitStudy on
// errors, kExitPlugin when the plug-in can't be had), 0 otherwise.
int checkBeforeRun(const std::string& pluginPath, const Study& study,
                   const std::string& sampleOutputDir);

}  // namespace portalrun
