#!/usr/bin/env bash
# Installs the Debian packages that building and testing mirvane needs, where they are missing.
# Runs apt-get as root directly, or through sudo when it is available.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config ccache
  libev-dev libjansson-dev
  libyuv-dev libturbojpeg0-dev libjpeg62-turbo-dev zlib1g-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  valgrind util-linux
)
if [[ "${MIRVANE_CROSS:-}" == 1 ]]; then
  packages+=(g++-arm-linux-gnueabihf g++-aarch64-linux-gnu qemu-user)
fi

native=$(dpkg --print-architecture)
# Installed for this machine's architecture (or architecture-independent): with foreign
# architectures configured, a package may be installed for another one only.
installed() {
  dpkg-query -W -f='${Status} ${Architecture}\n' "$1" 2>/dev/null |
    grep -qE "^install ok installed ($native|all)\$"
}

missing=()
for p in "${packages[@]}"; do
  installed "$p" || missing+=("$p")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

sudo=()
if [[ $(id -u) -ne 0 ]]; then
  command -v sudo >/dev/null || { echo "install-deps: need root or sudo to install: ${missing[*]}" >&2; exit 1; }
  sudo=(sudo)
fi
echo "install-deps: installing ${missing[*]}"
# With foreign architectures configured, update can report failures of unrelated lists while the
# packages still install: judge by what is installed afterwards, not by apt's exit code.
"${sudo[@]}" apt-get update -qq || true
"${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
  "${missing[@]}" || true

still=()
for p in "${missing[@]}"; do
  installed "$p" || still+=("$p")
done
if [[ ${#still[@]} -ne 0 ]]; then
  echo "install-deps: could not install: ${still[*]}" >&2
  exit 1
fi
