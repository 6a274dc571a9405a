#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: test_package.sh SOURCE BUILD CC CXX - installs the build into a folder and uses
# it from outside: by CMake, by pkg-config, moved to another place. Runs the README's samples.
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
    -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_PREFIX_PATH="$folder/prefix" \
    -DREADME="$source/README.md" >/dev/null
cmake --build "$folder/build" >"$folder/log" || {
    cat "$folder/log"
    exit 1
}
for sample in "$folder"/build/sample_?; do
    "$sample"
done >"$folder/out"
# What the samples print stands behind them in the README.
sed -n '/^```text$/,/^```$/{/^```/d;p}' "$source/README.md" | diff - "$folder/out"

library=$(dirname "$(find "$folder/prefix" -name libveklib.so)")
export PKG_CONFIG_PATH="$library/pkgconfig"
# shellcheck disable=SC2046 # the flags are words
"$cc" "$folder/build/sample_1.c" -o "$folder/sample" $(pkg-config --cflags --libs veklib)
LD_LIBRARY_PATH=$library "$folder/sample" >/dev/null
