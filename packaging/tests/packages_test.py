#!/usr/bin/env python3
"""Installs, upgrades and removes the packages of build/packages under Wine, with the real service.

usage: packaging/tests/packages_test.py [--quick] [TEST...]

./package.sh makes the packages; tamlogdrv.exe has to be built too. Uses the Wine prefix `packages`. --quick: the main
paths with two faults each, and one cycle instead of 20.
"""

import os
import re
import shutil
import sys
import tempfile
import time
import unittest

import test_signature
from machine import (ENVIRONMENT_KEY, EVENT_KEY, MAKER_KEY, PACKAGE_KEY, SERVICE_KEY, SETTINGS_KEY, UNINSTALL_KEY,
                     Machine)
from releases import NEXT, Releases

QUICK_TESTS = ("Setup.test_installed_used_upgraded_with_a_follower_and_removed",
               "Setup.test_failed_step_of_an_installation_is_undone",
               "Setup.test_failed_step_of_an_upgrade_is_undone",
               "Msi.test_installed_used_upgraded_with_a_follower_and_removed",
               "Msi.test_failed_step_of_an_installation_is_undone",
               "Msi.test_failed_upgrade_keeps_messages_and_settings",
               "Msi.test_tables_hold_what_wine_does_not_keep",
               "Msi.test_tables_let_windows_installer_undo_everything",
               "Zip.test_cycles_leave_nothing_behind")
CYCLES = 20
# Of the whole registry and drive: the log that the tests ask for, the separator that Wine leaves in PATH, the keys of
# each process that looks for a display, and NSIS's temporary directories, which the next start of Windows deletes.
OF_WINE = re.compile(r"^(setup|remove)\.log|(?i:Environment : PATH) |\\Control\\Video\\|^users/[^/]*/Temp/|"
                     r" : PendingFileRenameOperations |\\ServiceCurrent ")


def read(path):
    with open(path, "rb") as file:
        return file.read()


def windows(path):
    return "Z:" + path.replace("/", "\\")


