#!/usr/bin/env bash
# Sets Velmora up and runs it.
#   scripts/run.sh [velmora arguments...]
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh default >/dev/null
if [ $# -eq 0 ]; then
  set -- plan
fi
exec build/bin/velmora "$@"
