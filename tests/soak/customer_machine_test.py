#!/usr/bin/env python3
"""The real service on a machine like a customer's: clocks that jump, a full disk, a directory that cannot be written,
a registry key that is locked, and a scanner that opens every file. scripts/customer-machine.sh runs it.

usage: customer_machine_test.py [CASE...]

Needs a Wine prefix of its own, which ctest provides, and restarts its server with other limits.
TAMLOG_CUSTOMER=whole runs the long form.
"""

import json
import os
import shutil
import subprocess
import sys
import tempfile
import time
import unittest
from datetime import datetime, timedelta

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
BIN = os.path.join(ROOT, "build", "bin")
KEY = r"HKLM\SOFTWARE\Brenmark VORTA\Torvane Log Server"
WHOLE = os.environ.get("TAMLOG_CUSTOMER") == "whole"
MIB = 1 << 20


def prefix():
    given = os.environ.get("CTEST_RESOURCE_GROUP_0_PREFIXES", "")  # id:NAME,slots:1
    if given:
        return os.path.join(ROOT, "build", "wine", given[3:].split(",")[0])
    return os.environ["WINEPREFIX"]


def windows_path(path):
    return "Z:" + path.replace("/", "\\")


def shell(command, seconds=120):
    """Runs a command in the environment of the prefix."""
    script = f'cd "{ROOT}"; . scripts/wine-env.sh "{prefix()}"; {command}'
    with tempfile.TemporaryFile() as output:
        done = subprocess.run(["setarch", "-R", "bash", "-c", script], stdin=subprocess.DEVNULL, stdout=output,
                              stderr=subprocess.STDOUT, timeout=seconds, check=False)
        output.seek(0)
        return done.returncode, output.read().decode("utf-8", "replace").replace("\r\n", "\n")


def restart_wine(before=""):
    """Restarts the prefix's server; `before` sets the limits of every program that runs in it from then on."""
    return shell(f"wine_server_stop; {before} bash -c '. scripts/wine-env.sh \"{prefix()}\"; wine_server_start'")


class Program:
    """A program that runs until its input is closed."""

    def __init__(self, name, *arguments, output=subprocess.PIPE):
        environment = dict(os.environ, WINEPREFIX=prefix())
        environment.pop("CTEST_RESOURCE_GROUP_0_PREFIXES", None)
        self.process = subprocess.Popen([os.path.join(ROOT, "scripts", "wine-run.sh"), os.path.join(BIN, name),
                                         *arguments], stdin=subprocess.PIPE, stdout=output, env=environment)

    def ready(self):
        return self.process.stdout.readline().decode().strip()

    def kill(self):
        self.process.kill()
        self.process.communicate()

    def finish(self):
        output, _ = self.process.communicate(timeout=60)
        return (output or b"").decode().strip()


