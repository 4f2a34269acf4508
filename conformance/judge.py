#!/usr/bin/env python3
"""Judges programs that read logs: on the samples and traces in this directory, claim by claim.

    judge.py [--read COMMAND] [--verify COMMAND] [--follow COMMAND] [--only RE] [--details]

Each COMMAND is a program with its arguments, in one word; the names of files are appended. At least one is needed.

  --read      COMMAND FILE prints the messages of FILE, oldest first, one JSON object a line.
              Exit code 0: all is well. Another one: something is damaged, or FILE is no log.
  --verify    COMMAND FILE prints one JSON object: "accepted" (a server would keep FILE), "counts" (findings by rule).
  --follow    COMMAND FILE [--reopened] FILE... prints what is new after each visit.
  --only      only the claims whose name matches the regular expression RE
  --details   the first difference of each claim that fails

README.md describes the lines. The last lines are the table of claims; exit code 0 when all of them hold, 1 when one
fails, 2 for a usage error. Standard library only.
"""

import argparse
import json
import os
import re
import shlex
import subprocess
import sys
import tempfile
from collections import namedtuple

HERE = os.path.dirname(os.path.abspath(__file__))
SECONDS = 60  # for one run of a program
LEFT_TO_THE_PROGRAM = ("cursor", "label", "host", "late")  # fields of a message that no claim is about
Claim = namedtuple("Claim", "kind name about problem")  # problem: empty when the claim holds


class Refused(Exception):
    """What the program did cannot be judged further."""


def run(command, arguments):
    """The program's exit code and its lines as objects."""
    try:
        outcome = subprocess.run([*shlex.split(command), *arguments], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                                 timeout=SECONDS, check=False)
    except subprocess.TimeoutExpired as late:
        raise Refused("has not ended after %d s" % SECONDS) from late
    if outcome.returncode < 0 or outcome.returncode > 125:
        raise Refused("crashed (exit code %d)" % outcome.returncode)
    lines = []
    for number, line in enumerate(outcome.stdout.splitlines(), 1):
        try:
            value = json.loads(line.decode("utf-8"))
        except ValueError as problem:
            raise Refused("line %d of its output is no JSON in UTF-8: %s" % (number, problem)) from problem
        if not isinstance(value, dict):
            raise Refused("line %d of its output is no JSON object" % number)
        lines.append({key: each for key, each in value.items() if key not in LEFT_TO_THE_PROGRAM})
    return outcome.returncode, lines


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
        return "shows messages of a file that is no log" if lines else ""
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


def judge_losses(lines, wanted):
    """Bounds have to hold what was lost; where counters show it, they have to be that number. What else a follower
    says about a visit has to be right."""
    for seen, each in zip(lines, wanted):
        if "visit" not in each:
            continue
        for key in ("cleared", "rewritten"):
            if seen.get(key, each[key]) != each[key]:
                return "visit %d: %s is %s" % (each["visit"], key, json.dumps(seen[key]))
        lost, bounds, really = each["lost"], seen.get("lost"), each["really"]
        if not isinstance(bounds, dict) or not {"least", "most"} <= set(bounds):
            return "visit %d: no bounds of the loss" % each["visit"]
        if lost["least"] == lost["most"] and not same(bounds, lost):
            return "visit %d: lost %s, should be %s" % (each["visit"], json.dumps(bounds), json.dumps(lost))
        if really < bounds["least"] or (bounds["most"] is not None and really > bounds["most"]):
            return "visit %d: lost %s, really %d" % (each["visit"], json.dumps(bounds), really)
    return ""


def judge_follower(command, trace, path, wanted):
    with tempfile.TemporaryDirectory() as directory:
        arguments = []
        with open(path, "rb") as stream:
            for number, copy in enumerate(trace["copies"]):
                stream.seek(copy["offset"])
                arguments += ["--reopened"] if copy["reopened"] else []
                arguments.append(os.path.join(directory, "%02d.dat" % number))
                with open(arguments[-1], "wb") as file:
                    file.write(stream.read(copy["size"]))
        code, lines = run(command, arguments)
    if code != 0:
        return "exit code %d" % code

    def without_losses(each):
        return {"visit": each["visit"]} if "visit" in each else each

    problem = difference([without_losses(each) for each in lines], [without_losses(each) for each in wanted])
    return problem or judge_losses(lines, wanted)


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


def main():
    parser = argparse.ArgumentParser(usage=__doc__.split("\n\n")[1].strip(), add_help=False)
    parser.add_argument("-h", "--help", action="store_true")
    for option in ("--read", "--verify", "--follow", "--only"):
        parser.add_argument(option, default="")
    parser.add_argument("--details", action="store_true")
    chosen = parser.parse_args()
    if chosen.help:
        print(__doc__)
        return 0
    claims = []
    for kind, command, folder, judge in (("read", chosen.read, "samples", judge_reader),
                                         ("verify", chosen.verify, "samples", judge_verifier),
                                         ("follow", chosen.follow, "traces", judge_follower)):
        if command:
            claims += claims_of(kind, command, folder, judge, chosen.only)
    if not claims:
        parser.error("nothing to judge")
    return print_table(claims, chosen.details)


if __name__ == "__main__":
    sys.exit(main())
