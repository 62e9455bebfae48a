#!/usr/bin/env python3
"""The completions for zsh and fish, each in its shell. A shell that is not installed is left out.

zsh completes on a pseudo terminal, where the line that it writes has to come; fish says what it offers.
"""

import os
import pty
import select
import shutil
import subprocess
import sys
import time

import run_transcript
import sessions

COMPLETIONS = os.environ["COMPLETIONS"]
# What is typed, and how zsh goes on.
TYPED = {
    "sysmgrctl sta": "sysmgrctl status ",
    "sysmgrctl set rtsp/t": "sysmgrctl set rtsp/tcp-port ",
    "sysmgrctl eth remove eth0 --js": "sysmgrctl eth remove eth0 --json ",
    "sysmgrctl import my": "sysmgrctl import my\\ board.conf ",
    "sysmgrctl import my\\ b": "sysmgrctl import my\\ board.conf ",
    "sysmgrctl import 'my b": "sysmgrctl import 'my board.conf' ",
    "sysmgrctl import fol": "sysmgrctl import folder/",
    "sysmgrctl gpio set gpio0/o": "sysmgrctl gpio set gpio0/output=",
    "sysmgr-sim --mod": "sysmgr-sim --model ",
    "sysmgr-sim --state my": "sysmgr-sim --state my\\ board.conf ",
    "sysmgr-sim run -- sysmgrc": "sysmgr-sim run -- sysmgrctl ",
}
# What is typed, and the word that fish offers for its end.
OFFERED = {
    "sysmgrctl sta": "status",
    "sysmgrctl set rtsp/t": "rtsp/tcp-port",
    "sysmgrctl import my": "my board.conf",
    "sysmgrctl import my\\ b": "my board.conf",
    "sysmgrctl import 'my b": "my board.conf",
    "sysmgrctl import fol": "folder/",
    "sysmgrctl gpio set gpio0/o": "gpio0/output=",
    "sysmgr-sim --mod": "--model",
    "sysmgr-sim run -- sysmgrc": "sysmgrctl",
    "sysmgr-sim run -- sysmgrctl sta": "status",
}


class Zsh:
    """An interactive zsh."""

    def __init__(self, board):
        process, self.terminal = pty.fork()
        if process == 0:
            os.chdir(board.directory)
            os.execvpe("zsh", ["zsh", "-f", "-i"], {**board.environment, "TERM": "dumb", "ZDOTDIR": board.directory})
        self.type(f"fpath=({COMPLETIONS} $fpath); autoload -U compinit; compinit -u -D; echo rea''dy\n", "ready")

    def type(self, keys, wanted):
        """@return what came, up to the wanted text; as much as there was when it did not come"""
        os.write(self.terminal, keys.encode())
        output = ""
        end = time.monotonic() + 10
        while wanted not in output and time.monotonic() < end:
            if select.select([self.terminal], [], [], 0.1)[0]:
                output += os.read(self.terminal, 65536).decode(errors="replace")
        return output


def play_zsh(board):
    for typed, wanted in TYPED.items():
        shell = Zsh(board)
        output = shell.type(typed + "\t", wanted)
        os.close(shell.terminal)  # ends the shell
        is_open = wanted.endswith(" ") or wanted + " " not in output  # the rest follows without a blank
        if wanted not in output or not is_open:
            return f"zsh: {typed!r} became {output!r}"
    return None


def play_fish(board):
    sources = "".join(f"source {COMPLETIONS}/{program}.fish; " for program in ("sysmgrctl", "sysmgr-sim"))
    for typed, wanted in OFFERED.items():
        done = subprocess.run(["fish", "--no-config", "-c", sources + "complete --do-complete=$argv[1]", typed],
                              cwd=board.directory, env={**board.environment, "HOME": board.directory},
                              capture_output=True, text=True, check=False, timeout=run_transcript.SOON)
        if wanted not in [line.split("\t")[0] for line in done.stdout.splitlines()]:
            return f"fish: {typed!r} is offered {done.stdout!r} {done.stderr!r}"
    return None


def play(board):
    os.mkdir(os.path.join(board.directory, "folder"))
    os.mknod(os.path.join(board.directory, "my board.conf"))
    for shell, play_shell in (("zsh", play_zsh), ("fish", play_fish)):
        if shutil.which(shell) is None:
            print(f"there is no {shell}")
        elif failure := play_shell(board):
            return failure
    return None


if __name__ == "__main__":
    if not shutil.which("zsh") and not shutil.which("fish"):
        print("SKIPPED: there are neither zsh nor fish")
        sys.exit(run_transcript.SKIPPED)
    sys.exit(sessions.play(play))
