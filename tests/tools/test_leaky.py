#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: test_leaky.py VEK_TRACE RECORDER LEAKY PLUGIN [EMULATOR...] - the whole way from a program
to the report. Runs leaky under the recorder (libvekrecord.so; vek-record is beside it) and compares
the report with what the comments in leaky's sources expect. LEAKY and PLUGIN have their debug
information; stripped copies are in device/ beside them and the debug files in debug/. Exits with 77
if there is no VEK_TRACE."""
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).parent
SOURCES = ["leaky.c", "leaky_inline.cpp", "leaky_plugin.c"]
vek_trace, recorder, leaky, plugin = (os.path.realpath(path) for path in sys.argv[1:5])
emulator = sys.argv[5:]
failures = []


def expectations():
    """The comments `expect: KIND WHAT FUNCTION COUNT`, with file and line."""
    for name in SOURCES:
        for number, line in enumerate((HERE / name).read_text().splitlines(), 1):
            found = re.search(r"expect: (\S+) (\S+) ([^ ]+)(?: (\w+))?", line)
            if found and not line.startswith(" *"):
                yield *found.groups(), name, number


def check(case, condition, text):
    if not condition:
        failures.append(f"{case}: {text}")


def record(case, folder, program, arguments, expected_status=0):
    """Runs the program natively with vek-record, under an emulator with the library alone: the
    script's shell is a program of this machine."""
    if emulator:
        os.makedirs(folder)
        command = [*emulator, "-E", f"LD_PRELOAD={recorder}", "-E", f"VEK_RECORD_DIR={folder}"]
    else:
        script = os.path.join(os.path.dirname(recorder), "vek-record")
        command = [script, "-o", folder, "--"]
    status = subprocess.run([*command, program, *arguments], stderr=subprocess.PIPE).returncode
    check(case, status == expected_status, f"exit status {status}, not {expected_status}")


def report(*arguments):
    output = subprocess.run([vek_trace, "report", "--format", "json", *arguments],
                            stdout=subprocess.PIPE)
    if output.returncode != 0:
        sys.exit(f"vek-trace report {arguments} failed with {output.returncode}")
    return json.loads(output.stdout)


def places(frames):
    return [(frame["function"], os.path.basename(frame.get("file", "")), frame.get("line"))
            for frame in frames]


def compare(case, data, what):
    """Compares rows and faults with the expectations whose WHAT is among those named."""
    rows = {}
    for row in data["rows"]:
        found = places(row["frames"])
        rows[found[0]] = (row, found)
    wanted = set()
    inlined_into = [item for item in expectations() if item[0] == "inlined-into"]
    for kind, name, function, count, file, line in expectations():
        place = (function, file, line)
        if kind not in ("live", "short-lived") or name not in what:
            continue
        wanted.add(place)
        if place not in rows:
            check(case, False, f"no site {place}")
            continue
        row, found = rows[place]
        blocks = row["live"]["blocks"] if kind == "live" else row["short_lived"]
        fits = blocks > 0 if count == "some" else blocks == int(count)
        check(case, fits, f"{place}: {blocks} blocks, expected {count}")
        for _, outer, into, _, outer_file, outer_line in inlined_into:
            if outer == name:
                check(case, (into, outer_file, outer_line) in found, f"{place}: not into {into}")
    live = {found[0] for row, found in rows.values() if row["live"]["blocks"]}
    unexpected = live - wanted
    check(case, not unexpected, f"unexpected sites {unexpected}")
    compare_fault(case, data, "twice" in what)


def compare_fault(case, data, expected):
    check(case, len(data["faults"]) == (1 if expected else 0), f"faults {data['faults']}")
    if not expected or not data["faults"]:
        return
    fault = data["faults"][0]
    roles = {"allocated": "allocated", "first": "released_first", "again": "again"}
    for kind, _, function, role, file, line in expectations():
        if kind == "twice":
            found = places(fault[roles[role]])
            check(case, (function, file, line) in found, f"{role}: {found}, not {function}")


