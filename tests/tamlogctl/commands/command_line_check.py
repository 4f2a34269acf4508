#!/usr/bin/env python3
"""Checks what tamlogctl says about itself: every verb's help, the completions and the manual page.

usage: tests/tamlogctl/commands/command_line_check.py PROGRAM MANPAGE

PROGRAM is a native tamlogctl, MANPAGE the manual page of the repository.
"""

import fcntl
import os
import pty
import re
import struct
import subprocess
import sys
import termios
import unittest

PROGRAM, MAN_PAGE = sys.argv[1:3]
# `version` and `help` are answered before any verb is looked for.
WITHOUT_HELP = ("help", "version")
TOPICS = ("times", "expressions", "formats", "exit-status", "environment", "files")


def run(*arguments, text=None):
    return subprocess.run([PROGRAM, *arguments], input=text, capture_output=True, text=True, timeout=30)


def run_on_terminal(columns, *arguments):
    """Returns what the program prints on a terminal of so many columns."""
    terminal, program_side = pty.openpty()
    fcntl.ioctl(program_side, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
    process = subprocess.Popen([PROGRAM, *arguments], stdout=program_side)
    os.close(program_side)
    shown = b""
    while True:
        try:
            piece = os.read(terminal, 65536)
        except OSError:  # the program has ended
            break
        shown += piece
    os.close(terminal)
    process.wait(timeout=30)
    return shown.decode().replace("\r\n", "\n")


def section(text, head):
    match = re.search(rf"^{head}:\n((?:  .*\n|\n)*)", text, re.MULTILINE)
    return match.group(1) if match else ""


def verbs_of(text):
    return re.findall(r"^  ([a-z]+) ", section(text, "Verbs"), re.MULTILINE)


def options_of(text):
    """All spellings of options in a help text's lists of options."""
    names = re.findall(r"^  (-[^ ,]+(?:, -[^ ,]+)*)(?: |$)", text.split("Examples:\n")[0], re.MULTILINE)
    return [name for group in names for name in group.split(", ")]


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
            self.assertIn("set ", section(run(*words).stdout, "Verbs"), words)
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
                (["show", "--colour", "always"], "unknown option '--colour'; did you mean '--color'?"),
                (["stats", "--sorce=x"], "unknown option '--sorce=x'; did you mean '--source'?"),
                (["show", "--xyzzy"], "unknown option '--xyzzy'\n"),
                (["follow", "--file", "a.dat"], "unknown option '--file'"),
                (["follow", "more"], "unexpected argument 'more'"),
                (["show", "--file"], "--file: needs a value"),
                (["show", "-n", "1", "-n", "many"], "--lines: 'many'"),
                (["filter", "remove", "abc"], "NUMBER: 'abc': expected a number from 0 to 4294967295"),
                (["stats", "--top", "-1"], "--top: '-1': expected a number from 0 to 1000000")):
            outcome = run(*words)
            self.assertEqual((outcome.returncode, outcome.stdout), (2, ""), words)
            self.assertIn(said, outcome.stderr, words)
            verb = " ".join(words[:2] if words[0] == "filter" else words[:1])
            self.assertIn(f"see: tamlogctl {verb} --help\n", outcome.stderr, words)

    def test_an_unknown_verb_is_named_with_those_there_are_and_the_one_that_was_meant(self):
        for words, said in (
                (["server", "status"], "server: there is no verb 'status'; did you mean 'tamlogctl server state' or "
                                       "'tamlogctl status'? Verbs are start, stop, restart, state"),
                (["shwo"], "there is no verb 'shwo'; did you mean 'tamlogctl show'? Verbs are show, "),
                (["folow"], "did you mean 'tamlogctl follow'?"), (["stat"], "did you mean 'tamlogctl stats'?"),
                (["start"], "did you mean 'tamlogctl server start'?"),
                (["filter", "lst"], "filter: there is no verb 'lst'; did you mean 'tamlogctl filter list'?"),
                (["help", "filter", "lst"], "did you mean 'tamlogctl filter list'?"),
                (["help", "sned"], "did you mean 'tamlogctl send'?"),
                (["Logs.dat"], "did you mean 'tamlogctl show Logs.dat'?"),
                (["xyzzy"], "there is no verb 'xyzzy'; verbs are show, ")):
            outcome = run(*words)
            self.assertEqual((outcome.returncode, outcome.stdout), (2, ""), words)
            self.assertIn(said, outcome.stderr, words)
            self.assertIn(" --help\n", outcome.stderr, words)

    def test_of_an_option_that_is_given_twice_the_last_one_counts(self):
        for words in (["show", "-S", "rubbish", "-S", "now"], ["show", "-o", "rubbish", "-o", "json"],
                      ["show", "-q", "-q"], ["settings", "set", "--capacity", "9", "--wait", "--no-wait"],
                      ["show", "-n", "many", "-n", "2"], ["stats", "--color", "purple", "--color", "auto"]):
            self.assertEqual(run(*words).returncode, 3, words)  # no server

    def test_help_speaks_of_what_is_typed(self):
        for path, text in [((), run("--help").stdout), *VERBS]:
            with self.subTest(verb=" ".join(path)):
                for word in ("TEXT TEXT", "{", "SUBCOMMAND", "ubcommand", "REQUIRED", "Excludes", "Needs"):
                    self.assertNotIn(word, text.split("Examples:")[0])
                usage = re.search(r"^Usage: (.*)$", text, re.MULTILINE).group(1)
                self.assertTrue(usage.startswith(" ".join(["tamlogctl", *path])), usage)
                self.assertIn("-h, --help", text)
                # Every entry has an explanation, on its line or below it.
                for entry in re.finditer(r"^  (?! )(\S.*)\n(.*)", text.split("Examples:")[0], re.MULTILINE):
                    name = entry.group(1)
                    self.assertTrue(re.search(r"\S {2,}\S|-- ", name) or entry.group(2).startswith(" " * 30), name)

    def test_help_fits_the_terminal(self):
        texts = {" ".join(path): ["help", *path] for path, _ in VERBS}
        texts.update({topic: ["help", topic] for topic in TOPICS})
        for name, words in texts.items():
            with self.subTest(text=name):
                narrow = run(*words).stdout
                # Commands and names of options stay on one line.
                long = [line for line in narrow.splitlines() if len(line) > 79 and not re.match(r"  \S", line)]
                self.assertEqual(long, [])
                wide = run_on_terminal(100, *words)
                self.assertEqual(wide.split(), narrow.split())
                self.assertLessEqual(wide.count("\n"), narrow.count("\n"))
        wide = run_on_terminal(100, "help", "show")
        self.assertTrue(any(80 < len(line) < 100 for line in wide.splitlines()), wide)
        self.assertEqual(run_on_terminal(20, "help", "show"), run("help", "show").stdout)
        self.assertEqual(run_on_terminal(500, "help", "show"), run_on_terminal(110, "help", "show"))

    def test_explanations_stay_in_their_column(self):
        text = run("help", "formats").stdout
        self.assertIn("  template='{time} {source}: {text}'\n              a line that you lay out, of the fields "
                      "time, seq, type, label,\n              source, ", text)
        self.assertRegex(run("export", "--help").stdout, r"(?m)^  tamlogctl export .*--follow .*--keep 30$")

    def test_a_misspelt_topic_is_named(self):
        for word, meant in (("time", "times"), ("expresions", "expressions"), ("exit", "exit-status")):
            outcome = run("help", word)
            self.assertEqual((outcome.returncode, outcome.stdout), (2, ""))
            self.assertIn(f"there is no verb or topic '{word}'; did you mean 'tamlogctl help {meant}'?", outcome.stderr)
        self.assertIn("did you mean 'tamlogctl filter'?", run("help", "filtr").stderr)

    def test_operands_stand_in_the_usage(self):
        for path, usage in ((("export",), "tamlogctl export [OPTION]... TARGET"),
                            (("filter", "test"), "tamlogctl filter test [OPTION]... SOURCE [TYPE]"),
                            (("verify",), "tamlogctl verify [OPTION]... [FILE...]"),
                            (("server", "start"), "tamlogctl server start [OPTION]...")):
            self.assertIn(f"Usage: {usage}\n", run(*path, "--help").stdout)

    def test_topics_are_explained(self):
        for topic, said in (("times", "yesterday 10:00"), ("expressions", "[[:digit:]]"), ("formats", "rfc5424"),
                            ("exit-status", "130"), ("environment", "NO_COLOR"), ("files", "Logs.dat")):
            outcome = run("help", topic)
            self.assertEqual((outcome.returncode, outcome.stderr), (0, ""))
            self.assertIn(said, outcome.stdout)
            self.assertIn(topic, run("--help").stdout)

    def test_empty_values_are_refused_where_they_are_no_text(self):
        for words in (["show", "-t", ""], ["show", "--since", ""], ["show", "--file", ""], ["follow", "--cursor-file", ""],
                      ["clear", "--yes", "--backup", ""], ["settings", "path", ""], ["export", ""], ["repair", ""],
                      ["verify", ""], ["send", "--time", "", "text"], ["merge", "--tz", "", "a.dat"]):
            outcome = run(*words)
            self.assertEqual((outcome.returncode, outcome.stdout), (2, ""), words)
            self.assertIn("the value is empty", outcome.stderr, words)
        for words in (["send", ""], ["send", "-s", "", "text"], ["filter", "add", "-x", ""], ["filter", "test", ""]):
            self.assertEqual(run(*words).returncode, 3, words)

    def test_standard_output_is_no_file_to_be_written(self):
        for words in (["export", "-"], ["repair", "a.dat", "-"], ["repair", "a.dat", "--output", "-"], ["convert", "a.tsv", "-"],
                      ["clear", "--backup", "-"], ["settings", "set", "--backup", "-", "--save", "1"],
                      ["show", "--cursor-file", "-"]):
            outcome = run(*words)
            self.assertEqual((outcome.returncode, outcome.stdout), (2, ""), words)
            self.assertIn("'-': standard output cannot be used here; name a file", outcome.stderr, words)
        self.assertFalse(os.path.exists("-"))

    def test_an_empty_expression_excludes_nothing(self):
        outcome = run("show", "a.dat", "-v", "")
        self.assertEqual((outcome.returncode, outcome.stdout), (2, ""))
        self.assertIn("-v '': every text matches an empty expression; it usually comes from an unset variable",
                      outcome.stderr)

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


