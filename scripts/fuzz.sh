#!/usr/bin/env bash
# Runs the libFuzzer targets of fuzz/ for a while each, one after the other, and prints how many
# inputs each one ran.
#
#   scripts/fuzz.sh [SECONDS] [TARGET...]
#
# SECONDS per target (default 300); TARGETs by name (fuzz_model_file ...) or all of them. Builds
# them first in build-fuzz/ with clang (MIRVANE_FUZZ_BUILD_DIR moves it; MIRVANE_FUZZ_SKIP_BUILD=1
# takes the build as it is). Each target starts from its seed corpus in fuzz/corpus/<target>/ and
# from the inputs earlier runs kept in <build>/fuzz-scratch/<target>/ (MIRVANE_FUZZ_SCRATCH moves
# it), where the new ones it finds go: the seeds in git are never written. An input that crashes a
# target, or takes over 10 s, is saved as <scratch>/artifacts/<target>-crash-... (or -timeout-,
# -leak-, -oom-); the script then fails. Replay one with: <build>/fuzz/<target> FILE
# MIRVANE_FUZZ_SEED fixes libFuzzer's random seed (default: a new one each run), so that a run
# explores the same inputs in the same order, however far it gets in its time.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${MIRVANE_FUZZ_BUILD_DIR:-$root/build-fuzz}
scratch=${MIRVANE_FUZZ_SCRATCH:-$build/fuzz-scratch}
jobs=${MIRVANE_JOBS:-2}

seconds=300
if [[ $# -gt 0 && $1 =~ ^[0-9]+$ ]]; then
  seconds=$1
  shift
fi
all_targets=()
for dir in "$root"/fuzz/corpus/*/; do all_targets+=("$(basename "$dir")"); done
targets=("$@")
[[ ${#targets[@]} -eq 0 ]] && targets=("${all_targets[@]}")
for t in "${targets[@]}"; do
  if [[ " ${all_targets[*]} " != *" $t "* ]]; then
    echo "usage: $0 [SECONDS] [TARGET...]; targets: ${all_targets[*]}" >&2
    exit 2
  fi
done

if [[ ${MIRVANE_FUZZ_SKIP_BUILD:-0} != 1 ]]; then
  launcher=()
  if command -v ccache >/dev/null; then
    launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$root} CCACHE_NOHASHDIR=${CCACHE_NOHASHDIR:-1}
  fi
  cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMIRVANE_WERROR=ON \
    -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 -DMIRVANE_BUILD_FUZZ=ON \
    -DMIRVANE_BUILD_TESTS=OFF -DMIRVANE_BUILD_BENCH=OFF "${launcher[@]}" >/dev/null
  cmake --build "$build" -j "$jobs" --target mirvane_fuzzers
fi

mkdir -p "$scratch/artifacts" "$scratch/logs"
failed=()
summary=()
for t in "${targets[@]}"; do
  mkdir -p "$scratch/$t"
  args=(-max_total_time="$seconds" -timeout=10 -print_final_stats=1
    -artifact_prefix="$scratch/artifacts/$t-")
  [[ -f $root/fuzz/$t.dict ]] && args+=(-dict="$root/fuzz/$t.dict")
  [[ -n ${MIRVANE_FUZZ_SEED:-} ]] && args+=(-seed="$MIRVANE_FUZZ_SEED")
  log=$scratch/logs/$t.log
  echo "fuzz.sh: $t for $seconds s"
  status=ok
  # New inputs go to the first corpus directory: the scratch one.
  "$build/fuzz/$t" "${args[@]}" "$scratch/$t" "$root/fuzz/corpus/$t" >"$log" 2>&1 || status=FAILED
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  cov=$(grep -Eo 'cov: [0-9]+' "$log" | tail -1 | cut -d' ' -f2)
  summary+=("$(printf '%-20s %10s runs  %6s edges  %6d kept  %s' "$t" "${runs:-?}" "${cov:-?}" \
    "$(find "$scratch/$t" -type f | wc -l)" "$status")")
  if [[ $status != ok ]]; then
    failed+=("$t")
    grep -E -A30 '^==[0-9]+==|deadly signal|SUMMARY|Test unit written' "$log" | head -60 >&2 || tail -40 "$log" >&2
  fi
done

echo "=== fuzzing, $seconds s per target (corpus and logs in $scratch)"
printf '%s\n' "${summary[@]}"
if [[ ${#failed[@]} -ne 0 ]]; then
  echo "fuzz.sh: failed: ${failed[*]} (inputs in $scratch/artifacts)" >&2
  exit 1
fi
