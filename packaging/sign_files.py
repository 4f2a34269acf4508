#!/usr/bin/env python3
"""Signs programs, libraries and MSIs with the command in the variable SIGN.

usage: packaging/sign_files.py FILE...

Runs `$SIGN FILE` in the shell for each file, from the root of the tree; the command changes the file in place. Fails
when the command fails or leaves a file without a signature. Does nothing when SIGN is empty.
"""

import os
import subprocess
import sys

import pe_file

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
SECURITY = 4  # the directory of the signature in the header of a program
# The name of the stream that holds the signature of an MSI.
MSI_SIGNATURE = "\5DigitalSignature".encode("utf-16-le")
MSI_BEGIN = bytes.fromhex("d0cf11e0a1b11ae1")


def is_signed(path):
    with open(path, "rb") as file:
        content = file.read()
    if content.startswith(MSI_BEGIN):
        return MSI_SIGNATURE in content
    return pe_file.PeFile(path).directories[SECURITY][1] > 0


def sign(command, path):
    done = subprocess.run(["sh", "-c", command + ' "$1"', "sign", path], check=False, text=True, cwd=ROOT,
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
    if done.returncode != 0:
        raise RuntimeError(f"{command} {path} ended with {done.returncode}:\n{done.stdout}")
    if not is_signed(path):
        raise RuntimeError(f"{command} did not sign {path}:\n{done.stdout}")


def main(arguments):
    if not arguments or arguments[0].startswith("-"):
        print(__doc__, file=sys.stderr)
        return 2
    command = os.environ.get("SIGN", "")
    try:
        for path in arguments if command else ():
            sign(command, os.path.abspath(path))
    except (RuntimeError, pe_file.BadFile) as failure:
        print(f"sign_files.py: {failure}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
