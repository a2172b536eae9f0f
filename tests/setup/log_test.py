"""The log of the setup program."""
import os

from setups import SetupTest, setup

LIMIT = 1 << 20


class Log(SetupTest):
    def setUp(self):
        super().setUp()
        self.answer(0)

    def test_log_holds_steps_report_and_code(self):
        self.answer(40, report="Zoë's report\nGUID: {1}\nFAILED: Łukasz\n")
        self.install(code=40)
        lines = self.machine.log().splitlines()
        for line in lines:
            self.assertRegex(line, r"^(20\d\d-\d\d-\d\d \d\d:\d\d:\d\d |Altium|GUID: |Profile: |HKCU: "
                                   r"|Installed|Zoë|FAILED: )")
        texts = [line[20:] if line.startswith("20") else line for line in lines]
        self.assertTrue(texts[0].startswith("---- Kestrune 1.0.0: "))
        at = texts.index("Zoë's report")
        self.assertEqual(texts[at:at + 4], ["Zoë's report", "GUID: {1}", "FAILED: Łukasz",
                                            "Kestrune.exe ended with code 40."])
        for step in ("Unpacking to", "Moving the files to", "Checking the profiles",
                     "Registering in every"):
            self.assertTrue(any(text.startswith(step) for text in texts), step)
        self.assertEqual(texts[-1], "Ends with code 40.")

    def test_log_starts_over_at_one_mebibyte(self):
        folder = self.machine.data / "Logs"
        folder.mkdir(parents=True)
        (folder / "setup.log").write_bytes(b"x" * (LIMIT - 10))
        self.install()
        self.assertLess((folder / "setup.log").stat().st_size, 10_000)
        self.assertTrue(self.machine.log().split("\n")[0].endswith("/S"))
        (folder / "setup.log").write_bytes(b"x" * (LIMIT - 9_000))
        self.install()
        self.assertGreater((folder / "setup.log").stat().st_size, LIMIT - 9_000)

    def test_huge_report_does_not_pass_the_limit(self):
        self.answer(40, report="FAILED: x\n" * 100_000)
        self.install(code=40)
        self.assertLessEqual(len(self.machine.log()), LIMIT)
        self.assertIn("Ends with code 40.", self.machine.log())

    def test_second_log_gets_the_same(self):
        m = self.machine
        second = m.stand_in / "a log.txt"
        second.write_bytes(b"kept\r\n" + b"x" * LIMIT + b"\r\n")
        before = second.read_bytes()
        self.install("one", "/LOG=" + m.windows(second))
        text = second.read_bytes()
        self.assertEqual(text[:len(before)], before)
        self.assertEqual(text[len(before):].decode().replace("\r\n", "\n"), m.log())
        quoted = m.stand_in / "b log.txt"
        line = 'Z:' + str(setup("one")).replace("/", "\\") + f' /S /LOG="{m.windows(quoted)}"'
        self.assertEqual(m.code_of_line(line), 0)
        self.assertIn("Ends with code 0.", quoted.read_text())

    def test_second_log_may_be_relative(self):
        here = os.getcwd()
        os.chdir(self.machine.stand_in)
        self.addCleanup(os.chdir, here)
        self.install("one", "/LOG=own.log")
        self.assertIn("Ends with code 0.", (self.machine.stand_in / "own.log").read_text())

    def test_unwritable_second_log_changes_nothing(self):
        m = self.machine
        (m.stand_in / "folder").mkdir()
        for name in (r"C:\missing\x.log", m.windows(m.stand_in / "folder")):
            with self.subTest(log=name):
                before = len(m.log())
                self.install("one", "/LOG=" + name)
                self.assertEqual(m.log()[before:].count(f"The log {name} cannot be written."), 1)

    def test_read_only_second_log_changes_nothing(self):
        m = self.machine
        locked = m.stand_in / "locked.log"
        locked.write_text("x")
        code = self.in_a_mounted_world(
            f'mount --bind "{locked}" "{locked}"; mount -o remount,ro,bind "{locked}"',
            setup("one"), "/S", "/LOG=" + m.windows(locked))
        self.assertEqual(code, 0)
        self.assertEqual(locked.read_text(), "x")
        self.assertIn(f"The log {m.windows(locked)} cannot be written.", m.log())

    def test_log_that_cannot_be_written_changes_nothing(self):
        (self.machine.data / "Logs" / "setup.log").mkdir(parents=True)
        self.assertEqual(self.machine.code(setup("one"), "/S"), 0)
        self.assert_installed("1.0.0")

    def test_removal_takes_the_same_option(self):
        m = self.machine
        self.install()
        self.remove("/LOG=" + m.windows(m.stand_in / "own.log"))
        text = (m.stand_in / "own.log").read_text()
        self.assertIn("Removing the button", text)
        self.assertIn("Ends with code 0.", text)
