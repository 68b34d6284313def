#!/usr/bin/env python3
"""Times how long the project takes to build, and writes it as the benchmarks write their figures.

usage: build.py [--clean] OUT.json

Builds the release preset, which must be up to date, again after one file of the library has changed. With
--clean, a whole build with tests and benchmarks as well, in a folder of its own. The compiler's cache is left
out of it. Wall-clock time: what somebody waits for.
"""

import json
import os
import subprocess
import sys
import tempfile
import time

ROOT = os.path.realpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), os.pardir))
CHANGED = os.path.join(ROOT, "XpAclTcam", "XpAclPlexAggregatorHelperCommit.cpp")
ENVIRONMENT = dict(os.environ, CCACHE_DISABLE="1")


def timed(*command):
    begin = time.perf_counter()
    done = subprocess.run(command, cwd=ROOT, env=ENVIRONMENT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          check=False)
    if done.returncode != 0:
        sys.stdout.buffer.write(done.stdout)
        sys.exit(f"{' '.join(command)}: status {done.returncode}")
    return time.perf_counter() - begin


def main():
    arguments = sys.argv[1:]
    clean = arguments[:1] == ["--clean"]
    if len(arguments) != (2 if clean else 1):
        sys.exit(__doc__)
    figures = {}
    timed("cmake", "--build", "--preset", "release")
    os.utime(CHANGED)
    figures["build/oneFile"] = timed("cmake", "--build", "--preset", "release")
    if clean:
        with tempfile.TemporaryDirectory() as folder:
            timed("cmake", "--preset", "release", "-B", folder)
            figures["build/clean"] = timed("cmake", "--build", folder)
    for name, seconds in figures.items():
        print(f"{name:<20} {seconds:8.1f} s")
    with open(arguments[-1], "w", encoding="utf-8") as file:
        json.dump({"benchmarks": [{"name": name, "cpu_time": seconds, "time_unit": "s"}
                                  for name, seconds in figures.items()]}, file)


main()
