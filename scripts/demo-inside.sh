#!/usr/bin/env bash
# Runs inside the private namespace of demo.sh: the daemon with the system-daemon stand-in.
set -euo pipefail
build=$1
seconds=$2
"$build/bin/mirvane" &
daemon=$!
trap 'kill -TERM $daemon 2>/dev/null; wait $daemon' INT TERM EXIT
if [[ $seconds -gt 0 ]]; then sleep "$seconds"; else wait $daemon; fi
