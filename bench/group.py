"""A group of benchmarks: it knows what it measures, what that costs, and what to say about it."""

from figures import Missing


class Group:
    """A section of the page. To add one, write a class like this in a file of groups/, an instance of it
    in GROUPS there, and, if bench.exe has to measure something, that in bench.cpp."""

    title = ""

    def steps(self, calibration):
        """What it measures, as steps of the schedule, with their cost on a machine like this."""
        return []

    def measure(self, planned, session):
        """Measures a step with the given entries and turns, and stores the figures with
        session.figures.add as they come. Any exception ends the group; its figures so far are kept."""

    def goals(self, figures):
        """Its goals, in the order of the page."""
        return []

    def text(self, figures, plot):
        """Its section, without the heading. `plot` takes the name of a plot, its title, and its data: the
        lines of each file that NAME.gnuplot reads; it draws the plot and returns the line that shows
        it. Missing figures may raise Missing: the page then says that the section was not measured."""
        raise NotImplementedError


class Goal:
    """A goal. `result` takes the figures and returns the result as text, and whether the goal is
    reached."""

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
