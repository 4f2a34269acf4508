#!/usr/bin/env python3
"""Makes signed packages with a certificate of the test, and verifies every signature.

usage: packaging/tests/signing_test.py

Takes the programs that are built already, as packaging/test.sh does.
"""

import glob
import os
import shutil
import subprocess
import sys
import tempfile
import unittest

import test_signature

ROOT = os.path.dirname(test_signature.PACKAGING)
PACKAGES = os.path.join(ROOT, "build", "packages")
SIGN_FILES = os.path.join(test_signature.PACKAGING, "sign_files.py")


def programs_below(folder):
    return [os.path.join(where, name) for where, _, names in os.walk(folder) for name in names
            if name.endswith((".exe", ".dll"))]


class Signed(unittest.TestCase):
    """The packages of ./package.sh with SIGN."""

    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="signed-")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        cls.variables = test_signature.make(cls.folder)
        cls.names = os.path.join(cls.folder, "names")
        hook = os.path.join(cls.folder, "hook.sh")
        with open(hook, "w", encoding="utf-8") as file:
            file.write(f'#!/bin/sh\necho "$1" >>{cls.names}\nexec {test_signature.HOOK} "$1"\n')
        os.chmod(hook, 0o755)
        cls.packages = os.path.join(cls.folder, "packages")
        done = subprocess.run([os.path.join(ROOT, "package.sh"), "--no-install", "--no-build", "--output",
                               cls.packages], check=False, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              env={**os.environ, **cls.variables, "SIGN": hook})
        if done.returncode != 0:
            raise AssertionError(done.stdout)

    def one(self, ending):
        (found,) = (path for path in glob.glob(os.path.join(self.packages, "*")) if path.endswith(ending))
        return found

    def expect_signed(self, path):
        valid, said = test_signature.verify(self.folder, path)
        self.assertTrue(valid, f"{path}\n{said}")

    def test_setup_program_and_msi_have_valid_signatures(self):
        self.expect_signed(self.one("-setup.exe"))
        self.expect_signed(self.one(".msi"))

    def test_every_program_in_the_zip_has_a_valid_signature(self):
        target = os.path.join(self.folder, "zip")
        subprocess.run([sys.executable, "-m", "zipfile", "-e", self.one("-x64.zip"), target], check=True)
        programs = programs_below(target)
        self.assertGreaterEqual(len(programs), 3)
        for path in programs:
            self.expect_signed(path)

    def test_every_program_in_the_msi_has_a_valid_signature(self):
        target = os.path.join(self.folder, "msi")
        os.makedirs(target)
        subprocess.run(["msiextract", "-C", target, self.one(".msi")], check=True, stdout=subprocess.DEVNULL)
        actions = os.path.join(target, "actions.dll")
        with open(actions, "wb") as file:
            subprocess.run(["msiinfo", "extract", self.one(".msi"), "Binary.Actions"], check=True, stdout=file)
        programs = programs_below(target)
        self.assertGreaterEqual(len(programs), 4)
        for path in programs:
            self.expect_signed(path)

    def test_the_setup_program_contains_a_signed_helper_and_a_signed_uninstaller(self):
        # The names that the command was given: the uninstaller is a file of the compiler's without an ending.
        with open(self.names, encoding="utf-8") as file:
            names = file.read().split("\n")
        self.assertTrue(any(name.endswith("/setup_helper.exe") for name in names), names)
        self.assertEqual(len([name for name in names if name and "." not in os.path.basename(name)]), 1, names)

    def test_the_sums_are_those_of_the_signed_files(self):
        subprocess.run(["sha256sum", "--check", "--quiet", "SHA256SUMS"], check=True, cwd=self.packages)


class Hook(unittest.TestCase):
    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.folder = temporary.name

    def copy_of(self, pattern):
        (path,) = glob.glob(os.path.join(PACKAGES, pattern))
        return shutil.copy(path, self.folder)

    def sign(self, path, **variables):
        return subprocess.run([SIGN_FILES, path], check=False, text=True, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT,
                              env={**os.environ, "SOURCE_DATE_EPOCH": "1700000000", **variables})

    def test_without_a_time_stamp_the_same_file_gets_the_same_signature(self):
        variables = test_signature.make(self.folder)
        for pattern in ("*-setup.exe", "*.msi"):
            signed = set()
            for _ in range(2):
                path = self.copy_of(pattern)
                done = self.sign(path, **variables)
                self.assertEqual(done.returncode, 0, done.stdout)
                with open(path, "rb") as file:
                    signed.add(file.read())
            self.assertEqual(len(signed), 1, pattern)

    def test_a_changed_file_has_no_valid_signature(self):
        path = self.copy_of("*-setup.exe")
        self.assertEqual(self.sign(path, **test_signature.make(self.folder)).returncode, 0)
        self.assertTrue(test_signature.verify(self.folder, path)[0])
        with open(path, "r+b") as file:
            file.seek(100_000)
            byte = file.read(1)[0]
            file.seek(100_000)
            file.write(bytes([byte ^ 1]))
        self.assertFalse(test_signature.verify(self.folder, path)[0])

    def test_a_command_that_fails_or_does_not_sign_is_an_error(self):
        path = self.copy_of("*.msi")
        self.assertEqual(self.sign(path, SIGN="").returncode, 0)
        self.assertIn("did not sign", self.sign(path, SIGN="true").stdout)
        done = self.sign(path, SIGN="echo no token; false")
        self.assertEqual(done.returncode, 1)
        self.assertIn("no token", done.stdout)


class Release(unittest.TestCase):
    """What ./package.sh --release refuses."""

    def reasons(self, **variables):
        done = subprocess.run([os.path.join(test_signature.PACKAGING, "check-release.sh")], check=False, text=True,
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, env={**os.environ, **variables})
        self.assertEqual(done.returncode == 0, done.stderr == "")
        return [line for line in done.stderr.splitlines() if "uncommitted" not in line]

    FILLED = {"MAKER_CONTACT": "A B <a@b.org>", "MAKER_HOMEPAGE": "https://b.org", "MAKER_LICENSE": "Proprietary",
              "MAKER_COPYRIGHT": "Copyright B", "DOWNLOAD_URL": "https://b.org/d", "SIGN": "true"}

    def test_each_placeholder_and_a_missing_signature_are_refused(self):
        self.assertEqual(self.reasons(**self.FILLED), [])
        for name in self.FILLED:
            value = "" if name == "SIGN" else "see https://EXAMPLE.invalid"
            reasons = self.reasons(**{**self.FILLED, name: value})
            self.assertEqual([line.split()[1] for line in reasons], [name])

    def test_placeholders_stop_the_release(self):
        done = subprocess.run([os.path.join(ROOT, "package.sh"), "--no-install", "--no-build", "--release"],
                              check=False, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              env={**os.environ, **self.FILLED, "MAKER_LICENSE": "Placeholder"})
        self.assertEqual(done.returncode, 1)
        self.assertIn("MAKER_LICENSE is a placeholder", done.stdout)


if __name__ == "__main__":
    unittest.main()
