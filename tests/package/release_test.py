#!/usr/bin/env python3
"""Tests of tools/release, which rejects a tag other than the version and files of another version, and of the list
of tests that a run on Windows must not skip."""
import contextlib
import fnmatch
import hashlib
import io
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

PROJECT = pathlib.Path(__file__).resolve().parents[2]
CHANGES = "# Changelog\n\n## 7.8.9 — 2026-01-02\n\n- One.\n- Two.\n\n## 7.8.8 — 2025-01-02\n\n- Old.\n"


class ReleaseTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        shutil.copytree(PROJECT / "tools/release", self.root / "tools/release")
        shutil.copy(PROJECT / "tools/lib.sh", self.root / "tools")
        (self.root / "CMakeLists.txt").write_text("project(Kestrune VERSION 7.8.9 LANGUAGES C CXX)\n")
        self.changes(CHANGES)

    def changes(self, text):
        (self.root / "CHANGELOG.md").write_text(text)

    def run_tool(self, name, *arguments, **environment):
        return subprocess.run([self.root / "tools/release" / name, *arguments], capture_output=True,
                              text=True, check=False, env={**os.environ, **environment})


class Notes(ReleaseTest):
    def test_they_are_the_versions_own(self):
        done = self.run_tool("notes", "v7.8.9")
        self.assertEqual((done.returncode, done.stdout), (0, "- One.\n- Two.\n"))

    def test_a_tag_that_is_not_the_version(self):
        for tag in ("v7.8.8", "7.8.9", "v7.8.9-1", "v7.8.90", "V7.8.9", "main"):
            done = self.run_tool("notes", tag)
            self.assertEqual((done.returncode, done.stdout), (1, ""), tag)
            self.assertIn(f"the tag {tag} is not the version that is built, which would be v7.8.9",
                          done.stderr)

    def test_a_version_without_notes(self):
        for text, why in ((CHANGES.replace("2026-01-02", "unreleased"), "gives no day"),
                          (CHANGES.replace("- One.\n- Two.\n", ""), "says nothing"),
                          (CHANGES.replace("7.8.9", "7.9.0"), "not on top"), ("", "not on top")):
            self.changes(text)
            done = self.run_tool("notes", "v7.8.9")
            self.assertEqual(done.returncode, 1, text)
            self.assertIn(why, done.stderr)


class Publication(ReleaseTest):
    def setUp(self):
        super().setUp()
        (self.root / "bin").mkdir()
        gh = self.root / "bin/gh"
        gh.write_text('#!/bin/sh\nprintf "%s\\n" "$@" >"$GH_CALLS"\n')
        gh.chmod(0o755)
        self.files = self.root / "files"
        self.files.mkdir()
        for name in ("Kestrune-7.8.9.zip", "Kestrune-7.8.9-setup.exe", "Kestrune-7.8.9.cdx.json"):
            (self.files / name).write_text(name)
        self.write_sums()

    def write_sums(self):
        (self.files / "SHA256SUMS").unlink(missing_ok=True)
        lines = [f"{hashlib.sha256(path.read_bytes()).hexdigest()}  {path.name}\n"
                 for path in sorted(self.files.iterdir())]
        (self.files / "SHA256SUMS").write_text("".join(lines))

    def publish(self, tag="v7.8.9"):
        """Returns the arguments with which gh was called; None when it was not."""
        calls = self.root / "calls"
        calls.unlink(missing_ok=True)
        done = self.run_tool("publish", self.files, tag, GH_CALLS=str(calls),
                             GITHUB_REPOSITORY="some/where",
                             PATH=f"{self.root / 'bin'}:{os.environ['PATH']}")
        self.assertEqual(done.returncode == 0, calls.exists(), done.stderr)
        return calls.read_text().splitlines() if calls.exists() else None

    def test_every_file_is_published_under_the_tag(self):
        words = self.publish()
        self.assertEqual(words[:5], ["release", "create", "v7.8.9", "--repo", "some/where"])
        self.assertEqual({word for word in words if word.startswith("./")},
                         {f"./{path.name}" for path in self.files.iterdir()})

    def test_a_wrong_tag_publishes_nothing(self):
        self.assertIsNone(self.publish("v7.8.8"))

    def test_an_altered_file_publishes_nothing(self):
        (self.files / "Kestrune-7.8.9.zip").write_text("altered")
        self.assertIsNone(self.publish())

    def test_a_file_without_a_sum_publishes_nothing(self):
        (self.files / "Kestrune-7.8.9.extra").write_text("extra")
        self.assertIsNone(self.publish())

    def test_a_file_of_another_version_publishes_nothing(self):
        (self.files / "Kestrune-7.8.8.zip").write_text("old")
        self.write_sums()
        self.assertIsNone(self.publish())


