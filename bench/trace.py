#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: trace.py VEK_TRACE TRACE_LINES FOLDER [EVENTS]

Prints what it takes to read the memory history of a program with a million live blocks: VEK_TRACE
(tools/trace) beside heaptrack and glibc's mtrace script, each of which reads the same history in
its own format. The program TRACE_LINES writes them to FOLDER.
"""
import os
import shlex
import subprocess
import sys

EVENTS = 10_000_000
LIVE = 1_000_000
TURNS = 3
# By the name of the format; each command runs in FOLDER. heaptrack works in two steps.
COMMANDS = {
    "lines": "{vek_trace} report --format text trace.lines",
    "heaptrack": "/usr/lib/heaptrack/libexec/heaptrack_interpret < trace.heaptrack > trace.steps"
                 " 2> trace.log && heaptrack_print -f trace.steps",
    "mtrace": "mtrace trace.mtrace",
}
NAMES = {"lines": "vek-trace", "heaptrack": "heaptrack", "mtrace": "mtrace"}
LEGEND = f"""\
s: the least processor time of {TURNS} turns; MB: the largest resident memory. The ratios are the
peer's to those of vek-trace. The goals are under 3 s and 150 MB for 10 million events."""


def write_history(trace_lines, form, path, events):
    with open(path, "wb") as file:
        subprocess.run([trace_lines, form, str(events), str(LIVE)], stdout=file, check=True)


def measure(command, folder):
    """The processor seconds and the resident megabytes of a shell command."""
    with subprocess.Popen(["sh", "-c", command], cwd=folder, stdout=subprocess.DEVNULL) as process:
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode not in (0, 1):  # mtrace reports leaks with 1
        sys.exit(f"{command} failed: {process.returncode}")
    return usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def main():
    vek_trace, trace_lines, folder = sys.argv[1:4]
    events = int(sys.argv[4]) if len(sys.argv) > 4 else EVENTS
    os.makedirs(folder, exist_ok=True)
    paths = [os.path.join(folder, "trace." + form) for form in COMMANDS]
    for form, path in zip(COMMANDS, paths):
        write_history(trace_lines, form, path, events)
    turns = {form: [] for form in COMMANDS}
    for _ in range(TURNS):
        for form, command in COMMANDS.items():
            command = command.format(vek_trace=shlex.quote(os.path.realpath(vek_trace)))
            turns[form].append(measure(command, folder))
    for path in [*paths, *(os.path.join(folder, name) for name in ("trace.steps", "trace.log"))]:
        os.remove(path)

    print(f"{events:12,} events{'s':>9}{'ratio':>9}{'MB':>9}{'ratio':>9}")
    ours = None
    for form, measured in turns.items():
        seconds = min(seconds for seconds, _ in measured)
        megabytes = max(megabytes for _, megabytes in measured)
        ours = ours or (seconds, megabytes)
        print(f"{NAMES[form]:19}{seconds:9.2f}{seconds / ours[0]:9.1f}"
              f"{megabytes:9.0f}{megabytes / ours[1]:9.1f}")
    print(LEGEND)


if __name__ == "__main__":
    main()
