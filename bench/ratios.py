#!/usr/bin/env python3
"""Prints the ratios of one benchmark run, from the JSON that Google Benchmark wrote.

    ratios.py RUN.json            the table; fails when a ratio misses its limit
    ratios.py --no-limits RUN.json  the table alone, for runs too short to judge

Every figure is the median over the run's repetitions. Times are processor times; a store and its
bare counterpart are timed on the clock, in pairs, and bring their ratio along.
"""

import argparse
import json
import re
import sys

# What is shown, the two benchmarks that are divided, the lowest ratio allowed.
RATIOS = [
    ("decode a full line: twin / ours", "decodeLineTwin", "decodeLine", 8.0),
    ("decode a full line: its calls of sscanf / ours", "scanLineOnly", "decodeLine", None),
    ("full line to ISA / decoding it", "fullLineToIsa", "decodeLine", None),
    ("full line to ISA / header line to ISA", "fullLineToIsa", "headerLineToIsa", None),
    ("read and check 99 logins: ours / bare read", "readAll", "readAllBare", None),
    ("read and check 99 logins: twin / ours", "readAllTwin", "readAll", None),
    ("fetch 1 of 99 logins / read and check them", "fetchOne", "readAll", None),
    ("compose a block: twin / ours", "composeBlockTwin", "composeBlock", None),
]

# What is shown, the benchmark that carries both times and their ratio.
PAIRS = [
    ("store a login beside none: ours / bare", "store/1"),
    ("store a login beside 98: ours / bare", "store/99"),
]

NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def medians(run):
    """Maps each benchmark's name, without its settings, to its entry of medians."""
    found = {}
    for entry in run["benchmarks"]:
        if entry.get("error_occurred"):
            sys.exit(f"{entry['name']}: {entry['error_message']}")
        if entry.get("aggregate_name") == "median":
            name = re.sub("/(iterations:[0-9]+|manual_time)", "", entry["run_name"])
            found[name] = entry
    return found


def processor_time(entry):
    return entry["cpu_time"] * NANOSECONDS[entry["time_unit"]]


def duration(nanoseconds):
    if nanoseconds < 1e3:
        return f"{nanoseconds:.0f} ns"
    if nanoseconds < 1e6:
        return f"{nanoseconds / 1e3:.1f} us"
    return f"{nanoseconds / 1e6:.2f} ms"


def line(text, ratio, above, below, limit=""):
    print(f"{text:<48}{ratio:8.2f}   {duration(above)} / {duration(below)}{limit}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--no-limits", action="store_true", help="judge nothing")
    parser.add_argument("run", help="the JSON file of the run")
    arguments = parser.parse_args()
    with open(arguments.run, encoding="utf-8") as file:
        run = json.load(file)

    context = run["context"]
    print(
        f"{context['num_cpus']} cores at {context['mhz_per_cpu']} MHz, "
        f"file system {context.get('file_system', 'unknown')}, "
        f"load {context['load_avg'][0]:.1f} at the start"
    )
    entries = medians(run)
    needed = [name for row in RATIOS for name in row[1:3]] + [name for _, name in PAIRS]
    for name in needed:
        if name not in entries:
            sys.exit(f"{arguments.run}: no median of {name}")

    missed = []
    for text, above, below, lowest in RATIOS:
        times = processor_time(entries[above]), processor_time(entries[below])
        ratio = times[0] / times[1]
        line(text, ratio, *times, "" if lowest is None else f"  at least {lowest:g}")
        if lowest is not None and ratio < lowest:
            missed.append(f"{text}: {ratio:.2f} is below {lowest:g}")
    for text, name in PAIRS:
        line(text, entries[name]["ratio"], entries[name]["ours"], entries[name]["bare"])
    if missed and not arguments.no_limits:
        sys.exit("\n".join(missed))


if __name__ == "__main__":
    main()
