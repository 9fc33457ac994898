#!/usr/bin/env python3
"""Runs the benchmarks on a machine of their own, and writes what they say.

    bench.py PROGRAMS RESULTS DOCUMENTATION [--again]

PROGRAMS is the directory of the programs that were built. RESULTS is the file that gets the figures,
lines of "group,subject,entries,measure,value"; with --again, those that are there are taken, and
nothing is measured. DOCUMENTATION gets benchmarks.md and the plots. Nothing is asserted: what was
reached stands beside each goal.
"""

import collections
import csv
import datetime
import math
import os
import pathlib
import platform
import re
import statistics
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
SIZES = (100, 1_000, 10_000, 100_000)
DEPTH = 6


def make_entries(top, entries, tree):
    """A directory with so many entries: files alone, or files in a tree of a tenth directories."""
    directories = [top]
    top.mkdir()
    while tree and len(directories) - 1 + DEPTH <= max(DEPTH, entries // 10):
        branch = top
        for level in range(1, DEPTH + 1):
            branch = branch / f"level {level} {len(directories):05}"
            branch.mkdir()
            directories.append(branch)
    for index in range(entries - len(directories) + 1):
        (directories[index % len(directories)] / f"image{index:06}.png").touch()


def run_on_machine(program, *arguments, **environment):
    """Runs a Windows program on a fresh machine, and returns what it printed."""
    return subprocess.run(
        [HERE.parent / "tests/machine/fresh_machine.sh", program, *arguments],
        env={**os.environ, "FINASET_MACHINE_LIMIT": "900", **environment},
        check=True, text=True, stdout=subprocess.PIPE).stdout


def windows_path(path):
    return "Z:" + str(path).replace("/", "\\")


class Figures:
    """What was measured: figures by group, subject, number of entries, and measure."""

    def __init__(self, path):
        self.all = collections.defaultdict(list)
        with open(path, encoding="ascii") as lines:
            for group, subject, entries, measure, value in csv.reader(lines):
                self.all[group, subject, int(entries), measure].append(float(value))

    def median(self, group, subject, entries, measure="ms"):
        return statistics.median(self.all[group, subject, entries, measure])

    def peak(self, group, subject, entries):
        """Of the memory, in KB. Each is of a sample, and may be too low, but never too high."""
        return max(self.all[group, subject, entries, "peak KB"])

    def runs(self, group, subject, entries, measure="ms"):
        return len(self.all[group, subject, entries, measure])

    def ratio(self, group, subject, other, entries):
        """The median of the ratios of runs that stood side by side, with the least and the most."""
        ratios = [mine / its for mine, its in zip(self.all[group, subject, entries, "ms"],
                                                  self.all[group, other, entries, "ms"])]
        return statistics.median(ratios), min(ratios), max(ratios)

    def unrest(self, group, subject, entries):
        """By how much the runs of one program differ: what a ratio may be without a reason."""
        times = self.all[group, subject, entries, "ms"]
        return max(times) / min(times)

    def exponent(self, group, subject):
        """Of the growth from 1,000 to 100,000 entries."""
        few, many = (self.median(group, subject, entries) for entries in (1_000, 100_000))
        return math.log(many / few) / math.log(100)

    def bytes_per_entry(self, group, subject):
        few, many = (self.peak(group, subject, entries) for entries in (100, 100_000))
        return (many - few) * 1024 / (100_000 - 100)


def verdict(reached):
    return "reached" if reached else "**missed**"


def table(head, rows):
    lines = ["| " + " | ".join(head) + " |", "|" + "---|" * len(head)]
    lines += ["| " + " | ".join(str(cell) for cell in row) + " |" for row in rows]
    return "\n".join(lines) + "\n"


def spread(ratio):
    return f"{ratio[0]:.3f} ({ratio[1]:.3f} to {ratio[2]:.3f})"


def number(value):
    return f"{value:,.0f}" if value >= 1000 else f"{value:,.1f}"


def report(figures, calls, programs):
    """The sections of the document, and the goals with what was reached of them."""
    goals = []
    text = []

    # Start
    ratio = figures.ratio("usage", "Finaset", "empty", 0)
    goals.append(("`/?`, over the empty program", "1.15", f"{ratio[0]:.2f}",
                  verdict(ratio[0] <= 1.15)))
    ratio = figures.ratio("usage", "Finaset", "bare", 0)
    goals.append(("`/?`, over the bare program", "1.15", f"{ratio[0]:.2f}",
                  verdict(ratio[0] <= 1.15)))
    names = {
        "empty": "the empty program",
        "libraries": "the empty program, with the libraries that the program has",
        "bare": "the bare program: these, and the calls",
        "Finaset": "`Finaset.exe /?`",
    }
    rows = [(name, f"{figures.median('usage', subject, 0):.2f}",
             f"{figures.ratio('usage', subject, 'empty', 0)[0]:.2f}")
            for subject, name in names.items()]
    text.append(f"""## Starting

{figures.runs('usage', 'Finaset', 0)} runs of each, in turns; medians of the times, and of the ratios of runs that stood side by side.
The fastest and the slowest run of the empty program are a factor of {figures.unrest('usage', 'empty', 0):.1f} apart: what the last
three differ by among themselves is the machine's unrest.

{table(("", "ms", "to the empty program"), rows)}
![The time of a run that does nothing](benchmark-start.svg)

What an empty program does not have is the loading of ole32, and with it of combase, rpcrt4, user32
and gdi32: the run initialises COM before anything else, whatever its option is, so it needs them.
""")

    # Entries
    rows = []
    for shape in ("flat", "tree"):
        group = f"configure {shape}"
        for entries in SIZES:
            ratio = figures.ratio(group, "Finaset", "bare", entries)
            rows.append((shape, f"{entries:,}", figures.runs(group, "Finaset", entries),
                         number(figures.median(group, "Finaset", entries)),
                         number(figures.median(group, "bare", entries)), spread(ratio),
                         f"{figures.unrest(group, 'bare', entries):.3f}"))
            if entries >= 10_000:
                goals.append((f"`/CONFIGURE`, {entries:,} entries, {shape}, over the bare program",
                              "1.05", f"{ratio[0]:.3f}", verdict(ratio[0] <= 1.05)))
    exponents = []
    for shape in ("flat", "tree"):
        group = f"configure {shape}"
        mine, its = (figures.exponent(group, subject) for subject in ("Finaset", "bare"))
        exponents.append((shape, f"{mine:.3f}", f"{its:.3f}"))
        goals.append((f"`/CONFIGURE`, growth from 1,000 to 100,000 entries, {shape}: exponent",
                      "1.05", f"{mine:.3f}", verdict(mine <= 1.05)))
    text.append(f"""## Configuring, by the number of entries

The image cache has so many entries: files in one directory, or in a tree of depth {DEPTH} of which a
tenth is directories. Pairs of runs in turns; medians, and the ratio of the two runs of a pair with
its least and its most. The last column is the bare program's slowest run over its fastest: the machine's
own unrest.

{table(("", "entries", "pairs", "Finaset, ms", "bare, ms", "ratio", "unrest"), rows)}
![The time by the number of entries](benchmark-configure.svg)

The exponent of the growth from 1,000 to 100,000 entries, 1 being linear:

{table(("", "Finaset", "bare"), exponents)}""")

    # Services
    rows = []
    for group, what in (("stop", "eight services are stopped"), ("start", "four are started")):
        entries = 8 if group == "stop" else 4
        ratio = figures.ratio(group, "Finaset", "bare", entries)
        rows.append((what, number(figures.median(group, "Finaset", entries)),
                     number(figures.median(group, "bare", entries)), spread(ratio)))
    text.append(f"""## Services

Stand-ins that take 200 ms to stop and 100 ms to start. The program looks at a service every 500 ms,
as it is asked to, so each costs one such wait, in the bare program too.

{table(("", "Finaset, ms", "bare, ms", "ratio"), rows)}""")

    # Calls
    text.append(f"""## Platform calls

Counted at the imports: the calls that can fail. A test holds the program to them, and to the calls of
the bare program in their order for whole runs of each option. What is asked for comes twice or three
times where the steps are apart: the links, the directories and the lists of a directory are three
walks, and each function expands its path again.

{table(("for each", "calls", "asked for", ""), calls)}""")

    # Memory
    rows = []
    empty = figures.peak("usage", "empty", 0)
    for shape in ("flat", "tree"):
        group = f"configure {shape}"
        rows += [(shape, f"{entries:,}",
                  *(number(figures.peak(group, subject, entries) - empty)
                    for subject in ("Finaset", "bare"))) for entries in SIZES]
        mine = figures.bytes_per_entry(group, "Finaset")
        its = figures.bytes_per_entry(group, "bare")
        rows.append((shape, "each, bytes", f"{mine:.0f}", f"{its:.0f}"))
        goals.append((f"memory for each entry, {shape}", "200 bytes", f"{mine:.0f} bytes",
                      verdict(mine <= 200)))
    search = figures.bytes_per_entry("search", "search")
    flat = figures.bytes_per_entry("configure flat", "Finaset")
    sizes = [(f"{kilobytes:,}", number(figures.peak("file size", "Finaset", kilobytes)))
             for kilobytes in (1, 1_000, 100_000)]
    peaks = [figures.peak("file size", "Finaset", kilobytes)
             for kilobytes in (1, 1_000, 100_000)]
    goals.append(("memory by the size of a file, 1 KB to 100 MB", "flat",
                  f"{max(peaks) - min(peaks):+.0f} KB",
                  verdict(max(peaks) - min(peaks) <= 0.02 * min(peaks))))
    text.append(f"""## Memory

The peak of the working set, sampled while the program runs, over that of the empty program
({number(empty)} KB). The libraries take the most of it. Wine reads a directory as a whole when a search
begins: a program that does nothing else takes {search:.0f} bytes for each entry of the flat directory. That
leaves {flat - search:.0f} to the program, for the names, of 15 characters here, which it collects before
it sets the first list: 80 for a string each, the rest for the growth of their list. One block for all
names would come below the goal, and be harder to read.

{table(("", "entries", "Finaset, KB", "bare, KB"), rows)}
![The memory by the number of entries](benchmark-memory.svg)

By the size of a shipped file that is copied:

{table(("file, KB", "peak, KB"), sizes)}""")

    # Tools
    rows = []
    for group, what in (("tools configure", "configure"), ("tools all", "stop, configure, start")):
        for subject, name in (("Finaset", "Finaset.exe"),
                              ("without lists", "the same, without access lists"),
                              ("cmd", "batch file"), ("NSIS", "NSIS")):
            rows.append((what, name, number(figures.median(group, subject, 0)),
                         f"{figures.median(group, subject, 0, 'processes'):.0f}",
                         number(figures.peak(group, subject, 0) / 1024),
                         {0: "no", 1: "yes"}[min(figures.all[group, subject, 0, "same state"])]))
    text.append(f"""## Against the system's own tools

The same steps in a batch file ([steps.cmd](../bench/steps.cmd)) and in the section of an NSIS installer
([steps.nsi](../bench/steps.nsi)), with net, reg, copy, ipconfig and schtasks. Memory is what the
processes of a run have together at a time, shared pages counted in each. Each run has the same to do;
whether it leaves services, settings, files and tasks as the program does is looked at after each.

{table(("", "", "ms", "processes", "peak, MB", "same state"), rows)}
![Time, processes and memory beside the system's tools](benchmark-tools.svg)

Wine's icacls does nothing, so the access lists of the data directories are left out of the scripts. On
the other side they are left out of the second line, the shipping program with its call to set a list
replaced: that is the one to compare with, and the plot's. It is not quite the same even so. Wine's net
says that a service has stopped as soon as it was asked to; the program looks, and waits 500 ms before
it looks again, which is nearly all of its time when it stops and starts. Wine's sc cannot change a
service, so disabling is left out. None of the scripts looks for links. Where something is started, two
of the processes and 29 MB are the companion that runs on, and the console that Wine gives it.
""")

    # Size
    size = (programs / "Finaset.exe").stat().st_size
    goals.append(("size of the program", "1,000,000 bytes", f"{size:,} bytes",
                  verdict(size <= 1_000_000)))
    text.append(SIZE_TEXT)
    return goals, text


# Taken from the linker's map, and from builds with other options; not measured again.
SIZE_TEXT = (HERE / "size.md").read_text(encoding="utf-8")


def machine_text():
    model = "an unknown processor"
    for line in pathlib.Path("/proc/cpuinfo").read_text(encoding="utf-8").splitlines():
        if line.startswith("model name"):
            model = line.split(":", 1)[1].strip()
            break
    wine = subprocess.run(["/usr/lib/wine/wine64", "--version"], check=True, text=True,
                          stdout=subprocess.PIPE).stdout.strip()
    return f"{model}, {os.cpu_count()} processors; Linux {platform.release()}; {wine}"


def plot(figures, work, documentation):
    """The figures as data for the plots, and the plots."""
    with open(work / "start.dat", "w", encoding="ascii") as data:
        for subject in ("empty", "libraries", "bare", "Finaset"):
            data.write(f'"{subject}" {figures.median("usage", subject, 0)}\n')
    with open(work / "entries.dat", "w", encoding="ascii") as data:
        empty = figures.peak("usage", "empty", 0)
        for entries in SIZES:
            cells = [entries]
            for shape in ("flat", "tree"):
                for subject in ("Finaset", "bare"):
                    cells.append(figures.median(f"configure {shape}", subject, entries))
                    cells.append((figures.peak(f"configure {shape}", subject, entries)
                                  - empty) / 1024)
                cells.append(figures.ratio(f"configure {shape}", "Finaset", "bare", entries)[0])
            data.write(" ".join(str(cell) for cell in cells) + "\n")
    with open(work / "tools.dat", "w", encoding="ascii") as data:
        for subject, name in (("without lists", "Finaset"), ("cmd", "batch"), ("NSIS", "NSIS")):
            cells = [figures.median(group, subject, 0, measure) * scale
                     for group in ("tools configure", "tools all")
                     for measure, scale in (("ms", 1), ("processes", 1), ("peak KB", 1 / 1024))]
            data.write(f'"{name}" ' + " ".join(str(cell) for cell in cells) + "\n")
    subprocess.run(["gnuplot", "-c", HERE / "plots.gnuplot", documentation], cwd=work, check=True)


def measure(programs, results, work):
    """Makes the data directories, and measures on a machine that has them."""
    print("bench: making data directories", flush=True)
    files = work / "files"
    files.mkdir()
    for entries in SIZES:
        make_entries(files / f"flat-{entries}", entries, tree=False)
        make_entries(files / f"tree-{entries}", entries, tree=True)
    (files / "steps.cmd").write_bytes((HERE / "steps.cmd").read_bytes())
    subprocess.run(["makensis", "-V2", f"-DOUTPUT={files}/steps.exe", HERE / "steps.nsi"],
                   check=True)
    print("bench: measuring, for a quarter of an hour", flush=True)
    run_on_machine(programs / "bench.exe", windows_path(results), FINASET_FILES=str(files))


def main():
    programs, results, documentation = (pathlib.Path(each).resolve() for each in sys.argv[1:4])
    print("bench: counting calls", flush=True)
    counted = run_on_machine(programs / "sweep_tests.exe", GTEST_FILTER="*PlatformCalls*")
    calls = [[cell.strip() for cell in line.split("|")[1:]]
             for line in counted.splitlines() if line.startswith("platform calls |")]
    with tempfile.TemporaryDirectory(prefix="finaset-bench.") as directory:
        work = pathlib.Path(directory)
        if sys.argv[4:] != ["--again"]:
            measure(programs, results, work)
        figures = Figures(results)
        goals, sections = report(figures, calls, programs)
        plot(figures, work, documentation)

    head = table(("", "goal", "this time", ""), goals)
    (documentation / "benchmarks.md").write_text(f"""# Benchmarks

What the program's work costs beside what it has to: a bare program makes the same platform calls in the
same order, with nothing around them, and an empty one does nothing at all. `./dev bench` measures all
of this again and writes this page; nothing here is asserted by a test but the number of calls.

{datetime.date.today():%d %B %Y}, on {machine_text()}.

{head}
""" + "\n".join(sections), encoding="utf-8")
    print(re.sub(r"[`*]", "", head))


main()
