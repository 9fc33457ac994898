#!/usr/bin/env python3
"""Rewrites the annotated logs in docs/log.md from those in tests/tools/logs.

A note keeps its place between two lines of the log. A new line there goes to the side whose line
it resembles more.
"""

import difflib
import pathlib
import re

ROOT = pathlib.Path(__file__).resolve().parents[2]
PAGE = ROOT / "docs" / "log.md"


def likeness(one, other):
    return difflib.SequenceMatcher(None, one, other, autojunk=False).ratio()


def moved(old, new, cuts):
    """Where the gaps between the old log's lines are in the new one."""
    counterpart = {}
    for tag, first, last, to, end in difflib.SequenceMatcher(None, old, new, False).get_opcodes():
        if tag == "equal" or (tag == "replace" and last - first == end - to):
            counterpart.update(zip(range(first, last), range(to, end)))
    for cut in cuts:
        before = max((counterpart[line] for line in range(cut) if line in counterpart), default=-1)
        place = before + 1
        behind = min((counterpart[line] for line in range(cut, len(old)) if line in counterpart),
                     default=len(new))
        while (place < behind and 0 < cut < len(old)
               and likeness(new[place], old[cut - 1]) >= likeness(new[place], old[cut])):
            place += 1
        yield place


def annotated(section, log):
    """The section with the lines of the log in its fences, between its notes."""
    parts = re.split(r"^```\n(.*?)^```\n", section, flags=re.M | re.S)
    notes, fences = parts[::2], parts[1::2]
    old = [[line for line in fence.splitlines() if line] for fence in fences]
    places = [number for number, line in enumerate(log) if line]
    cuts = [sum(map(len, old[:count])) for count in range(1, len(old))]
    ends = list(moved(sum(old, []), [log[place] for place in places], cuts))
    text = notes[0]
    for first, last, note in zip([0, *ends], [*ends, len(places)], notes[1:]):
        if first < last:
            lines = "\n".join(log[places[first]:places[last - 1] + 1])
            text += "```\n" + re.sub(r"\n{3,}", "\n\n", lines) + "\n```\n"
        text += note
    return text


def main():
    page = PAGE.read_text(encoding="utf-8")
    for path in sorted((ROOT / "tests" / "tools" / "logs").glob("*.log")):
        title = path.stem.replace("-", " ")
        found = re.search(rf"^## An? {title}\n.*?(?=^## )", page, flags=re.M | re.S)
        if found is None:
            continue
        log = path.read_bytes().decode("latin-1").replace("\r", "").split("\n")
        page = page[:found.start()] + annotated(found[0], log) + page[found.end():]
    PAGE.write_text(page, encoding="utf-8")


if __name__ == "__main__":
    main()
