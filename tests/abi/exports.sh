#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: exports.sh LIBRARY MAP - the library exports what the map lists, needs libunwind and libc
# only, and runs nothing at load.
set -eu
library=$1
map=$2

listed=$(sed -n 's/^ *\(_*vek_[a-z_]*\);$/\1/p' "$map" | LC_ALL=C sort)
exported=$(readelf -W --dyn-syms "$library" |
    awk '$1 ~ /^[0-9]+:$/ && $5 != "LOCAL" && $7 != "UND" && $7 != "ABS" {
             sub(/@.*/, "", $8); print $8 }' |
    LC_ALL=C sort)
if [ "$listed" != "$exported" ]; then
    printf 'exports differ from the list:\nlisted:\n%s\nexported:\n%s\n' "$listed" "$exported"
    exit 1
fi

readelf -d "$library" | grep -q 'SONAME.*\[libveklib\.so\.1\]' || {
    echo "wrong SONAME"
    exit 1
}
extra=$(readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' |
    grep -vxE 'libunwind\.so\.8|libc\.so\.6|libgcc_s\.so\.1' || true)
if [ -n "$extra" ]; then
    echo "needs more than libunwind and libc: $extra"
    exit 1
fi

if readelf -d "$library" | grep -E '\((INIT|FINI|INIT_ARRAY|FINI_ARRAY)\)'; then
    echo "code that runs when the library is loaded or unloaded"
    exit 1
fi
