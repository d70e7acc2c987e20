#!/usr/bin/env bash
# libtabulon.so exports its public API and nothing else (no office backend,
# no UNO, no standard-library template code), under a versioned SONAME.
# Usage: exported_symbols_test.sh LIBDIR
set -euo pipefail
lib="$1/libtabulon.so"
public='tabulon::(TabulonCtrl|PropertyBag|MemoryPropertyBag|IniPropertyBag|AutomationError|ResultMessages|KillEveryOffice)\b'

symbols="$(nm -DC --defined-only "$lib" | cut -d' ' -f3-)"
count="$(wc -l <<<"$symbols")"
stray="$(grep -Ev "^((vtable|typeinfo|typeinfo name) for )?$public" <<<"$symbols" || true)"
if [ -n "$stray" ]; then
  echo "libtabulon.so exports more than its public API:" >&2
  echo "$stray" | head -40 >&2
  exit 1
fi
# The public API itself is there (a broken version script exports nothing).
for needed in 'tabulon::TabulonCtrl::TabulonCtrl()' 'tabulon::TabulonCtrl::OpenXLSSaveAs(' \
  'tabulon::IniPropertyBag::Load()' 'typeinfo for tabulon::AutomationError'; do
  grep -F "$needed" <<<"$symbols" >/dev/null || { echo "missing export: $needed" >&2; exit 1; }
done
for l in tabulon ravelin; do
  soname="$(readelf -d "$1/lib$l.so" | sed -n 's/.*Library soname: \[\(.*\)\]/\1/p')"
  [[ "$soname" =~ ^lib$l\.so\.[0-9]+$ ]] || { echo "lib$l.so has SONAME '$soname'" >&2; exit 1; }
done
echo "exported_symbols_test: $count symbols, all public"
