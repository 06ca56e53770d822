#!/usr/bin/env bash
# The main job on a PC: installs what is missing, builds, and runs the daemon on the host
# simulation (default scene, demo rules) beside the system-daemon stand-in, in a private namespace
# with its own /tmp and /etc/tolvern-ai (no root needed). It ends when the scene ends, or on
# Ctrl-C. Options:
#   --seconds N     stop after N seconds
#   --scene NAME    default, empty_street, crowd, edges, or a scene file
#   --json          the stand-in prints JSON lines
#   --debug         the daemon logs every detection
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${MIRVANE_BUILD_DIR:-$root/build}
args=()
while [[ $# -gt 0 ]]; do
  case $1 in
    --seconds|--scene) args+=("$1" "$2"); shift 2 ;;
    --json|--debug) args+=("$1"); shift ;;
    *) echo "usage: $0 [--seconds N] [--scene NAME] [--json] [--debug]" >&2; exit 2 ;;
  esac
done
"$root/scripts/install-deps.sh"
"$root/scripts/build.sh" >/dev/null
exec "$build/tools/hostns/mirvane-ns" --keep "$root" --keep "$build" \
  --etc "tolvern-ai=$build/models" -- \
  bash "$root/scripts/demo-inside.sh" "$root" "$build" "${args[@]}"
