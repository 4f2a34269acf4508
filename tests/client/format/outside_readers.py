#!/usr/bin/env python3
"""Has other programs read what tamlogctl writes, and compares what they found with the bytes of the log file.

usage: outside_readers.py READER --tamlogctl PROGRAM --nasty-log PROGRAM

READER: python (json, csv, tsv, raw), schema (jsonschema), jq, lnav, journal (systemd-journal-remote, journalctl),
rsyslog (rsyslogd), usage (mistakes in options). A program that is missing is a failure. Everything lives in a
directory of its own that is gone afterwards; nothing listens on a network port.
"""

import argparse
import csv
import io
import json
import os
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import time
from datetime import datetime, timezone

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "..")
SLOTS_OFFSET = 240
SLOT_SIZE = 560
LIMIT = 30  # seconds for one program


class Message:
    """One slot, read by the layout of docs/log_file_format.md."""

    def __init__(self, slot):
        self.slot = slot
        (self.seq, self.origin, *words, self.type, source, text, self.tail) = struct.unpack(
            "<Q8s8hI257s257s4s6x", slot)
        self.words = words
        self.source = source.split(b"\0", 1)[0]
        self.text = text.split(b"\0", 1)[0]

    def key(self):
        year, month, day, hour, minute, second, millisecond = self.words[:7]
        return ((((((year * 12 + month) * 31 + day) * 24 + hour) * 60 + minute) * 60 + second) * 1000
                + millisecond) % 2**64

    def time(self):
        """A datetime without zone; None when it is impossible."""
        year, month, day, hour, minute, second, millisecond = self.words[:7]
        try:
            return datetime(year, month, day, hour, minute, second, millisecond * 1000)
        except ValueError:
            return None

    def stamp(self, separator):
        moment = self.time()
        if moment is None:
            return "!" + ",".join(str(word) for word in self.words[:7])
        return moment.isoformat(sep=separator, timespec="milliseconds")


def replaced(raw):
    """UTF-8 with one U+FFFD for each byte that is none."""
    text = ""
    while raw:
        try:
            return text + raw.decode("utf-8")
        except UnicodeDecodeError as error:
            text += raw[:error.start].decode("utf-8") + "\ufffd"
            raw = raw[error.start + 1:]
    return text


def is_utf8(raw):
    return "\ufffd" not in replaced(raw)


def expect(condition, *what):
    if not condition:
        raise SystemExit("failed: " + " ".join(str(part) for part in what))


def expect_equal(found, wanted, what):
    expect(found == wanted, what, "\n  found ", repr(found), "\n  wanted", repr(wanted))


def tool(name, *folders):
    path = shutil.which(name, path=os.pathsep.join([os.environ.get("PATH", ""), "/usr/sbin", *folders]))
    expect(path, name, "is missing: scripts/install-packages.sh test installs it")
    return path


def run(*command, data=None, code=0, **more):
    done = subprocess.run(command, input=data, capture_output=True, timeout=LIMIT, check=False, **more)
    expect(done.returncode == code, " ".join(command), "ended with", done.returncode, done.stderr.decode(errors="replace"))
    return done.stdout


class Log:
    """The nasty messages in a file, and tamlogctl on it."""

    def __init__(self, options, folder, count=None):
        self.program = options.tamlogctl
        self.path = os.path.join(folder, "nasty-%s.dat" % count)
        run(options.nasty_log, self.path, *([] if count is None else [str(count)]))
        with open(self.path, "rb") as file:
            data = file.read()
        messages, = struct.unpack_from("<i", data, 8)
        slots = [data[SLOTS_OFFSET + i * SLOT_SIZE:][:SLOT_SIZE] for i in range(messages)]
        self.messages = sorted((Message(slot) for slot in slots), key=Message.key)

    def show(self, *arguments, code=0):
        return run(self.program, "show", "--file", self.path, *arguments, code=code)

    def labelled(self, *arguments):
        return run(self.program, "merge", "--label", "east=" + self.path, *arguments)

    def lines(self, *arguments):
        text = self.show(*arguments).decode("utf-8")
        expect(text.endswith("\n"), "the last line has no end")
        return text[:-1].split("\n")


