#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: test_privileged.sh PROGRAM - with its user's privileges, PROGRAM obeys the environment, and
# the programs that it starts inherit none of the library's files; with another group's privileges,
# PROGRAM ignores the environment. Exits with 77 where no program with such privileges can be made.
set -eu
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cp "$1" "$folder/program"

# run: sets `status` to the program's exit status, and `found` to the number of files that it wrote
# because of the environment.
run() {
    status=0
    VEK_FATAL_WARNINGS=1 VEK_MALLOC_TRACE=1 VEK_MALLOC_TRACE_FILE=$folder/file.trace \
        VEK_DEBUG_CONFIG=mainfile=$folder/file.main "$folder/program" >"$folder/out" 2>&1 ||
        status=$?
    found=$(find "$folder" -name 'file.*' | wc -l)
    rm -f "$folder"/file.*
}

run
[ "$found $status" = "2 134" ] || { echo "FAILED: without privileges $found, $status"; exit 1; }
! grep 'file\.' "$folder/out" || { echo "FAILED: files are inherited"; exit 1; }

own=$(id -g)
group=$(id -G | tr ' ' '\n' | grep -vx "$own" | head -n 1)
[ "$(id -u)" -ne 0 ] || group=65534
[ -n "$group" ] || { echo "no other group to run with"; exit 77; }
chgrp "$group" "$folder/program"
chmod g+s "$folder/program"
run
[ "$status" -ne 77 ] || { echo "set-group-id is not obeyed in $folder"; exit 77; }
[ "$found $status" = "0 0" ] || { echo "FAILED: with privileges $found, $status"; exit 1; }
