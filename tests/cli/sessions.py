"""What the programs that play sessions of their own share."""

import argparse
import os
import random
import subprocess
import sys
import tempfile

import run_transcript


class Board(run_transcript.Session):
    """A session with `sysmgr-sim`, in a folder and a network namespace of its own."""

    def __init__(self, directory, environment):
        super().__init__(directory, environment)
        self.begin_board()

    def begin_board(self):
        self.start("board", "sysmgr-sim")
        self.wait_for("board", "ready")

    def replace_board(self):
        """A fresh board in place of the one before."""
        self.signal("board", "TERM")
        self.background.pop("board").wait(run_transcript.SOON)
        self.begin_board()

    def ctl(self, *words, check=True, **options):
        """Runs sysmgrctl. @return its standard output"""
        done = subprocess.run(["sysmgrctl", *words], cwd=self.directory, env=self.environment, check=False,
                              capture_output=True, text=True, timeout=run_transcript.SOON, **options)
        if check and done.returncode != 0:
            sys.exit(f"sysmgrctl {words} ended with {done.returncode}: {done.stderr}")
        return done.stdout


def play(session):
    """Runs session(board); what it returns, if anything, is why it failed."""
    parser = argparse.ArgumentParser()
    parser.add_argument("--path", action="append", default=[], help="where programs are looked for first")
    environment = run_transcript.environment_with(parser.parse_known_args()[0].path)
    os.environ["PATH"] = environment["PATH"]
    run_transcript.enter_private_network()
    seed = int(os.environ.get("ZEL_SEED", random.randrange(1 << 30)))
    random.seed(seed)
    print(f"ZEL_SEED={seed}")
    with tempfile.TemporaryDirectory() as directory:
        environment["XDG_RUNTIME_DIR"] = directory
        board = Board(directory, environment)
        try:
            return session(board)
        finally:
            board.end()
