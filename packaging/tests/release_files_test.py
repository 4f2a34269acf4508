#!/usr/bin/env python3
"""Checks the files of build/packages without running them: contents, checksums, bill of materials, no foreign paths.

usage: packaging/tests/release_files_test.py
"""

import hashlib
import json
import os
import re
import subprocess
import sys
import tempfile
import unittest
import zipfile

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
PACKAGES = os.path.join(ROOT, "build", "packages")
sys.path.insert(0, os.path.join(ROOT, "packaging"))

import make_winget  # noqa: E402


def one(ending):
    found = [name for name in sorted(os.listdir(PACKAGES)) if name.endswith(ending)]
    assert len(found) == 1, f"{ending}: {found}; run ./package.sh"
    return os.path.join(PACKAGES, found[0])


def digest(content):
    return hashlib.sha256(content).hexdigest()


class ConformanceKit(unittest.TestCase):
    def setUp(self):
        self.place = tempfile.TemporaryDirectory()
        self.addCleanup(self.place.cleanup)
        found = [name for name in os.listdir(PACKAGES) if name.startswith("torvane-log-conformance-")]
        self.assertEqual(len(found), 1, "run ./package.sh")
        with zipfile.ZipFile(os.path.join(PACKAGES, found[0])) as packed:
            packed.extractall(self.place.name)
        self.kit = os.path.join(self.place.name, found[0][:-len(".zip")])

    def files(self):
        return [os.path.join(where, name) for where, _, names in os.walk(self.kit) for name in names]

    def test_judges_as_it_is(self):
        python = sys.executable + " -B "
        outcome = subprocess.run([sys.executable, "conformance/judge.py", "--read", python + "examples/reference_log.py",
                                  "--follow", python + "examples/reference_follower.py"],
                                 cwd=self.kit, capture_output=True, text=True, check=False)
        self.assertEqual(outcome.returncode, 0, outcome.stdout + outcome.stderr)

    def test_holds_the_program_for_servers_and_notices(self):
        for name in ("conformance/pipe_claims.exe", "conformance/log_layout.h", "licenses/README.txt"):
            self.assertTrue(os.path.exists(os.path.join(self.kit, name)), name)

    def test_has_documents_whose_links_lead_somewhere(self):
        for start in ("conformance/README.md", "docs/writing_a_client.md", "docs/log_file_format.md",
                      "docs/reader_protocol.md", "docs/pipe_protocol.md", "docs/read_access.md"):
            with open(os.path.join(self.kit, start), encoding="utf-8") as file:
                links = re.findall(r"\]\(([^)#:]+)", file.read())
            for link in links:
                target = os.path.join(self.kit, os.path.dirname(start), link)
                self.assertTrue(os.path.exists(target), f"{start}: {link}")

    def test_no_file_contains_the_place_of_the_build(self):
        for path in self.files():
            with open(path, "rb") as file:
                self.assertNotIn(ROOT.encode(), file.read(), path)


class Zip(unittest.TestCase):
    def setUp(self):
        with zipfile.ZipFile(one("-x64.zip")) as packed:
            self.files = {name.split("/", 1)[1]: packed.read(name) for name in packed.namelist()}

    def test_holds_programs_library_documents_and_licences(self):
        for name in ("TamLogServer.exe", "tamlogctl.exe", "tamlogcheck.exe", "README.txt", "CHANGELOG.md",
                     "docs/tamlogctl.md",
                     "library/bin/tamlog.dll", "library/include/tamlog.h", "library/lib/libtamlog.a",
                     "library/lib/libtamlog.dll.a", "library/lib/tamlog.def", "licenses/README.txt"):
            self.assertIn(name, self.files)
        self.assertNotIn("tamlog.sys", str(self.files.keys()), "the driver double is not for users")

    def test_no_file_contains_the_place_of_the_build(self):
        for name, content in self.files.items():
            self.assertNotIn(ROOT.encode(), content, name)
            self.assertNotIn(os.path.basename(ROOT).encode() + b"/build/", content, name)

    def test_every_part_that_is_linked_in_has_its_notices(self):
        overview = self.files["licenses/README.txt"].decode()
        for part in ("GCC run-time", "MinGW-w64 run-time", "CLI11", "JSON for Modern C++", "fmt", "zlib"):
            self.assertIn(part, overview)
        for name in re.findall(r"^ +notices +(\S+)$", overview, re.MULTILINE):
            self.assertGreater(len(self.files["licenses/" + name]), 1000, name)

    def test_the_bill_of_materials_names_every_file_with_its_checksum(self):
        with open(one(".spdx.json"), encoding="utf-8") as file:
            bill = json.load(file)
        listed = {entry["fileName"][2:]: {sum_["algorithm"]: sum_["checksumValue"] for sum_ in entry["checksums"]}
                  for entry in bill["files"]}
        self.assertEqual(set(listed), set(self.files))
        for name, content in self.files.items():
            self.assertEqual(listed[name]["SHA256"], digest(content), name)
        identifiers = [entry["SPDXID"] for entry in bill["files"] + bill["packages"]]
        self.assertEqual(len(identifiers), len(set(identifiers)))
        known = {*identifiers, "SPDXRef-DOCUMENT"}
        for relation in bill["relationships"]:
            self.assertIn(relation["spdxElementId"], known)
            self.assertIn(relation["relatedSpdxElement"], known)
        self.assertIn("STATIC_LINK", {relation["relationshipType"] for relation in bill["relationships"]})

    def test_the_server_contains_only_the_compilers_run_time(self):
        with open(one(".spdx.json"), encoding="utf-8") as file:
            bill = json.load(file)
        server = next(entry["SPDXID"] for entry in bill["files"] if entry["fileName"] == "./TamLogServer.exe")
        linked = {relation["relatedSpdxElement"] for relation in bill["relationships"]
                  if relation["spdxElementId"] == server}
        self.assertEqual(len(linked), 2, linked)
        self.assertTrue(all("mingw" in part for part in linked), linked)


