"""The platform calls of each piece of the work."""

from figures import Missing, table
from group import Group
from schedule import Choice, Step


class Calls(Group):
    title = "Platform calls"

    def steps(self, calibration):
        return [Step("calls", (Choice(0, calibration.set_up + 100 * calibration.start),))]

    def measure(self, planned, session):
        lines = session.run_on_machine("sweep_tests.exe", GTEST_FILTER="*PlatformCalls*")
        for line in lines:
            if line.startswith("platform calls |"):
                _, piece, made, asked, functions = (cell.strip() for cell in line.split("|"))
                session.figures.add("calls", piece, 0, "made", made)
                session.figures.add("calls", piece, 0, "asked", asked)
                session.figures.add("calls", piece, 0, "functions", functions)

    def text(self, figures, plot):
        rows = [(piece, *(figures.texts("calls", piece, 0, measure)[0]
                          for measure in ("made", "asked", "functions")))
                for piece, _ in figures.having("calls", "functions")]
        if not rows:
            raise Missing("no calls")
        return f"""\
Counted at the imports: the calls that can fail. A test holds the program to them and, for whole runs of
each option, to the bare program's calls in the same order. Separate steps repeat some calls: links,
directories and access control lists are three walks of a directory, and each function expands its path
again.

{table(("for each", "calls", "asked for", ""), rows)}"""
