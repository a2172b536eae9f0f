#!/usr/bin/env python3
"""Tests of the winget manifests: filled in, they obey the format and agree with the setup program."""
import copy
import hashlib
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

import jsonschema
import yaml

HERE = pathlib.Path(__file__).resolve().parent
PROJECT = HERE.parents[1]
RULES = json.loads((HERE / "winget-rules.json").read_text())
SETUP_SOURCE = (PROJECT / "package" / "setup" / "kestrune.nsi").read_text()
ROLL_OUT = (PROJECT / "docs" / "roll-out.md").read_text()


def problems(kind, manifest):
    schema = {**RULES[kind], "definitions": RULES["definitions"]}
    return [error.message for error in jsonschema.Draft7Validator(schema).iter_errors(manifest)]


class Winget(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        self.setup = self.root / "Kestrune-7.8.9-setup.exe"
        self.setup.write_bytes(b"MZ setup")
        self.assertEqual(self.fill().returncode, 0)
        self.manifests = {
            kind: yaml.safe_load((self.root / "out" / f"Somebody.Kestrune{suffix}.yaml").read_text())
            for kind, suffix in (("version", ""), ("installer", ".installer"),
                                 ("locale", ".locale.en-US"))}

    def fill(self, **changed):
        values = {"setup": self.setup, "url": "https://example.invalid/Kestrune-7.8.9-setup.exe",
                  "identifier": "Somebody.Kestrune", "publisher": "Somebody", "licence": "Proprietary",
                  "output": self.root / "out", **changed}
        command = [sys.executable, PROJECT / "tools" / "make-winget"]
        for name, value in values.items():
            command += ["--" + name, str(value)]
        return subprocess.run(command, capture_output=True, text=True, check=False,
                              env={**os.environ, "SOURCE_DATE_EPOCH": "1700000000"})

    def test_each_manifest_obeys_the_format(self):
        for kind, manifest in self.manifests.items():
            self.assertEqual(problems(kind, manifest), [], kind)

    def test_the_rules_refuse_what_is_wrong(self):
        installer = self.manifests["installer"]
        for path, value in ((("Scope",), "everybody"), (("InstallerSwitches", "Quiet"), "/S"),
                            (("ExpectedReturnCodes", 0, "ReturnResponse"), "busy"),
                            (("ExpectedReturnCodes", 0, "InstallerReturnCode"), 0),
                            (("Installers", 0, "InstallerSha256"), "12"),
                            (("PackageIdentifier",), "NoDot")):
            changed = copy.deepcopy(installer)
            place = changed
            for step in path[:-1]:
                place = place[step]
            place[path[-1]] = value
            self.assertNotEqual(problems("installer", changed), [], path)

    def test_nothing_is_left_to_fill_in(self):
        for path in (self.root / "out").iterdir():
            self.assertNotRegex(path.read_text(), r"@[A-Z0-9]+@")

    def test_version_sum_and_day_are_those_of_the_setup_program(self):
        installer = self.manifests["installer"]
        self.assertEqual({manifest["PackageVersion"] for manifest in self.manifests.values()}, {"7.8.9"})
        self.assertEqual(installer["Installers"][0]["InstallerSha256"],
                         hashlib.sha256(self.setup.read_bytes()).hexdigest().upper())
        self.assertEqual(installer["ReleaseDate"], "2023-11-14")

    def test_it_installs_for_the_user_and_silently(self):
        installer = self.manifests["installer"]
        self.assertEqual(installer["Scope"], "user")
        self.assertEqual(installer["InstallerSwitches"], {"Silent": "/S", "SilentWithProgress": "/S"})
        self.assertIn("RequestExecutionLevel user", SETUP_SOURCE)

    def test_a_running_host_is_a_package_in_use(self):
        responses = {code["InstallerReturnCode"]: code["ReturnResponse"]
                     for code in self.manifests["installer"]["ExpectedReturnCodes"]}
        self.assertEqual(responses[30], "packageInUse")

    def test_every_code_of_the_setup_program_is_expected_and_documented(self):
        head = SETUP_SOURCE[:SETUP_SOURCE.index("Unicode true")]
        codes = {int(code) for code in re.findall(r"(?:^;| {3,}) *(\d+) [a-z]", head, re.MULTILINE)}
        self.assertLessEqual({0, 1, 2, 20, 30, 40, 50, 51}, codes)
        expected = [code["InstallerReturnCode"]
                    for code in self.manifests["installer"]["ExpectedReturnCodes"]]
        self.assertEqual(sorted(expected), sorted(codes - {0}))
        documented = {int(code) for code in re.findall(r"^\| (\d+) \|", ROLL_OUT, re.MULTILINE)}
        self.assertLessEqual(codes, documented)

    def test_the_entry_under_apps_is_the_one_that_the_setup_program_writes(self):
        entry = self.manifests["installer"]["AppsAndFeaturesEntries"][0]
        self.assertIn(f'DisplayName "{entry["DisplayName"]}"', SETUP_SOURCE)
        self.assertIn("\\Uninstall\\" + entry["ProductCode"] + '"', SETUP_SOURCE)
        self.assertEqual(entry["DisplayVersion"], "7.8.9")

    def test_what_would_break_the_manifest_is_refused(self):
        for changed in ({"publisher": 'a"b'}, {"publisher": ""}, {"url": "https://x\ny"}):
            self.assertNotEqual(self.fill(**changed).returncode, 0, changed)
        other = self.root / "setup.exe"
        other.write_bytes(b"MZ")
        self.assertIn("no version", self.fill(setup=other).stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)
