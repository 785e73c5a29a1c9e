#!/usr/bin/env python3
"""What a live reading costs from Python beside C++: bench/python_reading.py BUILD [SECONDS [ROUNDS]]

BUILD is the folder of an optimized build. Both talk to a simulated adapter in a process of its own that answers at once,
in turns. Figures are the medians of the rounds; processor time is that of the whole process, all its threads.
"""

import itertools
import os
import pathlib
import resource
import statistics
import subprocess
import sys
import time

ROUGHLY = 30  # of such requests in a second
PIDS = {"read": ["0C"], "watch": ["0C"], "fast": ["0C", "0D", "04", "11", "0B", "0E"]}


def processor():
    usage = resource.getrusage(resource.RUSAGE_SELF)
    return usage.ru_utime + usage.ru_stime


def measure(link, seconds, pace, *pids):
    """In a process of its own: the counterpart of bench/pollreading.cpp."""
    import velmara

    seconds = float(seconds)
    with velmara.connect(link) as car:
        if pace == "read":
            car.read(pids[0])  # to warm up
            readings = map(car.read, itertools.repeat(pids[0], int(seconds * ROUGHLY)))
        else:
            for _ in car.watch(*pids, fast=pace == "fast", seconds=1):
                pass
            readings = car.watch(*pids, fast=pace == "fast", seconds=seconds)
        count, start, used = 0, time.monotonic(), processor()
        for _ in readings:
            count += 1
        print(count, time.monotonic() - start, processor() - used)


def main(build, seconds="5", rounds="5"):
    build = pathlib.Path(build).resolve()
    environment = {**os.environ, "PYTHONPATH": str(build / "python")}
    programs = {"C++": [build / "bench" / "velmara_pollreading"], "Python": [sys.executable, __file__, "--measure"]}
    simulator = subprocess.Popen([build / "simulator" / "velmara-sim", "--tcp", "0"], stdout=subprocess.PIPE, text=True)
    link = simulator.stdout.readline().strip()
    try:
        for pace, pids in PIDS.items():
            costs = {name: [] for name in programs}
            rates = {name: [] for name in programs}
            for _ in range(int(rounds)):
                for name, program in programs.items():
                    said = subprocess.run([*program, link, seconds, pace, *pids], env=environment, check=True,
                                          capture_output=True, text=True).stdout  # fmt: skip
                    count, took, used = map(float, said.split())
                    costs[name].append(used / count * 1e6)
                    rates[name].append(count / took)
            beyond = [python - own for python, own in zip(costs["Python"], costs["C++"])]
            for name in programs:
                print(f"{pace:6} {name:7} {statistics.median(rates[name]):6.1f} readings/s, "
                      f"{statistics.median(costs[name]):6.1f} us of processor time a reading")  # fmt: skip
            print(f"{pace:6} beyond {statistics.median(beyond):6.1f} us ({min(beyond):.1f} to {max(beyond):.1f}), "
                  f"load {os.getloadavg()[0]:.1f}", flush=True)  # fmt: skip
    finally:
        simulator.kill()


if __name__ == "__main__":
    if sys.argv[1] == "--measure":
        measure(*sys.argv[2:])
    else:
        main(*sys.argv[1:])
