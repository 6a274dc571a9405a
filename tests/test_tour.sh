#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: test_tour.sh SOURCE LIBRARY CC CXX - compiles each sample of the documents as it is shown,
# as C and as C++, and compares its output and warnings with those that follow it in the document.
set -eu
source=$1 library=$2 cc=$3 cxx=$4
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export LC_ALL=C LD_LIBRARY_PATH="${library%/*}"
for document in README.md docs/tour.md docs/debug-output.md; do
    awk -v name="$folder/sample" '/^```/ {inside = 0} inside {print >(name ".c")}
        /^```c$/ {inside = 1; name = name "_"}' "$source/$document"
    for language in "$cc -std=c99 -x c" "$cxx -std=c++17 -x c++"; do
        for sample in "$folder"/sample*.c; do
            # shellcheck disable=SC2086 # the compiler with its options
            $language -Wall -Wextra -Wpedantic -Werror -I"$source" "$sample" -x none "$library" \
                -o "$folder/run"
            "$folder/run" 2>>"$folder/messages"
        done >"$folder/out"
        sed -n '/^```text$/,/^```$/{/^```/d;p}' "$source/$document" | diff - "$folder/out"
        sed -n '/^veklib.* assertion .* failed$/p' "$source/$document" >"$folder/warnings"
        grep -xFf "$folder/warnings" "$folder/messages" | diff "$folder/warnings" -
        rm "$folder/messages"
    done
    rm "$folder"/sample*
done
