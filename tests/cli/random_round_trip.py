#!/usr/bin/env python3
"""A board is changed at random, exported, and imported into a fresh board: both give the same documents.

ZEL_CHANGES says how many changes there are.
"""

import json
import os
import random
import sys

import sessions

LETTERS = "aZ09 ,=#\"\\'/_-.äß€日𝄞\t"


def text():
    return "".join(random.choice(LETTERS) for _ in range(random.randrange(12)))


def address(first):
    return ".".join(str(number) for number in (first, *(random.randrange(256) for _ in range(3))))


def mask():
    return random.choice([f"/{random.randrange(1, 33)}", "/255.0.255.0"])


def random_setting(keys):
    """KEY=VALUE for `set`."""
    key = random.choice(keys)
    if "values" in key and key["type"] != "interface|all":
        value = random.choice(key["values"])
    elif ".." in key["type"]:
        least, most = (int(number) for number in key["type"].split(".."))
        value = random.choice([least, most, random.randint(least, most)])
    else:
        value = text()
    return f"{key['key']}={value}"


def change(board, keys):
    kind = random.randrange(10)
    name = "eth" + random.choice("0123456789 ,#")
    multicast = address(random.randrange(225, 239))
    if kind < 6:
        settings = [random_setting(keys) for _ in range(random.randint(1, 4))]
        unique = {setting.split("=")[0]: setting for setting in settings}
        board.ctl("set", "--", *unique.values())
    elif kind == 6:
        board.ctl("identify", random.choice(["on", "off"]))
    elif kind == 7:
        where = random.choice([["--dhcp"], ["--address", address(10) + mask(), "--gateway", address(10)],
                               ["--address", address(172) + mask()]])
        board.ctl("eth", "add", name, *where)
    elif kind == 8:
        board.ctl("eth", "remove", name, check=False)  # it may not be there
    else:
        board.ctl("whitelist", "add", multicast + f"/{random.randrange(4, 33)}",
                  *random.choice([[], ["--disabled"]]))


def documents(board):
    stored = json.loads(board.ctl("get", "stored", "--json"))
    stored.pop("serial-number")  # it cannot be set
    return json.dumps(stored) + board.ctl("get", "whitelist", "--json")


def round_trip(board):
    keys = json.loads(board.ctl("set", "--list", "--json"))["keys"]
    keys = [key for key in keys if not key["key"].startswith(("ethipv4/", "cfg/identify"))]
    for _ in range(int(os.environ.get("ZEL_CHANGES", "300"))):
        change(board, keys)
    before = documents(board)
    board.ctl("export", "board.conf")
    board.replace_board()
    if documents(board) == before:
        return "nothing was changed"
    board.ctl("import", "board.conf")
    after = documents(board)
    if after != before:
        return f"the documents differ:\n{before}\n{after}"
    board.ctl("diff", "board.conf")
    return None


if __name__ == "__main__":
    sys.exit(sessions.play(round_trip))
