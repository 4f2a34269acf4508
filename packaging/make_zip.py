#!/usr/bin/env python3
"""Makes a zip file whose bytes depend only on the names and contents of the files.

usage: packaging/make_zip.py DIRECTORY PREFIX FILE.zip

Puts the files of DIRECTORY below PREFIX/ in order of their names, all with the time SOURCE_DATE_EPOCH.
"""

import os
import sys
import time
import zipfile


def main(arguments):
    if len(arguments) != 3 or arguments[0].startswith("-"):
        print(__doc__, file=sys.stderr)
        return 2
    folder, prefix, target = arguments
    moment = time.gmtime(max(int(os.environ["SOURCE_DATE_EPOCH"]), 315532800))[:6]  # a zip file begins in 1980
    names = sorted(os.path.relpath(os.path.join(where, name), folder)
                   for where, _, files in os.walk(folder) for name in files)
    with zipfile.ZipFile(target, "w", zipfile.ZIP_DEFLATED, compresslevel=9) as made:
        for name in names:
            entry = zipfile.ZipInfo(f"{prefix}/{name.replace(os.sep, '/')}", moment)
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.create_system = 3
            entry.external_attr = 0o100644 << 16
            with open(os.path.join(folder, name), "rb") as file:
                made.writestr(entry, file.read())
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
