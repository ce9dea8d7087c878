#!/usr/bin/env bash
# check-installed-headers.sh FOLDER: whether every file that an installed header includes is installed as well.
set -euo pipefail
cd "$1"

missing=$(grep -rhoE '^#include "[^"]+"' --include='*.h' . | sed 's/.*"\(.*\)"/\1/' | sort -u |
  while read -r header; do [ -f "$header" ] || echo "$header"; done)
if [ -n "$missing" ]; then
  printf 'Included by public headers but not installed (pellor_public_headers in the CMakeLists.txt of the folder):\n%s\n' "$missing"
  exit 1
fi
