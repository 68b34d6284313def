#!/usr/bin/env python3
"""Puts the figures of all benchmarks into one table and one JSON file.

usage: report.py XPACL OUT.json RESULT.json...

XPACL is the built tool, whose start-up and replay are timed here; each RESULT.json is what one benchmark program wrote
with --benchmark_out. Prints, for every figure, the sizes measured, the cost at each and the exponent of its
growth (time ~ size^exponent, fitted through the logarithms), then the goals beside what was reached.
"""

import json
import math
import os
import platform
import resource
import struct
import subprocess
import sys
import tempfile

# What each goal compares: the benchmark's name, how its figure is taken, the bound, and the unit.
GOALS = [
    ("notification with one reactor", "notifyOneReactor", "ns", 50),
    ("attribute write without change", "noChangeWrite", "ns", 20),
    ("trace statement into the ring", "traceToRing", "ns", 30),
    ("10,000 lines, text to chip", "endToEnd/10000", "ms", 50),
    ("one line edited among 10,000", "editOneLine/10000", "ms", 30),
    ("library, a row staged and committed", "stageAndCommit/plain/10000", "us/item", 1),
    ("a (port, VLAN) pair moves", "pairMoves/64/4094", "us/pair", 2),
    ("a pair, list changed on its port", "changeOnPorts/64/4094", "us/pair", 2),
    ("memory of a pair", "startUp/64/4094", "bytes/pair", 200),
    ("start-up of xpacl replay, one list", "startUp/small", "ms", 20),
    ("start-up of xpacl replay, campus", "startUp/campus", "ms", 20),
    ("build, one file of the library changed", "build/oneFile", "s", 10),
    ("build, all with tests", "build/clean", "s", 180),
] + [
    (f"row write at 54,000 rows: {kind}", f"rowWrite/{kind}/54000", "us/item", 5)
    for kind in ("rewrite", "replace", "invalidate", "insert", "move", "fill")
]

# Goals in millions a second: the figure reaches a goal from its upper bound on. Lookups are held against what
# the best classifiers that are built once answer, which depends on the set.
RATE_GOALS = [
    (f"lookups, {style} {count:,}, {trace}", f"lookup/{style}/{trace}/batch/{count}", low, high)
    for count, low, high in ((1000, 30, 57), (10000, 11, 32))
    for style in ("acl", "fw", "ipc")
    for trace in ("trace", "shuffled")
] + [
    (f"frames of 64 bytes, {style} {count:,}, {trace}", f"replay/{style}/{trace}/{count}", 5, 5)
    for count in (1000, 10000)
    for style in ("acl", "fw", "ipc")
    for trace in ("trace", "shuffled")
] + [
    ("xpacl replay of a capture, campus", "replay/capture", 5, 5),
]

SCALE = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}


def nanoseconds(run):
    return run["cpu_time"] * SCALE[run["time_unit"]]


def figure(run, unit):
    if unit == "bytes/pair":
        return run["bytes/pair"]
    if unit == "us/pair":
        return run["time/pair"] * 1e6
    if unit == "us/item":
        return 1e6 / run["items_per_second"]
    return nanoseconds(run) / SCALE[unit]


def exponent(points):
    """Slope of log(time) over log(size); None for fewer than two sizes."""
    logs = [(math.log(size), math.log(cost)) for size, cost in points if size > 0 and cost > 0]
    if len({x for x, _ in logs}) < 2:
        return None
    mean_x = sum(x for x, _ in logs) / len(logs)
    mean_y = sum(y for _, y in logs) / len(logs)
    return sum((x - mean_x) * (y - mean_y) for x, y in logs) / sum((x - mean_x) ** 2 for x, _ in logs)


def short(ns):
    for unit in ("s", "ms", "us"):
        if ns >= SCALE[unit]:
            return f"{ns / SCALE[unit]:.3g} {unit}"
    return f"{ns:.3g} ns"


EXAMPLES = os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir, "examples")
CAPTURE = os.path.join(EXAMPLES, "campus.pcap")
SMALL = """ip access-list extended WEB
 permit tcp any any eq 443
interface Ethernet1
 switchport access vlan 10
 ip access-group WEB in
"""


def frames_of(capture):
    """How many frames a pcap file of this machine's byte order holds."""
    count, at = 0, 24
    while at < len(capture):
        at += 16 + struct.unpack_from("=I", capture, at + 8)[0]
        count += 1
    return count


