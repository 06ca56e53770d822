#!/usr/bin/env bash
# Instructions per frame of the chain after inference, stage by stage, counted by callgrind on
# the fixed replay bench/chain/chain_frames (50 objects over four classes, 25 frames a second,
# the demo rules): the runtime's conversion of the nine outputs to floats, then the daemon's own
# stages from the decoder to the payload, and their sum.
#
#   scripts/chain-cost.sh [BUILD_DIR]       (default: build/, configured with the benchmarks)
#
# Environment: CHAIN_WARMUP (frames run before counting, default 128), CHAIN_FRAMES (frames
# counted, default 64).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build}
warmup=${CHAIN_WARMUP:-128}
frames=${CHAIN_FRAMES:-64}
program=$build/bench/chain/chain_frames
if [[ ! -x $program ]]; then
  echo "chain-cost.sh: $program is missing: build the benchmarks first" \
    "(cmake --build $build --target chain_frames)" >&2
  exit 1
fi
command -v valgrind >/dev/null || { echo "chain-cost.sh: valgrind is not installed" >&2; exit 1; }

out=$(mktemp)
trap 'rm -f "$out"' EXIT
valgrind --tool=callgrind --callgrind-out-file="$out" --toggle-collect='*MeasuredFrames*' \
  "$program" "$warmup" "$frames" >/dev/null 2>&1
annotated=$(callgrind_annotate --inclusive=yes --show-percs=no --threshold=100 "$out")

# Inclusive count of the stage function whose name ends in ::NAME().
stage() {
  awk -v name="mirvane::bench::Chain::$1(" '
    index($0, name) { gsub(",", "", $1); if ($1 + 0 > best) best = $1 + 0 }
    END { print best + 0 }' <<<"$annotated"
}

printf '%-42s %12s\n' "stage (instructions per frame)" "$frames frames"
total=0
row() {
  local count per
  count=$(stage "$2")
  per=$((count / frames))
  printf '%-42s %12d\n' "$1" "$per"
  [[ $3 == own ]] && total=$((total + per))
  return 0
}
row "conversion to float (the runtime's call)" ConvertOutputs runtime
row "decode" DecodeOutputs own
row "tracker" Track own
row "people/vehicle rule" ApplyPeopleVehicle own
row "intrusion rule" ApplyIntrusion own
row "event conversion" ConvertEvents own
row "payload packing" Pack own
printf '%-42s %12d\n' "chain after inference (all but conversion)" "$total"
