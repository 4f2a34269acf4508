"""One run of the judge judges a reader, a follower and a server's pipes, as a newcomer calls it. Needs a Wine prefix of
its own, which ctest provides; see scripts/wine-run.sh."""

import os
import subprocess
import sys
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
RUN = os.path.join(ROOT, "scripts", "wine-run.sh")
BIN = os.path.join(ROOT, "build", "bin")
EXAMPLES = os.path.join(ROOT, "examples")
PATIENCE = 60  # seconds


class Everything(unittest.TestCase):
    def judged(self, *broken):
        """The judge's exit code and its table for a server that breaks these claims."""
        server = subprocess.Popen([RUN, os.path.join(BIN, "foreign_server.exe"), *broken], stdin=subprocess.PIPE,
                                  stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)
        try:
            self.assertEqual(server.stdout.readline().strip(), b"ready")
            outcome = self.judge()
        finally:
            server.stdin.close()
            server.wait(PATIENCE)
            server.stdout.close()
        return outcome

    def judge(self):
        python = sys.executable + " -B "
        outcome = subprocess.run(
            [sys.executable, os.path.join(ROOT, "conformance", "judge.py"),
             "--read", python + os.path.join(EXAMPLES, "reference_log.py"),
             "--follow", python + os.path.join(EXAMPLES, "reference_follower.py"),
             "--pipes", "%s %s --change" % (RUN, os.path.join(BIN, "pipe_claims.exe"))],
            stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=4 * PATIENCE, check=False)
        table = [line.split(None, 3)[:3] for line in outcome.stdout.splitlines()]
        return outcome.returncode, table

    def test_is_one_table(self):
        code, table = self.judged()
        self.assertEqual((code, [line for line in table if line[0] == "FAILS"]), (0, []))
        self.assertEqual({line[1] for line in table[:-1]}, {"read", "follow", "pipes"})
        self.assertIn(["holds", "pipes", "stored"], table)
        self.assertIn(["holds", "read", "mixed"], table)

    def test_names_the_claim_that_a_server_breaks(self):
        code, table = self.judged("map-name", "filter-keeps")
        self.assertEqual(code, 1)
        self.assertEqual([line for line in table if line[0] == "FAILS"],
                         [["FAILS", "pipes", "map-name"], ["FAILS", "pipes", "filter-keeps"]])

    def test_reports_that_there_is_no_server(self):
        code, table = self.judge()
        self.assertEqual(code, 1)
        self.assertEqual([line for line in table if line[0] == "FAILS"], [["FAILS", "pipes", "run"]])


if __name__ == "__main__":
    unittest.main(verbosity=2)
