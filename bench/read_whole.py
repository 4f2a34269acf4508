"""Measures a client that reads the whole log, newest message first, against copies of the same slots and other logs.

"snapshot" is the normal way: a private copy, its messages in order of time, and one access to each. "in place" copies
each message out of the shared memory while the server waits; few programs should do that. The goals are for reading in
place; a snapshot makes a copy in addition.
"""

import os

import inputs
import wine
from meter import Meter

FLOOR_GOAL = 1.05
PEERS = {"sd-journal library": 1 / 8, "SQLite": 1 / 4, "LMDB, whole records": 1 / 2, "LMDB, texts only": None}


def peer_commands(bench, slots):
    return {"sd-journal library": ["build/bin/journal_bench", str(slots), *inputs.journal_files(bench, slots)],
            "SQLite": ["build/bin/sqlite_bench", bench.path("log.sqlite"), str(slots)],
            "LMDB, whole records": ["build/bin/lmdb_bench", bench.path("log.lmdb"), str(slots), "whole"],
            "LMDB, texts only": ["build/bin/lmdb_bench", bench.path("log.lmdb"), str(slots), "packed"]}


def read(bench):
    for slots in inputs.SIZES:
        log = wine.windows_path(inputs.copied_log(bench, slots))
        scale = 1 / slots  # nanoseconds a message
        large = slots > 1_000  # in a small log, read access is most of the cost
        how = {"pairs": bench.memory_pairs, "slots": slots}
        with wine.running(), wine.meter("read_bench.exe", log, slots) as meter:
            in_place = ("in place, newest first", meter.turn("in-place", scale))
            snapshot = ("snapshot, newest first", meter.turn("snapshot", scale))
            bench.take_turns("read", in_place, ("memcpy of the same slots", meter.turn("copy-one", scale)), "ns",
                             FLOOR_GOAL if large else None, per="message", **how)
            bench.take_turns("read", snapshot, ("memcpy into as much memory", meter.turn("copy", scale)), "ns",
                             per="message", **how)
            for peer, command in peer_commands(bench, slots).items() if large else ():
                with Meter(bench.pin(command)) as theirs:
                    for ours, goal in ((in_place, PEERS[peer]), (snapshot, None)):
                        bench.take_turns("read", ours, (peer, theirs.turn("read", scale)), "ns", goal, **how)
    remove_databases(bench)


def remove_databases(bench):
    for name in ("log.sqlite", "log.sqlite-wal", "log.sqlite-shm", "log.lmdb"):
        if os.path.exists(bench.path(name)):
            os.remove(bench.path(name))
