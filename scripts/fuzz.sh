#!/usr/bin/env bash
# Builds the text library's libFuzzer targets with clang (AddressSanitizer
# and UndefinedBehaviorSanitizer on) in build-fuzz, then runs each for the
# given number of seconds (default 20) on a corpus seeded from the golden
# test inputs (tests/data/ravelin). Exits non-zero when a target crashes or
# breaks an invariant; the input that did it is left in build-fuzz/fuzz-run.
#
#   scripts/fuzz.sh [seconds]
#
# To refresh the seeds after changing the golden tables:
#   RAVELIN_SEED_DIR=tests/data/ravelin/seeds build-ravelin/bin/ravelin_tests
set -euo pipefail

seconds="${1:-20}"
case "$seconds" in
  '' | *[!0-9]*) echo "usage: $0 [seconds]" >&2; exit 2 ;;
esac
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$root/build-fuzz"
targets=(fill_items change_delimiter field_rewrites concatenate)

configure() {
  CC=clang CXX=clang++ cmake -S "$1" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DTABULON_BUILD_FUZZ=ON -DTABULON_SANITIZE=ON -DTABULON_BUILD_TESTS=OFF -DTABULON_BUILD_BENCH=OFF >/dev/null
}

# The library needs nothing from the rest of the tree: if the whole project
# does not configure here, a project holding only the library does.
if ! configure "$root" 2>"$build.configure.log"; then
  echo "fuzz.sh: the full project does not configure with clang; building the library alone" >&2
  rm -rf "$build"
  alone="$build-source"
  mkdir -p "$alone"
  cat >"$alone/CMakeLists.txt" <<CMAKE
cmake_minimum_required(VERSION 3.25)
project(RavelinFuzz LANGUAGES C CXX)
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY \${CMAKE_BINARY_DIR}/bin)
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY \${CMAKE_BINARY_DIR}/lib)
option(TABULON_BUILD_FUZZ "" ON)
set(PROJECT_SOURCE_DIR "$root")
add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
add_link_options(-fsanitize=address,undefined)
add_subdirectory("$root/ravelin" ravelin)
CMAKE
  configure "$alone"
fi
cmake --build "$build" -j2 --target "${targets[@]/#/ravelin_fuzz_}"

run="$build/fuzz-run"
mkdir -p "$run"
failed=0
for target in "${targets[@]}"; do
  corpus="$run/corpus-$target"
  mkdir -p "$corpus"
  if [[ "$target" == fill_items ]]; then
    cp "$root"/tests/data/ravelin/lists/* "$corpus"/
  else
    cp "$root"/tests/data/ravelin/seeds/* "$corpus"/
  fi
  log="$run/$target.log"
  if "$build/bin/ravelin_fuzz_$target" -max_total_time="$seconds" -max_len=4096 -timeout=10 \
      -artifact_prefix="$run/$target-" "$corpus" >"$log" 2>&1; then
    echo "ok   $target: $(grep -o 'Done [0-9]* runs in [0-9]* second(s)' "$log" | tail -1)"
  else
    echo "FAIL $target (log: $log)"
    grep -E 'invariant broken|ERROR|SUMMARY|runtime error|artifact' "$log" | head -20 || true
    failed=1
  fi
done
exit "$failed"
