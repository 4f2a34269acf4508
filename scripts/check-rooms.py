#!/usr/bin/env python3
"""Checks every include of the tree against the table of allowed uses between rooms.

usage: scripts/check-rooms.py [--self-test] [ROOT]

Prints `file:line: reason` for each include that breaks a rule and exits with 1. The rules:
  - a file includes only rooms (folders) that its own room may use;
  - no file includes itself, directly or through others;
  - only util/win32.h includes windows.h, and only sources include util/win32.h, never headers;
  - the rooms of the server and the client library use the standard library and the Windows API, nothing else;
  - pure files (the PURE sections of the CMake files) and all their includes need the standard library only.
--self-test checks that the checker reports a known breach of each rule.
"""

import os
import re
import sys
import tempfile

# The rooms that each room may use; a room may always use itself. The rooms of the server, ...
SERVER = ["records", "util", "pipe/security", "store", "pipe", "server"]
# ... of the client library (each may use those to its left, but file, format and live never each other), ...
CLIENT = ["client/message", "client/log", "client/file", "client/format", "client/live", "client/c"]
# ... and of the command line (read and server never each other).
TOOL = ["tamlogctl/base", "tamlogctl/select", "tamlogctl/server", "tamlogctl/read", "tamlogctl/commands"]

MAY_USE = {
    "records": [],
    "util": [],
    "pipe/security": ["util"],
    "store": ["util", "pipe/security", "records"],
    "pipe": ["util", "pipe/security", "records"],
    "server": SERVER,
    "client/message": ["records"],
    "client/log": ["records", "client/message"],
    "client/file": ["records", "client/message", "client/log"],
    "client/format": ["records", "client/message", "client/log"],
    "client/live": ["records", "client/message", "client/log"],
    "client/c": ["records", "client/include", *CLIENT],
    "client/include": [],
    "conformance": [],  # built by others, with windows.h alone
    "tamlogctl/base": ["records", *CLIENT],
    "tamlogctl/select": ["records", *CLIENT, "tamlogctl/base"],
    "tamlogctl/server": ["records", *CLIENT, "tamlogctl/base"],
    "tamlogctl/read": ["records", *CLIENT, "tamlogctl/base", "tamlogctl/select"],
    "tamlogctl/commands": ["records", *CLIENT, *TOOL],
    "driver": ["records"],
    # An independent check of Windows: uses neither the server's code nor the command line's.
    "check": ["records", "client/message", "client/log", "client/file", "client/live", "conformance"],
    "tests": [*SERVER, *CLIENT, *TOOL, "conformance", "driver", "check"],
    "fuzz": [*SERVER, *CLIENT, *TOOL, "tests"],
    "bench": [*SERVER, *CLIENT, "driver", "tests"],
}

# Files that form a room of their own inside the folder of another: the store uses them, but never the transport.
FILES_OF_SMALL_ROOMS = {
    "pipe/security_attributes.h": "pipe/security",
    "pipe/security_attributes.cpp": "pipe/security",
    "pipe/access_list.h": "pipe/security",
    "pipe/access_list.cpp": "pipe/security",
}

# The headers through which every room includes windows.h. The client library, which uses nothing of util, has its own.
WIN32_HEADERS = ("util/win32.h", "client/message/win32.h")

# Headers that must be pure although no CMake file names them.
PURE_HEADERS = [
    "records/log_file_format.h",
    "records/pipe_protocol.h",
    "store/server_configuration.h",
    "util/thread_annotations.h",
    "driver/tamlog_driver_control.h",
]

# All other standard headers have names without a dot.
C_HEADERS = {"stdint.h", "stddef.h", "string.h", "stdlib.h", "stdio.h"}
# Headers of the system and of its C runtime that may be used in addition to windows.h.
WINDOWS_HEADERS = {"aclapi.h", "accctrl.h", "sddl.h", "winioctl.h", "winsvc.h", "tlhelp32.h", "psapi.h", "winternl.h",
                   "io.h", "fcntl.h", "eh.h", "excpt.h", "process.h", "shellapi.h", "synchapi.h"}
# Headers of the build machine, for tests of pure files and the native tamlogctl.
POSIX_HEADERS = {"unistd.h", "pty.h", "linux/capability.h", "poll.h", "sys/file.h", "sys/ioctl.h", "sys/mman.h", "sys/prctl.h",
                 "sys/resource.h",
                 "sys/stat.h", "sys/types.h", "sys/wait.h"}
