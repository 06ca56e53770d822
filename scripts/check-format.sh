#!/usr/bin/env bash
# Checks that every C and C++ source file of the tree is formatted as .clang-format says, with
# Debian's clang-format 14 (other versions format some constructs differently). Lists the files
# that differ and exits 1 when there are any.
#
#   scripts/check-format.sh          check
#   scripts/check-format.sh --fix    format them in place
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
formatter=clang-format-14
fix=0
case ${1:-} in
  --fix) fix=1 ;;
  "") ;;
  *) echo "usage: $0 [--fix]" >&2; exit 2 ;;
esac
if ! command -v "$formatter" >/dev/null; then
  echo "check-format.sh: $formatter is missing (scripts/install-deps.sh installs it)" >&2
  exit 1
fi

cd "$root"
mapfile -t files < <(git ls-files -- '*.c' '*.cc' '*.h')
if [[ $fix == 1 ]]; then
  "$formatter" -i "${files[@]}"
  exit 0
fi
# One run over all files; its complaints name the files that differ.
mapfile -t unformatted < <("$formatter" --dry-run "${files[@]}" 2>&1 |
  sed -n 's/^\(.*\):[0-9]*:[0-9]*: warning: code should be clang-formatted.*/\1/p' | sort -u)
if [[ ${#unformatted[@]} -ne 0 ]]; then
  echo "check-format.sh: ${#unformatted[@]} file(s) differ from $formatter's formatting" \
    "(scripts/check-format.sh --fix formats them):" >&2
  printf '  %s\n' "${unformatted[@]}" >&2
  exit 1
fi
echo "check-format.sh: ${#files[@]} files formatted"
