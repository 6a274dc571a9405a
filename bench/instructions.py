#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: instructions.py OPERATIONS ARM_OPERATIONS QEMU...

Prints the instructions of each operation on x86-64, counted by callgrind, and on ARM, counted by
qemu (QEMU... is its command with options). The count is the difference between many and few runs,
divided by the number of additional runs, less the same for the operation "nothing". It is the same
each time.
"""
import os
import re
import subprocess
import sys


def counted_by_callgrind(program, name, runs):
    valgrind = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={os.devnull}"]
    command = valgrind + [program, name, str(runs)]
    report = subprocess.run(command, capture_output=True, check=True, text=True).stderr
    return int(re.search(r"Collected : (\d+)", report).group(1))


def counted_by_qemu(qemu, program, name, runs):
    """Counts the lines of the log: one for each instruction, because each is a block of its own."""
    command = qemu + ["-singlestep", "-d", "exec,nochain", program, name, str(runs)]
    with subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE) as process:
        count = sum(line.startswith(b"Trace") for line in process.stderr)
    if process.returncode != 0:
        sys.exit(f"failed: {' '.join(command)}")
    return count


def per_operation(count, name, few, many):
    return (count(name, many) - count(name, few)) / (many - few)


def main():
    program, arm_program, *qemu = sys.argv[1:]
    listing = subprocess.run([program], capture_output=True, check=True, text=True).stdout
    nothing, *operations = listing.splitlines()

    def on_x86_64(name):
        return per_operation(lambda *run: counted_by_callgrind(program, *run), name, 1000, 11000)

    def on_arm(name):
        return per_operation(lambda *run: counted_by_qemu(qemu, arm_program, *run), name, 10, 1010)

    base = on_x86_64(nothing), on_arm(nothing)
    print(f"{'operation':45} {'x86-64':>7} {'ARM':>7}")
    for name in operations:
        counts = on_x86_64(name) - base[0], on_arm(name) - base[1]
        print(f"{name:45} {counts[0]:7.0f} {counts[1]:7.0f}", flush=True)


if __name__ == "__main__":
    main()
