#!/usr/bin/env python3
"""A process of another user takes the name of the guardian of changes that undo themselves, and says yes to everything.

`sysmgrctl` believes it neither a confirmation nor a change of its own. Needs root, which becomes two other users.
"""

import subprocess
import sys

import run_transcript
import sessions

LIAR = """
import socket
listener = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
listener.bind("\\0sysmgrctl-confirm tcp://127.0.0.1:5556")
listener.listen()
print("listening", flush=True)
while True:
    try:
        client = listener.accept()[0]
        client.recv(4096)
        client.send(b"done")
    except OSError:  # a client that does not wait for the answer
        pass
"""


def as_user(number, *words):
    return ["setpriv", f"--reuid={number}", "--clear-groups", "--", *words]


def meet_a_liar(board):
    if subprocess.run(as_user(65533, "sysmgrctl", "--version"), check=False, capture_output=True).returncode != 0:
        print("SKIPPED: this user cannot become another one that may run sysmgrctl")
        return run_transcript.SKIPPED
    with subprocess.Popen(as_user(65534, "python3", "-c", LIAR), stdout=subprocess.PIPE) as liar:
        liar.stdout.readline()
        try:
            for words in ("confirm",), ("set", "--confirm", "60", "rtsp/tcp-port=5004"):
                done = subprocess.run(as_user(65533, "sysmgrctl", *words), env=board.environment, check=False,
                                      capture_output=True, text=True, timeout=run_transcript.SOON)
                if done.returncode != 1 or "a process of another user has the name of the guardian" not in done.stderr:
                    return f"{words} ended with {done.returncode}: {done.stdout}{done.stderr}"
        finally:
            liar.kill()
    port = board.ctl("get", "-g", "stored", "rtsp/tcp-port")
    return None if port == "8554\n" else f"the port is {port}"


if __name__ == "__main__":
    sys.exit(sessions.play(meet_a_liar))
