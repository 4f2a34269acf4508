#!/usr/bin/env python3
"""Runs the named scenarios, or all. bench.sh prepares what they need and calls this program."""

import argparse
import inspect
import os
import sys
import time

import append
import driver_drain
import flush_guards
import idle
import open_peers
import read_last
import read_whole
import round_trips
import show
import store
import wine_requests
from failure import Failure
from harness import HEAD, Bench, format_row, machine

DESCRIPTION = """\
Measures the project's programs against a floor (a cost that the work cannot avoid) or a peer (another program that does
the same), each pair in turns and in one run. Prints machine, medians, spread, ratio and goal; smaller is better. Prints
the growth of costs that were measured at several capacities of the log as a power of the capacity. Installs missing
Debian packages and builds first. Do not use the machine meanwhile. Inputs are kept in build/bench."""
SCENARIOS = {
    "round-trips": round_trips.round_trips,
    "requests": wine_requests.requests,
    "driver": driver_drain.driver,
    "store": store.store,
    "open": open_peers.open_peers,
    "read": read_whole.read,
    "last": read_last.last,
    "append": append.append,
    "flush": flush_guards.flush_guards,
    "idle": idle.idle,
    "show": show.show,
}


def about(name):
    return inspect.getdoc(sys.modules[SCENARIOS[name].__module__])


def parse():
    scenarios = "\n".join(f"  {name:12} {about(name).splitlines()[0]}" for name in SCENARIOS)
    parser = argparse.ArgumentParser(
        prog="./bench.sh", formatter_class=argparse.RawDescriptionHelpFormatter,
        description=DESCRIPTION,
        epilog=f"scenarios:\n{scenarios}\n\n"
               "Exit code: 0 when every goal is met, 1 when one is missed, 2 when a measurement failed.")
    parser.add_argument("names", nargs="*", metavar="NAME", help="scenarios to run; all when none is named")
    parser.add_argument("--pairs", type=int, default=5,
                        help="measured pairs for each row (default: %(default)s; 9 for costs bounded by memory)")
    parser.add_argument("--json", default="build/bench/results.json",
                        help="file to write the rows to (default: %(default)s)")
    parser.add_argument("--document", metavar="FILE",
                        help="replace the tables of this document by those of all scenarios")
    options = parser.parse_args()
    unknown = [name for name in options.names if name not in SCENARIOS]
    if unknown:
        parser.error(f"unknown scenario {unknown[0]!r}; scenarios: {', '.join(SCENARIOS)}")
    if options.document and options.names:
        parser.error("--document needs all scenarios: remove the scenario names")
    return options


def run(options):
    bench = Bench("build/bench", options.pairs)
    begun = time.monotonic()
    print("  ".join(f"{key}: {value}" for key, value in machine().items()))
    for name in options.names or SCENARIOS:
        print(f"\n{name}: {about(name)}\n{HEAD}")
        SCENARIOS[name](bench)
    bench.measure_growth()
    print(f"\nall\n{HEAD}", *map(format_row, bench.rows), sep="\n")
    bench.write(options.json)
    if options.document:
        bench.write_into(options.document)
    missed = bench.missed()
    if missed:
        print("\nmissed", *map(format_row, missed), sep="\n")
    print(f"\n{len(bench.rows)} rows, {len(missed)} missed their goal, {time.monotonic() - begun:.0f} s; "
          f"{options.json} holds the figures")
    return 1 if missed else 0


def main():
    options = parse()
    os.makedirs("build/bench", exist_ok=True)
    try:
        return run(options)
    except Failure as failure:
        print(f"bench: {failure}", file=sys.stderr)
        return 2
    except KeyboardInterrupt:
        return 130


if __name__ == "__main__":
    sys.exit(main())
