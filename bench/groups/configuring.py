"""/CONFIGURE, by the number of entries of a data directory."""

from entries import DEPTH
from figures import Missing, number, spread, table
from group import Goal, Group
from schedule import Choice, Step

SHAPES = ("flat", "tree")
SIZES = (100, 1_000, 10_000)
LARGEST = (100_000, 50_000, 20_000)  # the first for which there is time
GOAL_SIZES = (10_000, 100_000)


def sizes(figures, shape):
    return figures.entries(f"configure {shape}", "Finaset", "bare")


def exponent(figures, shape, subject="Finaset"):
    measured = sizes(figures, shape)
    if 1_000 not in measured or measured[-1] < 10_000:
        raise Missing("too few entries")
    return figures.exponent(f"configure {shape}", subject, 1_000, measured[-1])


def growth(shape):
    def result(figures):
        value = exponent(figures, shape)
        return f"{value:.3f}", value <= 1.05
    return result


def over_bare(shape, entries):
    def result(figures):
        ratio = figures.ratio(f"configure {shape}", "Finaset", "bare", entries)[0]
        return f"{ratio:.3f}", ratio <= 1.05
    return result


class Configuring(Group):
    title = "Configuring, by the number of entries"

    def steps(self, calibration):
        def choice(shape, entries):
            turn = calibration.configure(shape, entries)
            uncounted = turn if entries <= 10_000 else 0
            return Choice(entries, turn, uncounted + entries * calibration.make)

        steps = []
        for shape in SHAPES:
            steps += [Step(f"configure {shape}", (choice(shape, entries),), least=3, most=9)
                      for entries in SIZES]
        for shape in SHAPES:
            steps.append(Step(f"configure {shape}",
                              tuple(choice(shape, entries) for entries in LARGEST), least=3, most=5))
        return steps

    def measure(self, planned, session):
        shape = planned.step.name.split()[1]
        session.bring_entries(shape, planned.choice.entries)
        session.measure(planned)

    def goals(self, figures):
        goals = []
        for shape in SHAPES:
            entries = sorted({*GOAL_SIZES, *(each for each in sizes(figures, shape)
                                             if each >= min(GOAL_SIZES))})
            goals += [Goal(f"`/CONFIGURE`, {each:,} entries, {shape}, over the bare program", "1.05",
                           over_bare(shape, each)) for each in entries]
        for shape in SHAPES:
            largest = max(sizes(figures, shape), default=0)
            largest = largest if largest >= min(GOAL_SIZES) else max(GOAL_SIZES)
            goals.append(Goal(f"`/CONFIGURE`, growth from 1,000 to {largest:,} entries, {shape}: exponent",
                              "1.05", growth(shape)))
        return goals

    def text(self, figures, plot):
        rows = []
        for shape in SHAPES:
            group = f"configure {shape}"
            for entries in sizes(figures, shape):
                rows.append((shape, f"{entries:,}", figures.runs(group, "Finaset", entries),
                             number(figures.median(group, "Finaset", entries)),
                             number(figures.median(group, "bare", entries)),
                             spread(figures.ratio(group, "Finaset", "bare", entries)),
                             f"{figures.unrest(group, 'bare', entries):.3f}"))
        if not rows:
            raise Missing("no entries")
        exponents = [(shape, *(f"{exponent(figures, shape, subject):.3f}"
                               for subject in ("Finaset", "bare")))
                     for shape in SHAPES if self._grows(figures, shape)]
        image = plot("benchmark-configure", "The time by the number of entries",
                     {"entries.dat": self._data(figures)})
        return f"""\
The image cache has this many entries: files in one directory, or in a tree of depth {DEPTH} of which a
tenth is directories. Runs in pairs, as many and with as many entries as time allowed; medians, and the
ratio within a pair with its lowest and highest. The last column is the bare program's slowest run over
its fastest: the machine's own noise.

{table(("", "entries", "pairs", "Finaset, ms", "bare, ms", "ratio", "noise"), rows)}
{image}

The exponent of the growth from 1,000 entries to the largest number (1 is linear):

{table(("", "Finaset", "bare"), exponents)}"""

    @staticmethod
    def _grows(figures, shape):
        try:
            return exponent(figures, shape)
        except Missing:
            return None

    @staticmethod
    def _data(figures):
        lines = []
        for entries in sorted({*sizes(figures, "flat"), *sizes(figures, "tree")}):
            cells = [entries]
            for shape in SHAPES:
                if entries in sizes(figures, shape):
                    group = f"configure {shape}"
                    cells += [figures.median(group, "Finaset", entries),
                              figures.median(group, "bare", entries),
                              figures.ratio(group, "Finaset", "bare", entries)[0]]
                else:
                    cells += ["?"] * 3
            lines.append(" ".join(str(cell) for cell in cells))
        return lines
