#!/usr/bin/env bash
# setup.sh GROUP...: installs the Debian packages of these groups of packages.txt that are missing.
# Says nothing and needs neither network nor rights when all are there.
set -euo pipefail

list=$(dirname "$0")/packages.txt
[ $# -gt 0 ] || { echo "usage: setup.sh GROUP... (groups: $(awk '/^[a-z]/ {print $1}' "$list" | uniq | xargs))" >&2; exit 2; }

fail() {
  printf 'setup: %s\n' "$1" >&2
  printf 'setup: install these Debian 12 packages, or what corresponds to them: %s\n' "${missing[*]}" >&2
  exit 1
}

wanted=()
for group in "$@"; do
  mapfile -t packages < <(awk -v group="$group" '$1 == group {print $2}' "$list")
  [ ${#packages[@]} -gt 0 ] || { echo "setup: no packages in group '$group' of $list" >&2; exit 2; }
  wanted+=("${packages[@]}")
done

missing=("${wanted[@]}")
command -v dpkg-query >/dev/null || fail 'this is no Debian system'
installed=$(dpkg-query -W -f '${db:Status-Status} ${Package}\n' "${wanted[@]}" 2>/dev/null || true)
mapfile -t missing < <(printf '%s\n' "${wanted[@]}" | grep -vxFf <(awk '$1 == "installed" {print $2}' <<<"$installed"))
[ ${#missing[@]} -gt 0 ] || exit 0

command -v apt-get >/dev/null || fail 'there is no apt-get'
as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || fail 'neither root nor sudo'
  as_root=(sudo)
  # Nobody can type a password into a pipe: fail at once in place of waiting for one.
  [ -t 0 ] || as_root+=(-n)
fi

echo "setup: installing ${missing[*]}"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
apt() { "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -o DPkg::Lock::Timeout=300 "$@" >>"$log" 2>&1; }
# A stale third-party source must not stop the installation: what is really missing fails below.
apt update || echo 'setup: apt-get update reported errors, going on'
if ! apt install -y --no-install-recommends "${missing[@]}"; then
  tail -n 20 "$log" >&2
  fail 'apt-get could not install what is missing'
fi
