#!/usr/bin/env bash
# Compiles every macOS adapter for syntax only, with the project's warnings as errors, against small
# stand-in headers (scripts/macos-stubs/) that declare the Apple interfaces the adapters use, as
# Apple documents them. It catches typos and type mistakes where there is no Apple SDK; it proves
# nothing about the real SDK (docs/macos.md lists what is still unverified).
#   scripts/check-macos-syntax.sh
set -euo pipefail
cd "$(dirname "$0")/.."

compiler=${MACOS_SYNTAX_CXX:-clang++}
if ! command -v "$compiler" >/dev/null; then
  echo "macOS syntax check: $compiler not found, skipped"
  exit 0
fi

# Darwin's own additions to POSIX headers this machine's C library has too, with Apple's values.
flags=(-std=c++20 -fsyntax-only -Wall -Wextra -Wpedantic -Werror -isystem scripts/macos-stubs -Isrc
       -DPOSIX_SPAWN_CLOEXEC_DEFAULT=0x4000 -D_CS_DARWIN_USER_TEMP_DIR=65537)
status=0
for file in src/platform/macos/*.cpp src/platform/macos/*.mm; do
  case $file in
    # Apple's pthread_setname_np takes only the name; this machine's C library wants a thread too.
    */thread_name_macos.cpp) continue ;;
    *.mm) language=(-x objective-c++ -fobjc-runtime=macosx-13.3) ;;
    *) language=(-x c++) ;;
  esac
  if ! "$compiler" "${language[@]}" "${flags[@]}" "$file"; then
    echo "macOS syntax check: $file does not compile" >&2
    status=1
  fi
done
[ "$status" -eq 0 ] && echo "macOS syntax check: ok"
exit "$status"
