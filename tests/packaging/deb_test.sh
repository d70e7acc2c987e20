#!/usr/bin/env bash
# The Debian package made by CPack: what it holds, what it depends on, and
# that apt-get can install it here (simulated, so the machine is unchanged).
# Usage: deb_test.sh BUILD
set -euo pipefail
build="$1"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

cpack --config "$build/CPackConfig.cmake" -B "$work" >/dev/null
deb="$(ls "$work"/tabulon_*.deb)"
contents="$(dpkg-deb -c "$deb" | awk '{print $6}')"
for path in ./usr/bin/tabulon ./usr/include/tabulon/tabulon_ctrl.h ./usr/include/ravelin/ravelin.h \
  ./usr/lib/cmake/Tabulon/TabulonConfig.cmake ./usr/lib/pkgconfig/tabulon.pc ./usr/lib/libravelin.so; do
  grep -Fx "$path" <<<"$contents" >/dev/null || { echo "$deb lacks $path" >&2; exit 1; }
done
grep -E '^\./usr/lib/libtabulon\.so\.[0-9]+$' <<<"$contents" >/dev/null || { echo "no libtabulon.so.N" >&2; exit 1; }
depends="$(dpkg-deb -f "$deb" Depends)"
for package in libreoffice-calc libreoffice-writer libuno-cppu3 libstdc++6; do
  grep -E "(^|, )${package//+/\\+}( |,|$)" <<<"$depends" >/dev/null || { echo "Depends lacks $package: $depends" >&2; exit 1; }
done
apt-get install -s "$deb" >"$work/apt.log" 2>&1 || { cat "$work/apt.log" >&2; exit 1; }
echo "deb_test: $(basename "$deb"), Depends: $depends"
