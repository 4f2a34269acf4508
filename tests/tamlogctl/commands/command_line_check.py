#!/usr/bin/env python3
"""Checks what tamlogctl says about itself: every verb's help, the completions and the manual page.

usage: tests/tamlogctl/commands/command_line_check.py PROGRAM MANPAGE

PROGRAM is a native tamlogctl, MANPAGE the manual page of the repository.
"""

import re
import shutil
import subprocess
import sys
import unittest

PROGRAM, MAN_PAGE = sys.argv[1:3]
# `version` and `help` are answered before any verb is looked for.
WITHOUT_HELP = ("help", "version")


def run(*arguments, text=None):
    return subprocess.run([PROGRAM, *arguments], input=text, capture_output=True, text=True, timeout=30)


def section(text, head):
    match = re.search(rf"^{head}:\n((?:  .*\n|\n)*)", text, re.MULTILINE)
    return match.group(1) if match else ""


def verbs_of(text):
    return re.findall(r"^  ([a-z]+) ", section(text, "Subcommands"), re.MULTILINE)


def options_of(text):
    """All spellings of options in a help text's list of options."""
    names = re.findall(r"^  ((?:-[^ ,]+,?)+)", section(text, "Options"), re.MULTILINE)
    return [name.split("{")[0] for group in names for name in group.split(",")]


def all_verbs():
    """Every verb as a tuple of words, with its help."""
    found = []

    def visit(path):
        text = run(*path, "--help").stdout
        if path:
            found.append((path, text))
        for verb in verbs_of(text):
            if verb not in WITHOUT_HELP:
                visit((*path, verb))

    visit(())
    return found


VERBS = all_verbs()


