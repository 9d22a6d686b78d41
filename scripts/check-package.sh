#!/usr/bin/env bash
# Builds the Debian package (scripts/package.sh) and checks it: control fields, file list,
# desktop-file-validate, `apt-get install -s`, an install and removal into a private dpkg root, and
# the programs run from the unpacked package: --version, --help, and `diagnostics` under Xvfb with
# the helper answering the permission probe; lintian, with no error and no warning.
#   scripts/check-package.sh [velmora_<version>_<arch>.deb]   (an existing package is not rebuilt)
# pass only prints, so "test && pass || fail" never runs both.
# shellcheck disable=SC2015
set -euo pipefail
cd "$(dirname "$0")/.."

if [ $# -gt 0 ]; then deb=$(realpath "$1"); else deb=$(scripts/package.sh | tail -n 1); fi
work=$(mktemp -d "${TMPDIR:-/tmp}/velmora-package-XXXXXX")
trap 'rm -rf "$work"' EXIT

failures=0
fail() { echo "check-package: FAILED: $*" >&2; failures=$((failures + 1)); }
pass() { echo "check-package: ok: $*"; }

# --- control fields
field() { dpkg-deb --field "$deb" "$1"; }
version=$(field Version)
arch=$(field Architecture)
[ "$(field Package)" = velmora ] && pass "Package: velmora" || fail "Package is '$(field Package)'"
[ "$(basename "$deb")" = "velmora_${version}_${arch}.deb" ] && pass "file name $(basename "$deb")" \
  || fail "file name $(basename "$deb") is not velmora_${version}_${arch}.deb"
[ "$arch" = "$(dpkg --print-architecture)" ] || fail "Architecture is '$arch'"
for name in Maintainer Description Section; do
  [ -n "$(field "$name")" ] || fail "no $name field"
done
depends=$(field Depends)
# Run-time programs and plugins, then a few libraries that prove dpkg-shlibdeps ran.
for dep in libfreerdp-shadow2-2 libfreerdp-shadow-subsystem2-2 lsof libqt6svg6 qt6-qpa-plugins libc6 libqt6core6 libssl3 libcurl4 \
           libsecret-1-0 libre2-9 libx11-6 libxtst6 libxcb1 libxcb-xfixes0 libpulse0; do
  grep -Eq "(^|, )$dep( |,|$)" <<<"$depends" || fail "Depends lacks $dep: $depends"
done
grep -Eq "(^|, )gnome-keyring( |,|$)" <<<"$(field Recommends)" || fail "Recommends lacks gnome-keyring"
pass "control fields (Depends: $depends)"

# --- file list: exactly these files, owned by root, programs executable
expected="./usr/bin/velmora
./usr/lib/systemd/user/velmora.service
./usr/libexec/velmora/velmora-server
./usr/share/applications/velmora.desktop
./usr/share/doc/velmora/README.md
./usr/share/doc/velmora/changelog.gz
./usr/share/doc/velmora/copyright
./usr/share/icons/hicolor/48x48/apps/velmora.png
./usr/share/icons/hicolor/scalable/apps/velmora.svg
./usr/share/man/man1/velmora.1.gz"
listing=$(dpkg-deb --contents "$deb")
actual=$(awk '$1 !~ /^d/ {print $6}' <<<"$listing" | sort)
[ "$actual" = "$expected" ] && pass "file list" || fail "file list differs:
$(diff <(echo "$expected") <(echo "$actual") || true)"
awk '$2 != "root/root" {exit 1}' <<<"$listing" || fail "files not owned by root/root"
for program in ./usr/bin/velmora ./usr/libexec/velmora/velmora-server; do
  grep -Eq "^-rwxr-xr-x .* $program\$" <<<"$listing" || fail "$program is not mode 0755"
done
# Removing leaves nothing behind only when every file is in the package's own list: no maintainer
# scripts that make files, no configuration files kept after removal.
control=$(dpkg-deb --ctrl-tarfile "$deb" | tar -t | sed 's|^\./||' | grep -v '^$' | sort | tr '\n' ' ')
[ "$control" = "control md5sums " ] && pass "control archive: $control" || fail "control archive holds: $control"

# --- Debian's own checks: no error and no warning
if command -v lintian >/dev/null; then
  if lintian_out=$(lintian --fail-on error,warning "$deb" 2>&1); then pass "lintian"
  else fail "lintian:
$lintian_out"; fi
else
  fail "lintian is not installed"
fi

# --- the unpacked files
root="$work/unpacked"
dpkg-deb -x "$deb" "$root"
desktop-file-validate "$root/usr/share/applications/velmora.desktop" && pass "desktop-file-validate" \
  || fail "desktop-file-validate"
desktop="$root/usr/share/applications/velmora.desktop"
for line in 'Exec=velmora' 'Icon=velmora' 'Categories=Network;RemoteAccess;Qt;'; do
  grep -qxF "$line" "$desktop" || fail "desktop entry lacks $line"
done
png="$root/usr/share/icons/hicolor/48x48/apps/velmora.png"
size=$(od -An -tu1 -j16 -N8 "$png" | awk '{print $3 * 256 + $4 "x" $7 * 256 + $8}')
[ "$size" = 48x48 ] && pass "PNG icon 48x48" || fail "PNG icon is $size"
grep -qx 'ExecStart=velmora --headless' "$root/usr/lib/systemd/user/velmora.service" \
  || fail "systemd unit does not run velmora --headless"

# --- apt resolves the dependencies (a simulation: nothing is installed)
if apt_out=$(apt-get install -s "$deb" 2>&1) && grep -q '^Inst velmora ' <<<"$apt_out"; then
  pass "apt-get install -s"
else
  fail "apt-get install -s:
$apt_out"
fi

# --- install into a private dpkg root and remove again: nothing of the package may be left
fake="$work/dpkg-root"
mkdir -p "$fake/var/lib/dpkg/info" "$fake/var/lib/dpkg/updates"
touch "$fake/var/lib/dpkg/status"
dpkg_fake() { dpkg --root="$fake" --log=/dev/null --force-not-root --force-depends "$@"; }
outside_db() { (cd "$fake" && find . -mindepth 1 ! -path './var/lib/dpkg*' "$@" | sort); }
# Maintainer scripts would run outside the private root: install only a package without any.
if [ "$control" != "control md5sums " ]; then
  fail "not installed into a private root: the package has maintainer scripts"
elif dpkg_fake --install "$deb" >"$work/dpkg.log" 2>&1 && [ "$(dpkg_fake --status velmora | sed -n 's/^Status: //p')" = "install ok installed" ]; then
  [ "$(outside_db ! -type d)" = "$expected" ] || fail "dpkg installed: $(outside_db ! -type d)"
  dpkg_fake --purge velmora >>"$work/dpkg.log" 2>&1 || fail "dpkg --purge: $(cat "$work/dpkg.log")"
  left=$(outside_db \( ! -type d -o -path '*velmora*' \))
  [ -z "$left" ] && pass "install and purge leave nothing behind" || fail "left after removal: $left"
else
  fail "dpkg --install into a private root: $(cat "$work/dpkg.log")"
fi

# --- the unpacked programs
velmora="$root/usr/bin/velmora"
home="$work/home"
mkdir -p "$home"
# A private home; no session bus, so the keyring answers "not there" at once.
run() {
  env -u KORVEN_CLI HOME="$home" XDG_CONFIG_HOME="$home/config" \
    XDG_STATE_HOME="$home/state" XDG_DATA_HOME="$home/data" \
    DBUS_SESSION_BUS_ADDRESS="unix:path=$work/no-bus" "$@"
}
[ "$(run "$velmora" --version)" = "velmora $version" ] && pass "--version: velmora $version" \
  || fail "--version printed '$(run "$velmora" --version 2>&1)'"
help=$(run "$velmora" --help)
for command in '--headless' 'plan' 'login set USER' 'login show' 'login clear' 'diagnostics' \
               'test-connection' 'certificate' '--help' '--version' 'exit status'; do
  grep -qE -- "^ *$command( |:|$)" <<<"$help" || fail "--help lacks '$command'"
done
pass "--help lists every command"

# The helper is found beside the program (../libexec/velmora) and answers the permission probe.
diagnostics=$(run xvfb-run --auto-servernum --server-args="-screen 0 1024x768x24 -nolisten tcp" \
  "$velmora" diagnostics 2>&1) || fail "diagnostics failed: $diagnostics"
permission_lines=$(grep '^Permission ' <<<"$diagnostics" || true)
if [ "$(grep -c ': granted$' <<<"$permission_lines")" -eq 2 ]; then
  pass "diagnostics under Xvfb:
$permission_lines"
else
  fail "diagnostics shows no granted permissions from the helper:
$diagnostics"
fi

if [ "$failures" -gt 0 ]; then
  echo "check-package: $failures check(s) failed for $deb" >&2
  exit 1
fi
echo "check-package: $deb passed every check"
