#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Prints what each library costs before anything uses it.

First the bytes of code (.text), of code and constants (+.rodata), of everything that is loaded
read-only, including names and unwind tables (text, as size(1) counts it), and of data; then the
number of relocations. Then what the library, with all that it needs, adds to a program that does
nothing: the memory that the process has changed and therefore does not share (dirty KB), and the
time until the process ends (start us). The last two columns are the library's own share of these:
what it adds to a program that already loads the libraries that it needs.
"""
import argparse
import json
import os
import re
import shlex
import statistics
import subprocess
import tempfile

PROGRAM = """#include <unistd.h>
int main(int c, char **v) { return c > 1 && write(1, *v, 1) && pause(); }
"""
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
        return [name for name in found if not re.match(r"(libc|ld-linux.*)\.so\.", name)]

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
                with open(f"/proc/{process.pid}/smaps_rollup", encoding="utf-8") as file:
                    return int(re.search(r"Private_Dirty: *(\d+)", file.read()).group(1))
            finally:
                process.kill()

    def starts(self, programs):
        """{program: microseconds of its start in each round}, the least of several each time,
        because disturbances only delay it. The programs take turns."""
        results = os.path.join(self.folder, "starts.json")
        commands = [shlex.join(self.run + [program]) for program in programs]
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
    print(f"{'library':18}" + "".join(f"{head:>9}" for head in heads))
    with tempfile.TemporaryDirectory() as folder:
        bench = Bench(arguments, folder)
        empty = bench.program()
        rows = []
        for library in arguments.libraries:
            needs = bench.needs(library)
            program = bench.program(os.path.abspath(library))
            rows.append((library, program, bench.program(*needs) if needs else empty))
        programs = list({program for row in rows for program in (empty, *row[1:])})
        starts = bench.starts(programs)
        dirty = {program: bench.dirty_kilobytes(program) for program in programs}
        for library, whole, needed in rows:
            sections, text, data = bench.sections(library)
            code = sections[".text"]
            row = [code, code + sections.get(".rodata", 0), text, data]
            row.append(bench.relocations(library))
            for base in (empty, needed):
                row += [dirty[whole] - dirty[base], added(starts[whole], starts[base])]
            print(f"{os.path.basename(library):18}" + "".join(f"{number:9}" for number in row))


if __name__ == "__main__":
    main()
