#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: instructions.py GOALS OPERATIONS ARM_OPERATIONS QEMU...

Prints the instructions of each operation on x86-64, counted by callgrind, and on ARM, counted by
qemu (QEMU... is its command with options). The count is the difference between many and few runs,
divided by the number of additional runs, less the same for the operation "nothing". It is the same
each time. Goals follow in brackets, with ">" if a count is above its goal; they are the lines of
the file GOALS that name x86-64.
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


def read_goals(path):
    """{(operation, the operation that it is compared with): [most on x86-64, most on ARM]}"""
    goals = {}
    with open(path, encoding="utf-8") as file:
        for line in file:
            if "x86-64:" in line and not line.startswith("#"):
                operation, other, most = (field.strip() for field in line.split("|"))
                goals[operation, other] = [int(goal.split(":")[1]) for goal in most.split()]
    return goals


def row(label, counts, most=None):
    goal = ""
    if most is not None:
        missed = any(round(count) > limit for count, limit in zip(counts, most))
        goal = f"  ({'>' if missed else ''}{most[0]}, {most[1]})"
    return f"{label:45} {counts[0]:7.0f} {counts[1]:7.0f}{goal}"


def main():
    path, program, arm_program, *qemu = sys.argv[1:]
    goals = read_goals(path)
    listing = subprocess.run([program], capture_output=True, check=True, text=True).stdout
    nothing, *operations = listing.splitlines()

    def on_x86_64(name):
        return per_operation(lambda *run: counted_by_callgrind(program, *run), name, 1000, 11000)

    def on_arm(name):
        return per_operation(lambda *run: counted_by_qemu(qemu, arm_program, *run), name, 10, 1010)

    base = on_x86_64(nothing), on_arm(nothing)
    counts = {}
    print(f"{'operation':45} {'x86-64':>7} {'ARM':>7}  (goals)")
    for name in operations:
        counts[name] = on_x86_64(name) - base[0], on_arm(name) - base[1]
        print(row(name, counts[name], goals.pop((name, nothing), None)), flush=True)
    for (name, other), most in goals.items():
        more = [count - less for count, less in zip(counts[name], counts[other])]
        print(row(f"{name}, beyond {other}", more, most))


if __name__ == "__main__":
    main()
