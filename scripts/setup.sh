#!/usr/bin/env bash
# The main job on the bundled sample: install what is missing, build, then
# convert every sheet of a multi-sheet workbook to its own CSV file and print
# the control's result lists.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
scripts/build.sh build
out="out/demo"
rm -rf "$out"
mkdir -p "$out"
echo "tabulon convert --multi-file samples/quarterly.xlsx $out/quarterly.csv --report"
build/bin/tabulon convert --multi-file --report samples/quarterly.xlsx "$out/quarterly.csv"
for f in "$out"/*.csv; do
  echo "--- $f"
  head -n 3 "$f"
done
