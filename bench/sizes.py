#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Prints what libraries cost to have, a line a library.

Bytes of the code (.text), of code and constants (+.rodata), of all that is loaded to be read, tables of names
and of frames included (text, as size(1) tells it), and of the data; the relocations that the loader makes. Then
what the library and all that it needs add to a program that does nothing: kilobytes of memory that the process
changed and so has of its own, and microseconds until it ends.
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

    def dirty_kilobytes(self, program):
        """What a process of the program has changed."""
        with subprocess.Popen(self.run + [program, "wait"], stdout=subprocess.PIPE) as process:
            try:
                process.stdout.read(1)
                with open(f"/proc/{process.pid}/smaps_rollup", encoding="utf-8") as file:
                    return int(re.search(r"Private_Dirty: *(\d+)", file.read()).group(1))
            finally:
                process.kill()

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
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--tools", default="", help="what the names of compiler and binutils begin with")
    parser.add_argument("--run", default="", help="a command that runs programs")
    parser.add_argument("libraries", nargs="+", metavar="LIBRARY")
    arguments = parser.parse_args()
    heads = [".text", "+.rodata", "text", "data", "relocs", "dirty KB", "start us"]
    print(f"{'library':24}" + "".join(f"{head:>9}" for head in heads))
    with tempfile.TemporaryDirectory() as folder:
        bench = Bench(arguments, folder)
        empty, *programs = [bench.program()] + [bench.program(library) for library in arguments.libraries]
        at_rest, *starts = bench.starts([empty] + programs)
        for library, program, start in zip(arguments.libraries, programs, starts):
            sections, text, data = bench.sections(library)
            code = sections[".text"]
            row = [code, code + sections.get(".rodata", 0), text, data, bench.relocations(library)]
            row += [bench.dirty_kilobytes(program) - bench.dirty_kilobytes(empty), round(start - at_rest)]
            print(f"{os.path.basename(library):24}" + "".join(f"{number:9}" for number in row))


if __name__ == "__main__":
    main()
