#!/usr/bin/env python3
"""tests/windows/run.py --build DIR [--filter TESTS]: runs the test programs of a build folder on Windows, as
the present user and as a second, ordinary one, and fails when a test of must-run.txt was skipped.

Only for a disposable machine: the tests change the user's profile and registry, and the
second user is made for them. Elsewhere than on Windows the programs run under Wine, with two
prefixes for two users, and must-run.txt is only checked for names that no program has.

Results go to build/test-results. --filter takes GoogleTest's patterns.
"""
import argparse
import fnmatch
import pathlib
import shutil
import sys
import xml.etree.ElementTree as ElementTree

from machine import PROJECT, this_machine

HERE = pathlib.Path(__file__).resolve().parent
FIRST = ("unit_tests", "windows_tests", "system_tests")
SECOND = ("windows_tests", "system_tests")


def find(tree, name):
    found = sorted((tree / "tests").glob(f"*/{name}.exe"))
    if len(found) != 1:
        sys.exit(f"run: {len(found)} programs named {name}.exe below {tree}")
    return found[0]


def copy_tree(source, target):
    """Copies the program, every test program and helper for the second user, in the same layout."""
    shutil.rmtree(target, ignore_errors=True)
    for program in [source / "Kestrune.exe", *sorted(source.glob("tests/*/*.exe"))]:
        place = target / program.relative_to(source)
        place.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(program, place)


def run_programs(machine, who, tree, names, results, tests):
    """Runs the programs of a tree as the first or the second user; returns their exit codes by name."""
    run = machine.run if who == "first" else machine.run_as_second_user
    codes = {}
    for name in names:
        print(f"== {name} as the {who} user", flush=True)
        report = tree / f"{who}-{name}.xml"
        codes[f"{who}-{name}"] = run(find(tree, name), f"--gtest_output=xml:{machine.path(report)}",
                                     f"--gtest_filter={tests}")
        if report.exists():
            shutil.move(report, results / report.name)
    return codes


def run_second(machine, tree, results, tests):
    copy_tree(tree, machine.second_folder)
    machine.make_second_user()
    try:
        return run_programs(machine, "second", machine.second_folder, SECOND, results, tests)
    finally:
        machine.remove_second_user()


def cases(report):
    """Yields each test of a program with its result."""
    for case in ElementTree.parse(report).getroot().iter("testcase"):
        state = ("notrun" if case.get("status") == "notrun" else
                 "skipped" if case.find("skipped") is not None else "run")
        yield f"{case.get('classname')}.{case.get('name')}", state


def listed(machine, tree, results, program):
    """Returns the names of all tests of a program."""
    listing = results / f"{program}.listing"
    machine.run(find(tree, program), "--gtest_list_tests",
                f"--gtest_output=xml:{machine.path(listing)}")
    # A listing, unlike a report, names the suite at the suite alone.
    return [f"{suite.get('name')}.{case.get('name')}"
            for suite in ElementTree.parse(listing).getroot().iter("testsuite")
            for case in suite.iter("testcase")]


def must_run(machine, tree, results):
    """Returns the tests of must-run.txt that were not run."""
    problems, names = [], {}
    for line in (HERE / "must-run.txt").read_text().splitlines():
        if not line or line.startswith("#"):
            continue
        program, user, needs, pattern = line.split()
        if program not in names:
            names[program] = listed(machine, tree, results, program)
        wanted = fnmatch.filter(names[program], pattern)
        if not wanted:
            problems.append(f"{program} has no test {pattern}")
        if machine.rehearsal:
            continue
        if needs == "uac" and not machine.has_account_control():
            print(f"not shown here, for this Windows has no user account control: {pattern}")
            continue
        for who in ("first", "second") if user == "both" else (user,):
            report = results / f"{who}-{program}.xml"
            states = dict(cases(report)) if report.exists() else {}
            problems += [f"{name} was not run as the {who} user" for name in wanted
                         if states.get(name) != "run"]
    return problems


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=pathlib.Path, required=True)
    parser.add_argument("--filter", default="*")
    options = parser.parse_args()
    tree = options.build.resolve()
    results = PROJECT / "build" / "test-results"
    shutil.rmtree(results, ignore_errors=True)
    results.mkdir(parents=True)
    with this_machine() as machine:
        codes = {**run_programs(machine, "first", tree, FIRST, results, options.filter),
                 **run_second(machine, tree, results, options.filter)}
        problems = must_run(machine, tree, results)
    problems += [f"{name} ended with {code}" for name, code in codes.items() if code != 0]
    print("\n".join(f"FAILED: {problem}" for problem in problems))
    print(f"{len(codes) - sum(code != 0 for code in codes.values())} test programs passed, "
          f"{len(problems)} problems")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
