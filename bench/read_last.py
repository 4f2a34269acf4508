"""Measures reading the last 100 messages, and the whole log, without read access and with.

The floor of the first is 8 bare event calls, as many as read access makes by its steps.
"""

import inputs
import wine


def last(bench):
    for slots in inputs.SIZES:
        log = wine.windows_path(inputs.copied_log(bench, slots))
        with wine.running(), wine.meter("read_bench.exe", log, slots) as meter:
            events = ("8 bare event calls", meter.turn("events", 1e-3))
            for name, measurement, goal in (("last 100 messages", "last", 0.35),
                                            ("last 100, with access", "last-access", None)):
                bench.take_turns("last", (name, meter.turn(measurement, 1e-3)), events, "us", goal, slots=slots,
                                 per="operation")
            bench.take_turns("last", ("whole log", meter.turn("whole", 1e-6)),
                             ("whole log, with access", meter.turn("whole-access", 1e-6)), "ms", slots=slots,
                             pairs=bench.memory_pairs)
