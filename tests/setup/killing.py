"""Kills a setup at an exact point. Every change of a file is made by the Wine server; strace stops the server after
one of them, and the programs are killed before the server continues."""
import collections
import os
import re
import signal
import subprocess
import tempfile

from machine import wait_until

CHANGES = "rename,unlink,rmdir,mkdir"
# The programs of a setup and a removal.
PROGRAMS = ("one.exe", "two.exe", "Uninstall.exe", "Kestrune.exe")

Point = collections.namedtuple("Point", "call path number")


def server(machine):
    """Returns the process ID of the prefix's Wine server, whose folder is named by the prefix's inode."""
    machine.run("cmd", "/d", "/c", "exit")
    ending = f"-{machine.prefix.stat().st_ino:x}"
    for number in filter(str.isdigit, os.listdir("/proc")):
        try:
            if os.readlink(f"/proc/{number}/cwd").endswith(ending) and \
                    open(f"/proc/{number}/comm", encoding="ascii").read().startswith("wineserver"):
                return int(number)
        except OSError:
            pass
    raise AssertionError("the prefix has no Wine server")


def attach(process, *options):
    """Starts strace for a process; returns when it is attached."""
    tracer = subprocess.Popen(["strace", "-p", str(process), *options], stderr=subprocess.PIPE, bufsize=0)
    said = []
    for line in tracer.stderr:
        said.append(line)
        if b"attached" in line:
            return tracer
    raise AssertionError(f"strace cannot be attached: {said}")


def detach(tracer):
    tracer.terminate()
    tracer.communicate()


def recorded(machine, run):
    """Returns every change and every opening of a file that a run makes, in order, as (call, path)."""
    with tempfile.NamedTemporaryFile("r") as listing:
        tracer = attach(server(machine), "-o", listing.name, "-e", f"trace={CHANGES},openat")
        run()
        detach(tracer)
        return re.findall(r'^(?:\d+ +)?(\w+)\((?:AT_FDCWD, )?"([^"]*)".* = (?!-1)', listing.read(), re.M)


# Files of a package whose order matters; all others are treated as one.
SINGLE = ("/Kestrune.exe", "/SHA256SUMS", "/Uninstall.exe")


def kind(call, path):
    """Returns the kind of a change; changes of one kind leave the same state. None for a change outside the folders of
    Kestrune."""
    place = re.search(r"/(Programs|Local/Kestrune)/([^/]+)(/[^/]+)?(/.+)?$", path)
    if not place:
        return None
    inside = place[3] and (place[3] if place[3] in SINGLE and not place[4] else "/...")
    return call, place[1], place[2], inside


def points(machine, run):
    """Returns the points at which killing a run leaves different states: after the first change of each kind, and at
    the first and the last log line between two of them."""
    found, counts, seen = [], collections.Counter(), {None}
    for call, path in recorded(machine, run):
        counts[call, path] += 1
        point = Point(call, path, counts[call, path])
        if path.endswith("/Logs/setup.log"):
            if len(found) > 1 and found[-1].call == found[-2].call == "openat":
                found.pop()
            found.append(point)
        elif call != "openat" and kind(call, path) not in seen:
            seen.add(kind(call, path))
            found.append(point)
    # Before the first line nothing was changed.
    return found[1:] if found and found[0].call == "openat" else found


def kill_at(machine, point, program, *arguments):
    """Starts a program and kills it and its child processes at a point. Returns whether the point was reached."""
    process = server(machine)
    tracer = attach(process, "-P", point.path, "-e", f"trace={point.call}",
                    "-e", f"inject={point.call}:signal=STOP:when={point.number}")
    try:
        started = machine.start(program, *arguments)
        came = reached(tracer, started)
        for name in PROGRAMS:
            machine.kill(name)
    finally:
        os.kill(process, signal.SIGCONT)
        detach(tracer)
    started.communicate(timeout=180)
    wait_until(lambda: not any(machine.processes(name) for name in PROGRAMS))
    return came


def reached(tracer, started):
    """Waits until the server is stopped, or the program has ended."""
    os.set_blocking(tracer.stderr.fileno(), False)
    text = b""

    def stopped():
        nonlocal text
        try:
            text += os.read(tracer.stderr.fileno(), 1 << 16)
        except BlockingIOError:
            pass
        return b"stopped by SIGSTOP" in text or started.poll() is not None
    wait_until(stopped, 60)
    return b"stopped by SIGSTOP" in text
