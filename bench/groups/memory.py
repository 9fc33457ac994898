"""The peak of the memory, by the number of entries and by the size of a file."""

from figures import Missing, number, table
from group import Goal, Group
from schedule import Choice, Step

from .configuring import SHAPES, sizes

FEW, MANY = 100, 100_000
FILE_SIZES = (1, 1_000, 100_000)  # KB


def per_entry(figures, shape, subject):
    measured = sizes(figures, shape)
    if not measured or measured[0] != FEW or measured[-1] < 10_000:
        raise Missing("too few entries")
    return figures.bytes_per_entry(f"configure {shape}", subject, FEW, measured[-1])


def small_enough(shape):
    def result(figures):
        value = per_entry(figures, shape, "Finaset")
        return f"{value:.0f} bytes", value <= 200
    return result


def flat_enough(figures):
    peaks = [figures.peak("file size", "Finaset", kilobytes) for kilobytes in FILE_SIZES]
    return f"{max(peaks) - min(peaks):+.0f} KB", max(peaks) - min(peaks) <= 0.02 * min(peaks)


class Memory(Group):
    title = "Memory"

    def steps(self, calibration):
        # A search takes next to no time compared with making its entries.
        search = [Step("search", (Choice(entries, entries * calibration.make,
                                         5 * calibration.start),))
                  for entries in (FEW, MANY)]
        copying = [Step("file size", (Choice(kilobytes, 0, 5 * calibration.configure("flat", 0)),))
                   for kilobytes in FILE_SIZES]
        return search + copying

    def measure(self, planned, session):
        if planned.step.name == "search":
            session.bring_entries("flat", planned.choice.entries)
        session.measure(planned)

    def goals(self, figures):
        return [*(Goal(f"memory for each entry, {shape}", "200 bytes", small_enough(shape))
                  for shape in SHAPES),
                Goal("memory by the size of a file, 1 KB to 100 MB", "flat", flat_enough)]

    def text(self, figures, plot):
        empty = figures.peak("usage", "empty", 0)
        rows = []
        for shape in SHAPES:
            group = f"configure {shape}"
            rows += [(shape, f"{entries:,}",
                      *(number(figures.peak(group, subject, entries) - empty)
                        for subject in ("Finaset", "bare"))) for entries in sizes(figures, shape)]
            rows.append((shape, "each, bytes",
                         *(f"{per_entry(figures, shape, subject):.0f}"
                           for subject in ("Finaset", "bare"))))
        search = figures.bytes_per_entry("search", "search", FEW, MANY)
        flat = per_entry(figures, "flat", "Finaset")
        files = [(f"{kilobytes:,}", number(figures.peak("file size", "Finaset", kilobytes)))
                 for kilobytes in FILE_SIZES]
        image = plot("benchmark-memory", "The memory by the number of entries",
                     {"memory.dat": self._data(figures, empty)})
        return f"""\
The peak working set, sampled while the program runs, over that of the empty program
({number(empty)} KB). The libraries take most of it. Wine reads a whole directory when a search starts:
a program that does nothing else takes {search:.0f} bytes for each entry of the flat directory. That
leaves {flat - search:.0f} for the program: it collects the names, 15 characters each here, before it sets
the first access control list: 80 for each string, the rest for the growth of their vector. One block for
all names would meet the goal, but be harder to read.

{table(("", "entries", "Finaset, KB", "bare, KB"), rows)}
{image}

By the size of a shipped file that is copied:

{table(("file, KB", "peak, KB"), files)}"""

    @staticmethod
    def _data(figures, empty):
        lines = []
        for entries in sorted({*sizes(figures, "flat"), *sizes(figures, "tree")}):
            cells = [entries]
            for shape in SHAPES:
                for subject in ("Finaset", "bare"):
                    cells.append((figures.peak(f"configure {shape}", subject, entries) - empty) / 1024
                                 if entries in sizes(figures, shape) else "?")
            lines.append(" ".join(str(cell) for cell in cells))
        return lines
