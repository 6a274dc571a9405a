#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: test_headers.sh SOURCE "HEADER..." CC CXX... - each header compiles alone, and all compile
# together, without a warning, in each edition of C and C++ that applications are written in. A pair
# of compilers that is not installed is named and skipped.
set -eu
source=$1 headers=$2
shift 2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export LC_ALL=C

mkdir "$folder/sources"
for header in $headers; do
    # Standard C requires a declaration in every source.
    printf '#include <%s>\ntypedef int not_empty;\n' "$header" >"$folder/sources/${header##*/}.c"
    printf '#include <%s>\n' "$header" >>"$folder/sources/all.c"
done
# Ignores a result that would be the only pointer to the list if the list was empty.
cat >"$folder/lose.c" <<'END'
#include <veklib/vekslist.h>
void lose(VekSList *list);
void lose(VekSList *list) { vek_slist_append(list, list); }
END

# check COMPILER LANGUAGE STANDARD
check() {
    flags="-x $2 -std=$3 -I$source -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror"
    case $2 in
        c) flags="$flags -Wdeclaration-after-statement" ;;
        c++) flags="$flags -Wold-style-cast -Wzero-as-null-pointer-constant" ;;
    esac
    # shellcheck disable=SC2086 # the flags are words
    "$1" $flags -fsyntax-only "$folder"/sources/*.c || return
    # GCC warns of ignored results only in a full compilation, not with -fsyntax-only.
    # shellcheck disable=SC2086
    "$1" $flags -S -o /dev/null "$folder/lose.c" 2>&1 | grep -q unused-result ||
        { echo "$1 $flags does not warn of an ignored vek_slist_append()"; return 1; }
}

: >"$folder/failed"
while [ $# -gt 0 ]; do
    if command -v "$1" >"$folder/found" && command -v "$2" >>"$folder/found"; then
        echo "$1, $2"
        for standards in 'c99 c++11' 'c11 c++17' 'c17 c++20'; do
            { check "$1" c "${standards% *}" || echo failed >>"$folder/failed"; } &
            check "$2" c++ "${standards#* }" || echo failed >>"$folder/failed"
            wait
        done
    else
        echo "$1, $2: skipped, not installed"
    fi
    shift 2
done
[ ! -s "$folder/failed" ]
