#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: entry_points.sh OBJDUMP LIBRARY - checks that each of the allocator's entry points is a
# test and a jump through the table: at most 15 instructions (some save the link register on ARM),
# and no call. Exits with 77 for processors whose instructions this script does not know.
set -eu
objdump=$1
library=$2

format=$("$objdump" -f "$library")
case $format in
    *x86-64* | *littlearm* | *littleaarch64*) ;;
    *)
        echo "skipped: this processor's instructions are not known here"
        exit 77
        ;;
esac

for name in malloc malloc_with_return calloc calloc_with_return realloc realloc_with_return \
    malloc_if_possible malloc_if_possible_with_return malloc_if_available \
    malloc_if_available_with_return free free_with_return; do
    code=$("$objdump" -d --no-show-raw-insn "$library" |
        awk -v entry="<__vek_default_$name(@@VEKLIB_1)?>:" \
            '$0 ~ entry { p = 1; next } /^$/ { p = 0 } p && !/nop|\.word|xchg +%ax,%ax/')
    count=$(printf '%s\n' "$code" | wc -l)
    jumps=$(printf '%s\n' "$code" | grep -cE 'jmp +\*|bx\s+(r[0-9]|ip)|pop.*pc|\sbr\s+x' || true)
    calls=$(printf '%s\n' "$code" | grep -cE '\s(call|blx?|blr)\s' || true)
    if [ "$count" -gt 15 ] || [ "$jumps" -eq 0 ] || [ "$calls" -ne 0 ]; then
        printf 'vek_%s is more than a test and a jump:\n%s\n' "$name" "$code"
        exit 1
    fi
done
