#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Prints the peers' times over the library's, one line for each job and size.

Above 1 the library is faster. RESULTS are the JSON files that Google Benchmark writes. A goal
follows its ratio in brackets, with "<" if the ratio is below the goal. The points are for chart.gp.
"""
import argparse
import collections
import json
import statistics
import sys

OURS = "veklib"

# The makers of the peers, with the beginnings of the peers' names, for the chart. "passed in" is
# the library with its own functions under other addresses.
MAKERS = {
    "GLib": ("G", "g_"),
    "APR": ("apr_",),
    "uthash": ("ut",),
    "json-c": ("json-c",),
    "talloc": ("talloc",),
    "C++ library": ("std::",),
    "passed in": ("passed in",),
}
OTHERS = "C library"


def maker_of(peer):
    return next((maker for maker, names in MAKERS.items() if peer.startswith(names)), OTHERS)


def nanoseconds(run):
    """The time of one operation or element."""
    return 1e9 / run["items_per_second"] if "items_per_second" in run else run["cpu_time"]


def quartile(times):
    """The lower quartile: other programs only delay a repetition, and may delay half of them."""
    return statistics.quantiles(times, method="inclusive")[0] if len(times) > 1 else times[0]


def typical_times(paths):
    """{(job, size): {who: time}}, in the order of jobs and sizes."""
    times = collections.defaultdict(lambda: collections.defaultdict(list))
    for path in paths:
        with open(path, encoding="utf-8") as file:
            runs = json.load(file)["benchmarks"]
        for run in runs:
            if run["run_type"] == "iteration":
                job, size, who = run["run_name"].split("/")[:3]
                times[job, int(size)][who].append(nanoseconds(run))
    return {
        key: {who: quartile(measured) for who, measured in by_whom.items()}
        for key, by_whom in sorted(times.items())
    }


def read_goals(path):
    """{(job, size, peer): ratio}"""
    goals = {}
    with open(path, encoding="utf-8") as file:
        for line in file:
            if line.strip() and not line.startswith("#"):
                job, peer, ratios = (field.strip() for field in line.split("|"))
                for ratio in ratios.split():
                    size, least = ratio.split(":")
                    if size.isdigit():  # instructions.py reads the others
                        goals[job, int(size), peer] = float(least)
    return goals


def compare(times, goals):
    """[{job, size, ns, peers: {peer: {ratio, goal}}}]"""
    rows = []
    for (job, size), by_whom in times.items():
        ours = by_whom[OURS]
        peers = {}
        for peer in sorted(by_whom.keys() - {OURS}):
            peers[peer] = {"ratio": round(by_whom[peer] / ours, 2)}
            if (job, size, peer) in goals:
                peers[peer]["goal"] = goals.pop((job, size, peer))
        rows.append({"job": job, "size": size, "ns": round(ours, 1), "peers": peers})
    return rows


def labels_of(rows):
    """Names of the jobs, with their sizes if there are several."""
    sizes = collections.Counter(row["job"] for row in rows)
    return [
        f"{row['job']} / {row['size']}" if sizes[row["job"]] > 1 else row["job"] for row in rows
    ]


def entry(peer, ratio, goal=None):
    text = f"{peer} {ratio:.2f}"
    return text if goal is None else f"{text} ({'<' if ratio < goal else ''}{goal:g})"


def print_table(rows):
    print(f"{'job / size':40} {'ns':>7}  peer time / ours (goal)")
    for label, row in zip(labels_of(rows), rows):
        entries = ", ".join(entry(peer, **found) for peer, found in row["peers"].items())
        print(f"{label:40} {row['ns']:7.1f}  {entries}")


def write_points(rows, path):
    """One block for each maker, of lines: ratio, row from the top, label of the row."""
    with open(path, "w", encoding="utf-8") as file:
        for maker in [*MAKERS, OTHERS]:
            file.write(f'"{maker}"\n')
            for number, (label, row) in enumerate(zip(labels_of(rows), rows)):
                for peer, found in row["peers"].items():
                    if maker_of(peer) == maker:
                        file.write(f'{found["ratio"]} {number} "{label}"\n')
            file.write("\n\n")


def main():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter
    )
    parser.add_argument("results", nargs="+", metavar="RESULTS")
    parser.add_argument("--goals", required=True, help="lines of job | peer | size:ratio ...")
    parser.add_argument("--json", required=True, help="gets the table as JSON")
    parser.add_argument("--points", required=True, help="gets the points of the chart")
    arguments = parser.parse_args()
    goals = read_goals(arguments.goals)
    rows = compare(typical_times(arguments.results), goals)
    print_table(rows)
    write_points(rows, arguments.points)
    with open(arguments.json, "w", encoding="utf-8") as file:
        json.dump(rows, file, indent=1)
    if goals:
        sys.exit(f"goals of jobs that were not run: {sorted(goals)}")


if __name__ == "__main__":
    main()
