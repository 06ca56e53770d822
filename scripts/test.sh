#!/usr/bin/env bash
# Installs what is missing, then builds and tests mirvane in every configuration CI checks:
#
#   format   -               every C and C++ source formatted as .clang-format says (clang-format 14)
#   native   build/          the whole suite (and the benchmarks compile)
#   asan     build-asan/     the whole suite with AddressSanitizer and UndefinedBehaviorSanitizer
#   armhf    build-armhf/    cross-built for the camera's 32-bit ARM, the whole suite under qemu-user
#   aarch64  build-aarch64/  cross-built for 64-bit ARM, the daemon and its tools compiled only
#   tsan     build-tsan/     ThreadSanitizer, the suites that start the daemon's threads (tests/bin)
#   sdk        build-sdk/        the daemon as the camera's firmware builds it (SDK mode), against
#                                stand-ins of the SDK's libraries that hold only the functions it
#                                may call, and its staging tree (cmake --install); no tests
#   sdk-armhf  build-sdk-armhf/  the same for 32-bit ARM, with libev and Jansson linked statically
#   fuzz     build-fuzz/     the libFuzzer targets of fuzz/ (clang): every seed corpus replayed, then
#                            each target fuzzed for 20 s from its seeds with a fixed random seed
#                            (scripts/fuzz.sh for longer, and with a new seed each run)
#
# Each configuration is configured and built once, into its own directory, through ccache.
# Files that tests leave in <build>/artifacts/ (wire bytes, snapshots) must come out byte for byte
# the same from the native and the armhf run.
#
#   scripts/test.sh                 all of the above (what CI runs)
#   scripts/test.sh --quick         the native configuration only
#   scripts/test.sh CONFIG...       the named configurations only
#
# MIRVANE_BUILD_DIR moves the native build; MIRVANE_JOBS sets the parallelism (default 2).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
jobs=${MIRVANE_JOBS:-2}
all_configs=(format native asan armhf aarch64 tsan sdk sdk-armhf fuzz)
# Seconds of fuzzing per fuzz target.
fuzz_seconds=20

usage() {
  echo "usage: $0 [--quick] [${all_configs[*]}]..." >&2
  exit 2
}

configs=()
while [[ $# -gt 0 ]]; do
  case $1 in
    --quick) configs+=(native) ;;
    format|native|asan|armhf|aarch64|tsan|sdk|sdk-armhf|fuzz) configs+=("$1") ;;
    *) usage ;;
  esac
  shift
