#!/usr/bin/env bash
# check-hardening.sh PROGRAM...: whether programs as users run them are built as pellor_hardening says. Needs binutils.
set -euo pipefail
cd "$(dirname "$0")/.."

failures=0
# expect PROGRAM WHAT CONDITION...
expect() {
  local program=$1 what=$2
  shift 2
  "$@" && return
  printf '%s: %s\n' "$program" "$what"
  failures=1
}
# Read to their end: a reader that goes early would be taken for a failure.
has() { [ "$(grep -cE "$1" <<<"$2")" -gt 0 ]; }
has_not() { ! has "$@"; }

for program in "$@"; do
  headers=$(readelf --wide --file-header --program-headers "$program")
  dynamic=$(readelf --wide --dynamic "$program")
  symbols=$(readelf --wide --dyn-syms "$program")
  expect "$program" 'is bound to one place in memory (PIE)' has 'Type: +DYN' "$headers"
  expect "$program" 'has tables that stay writable (RELRO)' has 'GNU_RELRO' "$headers"
  expect "$program" 'binds while it runs (BIND_NOW)' has 'BIND_NOW|FLAGS_1.*NOW' "$dynamic"
  expect "$program" 'has a stack that can be run' has_not 'GNU_STACK.*RWE' "$headers"
  expect "$program" 'does not look after its stack' has '__stack_chk_fail' "$symbols"
  expect "$program" 'does not look after its buffers (FORTIFY)' has '__[a-z]+_chk@' "$symbols"
  expect "$program" "names folders of this machine" has_not "$(sed 's/[][\.*^$+?(){}|/]/\\&/g' <<<"$PWD")/" "$(strings --all "$program")"
done
exit $failures
