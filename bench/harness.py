"""Measures our programs against a floor or a peer, in turns and in one run, and prints ratios.

Absolute times move by a third from run to run; the median of ratios of interleaved pairs (A B A B ...) holds to a few
per cent. A scenario is a function that takes a Bench and calls `compare` for each row of its table.
"""

import dataclasses
import json
import os
import platform
import statistics
import subprocess
import sys
import time


@dataclasses.dataclass
class Run:
    """One run of a whole process."""

    seconds: float
    cpu_seconds: float
    peak_bytes: int


@dataclasses.dataclass
class Row:
    """One line of the table: ours against another, smaller is better."""

    scenario: str
    ours: str
    other: str
    ratio: float
    spread: float  # half of the range that holds the middle half of the ratios
    ours_value: float
    other_value: float
    unit: str
    goal: float | None
    pairs: int

    def verdict(self):
        if self.goal is None:
            return ""
        return "met" if self.ratio <= self.goal else "MISSED"


def run_process(command, output):
    """Runs `command` (a list) with its output in the file `output`; a failure ends the benchmark."""
    with open(output, "wb") as out:
        begun = time.perf_counter()
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.PIPE)
        errors = process.stderr.read()
        _, status, usage = os.wait4(process.pid, 0)
        seconds = time.perf_counter() - begun
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"bench: {' '.join(command)} failed with {process.returncode}: {errors.decode(errors='replace')}")
    return Run(seconds, usage.ru_utime + usage.ru_stime, usage.ru_maxrss * 1024)


def quarter_spread(values):
    if len(values) < 4:
        return (max(values) - min(values)) / 2
    low, _, high = statistics.quantiles(values, n=4)
    return (high - low) / 2


class Bench:
    """Collects rows, prints the table and writes the JSON file."""

    def __init__(self, work, pairs):
        self.work = work
        self.pairs = pairs
        self.rows = []

    def path(self, name):
        return os.path.join(self.work, name)

    def pin(self, command):
        return ["taskset", "-c", "0", *command]

    def compare(self, scenario, ours, other, goal=None):
        """`ours` and `other`: (name, command). Compares wall-clock times of whole processes."""
        pairs = []
        for command in (ours[1], other[1]):  # once unmeasured: files come into the cache
            run_process(self.pin(command), self.path("out"))
        for _ in range(self.pairs):
            pairs.append((run_process(self.pin(ours[1]), self.path("out.ours")).seconds,
                          run_process(self.pin(other[1]), self.path("out.other")).seconds))
        self.add_pairs(scenario, ours[0], other[0], pairs, "s", goal)

    def add_pairs(self, scenario, ours, other, pairs, unit, goal=None):
        """`pairs`: (our value, the other's) measured in turns."""
        ratios = [mine / theirs for mine, theirs in pairs]
        self.rows.append(Row(scenario, ours, other, statistics.median(ratios), quarter_spread(ratios),
                             statistics.median(mine for mine, _ in pairs),
                             statistics.median(theirs for _, theirs in pairs), unit, goal, len(pairs)))
        print(format_row(self.rows[-1]), flush=True)

    def write(self, path):
        with open(path, "w", encoding="utf-8") as file:
            json.dump({"machine": machine(), "rows": [dataclasses.asdict(row) for row in self.rows]}, file, indent=2)
            file.write("\n")

    def missed(self):
        return [row for row in self.rows if row.verdict() == "MISSED"]


def machine():
    model = ""
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        for line in file:
            if line.startswith("model name"):
                model = line.split(":", 1)[1].strip()
                break
    return {"processor": model, "cores": os.cpu_count(), "kernel": platform.release(),
            "date": time.strftime("%Y-%m-%d")}


HEAD = f"{'scenario':12} {'ours':34} {'against':34} {'ratio':>8} {'+-':>6} {'goal':>6}        medians"


def format_row(row):
    goal = "" if row.goal is None else f"{row.goal:g}"
    return (f"{row.scenario:12} {row.ours:34} {row.other:34} {row.ratio:8.3f} {row.spread:6.3f} {goal:>6} "
            f"{row.verdict():6} {row.ours_value:.4g} : {row.other_value:.4g} {row.unit}")
