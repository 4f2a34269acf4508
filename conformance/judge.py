#!/usr/bin/env python3
"""Judges programs that read logs, on the samples and traces in this directory, and servers, claim by claim.

    judge.py [--read COMMAND] [--verify COMMAND] [--follow COMMAND [--exact]] [--pipes COMMAND] [--only RE] [--details]

Each COMMAND is a program with its arguments, in one word; the names of files are appended. At least one is needed.

  --read      COMMAND FILE prints the messages of FILE, oldest first, one JSON object a line.
              Exit code 0: all is well. Another one: something is damaged, or FILE is not a log.
  --verify    COMMAND FILE prints one JSON object: "accepted" (a server would keep FILE), "counts" (findings by rule).
  --follow    COMMAND FILE [--reopened] FILE... prints what is new after each visit.
  --exact     a follower has to state each loss that the reference follower can compute
  --pipes     COMMAND checks the running server: pipe_claims.exe with its options (README.md).
  --only      only the claims whose name matches the regular expression RE
  --details   the first difference of each claim that fails

README.md describes the lines. The last lines are the table of claims; exit code 0 when all of them hold, 1 when one
fails, 2 for a usage error, also when a COMMAND cannot be started. Standard library only.
"""

import argparse
import json
import os
import re
import shlex
import signal
import struct
import subprocess
import sys
import tempfile
import threading
from collections import namedtuple

HERE = os.path.dirname(os.path.abspath(__file__))
SECONDS = 60  # for one run of a program on a sample or a trace
PIPES_SECONDS = 600
MOST_BYTES = 16 * 1024 * 1024  # of a program's output
LEFT_TO_THE_PROGRAM = ("cursor", "label", "host", "late")  # fields of a message that no claim is about
Claim = namedtuple("Claim", "kind name about problem")  # problem: empty when the claim holds


class Refused(Exception):
    """What the program did cannot be judged further."""


class CannotStart(Exception):
    """A COMMAND cannot be started."""


def start(command, arguments):
    """Windows takes the command line as it is. Elsewhere the program gets a process group, which `end` ends."""
    try:
        if os.name == "nt":
            parts = command + " " + subprocess.list2cmdline(arguments)
        else:
            parts = [*shlex.split(command), *arguments]
        return subprocess.Popen(parts, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                start_new_session=True)
    except (OSError, ValueError) as problem:
        raise CannotStart("cannot start %s: %s" % (command, problem)) from problem


def end(process):
    if os.name == "nt":
        process.kill()
    else:
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass


def output_of(command, arguments, seconds=SECONDS):
    """The program's exit code and its output."""
    process = start(command, arguments)
    too_late = threading.Event()

    def give_up():
        too_late.set()
        end(process)

    timer = threading.Timer(seconds, give_up)
    timer.start()
    try:
        output = process.stdout.read(MOST_BYTES + 1)
        if len(output) > MOST_BYTES:
            end(process)
        code = process.wait()
    finally:
        timer.cancel()
        process.stdout.close()
    if too_late.is_set():
        raise Refused("has not ended after %d s" % seconds)
    if len(output) > MOST_BYTES:
        raise Refused("prints more than %d bytes" % MOST_BYTES)
    if code < 0 or code > 125:
        raise Refused("crashed (exit code %d)" % code)
    return code, output


def run(command, arguments):
    """The program's exit code and its lines as objects."""
    code, output = output_of(command, arguments)
    lines = []
    for number, line in enumerate(output.splitlines(), 1):
        try:
            value = json.loads(line.decode("utf-8"))
        except (ValueError, RecursionError) as problem:
            raise Refused("line %d of its output is no JSON in UTF-8: %s" % (number, problem)) from problem
        if not isinstance(value, dict):
            raise Refused("line %d of its output is no JSON object" % number)
        lines.append({key: each for key, each in value.items() if key not in LEFT_TO_THE_PROGRAM})
    return code, lines


def same(one, other):
    """Equal, and of the same types: for Python 1 equals 1.0 and true."""
    return json.dumps(one, sort_keys=True) == json.dumps(other, sort_keys=True)


def difference(seen, wanted):
    for number, (one, other) in enumerate(zip(seen, wanted), 1):
        if not same(one, other):
            return "line %d is %s, should be %s" % (number, json.dumps(one), json.dumps(other))
    if len(seen) != len(wanted):
        return "%d lines instead of %d" % (len(seen), len(wanted))
    return ""