# Third-party headers, and the rooms that may use them.
THIRD_PARTY = {
    "gtest/": {"tests"},
    "CLI/": {"tamlogctl/commands"},
    "fmt/": {"tamlogctl/base"},
    "nlohmann/": {"tamlogctl/base"},
    "zlib.h": {"tamlogctl/base", "tests"},
    "lzma.h": {"tamlogctl/base", "tests"},
    "benchmark/": {"bench"},
    "spdlog/": {"tests", "bench"},
    "lmdb.h": {"bench"},
    "sqlite3.h": {"bench"},
    "systemd/": {"bench"},
}
# The client library's headers as other programs include them, and the one that integrates another library.
INSTALLED_HEADERS = "client/include/"
INTEGRATIONS = {"client/include/tamlog/spdlog_sink.hpp": "spdlog/"}
KERNEL_DRIVER = "driver/tamlog_driver.c"  # built against the driver kit, not against windows.h
DRIVER_KIT_HEADERS = {"ddk/wdm.h"}

SOURCE_SUFFIXES = (".h", ".hpp", ".cpp", ".c")
INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]')


class Tree:
    """The files of the rooms with their includes, and their breaches of the rules."""

    def __init__(self, root):
        self.root = root
        self.breaches = []
        self.includes = {}  # file -> [(line, quoted, name)]
        for room in sorted({room.split("/")[0] for room in MAY_USE}):
            for folder, _, names in os.walk(os.path.join(root, room)):
                for name in sorted(names):
                    if name.endswith(SOURCE_SUFFIXES):
                        path = os.path.relpath(os.path.join(folder, name), root).replace(os.sep, "/")
                        self.includes[path] = self.read_includes(path)

    def read_includes(self, path):
        found = []
        with open(os.path.join(self.root, path), encoding="utf-8") as file:
            for number, line in enumerate(file, 1):
                match = INCLUDE.match(line)
                if match:
                    found.append((number, match.group(1) == '"', match.group(2)))
        return found

    def breach(self, path, line, reason):
        self.breaches.append(f"{path}:{line}: {reason}")

    def pure_sources(self):
        """Yields the sources in the PURE sections of every tamlog_room(...) call."""
        for room in sorted({room.split("/")[0] for room in MAY_USE}):
            cmake = os.path.join(self.root, room, "CMakeLists.txt")
            if not os.path.exists(cmake):
                continue
            with open(cmake, encoding="utf-8") as file:
                text = re.sub(r"#.*", "", file.read())
            for call in re.findall(r"tamlog_room\s*\(([^)]*)\)", text):
                section = None
                for word in call.split():
                    if word in ("PURE", "PORTABLE", "SYSTEM", "USES", "LIBS"):
                        section = word
                    elif section == "PURE":
                        yield f"{room}/{word}"


def room_of(path):
    """Returns the room of a file: its own entry, the inner folder if that is a room, otherwise the outer folder."""
    inner = "/".join(path.split("/")[:2])
    return FILES_OF_SMALL_ROOMS.get(path) or (inner if inner in MAY_USE else path.split("/")[0])


def is_standard(name):
    return "." not in name and "/" not in name or name in C_HEADERS


def check_quoted(tree, path, line, name):
    if name in WIN32_HEADERS and (name == WIN32_HEADERS[0] or name in tree.includes):
        if path.endswith((".h", ".hpp")) and not path.startswith("tests/"):
            tree.breach(path, line, f"headers do not include {name}")
        if name == WIN32_HEADERS[1] and path.split("/")[0] not in ("client", "tamlogctl", "check", "tests"):
            tree.breach(path, line, f"{room_of(path)} uses {WIN32_HEADERS[0]}")
        return
    if name not in tree.includes:
        tree.breach(path, line, f'there is no "{name}"; includes are relative to the root')
        return
    user, used = room_of(path), room_of(name)
    if user not in MAY_USE:
        tree.breach(path, line, f"{user} is not a room: its files belong in one of its folders")
        return
    if used != user and used not in MAY_USE[user]:
        tree.breach(path, line, f"{user} may not use {used} ({name})")


def check_angled(tree, path, line, name):
    if is_standard(name):
        return
    if name == "windows.h":
        if path not in WIN32_HEADERS and room_of(path) != "conformance":
            tree.breach(path, line, f"windows.h comes in through {WIN32_HEADERS[0]} only")
        return
    if name in POSIX_HEADERS and (path.startswith("tests/") or path.endswith("_posix.cpp")):
        return
    if path == KERNEL_DRIVER and name in DRIVER_KIT_HEADERS:
        return
    if INSTALLED_HEADERS + name in tree.includes and path.startswith((INSTALLED_HEADERS, "tests/")):
        return
    if path in INTEGRATIONS and name.startswith(INTEGRATIONS[path]):
        return
    if name in WINDOWS_HEADERS:
        if path.endswith((".h", ".hpp")) and not path.startswith("tests/"):
            tree.breach(path, line, f"headers do not include Windows headers ({name})")
        return
    for prefix, rooms in THIRD_PARTY.items():
        if name.startswith(prefix):
            if room_of(path) not in rooms:
                tree.breach(path, line, f"{room_of(path)} may not use the library of <{name}>")
            return
    tree.breach(path, line, f"<{name}> is neither of the standard library nor a known Windows header")


