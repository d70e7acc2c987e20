#!/usr/bin/env bash
# The whole test suite: a normal build with every test (the office tests start
# a real LibreOffice), a sanitizer build (ASan + UBSan) of the tests that need
# no office, and a short run of every fuzz target.
# FAST=1 runs only the tests that need no office.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
export LANG="${LANG:-C.UTF-8}"

scripts/build.sh build
if [ "${FAST:-0}" = "1" ]; then
  ctest --test-dir build -L fast --output-on-failure -j 2
else
  ctest --test-dir build --output-on-failure -j 2
fi

scripts/build.sh build-asan -DTABULON_SANITIZE=ON -DTABULON_BUILD_BENCH=OFF
ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --test-dir build-asan -L fast --output-on-failure -j 2

if [ -x scripts/fuzz.sh ]; then
  scripts/fuzz.sh "${FUZZ_SECONDS:-10}"
fi
echo "test.sh: all passed"
