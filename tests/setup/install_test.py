"""Installing with a stand-in for Kestrune.exe."""
import datetime
import os
import shutil

from machine import OUT, files, wait_until
from setups import ONE_TIME, PUBLISHER, SetupTest, setup


class Installation(SetupTest):
    def test_silent_installation_takes_its_place_and_registers(self):
        m = self.machine
        self.answer(0)
        before = datetime.date.today()
        self.install()
        self.assert_installed("1.0.0")
        package = m.windows(m.package)
        self.assertEqual(self.calls(), [
            f'"{package}\\Kestrune.exe" --status --quiet',
            f'"{package}\\Kestrune.exe" --install --quiet --package "{package}"'])
        entry = m.entry()
        self.assertLessEqual(before.strftime("%Y%m%d"), entry.pop("InstallDate"))
        size = sum(len(data) for name, data in files(m.package).items() if name != "Uninstall.exe")
        self.assertAlmostEqual(entry.pop("EstimatedSize"), size / 1024, delta=60)
        self.assertEqual(entry, {
            "DisplayName": "Kestrune", "DisplayVersion": "1.0.0", "Publisher": PUBLISHER,
            "HelpLink": "https://example.invalid/help", "URLInfoAbout": "https://example.invalid/",
            "DisplayIcon": f"{package}\\Kestrune.exe", "InstallLocation": package,
            "UninstallString": f'"{package}\\Uninstall.exe" _?={package}',
            "QuietUninstallString": f'"{package}\\Uninstall.exe" /S _?={package}',
            "NoModify": 1, "NoRepair": 1})
        self.assertEqual(list(m.temp.iterdir()), [], "a temporary file stayed")

    def test_without_publisher_none_is_registered(self):
        self.answer(0)
        self.install("one")
        self.install("two")
        entry = self.machine.entry()
        for name in ("Publisher", "HelpLink", "URLInfoAbout"):
            self.assertNotIn(name, entry)

    def test_refused_first_installation_leaves_nothing(self):
        for code in (20, 30, 3):
            with self.subTest(code=code):
                self.clean()
                self.answer(code)
                self.install(code=code)
                self.assert_nothing_installed()
                self.assert_log_alone()

    def test_refused_update_puts_the_older_version_back(self):
        self.answer(0)
        self.install()
        (self.machine.package / "notes.txt").write_text("mine")
        before, entry = files(self.machine.package), self.machine.entry()
        for code in (20, 30, 3):
            with self.subTest(code=code):
                self.answer(code)
                self.install("two", code=code)
                self.assertEqual(files(self.machine.package), before)
                self.assertEqual(self.machine.entry(), entry)
                self.assertEqual(len(list((self.machine.local / "Programs").iterdir())), 1)

    def test_program_that_cannot_start_changes_nothing(self):
        self.answer(0)
        self.install("broken", code=50)
        self.assert_nothing_installed()
        self.install()
        self.install("broken", code=50)
        self.assert_installed("1.0.0")

    def test_failed_instance_keeps_package_and_code(self):
        self.answer(40)
        self.install(code=40)
        self.assert_installed("1.0.0")

    def test_update_replaces_the_older_version(self):
        self.answer(0)
        self.install()
        self.install("two")
        self.assert_installed("2.0.0")
        self.install("two")
        self.assert_installed("2.0.0")

    def test_foreign_files_survive_update_and_removal(self):
        self.answer(0)
        self.install()
        (self.machine.package / "notes.txt").write_text("mine")
        self.install("two")
        programs = self.machine.local / "Programs"
        self.assertEqual([p.read_text() for p in programs.glob("*/notes.txt")], ["mine"])
        (self.machine.package / "more.txt").write_text("mine, too")
        self.remove()
        self.assertEqual([p.read_text() for p in programs.glob("*/notes.txt")], ["mine"])
        self.assertEqual(files(self.machine.package), {"more.txt": b"mine, too"})

    def test_second_start_is_refused_with_51(self):
        self.answer(-30)
        first = self.machine.start(setup("one"), "/S")
        wait_until(lambda: self.calls("--install"))
        self.assertEqual(self.machine.code(setup("two"), "/S"), 51)
        self.assertEqual(len(self.calls("--install")), 1)
        (self.machine.stand_in / "go").touch()
        self.assertEqual(first.wait(), 30)
        self.assert_nothing_installed()

    def test_user_name_with_any_letters(self):
        m = self.machine
        old = m.local
        folder = m.drive / "users" / "Zoë O'Brien & Łukasz Ωμέγα 100%" / "AppData" / "Local"
        folder.mkdir(parents=True)
        self.addCleanup(m.set_local, old)
        self.addCleanup(self.set_shell_folder, "Local AppData", m.windows(old))
        self.set_shell_folder("Local AppData", m.windows(folder))
        m.set_local(folder)
        self.answer(0)
        self.install()
        self.assert_installed("1.0.0")
        self.assertIn(f'--package "{m.windows(m.package)}"', self.calls("--install")[0])
        self.assertTrue((m.runtime / "Kestrune.exe").exists())
        self.remove()
        self.assert_nothing_installed()
        self.assertFalse(m.runtime.exists())

    def test_profile_that_cannot_be_reached_changes_nothing(self):
        # Q: replaces a network drive that is no longer connected.
        self.addCleanup(self.set_shell_folder, "Local AppData", self.machine.windows(self.machine.local))
        self.set_shell_folder("Local AppData", r"Q:\gone\AppData\Local")
        self.answer(0)
        self.install(code=50)
        self.assertEqual(self.calls(), [])
        self.assertFalse((self.machine.drive / "Programs").exists())
        self.assert_nothing_installed()


