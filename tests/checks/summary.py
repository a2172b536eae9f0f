"""summary.py FOLDER [SUITE]: adds up what the suites in a folder reported; fails if anything failed.

A suite NAME left NAME.code and NAME.log, and NAME.xml where its runner is GoogleTest. The others end
their log with a line 'N passed, N failed'; one without such a line counts as one test. NAME-1, NAME-2 ...
are the parts of one suite. Each failed test is named with the first lines of its output; with SUITE, only
these lines of one suite are printed. A skipped test that tests/may-skip.txt does not allow counts as
failed.
"""
import fnmatch
import os
import pathlib
import re
import sys
import xml.etree.ElementTree as ElementTree

CLOSING = re.compile(r"^(\d+) passed, (\d+) failed(?:, (\d+) skipped)?$", re.MULTILINE)
SHOWN_LINES = 6
SHOWN_FAILURES = 20
# Python's unittest: a failed test begins with its name between two rules.
PYTHON_FAILURE = re.compile(r"^={70}\n((?:FAIL|ERROR): .*)\n(?:.*\n)*?-{70}\n((?:.*\n)*?)(?=^[=-]{70}$|\Z)",
                            re.MULTILINE)
PYTHON_SKIPPED = re.compile(r"^(\w+) \([\w.]+\)(?:\n.*)? \.\.\. skipped ['\"](.*)['\"]$", re.MULTILINE)
OTHER_FAILURE = re.compile(r"^(?:not ok|FAILED: |failed: |error: ).*|.*(?:ERROR: |SUMMARY: ).*", re.MULTILINE)
OTHER_SKIPPED = re.compile(r"^skipped (\w+): (.*)$", re.MULTILINE)


class Result:
    """The result of one suite."""

    def __init__(self):
        self.passed = self.failed = self.skipped = 0
        # Texts, each a failed test with the first lines of its output.
        self.failures = []
        # Names and reasons.
        self.skips = []
        # Every test of the program, if the report has them all.
        self.names = []


def first_lines(text):
    lines = [line for line in text.strip().splitlines() if line.strip()]
    return "".join(f"\n    {line}" for line in lines[:SHOWN_LINES])


def from_xml(path):
    result = Result()
    try:
        cases = list(ElementTree.parse(path).getroot().iter("testcase"))
    except ElementTree.ParseError:
        return None
    for case in cases:
        name = f"{case.get('classname')}.{case.get('name')}"
        result.names.append(name)
        if case.get("status") == "notrun":
            continue
        if case.find("failure") is not None:
            result.failed += 1
            result.failures.append(name + first_lines(case.find("failure").get("message") or ""))
        elif case.find("skipped") is not None:
            result.skipped += 1
            reason = (case.find("skipped").get("message") or "").strip().splitlines()
            result.skips.append((name, reason[-1] if reason else ""))
        else:
            result.passed += 1
    return result


def python_failure(name, traceback):
    """Returns the name, the innermost line of the test itself and the exception, without the frames between."""
    lines = traceback.splitlines()
    frames = [at for at, line in enumerate(lines) if re.match(r'  File ".*_test\.py"', line)]
    frame = "\n".join(lines[frames[-1]:frames[-1] + 2]) + "\n" if frames else ""
    error = [at for at, line in enumerate(lines) if re.match(r"[A-Za-z_][\w.]*(: |$)", line)]
    return name + first_lines(frame + "\n".join(lines[error[0]:] if error else lines))


def from_log(path):
    result = Result()
    text = path.read_text(errors="replace")
    result.failures = [python_failure(*found) for found in PYTHON_FAILURE.findall(text)]
    result.failures += [line[:300] for line in OTHER_FAILURE.findall(PYTHON_FAILURE.sub("", text))]
    result.skips = PYTHON_SKIPPED.findall(text) + OTHER_SKIPPED.findall(text)
    closings = CLOSING.findall(text)
    if not closings:
        return result
    result.passed, result.failed, result.skipped = (int(number or 0) for number in closings[-1])
    return result


