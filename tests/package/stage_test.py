#!/usr/bin/env python3
"""Tests of tools/make-stage: the layout, the manifests and the times of the staged package."""
import hashlib
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

PROJECT = pathlib.Path(__file__).resolve().parents[2]
MAKE_STAGE = PROJECT / "tools" / "make-stage"
INSTALLED = (
    "Kestrune.exe", "Script/Kestrune.PrjScr", "Script/Kestrune.pas",
    "Script/Kestrune_WaitForm.pas", "Script/Kestrune_WaitForm.dfm", "Runtime/Bridge.OutJob",
    "Assets/odbpp-toolbar-legacy.bmp", "Assets/odbpp-toolbar-activebar.png",
    "Assets/odbpp-toolbar-ad26-16.png")


def contents(folder):
    return {str(path.relative_to(folder)): (path.read_bytes(), path.stat().st_mtime_ns)
            for path in folder.rglob("*") if path.is_file()}


def manifest(folder):
    """Returns the section Files, as a reader of private profile files returns it."""
    found = list(folder.glob("BFM_*.ini"))
    assert len(found) == 1, found
    lines = found[0].read_bytes().decode("ascii").split("\r\n")
    assert lines[0] == "[Files]" and lines[-1] == "", lines
    return dict(line.split("=", 1) for line in lines[1:-1])


def file_time(value):
    return int(value[0:8], 16) << 32 | int(value[9:17], 16)


class Stage(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        for name in INSTALLED[1:]:
            path = self.root / "package" / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(name.encode() + b"\r\n\0\xff")
        (self.root / "program.exe").write_bytes(b"MZ program")

    def make(self, stage, time=None, **environment):
        command = [sys.executable, MAKE_STAGE, "--program", self.root / "program.exe",
                   "--package", self.root / "package", "--stage", self.root / stage]
        if time is not None:
            command += ["--time", str(time)]
        clean = {key: value for key, value in os.environ.items() if key != "SOURCE_DATE_EPOCH"}
        done = subprocess.run(command, env={**clean, **environment}, capture_output=True, text=True,
                              check=False)
        return done, self.root / stage

    def test_every_installed_file_is_staged(self):
        done, stage = self.make("stage", 1_700_000_000)
        self.assertEqual(done.returncode, 0, done.stderr)
        for name in INSTALLED[1:]:
            self.assertEqual((stage / name).read_bytes(),
                             (self.root / "package" / name).read_bytes())
        self.assertEqual((stage / "Kestrune.exe").read_bytes(), b"MZ program")

    def test_manifest_values_have_digest_in_capitals(self):
        _, stage = self.make("stage", 1_700_000_000)
        for name in INSTALLED:
            path = stage / name
            value = manifest(path.parent)[path.name]
            self.assertRegex(value, r"\A[0-9A-F]{8}:[0-9A-F]{8}\|[0-9A-F]{64}\Z")
            self.assertEqual(len(value), 82)
            self.assertEqual(value[18:], hashlib.sha256(path.read_bytes()).hexdigest().upper())

    def test_manifest_time_is_a_windows_time(self):
        # 2023-11-14 22:13:20 UTC, worked out by hand: (1700000000 + 11644473600) * 10^7.
        _, stage = self.make("stage", 1_700_000_000)
        self.assertEqual(file_time(manifest(stage)["Kestrune.exe"]), 133_444_736_000_000_000)
        for path in stage.rglob("*"):
            if path.is_file():
                self.assertEqual(path.stat().st_mtime_ns, 1_700_000_000 * 10**9, path)

    def test_the_same_time_gives_the_same_bytes(self):
        _, one = self.make("one", 1_700_000_000)
        _, two = self.make("two", 1_700_000_000)
        self.assertEqual(contents(one), contents(two))

    def test_later_time_dates_all_files(self):
        _, old = self.make("old", 1_700_000_000)
        _, new = self.make("new", 1_700_000_001)
        for name in INSTALLED:
            before = manifest((old / name).parent)[pathlib.PurePath(name).name]
            after = manifest((new / name).parent)[pathlib.PurePath(name).name]
            self.assertGreater(file_time(after), file_time(before), name)

    def test_the_environment_gives_the_time_where_set(self):
        _, stage = self.make("stage", SOURCE_DATE_EPOCH="1700000000")
        self.assertEqual(file_time(manifest(stage)["Kestrune.exe"]), 133_444_736_000_000_000)

    def test_the_commit_gives_the_time_otherwise(self):
        def git(*arguments, **environment):
            subprocess.run(["git", "-C", self.root, "-c", "user.name=T", "-c", "user.email=t@t.invalid",
                            *arguments], check=True, capture_output=True,
                           env={**os.environ, **environment})
        git("init", "-q")
        git("add", ".")
        git("commit", "-q", "-m", "one", GIT_COMMITTER_DATE="1700000000 +0200",
            GIT_AUTHOR_DATE="1600000000 +0200")
        _, stage = self.make("stage")
        self.assertEqual(file_time(manifest(stage)["Kestrune.exe"]), 133_444_736_000_000_000)

    def test_unknown_time_names_the_variable(self):
        done, _ = self.make("stage", GIT_CEILING_DIRECTORIES=str(self.root.parent))
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("SOURCE_DATE_EPOCH", done.stderr)

    def test_removed_file_leaves_the_stage(self):
        _, stage = self.make("stage", 1)
        (stage / "Script" / "BFM_old.ini").write_text("[Files]\r\n")
        (self.root / "package" / "Assets" / "odbpp-toolbar-legacy.bmp").unlink()
        done, _ = self.make("stage", 2)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertFalse((stage / "Script" / "BFM_old.ini").exists())
        self.assertFalse((stage / "Assets" / "odbpp-toolbar-legacy.bmp").exists())
        self.assertNotIn("odbpp-toolbar-legacy.bmp", manifest(stage / "Assets"))

    def test_a_changed_file_changes_its_digest(self):
        _, stage = self.make("stage", 1)
        before = manifest(stage / "Script")
        (self.root / "package" / "Script" / "Kestrune.pas").write_bytes(b"changed")
        self.make("stage", 1)
        after = manifest(stage / "Script")
        self.assertEqual({key for key in before if before[key] != after[key]}, {"Kestrune.pas"})

    def test_file_name_outside_ascii_is_refused(self):
        (self.root / "package" / "Script" / "Gerät.pas").write_bytes(b"")
        done, _ = self.make("stage", 1)
        self.assertNotEqual(done.returncode, 0)
        self.assertIn("ASCII", done.stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)
