"""Measures how long a flush keeps readers out of the log and a client from submitting the next message."""

import inputs
import wine

LONGEST_WAIT = 100.0  # microseconds


def flush_guards(bench):
    for slots in inputs.SIZES[1:]:
        log = wine.windows_path(inputs.copied_log(bench, slots))
        # Two processors: the submitting thread must wait for locks, not for the only processor.
        with wine.running(), wine.meter("flush_guards_bench.exe", log, slots, processors="0,1") as meter:
            for _ in range(2 * slots // 20_000):  # writes each slot once
                meter.take("submit-wait")
            limit = ("a tenth of a millisecond", lambda: LONGEST_WAIT)
            bench.take_turns("flush", ("readers out, flush of 2,000", meter.turn("readers-out", 1e-3)),
                             ("5 calls, 1.15 x 2,000 copies", meter.turn("limit", 1e-3)), "us", 1.0,
                             pairs=bench.memory_pairs, slots=slots, per="operation")
            bench.take_turns("flush", ("longest submit, flush 20,000", meter.turn("submit-wait", 1e-3)),
                             limit, "us", 1.0, slots=slots, per="operation")
            bench.take_turns("flush", ("longest submit, no flush", meter.turn("submit-alone", 1e-3)),
                             limit, "us", slots=slots)
