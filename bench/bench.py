#!/usr/bin/env python3
"""Runs the benchmarks on a machine of their own, and writes what they say.

    bench.py [--minutes N | --again] PROGRAMS RESULTS DOCUMENTATION

PROGRAMS is the directory of the built programs. RESULTS is the file to which the figures are written as
they come; with --again, its figures are shown, and nothing is measured. DOCUMENTATION gets benchmarks.md
and the plots. Nothing is asserted: the page shows the result beside each goal.

A short measurement determines how fast the machine is, and the schedule how much of each group fits into
the time. The groups are in groups/; see group.py.
"""

import argparse
import datetime
import os
import pathlib
import platform
import re
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

from entries import make_entries
from figures import Figures, Missing, label, table
from groups import GROUPS
from groups.logs import make_logs
from machine import Bench, FreshMachine, Unmeasurable
from schedule import Calibration, plan

HERE = pathlib.Path(__file__).resolve().parent
RESERVE = 20    # seconds, for taking the machine down and for the plots
SET_UP_LIMIT = 180    # of a machine, which takes some 10
MARGIN = 0.9    # of the time is planned: measurements vary
# If it cannot be calibrated: a slow machine.
SLOW = Calibration(set_up=30, start=0.1, flat=(0.3, 0.0016), tree=(0.3, 0.0008), make=0.0002,
                   log=0.0005)


class Progress:
    """A line on a terminal; nothing anywhere else."""

    def __init__(self):
        self._terminal = sys.stdout.isatty()
        self._began = time.monotonic()
        self._shown = 0.0
        self.what = ""
        self.ends = self._began  # of the current step, about
        self.afterwards = 0.0    # seconds for what follows

    def tick(self):
        now = time.monotonic()
        if not self._terminal or now - self._shown < 0.25:
            return
        self._shown = now
        left = max(self.ends - now, 0) + self.afterwards
        part = (now - self._began) / max(now - self._began + left, 1)
        about = f"{left / 60:.0f} min" if left >= 90 else f"{left:.0f} s"
        line = f"bench: {part:4.0%}, about {about} left; {self.what}"
        print("\r\033[K" + line[:shutil.get_terminal_size().columns - 1], end="", flush=True)

    def clear(self):
        if self._terminal:
            print("\r\033[K", end="", flush=True)

    def say(self, text):
        self.clear()
        print(f"bench: {text}", flush=True)


class Session:
    """What a group measures with."""

    def __init__(self, programs, work, figures, ends, progress):
        self.programs = programs
        self.work = work
        self.source = HERE
        self.figures = figures
        self.ends = ends
        self._progress = progress
        self._machine = None
        self._brought = set()

    def left(self):
        return self.ends - time.monotonic()

    def machine(self):
        """The current one, or a new one."""
        if self._machine is None:
            left = max(self.left(), 0)
            self._machine = Bench(self.programs / "bench.exe", left + 300,
                                  min(max(left, 10), SET_UP_LIMIT), self._progress.tick)
        return self._machine

    def end_machine(self, patience=60):
        if self._machine is not None:
            self._machine.end(patience)
            self._machine = None
            self._brought.clear()  # what it had is gone with it

    def bring(self, path):
        """Copies a file to the machine's C:\\files."""
        if path.name not in self._brought:
            machine = self.machine()
            copy = self.work / "bring" / path.name
            copy.parent.mkdir(exist_ok=True)
            shutil.copyfile(path, copy)
            machine.bring(copy)
            self._brought.add(path.name)

    def bring_entries(self, shape, entries):
        """Makes a data directory with so many entries there."""
        name = f"{shape}-{entries}"
        if name not in self._brought:
            machine = self.machine()
            shutil.rmtree(self.work / name, ignore_errors=True)  # left from a machine that did not take it
            make_entries(self.work / name, entries, tree=shape == "tree")
            machine.bring(self.work / name)
            self._brought.add(name)

    def measure(self, planned):
        """Measures a step of the schedule on the machine."""
        self.machine().measure(planned.step.name, planned.choice.entries, planned.turns,
                               planned.limit, planned.run_limit, self.figures.add)

    def run_on_machine(self, program, **environment):
        """Runs a Windows program on another machine, and returns the lines that it printed."""
        machine = FreshMachine(self.programs / program, 300, **environment)
        try:
            lines = list(machine.lines(120, self._progress.tick))
        finally:
            machine.end()
        if machine.status() != 0:
            raise Unmeasurable(machine.last_words())
        return lines


