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
may_include runtime
may_include platform runtime
may_include Pellor platform runtime
may_include testing platform runtime
may_include linux platform runtime
may_include cli Pellor linux testing platform runtime
may_include bench Pellor linux testing platform runtime

for folder in runtime platform Pellor; do
  report "$folder/ uses the standard library alone" \
    "$(grep -rnE '^ *# *include *<[^>]*[./]' --include='*.h' --include='*.cpp' "$folder" || true)"
done

report 'testing/ needs GoogleTest in testing/contract/ alone' \
  "$(grep -rnE '^ *# *include *<g(test|mock)/' --include='*.h' --include='*.cpp' testing | grep -v '^testing/contract/' || true)"

report 'Words that frameworks define as macros' \
  "$(grep -rnwE 'slots|signals|emit|foreach' --include='*.h' runtime platform Pellor testing linux |
    grep -vE '^[^:]+:[0-9]+: *//' | sed 's,//.*,,' | grep -wE 'slots|signals|emit|foreach' || true)"

exit $failures
