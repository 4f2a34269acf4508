"""Reads the bytes of a log file as docs/log_file_format.md describes them.

Written to be read: every function is a paragraph of the document. Standard library only.

    reference_log.py FILE      shows the messages as JSON lines, oldest first

Exit code 0, 2 when FILE cannot be read, 7 when something is damaged (the rest is shown), 9 when FILE is not a log.
"""

import json
import struct
import sys
from collections import namedtuple

HEADER_FORMAT = "<iB3xiii4xQQQ"
HEADER_SIZE = 48
LOCK_NAME_SIZE = 64
LOCK_NAMES = ("Global\\TamLogServiceFileHeaderMutex", "Global\\TamLogServiceReadWaitEvent",
              "Global\\TamLogServiceWriteWaitEvent")
SLOTS_OFFSET = HEADER_SIZE + 3 * LOCK_NAME_SIZE
BODY_FORMAT = "<8s8hI257s257s4s"  # origin, timestamp, type, source, text, tail
BODY_SIZE = 546
SLOT_SIZE = 560
TYPES = 4

Header = namedtuple("Header", "readCount serverRunning messageCount maxMessages nextSlot changeCount rewriteCount "
                              "nextSequence")
Message = namedtuple("Message", "slot sequence body")  # body: the sender's 546 bytes
Fields = namedtuple("Fields", "origin timestamp type source text tail")


class NoLog(Exception):
    """The header cannot be one of a log, or the ring is not in the file."""


def header_of(image):
    if len(image) < SLOTS_OFFSET:
        raise NoLog("the file ends within its header")
    return Header._make(struct.unpack_from(HEADER_FORMAT, image))


def file_size(capacity):
    return SLOTS_OFFSET + SLOT_SIZE * capacity


def slots_there(image):
    return max(0, len(image) - SLOTS_OFFSET) // SLOT_SIZE


def fields_of(body):
    """The fields of a message. A text without a zero byte ends with its field."""
    origin, *words, kind, source, text, tail = struct.unpack(BODY_FORMAT, body)
    return Fields(origin, tuple(words), kind, source.split(b"\0")[0], text.split(b"\0")[0], tail)


def time_key(words):
    """The sort key of the first seven words of a time stamp; negative ones wrap around."""
    year, month, day, hour, minute, second, millisecond = words[:7]
    key = ((((((year * 12 + month) * 31 + day) * 24 + hour) * 60 + minute) * 60 + second) * 1000 + millisecond)
    return key % 2**64


def key_of(message):
    return time_key(struct.unpack_from("<8h", message.body, 8))


def is_damaged(message):
    fields = fields_of(message.body)
    return fields.type >= TYPES or len(fields.source) == 257 or len(fields.text) == 257


def ring_of(image):
    """The messages of the ring, oldest slot first."""
    header = header_of(image)
    if not (header.maxMessages >= 1 and 0 <= header.messageCount <= header.maxMessages
            and 0 <= header.nextSlot < header.maxMessages):
        raise NoLog("the header's numbers are not valid")
    messages = []
    for i in range(header.messageCount):
        slot = (header.nextSlot - header.messageCount + i) % header.maxMessages
        if slot >= slots_there(image):
            raise NoLog("slot %d is not in the file" % slot)
        start = SLOTS_OFFSET + SLOT_SIZE * slot
        sequence, = struct.unpack_from("<Q", image, start)
        messages.append(Message(slot, sequence, bytes(image[start + 8:start + 8 + BODY_SIZE])))
    return messages


def falling_stretch(keys):
    """How many of the first keys never rise, if one of them falls: the rest of a block that was written in reverse."""
    end = 1
    while end < len(keys) and keys[end] <= keys[end - 1]:
        end += 1
    return end if keys and keys[end - 1] < keys[0] else 0


def written_since(keys, numbers):
    """The position from which on messages may have been written after the last full rewrite: times do not fall, and
    numbers rise by 1, or by more where an insertion began, which writes two messages at least."""
    begin = len(keys) - 1
    while begin > 0 and 0 < numbers[begin - 1] < numbers[begin] and keys[begin - 1] <= keys[begin]:
        insertion = numbers[begin] + 1 in numbers[begin + 1:begin + 2]
        if numbers[begin - 1] + 1 != numbers[begin] and not insertion:
            break
        begin -= 1
    return begin


