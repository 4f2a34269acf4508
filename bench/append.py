"""Measures the cost of a message until it is in the file, its share of the flush included, against other logs.

All take batches of 2,000 and force nothing to the disk. LMDB and SQLite drop the oldest message for each new one, as a
full log does. spdlog writes text. systemd-journal-remote writes the journal, because it needs no daemon. A message
that is older than all others is expensive by the format: every message after its place is written again.
"""

import glob
import os

import inputs
import read_whole
import wine
from harness import run_process
from meter import Meter

EXPORTED = 50_000


def journal_turn(bench):
    """Returns a function that measures a fresh journal, in nanoseconds a message."""
    export, journal = inputs.export_file(bench, EXPORTED), bench.path("append.journal")

    def turn():
        for file in glob.glob(bench.path("append*.journal")):
            os.remove(file)
        command = bench.pin(inputs.journal_command(journal, export))
        return run_process(command, bench.path("out")).seconds / EXPORTED * 1e9
    return turn


def append(bench):
    text = bench.path("append.log")
    for slots in inputs.SIZES:
        log = wine.windows_path(inputs.copied_log(bench, slots))
        with wine.running(), wine.meter("append_bench.exe", log, slots) as meter, \
             wine.meter("spdlog_bench.exe", wine.windows_path(text)) as in_wine, \
             Meter(bench.pin(["build/bin/spdlog_bench", text])) as native:
            # Writes each slot once: the first touch of a page costs more than all the rest.
            for _ in range(max(3, 2 * slots // 20_000)):
                meter.take("append")
            ours = ("AddMessage and flush", meter.turn("append"))
            bench.take_turns("append", ours, ("spdlog file sink in Wine", in_wine.turn("append")), "ns",
                             goal(0.60, slots), slots=slots, per="message", pairs=bench.memory_pairs)
            bench.take_turns("append", ours, ("spdlog file sink, native", native.turn("append")), "ns",
                             goal(1.0, slots), slots=slots, pairs=bench.memory_pairs)
            if slots > 1_000:
                peers(bench, ours, slots)
            bench.take_turns("append", ("one older than all, and flush", meter.turn("flush-oldest", 1e-3)),
                             ("every slot read and written", meter.turn("rewrite-all", 1e-3)), "us",
                             slots=slots, per="operation")
    read_whole.remove_databases(bench)


def goal(ratio, slots):
    return ratio if slots > 1_000 else None


def peers(bench, ours, slots):
    commands = read_whole.peer_commands(bench, slots)
    lmdb_goal = 0.20 if slots == 1_000_000 else None
    for peer, ratio in (("LMDB, whole records", lmdb_goal), ("LMDB, texts only", None), ("SQLite", 0.25)):
        with Meter(bench.pin(commands[peer])) as theirs:
            bench.take_turns("append", ours, (peer, theirs.turn("append")), "ns", ratio, slots=slots,
                             pairs=bench.memory_pairs)
    bench.take_turns("append", ours, ("systemd-journal-remote", journal_turn(bench)), "ns", 0.04, slots=slots)
