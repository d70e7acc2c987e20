#!/usr/bin/env bash
# Configures and builds Tabulon. Usage: scripts/build.sh [build-dir] [extra cmake args...]
set -euo pipefail
cd "$(dirname "$0")/.."
dir="${1:-build}"
shift || true
jobs="$(nproc 2>/dev/null || echo 2)"
if [ ! -f "$dir/build.ninja" ]; then
  cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo "$@" >/dev/null
fi
cmake --build "$dir" -j "$jobs"
