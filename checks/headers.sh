#!/usr/bin/env bash
# Every installed header compiles alone, as C++17 and as C++20, also without exceptions and run-time
# type information, from an include folder laid out as after installation; what C programs may
# include compiles as C.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
mkdir "$root/base" "$root/logging"
cp include/*.h "$root" && cp base/*.h "$root/base"
sed -n 's,^ *\(logging/[a-z_]*\.h\).*,\1,p' cmake/install.cmake | while read -r header; do
  cp "$header" "$root/logging"
done

# alone "STANDARD [OPTION...]" HEADER FOLDER
alone() {
  local compiler=g++ language=c++
  case $1 in
    *-fno-*) compiler=clang++-14 ;;  # which looks into templates before they are used
    c11) compiler=gcc language=c ;;
  esac
  echo "#include \"$2\"" |
    $compiler -std=$1 -fsyntax-only -Wall -Wextra -Wpedantic -Werror -I "$3" -x "$language" - ||
    { echo "headers: $2 does not compile alone as $1"; return 1; }
}
export -f alone
(cd "$root" && find . -name '*.h' -printf '%P\n' | sort) |
  awk '{print "c++17\t" $0; print "c++20\t" $0; print "c++20 -fno-exceptions -fno-rtti\t" $0}
    /filenames/ {print "c11\t" $0}' |
  xargs -P "$(nproc)" -d '\n' -n 1 bash -c 'IFS=$(printf "\t") read -r as header <<<"$1"; alone "$as" "$header" "$0"' "$root"
