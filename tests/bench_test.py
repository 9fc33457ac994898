#!/usr/bin/env python3
"""Tests how ./dev bench uses its time and handles failing groups. Nothing is measured."""

import contextlib
import pathlib
import sys
import tempfile
import time
import unittest
from unittest import mock

BENCH = pathlib.Path(__file__).resolve().parent.parent / "bench"
sys.path.insert(0, str(BENCH))

import bench  # noqa: E402
import machine  # noqa: E402
from figures import Figures, Missing  # noqa: E402
from group import Goal, Group  # noqa: E402
from groups import GROUPS  # noqa: E402
from schedule import Calibration, Choice, Step, plan  # noqa: E402


def slowed(factor):
    """The machine of the documented figures, so many times slower."""
    return Calibration(set_up=8 * factor, start=0.02 * factor, flat=(0.1 * factor, 0.00077 * factor),
                       tree=(0.1 * factor, 0.00036 * factor), make=0.00003 * factor,
                       log=0.00007 * factor)


def plan_of_all(factor, minutes):
    steps = [step for group in GROUPS for step in group.steps(slowed(factor))]
    return plan(steps, minutes * 60)


def shown(planned):
    return [(each.choice and each.choice.entries, each.turns) for each in planned]


class APlan(unittest.TestCase):
    def test_takes_no_longer_than_there_is_time(self):
        for factor in (0.25, 1, 2, 4, 20):
            for minutes in (0, 1, 2, 10, 60):
                with self.subTest(factor=factor, minutes=minutes):
                    self.assertLessEqual(sum(each.seconds for each in plan_of_all(factor, minutes)),
                                         minutes * 60)

    def test_has_all_turns_if_there_is_time(self):
        for each in plan_of_all(1, 60):
            with self.subTest(step=each.step.name):
                self.assertEqual(each.choice, each.step.choices[0])
                self.assertEqual(each.turns, each.step.most)

    def test_leaves_out_nothing_but_the_most_entries_on_a_machine_four_times_slower(self):
        for each in plan_of_all(4, 9):
            if each.choice is None:
                self.assertIn("configure", each.step.name)
                self.assertGreaterEqual(each.step.choices[0].entries, 10_000)
            else:
                self.assertGreaterEqual(each.turns, each.step.least)

    def test_takes_fewer_entries_of_what_costs_most_first(self):
        cheap = Step("cheap", (Choice(10, 1), Choice(1, 0.1)), least=2, most=2)
        dear = Step("dear", (Choice(1000, 50), Choice(100, 5)), least=2, most=2)
        self.assertEqual(shown(plan([cheap, dear], 102)), [(10, 2), (1000, 2)])
        self.assertEqual(shown(plan([cheap, dear], 101)), [(10, 2), (100, 2)])
        self.assertEqual(shown(plan([cheap, dear], 11)), [(10, 2), (None, 0)])
        self.assertEqual(shown(plan([cheap, dear], 1)), [(1, 2), (None, 0)])
        self.assertEqual(shown(plan([cheap, dear], 0)), [(None, 0), (None, 0)])

    def test_gives_the_turns_that_are_left_to_who_has_the_fewest_of_its_own(self):
        one = Step("one", (Choice(0, 1),), least=1, most=5)
        other = Step("other", (Choice(0, 1, fixed=2),), least=1, most=3)
        self.assertEqual([each.turns for each in plan([one, other], 4)], [1, 1])
        self.assertEqual([each.turns for each in plan([one, other], 7)], [3, 2])
        self.assertEqual([each.turns for each in plan([one, other], 100)], [5, 3])


class Clock:
    """Replaces the module: time passes only as told."""

    def __init__(self):
        self.now = 0.0

    def monotonic(self):
        return self.now


class Measured(Group):
    """A group whose turns take as long as given, times a factor."""

    def __init__(self, title, clock, turn=1.0, slower=1.0, fails_at=None,
                 failure=machine.Unmeasurable("a program did not end")):
        self.title = title
        self._clock = clock
        self._turn = turn
        self._slower = slower
        self._fails_at = fails_at
        self._failure = failure

    def steps(self, calibration):
        return [Step(self.title, (Choice(each, self._turn),), least=1, most=10)
                for each in (1, 2, 3)]

    def measure(self, planned, session):
        began = self._clock.now
        for turn in range(planned.turns):
            self._clock.now += self._turn * self._slower
            session.figures.add(self.title, "subject", planned.choice.entries, "ms", turn)
            if planned.choice.entries == self._fails_at:
                raise self._failure
            if self._clock.now + self._turn * self._slower > began + planned.limit:
                break

    def goals(self, figures):
        return [Goal(f"goal of {self.title}", "1", lambda figures: (
            str(figures.median(self.title, "subject", 3)), True))]

    def text(self, figures, plot):
        entries = figures.entries(self.title, "subject")
        if not entries:
            raise Missing("nothing")
        return f"{self.title} has {entries}\n"


