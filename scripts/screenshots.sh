#!/usr/bin/env bash
# Pictures of the sheet selection dialog for the README, in English and in
# German, drawn offscreen from the bundled sample workbook.
# Usage: scripts/screenshots.sh [build-dir]
set -euo pipefail
cd "$(dirname "$0")/.."
dir="${1:-build}"
scripts/build.sh "$dir" >/dev/null
mkdir -p docs
"$dir/bin/sheet_dialog_screenshot" --pick North,Notes samples/quarterly.xlsx docs/sheet-dialog-en.png
"$dir/bin/sheet_dialog_screenshot" --language tools/dialog/Languages/German.lng --pick North,Notes \
  samples/quarterly.xlsx docs/sheet-dialog-de.png
echo "docs/sheet-dialog-en.png docs/sheet-dialog-de.png"
