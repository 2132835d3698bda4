#!/usr/bin/env python3
"""Counts the instructions of the codec and of its floors under valgrind, and holds their ratios to a limit.

    bench/instructions.py PROGRAM [--decode LIMIT] [--encode LIMIT]

Unlike a time, a count does not depend on what else the machine does. 0: within the limits; 77: no valgrind.
"""

import argparse
import re
import shutil
import subprocess
import sys


def counted(program, side):
    """Instructions of the work alone: the corpus is made outside of it."""
    run = subprocess.run(["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null",
                          f"--toggle-collect=counted_{side}", program, side], capture_output=True, text=True)
    collected = re.search(r"Collected : (\d+)", run.stderr)
    if run.returncode != 0 or not collected:
        sys.exit(f"{side}: {run.stderr}")
    return int(collected[1])


def main():
    options = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    options.add_argument("program", help="codec_count, as it was built")
    options.add_argument("--decode", type=float, default=2.3, help="times the floor's, at most (%(default)s)")
    options.add_argument("--encode", type=float, default=1.4, help="likewise (%(default)s)")
    chosen = options.parse_args()

    if not shutil.which("valgrind"):
        print("valgrind is not there")
        return 77
    wrong = 0
    for side, floor, limit in (("decode", "hex_to_octets", chosen.decode), ("encode", "octets_to_hex", chosen.encode)):
        work, least = counted(chosen.program, side), counted(chosen.program, floor)
        print(f"{side}: {work / 4000:.0f} instructions a message, floor {least / 4000:.0f}: "
              f"{work / least:.2f} times, {limit} allowed")
        wrong += work > limit * least
    return min(wrong, 1)


if __name__ == "__main__":
    sys.exit(main())
