"""Measures tamlogctl on a copied log file against journalctl and grep over the same messages."""

import os

import inputs
from harness import run_process

SLOTS = 1_000_000
SEARCHED = "timed out"


def commands(bench, count):
    journal = [f"--file={file}" for file in inputs.journal_files(bench, count)]
    return (["build/bin/tamlogctl", "show", "--file", inputs.log_file(bench, count)[0]],
            ["journalctl", "--no-pager", "--quiet", *journal])


def show(bench):
    for slots in inputs.SIZES:
        ours, theirs = commands(bench, slots)
        # With a small log, most of the cost is the start of the program; these rows show the growth.
        bench.compare("show", ("show -o cat", [*ours, "-o", "cat"]), ("journalctl -o cat", [*theirs, "-o", "cat"]),
                      goal=0.1 if slots == SLOTS else None, slots=slots, per="operation")
    log, text = inputs.log_file(bench, SLOTS)
    bench.compare("show", ("show -o short", [*ours, "-o", "short"]),
                  ("journalctl -o short-iso", [*theirs, "-o", "short-iso"]), goal=0.1, slots=SLOTS)
    bench.compare("show", ("show -o json", [*ours, "-o", "json"]), ("journalctl -o json", [*theirs, "-o", "json"]),
                  goal=0.1, slots=SLOTS)
    bench.compare("show", ("show -g TEXT", [*ours, "-g", SEARCHED]), ("journalctl -g TEXT", [*theirs, "-g", SEARCHED]),
                  goal=0.1, slots=SLOTS)
    bench.compare("show", ("show -g TEXT", [*ours, "-g", SEARCHED]),
                  ("grep TEXT in the exported text", ["grep", SEARCHED, text]), slots=SLOTS)
    bench.compare("show", ("show -n 100", [*ours, "-n", "100"]), ("journalctl -n 100", [*theirs, "-n", "100"]),
                  slots=SLOTS)
    last_hundred(bench, ours)
    memory(bench, ours, log)


def last_hundred(bench, ours):
    """Measures the last 100 messages of a million without the start of the program, in milliseconds, against 10."""
    pairs = []
    for _ in range(bench.pairs):
        whole = run_process(bench.pin([*ours, "-n", "100"]), bench.path("out")).seconds
        start = run_process(bench.pin(["build/bin/tamlogctl", "version"]), bench.path("out")).seconds
        pairs.append((max(whole - start, 0) * 1000, 10.0))
    bench.add_pairs("show", "show -n 100, without start", "10 ms", pairs, "ms", goal=1.0, slots=SLOTS)


def memory(bench, ours, log):
    size = os.path.getsize(log) / 2**20
    pairs = []
    for _ in range(3):
        pairs.append((run_process([*ours, "-o", "cat"], bench.path("out")).peak_bytes / 2**20, size))
    bench.add_pairs("show", "show: most memory held", "the file's size", pairs, "MiB", goal=1.1, slots=SLOTS)