def check_object(found, message):
    """One JSON object against the slot it was made from."""
    moment = message.time()
    expect_equal(found["time"], message.stamp("T") if moment else None, "time")
    expect_equal(found.get("time_words"), None if moment else message.words, "time_words")
    expect_equal((found["seq"], found["type"]), (message.seq, message.type), "numbers")
    for name, raw in (("source", message.source), ("text", message.text)):
        expect_equal(found[name], replaced(raw), name)
        expect_equal(found.get(name + "_hex"), None if is_utf8(raw) else raw.hex(), name + "_hex")
    expect_equal((found["origin"], found["tail"]), (message.origin.hex(), message.tail.hex()), "bytes")


def check_objects(found, log):
    expect_equal(len(found), len(log.messages), "number of messages")
    for one, message in zip(found, log.messages):
        check_object(one, message)


def tsv_bytes(field):
    """Takes back the escapes of one field of tsv."""
    raw = field.encode("utf-8")
    out = bytearray()
    at = 0
    while at < len(raw):
        if raw[at:at + 1] != b"\\":
            out.append(raw[at])
            at += 1
        elif raw[at + 1:at + 2] == b"x":
            out.append(int(raw[at + 2:at + 4], 16))
            at += 4
        else:
            out += {b"t": b"\t", b"n": b"\n", b"r": b"\r", b"\\": b"\\"}[raw[at + 1:at + 2]]
            at += 2
    return bytes(out)


def read_by_python(options, folder):
    log = Log(options, folder)
    empty = Log(options, folder, 0)
    check_objects([json.loads(line) for line in log.lines("-o", "json")], log)
    expect_equal(log.show("-o", "ndjson"), log.show("-o", "json"), "ndjson")
    check_objects(json.loads(log.show("-o", "json-array")), log)
    expect_equal(json.loads(empty.show("-o", "json-array")), [], "an empty array")

    rows = list(csv.reader(io.StringIO(log.show("-o", "csv").decode("utf-8"), newline="")))
    expect_equal(rows[0], ["time", "seq", "type", "source", "text", "cursor"], "csv head")
    expect_equal([row[:5] for row in rows[1:]],
                 [[m.stamp(" "), str(m.seq), str(m.type), replaced(m.source), replaced(m.text)]
                  for m in log.messages], "csv")
    cursors = [json.loads(line)["cursor"] for line in log.lines("-o", "json")]
    expect_equal([row[5] for row in rows[1:]], cursors, "cursors of csv")
    expect_equal(len(set(cursors)), len(log.messages), "cursors")
    expect_equal(empty.show("-o", "csv"), b"time,seq,type,source,text,cursor\n", "csv of an empty log")
    rows = list(csv.DictReader(io.StringIO(log.show("-o", "csv", "--fields", "text,seq").decode("utf-8"), newline="")))
    expect_equal([list(row.items()) for row in rows],
                 [[("text", replaced(m.text)), ("seq", str(m.seq))] for m in log.messages], "csv --fields")

    rows = [line.split("\t") for line in log.lines("-o", "tsv")]
    expect_equal([[row[0], row[1], tsv_bytes(row[2]), tsv_bytes(row[3])] for row in rows],
                 [[m.stamp(" "), str(m.type), m.source, m.text] for m in log.messages], "tsv")
    expect_equal(log.lines("-o", "tsv", "--fields", "cursor"), cursors, "cursors of tsv")
    expect_equal(log.show("-o", "raw"), b"".join(m.slot for m in log.messages), "raw")
    expect_equal(log.show("-o", "cat"), b"".join(m.text + b"\n" for m in log.messages), "cat")
    expect_equal(log.lines("-o", "template={seq}:{type}"), ["%d:%d" % (m.seq, m.type) for m in log.messages],
                 "template")
    read_options_by_python(log)


