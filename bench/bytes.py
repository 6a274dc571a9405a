#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: bytes.py BYTES ARM_BYTES QEMU...

Prints the heap bytes of one element of each structure, for the library and its peers, as the
program BYTES measures them, and for the library on ARM (QEMU... is its command with options).
"""
import collections
import subprocess
import sys

LEGEND = """\
The allocator's overhead and the structure's own record are included, and divided by the elements.
"-": the peer has no such structure."""
MAKERS = ["veklib", "GLib", "APR", "json-c", "talloc", "uthash", "C++"]


def measured(*command):
    """{(structure, size): {maker: bytes}}, in the order of the lines."""
    lines = subprocess.run(command, capture_output=True, check=True, text=True).stdout.splitlines()
    rows = collections.defaultdict(dict)
    for structure, size, maker, number in (line.split("|") for line in lines):
        rows[structure, int(size)][maker] = float(number)
    return rows


def main():
    program, arm_program, *qemu = sys.argv[1:]
    rows = measured(program)
    on_arm = measured(*qemu, arm_program)
    sizes = collections.Counter(structure for structure, _ in rows)
    print(f"{'structure / size':38}" + "".join(f"{head:>7}" for head in MAKERS + ["ARM"]))
    for (structure, size), by_maker in rows.items():
        label = f"{structure} / {size}" if sizes[structure] > 1 else structure
        numbers = [by_maker.get(maker) for maker in MAKERS] + [on_arm[structure, size]["veklib"]]
        cells = ["-" if number is None else f"{number:.0f}" for number in numbers]
        print(f"{label:38}" + "".join(f"{cell:>7}" for cell in cells))
    print(LEGEND)


if __name__ == "__main__":
    main()
