#!/usr/bin/env bash
# Runs a command with a real keyring of its own: a private D-Bus session with a gnome-keyring-daemon
# whose login keyring is created and unlocked, kept in a temporary folder so the user's own keyring
# is never touched. Everything it started ends with the session.
#   scripts/with-test-keyring.sh COMMAND [ARGS...]
set -euo pipefail

if [ -z "${VELMORA_KEYRING_SESSION:-}" ]; then
  exec env VELMORA_KEYRING_SESSION=1 dbus-run-session -- "$0" "$@"
fi

keyring_home=$(mktemp -d "${TMPDIR:-/tmp}/velmora-keyring-XXXXXX")
cleanup() {
  [ -n "${GNOME_KEYRING_PID:-}" ] && kill "$GNOME_KEYRING_PID" 2>/dev/null || true
  rm -rf "$keyring_home"
}
trap cleanup EXIT

# The daemon keeps its keyrings under $XDG_DATA_HOME/keyrings and its socket under $XDG_RUNTIME_DIR.
mkdir -p "$keyring_home/data" "$keyring_home/runtime"
chmod 700 "$keyring_home/runtime"
export XDG_RUNTIME_DIR="$keyring_home/runtime"
eval "$(printf 'velmora-test\n' | XDG_DATA_HOME="$keyring_home/data" \
  gnome-keyring-daemon --unlock --components=secrets --daemonize)"
export GNOME_KEYRING_CONTROL GNOME_KEYRING_PID
export VELMORA_REQUIRE_KEYRING=1
# Marks the keyring as the tests' own: tests that write it run only when this names a folder.
export VELMORA_TEST_KEYRING="$keyring_home"

"$@"