def is_part_in_order(seen, wanted):
    rest = iter(wanted)
    return all(any(same(each, other) for other in rest) for each in seen)


def read_json(path):
    with open(path, encoding="ascii") as stream:
        return json.load(stream)


def read_lines(path):
    with open(path, encoding="ascii") as stream:
        return [json.loads(line) for line in stream]


def cases_in(folder):
    directory = os.path.join(HERE, folder)
    for name in sorted(each[:-5] for each in os.listdir(directory) if each.endswith(".json")):
        base = os.path.join(directory, name)
        yield name, read_json(base + ".json"), base + ".dat", read_lines(base + ".jsonl")


def judge_reader(command, verdict, path, wanted):
    code, lines = run(command, [path])
    if verdict["reader"] == "shows":
        if code != 0:
            return "exit code %d for a file that is sound" % code
        return difference(lines, wanted)
    if code == 0:
        return "exit code 0 for a damaged file"
    if verdict["reader"] == "notices":
        return ""
    if verdict["reader"] == "refuses":
        return "shows messages of a file that is not a log" if lines else ""
    return "" if is_part_in_order(lines, wanted) else "shows what is not in the file, or in another order"


def judge_verifier(command, verdict, path, _):
    _, lines = run(command, [path])
    if not lines:
        return "" if verdict["reader"] == "refuses" else "prints nothing"
    report = lines[0]
    for name, wanted in (("accepted", verdict["server"] == "keeps"), ("counts", verdict["findings"])):
        if not same(report.get(name), wanted):
            return "%s is %s, should be %s" % (name, json.dumps(report.get(name)), json.dumps(wanted))
    return ""


def is_count(value):
    return isinstance(value, int) and not isinstance(value, bool) and value >= 0


def judge_loss(seen, expected, states_it):
    """Bounds have to hold what was really lost. Where the follower states the loss, they have to be that number."""
    bounds = seen.get("lost")
    if not isinstance(bounds, dict) or set(bounds) != {"least", "most"} or not is_count(bounds["least"]) \
            or not (bounds["most"] is None or is_count(bounds["most"])):
        return "no bounds of the loss"
    lost, really = expected["lost"], expected["really"]
    if states_it and lost["least"] == lost["most"] and not same(bounds, lost):
        return "lost %s, should be %s" % (json.dumps(bounds), json.dumps(lost))
    if really < bounds["least"] or (bounds["most"] is not None and really > bounds["most"]):
        return "lost %s, really %d" % (json.dumps(bounds), really)
    return ""


def judge_visits(lines, wanted, stated):
    """Judges what a follower prints about each visit. Its losses are stated after the visits of `stated`."""
    for seen, each in zip(lines, wanted):
        if "visit" not in each:
            continue
        for key in ("cleared", "rewritten"):
            if not same(seen.get(key, each[key]), each[key]):
                return "visit %d: %s is %s" % (each["visit"], key, json.dumps(seen[key]))
        problem = judge_loss(seen, each, each["visit"] in stated)
        if problem:
            return "visit %d: %s" % (each["visit"], problem)
    return ""


def visits_of_appends(images):
    """The visits since whose predecessor nothing but appends can have come: then the counters show the loss."""
    headers = [struct.unpack_from("<12xi8xQQQ", image) for image in images]  # maxMessages and the three counters
    return {number for number, (before, now) in enumerate(zip(headers, headers[1:]), 1)
            if before[0] == now[0] and before[2] == now[2] and before[1] <= now[1] and before[3] <= now[3]}


def images_of(trace, path):
    with open(path, "rb") as stream:
        for copy in trace["copies"]:
            stream.seek(copy["offset"])
            yield stream.read(copy["size"])


def judge_follower(command, trace, path, wanted, exact=False):
    images = list(images_of(trace, path))
    with tempfile.TemporaryDirectory() as directory:
        arguments = []
        for number, (copy, image) in enumerate(zip(trace["copies"], images)):
            arguments += ["--reopened"] if copy["reopened"] else []
            arguments.append(os.path.join(directory, "%02d.dat" % number))
            with open(arguments[-1], "wb") as file:
                file.write(image)
        code, lines = run(command, arguments)
    if code != 0:
        return "exit code %d" % code

    def without_losses(each):
        return {"visit": each["visit"]} if "visit" in each else each

    problem = difference([without_losses(each) for each in lines], [without_losses(each) for each in wanted])
    stated = range(len(images)) if exact else visits_of_appends(images)
    return problem or judge_visits(lines, wanted, stated)


