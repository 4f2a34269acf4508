"""The packages under test: those of build/packages, and packages of a later version from the same files."""

import glob
import os
import shutil
import subprocess
import sys
import tempfile

import test_signature
from machine import ROOT

PACKAGING = os.path.join(ROOT, "packaging")
PACKAGES = os.path.join(ROOT, "build", "packages")
NEXT = "99.0.0"


def one(pattern):
    found = glob.glob(os.path.join(PACKAGES, pattern))
    assert len(found) == 1, f"{pattern}: {found}; run ./package.sh"
    return found[0]


class Releases:
    """The later version is signed with a certificate of the test, has a new document and lacks an old one."""

    def __init__(self):
        self.folder = tempfile.mkdtemp(prefix="packages-")
        environment = {**os.environ, "SOURCE_DATE_EPOCH": "1700000000", **test_signature.make(self.folder)}
        programs = os.path.join(self.folder, "programs")
        subprocess.run([os.path.join(PACKAGING, "strip-programs.sh"), os.path.join(ROOT, "build", "bin"), programs],
                       check=True)
        self.zip = one("torvane-log-server-*-x64.zip")
        self.setup = one("*-setup.exe")
        self.msi = one("*.msi")
        subprocess.run([sys.executable, "-m", "zipfile", "-e", self.zip, self.folder], check=True)
        self.version = os.path.basename(self.zip).split("-")[3]
        stage = os.path.join(self.folder, f"torvane-log-server-{self.version}-x64")
        with open(os.path.join(stage, "docs", "new.md"), "w", encoding="utf-8") as file:
            file.write("A file that only the next version has.\n")
        os.remove(os.path.join(stage, "docs", "testing.md"))
        self.next_setup = os.path.join(self.folder, "next-setup.exe")
        self.next_msi = os.path.join(self.folder, "next.msi")

        def run(program, *words):
            subprocess.run([os.path.join(PACKAGING, program), *words], check=True, env=environment)
        run("make-setup.sh", stage, os.path.join(programs, "setup_helper.exe"), NEXT, self.next_setup)
        run("make_msi.py", stage, os.path.join(programs, "msi_actions.dll"), NEXT, self.next_msi)
        run("sign_files.py", self.next_setup, self.next_msi)

    def close(self):
        shutil.rmtree(self.folder)

    def rows(self, table, msi=None):
        """Returns the rows of a table of the MSI, without the three lines that describe it."""
        text = subprocess.run(["msiinfo", "export", msi or self.msi, table], check=True, text=True,
                              stdout=subprocess.PIPE).stdout
        return [line.split("\t") for line in text.splitlines()[3:]]

    def actions(self):
        """Returns [(number, action, condition)] of an installation in order."""
        return sorted((int(number), action, condition)
                      for action, condition, number in self.rows("InstallExecuteSequence"))

    def failing_msi(self, msi, after, when):
        """Returns a copy of the MSI with an action that fails after the action of the number `after`."""
        path = os.path.join(self.folder, "failing.msi")
        shutil.copyfile(msi, path)
        # 19: fails with the text, at this place of the sequence.
        for statement in (
                "INSERT INTO `CustomAction` (`Action`, `Type`, `Target`) "
                "VALUES ('Fail', 19, 'The test lets this fail.')",
                "INSERT INTO `InstallExecuteSequence` (`Action`, `Condition`, `Sequence`) "
                f"VALUES ('Fail', '{when}', {after + 1})"):
            subprocess.run(["msibuild", path, "-q", statement], check=True)
        return path
