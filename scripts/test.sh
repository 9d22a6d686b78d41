#!/usr/bin/env bash
# Sets up and runs every test: the plain build and the AddressSanitizer + UBSan build, each with the
# whole test suite against a private keyring, a private D-Bus session and private X servers; then
# every fuzz target for a while (FUZZ_SECONDS, default 60; 0 skips them).
#   scripts/test.sh
set -euo pipefail
cd "$(dirname "$0")/.."

# The packages (the checks below need clang-14 and libc++) and the plain build.
scripts/setup.sh default

# macOS code stays in src/platform/macos and if(APPLE), Linux code in its folders; every #include
# follows the layers' arrows; the macOS adapters compile against stand-ins for Apple's headers; and
# the shared code compiles against LLVM's libc++, as Apple's library is one.
echo "== platform isolation, layers, macOS and libc++ syntax"
scripts/check-platform-isolation.sh
scripts/check-layers.sh
scripts/check-macos-syntax.sh
scripts/check-libcxx.sh

scripts/setup.sh asan

# Tests write only below temporary homes; keep their scratch space private to this run.
export TMPDIR
TMPDIR=$(mktemp -d "${TMPDIR:-/tmp}/velmora-tests-XXXXXX")
trap 'rm -rf "$TMPDIR"' EXIT

status=0
passed=0
failed=0
# Runs one ctest preset and adds its counts to the totals.
run_suite() {
  local preset=$1 out
  out=$(mktemp)
  scripts/with-test-keyring.sh ctest --preset "$preset" 2>&1 | tee "$out" || status=1
  local total bad
  total=$(sed -n 's/.*tests failed out of \([0-9]*\).*/\1/p' "$out" | tail -n 1)
  bad=$(sed -n 's/.*tests passed, \([0-9]*\) tests failed out of.*/\1/p' "$out" | tail -n 1)
  if [ -z "$total" ]; then status=1; failed=$((failed + 1)); else
    passed=$((passed + total - bad)); failed=$((failed + bad)); fi
  rm -f "$out"
}

echo "== plain build"
run_suite default
echo "== AddressSanitizer + UndefinedBehaviorSanitizer build"
ASAN_OPTIONS=detect_leaks=0:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 run_suite asan
echo "== Debian package"
if scripts/check-package.sh; then passed=$((passed + 1)); else status=1; failed=$((failed + 1)); fi

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
      failed=$((failed + 1))
    else
      passed=$((passed + 1))
    fi
    rm -rf "$corpus" "$corpus.log"
  done
fi

echo "velmora: $passed passed, $failed failed"
exit $status
