#!/usr/bin/env bash
# Sets Velmora up on a Debian machine: installs the packages it needs (through apt-get, as root or
# with sudo; what is installed already is skipped), then configures and builds one CMake preset.
#   scripts/setup.sh [default|asan|fuzz]
set -euo pipefail
cd "$(dirname "$0")/.."

missing=()
while read -r package; do
  case "$package" in ''|'#'*) continue ;; esac
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done < scripts/packages.txt

if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  "${as_root[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi

# The tests check that numbers ignore the user's locale under a German one.
if ! locale -a 2>/dev/null | grep -qi '^de_DE\.utf-\?8$'; then
  as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  "${as_root[@]}" localedef -i de_DE -f UTF-8 de_DE.UTF-8 || echo "setup: could not make the de_DE.UTF-8 locale; its test will be skipped"
fi

preset=${1:-default}
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset"