class Help(unittest.TestCase):
    def test_verbs_are_found(self):
        paths = [" ".join(path) for path, _ in VERBS]
        for verb in ("show", "send", "filter add", "settings set", "server start", "doctor", "completion", "clear"):
            self.assertIn(verb, paths)

    def test_every_verb_has_three_examples(self):
        for path, text in VERBS:
            with self.subTest(verb=" ".join(path)):
                examples = text.split("Examples:\n")
                self.assertEqual(len(examples), 2, text)
                lines = [line for line in examples[1].splitlines() if re.match(r"  \S", line) and "tamlogctl" in line]
                self.assertGreaterEqual(len(lines), 3, examples[1])

    def test_usage_errors_are_two_and_say_where_to_look(self):
        for path, _ in VERBS:
            with self.subTest(verb=" ".join(path)):
                outcome = run(*path, "--no-such-option")
                self.assertEqual(outcome.returncode, 2)
                self.assertIn("--help", outcome.stderr)
                self.assertEqual(outcome.stdout, "")

    def test_a_group_of_verbs_alone_runs_the_one_that_shows(self):
        for words in (["filter"], ["settings"], ["server"], ["settings", "-o", "json"], ["filter", "-o", "tsv"]):
            outcome = run(*words)
            self.assertEqual((outcome.returncode, outcome.stdout), (3, ""), words)
        for words in (["settings", "--help"], ["help", "filter"]):
            self.assertIn("set ", section(run(*words).stdout, "Subcommands"), words)
        for words in (["filter", "-o", "xml"], ["settings", "nonsense"], ["server", ""]):
            self.assertEqual(run(*words).returncode, 2, words)

    def test_live_verbs_say_that_there_is_no_server_here(self):
        for words in (["filter", "list"], ["filter", "test", "Camera"], ["settings", "get"], ["clear", "--yes"],
                      ["server", "state"], ["doctor"], ["status"]):
            outcome = run(*words)
            self.assertEqual((outcome.returncode, outcome.stdout), (3, ""), words)

    def test_bad_values_name_the_option(self):
        for words, said in (
                (["settings", "set", "--poll", "0"], "--poll"), (["settings", "set", "--capacity", "1000001"], "--capacity"),
                (["settings", "set", "--types", "4"], "--types"), (["settings", "set"], "name a setting to change"),
                (["filter", "add"], "-i or -x"), (["filter", "remove"], "by its number"), (["filter", "set"], "FILE"),
                (["filter", "test", "Camera", "4"], "TYPE"), (["doctor", "--watch", "1"], "--watch"),
                (["completion", "fish"], "SHELL"), (["server", "start", "--wait", "0"], "--wait")):
            outcome = run(*words)
            self.assertEqual(outcome.returncode, 2, words)
            self.assertIn(said, outcome.stderr, words)


    def test_usage_errors_name_what_was_given_and_what_is_expected(self):
        for words, said in (
                (["show", "--color", "purple"], "--color: 'purple': expected auto|always|never"),
                (["follow", "--events", "xml"], "--events: 'xml': expected stderr|json|none"),
                (["completion", "fish"], "SHELL: 'fish': expected powershell|bash|zsh"),
                (["show", "--colour", "always"], "unknown option '--colour'"),
                (["follow", "--file", "a.dat"], "unknown option '--file'"),
                (["follow", "more"], "unexpected argument 'more'"),
                (["show", "--file"], "--file: needs a value"),
                (["show", "-n", "1", "-n", "2"], "--lines: given more than once"),
                (["show", "-S", "today", "-S", "now"], "--since: given more than once"),
                (["filter", "remove", "abc"], "NUMBER: 'abc': expected a number from 0 to 4294967295"),
                (["stats", "--top", "-1"], "--top: '-1': expected a number from 0 to 1000000")):
            outcome = run(*words)
            self.assertEqual((outcome.returncode, outcome.stdout), (2, ""), words)
            self.assertIn(said, outcome.stderr, words)
            verb = " ".join(words[:2] if words[0] == "filter" else words[:1])
            self.assertIn(f"see: tamlogctl {verb} --help\n", outcome.stderr, words)

    def test_empty_values_are_refused_where_they_are_no_text(self):
        for words in (["show", "-t", ""], ["show", "--since", ""], ["show", "--file", ""], ["follow", "--cursor-file", ""],
                      ["clear", "--yes", "--backup", ""], ["settings", "path", ""], ["export", ""], ["repair", ""],
                      ["verify", ""], ["send", "--time", "", "text"], ["merge", "--tz", "", "a.dat"]):
            outcome = run(*words)
            self.assertEqual((outcome.returncode, outcome.stdout), (2, ""), words)
            self.assertIn("the value is empty", outcome.stderr, words)
        for words in (["send", ""], ["send", "-s", "", "text"], ["filter", "add", "-x", ""], ["filter", "test", ""]):
            self.assertEqual(run(*words).returncode, 3, words)

    def test_options_that_would_be_passed_over_are_refused(self):
        for words, said in (
                (["show", "--for", "3"], "--for: only for following"), (["show", "--interval", "50"], "--interval"),
                (["export", "a.dat", "--log", "-o", "csv"], "--output: cannot be used with --log"),
                (["export", "a.dat", "--log", "--tz", "utc"], "--tz"),
                (["send", "--input", "tsv", "-s", "Camera"], "--source: cannot be used with --input tsv"),
                (["settings", "set", "--capacity", "9", "--backup", "b", "--no-backup"], "--backup: cannot be used with --no-backup")):
            outcome = run(*words)
            self.assertEqual((outcome.returncode, outcome.stdout), (2, ""), words)
            self.assertIn(said, outcome.stderr, words)

    def test_help_that_cannot_be_written_is_eight(self):
        for words in (["--help"], ["help"], ["help", "show"], ["version"], ["man"], ["completion", "bash"]):
            with open("/dev/full", "w", encoding="utf-8") as full:
                outcome = subprocess.run([PROGRAM, *words], stdout=full, stderr=subprocess.PIPE, text=True, timeout=30)
            self.assertEqual(outcome.returncode, 8, words)


