"""Finds what is new in a log from one copy of it to the next: each message once, and how many were lost in between.

This is docs/reader_protocol.md, "Following", as a program: a message with a number from before the last visit is known;
one without a number, or with a newer one after a rewrite, is known if its 546 bytes are. Counters and numbers then tell
what else can have happened. Standard library only.

    reference_follower.py FILE...      the first FILE is where following begins; each other one is a later visit

--reopened before a FILE: the log was closed and opened again before that visit. After each visit the new messages are
printed as JSON lines, then {"visit": n, "lost": {"least": a, "most": b}, "cleared": false, "rewritten": false};
`most` is null when it cannot be known. Exit code 2 when a FILE cannot be read, 9 when it is not a log.
"""

import json
import sys
from collections import namedtuple

from reference_log import NoLog, header_of, in_order_of_time, json_line, key_of, ring_of

UNKNOWN = (0, None)
Step = namedtuple("Step", "messages lost cleared rewritten")  # lost: (least, most)
SAME, UNCLEAR, OTHER = "the same run of the log", "not certain", "another log"


class Visit:
    """One copy of the log."""

    def __init__(self, image):
        self.header = header_of(image)
        self.ring = ring_of(image)  # oldest slot first
        self.full = self.header.messageCount == self.header.maxMessages


class Remembered:
    """Messages with the same bytes that were shown or known."""

    def __init__(self, key):
        self.key = key
        self.count = 0
        self.unnumbered = 0  # of them: stored without a number
        self.number = 0      # of one that has a number
        self.perhaps_copies = False  # with and without a number: one message may be there twice

    def add(self, number):
        self.count += 1
        self.unnumbered += number == 0
        self.number = max(self.number, number)

    def take(self, number):
        """Recognises a message as one of these, if one is left."""
        if self.count == 0:
            return False
        self.count -= 1
        if number == 0 and self.unnumbered > 0:
            self.unnumbered -= 1
        return True


class Candidate:
    """A message of the ring while it is compared with the remembered ones."""

    def __init__(self, message):
        self.slot, self.number, self.body = message
        self.message = message
        self.key = key_of(message)
        self.old_number = False  # assigned before the last visit
        self.settled = False
        self.recognized = False  # one of the remembered messages was taken for it
        self.in_block = False    # in what may be left of a full rewrite
        self.copied = False      # the server has written it a second time: it stands in another slot as well
        self.new = False


