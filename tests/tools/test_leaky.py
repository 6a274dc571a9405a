#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: test_leaky.py VEK_TRACE RECORDER LEAKY [EMULATOR...] - the whole way from a program to the
report. Runs leaky under the recorder (libvekrecord.so; vek-record is beside it) and compares the
report with what the comments in leaky.c expect. LEAKY has its debug information; a stripped copy is
in device/ beside it and the debug file in debug/. Exits with 77 if there is no VEK_TRACE."""
import json
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import tempfile

vek_trace, recorder, leaky = (os.path.realpath(path) for path in sys.argv[1:4])
emulator = sys.argv[4:]


def expectations():
    """The comments `expect: KIND WHAT FUNCTION COUNT`, the last two as a place."""
    source = pathlib.Path(__file__).parent / "leaky.c"
    for number, line in enumerate(source.read_text().splitlines(), 1):
        found = re.search(r"expect: (\S+) (\S+) ([^ ]+)(?: (\w+))?", line)
        if found and not line.startswith(" *"):
            kind, what, function, count = found.groups()
            yield kind, what, count, (function, "leaky.c", number)


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
    assert status == expected_status, (case, status)


def report(*arguments):
    command = [vek_trace, "report", "--format", "json", *arguments]
    return json.loads(subprocess.check_output(command))


def places(frames):
    return [(frame["function"], os.path.basename(frame.get("file", "")), frame.get("line"))
            for frame in frames]


def compare(case, data):
    """Compares rows and faults with the expectations."""
    rows = {places(row["frames"])[0]: row for row in data["rows"]}
    unexpected = {place for place, row in rows.items() if row["live"]["blocks"]}
    for kind, name, count, place in expectations():
        if kind not in ("live", "short-lived"):
            continue
        unexpected.discard(place)
        assert place in rows, (case, place)
        row = rows[place]
        blocks = row["live"]["blocks"] if kind == "live" else row["short_lived"]
        assert blocks > 0 if count == "some" else blocks == int(count), (case, place, blocks)
        for kind, inlined, _, caller in expectations():
            if kind == "inlined-into" and inlined == name:
                assert caller in places(row["frames"]), (case, place, caller)
    assert not unexpected, (case, unexpected)
    assert len(data["faults"]) == 1, (case, data["faults"])
    roles = {"allocated": "allocated", "first": "released_first", "again": "again"}
    for fault in data["faults"]:
        for kind, _, role, place in expectations():
            if kind == "twice":
                assert place in places(fault[roles[role]]), (case, role, fault)


if not os.path.exists(vek_trace):
    print(f"there is no {vek_trace}")
    sys.exit(77)


def main():
    built = os.path.dirname(leaky)
    stripped = os.path.join(built, "device", os.path.basename(leaky))
    symbols = ["--debug-dir", os.path.join(built, "debug")]
    with tempfile.TemporaryDirectory() as folder:
        def path(name):
            return os.path.join(folder, name)

        record("whole", path("whole"), leaky, [])
        compare("whole", report(path("whole")))

        # Where nothing has debug information, the site is a function of the symbol table or none.
        record("killed", path("killed"), stripped, ["kill"], -signal.SIGKILL)
        compare("killed", report(path("killed"), *symbols))
        bare = report(path("killed"))
        assert any("+0x" in row["frames"][0]["function"] for row in bare["rows"])
        assert any("leaky" in module["problem"] for module in bare["missing"])

        # A process that ended before its first event leaves an empty file, or one without a header.
        for name, content in (("empty.1.vekrec", b""), ("empty.2.vekrec", bytes(4096))):
            pathlib.Path(path("killed"), name).write_bytes(content)
            processes = report(path("killed"), *symbols)["processes"]
            assert len(processes) == 1 and name in str(processes), processes

        # After exec there are two files of one process. The status is that of the second one.
        if not emulator:
            first = next(pathlib.Path(path("killed")).glob("leaky.*.vekrec"))
            second = shutil.copy(first, first.with_suffix(".2.vekrec"))
            ends = {process["input"]: process.get("status")
                    for process in report(path("killed"))["processes"]}
            assert ends == {str(first): None, str(second): 137}, ends
            os.remove(second)

        # What holds no trace line must not pass as a run without leaks.
        for content in (b"", b"0x401190: vek_mal", b"text\nand more", b"VEKREC9\n" + bytes(99)):
            pathlib.Path(path("no-trace")).write_bytes(content)
            status = subprocess.run([vek_trace, "report", "--fail-on-leak", path("no-trace")],
                                    stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            assert status.returncode == 2, (content, status)

        # The library's own lines lead to the code that the library charges: for dictionaries and
        # the like its own.
        variables = {"VEK_MALLOC_TRACE": "1", "VEK_MALLOC_TRACE_FILE": path("lines")}
        subprocess.run([*emulator, leaky, path("maps")], check=True,
                       env={**os.environ, **variables})
        traced = report("--modules", path("maps"), path("lines"))
        charged = [places(row["frames"])[0] for row in traced["rows"]]
        for kind, name, _, place in expectations():
            if kind == "live" and name in ("list", "inlined"):
                assert place in charged, place
        for key in ("live", "peak"):
            sums = [data["totals"][key]["bytes"] for data in (traced, report(path("killed")))]
            assert sums[0] == sums[1], (key, sums)


main()