def read_options_by_python(log):
    """Zones, encodings and names, against what Python makes of the same bytes."""
    summer = {"TZ": "Europe/Berlin", "PATH": os.environ.get("PATH", "")}
    for zone, offset in (("utc", "Z"), ("-09:30", "-09:30"), ("local", "+01:00"), ("written", "")):
        lines = run(log.program, "show", "--file", log.path, "-o", "json", "--tz", zone, "-n", "all", env=summer)
        times = {one["seq"]: one["time"] for one in map(json.loads, lines.splitlines())}
        first = next(m for m in log.messages if m.seq == 4711)
        expect_equal(times[4711], first.stamp("T") + offset, "--tz " + zone)
    for name in ("latin-1", "windows-1250", "windows-1251", "windows-1252", "cp437", "cp850", "ascii"):
        codec = name.replace("windows-", "cp")
        for one, message in zip(map(json.loads, log.lines("-o", "json", "--encoding", name)), log.messages):
            wanted = message.text.decode(codec, errors="replace")
            expect_equal(one["text"], wanted, name)
            same = wanted.encode() == message.text
            expect_equal(one.get("text_hex"), None if same else message.text.hex(), name + " text_hex")
    one = json.loads(log.lines("-o", "json", "--type-names", "2=camera", "-s", "Camera")[0])
    expect_equal(list(one), ["time", "seq", "type", "label", "source", "text", "origin", "tail", "cursor"], "order of the fields")
    expect_equal(one["label"], "camera", "label")


def check_by_schema(options, folder):
    import jsonschema
    with open(os.path.join(ROOT, "docs", "schema", "message.schema.json"), encoding="utf-8") as file:
        schema = json.load(file)
    jsonschema.Draft202012Validator.check_schema(schema)
    validator = jsonschema.Draft202012Validator(schema)
    log = Log(options, folder)
    lines = log.lines("-o", "json")
    for more in (["--tz", "+02:00"], ["--tz", "utc", "--type-names", "0=info"], ["--encoding", "windows-1252"]):
        lines += log.lines("-o", "json", *more)
    for name in ("json.txt", "json-everything.txt", "json-fields.txt"):
        with open(os.path.join(ROOT, "tests", "golden", "formats", name), encoding="utf-8", newline="") as file:
            lines += file.read()[:-1].split("\n")
    for line in lines:
        validator.validate(json.loads(line))
    good = json.loads(lines[0])
    for change in ({"time": "yesterday"}, {"time": None}, {"type": "2"}, {"seq": -1}, {"tail": "xyz"}, {"extra": 1},
                   {"time_words": [0] * 8}, {"text_hex": "abc"}):
        expect(not validator.is_valid({**good, **change}), "the schema allows", change)
    for name in ("time", "seq", "type", "source", "text", "origin", "tail", "cursor"):
        expect(not validator.is_valid({key: value for key, value in good.items() if key != name}),
               "the schema misses nothing without", name)


def read_by_jq(options, folder):
    jq = tool("jq")
    log = Log(options, folder)
    made = run(jq, "--compact-output", ".", data=log.show("-o", "json"))
    check_objects([json.loads(line) for line in made.decode("utf-8")[:-1].split("\n")], log)
    check_objects(json.loads(run(jq, ".", data=log.show("-o", "json-array"))), log)
    expect_equal(run(jq, "length", data=Log(options, folder, 0).show("-o", "json-array")), b"0\n", "empty array")
    expect_equal(run(jq, "--raw-output", "select(.text_hex) | .seq", data=log.show("-o", "json")).split(),
                 [b"%d" % m.seq for m in log.messages if not is_utf8(m.text)], "texts and their bytes")


