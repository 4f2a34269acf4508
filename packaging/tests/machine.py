"""A Windows machine for the tests of the packages: a Wine prefix of its own, with the driver double."""

import hashlib
import os
import subprocess
import tempfile
import time

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
WINE = "/usr/lib/wine/wine64"
SERVICE_KEY = r"HKLM\SYSTEM\CurrentControlSet\Services\TamLogServer"
EVENT_KEY = r"HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\TamLogServer"
ENVIRONMENT_KEY = r"HKLM\SYSTEM\CurrentControlSet\Control\Session Manager\Environment"
MAKER_KEY = r"HKLM\SOFTWARE\Brenmark VORTA"
PACKAGE_KEY = MAKER_KEY + r"\Torvane Log Server Package"
SETTINGS_KEY = MAKER_KEY + r"\Torvane Log Server"
UNINSTALL_KEY = r"HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\Uninstall\Torvane Log Server"


class Machine:
    """Made anew by the constructor; close() ends all of its processes."""

    def __init__(self, name):
        self.name = name
        self.prefix = subprocess.run([os.path.join(ROOT, "scripts", "wine-prefix.sh"), name], check=True, text=True,
                                     stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout.strip()
        dump = subprocess.run(["bash", "-c", '. "$0" "$1" && env -0',
                               os.path.join(ROOT, "scripts", "wine-env.sh"), self.prefix], check=True,
                              stdout=subprocess.PIPE).stdout
        self.environment = dict(line.split("=", 1) for line in dump.decode().split("\0") if "=" in line)
        self.shell("wine_server_start")
        self.children = []

    def close(self):
        for child in self.children:
            child.kill()
            child.wait()
        self.shell("wine_server_stop")

    def shell(self, function):
        subprocess.run(["bash", "-c", '. "$0" "$1" && ' + function, os.path.join(ROOT, "scripts", "wine-env.sh"),
                        self.prefix], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                       stdin=subprocess.DEVNULL)

    def path(self, windows):
        """Returns the Linux path of C:\\..."""
        return os.path.join(self.prefix, "drive_c", *windows[3:].split("\\"))

    @property
    def directory(self):
        return self.path(r"C:\Program Files\Torvane")

    def run(self, *command, timeout=180):
        """Returns exit code (its low 8 bits) and output."""
        # Into a file: Wine's desktop, which the first window starts, would keep a pipe open.
        with tempfile.TemporaryFile() as output:
            done = subprocess.run([WINE, *command], check=False, env=self.environment, stdin=subprocess.DEVNULL,
                                  stdout=output, stderr=subprocess.STDOUT, timeout=timeout)
            output.seek(0)
            return done.returncode, output.read().decode("utf-8", "replace").replace("\r", "")

    def start(self, *command, output):
        child = subprocess.Popen([WINE, *command], env=self.environment, stdin=subprocess.DEVNULL, stdout=output,
                                 stderr=subprocess.STDOUT)
        self.children.append(child)
        return child

    def exit_code(self, *command):
        """Returns the whole exit code: run() knows the low 8 bits of it."""
        words = " ".join(f'"{word}"' if " " in word else word for word in command)
        with open(self.path(r"C:\run.bat"), "w", encoding="ascii", newline="\r\n") as file:
            file.write(f"@{words}\n@echo code %ERRORLEVEL%.\n")
        said = self.run("cmd.exe", "/c", r"C:\run.bat")[1]
        return int(said.split("code ")[-1].split(".")[0])

    def tool(self, *arguments):
        return self.run(os.path.join(self.directory, "tamlogctl.exe"), *arguments)

    def load_driver(self):
        folder = self.path(r"C:\driver")
        os.makedirs(folder, exist_ok=True)
        for name in ("tamlog.sys", "tamlogdrv.exe"):
            subprocess.run(["cp", os.path.join(ROOT, "build", "bin", name), folder], check=True)
        code, said = self.run(os.path.join(folder, "tamlogdrv.exe"), "install", r"C:\driver\tamlog.sys")
        assert code == 0, said

    def key(self, path):
        """Returns the text of a key with everything below it; empty when it does not exist."""
        code, said = self.run("reg.exe", "query", path, "/s")
        return said.strip() if code == 0 else ""

    def value(self, path, name):
        code, said = self.run("reg.exe", "query", path, "/v", name)
        if code != 0:
            return None
        for line in said.splitlines():
            parts = line.split("    ", 3)
            if len(parts) == 4 and parts[1].lower() == name.lower():
                return parts[3]
        return None

    def system_path(self):
        return self.value(ENVIRONMENT_KEY, "Path")

    def state(self):
        """Returns the state of the service: "running", "stopped", another number, or "" when it is not registered."""
        code, said = self.run("sc.exe", "query", "TamLogServer")
        for line in said.splitlines() if code == 0 else ():
            if "STATE" in line:
                number = line.split(":")[1].split()[0]
                return {"1": "stopped", "4": "running"}.get(number, number)
        return ""

    def wait_for_state(self, wanted, seconds=30):
        return self.wait_until(lambda: self.state() == wanted, seconds)

    @staticmethod
    def wait_until(condition, seconds=30):
        deadline = time.monotonic() + seconds
        while not condition():
            if time.monotonic() > deadline:
                return False
            time.sleep(0.2)
        return True

    def files(self):
        """Returns {path: digest} of the directory of the package."""
        found = {}
        for where, _, names in os.walk(self.directory):
            for name in names:
                path = os.path.join(where, name)
                try:
                    with open(path, "rb") as file:
                        found[os.path.relpath(path, self.directory)] = hashlib.sha256(file.read()).hexdigest()
                except FileNotFoundError:
                    continue  # the uninstaller, which nobody can wait for, has just deleted it
        return found

    def traces(self):
        """Everything that a package may change, except messages and settings."""
        files = {name: digest for name, digest in self.files().items() if name != "Logs.dat"}
        return {"files": files, "path": self.system_path(), "service": self.key(SERVICE_KEY),
                "event source": self.key(EVENT_KEY), "package": self.key(PACKAGE_KEY),
                "programs": self.key(UNINSTALL_KEY), "state": self.state()}

    def everything(self):
        """Returns a line for each value and key of the registry and for each file and directory of drive C:."""
        found = set()
        for root in ("HKLM", "HKU"):
            key = ""
            for line in self.key(root).splitlines():
                if line.startswith("HKEY_"):
                    key = line
                found.add(line if line == key else key + " : " + line.strip())
        drive = os.path.join(self.prefix, "drive_c")
        for where, directories, names in os.walk(drive):
            found.update(os.path.relpath(os.path.join(where, name), drive) for name in directories)
            for name in names:
                path = os.path.join(where, name)
                with open(path, "rb") as file:
                    found.add(os.path.relpath(path, drive) + " : " + hashlib.sha256(file.read()).hexdigest())
        return found

    def data(self):
        """Messages, settings, the server's own log, and whether the directory of the package exists."""
        return {"messages": self.files().get("Logs.dat"), "settings": self.key(SETTINGS_KEY),
                "server log": os.path.exists(self.path(r"C:\windows\system32\TamLogServiceLog.txt")),
                "directory": os.path.isdir(self.directory)}