class Follower:
    def __init__(self, image):
        """Every message of the first copy counts as known."""
        visit = Visit(image)
        self.departed = {}  # bytes: Remembered; shown, no longer in the ring, but able to come back
        # The ring may have been rewritten in reverse. Then new messages overwrite the newest ones, which the server
        # still has in memory and may write again. Over when every slot has a number from suspect_until on.
        self.suspect = True
        self.suspect_until = max(visit.header.nextSequence, 1)
        # The log may have been emptied: a message that equals a departed one may be another.
        self.may_be_others = False
        self.last = visit.header
        self.slots = {}
        self.keep(visit, [Candidate(message) for message in visit.ring], {})

    def visit(self, image, reopened=False):
        visit = Visit(image)
        step = self.appended(visit) if self.only_appended(visit, reopened) else self.compared(visit, reopened)
        return step._replace(messages=sorted(step.messages, key=key_of))

    # The short way: the counters show that messages were appended and nothing else.

    def only_appended(self, visit, reopened):
        last, now, ring = self.last, visit.header, visit.ring
        if not counters_go_on(last, now) or now.rewriteCount != last.rewriteCount:
            return False
        appended = now.nextSequence - last.nextSequence
        moved_to = (last.nextSlot + appended) % now.maxMessages
        count = min(last.messageCount + appended, now.maxMessages)
        if (now.nextSlot, now.messageCount) != (moved_to, count):
            return False
        newest = ring[-appended:] if appended else []
        numbers = range(now.nextSequence - len(newest), now.nextSequence)
        if [message.sequence for message in newest] != list(numbers):
            return False
        old = ring[:len(ring) - len(newest)]
        if not old:
            return not reopened and (last.messageCount == 0 or appended > 0)
        # One old message in its place shows a restart that nobody noticed; after a reopening all have to be there.
        return all(self.unchanged(message) for message in (old if reopened else old[-1:]))

    def appended(self, visit):
        appended = visit.header.nextSequence - self.last.nextSequence
        new = visit.ring[-appended:] if appended else []
        for message in new:
            before = self.slots.get(message.slot)
            if self.suspect and before and not before.copied:
                remember(self.departed, before)
            self.slots[message.slot] = Candidate(message)
        self.last = visit.header
        self.end_suspicion(visit)
        lost = appended - len(new)
        return Step(new, (lost, lost), False, False)

    # The long way: everything is compared.

    def compared(self, visit, reopened):
        last, now = self.last, visit.header
        known = self.everything_known()
        candidates = self.candidates_of(visit)
        run = self.run_of(visit, candidates, known, reopened)
        if run != SAME or self.change(visit, candidates, 0, 0).if_rewritten():
            self.suspect = True
            self.suspect_until = max(now.nextSequence, 1)
        if run != OTHER:
            self.settle_old_numbers(visit, candidates, known, run)
        self.settle_others(visit, candidates, known, run)
        lost = self.count_losses(visit, candidates, known, run)
        known_in_ring = sum(not each.new for each in candidates)
        cleared = last.messageCount > 0 and known_in_ring == 0 and not visit.full
        if cleared:
            self.suspect = False
        if cleared or run == OTHER:
            known = {}
        self.keep(visit, candidates, known)
        return Step([each.message for each in candidates if each.new], lost, cleared,
                    now.rewriteCount != last.rewriteCount)

    def candidates_of(self, visit):
        last, now = self.last, visit.header
        candidates = [Candidate(message) for message in in_order_of_time(visit.ring, visit.header.maxMessages)]
        appended = now.nextSequence - last.nextSequence
        newest = {message.slot for message in visit.ring[-appended:]} if appended > 0 else set()
        for each in candidates:
            if now.rewriteCount == last.rewriteCount:
                each.old_number = each.slot not in newest
            else:  # only a full ring can hold messages without a number
                each.old_number = (each.number != 0 or not visit.full) and each.number < last.nextSequence
        return candidates

    def run_of(self, visit, candidates, known, reopened):
        if not counters_go_on(self.last, visit.header):
            return OTHER

        def keeps_its_number(each):
            entry = known.get(each.body)
            return entry and each.old_number and (entry.unnumbered > 0 if each.number == 0
                                                  else entry.number == each.number)

        if visit.header.rewriteCount == self.last.rewriteCount:
            return UNCLEAR  # in the same run this would be appends only
        if visit.header.changeCount - self.last.changeCount < visit.header.rewriteCount - self.last.rewriteCount:
            return UNCLEAR  # in the same run each rewrite is a change
        if any(each.old_number and each.body not in known for each in candidates):
            return UNCLEAR
        if reopened:  # a new log numbers its messages from 0 on
            return SAME if any(keeps_its_number(each) for each in candidates) else UNCLEAR
        return SAME

    def settle_old_numbers(self, visit, candidates, known, run):
        """Messages whose numbers, or whose slots, show that they were in the log before."""
        last, now = self.last, visit.header
        one_rewrite = self.one_change(now) and now.rewriteCount != last.rewriteCount \
            and now.nextSequence == last.nextSequence
        for each in candidates:
            unchanged = not one_rewrite and self.unchanged(each.message)
            each.copied = unchanged and self.slots[each.slot].copied
            if not (each.old_number or each.copied or (each.number == 0 and unchanged)):
                continue
            recognized = each.copied or (each.body in known and known[each.body].take(each.number))
            if recognized or run == SAME:  # in another run the number means nothing
                each.settled = True
                each.new = not recognized  # then it was lost before

    def settle_others(self, visit, candidates, known, run):
        """Messages with new numbers or without one. Those without come first: an inserted message may equal one of
        them, never the reverse."""
        copies = self.first_copies(visit, candidates)
        others = [each for each in candidates if not each.settled]
        for each in [e for e in others if e.number == 0] + [e for e in others if e.number != 0]:
            if self.certainly_new(visit, each, known, run):
                each.new = True
                continue
            each.recognized = each.body in known and known[each.body].take(each.number)
            if each.recognized:
                continue
            first = copies.get(each.body) if not each.in_block else None
            if first:
                first.pop().copied = True
            else:
                each.new = True

    def certainly_new(self, visit, each, known, run):
        last, now = self.last, visit.header
        if run != SAME:
            return False
        if now.rewriteCount == last.rewriteCount:
            return not each.old_number
        if each.number == 0:  # a message that once got a number keeps one
            return each.body in known and known[each.body].unnumbered == 0
        return self.one_change(now) and each.number == last.nextSequence  # an insertion writes the new one first

    def first_copies(self, visit, candidates):
        """An insertion into what is left of a full rewrite writes messages of the block a second time. Returns those
        of which a second copy may appear."""
        copies = {}
        if not self.suspect or not visit.full or visit.header.nextSlot == 0:  # nothing came after the full rewrite
            return copies
        end = block_end(visit.ring)
        block = {message.slot for message in visit.ring[:end]} if end > 1 else set()
        for each in candidates:
            each.in_block = each.slot in block
            if each.in_block and not each.copied:
                copies.setdefault(each.body, []).append(each)
        return copies

    def count_losses(self, visit, candidates, known, run):
        if run == UNCLEAR:
            self.may_be_others = True
        if run != SAME:
            return UNKNOWN
        known_in_ring = sum(not each.new for each in candidates)
        oldest = candidates[0].key if candidates else 0
        doubtful = sum(not each.new and each.number == 0 and (each.key == oldest or self.may_be_others
                                                              or each.body in known and known[each.body].perhaps_copies)
                       for each in candidates)
        change = self.change(visit, candidates, known_in_ring, doubtful)
        kept, cleared, rewritten = change.if_kept(), change.if_cleared(), change.if_rewritten()
        if cleared or (rewritten and not visit.full):
            self.may_be_others = True
        all_new = kept and not cleared and not rewritten and change.left_out > 0 \
            and kept[0] == change.left_out and change.most_overwritten() == 0
        only_cleared = cleared and not kept and not rewritten
        if only_cleared or all_new:  # then those with new numbers are new, whatever their bytes are
            for each in candidates:
                if each.number >= self.last.nextSequence and not each.new:
                    each.new = True
                    known_in_ring -= 1
                    if each.recognized:
                        known[each.body].count += 1
            change = self.change(visit, candidates, known_in_ring, doubtful)
        return change.bounds()

    def change(self, visit, candidates, known_in_ring, doubtful):
        since = [each for each in candidates if each.number >= self.last.nextSequence]
        returned = sum(each.new for each in since)
        next_number = max(self.last.nextSequence, 1)
        differ = sum(each.number < next_number and not self.unchanged(each.message) for each in candidates)
        return Change(self.last, visit, differ > (self.last.nextSequence == 0), returned, len(since) - returned,
                      known_in_ring, doubtful)

    # Memory.

    def one_change(self, now):
        return now.changeCount - self.last.changeCount == 1

    def unchanged(self, message):
        before = self.slots.get(message.slot)
        return before is not None and (before.number, before.body) == (message.sequence, message.body)

    def everything_known(self):
        known = {}
        for body, entry in self.departed.items():
            known[body] = Remembered(entry.key)
            known[body].__dict__.update(entry.__dict__)
        for each in self.slots.values():
            if not each.copied:
                remember(known, each)
        for entry in known.values():
            entry.perhaps_copies = 0 < entry.unnumbered < entry.count
        return known

    def keep(self, visit, candidates, gone):
        self.last = visit.header
        self.slots = {each.slot: each for each in candidates}
        self.departed = {}
        self.end_suspicion(visit)
        if self.ring_holds_all():
            return
        gone = {body: entry for body, entry in gone.items() if entry.count > 0}
        # The server can write again only its newest maxMessages messages.
        excess = len(gone) - visit.header.maxMessages
        least = sorted(entry.key for entry in gone.values())[excess] if excess > 0 else 0
        self.departed = {body: entry for body, entry in gone.items() if entry.key >= least}

    def end_suspicion(self, visit):
        if self.suspect and visit.full and all(m.sequence >= self.suspect_until for m in visit.ring):
            self.suspect = False
        if self.ring_holds_all():
            self.departed = {}
            self.may_be_others = False

    def ring_holds_all(self):
        """Every message that the server had in memory at the last visit stood in the ring."""
        return not self.suspect or self.last.messageCount < self.last.maxMessages or self.last.nextSlot == 0