class ManPage(unittest.TestCase):
    def setUp(self):
        with open(MAN_PAGE, encoding="utf-8") as file:
            self.source = file.read()

    def test_names_every_verb_and_option(self):
        plain = self.source.replace("\\-", "-")
        for path, text in VERBS:
            match = re.search(rf"^\.SS {' '.join(path)}\n((?:(?!\.SS ).*\n)*)", plain, re.MULTILINE)
            self.assertTrue(match, f"{path}: not in {MAN_PAGE}; renew it: tamlogctl man > {MAN_PAGE}")
            for option in options_of(text):
                if option not in ("-h", "--help"):
                    self.assertIn(f"\\fB{option}\\fR", match.group(1), f"{path}; renew it: tamlogctl man > {MAN_PAGE}")

    def test_is_what_the_program_prints(self):
        self.assertEqual(run("man").stdout, self.source, f"renew it: tamlogctl man > {MAN_PAGE}")

    def test_renders_without_warnings(self):
        if shutil.which("groff") is None:
            self.skipTest("groff is not installed")
        outcome = subprocess.run(["groff", "-man", "-Tutf8", "-ww", "-Kutf8", MAN_PAGE], capture_output=True, text=True,
                                 timeout=60)
        self.assertEqual((outcome.returncode, outcome.stderr), (0, ""))
        self.assertIn("tamlogctl filter add -x Heartbeat", re.sub(r"\x1b\[[0-9;]*m", "", outcome.stdout))


BASH_DRIVER = r"""
source <("$1" completion bash) || exit 9
shift
compopt() { :; }
complete -p tamlogctl >/dev/null || exit 8
COMP_WORDS=("$@")
COMP_CWORD=$(($# - 1))
_tamlogctl
printf '%s\n' "${COMPREPLY[@]}"
"""


class Completion(unittest.TestCase):
    @staticmethod
    def bash(*words):
        outcome = subprocess.run(["bash", "-c", BASH_DRIVER, "bash", PROGRAM, "tamlogctl", *words], capture_output=True,
                                 text=True, timeout=30)
        assert outcome.returncode == 0, outcome.stderr
        return outcome.stdout.split()

    def test_bash_accepts_its_script(self):
        outcome = subprocess.run(["bash", "-n"], input=run("completion", "bash").stdout, capture_output=True, text=True,
                                 timeout=30)
        self.assertEqual((outcome.returncode, outcome.stderr), (0, ""))

    def test_bash_completes_verbs(self):
        self.assertEqual(self.bash("sen"), ["send"])
        self.assertEqual(self.bash("filter", "cl"), ["clear"])
        self.assertIn("path", self.bash("settings", ""))

    def test_bash_completes_options_of_every_verb(self):
        for path, text in VERBS:
            self.assertLessEqual(set(options_of(text)), set(self.bash(*path, "-")) | {"-h", "--help"}, path)

    def test_bash_completes_words_of_values_and_operands(self):
        self.assertEqual(self.bash("filter", "list", "-o", ""), ["text", "tsv", "json"])
        self.assertEqual(self.bash("doctor", "--color", "a"), ["auto", "always"])
        self.assertEqual(self.bash("show", "-o", "js"), ["json", "json-array"])
        self.assertEqual(self.bash("export", "a", "--output", "te"), ["template="])
        self.assertEqual(self.bash("verify", "-o", ""), ["text", "json"])
        self.assertEqual(self.bash("completion", "z"), ["zsh"])
        self.assertEqual(self.bash("server", "start", "--wait", ""), [])

    def test_bash_completes_files(self):
        self.assertIn("/etc/passwd", self.bash("filter", "set", "/etc/passw"))
        self.assertIn("/etc/passwd", self.bash("clear", "--backup", "/etc/passw"))

    def test_zsh_accepts_its_script(self):
        if shutil.which("zsh") is None:
            self.skipTest("zsh is not installed")
        outcome = subprocess.run(["zsh", "-n"], input=run("completion", "zsh").stdout, capture_output=True, text=True,
                                 timeout=30)
        self.assertEqual((outcome.returncode, outcome.stderr), (0, ""))

    def test_powershell_script_knows_every_verb_and_is_balanced(self):
        # No PowerShell here: only its structure is looked at.
        script = run("completion", "powershell").stdout
        for path, text in VERBS:
            line = re.search(rf"^    '{' '.join(path)}' = '(.*)'$", script, re.MULTILINE)
            self.assertTrue(line, path)
            for option in options_of(text):
                self.assertIn(option, line.group(1).split(), path)
        bare = re.sub(r"'(?:[^']|'')*'|\"[^\"]*\"", "", script)
        for left, right in ("()", "{}", "[]"):
            self.assertEqual(bare.count(left), bare.count(right), left)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