def read_by_lnav(options, folder):
    lnav = tool("lnav")
    formats = os.path.join(folder, "config", "formats", "tamlog")
    os.makedirs(formats)
    shutil.copy(os.path.join(ROOT, "share", "lnav", "tamlog.json"), formats)
    log = Log(options, folder)
    path = os.path.join(folder, "messages.json")
    with open(path, "wb") as file:
        file.write(log.show("-o", "json", "--type-names", "0=info,1=warn,3=err"))
    surroundings = {**os.environ, "HOME": folder, "TERM": "dumb"}
    config = os.path.join(folder, "config")
    run(lnav, "-I", config, "-C", env=surroundings)
    columns = "seq, type, label, source, log_body as text, log_level as level, log_time as time"
    made = json.loads(run(lnav, "-n", "-I", config, "-c", ";select %s from tamlog_json" % columns,
                          "-c", ":write-json-to -", path, env=surroundings))
    # lnav places a line by its time; it leaves out those that have none.
    wanted = [m for m in log.messages if m.time() and m.time().year >= 1970]
    found = {one["seq"]: one for one in made}
    labels = ("info", "warn", "T2", "err")
    levels = ("info", "warning", "info", "error")
    for message in wanted:
        one = found.get(message.seq)
        expect(one, "lnav did not find message", message.seq)
        expect_equal((one["type"], one["label"], one["level"]),
                     (message.type, labels[message.type], levels[message.type]), "type, label and level")
        expect_equal(one["source"], replaced(message.source), "source")
        expect_equal(one["text"], replaced(message.text), "text")
        expect_equal(one["time"], message.stamp(" "), "time")
    with open(path, "wb") as file:
        file.write(log.labelled("-o", "json"))
    made = json.loads(run(lnav, "-n", "-I", config, "-c", ";select distinct host from tamlog_json",
                          "-c", ":write-json-to -", path, env=surroundings))
    expect_equal(made, [{"host": "east"}], "hosts")


def read_by_journal(options, folder):
    remote = tool("systemd-journal-remote", "/usr/lib/systemd", "/lib/systemd")
    journalctl = tool("journalctl")
    log = Log(options, folder)
    for number, zone in enumerate(([], ["--tz", "+02:00"])):
        path = os.path.join(folder, "made%d.journal" % number)
        run(remote, "--output", path, "-", data=log.show("-o", "export", *zone))
        run(journalctl, "--verify", "--file", path)
        made = run(journalctl, "--file", path, "--output", "export", "--no-pager")
        check_journal(parse_export(made), log, 7200 if zone else 0)
    text = run(journalctl, "--file", path, "--output", "cat", "--no-pager", "SYSLOG_IDENTIFIER=Camera")
    expect_equal(text, b"Exposure 12 ms\n", "found by its source")
    path = os.path.join(folder, "labelled.journal")
    run(remote, "--output", path, "-", data=log.labelled("-o", "export"))
    text = run(journalctl, "--file", path, "--output", "cat", "--no-pager", "_HOSTNAME=east", "SYSLOG_IDENTIFIER=Camera")
    expect_equal(text, b"Exposure 12 ms\n", "found by its host")


def parse_export(data):
    """The entries of the journal's export format, with bytes as values."""
    entries = []
    entry = {}
    while data:
        line, data = data.split(b"\n", 1)
        if not line:
            entries.append(entry)
            entry = {}
        elif b"=" in line:
            name, value = line.split(b"=", 1)
            entry[name.decode("ascii")] = value
        else:
            length, = struct.unpack("<Q", data[:8])
            entry[line.decode("ascii")] = data[8:8 + length]
            data = data[8 + length + 1:]
    return entries + ([entry] if entry else [])


