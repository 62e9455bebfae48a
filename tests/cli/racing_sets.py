#!/usr/bin/env python3
"""Two processes set two keys of one block again and again. No change of either may be lost.

`watch` sees every change: each key has to count up from 1 without a step back. ZEL_SETS says how often each key is set.
"""

import json
import os
import subprocess
import sys

import run_transcript
import sessions

KEYS = ("nmos/slot-id", "nmos/shelf-id")


def race(board):
    sets = int(os.environ.get("ZEL_SETS", "300"))
    board.start("watch", f"sysmgrctl watch stored --json --count {2 * sets}")
    board.wait_for("watch", "watching")
    loop = "for i in $(seq {}); do sysmgrctl set {} $i >/dev/null || exit 1; done"
    setters = [subprocess.Popen(["bash", "-c", loop.format(sets, key)], env=board.environment) for key in KEYS]
    if any([setter.wait() != 0 for setter in setters]):
        return "a set failed"
    board.background["watch"].wait(run_transcript.SOON)
    changes = [json.loads(line) for line in board.text("watch", "out").splitlines()]
    for key in KEYS:
        seen = [change["new"] for change in changes if change["key"] == key]
        if seen != list(range(1, sets + 1)):
            return f"{key} does not count up to {sets}: {seen}"
    return None


if __name__ == "__main__":
    sys.exit(sessions.play(race))
