#!/usr/bin/env python3
"""Prints docs/sitting.svg, the picture at the head of README.md: make_sitting.py [--path FOLDER]... [--compare FILE]

It is what a shell on a terminal shows beside a virtual board: this script types the commands, and draws the terminal.
--path: where sysmgr-sim and sysmgrctl are. --compare: prints nothing, and fails where the picture in FILE is another one.
"""

import argparse
import difflib
import fcntl
import os
import pty
import re
import struct
import sys
import termios
from xml.sax.saxutils import escape

TYPED = (
    "sysmgrctl status",
    "sysmgrctl set rtsp/tcp-prt 5004",
    "sysmgrctl set rtsp/tcp-port 80",
    "sysmgrctl set rtsp/tcp-port 5004",
    "sysmgrctl diff factory live",
)
BOARD = ("sysmgr-sim", "run", "--model", "ZIRC", "--", "sh", "-i")
PROMPT = "$ "
COLUMNS = 80
SKIPPED = 77  # the exit status where the system allows no network for a board of its own

# Pixels of the picture.
CHARACTER, LINE, MARGIN, BAR = 8, 18, 16, 14

STYLE = """
    text { font: 13px ui-monospace, "DejaVu Sans Mono", Menlo, Consolas, monospace; fill: #1f2328; }
    .typed, .bold { font-weight: bold; }
    .ground { fill: #ffffff; stroke: #d0d7de; }
    .bar { fill: #d0d7de; }
    .prompt { fill: #57606a; }
    .red { fill: #cf222e; }
    @media (prefers-color-scheme: dark) {
      text { fill: #e6edf3; }
      .ground { fill: #0d1117; stroke: #3d444d; }
      .bar { fill: #3d444d; }
      .prompt { fill: #9198a1; }
      .red { fill: #ff7b72; }
    }
"""


def read_until_prompt(terminal):
    seen = b""
    while not seen.decode(errors="ignore").endswith(PROMPT):
        try:
            seen += os.read(terminal, 4096)
        except OSError:  # so Linux reports the end of a terminal
            break
    return seen.decode()


def play():
    """What the terminal shows, a list of (command, lines)."""
    child, terminal = pty.fork()
    if child == 0:
        fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack("HHHH", 40, COLUMNS, 0, 0))
        kept = {"PATH": os.environ["PATH"], "HOME": "/", "TERM": "xterm", "LC_ALL": "C.UTF-8", "PS1": PROMPT}
        kept.update((name, value) for name, value in os.environ.items() if name.endswith("SAN_OPTIONS"))
        os.execvpe(BOARD[0], BOARD, kept)
    start = read_until_prompt(terminal)
    if not start.endswith(PROMPT):
        print(start, file=sys.stderr)
        sys.exit(SKIPPED if "a private network cannot be made" in start else 1)
    sitting = []
    for command in TYPED:
        os.write(terminal, command.encode() + b"\n")
        echo, *lines = read_until_prompt(terminal).split("\r\n")
        if echo != command or lines.pop() != PROMPT:
            sys.exit(f"'{command}' was not typed at a prompt of its own")
        sitting.append((command, lines))
    os.write(terminal, b"exit\n")
    os.waitpid(child, 0)
    return sitting


def pieces(line):
    """The texts of a line of the terminal, each with its class."""
    classes = {"": "", "0": "", "1": "bold", "31": "red"}
    kind = ""
    for piece in re.split(r"(\x1b\[\d*m)", line):
        if piece.startswith("\x1b"):
            kind = classes[piece[2:-1]]  # another one is an error: it is to be drawn, too
        elif piece:
            yield piece, kind


def drawn_line(number, texts):
    """Each run of words has the place and the width that it has on the terminal, whatever the font is."""
    spans, column = [], 0
    for text, kind in texts:
        for run in re.finditer(r"\S+(?: \S+)*", text):
            place = f'x="{MARGIN + (column + run.start()) * CHARACTER}" textLength="{len(run.group()) * CHARACTER}"'
            kind_of_text = f' class="{kind}"' if kind else ""
            spans.append(f"<tspan {place}{kind_of_text}>{escape(run.group())}</tspan>")
        column += len(text)
    return f'  <text y="{BAR + MARGIN + (number + 1) * LINE - 5}">{"".join(spans)}</text>' if spans else None


def picture(sitting):
    lines = []
    for command, output in sitting:
        lines.append([(PROMPT, "prompt"), (command, "typed")])
        lines += [list(pieces(line)) for line in output]
    lines.append([(PROMPT, "prompt")])
    width, height = COLUMNS * CHARACTER + 2 * MARGIN, len(lines) * LINE + BAR + 2 * MARGIN
    drawn = [
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" width="{width}" height="{height}"'
        ' role="img" aria-labelledby="title">',
        '  <title id="title">A sitting with sysmgrctl, beside a virtual board</title>',
        f"  <style>{STYLE}  </style>",
        f'  <rect x="0.5" y="0.5" width="{width - 1}" height="{height - 1}" rx="8" class="ground"/>',
        f'  <path d="M1 {BAR} V9 a8 8 0 0 1 8 -8 H{width - 9} a8 8 0 0 1 8 8 V{BAR} Z" class="bar"/>',
    ]
    drawn += filter(None, (drawn_line(number, texts) for number, texts in enumerate(lines)))
    return "\n".join([*drawn, "</svg>", ""])


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("--path", action="append", default=[])
    arguments.add_argument("--compare")
    options = arguments.parse_args()
    os.environ["PATH"] = ":".join([*options.path, os.environ["PATH"]])
    made = picture(play())
    if not options.compare:
        print(made, end="")
        return
    with open(options.compare, encoding="utf-8") as file:
        kept = file.read()
    difference = difflib.unified_diff(kept.splitlines(), made.splitlines(), options.compare, "here", lineterm="", n=0)
    if kept != made:
        sys.exit("\n".join(difference) + f"\nThe picture is another one now: {sys.argv[0]} >{options.compare}")


if __name__ == "__main__":
    main()
