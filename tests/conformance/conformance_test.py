"""The conformance kit: its files are what their makers make, our own programs hold every claim, and the judge notices
the mistakes that readers and followers make.

usage: tests/conformance/conformance_test.py TAMLOGCTL TRACE_FOLLOWER EXAMPLES

TAMLOGCTL and TRACE_FOLLOWER are native programs, EXAMPLES is the directory of the native examples.
"""

import json
import os
import random
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
KIT = os.path.join(ROOT, "conformance")
EXAMPLES = os.path.join(ROOT, "examples")
JUDGE = os.path.join(KIT, "judge.py")
PYTHON = sys.executable + " -B"
sys.path.insert(0, EXAMPLES)
from reference_follower import Follower  # noqa: E402
from reference_log import fields_of  # noqa: E402
from reference_writer import Writer, body  # noqa: E402


def run(*command):
    return subprocess.run(command, capture_output=True, text=True, timeout=240)


def judge(*arguments):
    """The judge's exit code, and the claims by name: True when one holds."""
    outcome = run(sys.executable, JUDGE, *arguments)
    claims = {}
    for line in outcome.stdout.splitlines()[:-1]:
        word, kind, name = line.split(None, 3)[:3]
        claims[kind, name] = word == "holds"
    return outcome, claims


def names(folder):
    return sorted(each[:-5] for each in os.listdir(os.path.join(KIT, folder)) if each.endswith(".json"))


class Files(unittest.TestCase):
    def test_are_what_their_makers_make(self):
        for maker, folder in (("make_samples.py", "samples"), ("make_traces.py", "traces")):
            outcome = run(sys.executable, "-B", os.path.join(KIT, maker), "--check", os.path.join(KIT, folder))
            self.assertEqual((outcome.returncode, outcome.stdout), (0, ""))

    def test_are_refused_when_a_byte_differs_or_a_file_is_missing(self):
        with tempfile.TemporaryDirectory() as directory:
            maker = os.path.join(KIT, "make_samples.py")
            self.assertEqual(run(sys.executable, "-B", maker, directory).returncode, 0)
            self.assertEqual(run(sys.executable, "-B", maker, "--check", directory).returncode, 0)
            with open(os.path.join(directory, "mixed.dat"), "r+b") as stream:
                stream.seek(1000)
                stream.write(b"!")
            os.remove(os.path.join(directory, "sequence.json"))
            outcome = run(sys.executable, "-B", maker, "--check", directory)
            self.assertEqual(outcome.returncode, 1)
            self.assertIn("mixed.dat", outcome.stdout)
            self.assertIn("sequence.json", outcome.stdout)

    def test_break_every_rule_and_show_every_remark(self):
        found = set()
        for name in names("samples"):
            with open(os.path.join(KIT, "samples", name + ".json"), encoding="ascii") as stream:
                found |= set(json.load(stream)["findings"])
        with open(os.path.join(ROOT, "client", "file", "log_file_verify.cpp"), encoding="utf-8") as stream:
            text = stream.read().split("const char* RuleName", 1)[1].split("};", 1)[0]
        rules = {word for i, word in enumerate(text.split('"')) if i % 2 == 1}
        self.assertEqual(len(rules), 20)
        self.assertEqual(found, rules)

    def test_are_small(self):
        size = 0
        for directory, _, files in os.walk(KIT):
            size += sum(os.path.getsize(os.path.join(directory, each)) for each in files)
        self.assertLess(size, 1000000)


class OurPrograms(unittest.TestCase):
    def test_hold_every_claim(self):
        outcome, claims = judge("--read", TAMLOGCTL + " show -o json", "--verify", TAMLOGCTL + " verify -o json",
                                "--follow", TRACE_FOLLOWER, "--exact", "--details")
        self.assertEqual(outcome.returncode, 0, outcome.stdout + outcome.stderr)
        self.assertEqual(len(claims), 2 * len(names("samples")) + len(names("traces")))

    def test_of_the_examples_hold_every_claim(self):
        outcome, claims = judge("--read", "%s %s/reference_log.py" % (PYTHON, EXAMPLES),
                                "--follow", "%s %s/reference_follower.py" % (PYTHON, EXAMPLES), "--exact", "--details")
        self.assertEqual(outcome.returncode, 0, outcome.stdout + outcome.stderr)
        self.assertEqual(len(claims), len(names("samples")) + len(names("traces")))


