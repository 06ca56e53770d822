#!/usr/bin/env bash
# Runs inside a private namespace (see scenarios.sh): one scene on virtual time as fast as the
# daemon takes it, the stand-in's JSON lines and the snapshots kept, then the evaluator against the
# scene's ground truth. The scene "sample" is the footage in <build>/samples/vtest.avi with
# scripts/sample-settings.json.
set -euo pipefail
root=$1 build=$2 scene=$3 out=$4
mkdir -p /tmp/log /tmp/mirvane-sim
source_setting="\"scene\": \"$scene\""
settings=$root/scripts/demo-settings.json
if [[ $scene == sample ]]; then
  source_setting="\"file\": \"$build/samples/vtest.avi\""
  settings=$root/scripts/sample-settings.json
fi
cat > /tmp/mirvane-sim/sim.json <<JSON
{"clock": "virtual",
 "video": {$source_setting, "pace": "fast", "ground_truth": "/tmp/mirvane-sim/ground_truth.csv"}}
JSON
"$build/tools/mirvane-param/mirvane-param" load "$settings" >/dev/null
cp "$settings" "$out/$scene.settings.json"
rm -rf "$out/$scene.snapshots"
"$build/tools/sysd/mirvane-sysd" --json --restart-command "$build/bin/mirvane" --start \
  --max-restarts 0 --daemon-output /tmp/log/mirvane.out --keep-snapshots "$out/$scene.snapshots" \
  > "$out/$scene.events.jsonl"
cp /tmp/mirvane-sim/ground_truth.csv "$out/$scene.truth.csv"
"$build/tools/eval/mirvane-eval" --truth "$out/$scene.truth.csv" \
  --events "$out/$scene.events.jsonl" > "$out/$scene.metrics.txt"
