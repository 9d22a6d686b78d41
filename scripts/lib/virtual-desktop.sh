# Sourced by the scripts that look at Velmora as a user would: a temporary home, a private Xvfb
# with an XEmbed tray (trayer) at its top right, no panel on D-Bus, no request leaving this
# machine, and a free loopback port for the server. Everything started is ended on exit.
#   source scripts/lib/virtual-desktop.sh; start_virtual_desktop
# and then await COMMAND... (up to 20 s for it to succeed).
work=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill -TERM "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

start_virtual_desktop() {
  # Velmora stops every Velmora server of the machine when it starts: never beside a running one.
  local exe
  for exe in /proc/[0-9]*/exe; do
    case $(readlink "$exe" 2>/dev/null) in
      */libexec/velmora/velmora-server)
        echo "$(basename "$0"): a Velmora server is running (${exe%/exe}); stop it first" >&2
        exit 1 ;;
    esac
  done
  export HOME="$work/home" XDG_CONFIG_HOME="$work/config" XDG_STATE_HOME="$work/state" XDG_DATA_HOME="$work/data"
  export XDG_RUNTIME_DIR="$work/runtime" VELMORA_SERVICE_URL=http://127.0.0.1:9
  mkdir -p "$HOME" "$XDG_RUNTIME_DIR" "$XDG_CONFIG_HOME/velmora" && chmod 700 "$XDG_RUNTIME_DIR"
  # Without a StatusNotifier host Qt docks the icon in the XEmbed tray. A private test keyring's
  # bus has none, so it may stay; the desktop session's own bus may not.
  [ -n "${VELMORA_TEST_KEYRING:-}" ] || unset DBUS_SESSION_BUS_ADDRESS
  unset QT_QPA_PLATFORMTHEME XDG_CURRENT_DESKTOP WAYLAND_DISPLAY
  export QT_QPA_PLATFORM=xcb
  local port
  port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
  printf '{"port": %s, "usagePing": false}\n' "$port" > "$XDG_CONFIG_HOME/velmora/defaults.json"

  local number
  exec 3< <(Xvfb -displayfd 4 -screen 0 1024x768x24 -nolisten tcp -noreset 4>&1 >/dev/null 2>&1)
  read -r -t 30 number <&3
  export DISPLAY=":$number"
  pids+=("$(pgrep -n -f "Xvfb -displayfd 4")")
  trayer --edge top --align right --widthtype pixel --width 96 --height 28 --transparent false \
    --tint 0xdddddd --SetDockType true >/dev/null 2>&1 &
  pids+=($!)
  sleep 1
}

await() {
  local _
  for _ in $(seq 200); do "$@" >/dev/null 2>&1 && return 0; sleep 0.1; done
  echo "$(basename "$0"): gave up waiting for: $*" >&2
  return 1
}
