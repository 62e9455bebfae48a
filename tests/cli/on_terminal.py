#!/usr/bin/env python3
"""Runs a command on a terminal of its own and answers its first question: on_terminal.py ANSWER COMMAND...

What the command writes there comes out with its escape sequences shown; its exit status is passed on.
"""

import os
import pty
import sys
import termios

answer, command = sys.argv[1], sys.argv[2:]
child, terminal = pty.fork()
if child == 0:
    os.execvp(command[0], command)

settings = termios.tcgetattr(terminal)
settings[3] &= ~termios.ECHO
termios.tcsetattr(terminal, termios.TCSANOW, settings)

seen = b""
while True:
    try:
        seen += os.read(terminal, 4096)
    except OSError:  # so Linux reports the end of a terminal
        break
    if answer and seen.endswith(b"] "):
        os.write(terminal, answer.encode() + b"\n")
        answer = ""
print(seen.decode().replace("\r\n", "\n").replace("\033", "ESC"), end="")
sys.exit(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))
