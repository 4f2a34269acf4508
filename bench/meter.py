"""Runs a program that measures on demand (bench/turns.h), so that several can take turns while each stays warm."""

import subprocess
import tempfile
import threading

from failure import Failure

PATIENCE = 300  # seconds for one measurement


class Meter:
    """Owns the process. Use it in a `with` statement, which ends the process."""

    def __init__(self, command, environment=None):
        self.command = command
        self.errors = tempfile.TemporaryFile()
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=self.errors,
                                        text=True, env=environment)
        self.expect("ready")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.stdin.close()
        try:
            self.process.wait(60)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()
        self.process.stdout.close()
        self.errors.close()

    def line(self):
        """Returns the next line of output. Throws Failure if the program ends or stays silent for PATIENCE seconds."""
        hurry = threading.Timer(PATIENCE, self.process.kill)
        hurry.start()
        line = self.process.stdout.readline()
        hurry.cancel()
        if not line:
            self.fail("ended, or was silent for too long")
        return line.strip()

    def expect(self, wanted):
        line = self.line()
        if line != wanted:
            self.fail(f"said {line!r} instead of {wanted!r}")

    def fail(self, what):
        self.process.kill()
        self.process.wait()
        self.errors.seek(0)
        raise Failure(f"{' '.join(self.command)} {what}: {self.errors.read().decode(errors='replace').strip()}")

    def take(self, name, scale=1.0):
        """Makes one measurement and returns its value times `scale`."""
        try:
            self.process.stdin.write(name + "\n")
            self.process.stdin.flush()
        except BrokenPipeError:
            self.fail("has ended")
        return float(self.line()) * scale

    def turn(self, name, scale=1.0):
        """Returns a function that does the same, for Bench.take_turns."""
        return lambda: self.take(name, scale)
