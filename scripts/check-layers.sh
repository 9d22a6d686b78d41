#!/usr/bin/env bash
# Fails on an #include against the layers' arrows:
#   qt -> app -> subsystems -> platform -> core
# where the subsystems are ordered too (nla, settings, netcheck, process, permissions, usage): each
# folder of src/ may include itself and the folders listed for it below, nothing else. So nothing
# points upward and no two folders include each other. The same arrows are the link dependencies
# of the per-layer libraries in src/CMakeLists.txt. tests/, bench/ and fuzz/ may include anything.
#   scripts/check-layers.sh
set -euo pipefail
cd "$(dirname "$0")/.."

declare -A allowed=(
  [core]=""
  [platform]="core"
  [nla]="core platform"
  [settings]="core platform nla"
  [process]="core platform nla settings netcheck"
  [permissions]="core platform nla settings netcheck process"
  [netcheck]="core platform nla settings"
  [usage]="core platform nla settings netcheck"
  [app]="core platform nla settings process permissions netcheck usage"
  [qt]="core platform app"
  [server-linux]="core platform"
)

status=0
for dir in src/*/; do
  folder=$(basename "$dir")
  if [ -z "${allowed[$folder]+set}" ]; then
    echo "layers: src/$folder is in no layer (add it to scripts/check-layers.sh and src/CMakeLists.txt)" >&2
    status=1
    continue
  fi
  while IFS=: read -r file line target; do
    [ "$target" = "$folder" ] && continue
    case " ${allowed[$folder]} " in
      *" $target "*) ;;
      *) echo "layers: $file:$line: src/$folder may not include src/$target" >&2; status=1 ;;
    esac
  done < <(grep -rnoE '^[[:space:]]*#[[:space:]]*include[[:space:]]+"[a-z-]+/' "$dir" \
             | sed -E 's/^([^:]+):([0-9]+):.*"([a-z-]+)\/$/\1:\2:\3/')
done
[ $status -eq 0 ] && echo "layers: every include follows the arrows"
exit $status
