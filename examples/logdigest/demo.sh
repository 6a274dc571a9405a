#!/bin/sh
# SPDX-License-Identifier: MIT
# usage: demo.sh LOGDIGEST VEK_TRACE FOLDER - runs logdigest on a generated log and on one of this
# machine, shows where its debug output goes, what a trace of its allocations says, and how
# vek-trace finds a leak. All files are written to FOLDER.
set -eu
logdigest=$(realpath "$1")
vek_trace=$(realpath "$2")
here=$(realpath "$(dirname "$0")")
mkdir -p "$3"
cd "$3"
unset VEK_DEBUG_CONFIG VEK_FATAL_WARNINGS VEK_MALLOC_TRACE VEK_MALLOC_TRACE_FILE

title() {
    printf '\n== %s\n' "$*"
}

# Prints a command line as a user would type it, then runs it.
run() {
    printf '\n$ logdigest %s\n' "$*"
    "$logdigest" "$@"
}

real_log() {
    for log in /var/log/dpkg.log /var/log/dpkg.log.1 /var/log/syslog /var/log/messages; do
        if [ -s "$log" ] && [ -r "$log" ]; then
            echo "$log"
            return
        fi
    done
}

title 'logdigest, an application that uses this library'
cat <<'END'
It tells what an operator wants to know of a log first: the time that it spans, who writes most of
it, and which lines cannot be read. Its settings are a dictionary; a hash table, whose keys are
interned names, counts the lines of each program; a list of errors keeps what could not be read.
Families in use: memory, string helpers, lists, hash tables, names, values, dictionaries, typed
dictionaries, errors, debug output.
END

title 'A generated log: 4,000 lines of a small gateway, some of them broken on purpose'
cp "$here/debug.conf" debug.conf
"$here/make_sample_log.sh" >sample.log
run -n 3 -e 2 sample.log

log=$(real_log)
if [ -n "$log" ]; then
    title "Real input: $log of this machine"
    run -n 3 "$log" || echo '(no log that logdigest can read)'
else
    title 'Real input: there is no log to read in /var/log; try one of your own'
fi

title 'Debug output: a configuration file switches flags on and says where their messages go'
printf '\n$ logdigest -n 2 -d debug.conf sample.log\n'
"$logdigest" -n 2 -d debug.conf sample.log >terminal.txt
echo 'The flag "ranking" goes to the terminal:'
grep '^rank' terminal.txt | sed 's/^/  /'
echo 'The flags "faults" and "summary" share logdigest-debug.log, which ends with:'
tail -n 3 logdigest-debug.log | sed 's/^/  /'
printf '\n$ VEK_DEBUG_CONFIG=summary=1 logdigest -p sample.log\n'
echo 'The environment switches "summary" on; a function of the program prints it with a prefix:'
VEK_DEBUG_CONFIG=summary=1 "$logdigest" -p sample.log 2>&1 >/dev/null | sed 's/^/  /'

title 'Memory: a trace has a line for each allocation and each release'
printf '\n$ VEK_MALLOC_TRACE=1 VEK_MALLOC_TRACE_FILE=trace.txt logdigest sample.log\n'
VEK_MALLOC_TRACE=1 VEK_MALLOC_TRACE_FILE=trace.txt "$logdigest" sample.log >/dev/null
echo 'The first allocation and the release of its block:'
allocation=$(head -n 1 trace.txt)
block=${allocation#*=> }
printf '  %s\n  ' "$allocation"
grep -m 1 -F "vek_free(${block%% *})" trace.txt
cat <<'END'
Each line starts with the address of the code that asked. An allocation's line goes on with the
call, the block that it gave and a running number. The balance of the whole trace:
END
printf '  '
"$here/trace_balance.sh" trace.txt

title 'A leak: vek-trace runs the program and names the line that allocated what is left'
cat <<'END'
With -l, logdigest forgets to release the errors that it does not print. The library allocates them;
the report leads to the line of logdigest that made them.
END
printf '\n$ vek-trace run --top 3 -- logdigest -l sample.log\n'
"$vek_trace" run --top 3 -o leak.txt -- "$logdigest" -l sample.log >/dev/null
sed 's/^/  /' leak.txt
printf '\n$ vek-trace run --format html -o leak.html -- logdigest -l sample.log\n'
"$vek_trace" run --format html -o leak.html -- "$logdigest" -l sample.log >/dev/null
echo "The same as a page for the browser: $3/leak.html"

title 'Where to read on'
cat <<END
docs/tour.md            each family in a few lines
docs/debug-output.md    debug output by example
docs/trace.md           from "my device grows" to the line of the source
examples/logdigest/     this application, in C
veklib/*.h              every function: what it does, who owns what, what failure gives

The files above (sample.log, debug.conf, logdigest-debug.log, trace.txt, leak.html) are in $3;
logdigest is $1.
END
