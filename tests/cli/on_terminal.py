#!/usr/bin/env python3
"""Runs a command on a terminal of its own and answers its first question:
on_terminal.py [--size COLUMNSxROWS] [--after SECONDS] ANSWER COMMAND...

What the command writes there comes out with its escape sequences shown; its exit status is passed on.
"""

import fcntl
import os
import pty
import struct
import sys
import termios
import time

words = sys.argv[1:]
size = (0, 0)  # not known
pause = 0
while words[0].startswith("--"):
    if words[0] == "--size":
        size = tuple(int(number) for number in words[1].split("x"))
    else:
        pause = float(words[1])
    words = words[2:]
answer, command = words[0], words[1:]
child, terminal = pty.fork()
if child == 0:
    fcntl.ioctl(0, termios.TIOCSWINSZ, struct.pack("HHHH", size[1], size[0], 0, 0))
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
        time.sleep(pause)
        os.write(terminal, answer.encode() + b"\n")
        answer = ""
text = seen.decode().replace("\r\n", "\n").replace("\033", "ESC")
print(text, end="" if text.endswith("\n") else "\n")
sys.exit(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]))
