#!/usr/bin/env python3
"""Runs a command and reports on standard error when it took more: within.py SECONDS MEBIBYTES COMMAND...

The command is killed after three times the seconds. Its exit status is passed on. Where ZEL_TEST_INSTRUMENTED is set,
a sanitizer or an emulator takes time and memory of its own, so nothing is reported.
"""

import os
import resource
import subprocess
import sys
import time

seconds, mebibytes, command = float(sys.argv[1]), int(sys.argv[2]), sys.argv[3:]
instrumented = "ZEL_TEST_INSTRUMENTED" in os.environ
begin = time.monotonic()
with subprocess.Popen(command) as process:
    try:
        process.wait(None if instrumented else 3 * seconds)
    except subprocess.TimeoutExpired:
        process.kill()
took = time.monotonic() - begin
used = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss / 1024
if took > seconds and not instrumented:
    print(f"it took {took:.1f} s, and {seconds:g} s are allowed", file=sys.stderr)
if used > mebibytes and not instrumented:
    print(f"it used {used:.0f} MiB, and {mebibytes} MiB are allowed", file=sys.stderr)
sys.exit(process.returncode if process.returncode >= 0 else 128 - process.returncode)
