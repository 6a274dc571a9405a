#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: test_logdigest.sh EXAMPLES COMMAND... - tests what logdigest prints, its errors, its memory
# and its debug output. COMMAND runs logdigest, under an emulator if necessary.
set -eu
here=$1/logdigest
shift
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
failures=0

fault() {
    printf 'FAILED %s\n' "$*"
    failures=$((failures + 1))
}

# expect_error NAME TEXT: expects that logdigest refuses the file, with that text and exit code 1.
expect_error() {
    status=0
    "$logdigest" "$1" >"$folder/out" 2>"$folder/err" || status=$?
    [ "$status" -eq 1 ] || fault "$1: exit code $status"
    grep -qF -- "$2" "$folder/err" || fault "$1: $(cat "$folder/err")"
    [ ! -s "$folder/out" ] || fault "$1: output before the error"
}

printf '#!/bin/sh\nexec %s "$@"\n' "$*" >"$folder/logdigest"
chmod +x "$folder/logdigest"
logdigest=$folder/logdigest

"$here/make_sample_log.sh" >"$folder/sample.log"
"$logdigest" -n 2 -e 3 - <"$folder/sample.log" >"$folder/out" || fault "the sample log"
cat >"$folder/expected" <<END
log         standard input
lines       4000
span        Dec 31 11:24:01 to Jan  1 11:44:54 (1 d 00:20:53)
busiest     of 9 programs or packages
        1705  kernel
         695  cron
unreadable  17 lines
  no time stamp in line 124: "-- MARK --", says parse_line()
  no time stamp in line 351: "Dec 31 13", says parse_line()
  no program name in line 451: "Dec 31 14:08:55 gateway message without a progra", \
says parse_program()
  and 14 more
END
diff "$folder/expected" "$folder/out" || fault "output for the sample log"

cat >"$folder/mixed.log" <<'END'
2026-11-22T23:59:59.25+01:00 gate sshd[7]: over the zone
2026-11-22 23:00:01 startup archives unpack
2026-11-22 23:00:02 status installed libc6:armel 2.36
2026-11-22 23:00:03 upgrade libc6:armel 2.36 2.37
2026-13-22 23:00:03 upgrade libc6:armel 2.36 2.37
END
"$logdigest" "$folder/mixed.log" >"$folder/out" || fault "mixed lines"
for text in '(0 d 00:00:04)' '2  libc6' '1  sshd' '1  (dpkg itself)' 'unreadable  1 lines'; do
    grep -qF -- "$text" "$folder/out" || fault "mixed lines: no $text"
done

: >"$folder/empty"
printf 'one\ntwo\n' >"$folder/prose"
printf 'Nov 22 22:04:01 host cron: x\n\0' >"$folder/binary"
head -c 100000 /dev/zero | tr '\0' 'x' >"$folder/endless"
expect_error "$folder/empty" "empty: empty"
expect_error "$folder/prose" "no line could be read as a log line"
expect_error "$folder/binary" "line 2: not a text file"
expect_error "$folder/endless" "line 1: longer than 65536 bytes"
expect_error "$folder/missing" "missing: No such file or directory"
expect_error "$folder" "Is a directory"
"$logdigest" -x 2>/dev/null && fault "unknown option"
"$logdigest" "$folder/mixed.log" >/dev/full 2>/dev/null && fault "full disk"

VEK_MALLOC_TRACE=1 VEK_MALLOC_TRACE_FILE=$folder/trace "$logdigest" "$folder/sample.log" \
    >/dev/null || fault "traced"
"$here/trace_balance.sh" "$folder/trace" >"$folder/out" || fault "leak: $(cat "$folder/out")"

cd "$folder"
"$logdigest" -n 2 -d "$here/debug.conf" "$folder/sample.log" >"$folder/out" || fault "debug output"
grep -q '^rank 2: cron$' "$folder/out" || fault "debug output on the terminal"
tail -n 2 logdigest-debug.log >"$folder/out"
printf 'line 3851: no time stamp\n4000 lines, 9 names, 17 faults\n' | diff - "$folder/out" ||
    fault "debug output in a file"
VEK_DEBUG_CONFIG=summary "$logdigest" -p "$folder/sample.log" 2>&1 >/dev/null |
    grep -q '^logdigest (debug): 4000 lines' || fault "debug output to a function"

exit "$failures"
