#!/usr/bin/env python3
"""Two processes set two keys of one block again and again. No change of either may be lost.

`record` keeps every notification: each key has to count up from 1 without a step back. ZEL_SETS says how often each key
is set.
"""

import json
import os
import subprocess
import sys
import time

import run_transcript
import sessions

KEYS = ("slot-id", "shelf-id")


def notified(path):
    """The block "nmos" of each notification in a recording."""
    with open(path, encoding="utf-8") as file:
        events = [json.loads(line) for line in file if line.endswith("\n")]
    return [json.loads(event["frames"][1])["nmos"] for event in events if "frames" in event]


def values_of(key, blocks):
    """The values that a key takes one after the other, without the one that it begins with."""
    values = [block[key] for block in blocks]
    return [value for value, before in zip(values[1:], values) if value != before]


def race(board):
    sets = int(os.environ.get("ZEL_SETS", "300"))
    path = os.path.join(board.directory, "recording")
    board.start("record", "sysmgrctl record recording")
    board.wait_for("record", "recording")
    board.ctl("set", "nmos/slot-id=0", "nmos/shelf-id=0")
    loop = "for i in $(seq {}); do sysmgrctl set nmos/{} $i >/dev/null || exit 1; done"
    setters = [subprocess.Popen(["bash", "-c", loop.format(sets, key)], env=board.environment) for key in KEYS]
    if any([setter.wait() != 0 for setter in setters]):
        return "a set failed"
    end = time.monotonic() + run_transcript.SOON
    while len(notified(path)) < 2 * sets + 1 and time.monotonic() < end:
        time.sleep(0.05)
    for key in KEYS:
        seen = values_of(key, notified(path))
        if seen != list(range(1, sets + 1)):
            return f"{key} does not count up to {sets}: {seen}"
    return None


if __name__ == "__main__":
    sys.exit(sessions.play(race))
