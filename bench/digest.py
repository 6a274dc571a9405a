#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: digest.py LOGDIGEST DIGEST_GLIB HEAP MAKE_LOG FOLDER

Prints what a whole program takes: LOGDIGEST (examples/logdigest) beside one that does the same with
GLib. Both read logs of a million lines in FOLDER, which the script MAKE_LOG writes, from 10, 300
and 3,000 programs. Their reports must be equal byte for byte. The preloaded library HEAP reports
the memory.
"""
import os
import statistics
import subprocess
import sys

LINES = 1_000_000
PROGRAMS = (10, 300, 3000)
TURNS = 5
LEGEND = f"""\
ms: the least processor time of {TURNS} turns; KB: the medians of their peaks.
private: what the process has changed; resident: with the pages of files that it shares."""


def write_log(script, path, *numbers):
    with open(path, "w", encoding="ascii") as file:
        subprocess.run([script, *map(str, numbers)], stdout=file, check=True)


def check_reports(programs, path):
    reports = [
        subprocess.run([program, path], stdout=subprocess.PIPE, check=True).stdout
        for program in programs
    ]
    if any(report != reports[0] for report in reports):
        sys.exit(f"the programs report different things of {path}")


def milliseconds(program, path):
    """The processor time: other programs change it less than the time by the clock."""
    with subprocess.Popen([program, path], stdout=subprocess.DEVNULL) as process:
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"{program} {path} failed: {process.returncode}")
    return (usage.ru_utime + usage.ru_stime) * 1000


def kilobytes(program, path, heap):
    """The largest private memory, resident memory and heap."""
    command = ["env", "LD_PRELOAD=" + os.path.realpath(heap), program, path]
    run = subprocess.run(command, capture_output=True, check=True, text=True)
    heap_peak, private, resident = map(int, run.stderr.split()[-3:])
    return private, resident, heap_peak / 1024


def measure(programs, path, heap):
    """The least milliseconds, and the medians of kilobytes(); of each first ours, then the
    peer's."""
    times = [[], []]
    memory = [[], []]
    for _ in range(TURNS):
        for number, program in enumerate(programs):
            times[number].append(milliseconds(program, path))
            memory[number].append(kilobytes(program, path, heap))
    medians = [[statistics.median(turns) for turns in zip(*of_program)] for of_program in memory]
    return [min(turns) for turns in times] + [value for pair in zip(*medians) for value in pair]


def main():
    ours, peer, heap, script, folder = sys.argv[1:]
    os.makedirs(folder, exist_ok=True)
    path = os.path.join(folder, "digest.log")
    write_log(script, path)
    check_reports([ours, peer], path)
    print(f"{'':20}{'ms':>18}{'private KB':>18}{'resident KB':>18}{'heap KB':>18}")
    print(f"{'programs in the log':20}" + f"{'veklib':>9}{'GLib':>9}" * 4)
    for number in PROGRAMS:
        write_log(script, path, LINES, number)
        check_reports([ours, peer], path)
        row = measure([ours, peer], path, heap)
        print(f"{number:<20,}" + "".join(f"{value:9,.0f}" for value in row), flush=True)
    os.remove(path)
    print(LEGEND)


if __name__ == "__main__":
    main()