class Machine(unittest.TestCase):
    """A machine with the driver double, a registered service, and a log in a directory of its own."""

    limits = ""  # commands of the shell that limit every program of the machine

    def setUp(self):
        self.clock = datetime(2026, 11, 1)
        self.folder = tempfile.mkdtemp(prefix="customer ")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.log = os.path.join(self.folder, "data", "Logs.dat")
        os.mkdir(os.path.dirname(self.log))
        self.begin()
        self.addCleanup(self.end)

    def begin(self):
        restart_wine(self.limits)
        self.tool("TamLogServer.exe", "-remove")
        self.reg("delete", KEY, "/f")
        self.succeed("tamlogdrv.exe", "install", windows_path(os.path.join(BIN, "tamlog.sys")))
        self.succeed("TamLogServer.exe", "-install")

    def end(self):
        self.tool("tamlogctl.exe", "server", "stop")
        self.tool("TamLogServer.exe", "-remove")
        self.tool("tamlogdrv.exe", "remove")
        self.reg("delete", KEY, "/f")
        restart_wine()

    def tool(self, name, *arguments):
        words = " ".join("'" + word.replace("'", "'\\''") + "'" for word in arguments)
        return shell(f'{self.limits} "$wine64" "{BIN}/{name}" {words}')

    def succeed(self, name, *arguments):
        code, output = self.tool(name, *arguments)
        self.assertEqual(code, 0, f"{name} {arguments}: {output}")
        return output

    def ctl(self, *arguments):
        return self.succeed("tamlogctl.exe", *arguments)

    @staticmethod
    def reg(*arguments):
        words = " ".join("'" + word + "'" for word in arguments)
        return shell(f'"$wine64" reg.exe {words}')

    def settings(self, capacity, log=None):
        for name, kind, value in (("LogFile", "REG_SZ", windows_path(log or self.log)),
                                  ("MaxMessage", "REG_DWORD", str(capacity)), ("SaveRate", "REG_DWORD", "1")):
            self.assertEqual(self.reg("add", KEY, "/v", name, "/t", kind, "/d", value, "/f")[0], 0)

    def texts(self):
        shown = self.ctl("show", "-q", "-o", "json")
        return [json.loads(line)["text"] for line in shown.splitlines() if line.startswith("{")] or shown

    def running(self):
        return self.tool("tamlogctl.exe", "server", "state")[0] == 0

    def send(self, begin, count):
        """Sends messages, each dated a second after the one before. Returns their texts."""
        texts = [f"{begin} {i}" for i in range(count)]
        self.import_texts([(self.next_time(), text) for text in texts])
        return texts

    def next_time(self):
        self.clock += timedelta(seconds=1)
        return self.clock

    def import_texts(self, messages):
        path = os.path.join(self.folder, "messages.tsv")
        with open(path, "w", encoding="ascii") as file:
            for at, text in messages:
                file.write(f"{at:%Y-%m-%d %H:%M:%S}.{at.microsecond // 1000:03}\t1\tCustomer\t{text}\n")
        self.ctl("import", "--input", "tsv", "--again", windows_path(path))


# --- Clocks.

def ticks(begin, count, step):
    return [begin + i * step for i in range(count)]


def hours_of(day, hours):
    """A day of a machine: a message every few seconds."""
    return ticks(day, hours * (360 if WHOLE else 12), timedelta(hours=hours) / (hours * (360 if WHOLE else 12)))


def clocks():
    """Returns the clock's readings in the order in which messages are sent, by what happens to the clock."""
    second = timedelta(seconds=1)
    n = 600 if WHOLE else 40
    autumn = datetime(2026, 10, 25, 2, 50)
    spring = datetime(2026, 3, 29, 1, 59, 40)
    return {
        "a day": hours_of(datetime(2026, 6, 1), 24),
        # 03:00 becomes 02:00: an hour comes twice.
        "the end of summer time": ticks(autumn, n, 600 * second / n) + ticks(datetime(2026, 10, 25, 2, 0), n, 3600 * second / n),
        # 02:00 becomes 03:00.
        "the begin of summer time": ticks(spring, 20, second) + ticks(datetime(2026, 3, 29, 3, 0), 20, second),
        "midnight and a new year": ticks(datetime(2026, 12, 31, 23, 59, 50), 20, second),
        "a leap day": ticks(datetime(2028, 2, 28, 23, 59, 50), 20, second) + ticks(datetime(2028, 2, 29, 23, 59, 50), 20, second),
        "the end of 32 bits": ticks(datetime(2038, 1, 19, 3, 13, 58), 20, second),
        "a clock set back": ticks(datetime(2026, 8, 10, 12, 0), n, second) + ticks(datetime(2026, 8, 7, 12, 0), n, second)
                            + ticks(datetime(2026, 8, 10, 12, 20), n, second),
    }


