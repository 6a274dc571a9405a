#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: test_package.sh SOURCE BUILD CC CXX - installs the build into a folder and uses it from outside:
# moved to another place, by CMake and by pkg-config. Builds and runs the samples of the documents; what
# they print stands behind them there.
set -eu
source=$1
build=$2
cc=$3
cxx=$4
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

cmake --install "$build" --prefix "$folder/first" >/dev/null
mv "$folder/first" "$folder/prefix"

cmake -S "$source/tests/package" -B "$folder/build" -G Ninja -DCMAKE_C_COMPILER="$cc" \
    -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_PREFIX_PATH="$folder/prefix" -DSOURCE="$source" >/dev/null
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

library=$(dirname "$(find "$folder/prefix" -name libveklib.so)")
export PKG_CONFIG_PATH="$library/pkgconfig"
# shellcheck disable=SC2046 # the flags are words
"$cc" "$folder/build/README_101.c" -o "$folder/sample" $(pkg-config --cflags --libs veklib)
LD_LIBRARY_PATH=$library "$folder/sample" >/dev/null
