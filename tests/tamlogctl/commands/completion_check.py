#!/usr/bin/env python3
"""Completes command lines in a real bash and a real zsh, on a terminal, as a user does.

usage: tests/tamlogctl/commands/completion_check.py PROGRAM

PROGRAM is a native tamlogctl.
"""

import os
import pty
import re
import select
import shutil
import struct
import subprocess
import sys
import tempfile
import time
import unittest

PROGRAM = os.path.abspath(sys.argv[1])
PATIENCE = 60  # seconds, on a busy machine


def log_bytes():
    """A log file with the sources Camera, Lamp and "Two Words", as docs/log_file_format.md describes it."""
    sources = ("Camera", "Lamp", "Camera", "Two Words")
    header = struct.pack("<iB3xiii4xQQQ", 0, 0, len(sources), len(sources), 0, 2, 1, len(sources))
    slots = b"".join(struct.pack("<Q8s8hI257s257s4s6x", number, b"", 2026, 1, 2, 3, 4, number, 0, 0, 0, source.encode(),
                                 b"text", b"") for number, source in enumerate(sources))
    return header + bytes(192) + slots


def complete(*words):
    """What the program offers for the words; the last is the one that is being typed."""
    outcome = subprocess.run([PROGRAM, "__complete", *("=" + word for word in words)], capture_output=True, text=True,
                             timeout=PATIENCE)
    assert (outcome.returncode, outcome.stderr) == (0, ""), outcome
    return [line[1:] if line[0] == "=" else "FILES:" + line[1:] for line in outcome.stdout.splitlines()]


class Program(unittest.TestCase):
    def test_every_place_is_completed(self):
        for words, wanted in (
                (["sh"], ["show"]), (["se"], ["send", "settings", "server"]), (["filter", "cl"], ["clear"]),
                (["show", "--ou"], ["--output"]), (["show", "--file", "x", "--qui"], ["--quiet"]),
                (["show", "--output=js"], ["--output=json", "--output=json-array"]),
                (["show", "-o", "js"], ["json", "json-array"]), (["show", "-rno", ""], complete("show", "-o", "")),
                (["show", "--color="], ["--color=auto", "--color=always", "--color=never"]),
                (["doctor", "--color", "a"], ["auto", "always"]), (["export", "a", "--output", "te"], ["template="]),
                (["-S", "yes"], ["yesterday", "yesterday 12:00"]), (["show", "--since=to"], ["--since=today", "--since=tomorrow"]),
                (["--lin"], ["--lines"]), (["-n", ""], ["all"]), (["stats", "-n", "a"], ["all"]),
                (["show", "--fields", "time,or"], ["time,origin"]), (["settings", "set", "--types", "0,3"], ["0,3"]),
                (["show", "--type-names", "0=i"], ["0=info"]), (["show", "--type-names", "0=info,3=e"], ["0=info,3=err"]),
                (["show", "--encoding", "lat"], ["latin-1"]), (["show", "--file", ""], ["FILES:"]),
                (["show", "--file="], ["FILES:--file="]), (["verify", "a", ""], ["FILES:"]), (["export", ""], ["FILES:"]),
                (["merge", "--label", "east="], ["FILES:east="]), (["merge", "--label=east="], ["FILES:--label=east="]),
                (["repair", "--output", "n"], ["FILES:"]), (["filter", "set", ""], ["FILES:"]),
                (["help", "ti"], ["times"]), (["help", "foll"], ["follow"]), (["completion", "z"], ["zsh"]),
                (["server", "start", "--wait", ""], []), (["show", "--xyzzy="], []), (["verify", "--", "-"], ["FILES:"]),
                (["xyzzy", "x"], []), (["filter", "list", "-o", ""], ["text", "tsv", "json"])):
            self.assertEqual(complete(*words), wanted, words)

    def test_severities_and_the_sources_of_labelled_files_are_offered(self):
        self.assertIn("warning", complete("show", "-p", "w"))
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "Logs.dat")
            with open(path, "wb") as file:
                file.write(log_bytes())
            for label in (["--label", "east=" + path], ["--label=east=" + path]):
                self.assertIn("Camera", complete("merge", *label, "-s", "C"))

    def test_an_option_is_offered_once_unless_it_is_repeatable(self):
        self.assertNotIn("--lines", complete("show", "-n", "3", "--"))
        self.assertIn("--source", complete("show", "-s", "a", "--"))

    def test_sources_are_those_of_the_log_that_is_named(self):
        with tempfile.NamedTemporaryFile(suffix=".dat") as log:
            log.write(log_bytes())
            log.flush()
            self.check_sources(log.name)

    def check_sources(self, log):
        self.assertEqual(complete("show", "--file", log, "-s", ""), ["Camera", "Lamp", "Two Words"])
        self.assertEqual(complete("stats", "--file=" + log, "--exclude=La"), ["--exclude=Lamp"])
        self.assertEqual(complete("merge", log, "--source", "Two"), ["Two Words"])
        self.assertEqual(complete("show", "--file", "missing.dat", "-s", ""), [])
        self.assertEqual(complete("show", "-s", ""), [])  # no server runs here

    def test_every_option_of_every_verb_is_offered(self):
        def visit(path):
            text = subprocess.run([PROGRAM, *path, "--help"], capture_output=True, text=True, timeout=PATIENCE).stdout
            options = re.findall(r"^  (-[^ ,]+(?:, -[^ ,]+)*)(?: |$)", text.split("Examples:\n")[0], re.MULTILINE)
            names = {name for group in options for name in group.split(", ")}
            if path and "Verbs:" not in text:
                self.assertLessEqual(names, set(complete(*path, "-")), path)
            verbs = re.search(r"^Verbs:\n((?:  .*\n)*)", text, re.MULTILINE)
            for verb in re.findall(r"^  ([a-z]+) ", verbs.group(1), re.MULTILINE) if verbs else []:
                if verb not in ("help", "version"):
                    visit((*path, verb))
        visit(())


