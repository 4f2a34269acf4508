"""The examples in the protocol documents agree with the layouts, and the check notices a difference."""

import importlib.util
import os
import struct
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
SCRIPT = os.path.join(ROOT, "scripts", "example-ring.py")
DOCUMENTS = [os.path.join(ROOT, "docs", name) for name in ("log_file_format.md", "pipe_protocol.md")]

loader = importlib.util.spec_from_file_location("example_ring", SCRIPT)
example_ring = importlib.util.module_from_spec(loader)
loader.loader.exec_module(example_ring)


def run(*arguments):
    return subprocess.run([sys.executable, SCRIPT, *arguments], capture_output=True, text=True, timeout=30)


class Documents(unittest.TestCase):
    def test_hold_the_bytes_that_follow_from_the_layout(self):
        for path in DOCUMENTS:
            result = run("--check", path)
            self.assertEqual(result.returncode, 0, result.stdout + result.stderr)

    def test_are_refused_when_a_line_in_front_middle_or_end_differs(self):
        for path in DOCUMENTS:
            lines = example_ring.read_lines(path)
            for name, first, last in example_ring.blocks_of(lines):
                for number in (first + 1, (first + last) // 2, last - 2):
                    changed = lines[:]
                    changed[number] = changed[number].replace("0", "1", 1) + "."
                    with tempfile.TemporaryDirectory() as directory:
                        copy = os.path.join(directory, "document.md")
                        with open(copy, "w", encoding="utf-8") as stream:
                            stream.write("\n".join(changed))
                        result = run("--check", copy)
                    self.assertEqual(result.returncode, 1)
                    self.assertIn("document.md:%d: block %s" % (number + 1, name), result.stdout)

    def test_are_refused_when_an_example_is_missing(self):
        lines = example_ring.read_lines(DOCUMENTS[0])
        _, first, last = example_ring.blocks_of(lines)[-1]
        with tempfile.TemporaryDirectory() as directory:
            copy = os.path.join(directory, "document.md")
            with open(copy, "w", encoding="utf-8") as stream:
                stream.write("\n".join(lines[:first - 1] + lines[last + 1:]))
            result = run("--check", copy)
        self.assertEqual(result.returncode, 1)
        self.assertIn("block burst is missing", result.stdout)


class Ring(unittest.TestCase):
    """Offsets as plain numbers, on purpose not taken from the script."""

    def test_of_four_holds_the_fifth_message_in_slot_0(self):
        with tempfile.TemporaryDirectory() as directory:
            path = os.path.join(directory, "Logs.dat")
            self.assertEqual(run("--write", path).returncode, 0)
            with open(path, "rb") as stream:
                image = stream.read()
        self.assertEqual(len(image), 240 + 560 * 4)
        self.assertEqual(struct.unpack_from("<iiii", image, 8)[:3], (4, 4, 1))
        self.assertEqual(struct.unpack_from("<QQQ", image, 24), (4, 1, 5))
        self.assertEqual(image[176:176 + 35], b"Global\\TamLogServiceWriteWaitEvent\0")
        self.assertEqual([struct.unpack_from("<Q", image, 240 + 560 * i)[0] for i in range(4)], [4, 1, 2, 3])
        self.assertEqual(image[240 + 293:240 + 293 + 15], b"Axis Z stalled\0")
        self.assertEqual(image[240 + 550:240 + 560], b"end5" + bytes(6))

    def test_numbers_the_messages_behind_a_late_one_again(self):
        image = example_ring.build("late")
        self.assertEqual(struct.unpack_from("<QQQ", image, 24), (5, 2, 8))
        self.assertEqual([struct.unpack_from("<Q", image, 240 + 560 * i)[0] for i in range(4)], [6, 7, 2, 5])

    def test_lies_newest_first_without_numbers_after_a_burst(self):
        image = example_ring.build("burst")
        self.assertEqual(struct.unpack_from("<iii", image, 8), (4, 4, 0))
        self.assertEqual([struct.unpack_from("<Q", image, 240 + 560 * i)[0] for i in range(4)], [0, 0, 0, 0])
        texts = [image[240 + 560 * i + 293:][:6] for i in range(4)]
        self.assertEqual(texts, [b"Step 9", b"Step 8", b"Step 7", b"Step 6"])


class Key(unittest.TestCase):
    def test_of_the_worked_example(self):
        self.assertEqual(example_ring.time_key((2026, 11, 21, 8, 0, 2, 125, 0)), 65148566402125)

    def test_takes_no_notice_of_the_eighth_word(self):
        self.assertEqual(example_ring.time_key((2026, 11, 21, 8, 0, 2, 125, 7)), 65148566402125)

    def test_of_a_negative_year_wraps_around(self):
        self.assertEqual(example_ring.time_key((-1, 0, 0, 0, 0, 0, 0, 0)), 2**64 - 12 * 31 * 24 * 3600 * 1000)


class Request(unittest.TestCase):
    def test_carries_the_slot_without_number_and_padding(self):
        slot = example_ring.build("five")[240:800]
        request = example_ring.build("submit")
        self.assertEqual(len(request), 1028)
        self.assertEqual(request[:4], b"\3\0\0\0")
        self.assertEqual(request[4:550], slot[8:554])
        self.assertEqual(request[550:], bytes(478))


if __name__ == "__main__":
    unittest.main(verbosity=2)