class Change:
    """What can have happened between two visits to the same run of the log. Each question returns the bounds of the
    loss, or None when this cannot have happened."""

    def __init__(self, before, visit, old_slots_differ, returned, left_out, known_in_ring, doubtful):
        self.before = before
        self.now = visit.header
        self.full = visit.full
        self.ring = visit.ring
        self.numbers = [message.sequence for message in visit.ring]
        self.old_slots_differ = old_slots_differ
        self.returned = returned            # messages with new numbers that count as new
        self.left_out = left_out            # messages with new numbers that count as known
        self.known_in_ring = known_in_ring
        self.doubtful = doubtful            # without a number, taken for known ones, and perhaps new
        self.first = before.nextSequence
        self.changes = self.now.changeCount - before.changeCount
        self.rewrites = self.now.rewriteCount - before.rewriteCount
        self.numbered = self.now.nextSequence - before.nextSequence
        least = max(self.first, 1)
        self.old = next((i for i, number in enumerate(self.numbers) if number >= least), len(self.numbers))

    def bounds(self):
        cases = [case for case in (self.if_kept(), self.if_cleared(), self.if_rewritten()) if case]
        if not cases:
            return UNKNOWN
        most = None if any(most is None for _, most in cases) else max(most for _, most in cases)
        return min(least for least, _ in cases), most

    def most_overwritten(self):
        """Messages that came and were overwritten: none as long as the ring has not gone round."""
        return self.numbers[0] - self.first if self.numbers and self.old == 0 else 0

    def numbers_rise_from(self, position):
        least = self.first
        for number in self.numbers[position:]:
            if not least <= number < self.now.nextSequence:
                return False
            least = number + 1
        return True

    def insertions_seen(self):
        """Insertions leave gaps in the numbers. A gap after the first number may be the end of a block."""
        if not self.numbers_rise_from(self.old):
            return 0
        return sum(self.numbers[i] != self.numbers[i - 1] + 1 for i in range(self.old + 2, len(self.numbers)))

    def if_kept(self):
        """Appends and insertions: nextSlot has moved by the number of new messages, and so has the count while the
        ring was not full."""
        if self.old_slots_differ or not self.numbers_rise_from(self.old) or self.numbered < 2 * self.rewrites:
            return None
        more = self.now.messageCount - self.before.messageCount
        least = self.numbered if self.rewrites == 0 else self.returned
        most = min(self.numbered - self.rewrites, self.returned + self.left_out + self.most_overwritten())
        if more < 0 or least < self.returned:
            return None
        if not self.full:
            return (more - self.returned, more - self.returned) if least <= more <= most else None
        least = max(least, more)
        capacity = self.now.maxMessages
        moved = (self.now.nextSlot - self.before.nextSlot) % capacity
        least += (moved - least) % capacity
        most -= (most - moved) % capacity
        return (least - self.returned, most - self.returned) if least <= most else None

    def can_have_been_empty(self):
        if self.rewrites == self.insertions_seen() or (self.old > 0 and self.first > 0):
            return False
        return not self.ring or self.changes > self.rewrites

    def if_cleared(self):
        if not self.can_have_been_empty() or not self.numbers_rise_from(0) or self.numbered < len(self.ring):
            return None
        most = self.numbered - self.returned
        if self.rewrites > 1:
            return self.left_out, most
        if self.numbered > (self.changes - 1) * (self.now.maxMessages - 1):  # all but the clear were appends
            return None
        if self.numbers and self.numbers[0] + len(self.numbers) != self.now.nextSequence:
            return None
        return most, most

    def if_rewritten(self):
        """A full rewrite: no counter shows how many messages came."""
        if self.rewrites == self.insertions_seen():
            return None
        if not self.full:
            return UNKNOWN if self.rewrites > 1 and self.can_have_been_empty() else None
        if self.block_rises():
            return None
        if self.changes > 1:
            return UNKNOWN
        if self.numbered > 0:
            return None
        return UNKNOWN if self.known_in_ring == 0 else (0, self.doubtful)

    def block_rises(self):
        """What is left of a full rewrite rises neither in time nor, at equal times, in numbers."""
        end = max(0, len(self.ring) - self.numbered)
        for i in range(end, len(self.ring)):
            if self.numbers[i] < self.first:
                end = i + 1
        for older, newer in zip(self.ring[:end], self.ring[1:end]):
            before, after = key_of(older), key_of(newer)
            if before < after or (before == after and 0 != older.sequence < newer.sequence):
                return True
        return False


