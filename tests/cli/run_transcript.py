#!/usr/bin/env python3
"""Runs a session transcript and compares every command's output and exit status with what it says.

A transcript is a text file; it runs in a directory and a network namespace of its own:

    # a comment
    $ sysmgrctl get stored rtsp/tcp-port
    > 8554
    ! a line of standard error
    [4]                                     the exit status, where it is not 0
    % start NAME COMMAND                    begins a command in the background
    % await NAME TEXT                       waits until its output holds the text
    % signal NAME STOP                      sends it a signal
    % finish NAME                           waits for its end; output and status follow as for a command

What a command with --json writes has to be JSON objects, one a line.

Exit status: 0 as expected, 1 not so, 77 when this system allows no network namespace.
"""

import argparse
import difflib
import fcntl
import json
import os
import re
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time

SKIPPED = 77
SOON = 60  # s; what is waited for comes much sooner, or the test fails
INSIDE = "ZEL_TRANSCRIPT_INSIDE"


def enter_private_network():
    """Starts this program again in a network namespace; returns in there, with the loopback interface up."""
    if INSIDE not in os.environ:
        for options in (["-n"], ["-rn"]):
            possible = subprocess.run(["unshare", *options, "true"], stderr=subprocess.DEVNULL, check=False)
            if possible.returncode == 0:
                os.environ[INSIDE] = "1"
                os.execvp("unshare", ["unshare", *options, sys.executable, *sys.argv])
        print("SKIPPED: this system allows no network namespace")
        sys.exit(SKIPPED)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
        set_flags, up_and_running = 0x8914, 0x41
        fcntl.ioctl(any_socket, set_flags, struct.pack("16sH14x", b"lo", up_and_running))


class Session:
    """Executes the commands of one transcript."""

    def __init__(self, directory, environment):
        self.directory = directory
        self.environment = environment
        self.background = {}
        self.commands = {}

    def path(self, name, stream):
        return os.path.join(self.directory, f".{name}.{stream}")

    def begin(self, name, command):
        with open(self.path(name, "out"), "wb") as out, open(self.path(name, "err"), "wb") as err:
            return subprocess.Popen(["bash", "-c", "exec " + command if name != "command" else command],
                                    cwd=self.directory, env=self.environment, stdin=subprocess.DEVNULL,
                                    stdout=out, stderr=err, start_new_session=True)

    def text(self, name, stream):
        with open(self.path(name, stream), encoding="utf-8", errors="backslashreplace") as file:
            return file.read()

    def result(self, name, process):
        status = process.wait(SOON)
        lines = []
        for mark, stream in ((">", "out"), ("!", "err")):
            lines += [f"{mark} {line}" if line else mark for line in self.text(name, stream).split("\n")]
            if lines.pop() != mark:
                sys.exit(f"the output of {name} does not end with a line's end")
        if status < 0:
            lines.append(f"[{signal.Signals(-status).name}]")
        elif status > 0:
            lines.append(f"[{status}]")
        return lines

    def check_json(self, name, command):
        """Every line of a command with --json is an object for the strictest of readers."""
        other_outputs = ("|", "--complete", "on_terminal.py")
        if " --json" not in command or any(mark in command for mark in other_outputs):
            return

        def refuse(constant):
            raise ValueError(constant)

        for line in self.text(name, "out").splitlines():
            if not isinstance(json.loads(line, parse_constant=refuse), dict):
                sys.exit(f"this is not a JSON object: {line}")

    def run(self, command):
        lines = self.result("command", self.begin("command", command))
        self.check_json("command", command)
        return lines

    def start(self, name, command):
        self.background[name] = self.begin(name, command)
        self.commands[name] = command
        return []

    def wait_for(self, name, wanted):
        end = time.monotonic() + SOON
        while wanted not in self.text(name, "out") + self.text(name, "err"):
            if time.monotonic() > end or self.background[name].poll() is not None:
                return [f"% '{wanted}' did not come; there was:"] + self.result(name, self.background[name])
            time.sleep(0.005)
        return []

    def signal(self, name, which):
        os.kill(self.background[name].pid, getattr(signal, "SIG" + which))
        return []

    def finish(self, name):
        lines = self.result(name, self.background.pop(name))
        self.check_json(name, self.commands[name])
        return lines

    def end(self):
        for process in self.background.values():
            process.send_signal(signal.SIGKILL)
            process.wait(SOON)


def environment_with(paths):
    """The environment of a session: a plain locale, and programs from these folders first."""
    environment = {key: value for key, value in os.environ.items() if not key.startswith(("LC_", "NO_COLOR"))}
    environment.update(LC_ALL="C.UTF-8", PATH=os.pathsep.join([*paths, os.environ["PATH"]]))
    return environment


def play(lines, session):
    """Returns the transcript as it should be by what really happens."""
    actual = []
    for line in lines:
        directive = re.match(r"% (start|await|signal|finish) (\S+) ?(.*)", line)
        if line.startswith("$ "):
            actual += [line] + session.run(line[2:])
        elif directive:
            action, name, rest = directive.groups()
            call = {"start": session.start, "await": session.wait_for, "signal": session.signal}.get(action)
            actual += [line] + (call(name, rest) if call else session.finish(name))
        elif line == "" or line.startswith("#"):
            actual.append(line)
        elif not line.startswith((">", "!", "[")):
            sys.exit(f"a transcript does not have such lines: {line}")
    return actual


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--update", action="store_true", help="write what happened into the transcript")
    parser.add_argument("--path", action="append", default=[], help="where programs are looked for first")
    parser.add_argument("transcript")
    arguments = parser.parse_args()
    arguments.transcript = os.path.abspath(arguments.transcript)
    enter_private_network()

    with open(arguments.transcript, encoding="utf-8") as file:
        expected = file.read().splitlines()
    with tempfile.TemporaryDirectory() as directory:
        session = Session(directory, {**environment_with(arguments.path), "XDG_RUNTIME_DIR": directory})
        try:
            actual = play(expected, session)
        finally:
            session.end()

    if actual == expected:
        return 0
    if arguments.update:
        with open(arguments.transcript, "w", encoding="utf-8") as file:
            file.write("\n".join(actual) + "\n")
        return 0
    print("\n".join(difflib.unified_diff(expected, actual, "expected", "actual", lineterm="")))
    return 1


if __name__ == "__main__":
    sys.exit(main())
