#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: demo.sh LOGDIGEST FOLDER - shows logdigest on a sample log and on this machine's package log,
# its debug output on the terminal, in a shared file and through a print function, and the balance of a
# trace of its allocations. FOLDER receives what is written.
set -eu
logdigest=$(realpath "$1")
here=$(realpath "$(dirname "$0")")
mkdir -p "$2"
cd "$2"

printf '\n== A sample log of a small gateway\n'
"$here/make_sample_log.sh" >sample.log
"$logdigest" -n 3 -e 2 sample.log

if [ -r /var/log/dpkg.log ]; then
    printf '\n== The package log of this machine\n'
    "$logdigest" -n 3 /var/log/dpkg.log || echo "(nothing to digest there)"
fi

printf '\n== Debug output as examples/logdigest/debug.conf wants it: on the terminal ...\n'
"$logdigest" -n 2 -d "$here/debug.conf" sample.log | grep -E '^(=|Key|rank)'
printf '... in a file that two flags share ...\n'
tail -n 3 logdigest-debug.log
printf '... and through a function of the program\n'
VEK_DEBUG_CONFIG=summary=1 "$logdigest" -p sample.log 2>&1 >/dev/null | tail -n 1

printf '\n== Every allocation, with VEK_MALLOC_TRACE=1\n'
VEK_MALLOC_TRACE=1 VEK_MALLOC_TRACE_FILE=trace.txt "$logdigest" -d "$here/debug.conf" sample.log \
    >/dev/null
head -n 2 trace.txt
"$here/trace_balance.sh" trace.txt