class Sums(unittest.TestCase):
    def test_name_every_file(self):
        with open(os.path.join(PACKAGES, "SHA256SUMS"), encoding="utf-8") as file:
            sums = dict(reversed(line.rstrip("\n").split("  ", 1)) for line in file)
        present = {os.path.relpath(os.path.join(where, name), PACKAGES) for where, _, names in os.walk(PACKAGES)
                   for name in names if name not in ("SHA256SUMS", ".lock")}
        self.assertEqual(set(sums), present)
        for name, wanted in sums.items():
            with open(os.path.join(PACKAGES, name), "rb") as file:
                self.assertEqual(digest(file.read()), wanted, name)


class Winget(unittest.TestCase):
    def test_names_both_packages_with_their_checksums(self):
        with open(os.path.join(PACKAGES, "winget", make_winget.IDENTIFIER + ".installer.yaml"), encoding="utf-8") as file:
            manifest = file.read()
        for path in (one(".msi"), one("-setup.exe")):
            self.assertIn(os.path.basename(path), manifest)
            with open(path, "rb") as file:
                self.assertIn("InstallerSha256: " + digest(file.read()).upper(), manifest)

    def test_has_the_product_code_of_the_msi(self):
        table = subprocess.run(["msiinfo", "export", one(".msi"), "Property"], check=True, text=True,
                               stdout=subprocess.PIPE).stdout
        code = re.search(r"ProductCode\t(\{[0-9A-F-]+\})", table)[1]
        with open(os.path.join(PACKAGES, "winget", make_winget.IDENTIFIER + ".installer.yaml"), encoding="utf-8") as file:
            self.assertIn(code, file.read())


