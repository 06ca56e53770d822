#!/usr/bin/env bash
# Fetches the sample footage, vtest.avi (768x576, 10 fps, 795 frames of people walking across a
# square), out of Debian's opencv-doc package into a directory (default: build/samples), without
# installing the package. Does nothing when the file is already there with the right contents.
#
#   fetch-sample.sh [DIR]     prints the path of the sample on success
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=${1:-${MIRVANE_SAMPLE_DIR:-$root/build/samples}}
sample=$dir/vtest.avi
member=./usr/share/doc/opencv-doc/examples/data/vtest.avi
sha256=45cddc9490be69345cbdab64ca583be65987e864ca408038e648db99e10516cf

good() { [[ -f $sample ]] && echo "$sha256  $sample" | sha256sum --check --status; }

if ! good; then
  mkdir -p "$dir"
  work=$(mktemp -d)
  trap 'rm -rf "$work"' EXIT
  chmod 755 "$work"  # apt's download user writes here
  echo "fetch-sample: downloading opencv-doc for $(basename "$sample")" >&2
  if ! (cd "$work" && apt-get download -qq opencv-doc 2>/dev/null) &&
    ! (apt-get update -qq >/dev/null 2>&1; cd "$work" && apt-get download -qq opencv-doc); then
    echo "fetch-sample: cannot download the opencv-doc package" >&2
    exit 1
  fi
  dpkg-deb --fsys-tarfile "$work"/opencv-doc_*.deb | tar -x -C "$work" "$member"
  mv "$work/$member" "$sample.part"
  mv "$sample.part" "$sample"
  if ! good; then
    echo "fetch-sample: $sample is not the expected file (sha256 differs)" >&2
    exit 1
  fi
fi
echo "$sample"
