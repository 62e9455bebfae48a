"""Prints the library's figures beside the floor's: the same jobs on bare libzmq and JsonCpp (floor.cpp).

    wire.py BUILD [--rounds N] [--quick]

Each figure is the median of the rounds. In a round both contestants do a job one after the other, each against a daemon
of its own; a ratio is the median of the ratios of the rounds, library to floor. Daemon and contestants share one CPU, so
a figure is the CPU path of all sides together and does not depend on where the scheduler puts them.
"""

import argparse
import glob
import os
import platform
import statistics
import subprocess
import sys

import contest

# job, how often, interfaces, what it is
JOBS = (
    ("set", 4000, 4, "J1 set one key"),
    ("get", 4000, 4, "J2 get the stored document"),
    ("change", 2000, 4, "J3 change until another process has it"),
    ("absorb", 6000, 4, "a notification, as fast as they come"),
    ("first", 1, 4, "first getInstance (fetch everything)"),
    ("get", 2000, 10, "J2 with 10 interfaces"),
    ("get", 600, 100, "J2 with 100 interfaces"),
    ("get", 60, 1000, "J2 with 1,000 interfaces"),
    ("absorb", 1000, 100, "a notification with 100 interfaces"),
    ("absorb", 200, 1000, "a notification with 1,000 interfaces"),
    ("submit", 4000, 4, "set one key through an event loop"),
    ("queue", 20, 4, "500 sets through an event loop"),
    ("once", 1, 4, "smallest program (one set): memory"),
)


def measure(build, job, count, interfaces, rounds):
    """The results of each contestant, round by round; who begins takes turns."""
    results = {contestant: [] for contestant in contest.CONTESTANTS}
    for index in range(rounds):
        order = contest.CONTESTANTS if index % 2 == 0 else contest.CONTESTANTS[::-1]
        for contestant in order:
            results[contestant].append(contest.measure(build, contestant, job, count, interfaces))
    return results


def row(what, results):
    def median(contestant, figure):
        return statistics.median(getattr(result, figure) for result in results[contestant])

    times = [median(contestant, "median") for contestant in contest.CONTESTANTS]
    ratios = [mine.median / floor.median for mine, floor in zip(*results.values()) if floor.median]
    cells = [f"| {what:38} |"]
    for figure, width, digits in (("median", 7, 1), ("p99", 7, 1), ("cpu", 7, 1), ("peak", 6, 0)):
        values = [median(contestant, figure) for contestant in contest.CONTESTANTS]
        shown = " ".join(f"{value:{width}.{digits}f}" if value else " " * (width - 1) + "-" for value in values)
        cells.append(shown + " |")
        if figure == "median":
            cells.append((f"{statistics.median(ratios):5.2f}" if all(times) else "    -") + " |")
    return " ".join(cells), times[0], median("library", "cpu")


# what is compared, the contestant and its job, those that it is compared with, how often
COMPARISONS = (
    ("a set through an event loop to one that waits", ("library", "submit"), ("library", "set"), 4000),
    ("500 sets through an event loop to 500 that wait", ("library", "queue"), ("library", "sets"), 20),
    ("a change until another process's view has it to one until its cache has it",
     ("view", "change"), ("library", "change"), 2000),
    ("a notification of a burst into the view to one into the floor", ("view", "absorb"), ("floor", "absorb"), 6000),
    ("everything fetched by a view to a first getInstance", ("view", "first"), ("library", "first"), 1),
)


def compare(build, one, other, count, rounds):
    """One job to another, in turns as above. The median of the ratios, and the peak memory of both."""
    ratios, peaks = [], {one: [], other: []}
    for index in range(rounds):
        results = {side: contest.measure(build, *side, count, 4) for side in ((one, other), (other, one))[index % 2]}
        ratios.append(results[one].median / results[other].median)
        for side, result in results.items():
            peaks[side].append(result.peak)
    return statistics.median(ratios), *(statistics.median(peaks[side]) for side in (one, other))


def machine():
    with open("/proc/cpuinfo") as file:
        model = next((line.split(":", 1)[1].strip() for line in file if line.startswith("model name")), "?")
    compiler = subprocess.run(["g++", "--version"], capture_output=True, text=True).stdout.splitlines()[0]
    return f"{model}, {os.cpu_count()} CPUs, Linux {platform.release()}, {compiler}, load {os.getloadavg()[0]:.1f}"


def in_process(build):
    """What runs in one process: Google Benchmark's own tables."""
    with contest.daemon(build):
        for program in sorted(glob.glob(os.path.join(build, "bench", "zel*Bench"))):
            subprocess.run([program, "--benchmark_min_time=0.3"], stderr=subprocess.DEVNULL, check=True)


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("build")
    arguments.add_argument("--rounds", type=int, default=12)
    arguments.add_argument("--quick", action="store_true", help="a tenth of the work: to see that it runs")
    options = arguments.parse_args()
    os.sched_setaffinity(0, {max(os.sched_getaffinity(0))})

    print(machine())
    print(f"{options.rounds} rounds; microseconds and KB: library, floor")
    print(f"| {'':38} | {'median':^15} | ratio | {'p99':^15} | {'CPU':^15} | {'peak memory':^13} |")
    times = {}
    for job, count, interfaces, what in JOBS:
        count = max(count // 10, 1) if options.quick else count
        line, *times[job, interfaces] = row(what, measure(options.build, job, count, interfaces, options.rounds))
        print(line, flush=True)
    for job in ("get", "absorb"):
        time, cpu = (many / few for many, few in zip(times[job, 1000], times[job, 100]))
        print(f"'{job}' with 1,000 interfaces to 100: time {time:.1f}, CPU {cpu:.1f}")
    for what, one, other, count in COMPARISONS:
        count = max(count // 10, 1) if options.quick else count
        ratio, *peaks = compare(options.build, one, other, count, options.rounds)
        print(f"{what}: {ratio:.3f}; peak memory {peaks[0]:.0f}, {peaks[1]:.0f} KB", flush=True)
    print(f"notifications per second: {1e6 / times['absorb', 4][0]:.0f}\n")
    in_process(options.build)


if __name__ == "__main__":
    sys.exit(main())