def check_journal(entries, log, offset):
    found = {int(entry["TAMLOG_SEQ"]): entry for entry in entries}
    expect_equal(len(entries), len(log.messages), "number of entries")
    for message in log.messages:
        entry = found[message.seq]
        expect_equal(entry["MESSAGE"], message.text, "MESSAGE")
        expect_equal(entry["SYSLOG_IDENTIFIER"], message.source, "SYSLOG_IDENTIFIER")
        expect_equal(entry["TAMLOG_TYPE"], b"%d" % message.type, "TAMLOG_TYPE")
        expect_equal(entry["TAMLOG_ORIGIN"], message.origin.hex().encode("ascii"), "TAMLOG_ORIGIN")
        moment = message.time()
        if moment and moment.year >= 1970:
            since = moment.replace(tzinfo=timezone.utc) - datetime(1970, 1, 1, tzinfo=timezone.utc)
            micros = (since.days * 86400 + since.seconds - offset) * 1000000 + since.microseconds
            expect_equal(int(entry["__REALTIME_TIMESTAMP"]), micros, "time")
        expect(moment or b"!" in entry["TAMLOG_TIME"], "an impossible time is not reported")


def wait_until(what, condition):
    end = time.monotonic() + LIMIT
    while not condition():
        expect(time.monotonic() < end, what, "did not happen in %d s" % LIMIT)
        time.sleep(0.02)


RSYSLOG_CONFIG = """
global(workDirectory="{folder}" maxMessageSize="8k" parser.escapeControlCharactersOnReceive="off")
module(load="imptcp")
input(type="imptcp" path="{folder}/in" ruleset="all")
template(name="parts" type="list" option.jsonf="on") {{
  property(outname="time" name="timestamp" dateFormat="rfc3339" format="jsonf")
  property(outname="app" name="app-name" format="jsonf")
  property(outname="host" name="hostname" format="jsonf")
  property(outname="pri" name="pri" format="jsonf")
  property(outname="version" name="protocol-version" format="jsonf")
  property(outname="id" name="msgid" format="jsonf")
  property(outname="sd" name="structured-data" format="jsonf")
  property(outname="msg" name="msg" format="jsonf")
}}
ruleset(name="all") {{ action(type="omfile" file="{folder}/out" template="parts") }}
"""


