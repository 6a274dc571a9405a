#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""usage: ratios.py RESULTS.json - prints the peers' median times over the library's, a line a job.

Above 1 the library is faster. RESULTS.json is what Google Benchmark writes.
"""
import json
import sys


def medians(results):
    """{job: {who: median time}}, in the order of the results."""
    jobs = {}
    for run in results["benchmarks"]:
        if run.get("aggregate_name") == "median":
            job, who = run["run_name"].rsplit("/", 1)
            jobs.setdefault(job, {})[who] = run["cpu_time"]
    return jobs


def main():
    with open(sys.argv[1], encoding="utf-8") as file:
        jobs = medians(json.load(file))
    print(f"{'job / size':36}  {'ns':>10}  peer time / ours")
    for job in sorted(jobs, key=lambda job: (job.rsplit("/", 1)[0], int(job.rsplit("/", 1)[1]))):
        times = jobs[job]
        ours = times.pop("veklib")
        ratios = ", ".join(f"{who} {time / ours:.2f}" for who, time in times.items())
        print(f"{job:36}  {ours:10.1f}  {ratios}")


if __name__ == "__main__":
    main()
