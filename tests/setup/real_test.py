"""The real Kestrune.exe in the setup program, with made-up installations of the host."""
import re
import shutil
import unittest

from machine import BUILD, OUT, PROGRAMS, files, wait_until
from setups import (REAL_ONE_TIME, REAL_TWO_TIME, SAMPLES, SetupTest, setup)

KEY = "[Registration]\r\nExtraRecords={}\r\n"
CHANGE = b"Change _User241 TargetID='PLManRoute:PlaceLine' Field0='Shortcut1' Value0='E'  End\r\n"


class RealTest(SetupTest):
    def setUp(self):
        super().setUp()
        self.box("clear")
        self.settings = self.machine.data / "registration.ini"

    def box(self, *arguments):
        code, text = self.machine.run(PROGRAMS / "machine_in_a_box.exe", *arguments)
        self.assertEqual(code, 0, text)
        return text

    def profiles(self):
        """Returns the hosts' customization files, in the order of their numbers."""
        return sorted((self.machine.user / "AppData" / "Roaming" / "Altium").glob("*/DXP.RCS"))

    def buttons(self):
        return len(re.findall(r"^    runs Kestrune.pas>RunKestrune of .*Kestrune.PrjScr$",
                              self.box("show"), re.MULTILINE))


class Life(RealTest):
    def test_two_instances_are_installed_updated_and_removed(self):
        m = self.machine
        self.box("make", "2")
        m.data.mkdir(exist_ok=True)
        self.box("snapshot", r"C:\stand-in\before")
        shown = self.box("show")
        self.install("real-one")
        self.assertEqual(self.buttons(), 2)
        self.assertEqual(len(files(m.runtime)), 9)
        self.assertEqual(m.code(m.package / "Kestrune.exe", "--status", "--quiet"), 0)
        self.assertEqual(m.log().count("Installed/updated and validated."), 2)
        self.install("real-two")
        self.assertEqual({path.stat().st_mtime for path in m.runtime.iterdir()}, {REAL_TWO_TIME})
        self.assertEqual(self.buttons(), 2)
        self.assertEqual(m.entry()["DisplayVersion"], "2.0.0")
        self.remove()
        self.assert_nothing_installed()
        self.assertEqual(self.buttons(), 0)
        self.assert_log_alone()
        self.assertEqual(self.box("show"), shown)
        self.box("snapshot", r"C:\stand-in\after")
        # DXP.RCS may differ in blanks; folders of Windows' own that a fresh prefix lacks are not ours.
        known = re.compile(r"KestruneBackups|\\DXP\.RCS size|HKCU\\Software\\Wine|\\Uninstall$|"
                           r"AppData\\Local\\Programs$|Kestrune\\Logs|Temp\\Kestrune-uninstaller-")
        left = [line for line in self.box("diff", r"C:\stand-in\before",
                                          r"C:\stand-in\after").splitlines()
                if not known.search(line)]
        self.assertEqual(left, [])
        for path in self.profiles():
            self.assertNotIn(b"Kestrune", path.read_bytes())

    def test_profile_folder_with_any_letters(self):
        m = self.machine
        self.addCleanup(m.move_profile, m.user)
        m.move_profile(m.drive / "users" / "Zoë O'Brien & Söhne 100%")
        self.box("make", "1")
        self.install("real-one", "/EXTRARECORDS=Change")
        self.assertEqual(self.buttons(), 1)
        self.assertEqual(len(files(m.runtime)), 9)
        self.assertEqual(m.code(m.package / "Kestrune.exe", "--status", "--quiet"), 0)
        self.remove()
        self.assertEqual(self.buttons(), 0)
        self.assert_nothing_installed()
        # Wine makes $PROFILE of the user's name, so the log of the setup program stays in the former folder.
        self.assertEqual(files(m.data), {})

    def test_without_a_host_nothing_is_installed(self):
        self.install("real-one", code=20)
        self.assert_nothing_installed()
        self.assertFalse(self.machine.runtime.exists())

    def test_never_started_instance_does_not_keep_kestrune(self):
        self.box("make-three")
        self.install("real-one", code=40)
        self.assertEqual(self.buttons(), 2)
        self.remove()
        self.assertEqual(self.buttons(), 0)
        self.assert_nothing_installed()

    def test_vanished_program_does_not_keep_kestrune(self):
        self.box("make", "2")
        self.install("real-one")
        shutil.rmtree(next(self.machine.drive.glob("KestruneBox/AD *")))
        self.remove()
        self.assert_nothing_installed()
        self.assertIn("Skipped: ", self.machine.log())

    def test_last_host_gone_does_not_keep_kestrune(self):
        self.box("make", "1")
        self.install("real-one")
        self.machine.run("reg", "delete",
                         r"HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall", "/f", "/reg:64")
        self.machine.run("reg", "delete",
                         r"HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall", "/f", "/reg:32")
        self.remove()
        self.assert_nothing_installed()
        self.assertIn("No Altium instance found.", self.machine.log())

    def test_locked_profile_keeps_kestrune_until_unlocked(self):
        self.box("make", "2")
        self.install("real-one")
        self.profiles()[0].chmod(0o444)
        self.remove(code=40)
        self.assertEqual(self.buttons(), 1)
        self.assertTrue((self.machine.package / "Kestrune.exe").exists())
        self.assertIn("FAILED: Unsafe/read-only RCS target.", self.machine.log())
        self.profiles()[0].chmod(0o644)
        self.remove()
        self.assertEqual(self.buttons(), 0)
        self.assert_nothing_installed()

    def test_locked_profile_can_be_left_by_force(self):
        self.box("make", "1")
        self.install("real-one")
        self.profiles()[0].chmod(0o444)
        self.addCleanup(lambda: self.profiles()[0].chmod(0o644))
        self.remove("/FORCE")
        self.assert_nothing_installed()
        self.assertFalse(self.machine.runtime.exists())

    def test_running_host_changes_nothing_until_closed(self):
        m = self.machine
        self.box("make", "1")
        shutil.copy(PROGRAMS / "waiting_program.exe", m.stand_in / "X2.exe")
        host = m.start(m.stand_in / "X2.exe")
        wait_until(lambda: m.processes("X2.exe"))
        self.install("real-one", code=30)
        self.assert_nothing_installed()
        self.assertEqual(self.buttons(), 0)
        m.kill("X2.exe")
        host.wait()
        self.install("real-one")
        self.assertEqual(self.buttons(), 1)

    def test_read_only_report_changes_no_code(self):
        # Wine as root opens a read-only file for writing, but not one on a read-only file system.
        m = self.machine
        report = m.stand_in / "report.txt"
        report.write_text("older")
        setup("real-one")
        code = self.in_a_mounted_world(
            f'mount --bind "{report}" "{report}"; mount -o remount,ro,bind "{report}"',
            BUILD / "Kestrune.exe", "--install", "--quiet", "--report", m.windows(report))
        self.assertEqual(code, 20)
        self.assertEqual(report.read_text(), "older")
        self.assertRegex((m.data / "Logs" / "bridge.log").read_text(),
                         r"Installer report failed \| Error=Cannot write report\. GetLastError=\d+ "
                         r"Report=C:\\stand-in\\report\.txt")

    def test_damaged_package_keeps_the_old_runtime(self):
        m = self.machine
        self.box("make", "1")
        self.install("real-one")
        setup("real-two")
        damages = {
            "manifest": lambda f: self.change(f / "Script/BFM_Kestrune.ini",
                                              rb"(WaitForm\.pas=.*\|).", rb"\1G"),
            "short manifest": lambda f: self.change(f / "Script/BFM_Kestrune.ini",
                                                    rb"(WaitForm\.pas=.*).{40}", rb"\1"),
            "file": lambda f: self.change(f / "Script/Kestrune_WaitForm.pas", rb"^.", b"X"),
            "short file": lambda f: self.change(f / "Script/Kestrune_WaitForm.pas", rb"(?s).{100}$", b""),
            "empty file": lambda f: (f / "Script/Kestrune_WaitForm.pas").write_bytes(b"")}
        for name, damage in damages.items():
            with self.subTest(damage=name):
                shutil.rmtree(m.stand_in / "unpacked", ignore_errors=True)
                shutil.unpack_archive(OUT / "real-two.zip", m.stand_in / "unpacked")
                folder = m.stand_in / "unpacked" / "Kestrune-2.0.0"
                damage(folder)
                log = m.data / "Logs" / "bridge.log"
                log.unlink(missing_ok=True)
                self.assertEqual(m.code(folder / "Kestrune.exe", "--update", "--quiet"), 40)
                self.assertRegex(log.read_text(), r"Installer failed \| Error=.*Kestrune_WaitForm.pas")
                for kept in ("Kestrune.pas", "Kestrune_WaitForm.pas"):
                    self.assertEqual((m.runtime / kept).stat().st_mtime, REAL_ONE_TIME)
        self.assertEqual(self.buttons(), 1)

    def change(self, path, pattern, replacement):
        before = path.read_bytes()
        after = re.sub(pattern, replacement, before, count=1)
        self.assertNotEqual(before, after)
        path.write_bytes(after)


