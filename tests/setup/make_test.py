"""Making the setup program: its content, its texts and its signatures."""
import os
import re
import shutil
import struct
import subprocess
import sys
import unittest

from machine import BUILD, OUT, PROJECT, files
from setups import PUBLISHER, make_texts, setup, small_package, tool

CHECK = [sys.executable, PROJECT / "tests" / "binary" / "check_binary.py", "--setup"]
TEXT = 'A "quoted" $INSTDIR ${VERSION} $%PATH% $$ back\\slash `x` ; \'y\' Łukasz & Söhne 100% @NAME@'


def company_names(content):
    """Returns every CompanyName in a file's version resources."""
    mark = "CompanyName\0".encode("utf-16le")
    found = []
    for match in re.finditer(re.escape(mark), content):
        begin = match.end() + (-(match.end() - content.rfind(struct.pack("<H", 1), 0, match.start())) % 2)
        text = content[begin:begin + 1000].decode("utf-16le", "replace").lstrip("\0")
        found.append(text[:text.index("\0")])
    return found


class MakeTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        setup("one")
        self.folder = OUT / "made"
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir()

    def refused(self, *command, **environment):
        done = subprocess.run([str(part) for part in command], capture_output=True, text=True, check=False,
                              env={**os.environ, **environment})
        self.assertNotEqual(done.returncode, 0)
        return done.stderr


class Contents(MakeTest):
    def test_archive_against_its_sums_makes_no_setup(self):
        shutil.unpack_archive(OUT / "one.zip", self.folder / "unpacked")
        with open(self.folder / "unpacked/Kestrune-1.0.0/Script/Kestrune.pas", "a") as script:
            script.write("\n")
        shutil.make_archive(self.folder / "tampered", "zip", self.folder / "unpacked")
        output = self.folder / "tampered.exe"
        output.write_text("an older one")
        self.refused(PROJECT / "tools/make-setup", self.folder / "tampered.zip", output)
        self.assertFalse(output.exists())

    def test_setup_names_no_folder_of_builder(self):
        names = [str(OUT), "/tmp/"]
        subprocess.run([*CHECK, setup("real-one"), *names], check=True)
        # Shows that the search finds something.
        tool("make-setup", OUT / "real-one.zip", self.folder / "naming.exe",
             make_texts(publisher=str(OUT)))
        done = subprocess.run([*CHECK, self.folder / "naming.exe", *names], capture_output=True, text=True,
                              check=False)
        self.assertEqual(done.returncode, 1)
        self.assertIn(f"FAILED: the file does not contain the folder {OUT}", done.stdout)

    def test_same_archive_gives_the_same_bytes(self):
        texts = make_texts(publisher=PUBLISHER, help="https://example.invalid/help",
                           about="https://example.invalid/")
        tool("make-setup", OUT / "one.zip", self.folder / "again.exe", texts)
        self.assertEqual((self.folder / "again.exe").read_bytes(), setup("one").read_bytes())

    def test_setup_resource_holds_any_publisher(self):
        for text in (TEXT, "$", '"', "a" * 300):
            tool("make-setup", OUT / "one.zip", self.folder / "any.exe", make_texts(publisher=text))
            self.assertEqual(company_names((self.folder / "any.exe").read_bytes()), [text])

    def test_texts_that_cannot_be_held_are_refused(self):
        for text in ("a\tb", "a\x1bb", "a$\\nb"):
            self.refused(PROJECT / "tools/make-setup", OUT / "one.zip", self.folder / "no.exe",
                         make_texts(publisher=text))
            self.assertFalse((self.folder / "no.exe").exists())

    def test_program_resource_holds_any_publisher(self):
        build = self.folder / "build"
        subprocess.run(["cmake", "-S", PROJECT, "-B", build, "-G", "Ninja", "-DCMAKE_TOOLCHAIN_FILE=" +
                        str(PROJECT / "cmake/mingw-i686.cmake"), f"-DKESTRUNE_PUBLISHER:STRING={TEXT}"],
                       check=True, stdout=subprocess.DEVNULL)
        subprocess.run(["cmake", "--build", build, "--target", "CMakeFiles/Kestrune.dir/Kestrune.rc.res"],
                       check=True, stdout=subprocess.DEVNULL)
        resource = (build / "CMakeFiles/Kestrune.dir/Kestrune.rc.res").read_bytes()
        self.assertEqual(company_names(resource), [TEXT])
        self.assertEqual((build / "publisher/publisher").read_text(), TEXT + "\n")

    def test_build_passes_the_publisher_on(self):
        for name in ("cmake", "dpkg-query"):
            shutil.copy(shutil.which("true"), self.folder / name)
        (self.folder / "cmake").write_text('#!/bin/sh\nprintf "%s\\n" "$@" >>"$CALLS"\n')
        calls = self.folder / "calls"
        subprocess.run([PROJECT / "tools/build", "release", "nothing"], check=True, capture_output=True, env={
            **os.environ, "PATH": f"{self.folder}:{os.environ['PATH']}", "CALLS": str(calls),
            "KESTRUNE_PUBLISHER": TEXT, "KESTRUNE_HELP_URL": "https://h.invalid/?a=1;b"})
        said = calls.read_text().splitlines()
        self.assertIn(f"-DKESTRUNE_PUBLISHER:STRING={TEXT}", said)
        self.assertIn("-DKESTRUNE_HELP_URL:STRING=https://h.invalid/?a=1;b", said)