def check_pure(tree, path, checked, reason):
    """Checks all headers that a pure file includes, directly or not; `reason` names that pure file."""
    if path in checked or path not in tree.includes:
        return
    checked.add(path)
    for line, quoted, name in tree.includes[path]:
        if not quoted:
            if not is_standard(name):
                tree.breach(path, line, f"<{name}> in {reason}")
        elif name in WIN32_HEADERS:
            tree.breach(path, line, f"{name} in {reason}")
        else:
            check_pure(tree, name, checked, reason)


def check_circles(tree):
    """Reports each include that closes a circle of includes."""
    done, path_down = set(), []

    def visit(path):
        path_down.append(path)
        for line, quoted, name in tree.includes[path]:
            if name in path_down and quoted:
                circle = path_down[path_down.index(name):] + [name]
                tree.breach(path, line, "a circle of includes: " + " -> ".join(circle))
            elif quoted and name in tree.includes and name not in done:
                visit(name)
        path_down.pop()
        done.add(path)

    for path in tree.includes:
        if path not in done:
            visit(path)


def check(root):
    tree = Tree(root)
    check_circles(tree)
    for path, includes in tree.includes.items():
        for line, quoted, name in includes:
            (check_quoted if quoted else check_angled)(tree, path, line, name)
    checked = set()
    pure = list(tree.pure_sources()) + [header for header in PURE_HEADERS if header in tree.includes]
    for path in pure:
        if path not in tree.includes:
            tree.breach(path, 1, "named as a pure file, but does not exist")
        check_pure(tree, path, checked, f"a pure file (required by {path})")
    return tree.breaches, len(tree.includes), len(pure)


