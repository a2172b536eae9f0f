"""A Windows for the tests of the setup program: a Wine prefix with a screen of its own."""
import atexit
import fnmatch
import os
import pathlib
import re
import shutil
import signal
import subprocess
import time

PROJECT = pathlib.Path(__file__).resolve().parents[2]
BUILD = PROJECT / "build" / "release"
OUT = PROJECT / "build" / "setup-tests"
ENTRY = r"HKCU\Software\Microsoft\Windows\CurrentVersion\Uninstall\Kestrune"
SHELL_FOLDERS = r"HKCU\Software\Microsoft\Windows\CurrentVersion\Explorer\User Shell Folders"
PROGRAMS = BUILD / "tests" / "programs"


def shell(script, *arguments, **options):
    """Runs a shell script with the functions of tools/lib.sh; the arguments are $1, $2 ..."""
    return subprocess.Popen(
        ["bash", "-c", f'. "$0"; set +e; wine_environment; {script}', PROJECT / "tools" / "lib.sh",
         *arguments], stdin=subprocess.DEVNULL, **options)


def wait_until(condition, seconds=120):
    """Waits until the condition is true; returns its last value, also after the time limit."""
    end = time.monotonic() + seconds
    value = condition()
    while not value and time.monotonic() < end:
        time.sleep(0.05)
        value = condition()
    return value


def files(folder):
    """Returns the bytes of every file below a folder, by path."""
    return {path.relative_to(folder).as_posix(): path.read_bytes()
            for path in pathlib.Path(folder).rglob("*") if path.is_file()}


