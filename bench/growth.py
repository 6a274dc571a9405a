#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Prints how the times grow with the number of elements.

The first line of a job has the library's nanoseconds for an operation. Below are the times of the
others over the library's: with a plus, the library's other way; then the peers (above 1 the library
is faster). RESULTS are the JSON files that Google Benchmark writes. The panels are plot commands,
which growth.gp runs.
"""
import argparse
import collections

from ratios import typical_times

SIZES = [10, 100, 1_000, 10_000, 100_000, 1_000_000]

# The panels of the chart, two in a row: job, title, what the time is of.
PANELS = [
    ("hash get, integers", "Hash table: look up an integer", "look-up"),
    ("hash get, strings", "Hash table: look up a string", "look-up"),
    ("hash fill, integers", "Hash table: fill with integer keys", "entry"),
    ("hash fill, strings", "Hash table: fill with string keys", "entry"),
    ("dictionary get, integers", "Dictionary: get by integer", "search"),
    ("dictionary get, strings", "Dictionary: get by string", "search"),
    ("dictionary fill, integers", "Dictionary: fill with integer keys", "item"),
    ("dictionary fill, strings", "Dictionary: fill with string keys", "item"),
    ("intern existing", "Names: intern a known text", "text"),
    ("intern new", "Names: intern a new text", "text"),
    ("list build", "List: build in order", "element"),
    ("text build", "Text: build from pieces of 5 characters", "piece"),
]

# The line types of growth.gp, which are also the order, by the beginning of the contender's name.
LINES = {"Vek": 1, "vek_": 1, "+ ": 2, "G": 3, "std::vector": 5, "std::": 4, "tsl::": 6}
OURS = 1


def line_type(who):
    return next(line for beginning, line in LINES.items() if who.startswith(beginning))


def by_job(times):
    """{job: [(who, {size: time})]}, the library first."""
    curves = collections.defaultdict(lambda: collections.defaultdict(dict))
    for (job, size), by_whom in times.items():
        for who, time in by_whom.items():
            curves[job][who][size] = time
    return {
        job: sorted(curves.pop(job).items(), key=lambda curve: line_type(curve[0]))
        for job, _, _ in PANELS
    } | curves  # a job without a panel fails where it is printed


def line(label, cells):
    return (f"{label:40}" + "".join(f"{cell:>10}" for cell in cells)).rstrip()


def ratio(of, to):
    value = of / to
    return "<0.01" if value < 0.01 else f"{value:.2f}" if value < 10 else f"{value:.0f}"


def print_table(jobs):
    print(line("job", [f"{size:,}" for size in SIZES]))
    for job, [(who, ours), *others] in jobs.items():
        print(line(f"{job}: {who}", [f"{ours[n]:.1f}" if n in ours else "" for n in SIZES]))
        for other, curve in others:
            cells = [ratio(curve[n], ours[n]) if n in curve else "" for n in SIZES]
            print(line(f"  {other}", cells))


def write_panels(jobs, path):
    """Both panels of a row have the same range of times."""
    with open(path, "w", encoding="utf-8") as file:
        for number, (job, title, operation) in enumerate(PANELS):
            row = PANELS[number // 2 * 2 : number // 2 * 2 + 2]
            times = [t for job, _, _ in row for _, curve in jobs[job] for t in curve.values()]
            plots = []
            for place, (who, curve) in enumerate(jobs[job]):
                points = "".join(f"{size} {time:.4g}\n" for size, time in sorted(curve.items()))
                file.write(f"$curve{place} << END\n{points}END\n")
                name = who.removeprefix("+ ")
                plots.append(f'$curve{place} linetype {line_type(who)} title "{name}"')
            file.write(f"set yrange [{min(times) / 1.5:g} : {max(times) * 4:g}]\n")
            file.write(f'set title "{title}"\nset ylabel "ns per {operation}"\n')
            file.write(f"plot {', '.join(plots)}\n")


def main():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("results", nargs="+", metavar="RESULTS")
    parser.add_argument("--panels", required=True, help="gets the panels of the chart")
    arguments = parser.parse_args()
    jobs = by_job(typical_times(arguments.results))
    print_table(jobs)
    write_panels(jobs, arguments.panels)


if __name__ == "__main__":
    main()
