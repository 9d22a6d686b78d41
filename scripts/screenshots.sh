#!/usr/bin/env bash
# Screenshots of Velmora's windows for the documentation, taken from the built application under
# Xvfb with trayer as the tray, in a throwaway home with a keyring of its own (nothing of the
# user's is read or changed, no server is started, no usage ping is sent).
#   scripts/screenshots.sh [settings]     (BUILD_DIR: the build tree, default build/)
# Writes docs/images/settings-window.png.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
if [ -z "${VELMORA_TEST_KEYRING:-}" ]; then
  exec "$root/scripts/with-test-keyring.sh" "$0" "$@"
fi

build=${BUILD_DIR:-$root/build}
velmora="$build/bin/velmora"
[ -x "$velmora" ] || { echo "screenshots: $velmora is not built (cmake --build --preset default)" >&2; exit 1; }
what=${1:-settings}

work=$(mktemp -d "${TMPDIR:-/tmp}/velmora-screenshots-XXXXXX")
pids=()
cleanup() {
  local pid
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap cleanup EXIT

export HOME="$work/home" XDG_CONFIG_HOME="$work/home/config" XDG_STATE_HOME="$work/home/state"
export XDG_DATA_HOME="$work/home/data" XDG_RUNTIME_DIR="$work/runtime" VELMORA_SERVICE_URL="http://127.0.0.1:9/"
mkdir -p "$XDG_CONFIG_HOME/velmora" "$XDG_STATE_HOME" "$XDG_DATA_HOME" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"
printf '{"autoStart": false, "usagePing": false}\n' > "$XDG_CONFIG_HOME/velmora/defaults.json"

# Xvfb names the display it took on descriptor 3 once it accepts clients.
Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp -noreset 3>"$work/display" 2>/dev/null &
pids+=($!)
for _ in $(seq 100); do [ -s "$work/display" ] && break; sleep 0.1; done
[ -s "$work/display" ] || { echo "screenshots: Xvfb did not start" >&2; exit 1; }
export DISPLAY=":$(head -n1 "$work/display")"
unset WAYLAND_DISPLAY QT_QPA_PLATFORM

trayer --edge top --align right --widthtype request --height 24 --SetDockType true >/dev/null 2>&1 &
pids+=($!)
"$velmora" >"$work/velmora.out" 2>&1 &
pids+=($!)
# It listens for second launches once it is up.
for _ in $(seq 150); do [ -S "$XDG_RUNTIME_DIR/velmora/velmora.socket" ] && break; sleep 0.1; done
[ -S "$XDG_RUNTIME_DIR/velmora/velmora.socket" ] || {
  echo "screenshots: velmora did not start" >&2; cat "$work/velmora.out" >&2; exit 1; }

# Waits until a window with exactly this title is mapped; prints its id.
window_named() {
  local id
  for _ in $(seq 150); do
    id=$(xdotool search --onlyvisible --name "^$1\$" 2>/dev/null | head -n1 || true)
    [ -n "$id" ] && { echo "$id"; return 0; }
    sleep 0.1
  done
  return 1
}

mkdir -p "$root/docs/images"
case "$what" in
  settings)
    # A second launch asks the running one to open its settings window.
    timeout 10 "$velmora" >/dev/null 2>&1 || true
    id=$(window_named "Velmora Settings") || { echo "screenshots: the settings window did not open" >&2; cat "$work/velmora.out" >&2; exit 1; }
    sleep 0.5  # the first paint
    import -window "$id" "$root/docs/images/settings-window.png"
    echo "docs/images/settings-window.png"
    ;;
  *)
    echo "usage: scripts/screenshots.sh [settings]" >&2
    exit 2
    ;;
esac
