#!/usr/bin/env bash
# Measures the tray application's footprint under a private Xvfb with a real XEmbed tray (trayer)
# and the real server running: the time from start to the icon docked in the tray, the resident
# memory once idle, and the wake-ups (context switches of all its threads) over two minutes, which
# span two of its minute ticks. Prints the numbers; asserts nothing.
#   scripts/measure-tray.sh [SECONDS]   (default 120)
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/setup.sh default >/dev/null
seconds=${1:-120}

work=$(mktemp -d)
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill -TERM "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

export HOME="$work/home" XDG_CONFIG_HOME="$work/config" XDG_STATE_HOME="$work/state" XDG_DATA_HOME="$work/data"
export XDG_RUNTIME_DIR="$work/runtime" VELMORA_SERVICE_URL=http://127.0.0.1:9
mkdir -p "$HOME" "$XDG_RUNTIME_DIR" "$XDG_CONFIG_HOME/velmora" && chmod 700 "$XDG_RUNTIME_DIR"
unset DBUS_SESSION_BUS_ADDRESS QT_QPA_PLATFORMTHEME XDG_CURRENT_DESKTOP
port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
printf '{"port": %s, "usagePing": false}\n' "$port" > "$XDG_CONFIG_HOME/velmora/defaults.json"

exec 3< <(Xvfb -displayfd 4 -screen 0 1024x768x24 -nolisten tcp -noreset 4>&1 >/dev/null 2>&1)
read -r -t 30 number <&3
export DISPLAY=":$number"
pids+=("$(pgrep -n -f "Xvfb -displayfd 4")")
trayer --edge top --align right --widthtype pixel --width 96 --height 28 >/dev/null 2>&1 &
pids+=($!)
sleep 1
tray=$(xdotool search --class trayer | head -n 1)

start=$(date +%s%N)
build/bin/velmora >"$work/velmora.out" 2>&1 &
velmora=$!
pids+=("$velmora")
# Docked: the tray window gained a child from Velmora.
until xwininfo -id "$tray" -children 2>/dev/null | grep -qi velmora; do
  kill -0 "$velmora" 2>/dev/null || { cat "$work/velmora.out"; exit 1; }
  sleep 0.01
done
docked=$(( ($(date +%s%N) - start) / 1000000 ))
for _ in $(seq 100); do pgrep -f freerdp-shadow-cli >/dev/null && break; sleep 0.2; done
sleep 5

switches() {
  local total=0 task n
  for task in /proc/"$velmora"/task/*/status; do
    n=$(awk '/ctxt_switches/ {s += $2} END {print s + 0}' "$task" 2>/dev/null || echo 0)
    total=$((total + n))
  done
  echo "$total"
}
rss=$(awk '/VmRSS/ {print $2}' /proc/"$velmora"/status)
threads=$(ls /proc/"$velmora"/task | wc -l)
before=$(switches)
sleep "$seconds"
after=$(switches)
echo "start to docked in the tray: ${docked} ms"
echo "resident memory when idle:   $((rss / 1024)) MiB (${rss} KiB), ${threads} threads"
echo "wake-ups over ${seconds} s:       $((after - before)) context switches, server running: $(pgrep -c -f freerdp-shadow-cli || echo 0) process"
