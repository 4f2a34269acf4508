"""Makes the input files of the scenarios when they are missing, and keeps them for the next run."""

import glob
import os
import shutil
import subprocess

from failure import Failure

SIZES = (1_000, 50_000, 1_000_000)


def log_file(bench, count):
    """Returns the paths of a full log of `count` messages and of its lines as text."""
    log, text = bench.path(f"log-{count}.dat"), bench.path(f"log-{count}.txt")
    if not (os.path.exists(log) and os.path.exists(text)):
        subprocess.run(["build/bin/make_log", str(count), log, text], check=True)
    return log, text


def copied_log(bench, count):
    """Returns the path of a fresh copy for a server to write into; all scenarios share the path."""
    copy = bench.path("copied.dat")
    shutil.copyfile(log_file(bench, count)[0], copy)
    return copy


def export_file(bench, count):
    """Returns the path of the same messages in the journal's export format, 50 ms apart."""
    export = bench.path(f"log-{count}.export")
    if not os.path.exists(export):
        boot = "0" * 31 + "1"
        with open(log_file(bench, count)[1], encoding="utf-8") as lines, \
             open(export + ".part", "w", encoding="utf-8") as file:
            for number, line in enumerate(lines):
                source, _, message = line.rstrip("\n").partition(": ")
                file.write(f"__REALTIME_TIMESTAMP={1767225600000000 + number * 50000}\n"
                           f"__MONOTONIC_TIMESTAMP={number * 50000 + 1}\n_BOOT_ID={boot}\n"
                           f"SYSLOG_IDENTIFIER={source}\nTAMLOG_TYPE=0\nMESSAGE={message}\n\n")
        os.rename(export + ".part", export)
    return export


def journal_command(journal, export):
    """Returns the command that turns an export into journal files; it begins a new file every 128 MB."""
    return ["/lib/systemd/systemd-journal-remote", "--output", journal, export]


def journal_files(bench, count):
    """Returns the paths of the journal files of the same messages."""
    journal = bench.path(f"log-{count}.journal")
    if not os.path.exists(journal):
        if subprocess.run(journal_command(journal, export_file(bench, count)), stdin=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL, check=False).returncode != 0:
            if os.path.exists(journal):
                os.remove(journal)
            raise Failure("systemd-journal-remote could not write the journal")
    return sorted(glob.glob(bench.path(f"log-{count}*.journal")))