def suite_result(folder, name, code):
    log = folder / f"{name}.log"
    xml = folder / f"{name}.xml"
    result = from_xml(xml) if xml.exists() else from_log(log)
    if result is None or result.passed + result.failed + result.skipped == 0:
        result = result or Result()
        result.passed, result.failed = (1, 0) if code == 0 and not xml.exists() else (0, 1)
    if code != 0 and result.failed == 0:
        result.failed = 1
    if code != 0 and not result.failures:
        lines = log.read_text(errors="replace").splitlines()[-SHOWN_LINES:] if log.exists() else []
        result.failures.append(f"ended with {code}" + first_lines("\n".join(lines)))
    return result


def allowed_skips():
    """Returns the list of tests that may skip: triples of suite, name pattern, and whether it holds in this run."""
    here = {"always"}
    if not pathlib.Path(os.environ.get("KESTRUNE_SAMPLES", "")).is_dir():
        here.add("no-samples")
    if os.environ.get("KESTRUNE_QUICK"):
        here.add("quick")
    if os.environ.get("KESTRUNE_OWN_WINE"):
        here.add("own-wine")
    allowed = []
    path = os.environ.get("KESTRUNE_MAY_SKIP") or pathlib.Path(__file__).resolve().parents[1] / "may-skip.txt"
    for line in pathlib.Path(path).read_text().splitlines():
        if line and not line.startswith("#"):
            when, suite, name, _ = line.split(maxsplit=3)
            allowed.append((suite, name, when in here))
    return allowed


def suite_of(name):
    """Returns the suite of which `name` may be a part."""
    return re.sub(r"-\d+$", "", name)


def check_list(results, allowed):
    """Counts a line of the list as failed that matches no test of its suite: the test has another name now."""
    for suite, pattern, _ in allowed:
        parts = [result for name, result in results.items() if suite_of(name) == suite and result.names]
        if parts and not any(fnmatch.filter(part.names, pattern) for part in parts):
            parts[0].failed += 1
            parts[0].failures.append(f"tests/may-skip.txt: no test of {suite} is named {pattern}")


def check_skips(name, result, allowed):
    """Counts each skipped test that the list does not allow as failed, and prints the others."""
    for test, reason in result.skips:
        if any(suite == suite_of(name) and holds and fnmatch.fnmatchcase(test, pattern)
               for suite, pattern, holds in allowed):
            print(f"skipped: {name}: {test}: {reason}")
        else:
            result.failed += 1
            result.skipped -= 1
            result.failures.append(f"{test}\n    skipped, which tests/may-skip.txt does not allow: {reason}")


def print_failures(name, result):
    for failure in result.failures[:SHOWN_FAILURES]:
        print(f"failed: {name}: {failure}")
    if len(result.failures) > SHOWN_FAILURES:
        print(f"failed: {name}: and {len(result.failures) - SHOWN_FAILURES} more")


def main():
    folder = pathlib.Path(sys.argv[1])
    wanted = sys.argv[2:]
    allowed = allowed_skips()
    results = {}
    for code_file in sorted(folder.glob("*.code")):
        if not wanted or code_file.stem in wanted:
            results[code_file.stem] = suite_result(folder, code_file.stem, int(code_file.read_text()))
    if wanted:
        for name, result in results.items():
            print_failures(name, result)
        return 0
    check_list(results, allowed)
    total = [0, 0, 0]
    for name, result in results.items():
        check_skips(name, result, allowed)
        print(f"{name:<12} {result.passed:5} passed, {result.failed} failed, {result.skipped} skipped")
        total = [total[0] + result.passed, total[1] + result.failed, total[2] + result.skipped]
    # Printed last, so that it is seen first.
    for name, result in results.items():
        print_failures(name, result)
    print("%d passed, %d failed, %d skipped" % tuple(total))
    return 0 if total[1] == 0 and total[0] > 0 else 1


if __name__ == "__main__":
    sys.exit(main())
