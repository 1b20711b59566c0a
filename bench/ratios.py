#!/usr/bin/env python3
"""Prints the ratios of one benchmark run, from the JSON that Google Benchmark wrote.

    ratios.py RUN.json            the table; fails when a ratio misses its limit
    ratios.py --no-limits RUN.json  the table alone, for runs too short to judge

Every figure is the median over the run's repetitions: processor time, but where a disk is
waited for the time on the clock.
"""

import argparse
import json
import re
import sys

CPU, CLOCK = "cpu_time", "real_time"

# What is shown, the two benchmarks that are divided, their time, the lowest ratio allowed.
RATIOS = [
    ("decode a full line: twin / ours", "decodeLineTwin", "decodeLine", CPU, 8.0),
    ("decode a full line: its calls of sscanf / ours", "scanLineOnly", "decodeLine", CPU, None),
    ("full line to ISA / decoding it", "fullLineToIsa", "decodeLine", CPU, None),
    ("full line to ISA / header line to ISA", "fullLineToIsa", "headerLineToIsa", CPU, None),
    ("store 1 login: ours / bare", "store/1", "storeBare/1", CLOCK, None),
    ("store 1 of 99 logins: ours / bare", "store/99", "storeBare/99", CLOCK, None),
    ("read and check 99 logins: ours / bare read", "readAll", "readAllBare", CPU, None),
    ("read and check 99 logins: twin / ours", "readAllTwin", "readAll", CPU, None),
    ("fetch 1 of 99 logins / read and check them", "fetchOne", "readAll", CPU, None),
    ("compose a block: twin / ours", "composeBlockTwin", "composeBlock", CPU, None),
]

NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def medians(run):
    """Maps each benchmark to its median times in nanoseconds."""
    found = {}
    for entry in run["benchmarks"]:
        if entry.get("error_occurred"):
            sys.exit(f"{entry['name']}: {entry['error_message']}")
        if entry.get("aggregate_name") != "median":
            continue
        scale = NANOSECONDS[entry["time_unit"]]
        name = re.sub("/(iterations:[0-9]+|real_time)", "", entry["run_name"])
        found[name] = {kind: entry[kind] * scale for kind in (CPU, CLOCK)}
    return found


def duration(nanoseconds):
    if nanoseconds < 1e3:
        return f"{nanoseconds:.0f} ns"
    if nanoseconds < 1e6:
        return f"{nanoseconds / 1e3:.1f} us"
    return f"{nanoseconds / 1e6:.2f} ms"


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
    times = medians(run)
    missed = []
    for text, above, below, kind, lowest in RATIOS:
        for name in (above, below):
            if name not in times:
                sys.exit(f"{arguments.run}: no median of {name}")
        ratio = times[above][kind] / times[below][kind]
        limit = "" if lowest is None else f"  at least {lowest:g}"
        parts = f"{duration(times[above][kind])} / {duration(times[below][kind])}"
        print(f"{text:<48}{ratio:8.2f}   {parts}{limit}")
        if lowest is not None and ratio < lowest:
            missed.append(f"{text}: {ratio:.2f} is below {lowest:g}")
    if missed and not arguments.no_limits:
        sys.exit("\n".join(missed))


if __name__ == "__main__":
    main()
