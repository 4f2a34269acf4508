"""Runs Wine and the real service in it, everything on the first processor, in a prefix of bench.sh's own.

Each scenario starts a Wine server of its own, so that none measures the remains of another. Unpinned, each switch from
one process to another wakes a processor, which costs more than the switch itself.
"""

import contextlib
import glob
import os
import subprocess
import time

from failure import Failure
from meter import Meter

KEY = r"HKLM\SOFTWARE\Brenmark VORTA\Torvane Log Server"


def prefix():
    if "TAMLOG_BENCH_PREFIX" not in os.environ:
        raise Failure("no Wine prefix to measure in; ./bench.sh makes one and names it")
    return os.environ["TAMLOG_BENCH_PREFIX"]


def environment():
    return {**os.environ, "WINEPREFIX": prefix()}


def command(program, *arguments, processors="0"):
    """Returns the command that runs `program`: one of ours in build/bin, or one of Wine's own."""
    ours = f"build/bin/{program}"
    return ["taskset", "-c", processors, "scripts/wine-run.sh", ours if os.path.exists(ours) else program,
            *map(str, arguments)]


def meter(program, *arguments, **how):
    return Meter(command(program, *arguments, **how), environment())


def windows_path(path):
    return "Z:" + os.path.abspath(path).replace("/", "\\")


def shell(text):
    """Runs bash with the functions of scripts/wine-env.sh."""
    bash = ["taskset", "-c", "0", "bash", "-c", f'. scripts/wine-env.sh "$1"; {text}', "bench", prefix()]
    return subprocess.run(bash, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                          check=False)


@contextlib.contextmanager
def running(trace=None):
    """Starts a fresh Wine server and ends it afterwards. `trace`: a file into which the server prints its requests."""
    start = "wine_server_start"
    if trace is not None:
        start = (f'"$wineserver64" -f -p -d1 >/dev/null 2>"{trace}" </dev/null & sleep 1; '
                 'timeout 120 "$wine64" cmd.exe /c exit >/dev/null 2>&1 </dev/null')
    if shell(start).returncode != 0:
        raise Failure("Wine's server does not start")
    try:
        yield
    finally:
        shell("wine_server_stop")


def tool(program, *arguments, allowed=(0,)):
    """Runs a program to its end. Throws Failure for an exit code that is not in `allowed`; None allows all."""
    line = command(program, *arguments)
    result = subprocess.run(line, stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120,
                            env=environment(), check=False)
    if allowed is not None and result.returncode not in allowed:
        raise Failure(f"{' '.join(line)} failed with {result.returncode}: {result.stdout}{result.stderr}")
    return result


def set_up_server(log, slots, **numbers):
    """Loads the driver and writes the server's settings; `numbers` are further values of its key."""
    tool("tamlogdrv.exe", "install", windows_path("build/bin/tamlog.sys"))
    tool("reg.exe", "add", KEY, "/v", "LogFile", "/t", "REG_SZ", "/d", windows_path(log), "/f")
    for name, number in {"MaxMessage": slots, **numbers}.items():
        tool("reg.exe", "add", KEY, "/v", name, "/t", "REG_DWORD", "/d", str(number), "/f")


def server_processes():
    """Returns the ids of the TamLogServer.exe processes in our prefix."""
    found = []
    for path in glob.glob("/proc/[0-9]*/cmdline"):
        directory = os.path.dirname(path)
        with contextlib.suppress(OSError):
            with open(path, "rb") as file:
                is_server = b"TamLogServer.exe" in file.read()
            with open(f"{directory}/environ", "rb") as file:
                if is_server and f"WINEPREFIX={prefix()}".encode() in file.read().split(b"\0"):
                    found.append(int(os.path.basename(directory)))
    return found


@contextlib.contextmanager
def service(log, slots, **numbers):
    """Starts the real service over the log file `log` and removes it afterwards. Needs `running`."""
    set_up_server(log, slots, **numbers)
    tool("TamLogServer.exe", "-install")
    tool("sc.exe", "start", "TamLogServer")
    try:
        wait("the service does not answer", lambda: tool("tamlogctl.exe", "status", allowed=None).returncode == 0)
        yield
    finally:
        tool("sc.exe", "stop", "TamLogServer", allowed=None)
        wait("the service does not stop", lambda: not server_processes())
        tool("TamLogServer.exe", "-remove", allowed=None)


def wait(failure, condition, seconds=60):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise Failure(failure)
        time.sleep(0.2)
