"""The machine on which Windows programs run: a real Windows, or Wine, to try the scripts of this folder without a
Windows.

Both start programs, have a small disk that can be filled, and a second user with a profile and a
registry of his own.
"""
import os
import pathlib
import re
import secrets
import shutil
import subprocess

HERE = pathlib.Path(__file__).resolve().parent
PROJECT = HERE.parents[1]
APPS_KEY = r"Software\Microsoft\Windows\CurrentVersion\Uninstall\Kestrune"


class Windows:
    rehearsal = False
    second_folder = pathlib.Path("C:/kestrune-second-user")
    disk_image = pathlib.Path("C:/kestrune-small-disk.vhd")
    disk = "K:\\"

    def __enter__(self):
        # Different from UTC, so that tests can distinguish local time and UTC.
        subprocess.run(["tzutil", "/s", "Nepal Standard Time"], check=True)
        self._diskpart(f'create vdisk file="{self.disk_image}" maximum=16 type=fixed',
                       f'select vdisk file="{self.disk_image}"', "attach vdisk",
                       "create partition primary", "format fs=ntfs quick",
                       f"assign letter={self.disk[0]}")
        return self

    def __exit__(self, *_):
        self._diskpart(f'select vdisk file="{self.disk_image}"', "detach vdisk")
        self.disk_image.unlink()

    @staticmethod
    def _diskpart(*lines):
        subprocess.run(["diskpart"], input="\n".join([*lines, "exit", ""]), text=True, check=True)

    def path(self, path):
        """Returns the path of a file as the programs on this machine see it."""
        return str(pathlib.Path(path).resolve())

    def settings(self):
        """Returns the environment variables that the tests read."""
        return {"KESTRUNE_DISPOSABLE_PROFILE": "1", "KESTRUNE_SMALL_DISK": self.disk}

    def run(self, program, *arguments):
        """Runs a program as the current user and returns its exit code."""
        return subprocess.run([self.path(program), *arguments], check=False,
                              env={**os.environ, **self.settings()}).returncode

    def make_second_user(self):
        """Creates the second user, who may write to a folder of their own and has the same environment."""
        self.password = secrets.token_urlsafe(24) + "aA1!"
        # A process under other credentials gets no environment from here, only the machine's.
        for name, value in self.settings().items():
            subprocess.run(["setx", "/M", name, value], check=True)
        self._second_user("make", "-Folder", self.second_folder)

    def remove_second_user(self):
        self._second_user("remove")

    def run_as_second_user(self, program, *arguments):
        """Runs a program as the second user, prints its output, and returns its exit code."""
        log = self.second_folder / "run.log"
        code = self._second_user("run", "-Folder", self.second_folder, "-Program", self.path(program),
                                 "-Arguments", subprocess.list2cmdline(arguments), "-Log", log,
                                 check=False).returncode
        print(log.read_text(errors="replace"), flush=True)
        return code

    def _second_user(self, *arguments, check=True):
        return subprocess.run(
            ["powershell", "-NoProfile", "-ExecutionPolicy", "Bypass", "-File",
             HERE / "second-user.ps1", "-Action", *arguments],
            env={**os.environ, "KESTRUNE_PASSWORD": self.password}, check=check)

    def local_data(self):
        return pathlib.Path(os.environ["LOCALAPPDATA"])

    def apps_version(self):
        """Returns the version under Apps; None when Kestrune is absent."""
        import winreg
        try:
            with winreg.OpenKey(winreg.HKEY_CURRENT_USER, APPS_KEY) as key:
                return winreg.QueryValueEx(key, "DisplayVersion")[0]
        except FileNotFoundError:
            return None

    def has_account_control(self):
        """Returns whether this Windows has user account control, which hosted machines often lack."""
        import winreg
        with winreg.OpenKey(winreg.HKEY_LOCAL_MACHINE,
                            r"SOFTWARE\Microsoft\Windows\CurrentVersion\Policies\System") as key:
            return winreg.QueryValueEx(key, "EnableLUA")[0] == 1


class Wine:
    """Two prefixes are two users. What Wine cannot show is skipped by the tests themselves."""
    rehearsal = True
    disk = "Z:\\small-disk"

    def __init__(self):
        self.folder = PROJECT / "build" / "rehearsal"
        self.second_folder = self.folder / "second-user"
        self.user = "first"

    def __enter__(self):
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir(parents=True)
        return self

    def __exit__(self, *_):
        pass

    def path(self, path):
        path = pathlib.Path(path).resolve()
        drive = self._prefix() / "drive_c"
        name = f"C:/{path.relative_to(drive)}" if path.is_relative_to(drive) else f"Z:{path}"
        return name.replace("/", "\\")

    def _prefix(self):
        return self.folder / f"prefix-{self.user}"

    def run(self, program, *arguments):
        return subprocess.run(
            [PROJECT / "tools" / "wine", self.path(program), *arguments], check=False,
            env={**os.environ, "KESTRUNE_SMALL_DISK": self.disk, "KESTRUNE_PREFIX": str(self._prefix())},
            stdin=subprocess.DEVNULL).returncode

    def make_second_user(self):
        pass

    def remove_second_user(self):
        pass

    def run_as_second_user(self, program, *arguments):
        self.user = "second"
        try:
            return self.run(program, *arguments)
        finally:
            self.user = "first"

    def local_data(self):
        user = next(path for path in (self._prefix() / "drive_c/users").iterdir()
                    if path.name != "Public")
        return user / "AppData/Local"

    def apps_version(self):
        # The registry is written to this file when the prefix's last process has ended.
        text = (self._prefix() / "user.reg").read_text(errors="replace")
        section = text.partition("[" + APPS_KEY.replace("\\", "\\\\") + "]")[2].partition("\n[")[0]
        found = re.search(r'^"DisplayVersion"="(.*)"$', section, re.M)
        return found and found.group(1)

    def has_account_control(self):
        return False


def this_machine():
    return Windows() if os.name == "nt" else Wine()
