#!/usr/bin/env bash
# Installs the Debian packages that building and testing mirvane needs, where they are missing.
# Runs apt-get as root directly, or through sudo when it is available.
#
#   install-deps.sh           what the native build, the tests and the demo need (and clang with
#                             its libFuzzer runtime for the fuzz targets)
#   install-deps.sh --cross   also the cross compilers, the armhf and arm64 libraries (multiarch)
#                             and qemu-user, for the ARM builds of scripts/test.sh
set -euo pipefail

cross=${MIRVANE_CROSS:-0}
case ${1:-} in
  --cross) cross=1 ;;
  "") ;;
  *) echo "usage: $0 [--cross]" >&2; exit 2 ;;
esac

packages=(
  build-essential cmake ninja-build pkg-config ccache
  libev-dev libjansson-dev
  libyuv-dev libturbojpeg0-dev libjpeg62-turbo-dev
  libgtest-dev libgmock-dev libbenchmark-dev
  valgrind util-linux
  busybox shellcheck dash
  clang-14 libclang-rt-14-dev clang-format-14
  libavformat-dev libavcodec-dev libswscale-dev libavutil-dev
  libopencv-video-dev libopencv-dnn-dev python3-onnx
)
# Video files (FFmpeg) and the motion and ONNX networks (OpenCV) are host-side parts of the
# simulation: native only, a cross build leaves them out.
# The target libraries of the cross builds: the same packages for the foreign architecture (a
# library that the daemon or its tests link belongs here as well as above). The multiarch C and C++
# runtimes are what the tests run on under qemu-user.
target_packages=(libc6 libstdc++6 libev-dev libjansson-dev libyuv-dev libturbojpeg0-dev libgtest-dev
  libgmock-dev)
foreign_arches=()
if [[ $cross == 1 ]]; then
  packages+=(g++-arm-linux-gnueabihf g++-aarch64-linux-gnu qemu-user)
  for arch in armhf arm64; do
    foreign_arches+=("$arch")
    for p in "${target_packages[@]}"; do packages+=("$p:$arch"); done
  done
fi

# Whether a package is installed: NAME for the machine's own architecture (or "all"), NAME:ARCH
# for another one.
native_arch=$(dpkg --print-architecture)
installed() {
  local name=${1%%:*} arch=$native_arch
  [[ $1 == *:* ]] && arch=${1#*:}
  dpkg-query -W -f='${Status} ${Architecture}\n' "$name" 2>/dev/null |
    grep -Eq "^install ok installed ($arch|all)\$"
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
for arch in "${foreign_arches[@]}"; do
  if ! dpkg --print-foreign-architectures | grep -qx "$arch"; then
    echo "install-deps: adding the foreign architecture $arch"
    "${sudo[@]}" dpkg --add-architecture "$arch"
  fi
done
echo "install-deps: installing ${missing[*]}"
# With foreign architectures configured, update can report failures of unrelated lists while the
# packages still install (a mirror's foreign index out of sync): judge by what is installed
# afterwards, not by apt's exit codes, and try again a little later while something is missing.
still=("${missing[@]}")
for attempt in 1 2 3; do
  [[ $attempt -gt 1 ]] && { echo "install-deps: still missing ${still[*]}; retrying" >&2; sleep 15; }
  "${sudo[@]}" apt-get update -qq || true
  "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
    "${still[@]}" || true
  left=()
  for p in "${still[@]}"; do
    installed "$p" || left+=("$p")
  done
  still=("${left[@]}")
  [[ ${#still[@]} -eq 0 ]] && exit 0
done
echo "install-deps: could not install: ${still[*]}" >&2
exit 1
