#!/usr/bin/env python3
"""Tests of the winget manifests: when filled in, they match their schemas and the setup program."""
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
SCHEMAS = PROJECT / "package" / "winget" / "schemas"
SETUP_HEAD = (PROJECT / "package" / "setup" / "kestrune.nsi").read_text()
SETUP_SOURCE = "".join(path.read_text() for path in (PROJECT / "package" / "setup").glob("*.ns[ih]"))
# The folder with schemas of other versions, beside the files of real hosts.
OTHERS = pathlib.Path(os.environ.get("KESTRUNE_SAMPLES", PROJECT.parent / "shared/samples")).parent
ROLL_OUT = (PROJECT / "docs" / "roll-out.md").read_text()


def problems(schema, manifest):
    """Returns the violations of the official schema, in which a date is a text."""
    if "ReleaseDate" in manifest:
        manifest = {**manifest, "ReleaseDate": str(manifest["ReleaseDate"])}
    schema = json.loads(schema.read_text())
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
                                 ("defaultLocale", ".locale.en-US"))}

    def fill(self, **changed):
        values = {"setup": self.setup, "url": "https://example.invalid/Kestrune-7.8.9-setup.exe",
                  "identifier": "Somebody.Kestrune", "publisher": "Somebody", "licence": "Proprietary",
                  "output": self.root / "out", **changed}
        command = [sys.executable, PROJECT / "tools" / "make-winget"]
        for name, value in values.items():
            command += ["--" + name, str(value)]
        return subprocess.run(command, capture_output=True, text=True, check=False,
                              env={**os.environ, "SOURCE_DATE_EPOCH": "1700000000"})

    def test_each_manifest_obeys_its_schema(self):
        for kind, manifest in self.manifests.items():
            self.assertEqual(problems(SCHEMAS / f"{kind}.json", manifest), [], kind)

    def test_no_key_is_unknown_to_the_schema(self):
        # The schemas themselves accept every key.
        for kind, manifest in self.manifests.items():
            schema = json.loads((SCHEMAS / f"{kind}.json").read_text())
            known = schema["properties"]
            self.assertLessEqual(set(manifest), set(known), kind)
            if kind == "installer":
                parts = {"InstallerSwitches": manifest["InstallerSwitches"],
                         "Installer": manifest["Installers"][0],
                         "AppsAndFeaturesEntry": manifest["AppsAndFeaturesEntries"][0]}
                for key, part in parts.items():
                    self.assertLessEqual(set(part), set(schema["definitions"][key]["properties"]), key)

    @unittest.skipUnless((OTHERS / "winget-schemas").is_dir(), "the recorded schemas are not here")
    def test_the_schemas_are_the_official_ones(self):
        for kind in self.manifests:
            recorded = OTHERS / "winget-schemas" / f"manifest.{kind}.1.12.0.json"
            self.assertEqual((SCHEMAS / f"{kind}.json").read_bytes(), recorded.read_bytes())
        self.assertEqual((SCHEMAS / "LICENSE").read_bytes(),
                         (OTHERS / "winget-schemas" / "LICENSE").read_bytes())

    def test_each_names_its_schema_and_version(self):
        for kind, suffix in (("version", ""), ("installer", ".installer"), ("defaultLocale", ".locale.en-US")):
            text = (self.root / "out" / f"Somebody.Kestrune{suffix}.yaml").read_text()
            schema = json.loads((SCHEMAS / f"{kind}.json").read_text())
            self.assertEqual(text.splitlines()[0], f"# yaml-language-server: $schema={schema['$id']}")
            self.assertEqual(self.manifests[kind]["ManifestVersion"],
                             schema["properties"]["ManifestVersion"]["default"])

    def test_nothing_is_left_to_fill_in(self):
        for path in (self.root / "out").iterdir():
            self.assertNotRegex(path.read_text(), r"@[A-Z0-9]+@")

    def test_version_sum_and_day_match_setup(self):
        installer = self.manifests["installer"]
        self.assertEqual({manifest["PackageVersion"] for manifest in self.manifests.values()}, {"7.8.9"})
        self.assertEqual(installer["Installers"][0]["InstallerSha256"],
                         hashlib.sha256(self.setup.read_bytes()).hexdigest().upper())
        self.assertEqual(str(installer["ReleaseDate"]), "2023-11-14")

    def test_it_installs_for_the_user_and_silently(self):
        installer = self.manifests["installer"]
        self.assertEqual(installer["Scope"], "user")
        self.assertEqual(installer["InstallerSwitches"],
                         {"Silent": "/S", "SilentWithProgress": "/S", "Log": '/LOG="<LOGPATH>"',
                          "Custom": "/EXTRARECORDS=Change"})
        self.assertIn("RequestExecutionLevel user", SETUP_SOURCE)

    def test_running_host_is_package_in_use(self):
        responses = {code["InstallerReturnCode"]: code["ReturnResponse"]
                     for code in self.manifests["installer"]["ExpectedReturnCodes"]}
        self.assertEqual(responses[30], "packageInUse")

    def test_every_exit_code_is_declared(self):
        head = SETUP_HEAD[:SETUP_HEAD.index("Unicode true")]
        codes = {int(code) for code in re.findall(r"(?:^;| {3,}) *(\d+) [a-z]", head, re.MULTILINE)}
        self.assertLessEqual({0, 1, 2, 20, 30, 40, 50, 51}, codes)
        expected = [code["InstallerReturnCode"]
                    for code in self.manifests["installer"]["ExpectedReturnCodes"]]
        self.assertEqual(sorted(expected), sorted(codes - {0}))
        documented = {int(code) for code in re.findall(r"^\| (\d+) \|", ROLL_OUT, re.MULTILINE)}
        self.assertLessEqual(codes, documented)

    def test_entry_under_apps_matches_setup(self):
        entry = self.manifests["installer"]["AppsAndFeaturesEntries"][0]
        self.assertIn(f'DisplayName "{entry["DisplayName"]}"', SETUP_SOURCE)
        self.assertIn("\\Uninstall\\" + entry["ProductCode"] + '"', SETUP_SOURCE)
        self.assertEqual(entry["DisplayVersion"], "7.8.9")

    def test_invalid_manifest_is_not_written(self):
        for changed, why in (
                ({"publisher": 'a"b'}, "is not allowed"), ({"publisher": "a\tb"}, "is not allowed"),
                ({"publisher": ""}, "Publisher"), ({"publisher": "x"}, "Publisher"),
                ({"publisher": "x" * 257}, "Publisher"), ({"licence": "no"}, "License"),
                ({"licence": "x" * 513}, "License"), ({"identifier": "NoDot"}, "PackageIdentifier"),
                ({"identifier": "A.b c"}, "PackageIdentifier"), ({"identifier": "../A.b"}, "PackageIdentifier"),
                ({"url": "ftp://example.invalid/a.exe"}, "InstallerUrl"), ({"url": "a.exe"}, "InstallerUrl"),
                ({"url": "https://x\ny"}, "is not allowed"), ({"url": "https://x/" + "y" * 2048}, "InstallerUrl")):
            output = self.root / "refused"
            done = self.fill(output=output, **changed)
            self.assertNotEqual(done.returncode, 0, changed)
            self.assertIn(why, done.stderr, changed)
            self.assertFalse(output.exists(), changed)

    def test_publisher_may_have_any_character(self):
        publisher = "O'Neil & Söhne: $HOME; #1 {x} 'y'"
        self.assertEqual(self.fill(publisher=publisher).returncode, 0)
        manifest = yaml.safe_load((self.root / "out/Somebody.Kestrune.locale.en-US.yaml").read_text())
        self.assertEqual(manifest["Publisher"], publisher)

    def test_setup_without_version_is_refused(self):
        other = self.root / "setup.exe"
        other.write_bytes(b"MZ")
        self.assertIn("no version", self.fill(setup=other).stderr)


if __name__ == "__main__":
    unittest.main(verbosity=2)
