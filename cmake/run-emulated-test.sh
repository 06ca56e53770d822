#!/bin/sh
# Runs a cross-built test program under its emulator: run-emulated-test.sh EMULATOR... PROGRAM ARG...
#
# The tests' main enters a private mount namespace. An emulated process is multithreaded from its
# start (the emulator's own threads), and the kernel creates user namespaces for single-threaded
# processes only; so a caller that is not root enters the user namespace here, before the emulator
# starts, and the test main, root inside it, then only needs a new mount namespace.
if [ "$(id -u)" -ne 0 ]; then
  exec unshare --user --map-root-user -- "$@"
fi
exec "$@"