@unittest.skipUnless(shutil.which("osslsigncode") and shutil.which("openssl"), "no osslsigncode here")
class Signing(MakeTest):
    """Signing with a certificate that is made for the test."""

    def setUp(self):
        super().setUp()
        self.key, self.certificate = self.folder / "key.pem", self.folder / "certificate.pem"
        subprocess.run(["openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", self.key,
                        "-out", self.certificate, "-days", "30", "-subj", "/CN=A Publisher",
                        "-addext", "extendedKeyUsage=codeSigning"], check=True, capture_output=True)
        self.signer = self.folder / "signer"
        self.signer.write_text(
            '#!/bin/sh\n'
            f'basename "$2" >>"{self.folder}/signed"\n'
            f'[ "$(basename "$2")" != "$REFUSED" ] || exit 1\n'
            f'osslsigncode sign -certs "{self.certificate}" -key "{self.key}" -in "$2" -out "$2.s" && '
            'mv "$2.s" "$2"\n')
        self.signer.chmod(0o755)
        self.sign = f"'{self.signer}' --quiet"

    def signed(self):
        path = self.folder / "signed"
        return path.read_text().split() if path.exists() else []

    def assert_is_signed(self, path):
        done = subprocess.run(["osslsigncode", "verify", "-CAfile", self.certificate, "-in", path],
                              capture_output=True, text=True, check=False)
        self.assertIn("Succeeded", done.stdout, done.stdout + done.stderr)

    def make(self, folder, **environment):
        """Creates a build folder with everything that tools/make-release needs, and a cpack that packs it."""
        build = self.folder / folder
        build.mkdir()
        shutil.copytree(make_texts(publisher="A Publisher"), build / "publisher")
        shutil.copy2(BUILD / "tests/programs/setup_stand_in.exe", build / "Kestrune.exe")
        (build / "cpack").write_text(
            '#!/bin/sh\nset -e\nprogram=Kestrune.exe\n[ "$1" != -D ] || program=${2#*=}\n'
            f'"{PROJECT}/tools/make-stage" --program "$program" --package "{small_package()}" --stage stage '
            '--time 1700000000\n'
            'echo "{}" >Kestrune-1.0.0.cdx.json\n'
            f'"{PROJECT}/tools/make-archive" --stage stage --package "{small_package()}" '
            '--sbom Kestrune-1.0.0.cdx.json --name Kestrune-1.0.0 --output Kestrune-1.0.0.zip\n')
        (build / "cpack").chmod(0o755)
        done = subprocess.run([PROJECT / "tools/make-release", build, "Kestrune-1.0.0"], check=False,
                              capture_output=True, text=True,
                              env={**os.environ, "PATH": f"{build}:{os.environ['PATH']}", **environment})
        return build, done

    def test_everything_is_signed_in_its_order(self):
        build, done = self.make("signed-build", KESTRUNE_SIGN=self.sign)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(self.signed(), ["Kestrune.exe", "Uninstall.exe", "Kestrune-1.0.0-setup.exe"])
        self.assert_is_signed(build / "Kestrune-1.0.0-setup.exe")
        shutil.unpack_archive(build / "Kestrune-1.0.0.zip", build / "unpacked")
        self.assert_is_signed(build / "unpacked/Kestrune-1.0.0/Kestrune.exe")
        self.assertIn("MZ", (build / "Kestrune.exe").read_bytes()[:2].decode())

    def test_unsigned_sums_match_an_unsigned_build(self):
        signed, done = self.make("signed-build", KESTRUNE_SIGN=self.sign)
        self.assertEqual(done.returncode, 0, done.stderr)
        unsigned, done = self.make("unsigned-build", KESTRUNE_SIGN="")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertFalse((unsigned / "Kestrune-1.0.0.unsigned-sums").exists())
        shutil.copy(signed / "Kestrune-1.0.0.unsigned-sums", unsigned / "sums")
        subprocess.run(["sha256sum", "--quiet", "-c", "sums"], cwd=unsigned, check=True)
        self.assertEqual(len((unsigned / "sums").read_text().splitlines()), 4)
        self.assertNotEqual((signed / "Kestrune-1.0.0-setup.exe").read_bytes(),
                            (unsigned / "Kestrune-1.0.0-setup.exe").read_bytes())

    def test_failing_signing_command_leaves_nothing(self):
        for number, refused in enumerate(("Kestrune.exe", "Uninstall.exe", "Kestrune-1.0.0-setup.exe")):
            with self.subTest(refused=refused):
                build, done = self.make(f"build{number}", KESTRUNE_SIGN=self.sign, REFUSED=refused)
                self.assertNotEqual(done.returncode, 0)
                self.assertIn(f"{refused} could not be signed", done.stderr)
                self.assertEqual([name for name in files(build) if name.startswith("Kestrune-")], [])

    def test_command_that_removes_the_file_fails(self):
        setup_program = self.folder / "gone.exe"
        self.refused(PROJECT / "tools/make-setup", OUT / "one.zip", setup_program, KESTRUNE_SIGN="rm")
        self.assertFalse(setup_program.exists())

    def test_name_of_file_reaches_the_command_whole(self):
        path = self.folder / 'a "name" $HOME; rm -r x.exe'
        path.write_bytes(b"MZ")
        seen = self.folder / "seen"
        tool("sign", path, env={**os.environ, "KESTRUNE_SIGN": f"basename >'{seen}'"})
        self.assertEqual(seen.read_text(), path.name + "\n")
