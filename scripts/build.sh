#!/usr/bin/env bash
# Configures and builds Tabulon. Usage: scripts/build.sh [build-dir] [extra cmake args...]
set -euo pipefail
cd "$(dirname "$0")/.."
dir="${1:-build}"
shift || true
jobs="$(nproc 2>/dev/null || echo 2)"
launcher=()
if command -v ccache >/dev/null 2>&1; then
  # Several checkouts of the tree share one compiler cache.
  # Paths are hashed relative to the build folder (and not the folder itself,
  # which debug information would otherwise bring in), so that a second
  # checkout reuses what the first one compiled.
  export CCACHE_BASEDIR="${CCACHE_BASEDIR:-$(dirname "$PWD")}"
  export CCACHE_NOHASHDIR="${CCACHE_NOHASHDIR:-true}"
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
fi
if [ ! -f "$dir/build.ninja" ]; then
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "${launcher[@]}" "$@" >/dev/null
fi
cmake --build "$dir" -j "$jobs"
