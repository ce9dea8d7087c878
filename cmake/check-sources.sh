#!/usr/bin/env bash
# Checks what the compiler does not: which folder may include which, what is internal, that includes run one way, that the
# core needs the standard library alone, that no name in a public header is a word that common frameworks define as a
# macro, and how tests, constants and comments are written.
set -euo pipefail
cd "$(dirname "$0")/.."

failures=0
report() {
  [ -z "$2" ] && return
  printf '%s:\n%s\n' "$1" "$2"
  failures=1
}

# includes_of PATH...: each include of a file of ours as "FILE:LINE:#include "HEADER"".
includes_of() {
  grep -rnE '^ *# *include *"' --include='*.h' --include='*.cpp' "$@" || true
}

# may_include FOLDER FOLDER...: sources of the first folder include files of the others and of their own alone, and
# spell them from the root of the repository.
may_include() {
  local folder=$1 allowed
  allowed=$(IFS='|'; echo "$*")
  report "$folder/ may include from ${*} alone" "$(includes_of "$folder" | grep -vE "\"($allowed)/[^\"]+\"" || true)"
}
may_include pellor/runtime
may_include pellor/platform pellor/runtime
may_include pellor/friends pellor/platform pellor/runtime
may_include pellor/list pellor/friends pellor/platform pellor/runtime
may_include pellor/testing pellor/platform pellor/runtime
may_include pellor/linux pellor/platform pellor/runtime
may_include pellor/app pellor/list pellor/friends pellor/linux pellor/platform pellor/runtime
may_include cli pellor
report 'cli/ knows friends through pellor/list/ alone, and nothing internal' \
  "$(includes_of cli | grep -E '"pellor/(friends|[^"]*internal)/' || true)"
may_include bench pellor
report 'What search/ loads into a program includes nothing of ours' "$(includes_of search/FileCalls.cpp)"

# Within pellor/linux/, from the files up to the services: each folder may include from those before it. The files in
# pellor/linux/ itself put the embedded parts together, and the services describe themselves by them.
above=()
for folder in threads files text phone sqlite notify preferences contacts reachability; do
  may_include "pellor/linux/$folder" "${above[@]/#/pellor/linux/}" pellor/platform pellor/runtime
  above+=("$folder")
done
services='eds|journal|ldap|matrix|mosquitto|postgresql|sdbus|services'
report 'pellor/linux/ itself includes nothing of a service' \
  "$(includes_of pellor/linux/*.h pellor/linux/*.cpp | grep -E "\"pellor/linux/($services)/" || true)"
for folder in ${services//|/ }; do
  [ "$folder" = services ] && continue
  report "pellor/linux/$folder/ includes nothing of another service" "$(includes_of "pellor/linux/$folder" |
    grep -E "\"pellor/linux/($services)/" | grep -v "\"pellor/linux/$folder/" || true)"
done

# What is installed is what its folder lists.
installed=$(for folder in pellor/*/ pellor/linux/*/; do
  [ -f "${folder}CMakeLists.txt" ] || continue
  sed -n '/^pellor_public_headers(/,/)/p' "${folder}CMakeLists.txt" | grep -oE '[A-Za-z0-9_/]+\.h' | sed "s,^,$folder,"
done | sort)
report 'Internal headers are not installed' "$(grep -E '/internal/' <<<"$installed" || true)"
report 'Public headers include no internal ones' \
  "$(xargs grep -nE '^ *# *include *".*/internal/' <<<"$installed" || true)"
# A folder of pellor/linux/ that installs nothing is internal as a whole.
public_folders=$(xargs -n1 dirname <<<"$installed" | sort -u)
report 'Neither installed nor in a folder internal/' "$(comm -23 \
  <(for folder in $public_folders; do ls "$folder"/*.h; done | sort) <(printf '%s\n' "$installed"))"

# Suites are listed there as a kind, and what is in a folder detail/ is no promise.
report 'Installed, and not in docs/api.md' "$(grep -vE '/detail/|Contract\.h$' <<<"$installed" | while read -r header; do
  grep -qF "${header##*/}\`" docs/api.md || echo "$header"
done)"

