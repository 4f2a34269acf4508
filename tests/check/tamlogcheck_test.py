#!/usr/bin/env python3
"""tamlogcheck under Wine: the known differences and no others, and a machine that is as it was.

usage: tamlogcheck_test.py CASE

Needs a Wine prefix of its own, which ctest provides; see scripts/wine-run.sh.
"""

import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
RUN = os.path.join(ROOT, "scripts", "wine-run.sh")
BIN = os.path.join(ROOT, "build", "bin")
DIFFERENCES = os.path.join(os.path.dirname(os.path.abspath(__file__)), "wine_differences.txt")
DOCUMENT = os.path.join(ROOT, "docs", "windows.md")
KEY = r"HKLM\SOFTWARE\Brenmark VORTA\Torvane Log Server"
BY_A_PERSON = "person."
NOT_TRIED_HERE = {"system.ticks-count-sleep"}  # unless the machine has slept

ALL_HOLD, SOME_DIFFER, USAGE, REFUSED, SERVER_NOT_TRIED, NOT_RESTORED = range(6)


def windows_path(path):
    return "Z:" + path.replace("/", "\\")


def run_path(program, *arguments, seconds):
    # Output to a file: a service that a program starts may keep a pipe open.
    with tempfile.TemporaryFile() as output:
        done = subprocess.run([RUN, program, *arguments], stdin=subprocess.DEVNULL, stdout=output,
                              stderr=subprocess.STDOUT, timeout=seconds, check=False)
        output.seek(0)
        return done.returncode, output.read().decode("utf-8", "replace").replace("\r\n", "\n")


def run(program, *arguments, seconds=60):
    """Runs a program of the build."""
    return run_path(os.path.join(BIN, program), *arguments, seconds=seconds)


def run_system(program, *arguments):
    """Runs a program of the system."""
    return run_path(program, *arguments, seconds=60)


def settings():
    """Returns the server's settings as the system prints them."""
    return run_system("reg.exe", "query", KEY, "/s")


def known_differences():
    with open(DIFFERENCES, encoding="utf-8") as file:
        return {line.split(":")[0] for line in file if line.strip() and not line.startswith("#")}


class Machine(unittest.TestCase):
    """A machine with the driver double, and without the service."""

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="tamlogcheck test ")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        run("TamLogServer.exe", "-remove")
        run_system("reg.exe", "delete", KEY, "/f")
        self.succeed("tamlogdrv.exe", "install", windows_path(os.path.join(BIN, "tamlog.sys")))
        self.addCleanup(run, "tamlogdrv.exe", "remove")

    def succeed(self, program, *arguments):
        code, output = run(program, *arguments)
        self.assertEqual(code, 0, f"{program} {arguments}: {output}")

    def path(self, name):
        return os.path.join(self.folder, name)

    def check(self, *arguments, seconds=400):
        """Runs tamlogcheck. Returns its exit code, output, and the second part of its report by check."""
        report = self.path("report.txt")
        code, output = run("tamlogcheck.exe", *arguments, "--report", windows_path(report), "--folder",
                           windows_path(self.path("work")), seconds=seconds)
        if not os.path.exists(report):
            return code, output, None
        with open(report, encoding="ascii") as file:
            text, separator, lines = file.read().replace("\r\n", "\n").partition("---- the same for programs: ")
        self.assertTrue(separator)
        objects = [json.loads(line) for line in lines.splitlines()[1:]]
        self.assertIn("program", objects[0]["facts"])
        results = {each["check"]: each for each in objects if "check" in each}
        for name, result in results.items():
            self.assertRegex(text, rf"(?m)^{result['result']} +{re.escape(name)}\b")
        return code, output, results

    def expect_no_service(self):
        self.assertEqual(run("tamlogctl.exe", "server", "state")[0], 3)

    def judge(self, results, output):
        """Compares the outcomes with the known differences of the same checks."""
        differ = {name for name, each in results.items() if each["result"] == "differs"}
        self.assertEqual(differ, known_differences() & set(results), output)
        for name, each in results.items():
            if name.startswith(BY_A_PERSON):
                self.assertEqual(each["result"], "not tried")
            elif name not in NOT_TRIED_HERE:
                self.assertNotEqual(each["result"], "not tried", each)

    def judge_groups(self, *groups):
        code, output, results = self.check(*groups)
        self.assertEqual(code, SOME_DIFFER, output)
        self.judge(results, output)
        self.expect_no_service()
        self.assertNotEqual(run_system("reg.exe", "query", KEY)[0], 0, "the settings were not removed")
        self.assertFalse(os.path.exists(self.path("work")), "the folder was not removed")