def counters_go_on(before, now):
    return now.maxMessages == before.maxMessages and now.changeCount >= before.changeCount \
        and now.rewriteCount >= before.rewriteCount and now.nextSequence >= before.nextSequence


def block_end(ring):
    """How many of the oldest slots can be left of a full rewrite: all but the newest whose times and numbers rise."""
    def rises(older, newer):
        return key_of(older) <= key_of(newer) and older.sequence < newer.sequence

    end = len(ring)
    while end > 1 and rises(ring[end - 2], ring[end - 1]):
        end -= 1
    return end


def remember(known, each):
    known.setdefault(each.body, Remembered(each.key)).add(each.number)


def line_of(number, step, **more):
    return json.dumps({"visit": number, "lost": {"least": step.lost[0], "most": step.lost[1]}, "cleared": step.cleared,
                       "rewritten": step.rewritten, **more}, separators=(",", ":"))


def main(arguments):
    follower = None
    number = 0
    reopened = False
    for argument in arguments:
        if argument == "--reopened":
            reopened = True
            continue
        with open(argument, "rb") as stream:
            image = stream.read()
        if follower is None:
            follower = Follower(image)
            continue
        number += 1
        step = follower.visit(image, reopened)
        reopened = False
        for message in step.messages:
            print(json_line(message))
        print(line_of(number, step))
    if number == 0:
        print(__doc__, file=sys.stderr)
        return 2
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except (OSError, NoLog) as stop:
        print("reference_follower.py: %s" % stop, file=sys.stderr)
        sys.exit(2 if isinstance(stop, OSError) else 9)
