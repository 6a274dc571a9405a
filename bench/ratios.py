#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: ratios.py RESULTS.json... [--goals FILE] [--points FILE]

Prints the peers' median times over the library's, a line a job: above 1 the library is faster. RESULTS.json
is what Google Benchmark writes. Goals stand behind their ratios, with "<" where a ratio stays below. The file
of points is for chart.gp.
"""
import argparse
import collections
import json

OURS = "veklib"

# Whose the peers are, by the beginning of their names, for the chart.
MAKERS = {
    "GLib": ("G", "g_"),
    "APR": ("apr_",),
    "uthash": ("ut",),
    "json-c": ("json-c",),
    "talloc": ("talloc",),
    "C++ library": ("std::",),
}
OTHERS = "C library"


def maker_of(peer):
    return next((maker for maker, names in MAKERS.items() if peer.startswith(names)), OTHERS)


def nanoseconds(run):
    """The time of one operation or element."""
    return 1e9 / run["items_per_second"] if "items_per_second" in run else run["cpu_time"]


def medians(paths):
    """{(job, size): {who: median time}}, in the order of jobs and sizes."""
    times = collections.defaultdict(dict)
    for path in paths:
        with open(path, encoding="utf-8") as file:
            runs = json.load(file)["benchmarks"]
        for run in runs:
            if run.get("aggregate_name") == "median":
                job, size, who = run["run_name"].split("/")[:3]
                times[job, int(size)][who] = nanoseconds(run)
    return dict(sorted(times.items()))


def read_goals(path):
    """{(job, size, peer): ratio}"""
    goals = {}
    with open(path, encoding="utf-8") as file:
        for line in file:
            if not line.startswith("#"):
                job, peer, ratios = (field.strip() for field in line.split("|"))
                for ratio in ratios.split():
                    size, least = ratio.split(":")
                    goals[job, int(size), peer] = float(least)
    return goals


def with_goal(peer, ratio, goal):
    text = f"{peer} {ratio:.2f}"
    if goal is None:
        return text
    return f"{text} ({'<' if ratio < goal else ''}{goal:g})"


def print_table(times, goals):
    print(f"{'job / size':45} {'ns':>9}  peer time / ours (goal)")
    for (job, size), by_whom in times.items():
        ratios = [
            with_goal(peer, time / by_whom[OURS], goals.get((job, size, peer)))
            for peer, time in sorted(by_whom.items())
            if peer != OURS
        ]
        print(f"{job + ' / ' + str(size):45} {by_whom[OURS]:9.1f}  {', '.join(ratios)}")


def write_points(times, path):
    """A block a maker: ratio, row from the top, label of the row."""
    with open(path, "w", encoding="utf-8") as file:
        for maker in [*MAKERS, OTHERS]:
            file.write(f'"{maker}"\n')
            for row, ((job, size), by_whom) in enumerate(times.items()):
                for peer, time in by_whom.items():
                    if peer != OURS and maker_of(peer) == maker:
                        file.write(f'{time / by_whom[OURS]:.3f} {row} "{job} / {size}"\n')
            file.write("\n\n")


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("results", nargs="+")
    parser.add_argument("--goals")
    parser.add_argument("--points")
    arguments = parser.parse_args()
    times = medians(arguments.results)
    print_table(times, read_goals(arguments.goals) if arguments.goals else {})
    if arguments.points:
        write_points(times, arguments.points)


if __name__ == "__main__":
    main()