def cycles():
    """Counts the cycles, and afterwards prints how long they took."""
    begin = time.monotonic()
    yield from range(CYCLES)
    print(f"{CYCLES} cycles in {time.monotonic() - begin:.0f} s", end=" ... ", file=sys.stderr, flush=True)


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

    def start_service(self):
        self.expect_done(self.machine.tool("server", "start"))
        self.assertTrue(self.machine.wait_for_state("running"))

    def stop_service(self):
        self.expect_done(self.machine.tool("server", "stop"))
        self.assertTrue(self.machine.wait_for_state("stopped"))

    def install_with_a_message(self, package=None):
        """Returns the data that the stopped service leaves; the service runs afterwards."""
        self.machine.load_driver()
        self.expect_done(self.install(package=package) if package else self.install())
        self.assertTrue(self.machine.wait_for_state("running"))
        self.expect_done(self.machine.tool("send", "-s", "Test", "kept"))
        self.wait_shown("kept")
        self.stop_service()
        data = self.machine.data()
        self.assertIsNotNone(data["messages"])
        self.assertIn("MaxMessage", data["settings"])
        self.start_service()
        return data

    def expect_kept(self, data):
        """The messages are shown, and the stopped service leaves the same bytes."""
        self.wait_shown("kept")
        self.stop_service()
        self.assertEqual(self.machine.data(), data)
        self.start_service()


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
        self.assertEqual(self.exit_code(), self.DOWNGRADE, "an older version was installed over a newer one")
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
        data = self.install_with_a_message()
        self.remove()
        self.assertEqual(set(machine.files()), {"Logs.dat"})
        self.assertEqual(machine.data(), data)
        self.expect_done(self.install())
        self.assertTrue(machine.wait_for_state("running"))
        self.wait_shown("kept")
        self.remove(delete_data=True)
        self.assertFalse(os.path.exists(os.path.join(machine.directory, "Logs.dat")))
        self.assertEqual(machine.key(SETTINGS_KEY), "")

    def test_upgrade_stays_in_the_directory_of_the_old_version(self):
        machine = self.machine
        machine.load_driver()
        self.expect_done(self.install_in(r"C:\Logs"))
        self.assertTrue(machine.wait_for_state("running"))
        self.expect_done(self.upgrade())
        self.assertTrue(machine.wait_for_state("running"))
        self.assertEqual(machine.value(SERVICE_KEY, "ImagePath").strip(), r'"C:\Logs\TamLogServer.exe"')
        self.assertTrue(os.path.exists(machine.path(r"C:\Logs\docs\new.md")))
        self.assertTrue(os.path.exists(machine.path(r"C:\Logs\Logs.dat")))
        self.assertFalse(os.path.exists(machine.directory))

    def test_directory_that_users_may_write_is_refused(self):
        machine = self.machine
        opened = machine.path(r"C:\Open")
        os.mkdir(opened)
        os.chmod(opened, 0o777)
        before = machine.traces()
        self.assertNotEqual(self.install_in(r"C:\Open")[0], 0)
        self.assertIn(r"may change C:\Open", self.log())
        self.assertEqual(machine.traces(), before)
        # Wine undoes an installation with the directory.
        self.assertFalse(os.path.exists(opened) and os.listdir(opened))

    def test_without_the_driver_everything_is_installed_and_the_reason_is_said(self):
        self.expect_done(self.install())
        self.assertEqual(self.machine.state(), "stopped")
        self.assertIn(r"\\.\TAMLOG does not exist", self.log())
        self.machine.load_driver()
        self.expect_done(self.machine.tool("server", "start"))

    def test_the_silent_exit_code_of_a_success_is_0(self):
        self.assertEqual(self.exit_code(), 0)

    def test_the_rest_of_path_stays_as_it_is(self):
        # Odd, but found on machines: an empty part, a part between quotation marks, names of variables.
        path = r'%SystemRoot%\system32;;"C:\Tools; new";C:\Torvane;%SystemRoot%'
        self.expect_done(self.machine.run("reg.exe", "add", ENVIRONMENT_KEY, "/v", "Path", "/t", "REG_EXPAND_SZ", "/d",
                                          path, "/f"))
        self.expect_done(self.install())
        self.assertEqual(self.machine.system_path().rstrip("\\"), path + r";C:\Program Files\Torvane")
        self.assertRegex(self.machine.key(ENVIRONMENT_KEY), r"(?i)\bpath    REG_EXPAND_SZ    ")
        self.remove()
        # Windows Installer removes the separator too; Wine leaves it.
        self.assertEqual(self.machine.system_path().rstrip(";"), path)

    def test_whole_machine_is_the_same_after_a_removal(self):
        names = re.compile("(?i)torvane|tamlog|vorta")
        before = self.machine.everything()
        self.expect_done(self.install())
        self.remove()
        first = self.machine.everything()  # Wine has created what it needs for its first window and installation
        self.assertEqual({line for line in first - before if names.search(line) and not OF_WINE.search(line)}, set())
        self.expect_done(self.install())
        self.remove()
        self.assertEqual({line for line in self.machine.everything() ^ first if not OF_WINE.search(line)}, set())

    def test_cycles_leave_nothing_behind(self):
        before, data_before = self.machine.traces(), self.machine.data()
        for _ in cycles():
            self.expect_done(self.install())
            self.remove()
            after = self.machine.traces()
            after["path"] = after["path"].rstrip(";")  # which Wine leaves where Windows Installer does not
            self.assertEqual(after, before)
            self.assertEqual(self.machine.data(), data_before)
        self.assertEqual(self.machine.key(MAKER_KEY), "")


