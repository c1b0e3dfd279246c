#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the benchmarks, prints what they measured, and holds it against the aims.

usage: bench/report.py BIN [FILTER]

BIN is the folder of vus_bench and vus_footprint in a release build. With a FILTER only the
benchmarks are run whose name it matches, and no aim is looked at. VUS_BENCH_FILTER in the
environment is a FILTER, too.

Times are processor time, the median of the repetitions; repetitions of all benchmarks are
interleaved at random, so that a machine that slows down for a while slows all of them.
An aim that is missed is said to be, and is no failure: how fast a machine is depends on what else
it does. Exit status: 0 if everything ran, 1 if not, 2 if called wrongly.
"""

import json
import os
import pathlib
import re
import statistics
import subprocess
import sys

REPETITIONS = 15
SECONDS_EACH = 0.1
KIBIBYTE = 1024

# What is compared with what: (text, numerator, denominator, the most that is aimed at).
RATIOS = [
    ("decision / attributes below a directory, 30 devices",
     "BM_Decision/30", "BM_FloorByOpenat/30", 1.25),
    ("decision / attributes by path, 30 devices",
     "BM_Decision/30", "BM_FloorByPath/30", None),
    ("decision / everything it asks the kernel, 30 devices",
     "BM_Decision/30", "BM_FloorOfAllQuestions/30", None),
    ("decision with 127 devices / with 30",
     "BM_Decision/127", "BM_Decision/30", 4.5),
    ("the same attributes of 127 devices / of 30",
     "BM_FloorByOpenat/127", "BM_FloorByOpenat/30", None),
    ("decision with 30 devices / with 5",
     "BM_Decision/30", "BM_Decision/5", None),
    ("load / parse, 10 rules", "BM_PolicyLoad/10", "BM_XmlParse/10", 2),
    ("load / parse, 1,000 rules", "BM_PolicyLoad/1000", "BM_XmlParse/1000", 2),
    ("load / parse, 10,000 rules", "BM_PolicyLoad/10000", "BM_XmlParse/10000", 2),
]
# (text, benchmark, the most microseconds that are aimed at)
TIMES = [
    ("rules alone, 1,000 rules", "BM_RuleEvaluation", 10),
    ("decision without sysfs, no rule matches", "BM_InputDecision", None),
    ("decision without sysfs, eight classes match", "BM_InputDecisionOfEightClasses", None),
    ("policy explain, 10,000 devices, 10,000 rules", "BM_PolicyExplain", 1_000_000),
    ("policy check, 10,000 rules", "BM_PolicyCheck", 100_000),
    ("policy diff, 10,000 rules", "BM_PolicyDiff", 100_000),
    ("policy diff, 9,000 differences as JSON", "BM_PolicyDiffOfEverything", None),
    ("policy surface, 10,000 rules, 8,242 aliases", "BM_PolicySurface", 200_000),
]
MEMORY_AIM = 8 * KIBIBYTE  # in KiB


def measure(bench, name_filter):
    """{benchmark: median microseconds of processor time}"""
    result = subprocess.run(
        [bench, f"--benchmark_filter={name_filter}", "--benchmark_format=json",
         f"--benchmark_repetitions={REPETITIONS}", f"--benchmark_min_time={SECONDS_EACH}",
         "--benchmark_enable_random_interleaving=true"],
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=True)
    if not result.stdout:
        raise ValueError(f"no benchmark's name matches {name_filter}")
    times = {}
    for run in json.loads(result.stdout)["benchmarks"]:
        if run.get("error_occurred"):
            raise ValueError(f"{run['name']}: {run['error_message']}")
        if run["run_type"] == "iteration":
            times.setdefault(run["run_name"], []).append(run["cpu_time"])
    return {name: statistics.median(values) for name, values in times.items()}


def resident_memory(footprint):
    """{VmRSS: KiB, ...}"""
    output = subprocess.run([footprint], stdout=subprocess.PIPE, text=True, check=True).stdout
    return {name: int(value) for name, value in re.findall(r"(\w+):\s+(\d+) kB", output)}


def judge(value, aim):
    if aim is None:
        return ""
    return f"aim {aim:,}: {'met' if value <= aim else 'MISSED'}"


def report(times, memory):
    """Prints the ratios, and which aims are missed."""
    rows = [(text, f"{times[a] / times[b]:.2f}", judge(times[a] / times[b], aim))
            for text, a, b, aim in RATIOS]
    rows += [(text, f"{times[name]:.2f} us", judge(times[name], aim))
             for text, name, aim in TIMES]
    rows.append(("resident memory, 1,000 rules and 30 devices", f"{memory['VmRSS']} KiB",
                 judge(memory["VmRSS"], MEMORY_AIM)))
    rows.append(("of it written to by this process alone", f"{memory['RssAnon']} KiB", ""))
    width = max(len(row[0]) for row in rows)
    print("\nratios and aims")
    for text, value, verdict in rows:
        print(f"  {text:<{width}}  {value:>9}  {verdict}".rstrip())
    missed = sum("MISSED" in verdict for _, _, verdict in rows)
    print(f"\n{missed or 'no'} aim{'' if missed == 1 else 's'} missed")


def main(arguments):
    if len(arguments) not in (1, 2):
        print(__doc__, file=sys.stderr)
        return 2
    folder = pathlib.Path(arguments[0]).resolve()
    name_filter = arguments[1] if len(arguments) == 2 else os.environ.get("VUS_BENCH_FILTER")
    times = measure(folder / "vus_bench", name_filter or ".")
    print("processor time, median of", REPETITIONS)
    for name, value in sorted(times.items()):
        print(f"  {name.removeprefix('BM_'):<32} {value:>10.2f} us")
    if not name_filter:
        report(times, resident_memory(folder / "vus_footprint"))
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except (OSError, ValueError, subprocess.CalledProcessError) as failure:
        print(f"report: {failure}", file=sys.stderr)
        sys.exit(1)
