#!/usr/bin/env bash
# Installs the build into a private prefix and builds a program outside the
# tree against it, once with CMake's package and once with pkg-config; both
# must run from the installed libraries. Usage: install_test.sh BUILD SOURCE
set -euo pipefail
build="$1"
source="$2"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
prefix="$work/prefix"

cmake --install "$build" --prefix "$prefix" >/dev/null
consumer="$source/tests/packaging/consumer"

uses_install() {  # the program's libtabulon is the installed one
  ldd "$1" | grep -E "libtabulon\.so\.0 => $prefix/" >/dev/null || {
    echo "$1 does not load libtabulon from $prefix:" >&2
    ldd "$1" >&2
    return 1
  }
}

echo "== find_package(Tabulon CONFIG)"
cmake -S "$consumer" -B "$work/with-cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/with-cmake" >/dev/null
mkdir "$work/run-cmake"
"$work/with-cmake/consumer" "$work/run-cmake"
uses_install "$work/with-cmake/consumer"

echo "== pkg-config"
pc="$(dirname "$(find "$prefix" -name tabulon.pc)")"
export PKG_CONFIG_PATH="$pc"
[ "$(pkg-config --modversion tabulon)" = "$(pkg-config --modversion ravelin)" ]
# shellcheck disable=SC2046
g++ -std=c++20 $(pkg-config --cflags tabulon ravelin) "$consumer/main.cc" -o "$work/with-pc" \
  $(pkg-config --libs tabulon ravelin)
mkdir "$work/run-pc"
"$work/with-pc" "$work/run-pc"
uses_install "$work/with-pc"

echo "== the installed command line"
"$prefix/bin/tabulon" --version
uses_install "$prefix/bin/tabulon"
printf 'x\n\n\ny\n' >"$work/lines.txt"
"$prefix/bin/tabulon" csvRemoveEmptyLines "$work/lines.txt" "$work/lines-out.txt"
[ "$(cat "$work/lines-out.txt")" = "$(printf 'x\ny')" ]

# The sheet selection dialog's plug-in, when built, is found beside the
# installed libtabulon: without a display the method says so, instead of
# saying the plug-in is missing.
if [ -f "$build/lib/tabulon/libtabulon_sheet_dialog.so" ]; then
  echo "== the installed sheet selection dialog"
  find "$prefix" -path '*/tabulon/libtabulon_sheet_dialog.so' | grep . >/dev/null
  out="$(env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM -u XDG_SESSION_TYPE "$prefix/bin/tabulon" pick \
    "$source/samples/quarterly.xlsx" 2>&1 || true)"
  grep -F "No display to show the sheet selection dialog on" <<<"$out" >/dev/null || {
    echo "installed tabulon pick: $out" >&2
    exit 1
  }
fi

echo "== its manual page and bash completion"
grep -q '^\.SS convert ' "$prefix/share/man/man1/tabulon.1"
bash -n "$prefix/share/bash-completion/completions/tabulon"
grep -q 'complete -o filenames -F _tabulon tabulon' "$prefix/share/bash-completion/completions/tabulon"
echo "install_test: passed"
