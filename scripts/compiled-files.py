#!/usr/bin/env python3
"""Lists the .cpp files of our folders that the Windows build compiles, the largest first.

usage: scripts/compiled-files.py [--no-tests] [--flags]

--no-tests leaves out tests, fuzzers and benchmarks; --flags adds, after a tab, each file's definitions and include
folders as they stand in build/windows/compile_commands.json.
"""

import json
import os
import shlex
import sys

TESTS = ("tests", "fuzz", "bench")
ROOMS = ("util", "store", "pipe", "server", "client", "tamlogctl", "driver") + TESTS


def flags_of(command):
    """The -D, -I and -isystem options of a compiler's command line."""
    words = shlex.split(command)
    flags = []
    for index, word in enumerate(words):
        if word.startswith(("-D", "-I")) and len(word) > 2:
            flags.append(word)
        elif word in ("-isystem", "-I", "-D"):
            flags += [word, words[index + 1]]
    return " ".join(shlex.quote(flag) for flag in flags)


def main(arguments):
    if not set(arguments) <= {"--no-tests", "--flags"}:
        print(__doc__, file=sys.stdout if "--help" in arguments or "-h" in arguments else sys.stderr)
        return 0 if "--help" in arguments or "-h" in arguments else 2
    root = os.path.realpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
    commands = os.path.join(root, "build", "windows", "compile_commands.json")
    if not os.path.exists(commands):
        print("build/windows is not configured: scripts/build.sh --configure-only windows", file=sys.stderr)
        return 1
    with open(commands, encoding="utf-8") as file:
        entries = json.load(file)
    files = {}
    for entry in entries:
        path = os.path.relpath(os.path.join(entry["directory"], entry["file"]), root)
        room = path.split(os.sep)[0]
        if path.endswith(".cpp") and room in ROOMS and not ("--no-tests" in arguments and room in TESTS):
            files[path] = flags_of(entry["command"])
    for path in sorted(files, key=lambda name: -os.path.getsize(os.path.join(root, name))):
        print(f"{path}\t{files[path]}" if "--flags" in arguments else path)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