# circles FOLDER: includes among the headers and sources of a folder, a source counted with its header, that lead back.
circles() {
  grep -rE '^#include "' --include='*.h' --include='*.cpp' "$1" |
    sed -E 's,^([^:]+)\.(h|cpp):#include "([^"]+)\.h".*,\1 \3,' | grep " $1/" | awk '$1 != $2' | tsort 2>&1 >/dev/null |
    sed 's/^tsort: //' || true
}
for folder in friends list linux; do
  report "A circle of includes in pellor/$folder/" "$(circles "pellor/$folder")"
done

for folder in runtime platform friends list; do
  report "pellor/$folder/ uses the standard library alone" \
    "$(grep -rnE '^ *# *include *<[^>]*[./]' --include='*.h' --include='*.cpp' "pellor/$folder" || true)"
done

report 'pellor/testing/ needs GoogleTest in pellor/testing/contract/ alone' "$(
  grep -rnE '^ *# *include *<g(test|mock)/' --include='*.h' --include='*.cpp' pellor/testing |
    grep -v '^pellor/testing/contract/' || true)"

report 'Words that frameworks define as macros' \
  "$(grep -rnwE 'slots|signals|emit|foreach' --include='*.h' pellor | grep -vE '^[^:]+:[0-9]+: *//' |
    sed 's,//.*,,' | grep -wE 'slots|signals|emit|foreach' || true)"

# sources_with PATTERN PATH...: lines of sources and headers that match.
sources_with() {
  grep -rnE --include='*.h' --include='*.cpp' "$@" || true
}
report 'Names of tests are sentences in UpperCamelCase' \
  "$(sources_with '^ *(TYPED_)?TEST(_F|_P)?\([A-Za-z0-9_]+, *([a-z]|[A-Za-z0-9]*_)' pellor tests examples)"
report 'Constants have no prefix' \
  "$(sources_with '\bconstexpr\b[^;=({]*\bk[A-Z][A-Za-z0-9]* *[={[]' pellor cli bench tests examples)"
report 'Constants of a namespace or a class are in UpperCamelCase' "$(
  sources_with '^((inline|static) )*constexpr [^(){=]*\b[a-z][A-Za-z0-9]*(\[[^]]*\])? *[={]' pellor cli bench tests examples
  sources_with --exclude='*.cpp' '^ +static constexpr [^(){=]*\b[a-z][A-Za-z0-9]*(\[[^]]*\])? *[={]' \
    pellor cli bench tests examples)"
report 'Behind a member "///<", in a line of its own "///"' \
  "$(sources_with '^ *///<|^[^"/]*[^"/ ][^"/]*/// ' pellor cli bench tests examples)"
report 'Comments name their subjects' "$(sources_with '//.*\b[Ww](hoever|homever)\b|// *The same[ .]' pellor cli bench examples)"

# Where links are followed, whose files are used and what others may do with them is decided in one place. Contacts, their
# favorites and what the system tells are not the library's own.
report 'Files of the library are opened, made and replaced by pellor/linux/files/internal/PrivatePlace.h alone' "$(
  sources_with -e '(^|[^A-Za-z0-9_])::(open|openat|creat|fopen|mkostemp|mknod|mkdir|chmod|fchmod)\(|[^.>]\bopen\([^)]*, O_[A-Z]|[io]?fstream\(' \
    -e '\b(createPrivateF(ile|older)|replacePrivateFile|openRegularFile)\(|\bcreate_director' pellor/linux |
    grep -vE '^pellor/linux/(files/|contacts/(ContactImport|internal/(ContactFolder|FavoritesFile))\.cpp)|"/(proc|etc)/' ||
    true)"

# The checks that docs/invariants.md names are there.
report 'Named in docs/invariants.md, and nowhere else' "$(
  sed -n 's/^| [0-9]* |.*| \(.*\) |$/\1/p' docs/invariants.md | grep -o '`[A-Za-z.]*`' | tr -d '`' | sort -u |
    while read -r name; do
      grep -rqw -- "$name" pellor tests fuzz search || [[ -e search/$name ]] || echo "$name"
    done)"

exit $failures
