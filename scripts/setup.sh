#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, only those that are
# missing, so a machine that has them all never touches the network.
set -euo pipefail

packages=(
  cmake g++ make pkg-config
  libpugixml-dev libutfcpp-dev
  libgtest-dev libgmock-dev
  clang libclang-rt-14-dev
  gfortran
  libtomlplusplus-dev
  python3-numpy python3-pytest
)
# The benchmarks' comparison library: only on request, never by default.
if [ "${ZELTRA_BENCH_DEPS:-0}" = "1" ]; then
  packages+=(libhdf5-dev libudunits2-dev libmuparser-dev)
fi

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  sudo_cmd=()
  [ "$(id -u)" -ne 0 ] && sudo_cmd=(sudo)
  export DEBIAN_FRONTEND=noninteractive
  "${sudo_cmd[@]}" apt-get update -qq
  "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
