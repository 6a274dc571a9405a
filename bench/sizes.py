#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: sizes.py [--tools PREFIX] [--run COMMAND] LIBRARY... - what libraries cost to have.

Prints a line a library: bytes of its code, of its code and constants, of all that is loaded read-only ("text" as
size(1) tells it) and of its data; the relocations that the loader makes; the kilobytes of its pages that a process
has changed and so has of its own; and the microseconds by which it delays the start of a program that does
nothing. PREFIX is that of the binutils and the compiler, COMMAND runs a program.
"""
import argparse
import json
import os
import re
import shlex
import subprocess
import tempfile

PROGRAM = "#include <unistd.h>\nint main(int c, char **v) { return c > 1 && write(1, *v, 1) && pause(); }\n"
ROUNDS = 20


def output_of(*command):
    return subprocess.run(command, capture_output=True, check=True, text=True).stdout


class Bench:
    def __init__(self, arguments, folder):
        self.prefix = arguments.tools
        self.run = shlex.split(arguments.run)
        self.folder = folder

    def program(self, library=None):
        """The path of a program that does nothing; with an argument it says so and waits."""
        path = os.path.join(self.folder, os.path.basename(library or "empty") + ".program")
        command = [self.prefix + "gcc", "-xc", "-", "-o", path]
        if library:
            command += ["-Wl,--no-as-needed,--allow-shlib-undefined", "-xnone", library]
            command += ["-Wl,-rpath," + os.path.dirname(os.path.realpath(library))]
        subprocess.run(command, input=PROGRAM, check=True, text=True)
        return path

    def sections(self, library):
        """{section: bytes} and the three sums of size(1), of the stripped library."""
        stripped = os.path.join(self.folder, "stripped")
        subprocess.run([self.prefix + "strip", "-o", stripped, library], check=True)
        lines = output_of(self.prefix + "size", "-A", stripped).splitlines()
        sizes = {fields[0]: int(fields[1]) for fields in map(str.split, lines) if fields and fields[0][0] == "."}
        text, data, bss = output_of(self.prefix + "size", stripped).splitlines()[1].split()[:3]
        return sizes, int(text), int(data) + int(bss)

    def relocations(self, library):
        return output_of(self.prefix + "readelf", "-rW", library).count(" R_")

    def dirty_kilobytes(self, library):
        """Of the library's mappings, and of the anonymous one behind them, where its data ends."""
        command = self.run + [self.program(library), "wait"]
        with subprocess.Popen(command, stdout=subprocess.PIPE) as process:
            process.stdout.read(1)
            with open(f"/proc/{process.pid}/smaps", encoding="utf-8") as file:
                lines = file.read().splitlines()
            process.kill()
        kilobytes = 0
        name = previous = ""
        for line in lines:
            if re.match(r"[0-9a-f]+-[0-9a-f]+ ", line):
                fields = line.split(maxsplit=5)
                previous, name = name, fields[5] if len(fields) > 5 else ""
            elif line.startswith("Private_Dirty:") and (name or previous) == os.path.realpath(library):
                kilobytes += int(line.split()[1])
        return kilobytes

    def starts(self, programs):
        """Microseconds of each start: the least of many, in turn, for what disturbs a start only delays it."""
        results = os.path.join(self.folder, "starts.json")
        commands = [shlex.join(self.run + [program]) for program in programs]
        rounds = []
        for _ in range(ROUNDS):
            hyperfine = ["hyperfine", "-N", "--warmup", "5", "--runs", "20", "--export-json", results]
            subprocess.run(hyperfine + commands, capture_output=True, check=True)
            with open(results, encoding="utf-8") as file:
                rounds.append([command["min"] for command in json.load(file)["results"]])
        return [min(times) * 1e6 for times in zip(*rounds)]


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("--tools", default="")
    parser.add_argument("--run", default="")
    parser.add_argument("libraries", nargs="+")
    arguments = parser.parse_args()
    heads = [".text", "+.rodata", "text", "data", "relocs", "dirty KB", "start us"]
    print(f"{'library':24}" + "".join(f"{head:>9}" for head in heads))
    with tempfile.TemporaryDirectory() as folder:
        bench = Bench(arguments, folder)
        starts = bench.starts([bench.program()] + [bench.program(library) for library in arguments.libraries])
        for library, start in zip(arguments.libraries, starts[1:]):
            sections, text, data = bench.sections(library)
            code = sections[".text"]
            row = [code, code + sections.get(".rodata", 0), text, data, bench.relocations(library)]
            row += [bench.dirty_kilobytes(library), round(start - starts[0])]
            print(f"{os.path.basename(library):24}" + "".join(f"{number:9}" for number in row))


if __name__ == "__main__":
    main()
