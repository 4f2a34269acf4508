"""Measures requests through the running server's pipes against a bare blocking echo of as many bytes."""

import contextlib
import subprocess

import inputs
import wine

GOAL = 1 / 0.97  # of the time: 0.97 of the echo's round trips in a second
KINDS = {"ping": "ping", "submit": "submit", "library-submit": "submit (library)"}
WITH_ALL_CLIENTS = 50_000


@contextlib.contextmanager
def echo_server():
    echo = subprocess.Popen(wine.command("round_trips_bench.exe", "echo"), env=wine.environment(),
                            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        yield
    finally:
        echo.kill()
        echo.wait()


def round_trips(bench):
    for slots in inputs.SIZES:
        with wine.running(), wine.service(inputs.copied_log(bench, slots), slots), echo_server(), \
             wine.meter("round_trips_bench.exe") as meter:
            for kind, text in KINDS.items():
                for clients in (1, 4, 16):
                    # The number of clients is independent of the size of the log.
                    if slots != WITH_ALL_CLIENTS and (kind, clients) != ("submit", 1):
                        continue
                    number = f"{clients} client{'s' if clients > 1 else ''}"
                    bench.take_turns("round-trips", (f"{text}, {number}", meter.turn(f"{kind}-{clients}", 1e-3)),
                                     (f"bare echo, {number}", meter.turn(f"echo-{clients}", 1e-3)), "us", GOAL,
                                     slots=slots, per="message")
