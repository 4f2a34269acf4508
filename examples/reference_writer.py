"""Writes rings as the server does: the rules of docs/protocol_background.md, "How the server writes", in memory.

A Writer makes the bytes of any state that a server leaves in a log, for tests of readers. Nothing here shares a file
with a running server: only the server writes its file.
"""

import struct

from reference_log import (BODY_FORMAT, HEADER_FORMAT, LOCK_NAMES, LOCK_NAME_SIZE, SLOT_SIZE, time_key)


def body(timestamp, kind=0, source=b"", text=b"", origin=bytes(8), tail=bytes(4)):
    """The sender's 546 bytes; `timestamp` may leave out the spare word."""
    return struct.pack(BODY_FORMAT, origin, *(tuple(timestamp) + (0,))[:8], kind, source, text, tail)


class Entry:
    """A message of the list in memory. Its number is 0 until a flush appends it."""

    def __init__(self, submitted):
        self.body = submitted
        self.key = time_key(struct.unpack_from("<8h", submitted, 8))
        self.sequence = 0


class Writer:
    def __init__(self, capacity):
        self.capacity = capacity
        self.slots = [bytes(SLOT_SIZE)] * capacity
        self.read_count = 0
        self.server_running = 1
        self.reformat()

    def reformat(self):
        """A new log, or one that failed the check. The release of the write access makes changeCount 2."""
        self.entries = []  # newest first, as the ring should hold them
        self.pending = 0   # entries at the newest end that the next flush writes
        self.rewind = 0    # of them: in the file already
        self.message_count = 0
        self.next_slot = 0
        self.change_count = 2
        self.rewrite_count = 1
        self.next_sequence = 0

    def submit(self, submitted):
        entry = Entry(submitted)
        newer = 0
        while newer < len(self.entries) and self.entries[newer].key > entry.key:
            newer += 1
        if newer > self.pending:
            self.rewind += newer - self.pending
            self.pending = newer
        self.pending += 1
        self.entries.insert(newer, entry)
        del self.entries[self.capacity:]
        self.pending = min(self.pending, len(self.entries))

    def flush(self):
        if self.pending == 0:
            return
        if self.pending >= self.capacity:
            self.rewrite_all()
        else:
            self.append()
        self.pending = 0
        self.rewind = 0
        self.change_count += 1

    def append(self):
        """Takes the newest messages back if a late one belongs before them, and writes what is pending."""
        if self.rewind > 0:
            self.rewrite_count += 1
        self.message_count -= self.rewind
        self.next_slot = (self.next_slot - self.rewind) % self.capacity
        for entry in reversed(self.entries[:self.pending]):
            self.message_count = min(self.message_count + 1, self.capacity)
            entry.sequence = self.next_sequence
            self.next_sequence += 1
            self.write_slot(self.next_slot, entry)
            self.next_slot = (self.next_slot + 1) % self.capacity

    def rewrite_all(self):
        """Newest first, without new numbers."""
        self.message_count = self.capacity
        self.next_slot = 0
        self.rewrite_count += 1
        for slot, entry in enumerate(self.entries):
            self.write_slot(slot, entry)

    def clear(self):
        self.entries = []
        self.pending = 0
        self.rewind = 0
        self.message_count = 0
        self.next_slot = 0
        self.rewrite_count += 1
        self.change_count += 1

    def write_slot(self, slot, entry):
        self.slots[slot] = struct.pack("<Q", entry.sequence) + entry.body + bytes(6)

    def image(self):
        header = struct.pack(HEADER_FORMAT, self.read_count, self.server_running, self.message_count, self.capacity,
                             self.next_slot, self.change_count, self.rewrite_count, self.next_sequence)
        names = b"".join(name.encode("ascii").ljust(LOCK_NAME_SIZE, b"\0") for name in LOCK_NAMES)
        return header + names + b"".join(self.slots)
