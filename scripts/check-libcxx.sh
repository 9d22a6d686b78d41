#!/usr/bin/env bash
# Compiles every shared source for syntax only against LLVM's libc++ (clang++-14, Debian's
# libc++-14-dev), with the project's warnings as errors. Apple's C++ library is a libc++, and it
# lacks things libstdc++ has (floating-point std::from_chars before macOS 26, for one): a call the
# Linux build accepts must fail here, not first on a Mac. Shared means all of src/ except what only
# one platform or the Qt binding builds: src/platform/linux/, src/server-linux/, src/qt/ and the
# macOS adapters (scripts/check-macos-syntax.sh covers those).
#   scripts/check-libcxx.sh
set -euo pipefail
cd "$(dirname "$0")/.."

compiler=${LIBCXX_CXX:-clang++-14}
if ! echo '#include <version>' | "$compiler" -x c++ -std=c++20 -stdlib=libc++ -fsyntax-only - 2>/dev/null; then
  echo "libc++ check: $compiler with libc++ not found (scripts/setup.sh installs clang-14, libc++-14-dev," \
       "libc++abi-14-dev)" >&2
  exit 1
fi

# The third-party headers shared code includes (nlohmann-json, OpenSSL, libcurl, RE2), and the
# values CMake passes to two files.
flags=(-std=c++20 -stdlib=libc++ -fsyntax-only -Wall -Wextra -Wpedantic -Werror -Isrc
       $(pkg-config --cflags nlohmann_json openssl libcurl re2)
       -DVELMORA_VERSION='"0.0.0"' -DVELMORA_DEFAULT_SERVICE_URL='"https://example.invalid"')
status=0
while IFS= read -r file; do
  if ! "$compiler" -x c++ "${flags[@]}" "$file"; then
    echo "libc++ check: $file does not compile against libc++" >&2
    status=1
  fi
done < <(find src -name '*.cpp' -not -path 'src/platform/linux/*' -not -path 'src/platform/macos/*' \
           -not -path 'src/server-linux/*' -not -path 'src/qt/*' | sort)
[ "$status" -eq 0 ] && echo "libc++ check: ok"
exit "$status"