# The self-test: a small tree without breaches, and for each rule a line that breaks it.
GOOD_TREE = {
    "util/win32.h": "#include <windows.h>\n",
    "util/helpers.h": "#include <string>\n",
    "util/helpers.cpp": '#include "util/helpers.h"\n#include <algorithm>\n',
    "util/sync.h": "#include <cstdint>\n",
    "util/sync.cpp": '#include "util/sync.h"\n#include "util/win32.h"\n#include <aclapi.h>\n',
    "util/CMakeLists.txt": "tamlog_room(util\n  PURE helpers.cpp # pure\n  SYSTEM sync.cpp\n  LIBS advapi32)\n",
    "records/log_file_format.h": "#include <cstdint>\n",
    "store/store.cpp": '#include "records/log_file_format.h"\n#include "pipe/security_attributes.h"\n',
    "records/pipe_protocol.h": '#include "records/log_file_format.h"\n',
    "pipe/pipe_server.h": "#include <list>\n",
    "pipe/security_attributes.h": '#include "util/sync.h"\n',
    "client/message/text.h": '#include "records/log_file_format.h"\n',
    "client/file/reader.cpp": '#include "client/message/text.h"\n',
    "client/live/reader.h": '#include "client/message/text.h"\n',
    "client/live/reader.cpp": '#include "client/live/reader.h"\n#include "client/message/win32.h"\n',
    "client/message/win32.h": "#include <windows.h>\n",
    "client/include/tamlog.h": "#include <stdint.h>\n",
    "client/include/tamlog.hpp": "#include <tamlog.h>\n",
    "client/include/tamlog/spdlog_sink.hpp": "#include <spdlog/sinks/sink.h>\n#include <tamlog.hpp>\n",
    "tamlogctl/base/console.h": "#include <string>\n",
    "tamlogctl/read/show.h": '#include "tamlogctl/base/console.h"\n',
    "tamlogctl/server/send.h": '#include "client/live/reader.h"\n',
    "tamlogctl/commands/main.cpp": '#include <CLI/CLI.hpp>\n#include "tamlogctl/read/show.h"\n#include "tamlogctl/server/send.h"\n',
    "tests/util/sync_test.cpp": '#include <gtest/gtest.h>\n#include "util/sync.h"\n#include "util/win32.h"\n',
}
BREACHES = [
    ("util/helpers.h", '#include "util/helpers.h"', "a circle of includes"),
    ("util/sync.cpp", '#include "records/log_file_format.h"', "util may not use records"),
    ("store/store.cpp", '#include "pipe/pipe_server.h"', "store may not use pipe"),
    ("pipe/security_attributes.h", '#include "store/store.h"', 'there is no "store/store.h"'),
    ("pipe/security_attributes.h", '#include "pipe/pipe_server.h"', "pipe/security may not use pipe"),
    ("client/file/reader.cpp", '#include "util/sync.h"', "client/file may not use util"),
    ("client/file/reader.cpp", '#include "client/live/reader.h"', "client/file may not use client/live"),
    ("client/message/text.h", '#include "client/live/reader.h"', "client/message may not use client/live"),
    ("client/message/text.h", '#include "tamlogctl/base/console.h"', "client/message may not use tamlogctl/base"),
    ("tamlogctl/base/console.h", '#include "tamlogctl/read/show.h"', "tamlogctl/base may not use tamlogctl/read"),
    ("tamlogctl/read/show.h", '#include "tamlogctl/server/send.h"', "tamlogctl/read may not use tamlogctl/server"),
    ("tamlogctl/server/send.h", '#include "tamlogctl/read/show.h"', "tamlogctl/server may not use tamlogctl/read"),
    ("tamlogctl/commands/main.cpp", '#  include "util/sync.h"', "tamlogctl/commands may not use util"),
    ("util/sync.cpp", "#include <windows.h>", "windows.h comes in through util/win32.h only"),
    ("util/sync.h", '#include "util/win32.h"', "headers do not include util/win32.h"),
    ("util/sync.h", "#include <aclapi.h>", "headers do not include Windows headers"),
    ("store/store.cpp", "#include <unistd.h>", "neither of the standard library"),
    ("store/store.cpp", "#include <fmt/format.h>", "store may not use the library"),
    ("store/store.cpp", "#include <boost/any.hpp>", "neither of the standard library"),
    ("tamlogctl/read/show.h", "#include <CLI/CLI.hpp>", "tamlogctl/read may not use the library"),
    ("tamlogctl/read/show.h", "#include <zlib.h>", "tamlogctl/read may not use the library"),
    ("client/file/reader.cpp", "#include <lzma.h>", "client/file may not use the library"),
    ("tamlogctl/server/send.h", "#include <nlohmann/json.hpp>", "tamlogctl/server may not use the library"),
    ("util/helpers.cpp", '#include "util/win32.h"', "in a pure file"),
    ("util/helpers.cpp", "#include <io.h>", "in a pure file"),
    ("util/helpers.h", "#include <io.h>", "in a pure file"),
    ("records/log_file_format.h", "#include <io.h>", "in a pure file"),
    ("client/file/reader.cpp", "#include <tamlog.hpp>", "neither of the standard library"),
    ("client/include/tamlog.hpp", "#include <spdlog/spdlog.h>", "client/include may not use the library"),
]


def check_copy(changes):
    with tempfile.TemporaryDirectory() as root:
        for path, text in {**GOOD_TREE, **changes}.items():
            full = os.path.join(root, path)
            os.makedirs(os.path.dirname(full), exist_ok=True)
            with open(full, "w", encoding="utf-8") as file:
                file.write(text)
        return check(root)[0]


def self_test():
    failures = [f"the good tree: {breach}" for breach in check_copy({})]
    for path, line, reason in BREACHES:
        number = GOOD_TREE[path].count("\n") + 1
        breaches = check_copy({path: GOOD_TREE[path] + line + "\n"})
        if not any(b.startswith(f"{path}:{number}: ") and reason in b for b in breaches):
            failures.append(f"{line} in {path} was not reported: {breaches}")
    missing = check_copy({"util/CMakeLists.txt": "tamlog_room(util PURE gone.cpp)\n"})
    if not any("does not exist" in breach for breach in missing):
        failures.append("a missing pure file was not reported")
    print("\n".join(failures) if failures else f"self-test: {len(BREACHES) + 1} breaches reported")
    return 1 if failures else 0


def main(arguments):
    if "-h" in arguments or "--help" in arguments:
        print(__doc__)
        return 0
    if arguments[:1] == ["--self-test"]:
        return self_test()
    if len(arguments) > 1 or (arguments and arguments[0].startswith("-")):
        print(__doc__, file=sys.stderr)
        return 2
    root = arguments[0] if arguments else os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
    breaches, files, pure = check(root)
    for breach in breaches:
        print(breach)
    print(f"rooms: {files} files, {pure} pure, {len(breaches)} breaches")
    return 1 if breaches else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
