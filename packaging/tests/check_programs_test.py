#!/usr/bin/env python3
"""The programs of the build are fit for packages, and the check notices each fault.

usage: check_programs_test.py BUILT VERSION
"""

import os
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
PACKAGING = os.path.dirname(HERE)
sys.path.insert(0, PACKAGING)

import check_programs  # noqa: E402
import pe_file  # noqa: E402


class Programs(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.mkdtemp(prefix="programs-")
        cls.addClassCleanup(shutil.rmtree, cls.folder)
        subprocess.run([os.path.join(PACKAGING, "strip-programs.sh"), BUILT, cls.folder], check=True)

    def faults(self, name, path=None, symbols=None, version=None):
        return list(check_programs.faults_of(name, path or os.path.join(self.folder, name),
                                             symbols or self.symbols(name), version or VERSION))

    def symbols(self, name):
        return os.path.join(self.folder, "symbols", name + ".debug")

    def changed(self, name, change):
        """Returns the path of a copy whose bytes `change` has changed in place."""
        with open(os.path.join(self.folder, name), "rb") as file:
            content = bytearray(file.read())
        change(content)
        path = os.path.join(self.folder, "changed")
        with open(path, "wb") as file:
            file.write(content)
        return path

    def test_the_programs_of_the_build_have_no_fault(self):
        for name in check_programs.LIMITS:
            self.assertEqual(self.faults(name), [], name)

    def test_each_missing_flag_is_a_fault(self):
        def clear(flag):
            def change(content):
                at = struct.unpack_from("<I", content, 0x3C)[0] + 24 + 70
                struct.pack_into("<H", content, at, struct.unpack_from("<H", content, at)[0] & ~flag)
            return change
        for flag in (pe_file.HIGH_ENTROPY, pe_file.DYNAMIC_BASE, pe_file.NX_COMPATIBLE):
            faults = self.faults("TamLogServer.exe", self.changed("TamLogServer.exe", clear(flag)))
            self.assertEqual(len(faults), 1, faults)
            self.assertIn("the header does not allow", faults[0])

    def test_a_time_in_the_header_is_a_fault(self):
        def change(content):
            struct.pack_into("<I", content, struct.unpack_from("<I", content, 0x3C)[0] + 8, 1)
        self.assertEqual(self.faults("tamlogctl.exe", self.changed("tamlogctl.exe", change)),
                         ["the header contains the time of the build"])

    def test_a_program_that_is_not_stripped_is_a_fault(self):
        faults = self.faults("TamLogServer.exe", os.path.join(BUILT, "TamLogServer.exe"))
        self.assertIn("the file is not stripped", faults)
        self.assertTrue(any("more than 1,300,000" in fault for fault in faults), faults)

    def test_symbols_of_another_program_are_a_fault(self):
        faults = self.faults("TamLogServer.exe", symbols=self.symbols("tamlogctl.exe"))
        self.assertTrue(any("the build id of the symbols" in fault for fault in faults), faults)

    def test_the_server_has_no_setting_that_changes_how_it_reads_texts(self):
        faults = list(check_programs.manifest_faults(
            "TamLogServer.exe", pe_file.PeFile(os.path.join(self.folder, "tamlogctl.exe"))))
        self.assertEqual(len(faults), 1, faults)
        self.assertIn("activeCodePage", faults[0])

    def test_another_version_is_a_fault(self):
        faults = self.faults("tamlog.dll", version="9.8.7")
        self.assertEqual(len(faults), 2, faults)
        self.assertIn("'9.8.7'", faults[0])

    def test_a_program_without_stack_protector_is_a_fault(self):
        name = "TamLogServer.exe"
        symbols = self.symbols(name)
        with open(symbols, "rb") as file:
            content = file.read().replace(check_programs.GUARD.encode(), b"_" * len(check_programs.GUARD))
        path = os.path.join(self.folder, "unguarded.debug")
        with open(path, "wb") as file:
            file.write(content)
        self.assertEqual(self.faults(name, symbols=path), ["no stack protector: __stack_chk_fail is not linked in"])

    def test_options_in_the_debug_information_are_a_fault(self):
        name = "tamlogctl.exe"
        with open(self.symbols(name), "rb") as file:
            content = file.read()
        self.assertIn(b"GNU C++20 12-posix\0", content)
        path = os.path.join(self.folder, "options.debug")
        with open(path, "wb") as file:
            file.write(content.replace(b"GNU C++20 12-posix\0", b"GNU C++20 12 -fpch\0"))
        self.assertEqual(self.faults(name, symbols=path), ["the debug information names the options of the compiler"])

    def test_a_cut_program_is_refused(self):
        def change(content):
            del content[1000:]
        with self.assertRaises(pe_file.BadFile):
            self.faults("TamLogServer.exe", self.changed("TamLogServer.exe", change))


if __name__ == "__main__":
    BUILT, VERSION = sys.argv[1:]
    unittest.main(argv=sys.argv[:1])
