#!/usr/bin/env bash
# A printer for PrintExcelContents on a machine without one: starts the CUPS
# scheduler where it is not running (containers and CI runners have no
# service manager to start it) and adds the queue TabulonPDF, a PDF printer
# (printer-driver-cups-pdf) that writes each job as a PDF file into
#   /var/spool/tabulon-pdf/<user>/job_<id>-<title>.pdf
# where <title> is the printed workbook's file name without its extension.
# The queue becomes the default printer only when the system has none.
# Idempotent; needs root (or sudo) for the scheduler and the queue. Prints the
# output folder of the calling user.
set -euo pipefail

queue="TabulonPDF"
conf="/etc/cups/cups-pdf-tabulon.conf"
spool="/var/spool/tabulon-pdf"
# The driver without options: the settings below decide, not the driver's
# defaults.
ppd="/usr/share/ppd/cups-pdf/CUPS-PDF_noopt.ppd"

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi

for tool in cupsd lpadmin lpstat; do
  if ! command -v "$tool" >/dev/null 2>&1 && [ ! -x "/usr/sbin/$tool" ]; then
    echo "setup-printer: $tool is missing; run scripts/install-deps.sh" >&2
    exit 1
  fi
done
if [ ! -f "$ppd" ] || [ ! -e /usr/lib/cups/backend/cups-pdf ]; then
  echo "setup-printer: printer-driver-cups-pdf is missing; run scripts/install-deps.sh" >&2
  exit 1
fi

# The queue's own settings (the backend reads cups-pdf-<name>.conf for the
# device URI cups-pdf:/<name>): a fixed folder per user, each file labelled
# with its job number so that two jobs of one workbook never overwrite each
# other, and titled after the job's name (the workbook's), not after what
# the PostScript says.
want="Out ${spool}/\${USER}
AnonDirName ${spool}/ANONYMOUS
Label 1
TitlePref 1
UserUMask 0022"
if [ "$(cat "$conf" 2>/dev/null || true)" != "$want" ]; then
  printf '%s\n' "$want" | $sudo tee "$conf" >/dev/null
fi
$sudo mkdir -p "$spool"
$sudo chmod 0755 "$spool"

if ! lpstat -r 2>/dev/null | grep -q 'is running'; then
  # Started as a daemon of its own (not on demand), so that it stays up
  # between test runs.
  $sudo /usr/sbin/cupsd
  for _ in $(seq 1 100); do
    if lpstat -r 2>/dev/null | grep -q 'is running'; then break; fi
    sleep 0.1
  done
  if ! lpstat -r 2>/dev/null | grep -q 'is running'; then
    echo "setup-printer: the CUPS scheduler did not start" >&2
    exit 1
  fi
fi

# CUPS warns that drivers are deprecated; they still work in this version.
$sudo lpadmin -p "$queue" -E -v "cups-pdf:/tabulon" -P "$ppd" -D "Tabulon PDF printer" 2>/dev/null
$sudo cupsenable "$queue" 2>/dev/null || true
$sudo cupsaccept "$queue" 2>/dev/null || true
if ! lpstat -d 2>/dev/null | grep -q 'system default destination:'; then
  $sudo lpadmin -d "$queue"
fi
echo "${spool}/$(id -un)"
