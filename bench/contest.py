"""What the scripts that run the wire benchmark's programs share."""

import collections
import contextlib
import os
import subprocess

CONTESTANTS = ("library", "floor")

Result = collections.namedtuple("Result", "median p99 cpu per_second peak")


def program(build, contestant):
    return os.path.join(build, "bench", "zelBench" + contestant.capitalize())


@contextlib.contextmanager
def daemon(build, interfaces=4):
    """The daemon with a stored document of that many interfaces, for the time of a with block."""
    process = subprocess.Popen([program(build, "daemon"), str(interfaces)], stdout=subprocess.PIPE)
    try:
        process.stdout.readline()  # it is ready
        yield process
    finally:
        process.kill()
        process.communicate()


def run(build, contestant, job, count, under=()):
    """Runs one job; `under` is a command that runs it, valgrind for one. Returns its standard output and error."""
    command = [*under, program(build, contestant), job, str(count)]
    done = subprocess.run(command, capture_output=True, text=True, timeout=300)
    if done.returncode != 0:
        raise SystemExit(f"{' '.join(command)} failed:\n{done.stderr}")
    return done


def measure(build, contestant, job, count):
    return Result(*(float(figure) for figure in run(build, contestant, job, count).stdout.split()))
