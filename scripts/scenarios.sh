#!/usr/bin/env bash
# The scenario suite: runs every shipped scene through the daemon on the host simulation (demo
# rules, the installed model with its imperfections), prints the tracking metrics per scene and
# makes the visual report of all of them. "sample" is the real footage of vtest.avi (fetched by
# scripts/fetch-sample.sh) through the motion detector, with the rules of scripts/sample-settings.json;
# it has no ground truth, so its metrics count only what the daemon reported.
#   scripts/scenarios.sh [SCENE...]     results in build/scenarios/, report build/scenarios/report/index.html
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${MIRVANE_BUILD_DIR:-$root/build}
scenes=("$@")
[[ ${#scenes[@]} -eq 0 ]] && scenes=(default empty_street crowd edges sample)
"$root/scripts/install-deps.sh"
"$root/scripts/build.sh" >/dev/null
out=$build/scenarios
mkdir -p "$out"
for scene in "${scenes[@]}"; do
  echo "== $scene"
  models=$build/models
  if [[ $scene == sample ]]; then
    "$root/scripts/fetch-sample.sh" "$build/samples" >/dev/null
    models=$build/models-motion
  fi
  "$build/tools/hostns/mirvane-ns" --keep "$root" --keep "$build" \
    --etc "tolvern-ai=$models" -- \
    bash "$root/scripts/scenario-inside.sh" "$root" "$build" "$scene" "$out"
  cat "$out/$scene.metrics.txt"
done
runs=()
for scene in "${scenes[@]}"; do runs+=("$out/$scene"); done
"$build/tools/report/mirvane-report" --out "$out/report" --settings "$root/scripts/demo-settings.json" \
  "${runs[@]}"
echo "events, ground truth and metrics: $out"
echo "open in a browser: $out/report/index.html"
