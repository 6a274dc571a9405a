#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Prints what a whole program takes: LOGDIGEST (examples/logdigest) beside the same with GLib.

Both read logs of a million lines in FOLDER, which the script MAKE_LOG writes, from 10, 300 and
3,000 programs. Their reports must be equal byte for byte. First come the milliseconds of processor
time (the least of several turns), then the peaks of resident memory (the median) and of the heap in
KB, which the preloaded library HEAP reports.
"""
import os
import statistics
import subprocess
import sys

LINES = 1_000_000
PROGRAMS = (10, 300, 3000)
TURNS = 5


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
    """The processor time: other programs hardly change it."""
    with subprocess.Popen([program, path], stdout=subprocess.DEVNULL) as process:
        _, process.returncode, usage = os.wait4(process.pid, 0)
    return (usage.ru_utime + usage.ru_stime) * 1000


def peaks(program, path, heap):
    """The peaks of resident memory in KB, and of the heap in bytes."""
    command = ["env", "LD_PRELOAD=" + os.path.realpath(heap), program, path]
    run = subprocess.run(command, capture_output=True, check=True, text=True)
    heap_peak, resident_peak = run.stderr.split()[-2:]
    return int(resident_peak), int(heap_peak)


def measure(programs, path, heap):
    """Milliseconds, resident KB and heap KB; of each first ours, then the peer's."""
    times = [[], []]
    highest = [[], []]
    for _ in range(TURNS):
        for number, program in enumerate(programs):
            times[number].append(milliseconds(program, path))
            highest[number].append(peaks(program, path, heap))
    resident = [statistics.median(peak[0] for peak in turns) for turns in highest]
    return [min(turns) for turns in times] + resident + [turns[0][1] / 1024 for turns in highest]


def main():
    ours, peer, heap, script, folder = sys.argv[1:]
    os.makedirs(folder, exist_ok=True)
    path = os.path.join(folder, "digest.log")
    write_log(script, path)
    check_reports([ours, peer], path)
    print(f"{'':22}{'ms':>18}{'resident KB':>20}{'heap KB':>20}")
    print(f"{'programs in the log':22}" + f"{'veklib':>10}{'GLib':>10}" * 3)
    for number in PROGRAMS:
        write_log(script, path, LINES, number)
        check_reports([ours, peer], path)
        row = measure([ours, peer], path, heap)
        print(f"{number:<22,}" + "".join(f"{value:10,.0f}" for value in row), flush=True)
    os.remove(path)


if __name__ == "__main__":
    main()
