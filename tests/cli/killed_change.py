#!/usr/bin/env python3
"""The shell and the tool of a change with --confirm are killed at random instants: the old values come back.

ZEL_KILLS says how often.
"""

import os
import random
import signal
import subprocess
import sys
import time

import run_transcript
import sessions

CHANGES = ("sysmgrctl set --confirm 0.3 nmos/node-name=new rtsp/tcp-port=5004; sleep 60",
           "sysmgrctl import --confirm 0.3 new.conf; sleep 60")
SIGNALS = (signal.SIGKILL, signal.SIGHUP, signal.SIGTERM)


def is_old(board):
    return board.ctl("diff", "old.conf", check=False) == ""


def guardian_is_gone(board):
    return subprocess.run(["sysmgrctl", "confirm"], cwd=board.directory, env=board.environment, check=False,
                          stderr=subprocess.DEVNULL).returncode == 10


def kills(board):
    rounds = int(os.environ.get("ZEL_KILLS", "20"))
    board.ctl("export", "old.conf")
    board.ctl("set", "sap/enable=on", "nmos/node-name=new")
    for number in range(10):
        board.ctl("eth", "add", f"eth0.{number}", "--dhcp")
    board.ctl("export", "new.conf")
    begin = time.monotonic()
    board.ctl("import", "old.conf")
    longest = max(0.08, 2 * (time.monotonic() - begin))  # a sanitizer makes each change slower
    changed = 0
    for number in range(rounds):
        change = random.choice(CHANGES)
        shell = subprocess.Popen(["bash", "-c", change], cwd=board.directory, env=board.environment,
                                 stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
        time.sleep(random.uniform(0, longest))
        os.killpg(shell.pid, random.choice(SIGNALS))
        shell.wait(run_transcript.SOON)
        changed += not is_old(board)
        end = time.monotonic() + run_transcript.SOON
        time.sleep(0.3)  # a question before that would keep the new values
        while not (is_old(board) and guardian_is_gone(board)):
            if time.monotonic() > end:
                return f"round {number}: the old values did not come back:\n" + board.ctl("diff", "old.conf", check=False)
            time.sleep(0.05)
    print(f"{changed} of {rounds} changes were made before the kill")
    return None if changed >= rounds / 5 else "too few changes were made before the kill"


if __name__ == "__main__":
    sys.exit(sessions.play(kills))
