#!/usr/bin/env python3
"""Checks the programs of a package: size, hardening, build id, resources, symbols.

usage: packaging/check_programs.py VERSION DIRECTORY

DIRECTORY holds the stripped programs and libraries, and in DIRECTORY/symbols the file NAME.debug of each. Prints one
line for each program, one line for each fault, and exits with 1 if there are faults.
"""

import os
import re
import sys
from xml.etree import ElementTree

import pe_file

LIMITS = {"TamLogServer.exe": 1_300_000, "tamlogctl.exe": 3_500_000, "tamlogcheck.exe": 2_500_000,
          "tamlog.dll": 3_500_000, "setup_helper.exe": 1_500_000, "msi_actions.dll": 1_500_000}
SUPPORTED_SYSTEMS = {
    "{35138b9a-5d96-4fbd-8e2d-a2440225f93a}": "Windows 7",
    "{4a2f28e3-53b9-4441-ba9c-d69d4a4a6e38}": "Windows 8",
    "{1f676c76-80e1-4239-95bb-83d0f6d0da78}": "Windows 8.1",
    "{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}": "Windows 10",
}
# The settings that each manifest has; all others would change how the program behaves.
SETTINGS = {"TamLogServer.exe": {}, "tamlogcheck.exe": {}, "setup_helper.exe": {},
            "tamlogctl.exe": {"longPathAware": "true", "activeCodePage": "UTF-8"}}
GUARD = "__stack_chk_fail"
# Only our code is C++ with debug information.
OPTIONS_OF_OURS = re.compile(rb"GNU C\+\+\d+ [^\0]* -[^\0]*\0")


def hardening_faults(program):
    wanted = ((pe_file.HIGH_ENTROPY, "addresses of high entropy"), (pe_file.DYNAMIC_BASE, "random addresses"),
              (pe_file.NX_COMPATIBLE, "no execution of data"))
    for flag, name in wanted:
        if not program.dll_flags & flag:
            yield f"the header does not allow: {name}"
    if program.file_flags & pe_file.RELOCATIONS_STRIPPED or program.directories[5][1] == 0:
        yield "no relocations: the program cannot be moved to a random address"
    # Below 4 GiB the system moves a program only within the lower addresses.
    if program.image_base < 1 << 32:
        yield f"the preferred address {program.image_base:#x} is below 4 GiB"
    for name, _, _, _, _, flags in program.sections:
        if flags & 0x20000000 and flags & 0x80000000:
            yield f"section {name} can be written and executed"
    if program.timestamp != 0:
        yield "the header contains the time of the build"


def manifest_faults(name, program):
    found = program.resources(pe_file.MANIFEST)
    if name not in SETTINGS:
        return
    if len(found) != 1:
        yield f"{len(found)} manifests instead of one"
        return
    root = ElementTree.fromstring(found[0])
    levels = [at.get("level") for at in root.iter() if at.tag.endswith("}requestedExecutionLevel")]
    if levels != ["asInvoker"]:
        yield f"the manifest requests the rights {levels} instead of asInvoker"
    systems = {at.get("Id") for at in root.iter() if at.tag.endswith("}supportedOS")}
    for identifier, system in SUPPORTED_SYSTEMS.items():
        if identifier not in systems:
            yield f"the manifest does not name {system}"
    settings = {at.tag.split("}")[1]: at.text for group in root.iter() if group.tag.endswith("}windowsSettings")
                for at in group}
    if settings != SETTINGS[name]:
        yield f"the manifest has the settings {settings} instead of {SETTINGS[name]}"


def version_faults(name, program, version):
    found = program.resources(pe_file.VERSION)
    if len(found) != 1:
        yield f"{len(found)} version resources instead of one"
        return
    texts = pe_file.version_texts(found[0])
    wanted = {"FileVersion": version, "ProductVersion": version, "OriginalFilename": name,
              "InternalName": name.rsplit(".", 1)[0], "ProductName": "Torvane Log Server"}
    for key, text in wanted.items():
        if texts.get(key) != text:
            yield f"version resource: {key} is {texts.get(key)!r} instead of {text!r}"
    if not texts.get("FileDescription"):
        yield "version resource: no description"


def symbol_faults(program, path):
    if program.symbol_count != 0 or any(section[0].startswith("/") for section in program.sections):
        yield "the file is not stripped"
    if not os.path.exists(path):
        yield f"no symbols: {path} is missing"
        return
    symbols = pe_file.PeFile(path)
    if symbols.build_id() != program.build_id():
        yield f"the build id of the symbols is {symbols.build_id()!r}, that of the program {program.build_id()!r}"
    # Places with and without a compiler cache compile with different options: a build id over them would differ, too.
    if OPTIONS_OF_OURS.search(symbols.data):
        yield "the debug information names the options of the compiler"
    # The protector is in the code and leaves no trace in the header; its handler is linked in only where it is called.
    if GUARD not in symbols.symbol_names():
        yield f"no stack protector: {GUARD} is not linked in"


def faults_of(name, path, symbols, version):
    size = os.path.getsize(path)
    if size > LIMITS[name]:
        yield f"{size:,} bytes, more than {LIMITS[name]:,}"
    program = pe_file.PeFile(path)
    yield from hardening_faults(program)
    if not re.fullmatch("(?!0+$)[0-9a-f]{32}", program.build_id()):
        yield "no build id"
    if len(program.resources(pe_file.GROUP_ICON)) != 1 or len(program.resources(pe_file.ICON)) != 4:
        yield "no icon of four sizes"
    yield from version_faults(name, program, version)
    yield from manifest_faults(name, program)
    yield from symbol_faults(program, symbols)


def main(arguments):
    if len(arguments) != 2 or arguments[0].startswith("-"):
        print(__doc__, file=sys.stderr)
        return 2
    version, folder = arguments
    failed = False
    for name in LIMITS:
        path = os.path.join(folder, name)
        try:
            faults = list(faults_of(name, path, os.path.join(folder, "symbols", name + ".debug"), version))
        except (OSError, pe_file.BadFile, ElementTree.ParseError, ValueError) as failure:
            faults = [str(failure)]
        for fault in faults:
            print(f"check_programs.py: {name}: {fault}", file=sys.stderr)
        if faults:
            failed = True
        else:
            print(f"{name}: {os.path.getsize(path):,} bytes, build id {pe_file.PeFile(path).build_id()}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
