"""Tests of keys typed on a real console: the programs run on a terminal, which Wine presents as a console, turning
Ctrl-C into the console's event. Needs a Wine prefix of its own, which ctest provides; see scripts/wine-run.sh."""

import os
import pty
import select
import shutil
import subprocess
import sys
import tempfile
import termios
import time
import unittest

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
RUN = os.path.join(ROOT, "scripts", "wine-run.sh")
BIN = os.path.join(ROOT, "build", "bin")
PATIENCE = 60  # seconds


def windows_path(*parts):
    return "Z:" + os.path.join(*parts).replace("/", "\\")


def run(program, *arguments):
    return subprocess.run([RUN, os.path.join(BIN, program), *arguments], stdin=subprocess.DEVNULL,
                          capture_output=True, text=True, timeout=PATIENCE, check=False)


def contents(path):
    try:
        with open(path, "rb") as file:
            return file.read()
    except FileNotFoundError:
        return b""


class OnConsole:
    """A program on a terminal of its own."""

    def __init__(self, program, *arguments, directory=None, environment=None):
        self.shown = b""
        self.process, self.terminal = pty.fork()
        if self.process == 0:
            os.chdir(directory or ".")
            os.environ.update(environment or {})
            os.execv(RUN, [RUN, os.path.join(BIN, program), *arguments])

    def read_until(self, found):
        """Reads what is shown until `found(shown)`; False when the program ended before that."""
        end = time.monotonic() + PATIENCE
        while not found(self.shown):
            if time.monotonic() > end:
                raise TimeoutError(f"on the terminal: {self.shown!r}")
            if not select.select([self.terminal], [], [], 0.2)[0]:
                continue
            try:
                piece = os.read(self.terminal, 4096)
            except OSError:  # the other end is closed
                return False
            self.shown += piece
        return True

    def press_ctrl_c(self):
        os.write(self.terminal, b"\x03")

    def type(self, line):
        settings = termios.tcgetattr(self.terminal)
        settings[0] &= ~termios.ICRNL  # the return key is a carriage return
        termios.tcsetattr(self.terminal, termios.TCSANOW, settings)
        os.write(self.terminal, line + b"\r")

    def exit_code(self):
        self.read_until(lambda shown: False)
        _, status = os.waitpid(self.process, 0)
        os.close(self.terminal)
        return os.waitstatus_to_exitcode(status)


class ConsoleTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        # As long as a program runs in the prefix, its drivers stay loaded; test.sh starts the prefix's server to stay.
        cls.keeper = subprocess.Popen([RUN, "cmd.exe"], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        cls.addClassCleanup(cls.end_keeper)
        cls.keeper.stdout.read(1)
        run("TamLogServer.exe", "-install")
        for arguments in (("tamlogdrv.exe", "install", windows_path(BIN, "tamlog.sys")),
                          ("tamlogctl.exe", "server", "start")):
            outcome = run(*arguments)
            assert outcome.returncode == 0, outcome.stdout + outcome.stderr

    @classmethod
    def end_keeper(cls):
        cls.keeper.communicate(timeout=PATIENCE)  # the end of its input ends it

    @classmethod
    def tearDownClass(cls):
        run("tamlogctl.exe", "server", "stop")
        run("TamLogServer.exe", "-remove")
        run("tamlogdrv.exe", "remove")

    def test_ctrl_c_ends_follow_in_good_order(self):
        follow = OnConsole("tamlogctl.exe", "follow")
        self.assertEqual(run("tamlogctl.exe", "send", "-s", "Camera", "before the key").returncode, 0)
        self.assertTrue(follow.read_until(lambda shown: b"before the key" in shown), follow.shown)
        follow.press_ctrl_c()
        self.assertEqual(follow.exit_code(), 130, follow.shown)

    def test_ctrl_c_during_stats_ends_it_with_its_own_exit_code(self):
        held = os.path.join(BIN, f"held-{os.getpid()}.dat")
        for delay in (1, 4, 16):  # until the key arrives while the program waits for the log, on slow machines too
            reader = subprocess.Popen([RUN, os.path.join(BIN, "system_reader.exe"), "hold", windows_path(held)],
                                      stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
            self.assertEqual(reader.stdout.readline().strip(), "holding")
            # The writer waits for the reader, and readers that arrive now wait for the writer.
            self.assertEqual(run("tamlogctl.exe", "send", "-s", "Camera", "held up").returncode, 0)
            stats = OnConsole("tamlogctl.exe", "stats", "--timeout", "60000")
            time.sleep(delay)
            stats.press_ctrl_c()
            time.sleep(0.5)
            reader.communicate("go on\n", timeout=PATIENCE)
            code = stats.exit_code()
            if code == 130:
                break
        os.remove(held)
        self.assertEqual(code, 130, stats.shown)

    def test_ctrl_c_ends_a_continuous_export_with_its_account(self):
        name = f"console-{os.getpid()}.tsv"
        target = os.path.join(BIN, name)
        export = OnConsole("tamlogctl.exe", "export", "--follow", windows_path(target))
        self.assertEqual(run("tamlogctl.exe", "send", "-s", "Camera", "for the file").returncode, 0)
        end = time.monotonic() + PATIENCE
        while b"for the file" not in contents(target):
            self.assertLess(time.monotonic(), end, export.shown)
            time.sleep(0.1)
        export.press_ctrl_c()
        self.assertEqual(export.exit_code(), 130, export.shown)
        # The terminal breaks a long line.
        self.assertIn(b"in 1 file", export.shown.replace(b"\r", b"").replace(b"\n", b""))
        os.remove(target)

    def test_clear_asks_first_and_takes_only_yes(self):
        self.assertEqual(run("tamlogctl.exe", "clear", "--yes").returncode, 0)
        self.assertEqual(run("tamlogctl.exe", "send", "-s", "Camera", "--confirm", "one message").returncode, 0)
        for answer in (b"n", b"", b"yesterday"):
            clear = OnConsole("tamlogctl.exe", "clear")
            question = b"Empty the log of its one message? [y/N]"
            self.assertTrue(clear.read_until(lambda shown: question in shown), clear.shown)
            clear.type(answer)
            self.assertEqual(clear.exit_code(), 1, clear.shown)
            self.assertIn(b"nothing was done", clear.shown)
        self.assertIn("one message", run("tamlogctl.exe", "show").stdout)
        clear = OnConsole("tamlogctl.exe", "clear")
        self.assertTrue(clear.read_until(lambda shown: b"[y/N]" in shown), clear.shown)
        clear.type(b"y")
        self.assertTrue(clear.read_until(lambda shown: b"empty: do not save them" in shown), clear.shown)
        clear.type(b"")
        self.assertEqual(clear.exit_code(), 0, clear.shown)
        self.assertEqual(run("tamlogctl.exe", "show").stdout, "")

    def test_full_disk_is_named(self):
        with open("/dev/full", "wb") as full:
            outcome = subprocess.run([RUN, os.path.join(BIN, "tamlogctl.exe"), "help"], stdin=subprocess.DEVNULL,
                                     stdout=full, stderr=subprocess.PIPE, text=True, timeout=PATIENCE, check=False)
        self.assertEqual(outcome.returncode, 8)
        self.assertRegex(outcome.stderr, r"standard output cannot be written: \w.* \(error 112\)")

    def test_pager_is_never_a_program_of_the_current_directory(self):
        self.assertEqual(run("tamlogctl.exe", "send", "-s", "Camera", "--confirm", "for the pager").returncode, 0)
        with tempfile.TemporaryDirectory() as directory:
            # A program that reports what it was called with, under the names of the interpreter and the pager.
            for name in ("cmd.exe", "more.exe", "less.exe"):
                shutil.copy(os.path.join(BIN, "tamlogctl.exe"), os.path.join(directory, name))
            for pager in ("more", "less planted"):
                show = OnConsole("tamlogctl.exe", "show", directory=directory, environment={"PAGER": pager})
                show.exit_code()
                self.assertNotIn(b"there is no verb", show.shown, pager)
                self.assertIn(b"for the pager", show.shown, pager)
        self.assertIn(b"PAGER 'less planted': cannot be started", show.shown)


if __name__ == "__main__":
    sys.exit(unittest.main(verbosity=2))
