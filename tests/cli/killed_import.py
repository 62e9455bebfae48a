#!/usr/bin/env python3
"""`import` is killed at random instants: run again, it ends in the same state.

ZEL_KILLS says how often. The two configurations differ in many interfaces, so that an import has many requests.
"""

import os
import random
import subprocess
import sys
import time

import sessions

INTERFACES = 40


def configurations(board):
    """Two files; the import of each one undoes that of the other."""
    board.ctl("set", *(f"videoTimingParameters/{key}=1" for key in
                       ("initBufDelay", "minWrRdPtrThresh", "maxWrRdPtrThresh", "rtpPktsPerFrame")))
    board.ctl("export", "one.conf")
    for number in range(INTERFACES):
        board.ctl("eth", "add", f"eth0.{number}", "--address", f"10.0.{number}.1/24")
        board.ctl("whitelist", "add", f"239.1.{number}.0/24")
    board.ctl("set", "sap/enable=on", "nmos/node-name=other")
    board.ctl("identify", "on")
    board.ctl("export", "two.conf")
    return ["one.conf", "two.conf"]


def kills(board):
    rounds = int(os.environ.get("ZEL_KILLS", "50"))
    files = configurations(board)
    begin = time.monotonic()
    board.ctl("import", files[0])
    longest = time.monotonic() - begin
    between = 0
    for number in range(rounds):
        old, new = files[number % 2], files[(number + 1) % 2]
        with subprocess.Popen(["sysmgrctl", "import", new], cwd=board.directory, env=board.environment,
                              stdout=subprocess.DEVNULL) as killed:
            time.sleep(random.uniform(0, longest))
            killed.kill()
        differs_from = [board.ctl("diff", file, check=False) != "" for file in (old, new)]
        between += all(differs_from)
        board.ctl("import", new)
        left = board.ctl("diff", new, check=False)
        if left:
            return f"round {number}: after the second import there are differences:\n{left}"
    print(f"{between} of {rounds} imports were killed in the middle")
    return None if between >= rounds / 10 else "too few imports were killed in the middle"


if __name__ == "__main__":
    sys.exit(sessions.play(kills))
