"""Counts the instructions of an operation and compares them with bench/budgets.txt.

    budgets.py BUILD [--update]

Counted by callgrind: user space only, the process's every thread, nothing of the daemon. Unlike times the counts hardly
differ from run to run, so a growth of 5 % fails. They hold for one compiler and machine; elsewhere the check is skipped.
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
COUNTS = {"set": (200, 700), "get": (200, 500), "absorb": (200, 500), "getter": (1000, 21000)}


def instructions(build, contestant, job):
    def total(count):
        callgrind = ("valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null")
        log = contest.run(build, contestant, job, count, under=callgrind).stderr
        return int(re.search(r"Collected : (\d+)", log).group(1))

    few, many = COUNTS[job]
    return (total(many) - total(few)) / (many - few)


def here():
    """What the counts depend on besides the code."""
    with open("/proc/cpuinfo") as file:
        flags = set(file.read().split())
    # simdjson reads with what there is.
    vectors = next((name for name in ("avx512_vbmi2", "avx2") if name in flags), "no-avx2")
    compiler = subprocess.run(["g++", "-dumpfullversion"], capture_output=True, text=True).stdout.strip()
    return f"g++-{compiler} {platform.machine()} {vectors}"


def read_budgets():
    with open(FILE) as file:
        lines = [line.split(maxsplit=1) for line in file if line.strip() and not line.startswith("#")]
    budgets = {name: value.strip() for name, value in lines}
    return budgets.pop("for"), {job: int(count) for job, count in budgets.items()}


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("build")
    arguments.add_argument("--update", action="store_true", help="write the counts of now into the file")
    options = arguments.parse_args()

    budgets_for, budgets = read_budgets()
    if budgets_for != here() and not options.update:
        print(f"SKIPPED: the instruction budgets are for {budgets_for}; this is {here()}")
        return 0

    counts = {}
    print(f"{'operation':10} {'floor':>9} {'library':>9} {'budget':>9}")
    with contest.daemon(options.build):
        for job in COUNTS:
            floor, counts[job] = (instructions(options.build, contestant, job) for contestant in ("floor", "library"))
            print(f"{job:10} {floor:9.0f} {counts[job]:9.0f} {budgets.get(job, 0):9}", flush=True)

    if options.update:
        with open(FILE) as file:
            comments = [line for line in file if line.startswith("#")]
        with open(FILE, "w") as file:
            file.writelines(comments)
            file.write(f"for {here()}\n")
            file.writelines(f"{job} {round(count)}\n" for job, count in counts.items())
        return 0

    grown = [job for job, count in counts.items() if count > ALLOWED_GROWTH * budgets[job]]
    for job in grown:
        print(f"FAILED: '{job}' takes {counts[job] / budgets[job] - 1:.1%} more instructions than its budget allows for.")
    return 1 if grown else 0


if __name__ == "__main__":
    sys.exit(main())
