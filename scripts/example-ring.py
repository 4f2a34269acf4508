#!/usr/bin/env python3
"""Builds the example log file of docs/log_file_format.md and the example records of docs/pipe_protocol.md from those
documents alone.

The ring holds four messages; five are submitted. The documents contain the output of this program for NAME between
the marks

    <!-- example-ring: NAME -->  ...  <!-- example-ring: end -->

so that the documents stay in agreement with the layouts they describe:

    example-ring.py                          print everything
    example-ring.py --state NAME             print one state or record
    example-ring.py --check FILE             exit 1 unless every marked block of FILE equals the output
    example-ring.py --update FILE            replace the marked blocks of FILE by the output
    example-ring.py --write FILE [--state N] write the bytes of a state or record (default: five) to FILE

States: "five" after five messages in time order; "late" after a sixth message that is dated earlier than two of them;
"burst" when, instead of the sixth, as many messages as the ring holds arrive within one flush. Records: "submit",
the request that submits the fifth message; "done", its reply; "settings", the reply to a request for the settings.
Uses the standard library only.
"""

import argparse
import os
import struct
import sys
import zlib

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(os.path.dirname(os.path.dirname(os.path.abspath(__file__))), "examples"))
from reference_log import HEADER_SIZE, LOCK_NAME_SIZE, LOCK_NAMES, SLOT_SIZE, SLOTS_OFFSET, time_key  # noqa: E402
from reference_writer import Writer, body  # noqa: E402

CAPACITY = 4
ROLES = ("header", "read-wait", "write-wait")


def submitted(number, words, kind, source, text):
    return body(words, kind, source.encode("ascii"), text.encode("ascii"), b"origin-%d" % number, b"end%d" % number)


def at(minute, second, millisecond):
    return (2026, 11, 21, 8, minute, second, millisecond, 0)


FIRST_FLUSH = (
    (1, at(0, 0, 0), 0, "Camera", "Camera ready"),
    (2, at(0, 0, 250), 1, "Stage", "Homing"),
    (3, at(0, 1, 0), 0, "Camera", "Exposure 12 ms"),
)
SECOND_FLUSH = (
    (4, at(0, 1, 500), 2, "Laser", "Interlock open"),
    (5, at(0, 2, 125), 3, "Stage", "Axis Z stalled"),
)
LATE_FLUSH = ((6, at(0, 1, 200), 0, "Laser", "Warm"),)
BURST_FLUSH = tuple((number, at(0, number, 0), 0, "Stage", "Step %d" % number) for number in (6, 7, 8, 9))
STATES = {
    "five": (FIRST_FLUSH, SECOND_FLUSH),
    "late": (FIRST_FLUSH, SECOND_FLUSH, LATE_FLUSH),
    "burst": (FIRST_FLUSH, SECOND_FLUSH, BURST_FLUSH),
}


RECORD_SIZE = 1028


def record(code, body=b""):
    return (struct.pack("<I", code) + body).ljust(RECORD_SIZE, b"\0")


RECORDS = {
    "submit": record(3, submitted(*SECOND_FLUSH[1])),
    "done": record(11),
    "settings": record(14, struct.pack("<4I", 50000, 1000, 0x0B, 300)),
}
GROUPS = (frozenset(STATES), frozenset(RECORDS))


def build(state):
    if state in RECORDS:
        return RECORDS[state]
    writer = Writer(CAPACITY)
    for messages in STATES[state]:
        for message in messages:
            writer.submit(submitted(*message))
        writer.flush()
    return writer.image()


# The output is read back from the bytes, so a wrong offset shows in the text as well.

def field_lines(image, offset, size, label):
    """The bytes of one field, 16 a line; a long tail of zero bytes is given by its length."""
    raw = image[offset:offset + size]
    shown = raw
    rest = 0
    if size > 16:
        used = len(raw.rstrip(b"\0"))
        rest = size - used
        shown = raw[:used]
    lines = []
    for start in range(0, len(shown), 16):
        part = " ".join("%02X" % byte for byte in shown[start:start + 16])
        lines.append("0x%04X  %-47s" % (offset + start, part))
    if rest:
        lines.append("0x%04X  %-47s" % (offset + size - rest, "00 x %d" % rest))
    lines[0] += "  " + label
    return [line.rstrip() for line in lines]


def text_of(raw):
    return raw.split(b"\0", 1)[0].decode("ascii")


