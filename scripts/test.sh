#!/usr/bin/env bash
# Sets up and runs every test: the plain build and the AddressSanitizer + UBSan build, each with the
# whole test suite against a private keyring, a private D-Bus session and private X servers; then
# every fuzz target for a while (FUZZ_SECONDS, default 60; 0 skips them).
#   scripts/test.sh
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh default
scripts/setup.sh asan

# Tests write only below temporary homes; keep their scratch space private to this run.
export TMPDIR
TMPDIR=$(mktemp -d "${TMPDIR:-/tmp}/velmora-tests-XXXXXX")
trap 'rm -rf "$TMPDIR"' EXIT

status=0
echo "== plain build"
scripts/with-test-keyring.sh ctest --preset default || status=1
echo "== AddressSanitizer + UndefinedBehaviorSanitizer build"
ASAN_OPTIONS=detect_leaks=0:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  scripts/with-test-keyring.sh ctest --preset asan || status=1

fuzz_seconds=${FUZZ_SECONDS:-60}
if [ "$fuzz_seconds" -gt 0 ]; then
  scripts/setup.sh fuzz
  shopt -s nullglob
  for target in build-fuzz/bin/fuzz_*; do
    echo "== fuzzing $(basename "$target") for ${fuzz_seconds} s"
    corpus=$(mktemp -d)
    if ! "$target" -max_total_time="$fuzz_seconds" -print_final_stats=0 "$corpus" >"$corpus.log" 2>&1; then
      tail -n 60 "$corpus.log"
      echo "fuzz target $(basename "$target") failed"
      status=1
    fi
    rm -rf "$corpus" "$corpus.log"
  done
fi

exit $status