class Measuring(unittest.TestCase):
    def setUp(self):
        self.clock = Clock()
        self.stack = contextlib.ExitStack()
        self.addCleanup(self.stack.close)
        self.directory = pathlib.Path(self.stack.enter_context(tempfile.TemporaryDirectory()))
        self.stack.enter_context(mock.patch.object(bench, "time", self.clock))
        self.figures = Figures(self.directory / "figures.csv")
        for name in ("when", "where", "minutes"):
            self.figures.add("run", "all", 0, name, name)

    def measure(self, *groups, seconds=1000):
        session = bench.Session(self.directory, self.directory, self.figures, seconds,
                                bench.Progress())
        bench.measure_groups(groups, slowed(1), session, bench.Progress())

    def page(self, *groups):
        # From the file, as in another run.
        bench.write(groups, Figures(self.directory / "figures.csv"), self.directory)
        return (self.directory / "benchmarks.md").read_text(encoding="utf-8")

    def test_ends_in_time_though_each_turn_takes_four_times_as_long_as_expected(self):
        groups = [Measured(title, self.clock, turn=turn, slower=4)
                  for title, turn in (("dear", 5), ("cheap", 1))]
        self.measure(*groups, seconds=200)
        self.assertLessEqual(self.clock.now, 200)
        for group in groups:
            self.assertEqual(self.figures.entries(group.title, "subject"), [1, 2, 3])

    def test_gives_less_to_what_follows_on_something_that_took_too_long(self):
        groups = [Measured("first", self.clock, turn=1, slower=20),
                  Measured("second", self.clock, turn=5)]
        self.measure(*groups, seconds=190)
        self.assertLessEqual(self.clock.now, 190)
        self.assertEqual(self.figures.entries("second", "subject"), [1, 2, 3])

    def test_measures_the_cheapest_first_so_that_the_dearest_takes_the_time_from_nobody(self):
        groups = [Measured("dear", self.clock, turn=30, slower=4), Measured("cheap", self.clock)]
        self.measure(*groups, seconds=121)
        self.assertEqual(self.figures.entries("cheap", "subject"), [1, 2, 3])

    def test_says_what_there_was_no_time_for(self):
        groups = [Measured("cheap", self.clock), Measured("dear", self.clock, turn=500)]
        self.measure(*groups, seconds=60)
        page = self.page(*groups)
        self.assertIn("## cheap\n\ncheap has [1, 2, 3]\n", page)
        self.assertIn("## dear\n\n**This could not be measured** (dear 1: there was no time; "
                      "dear 2: there was no time; dear 3: there was no time).", page)
        self.assertIn("| goal of cheap | 1 | 4.5 | reached |", page)
        self.assertIn("| goal of dear | 1 |  | not measured |", page)

    def test_keeps_what_a_group_has_got_before_it_fails_and_all_of_the_others(self):
        groups = [Measured("before", self.clock), Measured("failing", self.clock, fails_at=2),
                  Measured("after", self.clock)]
        self.measure(*groups)
        page = self.page(*groups)
        self.assertIn("before has [1, 2, 3]", page)
        self.assertIn("**Not all of this could be measured** (failing 2: a program did not end).\n\n"
                      "failing has [1, 2]", page)
        self.assertIn("after has [1, 2, 3]", page)

    def test_says_so_of_a_group_that_has_got_nothing(self):
        groups = [Measured("failing", self.clock), Measured("after", self.clock)]
        groups[0].measure = lambda planned, session: 1 / 0
        self.measure(*groups)
        page = self.page(*groups)
        self.assertIn("**This could not be measured** (failing 1: division by zero).", page)
        self.assertIn("after has [1, 2, 3]", page)

    def test_keeps_each_figure_at_once(self):
        group = Measured("interrupted", self.clock, fails_at=2, failure=KeyboardInterrupt())
        with self.assertRaises(KeyboardInterrupt):
            self.measure(group)
        figures = Figures(self.directory / "figures.csv")
        self.assertEqual([figures.runs("interrupted", "subject", entries) for entries in (1, 2)],
                         [10, 1])

    def test_shows_a_page_without_any_figure(self):
        page = self.page(*GROUPS)
        for group in GROUPS:
            self.assertIn(f"## {group.title}\n", page)
        self.assertEqual(page.count("**This could not be measured**"), len(GROUPS) - 1)  # not of the size


class AMachine(unittest.TestCase):
    """Replaces the script that sets a machine up, and runs a shell program on it."""

    def machine(self, program):
        directory = self.enterContext(tempfile.TemporaryDirectory())
        script = pathlib.Path(directory, "machine.sh")
        self.taken_down = pathlib.Path(directory, "taken down")
        script.write_text(f"#!/bin/bash\ntrap 'touch \"{self.taken_down}\"' EXIT\n{program}\n")
        script.chmod(0o755)
        self.enterContext(mock.patch.object(machine, "FRESH_MACHINE", script))
        fresh = machine.FreshMachine("program", limit=60)
        self.addCleanup(fresh.end)
        return fresh

    def test_that_hangs_is_taken_down(self):
        hanging = self.machine("echo ready; sleep 1000")
        with self.assertRaisesRegex(machine.Unmeasurable, "nothing was heard for 1 seconds"):
            list(hanging.lines(silence=1, tick=lambda: None))
        hanging.end()
        self.assertTrue(self.taken_down.exists())

    def test_that_has_ended_says_why(self):
        ended = self.machine("echo one; echo nothing free >&2; exit 3")
        self.assertEqual(list(ended.lines(silence=10, tick=lambda: None)), ["one"])
        self.assertEqual(ended.last_words(), "nothing free")

    def test_ends_by_itself_if_it_can(self):
        patient = self.machine("cat && touch \"$0.ended\"")
        patient.say("hello")
        patient.end(patience=30)
        self.assertEqual(list(patient.lines(silence=10, tick=lambda: None)), ["hello"])
        self.assertTrue(self.taken_down.exists())
        self.assertTrue(pathlib.Path(self.taken_down.parent, "machine.sh.ended").exists())


if __name__ == "__main__":
    unittest.main()
