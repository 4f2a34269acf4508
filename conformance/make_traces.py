#!/usr/bin/env python3
"""Makes the traces of conformance/traces: copies of a log, and what a follower must print after each.

    make_traces.py DIRECTORY            writes all traces into DIRECTORY
    make_traces.py --check DIRECTORY    exit 1 unless DIRECTORY holds exactly these traces, byte by byte

A trace NAME is three files. NAME.dat holds the copies one after the other, NAME.json their places in it. NAME.jsonl is
the expected output; README.md explains it. Each visit below states what is new and lost as its author knows it; making
the traces fails if the follower of examples/ says anything else. Uses the standard library and examples/ only.
"""

import json
import os
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(ROOT, "examples"))
from make_samples import run  # noqa: E402
from reference_follower import Follower, line_of  # noqa: E402
from reference_log import fields_of, json_line  # noqa: E402
from reference_writer import Writer, body  # noqa: E402

TRACES = {}


def trace(capacity, about):
    """Registers the function below it, which gets a Story."""
    def register(tell):
        TRACES[tell.__name__.replace("_", "-")] = (capacity, about, tell)
        return tell
    return register


def message(text, second):
    return body((2026, 11, 21, 8, second // 60, second % 60, 0), 0, b"Stage", text.encode("ascii"))


class Story:
    """The writer's side of a trace and the visits in between."""

    def __init__(self, capacity):
        self.writer = Writer(capacity)
        self.writer.server_running = 0
        self.images = []
        self.reopened = []
        self.lines = []
        self.follower = None

    def flush(self, *names):
        """One flush of messages: "7" is dated second 7, "x@3" second 3."""
        for name in names:
            text, _, second = name.partition("@")
            self.writer.submit(message(text, int(second or text)))
        self.writer.flush()

    def flush_each(self, first, last):
        for number in range(first, last + 1):
            self.flush(str(number))

    def start(self):
        self.images.append(self.writer.image())
        self.reopened.append(False)
        self.follower = Follower(self.images[0])

    def visit(self, new="", lost=0, of=None, cleared=False, rewritten=False, reopened=False):
        """`new`: the texts of the new messages, in order of time. `lost`: how many were in the log and are gone. `of`:
        the bounds that the follower of examples/ states, where it cannot know that number."""
        self.images.append(self.writer.image())
        self.reopened.append(reopened)
        step = self.follower.visit(self.images[-1], reopened)
        texts = " ".join(fields_of(each.body).text.decode() for each in step.messages)
        wanted = (new, of or (lost, lost), cleared, rewritten)
        if (texts, *step[1:]) != wanted:
            raise SystemExit("visit %d: %s, wanted %s" % (len(self.images) - 1, (texts, *step[1:]), wanted))
        self.lines += [json_line(each) for each in step.messages]
        self.lines.append(line_of(len(self.images) - 1, step, really=lost))


UNKNOWN = (0, None)


@trace(6, "messages are appended, one and several at a time; between some visits nothing happens")
def appended(story):
    story.start()
    story.visit()
    story.flush("1")
    story.visit("1")
    story.flush("2", "3")
    story.flush("4")
    story.visit("2 3 4")
    story.visit()
    story.flush_each(5, 8)
    story.visit("5 6 7 8")


@trace(4, "the first message of a log has the number 0, like a message without a number")
def first_number_is_0(story):
    story.start()
    story.flush("1")
    story.visit("1")
    story.flush("2")
    story.visit("2")


@trace(4, "more messages than the ring holds came between two visits: the number of lost ones is known")
def overtaken(story):
    story.flush_each(1, 4)
    story.start()
    story.flush_each(5, 13)
    story.visit("10 11 12 13", lost=5)
    story.flush("14")
    story.visit("14")


@trace(4, "changeCount rises without a change, as a stop can do")
def change_without_a_change(story):
    story.flush_each(1, 3)
    story.start()
    story.writer.change_count += 1
    story.visit()
    story.flush("4")
    story.writer.change_count += 1
    story.visit("4")


@trace(8, "a late message: those after it get new numbers, and are not new")
def inserted(story):
    story.flush_each(1, 5)
    story.start()
    story.flush("late@3")
    story.visit("late", rewritten=True)
    story.flush("6", "later@2")
    story.visit("later 6", rewritten=True)


@trace(6, "late messages in a full ring: each one costs the oldest")
def inserted_in_a_full_ring(story):
    story.flush_each(1, 8)
    story.start()
    story.flush("late@7")
    story.visit("late", rewritten=True)
    story.flush("9")
    story.flush("10", "later@8")
    story.visit("later 9 10", rewritten=True)


@trace(6, "appends and insertions between two visits that overwrote messages nobody saw: nextSlot shows how many")
def insertions_that_lost(story):
    story.flush_each(1, 6)
    story.start()
    story.flush_each(7, 12)
    story.flush("late@11")
    story.flush("13")
    story.visit("9 10 11 late 12 13", lost=2, rewritten=True)


@trace(4, "as many messages as the ring holds in one flush: no numbers; how many came is not known")
def burst(story):
    story.flush_each(1, 4)
    story.start()
    story.flush("5", "6", "7", "8")
    story.visit("5 6 7 8", of=UNKNOWN, rewritten=True)
    story.visit()


@trace(4, "two bursts between two visits: nothing of the first one is left")
def two_bursts(story):
    story.flush_each(1, 4)
    story.start()
    story.flush("5", "6", "7", "8")
    story.flush("11", "12", "13", "14")
    story.visit("11 12 13 14", lost=4, of=UNKNOWN, rewritten=True)
    story.flush("15")
    story.visit("15")


@trace(4, "a message older than all others makes the server write the whole ring again: nothing is new")
def rewritten_without_news(story):
    story.flush_each(2, 6)
    story.start()
    story.flush("1")
    story.visit(rewritten=True)
    story.visit()


@trace(6, "after a burst new messages overwrite the newest ones of the block; numbers come back")
def appended_to_a_block(story):
    story.flush_each(1, 3)
    story.start()
    story.flush("4", "5", "6", "7", "8", "9")
    story.visit("4 5 6 7 8 9", of=UNKNOWN, rewritten=True)
    story.flush("10")
    story.visit("10")
    story.flush("11", "12")
    story.visit("11 12")
    story.flush_each(13, 16)
    story.visit("13 14 15 16")


@trace(6, "a message that was overwritten in a block comes back with a late one: it was shown before")
def back_from_memory(story):
    story.flush_each(1, 2)
    story.start()
    story.flush("11", "12", "13", "14", "15", "16")
    story.visit("11 12 13 14 15 16", of=UNKNOWN, rewritten=True)
    story.flush("20")  # over 16, which the server still has in memory
    story.visit("20")
    story.flush("late@15")
    story.visit("late", rewritten=True)
    story.flush("21")
    story.visit("21")


@trace(8, "an insertion writes messages of a block a second time: the ring holds them twice, and they are not new")
def twice_in_the_ring(story):
    story.flush_each(1, 3)
    story.start()
    story.flush("11", "12", "13", "14", "15", "16", "17", "18")
    story.visit("11 12 13 14 15 16 17 18", of=UNKNOWN, rewritten=True)
    story.flush("30")
    story.flush("late@15")
    story.visit("late 30", of=UNKNOWN, rewritten=True)
    story.flush("31")
    story.visit("31")
    story.flush_each(32, 40)
    story.visit("33 34 35 36 37 38 39 40", lost=1)


@trace(6, "the log is cleared")
def cleared(story):
    story.flush_each(1, 4)
    story.start()
    story.writer.clear()
    story.visit(cleared=True, rewritten=True)
    story.flush("5")
    story.visit("5")


@trace(6, "cleared and filled again between two visits: messages of before and after that nobody saw count as lost")
def cleared_and_filled(story):
    story.flush_each(1, 4)
    story.start()
    story.flush("5")
    story.writer.clear()
    story.flush("6")
    story.visit("6", lost=1, cleared=True, rewritten=True)


@trace(6, "a message that equals one of before a clear is new")
def equal_after_a_clear(story):
    story.flush_each(1, 2)
    story.start()
    story.writer.clear()
    story.flush("2")
    story.visit("2", cleared=True, rewritten=True)


@trace(8, "equal messages: each one that is submitted is shown")
def equal_messages(story):
    story.flush("1")
    story.start()
    story.flush("1")
    story.visit("1")
    story.flush("1", "1")
    story.visit("1 1")
    story.flush("late@0")
    story.visit("late", rewritten=True)
    story.flush("2", "late@0")
    story.visit("late 2", rewritten=True)


@trace(4, "a late message that equals one that was shown: it is new, since both are in the ring")
def equal_inserted(story):
    story.flush_each(3, 6)
    story.start()
    story.flush("7")
    story.flush("8", "6")
    story.visit("6 7 8", of=UNKNOWN, rewritten=True)


@trace(4, "the log is closed and opened again with the same content")
def reopened(story):
    story.flush_each(1, 3)
    story.start()
    story.visit(reopened=True)
    story.flush("4")
    story.visit("4", reopened=True)


@trace(4, "another log in its place: everything is new, and how much was lost is not known")
def another_log(story):
    story.flush_each(1, 3)
    story.start()
    story.writer.reformat()
    story.flush("11", "12")
    story.visit("11 12", of=UNKNOWN, cleared=True, reopened=True)
    story.flush("13")
    story.visit("13")


@trace(4, "a restart that nobody noticed, with another log: the counters have fallen")
def counters_fell(story):
    story.flush_each(1, 4)
    story.start()
    story.writer.reformat()
    story.flush("11")
    story.visit("11", of=UNKNOWN, cleared=True)


@trace(4, "another capacity: another log")
def another_capacity(story):
    story.flush_each(1, 4)
    story.start()
    story.writer = Writer(6)
    story.writer.server_running = 0
    story.flush("5")
    story.visit("5", of=UNKNOWN, cleared=True, reopened=True)


@trace(1, "a ring of one slot: every flush rewrites it, without numbers")
def one_slot(story):
    story.flush("1")
    story.start()
    story.flush("2")
    story.visit("2", of=UNKNOWN, rewritten=True)
    story.visit()


def files_of(name):
    capacity, about, tell = TRACES[name]
    story = Story(capacity)
    tell(story)
    offset = 0
    copies = []
    for image, reopened in zip(story.images, story.reopened):
        copies.append({"offset": offset, "size": len(image), "reopened": reopened})
        offset += len(image)
    description = {"about": about, "copies": copies}
    lines = "".join(line + "\n" for line in story.lines)
    return {name + ".dat": b"".join(story.images), name + ".jsonl": lines.encode("ascii"),
            name + ".json": (json.dumps(description, indent=1) + "\n").encode("ascii")}


def all_files():
    files = {}
    for name in TRACES:
        try:
            files.update(files_of(name))
        except SystemExit as wrong:
            raise SystemExit("trace %s, %s" % (name, wrong))
    return files


if __name__ == "__main__":
    sys.exit(run(sys.argv[1:], all_files, __doc__))
