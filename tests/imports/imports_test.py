#!/usr/bin/env python3
"""Every program that the packages contain loads on Windows 7 SP1: its imports are in a written list.

usage: imports_test.py BUILT
"""

import os
import re
import struct
import sys
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, os.path.join(ROOT, "packaging"))

import pe_file  # noqa: E402

PROGRAMS = ("TamLogServer.exe", "tamlogctl.exe", "tamlogcheck.exe", "tamlog.dll", "setup_helper.exe", "msi_actions.dll")
VERSIONS = ("2000", "XP", "Vista", "Vista-SP1", "7", "system", "Installer-2.0")
# The folders whose code is in these programs.
FOLDERS = ("records", "util", "store", "pipe", "server", "client", "tamlogctl", "check", "packaging/setup")
WINDOWS_7 = (6, 1)
DELAYED_IMPORTS = 13


def read_lines(name):
    with open(os.path.join(HERE, name), encoding="utf-8") as file:
        return [line.rstrip("\n") for line in file if line.strip() and not line.startswith("#")]


def allowed_functions():
    """Returns {library: {function: version}} of the written list."""
    allowed, library = {}, ""
    for line in read_lines("windows7_functions.txt"):
        if not line.startswith(" "):
            library = line.strip()
            assert library not in allowed, f"{library} is listed twice"
            allowed[library] = {}
            continue
        function, version = line.split()
        assert function not in allowed[library], f"{function} is listed twice"
        allowed[library][function] = version
    return allowed


def programs():
    return {name: pe_file.PeFile(os.path.join(BUILT, name)) for name in PROGRAMS}


def unknown_imports(program, allowed):
    for library, functions in program.imports().items():
        for function in functions:
            if function not in allowed.get(library, {}):
                yield f"{library}: {function}"


class Imports(unittest.TestCase):
    def test_every_imported_function_is_in_the_list(self):
        for name, program in programs().items():
            self.assertEqual(list(unknown_imports(program, allowed_functions())), [],
                             f"{name} imports what tests/imports/windows7_functions.txt does not list")

    def test_the_list_has_no_function_of_a_later_system(self):
        for library, functions in allowed_functions().items():
            for function, version in functions.items():
                self.assertIn(version, VERSIONS, f"{library}: {function}")

    def test_a_new_import_and_a_new_library_are_noticed(self):
        server = programs()["TamLogServer.exe"]
        allowed = allowed_functions()
        del allowed["kernel32.dll"]["CancelIoEx"]
        self.assertEqual(list(unknown_imports(server, allowed)), ["kernel32.dll: CancelIoEx"])
        del allowed["msvcrt.dll"]
        self.assertGreater(len(list(unknown_imports(server, allowed))), 20)

    def test_no_program_waits_with_its_imports_or_asks_for_a_later_system(self):
        for name, program in programs().items():
            self.assertEqual(program.directories[DELAYED_IMPORTS], (0, 0), name)
            optional = struct.unpack_from("<I", program.data, 0x3C)[0] + 24
            for offset, what in ((40, "system"), (48, "subsystem")):
                version = program.unpack("<HH", optional + offset)
                self.assertLessEqual(version, WINDOWS_7, f"{name}: version of the {what}")

    def test_every_function_that_is_looked_up_has_a_way_without_it(self):
        listed = {}
        for line in read_lines("looked_up_functions.txt"):
            file, function, without = line.split(": ", 2)
            self.assertTrue(without)
            listed.setdefault(file, set()).add(function)
        found = set()
        for folder in FOLDERS:
            for place, _, names in os.walk(os.path.join(ROOT, folder)):
                for name in names:
                    path = os.path.join(place, name)
                    if not name.endswith((".cpp", ".h", ".c", ".hpp")):
                        continue
                    with open(path, encoding="utf-8") as source:
                        text = source.read()
                    if re.search(r"\b(GetProcAddress|LoadLibrary\w*)\s*\(", text):
                        found.add(os.path.relpath(path, ROOT))
        self.assertEqual(found, set(listed))
        for file, functions in listed.items():
            with open(os.path.join(ROOT, file), encoding="utf-8") as source:
                text = source.read()
            looked_up = set(re.findall(r'(?:GetProcAddress\([^;]*?,|\bFind<\w+>\()\s*"(\w+)"', text))
            self.assertEqual(looked_up, functions, file)


if __name__ == "__main__":
    BUILT = sys.argv[1]
    unittest.main(argv=sys.argv[:1])