class Shell:
    """A shell on a terminal. `line` types keys and returns the command line that stands there then."""

    def __init__(self, command, folder, setup):
        self.child, self.terminal = pty.fork()
        if self.child == 0:
            os.chdir(folder)
            environment = {"PATH": os.path.join(folder, "bin") + ":" + os.environ["PATH"], "TERM": "dumb", "HOME": folder,
                           "LC_ALL": "C.UTF-8", "PS1": "$ ", "HISTFILE": "", "ZDOTDIR": folder}
            os.execvpe(command[0], command, environment)
        self.type(setup + "\necho READY''NOW\n")
        self.read_until("READYNOW")

    def type(self, keys):
        os.write(self.terminal, keys.encode())

    def read_until(self, mark):
        seen, end = "", time.monotonic() + PATIENCE
        while mark not in seen:
            ready, _, _ = select.select([self.terminal], [], [], max(0, end - time.monotonic()))
            assert ready, f"'{mark}' did not come: {seen!r}"
            seen += os.read(self.terminal, 65536).decode(errors="replace")
        return seen

    def line(self, keys):
        # The beginning of the line gets a command in front that shows all words of it.
        self.type(keys)
        time.sleep(0.3)
        self.type("\x01printf 'WORD<%s>\\n' \x05 'LAST''ONE'\n")
        seen = self.read_until("WORD<LASTONE>")
        return re.findall(r"^WORD<(.*)>\r?$", seen, re.MULTILINE)[:-1]

    def close(self):
        os.close(self.terminal)
        os.waitpid(self.child, 0)


