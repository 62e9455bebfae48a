"""Compares what the tests do not reach with what tests/unreached.txt explains.

    unreached.py GCOVR.json EXPLANATIONS

Prints what is not explained and what is explained without need; ends with 1 where there is any.
"""

import json
import sys


def unreached(report):
    """Yields the lines that are not reached, or not in every way, as (file, line number)."""
    for file in report["files"]:
        for line in file["lines"]:
            if line.get("gcovr/noncode"):
                continue
            ways = [branch for branch in line.get("branches", ()) if not branch.get("throw")]
            if line["count"] == 0 or any(way["count"] == 0 for way in ways):
                yield file["file"], line["line_number"]


def explanations(path):
    """The (file, piece of a line) of each row "FILE: PIECE"; what is not indented explains the rows that follow."""
    with open(path) as file:
        return [tuple(row.strip().split(": ", 1)) for row in file if row.startswith("  ")]


def explains(piece, line):
    return piece == line or (len(piece) > len("};") and piece in line)


def main(report, path):
    with open(report) as file:
        report = json.load(file)
    sources = {}
    for file in report["files"]:
        with open(file["file"]) as source:
            sources[file["file"]] = source.read().splitlines()
    known = explanations(path)
    needed = set()
    failed = False
    for name, number in unreached(report):
        line = sources[name][number - 1].strip()
        reasons = [row for row in known if row[0] == name and explains(row[1], line)]
        needed.update(reasons)
        if not reasons:
            failed = True
            print(f"{name}:{number}: neither reached in every way nor explained: {line}")
    for row in known:
        if row not in needed:
            failed = True
            print(f"{path}: reached after all: {': '.join(row)}")
    return failed


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
