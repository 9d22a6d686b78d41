#!/usr/bin/env bash
# Takes the README's pictures of Velmora as a user sees it, under a private Xvfb with a real XEmbed
# tray (trayer), a temporary home and a keyring of its own (nothing of the user's is read or changed):
#   scripts/screenshots.sh tray          the menu and the Test Connection alert (real server helper)
#   scripts/screenshots.sh settings      the settings window, opened by a second launch
#   scripts/screenshots.sh permissions   the permissions window (a stand-in server lacking Accessibility)
#   scripts/screenshots.sh               all of them
# They land in docs/images/.
set -euo pipefail
cd "$(dirname "$0")/.."
what=${1:-all}
case $what in tray | settings | permissions | all) ;; *) echo "usage: scripts/screenshots.sh [tray|settings|permissions|all]" >&2; exit 2 ;; esac
scripts/setup.sh default >/dev/null
if [ "$what" = all ]; then
  for one in tray settings permissions; do "$0" "$one"; done
  exit 0
fi
if [ -z "${VELMORA_TEST_KEYRING:-}" ]; then
  exec scripts/with-test-keyring.sh "$0" "$@"
fi
out=docs/images
mkdir -p "$out"
source scripts/lib/virtual-desktop.sh
start_virtual_desktop

# Saves the window titled $1 as $2: the root window, cut to the window's frame.
shoot() {
  local id geometry x y w h
  id=$(xdotool search --onlyvisible --name "^$1\$" | head -n1)
  geometry=$(xwininfo -id "$id")
  x=$(awk '/Absolute upper-left X/ {print $4}' <<<"$geometry")
  y=$(awk '/Absolute upper-left Y/ {print $4}' <<<"$geometry")
  w=$(awk '/Width:/ {print $2}' <<<"$geometry")
  h=$(awk '/Height:/ {print $2}' <<<"$geometry")
  import -window root -crop "${w}x${h}+${x}+${y}" +repage "$2"
  echo "$2: \"$(xdotool getwindowname "$id")\", ${w}x${h}"
}

case $what in
  tray)
    build/bin/velmora >"$work/velmora.out" 2>&1 &
    pids+=($!)
    # Wait for the server so the menu says where to connect; the icon sits at the tray's right end.
    await grep -q 'starting Velmora Server' "$XDG_STATE_HOME/velmora/Velmora.log"
    sleep 2
    xdotool mousemove 1010 14 click 1
    sleep 1
    import -window root "$work/menu.png"
    convert "$work/menu.png" -crop 470x300+554+0 +repage "$out/tray-menu.png"
    echo "$out/tray-menu.png"
    # Down to "Test Connection…" (the first line is disabled and skipped), then choose it.
    xdotool key --delay 80 Down Down Down Down Down Down Down Down Return
    await xdotool search --onlyvisible --name '^Velmora$'
    sleep 1
    shoot Velmora "$out/test-connection.png"
    ;;
  settings)
    printf '{"autoStart": false, "usagePing": false}\n' > "$XDG_CONFIG_HOME/velmora/defaults.json"
    build/bin/velmora >"$work/velmora.out" 2>&1 &
    pids+=($!)
    await test -S "$XDG_RUNTIME_DIR/velmora/velmora.socket"
    # A second launch asks the running one to open its settings window.
    timeout 10 build/bin/velmora >/dev/null 2>&1 || true
    await xdotool search --onlyvisible --name '^Velmora Settings$'
    sleep 0.5  # the first paint
    shoot "Velmora Settings" "$out/settings-window.png"
    ;;
  permissions)
    # A server that can read the screen but finds no XTEST (as velmora-server says on a display
    # started without it): the start opens the window, which names the cause.
    printf '#!/bin/sh\nif [ -n "$MAC_SHADOW_PERMS" ]; then echo "cause=no-xtest $DISPLAY"; echo "screen=1 input=0"; exit 0; fi\nexec sleep 1000\n' \
      >"$work/server"
    chmod 755 "$work/server"
    KORVEN_CLI=$work/server build/bin/velmora >"$work/velmora.out" 2>&1 &
    pids+=($!)
    title="What Velmora Server needs from this desktop"
    await xdotool search --onlyvisible --name "^$title\$"
    await grep -q "permission request:" "$XDG_STATE_HOME/velmora/Velmora.log"
    sleep 1  # the repair's answer drawn
    shoot "$title" "$out/permissions-window.png"
    ;;
esac
