#!/usr/bin/env bash
# Sets Velmora up and runs it: on a desktop the tray application (`velmora`); on a machine with no
# display `velmora --headless` (the supervisor without a window) on a virtual display (Xvfb) for the
# server to share; or the velmora command given as arguments (for example: scripts/run.sh plan).
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh default >/dev/null

if [ $# -gt 0 ]; then
  exec build/bin/velmora "$@"
fi

if [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; then
  echo "run: Velmora is in the tray (its icon is a screen); choose Quit Velmora in its menu to end it"
  exec build/bin/velmora
fi

xvfb_pid=
if [ -z "${DISPLAY:-}" ]; then
  number=99
  while [ -e "/tmp/.X11-unix/X$number" ] || [ -e "/tmp/.X$number-lock" ]; do number=$((number + 1)); done
  Xvfb ":$number" -screen 0 1920x1080x24 -nolisten tcp -noreset >/dev/null 2>&1 &
  xvfb_pid=$!
  for _ in $(seq 100); do [ -e "/tmp/.X11-unix/X$number" ] && break; sleep 0.1; done
  export DISPLAY=":$number"
  echo "run: no display found, so Velmora shares a virtual one: Xvfb on $DISPLAY"
fi
velmora_pid=
cleanup() {
  [ -n "$velmora_pid" ] && kill -TERM "$velmora_pid" 2>/dev/null && wait "$velmora_pid" 2>/dev/null
  [ -n "$xvfb_pid" ] && kill "$xvfb_pid" 2>/dev/null
  return 0
}
trap cleanup EXIT
# Velmora stops its server (with its grace period) on SIGTERM or SIGINT; pass both on.
trap 'kill -TERM "$velmora_pid" 2>/dev/null' TERM INT HUP

echo "run: starting velmora --headless (stop it with Ctrl-C); the log is ${XDG_STATE_HOME:-$HOME/.local/state}/velmora/Velmora.log"
build/bin/velmora --headless &
velmora_pid=$!
status=0
# wait returns early when a trapped signal arrives; wait again for Velmora's own end.
while kill -0 "$velmora_pid" 2>/dev/null; do
  wait "$velmora_pid" && status=0 || status=$?
done
velmora_pid=
exit $status
