#!/usr/bin/env python3
"""tests/windows/setup.py --release DIR --build DIR: runs the published setup program on Windows, as the
current user: without a host, with altered bytes, installed, installed again, removed. The build folder has the
program that creates the hosts. tests/setup/run tests all behaviour; this only shows that it works on a real Windows.

Only for a disposable profile. Elsewhere than on Windows it runs under Wine.
"""
import argparse
import hashlib
import pathlib
import re
import sys
import tempfile
import time

from machine import PROJECT, this_machine

problems = 0
passed = 0


def check(text, actual, expected):
    global problems, passed
    if actual == expected:
        passed += 1
        print(f"ok: {text}", flush=True)
    else:
        problems += 1
        print(f"FAILED: {text}: {actual!r} instead of {expected!r}", flush=True)


def altered(setup, folder):
    content = bytearray(setup.read_bytes())
    content[-5000] ^= 1
    path = folder / "altered-setup.exe"
    path.write_bytes(content)
    return path


def gone(path):
    """Returns whether a folder is removed; the last file of a removal is deleted a moment after its process ended."""
    for _ in range(100):
        if not path.exists():
            return True
        time.sleep(0.2)
    return False


def life(machine, release, build):
    setup = next(release.glob("Kestrune-*-setup.exe"))
    version = re.search(r"-([\d.]+)-setup", setup.name).group(1)
    box = build / "tests/programs/machine_in_a_box.exe"
    unpacked = build / "stage/Kestrune.exe"

    machine.run(box, "clear")
    check("without a host it ends with 20", machine.run(setup, "/S"), 20)
    folder = machine.local_data() / "Programs/Kestrune"
    check("without a host it leaves no folder", folder.exists(), False)
    check("without a host there is no entry under Apps", machine.apps_version(), None)
    with tempfile.TemporaryDirectory(dir=PROJECT / "build") as scratch:
        check("an altered file is refused", machine.run(altered(setup, pathlib.Path(scratch)), "/S"), 2)

    check("two hosts are made", machine.run(box, "make", "2"), 0)
    for text in ("installed", "installed again"):
        check(f"{text}: the code", machine.run(setup, "/S"), 0)
        check(f"{text}: under Apps", machine.apps_version(), version)
        check(f"{text}: every host has the button",
              machine.run(folder / "Kestrune.exe", "--status", "--quiet"), 0)
    # As Apps runs it; the last argument is read to the end of the line and takes no quotes.
    check("removed: the code", machine.run(folder / "Uninstall.exe", "/S", "_?=" + machine.path(folder)), 0)
    check("removed: the folder is gone", gone(folder), True)
    check("removed: nothing under Apps", machine.apps_version(), None)
    check("removed: no host has the button", machine.run(unpacked, "--status", "--quiet"), 10)
    machine.run(box, "clear")


def check_sums(release):
    for line in (release / "SHA256SUMS").read_text().splitlines():
        digest, name = line.split("  ", 1)
        check(f"{name} agrees with the sums",
              hashlib.sha256((release / name).read_bytes()).hexdigest(), digest)


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--release", type=pathlib.Path, required=True)
    parser.add_argument("--build", type=pathlib.Path, required=True)
    options = parser.parse_args()
    check_sums(options.release)
    with this_machine() as machine:
        life(machine, options.release.resolve(), options.build.resolve())
    print(f"{passed} passed, {problems} failed")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