done
[[ ${#configs[@]} -eq 0 ]] && configs=("${all_configs[@]}")

wants() {
  local c
  for c in "${configs[@]}"; do [[ $c == "$1" ]] && return 0; done
  return 1
}

skipped=()
if wants armhf || wants aarch64 || wants sdk-armhf; then
  if ! "$root/scripts/install-deps.sh" --cross; then
    # A Debian mirror whose foreign-architecture indexes are out of step with the native ones can
    # make the target libraries uninstallable for a while. The native configurations still run;
    # the cross ones are reported as skipped, loudly, rather than passed.
    echo "test.sh: WARNING: cross packages could not be installed; cross configurations are SKIPPED" >&2
    "$root/scripts/install-deps.sh"
    kept=()
    for c in "${configs[@]}"; do
      if [[ $c == armhf || $c == aarch64 || $c == sdk-armhf ]]; then skipped+=("$c"); else kept+=("$c"); fi
    done
    configs=("${kept[@]}")
  fi
else
  "$root/scripts/install-deps.sh"
fi

# ccache, with paths taken relative to the checkout so that another clone (CI's) hits the cache.
launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  export CCACHE_BASEDIR=${CCACHE_BASEDIR:-$root} CCACHE_NOHASHDIR=${CCACHE_NOHASHDIR:-1}
fi

build_dir() {
  case $1 in
    native) echo "${MIRVANE_BUILD_DIR:-$root/build}" ;;
    *) echo "$root/build-$1" ;;
  esac
}

configure() {
  local dir=$1
  shift
  cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DMIRVANE_WERROR=ON \
    "${launcher[@]}" "$@" >/dev/null
}

# Runs the tests of a build tree (or of one of its subdirectories) with a fresh artifacts folder,
# and adds their counts to the totals.
passed=0
failed_tests=0
run_tests() {
  local dir=$1 tests_dir=${2:-$1} log status=0
  rm -rf "$dir/artifacts" && mkdir -p "$dir/artifacts" || return 1
  log=$(mktemp)
  (cd "$tests_dir" && ctest --output-on-failure -j"$jobs") 2>&1 | tee "$log" || status=1
  local line total bad
  line=$(grep -E 'tests passed, [0-9]+ tests? failed out of [0-9]+' "$log" | tail -1) || true
  local failures
  failures=$(failed_test_output "$log" "$dir")
  [[ -n $failures ]] && failure_report+=$failures$'\n'
  rm -f "$log"
  [[ -z $line ]] && return 1
  bad=$(sed -E 's/.* ([0-9]+) tests? failed.*/\1/' <<<"$line")
  total=$(sed -E 's/.*out of ([0-9]+).*/\1/' <<<"$line")
  passed=$((passed + total - bad))
  failed_tests=$((failed_tests + bad))
  return $status
}

# The end of each failed test's output in a CTest log, for the summary: a CI log is often shown
# only by its tail, and the failures are long scrolled away by then.
failure_report=
failed_test_output() {
  local log=$1 dir=$2
  awk -v dir="$dir" '
    /Test +#[0-9]+: .*\*\*\*(Failed|Timeout|Exception)/ {
      name = $0; n = 0; capturing = 1; next
    }
    capturing && (/^ *Start +[0-9]+:/ || /^ *[0-9]+\/[0-9]+ Test +#/ || /tests passed,/) {
      flush(); capturing = 0
    }
    capturing { lines[n++] = $0 }
    END { if (capturing) flush() }
    # GoogleTest failures ("file:line: Failure" and the lines that explain it) first, since a
    # long diagnostic can push them out of the tail; then the tail itself.
    function flush(   i, j, from, shown) {
      printf "--- %s: %s\n", dir, name
      shown = 0
      for (i = 0; i < n && shown < 5; i++) {
        if (lines[i] !~ /: Failure$/) continue
        shown++
        for (j = i; j < n && j < i + 8; j++) print "  | " lines[j]
      }
      from = n > 40 ? n - 40 : 0
      for (i = from; i < n; i++) print lines[i]
      delete lines
    }' "$log"
}

# Configures, builds and (but aarch64) tests one configuration. Steps are chained with && because
# errexit does not apply inside a function called as a condition.
run_config() {
  local dir
  dir=$(build_dir "$1")
  case $1 in
    format)
      "$root/scripts/check-format.sh"
      ;;
    native)
      # The sample footage for the tests that play it (they skip without it; CI must not).
      if ! "$root/scripts/fetch-sample.sh" "$dir/samples" >/dev/null; then
        echo "test.sh: WARNING: the sample footage could not be fetched; its tests skip" >&2
        [[ ${CI:-} == true ]] && return 1
      fi
      configure "$dir" &&
        cmake --build "$dir" -j "$jobs" &&
        run_tests "$dir"
      ;;
    asan)
      configure "$dir" -DMIRVANE_SANITIZE=address,undefined -DMIRVANE_BUILD_BENCH=OFF &&
        cmake --build "$dir" -j "$jobs" &&
        ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 run_tests "$dir"
      ;;
    armhf)
      configure "$dir" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/armhf.cmake" \
        -DMIRVANE_BUILD_BENCH=OFF &&
        cmake --build "$dir" -j "$jobs" &&
        run_tests "$dir"
      ;;
    aarch64)
      # The daemon, its libraries and tools; the tests compile for a 64-bit target natively.
      configure "$dir" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/aarch64.cmake" \
        -DMIRVANE_BUILD_BENCH=OFF -DMIRVANE_BUILD_TESTS=OFF &&
        cmake --build "$dir" -j "$jobs"
      ;;
    tsan)
      # Only the suites that start the daemon's threads: the process frame (signals, flags,
      # the watchdog's waits).
      configure "$dir" -DMIRVANE_SANITIZE=thread -DMIRVANE_BUILD_BENCH=OFF &&
        cmake --build "$dir" -j "$jobs" --target tests/bin/all mirvane_model_file &&
        TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 run_tests "$dir" "$dir/tests/bin"
      ;;
    sdk)
      sdk_build "$dir"
      ;;
    sdk-armhf)
      sdk_build "$dir" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchains/armhf.cmake" \
        -DMIRVANE_STATIC_DEPS=ON
      ;;
    fuzz)
      # The seed corpora replay as CTest tests; then each target runs from its seeds alone (a fresh
      # scratch corpus) with a fixed random seed, so that a run's result depends neither on earlier
      # runs nor on chance: only on the code (and on how far the time lets it get).
      rm -rf "$dir/fuzz-ci" &&
        configure "$dir" -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14 \
          -DMIRVANE_BUILD_FUZZ=ON -DMIRVANE_BUILD_TESTS=OFF -DMIRVANE_BUILD_BENCH=OFF &&
        cmake --build "$dir" -j "$jobs" --target mirvane_fuzzers &&
        run_tests "$dir" &&
        MIRVANE_FUZZ_BUILD_DIR=$dir MIRVANE_FUZZ_SKIP_BUILD=1 MIRVANE_FUZZ_SCRATCH=$dir/fuzz-ci \
          MIRVANE_FUZZ_SEED=1 "$root/scripts/fuzz.sh" "$fuzz_seconds"
      ;;
  esac
}