if not os.path.exists(vek_trace):
    print(f"there is no {vek_trace}")
    sys.exit(77)
ALWAYS = ["list", "dictionary", "inlined", "string", "growing", "line", "c++", "twice"]


def main():
    built = os.path.dirname(leaky)
    stripped = os.path.join(built, "device", os.path.basename(leaky))
    symbols = ["--debug-dir", os.path.join(built, "debug")]
    with tempfile.TemporaryDirectory() as folder:
        def path(name):
            return os.path.join(folder, name)

        # Children of an emulated program are programs of this machine to the kernel.
        children = [] if emulator else ["exec"]
        record("whole", path("whole"), leaky, ["plugin", plugin, "fork", *children])
        whole = report(path("whole"))
        compare("whole", whole, ALWAYS + ["plugin"] + (["child"] if children else []))
        check("whole", len(whole["processes"]) == 1 + len(children), "processes")

        # Where nothing has debug information, the site is a function of the symbol table or none.
        record("killed", path("killed"), stripped, ["kill"], -signal.SIGKILL)
        compare("killed", report(path("killed"), *symbols), ALWAYS)
        bare = report(path("killed"))
        check("killed", any("+0x" in row["frames"][0]["function"] for row in bare["rows"]), "bare")
        check("killed", any("leaky" in module["problem"] for module in bare["missing"]), "missing")

        # A process that ended before its first event leaves an empty file, or one without a header.
        pathlib.Path(path("killed"), "empty.1.vekrec").write_bytes(b"")
        pathlib.Path(path("killed"), "empty.2.vekrec").write_bytes(bytes(4096))
        with_empty = report(path("killed"), *symbols)
        compare("empty", with_empty, ALWAYS)
        check("empty", len(with_empty["processes"]) == 1, "an empty file counts as a process")
        for name in ("empty.1.vekrec", "empty.2.vekrec"):
            check("empty", name in str(with_empty["processes"]), f"{name} is not mentioned")

        # After exec there are two files of one process. The status is that of the second one.
        if not emulator:
            first = next(pathlib.Path(path("killed")).glob("leaky.*.vekrec"))
            second = shutil.copy(first, first.with_suffix(".2.vekrec"))
            ends = {process["input"]: process.get("status")
                    for process in report(path("killed"))["processes"]}
            check("exec", ends == {str(first): None, str(second): 137}, f"ends {ends}")
            os.remove(second)

        # What holds no trace line must not pass as a run without leaks.
        for content in (b"", b"0x401190: vek_mal", b"text\nand more", b"VEKREC9\n" + bytes(99)):
            pathlib.Path(path("no-trace")).write_bytes(content)
            status = subprocess.run([vek_trace, "report", "--fail-on-leak", path("no-trace")],
                                    stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            check("no trace", status.returncode == 2, f"{content}: {status.returncode}")

        # The library's own lines lead to the code that the library charges: for dictionaries and
        # the like its own.
        lines = path("lines")
        variables = {"VEK_MALLOC_TRACE": "1", "VEK_MALLOC_TRACE_FILE": lines}
        subprocess.run([*emulator, leaky, "maps", path("maps")], check=True,
                       env={**os.environ, **variables})
        traced = report("--modules", path("maps"), lines)
        charged = {tuple(places(row["frames"])[0]) for row in traced["rows"]}
        for kind, name, function, _, file, line in expectations():
            if kind == "live" and name in ("list", "inlined", "string", "growing", "c++"):
                check("lines", (function, file, line) in charged, f"no site {function}")
        for key in ("live", "peak"):
            sums = [data["totals"][key]["bytes"] for data in (traced, report(path("killed")))]
            check("lines", sums[0] == sums[1], f"{key} bytes: lines and events say {sums}")

    for failure in failures:
        print(failure)
    sys.exit(1 if failures else 0)


main()
