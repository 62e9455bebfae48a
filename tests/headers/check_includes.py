#!/usr/bin/env python3
"""Checks which header includes which: the rooms' order, and what is private to a room.

  check_includes.py SOURCE-TREE PUBLIC-HEADER...

A room is a folder at the top of the tree. Its public headers are installed; its shared/ is for every room of this tree;
the headers in a room's internal/ are for that room and for its tests.
"""

import pathlib
import re
import sys

# What a room may include besides itself. The libraries' rooms see each other's private headers, except internal/.
LIBRARIES = {
    "common": set(),
    "net": {"common"},
    "types": {"common", "net"},
    "client": {"common", "types"},
    "subscriber": {"common", "types", "client"},
    "config": {"common", "types", "client", "subscriber"},
    "view": {"common", "types", "client", "subscriber"},
}
PROGRAMS = {"simulator", "conformance", "cli", "examples", "bench", "docs"}  # see public headers and the rooms' shared/
TESTS = {"tests", "fuzz"}
# The one header that crosses the line upwards, and the rows of the documents that the page of the keys shows.
ACROSS = {("common/eth_basic_info.h", "types/sfp_info.h"), ("docs/make_keys.cpp", "conformance/document_rows.h")}

INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.MULTILINE)


def included(tree, source):
    """The files of the tree that a source includes, as paths from its top."""
    for name in INCLUDE.findall((tree / source).read_text(encoding="utf-8")):
        beside = (tree / source).parent / name
        path = beside.resolve() if beside.exists() else tree / name
        if path.exists():
            yield path.relative_to(tree).as_posix()


def fault(source, target, public):
    """Why the source may not include the target; None when it may."""
    room, other = source.split("/")[0], target.split("/")[0]
    if source in public and target not in public:
        return "a public header includes a private one"
    if room in TESTS:
        tested = source.split("/")[1]
        if "/internal/" in target and room == "tests" and other != tested:
            return "a test of another room"
        return None
    if room == other or (source, target) in ACROSS:
        return None
    if "/internal/" in target:
        return "private to its room"
    if room in PROGRAMS:
        usable = target in public or "/shared/" in target or other == "tests"
        return None if usable else "neither public nor in a shared/"
    return None if other in LIBRARIES[room] else "against the order of the rooms"


def main():
    tree = pathlib.Path(sys.argv[1]).resolve()
    public = {pathlib.Path(header).resolve().relative_to(tree).as_posix() for header in sys.argv[2:]}
    faults = []
    sources = 0
    for room in sorted([*LIBRARIES, *PROGRAMS, *TESTS]):
        for path in sorted((tree / room).rglob("*")):
            if path.suffix not in {".h", ".cpp"}:
                continue
            source = path.relative_to(tree).as_posix()
            sources += 1
            for target in included(tree, source):
                why = fault(source, target, public)
                if why:
                    faults.append(f"{source} includes {target}: {why}")
    print("\n".join(faults) or f"{sources} files include what they may")
    return 1 if faults or sources == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