class Machine:
    """A Wine prefix: starts programs in it and reads the files and registry values that they leave."""

    def __init__(self):
        os.environ["KESTRUNE_PREFIX"] = os.environ.get(
            "KESTRUNE_SETUP_PREFIX", str(PROJECT / "build" / "wine" / "setup"))
        os.environ["KESTRUNE_STAND_IN"] = r"C:\stand-in"
        os.environ["KESTRUNE_DISPOSABLE_PROFILE"] = "1"
        self.prefix = pathlib.Path(os.environ["KESTRUNE_PREFIX"])
        self.drive = self.prefix / "drive_c"
        OUT.mkdir(parents=True, exist_ok=True)
        shutil.rmtree(self.prefix, ignore_errors=True)
        self.screen = subprocess.Popen(
            ["bash", "-c", '. "$0"; start_display; echo $DISPLAY; wait', PROJECT / "tools" / "lib.sh"],
            stdout=subprocess.PIPE, text=True, start_new_session=True)
        os.environ["DISPLAY"] = self.screen.stdout.readline().strip()
        atexit.register(self.stop)
        if shell("set -e; make_prefix").wait() != 0:
            raise RuntimeError("the prefix could not be made")
        name = next(p.name for p in (self.drive / "users").iterdir() if p.name != "Public")
        self.user = self.drive / "users" / name
        self.documents = self.drive / "users" / "Public" / "Documents"
        self.stand_in = self.drive / "stand-in"
        self.session = None
        self.set_local(self.user / "AppData" / "Local")

    def set_local(self, folder):
        """Sets the user's folder for local application data."""
        self.local = folder
        self.package = folder / "Programs" / "Kestrune"
        self.runtime = folder / "Kestrune" / "Runtime"
        self.temp = self.user / "AppData" / "Local" / "Temp"

    def move_profile(self, folder):
        """Moves the user's profile folder, for programs that are started afterwards."""
        self.user = folder
        self.set_local(folder / "AppData" / "Local")
        self.temp.mkdir(parents=True, exist_ok=True)
        data = self.windows(folder / "AppData")
        volatile, profiles = r"HKCU\Volatile Environment", \
            r"HKLM\Software\Microsoft\Windows NT\CurrentVersion\ProfileList"
        entry = re.search(r"ProfileList\\(S-1-5-21-\S+)", self.run("reg", "query", profiles)[1])[1]
        for key, name, value in (
                (profiles + "\\" + entry, "ProfileImagePath", self.windows(folder)),
                (volatile, "USERPROFILE", self.windows(folder)), (volatile, "APPDATA", data + r"\Roaming"),
                (volatile, "LOCALAPPDATA", data + r"\Local"), (SHELL_FOLDERS, "AppData", data + r"\Roaming"),
                (SHELL_FOLDERS, "Local AppData", data + r"\Local")):
            self.run("reg", "add", key, "/v", name, "/t", "REG_SZ", "/f", "/d", value)

    @property
    def data(self):
        """Returns the folder in which Kestrune.exe and the setup program write, found through the profile."""
        return self.user / "AppData" / "Local" / "Kestrune"

    def begin_session(self):
        """Starts an idle process in the prefix, without which Wine would boot at each start."""
        if self.session is None or self.session.poll() is not None:
            self.session = subprocess.Popen(
                ["bash", "-c", '. "$0"; wine_environment; in_wine_root wine cmd',
                 PROJECT / "tools" / "lib.sh"],
                stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def stop(self):
        """Ends every process of the prefix and the screen."""
        self.end_wine()
        os.killpg(self.screen.pid, signal.SIGTERM)

    def end_wine(self):
        """Ends every process of the prefix, so that Wine can be started with other mounts."""
        shell("in_wine_root wineserver -k; in_wine_root wineserver -w").wait()
        if self.session is not None:
            self.session.stdin.close()
            self.session.wait()
            self.session = None

    def windows(self, path):
        """Returns the Windows path of a file in the prefix."""
        return "C:\\" + str(path.relative_to(self.drive)).replace("/", "\\")

    def start(self, program, *arguments, **environment):
        """Starts a program and returns a process with the same exit code."""
        self.begin_session()
        return shell('in_wine_root wine "$@"', str(program), *arguments,
                     stdout=subprocess.PIPE, stderr=open(OUT / "wine.log", "ab"),
                     env={**os.environ, **environment})

    def run(self, program, *arguments, seconds=300, **environment):
        """Starts a program, waits, and returns its exit code and output."""
        process = self.start(program, *arguments, **environment)
        try:
            output, _ = process.communicate(timeout=seconds)
        except subprocess.TimeoutExpired:
            self.picture("timeout")
            self.end_wine()
            raise
        return process.returncode, output.decode("utf-8", "replace").replace("\r", "")

    def code(self, program, *arguments, **options):
        return self.run(program, *arguments, **options)[0]

    def uninstall(self, *arguments, **options):
        """Uninstalls with the entry's quiet command line; further arguments are inserted before its last one."""
        program, place = self.entry()["QuietUninstallString"].split(" _?=")
        return self.code_of_line(" ".join([program, *arguments, "_?=" + place]), **options)

    def code_of_line(self, line, **options):
        """Runs a command line, passed to Windows unchanged, and returns its exit code."""
        return self.code(PROGRAMS / "machine_in_a_box.exe", "line", line, **options)

    def entry(self):
        """Returns the values of the entry under Apps; empty when there is none."""
        exported = self.stand_in / "entry.reg"
        exported.unlink(missing_ok=True)
        self.run("reg", "export", ENTRY, self.windows(exported), "/y")
        if not exported.exists():
            return {}
        values = {}
        text = exported.read_bytes().decode("utf-16")
        for name, plain, number in re.findall(
                r'^"(\w+)"=(?:"((?:[^"\\\r\n]|\\.)*)"|dword:(\w+))\r?$', text, re.MULTILINE):
            values[name] = int(number, 16) if number else re.sub(r"\\(.)", r"\1", plain)
        return values

    def log(self):
        path = self.data / "Logs" / "setup.log"
        return path.read_bytes().decode("utf-8").replace("\r\n", "\n") if path.exists() else ""

    def processes(self, name):
        """Returns the IDs of the prefix's processes whose program has this name or path, in which * matches any text."""
        found = []
        for folder in pathlib.Path("/proc").iterdir():
            if folder.name.isdigit():
                try:
                    line = (folder / "cmdline").read_bytes()
                    environment = (folder / "environ").read_bytes()
                except OSError:
                    continue
                path = line.split(b"\0")[0].decode("utf-8", "replace")
                if any(fnmatch.fnmatchcase(text, name) for text in (path, re.split(r"[\\/]", path)[-1])) and \
                        f"WINEPREFIX={self.prefix}".encode() in environment:
                    found.append(int(folder.name))
        return found

    def end_of(self, process):
        """Waits for a program that was started and returns its exit code."""
        try:
            return process.wait(timeout=180)
        except subprocess.TimeoutExpired:
            self.picture("timeout")
            raise

    def kill(self, name):
        """Ends the processes of a name at once, as a power cut would."""
        for process in self.processes(name):
            try:
                os.kill(process, signal.SIGKILL)
            except ProcessLookupError:
                pass

    # ---- windows

    def press(self, title, button, key="Return", picture=None):
        """Waits for a window with an enabled button, takes a screenshot of it, presses a key there, and waits until that
        button is gone or disabled."""
        if picture:
            self.wait_for_button(title, button)
            self.picture(picture)
        self.wait_for_button(title, button, key)

    def wait_for_button(self, title, button, *key):
        """Waits for a window with a button; a title that ends with * is the beginning of the window's title."""
        code = self.code(PROGRAMS / "press_key.exe", title, button, *key)
        if code != 0:
            self.picture("no-window")
            raise AssertionError(f"no window '{title}' with the button '{button}', or no effect of {key}: {code}")

    def picture(self, name):
        subprocess.run(["import", "-window", "root", OUT / f"{name}.png"], check=False)