class Setup(Road, Package):
    DOWNGRADE = 3

    def exit_code(self):
        return self.machine.exit_code(windows(RELEASES.setup), "/S")

    def install(self, *options, program=None):
        return self.machine.run(program or RELEASES.setup, "/S", r"/LOG=C:\setup.log", *options)

    def install_in(self, directory):
        return self.install("/D=" + directory)

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

    def fail_at_each_step(self, action, check):
        """Lets each step fail in turn until none is left; after each failure everything is as before."""
        before = self.machine.traces()
        for step in QUICK_STEPS or range(1, 30):
            code, said = action(f"/FAILAT={step}")
            if code == 0:
                self.assertGreater(step, 4)
                return
            self.assertEqual(code, 1, said)
            self.assertTrue(self.machine.wait_until(lambda: self.machine.traces() == before, 10),
                            f"step {step}: {self.machine.traces()}\ninstead of {before}")
            check()
        self.assertTrue(QUICK_STEPS, "every step failed")

    def test_failed_step_of_an_installation_is_undone(self):
        self.machine.load_driver()
        data = self.machine.data()
        self.fail_at_each_step(self.install, lambda: self.assertEqual(self.machine.data(), data))

    def test_failed_step_of_an_upgrade_is_undone(self):
        data = self.install_with_a_message()
        self.fail_at_each_step(self.upgrade, lambda: self.expect_kept(data))

    def test_failed_step_of_a_removal_is_undone(self):
        data = self.install_with_a_message()
        self.fail_at_each_step(self.uninstall, lambda: self.expect_kept(data))
        self.assertEqual(self.machine.state(), "")
        self.assertEqual(self.machine.data(), data)

    def test_service_that_does_not_start_undoes_the_installation(self):
        self.machine.load_driver()
        # The server cannot read such a capacity and ends while it starts.
        self.expect_done(self.machine.run("reg.exe", "add", SETTINGS_KEY, "/v", "MaxMessage", "/t", "REG_SZ", "/d",
                                          "many"))
        before = self.machine.traces()
        self.assertEqual(self.exit_code(), 1)
        self.assertEqual(self.machine.traces(), before)

    def test_the_uninstaller_is_signed_where_the_package_is(self):
        self.expect_done(self.upgrade())
        valid, said = test_signature.verify(RELEASES.folder, os.path.join(self.machine.directory, "uninstall.exe"))
        self.assertTrue(valid, said)

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
        self.assertEqual(self.exit_code(), 4)
        self.assertEqual(self.machine.traces(), before)


