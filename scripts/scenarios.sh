#!/usr/bin/env bash
# The scenario suite: runs every shipped scene through the daemon on the host simulation (demo
# rules, the installed model with its imperfections) and prints the tracking metrics per scene.
#   scripts/scenarios.sh [SCENE...]     results in build/scenarios/
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${MIRVANE_BUILD_DIR:-$root/build}
scenes=("$@")
[[ ${#scenes[@]} -eq 0 ]] && scenes=(default empty_street crowd edges)
"$root/scripts/install-deps.sh"
"$root/scripts/build.sh" >/dev/null
out=$build/scenarios
mkdir -p "$out"
for scene in "${scenes[@]}"; do
  echo "== $scene"
  "$build/tools/hostns/mirvane-ns" --keep "$root" --keep "$build" \
    --etc "tolvern-ai=$build/models" -- \
    bash "$root/scripts/scenario-inside.sh" "$root" "$build" "$scene" "$out"
  cat "$out/$scene.metrics.txt"
done
echo "events, ground truth and metrics: $out"
