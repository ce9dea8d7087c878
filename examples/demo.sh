#!/usr/bin/env bash
# demo.sh PROGRAM: shows what pellor does, on a copy of the sample contacts in a folder of its own, which it removes.
set -euo pipefail

program=$(realpath "${1:?usage: demo.sh PROGRAM}")
samples=$(dirname "$(realpath "$0")")/contacts
home=$(mktemp -d)
watch=

finish() {
  if [ -n "$watch" ]; then kill "$watch" 2>/dev/null || true; fi
  rm -rf "$home"
}
trap finish EXIT

export HOME=$home XDG_DATA_HOME=$home/data XDG_CONFIG_HOME=$home/config XDG_STATE_HOME=$home/state
export XDG_RUNTIME_DIR=$home/run LC_ALL=C.UTF-8 LANGUAGE=
mkdir -m 700 "$home/run" "$home/data"
cp -r "$samples" "$home/contacts"

heading() { printf '\n== %s\n' "$1"; }

# Shows a command and runs it.
pellor() {
  local argument
  printf '\n$ pellor'
  for argument in "$@"; do
    case $argument in *' '*) printf ' "%s"' "$argument" ;; *) printf ' %s' "$argument" ;; esac
  done
  printf '\n'
  "$program" --contacts "$home/contacts" "$@"
}

# Waits for one line of the watching process that contains a text, and shows what comes until then.
expect() {
  local line
  while IFS= read -r -t 20 -u 3 line; do
    printf '   watch> %s\n' "$line"
    case $line in *"$1"*) return ;; esac
  done
  printf 'demo.sh: the watching process did not report "%s"\n' "$1" >&2
  exit 1
}

heading "The first list: made of the user's favorites, in their order, on pages of 12 slots"
pellor --region DE list

heading 'A second process watches the list'
exec 3< <(exec "$program" --contacts "$home/contacts" watch 2>&1)
watch=$!
printf '\n$ pellor watch &\n'
expect 'watching'

heading 'Each edit of one process reaches the other, which reports it'
pellor add 'Jörg Mühlgrab'
expect 'added'
pellor move Jörg 1:1
expect 'moved'
expect 'moved'

heading 'A contact is renamed in its file, as a synchroniser would do; the list follows'
card=$home/contacts/zoe-beruchon.vcf
sed -e 's/^FN:.*/FN:Zoë Sandmeer/' -e 's/^N:.*/N:Sandmeer;Zoë;;;/' "$card" >"$home/renamed"
mv "$home/renamed" "$card"
printf '\n$ mv renamed.vcf contacts/zoe-beruchon.vcf\n'
expect 'updated'

heading 'After a restart the list is the same'
"$program" --contacts "$home/contacts" list --json >"$home/before"
kill -TERM "$watch"
wait "$watch"
watch=
pellor list
"$program" --contacts "$home/contacts" list --json | cmp "$home/before" -
printf '\nAll of it was kept in a folder of its own, which is removed now.\n'