def calibrate(session):
    """How fast the machine is, from a few short runs."""
    values = {}

    def timed(name, entries, turns):
        times = []
        limit = max(session.left() / 20, 10)  # a hang must not use up the others' time
        session.machine().measure(name, entries, turns, limit, limit, lambda *figure:
                                  times.append(figure[4]) if figure[3] == "ms" else None)
        return statistics.mean(times) / 1000

    def configuring(shape):
        few, many = 100, 1_000
        for entries in (few, many):
            session.bring_entries(shape, entries)
        # Both programs of a pair, with a margin for what grows faster than the number of entries.
        some, more = (2 * timed(f"configure {shape}", entries, 2) for entries in (few, many))
        each = max(more - some, 0) / (many - few)
        return max(some - few * each, 0), each * 1.1

    def making(make):
        began = time.monotonic()
        make(session.work / "some", 1_000)
        shutil.rmtree(session.work / "some")
        return (time.monotonic() - began) / 1_000

    def setting_up():
        began = time.monotonic()
        session.machine()
        return time.monotonic() - began

    for name, measure in (("set_up", setting_up),
                          ("make", lambda: making(lambda *some: make_entries(*some, tree=False))),
                          ("log", lambda: making(make_logs)),
                          ("start", lambda: timed("usage", 0, 3)),
                          ("flat", lambda: configuring("flat")),
                          ("tree", lambda: configuring("tree"))):
        try:
            values[name] = measure()
        except (Unmeasurable, OSError, statistics.StatisticsError) as error:
            session.figures.add("calibration", name, 0, "failed", reason(error))
            session.end_machine(patience=0)
            values[name] = getattr(SLOW, name)
        session.figures.add("calibration", name, 0, "s", values[name])
    return Calibration(**values)


def reason(error):
    if isinstance(error, subprocess.CalledProcessError):
        return f"{pathlib.Path(error.cmd[0]).name} has failed"
    return " ".join(str(error).split()) or type(error).__name__


def measure_groups(groups, calibration, session, progress):
    """Measures as much of each group as there is time for: the cheapest first, so that long steps take no
    time from others. The rest is planned anew before each step, with the time that is left."""
    waiting = [(group, step) for group in groups for step in group.steps(calibration)]

    def planned():
        return plan([step for _, step in waiting], MARGIN * max(session.left(), 0))

    costs = dict.fromkeys(groups, 0)
    for (group, _), each in zip(waiting, planned()):
        costs[group] += each.seconds
    waiting.sort(key=lambda pair: costs[pair[0]])
    steps = len(waiting)
    while waiting:
        now, *later = planned()
        group, step = waiting.pop(0)
        if now.choice is None:
            session.figures.add(group.title, step.name, step.choices[0].entries, "failed",
                                "there was no time")
            continue
        progress.what = (f"{label(step.name, now.choice.entries)}, "
                         f"part {steps - len(waiting)} of {steps}")
        progress.ends = time.monotonic() + now.seconds
        progress.afterwards = sum(each.seconds for each in later) + RESERVE
        progress.tick()
        began = time.monotonic()
        try:
            group.measure(now, session)
        except Exception as error:  # of any kind: keep the other groups
            session.figures.add(group.title, step.name, now.choice.entries, "failed", reason(error))
            session.end_machine(patience=0)
            waiting = [pair for pair in waiting if pair[0] is not group]
        session.figures.add("schedule", step.name, now.choice.entries, "planned s", f"{now.seconds:.1f}")
        session.figures.add("schedule", step.name, now.choice.entries, "took s",
                            f"{time.monotonic() - began:.1f}")


def machine_text():
    model = "an unknown processor"
    for line in pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8").splitlines():
        if line.startswith("model name"):
            model = line.split(":", 1)[1].strip()
            break
    wine = subprocess.run(["/usr/lib/wine/wine64", "--version"], check=True, text=True,
                          stdout=subprocess.PIPE).stdout.strip()
    return f"{model}, {os.cpu_count()} processors; Linux {platform.release()}; {wine}"