def block_length(ring, capacity):
    """How many of the oldest messages are the rest of a block that was written in reverse."""
    keys = [key_of(message) for message in ring]
    if len(ring) < capacity:
        return falling_stretch(keys)
    numbers = [message.sequence for message in ring]
    next_slot = ring[0].slot
    most = capacity - next_slot
    if next_slot > 0:
        since = written_since(keys, numbers)
        if since < most:
            most = since + (keys[since] == keys[-1])

    def rises(i):
        return keys[i - 1] < keys[i] or (keys[i - 1] == keys[i] and 0 < numbers[i - 1] < numbers[i])

    length = next((i for i in range(1, most) if rises(i)), most)
    return 0 if next_slot == 0 and length < capacity else length


def in_order_of_time(ring, capacity):
    """Turns the rest of a block, then sorts by time. Python's sort is stable."""
    end = block_length(ring, capacity)
    return sorted(ring[:end][::-1] + ring[end:], key=key_of)


def misplaced(ring, capacity):
    """How many messages are older than the one in the slot before. The rest of a block does not count: the server
    wrote it. Two messages are one only if they touch the first or the last slot of the file."""
    keys = [key_of(message) for message in ring]
    end = falling_stretch(keys)
    if end == 2 and ring[0].slot != 0 and ring[1].slot != capacity - 1:
        end = 0
    return sum(keys[i] < keys[i - 1] for i in range(max(end, 1), len(keys)))


def is_possible(words):
    year, month, day, hour, minute, second, millisecond = words[:7]
    if not (1 <= year <= 9999 and 1 <= month <= 12):
        return False
    leap = year % 4 == 0 and (year % 100 != 0 or year % 400 == 0)
    days = (31, 29 if leap else 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31)[month - 1]
    return (1 <= day <= days and 0 <= hour <= 23 and 0 <= minute <= 59 and 0 <= second <= 59
            and 0 <= millisecond <= 999)


def add_text(shown, name, raw):
    """UTF-8, with U+FFFD for each byte that is not part of valid UTF-8; then all bytes follow in hexadecimal."""
    escaped = raw.decode("utf-8", "surrogateescape")  # each byte that cannot be read becomes one character
    shown[name] = "".join("\ufffd" if "\udc80" <= c <= "\udcff" else c for c in escaped)
    if "\ufffd" in shown[name] and shown[name].encode() != raw:
        shown[name + "_hex"] = raw.hex()


def shown_as(message):
    """The message as an object of docs/schema/message.schema.json, without `cursor`."""
    fields = fields_of(message.body)
    words = fields.timestamp
    shown = {}
    if is_possible(words):
        shown["time"] = "%04d-%02d-%02dT%02d:%02d:%02d.%03d" % words[:7]
    else:
        shown["time"] = None
        shown["time_words"] = list(words)
    shown["seq"] = message.sequence
    shown["type"] = fields.type
    add_text(shown, "source", fields.source)
    add_text(shown, "text", fields.text)
    shown["origin"] = fields.origin.hex()
    shown["tail"] = fields.tail.hex()
    if is_possible(words) and words[7] != 0:
        shown["spare"] = words[7]
    return shown


def json_line(message):
    return json.dumps(shown_as(message), ensure_ascii=True, separators=(",", ":"))


def main(arguments):
    if len(arguments) != 1:
        print(__doc__, file=sys.stderr)
        return 2
    try:
        with open(arguments[0], "rb") as stream:
            image = stream.read()
        ring = ring_of(image)
    except OSError as problem:
        print("reference_log.py: %s" % problem, file=sys.stderr)
        return 2
    except NoLog as problem:
        print("%s: %s" % (arguments[0], problem), file=sys.stderr)
        return 9
    capacity = header_of(image).maxMessages
    problems = [("damaged messages", sum(is_damaged(message) for message in ring)),
                ("messages older than the one before", misplaced(ring, capacity)),
                ("bytes too many or too few", abs(len(image) - file_size(capacity)))]
    for message in in_order_of_time(ring, capacity):
        print(json_line(message))
    for what, count in problems:
        if count:
            print("%s: %d %s" % (arguments[0], count, what), file=sys.stderr)
    return 7 if any(count for _, count in problems) else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
