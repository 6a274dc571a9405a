#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: instructions.sh OPERATIONS - instructions of each operation, counted by callgrind: the difference
# between 1,000 and 11,000 runs, so that what happens once does not count.
set -eu
operations=$1

count() {
    valgrind --tool=callgrind --callgrind-out-file=/dev/null "$operations" "$1" "$2" 2>&1 |
        sed -n 's/.*Collected : //p'
}

"$operations" | while read -r name; do
    few=$(count "$name" 1000)
    many=$(count "$name" 11000)
    printf '%-40s %5d\n' "$name" $(((many - few) / 10000))
done
