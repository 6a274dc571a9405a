#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: trace.py VEK_TRACE TRACE_LINES TRACE_SYMBOLS FOLDER

Prints what it takes to read the memory history of a program, by VEK_TRACE (tools/trace) beside
heaptrack and glibc's mtrace script, each of which reads the same history in its own format; and
what it takes to find the functions and lines of addresses, beside addr2line of binutils and of
elfutils. The program TRACE_LINES writes the histories to FOLDER; TRACE_SYMBOLS finds the addresses,
which are its own.
"""
import glob
import os
import re
import shlex
import subprocess
import sys

EVENTS = 10_000_000
LIVE = 1_000_000
TURNS = 3
ADDRESSES = 100_000
FEW_ADDRESSES = 500  # eu-addr2line takes so long
# By the name of the format; each command runs in FOLDER. heaptrack works in two steps.
COMMANDS = {
    "lines": "{vek_trace} report trace.lines",
    "recording": "{vek_trace} report trace.recording",
    "heaptrack": "{interpret} <trace.heaptrack >trace.steps 2>trace.log"
                 " && heaptrack_print -f trace.steps",
    "mtrace": "mtrace trace.mtrace",
}
NAMES = {"lines": "vek-trace, trace lines", "recording": "vek-trace, recording",
         "heaptrack": "heaptrack", "mtrace": "mtrace"}
GOALS = {"lines": "3 s, 150 MB", "recording": "ratio 1"}
LEGEND = f"""\
s: the least processor time of {TURNS} turns; MB: the largest resident memory. The ratios are the
others' figures over those of the first line (of addresses: of the time of one)."""


def find_interpreter():
    places = glob.glob("/usr/lib/heaptrack/libexec/heaptrack_interpret")
    places += glob.glob("/usr/lib/*/heaptrack/libexec/heaptrack_interpret")
    if not places:
        sys.exit("there is no heaptrack_interpret in /usr/lib; it is in the package heaptrack")
    return places[0]


def measure(command, folder):
    """The processor seconds and the resident megabytes of a shell command."""
    with subprocess.Popen(["sh", "-c", command], cwd=folder, stdout=subprocess.DEVNULL) as process:
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode not in (0, 1):  # mtrace reports leaks with 1
        sys.exit(f"{command} failed: {process.returncode}")
    return usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def measure_all(commands, folder):
    """For each command the least seconds and the most megabytes; the commands take turns."""
    turns = [[measure(command, folder) for command in commands] for _ in range(TURNS)]
    return [(min(seconds for seconds, _ in measured), max(megabytes for _, megabytes in measured))
            for measured in zip(*turns)]


def clean(folder):
    for path in glob.glob(os.path.join(folder, "trace.*")):
        os.remove(path)


def measure_histories(trace_lines, commands, folder, events, live):
    for form in commands:
        with open(os.path.join(folder, "trace." + form), "wb") as file:
            subprocess.run([trace_lines, form, str(events), str(live)], stdout=file, check=True)
    measured = measure_all(commands.values(), folder)
    clean(folder)
    return measured


def print_histories(vek_trace, trace_lines, folder):
    words = {"vek_trace": shlex.quote(vek_trace), "interpret": find_interpreter()}
    commands = {form: command.format(**words) for form, command in COMMANDS.items()}
    print(f"{'reading':24}{'events':>12}{'live blocks':>13}"
          f"{'s':>9}{'ratio':>9}{'MB':>9}{'ratio':>9}")
    of_forms = measure_histories(trace_lines, commands, folder, EVENTS, LIVE)
    for form, (seconds, megabytes) in zip(commands, of_forms):
        print(f"{NAMES[form]:24}{EVENTS:12,}{LIVE:13,}{seconds:9.2f}{seconds / of_forms[0][0]:9.2f}"
              f"{megabytes:9.0f}{megabytes / of_forms[0][1]:9.2f}"
              + (f"  (goals: {GOALS[form]})" if form in GOALS else ""), flush=True)
    for events in EVENTS // 10, EVENTS:
        for form in "lines", "recording":
            (seconds, megabytes), = measure_histories(
                trace_lines, {form: commands[form]}, folder, events, LIVE // 10)
            print(f"{NAMES[form]:24}{events:12,}{LIVE // 10:13,}{seconds:9.2f}{'':9}"
                  f"{megabytes:9.0f}", flush=True)


def write_addresses(program, path, count):
    """Writes so many addresses at equal distances in the program's code."""
    sections = subprocess.run(["readelf", "-SW", program], stdout=subprocess.PIPE, check=True,
                              text=True).stdout
    start, size = (int(word, 16) for word in
                   re.search(r" \.text +PROGBITS +(\w+) \w+ (\w+)", sections).groups())
    with open(path, "w", encoding="ascii") as file:
        file.writelines(f"{start + i * size // count:#x}\n" for i in range(count))


def print_addresses(trace_symbols, folder):
    program = shlex.quote(trace_symbols)
    write_addresses(trace_symbols, os.path.join(folder, "trace.many"), ADDRESSES)
    write_addresses(trace_symbols, os.path.join(folder, "trace.few"), FEW_ADDRESSES)
    rows = [("vek-trace", ADDRESSES, f"{program} {program} <trace.many"),
            ("addr2line -fiC", ADDRESSES, f"addr2line -fiC -e {program} <trace.many"),
            ("eu-addr2line -fiC", FEW_ADDRESSES, f"eu-addr2line -fiC -e {program} <trace.few")]
    measured = measure_all([command for _, _, command in rows], folder)
    clean(folder)
    print(f"\n{'finding functions, lines':24}{'addresses':>12}{'':13}{'s':>9}{'ratio':>9}{'MB':>9}")
    for (name, count, _), (seconds, megabytes) in zip(rows, measured):
        ratio = seconds / count / (measured[0][0] / ADDRESSES)
        print(f"{name:24}{count:12,}{'':13}{seconds:9.2f}{ratio:9.2f}{megabytes:9.0f}"
              + ("           (goal: 2 s)" if name == "vek-trace" else ""))


def main():
    vek_trace, trace_lines, trace_symbols, folder = map(os.path.realpath, sys.argv[1:])
    os.makedirs(folder, exist_ok=True)
    print_histories(vek_trace, trace_lines, folder)
    print_addresses(trace_symbols, folder)
    print(LEGEND)


if __name__ == "__main__":
    main()
