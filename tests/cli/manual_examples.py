#!/usr/bin/env python3
"""Runs the examples of the manual page, one after the other; the board changes while one of them watches it.

The environment variable MANUAL names the page. Each example has to end with status 0.
"""

import os
import pathlib
import re
import subprocess
import sys

import run_transcript
import sessions

CHANGES = "while sleep 0.2; do sysmgrctl set tdm/channels-per-line=$((RANDOM % 256 + 1)) >/dev/null; done"


def examples(page):
    text = pathlib.Path(page).read_text(encoding="utf-8")
    lines = re.search(r"\.SH EXAMPLES\n\.nf\n\.RS\n(.*?)\.RE", text, re.DOTALL).group(1)
    return lines.replace("\\-", "-").splitlines()


def run_examples(board):
    for example in examples(os.environ["MANUAL"]):
        background = f"{{ {CHANGES}; }} & trap 'kill $!' EXIT; " if "watch stored" in example else ""
        done = subprocess.run(["bash", "-c", background + example], cwd=board.directory, env=board.environment, check=False,
                              capture_output=True, text=True, timeout=run_transcript.SOON)
        print(f"$ {example}\n{done.stdout}{done.stderr}")
        if done.returncode != 0:
            return f"it ended with status {done.returncode}"
    return None


if __name__ == "__main__":
    sys.exit(sessions.play(run_examples))
