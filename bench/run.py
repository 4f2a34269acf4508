#!/usr/bin/env python3
"""Runs the named scenarios, or all; bench.sh prepares what they need and calls this."""

import argparse
import inspect
import os
import sys

import show
import store
from harness import HEAD, Bench, machine

SCENARIOS = {"show": show.show, "store": store.store}


def main():
    parser = argparse.ArgumentParser(prog="bench.sh", description="Measures the project's programs against floors and "
                                     "peers, in turns and in one run, and prints ratios: smaller is better.")
    parser.add_argument("names", nargs="*", metavar="NAME", help=f"scenarios: {', '.join(SCENARIOS)} (default: all)")
    parser.add_argument("--pairs", type=int, default=5, help="measured pairs for each row (5)")
    parser.add_argument("--json", default="build/bench/results.json", help="also write the rows there")
    options = parser.parse_args()
    unknown = [name for name in options.names if name not in SCENARIOS]
    if unknown:
        parser.error(f"there is no scenario {unknown[0]!r}; there are {', '.join(SCENARIOS)}")
    os.makedirs("build/bench", exist_ok=True)
    bench = Bench("build/bench", options.pairs)
    print("  ".join(f"{key}: {value}" for key, value in machine().items()))
    for name in options.names or SCENARIOS:
        print(f"\n{name}: {inspect.getdoc(sys.modules[SCENARIOS[name].__module__])}\n{HEAD}")
        SCENARIOS[name](bench)
    bench.write(options.json)
    missed = bench.missed()
    print(f"\n{len(bench.rows)} rows, {len(missed)} missed their goal; {options.json} holds the figures")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
