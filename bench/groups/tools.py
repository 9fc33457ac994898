"""The same steps with the system's own tools."""

import subprocess

from figures import number, table
from group import Group
from schedule import Choice, Step

GROUPS = (("tools configure", "configure"), ("tools all", "stop, configure, start"))
SUBJECTS = {"Finaset": "Finaset.exe", "without lists": "the same, without access control lists",
            "cmd": "batch file", "NSIS": "NSIS"}
MEASURES = (("ms", 1), ("processes", 1), ("peak KB", 1 / 1024))


class Tools(Group):
    title = "Against the system's own tools"

    def steps(self, calibration):
        # The batch file and the installer start 30 processes to configure, and 95 for all; the program
        # waits for each of twelve services, twice.
        configure = 60 * calibration.start
        everything = 2 * 12 * 0.5 + 300 * calibration.start
        return [Step("tools configure", (Choice(0, configure, fixed=0.5),), least=2, most=5),
                Step("tools all", (Choice(0, everything),), least=1, most=2)]

    def measure(self, planned, session):
        session.bring(session.source / "steps.cmd")
        installer = session.work / "steps.exe"
        if not installer.exists():
            subprocess.run(["makensis", "-V2", f"-DOUTPUT={installer}", session.source / "steps.nsi"],
                           check=True)
        session.bring(installer)
        session.measure(planned)

    def text(self, figures, plot):
        rows = []
        for group, what in GROUPS:
            for subject, name in SUBJECTS.items():
                rows.append((what, name, number(figures.median(group, subject, 0)),
                             f"{figures.median(group, subject, 0, 'processes'):.0f}",
                             number(figures.peak(group, subject, 0) / 1024),
                             "yes" if min(figures.values(group, subject, 0, "same state")) else "no"))
        data = [" ".join([f'"{name}"', *(str(figures.median(group, subject, 0, measure) * scale)
                                         for group, _ in GROUPS for measure, scale in MEASURES)])
                for subject, name in (("without lists", "Finaset"), ("cmd", "batch"), ("NSIS", "NSIS"))]
        image = plot("benchmark-tools", "Time, processes and memory beside the system's tools",
                     {"tools.dat": data})
        return f"""\
The same steps in a batch file ([steps.cmd](../bench/steps.cmd)) and in a section of an NSIS installer
([steps.nsi](../bench/steps.nsi)), with net, reg, copy, ipconfig and schtasks. Memory is the total of a
run's processes at one moment, with shared pages counted in each. Each run has the same work; after each,
services, settings, files and tasks are compared with what the program leaves.

{table(("", "", "ms", "processes", "peak, MB", "same state"), rows)}
{image}

Wine's icacls does nothing, so the scripts set no access control lists on the data directories. To match,
the second line, the shipping program with that call replaced, does not either: compare with that one, as
the plot does. It is still not quite the same. Wine's net reports a service as stopped as soon as it was
asked to stop; the program polls, and waits 500 ms before it polls again, which is nearly all of its time
for stopping and starting. Wine's sc cannot change a service, so disabling is omitted. No script checks
for links. Where something is started, two of the processes and 29 MB are the companion, which keeps
running, and its Wine console.
"""
