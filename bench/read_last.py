"""Measures reading the last 100 messages, read access included, against 8 bare event calls, as many as access makes."""

import inputs
import wine


def last(bench):
    for slots in inputs.SIZES:
        log = wine.windows_path(inputs.copied_log(bench, slots))
        with wine.running(), wine.meter("read_bench.exe", log, slots) as meter:
            bench.take_turns("last", ("last 100 messages", meter.turn("last", 1e-3)),
                             ("8 bare event calls", meter.turn("events", 1e-3)), "us", 0.85, slots=slots,
                             per="operation")
