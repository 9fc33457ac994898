"""What a group of the benchmarks is: one piece that knows what it measures, what that costs, and what
it says of it."""

from figures import Missing


class Group:
    """A section of the page. A new one is a class like this in a file of groups/, an instance of it in
    GROUPS there, and what it has bench.exe measure there, if anything, in bench.cpp."""

    title = ""

    def steps(self, calibration):
        """What it measures, as steps of the schedule, with their cost on a machine like this."""
        return []

    def measure(self, planned, session):
        """Measures a step with the entries and turns that it was given, and keeps the figures by
        session.figures.add as they come. Whatever it raises ends the group, and what it has got by then
        stands."""

    def goals(self, figures):
        """Its goals, in the order of the page."""
        return []

    def text(self, figures, plot):
        """Its section, without the heading. `plot` takes the name of a plot, its title, and its data: the
        lines of each file that NAME.gnuplot reads; it draws the plot and returns the line that shows
        it. Missing figures may raise Missing: the page then says that the section was not measured."""
        raise NotImplementedError


class Goal:
    """Something to reach. `result` takes the figures and returns what was reached, as text, and
    whether that is enough."""

    def __init__(self, what, limit, result):
        self._what = what
        self._limit = limit
        self._result = result

    def row(self, figures):
        try:
            text, reached = self._result(figures)
        except Missing:
            return self._what, self._limit, "", "not measured"
        return self._what, self._limit, text, "reached" if reached else "**missed**"