def random_history(seed):
    """Copies of a log, and before which of them it was opened again: appends, late messages, bursts, clears, other
    logs in its place. No two messages are equal."""
    chance = random.Random(seed)
    writer = Writer(chance.choice((1, 2, 3, 4, 5, 8, 12)))
    writer.server_running = 0
    second = 100
    number = 0
    copies = [(writer.image(), False)]
    for _ in range(chance.randint(3, 25)):
        reopened = chance.random() < 0.03
        for _ in range(chance.choice((0, 1, 1, 1, 2, 3))):
            kind = chance.random()
            if kind < 0.06:
                writer.clear()
            elif kind < 0.08:
                writer.reformat()
                reopened = reopened or chance.random() < 0.5
            for _ in range(chance.choice((1, 1, 2, 3, writer.capacity, writer.capacity + 1))):
                number += 1
                second += chance.randint(0, 2)
                dated = second - (chance.randint(1, 12) if chance.random() < 0.2 else 0)
                writer.submit(body((2026, 1, 1, 0, dated // 60, dated % 60, 0), 0, b"s", b"%d" % number))
            writer.flush()
        copies.append((writer.image(), reopened))
    return copies


class Histories(unittest.TestCase):
    def test_show_the_same_messages_to_our_follower_and_to_that_of_the_examples(self):
        for seed in range(100):
            copies = random_history(seed)
            follower = Follower(copies[0][0])
            wanted = []
            for image, reopened in copies[1:]:
                step = follower.visit(image, reopened)
                wanted.append((sorted(fields_of(each.body).text.decode() for each in step.messages), step.cleared))
            self.assertEqual(self.visits_of_ours(copies), wanted, "seed %d" % seed)

    def visits_of_ours(self, copies):
        with tempfile.TemporaryDirectory() as directory:
            arguments = []
            for number, (image, reopened) in enumerate(copies):
                arguments += ["--reopened"] if reopened else []
                arguments.append(os.path.join(directory, "%d.dat" % number))
                with open(arguments[-1], "wb") as stream:
                    stream.write(image)
            outcome = run(TRACE_FOLLOWER, *arguments)
        self.assertEqual(outcome.returncode, 0, outcome.stderr)
        visits = []
        texts = []
        for line in map(json.loads, outcome.stdout.splitlines()):
            if "visit" in line:
                visits.append((sorted(texts), line["cleared"]))
                texts = []
            else:
                texts.append(line["text"])
        return visits


class Judge(unittest.TestCase):
    """Each case breaks one rule in a copy of an example, and names the claims that fail by it."""

    def failing(self, option, program, old, new, only, *more):
        with tempfile.TemporaryDirectory() as directory:
            for each in ("reference_log.py", "reference_follower.py"):
                with open(os.path.join(EXAMPLES, each), encoding="utf-8") as stream:
                    text = stream.read()
                if each == program:
                    self.assertEqual(text.count(old), 1, old)
                    text = text.replace(old, new)
                with open(os.path.join(directory, each), "w", encoding="utf-8") as stream:
                    stream.write(text)
            outcome, claims = judge(option, "%s %s" % (PYTHON, os.path.join(directory, program)), "--only", only,
                                    *more)
        self.assertEqual(outcome.returncode, 1, outcome.stdout)
        return {name for (_, name), holds in claims.items() if not holds}

    def reader(self, old, new, only):
        return self.failing("--read", "reference_log.py", old, new, only)

    def follower(self, old, new, only="", exact=True):
        return self.failing("--follow", "reference_follower.py", old, new, only, *(["--exact"] if exact else []))

    def test_notices_a_reader_that_takes_the_ring_for_the_order_of_time(self):
        self.assertEqual(self.reader("    return sorted(ring[:end][::-1] + ring[end:], key=key_of)",
                                     "    return list(ring)", "burst$|mixed|half|block|gone"),
                         {"example-burst", "mixed", "block-overwritten-in-part", "block-of-two-left",
                          "block-of-equal-times"})

    def test_notices_a_reader_that_does_not_turn_blocks(self):
        self.assertEqual(self.reader("ring[:end][::-1] + ring[end:]", "ring", "block|mixed|equal"),
                         {"block-of-equal-times"})

    def test_notices_a_reader_that_reads_slots_outside_the_ring(self):
        self.assertEqual(self.reader("range(header.messageCount)", "range(header.maxMessages)", "cleared|new-log|gone"),
                         {"cleared", "new-log"})

    def test_notices_a_reader_that_corrects_stamps(self):
        self.assertEqual(self.reader("    if is_possible(words):\n        shown[\"time\"] =",
                                     "    if True:\n        shown[\"time\"] =", "stamps|five"), {"impossible-stamps"})

    def test_notices_a_reader_that_takes_keys_as_signed(self):
        self.assertEqual(self.reader("    return key % 2**64", "    return key", "stamps|five"), {"impossible-stamps"})

    def test_notices_a_reader_of_one_code_page(self):
        self.assertEqual(self.reader('raw.decode("utf-8", "surrogateescape")', 'raw.decode("latin-1")', "enc|five"),
                         {"encodings"})

    def test_notices_a_reader_that_says_all_is_well(self):
        self.assertEqual(self.reader("    return 7 if any(count for _, count in problems) else 0", "    return 0",
                                     "ends|type|newest|short|five"),
                         {"text-ends", "source-ends", "known-type", "negative-type", "newest-first", "short-file"})

    def test_notices_a_reader_that_shows_what_is_not_there(self):
        self.assertEqual(self.reader("        print(json_line(message))", "        print(json_line(message).upper())",
                                     "text-ends|five"), {"text-ends", "example-five"})

    def test_notices_a_reader_that_crashes_or_prints_no_json(self):
        self.assertEqual(self.reader("import json\n", "import json\nimport os\nos.abort()\n", "five|empty"),
                         {"example-five", "empty-file"})
        outcome, claims = judge("--read", "/bin/echo nothing", "--only", "example")
        self.assertEqual((outcome.returncode, set(claims.values())), (1, {False}))

    def test_notices_a_follower_that_goes_by_the_numbers(self):
        failing = self.follower("        step = self.appended(visit) if self.only_appended(visit, reopened) "
                                "else self.compared(visit, reopened)\n",
                                "        last = self.last.nextSequence\n"
                                "        self.last = visit.header\n"
                                "        new = [each for each in visit.ring if each.sequence >= last]\n"
                                "        step = Step(new, (0, 0), False, False)\n")
        self.assertLessEqual({"inserted", "burst", "back-from-memory", "overtaken"}, failing)
        self.assertNotIn("appended", failing)

    def test_notices_a_follower_that_forgets_what_left_the_ring(self):
        self.assertEqual(self.follower("                remember(self.departed, before)\n", "                pass\n"),
                         {"back-from-memory"})

    def test_notices_a_follower_that_shows_second_copies(self):
        self.assertEqual(self.follower("            if first:\n", "            if False:\n"), {"twice-in-the-ring"})

    def test_notices_a_follower_that_ignores_equal_messages(self):
        self.assertEqual(self.follower("        self.count -= 1\n", "        self.count -= 0\n", "equal"),
                         {"equal-inserted"})

    def test_notices_a_follower_that_reports_no_loss(self):
        self.assertEqual(self.follower("        lost = appended - len(new)\n", "        lost = 0\n"),
                         {"overtaken", "twice-in-the-ring"})
        self.assertEqual(self.follower("        return change.bounds()\n", "        return (0, 0)\n"),
                         {"cleared-and-filled", "insertions-that-lost", "two-bursts"})

    def test_lets_a_follower_state_only_what_the_counters_show(self):
        unknown = "        return UNKNOWN\n        return change.bounds()\n"
        exact = self.follower("        return change.bounds()\n", unknown)
        self.assertLessEqual({"cleared-and-filled", "insertions-that-lost"}, exact)
        with tempfile.TemporaryDirectory() as directory:
            for each in ("reference_log.py", "reference_follower.py"):
                with open(os.path.join(EXAMPLES, each), encoding="utf-8") as stream:
                    text = stream.read().replace("        return change.bounds()\n", unknown)
                with open(os.path.join(directory, each), "w", encoding="utf-8") as stream:
                    stream.write(text)
            outcome, _ = judge("--follow", "%s %s" % (PYTHON, os.path.join(directory, "reference_follower.py")))
        self.assertEqual(outcome.returncode, 0, outcome.stdout)
        self.assertEqual(self.follower("        lost = appended - len(new)\n", "        lost = 0\n", exact=False),
                         {"overtaken", "twice-in-the-ring"})
        self.assertEqual(self.follower("        return change.bounds()\n", "        return (0, 0)\n", exact=False),
                         {"cleared-and-filled", "insertions-that-lost", "two-bursts"})

    def test_notices_bounds_that_are_no_numbers(self):
        for bounds in ('{"least": "0", "most": 0}', '{"least": true, "most": null}', '{"least": 0, "most": -1}',
                       '{"least": 0}', "[]", '{"least": 0, "most": NaN}'):
            self.assertEqual(self.prints('{"visit":1,"lost":%s}' % bounds, "--follow", "first-number-is-0|reopened"),
                             {"first-number-is-0", "reopened"})

    def prints(self, line, option, only):
        """The claims that fail for a program whose output is one line."""
        with tempfile.TemporaryDirectory() as directory:
            program = os.path.join(directory, "program.py")
            with open(program, "w", encoding="utf-8") as stream:
                stream.write("print(%r)\n" % line)
            outcome, claims = judge(option, "%s %s" % (PYTHON, program), "--only", only)
        self.assertEqual((outcome.returncode, outcome.stderr), (1, ""))
        return {name for (_, name), holds in claims.items() if not holds}

    def test_notices_output_that_is_no_line_of_json(self):
        for line in ("[" * 100000, "9" * 100000, "[1]", "nothing", "{\"a\":1"):
            self.assertEqual(self.prints(line, "--read", "example-five"), {"example-five"})

    def test_notices_a_program_that_prints_without_end_or_asks(self):
        outcome, claims = judge("--read", "/usr/bin/yes {}", "--only", "example-five", "--details")
        self.assertEqual((outcome.returncode, set(claims.values())), (1, {False}))
        self.assertIn("prints more than", outcome.stdout)
        outcome, _ = judge("--read", "/bin/cat -", "--only", "example-five", "--details")
        self.assertIn("no JSON", outcome.stdout)

    def test_answers_wrong_arguments_with_a_reason(self):
        for arguments, reason in (((), "nothing to judge"), (("--read", ""), "an empty COMMAND"),
                                  (("--read", "/no/such/program"), "cannot start /no/such/program"),
                                  (("--read", "'open"), "cannot start 'open"), (("--read",), "expected one argument"),
                                  (("--read", "true", "--only", "("), "not a regular expression"),
                                  (("--read", "true", "--only", "no-such-sample"), "--only matches no claim"),
                                  (("--read", "true", "--exact"), "--exact needs --follow"),
                                  (("--rea", "true"), "unrecognized arguments"), (("true",), "unrecognized arguments")):
            outcome = run(sys.executable, JUDGE, *arguments)
            self.assertEqual((outcome.returncode, outcome.stdout), (2, ""), arguments)
            self.assertIn(reason, outcome.stderr)
            self.assertNotIn("Traceback", outcome.stderr)


class Programs(unittest.TestCase):
    """The scripts of the kit and the examples in Python answer wrong arguments with a reason and no traceback."""

    def refuses(self, script, arguments, code, reason):
        outcome = run(sys.executable, "-B", os.path.join(ROOT, script), *arguments)
        self.assertEqual((outcome.returncode, outcome.stdout), (code, ""), (script, arguments))
        self.assertIn(reason, outcome.stderr)
        self.assertNotIn("Traceback", outcome.stderr)

    def test_need_a_file(self):
        for script in ("examples/reference_log.py", "examples/reference_follower.py", "examples/read_log.py",
                       "conformance/make_samples.py", "conformance/make_traces.py"):
            self.refuses(script, (), 2, os.path.basename(script))

    def test_report_a_file_that_cannot_be_read(self):
        for script in ("examples/reference_log.py", "examples/reference_follower.py"):
            for path in ("/no/such/file", "/"):
                self.refuses(script, (path,), 2, path)
        self.refuses("examples/read_log.py", ("/no/such/library", "FILE"), 2, "not the client library")
        self.refuses("examples/read_log.py", ("/dev/null", "FILE"), 2, "not the client library")

    def test_report_a_file_that_is_no_log(self):
        self.refuses("examples/reference_log.py", ("/dev/null",), 9, "ends within its header")
        self.refuses("examples/reference_follower.py", ("/dev/null",), 9, "ends within its header")
        self.refuses("examples/reference_follower.py", (os.path.join(KIT, "samples", "mixed.dat"), "/dev/null"), 9,
                     "ends within its header")

    def test_in_c_and_cpp_refuse_wrong_arguments(self):
        for name, wrong in (("follow", (["soon"], ["-1"], [""], ["1 "], ["1", "2"], ["99999999999999"])),
                            ("async_logging", (["many"], ["-1"], [""], ["1", "2"])),
                            ("submit_and_read", (["FILE", "FILE"],)), ("verify_and_repair", ([], ["1", "2", "3"]))):
            for arguments in wrong:
                # Under AddressSanitizer only the library is built with it.
                outcome = run("env", "ASAN_OPTIONS=verify_asan_link_order=0",
                              os.path.join(EXAMPLE_PROGRAMS, "example_" + name), *arguments)
                self.assertEqual((outcome.returncode, outcome.stdout), (2, ""), (name, arguments))
                self.assertIn("usage: " + name, outcome.stderr)

    def test_do_not_take_an_option_for_a_directory(self):
        for maker in ("conformance/make_samples.py", "conformance/make_traces.py"):
            for arguments in (("--help",), ("--check",), ("DIRECTORY", "--check"), ("--chec", "DIRECTORY"),
                              ("--check", "--check"), ("one", "two")):
                self.refuses(maker, arguments, 2, os.path.basename(maker))
            self.refuses(maker, ("--check", "/no/such/directory"), 2, "/no/such/directory")


class JudgeOfPipes(unittest.TestCase):
    HOLDS = "holds   pipes   ping              Ping: Alive"
    FAILS = "FAILS   pipes   map-name          GetFileMapName: the name of the mapping"

    def claims(self, code, *lines):
        with tempfile.TemporaryDirectory() as directory:
            program = os.path.join(directory, "program.py")
            with open(program, "w", encoding="utf-8") as stream:
                stream.write("print(%r)\nraise SystemExit(%d)\n" % ("\n".join(lines), code))
            outcome, claims = judge("--pipes", "%s %s" % (PYTHON, program))
        return outcome.returncode, {name: holds for (_, name), holds in claims.items()}

    def test_shows_what_the_program_claims(self):
        self.assertEqual(self.claims(0, self.HOLDS, "1 claims hold, 0 fail"), (0, {"run": True, "ping": True}))
        self.assertEqual(self.claims(1, self.HOLDS, self.FAILS, "1 claims hold, 1 fail"),
                         (1, {"run": True, "ping": True, "map-name": False}))

    def test_notices_that_the_program_did_not_finish(self):
        for code, lines in ((3, [""]), (0, [self.HOLDS]), (1, [self.HOLDS, "1 claims hold, 0 fail"]),
                            (0, [self.FAILS, "0 claims hold, 1 fail"]), (0, ["0 claims hold, 0 fail"]),
                            (139, [self.HOLDS, "1 claims hold, 0 fail"])):
            status, claims = self.claims(code, *lines)
            self.assertEqual((status, claims["run"]), (1, False), (code, lines))


if __name__ == "__main__":
    if len(sys.argv) < 4:
        sys.exit(__doc__)
    TAMLOGCTL, TRACE_FOLLOWER, EXAMPLE_PROGRAMS = sys.argv[1:4]
    unittest.main(argv=sys.argv[:1] + sys.argv[4:], verbosity=2)