def judge_pipes(command, only):
    """The claims that COMMAND prints, and one about COMMAND itself: its last line counts them all."""
    try:
        code, output = output_of(command, [], PIPES_SECONDS)
    except Refused as refused:
        return [Claim("pipes", "run", "the claims about the pipes are judged", str(refused))]
    lines = output.decode("utf-8", "replace").splitlines()
    claims = []
    for line in lines:
        found = re.fullmatch(r"(holds|FAILS) +pipes +(\S+) +(\S.*)", line)
        if found:
            claims.append(Claim("pipes", found[2], found[3], "" if found[1] == "holds" else "see the server"))
    failed = sum(bool(claim.problem) for claim in claims)
    problem = ""
    if code == 3:
        problem = "no server has its pipes open"
    elif not claims or code != (1 if failed else 0) \
            or lines[-1] != "%d claims hold, %d fail" % (len(claims) - failed, failed):
        problem = "exit code %d, %d claims" % (code, len(claims))
    claims.insert(0, Claim("pipes", "run", "the claims about the pipes are judged", problem))
    return [claim for claim in claims if claim.problem or re.search(only, claim.name)]


def claims_of(kind, command, folder, judge, only):
    for name, expected, path, wanted in cases_in(folder):
        if not re.search(only, name):
            continue
        try:
            problem = judge(command, expected, path, wanted)
        except Refused as refused:
            problem = str(refused)
        yield Claim(kind, name, expected["about"], problem)


def print_table(claims, details):
    width = max(len(claim.name) for claim in claims)
    for claim in claims:
        print("%-6s  %-6s  %-*s  %s" % ("FAILS" if claim.problem else "holds", claim.kind, width, claim.name,
                                        claim.about))
        if details and claim.problem:
            print("        %s" % claim.problem)
    failed = sum(bool(claim.problem) for claim in claims)
    print("%d claims hold, %d fail" % (len(claims) - failed, failed))
    return 1 if failed else 0


def regular_expression(text):
    try:
        return re.compile(text)
    except re.error as problem:
        raise argparse.ArgumentTypeError("%r is not a regular expression: %s" % (text, problem)) from problem


def parsed():
    parser = argparse.ArgumentParser(usage=__doc__.split("\n\n")[1].strip(), add_help=False, allow_abbrev=False)
    parser.add_argument("-h", "--help", action="store_true")
    for option in ("--read", "--verify", "--follow", "--pipes"):
        parser.add_argument(option)
    parser.add_argument("--only", type=regular_expression, default="")
    for option in ("--exact", "--details"):
        parser.add_argument(option, action="store_true")
    chosen = parser.parse_args()
    commands = [chosen.read, chosen.verify, chosen.follow, chosen.pipes]
    if "" in commands:
        parser.error("an empty COMMAND")
    if not chosen.help and commands == [None] * 4:
        parser.error("nothing to judge")
    if chosen.exact and not chosen.follow:
        parser.error("--exact needs --follow")
    return chosen


def judged(chosen):
    def follower(*arguments):
        return judge_follower(*arguments, exact=chosen.exact)

    claims = []
    for kind, command, folder, judge in (("read", chosen.read, "samples", judge_reader),
                                         ("verify", chosen.verify, "samples", judge_verifier),
                                         ("follow", chosen.follow, "traces", follower)):
        if command:
            claims += claims_of(kind, command, folder, judge, chosen.only)
    if chosen.pipes:
        claims += judge_pipes(chosen.pipes, chosen.only)
    return claims


def main():
    chosen = parsed()
    if chosen.help:
        print(__doc__)
        return 0
    try:
        claims = judged(chosen)
    except (CannotStart, OSError) as problem:
        print("judge.py: %s" % problem, file=sys.stderr)
        return 2
    if not claims:
        print("judge.py: --only matches no claim", file=sys.stderr)
        return 2
    return print_table(claims, chosen.details)


if __name__ == "__main__":
    sys.exit(main())
