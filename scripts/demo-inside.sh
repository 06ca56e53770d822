#!/usr/bin/env bash
# Runs inside the private namespace of demo.sh: sets up the simulation and the demo rules, then
# the system-daemon stand-in, which starts the daemon and prints what it sends.
set -euo pipefail
root=$1
build=$2
shift 2
scene=default
video=""
settings=$root/scripts/demo-settings.json
stand_in=(--restart-command "$build/bin/mirvane" --start --max-restarts 0
  --daemon-output "$build/demo/mirvane.out")
while [[ $# -gt 0 ]]; do
  case $1 in
    --seconds) stand_in+=(--duration "$2"); shift 2 ;;
    --scene) scene=$2; shift 2 ;;
    --video) video=$2; shift 2 ;;
    --settings) settings=$2; shift 2 ;;
    --json) stand_in+=(--json); shift ;;
    --debug) mkdir -p /tmp/workspace && touch /tmp/workspace/mirvane.debug; shift ;;
  esac
done
mkdir -p /tmp/log /tmp/mirvane-sim "$build/demo"
# The parameter store lives in the build tree, so that a second terminal can change the settings
# of the running daemon (see the README).
rm -f "$build/demo/params.json" "$build/demo/mirvane.out"
source_setting="\"scene\": \"$scene\""
[[ -n $video ]] && source_setting="\"file\": \"$video\""
cat > "$build/demo/sim.json" <<JSON
{"video": {$source_setting, "ground_truth": "/tmp/mirvane-sim/ground_truth.csv"},
 "param_store": "$build/demo/params.json"}
JSON
cp "$build/demo/sim.json" /tmp/mirvane-sim/sim.json
"$build/tools/mirvane-param/mirvane-param" load "$settings"
echo "${video:-scene: $scene}; daemon log: $build/demo/mirvane.out; snapshots: /tmp/zarn_ai_snapshot_<id>"
echo "(inside this run's private /tmp; settings store: $build/demo/params.json)"
exec "$build/tools/sysd/mirvane-sysd" "${stand_in[@]}"