class Msi(Road, Package):
    DOWNGRADE = 1603

    def exit_code(self, package=None):
        return self.machine.exit_code("msiexec", "/i", windows(package or RELEASES.msi), "/qn")

    def install(self, *options, package=None):
        return self.machine.run("msiexec", "/i", windows(package or RELEASES.msi), "/qn", "/l*v", r"C:\setup.log",
                                *options)

    def install_in(self, directory):
        return self.install("INSTALLDIR=" + directory)

    def upgrade(self):
        return self.install(package=RELEASES.next_msi)

    def remove(self, delete_data=False):
        version = self.machine.value(PACKAGE_KEY, "Version")
        package = RELEASES.next_msi if version == NEXT else RELEASES.msi
        self.expect_done(self.machine.run("msiexec", "/x", windows(package), "/qn", "/l*v", r"C:\remove.log",
                                          *(["DELETEDATA=1"] if delete_data else [])))

    def log(self):
        with open(self.machine.path(r"C:\setup.log"), "rb") as file:
            return file.read().replace(b"\0", b"").decode("latin-1")

    def test_failed_step_of_an_installation_is_undone(self):
        self.machine.load_driver()
        before, data = self.machine.traces(), self.machine.data()
        steps = self.steps()
        self.assertGreater(len(steps), 10)
        for number, action in steps:
            if QUICK_STEPS and action not in ("InstallFiles", "StartServices"):
                continue
            self.assertEqual(self.exit_code(RELEASES.failing_msi(RELEASES.msi, number, "NOT REMOVE")), 1603, action)
            after = self.machine.traces()
            after["path"] = after["path"].rstrip(";")
            self.assertEqual(after, before, action)
            self.assertEqual(self.machine.data(), data, action)

    def test_failed_step_of_a_removal_is_undone(self):
        numbers = {action: number for number, action, _ in RELEASES.actions()}
        data = None
        for action in ("StopServices", "DeleteServices", "RemoveRegistryValues", "RemoveEnvironmentStrings",
                       "RemoveFiles", "DeleteData", "PublishProduct"):
            # The installer keeps the MSI that was installed, and removes by it.
            msi = RELEASES.failing_msi(RELEASES.msi, numbers[action], "REMOVE AND FAILNOW")
            if data is None:
                data = self.install_with_a_message(msi)
            else:
                self.expect_done(self.install(package=msi))
                self.assertTrue(self.machine.wait_for_state("running"))
            before = self.machine.traces()
            remove = ("msiexec", "/x", windows(msi), "/qn")
            self.assertEqual(self.machine.exit_code(*remove, "DELETEDATA=1", "FAILNOW=1"), 1603, action)
            self.assertEqual(self.machine.traces(), before, action)
            self.expect_kept(data)
            self.expect_done(self.machine.run(*remove))
        self.assertEqual(self.machine.data(), data)

    def test_failed_upgrade_keeps_messages_and_settings(self):
        # Wine ends the removal of the old version as an installation of its own, and does not bring it back. Windows
        # Installer does; the next test holds what it demands for that.
        data = self.install_with_a_message()
        for number, action in self.steps():
            if action not in ("RemoveExistingProducts", "InstallFiles", "StartServices")[2 * bool(QUICK_STEPS):]:
                continue
            msi = RELEASES.failing_msi(RELEASES.next_msi, number, "NOT REMOVE")
            self.assertEqual(self.exit_code(msi), 1603, action)
            self.assertEqual(set(self.machine.files()), {"Logs.dat"}, action)
            self.assertEqual(self.machine.data(), data, action)
            self.expect_done(self.install())
            self.assertTrue(self.machine.wait_for_state("running"))
            self.expect_kept(data)

    def test_tables_let_windows_installer_undo_everything(self):
        numbers = {action: number for number, action, _ in RELEASES.actions()}
        begin, end = numbers["InstallInitialize"], numbers["InstallFinalize"]
        # Of the documented places for this action, the one in which a failure brings the old version back: within the
        # transaction, before everything that writes a script.
        self.assertEqual(numbers["RemoveExistingProducts"], begin + 1)
        self.assertEqual([action for action, number in numbers.items() if number == begin + 1],
                         ["RemoveExistingProducts"])
        kinds = {row[0]: int(row[1]) for row in RELEASES.rows("CustomAction")}
        in_script, rollback, commit, as_system = 1024, 256, 512, 2048
        changing = {action for action, kind in kinds.items() if kind & in_script}
        self.assertEqual(changing, {"MakeDirectory", "RemoveNewDirectory", "QuoteCommand", "SetRestarts",
                                    "DeleteNewData", "DeleteData"})
        for action in changing:
            self.assertTrue(begin < numbers[action] < end, action)
            self.assertTrue(kinds[action] & as_system, action)
        # The deletion of messages cannot be undone: it waits until everything else was done.
        self.assertTrue(kinds["DeleteData"] & commit)
        # A started server's data is deleted after the service was stopped again. Rollback runs backwards, so that
        # action comes earlier in the sequence.
        self.assertTrue(kinds["DeleteNewData"] & rollback)
        self.assertLess(numbers["DeleteNewData"], numbers["StartServices"])
        # A created directory is removed after its files.
        self.assertTrue(kinds["RemoveNewDirectory"] & rollback)
        self.assertLess(numbers["RemoveNewDirectory"], numbers["MakeDirectory"])
        self.assertLess(numbers["MakeDirectory"], numbers["InstallFiles"])
        # These change only the service that the installer itself registered, and restores.
        for action in ("QuoteCommand", "SetRestarts"):
            self.assertTrue(numbers["InstallServices"] < numbers[action] < numbers["StartServices"], action)
        # Nothing disables rollback.
        self.assertNotIn("DISABLEROLLBACK", {row[0] for row in RELEASES.rows("Property")})
        self.assertNotIn("DisableRollback", numbers)

    def steps(self):
        """Returns (number, action) of each action of an installation within the transaction, except the last."""
        numbers = {action: number for number, action, _ in RELEASES.actions()}
        return [(number, action) for number, action, condition in RELEASES.actions()
                if numbers["InstallInitialize"] <= number < numbers["InstallFinalize"] and
                not condition.startswith("REMOVE")]

    def test_tables_hold_what_wine_does_not_keep(self):
        # Restarts after 5 s, 30 s and 60 s; the first delay again after a day without failure; at installation and
        # repair.
        (row,) = RELEASES.rows("MsiServiceConfigFailureActions")
        self.assertEqual(row[1:], ["TamLogServer", "5", "86400", "", "", "1[~]1[~]1", "5000[~]30000[~]60000", "Server"])
        # The action of the system for this table does not work everywhere; ours sets the same restarts.
        actions = {action for _, action, _ in RELEASES.actions()}
        self.assertNotIn("MsiConfigureServices", actions)
        self.assertIn("SetRestarts", actions)
        self.assertIn("(A;;RPWPRC;;;WD)", str(RELEASES.rows("MsiLockPermissionsEx")))
        self.assertIn("VersionNT64 >= 601", str(RELEASES.rows("LaunchCondition")))
        # A silent upgrade while a program of the package runs does not restart the machine.
        self.assertIn(["REBOOT", "ReallySuppress"], RELEASES.rows("Property"))

    def test_restarts_after_failures_are_set(self):
        self.expect_done(self.install())
        self.assertIn("The restarts of the service after failures are set.", self.log())

    def test_upgrade_with_a_user_interface_stays_in_the_directory_of_the_old_version(self):
        machine = self.machine
        self.expect_done(self.install_in(r"C:\Logs"))
        self.expect_done(machine.run("msiexec", "/i", windows(RELEASES.next_msi), "/qr", "/l*v", r"C:\setup.log"))
        self.assertEqual(machine.value(SERVICE_KEY, "ImagePath").strip(), r'"C:\Logs\TamLogServer.exe"')
        self.assertFalse(os.path.exists(machine.directory))

    def test_the_other_package_is_refused(self):
        self.expect_done(self.machine.run(RELEASES.setup, "/S"))
        before = self.machine.traces()
        self.assertEqual(self.exit_code(), 1603)
        self.assertEqual(self.machine.traces(), before)


