#!/usr/bin/env bash
# The main job: builds the plug-in, the study runner and the example solver,
# then runs the bundled beam study through the plug-in, prints its results
# table and writes its report page. Extra arguments go to portal-run (e.g.
# --verbose, -j 2).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"
./scripts/setup.sh
./scripts/build.sh build

export BEAM_SOLVER="$root/build/examples/beam/beam-solver"
runs="$root/build/demo/beam"
status=0
build/tools/portal-run --fresh --runs "$runs" "$@" examples/beam/study.toml || status=$?

# The results table: one row per design, numbers to six digits. A response
# with many values (an array) is shown by its first and last value and its
# count; the CSV keeps every value in full.
csv="$runs/results.csv"
if [ -f "$csv" ]; then
  echo
  echo "Results ($csv):"
  awk '
    function num(x) {
      return x ~ /^[-+]?[0-9.]+([eE][-+]?[0-9]+)?$/ ? sprintf("%.6g", x) : x
    }
    function shorten(f,   n, v) {
      if (f !~ /^[-+0-9.eEinfa;]+$/) return f
      n = split(f, v, ";")
      return n > 2 ? num(v[1]) ";...;" num(v[n]) " (" n ")" : num(f)
    }
    {
      # CSV with quoted fields; a quoted field may hold commas and quotes.
      line = $0; out = ""; field = ""; quoted = 0
      for (i = 1; i <= length(line); i++) {
        c = substr(line, i, 1)
        if (quoted) {
          if (c == "\"" && substr(line, i + 1, 1) == "\"") { field = field c; i++ }
          else if (c == "\"") quoted = 0
          else field = field c
        } else if (c == "\"") quoted = 1
        else if (c == ",") { out = out shorten(field) "\t"; field = "" }
        else field = field c
      }
      print out shorten(field)
    }' "$csv" | column -t -s "$(printf '\t')"
  # The same results as a page to open in a browser: table, plots, failures.
  if build/tools/portal-run report --runs "$runs" -o "$runs/report.html" examples/beam/study.toml >/dev/null; then
    echo
    echo "Report: $runs/report.html"
  fi
fi
exit "$status"
