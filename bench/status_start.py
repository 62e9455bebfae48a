#!/usr/bin/env python3
"""Measures how long `sysmgrctl status` takes to its first byte, beside the smallest program that asks the same.

    unshare -n bench/status_start.py BUILD [RUNS]

Both ask the virtual board, taking turns. Fails when the median of sysmgrctl is more than 1.5 times the other's.
"""

import os
import statistics
import subprocess
import sys
import time

LIMIT = 1.5


def time_to_first_byte(command):
    begin = time.perf_counter()
    with subprocess.Popen(command, stdout=subprocess.PIPE) as process:
        first = process.stdout.read(1)
        seconds = time.perf_counter() - begin
        process.stdout.read()
    if not first or process.returncode != 0:
        sys.exit(f"{command[0]} failed")
    return seconds


def main():
    build = sys.argv[1]
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 200
    commands = {"floor": [os.path.join(build, "bench", "zelBenchStatusFloor")],
                "sysmgrctl": [os.path.join(build, "cli", "sysmgrctl"), "status"]}
    subprocess.run(["ip", "link", "set", "lo", "up"], check=True)
    board = subprocess.Popen([os.path.join(build, "simulator", "sysmgr-sim")], stdout=subprocess.PIPE)
    try:
        board.stdout.readline()  # it is ready
        times = {name: [] for name in commands}
        for _ in range(runs):
            for name, command in commands.items():
                times[name].append(time_to_first_byte(command))
    finally:
        board.terminate()
        board.wait()

    medians = {name: statistics.median(values) * 1000 for name, values in times.items()}
    ratio = medians["sysmgrctl"] / medians["floor"]
    print(f"status, start to first byte: sysmgrctl {medians['sysmgrctl']:.2f} ms, floor {medians['floor']:.2f} ms, "
          f"ratio {ratio:.2f} (limit {LIMIT}, {runs} runs each)")
    return 0 if ratio <= LIMIT else 1


if __name__ == "__main__":
    sys.exit(main())
