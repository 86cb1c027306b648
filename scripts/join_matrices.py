#!/usr/bin/env python3
"""Reads the fault matrices of several samples (mutate.py --matrix FILE, each
with its own seed) as one: per test, the faults it kills and those no other
test kills, over all samples. One sample is not enough to drop a test by:
a test that kills nothing alone in one sample often does in the next.

  scripts/join_matrices.py seed7.json seed11.json
  scripts/join_matrices.py seed7.json seed11.json --drop Suite.TestA Suite.TestB

With --drop, names the faults that only those tests kill, which dropping
them would let through, and exits 1 if there is any.
"""
import argparse
import json
import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from mutate import summarize  # noqa: E402


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("matrices", nargs="+", help="JSON files written by mutate.py --matrix")
    parser.add_argument("--drop", nargs="+", default=[], help="tests to be dropped")
    options = parser.parse_args()

    tests, matrix = [], []
    for path in options.matrices:
        with open(path, encoding="utf-8") as f:
            sample = json.load(f)
        tests += [t for t in sample["tests"] if t not in tests]
        # The same fault in two samples counts once, with the failures of the later run.
        matrix = [e for e in matrix if e["fault"] not in {s["fault"] for s in sample["killed"]}]
        matrix += sample["killed"]
    unknown = [t for t in options.drop if t not in tests]
    if unknown:
        sys.exit(f"not a test of these samples: {', '.join(unknown)}")
    print(f"{len(matrix)} faults killed in {len(options.matrices)} samples")
    if not options.drop:
        summarize(tests, matrix)
        return 0
    dropped = set(options.drop)
    # A kill without names came from a whole run that crashed: no test can
    # be said to carry it, so it is not counted as lost.
    lost = [e["fault"] for e in matrix if e["failing"] and set(e["failing"]) <= dropped]
    for fault in lost:
        print(f"lost  {fault}")
    print(f"{len(lost)} of them killed only by the dropped tests")
    return 1 if lost else 0


if __name__ == "__main__":
    sys.exit(main())
