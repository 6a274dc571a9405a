#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: trace_balance.sh TRACE - counts the blocks that a trace of allocations shows as allocated
# and as released. If a block was not released, prints the line of its allocation and fails.
awk '
function take(block, line) { if (block != "(nil)") { ++allocated; owner[block] = line } }
function release(block) { if (block in owner) { ++released; delete owner[block] } }
/vek_free\(/ { sub(/.*vek_free\(/, ""); sub(/\).*/, ""); release($0); next }
/ => 0x| => \(nil\) \[/ {
    line = $0
    old = line
    result = line
    sub(/.* => /, "", result)
    sub(/ .*/, "", result)
    if (sub(/.*vek_realloc\(/, "", old)) {
        size = old
        sub(/,.*/, "", old)
        sub(/^[^,]*, /, "", size)
        if (old != "(nil)" && (result != "(nil)" || size ~ /^0\)/)) release(old)
    }
    take(result, line)
}
END {
    for (block in owner) print "not released: " owner[block]
    left = allocated - released
    printf "%d blocks allocated, %d released, %d left\n", allocated, released, left
    exit left != 0
}' "$1"