def stamp_of(words):
    return "%04d-%02d-%02d %02d:%02d:%02d.%03d" % words[:7]


HEADER_FIELDS = ((0, 4, "readCount"), (4, 1, "serverRunning"), (5, 3, None), (8, 4, "messageCount"),
                 (12, 4, "maxMessages"), (16, 4, "nextSlot"), (20, 4, None), (24, 8, "changeCount"),
                 (32, 8, "rewriteCount"), (40, 8, "nextSequence"))


def header_number(image, offset, size):
    return int.from_bytes(image[offset:offset + size], "little", signed=size == 4)


def print_header(image):
    out = []
    for offset, size, name in HEADER_FIELDS:
        label = "%s = %d" % (name, header_number(image, offset, size)) if name else "(padding)"
        out += field_lines(image, offset, size, label)
    return out


def header_summary(image):
    """Two lines that hold every field of the header; the padding is zero."""
    assert not any(image[5:8] + image[20:24])
    words = ["%s %d" % (name, header_number(image, offset, size)) for offset, size, name in HEADER_FIELDS if name]
    return ["header  " + "  ".join(words[:5]), "        " + "  ".join(words[5:])]


def print_slot(image, index):
    start = SLOTS_OFFSET + index * SLOT_SIZE
    raw = image[start:start + SLOT_SIZE]
    sequence, = struct.unpack_from("<Q", raw, 0)
    words = struct.unpack_from("<8h", raw, 16)
    kind, = struct.unpack_from("<I", raw, 32)
    out = ["slot %d at 240 + 560 x %d = %d" % (index, index, start)]
    out += field_lines(image, start, 8, "sequence = %d" % sequence)
    out += field_lines(image, start + 8, 8, "origin")
    out += field_lines(image, start + 16, 16, "timestamp = %s, spare %d" % (stamp_of(words), words[7]))
    out += field_lines(image, start + 32, 4, "type = %d" % kind)
    out += field_lines(image, start + 36, 257, "source = \"%s\"" % text_of(raw[36:293]))
    out += field_lines(image, start + 293, 257, "text = \"%s\"" % text_of(raw[293:550]))
    out += field_lines(image, start + 550, 4, "tail")
    out += field_lines(image, start + 554, 6, "(padding)")
    out.append("        time key = %d" % time_key(words))
    return out


def slot_summary(image, index):
    """Two lines that hold every field of a slot but its zero bytes."""
    start = SLOTS_OFFSET + index * SLOT_SIZE
    raw = image[start:start + SLOT_SIZE]
    words = struct.unpack_from("<8h", raw, 16)
    assert words[7] == 0 and raw[554:] == bytes(6)
    return ["slot %d  sequence %d  %s  key %d" % (index, struct.unpack_from("<Q", raw, 0)[0], stamp_of(words),
                                                  time_key(words)),
            "        origin \"%s\"  type %d  source \"%s\"  text \"%s\"  tail \"%s\"" % (
                text_of(raw[8:16]), struct.unpack_from("<I", raw, 32)[0], text_of(raw[36:293]),
                text_of(raw[293:550]), text_of(raw[550:554]))]


def walk(image):
    """The slots in ring order, which the ring takes for newest to oldest."""
    count, capacity, next_slot = struct.unpack_from("<iii", image, 8)
    return [(next_slot - i - 1) % capacity for i in range(count)]


def record_fields(name):
    """(offset, size, label) of the fields that the record's code defines, without the code itself."""
    image = RECORDS[name]
    if name == "submit":
        words = struct.unpack_from("<8h", image, 12)
        stamp = "timestamp = %04d-%02d-%02d %02d:%02d:%02d.%03d, spare %d" % words
        return [(4, 8, "origin"), (12, 16, stamp), (28, 4, "type = %d" % struct.unpack_from("<I", image, 28)),
                (32, 257, "source = \"%s\"" % text_of(image[32:289])),
                (289, 257, "text = \"%s\"" % text_of(image[289:546])), (546, 4, "tail")]
    if name == "settings":
        fields = ((4, "maxMessage"), (8, "devicePollRate"), (12, "typeFilter"), (16, "saveRate"))
        return [(offset, 4, "%s = %d" % (label, struct.unpack_from("<I", image, offset)[0])) for offset, label in fields]
    return []


