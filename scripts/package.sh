#!/usr/bin/env bash
# Builds the Debian package from a release build (preset "package", folder build-package/) and
# prints the path of the .deb as its last line: build-package/velmora_<version>_<arch>.deb.
#   scripts/package.sh
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh package >&2
rm -f build-package/velmora_*.deb
(cd build-package && cpack -G DEB >&2)
shopt -s nullglob
debs=(build-package/velmora_*.deb)
if [ ${#debs[@]} -ne 1 ]; then
  echo "package: expected one build-package/velmora_*.deb, found ${#debs[@]}" >&2
  exit 1
fi
echo "$PWD/${debs[0]}"
