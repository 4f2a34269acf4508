#!/usr/bin/env python3
"""Installs the client library into a directory of its own and uses it from there as other projects do.

usage: install_test.py BUILD C-COMPILER CXX-COMPILER [FLAG...]

BUILD is a build directory of ours, for Windows or native; FLAGs are those that it was built with. Checks what is
installed and what the shared library exports and imports; builds the examples against it by the CMake package (static
and shared) and by pkg-config; and runs them on a log file. Windows programs run under Wine.
"""

import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile

ROOT = os.path.realpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", ".."))
SYSTEM_DLLS = {"kernel32.dll", "advapi32.dll", "msvcrt.dll"}
EXPECTED = ("2026-01-01 00:00:01.000 T1 Test: first\n2026-01-01 00:00:02.000 T2 Test: second\n")


class Failure(Exception):
    pass


def run(*command, env=None, codes=(0,)):
    """Standard output of a command; its failure is ours."""
    done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                          env=env, timeout=240, check=False)
    if done.returncode not in codes:
        raise Failure(f"{' '.join(command)}: exit code {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout.replace("\r\n", "\n")


def expect(condition, text):
    if not condition:
        raise Failure(text)


def read(path):
    with open(path, encoding="utf-8") as file:
        return file.read()


def log_file(path):
    """A log of capacity 2 with two messages, in the bytes of docs/log_file_format.md."""
    def slot(number, second, kind, text):
        times = struct.pack("<8h", 2026, 1, 1, 0, 0, second, 0, 0)
        return (struct.pack("<Q", number) + bytes(8) + times + struct.pack("<I", kind) + b"Test".ljust(257, b"\0")
                + text.ljust(257, b"\0") + bytes(4 + 6))
    header = struct.pack("<iB3xiii4xQQQ", 0, 0, 2, 2, 0, 2, 1, 2)
    with open(path, "wb") as file:
        file.write(header + bytes(192) + slot(0, 1, 1, b"first") + slot(1, 2, 2, b"second"))


class Library:
    def __init__(self, build, c_compiler, cxx_compiler, flags, scratch):
        self.build, self.c_compiler, self.cxx_compiler, self.flags = build, c_compiler, cxx_compiler, flags
        self.windows = "mingw32" in os.path.basename(c_compiler)
        self.scratch = scratch
        self.prefix = os.path.join(scratch, "installed here")
        self.log = os.path.join(scratch, "log.dat")
        log_file(self.log)

    def path(self, *names):
        return os.path.join(self.prefix, *names)

    def check_installation(self):
        run("cmake", "--install", self.build, "--prefix", self.prefix, "--component", "client", "--strip")
        files = ["include/tamlog.h", "include/tamlog.hpp", "include/tamlog/ostream.hpp",
                 "include/tamlog/spdlog_sink.hpp", "lib/libtamlog.a", "lib/pkgconfig/tamlog.pc",
                 "lib/cmake/tamlog/tamlogConfig.cmake", "lib/cmake/tamlog/tamlogConfigVersion.cmake",
                 "lib/cmake/tamlog/tamlogTargets.cmake"]
        files += ["bin/tamlog.dll", "lib/libtamlog.dll.a", "lib/tamlog.def"] if self.windows else ["lib/libtamlog.so"]
        for name in files:
            expect(os.path.exists(self.path(name)), f"{name} is not installed")
        for folder, _, names in os.walk(self.path("lib")):
            for name in names:
                if name.endswith((".cmake", ".pc")):
                    expect(ROOT not in read(os.path.join(folder, name)), f"{name} names the source tree")

    def check_exports(self):
        declared = set(re.findall(r"TAMLOG_CALL (tamlog_\w+)\(", read(self.path("include/tamlog.h"))))
        declared -= {"tamlog_view_function"}
        if self.windows:
            dump = run("x86_64-w64-mingw32-objdump", "-p", self.path("bin/tamlog.dll"))
            exported = set(re.findall(r"^\t\[ *\d+\] (\w+)$", dump, re.M))
            imported = {name.lower() for name in re.findall(r"DLL Name: (\S+)", dump)}
            expect(imported and imported <= SYSTEM_DLLS, f"tamlog.dll needs {sorted(imported - SYSTEM_DLLS)}")
        else:
            dump = run("nm", "--dynamic", "--defined-only", self.path("lib/libtamlog.so"))
            exported = {line.split()[-1] for line in dump.splitlines()}
        expect(len(declared) > 40, "the header's declarations were not recognised")
        expect(exported == declared, f"exported and declared differ: {sorted(exported ^ declared)}")

    def execute(self, program, *arguments, codes=(0,)):
        command = [program, *arguments]
        if self.windows:
            command = [os.path.join(ROOT, "scripts", "wine-run.sh"), program,
                       *(argument.replace("/", "\\") if argument.startswith("/") else argument
                         for argument in arguments)]
        return run(*command, env=self.sanitizer_environment(leaks=1), codes=codes)

    def sanitizer_environment(self, leaks):
        """For a program that does not load the sanitizer's run-time library itself, while ours needs it."""
        env = {**os.environ, "ASAN_OPTIONS": f"detect_leaks={leaks}"}
        if "-fsanitize=address" in " ".join(self.flags):
            env["LD_PRELOAD"] = run(self.c_compiler, "-print-file-name=libasan.so").strip()
        return env

    def check_program(self, program):
        output = self.execute(program, self.log)
        expect(output == EXPECTED, f"{program} printed:\n{output}")

    def check_repair(self, program):
        """A log whose older message has a type that does not exist, and an end that was cut off."""
        with open(self.log, "rb") as file:
            data = bytearray(file.read())
        struct.pack_into("<I", data, 240 + 32, 0x100 + 1)
        damaged = os.path.join(self.scratch, "damaged.dat")
        with open(damaged, "wb") as file:
            file.write(data[:-560])
        output = os.path.join(self.scratch, f"{os.path.basename(program)}.{len(os.listdir(self.scratch))}.dat")
        printed = self.execute(program, damaged, output, codes=(1,))
        for text in ("damage known-type: slot 0", "damage slots-in-file:", "changed: slot 0 byte 240: type 257 became 1",
                     "saved 1, lost 1; a server keeps them at a capacity of 2"):
            expect(text in printed, f"{program} printed without '{text}':\n{printed}")
        expect(self.execute(program, output) == "damage 0, remarks 0\n", "the repaired file is not in order")

    def check_package(self, shared):
        build = os.path.join(self.scratch, f"package-{shared}")
        toolchain = []
        if self.windows:
            toolchain = ["-DCMAKE_SYSTEM_NAME=Windows", "-DCMAKE_EXE_LINKER_FLAGS=-static",
                         f"-DCMAKE_RUNTIME_OUTPUT_DIRECTORY={build}"]
        run("cmake", "-G", "Ninja", "-S", os.path.join(ROOT, "examples"), "-B", build,
            f"-DCMAKE_C_COMPILER={self.c_compiler}", f"-DCMAKE_CXX_COMPILER={self.cxx_compiler}",
            f"-DCMAKE_C_FLAGS={' '.join(self.flags)}", f"-DCMAKE_CXX_FLAGS={' '.join(self.flags)}",
            f"-DCMAKE_PREFIX_PATH={self.prefix}", f"-DBUILD_SHARED_LIBS={shared}", *toolchain)
        run("cmake", "--build", build)
        if self.windows and shared == "ON":
            shutil.copy(self.path("bin/tamlog.dll"), build)
        suffix = ".exe" if self.windows else ""
        self.check_program(os.path.join(build, "example_submit_and_read" + suffix))
        self.check_repair(os.path.join(build, "example_verify_and_repair" + suffix))
        if self.windows:
            program = os.path.join(build, "example_submit_and_read.exe")
            uses = "tamlog.dll" in run("x86_64-w64-mingw32-objdump", "-p", program)
            expect(uses == (shared == "ON"), f"BUILD_SHARED_LIBS={shared} gave the other library")

    def check_pkg_config(self):
        env = {**os.environ, "PKG_CONFIG_LIBDIR": self.path("lib/pkgconfig")}
        options = ["--static"] if self.windows else []
        words = run("pkg-config", *options, "--cflags", "--libs", "tamlog", env=env)
        words = [word.replace("\\ ", " ") for word in re.findall(r"(?:\\ |\S)+", words)]
        program = os.path.join(self.scratch, "by-pkg-config" + (".exe" if self.windows else ""))
        extra = ["-static"] if self.windows else [f"-Wl,-rpath,{self.path('lib')}"]
        run(self.c_compiler, *self.flags, "-std=c99", os.path.join(ROOT, "examples", "submit_and_read.c"), "-o",
            program, *words, *extra)
        self.check_program(program)

    def check_python(self):
        """The shared library without a compiler in between."""
        output = run(sys.executable, os.path.join(ROOT, "examples", "read_log.py"), self.path("lib/libtamlog.so"),
                     self.log, env=self.sanitizer_environment(leaks=0))
        expect('"text":"first"' in output and '"text":"second"' in output and output.count("\n") == 2,
               f"read_log.py printed:\n{output}")


def main(arguments):
    if len(arguments) < 3:
        print(__doc__, file=sys.stderr)
        return 2
    with tempfile.TemporaryDirectory() as scratch:
        library = Library(arguments[0], arguments[1], arguments[2], " ".join(arguments[3:]).split(), scratch)
        try:
            library.check_installation()
            library.check_exports()
            library.check_package("OFF")
            library.check_package("ON")
            library.check_pkg_config()
            if not library.windows:
                library.check_python()
        except Failure as failure:
            print(failure)
            return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
