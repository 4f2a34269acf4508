"""Measures the processor time of the idle service with its default settings."""

import glob
import time

import inputs
import wine
from failure import Failure

WINDOW = 2.0  # seconds
GOAL = 2.0  # milliseconds a second


def processor_nanoseconds(process):
    """Returns the time of all threads by the scheduler's own count, which is finer than the ticks of `ps`."""
    total = 0
    for path in glob.glob(f"/proc/{process}/task/*/schedstat"):
        with open(path, encoding="ascii") as file:
            total += int(file.read().split()[0])
    return total


def spent(process):
    """Returns the processor time in milliseconds a second, over one window."""
    begin, before = time.monotonic(), processor_nanoseconds(process)
    time.sleep(WINDOW)
    return (processor_nanoseconds(process) - before) / 1e6 / (time.monotonic() - begin)


def idle(bench):
    for slots in inputs.SIZES:
        with wine.running(), wine.service(inputs.copied_log(bench, slots), slots):
            processes = wine.server_processes()
            if len(processes) != 1:
                raise Failure(f"{len(processes)} processes of the server run, not one")
            server = processes[0]
            bench.take_turns("idle", ("idle server, a second", lambda: spent(server)), ("2 ms", lambda: GOAL), "ms",
                             1.0, slots=slots, per="operation")