def run(groups, programs, results, minutes):
    """Measures all of it into the results, a new file."""
    results.unlink(missing_ok=True)
    figures = Figures(results)
    figures.add("run", "all", 0, "when", f"{datetime.date.today():%d %B %Y}")
    figures.add("run", "all", 0, "where", machine_text())
    figures.add("run", "all", 0, "minutes", f"{minutes:g}")
    progress = Progress()
    progress.say(f"measuring, for about {minutes:g} minutes")
    progress.what = "how fast this machine is"
    progress.afterwards = minutes * 60
    with tempfile.TemporaryDirectory(prefix="finaset-bench.") as directory:
        session = Session(programs, pathlib.Path(directory), figures,
                          time.monotonic() + minutes * 60 - RESERVE, progress)
        try:
            measure_groups(groups, calibrate(session), session, progress)
            progress.what = "the last of it"
            progress.tick()
            session.end_machine()
        except BaseException:
            progress.clear()
            session.end_machine(patience=0)
            raise
    progress.clear()


class Page:
    """Draws the plots of the page into its directory."""

    def __init__(self, documentation):
        self._documentation = documentation
        self.drawn = set()

    def plot(self, name, title, data):
        with tempfile.TemporaryDirectory(prefix="finaset-plot.") as work:
            for file, lines in data.items():
                pathlib.Path(work, file).write_text("\n".join(lines) + "\n", encoding="utf-8")
            image = f"{name}.svg"
            gnuplot = subprocess.run(
                ["gnuplot", HERE / "groups/common.gnuplot", "-e", f'set output "{image}"',
                 HERE / f"groups/{name}.gnuplot"], cwd=work, check=False)
            if gnuplot.returncode != 0:
                return f"**The plot could not be drawn** ({title.lower()})."
            shutil.copyfile(pathlib.Path(work, image), self._documentation / image)
        self.drawn.add(image)
        return f"![{title}]({image})"


def write(groups, figures, documentation):
    """Writes the page and its plots, and returns the table of its goals."""
    page = Page(documentation)
    sections = []
    for group in groups:
        sections.append(f"## {group.title}\n")
        reasons = [f"{label(*step)}: {figures.texts(group.title, *step, 'failed')[0]}"
                   for step in figures.having(group.title, "failed")]
        try:
            text = group.text(figures, page.plot)
            if reasons:
                sections.append(f"**Not all of this could be measured** ({'; '.join(reasons)}).\n")
            sections.append(text)
        except Missing as missing:
            sections.append(f"**This could not be measured** ({'; '.join(reasons) or missing}).\n")
    for image in documentation.glob("benchmark-*.svg"):
        if image.name not in page.drawn:
            image.unlink()
    head = table(("", "goal", "this time", ""),
                 [goal.row(figures) for group in groups for goal in group.goals(figures)])
    when, where, minutes = (figures.texts("run", "all", 0, each)[0]
                            for each in ("when", "where", "minutes"))
    (documentation / "benchmarks.md").write_text(f"""# Benchmarks

What the program's work costs compared with the minimum: a bare program makes the same platform calls in
the same order and nothing else, and an empty one does nothing at all. `./dev bench` measures all of this
again and writes this page; tests assert only the number of calls.

{when}, within {minutes} minutes, on {where}.

{head}
""" + "\n".join(sections), encoding="utf-8")
    return head


def main():
    parser = argparse.ArgumentParser(prog="bench.py")
    parser.add_argument("--minutes", type=float, default=10)
    parser.add_argument("--again", action="store_true")
    for name in ("programs", "results", "documentation"):
        parser.add_argument(name, type=pathlib.Path)
    arguments = parser.parse_args()
    results = arguments.results.resolve()
    # If told to end, leave nothing behind.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    if not arguments.again:
        try:
            run(GROUPS, arguments.programs.resolve(), results, arguments.minutes)
        except KeyboardInterrupt:
            print(f"bench: interrupted; {arguments.results} has what was measured, the page is as it was",
                  file=sys.stderr)
            return 130
    print(re.sub(r"[`*]", "", write(GROUPS, Figures(results), arguments.documentation.resolve())))
    return 0


if __name__ == "__main__":
    sys.exit(main())
