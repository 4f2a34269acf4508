"""Measures the server's store over a full file, in Wine, against copies, reads and event calls it cannot avoid."""

import collections
import os
import subprocess

import inputs
import wine
from failure import Failure

# The goal of each kind of row. The longest call and the memory are compared with a bound instead of a floor.
GOALS = {"add in order": 1.30, "add every second late": 1.6, "add 20000 reversed": 2.0,
         "longest add, every second late": 1.0, "flush of one": 0.90, "flush, a message of 200": 1.15,
         "flush, a message of 2000": 1.15, "flush, a message of 20000": 1.25, "open": 0.85, "private memory": 0.05,
         "filters, 10": 1 / 10, "filters, 100": 1 / 15}
FLOORS = {"add": "one key and one copy", "longest": "a tenth of a millisecond", "flush of": "6 event calls",
          "flush,": "one copy into the slots", "open": "the file read once", "private": "the file's size",
          "filters": "both sides folded each time"}
# Rows with a goal for the large file only.
LARGE_ONLY = ("open", "private memory")


def run(*arguments, pairs):
    """Runs store_bench once and returns the fields of its lines."""
    command = wine.command("store_bench.exe", *arguments, pairs)
    result = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=900,
                            env=wine.environment(), check=False)
    if result.returncode != 0:
        raise Failure(f"{' '.join(command)} failed with {result.returncode}: {result.stderr}")
    return [line.split("\t") for line in result.stdout.splitlines() if line]


# Rows whose value is the cost of an operation; all others are the cost of a message.
OPERATIONS = ("longest", "flush of one", "open", "private memory")


def kind_of(row, slots):
    return row.removesuffix(f", {slots}")


def goal_of(row, slots):
    kind = kind_of(row, slots)
    if slots < (1_000_000 if kind in LARGE_ONLY else 50_000) and not kind.startswith("filters"):
        return None
    return GOALS[kind]


def measure(bench, what, slots):
    log = bench.path("store.dat")
    rows = collections.OrderedDict()
    pairs = bench.memory_pairs if what in ("flush", "open") else bench.pairs
    for row, unit, ours, floor in run(what, wine.windows_path(log), slots, pairs=pairs):
        rows.setdefault((row, unit), []).append((float(ours), float(floor)))
    for (row, unit), pairs in rows.items():
        floor = next(text for start, text in FLOORS.items() if row.startswith(start))
        size = {} if what == "filters" else {
            "slots": slots, "per": "operation" if row.startswith(OPERATIONS) else "message"}
        bench.add_pairs("store", kind_of(row, slots), floor, pairs, unit, goal_of(row, slots), **size)
    if os.path.exists(log):
        os.remove(log)


def store(bench):
    with wine.running():
        measure(bench, "filters", 1)
        for slots in inputs.SIZES:
            for what in ("add", "flush", "open"):
                measure(bench, what, slots)
