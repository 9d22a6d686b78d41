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

source scripts/lib/virtual-desktop.sh
start_virtual_desktop
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
