"""Counts the requests to Wine's server that an operation makes: whole numbers, almost without noise.

Wine's server prints every request. A series of N operations and one of 2N are between marks (marks.h); the difference
is the cost of N operations, in all threads that take part. Threads with less than one request for two operations do
something else (timers, for example). An answer that arrives before it is requested saves a wait, three requests; so a
lower count is no failure. Locks and events of a request's own would show as requests that are neither reads, writes
nor waits for those.
"""

import collections
import os
import re

import inputs
import round_trips
import wine
from harness import Row

COUNT = 200  # operations of the shorter series
SLOTS = 50_000
REQUEST = re.compile(r"^([0-9a-f]{4}): ([a-z_]+)\((?!\) =)")
TRANSFER = ("read", "write", "select", "get_async_result")
# The highest allowed counts. A bare echo and the client's reading are for comparison.
GOALS = {"bare echo": None, "ping": 14, "submit": 14, "submit (library)": 14, "message taken from the driver": 8,
         "last 100 messages read": 2, "last 100, with access": None, "whole log read": 2,
         "whole log, with access": None, "AddMessage": 0, "look through 100 filters": 0}


def series(trace):
    """Yields the requests of each series between marks, counted by thread and kind."""
    current = None
    with open(trace, encoding="utf-8", errors="replace") as lines:
        for line in lines:
            if "TamLogBenchBegin" in line:
                current = collections.Counter()
            elif "TamLogBenchEnd" in line:
                if current is not None:
                    yield current
                current = None
            elif current is not None and (match := REQUEST.match(line)):
                current[match[1], match[2]] += 1


def per_operation(once, twice, kinds_left_out=()):
    of_thread = collections.Counter()
    for (thread, _), number in twice.items():
        of_thread[thread] += number
    return sum((twice[thread, kind] - once[thread, kind]) / COUNT for thread, kind in twice
               if of_thread[thread] >= COUNT and kind not in kinds_left_out)


def count_all(bench):
    with wine.service(inputs.copied_log(bench, SLOTS), SLOTS), round_trips.echo_server(), \
         wine.meter("round_trips_bench.exe", COUNT) as meter:
        for kind in ("echo", *round_trips.KINDS):
            meter.take(f"count-{kind}")
    wine.set_up_server(inputs.copied_log(bench, SLOTS), SLOTS, DevicePollRate=3_600_000)
    with wine.meter("driver_drain_bench.exe", COUNT) as meter:
        meter.take("count-poll")
    log = inputs.copied_log(bench, SLOTS)
    with wine.meter("read_bench.exe", wine.windows_path(log), SLOTS, COUNT) as meter:
        for kind in ("last", "last-access", "whole", "whole-access"):
            meter.take(f"count-{kind}")
    with wine.meter("append_bench.exe", wine.windows_path(log), SLOTS, COUNT) as meter:
        meter.take("count-add"), meter.take("count-filter")


def add(bench, operation, exact, goal):
    number = round(exact)
    bench.add(Row("requests", operation, "" if goal is None else "at most", number, abs(exact - number), number,
                  number if goal is None else goal, "requests", goal, 1))


def requests(bench):
    trace = os.path.abspath(bench.path("requests.trace"))
    with wine.running(trace):
        count_all(bench)
    counted = list(series(trace))
    os.remove(trace)
    for index, (operation, goal) in enumerate(GOALS.items()):
        once, twice = counted[3 * index + 1:3 * index + 3]
        add(bench, operation, per_operation(once, twice), goal)
        if operation == "submit":
            add(bench, "submit: no read, write or wait", per_operation(once, twice, TRANSFER), 0)