class Machine:
    """Replaces Windows: its programs list these tests as GoogleTest does."""
    rehearsal = False

    def __init__(self, listing, control=True):
        self.listing = listing
        self.control = control

    def has_account_control(self):
        return self.control

    def path(self, path):
        return str(path)

    def run(self, _program, *arguments):
        output = next(word for word in arguments if word.startswith("--gtest_output=xml:"))
        suites = {}
        for name in self.listing:
            suites.setdefault(name.partition(".")[0], []).append(name.partition(".")[2])
        pathlib.Path(output.partition(":")[2]).write_text("<testsuites>" + "".join(
            f'<testsuite name="{suite}">' + "".join(f'<testcase name="{name}" file="" line="1"/>'
                                                    for name in names) + "</testsuite>"
            for suite, names in suites.items()) + "</testsuites>")
        return 0


def report(path, states):
    """Writes what a test program reports: "run", "skipped" or "notrun" for each test."""
    rows = []
    for test, state in states.items():
        suite, name = test.split(".")
        rows.append(f'<testcase classname="{suite}" name="{name}" '
                    f'status="{"notrun" if state == "notrun" else "run"}">'
                    f'{"<skipped/>" if state == "skipped" else ""}</testcase>')
    path.write_text(f"<testsuites>{''.join(rows)}</testsuites>")


class MustRun(unittest.TestCase):
    def problems(self, list_text, states, listing=None, control=True):
        sys.path.insert(0, str(PROJECT / "tests/windows"))
        self.addCleanup(sys.path.pop, 0)
        import run
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            (root / "tests/system").mkdir(parents=True)
            (root / "tests/system/system_tests.exe").touch()
            (root / "must-run.txt").write_text(list_text)
            for who, tests in states.items():
                report(root / f"{who}-system_tests.xml", tests)
            self.addCleanup(setattr, run, "HERE", run.HERE)
            run.HERE = root
            names = listing or list({name: None for tests in states.values() for name in tests})
            with contextlib.redirect_stdout(io.StringIO()):
                return run.must_run(Machine(names, control), root, root)

    def test_its_names_are_in_the_sources(self):
        sources = "".join(path.read_text() for path in (PROJECT / "tests").rglob("*_test.cpp"))
        names = [f"{suite}.{name}" for suite, name in
                 re.findall(r"^TEST(?:_F|_P)?\(\s*(\w+),\s*(\w+)\)", sources, re.M)]
        rows = [line.split() for line in (PROJECT / "tests/windows/must-run.txt").read_text().splitlines()
                if line and not line.startswith("#")]
        self.assertGreaterEqual(len(rows), 5)
        for _, user, needs, pattern in rows:
            self.assertTrue(fnmatch.filter(names, pattern), pattern)
            self.assertIn((user, needs), {("first", "-"), ("second", "uac"), ("both", "-"), ("second", "-")})

    def test_what_was_run_is_no_problem(self):
        self.assertEqual(self.problems("system_tests both - A.*\n",
                                       {"first": {"A.b": "run"}, "second": {"A.b": "run"}}), [])

    def test_what_was_skipped_is_one(self):
        for state in ("skipped", "notrun"):
            self.assertEqual(self.problems("system_tests both - A.*\n",
                                           {"first": {"A.b": "run"}, "second": {"A.b": state}}),
                             ["A.b was not run as the second user"])

    def test_a_missing_report_is_one(self):
        self.assertEqual(self.problems("system_tests first - A.*\n", {}, ["A.b"]),
                         ["A.b was not run as the first user"])

    def test_an_unknown_name_is_one(self):
        self.assertEqual(self.problems("# list\nsystem_tests first - B.*\n", {"first": {"A.b": "run"}}),
                         ["system_tests has no test B.*"])

    def test_without_account_control_elevation_cannot_be_shown(self):
        states = {"first": {"A.b": "skipped"}}
        self.assertEqual(self.problems("system_tests first uac A.*\n", states, control=False), [])
        self.assertEqual(len(self.problems("system_tests first uac A.*\n", states)), 1)


if __name__ == "__main__":
    unittest.main(verbosity=2)
