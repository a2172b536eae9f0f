"""The setup programs that the tests start, each made once, and the base class of the tests."""
import functools
import os
import pathlib
import shutil
import subprocess
import unittest

from machine import BUILD, OUT, PROGRAMS, PROJECT, SHELL_FOLDERS, Machine, files, shell

SAMPLES = pathlib.Path(os.environ.get("KESTRUNE_SAMPLES", PROJECT.parent / "shared" / "samples"))
ONE_TIME, TWO_TIME = 1_700_000_000, 1_800_000_000
REAL_ONE_TIME, REAL_TWO_TIME = 1_750_000_000, 1_760_000_000
PUBLISHER = 'A "quoted" $INSTDIR ${VERSION}; Łukasz & Söhne 100%'


def tool(name, *arguments, **options):
    return subprocess.run([PROJECT / "tools" / name, *map(str, arguments)], check=True, **options)


@functools.cache
def machine():
    return Machine()


@functools.cache
def programs():
    subprocess.run(["cmake", "--build", BUILD, "--target", "Kestrune", "setup_stand_in",
                    "machine_in_a_box", "press_key", "waiting_program"], check=True, stdout=subprocess.DEVNULL)


@functools.cache
def small_package():
    """Creates a package of a few bytes with a program."""
    package = OUT / "package"
    shutil.rmtree(package, ignore_errors=True)
    for folder in ("Licenses", "Diagnostics"):
        shutil.copytree(PROJECT / "package" / folder, package / folder)
    shutil.copy(PROJECT / "package" / "README.txt", package)
    for name, text in (("Script/Kestrune.pas", "unit Kestrune;"),
                       ("Runtime/Bridge.OutJob", "[OutputJobFile]"),
                       ("Assets/odbpp-toolbar-legacy.bmp", "BM")):
        (package / name).parent.mkdir()
        (package / name).write_text(text)
    return package


def make_archive(version, program, package, seconds, name):
    """Creates a release ZIP with any program."""
    tool("make-stage", "--program", program, "--package", package, "--stage", OUT / "stage",
         "--time", seconds)
    sbom = OUT / "sbom"
    sbom.write_text("{}")
    archive = OUT / f"{name}.zip"
    tool("make-archive", "--stage", OUT / "stage", "--package", package, "--sbom", sbom,
         "--name", f"Kestrune-{version}", "--output", archive)
    return archive


def make_texts(**texts):
    folder = OUT / "texts"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    for name, text in texts.items():
        (folder / name).write_text(text + "\n")
    return folder


@functools.cache
def setup(name):
    """Returns the setup program one, two (both with the stand-in), broken, real-one or real-two."""
    programs()
    real = name.startswith("real")
    version = "2.0.0" if name.endswith("two") else "1.0.0"
    program = BUILD / "Kestrune.exe" if real else PROGRAMS / "setup_stand_in.exe"
    if name == "broken":
        program = OUT / "no-program"
        program.write_bytes(b"not a program")
    seconds = {"two": TWO_TIME, "real-one": REAL_ONE_TIME, "real-two": REAL_TWO_TIME}.get(name, ONE_TIME)
    package = PROJECT / "package" if real else small_package()
    archive = make_archive(version, program, package, seconds, name)
    texts = [make_texts(publisher=PUBLISHER, help="https://example.invalid/help",
                        about="https://example.invalid/")] if name == "one" else []
    tool("make-setup", archive, OUT / f"{name}.exe", *texts)
    return OUT / f"{name}.exe"


@functools.cache
def payload():
    """Returns the names of the files of an installation with the stand-in."""
    setup("one")
    folder = OUT / "unpacked"
    shutil.rmtree(folder, ignore_errors=True)
    shutil.unpack_archive(OUT / "one.zip", folder)
    return sorted([*files(folder / "Kestrune-1.0.0"), "Uninstall.exe"])


