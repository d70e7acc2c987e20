#!/usr/bin/env bash
# Installs what Tabulon needs on Debian 12 with apt-get. Idempotent: when
# everything is present it only checks and returns. Works as root or with sudo.
set -euo pipefail

packages=(
  # build
  build-essential cmake ninja-build pkg-config ccache
  # tests, sanitizers, fuzzing (libFuzzer ships with clang's runtime)
  googletest libgtest-dev libgmock-dev clang libclang-rt-14-dev
  # benchmarks and their reference tools
  libbenchmark-dev miller gnumeric hyperfine
  # an independent reader and writer of .xlsx for the sheet tests, and the
  # reference of the sheet-editing benchmark
  python3-openpyxl
  # libraries the code uses
  libcli11-dev
  # the sheet selection dialog (Qt 6 Widgets; its tests use QTest offscreen)
  qt6-base-dev
  # the office suite, full packages (printing needs them), and its SDK
  libreoffice-calc libreoffice-writer libreoffice-dev libreoffice-base-drivers
  # fonts and locales the office renders and exports with
  fonts-dejavu-core locales
  # printing (a CUPS PDF queue, see setup-printer.sh), and the readers the
  # tests check printed PDFs and encrypted workbooks with
  cups printer-driver-cups-pdf poppler-utils python3-msoffcrypto-tool
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ "${#missing[@]}" -gt 0 ]; then
  sudo=""
  if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
  echo "install-deps: installing ${missing[*]}" >&2
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

# The office runs under en_US.UTF-8 when the system has it.
if ! locale -a 2>/dev/null | grep -qi '^en_US\.utf-\?8$'; then
  sudo=""
  if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
  if [ -f /etc/locale.gen ]; then
    $sudo sed -i 's/^# *en_US.UTF-8 UTF-8/en_US.UTF-8 UTF-8/' /etc/locale.gen
    $sudo locale-gen >/dev/null 2>&1 || true
  fi
fi

# A printer for PrintExcelContents: CUPS started where it is not running (a
# fresh container or CI runner has no service manager to start it) and the
# PDF queue added.
"$(dirname "$0")/setup-printer.sh" >/dev/null
