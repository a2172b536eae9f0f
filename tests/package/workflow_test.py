#!/usr/bin/env python3
"""Tests of the workflow files: they pass their linters and start only what exists."""
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

import yaml

PROJECT = pathlib.Path(__file__).resolve().parents[2]
WORKFLOW = PROJECT / ".github" / "workflows" / "windows.yml"


def lint(*files):
    return subprocess.run([PROJECT / "tools" / "lint-workflows", *files], capture_output=True,
                          text=True, check=False)


class Workflow(unittest.TestCase):
    @unittest.skipUnless(shutil.which("npm") and shutil.which("yamllint"), "no linter here")
    def test_the_linters_find_nothing(self):
        done = lint()
        self.assertEqual((done.returncode, done.stdout), (0, ""), done.stderr)

    @unittest.skipUnless(shutil.which("npm") and shutil.which("yamllint"), "no linter here")
    def test_the_linters_find_what_is_wrong(self):
        text = WORKFLOW.read_text()
        for old, new in (("needs: package", "needs: packages"), ("github.token", "github.tokens"),
                         ("runs-on: windows-2022", "runs_on: windows-2022"),
                         ("on:\n  push", "on:\n   push")):
            with tempfile.TemporaryDirectory() as folder:
                broken = pathlib.Path(folder) / "broken.yml"
                self.assertIn(old, text)
                broken.write_text(text.replace(old, new, 1))
                self.assertNotEqual(lint(broken).returncode, 0, new)

    def test_every_script_and_preset_that_it_names_exists(self):
        text = WORKFLOW.read_text()
        scripts = set(re.findall(r"(?<![/\w])((?:tools|tests)/[\w/.-]*\w)", text))
        self.assertGreaterEqual(len(scripts), 3)
        for script in scripts:
            self.assertTrue((PROJECT / script).is_file(), script)
        presets = set(re.findall(r"--preset (\w+)", text))
        known = (PROJECT / "CMakePresets.json").read_text()
        for preset in presets | {"release"}:
            self.assertIn(f'"name": "{preset}"', known)

    def test_publishing_needs_every_test(self):
        jobs = yaml.safe_load(WORKFLOW.read_text())["jobs"]
        self.assertEqual(set(jobs["publish"]["needs"]), {"published", "msvc", "mingw"})
        self.assertEqual(jobs["published"]["needs"], "package")
        self.assertIn("refs/tags/", jobs["publish"]["if"])

    def test_it_takes_the_same_version_of_the_test_library_as_debian(self):
        version = re.search(r"set\(GOOGLETEST_VERSION ([\d.]+)\)",
                            pathlib.Path("/usr/src/googletest/CMakeLists.txt").read_text()).group(1)
        self.assertIn(f"GOOGLETEST: v{version}", WORKFLOW.read_text())


if __name__ == "__main__":
    unittest.main(verbosity=2)
