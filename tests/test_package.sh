#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: test_package.sh SOURCE BUILD GENERATOR CC CXX - installs the build into a folder and uses it
# from outside: moved to another place, by CMake and by pkg-config, for which that place is a sysroot.
# Builds and runs the samples of the documents; what they print stands behind them there.
set -eu
source=$1
build=$2
generator=$3
cc=$4
cxx=$5
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# One component, which is all there is, so that the list of a real installation's files stays.
cmake --install "$build" --component Unspecified --prefix "$folder/first" >/dev/null
root=$folder/root
prefix=$root$folder/first
mkdir -p "$root$folder"
mv "$folder/first" "$prefix"

cmake -S "$source/tests/package" -B "$folder/build" -G "$generator" -DCMAKE_C_COMPILER="$cc" \
    -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_PREFIX_PATH="$prefix" -DSOURCE="$source" >/dev/null
cmake --build "$folder/build" >"$folder/log" || {
    cat "$folder/log"
    exit 1
}
mkdir "$folder/run"
cd "$folder/run"
for document in README.md docs/tour.md docs/debug-output.md; do
    name=$(basename "$document" .md)
    for sample in "$folder/build/$name"_???; do
        "$sample" 2>"$folder/messages"
    done >"$folder/out"
    sed -n '/^```text$/,/^```$/{/^```/d;p}' "$source/$document" | diff - "$folder/out" || {
        echo "$document prints something else"
        exit 1
    }
done

pc=$(find "$prefix" -name veklib.pc)
library=$(dirname "$(dirname "$pc")")
export PKG_CONFIG_SYSROOT_DIR="$root" PKG_CONFIG_LIBDIR="$library/pkgconfig"
flags=$(pkg-config --cflags --libs veklib)
# shellcheck disable=SC2086 # the flags are words
"$cc" "$folder/build/README_101.c" -o "$folder/sample" $flags
LD_LIBRARY_PATH=$library "$folder/sample" >/dev/null