class Completes:
    """What is typed, with a tab at the end, and the words of the line after it."""

    CASES = (
        ("tamlogctl sho\t", ["tamlogctl", "show"]),
        ("tamlogctl filter rem\t", ["tamlogctl", "filter", "remove"]),
        ("tamlogctl show --file Lo\t --qui\t", ["tamlogctl", "show", "--file", "Logs.dat", "--quiet"]),
        ("tamlogctl show --file=Lo\t--rev\t", ["tamlogctl", "show", "--file=Logs.dat", "--reverse"]),
        ("tamlogctl show --output=js\t", ["tamlogctl", "show", "--output=json"]),
        ("tamlogctl show --color=al\t", ["tamlogctl", "show", "--color=always"]),
        ("tamlogctl show --color=\tne\t", ["tamlogctl", "show", "--color=never"]),
        ("tamlogctl show -o rf\t", ["tamlogctl", "show", "-o", "rfc5424"]),
        ("tamlogctl show --file Logs.dat -s Ca\t", ["tamlogctl", "show", "--file", "Logs.dat", "-s", "Camera"]),
        ("tamlogctl show --file Logs.dat --source=La\t", ["tamlogctl", "show", "--file", "Logs.dat", "--source=Lamp"]),
        ("tamlogctl show --file Logs.dat -s Tw\t", ["tamlogctl", "show", "--file", "Logs.dat", "-s", "Two Words"]),
        ("tamlogctl show --file Logs.dat -s 'Tw\t", ["tamlogctl", "show", "--file", "Logs.dat", "-s", "Two Words"]),
        ("tamlogctl show --file Logs.dat -s Two\\ W\t", ["tamlogctl", "show", "--file", "Logs.dat", "-s", "Two Words"]),
        ("tamlogctl stats --since tod\t", ["tamlogctl", "stats", "--since", "today"]),
        ("tamlogctl stats --since=yesterday\\ 1\t", ["tamlogctl", "stats", "--since=yesterday 12:00"]),
        ("tamlogctl merge --label east=Lo\t", ["tamlogctl", "merge", "--label", "east=Logs.dat"]),
        ("tamlogctl verify a\\ n\t", ["tamlogctl", "verify", "a name.dat"]),
        ("tamlogctl show --type-names 3=er\t", ["tamlogctl", "show", "--type-names", "3=err"]),
        ("tamlogctl export x --output te\ta", ["tamlogctl", "export", "x", "--output", "template=a"]),
        ("./bin/tamlogctl foll\t", ["./bin/tamlogctl", "follow"]),
        ("tamlogctl help expr\t", ["tamlogctl", "help", "expressions"]),
        ("tamlogctl 'no such' x\t", ["tamlogctl", "no such", "x"]),
    )

    def setUp(self):
        self.folder = tempfile.mkdtemp()
        os.mkdir(os.path.join(self.folder, "bin"))
        os.symlink(PROGRAM, os.path.join(self.folder, "bin", "tamlogctl"))
        for name in ("Logs.dat", "a name.dat"):
            with open(os.path.join(self.folder, name), "wb") as file:
                file.write(log_bytes())
        self.shell = self.start()

    def tearDown(self):
        self.shell.close()
        shutil.rmtree(self.folder)

    def test_completes_what_was_typed(self):
        for keys, words in self.CASES:
            self.assertEqual(self.shell.line(keys), words, keys)


class Bash(Completes, unittest.TestCase):
    def start(self):
        return Shell(["bash", "--norc", "--noprofile", "-i"], self.folder,
                     "bind 'set enable-bracketed-paste off'; source <(tamlogctl completion bash)")

    def test_colons_need_no_care(self):
        self.assertEqual(self.shell.line("tamlogctl show --tz=+01:00 -S 10:00 --qui\t"),
                         ["tamlogctl", "show", "--tz=+01:00", "-S", "10:00", "--quiet"])

    def test_works_where_the_signs_do_not_part_words(self):
        self.shell.type("COMP_WORDBREAKS=${COMP_WORDBREAKS//[=:]/}\n")
        for keys, words in self.CASES:
            self.assertEqual(self.shell.line(keys), words, keys)


class Zsh(Completes, unittest.TestCase):
    def start(self):
        return Shell(["zsh", "-f", "-i"], self.folder,
                     "unsetopt zle_bracketed_paste; unset zle_bracketed_paste; bindkey -e; PROMPT='$ '; "
                     "autoload -U compinit; compinit -u -D; source <(tamlogctl completion zsh)")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
