#!/usr/bin/env python3
"""Tests of the folders of the programs: the test programs find each other and Kestrune.exe relative to their own
folder, so every generator must use the same layout. Nothing is built here."""
import json
import pathlib
import shutil
import subprocess
import tempfile
import unittest

PROJECT = pathlib.Path(__file__).resolve().parents[2]


def laid_out(generator, configuration):
    """Returns the path of each of the project's programs, as CMake reports it."""
    with tempfile.TemporaryDirectory() as folder:
        build = pathlib.Path(folder)
        query = build / ".cmake/api/v1/query/codemodel-v2"
        query.parent.mkdir(parents=True)
        query.touch()
        subprocess.run(["cmake", "-S", PROJECT, "-B", build, "-G", generator,
                        "--toolchain", PROJECT / "cmake/mingw-i686.cmake",
                        *([f"-DCMAKE_BUILD_TYPE={configuration}"] if generator == "Ninja" else [])],
                       check=True, capture_output=True)
        programs = {}
        for reply in (build / ".cmake/api/v1/reply").glob(f"target-*-{configuration}-*.json"):
            target = json.loads(reply.read_text())
            if target["type"] == "EXECUTABLE":
                place = target["artifacts"][0]["path"]
                if not place.startswith("tests/bench/"):
                    programs[target["name"]] = place
    return programs


@unittest.skipUnless(shutil.which("i686-w64-mingw32-g++-posix"), "no cross compiler here")
class Layout(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.one = laid_out("Ninja", "Release")

    def test_programs_are_in_the_expected_folders(self):
        self.assertEqual(self.one["Kestrune"], "Kestrune.exe")
        for name in ("unit_tests", "windows_tests", "system_tests"):
            self.assertRegex(self.one[name], rf"^tests/[a-z]+/{name}\.exe$")
        helpers = {path.name for path in (PROJECT / "tests/programs").iterdir() if path.is_dir()
                   and any(path.glob("*.cpp"))}
        for name in helpers & set(self.one):
            self.assertEqual(self.one[name], f"tests/programs/{name}.exe")
        self.assertGreaterEqual(len(helpers & set(self.one)), 5)

    def test_multi_configuration_generator_changes_no_folder(self):
        # Visual Studio does not run here; this generator has the same rule.
        self.assertEqual(laid_out("Ninja Multi-Config", "Release"), self.one)


if __name__ == "__main__":
    unittest.main(verbosity=2)
