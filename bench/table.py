#!/usr/bin/env python3
"""Prints what a benchmark wrote as JSON: medians for one message, beside the floor's.

    bench/table.py RESULTS.json
"""

import json
import sys


def medians(path):
    """Work and class, then who did it: nanoseconds of thread time for one message."""
    table = {}
    with open(path, encoding="utf-8") as results:
        for row in json.load(results)["benchmarks"]:
            if row.get("aggregate_name") == "median":
                work, label, who = row["run_name"].split("/")
                table.setdefault((work, label), {})[who] = 1e9 / row["items_per_second"]
    return table


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    for (work, label), row in sorted(medians(sys.argv[1]).items()):
        floor = row.pop("floor")
        others = "   ".join(f"{who} {time:.0f} ns ({time / floor:.2f})" for who, time in sorted(row.items()))
        print(f"{work + ' ' + label:32} floor {floor:.0f} ns   {others}")


if __name__ == "__main__":
    main()