class DamagedSetup(SetupTest):
    def refused(self, content):
        path = OUT / "damaged.exe"
        path.write_bytes(content)
        path.chmod(0o755)
        self.answer(0)
        self.assertEqual(self.machine.code(path, "/S"), 2)
        self.assertEqual(self.calls(), [])
        self.assert_nothing_installed()

    def test_truncated_setup_is_refused(self):
        self.refused(setup("one").read_bytes()[:-1000])

    def test_altered_payload_is_refused(self):
        content = bytearray(setup("one").read_bytes())
        content[-5000] ^= 1
        self.refused(bytes(content))


class FullDrive(SetupTest):
    def run_on_small_drive(self, folder):
        """Installs to a drive of 100 KB, with the temporary files on another one."""
        m = self.machine
        listing = OUT / "full.txt"
        os.environ["KESTRUNE_AFTER"] = f'find "{folder}" -type f -not -name setup.log >"{listing}"'
        self.addCleanup(os.environ.pop, "KESTRUNE_AFTER")
        folder.mkdir(exist_ok=True)
        (OUT / "temp").mkdir(exist_ok=True)
        self.answer(0)
        code = self.in_a_mounted_world(
            f'mount --bind "{m.temp}" "{OUT}/temp"; mount -t tmpfs -o size=100k none "{folder}"; '
            f'mkdir -p "{m.temp}"; mount --bind "{OUT}/temp" "{m.temp}"', setup("one"), "/S")
        self.assertEqual(code, 50)
        self.assertEqual(listing.read_text(), "")
        self.assertEqual(self.calls(), [])
        self.assertEqual(m.entry(), {})

    def test_full_drive_changes_nothing(self):
        self.run_on_small_drive(self.machine.local)

    def test_drive_that_fills_up_changes_nothing(self):
        self.run_on_small_drive(self.machine.local / "Programs")


class HeldFiles(SetupTest):
    def test_held_older_version_registers_nothing_anew(self):
        # Wine renames a folder whose files are in use, which Windows does not; it cannot rename one
        # on which something is mounted.
        package = self.machine.package
        self.answer(0)
        self.install()
        before, entry = files(package), self.machine.entry()
        self.answer(0)
        code = self.in_a_mounted_world(f'mount --bind "{package}" "{package}"', setup("two"), "/S")
        self.assertEqual(code, 50)
        self.assertEqual(self.calls(), [])
        self.assertEqual(files(package), before)
        self.assertEqual(self.machine.entry(), entry)
        self.assertFalse(package.with_name("Kestrune.new").exists())


class KilledSetup(SetupTest):
    """Leftovers of a killed setup; killed_test.py kills it at each step."""

    def test_leftovers_of_killed_setup_are_removed(self):
        m = self.machine
        self.answer(0)
        self.install("two")
        shutil.copytree(m.package, m.package.with_name("Kestrune.gone"))
        shutil.copytree(m.package, m.package.with_name("Kestrune.new"))
        (m.package.with_name("Kestrune.new") / "Kestrune.exe").write_text("half")
        self.install("two")
        self.assert_installed("2.0.0")

    def test_package_between_two_names_comes_back(self):
        m = self.machine
        self.answer(0)
        self.install()
        m.package.rename(m.package.with_name("Kestrune.old"))
        self.answer(30)
        self.install("two", code=30)
        self.assert_installed("1.0.0", ONE_TIME)
        self.assertIn("restoring the older files first", m.log())