# Builds the SDK-mode daemon against the stand-ins (the link fails on a call outside the SDK's
# function lists, and a check after it on anything of the host simulation), then installs it
# stripped into <build>/staging and shows what the camera gets.
sdk_build() {
  local dir=$1
  shift
  configure "$dir" -DMIRVANE_PLATFORM=sdk -DMIRVANE_SDK_STUBS=ON -DMIRVANE_BUILD_TESTS=OFF \
    -DMIRVANE_BUILD_BENCH=OFF "$@" &&
    cmake --build "$dir" -j "$jobs" &&
    rm -rf "$dir/staging" &&
    DESTDIR="$dir/staging" cmake --install "$dir" --strip >/dev/null &&
    (cd "$dir/staging" && find . -type f -printf '%p %s bytes\n' | sort) &&
    readelf -d "$(find "$dir/staging" -path '*/sbin/mirvane')" |
    sed -n 's/.*(NEEDED).*\[\(.*\)\]/  needs \1/p'
}

# The artifacts of the native and the armhf run: the same files with the same bytes.
compare_artifacts() {
  local native armhf
  native=$(build_dir native)/artifacts
  armhf=$(build_dir armhf)/artifacts
  if ! diff -r "$native" "$armhf" >/dev/null; then
    echo "test.sh: native and armhf artifacts differ:" >&2
    diff -rq "$native" "$armhf" >&2 || true
    return 1
  fi
  echo "test.sh: native and armhf artifacts are identical ($(find "$native" -type f | wc -l) files)"
}

timings=()
failed=()
for config in "${configs[@]}"; do
  echo "=== $config"
  start=$SECONDS
  if run_config "$config"; then status=ok; else status=FAILED; failed+=("$config"); fi
  timings+=("$(printf '%-8s %4d s  %s' "$config" $((SECONDS - start)) "$status")")
done
if wants native && wants armhf && [[ ! " ${failed[*]} " =~ " native " && ! " ${failed[*]} " =~ " armhf " ]]; then
  compare_artifacts || failed+=(artifacts)
fi

echo "=== time per configuration"
printf '%s\n' "${timings[@]}"
for config in "${skipped[@]}"; do printf '%-8s    -    SKIPPED (cross packages unavailable)\n' "$config"; done
if [[ -n $failure_report ]]; then
  echo "=== failed tests (GoogleTest's failure lines, then the last 40 lines of each one's output)"
  printf '%s\n' "$failure_report"
fi
echo "tests: $passed passed, $failed_tests failed"
if [[ ${#failed[@]} -ne 0 ]]; then
  echo "test.sh: failed: ${failed[*]}" >&2
  exit 1
fi
