"""Tests of tests/checks/summary.py."""
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

SUMMARY = pathlib.Path(__file__).resolve().parent / "summary.py"
RULE, LINE = "=" * 70, "-" * 70
PYTHON_LOG = f"""test_a (a_test.A.test_a) ... ok
test_b (a_test.A.test_b)
What it shows. ... skipped 'no such thing here'
test_c (a_test.A.test_c) ... FAIL

{RULE}
FAIL: test_c (a_test.A.test_c) (step='two')
{LINE}
Traceback (most recent call last):
  File "/x/a_test.py", line 7, in test_c
    self.install(code=50)
  File "/x/setups.py", line 9, in install
    self.assertEqual(code, 50)
AssertionError: 0 != 50 : the log

{LINE}
Ran 3 tests in 0.1s

FAILED (failures=1, skipped=1)
1 passed, 1 failed, 1 skipped
"""
XML = """<testsuites><testsuite>
<testcase name="A" classname="T" status="run"/>
<testcase name="B" classname="T" status="run"><failure message="f.cpp:3&#x0A;Expected: 1"/></testcase>
<testcase name="C" classname="T" status="run"><skipped message="f.cpp:3&#x0A;no links here"/></testcase>
</testsuite></testsuites>"""


class Summary(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.environment = {**os.environ, "KESTRUNE_QUICK": "", "KESTRUNE_OWN_WINE": "", "KESTRUNE_SAMPLES": str(self.folder)}
        self.allow("")

    def allow(self, text):
        (self.folder / "may-skip").write_text(text)
        self.environment["KESTRUNE_MAY_SKIP"] = str(self.folder / "may-skip")

    def report(self, name, code, log="", xml=None):
        (self.folder / f"{name}.code").write_text(f"{code}\n")
        (self.folder / f"{name}.log").write_text(log)
        if xml is not None:
            (self.folder / f"{name}.xml").write_text(xml)

    def summary(self, *suites):
        done = subprocess.run([sys.executable, SUMMARY, self.folder, *suites], text=True, check=False,
                              capture_output=True, env=self.environment)
        self.assertEqual(done.stderr, "")
        return done.returncode, done.stdout

    def test_failed_python_test_shows_its_assertion(self):
        self.allow("always setup test_b a reason\n")
        self.report("setup", 1, PYTHON_LOG)
        code, text = self.summary()
        self.assertEqual(code, 1)
        self.assertIn("skipped: setup: test_b: no such thing here\n", text)
        self.assertTrue(text.endswith(
            "setup            1 passed, 1 failed, 1 skipped\n"
            "failed: setup: FAIL: test_c (a_test.A.test_c) (step='two')\n"
            '    File "/x/a_test.py", line 7, in test_c\n'
            "        self.install(code=50)\n"
            "    AssertionError: 0 != 50 : the log\n"
            "1 passed, 1 failed, 1 skipped\n"), text)

    def test_one_suites_failures_alone(self):
        self.report("setup", 1, PYTHON_LOG)
        self.report("other", 1, "FAILED: a rule\n0 passed, 1 failed\n")
        self.assertEqual(self.summary("other"), (0, "failed: other: FAILED: a rule\n"))

    def test_failed_googletest_is_named_with_its_message(self):
        self.allow("always system T.C a reason\n")
        self.report("system-1", 1, xml=XML)
        code, text = self.summary()
        self.assertEqual(code, 1)
        self.assertIn("failed: system-1: T.B\n    f.cpp:3\n    Expected: 1\n", text)
        self.assertIn("skipped: system-1: T.C: no links here\n", text)

    def test_skip_outside_the_list_fails(self):
        passing = XML.replace('<failure message="f.cpp:3&#x0A;Expected: 1"/>', "")
        for allowed in ("", "always windows T.C x\n", "quick system T.C x\n", "no-samples system T.C x\n"):
            self.allow(allowed)
            self.report("system", 0, xml=passing)
            code, text = self.summary()
            self.assertEqual(code, 1)
            self.assertIn("failed: system: T.C\n    skipped, which tests/may-skip.txt does not allow", text)
            self.assertTrue(text.endswith("2 passed, 1 failed, 0 skipped\n"), text)

    def test_condition_of_a_skip_must_hold(self):
        passing = XML.replace('<failure message="f.cpp:3&#x0A;Expected: 1"/>', "")
        self.report("system", 0, xml=passing)
        self.allow("# a comment\n\nquick system T.* x\n")
        self.environment["KESTRUNE_QUICK"] = "1"
        self.assertEqual(self.summary()[0], 0)
        self.allow("no-samples system T.C x\n")
        self.assertEqual(self.summary()[0], 1)
        self.environment["KESTRUNE_SAMPLES"] = str(self.folder / "missing")
        self.assertEqual(self.summary()[0], 0)

    def test_listed_skip_without_a_test_fails(self):
        passing = XML.replace('<failure message="f.cpp:3&#x0A;Expected: 1"/>', "")
        self.allow("always system T.C x\nquick system Old.Name x\nalways windows Old.Name x\n")
        self.report("system-1", 0, xml=passing)
        code, text = self.summary()
        self.assertEqual(code, 1)
        self.assertIn("failed: system-1: tests/may-skip.txt: no test of system is named Old.Name\n", text)
        self.assertTrue(text.endswith("2 passed, 1 failed, 1 skipped\n"), text)

    def test_crashed_suite_shows_its_last_lines(self):
        for log, xml in (("[ RUN      ] T.A\nKilled\n", None), ("half\n", "<testsuites><testcase")):
            self.report("windows", 124, log, xml)
            code, text = self.summary()
            self.assertEqual(code, 1)
            self.assertIn("failed: windows: ended with 124\n", text)
            self.assertIn("    " + log.splitlines()[-1] + "\n", text)
            self.assertTrue(text.endswith("0 passed, 1 failed, 0 skipped\n"), text)

    def test_failing_end_after_passed_tests_fails(self):
        self.report("script", 3, "5 passed, 0 failed\n")
        code, text = self.summary()
        self.assertEqual(code, 1)
        self.assertIn("failed: script: ended with 3\n    5 passed, 0 failed\n", text)

    def test_passing_run_ends_with_its_sums(self):
        self.report("checks", 0, "all is well\n")
        self.report("script", 0, "ok A\n5 passed, 0 failed\n")
        code, text = self.summary()
        self.assertEqual((code, text.splitlines()[-1]), (0, "6 passed, 0 failed, 0 skipped"))


if __name__ == "__main__":
    unittest.main()
