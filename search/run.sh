#!/usr/bin/env bash
# Searches for faults, and says how much was done and what was found; each finding comes with the command that tries it
# again. The parts share the minutes by their weights, one after the other. Programs: make search builds them.
# build/search.md gets a table with a line for each part, and so does docs/reliability.md where SEARCH_TABLE is set.
#
#   search/run.sh MINUTES [PART...]
set -uo pipefail
cd "$(dirname "$0")/.."

declare -A weights=([worlds]=6 [calls]=3 [loss]=1 [memory]=1 [bytes]=4)
order=(worlds calls loss memory bytes)
# What each part would have found.
declare -A sound=([worlds]='0 acknowledged edits lost, 0 silent differences' [calls]='0 torn, 0 lost, 0 hung, 0 crashed'
  [loss]='0 torn, 0 lost' [memory]='0 crashed, 0 leaked' [bytes]='0 crashed, 0 hung')

# part SECONDS: a function for each, which fails when it finds something.

# One part of the simulations of three processes a core, each of its kinds for a third of the time. Seeds are counted from
# PELLOR_FIRST_SEED on.
worlds() {
  local part failed=0 parts=() minutes=$(($1 < 180 ? 1 : $1 / 180))
  for ((part = 0; part < $(nproc); part++)); do
    PELLOR_SEED_MINUTES=$minutes build/dev/tests/pellor/pellor_tests --gtest_brief=1 \
      --gtest_filter="Seeds/ManagerSimulationTest.*/$part" &
    parts+=($!)
  done
  for part in "${parts[@]}"; do wait "$part" || failed=1; done
  return $failed
}
# All of them: it takes seconds.
memory() {
  local target failed=0
  for target in value archive stored-list history merge cards device-message; do
    build/dev/search/failed_allocations $target fuzz/corpus/$target || failed=1
  done
  return $failed
}
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
machine="$(nproc) cores, $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -1)"
printf '%s\n' '| part | how much | outcome | date | commit | machine |' '| --- | --- | --- | --- | --- | --- |' >build/search.md
for part in "${order[@]}"; do
  printf '== search: %s\n' "$part"
  outcome=${sound[$part]}
  "$part" $((minutes * 60 * weights[$part] / total)) | tee "build/search-$part.log" || { outcome=FOUND; failed=1; }
  how_much=$(grep -E 'seeds from|cases of|failed, one at a time|^[a-z-]+ +[0-9]+ runs' "build/search-$part.log" | tr -s ' ' |
    sed 's/ features.*//' | paste -sd ';' | sed 's/;/; /g')
  echo "| $part | $how_much | $outcome | $(date -u +%F) | $(git rev-parse --short HEAD) | $machine |" >>build/search.md
done
if [[ ${SEARCH_TABLE:-} ]]; then
  sed -i -e '/^<!-- search -->$/,/^<!-- end of search -->$/{//!d}' -e '/^<!-- search -->$/r build/search.md' \
    docs/reliability.md
fi
exit $failed
