#!/usr/bin/env bash
# Searches each target for a while, in parts beside each other, and says how much was done. What it finds is kept in
# build/fuzz/findings/TARGET/; one of them is tried again by
#
#   build/dev/fuzz/fuzz_replay TARGET FILE
#
# and becomes a file of fuzz/corpus/TARGET/ once it is mended.
#
# FUZZ_SEED makes every run try the same.
#
#   fuzz/run.sh SECONDS [TARGET...]
set -uo pipefail
cd "$(dirname "$0")/.."

seconds=${1:?seconds for each target}
shift
program=$PWD/build/fuzz/fuzz/pellor_fuzz
read -ra targets <<<"$("$program" 2>&1 | sed -n 's/^PELLOR_FUZZ_TARGET has to be one of: //p')"
if (($# > 0)); then targets=("$@"); fi
export ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1 UBSAN_OPTIONS=print_stacktrace=1

# The parser of cards leaks a buffer for some that it gives up on. To be told from a leak of ours it has to be named by
# the whole path to it, which takes time.
export LSAN_OPTIONS=suppressions=$PWD/fuzz/leaks-of-others.txt:print_suppressions=0
leaks_of() { [[ $1 == cards ]] && echo :fast_unwind_on_malloc=0; }

# All that is needed elsewhere to try it again, where only what is printed here can be read.
tell_finding() {
  local finding
  grep -hE '^pellor: fatal|runtime error|^SUMMARY|ERROR:' "$2" | head -5
  for finding in "$1"/*; do
    printf 'base64 -d >%s <<<%s\n' "${finding##*/}" "$(base64 -w0 "$finding")"
  done
}

search() {
  local target=$1 corpus=build/fuzz/corpus/$1 findings=build/fuzz/findings/$1 log=build/fuzz/$1.log
  mkdir -p "$corpus" "$findings"
  ASAN_OPTIONS=$ASAN_OPTIONS$(leaks_of "$target") PELLOR_FUZZ_TARGET=$target "$program" \
    -max_total_time="$seconds" -seed="${FUZZ_SEED:-0}" -max_len=4096 -timeout=20 -rss_limit_mb=1024 -print_final_stats=1 \
    -dict="fuzz/dictionaries/$target.dict" -artifact_prefix="$findings/" \
    "$corpus" "fuzz/corpus/$target" >"$log" 2>&1
  local result=$? runs features
  runs=$(sed -n 's/^stat::number_of_executed_units: //p' "$log")
  features=$(grep -o 'ft: [0-9]*' "$log" | tail -1 | cut -c5-)
  printf '%-15s %10s runs %8s features  %s\n' "$target" "${runs:-0}" "${features:-0}" \
    "$([[ $result == 0 ]] && echo 'nothing found' || echo "FOUND: $log")"
  if [[ $result != 0 ]]; then tell_finding "$findings" "$log"; fi
  return $result
}

failed=0 running=()
collect() {
  wait "${running[0]}" || failed=1
  running=("${running[@]:1}")
}
for target in "${targets[@]}"; do
  if ((${#running[@]} >= $(nproc))); then collect; fi
  search "$target" &
  running+=($!)
done
while ((${#running[@]} > 0)); do collect; done
exit $failed
