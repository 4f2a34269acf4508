#!/usr/bin/env python3
"""Makes the sample log files of conformance/samples, what a reader must show of each, and what a verifier must find.

    make_samples.py DIRECTORY            writes all samples into DIRECTORY
    make_samples.py --check DIRECTORY    exit 1 unless DIRECTORY holds exactly these samples, byte by byte

A sample NAME is three files. NAME.dat is the log. NAME.jsonl holds the messages that a reader shows, oldest first.
NAME.json is its verdict; README.md explains the words. Uses the standard library and examples/ only.
"""

import json
import os
import struct
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(ROOT, "examples"))
from reference_log import (HEADER_FORMAT, LOCK_NAME_SIZE, SLOT_SIZE, SLOTS_OFFSET, Message,  # noqa: E402
                           header_of, in_order_of_time, json_line, ring_of)
from reference_writer import Writer, body  # noqa: E402

SAMPLES = {}


def sample(about, reader="shows", server="keeps", **findings):
    """Registers the function below it. The function returns the bytes, or the bytes and the messages to be shown."""
    def register(make):
        name = make.__name__.replace("_", "-")
        SAMPLES[name] = (make, about, reader, server, {rule.replace("_", "-"): n for rule, n in findings.items()})
        return make
    return register


def at(second, millisecond=0):
    return (2026, 11, 21, 8, second // 60, second % 60, millisecond)


def step(number, second=None):
    """The message `number`; its time is its number unless stated."""
    return body(at(number if second is None else second), number % 4, b"Stage", b"Step %d" % number,
                b"origin%02d" % number, b"end%d" % (number % 10))


def log(capacity, *flushes):
    """A closed log: each flush is a list of messages, or "clear"."""
    writer = Writer(capacity)
    writer.server_running = 0
    for messages in flushes:
        if messages == "clear":
            writer.clear()
            continue
        for each in messages:
            writer.submit(each)
        writer.flush()
    return bytearray(writer.image())


def steps(first, last):
    return [step(number) for number in range(first, last + 1)]


def one_by_one(first, last):
    return [[step(number)] for number in range(first, last + 1)]


def change_header(image, **numbers):
    header = header_of(image)._replace(**numbers)
    struct.pack_into(HEADER_FORMAT, image, 0, *header)
    return image


def slot_offset(slot):
    return SLOTS_OFFSET + SLOT_SIZE * slot


def change_slot(image, slot, offset, replacement):
    image[slot_offset(slot) + offset:slot_offset(slot) + offset + len(replacement)] = replacement
    return image


def swap(image, one, other):
    first, second = slot_offset(one), slot_offset(other)
    image[first:first + SLOT_SIZE], image[second:second + SLOT_SIZE] = (
        image[second:second + SLOT_SIZE], image[first:first + SLOT_SIZE])
    return image


def document_example(*flushes):
    writer = Writer(4)
    for messages in flushes:
        for number, when, kind, source, text in messages:
            writer.submit(body(when, kind, source, text, b"origin-%d" % number, b"end%d" % number))
        writer.flush()
    return writer.image()


FIVE = (((1, at(0), 0, b"Camera", b"Camera ready"), (2, at(0, 250), 1, b"Stage", b"Homing"),
         (3, at(1), 0, b"Camera", b"Exposure 12 ms")),
        ((4, at(1, 500), 2, b"Laser", b"Interlock open"), (5, at(2, 125), 3, b"Stage", b"Axis Z stalled")))


@sample("the first example ring of docs/log_file_format.md", not_closed=1)
def example_five():
    return document_example(*FIVE)


@sample("the example ring after a late message", not_closed=1)
def example_late():
    return document_example(*FIVE, [(6, at(1, 200), 0, b"Laser", b"Warm")])


@sample("the example ring after a burst: a whole block in reverse", server="empties", not_closed=1, reversed_block=1)
def example_burst():
    return document_example(*FIVE, [(n, at(n), 0, b"Stage", b"Step %d" % n) for n in (6, 7, 8, 9)])


@sample("a new log without messages")
def new_log():
    return log(4)


@sample("a clear: the slots still hold bytes, and none is a message")
def cleared():
    return log(4, *one_by_one(1, 3), "clear")


@sample("messages after a clear: the numbers go on")
def filled_after_clear():
    return log(4, *one_by_one(1, 3), "clear", *one_by_one(4, 5))


@sample("a ring of one slot")
def one_slot():
    return log(1, *one_by_one(1, 3))


@sample("a ring that is not full: unused slots after the messages")
def half_full():
    return log(6, steps(1, 3))


@sample("a full ring that has gone round: the oldest message is in the middle of the file")
def gone_round():
    return log(6, *one_by_one(1, 9))


@sample("a full ring whose next slot is 0")
def next_slot_0():
    return log(4, *one_by_one(1, 8))


@sample("a block of which later messages have overwritten the newest end: it begins in the middle of the file",
        server="empties", reversed_block=1)
def block_overwritten_in_part():
    return log(6, *one_by_one(1, 2), steps(11, 16), *one_by_one(17, 18))


@sample("a block with equal times: messages of one time keep the order in which they came", server="empties",
        reversed_block=1)
def block_of_equal_times():
    return log(6, [step(n, 10 + n // 3) for n in range(1, 7)])


@sample("a block of one time: the numbers, which do not rise, show that it is in reverse")
def burst_of_one_time():
    return log(5, [step(9, 1)], [step(1, 10)], [step(n, 10) for n in range(2, 6)] + [step(6, 9)])


@sample("a block of one time with appended messages of that time: only the rest of the block is turned")
def burst_of_one_time_and_more():
    return log(5, [step(n, 10) for n in range(1, 6)], [step(6, 10)], [step(7, 10)])


@sample("a block of which appended messages have left two", server="empties", reversed_block=1)
def block_of_two_left():
    return log(6, steps(1, 6), *one_by_one(7, 10))


@sample("mixed order: the rest of a block, both ends overwritten, and messages that stand twice", server="empties",
        reversed_block=1, duplicate=1)
def mixed():
    return log(8, *one_by_one(1, 3), steps(11, 18), [step(30)], [step(20, 15)])


@sample("a message that was inserted before others: those after it have new numbers")
def inserted():
    return log(6, *one_by_one(1, 5), [step(9, 3)])


@sample("messages that were submitted twice: both are shown", duplicate=2)
def equal_messages():
    return log(6, [step(1), step(2), step(2), step(3)], [step(3)])


@sample("a time that equals another in a ring in the usual order: the order of arrival stays")
def equal_times():
    return log(6, [step(1, 5), step(2, 5)], [step(3, 5)], [step(4, 4)])


@sample("stamps that are no dates are shown as they are; the last one, of the year -1, sorts as newest",
        impossible_date=14)
def impossible_stamps():
    stamps = ((2024, 2, 29, 0, 0, 0, 0, 0), (2023, 2, 29, 0, 0, 0, 0, 0), (1900, 2, 29, 0, 0, 0, 0, 0),
              (2000, 2, 29, 23, 59, 59, 999, 0), (2026, 0, 1, 0, 0, 0, 0, 0), (2026, 13, 1, 0, 0, 0, 0, 0),
              (2026, 4, 31, 0, 0, 0, 0, 0), (2026, 4, 0, 0, 0, 0, 0, 0), (2026, 4, 1, -3, 0, 0, 0, 0),
              (2026, 4, 1, 24, 0, 0, 0, 0), (2026, 4, 1, 23, 60, 0, 0, 0), (2026, 4, 1, 23, 59, 60, 0, 0),
              (2026, 4, 1, 23, 59, 59, 1000, 0), (0, 1, 1, 0, 0, 0, 0, 0), (10000, 1, 1, 0, 0, 0, 0, 0),
              (9999, 12, 31, 23, 59, 59, 999, 0), (1, 1, 1, 0, 0, 0, 0, 0), (2026, 4, 1, 12, 0, 0, 0, -1),
              (-1, 6, 30, 12, 0, 0, 0, 7))
    return log(20, [body(stamp, 0, b"Clock", b"stamp %d" % i) for i, stamp in enumerate(stamps)])


@sample("texts in several encodings, bytes that are none, and characters that control a terminal")
def encodings():
    texts = (b"", b"plain", b'"quoted" \\ back', b"tab\tand\nline\r", "K\u00fchlung 20 \u00b0C".encode(),
             "K\u00fchlung 20 \u00b0C".encode("cp1252"), "K\u00fchlung 20 \u00b0C".encode("cp437"),
             "\u6e29\u5ea6 \u8b66\u544a \U0001f525".encode(), "\u6e29\u5ea6".encode("shift_jis"),
             b"lone \x80 and \xff", b"overlong \xc0\x80 \xe0\x80\x80", b"surrogate \xed\xa0\x80",
             b"beyond \xf4\x90\x80\x80",
             b"cut \xe2\x82", b"cut \xe2\x82 in between", b"\x01\x1b[31mred\x7f", "\u202eturned \u2028 \x85".encode(),
             "real \ufffd".encode(), "real \ufffd and \u20ac".encode() + b"\xff", b"\xef\xbb\xbfmark",
             b"x" * 255 + b"\xc3")
    return log(24, [body(at(i), 0, b"S\xfcd" if i % 2 else b"S\xc3\xbcd", text) for i, text in enumerate(texts)])


@sample("texts that fill their fields, and bytes after the end of shorter ones, in the padding and in unused slots")
def full_fields():
    image = log(5, [body(at(1), 0, b"s" * 256, b"t" * 256, b"\xff" * 8, b"\xff" * 4), step(2), step(3)])
    change_slot(image, 1, 36 + 6, b"after the source's end")
    change_slot(image, 2, 293 + 7, b"after the text's end")
    change_slot(image, 2, 554, b"\xaa" * 6)
    change_slot(image, 4, 0, b"\xbb" * SLOT_SIZE)
    image[5:8] = b"\xcc" * 3
    image[20:24] = b"\xdd" * 4
    return image


@sample("large numbers: a message's number of 64 bits")
def large_numbers():
    image = log(4, steps(1, 2))
    change_slot(image, 1, 0, struct.pack("<Q", 2**64 - 2))
    return change_header(image, changeCount=2**63, rewriteCount=2**32, nextSequence=2**64 - 1)


@sample("a copy of a live file, or a server that ended uncleanly", not_closed=1)
def not_closed():
    return change_header(log(4, steps(1, 3)), serverRunning=1)


@sample("readers were inside when the copy was made", readers_inside=1)
def readers_inside():
    return change_header(log(4, steps(1, 3)), readCount=2)


@sample("the number of readers has gone below 0", readers_inside=1)
def readers_below_0():
    return change_header(log(4, steps(1, 3)), readCount=-1)


@sample("a lock name without its zero byte", lock_names=1)
def lock_names():
    image = log(4, steps(1, 3))
    image[48 + LOCK_NAME_SIZE:48 + 2 * LOCK_NAME_SIZE] = b"n" * LOCK_NAME_SIZE
    return image


@sample("two messages with one number, and one that was not assigned yet", sequence=2)
def sequence():
    image = log(6, *one_by_one(1, 5))
    change_slot(image, 2, 0, struct.pack("<Q", 1))
    return change_slot(image, 4, 0, struct.pack("<Q", 99))


@sample("a short file: it ends after the last message, and a server lengthens it", reader="reports",
        empty_slots_gone=1)
def short_file():
    return log(20, steps(1, 3))[:slot_offset(3)]


@sample("bytes after the last slot: a server cuts them off", reader="reports", bytes_after_end=1)
def bytes_after_end():
    return log(4, steps(1, 3)) + b"\0" * 1000


@sample("a file without bytes: not a log; a server creates one in it", reader="refuses", server="empties",
        empty_file=1)
def empty_file():
    return b"", []


@sample("a file that ends within its header", reader="reports", server="empties", header_complete=1)
def header_complete():
    return log(12, steps(1, 12))[:100], []


@sample("rule 1: messageCount is negative", reader="reports", server="empties", not_negative=1)
def negative_message_count():
    return change_header(log(4, steps(1, 3)), messageCount=-1), steps(1, 3)


@sample("rule 1: maxMessages is negative", reader="reports", server="empties", not_negative=1, inside_ring=2)
def negative_max_messages():
    return change_header(log(4, steps(1, 3)), maxMessages=-4), steps(1, 3)


@sample("rule 1: nextSlot is negative", reader="reports", server="empties", not_negative=1)
def negative_next_slot():
    return change_header(log(4, steps(1, 3)), nextSlot=-1), steps(1, 3)


@sample("rule 2: more messages than slots", reader="reports", server="empties", inside_ring=1)
def more_messages_than_slots():
    return change_header(log(4, steps(1, 3)), messageCount=5), steps(1, 3)


@sample("rule 2: nextSlot is no slot", reader="reports", server="empties", inside_ring=1)
def next_slot_outside():
    return change_header(log(4, steps(1, 3)), nextSlot=4), steps(1, 3)


@sample("rule 2: a ring without slots", reader="reports", server="empties", inside_ring=2)
def no_slots():
    return change_header(log(4, steps(1, 3)), maxMessages=0), steps(1, 3)


@sample("rule 2: a slot with a message is not in the file", reader="reports", server="empties", slots_in_file=1)
def slots_in_file():
    return log(24, *one_by_one(1, 30))[:slot_offset(16)], steps(7, 16) + steps(25, 30)


@sample("a capacity that no file has", reader="reports", server="empties", slots_in_file=1)
def capacity_of_2_gigabytes():
    image = change_header(log(4, *one_by_one(1, 4)), maxMessages=2**31 - 1, messageCount=2**31 - 1, nextSlot=0)
    return image, steps(1, 4)


@sample("rule 4: two neighbours have changed places", reader="reports", server="empties", newest_first=1)
def newest_first():
    return swap(log(8, *one_by_one(1, 6)), 3, 4)


@sample("rule 5: a text without a zero byte", reader="reports", server="empties", text_ends=1)
def text_ends():
    return change_slot(log(4, steps(1, 3)), 1, 293, b"t" * 257)


@sample("rule 5: a source without a zero byte", reader="reports", server="empties", source_ends=1)
def source_ends():
    return change_slot(log(4, steps(1, 3)), 1, 36, b"s" * 257)


@sample("rule 6: the type 4", reader="reports", server="empties", known_type=1)
def known_type():
    return change_slot(log(4, steps(1, 3)), 1, 32, struct.pack("<I", 4))


@sample("rule 6: a type that is -1 if it is taken as signed", reader="reports", server="empties", known_type=1)
def negative_type():
    return change_slot(log(4, steps(1, 3)), 1, 32, struct.pack("<i", -1))


@sample("bytes are missing inside slot 2: the slots after it begin 10 bytes earlier", reader="notices",
        server="empties", shifted_slots=1)
def shifted_slots():
    image = log(6, steps(1, 5))
    del image[slot_offset(2) + 300:slot_offset(2) + 310]
    return image, steps(1, 2) + steps(4, 5)


@sample("a second log begins after the end of the first one; a server cuts it off", reader="reports", another_log=1)
def another_log():
    return log(4, steps(1, 3)) + log(4, steps(11, 13)), steps(1, 3) + steps(11, 13)


def found_by_bytes(image, submitted):
    """The message with these bytes, wherever it is; its number stands in front of it."""
    place = bytes(image).index(submitted)
    return Message(None, struct.unpack_from("<Q", image, place - 8)[0], submitted)


def files_of(name):
    make, about, reader, server, findings = SAMPLES[name]
    made = make()
    if isinstance(made, tuple):
        image, bodies = made
        messages = [found_by_bytes(image, each) for each in bodies]
    else:
        image = made
        messages = in_order_of_time(ring_of(image), header_of(image).maxMessages)
    capacity = header_of(image).maxMessages if len(image) >= SLOTS_OFFSET else 4
    verdict = {"about": about, "capacity": capacity if 0 < capacity < 1000 else 4, "reader": reader,
               "server": server, "findings": findings}
    lines = "".join(json_line(message) + "\n" for message in messages)
    return {name + ".dat": bytes(image), name + ".jsonl": lines.encode("ascii"),
            name + ".json": (json.dumps(verdict, indent=1) + "\n").encode("ascii")}


def all_files():
    files = {}
    for name in SAMPLES:
        files.update(files_of(name))
    return files


def check(directory, files):
    wrong = sorted(set(os.listdir(directory)) ^ set(files))
    for name in sorted(set(files) - set(wrong)):
        with open(os.path.join(directory, name), "rb") as stream:
            if stream.read() != files[name]:
                wrong.append(name)
    for name in wrong:
        print("%s is not what %s makes" % (os.path.join(directory, name), os.path.basename(__file__)))
    return 1 if wrong else 0


def write(directory, files):
    os.makedirs(directory, exist_ok=True)
    for name, content in files.items():
        with open(os.path.join(directory, name), "wb") as stream:
            stream.write(content)
    return 0


def run(arguments, all_files, usage):
    """Writes the files into a directory, or compares them with it. Returns the exit code."""
    options = [each for each in arguments if each.startswith("-")]
    if len(arguments) != 1 + len(options) or options not in ([], ["--check"]) or arguments[-1] in options:
        print(usage, file=sys.stderr)
        return 2
    try:
        return (check if options else write)(arguments[-1], all_files())
    except OSError as problem:
        print("%s: %s" % (os.path.basename(sys.argv[0]), problem), file=sys.stderr)
        return 2


if __name__ == "__main__":
    sys.exit(run(sys.argv[1:], all_files, __doc__))
