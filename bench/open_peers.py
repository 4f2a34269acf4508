"""Measures the opening of a full log, which checks all of it, against the checks of other logs."""

import os

import inputs
import wine
from harness import run_process
from meter import Meter

SLOTS = 1_000_000


def verify(bench):
    files = [f"--file={file}" for file in inputs.journal_files(bench, SLOTS)]
    command = bench.pin(["journalctl", "--verify", "--quiet", *files])
    return lambda: run_process(command, bench.path("out")).seconds * 1e3


def open_peers(bench):
    log = wine.windows_path(inputs.copied_log(bench, SLOTS))
    database = bench.path("log.sqlite")
    with wine.running(), wine.meter("open_bench.exe", log, SLOTS) as ours, \
         Meter(bench.pin(["build/bin/sqlite_bench", database, str(SLOTS)])) as sqlite:
        opened = ("open", ours.turn("open", 1e-6))
        checked = ("SQLite integrity_check", sqlite.turn("check", 1e-6))
        bench.take_turns("open", opened, ("journalctl --verify", verify(bench)), "ms", 1 / 50, slots=SLOTS)
        bench.take_turns("open", opened, checked, "ms", 1 / 5, slots=SLOTS, pairs=bench.memory_pairs)
    for end in ("", "-wal", "-shm"):
        if os.path.exists(database + end):
            os.remove(database + end)
