#!/usr/bin/env bash
# Fails when platform code leaks out of its place:
#   - __APPLE__ and macOS API names (CoreFoundation, CFPreferences, SecItem, SMAppService, NSWorkspace,
#     IOKit, objc_msgSend, kCF…) in sources outside src/platform/macos/, or in CMake files outside
#     if(APPLE) blocks (cmake/Mac*.cmake are macOS-only files; including one counts as a macOS name);
#   - __linux__ in sources outside src/platform/linux/ and src/server-linux/.
# Sources are every C, C++ and Objective-C file under src, tests, bench and fuzz, comments included.
#   scripts/check-platform-isolation.sh
set -euo pipefail
cd "$(dirname "$0")/.."

apple_names='__APPLE__|__MACH__|TARGET_OS_[A-Z_]+|CoreFoundation|CoreServices|ServiceManagement|IOKit'
apple_names+='|(AppKit|Cocoa|Foundation|Security)/[A-Za-z]+\.h|objc_[A-Za-z_]+|sel_registerName|autoreleasepool'
apple_names+='|kCF[A-Za-z]+|CFSTR|CFRelease|CFRetain|CF(String|Number|Boolean|Data|Dictionary|Array|URL|Type|Preferences|PropertyList|Index|Allocator|Bundle|RunLoop|Get)[A-Za-z]*'
apple_names+='|Sec(Item|Certificate|Key|Trust|Access|Code|StaticCode|Task|Policy)[A-Za-z]*|errSec[A-Za-z]+|kSec[A-Za-z]+'
apple_names+='|SMAppService|SMLoginItem[A-Za-z]*|NS(Workspace|ProcessInfo|Application|Bundle|UserDefaults|String|Pasteboard|Error|AutoreleasePool|Object|Dictionary|Array|URL|FileManager|StatusBar|StatusItem|Menu|Alert|Image|Window|Log)[A-Za-z]*'
apple_names+='|IOService[A-Za-z]*|IORegistry[A-Za-z]*|IOObjectRelease|kIO[A-Za-z]+|MACH_PORT_NULL|mach_[a-z_]+|mach-o/'
apple_names+='|os_log[a-z_]*|proc_listallpids|proc_pidpath|libproc\.h|_NSGetExecutablePath|POSIX_SPAWN_CLOEXEC_DEFAULT'
linux_names='__linux__|__gnu_linux__'
# CMake's own words for macOS builds.
cmake_names="$apple_names|-framework|MACOSX_[A-Z_]+|OBJCXX|MacBundle"

status=0
complain() {
  echo "platform isolation: $1" >&2
  status=1
}

sources() {
  find src tests bench fuzz -type f \( -name '*.c' -o -name '*.cc' -o -name '*.cpp' -o -name '*.cxx' \
    -o -name '*.h' -o -name '*.hpp' -o -name '*.m' -o -name '*.mm' -o -name '*.inc' \) 2>/dev/null | sort
}

while IFS= read -r file; do
  case $file in
    src/platform/macos/*) ;;
    *) while IFS= read -r hit; do complain "$file:$hit (macOS name outside src/platform/macos/)"
       done < <(grep -nE "\b($apple_names)\b" "$file" || true) ;;
  esac
  case $file in
    src/platform/linux/* | src/server-linux/*) ;;
    *) while IFS= read -r hit; do complain "$file:$hit (__linux__ outside src/platform/linux/ and src/server-linux/)"
       done < <(grep -nE "\b($linux_names)\b" "$file" || true) ;;
  esac
done < <(sources)

# Prints "line-number:text" for every line of a CMake file that is not inside an Apple-only branch:
# if(APPLE …AND…) and the else() of if(NOT APPLE). Comments are dropped first.
outside_apple_blocks() {
  awk '
    function condition(text) {
      sub(/^[ \t]*(else)?if[ \t]*\([ \t]*/, "", text)
      sub(/[ \t]*\)[ \t]*$/, "", text)
      if (text ~ /(^|[ \t])OR([ \t]|$)/) return "other"
      if (text ~ /^APPLE$/ || text ~ /^APPLE[ \t]+AND[ \t]/ || text ~ /[ \t]AND[ \t]+APPLE$/) return "apple"
      if (text ~ /^NOT[ \t]+APPLE$/) return "notapple"
      return "other"
    }
    {
      code = $0
      sub(/#.*/, "", code)
      if (code ~ /^[ \t]*if[ \t]*\(/) {
        depth++; kind[depth] = condition(code); inside[depth] = (kind[depth] == "apple")
      } else if (code ~ /^[ \t]*elseif[ \t]*\(/) {
        kind[depth] = condition(code); inside[depth] = (kind[depth] == "apple")
      } else if (code ~ /^[ \t]*else[ \t]*\(/) {
        inside[depth] = (kind[depth] == "notapple")
      } else if (code ~ /^[ \t]*endif[ \t]*\(/) {
        if (depth > 0) depth--
      }
      apple = 0
      for (i = 1; i <= depth; i++) if (inside[i]) apple = 1
      if (!apple) print FNR ":" code
    }' "$1"
}

while IFS= read -r file; do
  file=${file#./}
  case $file in
    cmake/Mac*.cmake) continue ;;
  esac
  while IFS= read -r hit; do complain "$file:$hit (macOS name outside if(APPLE))"
  done < <(outside_apple_blocks "$file" | grep -E "(^|[^A-Za-z0-9_])($cmake_names)([^A-Za-z0-9_]|\$)" || true)
done < <(find . \( -name .git -o -name 'build*' \) -prune -o \( -name CMakeLists.txt -o -name '*.cmake' \) -print | sort)

if [ "$status" -eq 0 ]; then
  echo "platform isolation: ok"
fi
exit "$status"
