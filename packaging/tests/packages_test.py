#!/usr/bin/env python3
"""Installs, upgrades and removes the packages of build/packages under Wine, with the real service.

usage: packaging/tests/packages_test.py [TEST...]

./package.sh makes the packages; tamlogdrv.exe has to be built too. Uses the Wine prefix `packages`.
"""

import glob
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

from machine import EVENT_KEY, MAKER_KEY, PACKAGE_KEY, ROOT, SERVICE_KEY, SETTINGS_KEY, UNINSTALL_KEY, Machine

PACKAGING = os.path.join(ROOT, "packaging")
PACKAGES = os.path.join(ROOT, "build", "packages")
NEXT = "99.0.0"
CYCLES = 20


def one(pattern):
    found = glob.glob(os.path.join(PACKAGES, pattern))
    assert len(found) == 1, f"{pattern}: {found}; run ./package.sh"
    return found[0]


def read(path):
    with open(path, "rb") as file:
        return file.read()


class Releases:
    """The packages as they were made, and packages of a later version from the same files."""

    def __init__(self):
        self.folder = tempfile.mkdtemp(prefix="packages-")
        environment = {**os.environ, "SOURCE_DATE_EPOCH": "1700000000"}
        programs = os.path.join(self.folder, "programs")
        subprocess.run([os.path.join(PACKAGING, "strip-programs.sh"), os.path.join(ROOT, "build", "bin"), programs],
                       check=True)
        zip_file = one("torvane-log-server-*-x64.zip")
        subprocess.run([sys.executable, "-m", "zipfile", "-e", zip_file, self.folder], check=True)
        self.version = os.path.basename(zip_file).split("-")[3]
        stage = os.path.join(self.folder, f"torvane-log-server-{self.version}-x64")
        with open(os.path.join(stage, "docs", "new.md"), "w", encoding="utf-8") as file:
            file.write("A file that only the next version has.\n")
        os.remove(os.path.join(stage, "docs", "testing.md"))
        self.setup = one("*-setup.exe")
        self.msi = one("*.msi")
        self.next_setup = os.path.join(self.folder, "next-setup.exe")
        self.next_msi = os.path.join(self.folder, "next.msi")
        subprocess.run([os.path.join(PACKAGING, "make-setup.sh"), stage, os.path.join(programs, "setup_helper.exe"),
                        NEXT, self.next_setup], check=True, env=environment)
        subprocess.run([os.path.join(PACKAGING, "make_msi.py"), stage, os.path.join(programs, "msi_actions.dll"), NEXT,
                        self.next_msi], check=True, env=environment)


class Package(unittest.TestCase):
    """What holds for setup program and MSI alike; the classes below say how each is run."""

    def setUp(self):
        self.machine = Machine("packages")
        self.addCleanup(self.machine.close)

    def expect_done(self, result):
        self.assertEqual(result[0], 0, result[1])

    def wait_shown(self, text):
        shown = self.machine.wait_until(lambda: text in self.machine.tool("show", "-n", "all")[1])
        self.assertTrue(shown, f"{text!r} is not shown")


