#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: exports.sh LIBRARY MAP - checks that the library exports exactly what the map lists, that
# the names that an application may define are weak, that it needs only libunwind and the C library
# (on x86 libgcc_s, too), and that it runs nothing when it is loaded.
set -eu
library=$1
map=$2

# expect_same WHAT LISTED FOUND
expect_same() {
    [ "$2" = "$3" ] && return
    printf '%s differ from the list:\nlisted:\n%s\nfound:\n%s\n' "$@"
    exit 1
}

listed=$(sed -n 's/^ *\(_*vek_[a-z0-9_]*\);$/\1/p' "$map" | LC_ALL=C sort)
exported=$(readelf -W --dyn-syms "$library" |
    awk '$1 ~ /^[0-9]+:$/ && $5 != "LOCAL" && $7 != "UND" && $7 != "ABS" {
             sub(/@.*/, "", $8); print $8 }' |
    LC_ALL=C sort)
expect_same exports "$listed" "$exported"

replaceable=$(sed -n 's/^ *__vek_default_\([a-z0-9_]*\);$/vek_\1/p' "$map" | LC_ALL=C sort)
weak=$(readelf -W --dyn-syms "$library" |
    awk '$5 == "WEAK" && $7 != "UND" { sub(/@.*/, "", $8); print $8 }' | LC_ALL=C sort)
expect_same "weak names" "$replaceable" "$weak"

# The library's own calls reach these, and the two switches of the trace, through the symbol table.
dynamic=$(sed -n 's/^ *\(vek_[a-z0-9_]*\);$/\1/p' "${map%map}dynamic" | LC_ALL=C sort)
expect_same "names that the library itself looks up" "$(printf '%s\n' "$replaceable" \
    vek_memory_disable_trace vek_memory_enable_trace | LC_ALL=C sort)" "$dynamic"

readelf -d "$library" | grep -q 'SONAME.*\[libveklib\.so\.1\]' || {
    echo "wrong SONAME"
    exit 1
}
extra=$(readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' |
    grep -vxE 'libunwind\.so\.8|libc\.so\.6|libgcc_s\.so\.1|ld-linux.*' || true)
if [ -n "$extra" ]; then
    echo "needs more than libunwind and libc: $extra"
    exit 1
fi

# The compiler's start files, if they are linked, add one entry; any other entry is a constructor.
bits=$(readelf -h "$library" | sed -n 's/.*Class: *ELF//p')
size=$(readelf -d "$library" | sed -n 's/.*(INIT_ARRAYSZ) *\([0-9]*\).*/\1/p')
constructors=$((${size:-0} * 8 / bits))
if [ "$constructors" -gt "$(readelf -d "$library" | grep -c '(INIT)')" ]; then
    echo "$constructors load-time constructors"
    exit 1
fi
