#!/usr/bin/env bash
# Checks what the compiler does not: which folder may include which, that the core needs the standard library alone, and
# that no name in a public header is a word that common frameworks define as a macro.
set -euo pipefail
cd "$(dirname "$0")/.."

failures=0
report() {
  [ -z "$2" ] && return
  printf '%s:\n%s\n' "$1" "$2"
  failures=1
}

# may_include FOLDER FOLDER...: sources of the first folder include files of the others and of their own alone, and
# spell them from the root of the repository.
may_include() {
  local folder=$1 allowed
  allowed=$(IFS='|'; echo "$*")
  report "$folder/ may include from ${*} alone" \
    "$(grep -rnE '^ *# *include *"' --include='*.h' --include='*.cpp' "$folder" | grep -vE "\"($allowed)/[^\"]+\"" || true)"
}
may_include pellor/runtime
may_include pellor/platform pellor/runtime
may_include pellor/friends pellor/platform pellor/runtime
may_include pellor/testing pellor/platform pellor/runtime
may_include pellor/linux pellor/platform pellor/runtime
may_include cli pellor
may_include bench pellor

for folder in pellor/runtime pellor/platform pellor/friends; do
  report "$folder/ uses the standard library alone" \
    "$(grep -rnE '^ *# *include *<[^>]*[./]' --include='*.h' --include='*.cpp' "$folder" || true)"
done

report 'pellor/testing/ needs GoogleTest in pellor/testing/contract/ alone' \
  "$(grep -rnE '^ *# *include *<g(test|mock)/' --include='*.h' --include='*.cpp' pellor/testing | grep -v '^pellor/testing/contract/' || true)"

report 'Words that frameworks define as macros' \
  "$(grep -rnwE 'slots|signals|emit|foreach' --include='*.h' pellor |
    grep -vE '^[^:]+:[0-9]+: *//' | sed 's,//.*,,' | grep -wE 'slots|signals|emit|foreach' || true)"

exit $failures
