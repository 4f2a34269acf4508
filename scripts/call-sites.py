#!/usr/bin/env python3
"""Counts the call sites of system calls in the server's code, and those that the tests have failed."""

import argparse
import collections
import pathlib
import re
import subprocess
import sys

HELP = """\
The call sites come from the libraries that the server is linked from. A site is a call through an import pointer
(`call *__imp_X`, directly or through a register that the pointer was loaded into), named by its source line and the
call. Several copies of one line, as inlining makes them, are one site.

FAILED is the output of the sweeping tests (TAMLOG_CALL_SITES): executable, offset of the return address in its image,
call. The executable's debug information maps the offset to a source line.

EXCEPTIONS lists calls that are not failed, one per line, with the reason after a colon:
  NAME: reason               the call has no failure to report to its caller
  FILE NAME COUNT: reason    this many sites of the call in the file are not failed

Exit code: 0 when every site is failed or excepted, 1 otherwise, also when an exception is no longer needed.
"""

ROOMS = ("util", "store", "pipe", "security", "server")
FOLDER = {"security": "pipe"}
OBJDUMP = "x86_64-w64-mingw32-objdump"
ADDR2LINE = "x86_64-w64-mingw32-addr2line"
CALLER_SAVED = {"rax", "rcx", "rdx", "r8", "r9", "r10", "r11"}

Site = collections.namedtuple("Site", "file line call")


def fail(text):
    sys.exit(f"call-sites.py: {text}")


