#!/usr/bin/env bash
# The main job: builds the plug-in and the study runner, then runs the bundled
# example study with them.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"
./scripts/setup.sh
./scripts/build.sh build
exec build/tools/portal-run "$@"
