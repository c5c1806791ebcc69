#!/usr/bin/env bash
# Runs every test twice: in a plain build and in a build under AddressSanitizer
# and UndefinedBehaviorSanitizer. Undefined behaviour aborts the test that hit it.
# Here, unlike in a user's build, every compiler warning is an error.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
cd "$root"
./scripts/setup.sh
jobs="$(nproc 2>/dev/null || echo 2)"

./scripts/build.sh build -DZELTRA_WERROR=ON
(cd build && ctest --output-on-failure -j "$jobs")

# The benchmarks are built and warning-checked in the plain tree; they run no
# test, so the sanitizer tree leaves them out to keep the command short.
./scripts/build.sh build-san -DZELTRA_SANITIZE=ON -DZELTRA_WERROR=ON -DZELTRA_BENCH=OFF
(cd build-san && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  ctest --output-on-failure -j "$jobs")

# The open path of the SDF library under libFuzzer, from a fixed seed.
CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DZELTRA_FUZZ=ON -DZELTRA_TESTS=OFF -DZELTRA_BENCH=OFF -DZELTRA_WERROR=ON >/dev/null
cmake --build build-fuzz -j "$jobs" --target sdf_open_fuzz sdf_rw_fuzz
(cd build-fuzz && ctest --output-on-failure)
