#!/usr/bin/env bash
# Takes the README's pictures of the tray application as a user sees it: the menu popped up from a
# real XEmbed tray (trayer) and the Test Connection alert, under a private Xvfb with the real server
# helper and a temporary home. Writes docs/images/tray-menu.png and docs/images/test-connection.png.
#   scripts/screenshots.sh
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh default >/dev/null
out=docs/images
mkdir -p "$out"

work=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill -TERM "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

export HOME="$work/home" XDG_CONFIG_HOME="$work/config" XDG_STATE_HOME="$work/state" XDG_DATA_HOME="$work/data"
export XDG_RUNTIME_DIR="$work/runtime"
mkdir -p "$HOME" "$XDG_RUNTIME_DIR" "$XDG_CONFIG_HOME/velmora" && chmod 700 "$XDG_RUNTIME_DIR"
# No panel on D-Bus: Qt uses the XEmbed tray. No public-address look-up leaves this machine.
unset DBUS_SESSION_BUS_ADDRESS QT_QPA_PLATFORMTHEME XDG_CURRENT_DESKTOP
export VELMORA_SERVICE_URL=http://127.0.0.1:9
port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
printf '{"port": %s, "usagePing": false}\n' "$port" > "$XDG_CONFIG_HOME/velmora/defaults.json"

exec 3< <(Xvfb -displayfd 4 -screen 0 1024x768x24 -nolisten tcp -noreset 4>&1 >/dev/null 2>&1)
read -r -t 30 number <&3
export DISPLAY=":$number"
pids+=("$(pgrep -n -f "Xvfb -displayfd 4")")
trayer --edge top --align right --widthtype pixel --width 96 --height 28 --transparent false \
  --tint 0xdddddd --SetDockType true >/dev/null 2>&1 &
pids+=($!)
sleep 1
build/bin/velmora >"$work/velmora.out" 2>&1 &
pids+=($!)

# The icon sits at the right end of the tray; wait for the server so the menu says where to connect.
for _ in $(seq 100); do grep -q 'starting Velmora Server' "$XDG_STATE_HOME/velmora/Velmora.log" 2>/dev/null && break; sleep 0.2; done
sleep 2
xdotool mousemove 1010 14 click 1
sleep 1
import -window root "$work/menu.png"
convert "$work/menu.png" -crop 470x300+554+0 +repage "$out/tray-menu.png"

# Down to "Test Connection…" (the first line is disabled and skipped), then choose it.
xdotool key --delay 80 Down Down Down Down Down Down Down Down Return
sleep 4
import -window root "$work/alert.png"
convert "$work/alert.png" -crop 700x400+162+184 +repage -trim +repage "$out/test-connection.png"
echo "screenshots: $out/tray-menu.png $out/test-connection.png"