def through_rsyslog(program, folder, data, count):
    """Sends lines to an rsyslogd of our own and returns what it made of them."""
    config = os.path.join(folder, "rsyslog.conf")
    with open(config, "w", encoding="utf-8") as file:
        file.write(RSYSLOG_CONFIG.format(folder=folder))
    out = os.path.join(folder, "out")

    def received():
        if not os.path.exists(out):
            return []
        with open(out, "rb") as file:
            return file.read().split(b"\n")[:-1]

    daemon = subprocess.Popen([program, "-n", "-f", config, "-i", os.path.join(folder, "pid")],
                              stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    try:
        wait_until("the start of rsyslogd", lambda: os.path.exists(os.path.join(folder, "in")))
        with socket.socket(socket.AF_UNIX) as peer:
            peer.connect(os.path.join(folder, "in"))
            peer.sendall(data)
        wait_until("the reception by rsyslogd", lambda: len(received()) >= count)
    finally:
        daemon.terminate()
        try:
            daemon.communicate(timeout=LIMIT)
        except subprocess.TimeoutExpired:
            daemon.kill()
    return [json.loads(line) for line in received()]


def read_by_rsyslog(options, folder):
    program = tool("rsyslogd")
    log = Log(options, folder)
    data = log.labelled("-o", "rfc5424", "--tz", "+02:00", "--type-names", "3=err")
    made = through_rsyslog(program, folder, data, len(log.messages))
    expect_equal(len(made), len(log.messages), "number of lines")
    for one, message in zip(made, log.messages):
        expect_equal((one["version"], one["pri"], one["id"]),
                     ("1", "11" if message.type == 3 else "14", "err" if message.type == 3 else "T%d" % message.type),
                     "version, priority and id")
        expect_equal(one["host"], "east", "host")
        plain = message.source.isascii() and b" " not in message.source and 0 < len(message.source) <= 48
        if plain:
            expect_equal(one["app"], message.source.decode("ascii"), "source")
        expect(plain == (' source="' not in one["sd"]), "the whole source is missing:", one["sd"])
        expect(('[timeQuality tzKnown="%d"]' % bool(message.time())) in one["sd"], one["sd"])
        expect(('[tamlog@32473 type="%d" seq="%d" origin="%s" tail="%s"' % (
            message.type, message.seq, message.origin.hex(), message.tail.hex())) in one["sd"], one["sd"])
        if message.time() and message.time().year >= 1970:
            expect_equal(one["time"], message.stamp("T") + "+02:00", "time")
        if is_utf8(message.text) and replaced(message.text).isprintable() and message.text:
            expect_equal(one["msg"], "\ufeff" + replaced(message.text), "text")


MISTAKES = (
    (["-o", "xml"], "-o 'xml': expected one of short, full, cat"),
    (["-o", "template"], "give the line's text as well"),
    (["-o", "template={when}"], "unknown field {when}; the fields are time, seq"),
    (["-o", "template={time"], "write {{ for a brace"),
    (["-o", "template=time}"], "write }} for a brace"),
    (["-o", "json", "--fields", "time,when"], "--fields 'time,when': unknown field 'when'; the fields are time"),
    (["-o", "json", "--fields", "time,time"], "name it once"),
    (["--fields", "time"], "--fields 'time': add -o json, json-array, csv or tsv"),
    (["-o", "template={time}", "--fields", "time"], "a template names its fields itself"),
    (["--tz", "Berlin"], "--tz 'Berlin': expected written, local, utc, or an offset"),
    (["--tz", "+25:00"], "--tz '+25:00'"),
    (["--type-names", "4=x"], "expected 0=info,1=warn"),
    (["--encoding", "utf-16"], "--encoding 'utf-16': expected one of utf-8, ascii"),
)


def check_usage(options, folder):
    log = Log(options, folder)
    for arguments, advice in MISTAKES:
        done = subprocess.run([options.tamlogctl, "show", "--file", log.path, *arguments], capture_output=True,
                              timeout=LIMIT, check=False)
        reported = done.stderr.decode("utf-8")
        expect_equal(done.returncode, 2, "exit code of " + " ".join(arguments))
        expect_equal(done.stdout, b"", "output of " + " ".join(arguments))
        expect(advice in reported and reported.count("\n") == 1, arguments, "said", reported)
    # A terminal gets no binary, and no control character of a message whatever the format is.
    for form in ("raw", "export", "cat", "csv", "json", "rfc5424", "template={source}{text}"):
        code, shown = on_a_terminal([options.tamlogctl, "show", "--file", log.path, "--no-pager", "--color", "never", "-o",
                                     form])
        expect_equal(code, 2 if form == "raw" else 0, "exit code of %s on a terminal" % form)
        expect(all(byte >= 0x20 or byte in b"\r\n\t" for byte in shown) and b"\x7f" not in shown,
               form, "sends control characters to a terminal")


def on_a_terminal(command):
    """Runs a command with a terminal as its standard output; returns its exit code and what the terminal got."""
    import pty
    master, slave = pty.openpty()
    with subprocess.Popen(command, stdout=slave, stderr=subprocess.DEVNULL, stdin=subprocess.DEVNULL) as process:
        os.close(slave)
        shown = b""
        while True:
            try:
                part = os.read(master, 65536)
            except OSError:  # how a terminal says that nobody writes to it any more
                break
            if not part:
                break
            shown += part
        os.close(master)
        return process.wait(timeout=LIMIT), shown


READERS = {"python": read_by_python, "schema": check_by_schema, "jq": read_by_jq, "lnav": read_by_lnav,
           "journal": read_by_journal, "rsyslog": read_by_rsyslog, "usage": check_usage}


def main():
    parser = argparse.ArgumentParser(description="Other programs read what tamlogctl writes.")
    parser.add_argument("reader", choices=sorted(READERS))
    parser.add_argument("--tamlogctl", required=True)
    parser.add_argument("--nasty-log", required=True)
    options = parser.parse_args()
    with tempfile.TemporaryDirectory(prefix="tamlog-") as folder:
        READERS[options.reader](options, folder)
    return 0


if __name__ == "__main__":
    sys.exit(main())
