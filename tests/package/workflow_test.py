#!/usr/bin/env python3
"""Tests of the workflow files: they pass their linters, start only what exists, and fetch only what the
recorded list names."""
import json
import pathlib
import re
import shutil
import subprocess
import tempfile
import unittest

import yaml

PROJECT = pathlib.Path(__file__).resolve().parents[2]
WORKFLOW = PROJECT / ".github" / "workflows" / "release.yml"
TEXT = WORKFLOW.read_text()
JOBS = yaml.safe_load(TEXT)["jobs"]
FETCHED = json.loads((PROJECT / ".github" / "fetched.json").read_text())["commits"]


def lint(*files):
    return subprocess.run([PROJECT / "tools" / "lint-workflows", *files], capture_output=True,
                          text=True, check=False)


def steps():
    for name, job in JOBS.items():
        for step in job["steps"]:
            yield name, step


def unrecorded(text):
    """Returns what a workflow fetches by anything but the recorded commit."""
    found = [f"{name}@{ref}" for name, ref, tag in
             re.findall(r"uses: ([\w/.-]+)@(\S+)(?:  # (\S+))?", text)
             if FETCHED.get(name) != {"tag": tag, "commit": ref}]
    found += [f"{name}@{ref}" for name, ref, tag in
              re.findall(r"repository: (\S+)\n +ref: (\S+)(?:  # (\S+))?", text)
              if FETCHED.get(name) != {"tag": tag, "commit": ref}]
    found += re.findall(r"(?:uses|image|container): (?:docker://)?[\w./-]+:\S+", text)
    return found


@unittest.skipUnless(shutil.which("npm") and shutil.which("yamllint"), "no linter here")
class Linters(unittest.TestCase):
    def test_they_find_nothing(self):
        done = lint()
        self.assertEqual((done.returncode, done.stdout), (0, ""), done.stderr)

    def test_they_find_what_is_wrong(self):
        for old, new in (("needs: linux", "needs: linus"), ("github.token", "github.tokens"),
                         ("runs-on: windows-2022", "runs_on: windows-2022"),
                         ("ubuntu-24.04", "ubuntu-24.05"), ("contents: write", "content: write"),
                         ("on:\n  push", "on:\n   push")):
            with tempfile.TemporaryDirectory() as folder:
                broken = pathlib.Path(folder) / "broken.yml"
                self.assertIn(old, TEXT)
                broken.write_text(TEXT.replace(old, new, 1))
                self.assertNotEqual(lint(broken).returncode, 0, new)


class Workflow(unittest.TestCase):
    def test_every_fetched_thing_is_recorded(self):
        self.assertEqual(unrecorded(TEXT), [])
        self.assertEqual(set(FETCHED), set(re.findall(r"(?:uses|repository): ([\w/.-]+)", TEXT)))
        for entry in FETCHED.values():
            self.assertRegex(entry["commit"], r"^[0-9a-f]{40}$")

    def test_other_refs_are_noticed(self):
        checkout = f"actions/checkout@{FETCHED['actions/checkout']['commit']}"
        for wrong in (TEXT.replace(checkout, "actions/checkout@v7.0.1", 1),
                      TEXT.replace("# v7.0.1", "# v7.0.2", 1),
                      TEXT.replace(FETCHED["google/googletest"]["commit"], "v1.12.1"),
                      TEXT.replace("needs: linux\n", "needs: linux\n    container: debian:bookworm\n"),
                      TEXT.replace("actions/checkout@", "somebody/checkout@", 1)):
            self.assertNotEqual(wrong, TEXT)
            self.assertNotEqual(unrecorded(wrong), [])

    def test_jobs_run_scripts_of_the_project_only(self):
        tools = re.compile(r"sudo apt-get (update|install) |cmake --(preset|build)")
        own = re.compile(r"(sudo tools/release/in-debian )?(python )?(tests|tools|\.ci)/[\w/.-]+( |$)")
        for name, step in steps():
            for line in step.get("run", "").splitlines():
                self.assertTrue(tools.match(line) or own.match(line), f"{name}: {line}")

    def test_every_script_and_preset_exists(self):
        scripts = set(re.findall(r"(?<![\w/])((?:tools|tests|\.ci)/[\w/.-]*\w)", TEXT))
        self.assertGreaterEqual(len(scripts), 7)
        for script in scripts:
            # "tools/release" and the like are folders that the comments name.
            self.assertTrue((PROJECT / script).exists(), script)
        known = (PROJECT / "CMakePresets.json").read_text()
        for preset in re.findall(r"--preset (\w+)", TEXT):
            self.assertIn(f'"name": "{preset}"', known)

    def test_publishing_needs_every_other_job(self):
        self.assertEqual(set(JOBS["publish"]["needs"]), set(JOBS) - {"publish"})
        self.assertEqual(JOBS["publish"]["if"], "github.ref_type == 'tag'")
        self.assertIn(".ci/run", "".join(step.get("run", "") for step in JOBS["linux"]["steps"]))

    def test_only_publishing_may_write(self):
        self.assertEqual(yaml.safe_load(TEXT)["permissions"], {"contents": "read"})
        self.assertEqual([name for name, job in JOBS.items() if "permissions" in job], ["publish"])
        for name, step in steps():
            if step.get("uses", "").startswith("actions/checkout"):
                self.assertIs(step["with"]["persist-credentials"], False, name)

    def test_every_job_has_a_time_limit(self):
        for name, job in JOBS.items():
            self.assertLessEqual(job["timeout-minutes"], 120, name)

    def test_the_test_library_is_debians_version(self):
        version = re.search(r"set\(GOOGLETEST_VERSION ([\d.]+)\)",
                            pathlib.Path("/usr/src/googletest/CMakeLists.txt").read_text()).group(1)
        self.assertEqual(FETCHED["google/googletest"]["tag"], f"release-{version}")


if __name__ == "__main__":
    unittest.main(verbosity=2)
