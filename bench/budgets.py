"""Counts the instructions of an operation, beside those of the floor, and compares the ratio with bench/budgets.txt.

    budgets.py BUILD [--update]

Counted by callgrind: user space only, the process's every thread, nothing of the daemon. Unlike times the counts hardly
differ from run to run, and unlike counts the ratios hardly differ from processor to processor: what the C library
chooses for a processor, both sides use. simdjson is made to choose the same everywhere (zelBenchPortable).
"""

import argparse
import os
import platform
import re
import subprocess
import sys

import contest

FILE = os.path.join(os.path.dirname(__file__), "budgets.txt")
ALLOWED_GROWTH = 1.05

# job: how often it is done in the two runs whose difference is counted
COUNTS = {"set": (200, 1200), "get": (200, 500), "absorb": (200, 500), "getter": (1000, 201000),
          "submit": (200, 1200), "queue": (2, 6)}


def instructions(build, contestant, job):
    def total(count):
        callgrind = ("valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null")
        log = contest.run(build, contestant, job, count, under=callgrind).stderr
        return int(re.search(r"Collected : (\d+)", log).group(1))

    few, many = COUNTS[job]
    return (total(many) - total(few)) / (many - few)


def read_budgets():
    with open(FILE) as file:
        rows = [line.split() for line in file if line.strip() and not line.startswith("#")]
    return {job: float(ratio) for job, ratio in rows}


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("build")
    arguments.add_argument("--update", action="store_true", help="write the ratios of now into the file")
    options = arguments.parse_args()

    if platform.machine() != "x86_64":
        print(f"SKIPPED: the instruction budgets are for x86_64; this is {platform.machine()}")
        return 77

    budgets, ratios = read_budgets(), {}
    print(f"{'operation':10} {'floor':>9} {'library':>9} {'ratio':>7} {'budget':>7}")
    with contest.daemon(options.build):
        for job in COUNTS:
            floor, library = (instructions(options.build, contestant, job) for contestant in ("floor", "portable"))
            ratios[job] = library / floor
            print(f"{job:10} {floor:9.0f} {library:9.0f} {ratios[job]:7.3f} {budgets.get(job, 0):7.3f}", flush=True)

    if options.update:
        with open(FILE) as file:
            comments = [line for line in file if line.startswith("#")]
        with open(FILE, "w") as file:
            file.writelines(comments)
            file.writelines(f"{job} {ratio:.3f}\n" for job, ratio in ratios.items())
        return 0

    grown = [job for job, ratio in ratios.items() if ratio > ALLOWED_GROWTH * budgets[job]]
    for job in grown:
        print(f"FAILED: '{job}' takes {ratios[job] / budgets[job] - 1:.1%} more instructions than its budget allows for.")
    return 1 if grown else 0


if __name__ == "__main__":
    sys.exit(main())