class HelpText(unittest.TestCase):
    def test_fits_a_terminal(self):
        topics = ("times", "expressions", "formats", "exit-status", "environment", "files")
        for name, text in [*VERBS, *((topic, run("help", topic).stdout) for topic in topics)]:
            for line in text.splitlines():
                self.assertLessEqual(len(line), 120, f"{name}: {line}")

    def test_of_formats_names_every_field(self):
        text = run("help", "formats").stdout
        fields = run("__complete", "=show", "=--fields", "=").stdout.split()
        self.assertGreater(len(fields), 13)
        for field in fields:
            self.assertRegex(text, rf"\b{field.removeprefix('=')}\b")


class ManPage(unittest.TestCase):
    def setUp(self):
        with open(MAN_PAGE, encoding="utf-8") as file:
            self.source = file.read()

    def test_names_every_verb_and_option(self):
        plain = self.source.replace("\\-", "-")
        shared = plain.split("\n.SH VERBS\n")[1].split("\n.SH ", 1)[1]  # explained once, after the verbs
        for path, text in VERBS:
            match = re.search(rf"^\.SS {' '.join(path)}\n((?:(?!\.SS ).*\n)*)", plain, re.MULTILINE)
            self.assertTrue(match, f"{path}: not in {MAN_PAGE}; renew it: tamlogctl man > {MAN_PAGE}")
            for option in options_of(text):
                if option not in ("-h", "--help"):
                    self.assertIn(f"\\fB{option}\\fR", match.group(1) + shared,
                                  f"{path}; renew it: tamlogctl man > {MAN_PAGE}")
        self.assertEqual(plain.count("\\fB--grep\\fR"), 1)

    def test_has_the_sections_that_readers_look_for(self):
        for title in ("NAME", "SYNOPSIS", "DESCRIPTION", "VERBS", "CHOOSING MESSAGES", "TIMES", "EXPRESSIONS", "FORMATS",
                      "EXIT STATUS", "ENVIRONMENT", "FILES", "SEE ALSO"):
            self.assertEqual(self.source.count(f"\n.SH {title}\n"), 1, title)
        for word in ("TEXT TEXT", "SUBCOMMAND", "{-}"):
            self.assertNotIn(word, self.source)

    def test_is_what_the_program_prints(self):
        self.assertEqual(run("man").stdout, self.source, f"renew it: tamlogctl man > {MAN_PAGE}")

    def test_renders_without_warnings(self):
        outcome = subprocess.run(["groff", "-man", "-Tutf8", "-ww", "-Kutf8", MAN_PAGE], capture_output=True, text=True,
                                 timeout=60)
        self.assertEqual((outcome.returncode, outcome.stderr), (0, ""))
        self.assertNotIn("warning", outcome.stderr)
        viewed = subprocess.run(["man", "--warnings", "-l", MAN_PAGE], capture_output=True, text=True, timeout=60,
                                env={**os.environ, "MANWIDTH": "80", "LC_ALL": "C.UTF-8", "MANPAGER": "cat"})
        self.assertEqual((viewed.returncode, viewed.stderr), (0, ""))
        self.assertIn("tamlogctl filter add -x Heartbeat", re.sub(r"\x1b\[[0-9;]*m", "", outcome.stdout))


