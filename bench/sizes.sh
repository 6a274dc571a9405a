#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: sizes.sh LIBRARY... - sizes in bytes, stripped, and relocations that the loader makes.
set -eu
copy=$(mktemp)
trap 'rm -f "$copy"' EXIT
printf '%-28s %9s %9s %9s %9s\n' library .text text data relocs
for library in "$@"; do
    strip -o "$copy" "$library" 2>/dev/null || cp "$library" "$copy"
    code=$(readelf -SW "$copy" | awk '$2 == ".text" { print $5 } $3 == ".text" { print $6 }')
    relocations=$(readelf -rW "$copy" | grep -c ' R_' || true)
    size "$copy" 2>/dev/null | awk -v name="$(basename "$library")" -v code="$((0x$code))" \
        -v relocations="$relocations" \
        'NR == 2 { printf "%-28s %9d %9d %9d %9d\n", name, code, $1, $2 + $3, relocations }'
done
