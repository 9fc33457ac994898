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
{figures.runs('usage', 'Finaset', 0)} runs of each, in turns; medians of the times, and of the ratios of runs that stood side by side.
The fastest and the slowest run of the empty program are a factor of {figures.unrest('usage', 'empty', 0):.1f} apart: what the last
three differ by among themselves is the machine's unrest.

{table(("", "ms", "to the empty program"), rows)}
{image}

What an empty program does not have is the loading of ole32, and with it of combase, rpcrt4, user32
and gdi32: the run initialises COM before anything else, whatever its option is, so it needs them.
"""