class Zip(Package):
    """By hand, as README.txt in the zip says."""

    def setUp(self):
        super().setUp()
        self.stage = os.path.join(RELEASES.folder, f"torvane-log-server-{RELEASES.version}-x64")

    def test_cycles_leave_nothing_behind(self):
        machine = self.machine
        machine.load_driver()
        before = machine.traces()
        for cycle in cycles():
            os.makedirs(machine.directory, exist_ok=True)
            for name in ("TamLogServer.exe", "tamlogctl.exe"):
                shutil.copy(os.path.join(self.stage, name), machine.directory)
            self.expect_done(machine.tool("server", "install"))
            self.start_service()
            self.expect_done(machine.tool("send", "-s", "Test", f"message {cycle}"))
            self.wait_shown(f"message {cycle}")
            self.stop_service()
            self.expect_done(machine.tool("server", "remove"))
            for name in ("TamLogServer.exe", "tamlogctl.exe"):
                os.remove(os.path.join(machine.directory, name))
            self.assertEqual(machine.traces(), before)
            self.assertEqual(set(machine.files()), {"Logs.dat"})


if __name__ == "__main__":
    ARGUMENTS = sys.argv[1:]
    if ARGUMENTS[:1] in (["-h"], ["--help"]):
        print(__doc__)
        sys.exit(0)
    QUICK_STEPS = ()
    if ARGUMENTS[:1] == ["--quick"]:
        CYCLES = 1
        QUICK_STEPS = (3, 8)  # files are copied; the service is started, the last step
        ARGUMENTS = ARGUMENTS[1:] or list(QUICK_TESTS)
    RELEASES = Releases()
    try:
        unittest.main(argv=[sys.argv[0], *ARGUMENTS], verbosity=2)
    finally:
        RELEASES.close()
