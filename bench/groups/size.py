"""The size of the program's file. Its composition is not measured again: size.md comes from the
linker's map, and from builds with other options."""

import pathlib

from group import Goal, Group
from schedule import Choice, Step

LIMIT = 1_000_000
TEXT = pathlib.Path(__file__).parent.parent / "size.md"


def small_enough(figures):
    size = figures.values("size", "Finaset", 0, "bytes")[0]
    return f"{size:,.0f} bytes", size <= LIMIT


class Size(Group):
    title = "Size"

    def steps(self, calibration):
        return [Step("size", (Choice(0, 0),))]

    def measure(self, planned, session):
        size = (session.programs / "Finaset.exe").stat().st_size
        session.figures.add("size", "Finaset", 0, "bytes", size)

    def goals(self, figures):
        return [Goal("size of the program", f"{LIMIT:,} bytes", small_enough)]

    def text(self, figures, plot):
        return TEXT.read_text(encoding="utf-8").split("\n", 2)[2]
