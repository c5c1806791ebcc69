// The subcommands that look at a study's results rather than run it:
// `portal-run status STUDY.toml` and `portal-run report STUDY.toml`. Each
// takes the arguments after its name and gives portal-run's exit code.
#pragma once

namespace portalrun {

int statusCommand(int argc, char** argv);
int reportCommand(int argc, char** argv);

}  // namespace portalrun
