"""The figures, and how they are shown."""

import collections
import csv
import math
import statistics


class Missing(Exception):
    """Something that a page shows was not measured."""


class Figures:
    """Figures by group, subject, number of entries and measure, written to a file as soon as they are
    known: lines of "group,subject,entries,measure,value"."""

    def __init__(self, path):
        self._path = path
        self._all = collections.defaultdict(list)
        if path.exists():
            with open(path, encoding="utf-8", newline="") as lines:
                for group, subject, entries, measure, value in csv.reader(lines):
                    self._all[group, subject, int(entries), measure].append(value)

    def add(self, group, subject, entries, measure, value):
        self._all[group, subject, entries, measure].append(value)
        with open(self._path, "a", encoding="utf-8", newline="") as lines:
            csv.writer(lines).writerow((group, subject, entries, measure, value))

    def texts(self, group, subject, entries, measure):
        values = self._all.get((group, subject, entries, measure))
        if not values:
            raise Missing(f"{group}, {subject}: no {measure}")
        return values

    def values(self, group, subject, entries, measure="ms"):
        return [float(value) for value in self.texts(group, subject, entries, measure)]

    def having(self, group, measure):
        """The subjects and numbers of entries that have such a figure, in order."""
        return [key[1:3] for key in self._all if key[0] == group and key[3] == measure]

    def entries(self, group, *subjects):
        """The numbers of entries that all of the subjects were timed with."""
        timed = [{key[2] for key in self._all if key[0] == group and key[1] == subject
                  and key[3] == "ms"} for subject in subjects]
        return sorted(set.intersection(*timed))

    def median(self, group, subject, entries, measure="ms"):
        return statistics.median(self.values(group, subject, entries, measure))

    def peak(self, group, subject, entries):
        """Of the memory, in KB. Each is a sample: maybe too low, but never too high."""
        return max(self.values(group, subject, entries, "peak KB"))

    def runs(self, group, subject, entries):
        return len(self.values(group, subject, entries))

    def ratio(self, group, subject, other, entries):
        """The median of the ratios of paired runs, with the lowest and the highest."""
        ratios = [mine / its for mine, its in zip(self.values(group, subject, entries),
                                                  self.values(group, other, entries))]
        return statistics.median(ratios), min(ratios), max(ratios)

    def unrest(self, group, subject, entries):
        """How much the runs of one program differ: the noise in a ratio."""
        times = self.values(group, subject, entries)
        return max(times) / min(times)

    def exponent(self, group, subject, few, many):
        """Of the growth from few entries to many."""
        return (math.log(self.median(group, subject, many) / self.median(group, subject, few))
                / math.log(many / few))

    def bytes_per_entry(self, group, subject, few, many):
        return ((self.peak(group, subject, many) - self.peak(group, subject, few)) * 1024
                / (many - few))


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    lines += ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows]
    return "\n".join(lines) + "\n"


def label(step, entries):
    """The name of a step with a number of entries."""
    return f"{step} {entries:,}" if entries else step


def spread(ratio):
    return f"{ratio[0]:.3f} ({ratio[1]:.3f} to {ratio[2]:.3f})"


def number(value):
    return f"{value:,.0f}" if value >= 1000 else f"{value:,.1f}"
