"""tamlogctl on a copied log file, beside journalctl and grep over the same messages."""

import os
import subprocess
import sys

from harness import run_process

SEARCHED = "timed out"


def make_inputs(bench, count):
    """The log file, its lines as text, and a journal of the same messages; kept for the next run."""
    log, text, journal = (bench.path(f"show-{count}.{end}") for end in ("dat", "txt", "journal"))
    # The journal goes on in a new file every 128 MB.
    all_files = bench.path(f"show-{count}*.journal")
    if not (os.path.exists(log) and os.path.exists(text)):
        subprocess.run(["build/bin/make_log", str(count), log, text], check=True)
    if not os.path.exists(journal):
        make_journal(text, journal)
    return log, text, all_files


def make_journal(text, journal):
    """Through the program that turns journal exports into journal files. One entry each 50 ms."""
    remote = subprocess.Popen(["/lib/systemd/systemd-journal-remote", "--output", journal, "-"],
                              stdin=subprocess.PIPE, stderr=subprocess.DEVNULL)
    boot = "0" * 31 + "1"
    with open(text, encoding="utf-8") as lines:
        for number, line in enumerate(lines):
            source, _, message = line.rstrip("\n").partition(": ")
            remote.stdin.write((f"__REALTIME_TIMESTAMP={1767225600000000 + number * 50000}\n"
                                f"__MONOTONIC_TIMESTAMP={number * 50000 + 1}\n_BOOT_ID={boot}\n"
                                f"SYSLOG_IDENTIFIER={source}\nTAMLOG_TYPE=0\nMESSAGE={message}\n\n").encode())
    remote.stdin.close()
    if remote.wait() != 0:
        os.path.exists(journal) and os.remove(journal)
        sys.exit("bench: systemd-journal-remote could not write the journal")


def show(bench, count=1_000_000):
    log, text, journal = make_inputs(bench, count)
    ours = ["build/bin/tamlogctl", "show", "--file", log]
    theirs = ["journalctl", "--no-pager", "--quiet", "--file", journal]
    whole = "all" if count == 1_000_000 else str(count)
    bench.compare("show", (f"show -o cat, {whole}", [*ours, "-o", "cat"]),
                  ("journalctl -o cat", [*theirs, "-o", "cat"]), goal=0.1)
    bench.compare("show", (f"show -o short, {whole}", [*ours, "-o", "short"]),
                  ("journalctl -o short-iso", [*theirs, "-o", "short-iso"]), goal=0.1)
    bench.compare("show", (f"show -o json, {whole}", [*ours, "-o", "json"]),
                  ("journalctl -o json", [*theirs, "-o", "json"]), goal=0.1)
    bench.compare("show", ("show -g TEXT", [*ours, "-g", SEARCHED]),
                  ("journalctl -g TEXT", [*theirs, "-g", SEARCHED]), goal=0.1)
    bench.compare("show", ("show -g TEXT", [*ours, "-g", SEARCHED]),
                  ("grep TEXT in the exported text", ["grep", SEARCHED, text]))
    bench.compare("show", ("show -n 100", [*ours, "-n", "100"]), ("journalctl -n 100", [*theirs, "-n", "100"]))
    last_hundred(bench, ours)
    memory(bench, ours, log)


def last_hundred(bench, ours):
    """What the last 100 messages of a million cost beside starting the program, in milliseconds against 10."""
    pairs = []
    for _ in range(bench.pairs):
        whole = run_process(bench.pin([*ours, "-n", "100"]), bench.path("out")).seconds
        start = run_process(bench.pin(["build/bin/tamlogctl", "version"]), bench.path("out")).seconds
        pairs.append((max(whole - start, 0) * 1000, 10.0))
    bench.add_pairs("show", "show -n 100, without process start", "10 ms", pairs, "ms", goal=1.0)


def memory(bench, ours, log):
    size = os.path.getsize(log) / 2**20
    pairs = []
    for _ in range(3):
        pairs.append((run_process([*ours, "-o", "cat"], bench.path("out")).peak_bytes / 2**20, size))
    bench.add_pairs("show", "show: most memory held", "the file's size", pairs, "MiB", goal=1.1)
