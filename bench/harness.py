"""Measures our cost against a floor or a peer, in turns and in one run, and makes the tables.

Absolute times vary by a third between runs. The median of the ratios of interleaved pairs (A B A B ...) varies by a
few per cent only. A scenario is a function that takes a Bench and adds rows to it. In every row smaller is better.
"""

import dataclasses
import json
import math
import os
import platform
import re
import statistics
import subprocess
import textwrap
import time

from failure import Failure

# The greatest exponents with which a cost may grow with the number of slots: for an operation that of n log n between a
# thousand and a million, for a message nearly none. Both leave room for caches that a large file does not fit into.
GROWTH_LIMITS = {"operation": 1.3, "message": 0.3}

# The document's tables are between these lines.
DOCUMENT_WIDTH = 120
MARKS = ("<!-- figures of ./bench.sh -->", "<!-- end of the figures -->")


@dataclasses.dataclass
class Run:
    """One run of a whole process."""

    seconds: float
    cpu_seconds: float
    peak_bytes: int


@dataclasses.dataclass
class Row:
    """One row of the tables: our cost against another; smaller is better."""

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
    slots: int | None = None  # capacity of the log
    per: str | None = None  # the value is the cost of a "message" or an "operation"
    exponent: float | None = None  # of the growth of our value with the slots, over all rows of the same name

    def verdict(self):
        if self.goal is None:
            return ""
        return "ok" if self.ratio <= self.goal else "MISSED"

    def growth_verdict(self):
        if self.exponent is None:
            return ""
        return "ok" if self.exponent <= GROWTH_LIMITS[self.per] else "MISSED"

    def missed(self):
        return "MISSED" in (self.verdict(), self.growth_verdict())


def run_process(command, output):
    """Runs `command` (a list) with its output in the file `output`. Throws Failure if it fails."""
    with open(output, "wb") as out:
        begun = time.perf_counter()
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=out, stderr=subprocess.PIPE)
        errors = process.stderr.read()
        _, status, usage = os.wait4(process.pid, 0)
        seconds = time.perf_counter() - begun
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        raise Failure(f"{' '.join(command)} failed with {process.returncode}: {errors.decode(errors='replace')}")
    return Run(seconds, usage.ru_utime + usage.ru_stime, usage.ru_maxrss * 1024)


def quarter_spread(values):
    if len(values) < 4:
        return (max(values) - min(values)) / 2
    low, _, high = statistics.quantiles(values, n=4)
    return (high - low) / 2


class Bench:
    """Collects rows and makes the tables."""

    def __init__(self, work, pairs):
        self.work = work
        self.pairs = pairs
        self.memory_pairs = max(pairs, 9) if pairs >= 5 else pairs  # for costs bounded by memory: they scatter more
        self.rows = []

    def path(self, name):
        return os.path.join(self.work, name)

    def pin(self, command):
        return ["taskset", "-c", "0", *command]

    def compare(self, scenario, ours, other, goal=None, **more):
        """Compares wall-clock times of whole processes as users start them: each may use all processors. `ours` and
        `other`: (name, command)."""
        def seconds(command, output):
            return lambda: run_process(command, self.path(output)).seconds
        self.take_turns(scenario, (ours[0], seconds(ours[1], "out.ours")), (other[0], seconds(other[1], "out.other")),
                        "s", goal, **more)

    def take_turns(self, scenario, ours, other, unit, goal=None, pairs=None, **more):
        """Measures both in turns, after one unmeasured turn that warms both. `ours` and `other`: (name, function that
        returns one value)."""
        ours[1](), other[1]()
        pairs = [(ours[1](), other[1]()) for _ in range(pairs or self.pairs)]
        self.add_pairs(scenario, ours[0], other[0], pairs, unit, goal, **more)

    def add_pairs(self, scenario, ours, other, pairs, unit, goal=None, **more):
        """`pairs`: (our value, the other's) measured in turns. `more`: fields of Row."""
        ratios = [mine / theirs for mine, theirs in pairs]
        self.add(Row(scenario, ours, other, statistics.median(ratios), quarter_spread(ratios),
                     statistics.median(mine for mine, _ in pairs), statistics.median(theirs for _, theirs in pairs),
                     unit, goal, len(pairs), **more))

    def add(self, row):
        self.rows.append(row)
        print(format_row(row), flush=True)

    def write(self, path):
        rows = [{**dataclasses.asdict(row), "verdict": row.verdict(), "growth": row.growth_verdict()}
                for row in self.rows]
        with open(path, "w", encoding="utf-8") as file:
            json.dump({"machine": machine(), "rows": rows}, file, indent=2)
            file.write("\n")

    def write_into(self, document):
        """Replaces the text between the document's two marks by the machine and the tables."""
        with open(document, encoding="utf-8") as file:
            text = file.read()
        if MARKS[0] not in text or MARKS[1] not in text:
            raise Failure(f"{document} has no lines {MARKS[0]!r} and {MARKS[1]!r} to put the tables between")
        before, rest = text.split(MARKS[0], 1)
        after = rest.split(MARKS[1], 1)[1]
        about = textwrap.wrap("; ".join(f"{key}: {value}" for key, value in machine().items()), DOCUMENT_WIDTH)
        lines = [*about, *document_tables([fields(row) for row in self.rows])]
        with open(document, "w", encoding="utf-8") as file:
            file.write(f"{before}{MARKS[0]}\n\n" + "\n".join(lines) + f"\n\n{MARKS[1]}{after}")

    def measure_growth(self):
        """Sets the exponent of the growth of every row whose cost was measured at several capacities."""
        for row in self.rows:
            family = [other for other in self.rows if row.slots and row.per and
                      (row.scenario, row.ours, row.other) == (other.scenario, other.ours, other.other)]
            if len({other.slots for other in family}) > 1:
                row.exponent = exponent([(other.slots, other.ours_value) for other in family])

    def missed(self):
        return [row for row in self.rows if row.missed()]


