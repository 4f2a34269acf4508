"""Finds what is linked into the programs besides our own code: from the linker's maps and the compiled headers.

Each thing found belongs to a Debian package; COMPONENTS says what it is to the reader of a package. Something that no
entry covers is an error, so a new library cannot slip into the packages without its licence.
"""

import os
import re
import subprocess

MAPS = ("TamLogServer.map", "tamlogctl.map", "tamlogcheck.map", "tamlog.map", "setup_helper.map", "msi_actions.map")
COMMON_LICENCES = "/usr/share/common-licenses"


class Unknown(Exception):
    """A part is linked in that COMPONENTS does not have."""


# Pattern of the Debian packages, name of the component, SPDX licence.
COMPONENTS = (
    (r"(gcc|g\+\+)-mingw-w64-x86-64-posix(-runtime)?", "GCC run-time libraries (libstdc++, libgcc, libssp)",
     "GPL-3.0-or-later WITH GCC-exception-3.1"),
    (r"mingw-w64-x86-64-dev|mingw-w64-common", "MinGW-w64 run-time (start code, headers, winpthreads)",
     "LicenseRef-MinGW-w64"),
    (r"libz-mingw-w64-dev", "zlib", "Zlib"),
    (r"libfmt-dev", "fmt", "MIT"),
    (r"libcli11-dev", "CLI11", "BSD-3-Clause"),
    (r"nlohmann-json3-dev", "JSON for Modern C++", "MIT"),
)


class Component:
    def __init__(self, package, name, licence):
        self.package = package
        self.name = name
        self.licence = licence
        self.version = package_field(package, "Version")
        self.programs = set()

    def copyright(self):
        path = f"/usr/share/doc/{self.package}/copyright"
        with open(path, encoding="utf-8") as file:
            text = file.read()
        for name in sorted(set(re.findall(rf"{COMMON_LICENCES}/([A-Za-z0-9.-]*[A-Za-z0-9])", text))):
            whole = os.path.join(COMMON_LICENCES, name)
            if os.path.exists(whole):
                with open(whole, encoding="utf-8") as file:
                    text += f"\n\n----- {name} -----\n\n" + file.read()
        return text


def package_field(package, field):
    done = subprocess.run(["dpkg-query", "--show", f"--showformat=${{{field}}}", package], check=True, text=True,
                          stdout=subprocess.PIPE)
    return done.stdout.split("\n")[0]


def packages_of(paths):
    """Returns {path: Debian package}."""
    found = {}
    done = subprocess.run(["dpkg-query", "--search", *sorted(paths)], check=False, text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE)
    for line in done.stdout.splitlines():
        packages, _, path = line.rpartition(": ")
        found[path] = packages.split(",")[0].split(":")[0]
    missing = sorted(set(paths) - set(found))
    if missing:
        raise Unknown("no Debian package owns: " + " ".join(missing))
    return found


def linked_files(map_file, own):
    """Returns the archives and objects of a linker's map that are not below the directory `own`."""
    used = set()
    with open(map_file, encoding="utf-8", errors="replace") as file:
        for line in file:
            # "ARCHIVE(MEMBER)" for each member taken from an archive; "LOAD FILE" also for archives not used.
            member = re.match(r"(/\S+\.a)\(\S+\)", line)
            whole = re.match(r"LOAD (/\S+\.o(?:bj)?)$", line)
            if member or whole:
                used.add(os.path.realpath((member or whole)[1]))
    used = {path for path in used if not path.startswith(own + os.sep)}
    if not used:
        raise Unknown(f"{map_file} names no file of the compiler; is it a map of the linker?")
    return used


def compiled_headers(build, rooms, own):
    """Returns the headers outside of the tree that sources of the rooms (folders) include, by the build's own notes."""
    done = subprocess.run(["ninja", "-C", build, "-t", "deps"], check=True, text=True, stdout=subprocess.PIPE)
    found = set()
    in_room = False
    for line in done.stdout.splitlines():
        if line and not line.startswith(" "):
            in_room = line.split("/")[0] in rooms
        elif in_room and line:
            found.add(os.path.realpath(os.path.join(build, line.strip())))
    if not found:
        raise Unknown(f"{build} has no notes of compiled headers; build it first")
    return {path for path in found if not path.startswith(own + os.sep)}


def find(build, root):
    """Returns the components of the programs that the CMake build directory holds."""
    components = {}

    def add(path_to_package, program):
        for path, package in sorted(path_to_package.items()):
            for pattern, name, licence in COMPONENTS:
                if re.fullmatch(pattern, package):
                    component = components.setdefault(name, Component(package, name, licence))
                    component.programs.add(program)
                    break
            else:
                raise Unknown(f"{program} contains {path} of the Debian package {package}, whose licence is not known")

    for name in MAPS:
        program = name[:-4] + (".dll" if name in ("tamlog.map", "msi_actions.map") else ".exe")
        add(packages_of(linked_files(os.path.join(build, name), root)), program)
    headers = {"tamlogctl.exe": {"tamlogctl"}, "TamLogServer.exe": {"server", "store", "pipe", "util", "records"},
               "tamlogcheck.exe": {"check", "client", "conformance"}, "tamlog.dll": {"client"}}
    for program, rooms in headers.items():
        add(packages_of(compiled_headers(build, rooms, root)), program)
    return [components[name] for name in sorted(components)]