class SetupTest(unittest.TestCase):
    """Base class: each test begins with a profile without Kestrune."""

    maxDiff = None

    def setUp(self):
        self.machine = machine()
        self.clean()

    def tearDown(self):
        for name in ("Kestrune.exe", "Uninstall.exe", "one.exe", "two.exe", "real-one.exe", "real-two.exe"):
            self.machine.kill(name)

    def clean(self):
        m = self.machine
        for folder in (m.local / "Programs", m.local / "Kestrune", m.documents / "Kestrune", m.stand_in,
                       m.temp):
            shutil.rmtree(folder, ignore_errors=True)
        m.temp.mkdir()
        m.stand_in.mkdir()
        m.run("reg", "delete", r"HKCU\Software\Microsoft\Windows\CurrentVersion\Uninstall", "/f")

    def answer(self, *codes, report=None, status=None):
        """Sets the stand-in's exit codes and clears the record of earlier starts."""
        (self.machine.stand_in / "answer").write_text("".join(f"{code}\n" for code in codes))
        (self.machine.stand_in / "calls").unlink(missing_ok=True)
        for name, text in (("report", report), ("status", status)):
            (self.machine.stand_in / name).unlink(missing_ok=True)
            if text is not None:
                (self.machine.stand_in / name).write_bytes(text.encode().replace(b"\n", b"\r\n"))

    def calls(self, command=None):
        """Returns the command lines with which the stand-in was started, without the report's path."""
        path = self.machine.stand_in / "calls"
        lines = path.read_bytes().decode("utf-8").splitlines() if path.exists() else []
        lines = [line.split(" --report ")[0] for line in lines]
        return [line for line in lines if command is None or f" {command}" in line]

    def install(self, name="one", *arguments, code=0, **options):
        self.assertEqual(self.machine.code(setup(name), "/S", *arguments, **options), code,
                         self.machine.log())

    def remove(self, *arguments, code=0, **options):
        self.assertEqual(self.machine.uninstall(*arguments, **options), code, self.machine.log())

    def assert_installed(self, version, seconds=None):
        """Checks that only the final folder exists, with every file of that version, and the entry."""
        m = self.machine
        self.assertEqual([path.name for path in (m.local / "Programs").iterdir()], ["Kestrune"])
        self.assertEqual(sorted(files(m.package)), payload())
        self.assertEqual(m.entry().get("DisplayVersion"), version)
        time = seconds or {"1.0.0": ONE_TIME, "2.0.0": TWO_TIME}[version]
        self.assertEqual((m.package / "Kestrune.exe").stat().st_mtime, time)

    def assert_nothing_installed(self):
        m = self.machine
        folder = m.local / "Programs"
        self.assertEqual(list(folder.iterdir()) if folder.exists() else [], [])
        self.assertEqual(m.entry(), {})

    def assert_log_alone(self):
        """Checks that Kestrune's folder in the profile has only the log of the setup program."""
        self.assertEqual(sorted(files(self.machine.data)), ["Logs/setup.log"])

    def in_a_mounted_world(self, script, program, *arguments):
        """Runs a program with mounts of its own; skips the test if this machine does not allow them."""
        if subprocess.run(["unshare", "-m", "true"], capture_output=True, check=False).returncode:
            self.skipTest("this machine allows no mount of its own")
        self.machine.end_wine()
        done = shell('export KESTRUNE_MOUNTS=$1; shift; exec unshare -m bash -c \''
                     '. "$0"; set +e; wine_environment; eval "$KESTRUNE_MOUNTS"; '
                     'in_wine_root wine "$@"; code=$?; eval "${KESTRUNE_AFTER:-}"; '
                     'in_wine_root wineserver -k; in_wine_root wineserver -w; exit $code\' '
                     '"$project/tools/lib.sh" "$@"', script, str(program), *arguments)
        return done.wait(timeout=300)

    def set_shell_folder(self, name, path):
        self.machine.run("reg", "add", SHELL_FOLDERS, "/v", name, "/t", "REG_SZ", "/f", "/d", path)
