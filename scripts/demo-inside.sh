#!/usr/bin/env bash
# Runs inside the private namespace of demo.sh: the system-daemon stand-in, which starts the
# daemon, prints what it sends and restarts it when it stops.
set -euo pipefail
build=$1
seconds=$2
args=(--restart-command "$build/bin/mirvane" --start --daemon-output /tmp/log/mirvane.out)
[[ $seconds -gt 0 ]] && args+=(--duration "$seconds")
mkdir -p /tmp/log
echo "daemon output: /tmp/log/mirvane.out (inside the run's private /tmp)"
exec "$build/tools/sysd/mirvane-sysd" "${args[@]}"
