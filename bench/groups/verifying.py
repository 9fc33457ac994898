"""finaset-verify compared with the /CONFIGURE that it verifies."""

from figures import Missing, number, spread, table
from group import Goal, Group
from schedule import Choice, Step

from .configuring import LARGEST

NAME = "verify configure flat"
ENTRIES = 10_000


def sizes(figures):
    return figures.entries(NAME, "verify", "Finaset")


def not_slower(entries):
    def result(figures):
        ratio = figures.ratio(NAME, "verify", "Finaset", entries)[0]
        return f"{ratio:.2f}", ratio <= 1
    return result


class Verifying(Group):
    title = "Verifying"

    def steps(self, calibration):
        def choice(entries):
            turn = calibration.configure("flat", entries)
            return Choice(entries, turn, turn + entries * calibration.make)

        return [Step(NAME, (choice(ENTRIES),), least=1, most=5),
                Step(NAME, tuple(choice(entries) for entries in LARGEST), least=1, most=3)]

    def measure(self, planned, session):
        session.bring_entries("flat", planned.choice.entries)
        session.measure(planned)

    def goals(self, figures):
        measured = {ENTRIES, max(sizes(figures), default=LARGEST[0])}
        return [Goal(f"`finaset-verify /CONFIGURE`, {entries:,} entries, over `Finaset.exe /CONFIGURE`",
                     "1", not_slower(entries)) for entries in sorted(measured)]

    def text(self, figures, plot):
        rows = [(f"{entries:,}", figures.runs(NAME, "verify", entries),
                 number(figures.median(NAME, "verify", entries)),
                 number(figures.median(NAME, "Finaset", entries)),
                 spread(figures.ratio(NAME, "verify", "Finaset", entries)),
                 number(figures.peak(NAME, "verify", entries)))
                for entries in sizes(figures)]
        if not rows:
            raise Missing("no entries")
        return f"""\
The same image cache, in one directory, on a configured machine: `finaset-verify.exe /CONFIGURE` and
`Finaset.exe /CONFIGURE` in turns. On Wine every entry has an explicit list, which must be reported.

{table(("entries", "pairs", "verify, ms", "Finaset, ms", "ratio", "verify, peak KB"), rows)}"""
