#!/usr/bin/env python3
"""Runs clang-tidy, with clang's thread-safety analysis, over every source file of ours that the Windows build compiles.

Checks several files of a room that are compiled alike as one translation unit: most of the time goes into the headers,
which they share. Splits a unit whose files define the same name.
"""

import argparse
import concurrent.futures
import json
import os
import re
import shlex
import subprocess
import sys
import tempfile

ROOT = os.path.realpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
BUILD = os.path.join(ROOT, "build", "windows")
TESTS = ("tests", "fuzz", "bench")
ROOMS = ("util", "store", "pipe", "server", "client", "tamlogctl", "driver", "check", "packaging") + TESTS
# Anchored at the root: a checkout below a folder with the name of a room has to find the same headers.
HEADERS = f"^{re.escape(ROOT)}/(records|{'|'.join(ROOMS)})/"
FILES_AT_ONCE = 14


def flags_of(command):
    """Returns the options of a compiler's command line that affect the meaning of the source."""
    words = shlex.split(command)
    flags = ["-std=c++20"]
    for index, word in enumerate(words):
        if word.startswith(("-D", "-I")) and len(word) > 2:
            flags.append(word)
        elif word in ("-isystem", "-I", "-D"):
            flags += [word, words[index + 1]]
    return tuple(flags)


def compiled_files():
    """Returns the .cpp files of our rooms, each with its flags."""
    commands = os.path.join(BUILD, "compile_commands.json")
    if not os.path.exists(commands):
        sys.exit("build/windows is not configured: scripts/build.sh --configure-only windows")
    files = {}
    with open(commands, encoding="utf-8") as file:
        for entry in json.load(file):
            path = os.path.relpath(os.path.join(entry["directory"], entry["file"]), ROOT)
            if path.endswith(".cpp") and path.split(os.sep)[0] in ROOMS:
                files[path] = flags_of(entry["command"])
    return files


def batches_of(files, at_once):
    """Yields (files, flags): files of one room with the same flags, in lists of nearly equal length."""
    alike = {}
    for path in sorted(files):
        alike.setdefault((path.split(os.sep)[0], files[path]), []).append(path)
    for (_, flags), paths in alike.items():
        count = -(-len(paths) // at_once)
        for index in range(count):
            yield paths[index::count], flags


def run_tidy(source, checks, flags):
    command = ["clang-tidy-14", "--quiet", f"--config-file={ROOT}/.clang-tidy", f"--header-filter={HEADERS}",
               f"--checks={checks}", source, "--", *flags]
    done = subprocess.run(command, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    return done.returncode == 0, done.stdout


def check(batch):
    """Returns the findings in the files of a batch; an empty text without findings."""
    paths, flags, checks = batch
    if len(paths) == 1:
        clean, output = run_tidy(os.path.join(ROOT, paths[0]), checks, flags)
        return "" if clean else f"{paths[0]}:\n{output}"
    with tempfile.TemporaryDirectory() as folder:
        unit = os.path.join(folder, "unit.cpp")
        with open(unit, "w", encoding="utf-8") as file:
            file.writelines(f'#include "{os.path.join(ROOT, path)}"\n' for path in paths)
        clean, output = run_tidy(unit, f"{checks},-bugprone-suspicious-include", flags)
    if clean:
        return ""
    if "clang-diagnostic-error" not in output:
        return f"{' '.join(paths)}:\n{output}"
    return "".join(check((part, flags, checks)) for part in (paths[::2], paths[1::2]))


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("-j", type=int, default=os.cpu_count(), metavar="JOBS", help="number of parallel runs")
    parser.add_argument("--deep", action="store_true",
                        help="also run the path analysis of the clang-analyzer checks, which takes several times "
                             "as long: for changes to the ownership of resources")
    parser.add_argument("--all", action="store_true",
                        help="also check the tests: macros and templates of libraries, which take most of the time")
    parser.add_argument("--one-by-one", action="store_true", help="check every file as a translation unit of its own")
    parser.add_argument("files", nargs="*", metavar="FILE", help="check only these files")
    wanted = parser.parse_args()

    files = compiled_files()
    if wanted.files:
        paths = [os.path.relpath(path, ROOT) for path in wanted.files]
        for path in paths:
            if path not in files:
                sys.exit(f"{path}: the Windows build does not compile it")
        files = {path: files[path] for path in paths}
    elif not wanted.all:
        files = {path: flags for path, flags in files.items() if path.split(os.sep)[0] not in TESTS}
    checks = "" if wanted.deep else "-clang-analyzer-*"
    batches = [(*batch, checks) for batch in batches_of(files, 1 if wanted.one_by_one else FILES_AT_ONCE)]
    with concurrent.futures.ThreadPoolExecutor(wanted.j) as pool:
        findings = [finding for finding in pool.map(check, batches) if finding]
    print("".join(findings), end="")
    print(f"clang-tidy and thread-safety analysis: {len(files)} files, " + ("findings above" if findings else "clean"))
    return 1 if findings else 0


if __name__ == "__main__":
    sys.exit(main())
