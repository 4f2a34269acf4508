"""Measures the server's poll of 10,000 messages from the driver against a bare loop of device control calls."""

import inputs
import wine

GOAL = 1 / 0.97  # of the time: 0.97 of the loop's messages in a second


def driver(bench):
    for slots in inputs.SIZES:
        with wine.running():
            # The benchmark itself calls the poll, not the timer.
            wine.set_up_server(inputs.copied_log(bench, slots), slots, DevicePollRate=3_600_000)
            with wine.meter("driver_drain_bench.exe") as meter:
                bench.take_turns("driver", ("drain by the driver poll", meter.turn("poll", 1e-3)),
                                 ("bare device control loop", meter.turn("bare", 1e-3)), "us", GOAL,
                                 slots=slots, per="message")
