"""The log reader, built for the build computer, on the logs of a rollout."""

import pathlib
import shutil
import subprocess
import time

from figures import number, table
from group import Goal, Group
from schedule import Choice, Step

SIZES = (1_000, 10_000, 100_000)
NATIVE = "native-release/bin"  # beside the directory of the build for Windows
KEPT = pathlib.Path(__file__).parents[2] / "tests/tools/logs"
SUBJECTS = {
    "only reading": ("read_logs",),
    "text": ("finaset-log",),
    "page": ("finaset-log", "--html"),
    "JSON Lines": ("finaset-log", "--json"),
}


def make_logs(directory, count):
    """So many logs, a directory per hundred; in one of ten, a service does not start."""
    good = (KEPT / "reinstallation.log").read_bytes()
    bad = good.replace(b"Starting Ardex....started", b"Starting Ardex....start failed!")
    for index in range(count):
        place = directory / f"site-{index // 100:04}"
        if index % 100 == 0:
            place.mkdir(parents=True)
        (place / f"PC-{index:06}.log").write_bytes(good if index % 10 else bad)


def timed(command, limit):
    """Milliseconds."""
    began = time.perf_counter()
    status = subprocess.run(command, stdout=subprocess.DEVNULL, timeout=limit, check=False).returncode
    took = time.perf_counter() - began
    if status not in (0, 1):
        raise subprocess.CalledProcessError(status, command)
    return took * 1000


def peak(command):
    """KB, sampled."""
    highest = 0
    with subprocess.Popen(command, stdout=subprocess.DEVNULL) as process:
        while process.poll() is None:
            status = pathlib.Path(f"/proc/{process.pid}/status").read_text(encoding="utf-8")
            if status.startswith(f"Name:\t{command[0].name}\n") and "VmHWM" in status:
                highest = max(highest, int(status.split("VmHWM:")[1].split()[0]))
            time.sleep(0.002)
    return highest


def fast_enough(subject):
    def result(figures):
        ratio = figures.ratio("logs", subject, "only reading", SIZES[-1])[0]
        return f"{ratio:.2f} times", ratio <= 4
    return result


def linear_enough(figures):
    exponent = figures.exponent("logs", "text", SIZES[0], SIZES[-1])
    return f"n^{exponent:.2f}", exponent <= 1.05


def small_enough(figures):
    most = max(figures.peak("logs", subject, SIZES[-1])
               for subject in SUBJECTS if subject != "only reading") / 1024
    return f"{most:.1f} MB", most <= 64


class Logs(Group):
    title = "Many logs"

    def steps(self, calibration):
        each = calibration.log  # or less, to be read by all subjects
        return [Step("logs", (Choice(size, size * each, fixed=3 * size * each),), most=9)
                for size in SIZES]

    def measure(self, planned, session):
        size = planned.choice.entries
        directory = session.work / f"logs-{size}"
        programs = session.programs.parents[1] / NATIVE
        ends = time.monotonic() + planned.limit
        make_logs(directory, size)
        commands = {subject: [programs / program, *options, directory]
                    for subject, (program, *options) in SUBJECTS.items()}
        for subject, command in commands.items():  # then the files are cached
            session.figures.add("logs", subject, size, "peak KB", peak(command))
        for turn in range(planned.turns):
            if turn > 0 and time.monotonic() > ends:
                break
            for subject, command in commands.items():
                session.figures.add("logs", subject, size, "ms", timed(command, planned.run_limit))
        shutil.rmtree(directory)

    def goals(self, figures):
        return [*(Goal(f"{SIZES[-1]:,} logs as {subject}, over only reading them", "4 times",
                       fast_enough(subject)) for subject in SUBJECTS if subject != "only reading"),
                Goal("time by the number of logs", "n^1.05", linear_enough),
                Goal(f"memory for {SIZES[-1]:,} logs", "64 MB", small_enough)]

    def text(self, figures, plot):
        rows = [(subject, f"{size:,}", number(figures.median("logs", subject, size)),
                 f"{figures.median('logs', subject, size) / size * 1000:.1f}",
                 f"{figures.ratio('logs', subject, 'only reading', size)[0]:.2f}",
                 f"{figures.peak('logs', subject, size) / 1024:.1f}")
                for subject in SUBJECTS for size in SIZES]
        image = plot("benchmark-logs", "The time by the number of logs",
                     {"logs.dat": [" ".join(str(each) for each in (
                         size, *(figures.median("logs", subject, size) for subject in SUBJECTS)))
                         for size in SIZES]})
        return f"""\
`finaset-log` on Linux, on logs of {(KEPT / "reinstallation.log").stat().st_size:,} bytes, one of ten of which needs attention; the files are
cached, and the output is discarded. For comparison, a program that only reads the bytes.

{table(("", "logs", "ms", "us for each", "over only reading", "peak, MB"), rows)}
{image}
"""