class ChangeRecords(RealTest):
    """Profiles that hold records of changed shortcuts."""

    def add_change(self, path):
        path.write_bytes(path.read_bytes() + CHANGE)

    def test_without_option_such_profile_is_unchanged(self):
        self.box("make", "2")
        self.add_change(self.profiles()[0])
        before = self.profiles()[0].read_bytes()
        self.install("real-one", code=40)
        self.assertEqual(self.buttons(), 1)
        self.assertEqual(self.profiles()[0].read_bytes(), before)
        self.assertFalse(self.settings.exists())
        self.assertIn("/EXTRARECORDS=Change accepts these records", self.machine.log())

    def test_option_accepts_them_where_needed(self):
        self.box("make", "1")
        self.install("real-one", "/EXTRARECORDS=Change")
        self.assertFalse(self.settings.exists(), "the key was set although nothing needs it")
        self.add_change(self.profiles()[0])
        self.install("real-two", "/EXTRARECORDS=Change")
        self.assertEqual(self.settings.read_bytes().decode(), KEY.format("Change"))
        self.assertEqual(self.buttons(), 1)
        self.assertIn(CHANGE, self.profiles()[0].read_bytes())
        self.remove()
        self.assertEqual(self.settings.read_bytes().decode(), KEY.format("Change"))
        self.assertIn(CHANGE, self.profiles()[0].read_bytes())

    def test_any_other_kind_is_rejected(self):
        self.box("make", "1")
        self.add_change(self.profiles()[0])
        self.install("real-one", "/EXTRARECORDS=Changes", code=40)
        self.assertFalse(self.settings.exists())

    def test_later_change_record_allows_removal(self):
        self.box("make", "2")
        self.install("real-one")
        self.add_change(self.profiles()[1])
        self.assertEqual(
            self.machine.code(self.machine.package / "Kestrune.exe", "--status", "--quiet"), 10)
        self.remove()
        self.assert_nothing_installed()
        self.assertFalse(self.settings.exists())
        self.assertTrue(self.profiles()[1].read_bytes().endswith(CHANGE))
        self.assertEqual(self.buttons(), 0)

    def test_users_own_kinds_are_kept(self):
        self.box("make", "1")
        self.machine.data.mkdir(exist_ok=True)
        own = b"; mine\r\n[Registration]\r\nextrarecords = Other\r\n[More]\r\nx=1\r\n"
        self.settings.write_bytes(own)
        self.install("real-one")
        self.add_change(self.profiles()[0])
        self.remove()
        self.assertEqual(self.settings.read_bytes(), own)
        self.assertEqual(self.buttons(), 0)
        self.install("real-one", "/EXTRARECORDS=Change")
        self.assertIn(b"Other,Change", self.settings.read_bytes())
        self.assertEqual(self.buttons(), 1)

    def test_settings_that_cannot_be_written_are_named(self):
        self.box("make", "1")
        self.add_change(self.profiles()[0])
        self.settings.mkdir(parents=True)
        self.install("real-one", "/EXTRARECORDS=Change", code=40)
        self.assertIn("registration.ini cannot be written", self.machine.log())
        self.remove(code=40)
        self.assertEqual(self.machine.entry()["DisplayVersion"], "1.0.0")

    @unittest.skipUnless(SAMPLES.is_dir(), "no sample files beside the project")
    def test_every_real_profile_is_installed_and_removed(self):
        samples = sorted((SAMPLES / "rcs").glob("*.RCS"))
        self.box("make", str(len(samples)))
        before = {}
        for path, sample in zip(self.profiles(), samples):
            before[path] = sample.read_bytes()
            path.write_bytes(before[path])
        self.assertGreater(sum(b"\nChange " in text for text in before.values()), 8)
        self.install("real-one", "/EXTRARECORDS=Change")
        for (path, text), sample in zip(before.items(), samples):
            with self.subTest(sample=sample.name):
                self.assert_only_inserted(text, path.read_bytes())
        self.assertEqual(self.machine.code(self.machine.package / "Kestrune.exe", "--status",
                                           "--quiet"), 0)
        self.remove()
        self.assert_nothing_installed()
        for (path, text), sample in zip(before.items(), samples):
            with self.subTest(sample=sample.name, step="removed"):
                self.assert_taken_out(text, path.read_bytes())

    def assert_only_inserted(self, before, after):
        """Checks that only our four records were inserted, in two places, and every other byte is unchanged."""
        link = rb"\r?\n    Link KestruneCommandLink PLID='PLKestrune' End\r?\n"
        command = (rb"PL PLKestrune Command='ScriptingSystem:RunScript' [^\n]* End\r?\n"
                   rb"Insertion KestruneToolbar [^\n]*\r?\n"
                   rb"    Link KestruneToolbarLink PLID='PLKestrune' End\r?\nEnd\r?\n")
        rest, links = re.subn(link, b"", after)
        rest, commands = re.subn(command, b"", rest)
        self.assertEqual((links, commands), (1, 1))
        self.assertEqual(rest, before)

    def assert_taken_out(self, before, after):
        """Checks that every byte is as before the installation; only blanks and line ends may have been added."""
        at = 0
        for byte in after:
            if at < len(before) and byte == before[at]:
                at += 1
            else:
                self.assertIn(byte, b" \r\n")
        self.assertEqual(at, len(before))
        self.assertLess(len(after) - len(before), 20)
