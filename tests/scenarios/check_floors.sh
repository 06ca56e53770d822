#!/usr/bin/env bash
# Runs every scene named in the floors file through the daemon on virtual time at fast pace (each in
# its own namespace), prints the metrics, and fails when a scene scores under a floor.
#   check_floors.sh SOURCE_DIR BUILD_DIR FLOORS_FILE
set -euo pipefail
root=$1 build=$2 floors=$3
out=$build/scenarios-test
mkdir -p "$out"
failed=0
while read -r scene mota idf1 hota max_fp; do
  [[ -z $scene || $scene == \#* ]] && continue
  "$build/tools/hostns/mirvane-ns" --keep "$root" --keep "$build" \
    --etc "tolvern-ai=$build/models" -- \
    bash "$root/scripts/scenario-inside.sh" "$root" "$build" "$scene" "$out"
  echo "== $scene"
  cat "$out/$scene.metrics.txt"
  # The value after a metric's name in the table ("-" when undefined).
  metric() {
    awk -v name="$1" '{ for (i = 1; i < NF; ++i)
      if ($i == name && $(i + 1) ~ /^([0-9.]+|-)$/) { print $(i + 1); exit } }' \
      "$out/$scene.metrics.txt"
  }
  check() {  # name floor value: fails unless value >= floor ("-" floor: no check)
    [[ $2 == - ]] && return 0
    if ! awk -v v="$3" -v f="$2" 'BEGIN { exit !(v != "-" && v + 0 >= f + 0) }'; then
      echo "FAIL: $scene $1 $3 is under its floor $2"
      failed=1
    fi
  }
  check MOTA "$mota" "$(metric MOTA)"
  check IDF1 "$idf1" "$(metric IDF1)"
  check HOTA "$hota" "$(metric HOTA)"
  fp=$(awk '/false positives/ { for (i = 1; i < NF; ++i) if ($i == "positives") { print $(i + 1); exit } }' \
    "$out/$scene.metrics.txt")
  if ((fp > max_fp)); then
    echo "FAIL: $scene has $fp false positives, more than $max_fp"
    failed=1
  fi
done < "$floors"
exit $failed
