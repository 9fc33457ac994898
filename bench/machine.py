"""A Windows machine with the product, and on it the program that measures."""

import os
import pathlib
import queue
import signal
import subprocess
import tempfile
import threading
import time

HERE = pathlib.Path(__file__).resolve().parent
FRESH_MACHINE = HERE.parent / "tests/machine/fresh_machine.sh"
TAKE_DOWN_LIMIT = 120    # seconds


class Unmeasurable(Exception):
    """Says why something cannot be measured."""


def windows_path(path):
    return "Z:" + str(path).replace("/", "\\")


class FreshMachine:
    """A Windows program that runs on a machine of its own, and what it prints, line by line."""

    def __init__(self, program, limit, **environment):
        self._errors = tempfile.TemporaryFile("w+", errors="replace")
        self._process = subprocess.Popen(
            [FRESH_MACHINE, program],
            env={**os.environ, "FINASET_MACHINE_LIMIT": str(int(limit)), **environment},
            text=True, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=self._errors)
        self._lines = queue.Queue()
        self._last_words = ""
        self._reader = threading.Thread(target=self._read, daemon=True)
        self._reader.start()

    def _read(self):
        with self._process.stdout, self._errors:
            for line in self._process.stdout:
                self._lines.put(line.rstrip())
            status = self._process.wait()
            self._errors.seek(0)
            errors = self._errors.read().split("\n")
            self._last_words = ([line for line in errors if line] or [f"it exited with {status}"])[-1]
            self._lines.put(None)

    def lines(self, silence, tick):
        """Yields what the program prints until it ends. `tick` is called at least once a second;
        so many seconds of silence count as a hang."""
        heard = time.monotonic()
        while True:
            tick()
            try:
                line = self._lines.get(timeout=1)
            except queue.Empty:
                if time.monotonic() - heard > silence:
                    raise Unmeasurable(f"nothing was heard for {silence:.0f} seconds") from None
                continue
            if line is None:
                return
            heard = time.monotonic()
            yield line

    def say(self, line):
        try:
            self._process.stdin.write(line + "\n")
            self._process.stdin.flush()
        except OSError:
            raise Unmeasurable(self.last_words()) from None

    def last_words(self):
        """Why it ended: the end of its standard error, or its exit code."""
        self._reader.join()
        return self._last_words

    def status(self):
        """Its exit code, once it has ended."""
        self._reader.join()
        return self._process.returncode

    def end(self, patience=0):
        """Ends the program if it does not end by itself within `patience` seconds of the end of its
        input, and returns when the machine is taken down."""
        try:
            self._process.stdin.close()
        except OSError:
            pass  # it has ended
        ends = time.monotonic() + patience
        gives_up = ends + TAKE_DOWN_LIMIT
        while self._process.poll() is None and time.monotonic() < gives_up:
            if time.monotonic() >= ends:
                self._end_child()
            try:
                self._process.wait(timeout=0.5)
            except subprocess.TimeoutExpired:
                pass

    def _end_child(self):
        # The script waits for everything on the machine to end, and then takes it down.
        script = self._process.pid
        try:
            for child in pathlib.Path(f"/proc/{script}/task/{script}/children").read_text().split():
                name = pathlib.Path(f"/proc/{child}/comm").read_text().strip()
                if not name.startswith("wineserver") and name not in ("rm", "mv"):
                    os.kill(int(child), signal.SIGTERM)
        except OSError:
            pass  # it has just ended


class Bench:
    """bench.exe on a machine of its own, which is taken down after at most `limit` seconds."""

    def __init__(self, program, limit, set_up_limit, tick):
        self._tick = tick
        self._machine = FreshMachine(program, limit)
        try:
            self._wait("ready", set_up_limit, keep=None)
        except BaseException:
            self._machine.end()
            raise

    def _wait(self, end, silence, keep):
        for line in self._machine.lines(silence, self._tick):
            if line == end:
                return
            kind, _, rest = line.partition(" ")
            if kind == "failed":
                raise Unmeasurable(rest)
            if kind == "figure" and keep:
                group, subject, entries, measure, value = rest.split(",")
                keep(group, subject, int(entries), measure, float(value))
        raise Unmeasurable(self._machine.last_words())

    def bring(self, path):
        """Moves a file or directory to the machine's C:\\files."""
        self._machine.say(f"bring {windows_path(path)}")
        self._wait("done", 60, keep=None)

    def measure(self, name, entries, turns, seconds, run_limit, keep):
        """So many turns, or as many as start within so many seconds. `keep` gets each figure as it
        comes. A run that exceeds its limit, in seconds, is ended and is an error."""
        self._machine.say(
            f"measure {entries} {turns} {seconds * 1000:.0f} {run_limit * 1000:.0f} {name}")
        self._wait("done", run_limit + 60, keep)

    def end(self, patience=60):
        self._machine.end(patience)