def exponent(points):
    """The slope of the straight line through the logarithms."""
    logs = [(math.log(size), math.log(max(cost, 1e-12))) for size, cost in points]
    middle = statistics.fmean(size for size, _ in logs), statistics.fmean(cost for _, cost in logs)
    return (sum((size - middle[0]) * (cost - middle[1]) for size, cost in logs) /
            sum((size - middle[0]) ** 2 for size, _ in logs))


def machine():
    model = ""
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        for line in file:
            if line.startswith("model name"):
                model = line.split(":", 1)[1].strip()
                break
    wine = subprocess.run(["dpkg-query", "--show", "--showformat=${Version}", "wine64"], capture_output=True, text=True,
                          check=False).stdout
    return {"processor": model, "cores": os.cpu_count(), "kernel": platform.release(), "wine": wine,
            "load": round(os.getloadavg()[0], 2), "date": time.strftime("%Y-%m-%d")}


WIDTHS = (11, 36, 9, 36, 7, 6, 6, 6, 12)
TITLES = ("scenario", "ours", "slots", "against", "ratio", "+-", "goal", "", "growth", "ours : theirs")


def number(value):
    """Four significant digits, without an exponent."""
    return f"{float(f'{value:.4g}'):,.0f}" if abs(value) >= 10_000 else f"{value:.4g}"


def fields(row):
    """The columns of TITLES as texts."""
    goal = "" if row.goal is None else f"{row.goal:.3g}"
    growth = "" if row.exponent is None else f"n^{row.exponent:.2f} {row.growth_verdict()}"
    per = "" if row.per is None else f" a {row.per}" if row.per == "message" else " in all"
    slots = "" if row.slots is None else f"{row.slots:,}"
    values = f"{number(row.ours_value)} : {number(row.other_value)} {row.unit}{per}"
    return (row.scenario, row.ours, slots, row.other, f"{row.ratio:.3g}", f"{row.spread:.2g}", goal, row.verdict(),
            growth, values)


def document_tables(rows):
    """The lines of two tables for each scenario: the ratios, and the costs under the same row numbers."""
    lines = []
    for scenario in dict.fromkeys(row[0] for row in rows):
        ratios, costs = [], []
        for index, (name, ours, slots, other, ratio, spread, goal, verdict, growth, values) in enumerate(rows, 1):
            if name == scenario:
                ratios.append((str(index), ours, slots, other, ratio, spread, f"{goal} {verdict}".strip()))
                costs.append((str(index), ours, slots, values, growth))
        lines += ["", f"### {scenario}", ""]
        lines += table(("#", "ours", "slots", "against", "ratio", "±", "goal"), ratios)
        lines += ["", *table(("#", "ours", "slots", "ours : theirs", "growth"), costs)]
    for line in lines:
        if len(line) > DOCUMENT_WIDTH:
            raise Failure(f"a line of the document would have more than {DOCUMENT_WIDTH} characters: {line}")
    return lines


def table(titles, rows):
    return [f"| {' | '.join(titles)} |", "|---" * len(titles) + "|",
            *(re.sub(r"  +", " ", f"| {' | '.join(row)} |") for row in rows)]


def format_fields(texts):
    right = (2, 4, 5, 6)
    columns = [text.rjust(width) if index in right else text.ljust(width)
               for index, (text, width) in enumerate(zip(texts, WIDTHS))]
    return " ".join([*columns, texts[-1]]).rstrip()


def format_row(row):
    return format_fields(fields(row))


HEAD = format_fields(TITLES)