class DebianPackage(unittest.TestCase):
    """Installed by dpkg into a directory of its own, which has a database of its own."""

    def setUp(self):
        temporary = tempfile.TemporaryDirectory()
        self.addCleanup(temporary.cleanup)
        self.root = temporary.name
        for name in ("var/lib/dpkg/info", "var/lib/dpkg/updates", "var/lib/dpkg/triggers"):
            os.makedirs(os.path.join(self.root, name))
        for name in ("status", "available"):
            with open(os.path.join(self.root, "var/lib/dpkg", name), "w", encoding="ascii"):
                pass
        self.before = self.files()
        self.dpkg("--install", one(".deb"))

    def dpkg(self, *words):
        # The packages it depends on are those of this machine.
        done = subprocess.run(["dpkg", "--root=" + self.root, "--log=/dev/null", "--force-not-root", "--force-depends",
                               "--force-script-chrootless", *words], check=False, text=True, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT)
        self.assertEqual(done.returncode, 0, done.stdout)

    def files(self):
        return {os.path.relpath(os.path.join(where, name), self.root) for where, folders, names in os.walk(self.root)
                for name in names + folders if not where.startswith(os.path.join(self.root, "var"))}

    def path(self, name):
        return os.path.join(self.root, "usr", name)

    def test_the_program_runs(self):
        for words, wanted in ((["--version"], r"tamlogctl \d+\.\d+\.\d+"), (["--help"], "show")):
            said = subprocess.run([self.path("bin/tamlogctl"), *words], check=True, text=True,
                                  stdout=subprocess.PIPE).stdout
            self.assertRegex(said, wanted)

    def test_an_example_compiles_with_pkg_config_and_runs(self):
        environment = {**os.environ, "PKG_CONFIG_PATH": self.path("lib/pkgconfig")}
        flags = subprocess.run(["pkg-config", "--cflags", "--libs", "tamlog"], check=True, text=True,
                               stdout=subprocess.PIPE, env=environment).stdout.split()
        source = self.path("share/doc/torvane-log-tools/examples/verify_and_repair.c")
        program = os.path.join(self.root, "example")
        subprocess.run(["gcc", source, "-o", program, *flags], check=True)
        done = subprocess.run([program], check=False, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                              env={"LD_LIBRARY_PATH": self.path("lib")})
        self.assertIn("usage", done.stdout.lower())

    def test_removal_leaves_nothing(self):
        self.assertIn("usr/bin/tamlogctl", self.files())
        self.dpkg("--purge", "torvane-log-tools")
        self.assertEqual(self.files(), self.before)

    def test_manual_completions_and_sums_are_there(self):
        shown = subprocess.run(["man", "--warnings", self.path("share/man/man1/tamlogctl.1.gz")], check=True, text=True,
                               stdout=subprocess.PIPE, stderr=subprocess.PIPE, env={**os.environ, "LC_ALL": "C.UTF-8"})
        self.assertEqual(shown.stderr, "")
        self.assertIn("tamlogctl", shown.stdout)
        for shell, name in (("bash", "bash-completion/completions/tamlogctl"),
                            ("zsh", "zsh/vendor-completions/_tamlogctl")):
            subprocess.run([shell, "-n", self.path("share/" + name)], check=True)
            self.assertGreater(os.path.getsize(self.path("share/" + name)), 100)
        sums = subprocess.run(["dpkg-deb", "--info", one(".deb"), "md5sums"], check=True, text=True,
                              stdout=subprocess.PIPE).stdout
        subprocess.run(["md5sum", "--check", "--quiet"], input=sums, text=True, check=True, cwd=self.root)

    def test_is_in_order(self):
        def field(name):
            return subprocess.run(["dpkg-deb", "--field", one(".deb"), name], check=True, text=True,
                                  stdout=subprocess.PIPE).stdout.strip()
        for name in ("Package", "Version", "Architecture", "Section", "Priority", "Homepage"):
            self.assertTrue(field(name), name)
        self.assertRegex(field("Maintainer"), r"^[^<]+ <[^@<> ]+@[^@<> ]+>$")
        self.assertRegex(field("Depends"), r"\blibc6 \(>= ")
        self.assertLess(abs(int(field("Installed-Size")) - sum(
            os.path.getsize(os.path.join(self.root, name)) for name in self.files() - self.before
            if os.path.isfile(os.path.join(self.root, name)) and not os.path.islink(os.path.join(self.root, name)))
                            / 1024), 400)
        listing = subprocess.run(["dpkg-deb", "--contents", one(".deb")], check=True, text=True,
                                 stdout=subprocess.PIPE).stdout
        for line in listing.splitlines():
            mode, owner = line.split()[:2]
            self.assertEqual(owner, "root/root", line)
            self.assertRegex(mode, r"^(d|-|l)rw[x-]r-[x-]r-[x-]$|^lrwxrwxrwx$", line)
        # Only the update of the loader's cache runs at installation.
        control = subprocess.run(["dpkg-deb", "--info", one(".deb")], check=True, text=True,
                                 stdout=subprocess.PIPE).stdout
        for script in ("preinst", "postinst", "prerm", "postrm"):
            self.assertNotIn(script, control)
        self.assertIn("triggers", control)
        self.assertTrue(os.path.exists(self.path("share/doc/torvane-log-tools/copyright")))
        self.assertTrue(os.path.exists(self.path("share/doc/torvane-log-tools/changelog.gz")))

    def test_the_checks_of_debian_find_nothing(self):
        done = subprocess.run(["lintian", "--fail-on", "error,warning", "--tag-display-limit", "0", "--allow-root",
                               one(".deb")], check=False, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        self.assertEqual((done.returncode, done.stdout), (0, ""))

    def test_no_file_contains_the_place_of_the_build(self):
        for where, _, names in os.walk(self.path("")):
            for name in names:
                with open(os.path.join(where, name), "rb") as file:
                    self.assertNotIn(ROOT.encode(), file.read(), name)


if __name__ == "__main__":
    unittest.main()
