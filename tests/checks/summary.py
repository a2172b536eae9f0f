"""Adds up what the suites in a folder reported, prints one closing line, fails if anything failed.

A suite NAME left NAME.code and NAME.log, and NAME.xml where its runner is GoogleTest. The others end
their log with a line 'N passed, N failed'; one without such a line counts as one test.
"""
import pathlib
import re
import sys
import xml.etree.ElementTree as ElementTree

CLOSING = re.compile(r"^(\d+) passed, (\d+) failed(?:, (\d+) skipped)?$", re.MULTILINE)


def from_xml(path):
    passed = failed = skipped = 0
    for case in ElementTree.parse(path).getroot().iter("testcase"):
        if case.get("status") == "notrun":
            continue
        if case.find("failure") is not None:
            failed += 1
            print(f"failed: {path.stem}: {case.get('classname')}.{case.get('name')}")
        elif case.find("skipped") is not None:
            skipped += 1
            reason = (case.find("skipped").get("message") or "").strip().splitlines()
            print(f"skipped: {path.stem}: {case.get('classname')}.{case.get('name')}: "
                  f"{reason[-1] if reason else ''}")
        else:
            passed += 1
    return passed, failed, skipped


def from_log(path):
    closings = CLOSING.findall(path.read_text(errors="replace"))
    return tuple(int(number or 0) for number in closings[-1]) if closings else None


def suite_result(folder, name, code):
    xml = folder / f"{name}.xml"
    if xml.exists():
        counts = from_xml(xml)
    else:
        counts = from_log(folder / f"{name}.log")
    if counts is None:
        counts = (1, 0, 0) if code == 0 else (0, 1, 0)
    if code != 0 and counts[1] == 0:
        print(f"failed: {name}: ended with {code}")
        counts = (counts[0], 1, counts[2])
    return counts


def main():
    folder = pathlib.Path(sys.argv[1])
    total = [0, 0, 0]
    for code_file in sorted(folder.glob("*.code")):
        counts = suite_result(folder, code_file.stem, int(code_file.read_text()))
        print("%-12s %5d passed, %d failed, %d skipped" % (code_file.stem, *counts))
        total = [a + b for a, b in zip(total, counts)]
    print("%d passed, %d failed, %d skipped" % tuple(total))
    return 0 if total[1] == 0 and total[0] > 0 else 1


if __name__ == "__main__":
    sys.exit(main())
