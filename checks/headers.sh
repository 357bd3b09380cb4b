#!/usr/bin/env bash
# Every installed header compiles alone, as C++17 and as C++20, from an include folder laid out as
# after installation.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
mkdir "$root/base" "$root/logging"
cp include/*.h "$root" && cp base/*.h "$root/base"
sed -n 's,^ *\(logging/[a-z_]*\.h\).*,\1,p' cmake/install.cmake | while read -r header; do
  cp "$header" "$root/logging"
done

# alone STANDARD HEADER
alone() {
  echo "#include \"$2\"" |
    g++ -std="$1" -fsyntax-only -Wall -Wextra -Wpedantic -Werror -I "$3" -x c++ - ||
    { echo "headers: $2 does not compile alone as $1"; return 1; }
}
export -f alone
(cd "$root" && find . -name '*.h' -printf '%P\n' | sort) |
  awk '{print "c++17", $0; print "c++20", $0}' |
  xargs -P "$(nproc)" -L 1 bash -c 'alone "$1" "$2" "$0"' "$root"