def describe_record(name):
    image = RECORDS[name]
    out = field_lines(image, 0, 4, "code = %d" % struct.unpack_from("<I", image, 0))
    end = 4
    for offset, size, label in record_fields(name):
        assert offset == end
        out += field_lines(image, offset, size, label)
        end = offset + size
    assert not any(image[end:])
    rest = "0x%04X  %-47s  %s"
    meaning = "not defined by this code: ignore" if name in ("done", "settings") else "not examined"
    return out + [rest % (end, "%d bytes" % (RECORD_SIZE - end), meaning)]


def describe(state):
    if state in RECORDS:
        return describe_record(state)
    image = build(state)
    size_line = "%d bytes, CRC-32 %08X" % (len(image), zlib.crc32(image))
    out = print_header(image) if state == "five" else header_summary(image)
    first = 0
    if state == "five":
        for index, (role, name) in enumerate(zip(ROLES, LOCK_NAMES)):
            assert text_of(image[HEADER_SIZE + index * LOCK_NAME_SIZE:SLOTS_OFFSET]) == name
            out.append("0x%04X  lock name %d (%s) = \"%s\"" % (HEADER_SIZE + index * LOCK_NAME_SIZE, index, role, name))
        out += [""] + print_slot(image, 0)
        first = 1
    out.append("")
    for index in range(first, CAPACITY):
        out += slot_summary(image, index)
    return out + ["", "ring order: slots " + ", ".join(str(index) for index in walk(image)), size_line]


def blocks_of(document):
    """(name, first line, last line) of the contents of every marked block."""
    found = []
    name = None
    first = 0
    for number, line in enumerate(document):
        if line.startswith("<!-- example-ring: ") and line.endswith(" -->"):
            word = line[len("<!-- example-ring: "):-len(" -->")]
            if word == "end":
                if name is None:
                    raise SystemExit("line %d ends a block that has no beginning" % (number + 1))
                found.append((name, first, number))
                name = None
            else:
                if name is not None or word not in GROUPS[0] | GROUPS[1]:
                    raise SystemExit("line %d begins an unknown block" % (number + 1))
                name = word
                first = number + 1
    if name is not None:
        raise SystemExit("block %s has no end" % name)
    return found


def fenced(state):
    return ["```text"] + describe(state) + ["```"]


def read_lines(path):
    with open(path, encoding="utf-8") as stream:
        return stream.read().split("\n")


def check(path):
    document = read_lines(path)
    blocks = blocks_of(document)
    present = {name for name, _, _ in blocks}
    wanted = [group for group in GROUPS if group & present] or GROUPS
    missing = frozenset().union(*wanted) - present
    wrong = 0
    for name in sorted(missing):
        print("%s: block %s is missing" % (path, name))
        wrong += 1
    for name, first, last in blocks:
        expected = fenced(name)
        actual = document[first:last]
        if actual == expected:
            continue
        wrong += 1
        for index in range(max(len(actual), len(expected))):
            have = actual[index] if index < len(actual) else "(nothing)"
            want = expected[index] if index < len(expected) else "(nothing)"
            if have != want:
                print("%s:%d: block %s\n  has   %s\n  wants %s" % (path, first + index + 1, name, have, want))
                break
    if wrong == 0:
        print("%s: %d blocks agree" % (path, len(blocks)))
    return 1 if wrong else 0


def update(path):
    document = read_lines(path)
    for name, first, last in reversed(blocks_of(document)):
        document[first:last] = fenced(name)
    with open(path, "w", encoding="utf-8") as stream:
        stream.write("\n".join(document))
    return 0


def main():
    names = list(STATES) + list(RECORDS)
    parser = argparse.ArgumentParser(description="The examples of docs/log_file_format.md and docs/pipe_protocol.md.")
    parser.add_argument("--state", choices=names)
    action = parser.add_mutually_exclusive_group()
    action.add_argument("--check", metavar="FILE")
    action.add_argument("--update", metavar="FILE")
    action.add_argument("--write", metavar="FILE")
    arguments = parser.parse_args()
    if arguments.check:
        return check(arguments.check)
    if arguments.update:
        return update(arguments.update)
    if arguments.write:
        with open(arguments.write, "wb") as stream:
            stream.write(build(arguments.state or "five"))
        return 0
    for state in [arguments.state] if arguments.state else names:
        print(state + ":")
        print("\n".join(describe(state)) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
