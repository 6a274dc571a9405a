#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: demo.sh LOGDIGEST FOLDER - runs logdigest on a sample log, on this machine's package log,
# and once more with every allocation traced.
set -eu
logdigest=$1
folder=$2
here=$(dirname "$0")
sample=$folder/sample.log
trace=$folder/trace.txt

echo
echo "== A sample log of a small gateway"
"$here/make_sample_log.sh" >"$sample"
"$logdigest" -n 5 "$sample"

if [ -r /var/log/dpkg.log ]; then
    echo
    echo "== The package log of this machine"
    "$logdigest" -n 5 /var/log/dpkg.log || echo "(nothing to digest there)"
fi

echo
echo "== The sample again, with VEK_MALLOC_TRACE=1"
VEK_MALLOC_TRACE=1 VEK_MALLOC_TRACE_FILE=$trace "$logdigest" "$sample" >/dev/null
head -n 3 "$trace"
echo "..."
"$here/trace_balance.sh" "$trace"