def run(*command, stdin=None):
    done = subprocess.run(command, input=stdin, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        fail(f"{' '.join(command[:3])} failed: {done.stderr.strip()}")
    return done.stdout


def source_name(path):
    """Returns the path relative to the tree, also for an object that the compiler's cache has from another tree. A
    file outside of the tree (the standard library) keeps its bare name only."""
    ours = re.search(r"(?:^|/)build/windows/\.\./\.\./(.*)$", path) or re.match(r"\.\./\.\./(.*)$", path)
    return ours.group(1) if ours else path.rsplit("/", 1)[-1]


class Disassembly:
    """Follows one archive's code line by line and collects its call sites."""

    LINE = re.compile(r"^(\S.*):(\d+)(?: \(discriminator \d+\))?$")
    CODE = re.compile(r"^\s*[0-9a-f]+:\t[0-9a-f ]+\t(.*)$")
    RELOCATION = re.compile(r"IMAGE_REL_AMD64_REL32\s+__imp_(\w+)")
    LOAD = re.compile(r"mov\s+0x0\(%rip\),%(r\w+)")
    REGISTER_CALL = re.compile(r"call\s+\*%(r\w+)")
    # A pop does not count: it ends one path through the function, and the code after it belongs to another.
    WRITTEN = re.compile(r",%(r\w+)$")

    def __init__(self, archive):
        self.archive = archive
        self.sites, self.tails, self.registers, self.place, self.last = set(), set(), {}, None, ""

    def read(self):
        for line in run(OBJDUMP, "-dlr", str(self.archive)).splitlines():
            if re.match(r"^[0-9a-f]+ <.*>:$", line):
                self.registers, self.last = {}, ""
            elif relocation := self.RELOCATION.search(line):
                self.import_used(relocation.group(1))
            elif code := self.CODE.match(line):
                self.instruction(code.group(1).split("#")[0].strip())
            elif place := self.LINE.match(line):
                self.place = (source_name(place.group(1)), int(place.group(2)))
        return self.sites, self.tails

    def import_used(self, name):
        """The relocation follows the instruction that it belongs to."""
        if re.match(r"call|(rex\.W )?jmp", self.last):
            self.sites.add(Site(*self.place, name))
            if "jmp" in self.last:
                self.tails.add(Site(*self.place, name))
        elif load := self.LOAD.match(self.last):
            self.registers[load.group(1)] = name
        else:
            fail(f"{self.archive.name}: `{self.last}` uses the import {name} in an unknown way")

    def instruction(self, text):
        if call := self.REGISTER_CALL.match(text):
            name = self.registers.get(call.group(1))
            if name is not None:
                self.sites.add(Site(*self.place, name))
        elif written := self.WRITTEN.search(text):
            self.registers.pop(written.group(1), None)
        if text.startswith("call"):
            for register in CALLER_SAVED:
                self.registers.pop(register, None)
        self.last = text


def sites_in_code(build):
    """Returns all call sites, and those at the end of a function that the compiler turned into a jump: such a call
    returns to the function's caller."""
    sites, tails = set(), set()
    for room in ROOMS:
        archive = build / FOLDER.get(room, room) / f"libtamlog_{room}.a"
        if not archive.exists():
            fail(f"{archive} is missing; scripts/build.sh windows TamLogServer makes it")
        found, ends = Disassembly(archive).read()
        sites |= found
        tails |= ends
    return sites, tails


def image_base(executable):
    found = re.search(r"^ImageBase\s+([0-9a-f]+)$", run(OBJDUMP, "-p", str(executable)), re.MULTILINE)
    return int(found.group(1), 16)


def failed_sites(failed, root):
    offsets = collections.defaultdict(set)
    for number, line in enumerate(failed.read_text().splitlines(), 1):
        parts = line.split()
        if len(parts) != 3:
            fail(f"{failed}:{number}: `{line}` is not: executable offset call")
        offsets[parts[0]].add((int(parts[1], 16), parts[2]))
    sites = set()
    for name, calls in offsets.items():
        executable = root / "build" / "bin" / name
        base = image_base(executable)
        calls = sorted(calls)
        # The return address belongs to the next instruction, which may be of another line.
        addresses = "".join(f"{base + offset - 1:#x}\n" for offset, _ in calls)
        lines = run(ADDR2LINE, "-e", str(executable), stdin=addresses).splitlines()
        for (_, call), line in zip(calls, lines):
            path, _, number = re.sub(r" \(discriminator \d+\)$", "", line).rpartition(":")
            sites.add(Site(source_name(path), int(number) if number.isdigit() else 0, call))
    return sites


def put_tails_right(failed, code, tails):
    """Corrects failed sites that are no call sites: each is the caller of the one function that ends in that call."""
    right = set()
    for site in failed:
        ends = [tail for tail in tails if tail.call == site.call]
        right.add(ends[0] if site not in code and len(ends) == 1 else site)
    return right


def read_exceptions(path):
    calls, counts = {}, {}
    for number, line in enumerate(path.read_text().splitlines(), 1):
        if not line.strip() or line.startswith("#"):
            continue
        what, colon, reason = line.partition(":")
        parts = what.split()
        if not colon or not reason.strip() or len(parts) not in (1, 3):
            fail(f"{path}:{number}: `{line}` is neither `NAME: reason` nor `FILE NAME COUNT: reason`")
        if len(parts) == 1:
            calls[parts[0]] = reason.strip()
        else:
            counts[(parts[0], parts[1])] = (int(parts[2]), reason.strip())
    return calls, counts


def report(code, failed, exceptions):
    no_failure, excepted = read_exceptions(exceptions)
    wrong = [f"{name} is excepted in {exceptions.name}, but nothing calls it" for name in no_failure
             if name not in {site.call for site in code}]
    can_fail = {site for site in code if site.call not in no_failure}
    left = collections.Counter()
    for site in sorted(can_fail - failed):
        left[(site.file, site.call)] += 1
        if (site.file, site.call) not in excepted:
            wrong.append(f"{site.file}:{site.line}: {site.call} is never made to fail")
    for (file, call), (count, _) in excepted.items():
        if left[(file, call)] != count:
            wrong.append(f"{file}: {left[(file, call)]} calls of {call} are not failed; {exceptions.name} says {count}")
    for site in sorted(failed - code):
        wrong.append(f"{site.file}:{site.line}: {site.call} was failed, but the libraries have no such call site")
    for text in wrong:
        print(text)
    reached = can_fail & failed
    for (file, call), (count, reason) in sorted(excepted.items()):
        print(f"not failed: {file}: {call} ({count}): {reason}")
    print(f"call sites: {len(code)} in util, store, pipe and server; "
          f"{len(code) - len(can_fail)} of them have no failure to report")
    print(f"call sites failed: {len(reached)} of {len(can_fail)}")
    return not wrong


def main():
    parser = argparse.ArgumentParser(description=__doc__, epilog=HELP,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("failed", type=pathlib.Path, metavar="FAILED")
    parser.add_argument("exceptions", type=pathlib.Path, metavar="EXCEPTIONS")
    arguments = parser.parse_args()
    root = pathlib.Path(__file__).resolve().parent.parent
    build = root / "build" / "windows"
    code, tails = sites_in_code(build)
    failed = put_tails_right(failed_sites(arguments.failed, root), code, tails)
    return 0 if report(code, failed, arguments.exceptions) else 1


if __name__ == "__main__":
    sys.exit(main())
