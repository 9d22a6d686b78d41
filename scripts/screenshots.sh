#!/bin/bash
# Pictures of Velmora's windows for docs/images, taken on a private Xvfb from the built tree:
#   scripts/screenshots.sh permissions   -> docs/images/permissions-window.png
# The server is a stand-in script, and everything Velmora writes goes to a temporary home.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
build=${BUILD_DIR:-$root/build}
velmora=$build/bin/velmora
what=${1:-permissions}
if [ ! -x "$velmora" ]; then
    echo "screenshots: $velmora is missing; build first (cmake --preset default && cmake --build --preset default)" >&2
    exit 1
fi
for tool in Xvfb xdotool xwininfo import; do
    command -v "$tool" >/dev/null || { echo "screenshots: $tool is missing (see scripts/packages.txt)" >&2; exit 1; }
done

# Velmora stops every Velmora server of the machine when it starts, so it must not run beside one.
for exe in /proc/[0-9]*/exe; do
    case $(readlink "$exe" 2>/dev/null) in
        */libexec/velmora/velmora-server | *"/Velmora Server.app/Contents/MacOS/freerdp-shadow-cli")
            echo "screenshots: a Velmora server is running (${exe%/exe}); stop it first" >&2
            exit 1
            ;;
    esac
done

work=$(mktemp -d)
pids=()
cleanup() {
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
    rm -rf "$work"
}
trap cleanup EXIT

export HOME=$work XDG_CONFIG_HOME=$work/config XDG_STATE_HOME=$work/state XDG_DATA_HOME=$work/data
export XDG_RUNTIME_DIR=$work/runtime
mkdir -p -m 0700 "$XDG_RUNTIME_DIR"
# Nothing reaches the desktop session this runs in.
unset DBUS_SESSION_BUS_ADDRESS WAYLAND_DISPLAY
export QT_QPA_PLATFORM=xcb

Xvfb -displayfd 3 -screen 0 1024x768x24 -nolisten tcp 3>"$work/display" 2>/dev/null &
pids+=($!)
for _ in $(seq 100); do [ -s "$work/display" ] && break; sleep 0.1; done
[ -s "$work/display" ] || { echo "screenshots: Xvfb did not start" >&2; exit 1; }
export DISPLAY=":$(head -n1 "$work/display")"

# Waits up to 20 seconds for a command to succeed.
await() {
    for _ in $(seq 200); do "$@" >/dev/null 2>&1 && return 0; sleep 0.1; done
    echo "screenshots: gave up waiting for: $*" >&2
    return 1
}

# Saves the window titled $1 as $2: the root window, cut to the window's frame.
shoot() {
    local id geometry x y w h
    id=$(xdotool search --name "^$1\$" | head -n1)
    geometry=$(xwininfo -id "$id")
    x=$(awk '/Absolute upper-left X/ {print $4}' <<<"$geometry")
    y=$(awk '/Absolute upper-left Y/ {print $4}' <<<"$geometry")
    w=$(awk '/Width:/ {print $2}' <<<"$geometry")
    h=$(awk '/Height:/ {print $2}' <<<"$geometry")
    mkdir -p "$root/docs/images"
    import -window root -crop "${w}x${h}+${x}+${y}" +repage "$2"
    echo "$2: \"$(xdotool getwindowname "$id")\", ${w}x${h}"
}

case $what in
    permissions)
        # A server with Screen Recording but without Accessibility: the start opens the window,
        # which repairs and then asks for the second list.
        cat >"$work/server" <<'SCRIPT'
#!/bin/sh
if [ -n "$MAC_SHADOW_PERMS" ]; then echo "screen=1 input=0"; exit 0; fi
exec sleep 1000
SCRIPT
        chmod 755 "$work/server"
        KORVEN_CLI=$work/server "$velmora" >"$work/velmora.out" 2>&1 &
        pids+=($!)
        title="Velmora Server needs two permissions"
        await xdotool search --onlyvisible --name "^$title\$"
        await grep -q "permission request:" "$XDG_STATE_HOME/velmora/Velmora.log"
        sleep 1  # the repair's answer drawn
        shoot "$title" "$root/docs/images/permissions-window.png"
        ;;
    *)
        echo "usage: scripts/screenshots.sh permissions" >&2
        exit 2
        ;;
esac