class ExitStatus(unittest.TestCase):
    """The codes that the help and the manual list are those of the source."""

    def test_help_and_manual_list_every_code(self):
        root = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "..")
        with open(os.path.join(root, "tamlogctl", "base", "exit_code.h"), encoding="utf-8") as file:
            codes = re.findall(r"^inline constexpr int k\w+ = (\d+);", file.read(), re.MULTILINE)
        self.assertGreater(len(codes), 9)
        self.assertEqual(re.findall(r"^  (\d+) ", run("help", "exit-status").stdout, re.MULTILINE), codes)
        with open(os.path.join(root, "docs", "tamlogctl.md"), encoding="utf-8") as file:
            self.assertEqual(re.findall(r"^\| (\d+) \|", file.read(), re.MULTILINE), codes)


class Completion(unittest.TestCase):
    """completion_check.py tries the scripts."""

    def test_bash_and_zsh_accept_their_scripts(self):
        for shell in ("bash", "zsh"):
            outcome = subprocess.run([shell, "-n"], input=run("completion", shell).stdout, capture_output=True, text=True,
                                     timeout=30)
            self.assertEqual((outcome.returncode, outcome.stderr), (0, ""))

    def test_powershell_script_is_balanced_and_asks_the_program(self):
        # No PowerShell here: only its structure is looked at.
        script = run("completion", "powershell").stdout
        self.assertIn("& $program '__complete' @typed", script)
        bare = re.sub(r"'(?:[^']|'')*'|\"[^\"]*\"", "", script)
        for left, right in ("()", "{}", "[]"):
            self.assertEqual(bare.count(left), bare.count(right), left)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
