#!/usr/bin/env bash
# usage: checks/exports.sh BUILD_FOLDER [--update]
# Holds what the shared libraries export against the lists in checks/exports/. Names of the standard
# library and of ICU that the compiler emits beside ours are left out, they are not ours to promise,
# and so are the fault hooks (kp_fault_...), which only builds for tests have.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
folder=$1

exported_names() {
  nm -DC --defined-only "$1" | cut -c18- | sed 's/^[A-Za-z] //' | grep -v '^kp_fault_' |
    grep -Ev '^(non-virtual thunk to |VTT for |guard variable for )?(typeinfo( name)? for |vtable for )?(std::|__gnu_cxx|icu_[0-9]+::)' |
    grep -Ev '\bstd::.*(_M_|~)|^(void|bool|unsigned|unsigned char|int|char|auto) std::|operator (new|delete)' | LC_ALL=C sort -u
}

status=0
for library in kpbase kpintl kplog kplogrecord; do
  file=$(find "$folder" -maxdepth 2 -name "lib$library.so.1")
  list=checks/exports/$library.txt
  if [ "${2:-}" = --update ]; then
    exported_names "$file" >"$list"
  elif ! diff -u "$list" <(exported_names "$file"); then
    echo "exports: lib$library.so.1 differs from $list (checks/exports.sh $folder --update rewrites it)"
    status=1
  fi
done
exit $status
