"""A run that does nothing."""

from figures import table
from group import Goal, Group
from schedule import Choice, Step

NAMES = {
    "empty": "the empty program",
    "libraries": "the empty program, with the libraries that the program has",
    "bare": "the bare program: these, and the calls",
    "Finaset": "`Finaset.exe /?`",
}


def over(other):
    def result(figures):
        ratio = figures.ratio("usage", "Finaset", other, 0)[0]
        return f"{ratio:.2f}", ratio <= 1.15
    return result


class Starting(Group):
    title = "Starting"

    def steps(self, calibration):
        turn = len(NAMES) * calibration.start
        return [Step("usage", (Choice(0, turn, fixed=6 * turn),), least=10, most=40)]

    def measure(self, planned, session):
        session.measure(planned)

    def goals(self, figures):
        return [Goal("`/?`, over the empty program", "1.15", over("empty")),
                Goal("`/?`, over the bare program", "1.15", over("bare"))]

    def text(self, figures, plot):
        times = {subject: figures.median("usage", subject, 0) for subject in NAMES}
        rows = [(name, f"{times[subject]:.2f}",
                 f"{figures.ratio('usage', subject, 'empty', 0)[0]:.2f}")
                for subject, name in NAMES.items()]
        image = plot("benchmark-start", "The time of a run that does nothing",
                     {"start.dat": [f'"{subject}" {time}' for subject, time in times.items()]})
        return f"""\
{figures.runs('usage', 'Finaset', 0)} runs of each, in turns; medians of the times, and of the ratios of paired runs.
The fastest and the slowest run of the empty program are a factor of {figures.unrest('usage', 'empty', 0):.1f} apart: the differences
between the last three are the machine's noise.

{table(("", "ms", "over the empty program"), rows)}
{image}

The empty program does not load ole32, and with it combase, rpcrt4, user32 and gdi32. Every run needs
them: it initialises COM before anything else, whatever its option.
"""
