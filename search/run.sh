#!/usr/bin/env bash
# Searches for faults, and says how much was done and what was found; each finding comes with the command that tries it
# again. The parts share the minutes by their weights, one after the other. Programs: make search builds them.
#
#   search/run.sh MINUTES [PART...]
set -uo pipefail
cd "$(dirname "$0")/.."

declare -A weights=([bytes]=4 [calls]=4 [loss]=2)
order=(bytes calls loss)

# part SECONDS: a function for each, which fails when it finds something.
bytes() {
  local targets
  targets=$(build/fuzz/fuzz/pellor_fuzz 2>&1 | sed -n 's/^PELLOR_FUZZ_TARGET has to be one of: //p' | wc -w)
  fuzz/run.sh $(($1 * $(nproc) / targets))
}
calls() { files calls.py "$1"; }
loss() { files loss.py "$1"; }
files() { "search/$1" build/dev/cli/pellor build/dev/search/libpellor_file_calls.so --seconds "$2"; }

minutes=${1:?minutes for all parts}
shift
if (($# > 0)); then order=("$@"); fi
total=0 failed=0
for part in "${order[@]}"; do total=$((total + weights[$part])); done
for part in "${order[@]}"; do
  printf '== search: %s\n' "$part"
  "$part" $((minutes * 60 * weights[$part] / total)) || failed=1
done
exit $failed
