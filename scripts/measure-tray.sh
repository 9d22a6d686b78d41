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

source scripts/lib/virtual-desktop.sh
start_virtual_desktop
docked_in_tray() {
  local window
  for window in $(xdotool search --class trayer); do
    xwininfo -id "$window" -tree 2>/dev/null | grep -q '("velmora" "Velmora")' && return 0
  done
  return 1
}

start=$(date +%s%N)
build/bin/velmora >"$work/velmora.out" 2>&1 &
velmora=$!
pids+=("$velmora")
# Docked: the tray's panel holds Velmora's icon window.
until docked_in_tray; do
  kill -0 "$velmora" 2>/dev/null || { cat "$work/velmora.out"; exit 1; }
  sleep 0.01
done
docked=$(( ($(date +%s%N) - start) / 1000000 ))
for _ in $(seq 100); do pgrep -f freerdp-shadow-cli >/dev/null && break; sleep 0.2; done
# Past the start's own work (permission probe, server launch, icon redraws).
sleep 15

# One line a thread: its name and its context switches so far.
switches() {
  local task
  for task in /proc/"$velmora"/task/*; do
    printf '%s %s\n' "$(tr ' ' _ <"$task/comm")" "$(awk '/ctxt_switches/ {s += $2} END {print s + 0}' "$task/status")"
  done | sort
}
rss=$(awk '/VmRSS/ {print $2}' /proc/"$velmora"/status)
threads=$(ls /proc/"$velmora"/task | wc -l)
before=$(switches)
sleep "$seconds"
after=$(switches)
echo "start to docked in the tray: ${docked} ms"
echo "resident memory when idle:   $((rss / 1024)) MiB (${rss} KiB), ${threads} threads"
echo "wake-ups over ${seconds} s (server running: $(pgrep -c -f freerdp-shadow-cli || echo 0) process):"
join <(echo "$before") <(echo "$after") | awk '{d = $3 - $2; total += d; printf "  %-16s %d\n", $1, d} END {printf "  %-16s %d\n", "all threads", total}'