class SystemAndService(Machine):
    def test_differs_only_as_known(self):
        self.judge_groups("system.", "service.", "person.")


class Access(Machine):
    def test_differs_only_as_known(self):
        self.judge_groups("access.", "pipe.")


class Log(Machine):
    def test_differs_only_as_known(self):
        self.judge_groups("log.")


class NullDevice(Machine):
    """A machine without the driver, whose name the null device has: what --stand-in-device makes on Windows."""

    def setUp(self):
        super().setUp()
        run("tamlogdrv.exe", "remove")
        device = subprocess.Popen([RUN, os.path.join(BIN, "machine_trouble.exe"), "null-device"],
                                  stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.addCleanup(device.communicate, timeout=60)
        self.assertEqual(device.stdout.readline().strip(), b"ready")

    def test_is_enough_for_the_checks_of_the_server(self):
        self.judge_groups("service.starts-and-stops", "service.stop-passes-a-dead-reader", "access.", "log.")


class UseOfAnInstalledService(Machine):
    """The log and the settings of a machine stay as they are."""

    def setUp(self):
        super().setUp()
        self.log = self.path("Logs.dat")
        self.succeed("TamLogServer.exe", "-install")
        self.addCleanup(run, "TamLogServer.exe", "-remove")
        for name, kind, value in (("LogFile", "REG_SZ", windows_path(self.log)), ("MaxMessage", "REG_DWORD", "50"),
                                  ("SaveRate", "REG_DWORD", "7")):
            self.assertEqual(run_system("reg.exe", "add", KEY, "/v", name, "/t", kind, "/d", value, "/f")[0], 0)
        self.succeed("tamlogctl.exe", "server", "start")
        self.addCleanup(run, "tamlogctl.exe", "server", "stop")
        self.succeed("tamlogctl.exe", "filter", "add", "-x", "noise")
        self.succeed("tamlogctl.exe", "send", "--confirm", "-s", "Customer", "of the customer")

    def shown(self):
        return run("tamlogctl.exe", "show", "-o", "cat")[1]

    def test_needs_to_be_allowed_and_leaves_everything_as_it_was(self):
        code, output, results = self.check("log.file-after-a-stop")
        self.assertEqual((code, results), (REFUSED, None), output)
        self.assertIn("--interrupt", output)
        self.assertEqual(self.shown(), "of the customer\n")

        self.succeed("tamlogctl.exe", "server", "stop")
        code, output, results = self.check("log.file-after-a-stop")
        self.assertEqual((code, results), (REFUSED, None), output)
        self.assertIn("has messages", output)
        with open(self.log, "rb") as file:
            log = file.read()
        before = settings()

        code, output, results = self.check("--interrupt", "log.file-after-a-stop", "log.grows-with-a-reader")
        self.assertEqual(code, ALL_HOLD, output)
        self.assertEqual(len(results), 2)
        self.assertEqual(settings(), before)
        with open(self.log, "rb") as file:
            self.assertEqual(file.read(), log)
        self.assertFalse(os.path.exists(self.path("work")))
        self.assertEqual(run("tamlogctl.exe", "server", "state")[0], 1, "the service was stopped before")

        # A service that ran runs again.
        self.succeed("tamlogctl.exe", "server", "start")
        self.assertEqual(self.check("--interrupt", "log.bytes-are-kept")[0], ALL_HOLD)
        self.assertEqual(run("tamlogctl.exe", "server", "state")[0], 0)
        self.assertEqual(self.shown(), "of the customer\n")
        self.assertIn("noise", run("tamlogctl.exe", "filter", "list")[1])


class Restoring(Machine):
    def test_without_the_device_nothing_of_the_server_is_tried(self):
        run("tamlogdrv.exe", "remove")
        code, output, results = self.check("log.bytes-are-kept", "system.view-and-reads-agree")
        self.assertEqual(code, SERVER_NOT_TRIED, output)
        self.assertEqual(results["log.bytes-are-kept"]["result"], "not tried")
        self.assertIn("--stand-in-device", results["log.bytes-are-kept"]["seen"])
        self.assertEqual(results["system.view-and-reads-agree"]["result"], "holds")
        # Wine defines another name where the name is as long as this one (NullDevice has the right one).
        code, output, results = self.check("--stand-in-device", "log.bytes-are-kept")
        self.assertEqual(code, SERVER_NOT_TRIED, output)
        self.assertIn("it was defined and cannot be opened", results["log.bytes-are-kept"]["seen"])
        self.assertFalse(os.path.exists(self.path("work")))

    def test_a_run_that_is_ended_by_force_is_undone_from_its_folder(self):
        run_system("reg.exe", "add", KEY, "/v", "SaveRate", "/t", "REG_DWORD", "/d", "9", "/f")
        before = settings()
        work = self.path("work")
        arguments = [RUN, os.path.join(BIN, "tamlogcheck.exe"), "--folder", windows_path(work), "log."]
        with subprocess.Popen(arguments, cwd=self.folder, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL) as process:
            end = time.monotonic() + 60
            while run("tamlogctl.exe", "server", "state")[0] != 0 and time.monotonic() < end:
                time.sleep(0.2)
            process.kill()
        self.assertNotEqual(settings(), before)
        code, output = run("tamlogcheck.exe", "--restore", windows_path(work))
        self.assertEqual((code, output), (ALL_HOLD, "restored\n"))
        self.assertEqual(settings(), before)
        self.assertFalse(os.path.exists(work))
        self.expect_no_service()
        code, output = run("tamlogcheck.exe", "--restore", windows_path(self.folder))
        self.assertEqual(code, NOT_RESTORED)
        self.assertIn("no run of the checks", output)


class Words(unittest.TestCase):
    def test_help_list_and_mistakes(self):
        code, output = run("tamlogcheck.exe", "--help")
        self.assertEqual(code, ALL_HOLD)
        for word in ("--interrupt", "--restore", "Exit code"):
            self.assertIn(word, output)
        listed = run("tamlogcheck.exe", "--list")[1]
        groups = re.findall(r"[a-z]+\.", re.search(r"\n  tamlogcheck (.*)the checks whose", output)[1])
        self.assertEqual(len(groups), 2)
        for group in groups:
            self.assertIn("\n" + group, listed)
        for arguments in (["--fast"], ["--report"], ["nosuch."], ["system.mapped", "nosuch."]):
            code, output = run("tamlogcheck.exe", *arguments)
            self.assertEqual(code, USAGE, output)
            self.assertTrue(output.startswith("tamlogcheck: "), output)

    def test_report_that_cannot_be_written_is_refused_before_any_check(self):
        code, output = run("tamlogcheck.exe", "--report", r"C:\no\such\report.txt", "system.mapped-file-keeps-its-size")
        self.assertEqual(code, USAGE, output)
        self.assertEqual(output.splitlines(),
                         [r"tamlogcheck: the report cannot be written to C:\no\such\report.txt: error 3"])

    def test_restoring_from_a_cut_file_is_refused(self):
        with tempfile.TemporaryDirectory() as folder:
            for text in ("", "0 0 0 0 0 0", "0 0 0 0 0 0\ntamlogcheck settings 1\n"):
                with open(os.path.join(folder, "before-the-checks.txt"), "w", encoding="ascii") as file:
                    file.write(text)
                code, output = run("tamlogcheck.exe", "--restore", windows_path(folder))
                self.assertEqual(code, NOT_RESTORED, output)
                self.assertIn("no run of the checks has left", output)

    def test_the_document_names_every_check_and_no_other(self):
        listed = {line.split(":")[0] for line in run("tamlogcheck.exe", "--list")[1].splitlines()}
        self.assertGreater(len(listed), 40)
        with open(DOCUMENT, encoding="utf-8") as file:
            named = set(re.findall(r"`((?:system|service|access|pipe|log|person)\.[a-z-]+)`", file.read()))
        self.assertEqual(named, listed)
        self.assertLessEqual(known_differences(), listed)


if __name__ == "__main__":
    unittest.main(argv=[sys.argv[0], *sys.argv[1:2]])
