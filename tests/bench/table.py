#!/usr/bin/env python3
"""table.py FOLDER MEGABYTES: prints the results of one run of tools/bench as a table for the README."""
import json
import pathlib
import platform
import sys

folder, megabytes = pathlib.Path(sys.argv[1]), sys.argv[2]


def pair(name):
    a, b, ratio, low, high = (folder / f"{name}.txt").read_text().split()
    return f"{a} ms | {b} ms | {ratio} ({low} to {high})"


def benchmarks(path):
    """Yields each benchmark's name, its time (the median, if it was repeated) in nanoseconds, and its throughput."""
    scale = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
    data = json.loads(path.read_text())["benchmarks"]
    medians = [b for b in data if b.get("aggregate_name") == "median"]
    for b in medians or [b for b in data if b.get("run_type") == "iteration"]:
        name = b.get("run_name", b["name"])
        yield name, b["real_time"] * scale[b["time_unit"]], b.get("bytes_per_second")


def shown(nanoseconds):
    for limit, unit in ((1e3, "ns"), (1e6, "us"), (1e9, "ms")):
        if nanoseconds < limit:
            return f"{nanoseconds / (limit / 1e3):.3g} {unit}"
    return f"{nanoseconds / 1e9:.3g} s"


print(f"Machine: {platform.machine()}, {platform.system()} {platform.release()}\n")
print("| Whole starts under Wine, in pairs | Kestrune | baseline | ratio, median (quartiles) |")
print("|---|---|---|---|")
print(f"| start to exit of a mode that does nothing, against an empty program with the same import "
      f"list | {pair('start')} |")
print(f"| `--finalize` of {megabytes} MiB to an application, against one `CopyFileW` | {pair('copy')} |")
print(f"| `--prepare` of a panel of 200 boards of 1 MiB, against copying them | {pair('panel')} |")
print(f"| `--inspect` of {megabytes} MiB with 60 layers, against a mode that does nothing | {pair('inspect')} |")
print("\n| `--install` under Wine over | whole, median | each further instance |")
print("|---|---|---|")
before = None
for count, time in (map(int, line.split()) for line in (folder / "install.txt").open()):
    further = f"{(time - before[1]) / (count - before[0]):.0f} ms" if before else ""
    print(f"| {count} instance{'s' * (count > 1)} | {time} ms | {further} |")
    before = count, time
times = {}
print("\n| Native benchmark | time | throughput |")
print("|---|---|---|")
for path in sorted(folder.glob("*_bench.json")):
    for name, time, speed in benchmarks(path):
        throughput = f"{speed / 2**20:.0f} MiB/s" if speed else ""
        print(f"| {path.stem.removesuffix('_bench')}: {name} | {shown(time)} | {throughput} |")
        times[name] = time

print("\n| Customization file | 1 MiB | 2 MiB | 4 MiB | 8 MiB |")
print("|---|---|---|---|---|")
for first in [name for name in times if name.endswith("/1024")]:
    work = first.removesuffix("/1024")
    row = [times[n] for n in times if n.rpartition("/")[0] == work and not n.endswith("/64")]
    print(f"| {work} | {' | '.join(shown(time) for time in row)} |")