class Clocks(Machine):
    """The log is in order of time whatever the clock does, and a follower receives every message once."""

    def test_jumps_of_the_clock_lose_nothing_and_double_nothing(self):
        readings = clocks()
        sent = [(at, f"{name} {i}") for name, times in readings.items() for i, at in enumerate(times)]
        self.settings(len(sent) + 10)
        self.ctl("server", "start")
        followed = os.path.join(self.folder, "followed")
        with open(followed, "wb") as file:
            follower = Program("tamlogctl.exe", "follow", "-o", "json", output=file)
            self.addCleanup(follower.kill)
            time.sleep(2)
            for name, times in readings.items():
                self.import_texts([(at, f"{name} {i}") for i, at in enumerate(times)])
            self.wait_for_lines(followed, len(sent))
            follower.kill()
        # The server compares milliseconds; messages of the same one stay in the order in which they came.
        expected = [text for _, text in sorted(sent, key=lambda each: each[0].replace(
            microsecond=each[0].microsecond // 1000 * 1000))]
        self.assertEqual(self.texts(), expected)
        with open(followed, encoding="utf-8") as file:
            received = [json.loads(line)["text"] for line in file]
        self.assertEqual(sorted(received), sorted(expected))
        # The same after a restart, and in the file.
        self.ctl("server", "stop")
        self.ctl("verify", windows_path(self.log))
        self.ctl("server", "start")
        self.assertEqual(self.texts(), expected)
        self.expect_range("2026-10-25 02:00", "2026-10-25 03:00", sent)
        self.expect_range("2028-02-29 00:00", "2028-03-01 00:00", sent)
        self.expect_range("2038-01-19 03:14:07", "2038-01-19 03:14:08", sent)

    def expect_range(self, since, until, sent):
        begin, end = (datetime.fromisoformat(text) for text in (since, until))
        shown = self.ctl("show", "-o", "json", "-S", since, "-U", until).splitlines()
        count = sum(begin <= at <= end for at, _ in sent)
        self.assertGreater(count, 0)
        self.assertEqual(len(shown), count, f"{since} to {until}")

    def wait_for_lines(self, path, count):
        end = time.monotonic() + 120
        while time.monotonic() < end:
            with open(path, "rb") as file:
                if file.read().count(b"\n") >= count:
                    return
            time.sleep(0.2)
        self.fail("the follower did not receive every message")


class DiskFull(Machine):
    """No file can grow above 4 MiB: a log that has its room continues, and one that needs more does not start."""

    limits = f"trap '' XFSZ; ulimit -f {4 * MIB // 1024};"

    def test_a_log_that_has_its_room_goes_on(self):
        self.settings(2000)
        self.ctl("server", "start")
        sent = self.send("on a full disk", 1500)
        self.assertEqual(self.texts(), sent)
        self.ctl("server", "restart")
        self.assertEqual(self.texts(), sent)

    def test_a_start_that_finds_no_room_fails_with_its_reason_and_the_file_holds_every_message(self):
        self.settings(2000)
        self.ctl("server", "start")
        sent = self.send("before", 500)
        self.ctl("server", "stop")
        self.settings(20000)
        code, output = self.tool("tamlogctl.exe", "server", "start")
        self.assertNotEqual(code, 0)
        self.assertIn("start failed", output)
        self.assertIn("resize", output)
        self.assertFalse(self.running())
        # The start has written the messages in the order of its new capacity: the next start would empty the log.
        repaired = os.path.join(self.folder, "repaired.dat")
        self.ctl("repair", "--capacity", "2000", windows_path(self.log), windows_path(repaired))
        os.replace(repaired, self.log)
        self.settings(2000)
        self.ctl("server", "start")
        self.assertEqual(self.texts(), sent)

    def test_an_export_without_room_says_so_and_leaves_no_part_of_it(self):
        self.settings(7000)
        self.ctl("server", "start")
        self.send('"' * 248, 7000)  # each of these takes two bytes in JSON
        target = os.path.join(self.folder, "all.json")
        code, output = self.tool("tamlogctl.exe", "export", windows_path(target), "-o", "json", "--fields", "all")
        self.assertEqual(code, 8, output)
        self.assertIn("all.json", output)
        self.assertFalse(os.path.exists(target))
        self.assertEqual([name for name in os.listdir(self.folder) if "all" in name], [])


class ReadOnlyFolder(Machine):
    """The log's directory cannot be written: an existing log works, a new one is not created."""

    limits = "setpriv --bounding-set=-dac_override,-dac_read_search --inh-caps=-dac_override,-dac_read_search"

    def test_an_existing_log_goes_on_and_a_missing_one_fails_with_its_reason(self):
        self.settings(200)
        self.ctl("server", "start")
        sent = self.send("before", 20)
        directory = os.path.dirname(self.log)
        os.chmod(directory, 0o555)
        self.addCleanup(os.chmod, directory, 0o755)
        self.ctl("server", "restart")
        self.assertEqual(self.texts(), sent)
        sent += self.send("after", 20)
        self.assertEqual(self.texts(), sent)
        self.ctl("server", "stop")
        self.settings(200, os.path.join(directory, "new.dat"))
        code, output = self.tool("tamlogctl.exe", "server", "start")
        self.assertNotEqual(code, 0)
        self.assertIn("start failed", output)
        self.assertFalse(os.path.exists(os.path.join(directory, "new.dat")))
        self.settings(200)
        self.ctl("server", "start")
        self.assertEqual(self.texts(), sent)


class LockedKey(Machine):
    """The settings' key cannot be written: a start fails with its reason, a stop stays pending, and the log stays."""

    def test_a_start_fails_with_its_reason_and_succeeds_once_the_key_is_free(self):
        self.settings(200)
        self.ctl("server", "start")
        sent = self.send("before", 20)
        self.ctl("server", "stop")
        lock = Program("machine_trouble.exe", "lock-key")
        self.assertEqual(lock.ready(), "ready")
        code, output = self.tool("tamlogctl.exe", "server", "start")
        self.assertNotEqual(code, 0)
        self.assertIn("start failed", output)
        lock.finish()
        self.settings(200)
        self.ctl("server", "start")
        self.assertEqual(self.texts(), sent)

    def test_a_running_server_goes_on_and_its_stop_needs_the_end_of_the_process(self):
        self.settings(200)
        self.ctl("server", "start")
        sent = self.send("before", 20)
        lock = Program("machine_trouble.exe", "lock-key")
        self.assertEqual(lock.ready(), "ready")
        sent += self.send("while it is locked", 20)
        self.assertEqual(self.texts(), sent)
        code, _ = self.tool("tamlogctl.exe", "server", "stop", "--wait", "5")
        self.assertNotEqual(code, 0)
        lock.finish()
        shell('"$wine64" taskkill /F /IM TamLogServer.exe')
        self.settings(200)
        self.ctl("server", "start")
        self.assertEqual(self.texts(), sent)


class Scanner(Machine):
    """Another program opens every file for a moment without sharing it."""

    def test_no_start_and_no_restart_loses_a_message(self):
        self.settings(5000)
        self.ctl("server", "start")
        scanner = Program("machine_trouble.exe", "scan", windows_path(os.path.dirname(self.log)))
        self.addCleanup(scanner.kill)
        self.assertEqual(scanner.ready(), "ready")
        sent, starts, restarts = [], 0, 0
        for cycle in range(60 if WHOLE else 6):
            sent += self.send(f"cycle {cycle}", 20)
            if cycle % 2 == 0:
                self.ctl("server", "stop")
            elif self.tool("tamlogctl.exe", "settings", "set", "--save-rate", str(cycle + 1))[0] != 0:
                restarts += 1
                self.ctl("server", "stop")
            starts += self.start_again()
            self.assertEqual(self.texts(), sent, f"cycle {cycle}")
        counts = scanner.finish()
        print(f"note: scanner {counts}; {starts} starts failed and succeeded when tried again, {restarts} restarts failed")
        self.assertGreater(int(counts.split()[1]), 0)

    def start_again(self):
        """Starts the service unless it runs. Returns how often that failed."""
        for failed in range(20):
            if self.running() or self.tool("tamlogctl.exe", "server", "start")[0] == 0:
                return failed
        self.fail("twenty starts failed")
        return 20


if __name__ == "__main__":
    unittest.main(argv=sys.argv)
