"""Removing with a stand-in for Kestrune.exe."""
import re
import shutil
import tempfile
import pathlib

import unittest

from killing import Point, kill_at
from machine import ENTRY, OUT, files, wait_until
from setups import SetupTest, setup

INSTANCE = "Altium Designer 24.1\nGUID: {%d}\nProfile: C:\\p\nHKCU: Software\\b\n"
DONE = "Registration removed; shared runtime retained.\n"
SKIPPED = "Skipped: DXP.RCS does not exist; initialize this Altium profile first.\n"
FAILED = "FAILED: Unsafe/read-only RCS target.\n"
CHANGE_REFUSED = INSTANCE % 1 + "FAILED: Unknown RCS record: Change \n"
OWN_SETTINGS = b"[Registration]\r\nExtraRecords=Other\r\n"


class Removal(SetupTest):
    def setUp(self):
        super().setUp()
        self.answer(0)
        self.install()

    def kept(self):
        self.assert_installed("1.0.0")
        self.assertTrue((self.machine.runtime / "Kestrune.exe").exists())

    def gone(self):
        """Returns whether everything is removed except a running uninstaller in the temporary folder."""
        self.assert_nothing_installed()
        self.assertFalse(self.machine.runtime.exists())
        self.assertEqual([re.sub(r"\d+", "N", path.name) for path in self.machine.temp.iterdir()],
                         ["Kestrune-uninstaller-N.exe"])

    def test_quiet_removal_leaves_only_user_files(self):
        m = self.machine
        users = {"ODBpp/board.zip": b"x", "Logs/bridge.log": b"x", "settings.ini": b"x"}
        for name, content in {**users, "Exchange/journal.txt": b"x"}.items():
            (m.data / name).parent.mkdir(parents=True, exist_ok=True)
            (m.data / name).write_bytes(content)
        self.answer(0)
        self.remove()
        package = m.windows(m.package)
        self.assertEqual(self.calls(), [f'"{package}\\Kestrune.exe" --status --quiet',
                                        f'"{package}\\Kestrune.exe" --uninstall --quiet'])
        self.gone()
        left = files(m.data)
        self.assertIn(b"Ends with code 0.", left.pop("Logs/setup.log"))
        self.assertEqual(left, users)

    def test_text_names_exactly_the_kept_files(self):
        m = self.machine
        for name in ("ODBpp/board.zip", "settings.ini", "registration.ini"):
            (m.data / name).parent.mkdir(parents=True, exist_ok=True)
            (m.data / name).write_bytes(b"x")
        self.answer(0)
        self.remove()
        said = m.log().split("These files are kept, if they exist:")[1]
        data = m.windows(m.data)
        for text in (f"{data}\\ODBpp", f"{data}\\Logs", f"settings.ini and registration.ini in {data}",
                     "KestruneBackups", f"{m.windows(m.documents)}\\Kestrune\\Temp",
                     m.windows(next(m.temp.iterdir()))):
            self.assertIn(text, said)
        self.assertEqual({name.split("/")[0] for name in files(m.data)},
                         {"ODBpp", "Logs", "settings.ini", "registration.ini"})

    def test_no_process_starts_but_the_program(self):
        self.answer(0)
        before = (OUT / "wine.log").stat().st_size
        self.remove(WINEDEBUG="-all,trace+process")
        trace = (OUT / "wine.log").read_bytes()[before:].decode("utf-8", "replace")
        started = re.findall(r"CreateProcessInternalW app .*? cmdline (.*)", trace)
        # The first is the uninstaller itself, as Apps starts it.
        self.assertEqual([line.count("Kestrune.exe") for line in started], [0, 1, 1], started)
        self.gone()

    def test_without_host_everything_is_removed(self):
        self.answer(20)
        self.remove()
        self.gone()

    def test_running_host_keeps_everything_with_30(self):
        self.answer(30)
        self.remove(code=30)
        self.kept()
        self.remove("/FORCE", code=30)
        self.kept()

    def test_skipped_instances_do_not_keep_anything(self):
        self.answer(40, report=INSTANCE % 1 + DONE + INSTANCE % 2 + SKIPPED)
        self.remove()
        self.gone()
        self.assertIn("An Altium Designer was skipped, none failed", self.machine.log())

    def test_failed_instance_keeps_everything_with_40(self):
        for name, report in {
                "one failed": INSTANCE % 1 + DONE + INSTANCE % 2 + FAILED,
                "skipped and failed": INSTANCE % 1 + SKIPPED + INSTANCE % 2 + FAILED,
                "no instance": "Runtime path cannot be represented safely by the existing "
                               "DelphiScript runtime.",
                "ended in the middle": INSTANCE % 1 + SKIPPED + INSTANCE % 2,
                "ended behind all": INSTANCE % 1 + SKIPPED + "Not enough memory.",
                "a name that looks like a result": "Skipped: \n" + INSTANCE % 1 + FAILED,
                "a result within a long line": INSTANCE % 1 + "x" * 1023 + SKIPPED,
                "empty": ""}.items():
            with self.subTest(report=name):
                self.answer(40, report=report)
                self.remove(code=40)
                self.kept()
        self.assertIn(FAILED.strip(), self.machine.log())
        self.assertIn("No file of Kestrune was removed.", self.machine.log())

    def test_force_removes_although_one_failed(self):
        self.answer(40)
        self.remove("/FORCE")
        self.gone()
        self.assertIn("The files are removed anyway.", self.machine.log())

    def test_program_that_crashes_keeps_everything(self):
        self.answer(3)
        self.remove(code=3)
        self.kept()

    def test_deleted_program_is_replaced_by_the_runtimes(self):
        m = self.machine
        (m.package / "Kestrune.exe").unlink()
        self.answer(0)
        self.remove()
        self.assertEqual(self.calls("--uninstall"),
                         [f'"{m.windows(m.runtime)}\\Kestrune.exe" --uninstall --quiet'])
        self.gone()

    def test_without_any_program_only_force_removes(self):
        m = self.machine
        (m.package / "Kestrune.exe").unlink()
        (m.runtime / "Kestrune.exe").unlink()
        self.remove(code=50)
        self.assertEqual(m.entry().get("DisplayVersion"), "1.0.0")
        self.assertIn("Kestrune.exe is missing", m.log())
        self.remove("/FORCE")
        self.gone()

    def test_removal_never_enters_a_link(self):
        m = self.machine
        precious = m.drive / "precious"
        precious.mkdir(exist_ok=True)
        self.addCleanup(shutil.rmtree, precious)
        (precious / "file").write_text("x")
        exchange = m.data / "Exchange"
        exchange.mkdir()
        (exchange / "link").symlink_to(precious)
        self.remove()
        self.assertEqual(files(precious), {"file": b"x"})
        self.gone()

    def test_link_above_temporary_folder_harms_nothing(self):
        m = self.machine
        precious = m.drive / "precious"
        (precious / "Temp").mkdir(parents=True)
        self.addCleanup(shutil.rmtree, precious)
        (precious / "Temp" / "file").write_text("x")
        (m.documents / "Kestrune").symlink_to(precious)
        self.addCleanup((m.documents / "Kestrune").unlink)
        self.remove()
        self.assertEqual(files(precious), {"Temp/file": b"x"})
        self.gone()

    def test_removal_during_setup_is_refused(self):
        m = self.machine
        self.answer(-30)
        first = m.start(setup("two"), "/S")
        wait_until(lambda: self.calls("--install"))
        calls = self.calls()
        self.remove(code=51)
        self.assertEqual(self.calls(), calls)
        (m.stand_in / "go").touch()
        self.assertEqual(m.end_of(first), 30)
        self.kept()

    def test_uninstaller_started_by_itself_removes(self):
        # It continues as a copy of itself, for which its caller does not wait.
        self.machine.run(self.machine.package / "Uninstall.exe", "/S")
        wait_until(lambda: self.machine.log().count("Ends with code") == 2)
        self.assert_nothing_installed()
        # No setup can begin before the copy has ended.
        self.assertTrue(wait_until(lambda: not self.machine.processes("*~nsu*")))

    def test_next_setup_removes_the_renamed_uninstaller(self):
        self.remove()
        self.gone()
        self.install("two")
        self.assert_installed("2.0.0")
        self.assertEqual(list(self.machine.temp.iterdir()), [])

    def test_temporary_folder_on_another_drive(self):
        m = self.machine
        shared = pathlib.Path("/dev/shm")
        if not shared.is_dir() or shared.stat().st_dev == m.prefix.stat().st_dev:
            self.skipTest("there is no second file system here")
        folder = tempfile.mkdtemp(dir=shared)
        self.addCleanup(shutil.rmtree, folder)
        drive = m.prefix / "dosdevices" / "t:"
        drive.symlink_to(folder)
        self.addCleanup(drive.unlink)
        for name in ("TEMP", "TMP"):
            old = re.search(r"REG_\w+ +(.*)", m.run("reg", "query", r"HKCU\Environment", "/v", name)[1])
            self.addCleanup(self.set_temporary_folder, name, old[1])
            self.set_temporary_folder(name, "T:\\")
        self.assertEqual(m.run("cmd", "/d", "/c", "echo %TMP%")[1].strip(), "T:\\")
        self.remove()
        self.gone()

    def set_temporary_folder(self, name, path):
        self.machine.run("reg", "add", r"HKCU\Environment", "/v", name, "/t", "REG_EXPAND_SZ", "/f", "/d", path)

    def test_killed_removal_can_be_repeated(self):
        m = self.machine
        self.answer(-30)
        process = m.start(m.package / "Uninstall.exe", "/S", "_?=" + m.windows(m.package))
        wait_until(lambda: self.calls("--uninstall"))
        m.kill("Uninstall.exe")
        m.kill("Kestrune.exe")
        process.wait()
        self.kept()
        for path in m.package.glob("*/*"):
            path.unlink()
        shutil.rmtree(m.runtime)
        self.answer(0)
        self.remove()
        self.assert_nothing_installed()

    def test_settings_of_a_killed_removal_come_back(self):
        m = self.machine
        settings = m.data / "registration.ini"
        for own, then in ((None, self.remove), (OWN_SETTINGS, self.install)):
            with self.subTest(own=own):
                self.answer(0)
                self.install()
                if own is not None:
                    settings.write_bytes(own)
                self.answer(-30, status=CHANGE_REFUSED)
                process = m.start(m.package / "Uninstall.exe", "/S", "_?=" + m.windows(m.package))
                wait_until(lambda: self.calls("--uninstall"))
                self.assertIn(b"Change", settings.read_bytes())
                m.kill("Uninstall.exe")
                m.kill("Kestrune.exe")
                process.wait()
                self.answer(0)
                then()
                self.assertEqual(settings.read_bytes() if settings.exists() else None, own)
                self.assertEqual([path.name for path in m.data.glob("registration.ini.*")], [])

    @unittest.skipUnless(shutil.which("strace"), "no strace here")
    def test_truncated_copy_of_settings_is_never_restored(self):
        m = self.machine
        settings, incoming = m.data / "registration.ini", m.data / "registration.ini.before-removal.incoming"
        settings.write_bytes(OWN_SETTINGS)
        self.answer(0, status=CHANGE_REFUSED)
        path = m.prefix / "dosdevices" / "c:" / incoming.relative_to(m.drive)
        self.assertTrue(kill_at(m, Point("openat", str(path), 1), m.package / "Uninstall.exe", "/S", "_?=" + m.windows(m.package)))
        self.assertEqual(incoming.read_bytes(), b"")
        self.answer(0, status=CHANGE_REFUSED)
        self.remove()
        self.assertEqual(settings.read_bytes(), OWN_SETTINGS)
        self.assertEqual(list(m.data.glob("registration.ini.*")), [])

    def test_settings_without_a_copy_are_not_changed(self):
        m = self.machine
        settings = m.data / "registration.ini"
        settings.write_bytes(OWN_SETTINGS)
        (m.data / "registration.ini.before-removal.incoming" / "folder").mkdir(parents=True)
        self.answer(40, report=CHANGE_REFUSED, status=CHANGE_REFUSED)
        self.remove(code=40)
        self.assertEqual(settings.read_bytes(), OWN_SETTINGS)
        self.kept()

    def test_leftovers_without_an_entry_are_taken_over(self):
        # A removal that was killed after it deleted its entry.
        m = self.machine
        m.run("reg", "delete", ENTRY, "/f")
        for path in m.package.glob("*/*"):
            path.unlink()
        self.answer(0)
        self.install("two")
        self.assert_installed("2.0.0")
