#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Prints how the times grow with the number of elements.

The first line of a job has the library's nanoseconds for an operation. Below are the time of the
fastest peer over the library's (above 1 the library is faster) and, with a plus, that of the
library's other function for the job. RESULTS are the JSON files that Google Benchmark writes. The
points, with all peers, are for growth.gp.
"""
import argparse
import collections
import statistics

from ratios import medians

# Whose time is the library's, by the first word of the job.
OURS = {
    "hash": "VekHash",
    "dictionary": "VekDict",
    "intern": "VekName",
    "list": "vek_slist_insert_after",
    "text": "VekStrBuilder",
}
SIZES = [10, 100, 1_000, 10_000, 100_000, 1_000_000]


def by_job(times):
    """{job: {who: {size: time}}}"""
    jobs = collections.defaultdict(lambda: collections.defaultdict(dict))
    for (job, size), by_whom in times.items():
        for who, time in by_whom.items():
            jobs[job][who][size] = time
    return jobs


def fastest(curves):
    """The peer whose times have the lowest geometric mean."""
    peers = [who for who in curves if not who.lower().startswith("vek")]
    return min(peers, key=lambda peer: statistics.geometric_mean(curves[peer].values()))


def line(label, cells):
    return (f"{label:40}" + "".join(f"{cell:>10}" for cell in cells)).rstrip()


def ratio(of, to):
    value = of / to
    return "<0.01" if value < 0.01 else f"{value:.2f}" if value < 10 else f"{value:.0f}"


def print_table(jobs):
    print(line("job", [f"{size:,}" for size in SIZES]))
    for job, curves in jobs.items():
        who = OURS[job.split()[0]]
        ours = curves[who]
        print(line(f"{job}: {who}", [f"{ours[n]:.1f}" if n in ours else "" for n in SIZES]))
        peer = fastest(curves)
        others = [name for name in curves if name.lower().startswith("vek") and name != who]
        for label, other in [(peer, peer)] + [("+ " + name, name) for name in others]:
            curve = curves[other]
            cells = [ratio(curve[n], ours[n]) if n in curve and n in ours else "" for n in SIZES]
            print(line("  " + label, cells))


def write_points(jobs, path):
    """One block for each curve, with the name "job/who", of lines: size, time."""
    with open(path, "w", encoding="utf-8") as file:
        for job, curves in jobs.items():
            for who, curve in curves.items():
                file.write(f"# {job}/{who}\n")
                for size, time in sorted(curve.items()):
                    file.write(f"{size} {time:.4g}\n")
                file.write("\n\n")


def main():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("results", nargs="+", metavar="RESULTS")
    parser.add_argument("--points", required=True, help="gets the points of the chart")
    arguments = parser.parse_args()
    jobs = by_job(medians(arguments.results))
    print_table(jobs)
    write_points(jobs, arguments.points)


if __name__ == "__main__":
    main()
