#!/usr/bin/env python3
"""Checks that what the pages name exists: check_pages.py ROOT

A path is named where a page, or a picture, has a folder of this tree, a slash and more: scripts/check, `types/*.h`. A relative
link names a file beside the page, and may name a heading in it. A picture has a text for those who cannot see it, in one
line, or else Doxygen does not show the picture. The tables of statuses have those of common/status.h."""

import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1]).resolve()
pages = sorted([*root.glob("*.md"), *root.glob("docs/*.md"), *root.glob("docs/*.dox"), *root.glob("docs/*.svg"), *root.glob("docs/man/*")])
folders = "|".join(re.escape(entry.name) for entry in root.iterdir() if entry.is_dir() and entry.name != "build")
named_path = re.compile(rf"(?<![\w./<>-])(?:{folders})/[\w./*-]*")
link = re.compile(r"\]\((?!\w+:)([^)#\s]*)(?:#([^)\s]*))?\)")


def text_of(page):
    return page.read_text().replace("\\-", "-")  # a manual page's spelling of a dash


def anchors(page):
    """The names under which a page's headings and its own anchors can be linked to."""
    headings = re.findall(r"^#+ (.*)$", text_of(page), re.MULTILINE)
    own = set(re.findall(r'<a id="([^"]+)"></a>', text_of(page)))
    return own | {re.sub(r"[^\w -]", "", heading).lower().replace(" ", "-") for heading in headings}


def missing_in(page):
    for path in named_path.findall(text_of(page)):
        path = path.rstrip("./")
        if not any(root.glob(path)):
            yield f"{path} does not exist"
    for path, anchor in link.findall(text_of(page)):
        target = page.parent / path if path else page
        if not target.exists():
            yield f"the link to {path} leads nowhere"
        elif anchor and anchor not in anchors(target):
            yield f"{target.name} has no heading #{anchor}"
    for picture in re.findall(r"!\[(?!`).*", text_of(page)):
        if not re.match(r"!\[[^\]]+\]\(\S+\)", picture):
            yield f"a picture has no text, or not in one line: {picture}"


def wrong_statuses(page):
    declared = set(re.findall(r" = (-\d+);", (root / "common/status.h").read_text()))
    listed = set(re.findall(r"^(?:\| )?(-\d+) ", text_of(page), re.MULTILINE))
    for status in sorted(declared ^ listed):
        yield f"{status} is only in {'common/status.h' if status in declared else page.name}"


wrong = [(page, what) for page in pages for what in missing_in(page)]
wrong += [(page, what) for page in (root / "docs/api-rules.md", root / "docs/man/zelsysmgrapi.7")
          for what in wrong_statuses(page)]
if wrong:
    sys.exit("\n".join(f"{page.relative_to(root)}: {what}" for page, what in wrong))
print(f"{len(pages)} pages name only what exists")