def processor_time(command):
    """Of one run of a command, in seconds, the system's share included."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(command, stdout=subprocess.DEVNULL, check=True)
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime - before.ru_utime + after.ru_stime - before.ru_stime


def time_tool(xpacl):
    """Start-up with a small and with the campus configuration, and a capture of a million frames replayed; the
    best of several runs: what other work adds is not the tool's."""
    runs = []
    with tempfile.TemporaryDirectory() as folder:
        small = os.path.join(folder, "small.conf")
        with open(small, "w", encoding="utf-8") as file:
            file.write(SMALL)
        campus = os.path.join(EXAMPLES, "campus.conf")
        for name, config in (("small", small), ("campus", campus)):
            seconds = min(processor_time([xpacl, "replay", config, "--pcap", CAPTURE]) for _ in range(20))
            runs.append({"name": f"startUp/{name}", "cpu_time": seconds * 1e9, "time_unit": "ns"})
        with open(CAPTURE, "rb") as file:
            capture = file.read()
        header, frames = capture[:24], capture[24:]
        big = os.path.join(folder, "big.pcap")
        with open(big, "wb") as file:
            file.write(header)
            for _ in range(4717):
                file.write(frames)
        count = 4717 * frames_of(capture)
        seconds = min(processor_time([xpacl, "replay", campus, "--pcap", big]) for _ in range(9))
        runs.append({"name": "replay/capture", "cpu_time": seconds * 1e9, "time_unit": "ns",
                     "items_per_second": count / seconds})
    return {run["name"]: run for run in runs}


def processor():
    with open("/proc/cpuinfo", encoding="utf-8") as lines:
        for line in lines:
            if line.startswith("model name"):
                return line.split(":", 1)[1].strip()
    return platform.machine()


def main():
    if len(sys.argv) < 4:
        sys.exit(__doc__)
    xpacl, out, *results = sys.argv[1:]
    runs = {}
    for path in results:
        if os.path.getsize(path) == 0:
            continue  # of a program in which a filter found nothing to run
        with open(path, encoding="utf-8") as file:
            for run in json.load(file)["benchmarks"]:
                if run.get("run_type") != "aggregate" and "error_occurred" not in run:
                    runs[run["name"]] = run
    runs.update(time_tool(xpacl))

    machine = f"{processor()}, {os.cpu_count()} cores"
    print(f"Machine: {machine}\n")

    families = {}
    for name, run in runs.items():
        family, _, size = name.rpartition("/")
        if family and size.isdigit():
            # Batches of several sizes stand in one family: what counts there is an item.
            batches = family.startswith(("lookup/", "replay/"))
            cost = 1e9 / run["items_per_second"] if batches else nanoseconds(run)
            families.setdefault(family, []).append((int(size), cost))
    growth = {}
    print(f"{'Growth':<28} {'exponent':>8}  cost at each size")
    for family, points in families.items():
        slope = exponent(points)
        if slope is None:
            continue
        growth[family] = slope
        costs = ", ".join(f"{size:,}: {short(cost)}" for size, cost in sorted(points))
        print(f"{family:<28} {slope:>8.2f}  {costs}")

    print(f"\n{'Goal':<38} {'bound':>12} {'measured':>12}")
    goals = []
    for title, name, unit, bound in GOALS:
        if name not in runs:
            continue
        measured = figure(runs[name], unit)
        verdict = "reached" if measured <= bound else "missed"
        shown = unit.replace("us/item", "us").replace("us/pair", "us").replace("bytes/pair", "bytes")
        print(f"{title:<38} {f'{bound} {shown}':>12} {f'{measured:.3g} {shown}':>12}  {verdict}")
        goals.append({"goal": title, "bound": bound, "measured": measured, "unit": shown, "reached": measured <= bound})
    for title, name, low, high in RATE_GOALS:
        if name not in runs:
            continue
        measured = runs[name]["items_per_second"] / 1e6
        verdict = "reached" if measured >= high else "within the range" if measured >= low else "missed"
        bound = f"{low}..{high} M/s" if low != high else f"{high} M/s"
        print(f"{title:<38} {bound:>12} {f'{measured:.3g} M/s':>12}  {verdict}")
        goals.append({"goal": title, "bound": high, "measured": measured, "unit": "M/s",
                      "reached": measured >= high})
    if "sdkCalls/10000" in runs and "stageAndCommit/plain/10000" in runs and "retire/10000" in runs:
        bare = nanoseconds(runs["sdkCalls/10000"])
        own = nanoseconds(runs["stageAndCommit/plain/10000"]) + nanoseconds(runs["retire/10000"])
        ratio = (bare + own) / bare
        verdict = "reached" if ratio <= 3 else "missed"
        print(f"{'a row with the library : SDK calls alone':<38} {'3':>10} {ratio:>12.2f}  {verdict}")
        goals.append({"goal": "a row with the library : SDK calls alone", "bound": 3, "measured": ratio,
                      "unit": "", "reached": ratio <= 3})

    with open(out, "w", encoding="utf-8") as file:
        json.dump({"version": 1, "machine": machine, "goals": goals, "growth": growth,
                   "benchmarks": list(runs.values())}, file, indent=1)
        file.write("\n")
    print(f"\nWritten: {out}")


if __name__ == "__main__":
    main()
