#!/usr/bin/env bash
# The main job on a PC: installs what is missing, builds, and runs the daemon on the host
# simulation (default scene, demo rules) beside the system-daemon stand-in, in a private namespace
# with its own /tmp and /etc/tolvern-ai (no root needed). It ends when the scene ends, or on
# Ctrl-C. Options:
#   --seconds N     stop after N seconds
#   --scene NAME    default, empty_street, crowd, edges, or a scene file
#   --video FILE    real footage instead of a scene, with the motion detector as the network;
#                   "sample" plays vtest.avi (fetched by scripts/fetch-sample.sh) with the region
#                   and fence of scripts/sample-settings.json
#   --json          the stand-in prints JSON lines
#   --debug         the daemon logs every detection
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${MIRVANE_BUILD_DIR:-$root/build}
args=()
models=$build/models
while [[ $# -gt 0 ]]; do
  case $1 in
    --seconds|--scene) args+=("$1" "$2"); shift 2 ;;
    --video)
      [[ $# -ge 2 ]] || { echo "$0: --video needs a file or \"sample\"" >&2; exit 2; }
      video=$2
      if [[ $video == sample ]]; then
        video=$("$root/scripts/fetch-sample.sh" "$build/samples")
        args+=(--settings "$root/scripts/sample-settings.json")
      fi
      [[ -r $video ]] || { echo "$0: cannot read the video file $video" >&2; exit 2; }
      args+=(--video "$(realpath "$video")")
      models=$build/models-motion
      shift 2
      ;;
    --json|--debug) args+=("$1"); shift ;;
    *) echo "usage: $0 [--seconds N] [--scene NAME | --video FILE|sample] [--json] [--debug]" >&2
       exit 2 ;;
  esac
done
"$root/scripts/install-deps.sh"
"$root/scripts/build.sh" >/dev/null
keep=()
# A video under /tmp stays visible in the private /tmp.
for a in "${args[@]}"; do [[ $a == /tmp/* && -f $a ]] && keep+=(--keep "$(dirname "$a")"); done
exec "$build/tools/hostns/mirvane-ns" --keep "$root" --keep "$build" "${keep[@]}" \
  --etc "tolvern-ai=$models" -- \
  bash "$root/scripts/demo-inside.sh" "$root" "$build" "${args[@]}"
