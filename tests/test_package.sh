#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: test_package.sh SOURCE BUILD GENERATOR CC - installs the build into a folder, moves that
# folder elsewhere, and builds a program against it: with CMake, and with pkg-config, for which the
# new place is a sysroot.
set -eu
source=$1
build=$2
generator=$3
cc=$4
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# Names the only component: then CMake does not overwrite the list of files of a real installation.
cmake --install "$build" --component Unspecified --prefix "$folder/first" >/dev/null
root=$folder/root
prefix=$root$folder/first
mkdir -p "$root$folder"
mv "$folder/first" "$prefix"

sed -n '/^```c$/,/^```$/{/^```/d;p}' "$source/README.md" >"$folder/sample.c"
{
    cmake -S "$source/tests/package" -B "$folder/build" -G "$generator" -DCMAKE_C_COMPILER="$cc" \
        -DCMAKE_PREFIX_PATH="$prefix" -DSAMPLE="$folder/sample.c" && cmake --build "$folder/build"
} >"$folder/log" || {
    cat "$folder/log"
    exit 1
}
"$folder/build/sample" >/dev/null
if [ -x "$prefix/bin/vek-trace" ]; then
    "$prefix/bin/vek-trace" run --fail-on-leak -o "$folder/report" -- "$folder/build/sample" \
        >/dev/null
    grep -q '^live at the end .* 0 blocks' "$folder/report"
fi

pc=$(find "$prefix" -name veklib.pc)
library=$(dirname "$(dirname "$pc")")
export PKG_CONFIG_SYSROOT_DIR="$root" PKG_CONFIG_LIBDIR="$library/pkgconfig"
flags=$(pkg-config --cflags --libs veklib)
# shellcheck disable=SC2086 # the flags are words
"$cc" "$folder/sample.c" -o "$folder/sample" $flags
LD_LIBRARY_PATH=$library "$folder/sample" >/dev/null