class Road:
    """The road of a package over a machine. Mixed into the classes of both kinds."""

    def test_installed_used_upgraded_with_a_follower_and_removed(self):
        machine = self.machine
        path_before = machine.system_path()
        machine.load_driver()
        self.expect_done(self.install())
        self.assertTrue(machine.wait_for_state("running"))
        self.assertEqual(machine.value(SERVICE_KEY, "ImagePath").strip(),
                         r'"C:\Program Files\Torvane\TamLogServer.exe"')
        self.assertIn("EventCreate.exe", machine.key(EVENT_KEY))
        self.assertEqual(machine.system_path().rstrip("\\"), path_before + r";C:\Program Files\Torvane")
        self.expect_done(machine.tool("send", "-s", "Test", "before the upgrade"))
        self.wait_shown("before the upgrade")

        with tempfile.NamedTemporaryFile() as seen:
            machine.start(os.path.join(machine.directory, "tamlogctl.exe"), "follow", output=seen)
            self.assertTrue(machine.wait_until(lambda: b"before the upgrade" in read(seen.name)))
            self.expect_done(self.upgrade())
            self.assertTrue(machine.wait_for_state("running"))
            self.assertEqual(machine.value(PACKAGE_KEY, "Version"), NEXT)
            self.assertTrue(os.path.exists(os.path.join(machine.directory, "docs", "new.md")))
            self.assertFalse(os.path.exists(os.path.join(machine.directory, "docs", "testing.md")))
            self.expect_done(machine.tool("send", "-s", "Test", "after the upgrade"))
            self.assertTrue(machine.wait_until(lambda: b"after the upgrade" in read(seen.name)),
                            "the follower does not continue")
            machine.children[-1].kill()
            machine.children[-1].wait()
        self.wait_shown("before the upgrade")

        present = machine.traces()
        self.assertNotEqual(self.install()[0], 0, "an older version was installed over a newer one")
        self.assertEqual(machine.traces(), present)

        self.remove()
        self.assertEqual(set(machine.files()), {"Logs.dat"})
        # Windows Installer removes the separator too; Wine leaves it.
        self.assertEqual(machine.system_path().rstrip(";"), path_before.rstrip(";"))
        for key in (SERVICE_KEY, EVENT_KEY, PACKAGE_KEY, UNINSTALL_KEY):
            self.assertEqual(machine.key(key), "")
        self.assertIn("MaxMessage", machine.key(SETTINGS_KEY))

    def test_messages_and_settings_stay_byte_for_byte_unless_their_deletion_is_requested(self):
        machine = self.machine
        machine.load_driver()
        self.expect_done(self.install())
        self.assertTrue(machine.wait_for_state("running"))
        self.expect_done(machine.tool("send", "-s", "Test", "kept"))
        self.wait_shown("kept")
        machine.tool("server", "stop")
        self.assertTrue(machine.wait_for_state("stopped"))
        log, settings = machine.files()["Logs.dat"], machine.key(SETTINGS_KEY)
        self.remove()
        self.assertEqual(machine.files(), {"Logs.dat": log})
        self.assertEqual(machine.key(SETTINGS_KEY), settings)
        self.expect_done(self.install())
        self.assertTrue(machine.wait_for_state("running"))
        self.wait_shown("kept")
        self.remove(delete_data=True)
        self.assertFalse(os.path.exists(os.path.join(machine.directory, "Logs.dat")))
        self.assertEqual(machine.key(SETTINGS_KEY), "")

    def test_without_the_driver_everything_is_installed_and_the_reason_is_said(self):
        self.expect_done(self.install())
        self.assertEqual(self.machine.state(), "stopped")
        self.assertIn(r"\\.\TAMLOG does not exist", self.log())
        self.machine.load_driver()
        self.expect_done(self.machine.tool("server", "start"))

    def test_cycles_leave_nothing_behind(self):
        before = self.machine.traces()
        for _ in range(CYCLES):
            self.expect_done(self.install())
            self.remove()
            after = self.machine.traces()
            after["path"] = after["path"].rstrip(";")  # which Wine leaves where Windows Installer does not
            self.assertEqual(after, before)
        self.assertEqual(self.machine.key(MAKER_KEY), "")


