#!/usr/bin/env python3
"""Compares the programs in a page with the files that they are: check_programs.py PAGE ROOT

A program, or another file that the reader shall have, is a block of the page behind a line <!-- PATH --> that names it."""

import pathlib
import re
import sys

page, root = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
programs = re.findall(r"<!-- (\S+) -->\n```\w+\n(.*?)```\n", page.read_text(), re.DOTALL)
if not programs:
    sys.exit(f"{page.name} shows no program")
wrong = [path for path, text in programs if (root / path).read_text() != text]
if wrong:
    sys.exit(f"{page.name} does not show what is in " + ", ".join(wrong))
print(f"{page.name} shows {len(programs)} programs as they are")
