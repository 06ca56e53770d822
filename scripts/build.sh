#!/usr/bin/env bash
# Configures and builds mirvane for the host simulation into build/ (or $MIRVANE_BUILD_DIR).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${MIRVANE_BUILD_DIR:-$root/build}
launcher=()
command -v ccache >/dev/null && launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMIRVANE_WERROR=ON \
  "${launcher[@]}" "$@" >/dev/null
cmake --build "$build"
