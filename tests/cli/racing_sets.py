#!/usr/bin/env python3
"""Two processes set two keys of one block again and again: racing_sets.py --path FOLDER... No change of either may be lost.

`watch` sees every change: each key has to count up from 1 without a step back. ZEL_SETS says how often each key is set.
"""

import argparse
import json
import os
import subprocess
import sys
import tempfile

import run_transcript

KEYS = ("nmos/slot-id", "nmos/shelf-id")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--path", action="append", default=[])
    environment = run_transcript.environment_with(parser.parse_args().path)
    run_transcript.enter_private_network()
    sets = int(os.environ.get("ZEL_SETS", "300"))
    with tempfile.TemporaryDirectory() as directory:
        session = run_transcript.Session(directory, environment)
        try:
            session.start("board", "sysmgr-sim")
            session.wait_for("board", "ready")
            session.start("watch", f"sysmgrctl watch stored --json --count {2 * sets}")
            session.wait_for("watch", "watching")
            loop = "for i in $(seq {}); do sysmgrctl set {} $i >/dev/null || exit 1; done"
            setters = [subprocess.Popen(["bash", "-c", loop.format(sets, key)], env=environment) for key in KEYS]
            if any(setter.wait() != 0 for setter in setters):
                return "a set failed"
            session.background["watch"].wait(run_transcript.SOON)
            changes = [json.loads(line) for line in session.text("watch", "out").splitlines()]
        finally:
            session.end()
    for key in KEYS:
        seen = [change["new"] for change in changes if change["key"] == key]
        if seen != list(range(1, sets + 1)):
            return f"{key} does not count up to {sets}: {seen}"
    return 0


if __name__ == "__main__":
    sys.exit(main())
