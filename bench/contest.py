"""What the scripts that run the wire benchmark's programs share."""

import collections
import contextlib
import os
import subprocess
import sys

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


class Failed(Exception):
    pass


def run(build, contestant, job, count, under=()):
    """Runs one job; `under` is a command that runs it, valgrind for one. Returns its standard output and error."""
    command = [*under, program(build, contestant), job, str(count)]
    done = subprocess.run(command, capture_output=True, text=True, timeout=300)
    if done.returncode != 0:
        raise Failed(f"{' '.join(command)} failed:\n{done.stderr}")
    return done


def measure(build, contestant, job, count, interfaces):
    """Does the job against a daemon of its own. On a machine under load a job fails once in some hundred runs, with a
    time-out: it is repeated, and the failure told."""
    for attempt in range(3):
        try:
            with daemon(build, interfaces):
                return Result(*(float(figure) for figure in run(build, contestant, job, count).stdout.split()))
        except Failed as failure:
            print(f"repeated: {failure}", file=sys.stderr)
            if attempt == 2:
                raise