class Setup(Road, Package):
    def install(self, *options, program=None):
        return self.machine.run(program or RELEASES.setup, "/S", r"/LOG=C:\setup.log", *options)

    def upgrade(self, *options):
        return self.install(*options, program=RELEASES.next_setup)

    def uninstall(self, *options):
        """Runs the uninstaller in place, so that its exit code is known."""
        copy = os.path.join(self.machine.prefix, "drive_c", "uninstall-test.exe")
        shutil.copyfile(os.path.join(self.machine.directory, "uninstall.exe"), copy)
        # From a command file, because the uninstaller does not accept quotation marks around the last option.
        words = " ".join(["/S", *options, r"_?=C:\Program Files\Torvane"])
        with open(self.machine.path(r"C:\uninstall-test.bat"), "w", encoding="ascii", newline="\r\n") as file:
            file.write(f"@C:\\uninstall-test.exe {words}\n@exit %ERRORLEVEL%\n")
        return self.machine.run("cmd.exe", "/c", r"C:\uninstall-test.bat")

    def remove(self, delete_data=False):
        # As a user runs it: the uninstaller continues in a copy of itself.
        program = os.path.join(self.machine.directory, "uninstall.exe")
        self.expect_done(self.machine.run(program, "/S", *(["/DELETEDATA"] if delete_data else [])))
        gone = self.machine.wait_until(lambda: not self.machine.key(PACKAGE_KEY) and not set(self.machine.files()) -
                                       {"Logs.dat"}, 60)
        self.assertTrue(gone, self.machine.files().keys())
        if delete_data:
            self.assertTrue(self.machine.wait_until(lambda: not self.machine.key(SETTINGS_KEY)))
        self.machine.wait_until(lambda: self.machine.files() or not os.path.isdir(self.machine.directory), 10)

    def log(self):
        with open(self.machine.path(r"C:\setup.log"), encoding="utf-8") as file:
            return file.read()

    def fail_at_each_step(self, action):
        """Lets each step fail in turn until none is left; after each failure everything is as before."""
        before = self.machine.traces()
        for step in range(1, 30):
            code, said = action(f"/FAILAT={step}")
            if code == 0:
                self.assertGreater(step, 4)
                return
            self.assertEqual(code, 1, said)
            self.assertTrue(self.machine.wait_until(lambda: self.machine.traces() == before, 10),
                            f"step {step}: {self.machine.traces()}\ninstead of {before}")
        self.fail("every step failed")

    def test_failed_step_of_an_installation_is_undone(self):
        self.machine.load_driver()
        self.fail_at_each_step(self.install)
        self.assertTrue(self.machine.wait_for_state("running"))

    def test_failed_step_of_an_upgrade_is_undone(self):
        self.machine.load_driver()
        self.expect_done(self.install())
        self.assertTrue(self.machine.wait_for_state("running"))
        self.fail_at_each_step(self.upgrade)
        self.assertEqual(self.machine.value(PACKAGE_KEY, "Version"), NEXT)

    def test_failed_step_of_a_removal_is_undone(self):
        self.machine.load_driver()
        self.expect_done(self.install())
        self.assertTrue(self.machine.wait_for_state("running"))
        self.fail_at_each_step(self.uninstall)
        self.assertEqual(self.machine.state(), "")

    def test_stopped_service_stays_stopped_through_an_upgrade(self):
        self.machine.load_driver()
        self.expect_done(self.install())
        self.assertTrue(self.machine.wait_for_state("running"))
        self.machine.tool("server", "stop")
        self.assertTrue(self.machine.wait_for_state("stopped"))
        self.expect_done(self.upgrade())
        self.assertEqual(self.machine.state(), "stopped")

    def test_the_other_package_is_refused(self):
        self.expect_done(self.machine.run("msiexec", "/i", windows(RELEASES.msi), "/qn"))
        before = self.machine.traces()
        self.assertEqual(self.install()[0], 4)
        self.assertEqual(self.machine.traces(), before)


def windows(path):
    return "Z:" + path.replace("/", "\\")


class Msi(Road, Package):
    def install(self, package=None):
        return self.machine.run("msiexec", "/i", windows(package or RELEASES.msi), "/qn", "/l*v", r"C:\setup.log")

    def upgrade(self):
        return self.install(RELEASES.next_msi)

    def remove(self, delete_data=False):
        version = self.machine.value(PACKAGE_KEY, "Version")
        package = RELEASES.next_msi if version == NEXT else RELEASES.msi
        self.expect_done(self.machine.run("msiexec", "/x", windows(package), "/qn", "/l*v", r"C:\remove.log",
                                          *(["DELETEDATA=1"] if delete_data else [])))

    def log(self):
        with open(self.machine.path(r"C:\setup.log"), "rb") as file:
            return file.read().replace(b"\0", b"").decode("latin-1")

    def table(self, name):
        return subprocess.run(["msiinfo", "export", RELEASES.msi, name], check=True, text=True,
                              stdout=subprocess.PIPE).stdout

    def test_tables_hold_what_wine_does_not_keep(self):
        # Restarts after 5 s, 30 s and 60 s; a day without failure begins anew.
        rows = self.table("MsiServiceConfigFailureActions").splitlines()
        self.assertIn("TamLogServer\t5\t86400", rows[-1])
        self.assertIn("1[~]1[~]1\t5000[~]30000[~]60000", rows[-1])
        self.assertIn("(A;;RPWPRC;;;WD)", self.table("MsiLockPermissionsEx"))
        self.assertIn("VersionNT64 >= 601", self.table("LaunchCondition"))

    def test_the_other_package_is_refused(self):
        self.expect_done(self.machine.run(RELEASES.setup, "/S"))
        before = self.machine.traces()
        self.assertNotEqual(self.install()[0], 0)
        self.assertEqual(self.machine.traces(), before)


if __name__ == "__main__":
    if sys.argv[1:2] in (["-h"], ["--help"]):
        print(__doc__)
        sys.exit(0)
    RELEASES = Releases()
    try:
        unittest.main(verbosity=2)
    finally:
        shutil.rmtree(RELEASES.folder)
