#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Prints what each library costs before anything uses it.

A row below the first library shows what the libraries that it needs cost without it. With --run
there are no times, because an emulator's say nothing, and only the emulated program's memory
counts.
"""
import argparse
import json
import os
import re
import shlex
import statistics
import subprocess
import tempfile

LEGEND = """\
.text: bytes of code; +.rodata: with the constants; text: all that is loaded read-only, with names
and unwind tables; data: all that can be written; relocs: number of relocations.
dirty KB, start us: the memory that a process changes and the time until it ends, beyond a program
that only loads the C library. own KB, own us: beyond one that also loads what the library needs."""
PROGRAM = """#include <unistd.h>
int main(int c, char **v) { return c > 1 && write(1, *v, 1) && pause(); }
"""
C_LIBRARY = re.compile(r"(libc|libm|libpthread|libdl|librt|ld-linux.*)\.so\.")
ROUNDS = 40
PROCESSES = 10


def output_of(*command):
    return subprocess.run(command, capture_output=True, check=True, text=True).stdout


class Bench:
    def __init__(self, arguments, folder):
        self.prefix = arguments.tools
        self.run = shlex.split(arguments.run)
        self.folder = folder

    def program(self, *needs):
        """Makes a program that does nothing; with an argument it writes a byte and waits.

        It is linked with empty libraries that bear the names to be loaded. So a path is opened
        directly, and a name is found as by any installed program; the search of an rpath's folders
        would take 30 us."""
        folder = tempfile.mkdtemp(dir=self.folder)
        command = [self.prefix + "gcc", "-xc", "-", "-xnone", "-Wl,--no-as-needed"]
        for need in needs:
            stub = os.path.join(folder, os.path.basename(need))
            options = ["-shared", "-nostdlib", "-Wl,-soname," + need, "-o", stub]
            subprocess.run([self.prefix + "gcc", "-xc", os.devnull] + options, check=True)
            command.append(stub)
        path = os.path.join(folder, "program")
        subprocess.run(command + ["-o", path], input=PROGRAM, check=True, text=True)
        return path

    def needs(self, library):
        """The names of the libraries that it needs, except those of the C library."""
        found = re.findall(r"NEEDED.*\[(.*)\]", output_of(self.prefix + "readelf", "-dW", library))
        return [name for name in found if not C_LIBRARY.match(name)]

    def sections(self, library):
        """{section: bytes} and the three sums of size(1), of the stripped library."""
        stripped = os.path.join(self.folder, "stripped")
        subprocess.run([self.prefix + "strip", "-o", stripped, library], check=True)
        lines = output_of(self.prefix + "size", "-A", stripped).splitlines()
        rows = [line.split() for line in lines if line.startswith(".")]
        sizes = {row[0]: int(row[1]) for row in rows}
        text, data, bss = output_of(self.prefix + "size", stripped).splitlines()[1].split()[:3]
        return sizes, int(text), int(data) + int(bss)

    def relocations(self, library):
        return output_of(self.prefix + "readelf", "-rW", library).count(" R_")

    def dirty_kilobytes(self, program):
        """The memory that a process of the program has changed: the least of several, because the
        stack begins at a random address and may take a page more."""
        return min(self.dirty_kilobytes_of_one(program) for _ in range(PROCESSES))

    def dirty_kilobytes_of_one(self, program):
        with subprocess.Popen(self.run + [program, "wait"], stdout=subprocess.PIPE) as process:
            try:
                process.stdout.read(1)
                return self.dirty_kilobytes_of_process(process.pid)
            finally:
                process.kill()

    def dirty_kilobytes_of_process(self, pid):
        """Anonymous pages include a file's that the process has changed. Private_Dirty would also
        count pages of a new file that are not on the disk yet. An emulated program of 32 bits has
        its memory below 4 GB, the emulator has its own above."""
        with open(f"/proc/{pid}/smaps", encoding="utf-8") as file:
            mappings = re.findall(r"(?ms)^([0-9a-f]+)-.*?^Anonymous: *(\d+)", file.read())
        return sum(
            int(dirty) for start, dirty in mappings if not self.run or int(start, 16) < 1 << 32
        )

    def starts(self, programs):
        """{program: microseconds of its start in each round}, the least of several each time,
        because disturbances only delay it. The programs take turns."""
        results = os.path.join(self.folder, "starts.json")
        commands = [shlex.quote(program) for program in programs]
        rounds = []
        for _ in range(ROUNDS):
            hyperfine = ["hyperfine", "-N", "--warmup", "2", "--runs", "10"]
            hyperfine += ["--export-json", results]
            subprocess.run(hyperfine + commands, capture_output=True, check=True)
            with open(results, encoding="utf-8") as file:
                rounds.append([command["min"] * 1e6 for command in json.load(file)["results"]])
        return dict(zip(programs, zip(*rounds)))


def added(starts, base):
    """The median of the rounds' differences: what slows one round down slows both programs."""
    return round(statistics.median(start - other for start, other in zip(starts, base)))


def cells(bench, starts, dirty, whole, base):
    time = "-" if bench.run else added(starts[whole], starts[base])
    return [dirty[whole] - dirty[base], time]


def print_row(name, row):
    print(f"{name:18}" + "".join(f"{cell:>9}" for cell in row))


def main():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("--tools", default="", help="prefix of the compiler's and binutils' names")
    parser.add_argument("--run", default="", help="a command that runs programs")
    parser.add_argument("libraries", nargs="+", metavar="LIBRARY")
    arguments = parser.parse_args()
    heads = [".text", "+.rodata", "text", "data", "relocs", "dirty KB", "start us"]
    heads += ["own KB", "own us"]
    print_row("library", heads)
    with tempfile.TemporaryDirectory() as folder:
        bench = Bench(arguments, folder)
        empty = bench.program()
        rows = []
        for library in arguments.libraries:
            needs = bench.needs(library)
            program = bench.program(os.path.abspath(library))
            rows.append((library, program, bench.program(*needs) if needs else empty))
        programs = list({program for row in rows for program in (empty, *row[1:])})
        starts = {} if bench.run else bench.starts(programs)
        dirty = {program: bench.dirty_kilobytes(program) for program in programs}
        for library, whole, needed in rows:
            sections, text, data = bench.sections(library)
            code = sections[".text"]
            row = [code, code + sections.get(".rodata", 0), text, data]
            row.append(bench.relocations(library))
            for base in (empty, needed):
                row += cells(bench, starts, dirty, whole, base)
            print_row(os.path.basename(library), row)
            if library == arguments.libraries[0] and needed != empty:
                row = ["-"] * 5 + cells(bench, starts, dirty, needed, empty) + ["-"] * 2
                print_row("  what it needs", row)
    print(LEGEND)


if __name__ == "__main__":
    main()
