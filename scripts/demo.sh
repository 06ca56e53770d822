#!/usr/bin/env bash
# The main job on a PC: installs what is missing, builds, and runs the daemon in a private
# namespace (its own /tmp, no root needed) until Ctrl-C or, with --seconds N, for N seconds.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${MIRVANE_BUILD_DIR:-$root/build}
seconds=0
while [[ $# -gt 0 ]]; do
  case $1 in
    --seconds) seconds=$2; shift 2 ;;
    *) echo "usage: $0 [--seconds N]" >&2; exit 2 ;;
  esac
done
"$root/scripts/install-deps.sh"
"$root/scripts/build.sh" >/dev/null
exec "$build/tools/hostns/mirvane-ns" --keep "$root" --keep "$build" -- \
  bash "$root/scripts/demo-inside.sh" "$build" "$seconds"
