"""The boxes and pages of the setup program; each is photographed into build/setup-tests."""
import shutil

from machine import wait_until
from setups import SetupTest, setup
from real_test import CHANGE, RealTest

TITLE = "Kestrune 1.0.0*"
REMOVE_TITLE = "Remove Kestrune 1.0.0*"


class Pages(SetupTest):
    def begin_removal(self):
        m = self.machine
        return m.start(m.package / "Uninstall.exe", "_?=" + m.windows(m.package))

    def test_cancelled_setup_leaves_nothing(self):
        self.answer(0)
        process = self.machine.start(setup("one"))
        self.machine.press(TITLE, "Install", "Escape", "welcome")
        self.machine.press(TITLE, "Yes", "alt+y", "cancel")
        self.assertEqual(self.machine.end_of(process), 1)
        self.assertEqual(self.calls(), [])
        self.assert_nothing_installed()
        self.assertIn("Cancelled. Ends with code 1.", self.machine.log())

    def test_installation_shows_the_report(self):
        m = self.machine
        self.answer(40)
        process = m.start(setup("one"))
        m.press(TITLE, "Install")
        m.press("Kestrune", "OK", picture="report")
        m.press(TITLE, "Finish", picture="finish-40")
        self.assertEqual(self.machine.end_of(process), 40)
        self.assertTrue(self.calls("--install")[0].endswith(f'--package "{m.windows(m.package)}"'))
        self.assertNotIn("--quiet", self.calls("--install")[0])
        self.assert_installed("1.0.0")

    def test_setup_continues_when_host_is_closed(self):
        self.answer(30, 0)
        process = self.machine.start(setup("one"))
        self.machine.press(TITLE, "Install")
        self.machine.press("Kestrune", "OK")
        self.machine.press(TITLE, "Retry", "alt+r", "host-runs")
        self.machine.press("Kestrune", "OK")
        self.machine.press(TITLE, "Finish", picture="finish")
        self.assertEqual(self.machine.end_of(process), 0)
        self.assertEqual(len(self.calls("--install")), 2)
        self.assert_installed("1.0.0")

    def test_second_start_names_its_log(self):
        self.answer(-30)
        first = self.machine.start(setup("one"), "/S")
        wait_until(lambda: self.calls("--install"))
        second = self.machine.start(setup("two"))
        self.machine.press("Kestrune 2.0.0*", "OK", picture="second-start")
        self.assertEqual(self.machine.end_of(second), 51)
        (self.machine.stand_in / "go").touch()
        self.machine.end_of(first)

    def test_removal_names_the_kept_files(self):
        self.answer(0)
        self.install()
        self.answer(0)
        process = self.begin_removal()
        self.machine.press(REMOVE_TITLE, "Uninstall", picture="remove")
        self.machine.press("Kestrune", "OK")
        self.machine.press(REMOVE_TITLE, "OK", picture="what-stays")
        self.machine.press(REMOVE_TITLE, "Close", picture="removed")
        self.assertEqual(self.machine.end_of(process), 0)
        self.assertTrue(self.calls("--uninstall")[0].endswith("--uninstall"))
        self.assert_nothing_installed()

    def test_failed_removal_keeps_by_default(self):
        self.answer(0)
        self.install()
        for button, key, code in (("No", "Return", 40), ("Yes", "alt+y", 0)):
            with self.subTest(key=key):
                self.answer(40)
                process = self.begin_removal()
                self.machine.press(REMOVE_TITLE, "Uninstall")
                self.machine.press("Kestrune", "OK")
                self.machine.press(REMOVE_TITLE, button, key, "force-question")
                if code == 0:
                    self.machine.press(REMOVE_TITLE, "OK")
                else:
                    self.assertTrue((self.machine.package / "Kestrune.exe").exists())
                self.machine.press(REMOVE_TITLE, "Close" if code == 0 else "Cancel")
                self.assertEqual(self.machine.end_of(process), code)
        self.assert_nothing_installed()

    def test_missing_program_keeps_by_default(self):
        self.answer(0)
        self.install()
        (self.machine.package / "Kestrune.exe").unlink()
        shutil.rmtree(self.machine.runtime)
        process = self.begin_removal()
        self.machine.press(REMOVE_TITLE, "Uninstall")
        self.machine.press(REMOVE_TITLE, "No", picture="missing-program")
        self.machine.press(REMOVE_TITLE, "Cancel")
        self.assertEqual(self.machine.end_of(process), 50)
        self.assertEqual(self.machine.entry()["DisplayVersion"], "1.0.0")


class ChangeQuestion(RealTest):
    def answer_question(self, button, key, picture):
        self.box("make", "1")
        path = self.profiles()[0]
        path.write_bytes(path.read_bytes() + CHANGE)
        process = self.machine.start(setup("real-one"))
        self.machine.press(TITLE, "Install")
        self.machine.press(TITLE, button, key, "change-question")
        self.machine.press("Kestrune", "OK", picture=picture)
        self.machine.press(TITLE, "Finish")
        return self.machine.end_of(process)

    def test_yes_accepts_change_records(self):
        self.assertEqual(self.answer_question("Yes", "alt+y", "real-report"), 0)
        self.assertEqual(self.settings.read_text(), "[Registration]\nExtraRecords=Change\n")
        self.assertEqual(self.buttons(), 1)

    def test_no_leaves_such_profile_unchanged(self):
        self.assertEqual(self.answer_question("No", "alt+n", "real-report-refused"), 40)
        self.assertFalse(self.settings.exists())
        self.assertEqual(self.buttons(), 0)
