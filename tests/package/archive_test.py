#!/usr/bin/env python3
"""Tests of the release ZIP (tools/make-archive) and of the bill of materials (tools/make-sbom)."""
import datetime
import hashlib
import json
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest
import zipfile

PROJECT = pathlib.Path(__file__).resolve().parents[2]
BUILD = PROJECT / "build" / "release"
TIME = 1_700_000_001


class Archive(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        for name in ("package/Script/Kestrune.pas", "package/Runtime/Bridge.OutJob"):
            (self.root / name).parent.mkdir(parents=True, exist_ok=True)
            (self.root / name).write_bytes(name.encode() + b"\n")
        (self.root / "package" / "README.txt").write_text("one\ntwo\n")
        for name in ("Licenses", "Diagnostics"):
            shutil.copytree(PROJECT / "package" / name, self.root / "package" / name)
        (self.root / "program.exe").write_bytes(b"MZ program" * 1000)
        (self.root / "sbom.json").write_text("{}\n")

    def make(self, folder, time=TIME):
        here = self.root / folder
        here.mkdir()
        run = [sys.executable]
        subprocess.run(run + [PROJECT / "tools/make-stage", "--program", self.root / "program.exe",
                              "--package", self.root / "package", "--stage", here / "stage",
                              "--time", str(time)], check=True)
        subprocess.run(run + [PROJECT / "tools/make-archive", "--stage", here / "stage",
                              "--package", self.root / "package", "--sbom", self.root / "sbom.json",
                              "--name", "Kestrune-9.9.9", "--output", here / "it.zip"], check=True)
        return here / "it.zip"

    def test_same_stage_packs_to_same_bytes(self):
        self.assertEqual(self.make("a").read_bytes(), self.make("another folder").read_bytes())

    def test_entries_are_sorted_and_dated(self):
        with zipfile.ZipFile(self.make("a")) as archive:
            names = archive.namelist()
            self.assertEqual(names, sorted(names))
            self.assertTrue(all(name.startswith("Kestrune-9.9.9/") for name in names))
            utc = datetime.datetime.fromtimestamp(TIME, datetime.timezone.utc)
            for info in archive.infolist():
                # The DOS field counts in steps of two seconds, the extra field is exact.
                self.assertEqual(info.date_time[:5], utc.timetuple()[:5])
                self.assertEqual(info.extra[:9], b"UT\x05\x00\x01" + TIME.to_bytes(4, "little"))

    def test_two_releases_differ_in_time(self):
        with zipfile.ZipFile(self.make("a")) as old, zipfile.ZipFile(self.make("b", TIME + 2)) as new:
            for before, after in zip(old.infolist(), new.infolist()):
                self.assertLess(before.date_time, after.date_time)

    def test_unpacked_files_match_stage_and_sums(self):
        archive = self.make("a")
        with zipfile.ZipFile(archive) as opened:
            opened.extractall(self.root / "out")
        top = self.root / "out" / "Kestrune-9.9.9"
        stage = archive.parent / "stage"
        for path in stage.rglob("*"):
            if path.is_file():
                self.assertEqual((top / path.relative_to(stage)).read_bytes(), path.read_bytes())
        listed = dict(reversed(line.split("  ", 1))
                      for line in (top / "SHA256SUMS").read_text().splitlines())
        found = {path.relative_to(top).as_posix() for path in top.rglob("*") if path.is_file()}
        self.assertEqual(set(listed), found - {"SHA256SUMS"})
        for name, digest in listed.items():
            self.assertEqual(hashlib.sha256((top / name).read_bytes()).hexdigest(), digest)

    def test_probe_is_packed_but_not_installed(self):
        archive = self.make("a")
        stage = archive.parent / "stage"
        self.assertEqual([p for p in stage.rglob("*") if "Probe" in p.name or "Diagnostics" in p.name], [])
        probe = {"KestruneProbe.PrjScr", "KestruneProbe.pas", "KestruneProbe_Form.pas",
                 "KestruneProbe_Form.dfm"}
        with zipfile.ZipFile(archive) as opened:
            packed = {name.split("/Diagnostics/")[1]: opened.read(name) for name in opened.namelist()
                      if "/Diagnostics/" in name}
        self.assertEqual(set(packed), probe)
        project = packed["KestruneProbe.PrjScr"].decode("ascii")
        listed = set(re.findall(r"^DocumentPath=(.*)\r$", project, re.MULTILINE))
        self.assertEqual(listed, {name for name in probe if name.endswith(".pas")})
        self.assertIn(b"Procedure RunKestruneProbe;", packed["KestruneProbe.pas"])

    def test_one_altered_byte_is_noticed(self):
        archive = self.make("a")
        content = bytearray(archive.read_bytes())
        with zipfile.ZipFile(archive) as opened:
            info = opened.getinfo("Kestrune-9.9.9/Licenses/GPL-3.0.txt")
        content[info.header_offset + 100 + len(info.filename)] ^= 1
        archive.write_bytes(content)
        with zipfile.ZipFile(archive) as opened, self.assertRaises(Exception):
            assert opened.testzip() is None

    def test_a_truncated_archive_does_not_open(self):
        archive = self.make("a")
        archive.write_bytes(archive.read_bytes()[:-200])
        with self.assertRaises(zipfile.BadZipFile):
            zipfile.ZipFile(archive)

    def test_texts_have_windows_line_ends(self):
        with zipfile.ZipFile(self.make("a")) as archive:
            self.assertEqual(archive.read("Kestrune-9.9.9/README.txt"), b"one\r\ntwo\r\n")
            licence = archive.read("Kestrune-9.9.9/Licenses/GPL-3.0.txt")
        self.assertEqual(licence.count(b"\n"), licence.count(b"\r\n"))


class Readme(unittest.TestCase):
    def test_it_names_the_version_that_is_built(self):
        version = re.search(r"project\(Kestrune VERSION ([0-9.]+)",
                            (PROJECT / "CMakeLists.txt").read_text()).group(1)
        text = (PROJECT / "package" / "README.txt").read_text()
        self.assertIn(f"Kestrune {version} ", text)
        self.assertEqual(set(re.findall(r"\d+\.\d+\.\d+", text)), {version})

    def test_it_is_ascii_and_fits_a_window(self):
        for line in (PROJECT / "package" / "README.txt").read_text().splitlines():
            self.assertTrue(line.isascii() and len(line) <= 100, line)


@unittest.skipUnless((BUILD / "Kestrune.map").is_file(), "the release preset is not built")
class BillOfMaterials(unittest.TestCase):
    # The libraries that the linker may use, and the component for each.
    # Import libraries hold nothing but references to Windows' own libraries.
    COMPONENTS = {"libgcc.a": "libgcc", "libgcc_eh.a": "libgcc", "libstdc++.a": "libstdc++",
                  "libmingw32.a": "mingw-w64-runtime", "libmingwex.a": "mingw-w64-runtime",
                  "libmsvcrt.a": "mingw-w64-runtime", "libpthread.a": "winpthreads",
                  "libwinpthread.a": "winpthreads"}
    IMPORTS = {"libadvapi32.a", "libkernel32.a", "libole32.a", "libshell32.a", "libuser32.a",
               "libuuid.a", "libgdi32.a"}
    OURS = {"libkestrune_core.a", "libkestrune_windows.a"}

    def linked(self):
        text = (BUILD / "Kestrune.map").read_text(errors="replace")
        return set(re.findall(r"([\w+.-]+\.a)\(", text)) - self.OURS

    def test_every_linked_library_is_known(self):
        self.assertLessEqual(self.linked(), set(self.COMPONENTS) | self.IMPORTS)

    def make(self, output, *supplier):
        subprocess.run([PROJECT / "tools/make-sbom", "i686-w64-mingw32-g++-posix",
                        BUILD / "Kestrune.exe", "Kestrune", "0.2.3", str(TIME), output, *supplier],
                       check=True)
        return json.loads(output.read_text())

    @unittest.skipUnless(shutil.which("npm") and shutil.which("node"), "npm is not here")
    def test_it_lists_exactly_what_was_linked_in(self):
        with tempfile.TemporaryDirectory() as folder:
            one, two = pathlib.Path(folder) / "one.json", pathlib.Path(folder) / "two.json"
            bom = self.make(one)
            self.make(two)
            self.assertEqual(one.read_bytes(), two.read_bytes())
        expected = {self.COMPONENTS[name] for name in self.linked() if name in self.COMPONENTS}
        self.assertEqual({part["name"] for part in bom["components"]}, expected)
        self.assertEqual(bom["metadata"]["component"]["hashes"][0]["content"],
                         hashlib.sha256((BUILD / "Kestrune.exe").read_bytes()).hexdigest())
        self.assertEqual(bom["metadata"]["timestamp"], "2023-11-14T22:13:21.000Z")
        self.assertNotIn("supplier", bom["metadata"])
        for part in bom["components"]:
            self.assertTrue(part["licenses"] and re.match(r"\d+\.\d+", part["version"]), part)
            self.assertRegex(part["purl"], r"^pkg:deb/debian/[\w.-]+@[\w.%-]+$")
            self.assertEqual(part["supplier"], {"name": "Debian"})
        tool = bom["metadata"]["tools"]["components"][0]
        pinned = json.loads((PROJECT / "tools/sbom/package.json").read_text())["dependencies"]
        self.assertEqual((tool["name"], tool["version"]),
                         ("@cyclonedx/cyclonedx-library", pinned["@cyclonedx/cyclonedx-library"]))

    @unittest.skipUnless(shutil.which("npm") and shutil.which("node"), "npm is not here")
    def test_bill_of_setup_adds_its_parts(self):
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            supplier = 'A "Publisher"; of $HOME'
            bom = self.make(root / "program.json", supplier)
            (root / "setup.exe").write_bytes(b"MZ setup")
            subprocess.run([PROJECT / "tools/make-sbom", "--setup", root / "setup.exe",
                            root / "program.json", root / "setup.json"], check=True)
            setup = json.loads((root / "setup.json").read_text())
        self.assertEqual(setup["metadata"]["component"]["hashes"][0]["content"],
                         hashlib.sha256(b"MZ setup").hexdigest())
        self.assertEqual(setup["metadata"]["timestamp"], bom["metadata"]["timestamp"])
        for bill in (bom, setup):
            self.assertEqual(bill["metadata"]["supplier"], {"name": supplier})
        parts = {part["name"]: part for part in setup["components"]}
        own = {"Kestrune", "nsis", "nsis-lzma"}
        self.assertEqual(set(parts) - own, {part["name"] for part in bom["components"]})
        self.assertEqual(parts["Kestrune"]["hashes"], bom["metadata"]["component"]["hashes"])
        for part in bom["components"]:
            self.assertEqual(parts[part["name"]], part)
        for name in own - {"Kestrune"}:
            self.assertTrue(parts[name]["licenses"] and parts[name]["purl"].startswith("pkg:deb/debian/nsis"))

    @unittest.skipUnless(list(BUILD.glob("Kestrune-*-setup.exe")), "the setup program is not built")
    def test_bill_of_setup_names_plug_ins(self):
        sys.path.insert(0, str(PROJECT / "tests/binary"))
        self.addCleanup(sys.path.pop, 0)
        from check_binary import unpacked_setup
        carried = unpacked_setup(next(BUILD.glob("Kestrune-*-setup.exe")).read_bytes())
        found = {name.decode("utf-16-le") for name in
                 re.findall(rb"\\\x00((?:[A-Za-z]\x00)+)\.\x00d\x00l\x00l\x00", carried)}
        named = re.search(r"with the plug-ins ([\w ]+)", (PROJECT / "tools/make-sbom").read_text()).group(1)
        self.assertEqual(found, set(named.split(" and ")))


if __name__ == "__main__":
    unittest.main(verbosity=2)
