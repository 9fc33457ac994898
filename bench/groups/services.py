"""Stopping and starting services."""

from figures import number, spread, table
from group import Group
from schedule import Choice, Step


class Services(Group):
    title = "Services"

    def steps(self, calibration):
        # The program and the bare one wait 500 ms for each of twelve services; stopped services are
        # started again for the next run.
        turn = 2 * (12 * 0.5 + 0.4 + 24 * calibration.start)
        return [Step("services", (Choice(0, turn),), least=1, most=2)]

    def measure(self, planned, session):
        session.measure(planned)

    def text(self, figures, plot):
        rows = []
        for group, entries, what in (("stop", 8, "stopping eight services"),
                                     ("start", 4, "starting four")):
            rows.append((what, number(figures.median(group, "Finaset", entries)),
                         number(figures.median(group, "bare", entries)),
                         spread(figures.ratio(group, "Finaset", "bare", entries))))
        return f"""\
Stand-ins that take 200 ms to stop and 100 ms to start. The program polls a service every 500 ms on
purpose, so each costs one such wait, in the bare program too.

{table(("", "Finaset, ms", "bare, ms", "ratio"), rows)}"""
